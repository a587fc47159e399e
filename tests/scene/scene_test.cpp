#include "scene/scene.h"

#include <gtest/gtest.h>

namespace tarnvale::scene {
namespace {

using Corner = MemoryShape::Corner;

// A shape with `n` positions along x, one normal, one pair per position.
std::shared_ptr<MemoryShape> strip(int n, float uOffset = 0) {
    auto s = std::make_shared<MemoryShape>();
    for (int i = 0; i < n; ++i) {
        s->positions().push_back({float(i), 0, 0});
        s->uvs().push_back({float(i) + uOffset, 0});
    }
    s->normals().push_back({0, 0, 1});
    return s;
}

std::vector<Corner> corners(std::initializer_list<int> vs) {
    std::vector<Corner> c;
    for (int v : vs) c.push_back({v, 0, v});
    return c;
}

TEST(MemoryShape, MergeAppendsWithShiftedIndicesAndMaterials) {
    auto a = strip(3), b = strip(4, 10);
    auto red = std::make_shared<MemoryMaterial>(), blue = std::make_shared<MemoryMaterial>();
    a->addPolygon(red, corners({0, 1, 2}));
    b->addPolygon(blue, corners({0, 1, 2, 3}));
    b->addPolygon(red, corners({3, 2, 1}));
    auto merged = std::make_shared<MemoryShape>();
    merged->MergeShape(a);
    merged->MergeShape(b);
    ASSERT_EQ(merged->GetVertexCount(), 7);
    ASSERT_EQ(merged->GetPolygonCount(), 3);
    SGFace f = merged->GetPolygon(1);
    EXPECT_EQ(f.GetCornerCount(), 4);
    EXPECT_EQ(f.GetCornerVertex(0), 3);
    EXPECT_EQ(f.GetCornerNormal(0), 1);
    EXPECT_FLOAT_EQ(f.GetCornerUV(3).u, 13);
    EXPECT_EQ(f.GetMaterial(), blue);
    EXPECT_EQ(merged->GetPolygon(2).GetMaterial(), red);
    EXPECT_EQ(merged->GetPolygon(0).GetMaterial(), red);
    // The sources are untouched.
    EXPECT_EQ(a->GetPolygonCount(), 1);
    EXPECT_EQ(b->GetVertexCount(), 4);
}

TEST(MemoryShape, EditsOfAMergedShapeLeaveTheSharedSourcesAlone) {
    auto a = strip(3), b = strip(3, 10);
    auto red = std::make_shared<MemoryMaterial>(), blue = std::make_shared<MemoryMaterial>();
    a->addPolygon(red, corners({0, 1, 2}));
    a->addPolygon(blue, corners({2, 1, 0}));
    b->addPolygon(blue, corners({0, 1, 2}));
    auto merged = std::make_shared<MemoryShape>();
    merged->MergeShape(a);
    merged->MergeShape(b);
    merged->GetPolygon(1).SetMaterial(red);
    // A copy of polygon 0 that uses a pair of the second piece and one of its own.
    SGFace copy = merged->AddPolygon();
    copy.SetMaterial(red);
    copy.AddCorner(0, 0, 4);
    copy.AddCorner(5, 1, merged->AddUV(0.5f, -0.5f));
    copy.AddCorner(2, 0, 2);
    merged->DeletePolygons({0, 2});
    ASSERT_EQ(merged->GetPolygonCount(), 2);
    EXPECT_EQ(merged->GetPolygon(0).GetMaterial(), red);
    SGFace moved = merged->GetPolygon(1);
    EXPECT_EQ(moved.GetMaterial(), red);
    EXPECT_FLOAT_EQ(moved.GetCornerUV(0).u, 11);
    EXPECT_FLOAT_EQ(moved.GetCornerUV(1).v, -0.5f);
    EXPECT_EQ(moved.GetCornerVertex(1), 5);
    EXPECT_EQ(moved.GetCornerNormal(1), 1);
    EXPECT_THROW(moved.AddCorner(0, 0, 7), Failure);

    MeshArrays arrays;
    merged->GetMeshArrays(arrays);
    // Position 0 keeps the pair of its first corner, so the copy's corner there
    // gets a record of its own; position 5 is used by the copy alone.
    ASSERT_EQ(arrays.vertexCount, 7);
    EXPECT_FLOAT_EQ(arrays.vertices[6].u, 11);
    EXPECT_FLOAT_EQ(arrays.vertices[5].v, -0.5f);
    std::vector<int32_t> stream{3, 2, 0, 1, 0, 0, 0, 3, 6, 0, 5, 1, 2, 0};
    EXPECT_EQ(arrays.polygons, stream);

    // The sources are as they were, and a later change of one does not reach the merge.
    EXPECT_EQ(a->GetPolygonCount(), 2);
    EXPECT_EQ(a->GetPolygon(1).GetMaterial(), blue);
    EXPECT_EQ(b->GetPolygonCount(), 1);
    EXPECT_EQ(b->uvs().size(), 3u);
    a->addPolygon(blue, corners({0, 1, 2}));
    EXPECT_EQ(merged->GetPolygonCount(), 2);
}

TEST(MemoryShape, CompactStorageTurnsGeneralWhenNeeded) {
    auto s = strip(5);
    for (int i = 1; i < 5; ++i) s->normals().push_back({0, float(i), 0});
    auto m = std::make_shared<MemoryMaterial>();
    s->addPolygon(m, std::vector<Corner>{{0, 0, 0}, {1, 1, 1}, {2, 2, 2}}); // one index per corner
    s->addPolygon(m, corners({0, 1, 2, 3})); // no longer all triangles
    s->addPolygon(m, std::vector<Corner>{{4, 0, 1}, {3, 0, 2}, {2, 0, 3}}); // indices differ per corner
    ASSERT_EQ(s->GetPolygonCount(), 3);
    EXPECT_EQ(s->GetPolygon(1).GetCornerCount(), 4);
    EXPECT_EQ(s->GetPolygon(1).GetCornerVertex(3), 3);
    EXPECT_EQ(s->GetPolygon(0).GetCornerNormal(2), 2);
    EXPECT_EQ(s->GetPolygon(2).GetCornerNormal(0), 0);
    EXPECT_FLOAT_EQ(s->GetPolygon(2).GetCornerUV(0).u, 1);
    s->DeletePolygons({1});
    EXPECT_EQ(s->GetPolygon(1).GetCornerVertex(0), 4);
}

TEST(IndexArray, WidensWhenANumberNeedsMoreThanSixteenBits) {
    IndexArray a;
    a.push_back(7);
    a.push_back(UINT32_MAX); // "none" fits either form
    a.push_back(65534);
    EXPECT_EQ(a[1], UINT32_MAX);
    a.insert(1, 65535); // needs the wide form
    a.set(0, 123456);
    ASSERT_EQ(a.size(), 4u);
    EXPECT_EQ(a[0], 123456u);
    EXPECT_EQ(a[1], 65535u);
    EXPECT_EQ(a[2], UINT32_MAX);
    EXPECT_EQ(a[3], 65534u);
}

TEST(MemoryShape, LargeIndicesAfterSmallOnes) {
    auto s = strip(70000);
    for (int i = 1; i < 70000; ++i) s->normals().push_back({0, 0, 1});
    auto m = std::make_shared<MemoryMaterial>();
    s->addPolygon(m, std::vector<Corner>{{0, 0, 0}, {1, 1, 1}, {2, 2, 2}});
    s->addPolygon(m, std::vector<Corner>{{69999, 69999, 69999}, {65535, 65535, 65535}, {3, 3, 3}});
    EXPECT_EQ(s->GetPolygon(0).GetCornerVertex(1), 1);
    EXPECT_EQ(s->GetPolygon(1).GetCornerVertex(0), 69999);
    EXPECT_EQ(s->GetPolygon(1).GetCornerNormal(1), 65535);
    MeshArrays a;
    s->GetMeshArrays(a);
    EXPECT_EQ(a.polygons[8], 69999);
}

TEST(MemoryShape, DeletePolygonsKeepsTheOthersInOrder) {
    auto s = strip(5);
    auto m = std::make_shared<MemoryMaterial>();
    for (int i = 0; i < 3; ++i) s->addPolygon(m, corners({i, i + 1, i + 2}));
    s->DeletePolygons({0, 2});
    ASSERT_EQ(s->GetPolygonCount(), 1);
    EXPECT_EQ(s->GetPolygon(0).GetCornerVertex(0), 1);
    EXPECT_THROW(s->DeletePolygons({1}), Failure);
    EXPECT_THROW(s->DeletePolygons({0, 0}), Failure);
}

TEST(MemoryShape, AddedPolygonTakesCornersAndMaterial) {
    auto s = strip(3);
    auto m = std::make_shared<MemoryMaterial>();
    s->addPolygon(m, corners({0, 1, 2}));
    SGFace f = s->AddPolygon();
    f.SetMaterial(m);
    int32_t uv = s->AddUV(0.5f, -0.25f);
    f.AddCorner(2, 0, uv);
    f.AddCorner(1, 0, 1);
    EXPECT_EQ(s->GetPolygonCount(), 2);
    EXPECT_EQ(s->GetPolygon(1).GetCornerCount(), 2);
    EXPECT_FLOAT_EQ(s->GetPolygon(1).GetCornerUV(0).v, -0.25f);
    // Corners added to an earlier polygon go to that polygon.
    s->GetPolygon(0).AddCorner(0, 0, 0);
    EXPECT_EQ(s->GetPolygon(0).GetCornerCount(), 4);
    EXPECT_EQ(s->GetPolygon(1).GetCornerVertex(0), 2);
    EXPECT_THROW(f.AddCorner(99, 0, 0), Failure);
}

TEST(MemoryShape, MeshArraysGiveARecordPerPositionAndPair) {
    auto s = strip(4);
    auto m = std::make_shared<MemoryMaterial>();
    s->addPolygon(m, corners({0, 1, 2, 3}));
    // Position 2 again, with another pair: one extra record, shared by both uses.
    int32_t other = s->AddUV(7, 8);
    s->addPolygon(m, std::vector<Corner>{{2, 0, other}, {3, 0, 3}, {1, 0, 1}});
    s->addPolygon(m, std::vector<Corner>{{1, 0, 1}, {2, 0, other}, {0, 0, 0}});
    // Position 3's pair is (3, 0); (3, -0) is the same pair: no further record.
    s->addPolygon(m, std::vector<Corner>{{3, 0, s->AddUV(3, -0.0f)}, {0, 0, 0}, {1, 0, 1}});
    s->positions().push_back({9, 9, 9}); // used by no polygon
    MeshArrays a;
    s->GetMeshArrays(a);
    ASSERT_EQ(a.vertexCount, 6);
    EXPECT_FLOAT_EQ(a.vertices[5].x, 2);
    EXPECT_FLOAT_EQ(a.vertices[5].u, 7);
    EXPECT_FLOAT_EQ(a.vertices[2].u, 2);
    EXPECT_FLOAT_EQ(a.vertices[4].x, 9);
    EXPECT_FLOAT_EQ(a.vertices[4].u, 0);
    EXPECT_EQ(a.normalCount, 1);
    std::vector<int32_t> stream{4, 0, 0, 1, 0, 2, 0, 3, 0, 3, 5, 0, 3, 0, 1, 0, 3, 1, 0, 5, 0, 0, 0, 3, 3, 0, 0, 0, 1, 0};
    EXPECT_EQ(a.polygons, stream);
}

TEST(MemoryObject, RelativeMatrixAndRestPosition) {
    auto sc = MemoryScene::create("root");
    auto a = sc->root()->addChild("a");
    auto b = a->addChild("b");
    a->setMatrix({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 1, 2, 3, 1});
    b->setMatrix({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 10, 0, 0, 1});
    EXPECT_EQ(b->GetRelativeMatrix(b->GetParent(), 0)[12], 10);
    EXPECT_EQ(b->GetRelativeMatrix(sc->root(), 0)[12], 11);
    EXPECT_EQ(b->GetRelativeMatrix(sc->root(), 0)[13], 2);
    EXPECT_EQ(b->GetRelativePosition(a, 0).x, 10);
    b->setRestPosition({4, 5, 6});
    EXPECT_EQ(b->GetRelativePosition(a, 0).y, 5);
}

TEST(MemoryObject, FieldsKeyframesAndShapes) {
    auto sc = MemoryScene::create("root");
    auto root = sc->root();
    EXPECT_LT(root->FindMaterialField("FS10"), 0);
    int32_t id = root->AddMaterialField("FS10");
    EXPECT_EQ(root->FindMaterialField("FS10"), id);
    EXPECT_EQ(root->AddMaterialField("FS10"), id);
    int32_t att = root->AddObjectField("FS10att");
    auto n = root->addChild("n");
    n->setFieldText(att, "hello");
    EXPECT_EQ(n->GetFieldText(att), "hello");
    EXPECT_EQ(n->GetFieldText(att + 5), "");

    n->setKeyframes({{0, 0.f, 0}, {0, 5.f, 2}, {0, 2e6f, 0}});
    EXPECT_EQ(n->GetKeyframes(0, 999999).size(), 2u);

    auto shape = sc->CreateShape();
    n->AddShape(shape);
    EXPECT_EQ(n->GetShape(), shape);
    n->RemoveShape(shape);
    EXPECT_EQ(n->GetShapes()->GetCount(), 0);
    EXPECT_THROW(n->RemoveShape(shape), Failure);
    EXPECT_THROW(n->GetChildren()->GetItem(0), Failure);
}

} // namespace
} // namespace tarnvale::scene
