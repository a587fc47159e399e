#include "gltf/gltf.h"
#include "gltf/gltf_builder.h"

#include <cmath>

namespace tarnvale::test {
namespace {

using gltf::readScene;
using gltf::SceneError;

const std::vector<float> kTriangle = {0, 0, 0, 1, 0, 0, 0, 1, 0};

std::shared_ptr<scene::MemoryObject> child(const std::shared_ptr<scene::MemoryScene>& s, const std::string& name) {
    auto n = s->root()->findByName(name);
    EXPECT_TRUE(n) << name;
    return n;
}

// Reads the builder's document from both containers (and a .gltf with an external
// .bin) and hands each scene over.
template <typename Check>
void forBothContainers(GltfBuilder& b, Check check) {
    TempDir d;
    check(readScene(b.saveGltf(d.file("scene.gltf"))));
    check(readScene(b.saveGlb(d.file("scene.glb"))));
    check(readScene(b.saveGltfWithBin(d.file("external.gltf"), "external data.bin")));
}

TEST(GltfReader, HierarchyNamesAndRoot) {
    GltfBuilder b;
    b.doc["scenes"][0]["name"] = "My Scene";
    int leaf = b.node({{"name", "Leaf"}}, false);
    b.node({{"children", {leaf}}});
    forBothContainers(b, [](gltf::LoadedScene s) {
        EXPECT_EQ(s.scene->root()->GetName(), "My Scene");
        ASSERT_EQ(s.scene->root()->children().size(), 1u);
        auto top = s.scene->root()->children()[0];
        EXPECT_EQ(top->GetName(), "node_1");
        EXPECT_EQ(top->children()[0]->GetName(), "Leaf");
        EXPECT_EQ(top->children()[0]->GetParent(), top);
    });
    TempDir d;
    b.doc["scenes"][0].erase("name");
    EXPECT_EQ(readScene(b.saveGltf(d.file("stem name.gltf"))).scene->root()->GetName(), "stem name");
}

TEST(GltfReader, TransformsTurnLeftHanded) {
    GltfBuilder b;
    // 90 degrees about +Y, then a translation.
    float h = std::sqrt(0.5f);
    b.node({{"name", "trs"}, {"translation", {1, 2, 3}}, {"rotation", {0, h, 0, h}}});
    b.node({{"name", "mat"}, {"matrix", {0, 0, -1, 0, 0, 1, 0, 0, 1, 0, 0, 0, 1, 2, 3, 1}}});
    forBothContainers(b, [](gltf::LoadedScene s) {
        for (const char* name : {"trs", "mat"}) {
            auto n = child(s.scene, name);
            Matrix16 m = n->GetRelativeMatrix(n->GetParent(), 0);
            const float expected[16] = {0, 0, 1, 0, 0, 1, 0, 0, -1, 0, 0, 0, -1, 2, 3, 1};
            for (int i = 0; i < 16; ++i) EXPECT_NEAR(m[i], expected[i], 1e-6) << name << " element " << i;
            Vec3 rest = n->GetRelativePosition(n->GetParent(), 0);
            EXPECT_FLOAT_EQ(rest.x, -1);
            EXPECT_FLOAT_EQ(rest.z, 3);
        }
    });
}

TEST(GltfReader, MeshesMirrorXAndReverseWinding) {
    GltfBuilder b;
    int mesh = b.triangles({1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 0, 0}, {0, 1, 2, 0, 2, 3});
    b.node({{"name", "m"}, {"mesh", mesh}});
    forBothContainers(b, [](gltf::LoadedScene s) {
        auto shape = std::dynamic_pointer_cast<scene::MemoryShape>(child(s.scene, "m")->GetShape());
        ASSERT_TRUE(shape);
        EXPECT_EQ(shape->GetGeometryKind(), 11);
        EXPECT_EQ(shape->GetTypeCode(), 11);
        EXPECT_FLOAT_EQ(shape->positions()[1].x, -4);
        EXPECT_FLOAT_EQ(shape->positions()[1].y, 5);
        ASSERT_EQ(shape->GetPolygonCount(), 2);
        SGFace f = shape->GetPolygon(0);
        EXPECT_EQ(f.GetCornerVertex(0), 0);
        EXPECT_EQ(f.GetCornerVertex(1), 2);
        EXPECT_EQ(f.GetCornerVertex(2), 1);
        // No normals in the file: one flat normal per triangle. No uvs: (0, 0).
        EXPECT_EQ(shape->normals().size(), 2u);
        EXPECT_FLOAT_EQ(f.GetCornerUV(0).u, 0);
    });
}

TEST(GltfReader, FlatNormalsPointOutOfTheFrontFace) {
    GltfBuilder b;
    b.node({{"name", "m"}, {"mesh", b.triangles(kTriangle, {})}}); // front face looks along +z
    TempDir d;
    auto s = readScene(b.saveGltf(d.file("a.gltf")));
    auto shape = std::dynamic_pointer_cast<scene::MemoryShape>(child(s.scene, "m")->GetShape());
    ASSERT_EQ(shape->normals().size(), 1u);
    EXPECT_FLOAT_EQ(shape->normals()[0].z, 1);
}

TEST(GltfReader, StripsFansAndSkippedLines) {
    GltfBuilder b;
    std::vector<float> quad = {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0};
    int strip = b.triangles(quad, {}, {{"mode", 5}});
    int fan = b.triangles(quad, {}, {{"mode", 6}});
    int lines = b.triangles(quad, {}, {{"mode", 1}});
    b.node({{"name", "strip"}, {"mesh", strip}});
    b.node({{"name", "fan"}, {"mesh", fan}});
    b.node({{"name", "lines"}, {"mesh", lines}});
    TempDir d;
    auto s = readScene(b.saveGltf(d.file("a.gltf")));
    EXPECT_EQ(child(s.scene, "strip")->GetShape()->GetPolygonCount(), 2);
    EXPECT_EQ(child(s.scene, "fan")->GetShape()->GetPolygonCount(), 2);
    EXPECT_EQ(child(s.scene, "lines")->GetShape(), nullptr);
    ASSERT_EQ(s.warnings.size(), 1u);
    EXPECT_NE(s.warnings[0].find("points and lines"), std::string::npos);
    // The second strip triangle keeps the strip's winding: (2, 1, 3), reversed.
    SGFace f = child(s.scene, "strip")->GetShape()->GetPolygon(1);
    EXPECT_EQ(f.GetCornerVertex(0), 2);
    EXPECT_EQ(f.GetCornerVertex(1), 3);
    EXPECT_EQ(f.GetCornerVertex(2), 1);
}

TEST(GltfReader, MaterialsSharedByIdentityWithFieldsAndTextures) {
    GltfBuilder b;
    b.doc["materials"] = json::array(
        {{{"name", "Paint"},
          {"pbrMetallicRoughness",
           {{"baseColorFactor", {0.5, 0.25, 1, 0.4}}, {"roughnessFactor", 1.0}, {"baseColorTexture", {{"index", 0}}}}},
          {"normalTexture", {{"index", 1}}},
          {"emissiveFactor", {0.1, 0.2, 0.3}},
          {"extras", {{"FS10", "UseGlobalEnv=1"}, {"number", 3}}}},
         {{"pbrMetallicRoughness", {{"roughnessFactor", 0.5}}},
          {"extensions",
           {{"KHR_materials_specular", {{"specularColorFactor", {0.5, 0.5, 0.5}}, {"specularFactor", 0.5}}}}}}});
    b.doc["textures"] = json::array({{{"source", 0}}, {{"source", 1}}});
    b.doc["images"] = json::array({{{"uri", "tex/a%20b.png"}}, {{"name", "bumps"}, {"mimeType", "image/jpeg"}, {"bufferView", 0}}});
    int m0 = b.triangles(kTriangle, {}, {{"material", 0}});
    b.doc["meshes"][m0]["primitives"].push_back(b.doc["meshes"][m0]["primitives"][0]);
    int m1 = b.triangles(kTriangle, {}, {{"material", 1}});
    int m2 = b.triangles(kTriangle, {});
    int m3 = b.triangles(kTriangle, {});
    b.node({{"name", "a"}, {"mesh", m0}});
    b.node({{"name", "b"}, {"mesh", m1}});
    b.node({{"name", "c"}, {"mesh", m2}});
    b.node({{"name", "d"}, {"mesh", m3}});
    forBothContainers(b, [](gltf::LoadedScene s) {
        auto shapes = child(s.scene, "a")->GetShapes();
        ASSERT_EQ(shapes->GetCount(), 2);
        SGMaterialPtr paint = shapes->GetItem(0)->GetPolygon(0).GetMaterial();
        EXPECT_EQ(paint, shapes->GetItem(1)->GetPolygon(0).GetMaterial());
        EXPECT_EQ(paint->GetName(), "Paint");
        EXPECT_FLOAT_EQ(paint->GetDiffuse().a, 0.4f);
        EXPECT_FLOAT_EQ(paint->GetEmissive().b, 0.3f);
        EXPECT_EQ(paint->GetPower(), 0.0f);
        EXPECT_EQ(paint->GetMaterialField(s.scene->root()->FindMaterialField("FS10")), "UseGlobalEnv=1");
        EXPECT_LT(s.scene->root()->FindMaterialField("number"), 0);
        ASSERT_TRUE(paint->GetTextures());
        EXPECT_EQ(paint->GetTextures()->GetFileName(), "tex\\a b.png");
        EXPECT_EQ(paint->GetTextures()->GetBumpFileName(), "bumps.jpg");
        EXPECT_EQ(paint->GetTextures()->GetSpecularFileName(), ".");
        EXPECT_EQ(paint->GetTextures()->GetDetailFileName(), ".");

        SGMaterialPtr shiny = child(s.scene, "b")->GetShape()->GetPolygon(0).GetMaterial();
        EXPECT_EQ(shiny->GetName(), "material_1");
        EXPECT_FLOAT_EQ(shiny->GetSpecular().r, 0.25f);
        EXPECT_FLOAT_EQ(shiny->GetPower(), 250.0f - 30.0f);
        EXPECT_FALSE(shiny->GetTextures());

        SGMaterialPtr def = child(s.scene, "c")->GetShape()->GetPolygon(0).GetMaterial();
        EXPECT_EQ(def, child(s.scene, "d")->GetShape()->GetPolygon(0).GetMaterial());
        EXPECT_EQ(def->GetName(), "default");
    });
}

TEST(GltfReader, PowerCurve) {
    EXPECT_EQ(gltf::powerFromRoughness(1.0f), 0.0f);
    EXPECT_EQ(gltf::powerFromRoughness(0.95f), 0.0f);
    EXPECT_GT(gltf::powerFromRoughness(0.9f), 248.0f);
    EXPECT_FLOAT_EQ(gltf::powerFromRoughness(0.5f), 220.0f);
    EXPECT_FLOAT_EQ(gltf::powerFromRoughness(0.0f), 1.0f);
    EXPECT_FLOAT_EQ(gltf::powerFromRoughness(0.2f), 1.0f);
}

TEST(GltfReader, NodeFieldsVisibilityAndBones) {
    GltfBuilder b;
    int j1 = b.node({{"name", "hidden"}, {"extensions", {{"KHR_node_visibility", {{"visible", false}}}}}});
    b.node({{"name", "off"}, {"extras", {{"visible", false}, {"FS10att", "<part/>"}}}});
    b.node({{"name", "on"}, {"extras", {{"visible", true}}}});
    b.doc["skins"] = json::array({{{"joints", {j1}}}});
    forBothContainers(b, [](gltf::LoadedScene s) {
        EXPECT_EQ(child(s.scene, "hidden")->GetNodeValue(), 0);
        EXPECT_EQ(child(s.scene, "off")->GetNodeValue(), 0);
        EXPECT_EQ(child(s.scene, "on")->GetNodeValue(), 1);
        EXPECT_EQ(child(s.scene, "off")->GetFieldText(s.scene->root()->FindObjectField("FS10att")), "<part/>");
        auto bone = child(s.scene, "hidden")->GetShape();
        ASSERT_TRUE(bone);
        EXPECT_EQ(bone->GetTypeCode() % 100, 16);
        EXPECT_NE(bone->GetGeometryKind(), 11);
    });
}

TEST(GltfReader, KeyframesInTheLeftHandedFrame) {
    GltfBuilder b;
    int n = b.node({{"name", "part"}});
    int times = b.floats({0, 0.5f}, "SCALAR");
    int moves = b.floats({1, 2, 3, 4, 5, 6}, "VEC3");
    int turns = b.floats({0.1f, 0.2f, 0.3f, 0.9f, 0, 0, 0, 1}, "VEC4");
    // Cubic spline: in-tangent, value, out-tangent per key.
    int cubic = b.floats({9, 9, 9, 7, 8, 9, 9, 9, 9, 9, 9, 9, 1, 1, 1, 9, 9, 9}, "VEC3");
    b.doc["animations"] = json::array(
        {{{"name", "one"},
          {"samplers", {{{"input", times}, {"output", moves}}, {{"input", times}, {"output", turns}}}},
          {"channels",
           {{{"sampler", 0}, {"target", {{"node", n}, {"path", "translation"}}}},
            {{"sampler", 1}, {"target", {{"node", n}, {"path", "rotation"}}}},
            {{"sampler", 0}, {"target", {{"node", n}, {"path", "scale"}}}}}}},
         {{"name", "two"},
          {"samplers", {{{"input", times}, {"output", cubic}, {"interpolation", "CUBICSPLINE"}}}},
          {"channels", {{{"sampler", 0}, {"target", {{"node", n}, {"path", "translation"}}}}}}}});
    forBothContainers(b, [](gltf::LoadedScene s) {
        auto keys = child(s.scene, "part")->GetKeyframes(0, 999999);
        ASSERT_EQ(keys.size(), 6u);
        EXPECT_EQ(keys[1].kind, 0);
        EXPECT_FLOAT_EQ(keys[1].time, 0.5f);
        EXPECT_FLOAT_EQ(keys[1].kx, -4);
        EXPECT_FLOAT_EQ(keys[1].ky, 5);
        EXPECT_FLOAT_EQ(keys[1].kw, 0);
        EXPECT_EQ(keys[2].kind, 2);
        EXPECT_FLOAT_EQ(keys[2].kx, 0.1f);
        EXPECT_FLOAT_EQ(keys[2].ky, -0.2f);
        EXPECT_FLOAT_EQ(keys[2].kz, -0.3f);
        EXPECT_FLOAT_EQ(keys[2].kw, 0.9f);
        EXPECT_FLOAT_EQ(keys[4].kx, -7);
        EXPECT_FLOAT_EQ(keys[5].ky, 1);
    });
    TempDir d;
    std::string path = b.saveGltf(d.file("a.gltf"));
    EXPECT_EQ(readScene(path, {std::string("two")}).scene->root()->findByName("part")->GetKeyframes(0, 9).size(), 2u);
    EXPECT_THROW(readScene(path, {std::string("three")}), SceneError);
}

TEST(GltfReader, BadFilesGiveAReason) {
    TempDir d;
    GltfBuilder good;
    good.node({{"name", "m"}, {"mesh", good.triangles(kTriangle, {0, 1, 2})}});
    std::string glb = readFile(good.saveGlb(d.file("good.glb")));

    struct Row {
        std::string name, content, reason;
    };
    auto variant = [&](auto change) {
        GltfBuilder b = good;
        change(b);
        return readFile(b.saveGltf(d.file("variant.gltf")));
    };
    std::vector<Row> rows = {
        {"truncated.glb", glb.substr(0, glb.size() - 10), ""},
        {"header.glb", glb.substr(0, 14), ""},
        {"bad.gltf", "{\"asset\": {\"version\": \"2.0\"}, \"nodes\": [", ""},
        {"empty.gltf", "", ""},
        {"index.gltf", variant([](GltfBuilder& b) { b.doc["nodes"][0]["mesh"] = 7; }), "mesh 7"},
        {"child.gltf", variant([](GltfBuilder& b) { b.doc["nodes"][0]["children"] = {5}; }), "node 5"},
        {"cycle.gltf", variant([](GltfBuilder& b) { b.doc["nodes"][0]["children"] = {0}; }), "twice"},
        {"accessor.gltf", variant([](GltfBuilder& b) { b.doc["accessors"][0]["count"] = 1000; }), "past the end"},
        {"offset.gltf", variant([](GltfBuilder& b) { b.doc["bufferViews"][0]["byteOffset"] = 1u << 30; }), ""},
        {"vertex.gltf", variant([](GltfBuilder& b) {
             b.bin[36] = 9; // first index now 9, past the three vertices
         }), "index past"},
        {"nan.gltf", variant([](GltfBuilder& b) {
             float nan = std::nanf("");
             std::memcpy(b.bin.data() + 4, &nan, 4);
         }), "not a number"},
        {"material.gltf", variant([](GltfBuilder& b) { b.doc["meshes"][0]["primitives"][0]["material"] = 3; }),
         "material 3"},
    };
    for (const Row& r : rows) {
        writeFile(d.file(r.name), r.content);
        try {
            readScene(d.file(r.name));
            ADD_FAILURE() << r.name << " was read";
        } catch (const SceneError& e) {
            EXPECT_FALSE(std::string(e.what()).empty()) << r.name;
            EXPECT_NE(std::string(e.what()).find(r.reason), std::string::npos) << r.name << ": " << e.what();
        }
    }
    EXPECT_THROW(readScene(d.file("missing.gltf")), SceneError);
    // A .gltf whose .bin is missing.
    good.saveGltfWithBin(d.file("nobin.gltf"), "nobin.bin");
    fs::remove(d.file("nobin.bin"));
    EXPECT_THROW(readScene(d.file("nobin.gltf")), SceneError);
}

} // namespace
} // namespace tarnvale::test
