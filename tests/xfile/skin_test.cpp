#include "gltf/gltf.h"
#include "gltf/gltf_builder.h"
#include "xfile/x_reader.h"
#include "xfile/xfile_fixture.h"

#include <cstdio>
#include <map>

namespace tarnvale::test {
namespace {

TEST(SkinWeights, ExportBlockGoldenFromTheScenesWeights) {
    XFileFixture f;
    auto arm = f.scene->root()->addChild("Arm");
    auto shape = shapeOf({{0, 0, 0}, {1, 0, 0}});
    shape->setWeights({{0, arm, 0.75f}});
    f.scene->root()->addChild("panel")->AddShape(shape);
    auto ctx = f.context();
    xfile::XFileExporter(ctx).pFindSkins(f.scene->root());
    ASSERT_EQ(f.bones.size(), 1u);
    std::string out =
        f.written([&](xfile::XFileExporter&, platform::TextSink& s) { f.bones[0]->Export(s, "panel"); });
    EXPECT_EQ(crlf({"MeshSkinWeights {       // Mesh skin weights for panel", " 2 ;", "               1 ;",
                    "                            \"arm\",        0.75;", "               0 ;",
                    "} // End mesh skin weights panel"}),
              out);
}

TEST(SkinWeights, RecordsFollowTheMergeAndTheMeshArrays) {
    // A skinned shape, an unskinned one, and the skinned one again: records are of
    // the shapes that are a node's first (here Other's), so the second lands at an
    // offset. Position 1 of the skinned shape takes a second pair.
    XFileFixture f;
    auto a = f.scene->root()->addChild("A"), b = f.scene->root()->addChild("B");
    auto body = f.scene->root()->addChild("Body");
    auto plain = shapeOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}});
    addFace(*plain, makeMaterial({1, 1, 1, 1}, 10), {0, 1, 2});
    auto skinned = shapeOf({{0, 0, 1}, {1, 0, 1}, {1, 1, 1}, {0, 1, 1}});
    auto m = makeMaterial({1, 1, 1, 1}, 10);
    addFace(*skinned, m, {0, 1, 2});
    skinned->uvs().push_back({0.5f, 0.5f});
    skinned->addPolygon(m, std::vector<scene::MemoryShape::Corner>{{1, 0, 4}, {2, 0, 2}, {3, 0, 3}});
    std::vector<VertexWeight> weights = {{0, a, 1}, {1, a, 0.5f}, {1, b, 0.5f}};
    using W = std::vector<std::pair<std::string, double>>;
    W many; // ten influences, each of a bone of its own, then a again
    for (int i = 0; i < 11; ++i) {
        auto bone = i < 10 ? f.scene->root()->addChild("m" + std::to_string(i)) : a;
        weights.push_back({2, bone, 0.125f * (i % 8 + 1)});
        many.emplace_back(i < 10 ? "m" + std::to_string(i) : "a", 0.125 * (i % 8 + 1));
    }
    skinned->setWeights(weights);
    body->AddShape(skinned);
    body->AddShape(plain);
    body->AddShape(skinned);
    f.scene->root()->addChild("Other")->AddShape(skinned);
    const std::vector<XFrame> frames = XReader(f.expand("#scene#\r\n", f.scene->root())).frames();
    const XMesh& mesh = frames.at(0).children.at(2).meshes.at(0);
    ASSERT_EQ(mesh.positions.size(), 13u); // 4 + 3 + 4, and position 1 of each skinned copy again
    ASSERT_EQ(mesh.weights.size(), mesh.positions.size());
    for (int offset : {0, 7}) {
        EXPECT_EQ(mesh.weights[offset], (W{{"a", 1}})) << offset;
        EXPECT_EQ(mesh.weights[offset + 1], (W{{"a", 0.5}, {"b", 0.5}})) << offset;
        EXPECT_EQ(mesh.weights[offset + 2], many) << offset;
        EXPECT_TRUE(mesh.weights[offset + 3].empty()) << offset;
    }
    for (int v = 4; v < 7; ++v)
        EXPECT_TRUE(mesh.weights[v].empty()) << v; // the unskinned shape's
    // The splits carry their positions' weights.
    EXPECT_EQ(mesh.weights[11], mesh.weights[1]);
    EXPECT_EQ(mesh.weights[12], mesh.weights[8]);
    EXPECT_EQ(mesh.positions[12], mesh.positions[8]);
    EXPECT_EQ(f.bones.size(), 1u); // the merge's record went with its frame
}

