// glTF into the in-memory scene: the file, its node tree, meshes and bones.
#define TINYGLTF_IMPLEMENTATION
#define TINYGLTF_NO_STB_IMAGE
#define TINYGLTF_NO_STB_IMAGE_WRITE
#define TINYGLTF_NO_EXTERNAL_IMAGE
#define TINYGLTF_NO_INCLUDE_STB_IMAGE
#define TINYGLTF_NO_INCLUDE_STB_IMAGE_WRITE
#include "gltf/internal.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <set>
#include <unordered_map>
#ifndef _WIN32
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>
#endif

namespace tarnvale::gltf {

namespace {

using scene::MemoryObject;
using scene::MemoryShape;
using scene::mirrors;

// Images are never decoded; the bytes of a data: URI are kept when the textures
// are wanted. Those in a buffer view are taken later, checked against the buffer
// (the library hands them over unchecked).
bool keepImageUndecoded(tinygltf::Image* image, const int, std::string*, std::string*, int, int,
                        const unsigned char* bytes, int size, void* keep) {
    if (*static_cast<const bool*>(keep) && image->bufferView < 0 && bytes && size > 0)
        image->image.assign(bytes, bytes + size);
    return true;
}

// How deep arrays and objects nest in JSON text (strings skipped). The library
// turns extras into values by recursion, so deep nesting is refused first.
size_t jsonDepth(std::string_view text) {
    size_t depth = 0, deepest = 0;
    bool inString = false;
    for (size_t i = 0; i < text.size(); ++i) {
        const char c = text[i];
        if (inString) {
            if (c == '\\')
                ++i;
            else if (c == '"')
                inString = false;
        } else if (c == '"') {
            inString = true;
        } else if (c == '[' || c == '{') {
            deepest = std::max(deepest, ++depth);
        } else if ((c == ']' || c == '}') && depth > 0) {
            --depth;
        }
    }
    return deepest;
}

// A file's bytes: mapped where the system allows, which spares a copy and the
// zeroing of fresh pages (a tenth of a second on a scene of 100 MB); else read
// whole in one call, as a character at a time would take long.
class FileBytes {
  public:
    explicit FileBytes(const std::string& path) {
#ifndef _WIN32
        const int fd = ::open(platform::systemPath(path).c_str(), O_RDONLY | O_CLOEXEC);
        struct stat st {};
        if (fd >= 0 && ::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0) {
            void* map = ::mmap(nullptr, static_cast<size_t>(st.st_size), PROT_READ,
                               MAP_PRIVATE | MAP_POPULATE, fd, 0);
            if (map != MAP_FAILED) map_ = map, size_ = static_cast<size_t>(st.st_size);
        }
        if (fd >= 0) ::close(fd);
        if (map_) return;
#endif
        std::ifstream in(platform::systemPath(path), std::ios::binary | std::ios::ate);
        if (!in) throw SceneError("cannot open the file");
        const std::streamoff size = in.tellg();
        if (size < 0) throw SceneError("cannot read the file");
        read_.resize(static_cast<size_t>(size));
        in.seekg(0);
        if (!in.read(read_.data(), size)) throw SceneError("cannot read the file");
    }
    ~FileBytes() {
#ifndef _WIN32
        if (map_) ::munmap(map_, size_);
#endif
    }
    FileBytes(const FileBytes&) = delete;
    FileBytes& operator=(const FileBytes&) = delete;
    std::string_view view() const {
        return map_ ? std::string_view(static_cast<const char*>(map_), size_) : read_;
    }

