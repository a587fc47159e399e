// The checker on small broken scenes, one fault each, and on the clean ones.
#include "app/command.h"
#include "gltf/gltf_builder.h"

#include <cstdio>
#include <functional>

namespace tarnvale::test {
namespace {

// The head of a DDS or PNG file: enough for its size to be read.
std::string imageHead(bool dds, uint32_t width, uint32_t height) {
    std::string s =
        dds ? std::string("DDS |\0\0\0\0\0\0\0", 12) : std::string("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR", 16);
    for (uint32_t v : dds ? std::vector<uint32_t>{height, width} : std::vector<uint32_t>{width, height})
        for (int k = 0; k < 4; ++k)
            s += static_cast<char>((dds ? v >> (8 * k) : v >> (24 - 8 * k)) & 0xFF);
    return s + (dds ? std::string(108, '\0') : std::string("\x08\x02\0\0\0\0\0\0\0", 9));
}

// A clean scene: a triangle on l_aileron, moved over three keys, with the data
// folder as plug-in folder. Each case breaks one thing.
struct Scene {
    TempDir dir;
    GltfBuilder b;
    app::CheckOptions options;
    int mesh = b.triangles({0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 1, 2});

    Scene() {
        options.pluginDir = dir.folder("plugin");
        options.settings = dir.file("settings.ini");
        options.json = true;
        for (const char* f : {"Tarnvale.X", "modeldef.xml"})
            fs::copy_file(sourcePath("data/") + f, options.pluginDir + "/" + f);
        b.node({{"name", "l_aileron"}, {"mesh", mesh}});
        keys(0, {0, 1, 2}, {0, 0, 0, 0, 1, 0, 0, 2, 0});
    }
    json& part() { return b.doc["nodes"][0]; }
    // Part data of these elements on the node (l_aileron by default).
    void partData(const std::string& elements, int node = 0) {
        b.doc["nodes"][node]["extras"]["FS10att"] =
            "<FSMakeMdlData version=\"9.0\">" + elements + "</FSMakeMdlData>";
    }
    // An attach point of that name and object on a new empty node.
    void attachPoint(const char* node, const std::string& name, const std::string& object) {
        partData("<Attachpoint name=\"" + name + "\"><AttachedObject>" + object +
                     "</AttachedObject></Attachpoint>",
                 b.node({{"name", node}}));
    }
    std::string modelDef() const { return options.pluginDir + "/modeldef.xml"; }
    // plane_LOD_100 and a sibling below plane, with the level exported.
    void lods(json sibling) {
        b.node({{"name", "plane"},
                {"children", {b.node({{"name", "plane_LOD_100"}}, false), b.node(sibling, false)}}});
        options.group = "plane_LOD_100";
    }
    void keys(int node, std::vector<float> times, std::vector<float> at) {
        b.animation("move" + std::to_string(node), {{node, "translation", times, at, "LINEAR"}});
    }
    void material(json m) {
        b.doc["materials"].push_back(std::move(m));
        b.doc["meshes"][mesh]["primitives"][0]["material"] = b.doc["materials"].size() - 1;
    }
    void image(json image) {
        b.doc["images"].push_back(std::move(image));
        b.doc["textures"] = json::array({{{"source", 0}}});
        material({{"name", "skin"}, {"pbrMetallicRoughness", {{"baseColorTexture", {{"index", 0}}}}}});
    }
    // Joints and weights of the triangle's three vertices, in sets of four; the
    // joints are l_aileron and a bone below it.
    void skin(const std::vector<uint8_t>& joints, const std::vector<float>& weights) {
        part()["children"] = {b.node({{"name", "bone"}}, false)};
        json& attributes = b.doc["meshes"][mesh]["primitives"][0]["attributes"];
        for (size_t k = 0; 12 * k < joints.size(); ++k) {
            attributes["JOINTS_" + std::to_string(k)] =
                b.bytes({&joints[12 * k], &joints[12 * k] + 12}, "VEC4", false);
            attributes["WEIGHTS_" + std::to_string(k)] =
                b.floats({&weights[12 * k], &weights[12 * k] + 12}, "VEC4");
        }
        b.doc["skins"] = json::array({{{"joints", {0, part()["children"][0]}}}});
        part()["skin"] = 0;
    }
    // The triangle replaced by a grid of columns x rows vertices (normals and all),
    // of one material.
    void grid(int columns, int rows) {
        std::vector<float> points;
        std::vector<uint32_t> triangles;
        for (int r = 0; r < rows; ++r)
            for (int c = 0; c < columns; ++c) {
                points.insert(points.end(), {float(c), float(r), 0});
                const auto at = static_cast<uint32_t>(r * columns + c);
                if (r > 0 && c > 0)
                    triangles.insert(triangles.end(),
                                     {at - columns - 1, at - 1, at, at - columns - 1, at, at - columns});
            }
        json& prim = b.doc["meshes"][mesh] = b.doc["meshes"][b.triangles<uint32_t>(points, triangles)];
        std::vector<float> up(points.size(), 0);
        for (size_t i = 2; i < up.size(); i += 3)
            up[i] = 1;
        prim["primitives"][0]["attributes"]["NORMAL"] = b.floats(up, "VEC3");
    }
    // Primitives with a material each: the mesh of a frame takes 1001 at most.
    void materials(int count) {
        json& prims = b.doc["meshes"][mesh]["primitives"];
        for (int m = 0; m < count; ++m)
            b.doc["materials"].push_back(json::object()), prims[m] = prims[0], prims[m]["material"] = m;
    }
    // Vertex 0 of the triangle on that many bones, of equal weight (the simulator
    // blends four); the others on the bone alone.
    void influences(int count) {
        std::vector<float> weights(24, 0);
        std::fill_n(weights.begin(), count > 4 ? 4 : count, 1.0f / count);
        std::fill_n(weights.begin() + 12, count > 4 ? count - 4 : 0, 1.0f / count);
        weights[4] = weights[8] = 1;
        skin(std::vector<uint8_t>(24, 1), weights);
    }
    // The report of `check --json`, and its exit code.
    std::pair<int, json> check() {
        options.scene = b.saveGltf(dir.file("s.gltf"));
        std::FILE* out = std::fopen(dir.file("report.json").c_str(), "wb");
        const int code = app::runCheck(options, out);
        std::fclose(out);
        return {code, json::parse(readFile(dir.file("report.json")))};
    }
};

// A rule's kind, its severity, the node or material its finding names, and a fault.
struct Broken {
    const char *kind, *severity, *concerns;
    std::function<void(Scene&)> breakIt;
};

const char* const kNamed =
    "IsVCTexture=1;SrcBlend=One;DstBlend=Zero;EmissiveData=Blend;AlphaTestFunction=Never";

const Broken kBroken[] = {
    {"template-missing", "error", "", [](Scene& s) { fs::remove(s.options.pluginDir + "/Tarnvale.X"); }},
    {"modeldef-missing", "error", "", [](Scene& s) { fs::remove(s.modelDef()); }},
    {"modeldef-xml", "error", "", [](Scene& s) { writeFile(s.modelDef(), "<ModelInfo><Animation"); }},
    {"modeldef-animations", "error", "",
     [](Scene& s) { writeFile(s.modelDef(), "<ModelInfo><Animation name=\"l_aileron\"/></ModelInfo>"); }},
    {"animation-unmatched", "error", "aileron_left",
     [](Scene& s) {
         writeFile(s.modelDef(),
                   "<ModelInfo><Animation name=\"l_aileron\"/><Animation name=\"rudder\"/></ModelInfo>");
         s.part()["name"] = "aileron_left";
     }},
    {"animation-ambient", "warning", "gizmo", [](Scene& s) { s.part()["name"] = "gizmo"; }},
    {"animation-no-length", "error", "l_aileron_2",
     [](Scene& s) {
         s.keys(s.b.node({{"name", "l_aileron_2"}}), {0, 0, 0}, {0, 0, 0, 0, 1, 0, 0, 2, 0});
     }},
    {"animation-still", "warning", "l_aileron_2",
     [](Scene& s) {
         s.keys(s.b.node({{"name", "l_aileron_2"}}), {0, 1, 2}, {0, 1, 0, 0, 1, 0, 0, 1, 0});
     }},
    {"reader-skipped", "warning", "",
     [](Scene& s) {
         s.keys(s.b.node({{"name", "l_aileron_2"}}), {1}, {0, 1, 0});
     }},
    {"extension-ignored", "info", "",
     [](Scene& s) {
         s.b.doc["extensionsUsed"] = {"KHR_materials_clearcoat", "KHR_texture_transform"};
     }},
    {"name-collision", "warning", "Wheel",
     [](Scene& s) {
         s.b.node({{"name", "gear"}, {"children", {s.b.node({{"name", "wheel"}}, false)}}});
         s.b.node({{"name", "Wheel"}});
     }},
    {"name-mapped", "info", "wing.001",
     [](Scene& s) {
         s.b.node({{"name", "wing.001"}});
     }},
    {"mesh-materials", "error", "l_aileron", [](Scene& s) { s.materials(1002); }},
    {"draw-vertex-limit", "error", "l_aileron", [](Scene& s) { s.grid(280, 250); }}, // 70,000 vertices
    {"level-budget", "warning", "s", [](Scene& s) { s.options.maxDrawCalls = 0; }},
    {"mesh-no-triangles", "error", "l_aileron",
     [](Scene& s) {
         s.b.doc["meshes"][s.mesh]["primitives"][0]["indices"] = s.b.indices(std::vector<uint16_t>{0, 1});
     }},
    {"mirrored", "info", "l_aileron",
     [](Scene& s) { // its child mirrors too, and is not told of
         s.part()["scale"] = {-1, 1, 1};
         s.part()["children"] = {s.b.node({{"name", "also_mirrored"}}, false)};
     }},
    {"material-empty-name", "error", "glass",
     [](Scene& s) {
         s.material({{"name", "glass"}, {"extras", {{"FS10", "SrcBlend=;AlphaTestFunction=;"}}}});
     }},
    {"cockpit-no-texture", "error", "panel",
     [](Scene& s) {
         s.material({{"name", "panel"}, {"extras", {{"FS10", kNamed}}}});
     }},
    {"texture-missing", "error", "skin",
     [](Scene& s) {
         s.image({{"uri", "gone.dds"}});
     }},
    // A text file named .png, with the images converted, and with --strict.
    {"texture-undecodable", "warning", "skin",
     [](Scene& s) {
         s.image({{"bufferView", s.b.bufferView("not an image")}, {"mimeType", "image/png"}});
         s.options.textures = true;
     }},
    {"texture-undecodable", "error", "skin",
     [](Scene& s) {
         s.image({{"bufferView", s.b.bufferView("not an image")}, {"mimeType", "image/png"}});
         s.options.textures = s.options.strict = true;
     }},
    {"texture-size", "warning", "skin",
     [](Scene& s) {
         s.image({{"bufferView", s.b.bufferView(imageHead(true, 300, 256))}});
     }},
    {"texture-not-dds", "warning", "skin",
     [](Scene& s) {
         s.image({{"bufferView", s.b.bufferView(imageHead(false, 256, 256))}});
     }},
    {"lod-gap", "warning", "plane_LOD_50",
     [](Scene& s) {
         s.lods({{"name", "plane_LOD_50"}, {"extras", {{"visible", false}}}});
     }},
    {"lod-sibling", "warning", "wheels",
     [](Scene& s) {
         s.lods({{"name", "wheels"}});
     }},
    {"partdata-xml", "error", "l_aileron",
     [](Scene& s) { s.part()["extras"]["FS10att"] = "<FSMakeMdlData>"; }},
    {"partdata-root", "error", "l_aileron",
     [](Scene& s) { s.part()["extras"]["FS10att"] = "<Visibility/>"; }},
    {"partdata-version", "warning", "l_aileron",
     [](Scene& s) { s.part()["extras"]["FS10att"] = "<FSMakeMdlData version=\"8.0\"/>"; }},
    // A part of the model definition that has a mouse rect and no visibility, and back.
    {"partdata-visibility", "error", "l_aileron",
     [](Scene& s) { s.partData("<Visibility name=\"switch_panel_light\"/>"); }},
    {"partdata-mouse-rect", "error", "l_aileron",
     [](Scene& s) { s.partData("<MouseRect name=\"gear_door_visible\"/>"); }},
    {"attach-point-twice", "error", "nav_2",
     [](Scene& s) {
         s.attachPoint("nav_1", "attachpt_nav", "<Effect effectName=\"fx_navred\"/>");
         s.attachPoint("nav_2", "attachpt_nav", "<Effect effectName=\"fx_navgre\"/>");
     }},
    {"attach-effect-extension", "error", "nav",
     [](Scene& s) { s.attachPoint("nav", "attachpt_nav", "<Effect effectName=\"fx_navred.fx\"/>"); }},
    {"attach-library-guid", "error", "crate",
     [](Scene& s) {
         s.attachPoint("crate", "attachpt_crate", "<LibraryObject name=\"crate\" scale=\"1.0\"/>");
     }},
    {"attach-point-geometry", "info", "l_aileron",
     [](Scene& s) {
         s.partData("<Attachpoint name=\"a\"><AttachedObject><Effect "
                    "effectName=\"fx\"/></AttachedObject></Attachpoint>");
     }},
    {"platform-surface", "error", "l_aileron",
     [](Scene& s) { s.partData("<Platform name=\"deck\" surfaceType=\"CONCRET\"/>"); }},
    {"skin-weights", "warning", "l_aileron",
     [](Scene& s) {
         s.skin({0, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0}, {1, 0, 0, 0, 1, 0, 0, 0, 0.5f, 0, 0, 0});
     }},
    {"skin-influences", "warning", "l_aileron", [](Scene& s) { s.influences(5); }},
    {"skin-joints-outside", "warning", "",
     [](Scene& s) {
         s.skin({1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0}, {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0});
         s.b.node({{"name", "rig"}, {"children", s.part()["children"]}}); // the joint, moved out of the group
         s.part().erase("children");
         s.options.group = "l_aileron";
     }},
};

TEST(Check, EachBrokenSceneGivesItsOneFinding) {
    std::set<std::string> covered;
    for (const Broken& c : kBroken) {
        Scene s;
        c.breakIt(s);
        const auto [code, report] = s.check();
        ASSERT_EQ(report["findings"].size(), 1u) << c.kind << "\n" << report.dump(1);
        const json& f = report["findings"][0];
        EXPECT_EQ(std::make_pair(f["kind"], f["severity"]), std::make_pair(json(c.kind), json(c.severity)));
        EXPECT_EQ(code, f["severity"] == "error" ? 1 : 0) << c.kind;
        EXPECT_EQ(report["counts"][f["severity"].get<std::string>()], 1) << c.kind;
        const json& concerns = f["material"].is_null() ? f["node"] : f["material"];
        EXPECT_EQ(concerns.is_null() ? "" : concerns.get<std::string>(), c.concerns) << c.kind;
        covered.insert(c.kind);
    }
    // Every rule has its broken scene.
    for (const check::Rule& r : check::rules())
        EXPECT_TRUE(covered.count(r.kind)) << r.kind;
}

TEST(Check, TheCommandReportsByNodeExportCheckStopsOnAnErrorAndCleanScenesPass) {
    Scene s;
    s.part()["extras"]["FS10att"] = "<Visibility/>";
    s.b.node({{"name", "Wing.001"}});
    const std::string scene = s.b.saveGltf(s.dir.file("s.gltf")),
                      plugin = " --plugin-dir " + s.options.pluginDir;
    RunResult r = tarnvale("check " + scene + plugin, s.dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_EQ(
        r.out,
        scene +
            ": 1 error, 0 warnings, 1 note\n"
            "  node l_aileron (frm-l_aileron)\n"
            "    error   partdata-root: its part data's root is Visibility, and the compiler reads only "
            "FSMakeMdlData: put the text inside <FSMakeMdlData version=\"9.0\">\n"
            "  node Wing.001 (frm-wing_001)\n"
            "    info    name-mapped: the X file cannot hold its name as it is, so it becomes wing_001 (the "
            "frame frm-wing_001)\n"
            "  what the simulator draws, level by level:\n"
            "    level number shown triangles vertices materials draw calls animated parts largest draw\n"
            "    s          - yes           1        3         1          1              1            3\n");
    const std::string x = s.dir.file("s.x"), args = " -o " + x + plugin + " --yes --no-tool --check";
    r = tarnvale("export " + scene + args, s.dir);
    EXPECT_EQ(r.code, 1);
    EXPECT_NE(r.err.find("partdata-root"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("tarnvale: the check found 1 error, so nothing was exported"), std::string::npos)
        << r.err;
    EXPECT_FALSE(fs::exists(x));
    r = tarnvale("export " + scene + args + " --report json", s.dir);
    EXPECT_NE(r.out.find("{\"finding\":{\"frame\":\"frm-l_aileron\",\"kind\":\"partdata-root\""),
              std::string::npos)
        << r.out;
    EXPECT_NE(r.out.find("{\"result\":{\"code\":1,\"files\":[]}}"), std::string::npos) << r.out;
    // Warnings and notes do not stop it.
    s.part()["extras"]["FS10att"] = "<FSMakeMdlData/>";
    s.b.saveGltf(scene);
    EXPECT_EQ(tarnvale("export " + scene + args, s.dir).code, 0);
    EXPECT_TRUE(fs::exists(x));
    // It finds what `check` finds: the example's two image warnings.
    const std::string example = sourcePath("examples/trainer.gltf");
    const json checked = json::parse(tarnvale("check " + example + " --json", s.dir).out)["findings"];
    std::istringstream lines(
        tarnvale("export " + example + " -o " + x + " --yes --no-tool --check --report json", s.dir).out);
    json found = json::array();
    for (std::string line; std::getline(lines, line);)
        if (const json j = json::parse(line); j.contains("finding")) found.push_back(j["finding"]);
    EXPECT_EQ(found, checked);
    EXPECT_EQ(found.size(), 2u);
    // Their advice in the words of where it is read: the command's options, or the
    // add-on's (a JSON report goes to the add-on).
    EXPECT_NE(checked[1]["message"].get<std::string>().find(
                  "DDS: set Textures in the export options to convert it"),
              std::string::npos);
    EXPECT_NE(
        tarnvale("check " + example, s.dir).out.find("DDS: export with --textures FOLDER to convert it"),
        std::string::npos);
    // Clean: the base scene, scenes right at a limit, and the example as it is
    // exported in full (a note: its image is resized).
    for (const auto& [what, atTheLimit] :
         {std::pair<const char*, std::function<void(Scene&)>>{"base", nullptr},
          {"1001 materials", [](Scene& c) { c.materials(1001); }},
          {"four bones", [](Scene& c) { c.influences(4); }},
          {"65,535 vertices in a draw", [](Scene& c) { c.grid(255, 257); }},
          {"one draw call", [](Scene& c) { c.options.maxDrawCalls = 1; }}}) {
        Scene clean;
        if (atTheLimit) atTheLimit(clean);
        const auto [code, report] = clean.check();
        EXPECT_EQ(std::make_pair(code, report["counts"]),
                  std::make_pair(0, json({{"error", 0}, {"warning", 0}, {"info", 0}})))
            << what << "\n"
            << report.dump(1);
    }
    r = tarnvale("check " + sourcePath("examples/trainer.gltf") + " --textures --json", s.dir);
    EXPECT_EQ(r.code, 0);
    EXPECT_EQ(json::parse(r.out)["counts"], json({{"error", 0}, {"warning", 0}, {"info", 1}})) << r.out;
}

} // namespace
} // namespace tarnvale::test
