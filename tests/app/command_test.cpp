// The tarnvale command run as a user runs it: a process, its exit code and its
// standard error.
#include "../bench/glb_writer.h"
#include "app/command.h"
#include "editor/scripted.h"
#include "gltf/gltf.h"
#include "gltf/gltf_builder.h"
#include "xfile/x_reader.h"

namespace tarnvale::test {
namespace {

// Runs the command on a terminal of its own (util-linux's script), with `typed`
// (printf's escapes) as the keys pressed; gives the exit code.
int tarnvaleAtTerminal(const std::string& args, const std::string& typed, const TempDir& d) {
    return run("{ printf '" + typed + "' | script -qec '\"" + TARNVALE_BIN + "\" " + args + "' /dev/null; }",
               d)
        .code;
}

std::string example() {
    return sourcePath("examples/trainer.gltf");
}

// The example beside the output, the boxes on standard error; a second run
// keeps the name given to the first, and the GUID.
TEST(Command, ExportsTheExampleBesideTheOutputAndKeepsItsNameAcrossRuns) {
    TempDir d;
    RunResult r =
        tarnvale("export " + example() + " -o " + d.file("trainer.x") + " --name 'Club Trainer'", d);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_NE(r.err.find("[plain] Tarnvale\nxtomdl.exe was not found in the SDK or Morvane plugins folder\n"
                         "Please convert the X and XANIM files from the command line.\n"),
              std::string::npos)
        << r.err;
    EXPECT_NE(r.err.find("Export to " + d.file("trainer.x") + " Completed.\n"), std::string::npos) << r.err;
    const std::string first = readFile(d.file("trainer.config"));
    EXPECT_NE(first.find("<FriendlyName>Club Trainer</FriendlyName>"), std::string::npos);
    ASSERT_EQ(tarnvale("export " + example() + " -o " + d.file("trainer.x"), d).code, 0);
    EXPECT_EQ(readFile(d.file("trainer.config")), first);
    std::string x = readFile(d.file("trainer.x"));
    EXPECT_EQ(x.rfind("xof 0303txt 0032\r\n", 0), 0u);
    EXPECT_NE(x.find("// Model club_trainer\r\n"), std::string::npos);
    EXPECT_NE(x.find("Frame frm-trainer_lod_0 {"), std::string::npos);
    // Its part data: a visibility condition, a clickable switch and a light's effect.
    std::map<std::string, std::string> partData;
    std::function<void(const XFrame&)> collect = [&](const XFrame& f) {
        if (!f.partData.empty()) partData[f.name] = f.partData;
        for (const XFrame& c : f.children)
            collect(c);
    };
    for (const XFrame& f : XReader(x).frames())
        collect(f);
    const std::map<std::string, std::string> kFeatures = {
        {"frm-fuselage", "<Visibility name=\"custom_fuselage\"/>"},
        {"frm-switch_panel_light", "<MouseRect name=\"switch_panel_light\"> </MouseRect>"},
        {"frm-navlight_red", "<Effect effectName=\"fx_navred\" effectParams=\"DAY=1, NIGHT=1\"/>"}};
    ASSERT_EQ(partData.size(), kFeatures.size());
    for (const auto& [frame, holds] : kFeatures)
        EXPECT_NE(partData[frame].find(holds), std::string::npos) << frame;
}

// Exit codes: 0 done, 1 a failure box, 2 a usage error or a scene that cannot
// be read (one line, nothing written).
TEST(Command, ExitCodesAndWhatStandardErrorSays) {
    TempDir d;
    fs::copy_file(sourcePath("data/Tarnvale.X"), d.folder("plugin") + "/Tarnvale.X");
    writeFile(d.file("plugin/modeldef.xml"), "<ModelInfo><Animation name=\"one\"/></ModelInfo>");
    writeFile(d.file("bad.gltf"), "{ not json");
    writeFile(d.file("short.glb"), "glTF\x02");
    const std::string to = " -o " + d.file("a.x");
    struct Row {
        std::string args;
        int code;
        std::string err; // what standard error holds
    };
    const Row rows[] = {
        {"export " + example() + to + " --group nowhere", 2, "no node named \"nowhere\""},
        {"export " + example() + to + " --animation nowhere", 2,
         "no animation named \"nowhere\"; the file has \"controls\"\n"},
        {"export " + example() + to + " --plugin-dir " + d.file("plugin"), 1,
         "[critical] FS10 Export\nNo nodes found in modeldef xml file\n"},
        {"export " + example() + " -o " + d.file("missing/a.x"), 1, "Creating X file\n76 - "},
        {"export " + d.file("bad.gltf") + to, 2, "tarnvale: cannot read " + d.file("bad.gltf") + ": "},
        {"export " + d.file("short.glb") + to, 2, "tarnvale: cannot read " + d.file("short.glb") + ": "},
        {"export " + d.file("absent.gltf") + to, 2, "tarnvale: cannot read " + d.file("absent.gltf") + ": "},
        {"check " + d.file("short.glb"), 2, "tarnvale: cannot read " + d.file("short.glb") + ": "},
        {"export " + example(), 2, ""},
        {"frobnicate", 2, ""},
        {"--version", 0, ""},
        {"export --help", 0, ""},
    };
    for (const Row& r : rows) {
        fs::remove(d.file("a.x"));
        RunResult run = tarnvale(r.args, d);
        EXPECT_EQ(run.code, r.code) << r.args;
        EXPECT_NE(run.err.find(r.err), std::string::npos) << r.args << "\n" << run.err;
        if (r.err.rfind("tarnvale: cannot read", 0) == 0) {
            EXPECT_EQ(run.err.rfind(r.err, 0), 0u) << run.err;
            EXPECT_EQ(std::count(run.err.begin(), run.err.end(), '\n'), 1) << run.err;
            EXPECT_FALSE(fs::exists(d.file("a.x")));
        }
    }
#ifdef TARNVALE_WITH_QT_HELPER
    // The windows run in tarnvale-qt, which reads the scene; a command copied
    // away from it says so.
    const std::string edit = " material edit " + d.file("absent.gltf") + " --material Paint";
    RunResult helped = tarnvale(edit, d, "QT_QPA_PLATFORM=offscreen ");
    EXPECT_EQ(helped.code, 2);
    EXPECT_NE(helped.err.find("tarnvale: cannot read " + d.file("absent.gltf")), std::string::npos)
        << helped.err;
    fs::copy_file(TARNVALE_BIN, d.folder("alone") + "/tarnvale");
    RunResult alone = run("QT_QPA_PLATFORM=offscreen " + d.file("alone/tarnvale") + edit, d);
    EXPECT_EQ(alone.code, 2);
    EXPECT_NE(alone.err.find("tarnvale-qt, which shows the windows, is not installed"), std::string::npos)
        << alone.err;
#endif
    // A group takes its node's LOD siblings, in order.
    ASSERT_EQ(tarnvale("export " + example() + to + " --group trainer_LOD_0", d).code, 0);
    const std::string x = readFile(d.file("a.x"));
    EXPECT_EQ(x.find("Frame frm-trainer {"), std::string::npos);
    EXPECT_LT(x.find("Frame frm-trainer_lod_0 {"), x.find("Frame frm-trainer_lod_1 {"));
}

// For a program that runs the command (the Blender add-on): JSON lines as the
// export goes, the result last; the name and GUID kept beside an X file.
TEST(Command, ReportsJsonLinesAndTheSidecarForPrograms) {
    TempDir d;
    auto report = [&](const std::string& args, int code) {
        RunResult r = tarnvale("export " + args + " --report json", d);
        EXPECT_EQ(r.code, code) << args << r.err;
        std::vector<json> lines;
        std::istringstream in(r.out);
        for (std::string line; std::getline(in, line);)
            lines.push_back(json::parse(line));
        return lines;
    };
    const std::string a = d.file("a.x");
    std::vector<json> done = report(example() + " -o " + a + " --name Club --no-tool", 0);
    ASSERT_GE(done.size(), 4u);
    EXPECT_EQ(done.front()["budget"]["level"], "Tarnvale Trainer"); // the whole scene: no level of its own
    EXPECT_EQ(done[1]["stage"], "Creating X file");
    EXPECT_EQ(done[done.size() - 2]["box"]["title"], "FSX Export");
    EXPECT_EQ(std::count_if(done.begin(), done.end(), [](const json& l) { return l.contains("box"); }),
              1); // no tool
    EXPECT_EQ(done.back(), json({{"result", {{"code", 0}, {"files", {a, a + "anim", d.file("a.config")}}}}}));
    const std::vector<json> failed = report(example() + " -o " + a + " --plugin-dir " + d.folder("empty"), 1);
    EXPECT_EQ(failed[failed.size() - 2]["box"]["icon"], "critical");
    EXPECT_EQ(failed[failed.size() - 2]["box"]["text"].get<std::string>().rfind("Creating X file\n53 - ", 0),
              0u);
    const std::vector<json> unread = report(d.file("none.gltf") + " -o " + a, 2);
    EXPECT_EQ(unread.back(), json({{"result", {{"code", 2}, {"files", json::array()}}}}));
    EXPECT_EQ(unread.front()["error"].get<std::string>().rfind("cannot read " + d.file("none.gltf"), 0), 0u);
    const json kept = json::parse(tarnvale("sidecar " + a, d).out),
               none = json::parse(tarnvale("sidecar " + d.file("b.x"), d).out);
    EXPECT_EQ(kept["name"], "Club");
    EXPECT_EQ(kept["guid"].get<std::string>().size(), 36u);
    EXPECT_EQ(none, json({{"name", nullptr}, {"guid", nullptr}}));
}

// A big scene, where every run of numbers splits into many parts: one thread or
// several, the files are the same to the byte (bench/e2e.sh 4000000 checks a
// scene four times as big).
TEST(Command, AnyNumberOfThreadsWritesTheSameFiles) {
    TempDir d;
    bench::writeGridGlb(d.file("1m.glb"), 1000000, 20, 50, true);
    // The same lines, but for the time of the export.
    auto same = [](const std::string& a, const std::string& b) {
        std::ifstream x(a, std::ios::binary), y(b, std::ios::binary);
        std::string p, q;
        while (true) {
            const bool more = bool(std::getline(x, p)), other = bool(std::getline(y, q));
            if (more != other) return false;
            if (!more) return true;
            if (p != q && p.rfind("// Exported ", 0) != 0) return false;
        }
    };
    for (const std::string& scene : {example(), d.file("1m.glb")}) {
        for (const char* threads : {"1", "2", "5"}) {
            // Each in a folder of its own, beside the same sidecar: the same GUID.
            const std::string out = d.folder(threads) + "/m.x";
            if (threads != std::string("1"))
                fs::copy_file(d.file("1/m.config"), d.file(threads + std::string("/m.config")));
            ASSERT_EQ(tarnvale("export \"" + scene + "\" -o " + out + " --yes --quiet --no-tool --threads " +
                                   threads,
                               d)
                          .code,
                      0)
                << scene;
        }
        for (const char* threads : {"2", "5"})
            for (const char* kind : {"/m.x", "/m.xanim"})
                EXPECT_TRUE(same(d.file(std::string("1") + kind), d.file(threads + std::string(kind))))
                    << scene << " on " << threads << " threads: " << kind;
        EXPECT_GT(fs::file_size(d.file("1/m.x")), 1000u);
        EXPECT_GT(fs::file_size(d.file("1/m.xanim")), 100u);
        for (const char* threads : {"1", "2", "5"})
            fs::remove_all(d.file(threads));
    }
}

TEST(Command, AtATerminalTheDialogAsksForTheName) {
    TempDir d;
    // The name, then Enter for each of the two boxes (tool not found, closing).
    const std::string to = "export " + example() + " -o ";
    EXPECT_EQ(tarnvaleAtTerminal(to + d.file("a.x"), "Typed Name\\n\\n\\n", d), 0);
    EXPECT_NE(readFile(d.file("a.config")).find("<FriendlyName>Typed Name</FriendlyName>"),
              std::string::npos);
    // An arrow key's sequence and control characters never reach the name.
    EXPECT_EQ(tarnvaleAtTerminal(to + d.file("c.x"), "Club\\x1B[D\\x01 Two\\n\\n\\n", d), 0);
    EXPECT_NE(readFile(d.file("c.config")).find("<FriendlyName>Club Two</FriendlyName>"), std::string::npos);
    // End of input at the prompt cancels, and so does Escape: nothing is written.
    for (const char* typed : {"\\x04", "Name\\x1B\\n"}) {
        EXPECT_EQ(tarnvaleAtTerminal(to + d.file("b.x"), typed, d), 3) << typed;
        EXPECT_FALSE(fs::exists(d.file("b.x")) || fs::exists(d.file("b.config")));
    }
}

TEST(Command, InstalledCommandFindsItsDataFolder) {
    TempDir d;
    std::string cmd = "cmake --install \"" + std::string(TARNVALE_BUILD_DIR) + "\" --prefix \"" +
                      d.file("prefix") + "\" > /dev/null 2>&1";
    ASSERT_EQ(std::system(cmd.c_str()), 0);
    ASSERT_TRUE(fs::exists(d.file("prefix/share/tarnvale/Tarnvale.X")));
    ASSERT_TRUE(fs::exists(d.file("prefix/share/tarnvale/modeldef.xml")));
    // Run from elsewhere, the installed command uses the installed data folder.
    std::string run = "cd / && \"" + d.file("prefix/bin/tarnvale") + "\" export " + example() + " -o " +
                      d.file("a.x") + " < /dev/null > /dev/null 2> " + d.file("err.txt");
    int status = std::system(run.c_str());
    EXPECT_EQ(WEXITSTATUS(status), 0) << readFile(d.file("err.txt"));
    EXPECT_TRUE(fs::exists(d.file("a.xanim")));
#ifdef TARNVALE_WITH_QT_HELPER
    // Its windows come from the helper installed beside it, which reads the scene.
    RunResult edit = test::run("QT_QPA_PLATFORM=offscreen \"" + d.file("prefix/bin/tarnvale") +
                                   "\" material edit " + d.file("absent.gltf") + " --material Paint",
                               d);
    EXPECT_EQ(edit.code, 2);
    EXPECT_NE(edit.err.find("tarnvale: cannot read " + d.file("absent.gltf")), std::string::npos) << edit.err;
#endif
}

// A .glb with two materials, one carrying a text of its own, and a binary chunk.
std::string materialScene(const TempDir& d) {
    GltfBuilder b;
    b.doc["materials"] =
        json::array({{{"name", "Paint"}, {"extras", {{"FS10", "SrcBlend=Zero"}, {"note", 1.5}}}},
                     {{"name", "Glass"}, {"alphaMode", "BLEND"}, {"doubleSided", true}}});
    b.node({{"name", "n"}, {"mesh", b.triangles({0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 1, 2}, {{"material", 0}})}});
    b.bin.append(20000, '\x5A'); // bytes no accessor reads: they must stay as they are
    return b.saveGlb(d.file("scene.glb"));
}

// The JSON chunk of a .glb, and its chunks behind the JSON.
std::pair<json, std::string> glbParts(const std::string& bytes) {
    uint32_t length = 0;
    std::memcpy(&length, bytes.data() + 12, 4);
    return {json::parse(bytes.substr(20, length)), bytes.substr(20 + length)};
}

TEST(MaterialCommand, ShowEditApplyAndTheirFailures) {
    TempDir d;
    const std::string scene = materialScene(d);
    RunResult show = tarnvale("material show " + scene + " --material Glass", d);
    ASSERT_EQ(show.code, 0);
    const std::string shown = readFile(d.file("stdout.txt"));
    // The reader's text for a double-sided material, the derived record's form, its block.
    EXPECT_NE(shown.find("material \"Glass\"\nFS10: SrcBlend=One;DstBlend=Zero;AlphaTestFunction=Never;"
                         "EmissiveData=Blend;DoubleSided=1\ntext form: SpecRed=0;"),
              std::string::npos)
        << shown;
    EXPECT_NE(shown.find("DoubleSided=1;"), std::string::npos);
    EXPECT_NE(shown.find("\nFS10Material {\n1.0;1.0;1.0;1.0;;\n"), std::string::npos);
    RunResult unknown = tarnvale("material show " + scene + " --material Chrome", d);
    EXPECT_EQ(unknown.code, 2);
    EXPECT_NE(unknown.err.find("no material named \"Chrome\"; its materials: \"Paint\", \"Glass\""),
              std::string::npos);
    RunResult headless = tarnvale("material edit " + scene + " --material Paint", d,
                                  "env -u DISPLAY -u WAYLAND_DISPLAY -u QT_QPA_PLATFORM ");
    EXPECT_EQ(headless.code, 2);
    EXPECT_NE(headless.err.find("material show and material apply work without"), std::string::npos)
        << headless.err;

    // Edit, driven as a person would: a preset, then OK. Only extras.FS10 changes.
    const auto [before, chunks] = glbParts(readFile(scene));
    struct Window : editor::FormWindow {
        void showModal(editor::frmOptions& form) override {
            form.Form_Load();
            form.cmdStd_Click(3);
            form.click("cmdOK");
        }
    } window;
    ScriptedBoxes boxes;
    app::MaterialOptions o{scene, std::string("Paint"), "", d.path(), d.file("none.ini")};
    ASSERT_EQ(app::runMaterialEdit(o, window, boxes), 0);
    auto [after, afterChunks] = glbParts(readFile(scene));
    EXPECT_EQ(afterChunks, chunks); // the binary chunk byte for byte
    const std::string text = after["materials"][0]["extras"]["FS10"];
    EXPECT_NE(text.find("EnvLevelScale=0.4;"), std::string::npos);
    EXPECT_EQ(text.find("SrcBlend=Zero;"), std::string::npos); // the preset's opaque blend
    after["materials"][0]["extras"]["FS10"] = before["materials"][0]["extras"]["FS10"];
    EXPECT_EQ(after, before);

    // Apply is Load then OK (a write that fails: DiskFaults).
    writeFile(d.file("saved.FSXMat"), "SrcBlend=DestColor;IsNNumber=1\r\n");
    auto expected = std::make_shared<material::FS10Material>();
    expected->CreateCSG(gltf::readScene(scene).materials[1], -1);
    ScriptedForm f(expected);
    f.form.loadLibraryFile(d.file("saved.FSXMat"));
    f.form.click("cmdOK");
    ASSERT_EQ(
        tarnvale("material apply " + scene + " --material Glass --from " + d.file("saved.FSXMat"), d).code,
        0);
    EXPECT_EQ(glbParts(readFile(scene)).first["materials"][1]["extras"]["FS10"], expected->toString());
    // A partial library file names no blend and no alpha test: the lists show a
    // new record's items, and neither the text nor the block holds an empty name.
    writeFile(d.file("partial.FSXMat"), "SrcBlend=SrcAlpha;DstBlend=InvSrcAlpha;Power=40\r\n");
    ASSERT_EQ(
        tarnvale("material apply " + scene + " --material Paint --from " + d.file("partial.FSXMat"), d).code,
        0);
    ASSERT_EQ(tarnvale("material show " + scene + " --material Paint", d).code, 0);
    const std::string partial = readFile(d.file("stdout.txt"));
    EXPECT_NE(partial.find("SrcBlend=SrcAlpha;DstBlend=InvSrcAlpha;"), std::string::npos) << partial;
    for (const char* blank :
         {"SrcBlend=;", "DstBlend=;", "AlphaTestFunction=;", "\"\"; // blend", "; \"\";", "\"\";  // Alpha"})
        EXPECT_EQ(partial.find(blank), std::string::npos) << blank << " in " << partial;
    EXPECT_NE(partial.find("AlphaTestFunction=Never;"), std::string::npos) << partial;
}

// A material as a glTF document on standard input, as the Blender add-on hands
// it over: each command works as on a scene file, and edit and apply answer with
// the new text (and a picked colour) as JSON.
TEST(MaterialCommand, OnStandardInputAsOnASceneFile) {
    TempDir d;
    const std::string document = R"({"asset": {"version": "2.0"}, "materials": [{"name": "Paint",
        "pbrMetallicRoughness": {"roughnessFactor": 0.5}, "extras": {"FS10": "SrcBlend=Zero"}}]})";
    writeFile(d.file("m.gltf"), document);
    writeFile(d.file("scene.gltf"), document);
    auto onInput = [&](const std::string& args) {
        return tarnvale("material " + args + " --stdin", d, "", d.file("m.gltf"));
    };
    const json preset = json::parse(onInput("apply --preset gloss").out);
    ASSERT_EQ(tarnvale("material apply " + d.file("scene.gltf") + " --material Paint --preset 2", d).code, 0);
    EXPECT_EQ(preset["text"], json::parse(readFile(d.file("scene.gltf")))["materials"][0]["extras"]["FS10"]);
    EXPECT_EQ(preset["specular"], nullptr);
    EXPECT_EQ(onInput("show").out.rfind("material \"Paint\"\nFS10: SrcBlend=Zero\n", 0), 0u);
    EXPECT_EQ(onInput("save --to " + d.file("kept.FSXMat")).code, 0);
    EXPECT_NE(readFile(d.file("kept.FSXMat")).find("SrcBlend=Zero;"), std::string::npos);
    EXPECT_NE(onInput("apply --preset Shiny").err.find("no standard material Shiny"), std::string::npos);
    // The editor, scripted: a colour picked, then OK.
    struct Window : editor::FormWindow {
        void showModal(editor::frmOptions& form) override {
            form.Form_Load();
            form.click("picSpec");
            form.click("cmdOK");
        }
    } window;
    ScriptedBoxes boxes;
    boxes.answers = {std::to_string(0x0000FF)};
    std::istringstream input(document);
    std::streambuf* keyboard = std::cin.rdbuf(input.rdbuf());
    app::MaterialOptions o{"", std::nullopt, "", d.path(), d.file("none.ini"), true};
    testing::internal::CaptureStdout();
    EXPECT_EQ(app::runMaterialEdit(o, window, boxes), 0);
    std::cin.rdbuf(keyboard);
    EXPECT_EQ(json::parse(testing::internal::GetCapturedStdout())["specular"], json({1.0, 0.0, 0.0}));
}

