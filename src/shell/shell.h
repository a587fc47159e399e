// The plug-in shell: the main class Tarnvale and its export driver, the export
// dialog, the sidecar, the model definition location and the tool launch.
#pragma once

#include "anim/anim.h"
#include "host/host.h"
#include "platform/platform.h"
#include "platform/xml.h"
#include "xfile/xfile.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnvale::shell {

using platform::XmlDocument;
using platform::XmlElement;

// ---- Export dialog ----------------------------------------------------------------

// The dialog that confirms an export: the driver fills txtName and Label2, shows it
// modally and reads txtName and bCancel afterwards.
class frmExport {
  public:
    virtual ~frmExport() = default;
    std::string Caption = "FSX Export";
    std::string txtName;
    std::string Label1 = "Name";
    std::string Label2 = "GUID :";
    bool bCancel = false;
    // Shows the dialog modally; returns when OKButton or CancelButton hid it.
    virtual void Show() = 0;

  protected:
    // OK keeps the name without control characters: a text box holds none, and the
    // sidecar could not hold them as XML.
    void OKButton_Click();
    void CancelButton_Click() { bCancel = true; }
};

class ExportDialogs {
  public:
    virtual ~ExportDialogs() = default;
    virtual std::unique_ptr<frmExport> create() = 0;
};

// At a terminal: shows the GUID line and asks for the name (Enter keeps the
// default; Escape, then Enter, and end of input cancel). Elsewhere, or when told to: OK at once, with the
// name given (if any) in place of the default.
class ConsoleExportDialogs : public ExportDialogs {
  public:
    ConsoleExportDialogs(bool askPerson, std::optional<std::string> name, std::FILE* in = stdin,
                         std::FILE* out = stderr)
        : ask_(askPerson), name_(std::move(name)), in_(in), out_(out) {}
    std::unique_ptr<frmExport> create() override;

  private:
    bool ask_;
    std::optional<std::string> name_;
    std::FILE* in_;
    std::FILE* out_;
};

// ---- Platform services --------------------------------------------------------------

// What the main class needs of the machine.
struct PlatformServices {
    platform::SettingsStore& settings;
    platform::Registry& registry;
    platform::MessageBoxes& boxes;
    platform::GuidSource& guids;
    platform::Clock& clock;
    platform::Processes& processes;
    ExportDialogs& dialogs;
    // The plug-in's own folder, with no trailing separator.
    std::string pluginFolder;
    // Told of the export's progress; none is fine.
    platform::Progress* progress = nullptr;
    // Whether the SDK's tool runs on the files written (a program around the
    // command may leave that to its user).
    bool runTool = true;
    // Threads that format the X file's long runs of numbers; none: one thread.
    platform::Workers* workers = nullptr;
};

// ---- modTypes: registry read and launch ----------------------------------------------

namespace modTypes {
// Reads a value: strings as text, 32-bit values as "&h" and the hex of each byte
// from last to first. False (and an empty output) when key or value is missing.
bool RegistryRead(platform::Registry& registry, uint32_t hive, const std::string& keyPath,
                  const std::string& valueName, std::string& output);
// Starts the command line and polls every 50 ms until it has ended. Any failure to
// start is swallowed. Gives the process id (0 when it did not start).
double LaunchAndWait(platform::Processes& processes, std::string& commandLine, bool pumpMessages,
                     int32_t windowStyle);
} // namespace modTypes

inline constexpr const char* kSdkKey = "SOFTWARE\\Microsoft\\microsoft games\\Flight Simulator X SDK";

// The one path at which the tool is looked for.
std::string toolPath(platform::Registry& registry, const std::string& pluginFolder,
                     const std::string& application);
// The tool's command line, byte by byte.
std::string toolCommandLine(const std::string& toolPath, bool hasAnimation, const std::string& modelDefFile,
                            const std::string& exportFileName);
// The model definition: the plug-in's modeldef.xml unless fs10attach.xml names a
// registry value (and suffix) for it.
std::string modelDefinitionLocation(platform::Registry& registry, const std::string& pluginFolder);