// A glTF rig: joints rig (turned a quarter about z, moved up) and tip below it;
// a mesh whose nodes body and twin both use skin 0, their own transforms being
// what glTF ignores for a skinned mesh. Vertex 0 has five influences, in two sets.
GltfBuilder skinnedScene() {
    GltfBuilder b;
    const float h = std::sqrt(0.5f);
    int tip = b.node({{"name", "tip"}, {"translation", {0, 2, 0}}}, false);
    int rig = b.node(
        {{"name", "rig"}, {"translation", {0, 0, 5}}, {"rotation", {0, 0, h, h}}, {"children", {tip}}});
    int mesh = b.triangles({0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0}, {0, 1, 2, 2, 1, 3});
    json& prim = b.doc["meshes"][mesh]["primitives"][0];
    prim["attributes"]["JOINTS_0"] = b.bytes({0, 1, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0, 1, 0, 0, 0}, "VEC4", false);
    prim["attributes"]["WEIGHTS_0"] =
        b.bytes({51, 51, 51, 51, 255, 0, 0, 0, 0, 0, 0, 0, 128, 127, 0, 0}, "VEC4", true);
    prim["attributes"]["JOINTS_1"] = b.bytes({1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, "VEC4", false);
    prim["attributes"]["WEIGHTS_1"] = b.floats({0.2f, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, "VEC4");
    b.doc["skins"] = json::array({{{"joints", {rig, tip}}}});
    b.node({{"name", "body"}, {"mesh", mesh}, {"skin", 0}, {"translation", {10, 0, 0}}});
    b.node({{"name", "twin"}, {"mesh", mesh}, {"skin", 0}, {"scale", {3, 3, 3}}});
    return b;
}

TEST(SkinWeights, GltfSkinsReachTheBlockInTheirBindPose) {
    GltfBuilder b = skinnedScene();
    Rig rig;
    rig.scene = gltf::readScene(b.saveGlb(rig.dir.file("s.glb"))).scene;
    rig.exportTo(*rig.plugin(), rig.dir.file("s.x"));
    const std::vector<XFrame> frames = XReader(readFile(rig.dir.file("s.x"))).frames();
    // Joint j of vertex v at weight w, as the file was written: the weights of
    // normalised bytes unpacked, zeros left out, the second set behind the first.
    using W = std::vector<std::pair<std::string, double>>;
    const W expected[4] = {{{"rig", 0.2}, {"tip", 0.2}, {"rig", 0.2}, {"tip", 0.2}, {"tip", 0.2}},
                           {{"tip", 1}},
                           {},
                           {{"tip", 128 / 255.0}, {"rig", 127 / 255.0}}};
    for (const XFrame& node : frames.at(0).children) {
        if (node.name != "frm-body" && node.name != "frm-twin") continue;
        const XMesh& mesh = node.meshes.at(0);
        ASSERT_EQ(mesh.weights.size(), 4u) << node.name;
        for (int v = 0; v < 4; ++v) {
            ASSERT_EQ(mesh.weights[v].size(), expected[v].size()) << node.name << " vertex " << v;
            for (size_t k = 0; k < expected[v].size(); ++k)
                EXPECT_TRUE(mesh.weights[v][k].first == expected[v][k].first &&
                            std::fabs(mesh.weights[v][k].second - expected[v][k].second) < 1e-6)
                    << node.name << " vertex " << v << " pair " << k;
        }
        // In the world, each vertex stands where its joints put it at rest: rig's
        // world turns (x, y) to (-y, x) and lifts by 5, tip's adds 2 along rig's y.
        // Vertex 2 has no weight and follows the first joint. x is mirrored in the file.
        const double glTF[4][3] = {{0.2 * 0 + 0.6 * -2 + 0, 0.4 * 0 + 0.6 * 0 + 0, 5},
                                   {-2, 1, 5},
                                   {-1, 0, 5},
                                   {-1 - 2 * 128 / 255.0, 1, 5}};
        for (int v = 0; v < 4; ++v) // the node's frame stands below the root's identity
            for (int c = 0; c < 3; ++c)
                EXPECT_NEAR(through(mesh.positions[v], node.matrix)[c], c ? glTF[v][c] : -glTF[v][c], 0.02)
                    << node.name << " vertex " << v << " axis " << c;
    }
}

// A rotation (x, y, z, w) and a translation as an X matrix (row vectors).
Matrix16 rows(const std::array<double, 4>& q, const std::array<double, 3>& t) {
    const double x = q[0], y = q[1], z = q[2], w = q[3];
    const double r[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)},
                            {2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)},
                            {2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)}};
    Matrix16 m{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, float(t[0]), float(t[1]), float(t[2]), 1};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            m[i * 4 + j] = static_cast<float>(r[j][i]);
    return m;
}