  private:
    std::string read_;
    void* map_ = nullptr;
    size_t size_ = 0;
};

// A .gltf or .glb held in memory; external files are looked for in `folder`. A
// .glb's buffer 0 may stay in `bytes`, which must then outlive the document.
Document loadModel(std::string_view bytes, const std::string& folder, std::vector<std::string>& warnings,
                   bool keepImages) {
    if (bytes.size() > UINT32_MAX) throw SceneError("the file is larger than 4 GiB");
    const bool binary = bytes.size() >= 4 && bytes.compare(0, 4, "glTF") == 0;
    if (jsonDepth(binary ? glbChunks(bytes).json : bytes) > kMaxJsonDepth)
        throw SceneError("its JSON nests deeper than " + std::to_string(kMaxJsonDepth) + " levels");

    tinygltf::TinyGLTF loader;
    loader.SetImageLoader(keepImageUndecoded, &keepImages);
    Document model;
    std::string_view buffer0;
    const std::optional<std::string> standIn = binary ? glbStandIn(bytes, buffer0) : std::nullopt;
    if (standIn) {
        bytes = *standIn;
        model.glbBuffer = buffer0;
    }
    std::string err, warn;
    bool ok = false;
    try {
        const auto* data = reinterpret_cast<const unsigned char*>(bytes.data());
        ok = binary ? loader.LoadBinaryFromMemory(&model, &err, &warn, data,
                                                  static_cast<unsigned>(bytes.size()), folder)
                    : loader.LoadASCIIFromString(&model, &err, &warn, bytes.data(),
                                                 static_cast<unsigned>(bytes.size()), folder);
    } catch (const std::exception& e) {
        err = e.what();
        ok = false;
    }
    if (!ok) {
        while (!err.empty() && (err.back() == '\n' || err.back() == ' '))
            err.pop_back();
        for (char& c : err)
            if (c == '\n') c = ';';
        throw SceneError(err.empty() ? "not a glTF 2.0 file" : err);
    }
    if (!warn.empty()) warnings.push_back(warn);
    return model;
}

bool finite3(float x, float y, float z) {
    return std::isfinite(x) && std::isfinite(y) && std::isfinite(z);
}

// 3D vectors of an accessor with x mirrored; fails on a value that is not finite.
void readMirrored(const AccessorView& a, std::vector<Vec3>& out, const std::string& notANumber) {
    out.resize(a.count());
    for (size_t i = 0; i < a.count(); ++i) {
        const float x = a.component(i, 0), y = a.component(i, 1), z = a.component(i, 2);
        if (!finite3(x, y, z)) throw SceneError(notANumber);
        out[i] = {-x, y, z};
    }
}

// Quaternion (x, y, z, w) and scale to the upper 3x3 rows of an X matrix.
Matrix16 composeTrs(const std::vector<double>& t, const std::vector<double>& r,
                    const std::vector<double>& s) {
    double x = r.size() == 4 ? r[0] : 0, y = r.size() == 4 ? r[1] : 0, z = r.size() == 4 ? r[2] : 0,
           w = r.size() == 4 ? r[3] : 1;
    double R[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)},
                      {2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)},
                      {2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)}};
    double sc[3] = {s.size() == 3 ? s[0] : 1, s.size() == 3 ? s[1] : 1, s.size() == 3 ? s[2] : 1};
    Matrix16 m{};
    // Row vectors: row c of the X matrix is column c of the glTF matrix.
    for (int c = 0; c < 3; ++c)
        for (int rr = 0; rr < 3; ++rr)
            m[c * 4 + rr] = static_cast<float>(R[rr][c] * sc[c]);
    for (int i = 0; i < 3; ++i)
        m[12 + i] = static_cast<float>(t.size() == 3 ? t[i] : 0);
    m[15] = 1;
    return m;
}

// S M S with S = diag(-1, 1, 1, 1): the x row and x column change sign, except
// their shared element.
Matrix16 mirrorX(Matrix16 m) {
    for (int i : {1, 2, 3, 4, 8, 12})
        m[i] = -m[i];
    return m;
}

