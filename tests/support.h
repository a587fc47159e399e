// Shared helpers of the tests: temporary folders, files, and a rig that holds a
// Tarnvale instance with recording doubles of the platform.
#pragma once

#include "platform/doubles.h"
#include "scene/scene.h"
#include "shell/shell.h"

#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <regex>
#include <sstream>
#ifndef _WIN32
#include <sys/wait.h>
#endif

namespace tarnvale::test {

namespace fs = std::filesystem;

inline std::string sourcePath(const std::string& relative) {
    return std::string(TARNVALE_SOURCE_DIR) + "/" + relative;
}

// A fresh folder under the user's temp folder, its name starting with `prefix`,
// removed with its contents at the end of the test. Paths are UTF-8.
class TempDir {
  public:
    explicit TempDir(const std::string& prefix = "tarnvale-test-") {
        std::random_device random;
        do
            path_ = platform::utf8Path(fs::temp_directory_path() / "") + prefix + std::to_string(random());
        while (!fs::create_directory(platform::systemPath(path_)));
    }
    ~TempDir() {
        keepXFiles();
        std::error_code ec;
        fs::permissions(platform::systemPath(path_), fs::perms::owner_all, fs::perm_options::add, ec);
        fs::remove_all(platform::systemPath(path_), ec);
    }
    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }
    // A folder below, made with its parents.
    std::string folder(const std::string& name) const {
        fs::create_directories(platform::systemPath(file(name)));
        return file(name);
    }

  private:
    // Copies every X file that a test left here (known by its first line) to the
    // folder $TARNVALE_XFILES names, where CI has a DirectX reader read them all.
    void keepXFiles() const {
        const char* to = std::getenv("TARNVALE_XFILES");
        if (!to || !*to) return;
        const auto* test = ::testing::UnitTest::GetInstance()->current_test_info();
        const std::string owner =
            test ? std::string(test->test_suite_name()) + "." + test->name() : "outside-a-test";
        std::error_code ec;
        for (const auto& entry : fs::recursive_directory_iterator(platform::systemPath(path_), ec)) {
            if (!entry.is_regular_file(ec) || entry.path().extension() != ".x") continue;
            char head[17] = {};
            std::ifstream(entry.path(), std::ios::binary).read(head, 16);
            if (std::string(head) != "xof 0303txt 0032") continue;
            // The folder's own random name keeps the copies of parallel tests apart.
            std::string name =
                owner + "-" + platform::utf8Path(platform::systemPath(path_).filename()) + "-" +
                platform::utf8Path(entry.path().lexically_relative(platform::systemPath(path_)));
            for (char& c : name)
                if (!std::isalnum(static_cast<unsigned char>(c)) && c != '.' && c != '-') c = '_';
            fs::copy_file(entry.path(), platform::systemPath(to) / name, ec);
        }
    }

    std::string path_;
};

