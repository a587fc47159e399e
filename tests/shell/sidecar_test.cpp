#include "support.h"
#include "xml_cases.h"

namespace tarnvale::test {
namespace {

TEST(Sidecar, NewFileHasNameThenGuid) {
    Rig rig;
    rig.dialogs.answerName = "My Plane";
    auto t = rig.plugin();
    rig.exportTo(*t, rig.dir.file("plane.x"));
    std::string text = readFile(rig.dir.file("plane.config"));
    EXPECT_EQ(text, "<?xml version=\"1.0\"?>\n<TarnvaleConfig version=\"1.0\"><FriendlyName>My Plane</FriendlyName>"
                    "<GUID>0123ABCD-0A0B-4C0D-8E0F-010203040506</GUID></TarnvaleConfig>\n");
}

TEST(Sidecar, SecondExportKeepsGuidAndName) {
    Rig rig;
    rig.dialogs.answerName = "Kept Name";
    auto t = rig.plugin();
    rig.exportTo(*t, rig.dir.file("plane.x"));
    rig.guids.next.push_back({0xFFFFFFFF, 1, 2, {1, 2, 3, 4, 5, 6, 7, 8}});
    rig.dialogs.answerName.reset();
    rig.exportTo(*rig.plugin(), rig.dir.file("plane.x"));
    ASSERT_EQ(rig.dialogs.shown.size(), 2u);
    EXPECT_EQ(rig.dialogs.shown[1].first, "Kept Name");
    EXPECT_EQ(rig.dialogs.shown[1].second, "GUID : 0123ABCD-0A0B-4C0D-8E0F-010203040506");
    EXPECT_NE(readFile(rig.dir.file("plane.config")).find("0123ABCD-0A0B-4C0D-8E0F-010203040506"), std::string::npos);
}

TEST(Sidecar, ForeignRootIsUsedAndExtraContentKept) {
    Rig rig;
    writeFile(rig.dir.file("plane.config"), "<Other a=\"1\">\n <Keep>x</Keep>\n <GUID>my-guid</GUID>\n</Other>");
    auto t = rig.plugin();
    rig.exportTo(*t, rig.dir.file("plane.x"));
    // Its own whitespace stays; the program adds none.
    EXPECT_EQ(readFile(rig.dir.file("plane.config")),
              "<?xml version=\"1.0\"?>\n<Other a=\"1\">\n <Keep>x</Keep>\n <GUID>my-guid</GUID>\n"
              "<FriendlyName>Scene Root</FriendlyName></Other>\n");
    EXPECT_EQ(rig.dialogs.shown[0].second, "GUID : my-guid");
}

TEST(Sidecar, EmptyGuidStaysEmpty) {
    Rig rig;
    writeFile(rig.dir.file("plane.config"), "<TarnvaleConfig><FriendlyName></FriendlyName><GUID/></TarnvaleConfig>");
    auto t = rig.plugin();
    rig.exportTo(*t, rig.dir.file("plane.x"));
    EXPECT_EQ(rig.dialogs.shown[0].first, "");
    EXPECT_EQ(rig.dialogs.shown[0].second, "GUID : ");
    EXPECT_EQ(rig.guids.next.size(), 1u); // none was asked for
}

TEST(Sidecar, FileThatIsNotWellFormedIsReplaced) {
    for (const XmlDefect& defect : kXmlDefects) {
        Rig rig;
        writeFile(rig.dir.file("plane.config"), defect.apply("<TarnvaleConfig><GUID>abc</GUID></TarnvaleConfig>"));
        rig.exportTo(*rig.plugin(), rig.dir.file("plane.x"));
        EXPECT_EQ(readFile(rig.dir.file("plane.config")),
                  "<?xml version=\"1.0\"?>\n<TarnvaleConfig version=\"1.0\"><FriendlyName>Scene Root</FriendlyName>"
                  "<GUID>0123ABCD-0A0B-4C0D-8E0F-010203040506</GUID></TarnvaleConfig>\n")
            << defect.what;
    }
}

TEST(Sidecar, NoGuidSourceGivesAnEmptyGuid) {
    Rig rig;
    rig.guids.next.clear();
    auto t = rig.plugin();
    rig.exportTo(*t, rig.dir.file("plane.x"));
    EXPECT_EQ(t->strGuid, "");
    EXPECT_NE(readFile(rig.dir.file("plane.config")).find("<GUID/>"), std::string::npos);
}

TEST(Sidecar, CancelledExportLeavesTheFileAsItWas) {
    Rig rig;
    writeFile(rig.dir.file("plane.config"), "<Old/>");
    rig.dialogs.cancel = true;
    rig.exportTo(*rig.plugin(), rig.dir.file("plane.x"));
    EXPECT_EQ(readFile(rig.dir.file("plane.config")), "<Old/>");
}

TEST(GuidText, FullWidthWithLeadingZeros) {
    EXPECT_EQ(shell::guidText({0x0000ABCD, 0x00F1, 0x0002, {0x0A, 0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x0F}}),
              "0000ABCD-00F1-0002-0A00-01020304050F");
    EXPECT_EQ(shell::guidText({0xDEADBEEF, 0xFFFF, 0x4000, {0x80, 0xFF, 0, 0, 0, 0, 0, 0x10}}),
              "DEADBEEF-FFFF-4000-80FF-000000000010");
}

} // namespace
} // namespace tarnvale::test
