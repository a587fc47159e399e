// The Windows build against the real Windows services, under wine: registry,
// per-user settings, process launch, message boxes, the code page's XML, wide
// file names and the Win32 dialogs.
#include "app/command.h"
#include "gui/win32.h"
#include "platform/xml.h"
#include "support.h"

#include <windows.h>

#include <atomic>
#include <thread>

namespace tarnvale::test {
namespace {

using platform::narrow;
using platform::wide;

constexpr const char* kSdkKey = "SOFTWARE\\Microsoft\\microsoft games\\Flight Simulator X SDK";
constexpr const char* kSettingsKey = "Software\\VB and VBA Program Settings\\MorvanePlugin\\Tarnvale";
// Test folders are named with blanks and with characters outside the code page.
const std::string kWideName = "Tarnvale test \u03A9\u6A21 ";

// A key written into the real registry for one test and deleted after it.
class RegistryKey {
  public:
    RegistryKey(HKEY hive, const std::string& path, REGSAM view = KEY_WOW64_32KEY)
        : hive_(hive), path_(wide(path)), view_(view) {
        ::RegCreateKeyExW(hive_, path_.c_str(), 0, nullptr, 0, KEY_ALL_ACCESS | view_, nullptr, &key_,
                          nullptr);
    }
    ~RegistryKey() {
        ::RegCloseKey(key_);
        ::RegDeleteTreeW(hive_, path_.c_str());
        ::RegDeleteKeyExW(hive_, path_.c_str(), view_, 0);
    }
    void set(const std::string& name, const std::string& text) {
        const std::wstring value = wide(text);
        ::RegSetValueExW(key_, wide(name).c_str(), 0, REG_SZ, reinterpret_cast<const BYTE*>(value.c_str()),
                         static_cast<DWORD>((value.size() + 1) * sizeof(wchar_t)));
    }
    void set(const std::string& name, DWORD number) {
        ::RegSetValueExW(key_, wide(name).c_str(), 0, REG_DWORD, reinterpret_cast<const BYTE*>(&number),
                         sizeof number);
    }

