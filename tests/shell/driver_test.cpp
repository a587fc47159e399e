#include "support.h"
#include "xml_cases.h"

#include <functional>

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

TEST(Driver, EachWayAnExportEnds) {
    struct Row {
        const char* what;
        std::function<void(Rig&)> setup;
        std::string expected;
        // How the plug-in says it ended: what the command's exit code comes from.
        shell::ExportOutcome ending = shell::ExportOutcome::Failed;
        const char* out = "plane.x";
    };
    using enum shell::ExportOutcome;
    const std::string done = " information FSX Export: Export to D/plane.x Completed.; |";
    const std::string tool = " P\\xtomdl.exe /dict:\"P\\modeldef.xml\" \"D/plane.x\"";
    const std::string xFailed = "x0 | critical FS10 Export: Creating X file\r";
    const std::string gate = "x | critical FS10 Export: No nodes found in modeldef xml file; |";
    auto modelDef = [](std::string content) {
        return [content](Rig& r) {
            r.installTool();
            if (content.empty())
                fs::remove(r.pluginFolder + "/modeldef.xml");
            else
                writeFile(r.pluginFolder + "/modeldef.xml", content);
        };
    };
    auto templateFile = [](std::string file) {
        return [file](Rig& r) {
            r.settings.values["MorvanePlugin\\Tarnvale\\Template"] =
                file[0] == '/' ? file : r.pluginFolder + "/" + file;
            writeFile(r.dir.file("plane.x"), "an older X file"); // emptied all the same
        };
    };
    std::vector<Row> rows = {
        {"complete", [](Rig& r) { r.installTool(); }, "x config |" + done + tool, Completed},
        {"cancelled: nothing written, no box", [](Rig& r) { r.installTool(), r.dialogs.cancel = true; },
         " | |", Cancelled},
        {"no tool", [](Rig& r) { r.settings.values["MorvanePlugin\\Tarnvale\\Application"] = "conv.exe"; },
         "x config | plain Tarnvale: conv.exe was not found in the SDK or Morvane plugins folder\rPlease "
         "convert the X and "
         "XANIM files from the command line.;" +
             done,
         Completed},
        {"one animation defined", modelDef("<ModelInfo><Animation name=\"only\"/></ModelInfo>"), gate},
        {"no model definition", modelDef(""), gate},
        {"a model definition that is no XML", modelDef("not xml at all"), gate},
        // A missing template, a folder, a read that fails, a missing folder for the
        // X file: the failure box, naming the file, never a completed export.
        {"missing template", templateFile("missing.X"),
         xFailed + "53 - P/missing.X: No such file or directory; |"},
        {"template is a folder", templateFile("."), xFailed + "75 - P/.: Is a directory; |"},
        {"template read fails", templateFile("/proc/self/mem"),
         xFailed + "75 - /proc/self/mem: Input/output error; |"},
        {"no folder for the X file", nullptr,
         " | critical FS10 Export: Creating X file\r76 - D/none/plane.x: No such file or directory; |",
         Failed, "none/plane.x"},
    };
    for (const XmlDefect& defect : kXmlDefects)
        rows.push_back(
            {defect.what,
             modelDef(defect.apply("<ModelInfo><Animation name=\"a\"/><Animation name=\"b\"/></ModelInfo>")),
             gate});
    for (const Row& r : rows) {
        Rig rig;
        if (r.setup) r.setup(rig);
        const std::string out = rig.dir.file(r.out);
        auto plugin = rig.plugin();
        EXPECT_EQ(plugin->outcome(), NotRun);
        rig.exportTo(*plugin, out);
        EXPECT_EQ(outcome(rig, out), r.expected) << r.what;
        EXPECT_EQ(plugin->outcome(), r.ending) << r.what;
    }
}

