#include "xfile/xfile_fixture.h"

namespace tarnvale::test {
namespace {

TEST(SkinWeights, ExportBlockGolden) {
    XFileFixture f;
    auto arm = f.scene->root()->addChild("Arm");
    auto shape = shapeOf({{0, 0, 0}, {1, 0, 0}});
    xfile::ObjectBones record;
    record.Add(shape);
    record.Item(1).Add(arm, 0.75f);
    std::string out = f.written([&](xfile::XFileExporter&, platform::TextSink& s) { record.Export(s, "panel"); });
    EXPECT_TRUE(sameText(crlf({"MeshSkinWeights {       // Mesh skin weights for panel",
                               " 2 ;",
                               "               1 ;",
                               "                            \"arm\",        0.75;",
                               "               0 ;",
                               "} // End mesh skin weights panel"}),
                         out));
}

TEST(SkinWeights, EmptyRecordAndCollections) {
    XFileFixture f;
    xfile::ObjectBones record;
    record.Add(std::make_shared<scene::MemoryShape>());
    EXPECT_EQ(record.Count(), 0);
    std::string out = f.written([&](xfile::XFileExporter&, platform::TextSink& s) { record.Export(s, "e"); });
    EXPECT_EQ(out, "MeshSkinWeights {       // Mesh skin weights for e\r\n 0 ;\r\n} // End mesh skin weights e\r\n");
    EXPECT_THROW(record.Item(1), Failure);

    xfile::PointBones p;
    auto bone = f.scene->root();
    p.Add(bone, 0.5f);
    p.Add(bone, 0.5f); // nothing is merged
    EXPECT_EQ(p.Count(), 2);
    p.Remove(1);
    EXPECT_EQ(p.Count(), 1);
    EXPECT_THROW(p.Item(2), Failure);
    // A weight without a bone, and a record of no shape, fail rather than crash.
    record.Object = std::make_shared<scene::MemoryShape>();
    EXPECT_THROW(record.Add(nullptr), Failure);
    xfile::ObjectBones one;
    auto shape = std::make_shared<scene::MemoryShape>();
    shape->positions().push_back({});
    one.Add(shape);
    one.Item(1).Add(nullptr, 1);
    EXPECT_THROW(f.written([&](xfile::XFileExporter&, platform::TextSink& s) { one.Export(s, "e"); }), Failure);
}

TEST(SkinWeights, FindSkinsGivesOneRecordPerMeshShape) {
    XFileFixture f;
    auto shared = shapeOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}});
    auto a = f.scene->root()->addChild("a");
    auto b = a->addChild("b");
    auto bone = f.scene->root()->addChild("bone");
    a->AddShape(shared);
    b->AddShape(shared);
    bone->AddShape(std::make_shared<scene::MemoryShape>(scene::kGeometryOther, 16));
    f.scene->root()->addChild("empty")->addChild("deep")->AddShape(shapeOf({{0, 0, 0}}));
    auto ctx = f.context();
    xfile::XFileExporter(ctx).pFindSkins(f.scene->root());
    ASSERT_EQ(f.bones.size(), 2u);
    EXPECT_EQ(f.bones[0]->Object, shared);
    EXPECT_EQ(f.bones[0]->Count(), 3);
    EXPECT_EQ(f.bones[1]->Count(), 1);
}

TEST(SkinWeights, RecordsOfSceneShapesDoNotMatchTheMergeShape) {
    XFileFixture f;
    auto node = f.scene->root()->addChild("skinned");
    auto s = shapeOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}});
    addFace(*s, makeMaterial({1, 1, 1, 1}, 10), {0, 1, 2});
    node->AddShape(s);
    std::string out = f.expand("#scene#\r\n", node);
    EXPECT_EQ(f.bones.size(), 1u);
    EXPECT_NE(out.find("Mesh skinned {"), std::string::npos);
    EXPECT_EQ(out.find("MeshSkinWeights"), std::string::npos);
}

// A shape whose type cannot be read.
class FailingShape : public scene::MemoryShape {
public:
    int32_t GetTypeCode() override { throw Failure(err::kInvalidCall, "the host failed"); }
};

TEST(SkinWeights, FailureInTheWalkLeavesNoXFile) {
    XFileFixture f;
    std::string out = f.dir.file("out.x");
    writeFile(out, "older file");
    writeFile(f.templateFile, "#scene#\r\n");
    auto node = f.scene->root()->addChild("n");
    node->AddShape(std::make_shared<FailingShape>());
    f.exportGroup = node;
    auto ctx = f.context();
    EXPECT_THROW(xfile::XFileExporter(ctx).pExportFSX(out, f.exportGroup), Failure);
    EXPECT_EQ(readFile(out), "older file");
}

} // namespace
} // namespace tarnvale::test