// Brings a skinned shape's positions and normals into its node's frame: each
// vertex by the blend of its joints' matrices by its weights (the first joint's
// when it has none); a normal by the inverse transpose of its vertex's blend.
void placeSkinnedVertices(MemoryShape& shape, const std::vector<VertexWeight>& weights,
                          const std::vector<size_t>& jointOf, const std::vector<Matrix16>& toNode,
                          const std::vector<int32_t>& normalVertex) {
    if (toNode.empty()) return;
    const size_t n = shape.positions().size();
    std::vector<std::array<double, 12>> blend(n, std::array<double, 12>{});
    std::vector<double> total(n, 0);
    for (size_t k = 0; k < weights.size(); ++k) {
        const auto v = static_cast<size_t>(weights[k].vertex);
        const Matrix16& m = toNode[jointOf[k]];
        for (int r = 0; r < 4; ++r)
            for (int c = 0; c < 3; ++c)
                blend[v][r * 3 + c] += weights[k].weight * m[r * 4 + c];
        total[v] += weights[k].weight;
    }
    for (size_t v = 0; v < n; ++v)
        if (total[v] == 0)
            for (int r = 0; r < 4; ++r)
                for (int c = 0; c < 3; ++c)
                    blend[v][r * 3 + c] = toNode[0][r * 4 + c];
    for (size_t v = 0; v < n; ++v) {
        Vec3& p = shape.positions()[v];
        const auto& b = blend[v];
        p = {static_cast<float>(p.x * b[0] + p.y * b[3] + p.z * b[6] + b[9]),
             static_cast<float>(p.x * b[1] + p.y * b[4] + p.z * b[7] + b[10]),
             static_cast<float>(p.x * b[2] + p.y * b[5] + p.z * b[8] + b[11])};
    }
    for (size_t i = 0; i < shape.normals().size() && i < normalVertex.size(); ++i) {
        const auto& b = blend[static_cast<size_t>(normalVertex[i])];
        // Cofactors over the determinant: the inverse transpose, for row vectors.
        const double cof[9] = {
            b[4] * b[8] - b[5] * b[7], b[5] * b[6] - b[3] * b[8], b[3] * b[7] - b[4] * b[6],
            b[2] * b[7] - b[1] * b[8], b[0] * b[8] - b[2] * b[6], b[1] * b[6] - b[0] * b[7],
            b[1] * b[5] - b[2] * b[4], b[2] * b[3] - b[0] * b[5], b[0] * b[4] - b[1] * b[3]};
        const double det = b[0] * cof[0] + b[1] * cof[1] + b[2] * cof[2];
        Vec3& nm = shape.normals()[i];
        double x = (nm.x * cof[0] + nm.y * cof[3] + nm.z * cof[6]) / det,
               y = (nm.x * cof[1] + nm.y * cof[4] + nm.z * cof[7]) / det,
               z = (nm.x * cof[2] + nm.y * cof[5] + nm.z * cof[8]) / det;
        const double len = std::sqrt(x * x + y * y + z * z);
        if (len > 0 && std::isfinite(len))
            nm = {static_cast<float>(x / len), static_cast<float>(y / len), static_cast<float>(z / len)};
    }
}

class Builder {
  public:
    Builder(const Document& model, LoadedScene& out, const ReadOptions& options)
        : model_(model), out_(out), options_(options) {}

    // The scene's name when it has none, and the folder its external files are in.
    void build(const std::string& fallbackName, const std::string& folder);

  private:
    // A node still to be added below `parent`, whose world transform mirrors or not.
    struct Pending {
        MemoryObject* parent;
        int index;
        bool parentMirrors;
        size_t depth;
    };

    const Document& model_;
    LoadedScene& out_;
    const ReadOptions& options_;
    std::optional<MaterialMap> materials_;
    // Shapes of a mesh, per winding: a mirroring node needs its corners the other way.
    std::map<std::pair<int, bool>, std::vector<std::shared_ptr<MemoryShape>>> meshShapes_;
    std::set<int> joints_;
    std::set<std::pair<int, size_t>> warnedPrimitives_;
    std::vector<bool> visited_;
    std::unordered_map<const MemoryObject*, SiblingNames> siblingNames_;
    std::map<int, NodeKeys> keys_;

    void checkNode(int index, const std::string& where) const {
        if (index < 0 || static_cast<size_t>(index) >= model_.nodes.size())
            throw SceneError(where + " names node " + std::to_string(index) + ", which does not exist");
    }
    void addTree(MemoryObject& root, const std::vector<int>& roots);
    // Adds the node below its parent; tells whether its world transform mirrors.
    std::shared_ptr<MemoryObject> addNode(const Pending& p, bool& worldMirrors);
    // A skinned mesh waiting for the tree: its shape depends on the joints' places.
    struct Skinned {
        MemoryObject* node;
        int mesh, skin;
    };
    std::vector<Skinned> skinned_;
    std::vector<MemoryObject*> objects_; // by glTF node index

