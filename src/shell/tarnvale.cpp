// The main class: construction and the export driver with its one failure handler.
#include "shell/shell.h"

#include <new>

namespace tarnvale::shell {

namespace {

constexpr const char* kApplication = "MorvanePlugin";
constexpr const char* kSection = "Tarnvale";
constexpr int32_t kMinimisedNoFocus = 6;

} // namespace

std::string fieldIdSetting(platform::SettingsStore& settings) {
    return settings.getSetting(kApplication, kSection, "FieldId", "FS10");
}

std::string attachIdSetting(platform::SettingsStore& settings) {
    return settings.getSetting(kApplication, kSection, "AttachId", "FS10att");
}

std::string templateSetting(platform::SettingsStore& settings, const std::string& pluginFolder) {
    return settings.getSetting(kApplication, kSection, "Template", pluginFolder + "\\Tarnvale.X");
}

Tarnvale::Tarnvale(PlatformServices services) : sys_(std::move(services)) {
    strTemplateFile = templateSetting(sys_.settings, sys_.pluginFolder);
    strModelDefFile = modelDefinitionLocation(sys_.registry, sys_.pluginFolder);
}

std::unique_ptr<Tarnvale> createTarnvale(PlatformServices services) {
    return std::make_unique<Tarnvale>(std::move(services));
}

void Tarnvale::PluginImportExport_Export(const std::string& ExportFileName, const SGObjectPtr& ExportGroup,
                                         const SGScenePtr& hostScene, int32_t, const std::vector<float>&,
                                         const std::vector<int32_t>&, const std::string&) {
    const std::string fieldId = fieldIdSetting(sys_.settings);
    const std::string attachId = attachIdSetting(sys_.settings);
    const std::string application =
        sys_.settings.getSetting(kApplication, kSection, "Application", "xtomdl.exe");
    strStatus.clear();
    ddsNames.clear();
    outcome_ = ExportOutcome::NotRun;

    std::string stage;
    int32_t number = 0;
    std::string description;
    try {
        SceneGraph = hostScene;
        cgExportGroup = ExportGroup;
        exportStages(ExportFileName, fieldId, attachId, application, stage);
        return;
    } catch (const Failure& e) {
        number = e.number();
        description = e.description();
    } catch (const std::bad_alloc&) {
        number = 7;
        description = "Out of memory";
    } catch (const std::exception& e) {
        number = 51;
        description = std::string("Internal error: ") + e.what();
    }
    if (number != 0) stage += "\r" + xfile::plainNumber(number) + " - " + description;
    outcome_ = ExportOutcome::Failed;
    sys_.boxes.show(stage, "FS10 Export", platform::BoxIcon::Critical);
}

void Tarnvale::exportStages(const std::string& ExportFileName, const std::string& fieldId,
                            const std::string& attachId, const std::string& application, std::string& stage) {
    if (!SceneGraph) throw Failure(err::kObjectNotSet, "Object variable not set: no scene");
    SGDocumentPtr document = SceneGraph->GetDocument();
    cgSceneRoot = document->GetRootObject();
    if (!cgExportGroup) throw Failure(err::kObjectNotSet, "Object variable not set: no export group");

    lMaterialFieldId = cgSceneRoot->FindMaterialField(fieldId);
    if (lMaterialFieldId < 0) lMaterialFieldId = cgSceneRoot->AddMaterialField(fieldId);
    lAttachFieldId = cgSceneRoot->FindObjectField(attachId);
    if (lAttachFieldId < 0) lAttachFieldId = cgSceneRoot->AddObjectField(attachId);
    lKeyTimeLimit = anim::kKeyTimeLimit;

    const std::string configPath = sidecarPath(ExportFileName);
    xmlConfigRoot = configDocumentOpen(configPath);
    strFriendlyName = friendlyNameGet(cgExportGroup);
    strGuid = modelGuidGet();

    std::unique_ptr<frmExport> dialog = sys_.dialogs.create();
    dialog->txtName = strFriendlyName;
    dialog->Label2 = "GUID : " + strGuid;
    dialog->Show();
    if (dialog->bCancel) {
        outcome_ = ExportOutcome::Cancelled;
        return;
    }

    XmlElement nameElement = xmlConfigRoot.child("FriendlyName");
    if (!nameElement) throw Failure(err::kObjectNotSet, "Object variable not set: FriendlyName");
    nameElement.setText(dialog->txtName);

    std::string outputFile = ExportFileName;
    stage = "Creating X file";
    pExportFSX(outputFile, cgExportGroup);

    stage = "XML Startup";
    xmlModelDef = std::make_shared<XmlDocument>();
    stage = "XML Loading";
    xmlModelDef->load(strModelDefFile);
    nlAnimations = xmlModelDef->select("ModelInfo/Animation");
    if (nlAnimations.size() < 2) {
        stage = "No nodes found in modeldef xml file";
        throw Failure::withoutPendingError();
    }

    stage = "Creating XANIM file";
    bHasAnimation = false;
    pExportXAnim(outputFile, cgExportGroup);
    xmlConfig->save(configPath);
    runTool(ExportFileName, application);

    nlAnimations.clear();
    xmlModelDef.reset();
    AppendStatus("Export to " + ExportFileName + " Completed.");
    outcome_ = ExportOutcome::Completed;
    sys_.boxes.show(strStatus, "FSX Export", platform::BoxIcon::Information);
}

void Tarnvale::runTool(const std::string& ExportFileName, const std::string& application) {
    if (!sys_.runTool) return;
    std::string tool = toolPath(sys_.registry, sys_.pluginFolder, application);
    if (!platform::fileExists(tool)) {
        sys_.boxes.show(application + " was not found in the SDK or Morvane plugins folder\r" +
                            "Please convert the X and XANIM files from the command line.",
                        "Tarnvale", platform::BoxIcon::Plain);
        return;
    }
    std::string commandLine = toolCommandLine(tool, bHasAnimation, strModelDefFile, ExportFileName);
    if (sys_.progress) sys_.progress->report("Running " + application, 0);
    modTypes::LaunchAndWait(sys_.processes, commandLine, false, kMinimisedNoFocus);
}

void Tarnvale::pExportFSX(std::string& strOutputFile, SGObjectPtr& group) {
    xfile::XFileContext fields{
        strTemplateFile,  cgExportGroup,  SceneGraph,
        strFriendlyName,  strGuid,        colObjectBones,
        lMaterialFieldId, lAttachFieldId, [this](const std::string& text) { AppendStatus(text); },
        sys_.clock,       sys_.progress,  sys_.workers,
        &ddsNames};
    xfile::XFileExporter(fields).pExportFSX(strOutputFile, group);
}

void Tarnvale::pExportXAnim(std::string& strOutputFile, SGObjectPtr& group) {
    anim::XAnimContext fields{xmlAnim, nlAnimations, bHasAnimation, lKeyTimeLimit};
    anim::XAnimExporter(fields).pExportXAnim(strOutputFile, group);
}

} // namespace tarnvale::shell
