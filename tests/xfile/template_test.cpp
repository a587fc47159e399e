#include "xfile/xfile_fixture.h"

namespace tarnvale::test {
namespace {

TEST(Template, LinesAndTokens) {
    struct Row {
        const char* what;
        std::string in, out;
    };
    const std::vector<Row> rows = {
        {"lines without a known token are copied",
         "plain\r\none # hash\r\ntwo ## hashes\r\n#Name# and #foo#\r\n",
         "plain\r\none # hash\r\ntwo ## hashes\r\n#Name# and #foo#\r\n"},
        {"tokens keep head and tail", "A #name# B\r\n<#guid#>\r\nx#datetime#y\r\n",
         "A my_plane_ B\r\n<0123ABCD-0A0B-4C0D-8E0F-010203040506>\r\nxMonday, 23 November 2026 "
         "08:30:00y\r\n"},
        {"only the first token of a line is replaced", "#name# #guid#\r\n#guid##name#\r\n",
         "my_plane_ #guid#\r\n0123ABCD-0A0B-4C0D-8E0F-010203040506#name#\r\n"},
        {"the metre factor", "s=#toM#;\r\n", "s=1.00;\r\n"},
        {"template bytes pass through; the name goes out in the code page", "caf\xE9 #name# \xE9t\xE9\r\n",
         "caf\xE9 my_plane_ \xE9t\xE9\r\n"},
        {"an empty template", "", ""},
        {"the last line gets a line end", "a\r\nlast", "a\r\nlast\r\n"},
        {"LF and CR LF both end lines", "lf only\nnext\n", "lf only\r\nnext\r\n"},
        {"hierarchy and scene drop head and tail", "HEAD1 #hierarchy# TAIL1\r\nHEAD2 #scene# TAIL2\r\n",
         "//  root ( 1  Children)\r\n//    wing_left ( 0  Children)\r\nFrame frm-root {\r\n"},
    };
    for (const Row& r : rows) {
        XFileFixture f;
        f.scene->root()->addChild("Wing Left");
        const std::string out = f.expand(r.in, f.scene->root());
        EXPECT_EQ(r.out, out.substr(0, r.out.size())) << r.what;
        EXPECT_EQ(out.find("HEAD"), std::string::npos) << r.what;
    }
    XFileFixture f;
    f.friendlyName = "Caf\xC3\xA9";
    EXPECT_EQ(f.expand("#name#\r\n", f.scene->root()), "caf\xE9\r\n");
    f.scene->setUnits(scene::kInches);
    EXPECT_EQ(f.expand("s=#toM#;\r\n", f.scene->root()), "s=0.0254;\r\n");
}

TEST(Template, HierarchyIndentIsASixteenBitNumber) {
    XFileFixture f;
    auto a = f.scene->root()->addChild("a");
    a->addChild("b")->addChild("c");
    const std::string out = f.written([&](xfile::XFileExporter& x, platform::TextSink& s) {
        EXPECT_THROW(x.pWriteHierarchy(a, s, 32765), Failure); // c would be indented by 32769
    });
    EXPECT_EQ(out, "//" + std::string(32765, ' ') + "a ( 1  Children)\r\n//" + std::string(32767, ' ') +
                       "b ( 1  Children)\r\n");
}

TEST(Template, LodGroupWritesEveryLodSiblingWithAValue) {
    XFileFixture f;
    auto plane = f.scene->root()->addChild("plane");
    auto lod0 = plane->addChild("plane_LOD_0");
    auto lod1 = plane->addChild("plane_LOD_1");
    plane->addChild("wheels");
    plane->addChild("plane_lod_2")->setNodeValue(0);
    lod1->setMatrix({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 5, 0, 0, 1});
    // Each LOD child is a root frame of its own, with the literal identity lines;
    // the second pass starts from the last child written and writes both again.
    EXPECT_EQ(f.expand("#scene#\r\n--\r\n#scene#\r\n", lod0), readFile(sourcePath("tests/data/lod_group.x")));
    EXPECT_EQ(f.exportGroup, lod1);
}

TEST(Template, LodGroupWithoutParentFailsAtGetChildren) {
    XFileFixture f;
    auto orphan =
        std::make_shared<scene::MemoryObject>("ship_LOD_0", std::make_shared<scene::FieldRegistry>());
    f.exportGroup = orphan;
    writeFile(f.templateFile, "head\r\n#scene#\r\ntail\r\n");
    auto ctx = f.context();
    std::string out = f.dir.file("out.x");
    EXPECT_THROW(xfile::XFileExporter(ctx).pExportFSX(out, f.exportGroup), Failure);
    EXPECT_EQ(readFile(out), "head\r\n");
}

} // namespace
} // namespace tarnvale::test