    const std::vector<std::shared_ptr<MemoryShape>>& meshShapes(int meshIndex, bool mirrored);
    const MeshOutline& meshOutline(int meshIndex);
    std::map<int, MeshOutline> outlines_;
    // Appends a triangle primitive's vertices and triangles to the shape; for each
    // normal added, `normalVertex` gets the vertex whose frame it belongs to. With
    // an outline, checks them as well and only counts them there.
    bool appendPrimitive(MemoryShape& shape, int meshIndex, size_t p, bool mirrored,
                         std::vector<int32_t>& normalVertex, MeshOutline* outline = nullptr);
    void addTriangles(MemoryShape& shape, const tinygltf::Primitive& prim, size_t base, size_t n,
                      bool haveNormals, const std::string& what, bool mirrored,
                      std::vector<int32_t>& normalVertex, MeshOutline* outline);
    void addSkinnedShape(const Skinned& s);
    // The weights of a primitive's vertices, and the joint of each.
    void readWeights(const tinygltf::Primitive& prim, const tinygltf::Skin& skin, size_t base, size_t count,
                     const std::string& what, std::vector<VertexWeight>& out, std::vector<size_t>& jointOf);
};

void Builder::build(const std::string& fallbackName, const std::string& folder) {
    int sceneIndex = model_.defaultScene >= 0 ? model_.defaultScene : (model_.scenes.empty() ? -1 : 0);
    if (sceneIndex >= static_cast<int>(model_.scenes.size()))
        throw SceneError("the default scene does not exist");
    std::string rootName = sceneIndex >= 0 && !model_.scenes[sceneIndex].name.empty()
                               ? model_.scenes[sceneIndex].name
                               : fallbackName;
    out_.scene = scene::MemoryScene::create(identifierName(rootName));
    out_.scene->root()->setSourceName(rootName);
    out_.scene->setUnits(scene::kMetres);
    materials_.emplace(model_, *out_.scene, options_, folder);

    for (size_t s = 0; s < model_.skins.size(); ++s)
        for (int j : model_.skins[s].joints) {
            checkNode(j, "skin " + std::to_string(s));
            joints_.insert(j);
        }
    keys_ = readAnimationKeys(model_, options_, out_.warnings);

    std::vector<int> roots;
    if (sceneIndex >= 0) {
        roots = model_.scenes[sceneIndex].nodes;
    } else {
        std::vector<bool> isChild(model_.nodes.size(), false);
        for (const auto& n : model_.nodes)
            for (int c : n.children)
                if (c >= 0 && static_cast<size_t>(c) < isChild.size()) isChild[c] = true;
        for (size_t i = 0; i < model_.nodes.size(); ++i)
            if (!isChild[i]) roots.push_back(static_cast<int>(i));
    }
    addTree(*out_.scene->root(), roots);
    for (const Skinned& s : skinned_)
        addSkinnedShape(s);
    materials_->collect(out_);
}

void Builder::addTree(MemoryObject& root, const std::vector<int>& roots) {
    // Depth first with a stack of its own, children in file order: a chain of any
    // length costs no call depth.
    visited_.assign(model_.nodes.size(), false);
    objects_.assign(model_.nodes.size(), nullptr);
    std::vector<Pending> stack;
    for (auto it = roots.rbegin(); it != roots.rend(); ++it) {
        checkNode(*it, "the scene");
        stack.push_back({&root, *it, false, 1});
    }
    while (!stack.empty()) {
        const Pending p = stack.back();
        stack.pop_back();
        if (p.depth > kMaxNodeDepth)
            throw SceneError("its node tree is deeper than " + std::to_string(kMaxNodeDepth) + " levels");
        bool worldMirrors = false;
        std::shared_ptr<MemoryObject> obj = addNode(p, worldMirrors);
        const std::vector<int>& children = model_.nodes[p.index].children;
        for (auto it = children.rbegin(); it != children.rend(); ++it) {
            checkNode(*it, "node " + std::to_string(p.index));
            stack.push_back({obj.get(), *it, worldMirrors, p.depth + 1});
        }
    }
}