TEST(Driver, CompleteExportShowsTheDialogRegistersTheFieldsAndWritesTheFiles) {
    Rig rig;
    rig.installTool();
    rig.dialogs.answerName = "Edited Name";
    auto t = rig.plugin();
    std::string out = rig.dir.file("plane.x");
    rig.exportTo(*t, out);
    // The dialog opened with the group's name and the new GUID.
    EXPECT_EQ(rig.dialogs.shown, (std::vector<std::pair<std::string, std::string>>{
                                     {"Scene Root", "GUID : 0123ABCD-0A0B-4C0D-8E0F-010203040506"}}));
    EXPECT_EQ(rig.scene->root()->FindMaterialField("FS10"), t->lMaterialFieldId);
    EXPECT_EQ(rig.scene->root()->FindObjectField("FS10att"), t->lAttachFieldId);
    EXPECT_GE(t->lAttachFieldId, 0);
    EXPECT_EQ(t->lKeyTimeLimit, 999999);
    EXPECT_TRUE(t->nlAnimations.empty());
    EXPECT_FALSE(t->xmlModelDef);
    // The default template for an empty scene; the X file carries the name from
    // before the dialog, the sidecar the edited one.
    EXPECT_EQ(readFile(out), readFile(sourcePath("tests/data/empty_scene.x")));
    EXPECT_NE(readFile(rig.dir.file("plane.config")).find("<FriendlyName>Edited Name</FriendlyName>"),
              std::string::npos);
    // Settings name the fields; a field that exists is taken, not made again.
    Rig other;
    other.settings.values["MorvanePlugin\\Tarnvale\\FieldId"] = "Mat";
    other.settings.values["MorvanePlugin\\Tarnvale\\AttachId"] = "Att";
    const int32_t existing = other.scene->fields().addObject("Att");
    auto named = other.plugin();
    other.dialogs.cancel = true; // the fields are registered before the dialog
    other.exportTo(*named, other.dir.file("a.x"));
    EXPECT_EQ(named->lAttachFieldId, existing);
    EXPECT_GE(other.scene->root()->FindMaterialField("Mat"), 0);
    EXPECT_LT(other.scene->root()->FindMaterialField("FS10"), 0);
}

TEST(Driver, DeepTreesExportWithoutRecursion) {
    // A chain of 100,000 nodes walked by the frame writer, the skin walk and the
    // XANIM walk, then released with the scene: none of them may recurse.
    Rig rig;
    writeFile(rig.dir.file("frames.X"), "#scene#\r\n");
    rig.settings.values["MorvanePlugin\\Tarnvale\\Template"] = rig.dir.file("frames.X");
    std::shared_ptr<scene::MemoryObject> node = rig.scene->root();
    for (int i = 0; i < 100000; ++i)
        node = node->addChild(i == 50000 ? "wheel" : "n");
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

TEST(Driver, FailuresBeforeAnyStageAndOnAFreshInstanceAreReported) {
    Rig rig;
    auto t = rig.plugin();
    t->PluginImportExport_Export(rig.dir.file("a.x"), nullptr, rig.scene, 0, {}, {}, "");
    EXPECT_EQ(outcome(rig, rig.dir.file("a.x")),
              " | critical FS10 Export: \r91 - Object variable not set: no export group; |");
    // The public routines on an instance that never exported: failures, not signals.
    std::string out = rig.dir.file("b.x");
    SGObjectPtr none;
    EXPECT_THROW(rig.plugin()->pExportFSX(out, none), Failure);
    EXPECT_THROW(rig.plugin()->pExportXAnim(out, none), Failure);
}

TEST(Driver, SidecarPathTakesTheLastDot) {
    for (auto [file, sidecar] : {std::pair{"C:\\models\\plane.x", "C:\\models\\plane.config"},
                                 {"C:\\a.b\\plane", "C:\\a.config"},
                                 {"plane", "config"},
                                 {"/tmp/v1.2/plane.x", "/tmp/v1.2/plane.config"}})
        EXPECT_EQ(shell::sidecarPath(file), sidecar);
}

} // namespace
} // namespace tarnvale::test
