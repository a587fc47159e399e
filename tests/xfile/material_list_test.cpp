#include "xfile/xfile_fixture.h"

namespace tarnvale::test {
namespace {

std::string materialList(XFileFixture& f, const SGShapePtr& s, const std::string& name, int32_t triangles) {
    return f.written([&](xfile::XFileExporter& x, platform::TextSink& sink) {
        x.pWriteMaterialList(s, sink, name, triangles);
    });
}

// Quads count twice; a material that looks like another counts apart; a polygon
// without material takes the next index unwritten, and the next material takes it.
TEST(MaterialList, FirstUseIndicesGolden) {
    XFileFixture f;
    auto A = makeMaterial({1, 0, 0, 1}, 10, "A"), B = makeMaterial({0, 1, 0, 1}, 10, "B"),
         C = makeMaterial({0, 0, 1, 1}, 10, "C"), lookalike = makeMaterial({1, 0, 0, 1}, 10, "D");
    auto s = shapeOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}});
    addFace(*s, A, {0, 1, 2, 3});
    addFace(*s, B, {0, 1, 2});
    addFace(*s, A, {0, 2, 3});
    addFace(*s, nullptr, {0, 1, 2});
    addFace(*s, C, {0, 1, 2, 3});
    addFace(*s, lookalike, {0, 1, 2});
    EXPECT_EQ(materialList(f, s, "panel", 8), readFile(sourcePath("tests/data/material_list.x")));
    EXPECT_EQ(A->name + " " + B->name + " " + C->name, "mtl_panel_0 mtl_panel_1 mtl_panel_2");
}

std::string materialBlock(XFileFixture& f, const SGMaterialPtr& m) {
    return f.written([&](xfile::XFileExporter& x, platform::TextSink& sink) { x.pWriteMaterial(m, sink); });
}

TEST(MaterialList, AlphaAndPowerRules) {
    struct Row {
        float alpha, power;
        const char* head;
    };
    const Row rows[] = {
        {0.96f, 50, "0.50;0.50;0.50;0.96;;\r\n200.00;\r\n"},
        {0.97f, 50, "0.50;0.50;0.50;1.00;;\r\n200.00;\r\n"},
        {0.98f, 50, "0.50;0.50;0.50;1.00;;\r\n200.00;\r\n"},
        {1.0f, 0.5f, "0.50;0.50;0.50;1.00;;\r\n0.00;\r\n"},
        {1.0f, 1.0f, "0.50;0.50;0.50;1.00;;\r\n249.00;\r\n"},
        {1.0f, 260.0f, "0.50;0.50;0.50;1.00;;\r\n-10.00;\r\n"},
    };
    for (const Row& r : rows) {
        XFileFixture f;
        std::string out = materialBlock(f, makeMaterial({0.5f, 0.5f, 0.5f, r.alpha}, r.power, "x"));
        EXPECT_EQ(out.rfind(std::string("Material x {\r\n") + r.head, 0), 0u) << r.alpha << " " << r.power;
    }
}

TEST(MaterialList, TextureBlocksAndWarnings) {
    struct Row {
        std::string path, fileName, fs10Name, warning;
        std::vector<std::string> ddsNames; // what a conversion must make
    };
    const std::vector<Row> rows = {
        {"C:\\tex\\wing.bmp",
         "wing.bmp",
         "WING.DDS",
         "Warning - WING.BMP is not a DDS file and will need converting\r",
         {"WING.DDS"}},
        {"tex/parts/skin.dds", "tex/parts/skin.dds", "TEX/PARTS/SKIN.DDS", "", {"TEX/PARTS/SKIN.DDS"}},
        {"a.jpeg", "a.jpeg", "A.JDDS", "Warning - A.JPEG is not a DDS file and will need converting\r", {}},
        {"mydds", "mydds", "MYDDS", "", {}},
        {"C:\\T\\SKIN.dds", "SKIN.dds", "SKIN.DDS", "", {"SKIN.DDS"}},
        {"", "", "", "", {}}, // an empty name: no texture block
    };
    for (const Row& r : rows) {
        XFileFixture f;
        auto m = makeMaterial({1, 1, 1, 1}, 10, "x");
        m->textures = std::make_shared<scene::MemoryTextures>();
        m->textures->fileName = r.path;
        std::string out = materialBlock(f, m);
        EXPECT_EQ(f.status, r.warning) << r.path;
        materialBlock(f, m); // a second material of the same texture: still one name
        EXPECT_EQ(f.ddsNames, r.ddsNames) << r.path;
        if (r.path.empty()) {
            EXPECT_EQ(out.find("TextureFileName"), std::string::npos);
            m->textures.reset(); // no textures at all: none either
            EXPECT_EQ(materialBlock(f, m).find("TextureFileName"), std::string::npos);
            continue;
        }
        EXPECT_NE(out.find(" TextureFileName {\r\n     \"" + r.fileName +
                           "\";\r\n }\r\n DiffuseTextureFileName {\r\n"
                           "     \"" +
                           r.fileName + "\";\r\n }\r\nFS10Material {\r\n"),
                  std::string::npos)
            << r.path;
        EXPECT_NE(
            out.find("DiffuseTextureFileName {\r\n\"" + r.fs10Name + "\";\r\n}\r\n}  // FS10Material end"),
            std::string::npos)
            << r.path << "\n"
            << out;
    }
}

TEST(MaterialList, ThousandAndSecondMaterialFails) {
    XFileFixture f;
    auto s = shapeOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}});
    std::vector<std::shared_ptr<scene::MemoryMaterial>> mats;
    for (int i = 0; i < 1001; ++i) {
        mats.push_back(makeMaterial({1, 1, 1, 1}, 10));
        addFace(*s, mats.back(), {0, 1, 2});
    }
    addFace(*s, mats[500], {0, 1, 2}); // one of the 1001 is still found
    std::vector<int32_t> faces;
    std::vector<SGMaterialPtr> materials;
    int32_t count = 0;
    auto ctx = f.context();
    xfile::XFileExporter x(ctx);
    x.pBuildMaterialTable(s, faces, 1002, materials, count);
    EXPECT_EQ(count, 1001);
    EXPECT_EQ(faces.back(), 500);
    addFace(*s, makeMaterial({1, 1, 1, 1}, 10), {0, 1, 2});
    EXPECT_EQ(failureOf([&] { x.pBuildMaterialTable(s, faces, 1003, materials, count); }, err::kSubscript),
              "Subscript out of range");
}

} // namespace
} // namespace tarnvale::test