// A two-bone arm whose rest stands 90 degrees from its first key: in the world,
// the X frames with the XANIM keys applied (each rotation key turning the frame's
// own rotation, each position key added to its place) and the skin they carry
// must move as glTF's joints and skin do, at every key.
TEST(SkinWeights, AnArmWhoseRestIsNotItsFirstKeyMovesAsInGltf) {
    auto about = [](int axis, double degrees) {
        std::array<double, 4> q{0, 0, 0, std::cos(degrees * std::acos(-1.0) / 360)};
        q[axis] = std::sin(degrees * std::acos(-1.0) / 360);
        return q;
    };
    const double upperTurn[3] = {90, 45, 0}, lowerTurn[3] = {90, 30, 0}, lowerAt[3] = {1.5, 1.2, 1};
    GltfBuilder b;
    int lower = b.node({{"name", "lower"}, {"translation", {0, 1, 0}}}, false);
    int upper = b.node({{"name", "upper"}, {"children", {lower}}});
    const std::vector<std::array<double, 3>> bind = {{0.2, 0.5, 0}, {0.2, 1.5, 0}, {0, 1, 0.3}};
    int mesh = b.triangles({0.2f, 0.5f, 0, 0.2f, 1.5f, 0, 0, 1, 0.3f}, {0, 1, 2});
    json& prim = b.doc["meshes"][mesh]["primitives"][0];
    prim["attributes"]["JOINTS_0"] = b.bytes({0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0}, "VEC4", false);
    prim["attributes"]["WEIGHTS_0"] = b.floats({1, 0, 0, 0, 1, 0, 0, 0, 0.5f, 0.5f, 0, 0}, "VEC4");
    b.doc["skins"] =
        json::array({{{"joints", {upper, lower}},
                      {"inverseBindMatrices", b.floats({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0,  0, 1,
                                                        1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, -1, 0, 1},
                                                       "MAT4")}}});
    b.node({{"name", "arm"}, {"mesh", mesh}, {"skin", 0}});
    std::vector<float> upperKeys, lowerKeys, lowerPlaces;
    for (int k = 0; k < 3; ++k) {
        for (double c : about(2, upperTurn[k]))
            upperKeys.push_back(float(c));
        for (double c : about(0, lowerTurn[k]))
            lowerKeys.push_back(float(c));
        lowerPlaces.insert(lowerPlaces.end(), {0, float(lowerAt[k]), 0});
    }
    b.animation("bend", {{upper, "rotation", {0, 1, 2}, upperKeys, "LINEAR"},
                         {lower, "rotation", {0, 1, 2}, lowerKeys, "LINEAR"},
                         {lower, "translation", {0, 1, 2}, lowerPlaces, "LINEAR"}});
    Rig rig;
    writeFile(rig.pluginFolder + "/modeldef.xml",
              R"(<ModelInfo><Animation name="upper"/><Animation name="lower"/></ModelInfo>)");
    rig.scene = gltf::readScene(b.saveGlb(rig.dir.file("arm.glb"))).scene;
    rig.exportTo(*rig.plugin(), rig.dir.file("arm.x"));
    const std::vector<XFrame> frames = XReader(readFile(rig.dir.file("arm.x"))).frames();
    const XFrame &xUpper = frames.at(0).children.at(0), &xLower = xUpper.children.at(0),
                 &xArm = frames[0].children.at(1);
    ASSERT_EQ(xUpper.name + xLower.name + xArm.name, "frm-upperfrm-lowerfrm-arm");
    // The keys of each part's streams: data per key, as the file has them.
    platform::XmlDocument xanim;
    ASSERT_TRUE(xanim.loadText(readFile(rig.dir.file("arm.xanim"))));
    std::map<std::string, std::vector<std::array<double, 4>>> keys; // "part Rotation" -> data
    for (const auto& stream : xanim.select("AnimLib/Anim/AnimStream"))
        for (const auto& key : stream.select("Keyframe")) {
            auto& d = keys[*stream.attribute("partName") + " " + *stream.attribute("name")].emplace_back();
            std::sscanf(key.attribute("data").value_or("").c_str(), "%lf;%lf;%lf;%lf", &d[0], &d[1], &d[2],
                        &d[3]);
        }
    auto matrix = [](const XFrame& f) {
        Matrix16 m;
        std::copy(f.matrix.begin(), f.matrix.end(), m.begin());
        return m;
    };
    auto keyed = [&](const XFrame& f, const std::string& part, int k) { // the frame at key k
        Matrix16 m = matrix(f);
        if (auto r = keys.find(part + " Rotation"); r != keys.end()) {
            const auto& d = r->second.at(k);
            const Matrix16 turned = scene::multiply(m, rows({-d[0], -d[1], -d[2], d[3]}, {0, 0, 0}));
            std::copy(turned.begin(), turned.begin() + 12, m.begin());
        }
        if (auto p = keys.find(part + " Position"); p != keys.end())
            for (int c = 0; c < 3; ++c)
                m[12 + c] += static_cast<float>(p->second.at(k)[c]);
        return m;
    };
    auto mirrored = [](Matrix16 m) { // glTF's frame to the file's: x mirrored
        for (int i : {1, 2, 3, 4, 8, 12})
            m[i] = -m[i];
        return m;
    };
    const Matrix16 staticUpper = matrix(xUpper), staticLower = scene::multiply(matrix(xLower), staticUpper),
                   armWorld = matrix(xArm);
    const XMesh& skin = xArm.meshes.at(0);
    ASSERT_EQ(skin.positions.size(), 3u);
    for (int k = 0; k < 3; ++k) {
        const Matrix16 gUpper = rows(about(2, upperTurn[k]), {0, 0, 0});
        const Matrix16 gLower = scene::multiply(rows(about(0, lowerTurn[k]), {0, lowerAt[k], 0}), gUpper);
        const Matrix16 xUpperWorld = keyed(xUpper, "upper", k);
        const Matrix16 xLowerWorld = scene::multiply(keyed(xLower, "lower", k), xUpperWorld);
        for (int i = 0; i < 16; ++i) {
            EXPECT_NEAR(xUpperWorld[i], mirrored(gUpper)[i], 1e-4)
                << "upper at key " << k << ", element " << i;
            EXPECT_NEAR(xLowerWorld[i], mirrored(gLower)[i], 1e-4)
                << "lower at key " << k << ", element " << i;
        }
        // Each skinned vertex: its joints' moves since the file's pose, by weight.
        // A vertex of one joint follows it exactly; one blended between joints is
        // exact where the file stands (the first key) and blends from there on.
        for (size_t v = 0; v < 3; ++v) {
            if (k > 0 && skin.weights.at(v).size() > 1) continue;
            std::array<double, 3> x{}, g{};
            const std::array<double, 3> p =
                through({skin.positions[v][0], skin.positions[v][1], skin.positions[v][2]}, armWorld);
            for (const auto& [bone, w] : skin.weights.at(v)) {
                const bool up = bone == "upper";
                const auto moved = through(through(p, scene::inverse(up ? staticUpper : staticLower)),
                                           up ? xUpperWorld : xLowerWorld);
                const auto posed = through({-bind[v][0], bind[v][1] - (up ? 0 : 1), bind[v][2]},
                                           mirrored(up ? gUpper : gLower));
                for (int c = 0; c < 3; ++c)
                    x[c] += w * moved[c], g[c] += w * posed[c];
            }
            for (int c = 0; c < 3; ++c)
                EXPECT_NEAR(x[c], g[c], 1e-3) << "vertex " << v << " at key " << k << ", axis " << c;
        }
    }
}