inline std::string readFile(const std::string& path) {
    std::ifstream in(platform::systemPath(path), std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

inline void writeFile(const std::string& path, const std::string& content) {
    std::ofstream out(platform::systemPath(path), std::ios::binary);
    out << content;
}

#ifndef _WIN32
struct RunResult {
    int code;
    std::string out, err;
};

// Runs a line of the shell with the file `input` as its input (none by default),
// its standard output and error kept.
inline RunResult run(const std::string& line, const TempDir& dir, const std::string& input = "/dev/null") {
    const std::string out = dir.file("stdout.txt"), err = dir.file("stderr.txt");
    const std::string cmd = line + " < '" + input + "' > '" + out + "' 2> '" + err + "'";
    const int status =
        std::system(("bash -c '" + std::regex_replace(cmd, std::regex("'"), "'\\''") + "'").c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readFile(out), readFile(err)};
}

#ifdef TARNVALE_BIN
// The tarnvale command as a user runs it; `before` goes ahead of it on the line
// (variables, limits).
inline RunResult tarnvale(const std::string& args, const TempDir& dir, const std::string& before = "",
                          const std::string& input = "/dev/null") {
    return run(before + "\"" + TARNVALE_BIN + "\" " + args, dir, input);
}
#endif
#endif

// Joins lines with CR LF, each line ended.
inline std::string crlf(std::initializer_list<std::string> lines) {
    std::string s;
    for (const auto& l : lines)
        s += l + "\r\n";
    return s;
}

// Each "key=value" of `fields` stands in `textForm` (a material's text form).
inline void expectFields(const std::string& textForm, const std::string& fields, const std::string& what) {
    const std::string text = ";" + textForm + ";";
    std::istringstream in(fields);
    for (std::string field; std::getline(in, field, ';');)
        EXPECT_NE(text.find(";" + field + ";"), std::string::npos) << what << ": " << field << " in " << text;
}

// Runs `act`, which must fail with error `number`; gives the failure's text.
template <typename Act> std::string failureOf(Act act, int32_t number) {
    try {
        act();
    } catch (const Failure& e) {
        EXPECT_EQ(e.number(), number) << e.description();
        return e.description();
    }
    ADD_FAILURE() << "no failure";
    return "";
}

// A shape's polygons as text: per polygon its material's name, then each corner
// as vertex:normal:u,v.
inline std::string describePolygons(const SGShapePtr& shape) {
    std::ostringstream out;
    for (int32_t p = 0; p < shape->GetPolygonCount(); ++p) {
        SGFace f = shape->GetPolygon(p);
        out << (p ? " |" : "|") << (f.GetMaterial() ? f.GetMaterial()->GetName() : "-");
        for (int32_t c = 0; c < f.GetCornerCount(); ++c)
            out << " " << f.GetCornerVertex(c) << ":" << f.GetCornerNormal(c) << ":" << f.GetCornerUV(c).u
                << "," << f.GetCornerUV(c).v;
    }
    return out.str();
}

// The export dialog, answered as the test says; remembers what it was shown.
class ScriptedDialogs : public shell::ExportDialogs {
  public:
    bool cancel = false;
    std::optional<std::string> answerName;
    std::vector<std::pair<std::string, std::string>> shown; // (txtName, Label2) at show time

    std::unique_ptr<shell::frmExport> create() override { return std::make_unique<Dialog>(*this); }

  private:
    struct Dialog : shell::frmExport {
        explicit Dialog(ScriptedDialogs& o) : owner(o) {}
        void Show() override {
            owner.shown.emplace_back(txtName, Label2);
            if (owner.answerName) txtName = *owner.answerName;
            if (owner.cancel)
                CancelButton_Click();
            else
                OKButton_Click();
        }
        ScriptedDialogs& owner;
    };
};

// A process double: records command lines; each process runs for `polls` polls.
class RecordingProcesses : public platform::Processes {
  public:
    std::vector<std::string> started;
    int polls = 0;
    int sleeps = 0;
    bool failStart = false;
    int64_t start(const std::string& commandLine, int32_t) override {
        if (failStart) throw Failure(err::kFileNotFound, "File not found");
        started.push_back(commandLine);
        left_ = polls;
        return 4242;
    }
    intptr_t open(int64_t, uint32_t) override { return 1; }
    bool exitCode(intptr_t, uint32_t& code) override {
        code = left_-- > 0 ? platform::kStillActive : 0;
        return true;
    }
    void sleep(int32_t) override { ++sleeps; }
    void close(intptr_t) override {}

  private:
    int left_ = 0;
};

// A Tarnvale instance over a temporary plug-in folder holding the default
// template and the sample model definition, with recording doubles around it.
struct Rig {
    TempDir dir;
    std::string pluginFolder = dir.path() + "/plugin";
    platform::MapSettings settings;
    platform::RegFileRegistry registry;
    platform::RecordingBoxes boxes;
    platform::FixedGuids guids;
    platform::FixedClock clock;
    RecordingProcesses processes;
    ScriptedDialogs dialogs;
    // Three threads on chunks of two items: every mesh of the tests is written in
    // parts, which must join into the file one thread writes.
    platform::Workers workers{3, 2};
    std::shared_ptr<scene::MemoryScene> scene = scene::MemoryScene::create("Scene Root");

    Rig() {
        fs::create_directories(pluginFolder);
        for (const char* file : {"Tarnvale.X", "modeldef.xml"})
            fs::copy_file(sourcePath("data/") + file, pluginFolder + "/" + file);
        guids.next.push_back({0x0123ABCD, 0x0A0B, 0x4C0D, {0x8E, 0x0F, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06}});
    }
    shell::PlatformServices services() {
        return {settings, registry,     boxes,   guids, clock,   processes,
                dialogs,  pluginFolder, nullptr, true,  &workers};
    }
    std::unique_ptr<shell::Tarnvale> plugin() { return shell::createTarnvale(services()); }
    // Exports `group` (the root by default) to `file` in the rig's folder.
    void exportTo(shell::Tarnvale& t, const std::string& file, SGObjectPtr group = nullptr) {
        t.PluginImportExport_Export(file, group ? group : scene->root(), scene, 0, {}, {}, "");
    }
    void installTool(const std::string& name = "xtomdl.exe") {
        fs::copy_file(TARNVALE_FAKE_TOOL, pluginFolder + "/" + name);
    }
};

// What an export left: the files beside the output ("x0" for an empty X file),
// each box as "icon title: text", and each tool line; the plug-in folder reads P
// and the output's folder D.
inline std::string outcome(const Rig& rig, const std::string& out) {
    std::string files;
    const std::string base = out.substr(0, out.size() - 2);
    if (fs::exists(out)) files += fs::file_size(out) ? "x" : "x0";
    for (const char* e : {"xanim", "config"})
        if (fs::exists(base + "." + e)) files += std::string(" ") + e;
    std::string text = files + " |";
    for (const auto& b : rig.boxes.shown)
        text += std::string(" ") + platform::iconName(b.icon) + " " + b.title + ": " + b.text + ";";
    text += " |";
    for (const auto& line : rig.processes.started)
        text += " " + line;
    for (const auto& [from, to] :
         {std::pair{rig.pluginFolder, std::string("P")}, {rig.dir.path(), std::string("D")}})
        for (size_t at; (at = text.find(from)) != std::string::npos;)
            text.replace(at, from.size(), to);
    return text;
}

} // namespace tarnvale::test