std::shared_ptr<MemoryObject> Builder::addNode(const Pending& p, bool& worldMirrors) {
    const int index = p.index;
    if (visited_[index])
        throw SceneError("node " + std::to_string(index) + " appears twice in the hierarchy");
    visited_[index] = true;
    const tinygltf::Node& n = model_.nodes[index];
    const std::string name = nodeName(model_, index);
    auto obj = p.parent->addChild(siblingNames_[p.parent].take(identifierName(name)));
    obj->setSourceName(name);
    objects_[index] = obj.get();

    Matrix16 m{};
    const auto keyed = keys_.find(index);
    if (n.matrix.size() == 16) {
        // Column-major glTF storage is the row-vector order of the X format.
        for (int i = 0; i < 16; ++i)
            m[i] = static_cast<float>(n.matrix[i]);
    } else if (keyed != keys_.end()) {
        // An animated part stands where its animation starts, as a modeller shows
        // it: its keys are written relative to that pose, and skins follow it.
        const NodeKeys& k = keyed->second;
        m = composeTrs(
            k.translation ? std::vector<double>(k.translation->begin(), k.translation->end()) : n.translation,
            k.rotation ? std::vector<double>(k.rotation->begin(), k.rotation->end()) : n.rotation, n.scale);
    } else {
        m = composeTrs(n.translation, n.rotation, n.scale);
    }
    for (float v : m)
        if (!std::isfinite(v))
            throw SceneError("node " + std::to_string(index) + " has a transform that is not finite");
    obj->setMatrix(mirrorX(m));
    worldMirrors = p.parentMirrors != mirrors(m);

    bool visible = true;
    if (auto it = n.extensions.find("KHR_node_visibility"); it != n.extensions.end()) {
        const tinygltf::Value& v = it->second;
        if (v.IsObject() && v.Has("visible") && v.Get("visible").IsBool() && !v.Get("visible").Get<bool>())
            visible = false;
    }
    // A modeller that keeps no booleans in custom properties (Blender) writes 0.
    if (const tinygltf::Value& v =
            n.extras.IsObject() && n.extras.Has("visible") ? n.extras.Get("visible") : tinygltf::Value();
        (v.IsBool() && !v.Get<bool>()) || (v.IsNumber() && v.GetNumberAsDouble() == 0))
        visible = false;
    obj->setNodeValue(visible ? 1 : 0);
    if (n.extras.IsObject())
        for (const std::string& key : n.extras.Keys())
            if (const tinygltf::Value& v = n.extras.Get(key); v.IsString())
                obj->setFieldText(out_.scene->fields().addObject(key), v.Get<std::string>());

    if (n.mesh >= 0) {
        if (static_cast<size_t>(n.mesh) >= model_.meshes.size())
            throw SceneError("node " + std::to_string(index) + " names mesh " + std::to_string(n.mesh) +
                             ", which does not exist");
        if (n.skin >= 0 && static_cast<size_t>(n.skin) < model_.skins.size())
            skinned_.push_back({obj.get(), n.mesh, n.skin});
        else if (options_.outline)
            out_.outlines[obj.get()] = meshOutline(n.mesh);
        else
            for (const auto& shape : meshShapes(n.mesh, worldMirrors))
                obj->addShapeLast(shape);
    }
    if (joints_.count(index))
        obj->addShapeLast(std::make_shared<MemoryShape>(scene::kGeometryOther, kTypeCodeBone));
    if (keyed != keys_.end()) obj->setKeyframes(std::move(keyed->second.keys));
    return obj;
}

const std::vector<std::shared_ptr<MemoryShape>>& Builder::meshShapes(int meshIndex, bool mirrored) {
    auto it = meshShapes_.find({meshIndex, mirrored});
    if (it != meshShapes_.end()) return it->second;
    std::vector<std::shared_ptr<MemoryShape>> shapes;
    std::vector<int32_t> normalVertex;
    for (size_t p = 0; p < model_.meshes[meshIndex].primitives.size(); ++p) {
        auto shape = std::make_shared<MemoryShape>();
        if (appendPrimitive(*shape, meshIndex, p, mirrored, normalVertex)) shapes.push_back(shape);
    }
    return meshShapes_[{meshIndex, mirrored}] = std::move(shapes);
}

const MeshOutline& Builder::meshOutline(int meshIndex) {
    auto it = outlines_.find(meshIndex);
    if (it != outlines_.end()) return it->second;
    MeshOutline outline;
    MemoryShape unused;
    std::vector<int32_t> noNormals;
    for (size_t p = 0; p < model_.meshes[meshIndex].primitives.size(); ++p)
        appendPrimitive(unused, meshIndex, p, false, noNormals, &outline);
    return outlines_[meshIndex] = std::move(outline);
}

