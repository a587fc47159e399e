#include "xfile/xfile_fixture.h"

namespace tarnvale::test {
namespace {

TEST(ScanToken, PositionsAndToken) {
    struct Row {
        const char* line;
        int first, second;
        const char* token;
    };
    const Row rows[] = {
        {"no hash", 0, 0, ""},
        {"one # only", 5, 0, ""},
        {"a##b", 2, 3, ""},
        {"x #name# y", 3, 8, "name"},
        {"#guid##scene#", 1, 6, "guid"},
    };
    for (const Row& r : rows) {
        xfile::TokenScan s = xfile::pScanToken(r.line);
        EXPECT_EQ(s.firstHash, r.first) << r.line;
        EXPECT_EQ(s.secondHash, r.second) << r.line;
        EXPECT_EQ(s.token, r.token) << r.line;
    }
}

TEST(Template, LinesWithoutKnownTokensAreCopied) {
    XFileFixture f;
    std::string in = "plain\r\none # hash\r\ntwo ## hashes\r\n#Name# and #foo#\r\n";
    EXPECT_TRUE(sameText(in, f.expand(in, f.scene->root())));
}

TEST(Template, TokensKeepHeadAndTail) {
    XFileFixture f;
    std::string out = f.expand("A #name# B\r\n<#guid#>\r\nx#datetime#y\r\n", f.scene->root());
    EXPECT_TRUE(sameText(crlf({"A my_plane_ B", "<0123ABCD-0A0B-4C0D-8E0F-010203040506>",
                               "xMonday, 23 November 2026 08:30:00y"}),
                         out));
}

TEST(Template, OnlyTheFirstTokenOfALineIsReplaced) {
    XFileFixture f;
    EXPECT_TRUE(sameText(crlf({"my_plane_ #guid#"}), f.expand("#name# #guid#\r\n", f.scene->root())));
}

TEST(Template, MetreFactorFollowsTheSceneUnits) {
    XFileFixture f;
    EXPECT_EQ(f.expand("s=#toM#;\r\n", f.scene->root()), "s=1.00;\r\n");
    f.scene->setUnits(scene::kInches);
    EXPECT_EQ(f.expand("s=#toM#;\r\n", f.scene->root()), "s=0.0254;\r\n");
}

TEST(Template, HierarchyAndSceneDropHeadAndTail) {
    XFileFixture f;
    auto wing = f.scene->root()->addChild("Wing Left");
    wing->addChild("Flap");
    wing->addChild("Tip");
    std::string out = f.expand("HEAD1 #hierarchy# TAIL1\r\nHEAD2 #scene# TAIL2\r\n", wing);
    std::string expected = crlf({"//  wing_left ( 2  Children)", "//    flap ( 0  Children)", "//    tip ( 0  Children)"});
    ASSERT_EQ(out.substr(0, expected.size()), expected);
    std::string frames = out.substr(expected.size());
    EXPECT_EQ(frames.rfind("Frame frm-wing_left {\r\n", 0), 0u);
    for (const char* gone : {"HEAD", "TAIL"}) EXPECT_EQ(out.find(gone), std::string::npos);
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

TEST(Template, EmptyTemplateAndLastLineWithoutLineEnd) {
    XFileFixture f;
    EXPECT_EQ(f.expand("", f.scene->root()), "");
    EXPECT_EQ(f.expand("a\r\nlast", f.scene->root()), "a\r\nlast\r\n");
    EXPECT_EQ(f.expand("lf only\nnext\n", f.scene->root()), "lf only\r\nnext\r\n");
}

TEST(Template, TemplateBytesPassThroughUnchanged) {
    XFileFixture f;
    std::string in = "caf\xE9 #name# \xE9t\xE9\r\n";
    f.friendlyName = "Caf\xC3\xA9";
    EXPECT_EQ(f.expand(in, f.scene->root()), "caf\xE9 caf\xE9 \xE9t\xE9\r\n");
}

TEST(Template, MissingTemplateLeavesAnEmptyOutputAndFails) {
    XFileFixture f;
    std::string out = f.dir.file("out.x");
    writeFile(out, "old content");
    f.templateFile = f.dir.file("no-such-template.X");
    f.exportGroup = f.scene->root();
    auto ctx = f.context();
    try {
        xfile::XFileExporter(ctx).pExportFSX(out, f.exportGroup);
        FAIL() << "no failure";
    } catch (const Failure& e) {
        EXPECT_EQ(e.number(), err::kFileNotFound);
        EXPECT_NE(e.description().find("no-such-template.X"), std::string::npos);
    }
    EXPECT_TRUE(fs::exists(out));
    EXPECT_EQ(readFile(out), "");
}

TEST(Template, LodGroupWritesEveryLodSiblingWithAValue) {
    XFileFixture f;
    auto plane = f.scene->root()->addChild("plane");
    auto lod0 = plane->addChild("plane_LOD_0");
    auto lod1 = plane->addChild("plane_LOD_1");
    plane->addChild("wheels");
    plane->addChild("plane_lod_2")->setNodeValue(0);
    lod1->setMatrix({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 5, 0, 0, 1});
    std::string out = f.expand("#scene#\r\n--\r\n#scene#\r\n", lod0);
    // Each LOD child is a root frame of its own, with the literal identity lines;
    // the second pass starts from the last child written and writes both again.
    std::vector<size_t> at;
    for (size_t p = out.find("Frame frm-"); p != std::string::npos; p = out.find("Frame frm-", p + 1)) at.push_back(p);
    ASSERT_EQ(at.size(), 4u);
    EXPECT_EQ(out.compare(at[0], 24, "Frame frm-plane_lod_0 {\r"), 0);
    EXPECT_EQ(out.compare(at[1], 24, "Frame frm-plane_lod_1 {\r"), 0);
    EXPECT_EQ(out.compare(at[2], 24, "Frame frm-plane_lod_0 {\r"), 0);
    EXPECT_EQ(out.find("frm-wheels"), std::string::npos);
    EXPECT_EQ(out.find("frm-plane_lod_2"), std::string::npos);
    EXPECT_EQ(out.find("5.00"), std::string::npos);
    EXPECT_EQ(f.exportGroup, lod1);
}

TEST(Template, LodGroupWithoutParentFailsAtGetChildren) {
    XFileFixture f;
    auto orphan = std::make_shared<scene::MemoryObject>("ship_LOD_0", std::make_shared<scene::FieldRegistry>());
    f.exportGroup = orphan;
    writeFile(f.templateFile, "head\r\n#scene#\r\ntail\r\n");
    auto ctx = f.context();
    std::string out = f.dir.file("out.x");
    EXPECT_THROW(xfile::XFileExporter(ctx).pExportFSX(out, f.exportGroup), Failure);
    EXPECT_EQ(readFile(out), "head\r\n");
}

} // namespace
} // namespace tarnvale::test
