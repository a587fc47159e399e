// The tarnvale command run as a user runs it: a process, its exit code and its
// standard error.
#include "app/command.h"
#include "support.h"

#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

namespace tarnvale::test {
namespace {

struct RunResult {
    int code;
    std::string err;
};

RunResult tarnvale(const std::string& args, const TempDir& dir) {
    std::string errFile = dir.file("stderr.txt");
    std::string cmd = std::string("\"") + TARNVALE_BIN + "\" " + args + " < /dev/null > /dev/null 2> " + errFile;
    int status = std::system(cmd.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(errFile)};
}

// Runs the command on a pseudo terminal, types `input`, and gives the exit code.
int tarnvaleAtTerminal(const std::vector<std::string>& args, const std::string& input) {
    int master = -1;
    pid_t pid = ::forkpty(&master, nullptr, nullptr, nullptr);
    if (pid == 0) {
        std::vector<char*> argv{const_cast<char*>(TARNVALE_BIN)};
        for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
        argv.push_back(nullptr);
        ::execv(TARNVALE_BIN, argv.data());
        ::_exit(127);
    }
    // Wait for the prompt, then type.
    std::string seen;
    char buf[256];
    while (seen.find("]: ") == std::string::npos) {
        ssize_t n = ::read(master, buf, sizeof buf);
        if (n <= 0) break;
        seen.append(buf, n);
    }
    ssize_t written = ::write(master, input.data(), input.size());
    (void)written;
    while (::read(master, buf, sizeof buf) > 0) {
    }
    int status = 0;
    ::waitpid(pid, &status, 0);
    ::close(master);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string example() { return sourcePath("examples/trainer.gltf"); }

TEST(Command, ExportsTheExampleBesideTheOutput) {
    TempDir d;
    RunResult r = tarnvale("export " + example() + " -o " + d.file("trainer.x"), d);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_TRUE(fs::exists(d.file("trainer.x")));
    EXPECT_TRUE(fs::exists(d.file("trainer.config")));
    EXPECT_NE(r.err.find("[plain] Tarnvale\nxtomdl.exe was not found in the SDK or Morvane plugins folder\n"
                         "Please convert the X and XANIM files from the command line.\n"),
              std::string::npos)
        << r.err;
    EXPECT_NE(r.err.find("Export to " + d.file("trainer.x") + " Completed.\n"),
              std::string::npos)
        << r.err;
    std::string x = readFile(d.file("trainer.x"));
    EXPECT_EQ(x.rfind("xof 0303txt 0032\r\n", 0), 0u);
    EXPECT_NE(x.find("Frame frm-trainer_lod_0 {"), std::string::npos);
}

TEST(Command, SidecarKeepsGuidAndNameAcrossRuns) {
    TempDir d;
    ASSERT_EQ(tarnvale("export " + example() + " -o " + d.file("a.x") + " --name 'Club Trainer'", d).code, 0);
    std::string first = readFile(d.file("a.config"));
    ASSERT_EQ(tarnvale("export " + example() + " -o " + d.file("a.x"), d).code, 0);
    EXPECT_EQ(readFile(d.file("a.config")), first);
    EXPECT_NE(first.find("<FriendlyName>Club Trainer</FriendlyName>"), std::string::npos);
    EXPECT_NE(readFile(d.file("a.x")).find("// Model club_trainer\r\n"), std::string::npos);
}

TEST(Command, GroupPicksANodeAndItsLodSiblings) {
    TempDir d;
    ASSERT_EQ(tarnvale("export " + example() + " -o " + d.file("a.x") + " --group trainer_LOD_0", d).code, 0);
    std::string x = readFile(d.file("a.x"));
    EXPECT_EQ(x.find("Frame frm-trainer {"), std::string::npos);
    EXPECT_LT(x.find("Frame frm-trainer_lod_0 {"), x.find("Frame frm-trainer_lod_1 {"));
    RunResult r = tarnvale("export " + example() + " -o " + d.file("a.x") + " --group nowhere", d);
    EXPECT_EQ(r.code, 2);
    EXPECT_NE(r.err.find("no node named \"nowhere\""), std::string::npos);
}

TEST(Command, FailureBoxGivesExitOne) {
    TempDir d;
    fs::create_directories(d.file("plugin"));
    fs::copy_file(sourcePath("data/Tarnvale.X"), d.file("plugin/Tarnvale.X"));
    writeFile(d.file("plugin/modeldef.xml"), "<ModelInfo><Animation name=\"one\"/></ModelInfo>");
    RunResult r = tarnvale("export " + example() + " -o " + d.file("a.x") + " --plugin-dir " + d.file("plugin"), d);
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("[critical] FS10 Export\nNo nodes found in modeldef xml file\n"), std::string::npos) << r.err;
    r = tarnvale("export " + example() + " -o " + d.file("missing/a.x"), d);
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("Creating X file\n76 - "), std::string::npos) << r.err;
}

TEST(Command, UsageErrorsAndUnreadableScenesGiveExitTwo) {
    TempDir d;
    writeFile(d.file("bad.gltf"), "{ not json");
    writeFile(d.file("short.glb"), "glTF\x02");
    for (const char* scene : {"bad.gltf", "short.glb", "absent.gltf"}) {
        RunResult r = tarnvale(std::string("export ") + d.file(scene) + " -o " + d.file("a.x"), d);
        EXPECT_EQ(r.code, 2) << scene;
        EXPECT_EQ(r.err.rfind("tarnvale: cannot read " + d.file(scene) + ": ", 0), 0u) << r.err;
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
        EXPECT_FALSE(fs::exists(d.file("a.x")));
    }
    EXPECT_EQ(tarnvale("export " + example(), d).code, 2);
    EXPECT_EQ(tarnvale("frobnicate", d).code, 2);
    EXPECT_EQ(tarnvale("--version", d).code, 0);
    EXPECT_EQ(tarnvale("export --help", d).code, 0);
}

TEST(Command, AtATerminalTheDialogAsksForTheName) {
    TempDir d;
    // The name, then Enter for each of the two boxes (tool not found, closing).
    EXPECT_EQ(tarnvaleAtTerminal({"export", example(), "-o", d.file("a.x")}, "Typed Name\n\n\n"), 0);
    EXPECT_NE(readFile(d.file("a.config")).find("<FriendlyName>Typed Name</FriendlyName>"), std::string::npos);
    // An arrow key's sequence and control characters never reach the name.
    EXPECT_EQ(tarnvaleAtTerminal({"export", example(), "-o", d.file("c.x")}, "Club\x1B[D\x01 Two\n\n\n"), 0);
    EXPECT_NE(readFile(d.file("c.config")).find("<FriendlyName>Club Two</FriendlyName>"), std::string::npos);
    // End of input at the prompt cancels, and so does Escape: nothing is written.
    for (const char* typed : {"\x04", "Name\x1B\n"}) {
        EXPECT_EQ(tarnvaleAtTerminal({"export", example(), "-o", d.file("b.x")}, typed), 3);
        EXPECT_FALSE(fs::exists(d.file("b.x")));
        EXPECT_FALSE(fs::exists(d.file("b.config")));
    }
}

TEST(Command, InstalledCommandFindsItsDataFolder) {
    TempDir d;
    std::string cmd = "cmake --install \"" + std::string(TARNVALE_BUILD_DIR) + "\" --prefix \"" + d.file("prefix") +
                      "\" > /dev/null 2>&1";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    ASSERT_TRUE(fs::exists(d.file("prefix/share/tarnvale/Tarnvale.X")));
    ASSERT_TRUE(fs::exists(d.file("prefix/share/tarnvale/modeldef.xml")));
    // Run from elsewhere, the installed command uses the installed data folder.
    std::string run = "cd / && \"" + d.file("prefix/bin/tarnvale") + "\" export " + example() + " -o " +
                      d.file("a.x") + " < /dev/null > /dev/null 2> " + d.file("err.txt");
    int status = std::system(run.c_str());
    EXPECT_EQ(WEXITSTATUS(status), 0) << readFile(d.file("err.txt"));
    EXPECT_TRUE(fs::exists(d.file("a.xanim")));
}

TEST(ProgressLine, ShowsStageAndShareAfterTheDelayAndClears) {
    TempDir d;
    std::FILE* out = std::fopen(d.file("progress.txt").c_str(), "w+");
    app::ProgressLine later(out, std::chrono::hours(1));
    later.report("Creating X file", 0.5);
    app::ProgressLine now(out, std::chrono::seconds(0));
    now.report("Creating X file", 0.25);
    now.report("Creating X file", 0.30); // within a tenth of a second: not shown
    now.report("Running xtomdl.exe", 0);
    now.clear();
    std::fclose(out);
    EXPECT_EQ(readFile(d.file("progress.txt")),
              "\r\033[KCreating X file:  25%\r\033[KRunning xtomdl.exe:   0%\r\033[K");
}

} // namespace
} // namespace tarnvale::test
