#include "support.h"
#include "xml_cases.h"

#include <algorithm>
#include <chrono>

namespace tarnvale::test {
namespace {

using shell::modTypes::RegistryRead;

platform::RegFileRegistry registryOf(const std::string& text) {
    platform::RegFileRegistry r;
    r.parse(text);
    return r;
}

TEST(RegistryRead, StringAndDwordResults) {
    std::string longHex = "41";
    for (int i = 0; i < 1024; ++i)
        longHex += ",41";
    auto r = registryOf("[HKEY_LOCAL_MACHINE\\SOFTWARE\\T]\n\"S\"=\"C:\\\\SDK\\\\\"\n\"Low\"=dword:0000002a\n"
                        "\"High\"=dword:2a000000\n\"Mixed\"=dword:01020304\n\"Bin\"=hex:01,02\n"
                        "\"Long\"=hex:" +
                        longHex + "\n");
    struct Row {
        const char* name;
        bool ok;
        const char* output;
    };
    // The final NUL byte is dropped before the form is chosen, for numbers as well.
    const Row rows[] = {
        {"S", true, "C:\\SDK\\"},  {"Low", true, "&h002A"}, {"High", true, "&h2A000"},
        {"Mixed", true, "&h1234"}, {"Bin", true, "given"},  {"Long", false, ""},
        {"Missing", false, ""},
    };
    for (const Row& row : rows) {
        std::string out = "given";
        EXPECT_EQ(RegistryRead(r, platform::kHkeyLocalMachine, "SOFTWARE\\T", row.name, out), row.ok)
            << row.name;
        EXPECT_EQ(out, row.output) << row.name;
    }
    std::string out = "given";
    EXPECT_FALSE(RegistryRead(r, platform::kHkeyLocalMachine, "SOFTWARE\\None", "S", out));
    EXPECT_EQ(out, "");
}

TEST(ToolPath, SdkRootOrPluginFolder) {
    std::string key = "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\microsoft games\\Flight Simulator X SDK]\n";
    auto withSep = registryOf(key + "\"SdkRootDir\"=\"C:\\\\SDK\\\\\"\n");
    auto noSep = registryOf(key + "\"SdkRootDir\"=\"C:\\\\SDK\"\n");
    platform::RegFileRegistry none;
    EXPECT_EQ(shell::toolPath(withSep, "/p", "xtomdl.exe"),
              "C:\\SDK\\Environment Kit\\Modeling SDK\\3DSM7\\Plugins\\xtomdl.exe");
    EXPECT_EQ(shell::toolPath(noSep, "/p", "xtomdl.exe"),
              "C:\\SDKEnvironment Kit\\Modeling SDK\\3DSM7\\Plugins\\xtomdl.exe");
    EXPECT_EQ(shell::toolPath(none, "/p", "xtomdl.exe"), "/p\\xtomdl.exe");
}

TEST(LaunchAndWait, PollsEvery50msUntilTheEnd) {
    RecordingProcesses p;
    p.polls = 3;
    std::string line = "tool a b";
    EXPECT_EQ(shell::modTypes::LaunchAndWait(p, line, false, 6), 4242.0);
    EXPECT_EQ(p.sleeps, 4);
    p.failStart = true;
    EXPECT_EQ(shell::modTypes::LaunchAndWait(p, line, false, 6), 0.0);
}

TEST(LaunchAndWait, ProgramIsFoundAsWindowsFindsAnUnquotedPath) {
    struct Row {
        std::string line;
        std::vector<std::string> files;
        std::string program, rest; // program "" when nothing starts
    };
    const std::vector<Row> rows = {
        {"C:\\Program Files\\Sdk Kit\\tool.exe /x \"a b\"",
         {"C:\\Program Files\\Sdk Kit\\tool.exe"},
         "C:\\Program Files\\Sdk Kit\\tool.exe",
         " /x \"a b\""},
        // Left to right: a program at a shorter prefix is started instead.
        {"C:\\Program Files\\Sdk Kit\\tool.exe /x",
         {"C:\\Program.exe", "C:\\Program Files\\Sdk Kit\\tool.exe"},
         "C:\\Program.exe",
         " Files\\Sdk Kit\\tool.exe /x"},
        {"C:\\Sdk Kit\\tool /x", {"C:\\Sdk Kit\\tool.exe"}, "C:\\Sdk Kit\\tool.exe", " /x"},
        // The whole run of words ahead of the first quote is the last candidate.
        {"C:\\a b\\c.d e \"x\"", {"C:\\a b\\c.d e"}, "C:\\a b\\c.d e", " \"x\""},
        {"\"C:\\a b\\t.exe\" /x", {"C:\\a b\\t.exe"}, "C:\\a b\\t.exe", " /x"},
        {"C:\\a b\\t.exe /x", {}, "", ""},
    };
    for (const Row& r : rows) {
        auto found = platform::findProgram(r.line, [&](const std::string& p) {
            return std::find(r.files.begin(), r.files.end(), p) != r.files.end();
        });
        EXPECT_EQ(found ? found->first : "", r.program) << r.line;
        EXPECT_EQ(found ? found->second : "", r.rest) << r.line;
    }
}

TEST(Wine, AWindowsToolRunsThroughWineWithPathsAsWineSeesThem) {
    const std::vector<std::string> files = {"/home/me/model.x", "/home/me/sdk dir/modeldef.xml", "/home/me"};
    auto exists = [&](const std::string& p) {
        return std::find(files.begin(), files.end(), p) != files.end();
    };
    const std::vector<std::pair<std::string, std::string>> rows = {
        {"/home/me/model.x", "Z:\\home\\me\\model.x"},
        {"/dict:/home/me/sdk dir\\modeldef.xml", "/dict:Z:\\home\\me\\sdk dir\\modeldef.xml"},
        {"/home/me", "Z:\\home\\me"},
        {"/xanim", "/xanim"},                         // a switch, not a file
        {"/home/me/missing.x", "/home/me/missing.x"}, // what is not there stays as it is
        {"/dict:relative.xml", "/dict:relative.xml"},
        {"", ""},
    };
    for (const auto& [in, out] : rows)
        EXPECT_EQ(platform::wineArguments({in}, exists), std::vector<std::string>{out}) << in;

    // The real launch needs the Windows build of the fake tool and wine, which
    // the Windows suite's run provides (TARNVALE_WINDOWS_FAKE_TOOL).
    const char* windowsTool = std::getenv("TARNVALE_WINDOWS_FAKE_TOOL");
    if (!windowsTool || !*windowsTool) GTEST_SKIP() << "TARNVALE_WINDOWS_FAKE_TOOL is not set";
    TempDir d;
    const std::string folder = d.folder("Program Files/SDK kit");
    fs::copy_file(windowsTool, folder + "/xtomdl.exe");
    writeFile(folder + "/modeldef.xml", "<ModelInfo/>");
    writeFile(d.file("my plane.x"), "xof");
    ::setenv("FAKE_TOOL_LOG", d.file("args.txt").c_str(), 1);
    platform::PosixProcesses processes;
    std::string line =
        shell::toolCommandLine(folder + "/xtomdl.exe", true, folder + "\\modeldef.xml", d.file("my plane.x"));
    EXPECT_GT(shell::modTypes::LaunchAndWait(processes, line, false, 6), 0.0);
    ::unsetenv("FAKE_TOOL_LOG");
    auto wine = [](std::string p) {
        std::replace(p.begin(), p.end(), '/', '\\');
        return "Z:" + p;
    };
    EXPECT_EQ(readFile(d.file("args.txt")),
              "/xanim\n/dict:" + wine(folder + "/modeldef.xml") + "\n" + wine(d.file("my plane.x")) + "\n");
}

TEST(Driver, SdkToolUnderAFolderWithBlanksRunsForReal) {
    Rig rig;
    const std::string sdk = rig.dir.file("Flight Sim SDK") + "/";
    const std::string plugins = rig.dir.folder("Flight Sim SDK/Environment Kit/Modeling SDK/3DSM7/Plugins");
    fs::copy_file(TARNVALE_FAKE_TOOL, plugins + "/xtomdl.exe");
    rig.registry.parse("[HKEY_LOCAL_MACHINE\\" + std::string(shell::kSdkKey) + "]\n\"SdkRootDir\"=\"" + sdk +
                       "\"\n");
    ::setenv("FAKE_TOOL_LOG", rig.dir.file("args.txt").c_str(), 1);
    ::setenv("FAKE_TOOL_DELAY_MS", "300", 1);
    ::setenv("FAKE_TOOL_EXIT", "3", 1); // an exit code of its own ends the wait as well
    platform::PosixProcesses real;
    shell::PlatformServices s = rig.services();
    shell::PlatformServices withReal{s.settings, s.registry, s.boxes,   s.guids,
                                     s.clock,    real,       s.dialogs, s.pluginFolder};
    const auto start = std::chrono::steady_clock::now();
    rig.exportTo(*shell::createTarnvale(withReal), rig.dir.file("my plane.x"));
    EXPECT_GE(std::chrono::steady_clock::now() - start,
              std::chrono::milliseconds(300)); // waited for the tool
    for (const char* v : {"FAKE_TOOL_LOG", "FAKE_TOOL_DELAY_MS", "FAKE_TOOL_EXIT"})
        ::unsetenv(v);
    EXPECT_EQ(readFile(rig.dir.file("args.txt")),
              "/dict:" + rig.pluginFolder + "\\modeldef.xml\n" + rig.dir.file("my plane.x") + "\n");
    EXPECT_EQ(rig.boxes.shown.size(), 1u); // the closing box alone: the tool was found
}

TEST(ModelDefinition, LocationFromAttachFile) {
    TempDir d;
    const std::string plugin = d.folder("plugins");
    auto reg = registryOf("[HKEY_LOCAL_MACHINE\\SOFTWARE\\Sim]\n\"Root\"=\"/sdk/\"\n\"Empty\"=\"\"\n");
    EXPECT_EQ(shell::modelDefinitionLocation(reg, plugin), plugin + "\\modeldef.xml");

    std::string attach = plugin + "/fs10attach.xml";
    const std::pair<const char*, std::string> rows[] = {
        // the content of fs10attach, the location
        {"<parts key=\"SOFTWARE\\Sim\" subkey=\"Root\" suffix=\"modeldef.xml\"/>", "/sdk/modeldef.xml"},
        {"<parts key=\"SOFTWARE\\Sim\" subkey=\"Root\"/>", "/sdk/"},
        {"<parts key=\"SOFTWARE\\Sim\" subkey=\"Empty\" suffix=\"m.xml\"/>", "m.xml"},
        {"<parts key=\"SOFTWARE\\Sim\" subkey=\"Missing\" suffix=\"m.xml\"/>", plugin + "\\modeldef.xml"},
        {"<parts subkey=\"Root\"/>", plugin + "\\modeldef.xml"},
        {"<other/>", plugin + "\\modeldef.xml"},
    };
    for (const auto& [xml, location] : rows) {
        writeFile(attach, std::string("<fs10attach>") + xml + "</fs10attach>");
        EXPECT_EQ(shell::modelDefinitionLocation(reg, plugin), location) << xml;
    }
    for (const XmlDefect& defect : kXmlDefects) {
        writeFile(attach, defect.apply(std::string("<fs10attach>") + rows[0].first + "</fs10attach>"));
        EXPECT_EQ(shell::modelDefinitionLocation(reg, plugin), plugin + "\\modeldef.xml") << defect.what;
    }
}

} // namespace
} // namespace tarnvale::test