// A colour picked in the editor and a texture named with "/" paths reach the
// scene file, material show and the X file.
TEST(MaterialCommand, PickedColoursAndSlashPathsReachTheSceneAndTheXFile) {
    TempDir d;
    GltfBuilder b;
    b.doc["materials"] =
        json::array({{{"name", "Night"},
                      {"pbrMetallicRoughness", {{"roughnessFactor", 0.5}}},
                      {"extras", {{"FS10", "EmissiveTexture=/home/pat/textures/night.dds"}}}}});
    b.node({{"name", "n"}, {"mesh", b.triangles({0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 1, 2}, {{"material", 0}})}});
    const std::string scene = b.saveGltf(d.file("night.gltf"));
    struct Window : editor::FormWindow {
        void showModal(editor::frmOptions& form) override {
            form.Form_Load();
            form.click("picSpec");
            form.click("cmdOK");
        }
    } window;
    ScriptedBoxes boxes;
    boxes.answers = {std::to_string(0x336699)}; // blue 0x33, green 0x66, red 0x99
    app::MaterialOptions o{scene, std::string("Night"), "", d.path(), d.file("none.ini")};
    ASSERT_EQ(app::runMaterialEdit(o, window, boxes), 0);
    const json doc = json::parse(readFile(scene));
    EXPECT_EQ(doc["extensionsUsed"], json::array({"KHR_materials_specular"}));
    EXPECT_EQ(doc["materials"][0]["extensions"]["KHR_materials_specular"].dump(),
              "{\"specularColorFactor\":[0.6000000238418579,0.4000000059604645,0.20000000298023224],"
              "\"specularFactor\":1}");
    ASSERT_EQ(tarnvale("material show " + scene, d).code, 0);
    const std::string shown = readFile(d.file("stdout.txt"));
    EXPECT_NE(shown.find("\nFS10Material {\n1.0;1.0;1.0;1.0;;\n0.6;0.4;0.2;;\n"), std::string::npos) << shown;
    EXPECT_NE(shown.find("EmissiveTextureFileName {\n\"NIGHT.DDS\";"), std::string::npos) << shown;
    ASSERT_EQ(tarnvale("export " + scene + " -o " + d.file("night.x"), d).code, 0);
    const std::string x = readFile(d.file("night.x"));
    EXPECT_NE(x.find("\r\n0.60;0.40;0.20;;\r\n"), std::string::npos);
    EXPECT_NE(x.find("EmissiveTextureFileName {\r\n\"NIGHT.DDS\";"), std::string::npos);
    // The library's folder: a plug-in folder that is not there is an error; one that
    // cannot be written gives way to the user's, and says so.
    RunResult missing = tarnvale("material library --plugin-dir " + d.file("nowhere"), d);
    EXPECT_EQ(missing.code, 2);
    EXPECT_NE(missing.err.find("the plug-in folder " + d.file("nowhere") + " does not exist"),
              std::string::npos);
    RunResult readOnly =
        tarnvale("material library --plugin-dir /proc", d, "XDG_DATA_HOME=" + d.file("data") + " ");
    EXPECT_EQ(readOnly.code, 0);
    EXPECT_NE(readOnly.err.find("/proc cannot be written; the material library is in " + d.file("data") +
                                "/tarnvale"),
              std::string::npos)
        << readOnly.err;
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