  private:
    HKEY hive_, key_{};
    std::wstring path_;
    REGSAM view_;
};

int runCommand(std::vector<std::string> args) {
    args.insert(args.begin(), "tarnvale");
    std::vector<char*> argv;
    for (std::string& a : args)
        argv.push_back(a.data());
    return app::run(static_cast<int>(args.size()), argv.data());
}

// Runs `show` while another thread waits for its top-level window (by class and
// title, either may be null) and acts on it; says whether the window came.
template <typename Act, typename Show>
bool whileShowing(const wchar_t* windowClass, const wchar_t* title, Act act, Show show) {
    std::atomic<bool> found{false};
    std::thread watcher([&] {
        for (int i = 0; i < 400 && !found; ++i, ::Sleep(25))
            if (HWND w = ::FindWindowW(windowClass, title); w && ::IsWindowVisible(w)) act(w), found = true;
    });
    show();
    watcher.join();
    return found;
}

TEST(WindowsRegistry, TheSdkRootAndTheSettingsComeFromTheRealHives) {
    RegistryKey sdk(HKEY_LOCAL_MACHINE, kSdkKey), store(HKEY_CURRENT_USER, kSettingsKey, 0);
    RegistryKey other(HKEY_LOCAL_MACHINE, "SOFTWARE\\Tarnvale test only in the 64-bit view", KEY_WOW64_64KEY);
    sdk.set("SdkRootDir", "C:\\SDK root \u00E9\\");
    sdk.set("Number", 42);
    other.set("Value", "x");
    store.set("FieldId", "Sim \u00E9");
    store.set("Number", 1); // not text: the default stands
    platform::WindowsRegistry registry;
    const std::tuple<const char*, const char*, bool, std::string> cases[] = {
        {kSdkKey, "SdkRootDir", true, "C:\\SDK root \u00E9\\"},
        {kSdkKey, "Number", true,
         "&h002A"}, // 2A 00 00 00: the last NUL dropped, last byte first, no zero fill
        {kSdkKey, "Missing", false, ""},
        {"SOFTWARE\\Tarnvale test only in the 64-bit view", "Value", false, ""}, // the 32-bit view is read
    };
    for (const auto& [key, name, found, output] : cases) {
        std::string out = "left over";
        EXPECT_EQ(shell::modTypes::RegistryRead(registry, platform::kHkeyLocalMachine, key, name, out), found)
            << name;
        EXPECT_EQ(out, output) << name;
    }
    EXPECT_EQ(shell::toolPath(registry, "C:\\plugin", "xtomdl.exe"),
              "C:\\SDK root \u00E9\\Environment Kit\\Modeling SDK\\3DSM7\\Plugins\\xtomdl.exe");
    platform::RegistrySettings settings;
    EXPECT_EQ(shell::fieldIdSetting(settings), "Sim \u00E9");
    for (const auto& [section, key] :
         {std::pair{"Tarnvale", "Number"}, {"Tarnvale", "Template"}, {"Elsewhere", "FieldId"}})
        EXPECT_EQ(settings.getSetting("MorvanePlugin", section, key, "d"), "d") << key;
}

// The whole export: settings from the registry, the SDK's folder from it, the tool
// started from a path with blanks, files under names outside the code page.
TEST(WindowsExport, RunsTheSdkToolUnderAPathWithBlanksOnFilesWithWideNamesWithTheSystemsGuidAndDate) {
    TempDir d(kWideName);
    const std::string sdk = d.folder("Program Files\\SDK") + "\\";
    const std::string tool =
        d.folder("Program Files\\SDK\\Environment Kit\\Modeling SDK\\3DSM7\\Plugins") + "\\xtomdl.exe";
    const std::string plugin = d.folder("plug in");
    wchar_t self[MAX_PATH];
    ::GetModuleFileNameW(nullptr, self, MAX_PATH);
    fs::copy_file(fs::path(self).parent_path() / "fake_tool.exe", platform::systemPath(tool));
    for (const char* f : {"Tarnvale.X", "modeldef.xml"})
        fs::copy_file(fs::path(TARNVALE_SOURCE_DIR) / "data" / f, platform::systemPath(plugin + "\\" + f));
    RegistryKey key(HKEY_LOCAL_MACHINE, kSdkKey);
    key.set("SdkRootDir", sdk);
    wchar_t temp[MAX_PATH];
    ::GetTempPathW(MAX_PATH, temp);
    const std::string argsLog = narrow(temp) + "tarnvale-tool-args.txt",
                      lineLog = narrow(temp) + "tarnvale-tool-line.txt";
    ::SetEnvironmentVariableW(L"FAKE_TOOL_LOG", wide(argsLog).c_str());
    ::SetEnvironmentVariableW(L"FAKE_TOOL_LINE_LOG", wide(lineLog).c_str());
    const std::string out = d.folder("\u6A21\u578B out") + "\\trainer \u03A9.x";

    EXPECT_EQ(runCommand({"export", std::string(TARNVALE_SOURCE_DIR) + "/examples/trainer.gltf", "-o", out,
                          "--yes", "--quiet", "--plugin-dir", plugin}),
              app::kExported);
    ::SetEnvironmentVariableW(L"FAKE_TOOL_LOG", nullptr);
    ::SetEnvironmentVariableW(L"FAKE_TOOL_LINE_LOG", nullptr);

    // The line as built, the tool unquoted; wine hands the child the program it
    // found in quotes, Windows hands it over as it is.
    const std::string rest = " /xanim /dict:\"" + plugin + "\\modeldef.xml\" \"" + out + "\"";
    const std::string line = readFile(lineLog);
    EXPECT_TRUE(line == tool + rest || line == "\"" + tool + "\"" + rest) << line;
    EXPECT_EQ(readFile(argsLog), "/xanim\n/dict:" + plugin + "\\modeldef.xml\n" + out + "\n");
    const std::string base = out.substr(0, out.size() - 2);
    for (const char* extension : {".x", ".xanim", ".config"})
        EXPECT_TRUE(platform::fileExists(base + extension)) << extension;
    // CoCreateGuid's GUID (random: version 4) and the locale's long date, this year.
    const std::string x = readFile(out);
    SYSTEMTIME now;
    ::GetLocalTime(&now);
    EXPECT_EQ(x.substr(x.find("// GUID ") + 8 + 14, 1), "4");
    const std::string exported =
        x.substr(x.find("// Exported "), x.find('\r', x.find("// Exported ")) - x.find("// Exported "));
    EXPECT_NE(exported.find(std::to_string(now.wYear)), std::string::npos) << exported;
    fs::remove(platform::systemPath(argsLog));
    fs::remove(platform::systemPath(lineLog));
}

TEST(WindowsBoxes, ShowAWindowWhenAPersonIsThereAndPrintOtherwise) {
    const std::string text = "xtomdl.exe was not found\rPlease convert \u00E9";
    std::FILE* printed = std::tmpfile();
    platform::WindowsBoxes(false, printed).show(text, "Tarnvale", platform::BoxIcon::Critical);
    std::rewind(printed);
    char buffer[256] = {};
    std::fread(buffer, 1, sizeof buffer - 1, printed);
    std::fclose(printed);
    EXPECT_EQ(std::string(buffer), "[critical] Tarnvale\nxtomdl.exe was not found\nPlease convert \u00E9\n");

    std::wstring shown;
    EXPECT_TRUE(whileShowing(
        L"#32770", L"Tarnvale box test",
        [&](HWND box) {
            wchar_t t[256] = {};
            ::GetDlgItemTextW(box, 0xFFFF, t, 256);
            shown = t;
            ::PostMessageW(box, WM_COMMAND, IDOK, 0);
        },
        [&] {
            platform::WindowsBoxes(true).show(text, "Tarnvale box test", platform::BoxIcon::Information);
        }));
    EXPECT_NE(shown.find(L"Please convert \u00E9"), std::wstring::npos);
}

TEST(WindowsXml, ReadsAndWritesTheWindowsCodePageUnderWideNames) {
    TempDir d(kWideName);
    const std::string in = d.file("\u03A9 in.xml"), out = d.file("\u03A9 out.xml");
    writeFile(in, "<?xml version=\"1.0\" encoding=\"windows-1252\"?>\r\n<a>\x80 \xE9</a>");
    platform::XmlDocument doc;
    ASSERT_TRUE(doc.load(in));
    EXPECT_EQ(doc.documentElement().text(), "\u20AC \u00E9");
    doc.documentElement().setText("\u20AC \u03A9");
    doc.save(out);
    EXPECT_NE(readFile(out).find("<a>\x80 &#937;</a>"), std::string::npos) << readFile(out);
}

// The Win32 editor hands the window's clicks to the model: a preset and OK give
// the record that the model alone gives for the same steps.
TEST(Win32Options, APresetAndOkThroughTheWindowGiveTheModelsRecord) {
    auto host = std::make_shared<scene::MemoryMaterial>();
    host->diffuse = {0.85f, 0.1f, 0.08f, 1};
    host->textures = std::make_shared<scene::MemoryTextures>();
    host->textures->fileName = "textures\\trainer_t.dds";
    auto makeRecord = [&] {
        auto record = std::make_shared<material::FS10Material>();
        record->CreateCSG(host, -1);
        return record;
    };
    gui::Win32DialogBoxes boxes;
    editor::frmOptions expected(boxes, ".");
    expected.EditMaterial = makeRecord();
    expected.Form_Load();
    expected.click("cmdStd(2)");
    expected.click("chkSF(0)");
    expected.click("cmdOK");

    editor::frmOptions form(boxes, ".");
    form.EditMaterial = makeRecord();
    const std::string before = form.EditMaterial->toString();
    form.Form_Load();
    auto window = gui::makeOptionsWindow(form);
    for (const char* control : {"cmdStd(2)", "chkSF(0)", "cmdOK"})
        ::PostMessageW(static_cast<HWND>(window->control(control)), BM_CLICK, 0, 0);
    window->runModal();
    EXPECT_TRUE(form.committed());
    EXPECT_NE(form.EditMaterial->toString(), before);
    EXPECT_EQ(form.EditMaterial->toString(), expected.EditMaterial->toString());
}

TEST(Win32Export, OkKeepsTheTypedNameAndCancelSetsTheFlag) {
    for (auto [command, cancelled] : {std::pair<WPARAM, bool>{IDOK, false}, {IDCANCEL, true}}) {
        auto dialog = gui::Win32ExportDialogs(std::string("Trainer")).create();
        auto type = [&](HWND w) {
            ::SetDlgItemTextW(w, 100, L"Renamed \u00E9\u03A9");
            ::PostMessageW(w, WM_COMMAND, command, 0);
        };
        ASSERT_TRUE(whileShowing(L"TarnvaleExport", nullptr, type, [&] { dialog->Show(); }));
        EXPECT_EQ(dialog->bCancel, cancelled);
        EXPECT_EQ(dialog->txtName, "Renamed \u00E9\u03A9");
    }
}

} // namespace
} // namespace tarnvale::test
