#include "gltf/gltf.h"
#include "gltf/gltf_builder.h"
#include "xfile/x_reader.h"

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

std::shared_ptr<scene::MemoryShape> shapeOf(const std::shared_ptr<scene::MemoryScene>& s, const std::string& node) {
    return std::dynamic_pointer_cast<scene::MemoryShape>(child(s, node)->GetShape());
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

// Exports a scene read from the builder's file through the plug-in; gives the X text.
std::string exportedX(GltfBuilder& b, Rig& rig) {
    gltf::LoadedScene s = readScene(b.saveGlb(rig.dir.file("scene.glb")));
    rig.scene = s.scene;
    auto plugin = rig.plugin();
    rig.exportTo(*plugin, rig.dir.file("out.x"));
    return readFile(rig.dir.file("out.x"));
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

TEST(GltfReader, MeshesMirrorXReverseWindingAndGetFlatNormals) {
    GltfBuilder b;
    int mesh = b.triangles({1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 0, 0}, {0, 1, 2, 0, 2, 3});
    b.node({{"name", "m"}, {"mesh", mesh}});
    b.node({{"name", "flat"}, {"mesh", b.triangles(kTriangle, {})}}); // front face looks along +z
    forBothContainers(b, [](gltf::LoadedScene s) {
        auto shape = shapeOf(s.scene, "m");
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
        ASSERT_EQ(shapeOf(s.scene, "flat")->normals().size(), 1u);
        EXPECT_FLOAT_EQ(shapeOf(s.scene, "flat")->normals()[0].z, 1);
    });
}

// The world transform of each frame with a mesh, for the check in world space.
using Mat = std::array<double, 16>;
Mat times(const Mat& a, const Mat& b) {
    Mat r{};
    for (int i = 0; i < 4; ++i)
        for (int j = 0; j < 4; ++j)
            for (int k = 0; k < 4; ++k) r[i * 4 + j] += a[i * 4 + k] * b[k * 4 + j];
    return r;
}

// Counts the triangles whose front face (clockwise, as the X file culls) looks
// away from their normal in the world; the frames' matrices are row-vector ones.
void countFacesAgainstNormals(const XFrame& f, const Mat& parent, int& faces, int& wrong) {
    const Mat world = times(f.matrix, parent);
    auto at = [&](const std::array<double, 3>& p) {
        std::array<double, 3> r{};
        for (int c = 0; c < 3; ++c) r[c] = p[0] * world[c] + p[1] * world[4 + c] + p[2] * world[8 + c] + world[12 + c];
        return r;
    };
    // Normals go by the inverse transpose: n' = n M^-1 (rows), by cofactors over det.
    const double* m = world.data();
    const double cof[9] = {m[5] * m[10] - m[6] * m[9], m[6] * m[8] - m[4] * m[10], m[4] * m[9] - m[5] * m[8],
                           m[2] * m[9] - m[1] * m[10], m[0] * m[10] - m[2] * m[8], m[1] * m[8] - m[0] * m[9],
                           m[1] * m[6] - m[2] * m[5], m[2] * m[4] - m[0] * m[6], m[0] * m[5] - m[1] * m[4]};
    const double det = m[0] * cof[0] + m[1] * cof[1] + m[2] * cof[2];
    for (const XMesh& mesh : f.meshes)
        for (size_t t = 0; t < mesh.faces.size(); ++t) {
            const auto a = at(mesh.positions[mesh.faces[t][0]]), b = at(mesh.positions[mesh.faces[t][1]]),
                       c = at(mesh.positions[mesh.faces[t][2]]);
            const auto& n = mesh.normals[mesh.normalFaces[t][0]];
            std::array<double, 3> nw{};
            for (int k = 0; k < 3; ++k) nw[k] = (n[0] * cof[k * 3] + n[1] * cof[k * 3 + 1] + n[2] * cof[k * 3 + 2]) / det;
            const double u[3] = {b[0] - a[0], b[1] - a[1], b[2] - a[2]}, v[3] = {c[0] - a[0], c[1] - a[1], c[2] - a[2]};
            const double face[3] = {u[1] * v[2] - u[2] * v[1], u[2] * v[0] - u[0] * v[2], u[0] * v[1] - u[1] * v[0]};
            ++faces;
            if (face[0] * nw[0] + face[1] * nw[1] + face[2] * nw[2] <= 0) ++wrong;
        }
    for (const XFrame& c : f.children) countFacesAgainstNormals(c, world, faces, wrong);
}

TEST(GltfReader, MirroredPartsFaceAlongTheirNormalsInTheWorld) {
    // A tetrahedron with outward normals, once with and once without NORMAL, on a
    // plain node, its mirror, a mirror of a mirror and a plain child of a mirror.
    const float p[4][3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    const int tris[4][3] = {{0, 2, 1}, {0, 1, 3}, {0, 3, 2}, {1, 2, 3}};
    std::vector<float> pos, nrm;
    for (const auto& t : tris) {
        float e1[3], e2[3], n[3];
        for (int k = 0; k < 3; ++k) e1[k] = p[t[1]][k] - p[t[0]][k], e2[k] = p[t[2]][k] - p[t[0]][k];
        n[0] = e1[1] * e2[2] - e1[2] * e2[1], n[1] = e1[2] * e2[0] - e1[0] * e2[2], n[2] = e1[0] * e2[1] - e1[1] * e2[0];
        for (int v : t) pos.insert(pos.end(), p[v], p[v] + 3), nrm.insert(nrm.end(), n, n + 3);
    }
    GltfBuilder b;
    int mesh = b.triangles(pos, {});
    json flat = b.doc["meshes"][mesh]["primitives"][0];
    b.doc["meshes"][mesh]["primitives"][0]["attributes"]["NORMAL"] = b.floats(nrm, "VEC3");
    b.doc["meshes"][mesh]["primitives"].push_back(flat);
    b.node({{"name", "left"}, {"mesh", mesh}, {"translation", {2, 0, 0}}});
    b.node({{"name", "right"}, {"mesh", mesh}, {"translation", {-2, 0, 0}}, {"scale", {-1, 1, 1}}});
    int twice = b.node({{"name", "twice"}, {"mesh", mesh}, {"scale", {1, 1, -1}}}, false);
    int plain = b.node({{"name", "plain"}, {"mesh", mesh}, {"rotation", {0, 0, 1, 0}}}, false);
    b.node({{"name", "mirror"}, {"scale", {1, -1, 1}}, {"children", {twice, plain}}});
    Rig rig;
    std::vector<XFrame> frames = XReader(exportedX(b, rig)).frames();
    ASSERT_EQ(frames.size(), 1u);
    int faces = 0, wrong = 0;
    Mat identity{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    countFacesAgainstNormals(frames[0], identity, faces, wrong);
    EXPECT_EQ(faces, 4 * 8);
    EXPECT_EQ(wrong, 0);
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

TEST(GltfReader, SparseAccessorsWithAndWithoutData) {
    GltfBuilder b;
    // Positions: the triangle with vertex 1 moved; pairs: zeros but vertex 2's.
    int pos = b.sparse(kTriangle, "VEC3", 3, {1}, {5, 6, 7});
    int uv = b.sparse({}, "VEC2", 3, {2}, {0.5f, 0.25f});
    int mesh = b.triangles(kTriangle, {}, {{"attributes", {{"POSITION", pos}, {"TEXCOORD_0", uv}}}});
    b.node({{"name", "m"}, {"mesh", mesh}});
    forBothContainers(b, [](gltf::LoadedScene s) {
        auto shape = shapeOf(s.scene, "m");
        EXPECT_FLOAT_EQ(shape->positions()[1].x, -5);
        EXPECT_FLOAT_EQ(shape->positions()[1].z, 7);
        EXPECT_FLOAT_EQ(shape->positions()[2].y, 1);
        EXPECT_FLOAT_EQ(shape->uvs()[0].u, 0);
        EXPECT_FLOAT_EQ(shape->uvs()[2].u, 0.5f);
        EXPECT_FLOAT_EQ(shape->uvs()[2].v, 0.25f);
    });
}

TEST(GltfReader, MaterialsSharedByIdentityWithFieldsAndTextures) {
    GltfBuilder b;
    b.doc["materials"] = json::array(
        {{{"name", "Paint"},
          {"alphaMode", "BLEND"},
          {"pbrMetallicRoughness",
           {{"baseColorFactor", {0.5, 0.25, 1, 0.4}}, {"roughnessFactor", 1.0}, {"baseColorTexture", {{"index", 0}}}}},
          {"normalTexture", {{"index", 1}}},
          {"emissiveFactor", {0.1, 0.2, 0.3}},
          {"extras", {{"FS10", "UseGlobalEnv=1"}, {"number", 3}}}},
         {{"pbrMetallicRoughness", {{"roughnessFactor", 0.5}}},
          {"normalTexture", {{"index", 1}}},
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
        EXPECT_EQ(shiny->GetTextures()->GetFileName(), ""); // a bump map, but no diffuse texture

        SGMaterialPtr def = child(s.scene, "c")->GetShape()->GetPolygon(0).GetMaterial();
        EXPECT_EQ(def, child(s.scene, "d")->GetShape()->GetPolygon(0).GetMaterial());
        EXPECT_EQ(def->GetName(), "default");
    });
}

TEST(GltfReader, MaterialIntentReachesTheXFile) {
    struct Row {
        json material;
        std::vector<std::string> present, absent; // in that material's Material block
    };
    const json half = {{"baseColorFactor", {0.8, 0.8, 0.8, 0.5}}};
    const std::vector<Row> rows = {
        {{{"normalTexture", {{"index", 0}}}},
         {"BumpTextureFileName {\r\n\"BUMP.DDS\";"},
         {"TextureFileName {\r\n     \".\"", "DiffuseTextureFileName", "\".\""}},
        {{{"alphaMode", "OPAQUE"}, {"pbrMetallicRoughness", half}},
         {"0.80;0.80;0.80;1.00;;\r\n", "\"One\"; \"Zero\"; // blend"},
         {"0.50;;"}},
        {{{"alphaMode", "MASK"}, {"alphaCutoff", 0.3}, {"pbrMetallicRoughness", half}},
         {"0.80;0.80;0.80;0.50;;\r\n", "\"One\"; \"Zero\"; // blend", " 1 ;  // ZTest Alpha\r\n",
          " .3 ;  // Alpha test threshold\r\n", "\"GreaterEqual\";  // Alpha test function"},
         {}},
        {{{"alphaMode", "MASK"}}, {" .5 ;  // Alpha test threshold\r\n", "\"GreaterEqual\";"}, {}},
        {{{"alphaMode", "BLEND"}, {"doubleSided", true}, {"pbrMetallicRoughness", half}},
         {"\"SrcAlpha\"; \"InvSrcAlpha\"; // blend", "DoubleSidedMaterial {\r\n 1 ;", "\"Never\";  // Alpha"},
         {}},
        // A text of the user's own stands as it is.
        {{{"alphaMode", "MASK"}, {"doubleSided", true}, {"extras", {{"FS10", "SrcBlend=Zero"}}}},
         {"\"Zero\"; \"\"; // blend", "DoubleSidedMaterial {\r\n 0 ;", "\"\";  // Alpha test function"},
         {}},
    };
    GltfBuilder b;
    b.doc["textures"] = json::array({{{"source", 0}}});
    b.doc["images"] = json::array({{{"uri", "bump.png"}}});
    for (size_t i = 0; i < rows.size(); ++i) {
        b.doc["materials"].push_back(rows[i].material);
        b.node({{"name", "n" + std::to_string(i)}, {"mesh", b.triangles(kTriangle, {}, {{"material", i}})}});
    }
    Rig rig;
    const std::string x = exportedX(b, rig);
    for (size_t i = 0; i < rows.size(); ++i) {
        const std::string name = "mtl_n" + std::to_string(i) + "_0";
        const size_t begin = x.find("Material " + name + " {"), end = x.find("// end material " + name);
        ASSERT_NE(end, std::string::npos) << name;
        const std::string block = x.substr(begin, end - begin);
        for (const auto& s : rows[i].present) EXPECT_NE(block.find(s), std::string::npos) << name << ": " << s;
        for (const auto& s : rows[i].absent) EXPECT_EQ(block.find(s), std::string::npos) << name << ": " << s;
    }
    EXPECT_EQ(rig.boxes.shown.back().text.find("Warning - ."), std::string::npos);
}

TEST(GltfReader, PowerCurve) {
    const std::pair<float, float> rows[] = {{1.0f, 0}, {0.95f, 0}, {0.5f, 220}, {0.0f, 1}, {0.2f, 1}};
    for (auto [roughness, power] : rows) EXPECT_FLOAT_EQ(gltf::powerFromRoughness(roughness), power) << roughness;
    EXPECT_GT(gltf::powerFromRoughness(0.9f), 248.0f);
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
    b.animation("one", {{n, "translation", {0, 0.5f}, {1, 2, 3, 4, 5, 6}, "LINEAR"},
                        {n, "rotation", {0, 0.5f}, {0.1f, 0.2f, 0.3f, 0.9f, 0, 0, 0, 1}, "LINEAR"}});
    forBothContainers(b, [](gltf::LoadedScene s) {
        auto keys = child(s.scene, "part")->GetKeyframes(0, 999999);
        ASSERT_EQ(keys.size(), 4u);
        const KeyRecord want[] = {{0, 0.5f, 0, -4, 5, 6, 0, 0}, {0, 0, 2, 0.1f, -0.2f, -0.3f, 0.9f, 0}};
        for (int i = 0; i < 2; ++i) {
            const KeyRecord& k = keys[1 + i];
            EXPECT_EQ(k.kind, want[i].kind);
            EXPECT_FLOAT_EQ(k.time, want[i].time);
            EXPECT_FLOAT_EQ(k.kx, want[i].kx);
            EXPECT_FLOAT_EQ(k.ky, want[i].ky);
            EXPECT_FLOAT_EQ(k.kz, want[i].kz);
            EXPECT_FLOAT_EQ(k.kw, want[i].kw);
        }
    });
}

// The spline of glTF between two keys, computed here on its own terms.
float hermite(float v0, float out0, float in1, float v1, float span, float s) {
    return (2 * s * s * s - 3 * s * s + 1) * v0 + span * (s * s * s - 2 * s * s + s) * out0 +
           (-2 * s * s * s + 3 * s * s) * v1 + span * (s * s * s - s * s) * in1;
}

TEST(GltfReader, AnimationChannelsBecomeKeysTheSimulatorInterpolates) {
    struct Row {
        const char* what;
        std::function<void(GltfBuilder&, int)> build;
        double sampleRate;
        std::vector<std::array<float, 5>> keys; // time, kind, then x, y, z as the scene gives them
        std::vector<std::string> warnings;     // texts a warning must hold
    };
    const std::vector<Row> rows = {
        {"the first of several animations keeps a part; the warning names them and --animation",
         [](GltfBuilder& b, int n) {
             b.animation("Survey", {{n, "translation", {0, 1}, {0, 0, 0, 1, 0, 0}, "LINEAR"}});
             b.animation("Walk", {{n, "translation", {0, 2}, {0, 0, 0, 5, 0, 0}, "LINEAR"},
                                  {n, "rotation", {0, 2}, {0, 0, 0, 1, 0, 0, 1, 0}, "LINEAR"}});
             b.animation("Run", {{n, "translation", {0, 3}, {0, 0, 0, 9, 0, 0}, "LINEAR"}});
         },
         30,
         {{0, 0, 0, 0, 0}, {1, 0, -1, 0, 0}, {0, 2, 0, 0, 0}, {2, 2, 0, -0, -1}},
         {"\"Walk\" is left out on part (kept: \"Survey\")", "\"Run\" is left out on part (kept: \"Survey\")",
          "--animation NAME"}},
        {"a key on the far hemisphere is turned to the near one",
         [](GltfBuilder& b, int n) {
             b.animation("turn", {{n, "rotation", {0, 1, 2}, {0, 0, 0.1f, 0.995f, 0, 0, -0.2f, -0.98f, 0, 0, 0.3f, 0.954f},
                                   "LINEAR"}});
         },
         30,
         {{0, 2, 0, -0, -0.1f}, {1, 2, 0, -0, -0.2f}, {2, 2, 0, -0, -0.3f}},
         {}},
        {"scale and weights are left out with a warning naming the nodes",
         [](GltfBuilder& b, int n) { b.animation("grow", {{n, "scale", {0, 1}, {1, 1, 1, 2, 2, 2}, "LINEAR"}}); },
         30,
         {},
         {"scale and morph-weight animation is not exported", ": part"}},
        {"a step holds its value until just before the next key",
         [](GltfBuilder& b, int n) {
             b.animation("flip", {{n, "translation", {0, 1, 2}, {1, 0, 0, 2, 0, 0, 3, 0, 0}, "STEP"}});
         },
         30,
         {{0, 0, -1, 0, 0}, {0.999f, 0, -1, 0, 0}, {1, 0, -2, 0, 0}, {1.999f, 0, -2, 0, 0}, {2, 0, -3, 0, 0}},
         {}},
        {"times that run back leave the channel out",
         [](GltfBuilder& b, int n) {
             b.animation("back", {{n, "translation", {0, 2, 1}, {0, 0, 0, 1, 0, 0, 2, 0, 0}, "LINEAR"}});
         },
         30,
         {},
         {"its key times run back"}},
    };
    for (const Row& r : rows) {
        GltfBuilder b;
        r.build(b, b.node({{"name", "part"}}));
        TempDir d;
        gltf::ReadOptions options;
        options.sampleRate = r.sampleRate;
        auto s = readScene(b.saveGlb(d.file("a.glb")), options);
        auto keys = child(s.scene, "part")->GetKeyframes(0, 999999);
        ASSERT_EQ(keys.size(), r.keys.size()) << r.what;
        for (size_t k = 0; k < keys.size(); ++k) {
            EXPECT_NEAR(keys[k].time, r.keys[k][0], 1e-6) << r.what << " key " << k;
            EXPECT_EQ(keys[k].kind, static_cast<int>(r.keys[k][1])) << r.what << " key " << k;
            EXPECT_NEAR(keys[k].kx, r.keys[k][2], 1e-6) << r.what << " key " << k;
            EXPECT_NEAR(keys[k].ky, r.keys[k][3], 1e-6) << r.what << " key " << k;
            EXPECT_NEAR(keys[k].kz, r.keys[k][4], 1e-6) << r.what << " key " << k;
        }
        std::string all;
        for (const auto& w : s.warnings) all += w + "\n";
        EXPECT_EQ(s.warnings.size(), r.warnings.empty() ? 0u : 1u) << r.what << ": " << all;
        for (const auto& w : r.warnings) EXPECT_NE(all.find(w), std::string::npos) << r.what << ": " << all;
    }
}

TEST(GltfReader, CubicSplinesAreSampledOnTheCurve) {
    GltfBuilder b;
    int n = b.node({{"name", "part"}});
    // Per key: in-tangent, value, out-tangent.
    b.animation("ease", {{n, "translation", {0, 1, 1.5f}, {0, 0, 0, 0, 0, 0, 4, 0, 0, -2, 0, 0, 2, 0, 0, 1, 0, 0,
                                                          0, 0, 0, 3, 0, 0, 0, 0, 0},
                          "CUBICSPLINE"}});
    TempDir d;
    gltf::ReadOptions options;
    options.sampleRate = 4;
    auto keys = child(readScene(b.saveGlb(d.file("a.glb")), options).scene, "part")->GetKeyframes(0, 99);
    // Keys at 0, 1 and 1.5, samples at the quarters between them.
    const float times[] = {0, 0.25f, 0.5f, 0.75f, 1, 1.25f, 1.5f};
    ASSERT_EQ(keys.size(), std::size(times));
    for (size_t k = 0; k < keys.size(); ++k) {
        const float t = times[k];
        const float x = t <= 1 ? hermite(0, 4, -2, 2, 1, t) : hermite(2, 1, 0, 3, 0.5f, (t - 1) / 0.5f);
        EXPECT_FLOAT_EQ(keys[k].time, t);
        EXPECT_NEAR(-keys[k].kx, x, 1e-5) << "at " << t;
    }
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
        {"sparse.gltf", variant([](GltfBuilder& b) {
             b.doc["meshes"][0]["primitives"][0]["attributes"]["POSITION"] = b.sparse(kTriangle, "VEC3", 3, {3}, {1, 1, 1});
         }),
         "sparse index 3"},
        {"nested.gltf", variant([](GltfBuilder& b) {
             b.doc["extras"] = json::array();
             json* deep = &b.doc["extras"];
             for (int i = 0; i < 2000; ++i) deep = &(*deep = json::array({json::array()}))[0];
         }), "nests deeper than 1000"},
        {"chain.gltf", variant([](GltfBuilder& b) {
             // A chain of 100,000 nested nodes: refused quickly, without recursion.
             for (int i = 1; i <= 100000; ++i) b.doc["nodes"].push_back({{"children", {i + 1}}});
             b.doc["nodes"].back().erase("children");
             b.doc["nodes"][0]["children"] = {1};
         }), "deeper than 10000 levels"},
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