bool Builder::appendPrimitive(MemoryShape& shape, int meshIndex, size_t p, bool mirrored,
                              std::vector<int32_t>& normalVertex, MeshOutline* outline) {
    const std::string what = "mesh " + std::to_string(meshIndex) + " primitive " + std::to_string(p);
    const tinygltf::Primitive& prim = model_.meshes[meshIndex].primitives[p];
    const int mode = prim.mode < 0 ? TINYGLTF_MODE_TRIANGLES : prim.mode;
    if (mode != TINYGLTF_MODE_TRIANGLES && mode != TINYGLTF_MODE_TRIANGLE_STRIP &&
        mode != TINYGLTF_MODE_TRIANGLE_FAN) {
        // Told once, whichever winding or node asks first.
        if (warnedPrimitives_.insert({meshIndex, p}).second)
            out_.warnings.push_back(what + ": points and lines are skipped");
        return false;
    }
    auto posIt = prim.attributes.find("POSITION");
    if (posIt == prim.attributes.end()) throw SceneError(what + " has no POSITION");
    AccessorView pos(model_, posIt->second, what + " POSITION");
    if (pos.components() < 3) throw SceneError(what + " POSITION is not a 3D vector");
    const size_t n = pos.count(), base = outline ? 0 : shape.positions().size();
    if (n + base > static_cast<size_t>(INT32_MAX / 2)) throw SceneError(what + " has too many vertices");

    std::vector<Vec3> read;
    if (outline && !pos.finite(3)) throw SceneError(what + " has a coordinate that is not a number");
    if (!outline) {
        readMirrored(pos, read, what + " has a coordinate that is not a number");
        shape.positions().insert(shape.positions().end(), read.begin(), read.end());
        shape.uvs().resize(base + n, Uv{});
    }
    if (auto it = prim.attributes.find("TEXCOORD_0"); it != prim.attributes.end()) {
        AccessorView tc(model_, it->second, what + " TEXCOORD_0");
        if (tc.count() != n || tc.components() < 2)
            throw SceneError(what + " TEXCOORD_0 does not match POSITION");
        if (outline && !tc.finite(2))
            throw SceneError(what + " has a texture coordinate that is not a number");
        for (size_t i = 0; i < n && !outline; ++i) {
            const Uv uv{tc.component(i, 0), tc.component(i, 1)};
            if (!std::isfinite(uv.u) || !std::isfinite(uv.v))
                throw SceneError(what + " has a texture coordinate that is not a number");
            if (!outline) shape.uvs()[base + i] = uv;
        }
    }
    bool haveNormals = false;
    if (auto it = prim.attributes.find("NORMAL"); it != prim.attributes.end()) {
        AccessorView nm(model_, it->second, what + " NORMAL");
        if (nm.count() != n || nm.components() < 3)
            throw SceneError(what + " NORMAL does not match POSITION");
        if (outline && !nm.finite(3)) throw SceneError(what + " has a normal that is not a number");
        if (!outline) {
            readMirrored(nm, read, what + " has a normal that is not a number");
            shape.normals().insert(shape.normals().end(), read.begin(), read.end());
            for (size_t i = 0; i < n; ++i)
                normalVertex.push_back(static_cast<int32_t>(base + i));
        }
        haveNormals = true;
    }
    addTriangles(shape, prim, base, n, haveNormals, what, mirrored, normalVertex, outline);
    return true;
}

