#include "xfile/xfile_fixture.h"

namespace tarnvale::test {
namespace {

TEST(FrameWriter, GearDoorBelowTheRoot) {
    XFileFixture f;
    auto door = f.scene->root()->addChild("Gear Door");
    door->setMatrix({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 2.5f, 0, 0, 1});
    std::string expected = readFile(sourcePath("tests/data/gear_door_frame.x"));
    EXPECT_EQ(expected, f.frame(door, f.scene->root()));
}

// The exported group's frame has the literal identity whatever its matrix; an
// identity below it is written in the number form.
TEST(FrameWriter, RootFrameHasTheLiteralIdentityAndOthersTheNumberForm) {
    XFileFixture f;
    auto group = f.scene->root()->addChild("Plane");
    group->setMatrix({2, 0, 0, 0, 0, 2, 0, 0, 0, 0, 2, 0, 9, 9, 9, 1});
    group->addChild("Child");
    std::string out = f.frame(group, group);
    EXPECT_NE(out.find(crlf({"FrameTransformMatrix { ", "   1.0, 0.0, 0.0, 0.0,", "   0.0, 1.0, 0.0, 0.0,",
                             "   0.0, 0.0, 1.0, 0.0,", "   0.0, 0.0, 0.0, 1.0;;", "}  // End FrameTransformMatrix"})),
              std::string::npos);
    EXPECT_NE(out.find("Frame frm-child {\r\nFrameTransformMatrix { \r\n1.00, 0.00, 0.00, 0.00,\r\n"), std::string::npos);
}

TEST(FrameWriter, PartDataCodesAndLineBreaks) {
    struct Row {
        std::string text, block;
    };
    const Row rows[] = {
        {"abc", crlf({"PartData {", " 4 ;", " 97 , 98 , 99 , 0;", "}  // End Partdata"})},
        {"123456789", crlf({"PartData {", " 10 ;", " 49 , 50 , 51 , 52 , 53 , 54 , 55 , 56 , 57 , 0;",
                            "}  // End Partdata"})},
        {"1234567890", crlf({"PartData {", " 11 ;", " 49 , 50 , 51 , 52 , 53 , 54 , 55 , 56 , 57 ,",
                             " 48 , 0;", "}  // End Partdata"})},
        // Windows-1252 codes: e acute is 233, the euro sign 128.
        {"\xC3\xA9\xE2\x82\xAC", crlf({"PartData {", " 3 ;", " 233 , 128 , 0;", "}  // End Partdata"})},
    };
    for (const Row& r : rows) {
        XFileFixture f;
        auto node = f.scene->root()->addChild("n");
        node->setFieldText(f.attachField, r.text);
        std::string out = f.frame(node, f.scene->root());
        std::string head = crlf({"Frame frm-n {"}) + r.block;
        EXPECT_EQ(head, out.substr(0, head.size()));
    }
}

TEST(FrameWriter, BlockOrderBonesBeforeMeshLinkBeforeChildren) {
    XFileFixture f;
    auto node = f.scene->root()->addChild("Arm");
    node->AddShape(std::make_shared<scene::MemoryShape>(scene::kGeometryOther, 7)); // ignored
    node->AddShape(std::make_shared<scene::MemoryShape>(scene::kGeometryOther, 216));
    node->AddShape(std::make_shared<scene::MemoryShape>(scene::kGeometryOther, 16));
    node->addChild("Hand");
    std::string out = f.frame(node, f.scene->root());
    size_t bone1 = out.find("BoneInfo { \r\n\"arm\";\r\n}\r\n");
    size_t bone2 = out.find("BoneInfo { ", bone1 + 1);
    size_t link = out.find("AnimLinkName { \r\n\"arm\";\r\n}\r\n");
    size_t child = out.find("Frame frm-hand {");
    ASSERT_NE(bone1, std::string::npos);
    ASSERT_NE(bone2, std::string::npos);
    EXPECT_LT(out.find("}  // End FrameTransformMatrix"), bone1);
    EXPECT_LT(bone2, link);
    EXPECT_LT(link, child);
    EXPECT_EQ(out.find("BoneInfo", bone2 + 1), std::string::npos);
    // The shapes are as they were.
    EXPECT_EQ(node->GetShapes()->GetCount(), 3);
}

TEST(FrameWriter, SameCleanedNamesAreNotMadeUnique) {
    XFileFixture f;
    auto parent = f.scene->root()->addChild("P");
    parent->addChild("Wing L");
    parent->addChild("wing l");
    std::string out = f.frame(parent, parent);
    size_t a = out.find("Frame frm-wing_l {");
    ASSERT_NE(a, std::string::npos);
    EXPECT_NE(out.find("Frame frm-wing_l {", a + 1), std::string::npos);
}

} // namespace
} // namespace tarnvale::test