TEST(SkinWeights, JointsOutsideTheExportedGroupAreLeftOut) {
    GltfBuilder b = skinnedScene();
    Rig rig;
    auto loaded = gltf::readScene(b.saveGlb(rig.dir.file("s.glb")));
    rig.scene = loaded.scene;
    auto body = loaded.scene->root()->findByName("body");
    EXPECT_EQ(scene::keepBonesWithin(*body).bones, (std::vector<std::string>{"rig", "tip"}));
    rig.exportTo(*rig.plugin(), rig.dir.file("s.x"), body);
    const std::string x = readFile(rig.dir.file("s.x"));
    EXPECT_NE(x.find("Mesh body {"), std::string::npos);
    EXPECT_EQ(x.find("MeshSkinWeights {       //"), std::string::npos); // no weight is left, so no block
    EXPECT_TRUE(scene::keepBonesWithin(*loaded.scene->root()).bones.empty()); // twin's stay within the scene
    // A vertex that keeps a joint within keeps its whole weight on it.
    auto group = loaded.scene->root()->addChild("group");
    auto inner = group->addChild("inner"), outer = loaded.scene->root()->addChild("outer");
    auto shape = shapeOf({{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
    shape->setWeights({{0, inner, 0.25f}, {0, outer, 0.5f}, {1, outer, 1}, {2, inner, 1}});
    group->AddShape(shape);
    const scene::BonesLeftOut left = scene::keepBonesWithin(*group);
    EXPECT_EQ(left.bones, std::vector<std::string>{"outer"});
    EXPECT_EQ(left.vertices, 1u);
    std::string kept;
    for (const VertexWeight& w : shape->GetVertexWeights())
        kept += std::to_string(w.vertex) + w.bone->GetName() + std::to_string(w.weight) + " ";
    EXPECT_EQ(kept, "0inner0.750000 2inner1.000000 ");
}

// Records write a line per vertex, asked for or not; lookups out of range and
// weights without a bone fail rather than crash.
TEST(SkinWeights, EmptyRecordAndBadEntries) {
    XFileFixture f;
    auto block = [&](xfile::ObjectBones& r) {
        return f.written([&](xfile::XFileExporter&, platform::TextSink& s) { r.Export(s, "e"); });
    };
    const std::string head = "MeshSkinWeights {       // Mesh skin weights for e\r\n",
                      tail = "} // End mesh skin weights e\r\n", unasked = "               0 ;\r\n";
    xfile::ObjectBones none, two, unnamed;
    none.Add(std::make_shared<scene::MemoryShape>());
    two.Add(shapeOf({{0, 0, 0}, {1, 0, 0}}));
    unnamed.Add(shapeOf({{0, 0, 0}}));
    unnamed.Item(1).Add(nullptr, 1);
    EXPECT_EQ(block(none), head + " 0 ;\r\n" + tail);
    EXPECT_EQ(block(two), head + " 2 ;\r\n" + unasked + unasked + tail);
    xfile::PointBones p;
    p.Add(f.scene->root(), 0.5f);
    p.Add(f.scene->root(), 0.5f); // nothing is merged
    p.Remove(1);
    EXPECT_EQ(p.Count(), 1);
    none.Object = std::make_shared<scene::MemoryShape>();
    const std::pair<const char*, std::function<void()>> failures[] = {
        {"item 1 of no vertex", [&] { none.Item(1); }},
        {"item 3 of two", [&] { two.Item(3); }},
        {"weight 2 of one", [&] { p.Item(2); }},
        {"no shape", [&] { none.Add(nullptr); }},
        {"a weight without a bone", [&] { block(unnamed); }},
    };
    for (const auto& [what, fails] : failures)
        EXPECT_THROW(fails(), Failure) << what;
}

// One record per mesh shape, however often it is used; bones are no meshes. The
// merge shape of a frame matches no record, so an unweighted skin writes no block.
TEST(SkinWeights, FindSkinsGivesOneRecordPerMeshShapeAndTheMergeMatchesNone) {
    XFileFixture f;
    auto shared = shapeOf({{0, 0, 0}, {1, 0, 0}, {1, 1, 0}});
    addFace(*shared, makeMaterial({1, 1, 1, 1}, 10), {0, 1, 2});
    auto a = f.scene->root()->addChild("a");
    a->AddShape(shared);
    a->addChild("b")->AddShape(shared);
    f.scene->root()->addChild("bone")->AddShape(
        std::make_shared<scene::MemoryShape>(scene::kGeometryOther, 16));
    f.scene->root()->addChild("empty")->addChild("deep")->AddShape(shapeOf({{0, 0, 0}}));
    auto ctx = f.context();
    xfile::XFileExporter(ctx).pFindSkins(f.scene->root());
    ASSERT_EQ(f.bones.size(), 2u);
    EXPECT_EQ(f.bones[0]->Object, shared);
    EXPECT_EQ(f.bones[0]->Count(), 3);
    EXPECT_EQ(f.bones[1]->Count(), 1);
    f.bones.clear();
    const std::string out = f.expand("#scene#\r\n", a);
    EXPECT_NE(out.find("Mesh a {"), std::string::npos);
    EXPECT_EQ(out.find("MeshSkinWeights"), std::string::npos);
}

// A shape whose type cannot be read.
class FailingShape : public scene::MemoryShape {
  public:
    int32_t GetTypeCode() override { throw Failure(err::kInvalidCall, "the host failed"); }
};

TEST(SkinWeights, FailureInTheWalkLeavesNoXFile) {
    XFileFixture f;
    std::string out = f.dir.file("out.x");
    writeFile(out, "older file");
    writeFile(f.templateFile, "#scene#\r\n");
    auto node = f.scene->root()->addChild("n");
    node->AddShape(std::make_shared<FailingShape>());
    f.exportGroup = node;
    auto ctx = f.context();
    EXPECT_THROW(xfile::XFileExporter(ctx).pExportFSX(out, f.exportGroup), Failure);
    EXPECT_EQ(readFile(out), "older file");
}

} // namespace
} // namespace tarnvale::test