void Builder::addTriangles(MemoryShape& shape, const tinygltf::Primitive& prim, size_t base, size_t n,
                           bool haveNormals, const std::string& what, bool mirrored,
                           std::vector<int32_t>& normalVertex, MeshOutline* outline) {
    // The triangles of the primitive, read straight from the index accessor.
    const auto& positions = shape.positions();
    std::optional<AccessorView> ia;
    size_t indexCount = n;
    if (prim.indices >= 0) {
        ia.emplace(model_, prim.indices, what + " indices");
        if (ia->components() != 1) throw SceneError(what + " indices are not scalars");
        indexCount = ia->count();
    }
    auto indexAt = [&](size_t i) -> int32_t {
        const uint32_t v = ia ? ia->index(i) : static_cast<uint32_t>(i);
        if (v >= n) throw SceneError(what + " has an index past its last vertex");
        return static_cast<int32_t>(v + base);
    };
    const int mode = prim.mode < 0 ? TINYGLTF_MODE_TRIANGLES : prim.mode;
    const size_t triangles = indexCount < 3                    ? 0
                             : mode == TINYGLTF_MODE_TRIANGLES ? indexCount / 3
                                                               : indexCount - 2;
    const auto mat = materials_->get(prim.material);
    if (outline) {
        // Counted, with the indices the triangles use checked as the full read checks them.
        const size_t used = mode == TINYGLTF_MODE_TRIANGLES ? 3 * triangles
                            : triangles > 0                 ? triangles + 2
                                                            : 0;
        if (used > 0 && (ia ? ia->largestIndex(used) : used - 1) >= n)
            throw SceneError(what + " has an index past its last vertex");
        outline->vertices += n;
        outline->triangles += triangles;
        if (triangles > 0 &&
            std::find(outline->materials.begin(), outline->materials.end(), mat) == outline->materials.end())
            outline->materials.push_back(mat);
        return;
    }
    shape.reserve(triangles, triangles * 3);
    if (!haveNormals) shape.normals().reserve(triangles);
    for (size_t i = 0; i < triangles; ++i) {
        int32_t a, b, c;
        if (mode == TINYGLTF_MODE_TRIANGLES) {
            a = indexAt(3 * i), b = indexAt(3 * i + 1), c = indexAt(3 * i + 2);
        } else if (mode == TINYGLTF_MODE_TRIANGLE_STRIP) {
            // Every other strip triangle swaps its first two corners to keep the winding.
            a = indexAt(i % 2 ? i + 1 : i), b = indexAt(i % 2 ? i : i + 1), c = indexAt(i + 2);
        } else {
            a = indexAt(0), b = indexAt(i + 1), c = indexAt(i + 2);
        }
        int32_t na = a, nb = b, nc = c;
        if (haveNormals) {
            // The primitive's normals were the last added, one per vertex.
            const auto shift = static_cast<int32_t>(shape.normals().size() - n - base);
            na += shift, nb += shift, nc += shift;
        } else {
            // The face normal of the glTF triangle, mirrored like the positions. A
            // mirroring node shows the same side in front, so it keeps this normal.
            const Vec3 p0 = positions[a], p1 = positions[b], p2 = positions[c];
            double ux = -(p1.x - p0.x), uy = p1.y - p0.y, uz = p1.z - p0.z;
            double vx = -(p2.x - p0.x), vy = p2.y - p0.y, vz = p2.z - p0.z;
            double nx = uy * vz - uz * vy, ny = uz * vx - ux * vz, nz = ux * vy - uy * vx;
            double len = std::sqrt(nx * nx + ny * ny + nz * nz);
            if (len > 0) nx /= len, ny /= len, nz /= len;
            shape.normals().push_back(
                {static_cast<float>(-nx), static_cast<float>(ny), static_cast<float>(nz)});
            na = nb = nc = static_cast<int32_t>(shape.normals().size() - 1);
            normalVertex.push_back(a);
        }
        // The x mirror turns the winding over; a mirroring node turns it back.
        const MemoryShape::Corner plain[3] = {{a, na, a}, {c, nc, c}, {b, nb, b}};
        const MemoryShape::Corner turned[3] = {{a, na, a}, {b, nb, b}, {c, nc, c}};
        shape.addPolygon(mat, mirrored ? turned : plain);
    }
}

void Builder::readWeights(const tinygltf::Primitive& prim, const tinygltf::Skin& skin, size_t base,
                          size_t count, const std::string& what, std::vector<VertexWeight>& out,
                          std::vector<size_t>& jointOf) {
    // Every set of four influences, not only the first; zero weights are none.
    std::vector<std::pair<AccessorView, AccessorView>> sets;
    for (int k = 0;; ++k) {
        auto joints = prim.attributes.find("JOINTS_" + std::to_string(k));
        auto weights = prim.attributes.find("WEIGHTS_" + std::to_string(k));
        if (joints == prim.attributes.end() || weights == prim.attributes.end()) break;
        sets.emplace_back(AccessorView(model_, joints->second, what + " JOINTS_" + std::to_string(k)),
                          AccessorView(model_, weights->second, what + " WEIGHTS_" + std::to_string(k)));
        const auto& [j, w] = sets.back();
        if (j.count() != count || w.count() != count || j.components() != 4 || w.components() != 4)
            throw SceneError(what + " JOINTS_" + std::to_string(k) + " or WEIGHTS_" + std::to_string(k) +
                             " does not match POSITION");
    }
    for (size_t v = 0; v < count; ++v)
        for (const auto& [joints, weights] : sets)
            for (int c = 0; c < 4; ++c) {
                const float w = weights.component(v, c);
                if (!std::isfinite(w)) throw SceneError(what + " has a weight that is not a number");
                if (w == 0) continue;
                const auto j = static_cast<size_t>(joints.component(v, c));
                if (j >= skin.joints.size() || !objects_[static_cast<size_t>(skin.joints[j])])
                    throw SceneError(what + " names joint " + std::to_string(j) + ", which its skin lacks");
                out.push_back(
                    {static_cast<int32_t>(base + v), objects_[skin.joints[j]]->shared_from_this(), w});
                jointOf.push_back(j);
            }
}

