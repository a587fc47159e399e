#include "support.h"
#include "xml_cases.h"

namespace tarnvale::test {
namespace {

using platform::BoxIcon;

TEST(Plugin, ImportChangesNothingAndConstructionReadsTheTemplateSetting) {
    Rig rig;
    auto t = rig.plugin();
    EXPECT_FALSE(t->PluginImportExport_SupportImport());
    t->PluginImportExport_Import(rig.dir.file("in.x"), rig.scene->root(), rig.scene, 0, {}, {}, "");
    EXPECT_TRUE(rig.boxes.shown.empty());
    EXPECT_FALSE(fs::exists(rig.dir.file("in.x")));
    EXPECT_TRUE(rig.scene->root()->children().empty());
    EXPECT_EQ(t->strTemplateFile, rig.pluginFolder + "\\Tarnvale.X");
    EXPECT_EQ(t->strModelDefFile, rig.pluginFolder + "\\modeldef.xml");
    rig.settings.values["MorvanePlugin\\Tarnvale\\Template"] = "/elsewhere/t.X";
    EXPECT_EQ(rig.plugin()->strTemplateFile, "/elsewhere/t.X");
}

TEST(Driver, CompleteExportWritesFilesAndShowsTheClosingBox) {
    Rig rig;
    rig.installTool();
    rig.dialogs.answerName = "Edited Name";
    auto t = rig.plugin();
    std::string out = rig.dir.file("plane.x");
    rig.exportTo(*t, out);
    EXPECT_TRUE(fs::exists(out));
    EXPECT_TRUE(fs::exists(rig.dir.file("plane.config")));
    EXPECT_FALSE(fs::exists(rig.dir.file("plane.xanim")));
    ASSERT_EQ(rig.boxes.shown.size(), 1u);
    EXPECT_EQ(rig.boxes.shown[0].title, "FSX Export");
    EXPECT_EQ(rig.boxes.shown[0].icon, BoxIcon::Information);
    EXPECT_EQ(rig.boxes.shown[0].text, "Export to " + out + " Completed.");
    ASSERT_EQ(rig.processes.started.size(), 1u);
    EXPECT_EQ(rig.processes.started[0], rig.pluginFolder + "\\xtomdl.exe /dict:\"" + rig.pluginFolder +
                                            "\\modeldef.xml\" \"" + out + "\"");
    // The dialog opened with the group's name and the new GUID.
    ASSERT_EQ(rig.dialogs.shown.size(), 1u);
    EXPECT_EQ(rig.dialogs.shown[0].first, "Scene Root");
    EXPECT_EQ(rig.dialogs.shown[0].second, "GUID : 0123ABCD-0A0B-4C0D-8E0F-010203040506");
    // Both fields are registered on the scene.
    EXPECT_EQ(rig.scene->root()->FindMaterialField("FS10"), t->lMaterialFieldId);
    EXPECT_EQ(rig.scene->root()->FindObjectField("FS10att"), t->lAttachFieldId);
    EXPECT_GE(t->lAttachFieldId, 0);
    EXPECT_EQ(t->lKeyTimeLimit, 999999);
    EXPECT_TRUE(t->nlAnimations.empty());
    EXPECT_FALSE(t->xmlModelDef);
    // The X file carries the name from before the dialog; the sidecar the edited one.
    std::string x = readFile(out);
    EXPECT_EQ(x.rfind("xof 0303txt 0032\r\n", 0), 0u);
    EXPECT_NE(x.find("// Model scene_root\r\n"), std::string::npos);
    EXPECT_NE(x.find("// GUID 0123ABCD-0A0B-4C0D-8E0F-010203040506\r\n"), std::string::npos);
    EXPECT_NE(x.find("Frame frm-scene_root {"), std::string::npos);
    EXPECT_NE(readFile(rig.dir.file("plane.config")).find("<FriendlyName>Edited Name</FriendlyName>"), std::string::npos);
}

TEST(Driver, DeepTreesExportWithoutRecursion) {
    // A chain of 100,000 nodes walked by the frame writer, the skin walk and the
    // XANIM walk, then released with the scene: none of them may recurse.
    Rig rig;
    writeFile(rig.dir.file("frames.X"), "#scene#\r\n");
    rig.settings.values["MorvanePlugin\\Tarnvale\\Template"] = rig.dir.file("frames.X");
    std::shared_ptr<scene::MemoryObject> node = rig.scene->root();
    for (int i = 0; i < 100000; ++i) node = node->addChild(i == 50000 ? "wheel" : "n");
    node->AddShape(std::make_shared<scene::MemoryShape>());
    rig.scene->root()->findByName("wheel")->setKeyframes(
        {{0, 0, 0, 0, 0, 0, 0, 0}, {0, 1, 0, 1, 0, 0, 0, 0}, {0, 2, 0, 2, 0, 0, 0, 0}});
    auto t = rig.plugin();
    rig.exportTo(*t, rig.dir.file("deep.x"));
    ASSERT_EQ(rig.boxes.shown.back().icon, BoxIcon::Information) << rig.boxes.shown.back().text;
    const std::string x = readFile(rig.dir.file("deep.x"));
    EXPECT_EQ(std::count(x.begin(), x.end(), '\n'), 100001 * 11); // 11 lines a frame
    EXPECT_NE(readFile(rig.dir.file("deep.xanim")).find("partName=\"wheel\""), std::string::npos);
    EXPECT_EQ(t->colObjectBones.size(), 1u); // the skin walk reached the bottom's shape
    t.reset();
    rig.scene.reset();
}

TEST(Driver, CancelWritesNothingAndShowsNoBox) {
    Rig rig;
    rig.installTool();
    rig.dialogs.cancel = true;
    auto t = rig.plugin();
    rig.exportTo(*t, rig.dir.file("plane.x"));
    EXPECT_FALSE(fs::exists(rig.dir.file("plane.x")));
    EXPECT_FALSE(fs::exists(rig.dir.file("plane.config")));
    EXPECT_TRUE(rig.boxes.shown.empty());
    EXPECT_TRUE(rig.processes.started.empty());
    // The fields were registered before the dialog.
    EXPECT_GE(rig.scene->root()->FindObjectField("FS10att"), 0);
}

TEST(Driver, ModelDefinitionWithoutTwoAnimationsFailsTheGate) {
    // One node, none, no file, and two nodes in a file that is not well-formed.
    std::vector<std::string> contents = {"<ModelInfo><Animation name=\"only\"/></ModelInfo>", "", "not xml at all"};
    for (const XmlDefect& defect : kXmlDefects)
        contents.push_back(defect.apply("<ModelInfo><Animation name=\"a\"/><Animation name=\"b\"/></ModelInfo>"));
    for (const std::string& content : contents) {
        Rig rig;
        rig.installTool();
        if (!content.empty()) writeFile(rig.pluginFolder + "/modeldef.xml", content);
        else fs::remove(rig.pluginFolder + "/modeldef.xml");
        rig.exportTo(*rig.plugin(), rig.dir.file("plane.x"));
        EXPECT_TRUE(fs::exists(rig.dir.file("plane.x")));
        EXPECT_FALSE(fs::exists(rig.dir.file("plane.config")));
        EXPECT_TRUE(rig.processes.started.empty());
        ASSERT_EQ(rig.boxes.shown.size(), 1u);
        EXPECT_EQ(rig.boxes.shown[0].text, "No nodes found in modeldef xml file") << content;
        EXPECT_EQ(rig.boxes.shown[0].title, "FS10 Export");
        EXPECT_EQ(rig.boxes.shown[0].icon, BoxIcon::Critical);
    }
}

TEST(Driver, ToolNotFoundGivesTwoBoxes) {
    Rig rig;
    rig.settings.values["MorvanePlugin\\Tarnvale\\Application"] = "conv.exe";
    auto t = rig.plugin();
    rig.exportTo(*t, rig.dir.file("plane.x"));
    ASSERT_EQ(rig.boxes.shown.size(), 2u);
    EXPECT_EQ(rig.boxes.shown[0].text, "conv.exe was not found in the SDK or Morvane plugins folder\r"
                                       "Please convert the X and XANIM files from the command line.");
    EXPECT_EQ(rig.boxes.shown[0].icon, BoxIcon::Plain);
    EXPECT_EQ(rig.boxes.shown[1].title, "FSX Export");
    EXPECT_TRUE(fs::exists(rig.dir.file("plane.config")));
    EXPECT_TRUE(rig.processes.started.empty());
}

TEST(Driver, StatusStartsCleanAtEachExportAndRunsTogether) {
    Rig rig;
    rig.installTool();
    auto t = rig.plugin();
    t->strStatus = "left over";
    rig.exportTo(*t, rig.dir.file("a.x"));
    EXPECT_EQ(rig.boxes.shown.back().text, "Export to " + rig.dir.file("a.x") + " Completed.");
    t->AppendStatus("W1");
    t->AppendStatus("W2");
    EXPECT_EQ(t->strStatus, "Export to " + rig.dir.file("a.x") + " Completed.W1W2");
    rig.exportTo(*t, rig.dir.file("b.x"));
    EXPECT_EQ(rig.boxes.shown.back().text, "Export to " + rig.dir.file("b.x") + " Completed.");
}

TEST(Driver, SettingsNameTheFields) {
    Rig rig;
    rig.installTool("tool.bin");
    rig.settings.values["MorvanePlugin\\Tarnvale\\FieldId"] = "Mat";
    rig.settings.values["MorvanePlugin\\Tarnvale\\AttachId"] = "Att";
    rig.settings.values["MorvanePlugin\\Tarnvale\\Application"] = "tool.bin";
    int32_t existing = rig.scene->fields().addObject("Att");
    auto t = rig.plugin();
    rig.exportTo(*t, rig.dir.file("a.x"));
    EXPECT_EQ(t->lAttachFieldId, existing);
    EXPECT_GE(rig.scene->root()->FindMaterialField("Mat"), 0);
    EXPECT_LT(rig.scene->root()->FindMaterialField("FS10"), 0);
    ASSERT_EQ(rig.processes.started.size(), 1u);
    EXPECT_EQ(rig.processes.started[0].rfind(rig.pluginFolder + "\\tool.bin /dict:", 0), 0u);
}

TEST(Driver, XFileThatCannotBeWrittenOrTemplateThatCannotBeReadFails) {
    // A missing template, a folder, a read that fails: each ends in the failure box
    // with an empty X file, never in a completed export; so does a missing folder.
    const std::pair<std::string, std::string> rows[] = {{"missing.X", "Creating X file\r53 - "},
                                                        {".", "Creating X file\r75 - "},
                                                        {"/proc/self/mem", "Creating X file\r75 - "},
                                                        {"", "Creating X file\r76 - "}};
    for (const auto& [templateFile, box] : rows) {
        Rig rig;
        rig.settings.values["MorvanePlugin\\Tarnvale\\Template"] =
            templateFile[0] == '/' ? templateFile : rig.pluginFolder + "/" + templateFile;
        const std::string out = rig.dir.file(templateFile.empty() ? "no-such-folder/plane.x" : "plane.x");
        rig.exportTo(*rig.plugin(), out);
        ASSERT_EQ(rig.boxes.shown.size(), 1u);
        EXPECT_EQ(rig.boxes.shown[0].title, "FS10 Export");
        EXPECT_EQ(rig.boxes.shown[0].icon, BoxIcon::Critical);
        if (templateFile.empty()) {
            EXPECT_EQ(rig.boxes.shown[0].text, box + out + ": No such file or directory");
            continue;
        }
        EXPECT_EQ(readFile(out), "");
        EXPECT_EQ(rig.boxes.shown[0].text.rfind(box, 0), 0u) << rig.boxes.shown[0].text;
    }
}

TEST(Driver, FailuresBeforeAnyStageAndOnAFreshInstanceAreReported) {
    Rig rig;
    auto t = rig.plugin();
    t->PluginImportExport_Export(rig.dir.file("a.x"), nullptr, rig.scene, 0, {}, {}, "");
    ASSERT_EQ(rig.boxes.shown.size(), 1u);
    EXPECT_EQ(rig.boxes.shown[0].text.rfind("\r91 - ", 0), 0u);
    EXPECT_FALSE(fs::exists(rig.dir.file("a.x")));
    // The public routines on an instance that never exported: failures, not signals.
    std::string out = rig.dir.file("b.x");
    SGObjectPtr none;
    auto fresh = rig.plugin();
    EXPECT_THROW(fresh->pExportFSX(out, none), Failure);
    EXPECT_THROW(fresh->pExportXAnim(out, none), Failure);
}

TEST(Driver, SidecarPathTakesTheLastDot) {
    struct Row {
        const char* file;
        const char* sidecar;
    };
    const Row rows[] = {
        {"C:\\models\\plane.x", "C:\\models\\plane.config"},
        {"C:\\a.b\\plane", "C:\\a.config"},
        {"plane", "config"},
        {"/tmp/v1.2/plane.x", "/tmp/v1.2/plane.config"},
    };
    for (const Row& r : rows) EXPECT_EQ(shell::sidecarPath(r.file), r.sidecar);
}

} // namespace
} // namespace tarnvale::test
