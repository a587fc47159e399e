// KHR_draco_mesh_compression: each compressed primitive decoded with Debian's
// Draco into buffers of its own, its accessors pointed there, before any reads them.
#include "gltf/internal.h"

#include <cstring>

#ifdef TARNVALE_HAVE_DRACO
#include <draco/compression/decode.h>
#endif

namespace tarnvale::gltf {

#ifdef TARNVALE_HAVE_DRACO

namespace {

// Points an accessor at bytes of a new buffer of their own.
void placeAccessor(Document& model, int accessor, std::vector<unsigned char> bytes, int componentType) {
    tinygltf::Buffer buffer;
    buffer.data = std::move(bytes);
    tinygltf::BufferView view;
    view.buffer = static_cast<int>(model.buffers.size());
    view.byteLength = buffer.data.size();
    model.buffers.push_back(std::move(buffer));
    model.bufferViews.push_back(view);
    tinygltf::Accessor& a = model.accessors[static_cast<size_t>(accessor)];
    a.bufferView = static_cast<int>(model.bufferViews.size() - 1);
    a.byteOffset = 0;
    a.componentType = componentType;
    a.normalized = false;
    a.sparse = {};
}

void decodePrimitive(Document& model, tinygltf::Primitive& prim, const tinygltf::Value& ext,
                     const std::string& what) {
    if (!ext.IsObject() || !ext.Get("bufferView").IsInt() || !ext.Get("attributes").IsObject())
        throw SceneError(what + " has no bufferView and attributes");
    const std::string_view bytes = bufferViewBytes(model, ext.Get("bufferView").Get<int>(), what);
    draco::DecoderBuffer buffer;
    buffer.Init(bytes.data(), bytes.size());
    draco::Decoder decoder;
    auto decoded = decoder.DecodeMeshFromBuffer(&buffer);
    if (!decoded.ok())
        throw SceneError(what + ": its Draco data cannot be decoded (" + decoded.status().error_msg_string() +
                         ")");
    const std::unique_ptr<draco::Mesh> mesh = std::move(decoded).value();
    auto checked = [&](int accessor, size_t count, const std::string& name) {
        if (accessor < 0 || static_cast<size_t>(accessor) >= model.accessors.size())
            throw SceneError(what + " " + name + " names no accessor");
        if (model.accessors[static_cast<size_t>(accessor)].count != count)
            throw SceneError(what + " " + name + " does not match its Draco data");
    };
    if (prim.indices >= 0) {
        checked(prim.indices, 3 * size_t(mesh->num_faces()), "indices");
        std::vector<unsigned char> out(12 * size_t(mesh->num_faces()));
        for (draco::FaceIndex f(0); f < mesh->num_faces(); ++f)
            for (int k = 0; k < 3; ++k) {
                const uint32_t v = mesh->face(f)[k].value();
                std::memcpy(&out[12 * f.value() + 4 * size_t(k)], &v, 4);
            }
        placeAccessor(model, prim.indices, std::move(out), TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT);
    }
    const tinygltf::Value& attributes = ext.Get("attributes");
    for (const std::string& name : attributes.Keys()) {
        const auto it = prim.attributes.find(name);
        const tinygltf::Value& id = attributes.Get(name);
        if (it == prim.attributes.end() || !id.IsInt())
            throw SceneError(what + " " + name + " names no attribute");
        const draco::PointAttribute* attribute =
            mesh->GetAttributeByUniqueId(static_cast<uint32_t>(id.Get<int>()));
        if (!attribute) throw SceneError(what + " " + name + " is not in its Draco data");
        checked(it->second, mesh->num_points(), name);
        const auto& a = model.accessors[static_cast<size_t>(it->second)];
        const int components = tinygltf::GetNumComponentsInType(static_cast<uint32_t>(a.type));
        if (components <= 0 || components > 16) throw SceneError(what + " " + name + " has no valid type");
        std::vector<float> values(size_t(mesh->num_points()) * size_t(components));
        for (draco::PointIndex p(0); p < mesh->num_points(); ++p)
            if (!attribute->ConvertValue<float>(attribute->mapped_index(p), static_cast<int8_t>(components),
                                                &values[size_t(p.value()) * size_t(components)]))
                throw SceneError(what + " " + name + ": its Draco values cannot be read");
        std::vector<unsigned char> out(values.size() * 4);
        std::memcpy(out.data(), values.data(), out.size());
        placeAccessor(model, it->second, std::move(out), TINYGLTF_COMPONENT_TYPE_FLOAT);
    }
}

} // namespace

void decodeDraco(Document& model) {
    for (size_t m = 0; m < model.meshes.size(); ++m)
        for (size_t p = 0; p < model.meshes[m].primitives.size(); ++p) {
            tinygltf::Primitive& prim = model.meshes[m].primitives[p];
            const auto it = prim.extensions.find("KHR_draco_mesh_compression");
            if (it == prim.extensions.end()) continue;
            decodePrimitive(model, prim, it->second,
                            "mesh " + std::to_string(m) + " primitive " + std::to_string(p) +
                                " KHR_draco_mesh_compression");
            prim.extensions.erase("KHR_draco_mesh_compression");
        }
}

#else

void decodeDraco(Document&) {} // this build refuses the files that need it

#endif

} // namespace tarnvale::gltf
