#include "xfile/xfile_fixture.h"

#include <algorithm>
#include <functional>

namespace tarnvale::test {
namespace {

TEST(MeshWriter, PanelQuadGolden) {
    XFileFixture f;
    EXPECT_EQ(readFile(sourcePath("tests/data/panel_mesh.x")), f.mesh(panelQuad(), "panel"));
}

TEST(MeshWriter, FansPairsNormalsAndTheTextureShift) {
    using Make = std::function<std::shared_ptr<scene::MemoryShape>(XFileFixture&)>;
    const auto white = [] { return makeMaterial({1, 1, 1, 1}, 10); };
    // u of three vertices: the given one, 0.0 and 1.5; v: 0.25, 0.5, 1.0 (no shift).
    const auto shifted = [&](float u) -> Make {
        return [=](XFileFixture&) {
            auto s = shapeOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}});
            s->uvs() = {{u, 0.25f}, {0.0f, 0.5f}, {1.5f, 1.0f}};
            addFace(*s, white(), {0, 1, 2});
            return s;
        };
    };
    struct Row {
        const char* what;
        Make make;
        std::vector<std::string> present;
    };
    const std::vector<Row> rows = {
        {"fans of two to five corners",
         [&](XFileFixture&) {
             auto s = shapeOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {0, 2, 0}});
             auto m = white();
             for (auto corners : {std::initializer_list<int>{0, 1}, {0, 1, 2}, {1, 2, 3, 4}, {0, 1, 2, 3, 4}})
                 addFace(*s, m, corners);
             return s;
         },
         {"6;  // ***** m has  6 faces\r\n 3;0,1,2;,\r\n 3;1,2,3;,\r\n 3;1,3,4;,\r\n 3;0,1,2;,\r\n "
          "3;0,2,3;,\r\n"
          " 3;0,3,4;;\r\n",
          "6;  //  6 faces with materials\r\n"}},
        {"a vertex no polygon uses is written and counted",
         [&](XFileFixture&) {
             auto s = shapeOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {5, 5, 5}});
             addFace(*s, white(), {0, 1, 2});
             return s;
         },
         {"4;  // m contains  4 vertices\r\n", "5.00; 5.00; 5.00;;\r\n", "4;      //  4  uv pairs\r\n"}},
        {"normals keep their own count and indices",
         [&](XFileFixture&) {
             auto s = shapeOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}});
             s->normals() = {{0, 0, 1}, {0, 1, 0}, {1, 0, 0}, {0, 0, -1}, {0, -1, 0}};
             s->addPolygon(white(), std::vector<scene::MemoryShape::Corner>{{0, 4, 0}, {1, 3, 1}, {2, 2, 2}});
             return s;
         },
         {"5;  // m has  5  normals\r\n", "1;     // m 1  faces with normals\r\n 3;4,3,2;;\r\n"}},
        {"no shift", shifted(0.5f), {"uv pairs\r\n0.50; 0.25;,\r\n0.00; 0.50;,\r\n1.50; 1.00;;\r\n"}},
        {"-0.5 raises u by 1",
         shifted(-0.5f),
         {"uv pairs\r\n0.50; 0.25;,\r\n1.00; 0.50;,\r\n2.50; 1.00;;\r\n"}},
        {"-1.0 raises u by 1",
         shifted(-1.0f),
         {"uv pairs\r\n0.00; 0.25;,\r\n1.00; 0.50;,\r\n2.50; 1.00;;\r\n"}},
        {"-1.5 raises u by 2",
         shifted(-1.5f),
         {"uv pairs\r\n0.50; 0.25;,\r\n2.00; 0.50;,\r\n3.50; 1.00;;\r\n"}},
        {"cockpit polygons move to the end with v mirrored, then shifted",
         [&](XFileFixture& f) {
             auto vc = makeMaterial({1, 1, 1, 1}, 10, "vc");
             vc->fields[f.materialField] = "IsVCTexture=1";
             auto s = shapeOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {2, 0, 0}, {2, 1, 0}});
             s->uvs() = {{0, 0.25f}, {1, 0.25f}, {1, 0.75f}, {0, 0.75f}, {0.5f, 0.5f}, {0.5f, 0.5f}};
             addFace(*s, vc, {0, 1, 2});
             addFace(*s, makeMaterial({1, 1, 1, 1}, 10, "plain"), {1, 4, 5});
             addFace(*s, vc, {0, 2, 3});
             return s;
         },
         // The plain polygon, then the two copies in their old order. Position 1 is
         // first used by the plain polygon, so its mirrored pair gets a record of
         // its own (6). v of 0.25 mirrored and shifted by 1 is 0.75; the unmarked rise by 1.
         {" 3;1,4,5;,\r\n 3;0,6,2;,\r\n 3;0,2,3;;\r\n",
          "3;  //  3 faces with materials\r\n0,\r\n1,\r\n1;\r\n", "Material mtl_m_0 {\r\n1.00",
          "7;      //  7  uv pairs\r\n0.00; 0.75;,\r\n1.00; 1.25;,\r\n", "1.00; 0.75;;\r\n"}},
    };
    for (const Row& r : rows) {
        XFileFixture f;
        const std::string out = f.mesh(r.make(f), "m");
        for (const auto& s : r.present)
            EXPECT_NE(out.find(s), std::string::npos) << r.what << ": " << s;
    }
}

TEST(FrameWriter, MeshWithoutTrianglesFailsAtTheMaterialListAndTheMergeShapeGoes) {
    XFileFixture f;
    auto node = f.scene->root()->addChild("Line");
    auto s = shapeOf({{0, 0, 0}, {1, 0, 0}});
    addFace(*s, makeMaterial({1, 1, 1, 1}, 10), {0, 1});
    node->AddShape(s);
    EXPECT_EQ(failureOf([&] { f.frame(node, f.scene->root()); }, err::kSubscript), "Subscript out of range");
    const std::string out = readFile(f.dir.file("part.x"));
    EXPECT_NE(out.find("0;  // ***** line has  0 faces\r\n;\r\n\r\n"), std::string::npos);
    EXPECT_EQ(out.find("MeshMaterialList"), std::string::npos);
    ASSERT_EQ(node->GetShapes()->GetCount(), 1);
    EXPECT_EQ(node->GetShape(), s);
}

// Records every progress report.
class RecordingProgress : public platform::Progress {
  public:
    std::vector<double> shares;
    void report(const std::string& stage, double share) override {
        EXPECT_EQ(stage, "Creating X file");
        shares.push_back(share);
    }
};

TEST(Progress, XFileReportsRiseThroughTheMeshToTheEnd) {
    XFileFixture f;
    auto node = f.scene->root()->addChild("Big");
    auto s = shapeOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}});
    for (int i = 0; i < 100; ++i)
        addFace(*s, makeMaterial({1, 1, 1, 1}, 10), {0, 1, 2});
    node->AddShape(s);
    f.scene->root()->addChild("Small");
    RecordingProgress progress;
    writeFile(f.templateFile, "#scene#\r\n");
    f.exportGroup = f.scene->root();
    auto ctx = f.context();
    ctx.progress = &progress;
    std::string out = f.dir.file("out.x");
    xfile::XFileExporter(ctx).pExportFSX(out, f.exportGroup);
    ASSERT_GE(progress.shares.size(), 6u); // sections of the mesh, then each frame
    EXPECT_TRUE(std::is_sorted(progress.shares.begin(), progress.shares.end()));
    EXPECT_LT(progress.shares.front(), 0.5);
    EXPECT_DOUBLE_EQ(progress.shares.back(), 1.0);
}

} // namespace
} // namespace tarnvale::test
