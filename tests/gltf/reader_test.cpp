#include "gltf/gltf.h"
#include "gltf/gltf_builder.h"
#include "gltf/internal.h"
#include "xfile/x_reader.h"

#include <cmath>
#include <sstream>

namespace tarnvale::test {
namespace {

using gltf::readScene;
using gltf::SceneError;

const std::vector<float> kTriangle = {0, 0, 0, 1, 0, 0, 0, 1, 0};

std::shared_ptr<scene::MemoryObject> child(const std::shared_ptr<scene::MemoryScene>& s,
                                           const std::string& name) {
    auto n = s->root()->findByName(name);
    EXPECT_TRUE(n) << name;
    return n;
}

// Reads the builder's document from both containers (and a .gltf with an external
// .bin) and hands each scene over.
template <typename Check> void forBothContainers(GltfBuilder& b, Check check) {
    TempDir d;
    check(readScene(b.saveGltf(d.file("scene.gltf"))));
    check(readScene(b.saveGlb(d.file("scene.glb"))));
    check(readScene(b.saveGltf(d.file("external.gltf"), "external data.bin")));
}

// Exports a scene read from the builder's file through the plug-in; gives the X text.
std::string exportedX(GltfBuilder& b, Rig& rig) {
    gltf::LoadedScene s = readScene(b.saveGlb(rig.dir.file("scene.glb")));
    rig.scene = s.scene;
    auto plugin = rig.plugin();
    rig.exportTo(*plugin, rig.dir.file("out.x"));
    return readFile(rig.dir.file("out.x"));
}

// A shape as text: its positions, pairs, normals and the corners of each polygon.
std::string describe(const SGShapePtr& shape) {
    auto s = std::dynamic_pointer_cast<scene::MemoryShape>(shape);
    if (!s) return "none";
    std::ostringstream out;
    for (size_t i = 0; i < s->positions().size(); ++i)
        out << s->positions()[i].x << "," << s->positions()[i].y << "," << s->positions()[i].z << "/"
            << s->uvs()[i].u << "," << s->uvs()[i].v << " ";
    out << "n";
    for (const Vec3& n : s->normals())
        out << " " << n.x << "," << n.y << "," << n.z;
    for (int32_t p = 0; p < s->GetPolygonCount(); ++p) {
        out << " |";
        SGFace f = s->GetPolygon(p);
        for (int32_t c = 0; c < f.GetCornerCount(); ++c)
            out << " " << f.GetCornerVertex(c) << ":" << f.GetCornerNormal(c);
    }
    return out.str();
}

TEST(GltfReader, NodesNamesTransformsFieldsVisibilityAndBones) {
    GltfBuilder b;
    b.doc["scenes"][0]["name"] = "My Scene";
    const float h = std::sqrt(0.5f); // 90 degrees about +Y, then a translation
    int leaf = b.node({{"name", "trs"},
                       {"translation", {1, 2, 3}},
                       {"rotation", {0, h, 0, h}},
                       {"extras", {{"visible", false}, {"FS10att", "<part/>"}}}},
                      false);
    b.node({{"children", {leaf}}, {"extensions", {{"KHR_node_visibility", {{"visible", false}}}}}});
    int mat = b.node({{"name", "mat"},
                      {"matrix", {0, 0, -1, 0, 0, 1, 0, 0, 1, 0, 0, 0, 1, 2, 3, 1}},
                      {"extras", {{"visible", true}}}});
    b.doc["skins"] = json::array({{{"joints", {mat}}}});
    forBothContainers(b, [](gltf::LoadedScene s) {
        auto root = s.scene->root();
        EXPECT_EQ(root->GetName(), "My Scene");
        ASSERT_EQ(root->children().size(), 2u);
        auto top = root->children()[0];
        EXPECT_EQ(top->GetName(), "node_1");
        EXPECT_EQ(top->children()[0]->GetParent(), top);
        EXPECT_EQ(std::vector<double>({top->GetNodeValue(), child(s.scene, "trs")->GetNodeValue(),
                                       child(s.scene, "mat")->GetNodeValue()}),
                  std::vector<double>({0, 0, 1}));
        EXPECT_EQ(child(s.scene, "trs")->GetFieldText(root->FindObjectField("FS10att")), "<part/>");
        for (const char* name : {"trs", "mat"}) {
            auto n = child(s.scene, name);
            Matrix16 m = n->GetRelativeMatrix(n->GetParent(), 0);
            const float expected[16] = {0, 0, 1, 0, 0, 1, 0, 0, -1, 0, 0, 0, -1, 2, 3, 1};
            for (int i = 0; i < 16; ++i)
                EXPECT_NEAR(m[i], expected[i], 1e-6) << name << " element " << i;
            EXPECT_FLOAT_EQ(n->GetRelativePosition(n->GetParent(), 0).x, -1);
        }
        auto bone = child(s.scene, "mat")->GetShape(); // a joint of a skin
        EXPECT_TRUE(bone && bone->GetTypeCode() % 100 == 16 && bone->GetGeometryKind() != 11);
    });
    TempDir d;
    b.doc["scenes"][0].erase("name");
    EXPECT_EQ(readScene(b.saveGltf(d.file("stem name.gltf"))).scene->root()->GetName(), "stem name");
}

TEST(GltfReader, NamesBecomeXIdentifiersKeptApartAmongSiblings) {
    // Siblings in file order: the glTF name and the scene's (node 8 has none).
    const std::vector<std::pair<std::string, std::string>> rows = {{"antenna.001", "antenna_001"},
                                                                   {"\u00C9levator", "_levator"},
                                                                   {"3D Wing", "_3D Wing"},
                                                                   {"-tail", "_-tail"},
                                                                   {"wing_001", "wing_001"},
                                                                   {"wing.001", "wing_001_2"},
                                                                   {"Wing 001", "Wing 001_3"},
                                                                   {"\u65E5\u672C", "__"},
                                                                   {"", "node_8"},
                                                                   {"ok-Name_9", "ok-Name_9"}};
    GltfBuilder b;
    b.doc["scenes"][0]["name"] = "Scene.v2";
    b.doc["materials"] = json::array({{{"name", "Paint.001"}}});
    json kids = json::array();
    for (const auto& [name, mapped] : rows) {
        json n = {{"mesh", b.triangles(kTriangle, {}, {{"material", 0}})}};
        if (!name.empty()) n["name"] = name;
        kids.push_back(b.node(n, false));
    }
    b.node({{"name", "body.001"}, {"children", kids}});
    Rig rig;
    const std::vector<XFrame> frames = XReader(exportedX(b, rig)).frames();
    std::string written;
    for (const XFrame& f : frames.at(0).children.at(0).children)
        written += f.name + " ";
    EXPECT_EQ(frames[0].name + " " + frames[0].children[0].name + " | " + written,
              "frm-scene_v2 frm-body_001 | frm-antenna_001 frm-_levator frm-_3d_wing frm-_-tail frm-wing_001 "
              "frm-wing_001_2 frm-wing_001_3 frm-__ frm-node_8 frm-ok-name_9 ");
    // The modeller's names stay where the user meets them.
    auto body = rig.scene->root()->children().at(0);
    for (size_t i = 0; i < rows.size(); ++i) {
        const auto& node = body->children().at(i);
        EXPECT_EQ(node->GetName() + " | " + node->shownName(),
                  rows[i].second + " | " + (i == 8 ? "node_8" : rows[i].first));
    }
    EXPECT_EQ(rig.scene->root()->findByName("wing.001"), body->children()[5]);
    EXPECT_EQ(rig.scene->root()->shownName(), "Scene.v2");
    gltf::LoadedScene s = readScene(rig.dir.file("scene.glb"));
    EXPECT_EQ(s.materials.at(0)->GetName() + " | " + s.materials[0]->shownName(), "Paint_001 | Paint.001");
}

TEST(GltfReader, PrimitivesBecomeLeftHandedShapes) {
    GltfBuilder b;
    const std::vector<float> quad = {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0};
    struct Row {
        const char* node;
        int mesh;
        const char* shape;
    };
    // x mirrored, corners reversed, flat normals where the file has none, (0, 0)
    // without pairs; strips keep their winding; sparse data on a base or zeros.
    const Row rows[] = {
        {"m", b.triangles({1, 2, 3, 4, 5, 6, 7, 8, 9, 0, 0, 0}, {0, 1, 2, 0, 2, 3}),
         "-1,2,3/0,0 -4,5,6/0,0 -7,8,9/0,0 -0,0,0/0,0 n -0,0,0 0.408248,0.816497,-0.408248 | 0:0 2:0 1:0 | "
         "0:1 3:1 2:1"},
        {"strip", b.triangles(quad, {}, {{"mode", 5}}),
         "-0,0,0/0,0 -1,0,0/0,0 -0,1,0/0,0 -1,1,0/0,0 n -0,-0,1 0,0,1 | 0:0 2:0 1:0 | 2:1 3:1 1:1"},
        {"fan", b.triangles(quad, {}, {{"mode", 6}}),
         "-0,0,0/0,0 -1,0,0/0,0 -0,1,0/0,0 -1,1,0/0,0 n -0,-0,1 -0,0,-1 | 0:0 2:0 1:0 | 0:1 3:1 2:1"},
        {"lines", b.triangles(quad, {}, {{"mode", 1}}), "none"},
        {"sparse",
         b.triangles(kTriangle, {},
                     {{"attributes",
                       {{"POSITION", b.sparse(kTriangle, "VEC3", 3, {1}, {5, 6, 7})},
                        {"TEXCOORD_0", b.sparse({}, "VEC2", 3, {2}, {0.5f, 0.25f})}}}}),
         "-0,0,0/0,0 -5,6,7/0,0 -0,1,0/0.5,0.25 n 0.813733,-0,0.581238 | 0:0 2:0 1:0"},
    };
    for (const Row& r : rows)
        b.node({{"name", r.node}, {"mesh", r.mesh}});
    forBothContainers(b, [&](gltf::LoadedScene s) {
        for (const Row& r : rows)
            EXPECT_EQ(describe(child(s.scene, r.node)->GetShape()), r.shape) << r.node;
        ASSERT_EQ(s.warnings.size(), 1u);
        EXPECT_NE(s.warnings[0].find("points and lines"), std::string::npos);
    });
}

// The base colour texture's coordinates as its set and KHR_texture_transform place
// them (translation times rotation times scale), per primitive.
TEST(GltfReader, TextureTransformsAndSetsPlaceTheColoursCoordinates) {
    const json kTurn = {{"offset", {1, 0}}, {"rotation", M_PI / 2}, {"scale", {2, 1}}};
    struct Row {
        const char* name;
        json texture;   // the base colour texture's info
        const char* uv; // of the vertex at (0.25, 0.75) in set 0, (0.5, 0.5) in set 1
    };
    const Row rows[] = {
        {"plain", {{"index", 0}}, "0.25,0.75"},
        {"offset",
         {{"index", 0}, {"extensions", {{"KHR_texture_transform", {{"offset", {0.5, 0.25}}}}}}},
         "0.75,1"},
        {"scale",
         {{"index", 0}, {"extensions", {{"KHR_texture_transform", {{"scale", {2, 3}}}}}}},
         "0.5,2.25"},
        {"turned",
         {{"index", 0}, {"extensions", {{"KHR_texture_transform", {{"rotation", M_PI / 2}}}}}},
         "0.75,-0.25"},
        {"all three", {{"index", 0}, {"extensions", {{"KHR_texture_transform", kTurn}}}}, "1.75,-0.5"},
        {"set 1", {{"index", 0}, {"texCoord", 1}}, "0.5,0.5"},
        {"override",
         {{"index", 0}, {"extensions", {{"KHR_texture_transform", {{"texCoord", 1}}}}}},
         "0.5,0.5"},
    };
    GltfBuilder b;
    json& prims = b.doc["meshes"][b.triangles(kTriangle, {})]["primitives"];
    prims[0]["attributes"]["TEXCOORD_0"] = b.floats({0.25f, 0.75f, 0, 0, 0, 0}, "VEC2");
    prims[0]["attributes"]["TEXCOORD_1"] = b.floats({0.5f, 0.5f, 0, 0, 0, 0}, "VEC2");
    for (size_t i = 1; i < std::size(rows); ++i)
        prims.push_back(prims[0]);
    for (size_t i = 0; i < std::size(rows); ++i) {
        b.doc["materials"].push_back(
            {{"name", rows[i].name}, {"pbrMetallicRoughness", {{"baseColorTexture", rows[i].texture}}}});
        prims[i]["material"] = i;
    }
    // A normal map placed apart from the colour is said to be, once.
    b.doc["materials"][4]["normalTexture"] = {{"index", 0}};
    b.doc["textures"] = {{{"source", 0}}};
    b.doc["images"] = {{{"uri", "skin.png"}}};
    b.node({{"name", "m"}, {"mesh", 0}});
    TempDir d;
    const gltf::LoadedScene s = readScene(b.saveGltf(d.file("s.gltf")));
    const SGShapeListPtr shapes = child(s.scene, "m")->GetShapes();
    ASSERT_EQ(shapes->GetCount(), static_cast<int32_t>(std::size(rows)));
    for (size_t i = 0; i < std::size(rows); ++i) {
        auto shape = std::dynamic_pointer_cast<scene::MemoryShape>(shapes->GetItem(static_cast<int32_t>(i)));
        std::ostringstream uv;
        uv << shape->uvs()[0].u << "," << shape->uvs()[0].v;
        EXPECT_EQ(uv.str(), rows[i].uv) << rows[i].name;
    }
    EXPECT_EQ(s.warnings,
              std::vector<std::string>{"material 4 (all three): its normal texture's coordinates or "
                                       "KHR_texture_transform differ from its base colour's, whose alone "
                                       "the X file carries"});
    b.doc["materials"][0]["pbrMetallicRoughness"]["baseColorTexture"]["texCoord"] = 2;
    EXPECT_THROW(readScene(b.saveGltf(d.file("s.gltf"))), SceneError) << "no TEXCOORD_2";
}

// EXT_mesh_gpu_instancing: a frame per instance below the node, each vertex where
// the node's transform times the instance's puts it, facing along its normal.
TEST(GltfReader, InstancesAreFramesOfTheirOwn) {
    GltfBuilder b;
    const float turn = static_cast<float>(std::sqrt(0.5));
    const json instancing = {
        {"attributes",
         {{"TRANSLATION", b.floats({0, 0, 0, 2, 0, 0, 0, 0, 5, 0, 3, 0}, "VEC3")},
          {"ROTATION", b.floats({0, 0, 0, 1, 0, turn, 0, turn, 0, 0, 0, 1, 0, 0, 0, 1}, "VEC4")},
          {"SCALE", b.floats({1, 1, 1, 1, 1, 1, 2, 2, 2, -1, 1, 1}, "VEC3")}}}};
    b.node({{"name", "tree"},
            {"mesh", b.triangles(kTriangle, {0, 1, 2})},
            {"translation", {10, 0, 0}},
            {"scale", {2, 2, 2}},
            {"extensions", {{"EXT_mesh_gpu_instancing", instancing}}}});
    Rig rig;
    const auto roots = XReader(exportedX(b, rig)).frames();
    // The corner at (1, 0, 0) of each copy, x mirrored into the X file's hand.
    const std::map<std::string, std::array<double, 3>> kCorner = {{"frm-tree_0", {-12, 0, 0}},
                                                                  {"frm-tree_1", {-14, 0, -2}},
                                                                  {"frm-tree_2", {-14, 0, 10}},
                                                                  {"frm-tree_3", {-8, 6, 0}}};
    const XFrame& tree = roots.at(0).children.at(0);
    EXPECT_EQ(tree.name, "frm-tree");
    EXPECT_TRUE(tree.meshes.empty()) << "the copies carry the mesh";
    ASSERT_EQ(tree.children.size(), kCorner.size());
    const auto treeWorld = worldOf(tree, worldOf(roots[0], kIdentity));
    for (const XFrame& copy : tree.children) {
        const auto corner = through(copy.meshes.at(0).positions.at(1), worldOf(copy, treeWorld));
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(corner[c], kCorner.at(copy.name)[c], 1e-4) << copy.name << " " << c;
    }
    int faces = 0, wrong = 0;
    countFacesAgainstNormals(roots[0], kIdentity, faces, wrong);
    EXPECT_EQ(std::make_pair(faces, wrong), std::make_pair(4, 0));
}

// A quantized file (KHR_mesh_quantization): a 5 cm box in 16-bit steps whose node
// scale dequantizes it, 3.05e-6, which six decimals cannot hold. The scale goes
// into the mesh; the child below keeps its place in the world.
TEST(GltfReader, QuantizedMeshesStayWhereTheirScalePutsThem) {
    GltfBuilder b;
    const std::vector<uint16_t> steps = {0, 0, 0, 16383, 0, 0, 0, 16383, 16383};
    const int positions = b.accessor(steps.data(), 18, 5123, 3, "VEC3");
    const int mesh = b.triangles(kTriangle, {0, 1, 2});
    b.doc["meshes"][mesh]["primitives"][0]["attributes"]["POSITION"] = positions;
    const double step = 0.05 / 16383;
    b.node({{"name", "box"},
            {"mesh", mesh},
            {"translation", {0.2, 0, 0}},
            {"scale", {step, step, step}},
            {"children", {b.node({{"name", "tip"}, {"translation", {16383, 0, 0}}}, false)}}});
    b.doc["extensionsUsed"] = b.doc["extensionsRequired"] = {"KHR_mesh_quantization"};
    Rig rig;
    const auto roots = XReader(exportedX(b, rig)).frames();
    const XFrame& box = roots.at(0).children.at(0);
    const auto world = worldOf(box, worldOf(roots[0], kIdentity));
    const std::array<double, 3> kCorners[] = {{-0.2, 0, 0}, {-0.25, 0, 0}, {-0.2, 0.05, 0.05}};
    for (size_t v = 0; v < 3; ++v)
        for (int c = 0; c < 3; ++c)
            EXPECT_NEAR(through(box.meshes.at(0).positions.at(v), world)[c], kCorners[v][c], 1e-6)
                << v << " " << c;
    const auto tip = worldOf(box.children.at(0), world);
    EXPECT_NEAR(tip[12], -0.25, 1e-6);
}

// An image's name whose DDS form (its last three characters replaced) makes
// sense, in the code page of the X file.
TEST(GltfReader, ImageNamesTakeThreeLetterExtensionsAndTheCodePage) {
    const std::pair<const char*, const char*> kNames[] = {
        {"base.jpeg", "base.jpg"},
        {"skin.WEBP", "skin.web"},
        {"t.ktx2", "t.ktx"},
        {"noext", "noext.img"},
        {"v1.2/file", "v1.2/file.img"},
        {"a.PNG", "a.PNG"},
        {"caf\u00e9.tga", "caf\u00e9.tga"},
        {"\u03a9mega.png", "_mega.png"},
        {"x.b", "x.img"},
    };
    for (const auto& [name, mapped] : kNames)
        EXPECT_EQ(gltf::textureFileName(name), mapped) << name;
}

TEST(GltfReader, MirroredPartsFaceAlongTheirNormalsInTheWorld) {
    // A tetrahedron with outward normals, once with and once without NORMAL, on a
    // plain node, its mirror, a mirror of a mirror and a plain child of a mirror.
    const float p[4][3] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    const int tris[4][3] = {{0, 2, 1}, {0, 1, 3}, {0, 3, 2}, {1, 2, 3}};
    std::vector<float> pos, nrm;
    for (const auto& t : tris) {
        float e1[3], e2[3], n[3];
        for (int k = 0; k < 3; ++k)
            e1[k] = p[t[1]][k] - p[t[0]][k], e2[k] = p[t[2]][k] - p[t[0]][k];
        n[0] = e1[1] * e2[2] - e1[2] * e2[1], n[1] = e1[2] * e2[0] - e1[0] * e2[2],
        n[2] = e1[0] * e2[1] - e1[1] * e2[0];
        for (int v : t)
            pos.insert(pos.end(), p[v], p[v] + 3), nrm.insert(nrm.end(), n, n + 3);
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
    countFacesAgainstNormals(frames[0], kIdentity, faces, wrong);
    EXPECT_EQ(faces, 4 * 8);
    EXPECT_EQ(wrong, 0);
}

TEST(GltfReader, MaterialsSharedByIdentityWithFieldsAndTextures) {
    GltfBuilder b;
    b.doc["materials"] = json::array(
        {{{"name", "Paint"},
          {"alphaMode", "BLEND"},
          {"pbrMetallicRoughness",
           {{"baseColorFactor", {0.5, 0.25, 1, 0.4}},
            {"roughnessFactor", 1.0},
            {"baseColorTexture", {{"index", 0}}}}},
          {"normalTexture", {{"index", 1}}},
          {"emissiveFactor", {0.1, 0.2, 0.3}},
          {"extras", {{"FS10", "UseGlobalEnv=1"}, {"number", 3}}}},
         {{"pbrMetallicRoughness", {{"roughnessFactor", 0.5}}},
          {"normalTexture", {{"index", 1}}},
          {"emissiveFactor", {0.3, 0.2, 0.1}},
          {"extensions",
           {{"KHR_materials_specular", {{"specularColorFactor", {0.5, 0.5, 0.5}}, {"specularFactor", 0.5}}},
            {"KHR_materials_emissive_strength", {{"emissiveStrength", 5}}}}}}});
    b.doc["textures"] = json::array({{{"source", 0}}, {{"source", 1}}});
    b.doc["images"] = json::array(
        {{{"uri", "tex/a%20b.png"}}, {{"name", "bumps"}, {"mimeType", "image/jpeg"}, {"bufferView", 0}}});
    int m0 = b.triangles(kTriangle, {}, {{"material", 0}});
    b.doc["meshes"][m0]["primitives"].push_back(b.doc["meshes"][m0]["primitives"][0]);
    b.node({{"name", "a"}, {"mesh", m0}});
    b.node({{"name", "b"}, {"mesh", b.triangles(kTriangle, {}, {{"material", 1}})}});
    b.node({{"name", "c"}, {"mesh", b.triangles(kTriangle, {})}});
    b.node({{"name", "d"}, {"mesh", b.triangles(kTriangle, {})}});
    forBothContainers(b, [](gltf::LoadedScene s) {
        auto material = [&](const char* node, int shape) {
            return child(s.scene, node)->GetShapes()->GetItem(shape)->GetPolygon(0).GetMaterial();
        };
        auto describe = [&](const SGMaterialPtr& m) {
            std::ostringstream out;
            const Rgba d = m->GetDiffuse();
            const Rgb e = m->GetEmissive();
            out << m->GetName() << " " << d.r << "," << d.g << "," << d.b << "," << d.a << " e" << e.r << ","
                << e.g << "," << e.b << " s" << m->GetSpecular().r << " p" << m->GetPower() << " "
                << m->GetMaterialField(s.scene->root()->FindMaterialField("FS10"));
            if (SGTexturesPtr t = m->GetTextures())
                out << " [" << t->GetFileName() << "|" << t->GetBumpFileName() << "|"
                    << t->GetSpecularFileName() << "|" << t->GetDetailFileName() << "]";
            return out.str();
        };
        EXPECT_EQ(material("a", 0), material("a", 1));
        EXPECT_EQ(material("c", 0), material("d", 0));
        EXPECT_EQ(describe(material("a", 0)),
                  "Paint 0.5,0.25,1,0.4 e0.1,0.2,0.3 s1 p0 UseGlobalEnv=1 [tex\\a b.png|bumps.jpg|.|.]");
        // A bump map but no diffuse texture: no diffuse name at all. Emissive
        // strength 5 scales the colour, which stops at 1.
        EXPECT_EQ(describe(material("b", 0)), "material_1 1,1,1,1 e1,1,0.5 s0.25 p220  [|bumps.jpg|.|.]");
        EXPECT_EQ(describe(material("c", 0)), "default 1,1,1,1 e0,0,0 s1 p0 ");
        EXPECT_LT(s.scene->root()->FindMaterialField("number"), 0);
    });
    const std::pair<float, float> powers[] = {{1.0f, 0}, {0.95f, 0}, {0.5f, 220}, {0.0f, 1}, {0.2f, 1}};
    for (auto [roughness, power] : powers)
        EXPECT_FLOAT_EQ(gltf::powerFromRoughness(roughness), power) << roughness;
    EXPECT_GT(gltf::powerFromRoughness(0.9f), 248.0f);
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
        for (const auto& s : rows[i].present)
            EXPECT_NE(block.find(s), std::string::npos) << name << ": " << s;
        for (const auto& s : rows[i].absent)
            EXPECT_EQ(block.find(s), std::string::npos) << name << ": " << s;
    }
    EXPECT_EQ(rig.boxes.shown.back().text.find("Warning - ."), std::string::npos);
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
        std::vector<std::array<float, 6>> keys;    // time, kind, then x, y, z, w as the scene gives them
        std::vector<std::string> warnings;         // texts a warning must hold
        std::optional<std::string> animation = {}; // --animation
    };
    const float m = 0.05f / std::sqrt(0.9375f), h = std::sqrt(0.5f); // midpoints on the arc
    const std::vector<Row> rows = {
        {"keys turn left-handed: x mirrored, quaternions (x, -y, -z, w); two keys get their midpoint",
         [](GltfBuilder& b, int n) {
             b.animation("one", {{n, "translation", {0, 0.5f}, {1, 2, 3, 4, 5, 6}, "LINEAR"},
                                 {n, "rotation", {0, 0.5f}, {0.1f, 0.2f, 0.3f, 0.9f, 0, 0, 0, 1}, "LINEAR"}});
         },
         30,
         {{0, 0, -1, 2, 3, 0},
          {0.25f, 0, -2.5f, 3.5f, 4.5f, 0},
          {0.5f, 0, -4, 5, 6, 0},
          {0, 2, 0.1f, -0.2f, -0.3f, 0.9f},
          {0.25f, 2, m, -2 * m, -3 * m, 19 * m},
          {0.5f, 2, 0, -0, -0, 1}},
         {}},
        {"the first of several animations keeps a part; the warning names them and --animation",
         [](GltfBuilder& b, int n) {
             b.animation("Survey", {{n, "translation", {0, 1}, {0, 0, 0, 1, 0, 0}, "LINEAR"}});
             b.animation("Walk", {{n, "translation", {0, 2}, {0, 0, 0, 5, 0, 0}, "LINEAR"},
                                  {n, "rotation", {0, 2}, {0, 0, 0, 1, 0, 0, 1, 0}, "LINEAR"}});
             b.animation("Run", {{n, "translation", {0, 3}, {0, 0, 0, 9, 0, 0}, "LINEAR"}});
         },
         30,
         {{0, 0, 0, 0, 0, 0},
          {0.5f, 0, -0.5f, 0, 0, 0},
          {1, 0, -1, 0, 0, 0},
          {0, 2, 0, 0, 0, 1},
          {1, 2, 0, 0, -h, h},
          {2, 2, 0, -0, -1, 0}},
         {"\"Walk\" is left out on part (kept: \"Survey\")", "\"Run\" is left out on part (kept: \"Survey\")",
          "--animation NAME"}},
        {"--animation takes an unnamed animation by the name its warnings give it",
         [](GltfBuilder& b, int n) {
             b.animation("", {{n, "translation", {0, 1, 2}, {0, 0, 0, 1, 0, 0, 2, 0, 0}, "LINEAR"}});
             b.animation("", {{n, "translation", {0, 1, 2}, {0, 0, 0, 0, 3, 0, 0, 6, 0}, "LINEAR"}});
         },
         30,
         {{0, 0, 0, 0, 0, 0}, {1, 0, 0, 3, 0, 0}, {2, 0, 0, 6, 0, 0}},
         {},
         "animation 1"},
        {"two keys at one time stay two: the part is named as not animated",
         [](GltfBuilder& b, int n) {
             b.animation("snap", {{n, "translation", {1, 1}, {0, 0, 0, 1, 0, 0}, "LINEAR"}});
         },
         30,
         {{1, 0, 0, 0, 0, 0}, {1, 0, -1, 0, 0, 0}},
         {"fewer than 3 keys, so not animated (the simulator needs 3): part"}},
        {"a key on the far hemisphere is turned to the near one",
         [](GltfBuilder& b, int n) {
             b.animation("turn", {{n,
                                   "rotation",
                                   {0, 1, 2},
                                   {0, 0, 0.1f, 0.995f, 0, 0, -0.2f, -0.98f, 0, 0, 0.3f, 0.954f},
                                   "LINEAR"}});
         },
         30,
         {{0, 2, 0, -0, -0.1f, 0.995f}, {1, 2, 0, -0, -0.2f, 0.98f}, {2, 2, 0, -0, -0.3f, 0.954f}},
         {}},
        {"scale that leaves the rest is left out with a warning naming the nodes",
         [](GltfBuilder& b, int n) {
             b.animation("grow", {{n, "scale", {0, 1}, {1, 1, 1, 1, 1.001f, 1}, "LINEAR"}});
         },
         30,
         {},
         {"scale and morph-weight animation is not exported", ": part"}},
        {"scale keys at the rest scale say nothing (every joint of a Blender export has them)",
         [](GltfBuilder& b, int n) {
             b.doc["nodes"][n]["scale"] = {2, 2, 2};
             b.animation("still", {{n, "scale", {0, 1}, {2, 2, 2, 2, 2.00005f, 2}, "LINEAR"}});
         },
         30,
         {},
         {}},
        {"a step holds its value until just before the next key",
         [](GltfBuilder& b, int n) {
             b.animation("flip", {{n, "translation", {0, 1, 2}, {1, 0, 0, 2, 0, 0, 3, 0, 0}, "STEP"}});
         },
         30,
         {{0, 0, -1, 0, 0, 0},
          {0.999f, 0, -1, 0, 0, 0},
          {1, 0, -2, 0, 0, 0},
          {1.999f, 0, -2, 0, 0, 0},
          {2, 0, -3, 0, 0, 0}},
         {}},
        {"cubic splines are sampled on the curve: keys at 0, 1 and 1.5, samples at the quarters",
         [](GltfBuilder& b, int n) { // per key: in-tangent, value, out-tangent
             b.animation("ease",
                         {{n,
                           "translation",
                           {0, 1, 1.5f},
                           {0, 0, 0, 0, 0, 0, 4, 0, 0, -2, 0, 0, 2, 0, 0, 1, 0, 0, 0, 0, 0, 3, 0, 0, 0, 0, 0},
                           "CUBICSPLINE"}});
         },
         4,
         [] {
             std::vector<std::array<float, 6>> keys;
             for (float t : {0.0f, 0.25f, 0.5f, 0.75f, 1.0f, 1.25f, 1.5f})
                 keys.push_back(
                     {t, 0,
                      -(t <= 1 ? hermite(0, 4, -2, 2, 1, t) : hermite(2, 1, 0, 3, 0.5f, (t - 1) / 0.5f)), 0,
                      0, 0});
             return keys;
         }(),
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
        options.animation = r.animation;
        auto s = readScene(b.saveGlb(d.file("a.glb")), options);
        auto keys = child(s.scene, "part")->GetKeyframes(0, 999999);
        ASSERT_EQ(keys.size(), r.keys.size()) << r.what;
        for (size_t k = 0; k < keys.size(); ++k) {
            const float got[6] = {keys[k].time, float(keys[k].kind), keys[k].kx,
                                  keys[k].ky,   keys[k].kz,          keys[k].kw};
            for (int c = 0; c < 6; ++c)
                EXPECT_NEAR(got[c], r.keys[k][c], 1e-5) << r.what << " key " << k << " value " << c;
        }
        std::string all;
        for (const auto& w : s.warnings)
            all += w + "\n";
        EXPECT_EQ(s.warnings.size(), r.warnings.empty() ? 0u : 1u) << r.what << ": " << all;
        for (const auto& w : r.warnings)
            EXPECT_NE(all.find(w), std::string::npos) << r.what << ": " << all;
    }
}

// A .glb's buffer 0 is read where it lies when its length can be told for sure;
// anything else leaves the file to the library (nothing found).
TEST(GltfReader, GlbBufferZeroIsFoundOnlyWhereItIsBeyondDoubt) {
    const std::pair<std::string, uint64_t> rows[] = {
        {R"({"buffers":[{"byteLength":120}]})", 120},
        {R"({ "asset" : {"buffers":[{"byteLength":7}]}, "buffers" : [ { "extras":{"byteLength":5}, "byteLength" : 120 } ,{"byteLength":9}] })",
         120},
        {R"({"x":"]}\"{[","buffers":[{"name":"a\\\\","byteLength":3}],"y":[1,{"z":null}]})", 3},
        {R"({"buffers":[{"byteLength":3,"uri":"a.bin"}]})", 0},
        {R"({"buffers":[{"byteLength":3,"byteLength":8}]})", 0},
        {R"({"buffers":[{"byteLength":3}],"buffers":[]})", 0},
        {R"({"buf\u0066ers":[{"byteLength":3}]})", 0},
        {R"({"buffers":[{"byte\u004cength":3}]})", 0},
        {R"({"buffers":[{"byteLength":012}]})", 0},
        {R"({"buffers":[{"byteLength":0}]})", 0},
        {R"({"buffers":[{"byteLength":1.5}]})", 0},
        {R"({"buffers":[{"byteLength":99999999999999999999}]})", 0},
        {R"({"buffers":[{"byteLength":3})", 0},
        {R"({"buffers":[]})", 0},
    };
    for (const auto& [json, length] : rows) {
        const std::optional<gltf::BufferZero> b = gltf::glbBufferZero(json);
        EXPECT_EQ(b ? b->byteLength : 0, length) << json;
        if (b) {
            EXPECT_EQ(json.substr(b->at, b->digits), std::to_string(length)) << json;
        }
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
        {"truncated.glb", glb.substr(0, glb.size() - 10), "Invalid glTF binary"},
        {"long.glb",
         [&] { // buffer 0 longer than the binary chunk
             std::string g = glb;
             for (size_t at = g.find("\"buffers\":[{\"byteLength\":") + 25; std::isdigit(g[at]); ++at)
                 g[at] = '9';
             return g;
         }(),
         "Must be equal or less than binary size"},
        {"image.glb",
         [&] {
             GltfBuilder b = good;
             b.doc["textures"] = {{{"source", b.image("PNG", "")}}};
             b.doc["bufferViews"].back()["byteOffset"] = 1u << 20;
             b.doc["materials"] = {{{"pbrMetallicRoughness", {{"baseColorTexture", {{"index", 0}}}}}}};
             b.doc["meshes"][0]["primitives"][0]["material"] = 0;
             return readFile(b.saveGlb(d.file("variant.glb")));
         }(),
         "image 0: buffer view 2 lies outside its buffer"},
        {"header.glb", glb.substr(0, 14), "Too short data size for glTF Binary"},
        {"bad.gltf", "{\"asset\": {\"version\": \"2.0\"}, \"nodes\": [", "unexpected end of input"},
        {"empty.gltf", "", "JSON string too short"},
        {"index.gltf", variant([](GltfBuilder& b) { b.doc["nodes"][0]["mesh"] = 7; }), "mesh 7"},
        {"child.gltf", variant([](GltfBuilder& b) { b.doc["nodes"][0]["children"] = {5}; }), "node 5"},
        {"cycle.gltf", variant([](GltfBuilder& b) { b.doc["nodes"][0]["children"] = {0}; }), "twice"},
        {"accessor.gltf", variant([](GltfBuilder& b) { b.doc["accessors"][0]["count"] = 1000; }),
         "past the end"},
        {"offset.gltf", variant([](GltfBuilder& b) { b.doc["bufferViews"][0]["byteOffset"] = 1u << 30; }),
         "buffer view 0 lies outside its buffer"},
        {"vertex.gltf", variant([](GltfBuilder& b) {
             b.bin[36] = 9; // first index now 9, past the three vertices
         }),
         "index past"},
        {"nan.gltf", variant([](GltfBuilder& b) {
             float nan = std::nanf("");
             std::memcpy(b.bin.data() + 4, &nan, 4);
         }),
         "not a number"},
        {"stride.gltf",
         variant([](GltfBuilder& b) { // interleaved: every 16 bytes, the second one not a number
             b.doc["bufferViews"][0]["byteStride"] = 16;
             b.doc["accessors"][0]["count"] = 2;
             float nan = std::nanf("");
             std::memcpy(b.bin.data() + 20, &nan, 4);
         }),
         "not a number"},
        {"matrix.gltf",
         variant([](GltfBuilder& b) { b.doc["nodes"][0]["matrix"] = std::vector<double>(16, 1e39); }),
         "node 0 has a transform that is not finite"},
        {"keys.gltf", variant([](GltfBuilder& b) {
             b.animation("a", {{0, "translation", {0, 1}, {0, 0, 0, std::nanf(""), 0, 0}, "LINEAR"}});
         }),
         "animation 0 channel 0 has a key that is not a number"},
        {"required.gltf", variant([](GltfBuilder& b) {
             b.doc["extensionsRequired"] = {"KHR_draco_mesh_compression"};
             b.doc["meshes"][0]["primitives"][0]["extensions"]["KHR_draco_mesh_compression"] = {
                 {"bufferView", b.bufferView("not Draco data")}, {"attributes", {{"POSITION", 0}}}};
         }),
         "KHR_draco_mesh_compression: its Draco data cannot be decoded"},
        {"unknown.gltf", variant([](GltfBuilder& b) {
             b.doc["extensionsRequired"] = {"KHR_node_visibility", "EXT_x"};
         }),
         "it requires EXT_x, which Tarnvale cannot read"},
        {"material.gltf",
         variant([](GltfBuilder& b) { b.doc["meshes"][0]["primitives"][0]["material"] = 3; }), "material 3"},
        {"sparse.gltf", variant([](GltfBuilder& b) {
             b.doc["meshes"][0]["primitives"][0]["attributes"]["POSITION"] =
                 b.sparse(kTriangle, "VEC3", 3, {3}, {1, 1, 1});
         }),
         "sparse index 3"},
        {"nested.gltf", variant([](GltfBuilder& b) {
             b.doc["extras"] = json::array();
             json* deep = &b.doc["extras"];
             for (int i = 0; i < 2000; ++i)
                 deep = &(*deep = json::array({json::array()}))[0];
         }),
         "nests deeper than 1000"},
        {"chain.gltf", variant([](GltfBuilder& b) {
             // A chain of 100,000 nested nodes: refused quickly, without recursion.
             for (int i = 1; i <= 100000; ++i)
                 b.doc["nodes"].push_back({{"children", {i + 1}}});
             b.doc["nodes"].back().erase("children");
             b.doc["nodes"][0]["children"] = {1};
         }),
         "deeper than 10000 levels"},
    };
    // The checker's outline read, which keeps no geometry, refuses alike.
    for (bool outline : {false, true})
        for (const Row& r : rows) {
            writeFile(d.file(r.name), r.content);
            gltf::ReadOptions options;
            options.outline = outline;
            options.keepImages = true;
            try {
                readScene(d.file(r.name), options);
                ADD_FAILURE() << r.name << " was read" << (outline ? " in outline" : "");
            } catch (const SceneError& e) {
                EXPECT_NE(std::string(e.what()).find(r.reason), std::string::npos)
                    << r.name << ": " << e.what();
            }
        }
    // A .glb's second buffer without data: the message gives the file's binary
    // chunk, never the four bytes the library was shown in its place.
    {
        GltfBuilder b;
        b.node({{"name", "n"}, {"mesh", b.triangles(kTriangle, {0, 1, 2})}});
        const std::string bytes = readFile(b.saveGlb(d.file("two.glb")));
        json doc = json::parse(gltf::glbChunks(bytes).json);
        doc["buffers"].push_back({{"byteLength", 4000}});
        writeFile(d.file("two.glb"), gltf::glbWithJson(bytes, doc.dump()));
        try {
            readScene(d.file("two.glb"));
            ADD_FAILURE() << "two.glb was read";
        } catch (const SceneError& e) {
            const std::string says = e.what(), real = std::to_string(gltf::glbChunks(bytes).binary.size());
            EXPECT_NE(says.find("binary size = " + real), std::string::npos) << says;
        }
    }
    EXPECT_THROW(readScene(d.file("missing.gltf")), SceneError);
    // A .gltf whose .bin is missing.
    good.saveGltf(d.file("nobin.gltf"), "nobin.bin");
    fs::remove(d.file("nobin.bin"));
    EXPECT_THROW(readScene(d.file("nobin.gltf")), SceneError);
}

// Inputs on which fuzzing found a fault: the material edit refuses each with a
// reason and leaves the file byte for byte.
TEST(Fuzzed, TheEditRefusesWhatOnceBrokeIt) {
    TempDir d;
    for (const auto& input : fs::directory_iterator(sourcePath("tests/data/fuzz/glb_edit"))) {
        const std::string bytes = readFile(input.path().string()), path = d.file("edit.glb");
        writeFile(path, bytes);
        EXPECT_THROW(gltf::writeMaterialExtra(path, 0, "FS10", "Power=5"), SceneError) << input.path();
        EXPECT_EQ(readFile(path), bytes) << input.path();
    }
}

} // namespace
} // namespace tarnvale::test
