// A mesh's primitives into shapes: positions, texture coordinates, normals and
// triangles through the checked accessors, and the weights of skinned ones.
#include "gltf/builder.h"

#include <cmath>

namespace tarnvale::gltf {

namespace {

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

UvTransform uvTransformOf(const tinygltf::ExtensionMap& extensions, int texCoord, const std::string& what) {
    UvTransform t;
    t.set = texCoord;
    const auto it = extensions.find("KHR_texture_transform");
    if (it == extensions.end() || !it->second.IsObject()) return t;
    const tinygltf::Value& x = it->second;
    auto number = [&](const tinygltf::Value& v, double fallback) {
        if (!v.Type()) return fallback;
        if (!v.IsNumber() || !std::isfinite(v.GetNumberAsDouble()))
            throw SceneError(what + ": its KHR_texture_transform holds a value that is not a number");
        return v.GetNumberAsDouble();
    };
    auto pair = [&](const char* key, double fallback, int i) {
        const tinygltf::Value& v = x.Get(key);
        return v.IsArray() && v.ArrayLen() == 2 ? number(v.Get(i), fallback)
                                                : number(tinygltf::Value(), fallback);
    };
    const double r = number(x.Get("rotation"), 0), sx = pair("scale", 1, 0), sy = pair("scale", 1, 1);
    t.a = std::cos(r) * sx, t.b = std::sin(r) * sy, t.c = pair("offset", 0, 0);
    t.d = -std::sin(r) * sx, t.e = std::cos(r) * sy, t.f = pair("offset", 0, 1);
    if (x.Has("texCoord")) t.set = static_cast<int>(number(x.Get("texCoord"), texCoord));
    if (t.set < 0) throw SceneError(what + " names a texture coordinate set below 0");
    return t;
}

} // namespace

UvTransform Builder::baseColorUvs(int materialIndex) {
    if (materialIndex < 0 || static_cast<size_t>(materialIndex) >= model_.materials.size()) return {};
    const tinygltf::Material& m = model_.materials[static_cast<size_t>(materialIndex)];
    const std::string what = "material " + std::to_string(materialIndex);
    const auto& base = m.pbrMetallicRoughness.baseColorTexture;
    const UvTransform t = uvTransformOf(base.extensions, base.texCoord, what);
    // Only the colour's coordinates reach the X file: say once where another map's differ.
    if (warnedTransforms_.insert(materialIndex).second)
        for (const auto& [map, other] :
             {std::pair{"normal", uvTransformOf(m.normalTexture.extensions, m.normalTexture.texCoord, what)},
              std::pair{"emissive",
                        uvTransformOf(m.emissiveTexture.extensions, m.emissiveTexture.texCoord, what)}})
            if ((map == std::string("normal") ? m.normalTexture.index : m.emissiveTexture.index) >= 0 &&
                base.index >= 0 && !(other == t))
                out_.warnings.push_back(
                    what + " (" + m.name + "): its " + map +
                    " texture's coordinates or KHR_texture_transform differ from its base "
                    "colour's, whose alone the X file carries");
    return t;
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
    // The coordinates the base colour texture reads, as its transform places them.
    const UvTransform t = baseColorUvs(prim.material);
    const std::string set = "TEXCOORD_" + std::to_string(t.set);
    if (auto it = prim.attributes.find(set); it != prim.attributes.end()) {
        AccessorView tc(model_, it->second, what + " " + set);
        if (tc.count() != n || tc.components() < 2)
            throw SceneError(what + " " + set + " does not match POSITION");
        if (outline && !tc.finite(2))
            throw SceneError(what + " has a texture coordinate that is not a number");
        for (size_t i = 0; i < n && !outline; ++i) {
            const double u = tc.component(i, 0), v = tc.component(i, 1);
            const Uv uv{static_cast<float>(t.a * u + t.b * v + t.c),
                        static_cast<float>(t.d * u + t.e * v + t.f)};
            if (!std::isfinite(uv.u) || !std::isfinite(uv.v))
                throw SceneError(what + " has a texture coordinate that is not a number");
            shape.uvs()[base + i] = uv;
        }
    } else if (t.set > 0) {
        throw SceneError(what + " has no " + set + ", which its material's base colour texture reads");
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
        if (triangles == 0) return;
        if (std::find(outline->materials.begin(), outline->materials.end(), mat) == outline->materials.end())
            outline->materials.push_back(mat);
        // A draw takes the vertices its triangles use (primitives may share an
        // accessor), or three a triangle with a normal of each triangle's own.
        size_t drawn = 3 * triangles;
        if (haveNormals && ia) {
            std::vector<uint8_t> taken(n, 0);
            drawn = 0;
            ia->eachIndex(used, [&](uint32_t v) { drawn += taken[v] ^ 1, taken[v] = 1; });
        } else if (haveNormals) {
            drawn = used;
        }
        outline->parts.push_back({mat, drawn, triangles});
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

} // namespace tarnvale::gltf
