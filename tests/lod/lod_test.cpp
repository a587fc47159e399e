// Levels of detail: the levels an export meets, their budgets against what the X
// file holds, levels made from one mesh, and the numbers the command refuses.
#include "gltf/gltf.h"
#include "gltf/gltf_builder.h"
#include "lod/lod.h"
#include "xfile/x_reader.h"

#include <cmath>
#include <map>
#include <set>

namespace tarnvale::test {
namespace {

// A curved sheet of columns x rows vertices with normals and pairs; its left
// half of one material, its right half of another.
int sheet(GltfBuilder& b, int columns, int rows) {
    std::vector<float> points, normals, pairs;
    std::vector<uint32_t> left, right;
    for (int r = 0; r < rows; ++r)
        for (int c = 0; c < columns; ++c) {
            const float x = float(c) / float(columns - 1), y = float(r) / float(rows - 1);
            points.insert(points.end(), {x, y, 0.2f * std::sin(6 * x) * std::cos(5 * y)});
            normals.insert(normals.end(), {0, 0, 1});
            pairs.insert(pairs.end(), {x, y});
            const auto at = static_cast<uint32_t>(r * columns + c);
            if (r > 0 && c > 0)
                (2 * c < columns ? left : right)
                    .insert((2 * c < columns ? left : right).end(),
                            {at - columns - 1, at - 1, at, at - columns - 1, at, at - uint32_t(columns)});
        }
    if (!b.doc.contains("materials"))
        b.doc["materials"] = json::array({{{"name", "Paint"}}, {{"name", "Trim"}}});
    const json attributes = {{"POSITION", b.floats(points, "VEC3")},
                             {"NORMAL", b.floats(normals, "VEC3")},
                             {"TEXCOORD_0", b.floats(pairs, "VEC2")}};
    b.doc["meshes"].push_back(
        {{"primitives",
          {{{"attributes", attributes}, {"indices", b.indices(left)}, {"material", 0}},
           {{"attributes", attributes}, {"indices", b.indices(right)}, {"material", 1}}}}});
    return static_cast<int>(b.doc["meshes"].size() - 1);
}

// A model without levels: a body sheet, a moving aileron (a part of the model
// definition) and a flap skinned to a bone.
GltfBuilder aircraft() {
    GltfBuilder b;
    const int body = sheet(b, 40, 30), small = sheet(b, 10, 8);
    json& flap = b.doc["meshes"][small]["primitives"];
    for (json& prim : flap) {
        prim["attributes"]["JOINTS_0"] = b.bytes(std::vector<uint8_t>(80 * 4, 0), "VEC4", false);
        std::vector<float> weights(80 * 4, 0);
        for (size_t v = 0; v < 80; ++v)
            weights[4 * v] = 1;
        prim["attributes"]["WEIGHTS_0"] = b.floats(weights, "VEC4");
    }
    const int aileron = b.node({{"name", "l_aileron"}, {"mesh", small}, {"translation", {1, 0, 0}}}, false);
    const int bone = b.node({{"name", "hinge"}, {"translation", {0, -1, 0}}}, false);
    const int flapNode = b.node({{"name", "flap"}, {"mesh", small}, {"skin", 0}}, false);
    b.doc["skins"] = json::array({{{"joints", {bone}}}});
    b.node({{"name", "plane"}, {"mesh", body}, {"children", {aileron, bone, flapNode}}});
    b.animation("roll",
                {{aileron, "rotation", {0, 1, 2}, {0, 0, 0, 1, 0.1f, 0, 0, 0.995f, 0, 0, 0, 1}, "LINEAR"}});
    return b;
}

// Triangles per material and the distinct (vertex, normal) pairs of each, as the
// file's faces give them: what a draw of the compiler holds.
struct Counted {
    size_t triangles = 0, vertices = 0, draws = 0, largestDraw = 0;
};
void count(const XFrame& f, Counted& c) {
    for (const XMesh& m : f.meshes) {
        c.vertices += m.positions.size();
        std::map<int, std::set<std::pair<int, int>>> drawn;
        for (size_t t = 0; t < m.faces.size(); ++t) {
            c.triangles += m.faces[t].size() - 2;
            for (size_t k = 0; k < m.faces[t].size(); ++k)
                drawn[m.faceMaterials.at(t)].insert({m.faces[t][k], m.normalFaces[t][k]});
        }
        c.draws += drawn.size();
        for (const auto& [material, pairs] : drawn)
            c.largestDraw = std::max(c.largestDraw, pairs.size());
    }
    for (const XFrame& child : f.children)
        count(child, c);
}

TEST(Lod, LevelNumbersAndTheLevelsAnExportMeets) {
    for (auto [name, number] : {std::pair{"plane_LOD_100", 100},
                                {"plane_lod_50", 50},
                                {"a_LOD_3_LOD_7", 7},
                                {"plane_LOD_", -1},
                                {"plane_LOD_x", -1},
                                {"plane", -1}})
        EXPECT_EQ(lod::levelNumber(name).value_or(-1), number) << name;
    auto scene = scene::MemoryScene::create("s");
    auto plane = scene->root()->addChild("plane");
    for (const char* name : {"plane_LOD_100", "wheels", "plane_LOD_50", "plane_LOD_10"})
        plane->addChild(name);
    plane->children()[2]->setNodeValue(0);
    std::string seen;
    for (const lod::Level& l : lod::levelsOf(plane->children()[0]))
        seen += l.name + ":" + std::to_string(l.number.value_or(-1)) + (l.shown ? " " : "(hidden) ");
    EXPECT_EQ(seen, "plane_LOD_100:100 plane_LOD_50:50(hidden) plane_LOD_10:10 ");
    EXPECT_TRUE(lod::levelsOf(plane).empty());
    EXPECT_TRUE(lod::levelsOf(scene->root()).empty());
}

// Levels made from the model: level frames at the root, triangles falling by
// the share in every material, parts, links and skins in each level, the XANIM
// file with the last level's streams; the budget as the file itself counts it.
TEST(Lod, GeneratedLevelsAsTheFileHoldsThemAndTheirBudgets) {
    TempDir d;
    GltfBuilder b = aircraft();
    const std::string scene = b.saveGlb(d.file("plane.glb")), x = d.file("plane.x");
    const RunResult r = tarnvale(
        "export " + scene + " -o " + x + " --yes --no-tool --report json --generate-lods 100,50,25", d);
    ASSERT_EQ(r.code, 0) << r.err;
    std::vector<json> budgets;
    std::istringstream lines(r.out);
    for (std::string line; std::getline(lines, line);)
        if (json j = json::parse(line); j.contains("budget")) budgets.push_back(j["budget"]);
    const std::vector<XFrame> levels = XReader(readFile(x)).frames();
    ASSERT_EQ(levels.size(), 3u);
    ASSERT_EQ(budgets.size(), 3u);
    const char* suffix[] = {"", "_lod50", "_lod25"};
    size_t before = 0;
    for (size_t i = 0; i < 3; ++i) {
        SCOPED_TRACE(levels[i].name);
        EXPECT_EQ(levels[i].name, std::string("frm-plane_lod_") + (i == 0 ? "100" : i == 1 ? "50" : "25"));
        const XFrame& plane = levels[i].children.at(0);
        EXPECT_EQ(plane.name + " " + plane.children.at(0).link + " " + plane.children.at(2).name,
                  "frm-plane" + std::string(suffix[i]) + " l_aileron" + suffix[i] + " frm-flap" + suffix[i]);
        // The skin is written for the level the export starts from (the others'
        // skins stand in the scene, each on its own level's bone: below).
        const XMesh& flap = plane.children[2].meshes.at(0);
        EXPECT_EQ(flap.weights.size(), i == 0 ? flap.positions.size() : 0u);
        Counted c;
        count(levels[i], c);
        EXPECT_EQ(budgets[i]["level"], std::string("plane_LOD_") + (i == 0 ? "100" : i == 1 ? "50" : "25"));
        EXPECT_EQ(json({c.triangles, c.vertices, c.draws, c.largestDraw, 1}),
                  json({budgets[i]["triangles"], budgets[i]["vertices"], budgets[i]["drawCalls"],
                        budgets[i]["largestDraw"], budgets[i]["animatedParts"]}));
        EXPECT_EQ(c.draws, 6u); // both materials of all three meshes stay
        // Where the body's materials meet (its column 19), no vertex moves: both
        // keep all 30 rows of it, so that no crack opens between them.
        const XMesh& body = plane.meshes.at(0);
        std::set<std::pair<int, double>> seam;
        for (size_t t = 0; t < body.faces.size(); ++t)
            for (int v : body.faces[t])
                if (std::abs(std::abs(body.positions[v][0]) - 19.0 / 39) < 1e-5)
                    seam.insert({body.faceMaterials[t], body.positions[v][1]});
        EXPECT_EQ(seam.size(), 60u);
        if (i > 0) {
            EXPECT_NEAR(double(c.triangles) / double(before), 0.5, 0.12);
        }
        before = c.triangles;
    }
    gltf::LoadedScene read = gltf::readScene(scene);
    lod::generateLevels(*read.scene, read.scene->root(), {{100, 50, 25}, 0.5});
    for (const char* level : {"_lod50", "_lod25"}) {
        const auto weights =
            read.scene->root()->findByName(std::string("flap") + level)->GetShape()->GetVertexWeights();
        ASSERT_FALSE(weights.empty()) << level;
        for (const VertexWeight& w : weights)
            EXPECT_EQ(w.bone->GetName() + " " + std::to_string(w.weight),
                      "hinge" + std::string(level) + " 1.000000");
    }
    const std::string xanim = readFile(d.file("plane.xanim"));
    EXPECT_NE(xanim.find("partName=\"l_aileron_lod25\""), std::string::npos) << xanim;
    EXPECT_EQ(xanim.find("partName=\"l_aileron\""), std::string::npos);
}

// Hand-made levels: a hidden one is left out of the file, the others are root
// frames; the check lists all three, in order, with their numbers.
TEST(Lod, HandMadeLevelsAndTheHiddenOne) {
    TempDir d;
    GltfBuilder b;
    const int mesh = sheet(b, 6, 5);
    json levels = json::array();
    // Names repeat across levels as Blender writes them.
    for (const auto& [name, part] : {std::pair{"plane_LOD_100", "l_aileron"},
                                     {"plane_LOD_50", "l_aileron.001"},
                                     {"plane_LOD_25", "l_aileron.002"}}) {
        const int node = b.node({{"name", part}, {"mesh", mesh}}, false);
        b.animation(std::string("roll ") + name,
                    {{node, "translation", {0, 1, 2}, {0, 0, 0, 0, 1, 0, 0, 2, 0}, "LINEAR"}});
        levels.push_back(b.node({{"name", name}, {"children", {node}}}, false));
    }
    b.doc["nodes"][levels[1].get<int>()]["extras"] = {{"visible", false}};
    b.node({{"name", "plane"}, {"children", levels}});
    const std::string scene = b.saveGltf(d.file("levels.gltf"));
    ASSERT_EQ(
        tarnvale("export " + scene + " -o " + d.file("l.x") + " --yes --no-tool --group plane_LOD_100", d)
            .code,
        0);
    std::string frames;
    for (const XFrame& f : XReader(readFile(d.file("l.x"))).frames())
        frames += f.name + "/" + f.children.at(0).name + " ";
    EXPECT_EQ(frames, "frm-plane_lod_100/frm-l_aileron frm-plane_lod_25/frm-l_aileron_002 ");
    const RunResult check = tarnvale("check " + scene + " --group plane_LOD_100 --json", d);
    ASSERT_EQ(check.code, 0) << check.out << check.err;
    std::string listed;
    const json report = json::parse(check.out);
    for (const json& l : report["levels"])
        listed += l["level"].get<std::string>() + ":" + l["number"].dump() + ":" + l["shown"].dump() + " ";
    EXPECT_EQ(listed, "plane_LOD_100:100:true plane_LOD_50:50:false plane_LOD_25:25:true ");
}

TEST(Lod, NumbersAndScenesThatCannotMakeLevels) {
    std::vector<int> numbers;
    EXPECT_EQ(lod::parseLevelNumbers("100,50,25,10", numbers), std::nullopt);
    EXPECT_EQ(numbers, (std::vector<int>{100, 50, 25, 10}));
    for (auto [text, reason] :
         {std::pair{"100,abc", "\"abc\" is not a positive whole number"},
          {"100,0", "\"0\" is not a positive whole number"},
          {"100,-5", "\"-5\" is not a positive whole number"},
          {"100,,50", "\"\" is not a positive whole number"},
          {"100,2.5", "\"2.5\" is not a positive whole number"},
          {"50,100", "the numbers must fall, each level smaller than the one before (50 then 100)"},
          {"100,100", "the numbers must fall, each level smaller than the one before (100 then 100)"},
          {"100", "give two levels or more, the largest first (100,50,25)"}})
        EXPECT_EQ(lod::parseLevelNumbers(text, numbers).value_or(""), reason) << text;
    // The command: exit 2 with the reason, nothing written; the example holds levels.
    TempDir d;
    const std::string to = " -o " + d.file("t.x") + " --yes --no-tool --generate-lods ";
    const RunResult bad = tarnvale("export " + sourcePath("examples/trainer.gltf") + to + "100,200", d);
    EXPECT_EQ(bad.code, 2);
    EXPECT_NE(bad.err.find("--generate-lods 100,200: the numbers must fall"), std::string::npos) << bad.err;
    // In the add-on (a JSON report), as its dialog names the field.
    const RunResult added =
        tarnvale("export " + sourcePath("examples/trainer.gltf") + to + "100,200 --report json", d);
    EXPECT_NE(added.out.find("{\"error\":\"Generate levels 100,200: the numbers must fall"),
              std::string::npos)
        << added.out;
    const RunResult held = tarnvale("export " + sourcePath("examples/trainer.gltf") + to + "100,50", d);
    EXPECT_EQ(held.code, 2);
    EXPECT_NE(held.err.find("it already holds levels of detail (trainer_LOD_0)"), std::string::npos)
        << held.err;
    EXPECT_FALSE(fs::exists(d.file("t.x")));
}

// A mesh of a normal a triangle (none in the file): its vertices differ in their
// normals alone, and are welded to be simplified; every kept triangle faces along
// its new normal.
TEST(Lod, FlatShadedMeshesSimplifyAndFaceAlongTheirNormals) {
    TempDir d;
    GltfBuilder b;
    const int mesh = sheet(b, 20, 20);
    for (json& prim : b.doc["meshes"][mesh]["primitives"])
        prim["attributes"].erase("NORMAL");
    b.node({{"name", "panel"}, {"mesh", mesh}, {"scale", {-1, 1, 1}}});
    const std::string x = d.file("flat.x");
    ASSERT_EQ(tarnvale("export " + b.saveGltf(d.file("flat.gltf")) + " -o " + x +
                           " --yes --no-tool --generate-lods 100,50",
                       d)
                  .code,
              0);
    const std::vector<XFrame> levels = XReader(readFile(x)).frames();
    ASSERT_EQ(levels.size(), 2u);
    int faces[2] = {0, 0}, wrong[2] = {0, 0};
    for (int i = 0; i < 2; ++i)
        countFacesAgainstNormals(levels[i], kIdentity, faces[i], wrong[i]);
    EXPECT_EQ(faces[0], 2 * 19 * 19);
    EXPECT_NEAR(double(faces[1]) / faces[0], 0.5, 0.1);
    EXPECT_EQ(wrong[0] + wrong[1], 0);
}

// The check's quick read counts what the full read counts, with normals and
// without (where each triangle gets a normal of its own).
TEST(Lod, TheQuickReadsBudgetIsTheFullReads) {
    TempDir d;
    GltfBuilder b = aircraft();
    b.doc["meshes"][0]["primitives"][0]["attributes"].erase("NORMAL");
    const std::string scene = b.saveGltf(d.file("a.gltf"));
    const json quick = json::parse(tarnvale("check " + scene + " --json", d).out)["levels"].at(0);
    gltf::LoadedScene full = gltf::readScene(scene);
    const lod::Budget budget = lod::budgetsOf(full.scene->root()).at(0);
    EXPECT_EQ(json({quick["triangles"], quick["vertices"], quick["drawCalls"], quick["largestDraw"]}),
              json({budget.triangles, budget.vertices, budget.drawCalls,
                    std::max_element(budget.draws.begin(), budget.draws.end(), [](auto& p, auto& q) {
                        return p.vertices < q.vertices;
                    })->vertices}));
}

} // namespace
} // namespace tarnvale::test