void Builder::addSkinnedShape(const Skinned& s) {
    const tinygltf::Skin& skin = model_.skins[static_cast<size_t>(s.skin)];
    const std::string what = "skin " + std::to_string(s.skin);
    // Per joint, from the mesh's bind space into its node's frame as the skin
    // places it at rest: inverse bind matrix, joint's world, node's world undone.
    std::optional<AccessorView> ibm;
    if (skin.inverseBindMatrices >= 0) {
        ibm.emplace(model_, skin.inverseBindMatrices, what + " inverse bind matrices");
        if (ibm->components() != 16 || ibm->count() < skin.joints.size())
            throw SceneError(what + " inverse bind matrices do not match its joints");
    }
    Matrix16 nodeInverse;
    try {
        nodeInverse = scene::inverse(s.node->GetRelativeMatrix(nullptr, 0));
    } catch (const Failure&) {
        throw SceneError("the node of " + what + " has a transform without an inverse");
    }
    std::vector<Matrix16> toNode;
    Matrix16 bindToWorld{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    for (size_t j = 0; j < skin.joints.size(); ++j) {
        checkNode(skin.joints[j], what);
        Matrix16 b{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
        if (ibm)
            for (int i = 0; i < 16; ++i)
                b[i] = ibm->component(j, i);
        for (float v : b)
            if (!std::isfinite(v)) throw SceneError(what + " has an inverse bind matrix that is not finite");
        MemoryObject* joint = objects_[static_cast<size_t>(skin.joints[j])];
        // A joint outside the scene's tree stands where the mesh's node does.
        const Matrix16 world =
            scene::multiply(mirrorX(b), (joint ? joint : s.node)->GetRelativeMatrix(nullptr, 0));
        if (j == 0) bindToWorld = world;
        toNode.push_back(scene::multiply(world, nodeInverse));
    }
    // Where the skin's rest places it mirrors, glTF counts its triangles clockwise.
    auto shape = std::make_shared<MemoryShape>();
    std::vector<int32_t> normalVertex;
    std::vector<VertexWeight> weights;
    std::vector<size_t> jointOf; // of each weight
    for (size_t p = 0; p < model_.meshes[s.mesh].primitives.size(); ++p) {
        const size_t base = shape->positions().size();
        if (!appendPrimitive(*shape, s.mesh, p, mirrors(bindToWorld), normalVertex)) continue;
        readWeights(model_.meshes[s.mesh].primitives[p], skin, base, shape->positions().size() - base, what,
                    weights, jointOf);
    }
    placeSkinnedVertices(*shape, weights, jointOf, toNode, normalVertex);
    shape->setWeights(weights);
    s.node->addShapeFirst(shape);
}

} // namespace

float powerFromRoughness(float roughness) {
    double r = std::clamp(static_cast<double>(roughness), 0.0, 1.0);
    double r4 = r * r * r * r;
    double exponent = r4 > 0 ? std::min(249.0, 2.0 / r4 - 2.0) : 249.0;
    if (exponent < 1.0) return 0.0f;
    return static_cast<float>(250.0 - exponent);
}

LoadedScene readScene(const std::string& path, const ReadOptions& options) {
    LoadedScene out;
    const std::string folder = platform::utf8Path(platform::systemPath(path).parent_path());
    const FileBytes bytes(path);
    const Document model = loadModel(bytes.view(), folder, out.warnings, options.keepImages);
    Builder(model, out, options).build(platform::utf8Path(platform::systemPath(path).stem()), folder);
    return out;
}

LoadedScene readSceneText(const std::string& text, const std::string& name, const ReadOptions& options) {
    LoadedScene out;
    const Document model = loadModel(text, ".", out.warnings, options.keepImages);
    Builder(model, out, options).build(name, ".");
    return out;
}

} // namespace tarnvale::gltf
