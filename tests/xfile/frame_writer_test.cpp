#include "xfile/xfile_fixture.h"

namespace tarnvale::test {
namespace {

// The exported group's frame has the literal identity whatever its matrix, a
// frame below it its matrix in the number form; bones come before the animation
// link and the link before the children; equal cleaned names stay as they are.
// Part data goes first, as Windows-1252 codes, nine to a line. A node's meshes
// merge into one Mesh, between its bones and its link; without vertices, none.
TEST(FrameWriter, FrameTreeGolden) {
    XFileFixture f;
    auto group = f.scene->root()->addChild("Plane");
    group->setMatrix({2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 9, 9, 9, 1});
    auto door = group->addChild("Gear Door");
    door->setMatrix({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 2.5f, 0, 0, 1});
    door->setFieldText(f.attachField, "abc");
    auto arm = group->addChild("Arm");
    for (int32_t type : {7, 216, 16})
        arm->AddShape(std::make_shared<scene::MemoryShape>(scene::kGeometryOther, type));
    arm->setFieldText(f.attachField, "123456789");
    arm->addChild("Hand")->setFieldText(f.attachField, "1234567890");
    group->addChild("Wing L")->setFieldText(f.attachField,
                                            "\xC3\xA9\xE2\x82\xAC"); // e acute 233, the euro 128
    group->addChild("wing l");
    auto two = group->addChild("Two Parts"), empty = group->addChild("Empty");
    auto a = shapeOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}}), b = shapeOf({{5, 0, 0}, {6, 0, 0}, {6, 1, 0}});
    addFace(*a, makeMaterial({1, 1, 1, 1}, 10, "A"), {0, 1, 2});
    addFace(*b, makeMaterial({1, 1, 1, 1}, 10, "B"), {0, 1, 2});
    for (const auto& s : {a, std::make_shared<scene::MemoryShape>(scene::kGeometryOther, 16), b,
                          std::make_shared<scene::MemoryShape>()})
        two->AddShape(s);
    empty->AddShape(std::make_shared<scene::MemoryShape>());
    EXPECT_EQ(f.frame(group, group), readFile(sourcePath("tests/data/frame_tree.x")));
    // The scene is as it was: no merge shape left, the sources untouched.
    EXPECT_EQ(std::vector<int>({arm->GetShapes()->GetCount(), two->GetShapes()->GetCount(),
                                empty->GetShapes()->GetCount(), a->GetPolygonCount()}),
              std::vector<int>({3, 4, 1, 1}));
}

} // namespace
} // namespace tarnvale::test
