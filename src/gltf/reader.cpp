// glTF into the in-memory scene: nodes, meshes, materials, fields, bones, keys.
#define TINYGLTF_IMPLEMENTATION
#define TINYGLTF_NO_STB_IMAGE
#define TINYGLTF_NO_STB_IMAGE_WRITE
#define TINYGLTF_NO_EXTERNAL_IMAGE
#define TINYGLTF_NO_INCLUDE_STB_IMAGE
#define TINYGLTF_NO_INCLUDE_STB_IMAGE_WRITE
#include "gltf/accessors.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <set>

namespace tarnvale::gltf {

namespace {

using scene::MemoryMaterial;
using scene::MemoryObject;
using scene::MemoryShape;
using scene::MemoryTextures;

// Images are only named, never decoded.
bool keepImageUndecoded(tinygltf::Image*, const int, std::string*, std::string*, int, int, const unsigned char*, int,
                        void*) {
    return true;
}

tinygltf::Model loadModel(const std::string& path, std::vector<std::string>& warnings) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw SceneError("cannot open the file");
    char magic[4] = {};
    in.read(magic, 4);
    bool binary = in.gcount() == 4 && std::string_view(magic, 4) == "glTF";
    in.close();

    tinygltf::TinyGLTF loader;
    loader.SetImageLoader(keepImageUndecoded, nullptr);
    tinygltf::Model model;
    std::string err, warn;
    bool ok = false;
    try {
        ok = binary ? loader.LoadBinaryFromFile(&model, &err, &warn, path)
                    : loader.LoadASCIIFromFile(&model, &err, &warn, path);
    } catch (const std::exception& e) {
        err = e.what();
        ok = false;
    }
    if (!ok) {
        while (!err.empty() && (err.back() == '\n' || err.back() == ' ')) err.pop_back();
        for (char& c : err)
            if (c == '\n') c = ';';
        throw SceneError(err.empty() ? "not a glTF 2.0 file" : err);
    }
    if (!warn.empty()) warnings.push_back(warn);
    return model;
}

bool finite3(float x, float y, float z) { return std::isfinite(x) && std::isfinite(y) && std::isfinite(z); }

// 3D vectors of an accessor with x mirrored; fails on a value that is not finite.
void readMirrored(const AccessorView& a, std::vector<Vec3>& out, const std::string& notANumber) {
    out.resize(a.count());
    for (size_t i = 0; i < a.count(); ++i) {
        const float x = a.component(i, 0), y = a.component(i, 1), z = a.component(i, 2);
        if (!finite3(x, y, z)) throw SceneError(notANumber);
        out[i] = {-x, y, z};
    }
}

std::string percentDecode(const std::string& s) {
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '%' && i + 2 < s.size() && std::isxdigit(static_cast<unsigned char>(s[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(s[i + 2]))) {
            out += static_cast<char>(std::stoi(s.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            out += s[i];
        }
    }
    return out;
}

std::string extensionFor(const std::string& mimeType) {
    if (mimeType == "image/jpeg") return ".jpg";
    if (mimeType == "image/png") return ".png";
    if (mimeType == "image/webp") return ".webp";
    if (mimeType == "image/ktx2") return ".ktx2";
    if (mimeType == "image/vnd-ms.dds") return ".dds";
    return ".png";
}

// Quaternion (x, y, z, w) and scale to the upper 3x3 rows of an X matrix.
Matrix16 composeTrs(const std::vector<double>& t, const std::vector<double>& r, const std::vector<double>& s) {
    double x = r.size() == 4 ? r[0] : 0, y = r.size() == 4 ? r[1] : 0, z = r.size() == 4 ? r[2] : 0,
           w = r.size() == 4 ? r[3] : 1;
    double R[3][3] = {{1 - 2 * (y * y + z * z), 2 * (x * y - z * w), 2 * (x * z + y * w)},
                      {2 * (x * y + z * w), 1 - 2 * (x * x + z * z), 2 * (y * z - x * w)},
                      {2 * (x * z - y * w), 2 * (y * z + x * w), 1 - 2 * (x * x + y * y)}};
    double sc[3] = {s.size() == 3 ? s[0] : 1, s.size() == 3 ? s[1] : 1, s.size() == 3 ? s[2] : 1};
    Matrix16 m{};
    // Row vectors: row c of the X matrix is column c of the glTF matrix.
    for (int c = 0; c < 3; ++c)
        for (int rr = 0; rr < 3; ++rr) m[c * 4 + rr] = static_cast<float>(R[rr][c] * sc[c]);
    for (int i = 0; i < 3; ++i) m[12 + i] = static_cast<float>(t.size() == 3 ? t[i] : 0);
    m[15] = 1;
    return m;
}

// S M S with S = diag(-1, 1, 1, 1): the x row and x column change sign, except
// their shared element.
Matrix16 mirrorX(Matrix16 m) {
    for (int i : {1, 2, 3, 4, 8, 12}) m[i] = -m[i];
    return m;
}

class Builder {
public:
    Builder(const tinygltf::Model& model, LoadedScene& out, const ReadOptions& options)
        : model_(model), out_(out), options_(options) {}

    void build(const std::string& fallbackName);

private:
    const tinygltf::Model& model_;
    LoadedScene& out_;
    const ReadOptions& options_;
    std::map<int, std::shared_ptr<MemoryMaterial>> materials_;
    std::shared_ptr<MemoryMaterial> defaultMaterial_;
    std::map<int, std::vector<std::shared_ptr<MemoryShape>>> meshShapes_;
    std::set<int> joints_;
    std::set<int> visited_;
    std::map<int, std::vector<KeyRecord>> keys_;

    void checkNode(int index, const std::string& where) const {
        if (index < 0 || static_cast<size_t>(index) >= model_.nodes.size())
            throw SceneError(where + " names node " + std::to_string(index) + ", which does not exist");
    }
    void addNode(MemoryObject& parent, int index);
    void readFields(const tinygltf::Value& extras, bool material, std::map<int32_t, std::string>* materialFields,
                    MemoryObject* object);
    std::shared_ptr<MemoryMaterial> material(int index);
    std::string textureName(int textureIndex, const std::string& materialName, const char* slot);
    const std::vector<std::shared_ptr<MemoryShape>>& meshShapes(int meshIndex);
    std::shared_ptr<MemoryShape> primitiveShape(const tinygltf::Primitive& p, const std::string& what);
    void addTriangles(MemoryShape& shape, const tinygltf::Primitive& prim, bool haveNormals, const std::string& what);
    void readAnimations();
};

void Builder::build(const std::string& fallbackName) {
    int sceneIndex = model_.defaultScene >= 0 ? model_.defaultScene : (model_.scenes.empty() ? -1 : 0);
    if (sceneIndex >= static_cast<int>(model_.scenes.size())) throw SceneError("the default scene does not exist");
    std::string rootName = sceneIndex >= 0 && !model_.scenes[sceneIndex].name.empty()
                               ? model_.scenes[sceneIndex].name
                               : fallbackName;
    out_.scene = scene::MemoryScene::create(rootName);
    out_.scene->setUnits(scene::kMetres);

    for (size_t s = 0; s < model_.skins.size(); ++s)
        for (int j : model_.skins[s].joints) {
            checkNode(j, "skin " + std::to_string(s));
            joints_.insert(j);
        }
    readAnimations();

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
    for (int r : roots) {
        checkNode(r, "the scene");
        addNode(*out_.scene->root(), r);
    }
}

void Builder::readFields(const tinygltf::Value& extras, bool material, std::map<int32_t, std::string>* materialFields,
                         MemoryObject* object) {
    if (!extras.IsObject()) return;
    for (const std::string& key : extras.Keys()) {
        const tinygltf::Value& v = extras.Get(key);
        if (!v.IsString()) continue;
        if (material) (*materialFields)[out_.scene->fields().addMaterial(key)] = v.Get<std::string>();
        else object->setFieldText(out_.scene->fields().addObject(key), v.Get<std::string>());
    }
}

void Builder::addNode(MemoryObject& parent, int index) {
    if (!visited_.insert(index).second)
        throw SceneError("node " + std::to_string(index) + " appears twice in the hierarchy");
    const tinygltf::Node& n = model_.nodes[index];
    auto obj = parent.addChild(n.name.empty() ? "node_" + std::to_string(index) : n.name);

    Matrix16 m{};
    if (n.matrix.size() == 16) {
        // Column-major glTF storage is the row-vector order of the X format.
        for (int i = 0; i < 16; ++i) m[i] = static_cast<float>(n.matrix[i]);
    } else {
        m = composeTrs(n.translation, n.rotation, n.scale);
    }
    for (float v : m)
        if (!std::isfinite(v)) throw SceneError("node " + std::to_string(index) + " has a transform that is not finite");
    obj->setMatrix(mirrorX(m));

    bool visible = true;
    if (auto it = n.extensions.find("KHR_node_visibility"); it != n.extensions.end()) {
        const tinygltf::Value& v = it->second.Get("visible");
        if (v.IsBool() && !v.Get<bool>()) visible = false;
    }
    if (n.extras.IsObject() && n.extras.Has("visible") && n.extras.Get("visible").IsBool() &&
        !n.extras.Get("visible").Get<bool>())
        visible = false;
    obj->setNodeValue(visible ? 1 : 0);
    readFields(n.extras, false, nullptr, obj.get());

    if (n.mesh >= 0) {
        if (static_cast<size_t>(n.mesh) >= model_.meshes.size())
            throw SceneError("node " + std::to_string(index) + " names mesh " + std::to_string(n.mesh) +
                             ", which does not exist");
        for (const auto& shape : meshShapes(n.mesh)) obj->addShapeLast(shape);
    }
    if (joints_.count(index))
        obj->addShapeLast(std::make_shared<MemoryShape>(scene::kGeometryOther, kTypeCodeBone));
    if (auto it = keys_.find(index); it != keys_.end()) obj->setKeyframes(std::move(it->second));

    for (int c : n.children) {
        checkNode(c, "node " + std::to_string(index));
        addNode(*obj, c);
    }
}

std::string Builder::textureName(int textureIndex, const std::string& materialName, const char* slot) {
    if (textureIndex < 0) return ".";
    if (static_cast<size_t>(textureIndex) >= model_.textures.size())
        throw SceneError("material " + materialName + " names texture " + std::to_string(textureIndex) +
                         ", which does not exist");
    const tinygltf::Texture& t = model_.textures[textureIndex];
    int source = t.source;
    for (const auto& [name, ext] : t.extensions) // an image in another format's extension
        if (source < 0 && ext.Has("source") && ext.Get("source").IsInt()) source = ext.Get("source").Get<int>();
    if (source < 0 || static_cast<size_t>(source) >= model_.images.size())
        throw SceneError("texture " + std::to_string(textureIndex) + " names no existing image");
    const tinygltf::Image& img = model_.images[source];
    std::string name;
    if (!img.uri.empty() && img.uri.rfind("data:", 0) != 0) {
        name = percentDecode(img.uri);
    } else {
        std::string mime = img.mimeType;
        if (mime.empty() && img.uri.rfind("data:", 0) == 0) mime = img.uri.substr(5, img.uri.find(';') - 5);
        name = img.name.empty() ? materialName + "_" + slot : img.name;
        for (char& c : name)
            if (c == '/' || c == '\\') c = '_';
        if (name.find('.') == std::string::npos) name += extensionFor(mime);
    }
    // Windows paths, so that folders stay folders for the texture name rules.
    for (char& c : name)
        if (c == '/') c = '\\';
    return name;
}

std::shared_ptr<MemoryMaterial> Builder::material(int index) {
    if (index < 0) {
        if (!defaultMaterial_) {
            defaultMaterial_ = std::make_shared<MemoryMaterial>();
            defaultMaterial_->name = "default";
            defaultMaterial_->diffuse = {1, 1, 1, 1};
            defaultMaterial_->power = powerFromRoughness(1.0f);
        }
        return defaultMaterial_;
    }
    if (static_cast<size_t>(index) >= model_.materials.size())
        throw SceneError("a primitive names material " + std::to_string(index) + ", which does not exist");
    auto& slot = materials_[index];
    if (slot) return slot;
    const tinygltf::Material& g = model_.materials[index];
    auto m = std::make_shared<MemoryMaterial>();
    m->name = g.name.empty() ? "material_" + std::to_string(index) : g.name;
    const auto& pbr = g.pbrMetallicRoughness;
    auto channel = [](const std::vector<double>& v, size_t i, double def) {
        return static_cast<float>(i < v.size() ? v[i] : def);
    };
    m->diffuse = {channel(pbr.baseColorFactor, 0, 1), channel(pbr.baseColorFactor, 1, 1),
                  channel(pbr.baseColorFactor, 2, 1), channel(pbr.baseColorFactor, 3, 1)};
    m->emissive = {channel(g.emissiveFactor, 0, 0), channel(g.emissiveFactor, 1, 0), channel(g.emissiveFactor, 2, 0)};
    m->specular = {1, 1, 1};
    m->power = powerFromRoughness(static_cast<float>(pbr.roughnessFactor));

    int specularTexture = -1;
    if (auto it = g.extensions.find("KHR_materials_specular"); it != g.extensions.end()) {
        const tinygltf::Value& e = it->second;
        float factor = e.Has("specularFactor") && e.Get("specularFactor").IsNumber()
                           ? static_cast<float>(e.Get("specularFactor").GetNumberAsDouble())
                           : 1.0f;
        Rgb colour{1, 1, 1};
        if (e.Has("specularColorFactor") && e.Get("specularColorFactor").IsArray() &&
            e.Get("specularColorFactor").ArrayLen() == 3) {
            const auto& c = e.Get("specularColorFactor");
            colour = {static_cast<float>(c.Get(0).GetNumberAsDouble()), static_cast<float>(c.Get(1).GetNumberAsDouble()),
                      static_cast<float>(c.Get(2).GetNumberAsDouble())};
        }
        m->specular = {colour.r * factor, colour.g * factor, colour.b * factor};
        for (const char* key : {"specularColorTexture", "specularTexture"})
            if (specularTexture < 0 && e.Has(key) && e.Get(key).Has("index") && e.Get(key).Get("index").IsInt())
                specularTexture = e.Get(key).Get("index").Get<int>();
    }
    int base = pbr.baseColorTexture.index, normal = g.normalTexture.index;
    if (base >= 0 || normal >= 0 || specularTexture >= 0) {
        auto t = std::make_shared<MemoryTextures>();
        t->fileName = textureName(base, m->name, "basecolor");
        t->bumpFileName = textureName(normal, m->name, "normal");
        t->specularFileName = textureName(specularTexture, m->name, "specular");
        t->detailFileName = ".";
        m->textures = t;
    }
    readFields(g.extras, true, &m->fields, nullptr);
    slot = m;
    return m;
}

const std::vector<std::shared_ptr<MemoryShape>>& Builder::meshShapes(int meshIndex) {
    auto it = meshShapes_.find(meshIndex);
    if (it != meshShapes_.end()) return it->second;
    std::vector<std::shared_ptr<MemoryShape>> shapes;
    const tinygltf::Mesh& mesh = model_.meshes[meshIndex];
    for (size_t p = 0; p < mesh.primitives.size(); ++p) {
        std::string what = "mesh " + std::to_string(meshIndex) + " primitive " + std::to_string(p);
        const tinygltf::Primitive& prim = mesh.primitives[p];
        int mode = prim.mode < 0 ? TINYGLTF_MODE_TRIANGLES : prim.mode;
        if (mode != TINYGLTF_MODE_TRIANGLES && mode != TINYGLTF_MODE_TRIANGLE_STRIP &&
            mode != TINYGLTF_MODE_TRIANGLE_FAN) {
            out_.warnings.push_back(what + ": points and lines are skipped");
            continue;
        }
        shapes.push_back(primitiveShape(prim, what));
    }
    return meshShapes_[meshIndex] = std::move(shapes);
}

std::shared_ptr<MemoryShape> Builder::primitiveShape(const tinygltf::Primitive& prim, const std::string& what) {
    auto posIt = prim.attributes.find("POSITION");
    if (posIt == prim.attributes.end()) throw SceneError(what + " has no POSITION");
    AccessorView pos(model_, posIt->second, what + " POSITION");
    if (pos.components() < 3) throw SceneError(what + " POSITION is not a 3D vector");
    const size_t n = pos.count();
    if (n > static_cast<size_t>(INT32_MAX / 2)) throw SceneError(what + " has too many vertices");

    auto shape = std::make_shared<MemoryShape>();
    auto& positions = shape->positions();
    readMirrored(pos, positions, what + " has a coordinate that is not a number");
    auto& uvs = shape->uvs();
    uvs.assign(n, Uv{});
    if (auto it = prim.attributes.find("TEXCOORD_0"); it != prim.attributes.end()) {
        AccessorView tc(model_, it->second, what + " TEXCOORD_0");
        if (tc.count() != n || tc.components() < 2) throw SceneError(what + " TEXCOORD_0 does not match POSITION");
        for (size_t i = 0; i < n; ++i) {
            uvs[i] = {tc.component(i, 0), tc.component(i, 1)};
            if (!std::isfinite(uvs[i].u) || !std::isfinite(uvs[i].v))
                throw SceneError(what + " has a texture coordinate that is not a number");
        }
    }
    bool haveNormals = false;
    if (auto it = prim.attributes.find("NORMAL"); it != prim.attributes.end()) {
        AccessorView nm(model_, it->second, what + " NORMAL");
        if (nm.count() != n || nm.components() < 3) throw SceneError(what + " NORMAL does not match POSITION");
        readMirrored(nm, shape->normals(), what + " has a normal that is not a number");
        haveNormals = true;
    }
    addTriangles(*shape, prim, haveNormals, what);
    return shape;
}

void Builder::addTriangles(MemoryShape& shape, const tinygltf::Primitive& prim, bool haveNormals,
                           const std::string& what) {
    // The triangles of the primitive, read straight from the index accessor.
    const auto& positions = shape.positions();
    const size_t n = positions.size();
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
        return static_cast<int32_t>(v);
    };
    const int mode = prim.mode < 0 ? TINYGLTF_MODE_TRIANGLES : prim.mode;
    const size_t triangles = indexCount < 3                          ? 0
                             : mode == TINYGLTF_MODE_TRIANGLES ? indexCount / 3
                                                               : indexCount - 2;
    const auto mat = material(prim.material);
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
        if (!haveNormals) {
            // The face normal of the glTF triangle, mirrored like the positions.
            const Vec3 p0 = positions[a], p1 = positions[b], p2 = positions[c];
            double ux = -(p1.x - p0.x), uy = p1.y - p0.y, uz = p1.z - p0.z;
            double vx = -(p2.x - p0.x), vy = p2.y - p0.y, vz = p2.z - p0.z;
            double nx = uy * vz - uz * vy, ny = uz * vx - ux * vz, nz = ux * vy - uy * vx;
            double len = std::sqrt(nx * nx + ny * ny + nz * nz);
            if (len > 0) nx /= len, ny /= len, nz /= len;
            shape.normals().push_back({static_cast<float>(-nx), static_cast<float>(ny), static_cast<float>(nz)});
            na = nb = nc = static_cast<int32_t>(shape.normals().size() - 1);
        }
        // Reversed corner order keeps front faces in front after the mirror.
        const MemoryShape::Corner corners[3] = {{a, na, a}, {c, nc, c}, {b, nb, b}};
        shape.addPolygon(mat, corners);
    }
}

void Builder::readAnimations() {
    bool found = !options_.animation;
    for (size_t ai = 0; ai < model_.animations.size(); ++ai) {
        const tinygltf::Animation& anim = model_.animations[ai];
        if (options_.animation && anim.name != *options_.animation) continue;
        found = true;
        for (size_t ci = 0; ci < anim.channels.size(); ++ci) {
            const tinygltf::AnimationChannel& ch = anim.channels[ci];
            std::string what = "animation " + std::to_string(ai) + " channel " + std::to_string(ci);
            bool translation = ch.target_path == "translation", rotation = ch.target_path == "rotation";
            if (!translation && !rotation) continue; // scale and morph weights are not keyed here
            checkNode(ch.target_node, what);
            if (ch.sampler < 0 || static_cast<size_t>(ch.sampler) >= anim.samplers.size())
                throw SceneError(what + " names a sampler that does not exist");
            const tinygltf::AnimationSampler& s = anim.samplers[ch.sampler];
            AccessorView in(model_, s.input, what + " input");
            AccessorView outv(model_, s.output, what + " output");
            const int width = translation ? 3 : 4;
            const bool cubic = s.interpolation == "CUBICSPLINE";
            const size_t perKey = cubic ? 3 : 1;
            if (outv.components() != width || outv.count() < in.count() * perKey)
                throw SceneError(what + " output does not match its input");
            auto& keys = keys_[ch.target_node];
            for (size_t k = 0; k < in.count(); ++k) {
                size_t o = k * perKey + (cubic ? 1 : 0); // the value, not the tangents
                KeyRecord r;
                r.time = in.component(k, 0);
                float x = outv.component(o, 0), y = outv.component(o, 1), z = outv.component(o, 2);
                float w = translation ? 0.0f : outv.component(o, 3);
                if (!std::isfinite(r.time) || !finite3(x, y, z) || !std::isfinite(w))
                    throw SceneError(what + " has a key that is not a number");
                if (translation) {
                    r.kind = 0;
                    r.kx = -x, r.ky = y, r.kz = z, r.kw = 0;
                } else {
                    r.kind = 2;
                    r.kx = x, r.ky = -y, r.kz = -z, r.kw = w;
                }
                keys.push_back(r);
            }
        }
    }
    if (!found) throw SceneError("there is no animation named \"" + *options_.animation + "\"");
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
    tinygltf::Model model = loadModel(path, out.warnings);
    Builder(model, out, options).build(std::filesystem::path(path).stem().string());
    return out;
}

} // namespace tarnvale::gltf
