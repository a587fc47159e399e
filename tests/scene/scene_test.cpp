#include "support.h"

namespace tarnvale::scene {
namespace {

using test::describePolygons;
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
    for (int v : vs)
        c.push_back({v, 0, v});
    return c;
}

std::shared_ptr<MemoryMaterial> named(const char* name) {
    auto m = std::make_shared<MemoryMaterial>();
    m->name = name;
    return m;
}

TEST(MemoryShape, MergeSharesAndEditsGoToAPieceOfTheMergesOwn) {
    auto a = strip(3), b = strip(4, 10);
    auto red = named("red"), blue = named("blue");
    a->addPolygon(red, corners({0, 1, 2}));
    a->addPolygon(blue, corners({2, 1, 0}));
    b->addPolygon(blue, corners({0, 1, 2, 3}));
    auto merged = std::make_shared<MemoryShape>();
    merged->MergeShape(a);
    merged->MergeShape(b);
    EXPECT_EQ(merged->GetVertexCount(), 7);
    EXPECT_EQ(describePolygons(merged), "|red 0:0:0,0 1:0:1,0 2:0:2,0 |blue 2:0:2,0 1:0:1,0 0:0:0,0 "
                                        "|blue 3:1:10,0 4:1:11,0 5:1:12,0 6:1:13,0");
    // A copy of polygon 0 that uses a pair of the second piece and one of its own.
    merged->GetPolygon(1).SetMaterial(red);
    SGFace copy = merged->AddPolygon();
    copy.SetMaterial(red);
    copy.AddCorner(0, 0, 4);
    copy.AddCorner(5, 1, merged->AddUV(0.5f, -0.5f));
    copy.AddCorner(2, 0, 2);
    EXPECT_THROW(copy.AddCorner(0, 0, 99), Failure);
    merged->DeletePolygons({0, 2});
    EXPECT_EQ(describePolygons(merged), "|red 2:0:2,0 1:0:1,0 0:0:0,0 |red 0:0:11,0 5:1:0.5,-0.5 2:0:2,0");
    MeshArrays arrays;
    merged->GetMeshArrays(arrays);
    // Position 0 keeps the pair of its first corner, so the copy's corner there
    // gets a record of its own; position 5 is used by the copy alone.
    ASSERT_EQ(arrays.vertexCount, 8);
    EXPECT_FLOAT_EQ(arrays.vertices[7].u, 11);
    EXPECT_FLOAT_EQ(arrays.vertices[5].v, -0.5f);
    EXPECT_EQ(arrays.polygons, (std::vector<int32_t>{3, 2, 0, 1, 0, 0, 0, 3, 7, 0, 5, 1, 2, 0}));
    // The sources are as they were, and a later change of one does not reach the merge.
    EXPECT_EQ(describePolygons(a), "|red 0:0:0,0 1:0:1,0 2:0:2,0 |blue 2:0:2,0 1:0:1,0 0:0:0,0");
    EXPECT_EQ(b->uvs().size(), 4u);
    a->addPolygon(blue, corners({0, 1, 2}));
    EXPECT_EQ(merged->GetPolygonCount(), 2);
}

TEST(MemoryShape, CompactStorageTurnsGeneralAndWideWhenNeeded) {
    auto s = strip(70000);
    for (int i = 1; i < 5; ++i)
        s->normals().push_back({0, float(i), 0});
    auto m = named("m");
    s->addPolygon(m, std::vector<Corner>{{0, 0, 0}, {1, 1, 1}, {2, 2, 2}}); // one index per corner
    s->addPolygon(m, corners({0, 1, 2, 3}));                                // no longer all triangles
    s->addPolygon(
        m, std::vector<Corner>{{4, 0, 1}, {3, 0, 2}, {69999, 4, 65535}}); // indices differ, and need 32 bits
    s->DeletePolygons({1});
    EXPECT_EQ(describePolygons(s), "|m 0:0:0,0 1:1:1,0 2:2:2,0 |m 4:0:1,0 3:0:2,0 69999:4:65535,0");
    EXPECT_THROW(s->DeletePolygons({2}), Failure);
    EXPECT_THROW(s->DeletePolygons({0, 0}), Failure);
    // Corners added to an earlier polygon go to that polygon.
    SGFace f = s->AddPolygon();
    f.AddCorner(2, 0, s->AddUV(0.5f, -0.25f));
    s->GetPolygon(0).AddCorner(5, 0, 5);
    EXPECT_EQ(describePolygons(s),
              "|m 0:0:0,0 1:1:1,0 2:2:2,0 5:0:5,0 |m 4:0:1,0 3:0:2,0 69999:4:65535,0 |- 2:0:0.5,-0.25");
    EXPECT_THROW(f.AddCorner(99999, 0, 0), Failure);

    IndexArray a;
    a.push_back(7);
    a.push_back(UINT32_MAX); // "none" fits either form
    a.insert(1, 65535);      // needs the wide form
    EXPECT_EQ((std::vector<uint32_t>{a[0], a[1], a[2]}), (std::vector<uint32_t>{7, 65535, UINT32_MAX}));
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
    EXPECT_EQ(std::vector<float>(
                  {a.vertices[5].x, a.vertices[5].u, a.vertices[2].u, a.vertices[4].x, a.vertices[4].u}),
              std::vector<float>({2, 7, 2, 9, 0}));
    EXPECT_EQ(a.normalCount, 1);
    std::vector<int32_t> stream{4, 0, 0, 1, 0, 2, 0, 3, 0, 3, 5, 0, 3, 0, 1,
                                0, 3, 1, 0, 5, 0, 0, 0, 3, 3, 0, 0, 0, 1, 0};
    EXPECT_EQ(a.polygons, stream);
}

TEST(MemoryObject, MatricesFieldsKeyframesAndShapes) {
    auto sc = MemoryScene::create("root");
    auto root = sc->root();
    auto a = root->addChild("a");
    auto b = a->addChild("b");
    a->setMatrix({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 1, 2, 3, 1});
    b->setMatrix({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 10, 0, 0, 1});
    const Matrix16 toA = b->GetRelativeMatrix(a, 0), toRoot = b->GetRelativeMatrix(root, 0);
    EXPECT_EQ(std::vector<float>({toA[12], toRoot[12], toRoot[13], b->GetRelativePosition(a, 0).x}),
              std::vector<float>({10, 11, 2, 10}));
    b->setRestPosition({4, 5, 6});
    EXPECT_EQ(b->GetRelativePosition(a, 0).y, 5);

    EXPECT_LT(root->FindMaterialField("FS10"), 0);
    const int32_t id = root->AddMaterialField("FS10");
    EXPECT_EQ(root->FindMaterialField("FS10"), id);
    EXPECT_EQ(root->AddMaterialField("FS10"), id);
    const int32_t att = root->AddObjectField("FS10att");
    b->setFieldText(att, "hello");
    EXPECT_EQ(b->GetFieldText(att) + b->GetFieldText(att + 5), "hello");
    b->setKeyframes({{0, 0.f, 0}, {0, 5.f, 2}, {0, 2e6f, 0}});
    EXPECT_EQ(b->GetKeyframes(0, 999999).size(), 2u);

    auto shape = sc->CreateShape();
    b->AddShape(shape);
    EXPECT_EQ(b->GetShape(), shape);
    b->RemoveShape(shape);
    EXPECT_EQ(b->GetShapes()->GetCount(), 0);
    EXPECT_THROW(b->RemoveShape(shape), Failure);
    EXPECT_THROW(b->GetChildren()->GetItem(0), Failure);
    EXPECT_EQ(root->findByName("b"), b);
}

} // namespace
} // namespace tarnvale::scene
