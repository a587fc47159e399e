#include "support.h"
#include "xml_cases.h"

#include <functional>

namespace tarnvale::test {
namespace {

const std::string kDeclaration = "<?xml version=\"1.0\"?>\n";
const std::string kGuid = "0123ABCD-0A0B-4C0D-8E0F-010203040506";

// The sidecar before an export, what the dialog showed and the sidecar after.
TEST(Sidecar, KeepsNameAndGuidAndWhatElseItHolds) {
    struct Row {
        const char* what;
        std::optional<std::string> before;
        std::function<void(Rig&)> setup;
        std::string shownName, shownGuid, after; // after: "" for the new file's form
    };
    const std::string fresh = kDeclaration +
                              "<TarnvaleConfig version=\"1.0\"><FriendlyName>Scene Root</FriendlyName>"
                              "<GUID>" +
                              kGuid + "</GUID></TarnvaleConfig>\n";
    std::vector<Row> rows = {
        {"a new file: name, then GUID", std::nullopt, [](Rig& r) { r.dialogs.answerName = "My Plane"; },
         "Scene Root", kGuid,
         kDeclaration + "<TarnvaleConfig version=\"1.0\"><FriendlyName>My Plane</FriendlyName><GUID>" +
             kGuid + "</GUID></TarnvaleConfig>\n"},
        {"a foreign root is used, its content and whitespace kept",
         "<Other a=\"1\">\n <Keep>x</Keep>\n <GUID>my-guid</GUID>\n</Other>", nullptr, "Scene Root",
         "my-guid",
         kDeclaration + "<Other a=\"1\">\n <Keep>x</Keep>\n <GUID>my-guid</GUID>\n<FriendlyName>Scene "
                        "Root</FriendlyName></Other>\n"},
        {"an empty GUID stays empty, and no new one is asked for",
         "<TarnvaleConfig><FriendlyName></FriendlyName><GUID/></TarnvaleConfig>", nullptr, "", "",
         kDeclaration + "<TarnvaleConfig><FriendlyName/><GUID/></TarnvaleConfig>\n"},
        {"no GUID source: an empty GUID", std::nullopt, [](Rig& r) { r.guids.next.clear(); }, "Scene Root",
         "",
         kDeclaration + "<TarnvaleConfig version=\"1.0\"><FriendlyName>Scene "
                        "Root</FriendlyName><GUID/></TarnvaleConfig>\n"},
        {"a cancelled export leaves the file as it was", "<Old/>", [](Rig& r) { r.dialogs.cancel = true; },
         "Scene Root", kGuid, "<Old/>"},
    };
    for (const XmlDefect& defect : kXmlDefects)
        rows.push_back({defect.what, defect.apply("<TarnvaleConfig><GUID>abc</GUID></TarnvaleConfig>"),
                        nullptr, "Scene Root", kGuid, fresh});
    for (const Row& r : rows) {
        Rig rig;
        if (r.before) writeFile(rig.dir.file("plane.config"), *r.before);
        if (r.setup) r.setup(rig);
        rig.exportTo(*rig.plugin(), rig.dir.file("plane.x"));
        ASSERT_EQ(rig.dialogs.shown.size(), 1u) << r.what;
        EXPECT_EQ(rig.dialogs.shown[0].first, r.shownName) << r.what;
        EXPECT_EQ(rig.dialogs.shown[0].second, "GUID : " + r.shownGuid) << r.what;
        EXPECT_EQ(readFile(rig.dir.file("plane.config")), r.after) << r.what;
        if (r.before && r.before->find("<GUID/>") != std::string::npos) {
            EXPECT_EQ(rig.guids.next.size(), 1u) << r.what; // none was taken
        }
    }
    EXPECT_EQ(shell::guidText({0x0000ABCD, 0x00F1, 0x0002, {0x0A, 0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x0F}}),
              "0000ABCD-00F1-0002-0A00-01020304050F"); // full width, leading zeros
}

} // namespace
} // namespace tarnvale::test