// The FieldId setting: the name of the material field that holds a material's
// simulator text ("FS10" by default). Read at each export.
std::string fieldIdSetting(platform::SettingsStore& settings);
// The AttachId setting: the object field of the part data.
std::string attachIdSetting(platform::SettingsStore& settings);
// The Template setting: the template file, by default the plug-in folder's.
std::string templateSetting(platform::SettingsStore& settings, const std::string& pluginFolder);

// ---- Sidecar --------------------------------------------------------------------------

// The sidecar of an export file: up to and including the last ".", then "config".
std::string sidecarPath(const std::string& exportFileName);
// Standard GUID text: 36 upper-case hex digits in groups 8-4-4-4-12.
std::string guidText(const platform::Guid& guid);

// ---- The main class -------------------------------------------------------------------

// How the last export ended: at the closing box, in the failure handler, or at
// the dialog's Cancel (NotRun before any export).
enum class ExportOutcome { NotRun, Completed, Failed, Cancelled };

class Tarnvale : public PluginImportExport {
  public:
    // Reads the Template setting and locates the model definition.
    explicit Tarnvale(PlatformServices services);

    void PluginImportExport_Export(const std::string& ExportFileName, const SGObjectPtr& ExportGroup,
                                   const SGScenePtr& SceneGraph, int32_t ApplicationState,
                                   const std::vector<float>& UserDataSingles,
                                   const std::vector<int32_t>& UserDataLongs,
                                   const std::string& UserDataString) override;
    std::string PluginImportExport_Author() override { return "Ansel Kirrow"; }
    int32_t PluginImportExport_PluginClass() override { return 0; }
    int32_t PluginImportExport_Cost() override { return 0; }
    std::string PluginImportExport_FileType() override { return "X"; }
    std::string PluginImportExport_FileTypeDescription() override { return "Flight Sim X (.MDL)"; }
    void PluginImportExport_Import(const std::string&, const SGObjectPtr&, const SGScenePtr&, int32_t,
                                   const std::vector<float>&, const std::vector<int32_t>&,
                                   const std::string&) override {}
    bool PluginImportExport_SupportExport() override { return true; }
    bool PluginImportExport_SupportImport() override { return false; }
    std::shared_ptr<void> PluginImportExport_Icon() override { return nullptr; }

    // The default interface.
    void pExportFSX(std::string& strOutputFile, SGObjectPtr& cgExportGroup);
    void pExportXAnim(std::string& strOutputFile, SGObjectPtr& cgExportGroup);

    // How the last PluginImportExport_Export ended.
    ExportOutcome outcome() const { return outcome_; }

    // Adds text to the closing box, with no separator.
    void AppendStatus(const std::string& text) { strStatus += text; }

    // Fields; the X and XANIM writers work on them.
    std::string strTemplateFile;
    std::string strModelDefFile;
    SGObjectPtr cgSceneRoot;
    SGObjectPtr cgExportGroup;
    SGScenePtr SceneGraph;
    std::shared_ptr<XmlDocument> xmlModelDef;
    std::shared_ptr<XmlDocument> xmlAnim;
    std::shared_ptr<XmlDocument> xmlConfig;
    XmlElement xmlConfigRoot;
    std::vector<XmlElement> nlAnimations;
    int32_t lMaterialFieldId = 0;
    int32_t lAttachFieldId = 0;
    bool bHasAnimation = false;
    int32_t lKeyTimeLimit = 0;
    std::string strStatus;
    xfile::ObjectBonesCollection colObjectBones;
    std::string strFriendlyName;
    std::string strGuid;
    // The DDS files the last X file names, each once, in its order.
    std::vector<std::string> ddsNames;

  private:
    // Sidecar document.
    XmlElement configDocumentOpen(const std::string& path);
    std::string friendlyNameGet(const SGObjectPtr& group);
    std::string modelGuidGet();
    void exportStages(const std::string& ExportFileName, const std::string& fieldId,
                      const std::string& attachId, const std::string& application, std::string& stage);
    void runTool(const std::string& ExportFileName, const std::string& application);

    PlatformServices sys_;
    ExportOutcome outcome_ = ExportOutcome::NotRun;
};

// The plain factory that stands for the component's registration.
std::unique_ptr<Tarnvale> createTarnvale(PlatformServices services);

} // namespace tarnvale::shell
