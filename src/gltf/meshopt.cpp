// EXT_meshopt_compression: every compressed buffer view decoded with
// meshoptimizer into a buffer of its own, before any accessor reads it.
#include "gltf/internal.h"

#include <meshoptimizer.h>

namespace tarnvale::gltf {

namespace {

constexpr const char* kExtension = "EXT_meshopt_compression";

std::string str(const tinygltf::Value& v) {
    return v.IsString() ? v.Get<std::string>() : std::string();
}

size_t number(const tinygltf::Value& v, const std::string& what, const char* key) {
    const tinygltf::Value& x = v.Get(key);
    if (!x.IsNumber() || x.GetNumberAsDouble() < 0 || x.GetNumberAsDouble() > double(UINT32_MAX))
        throw SceneError(what + " has no valid " + key);
    return static_cast<size_t>(x.GetNumberAsDouble());
}

// One compressed view into its bytes, the filter applied.
std::vector<unsigned char> decodeView(const Document& model, const tinygltf::Value& ext,
                                      const std::string& what) {
    const size_t buffer = number(ext, what, "buffer"), offset = number(ext, what, "byteOffset"),
                 length = number(ext, what, "byteLength"), stride = number(ext, what, "byteStride"),
                 count = number(ext, what, "count");
    if (buffer >= model.buffers.size()) throw SceneError(what + " names a buffer that does not exist");
    const std::string_view bytes = model.bufferBytes(buffer);
    if (offset > bytes.size() || length > bytes.size() - offset)
        throw SceneError(what + " lies outside its buffer");
    const auto* source = reinterpret_cast<const unsigned char*>(bytes.data() + offset);
    const std::string mode = str(ext.Get("mode")),
                      filter = ext.Has("filter") ? str(ext.Get("filter")) : "NONE";
    const bool attributes = mode == "ATTRIBUTES";
    if (attributes ? stride == 0 || stride % 4 != 0 || stride > 256 : stride != 2 && stride != 4)
        throw SceneError(what + " has a byteStride its mode does not allow");
    if (count > (size_t(1) << 32) / stride) throw SceneError(what + " is larger than 4 GiB");
    std::vector<unsigned char> out(count * stride);
    int failed = 0;
    if (attributes)
        failed = meshopt_decodeVertexBuffer(out.data(), count, stride, source, length);
    else if (mode == "TRIANGLES" && count % 3 == 0)
        failed = meshopt_decodeIndexBuffer(out.data(), count, stride, source, length);
    else if (mode == "INDICES")
        failed = meshopt_decodeIndexSequence(out.data(), count, stride, source, length);
    else
        throw SceneError(what + " has the mode \"" + mode +
                         "\", which is none of ATTRIBUTES, TRIANGLES, INDICES");
    if (failed) throw SceneError(what + ": its compressed data cannot be decoded");
    if (filter == "OCTAHEDRAL" && attributes && (stride == 4 || stride == 8))
        meshopt_decodeFilterOct(out.data(), count, stride);
    else if (filter == "QUATERNION" && attributes && stride == 8)
        meshopt_decodeFilterQuat(out.data(), count, stride);
    else if (filter == "EXPONENTIAL" && attributes)
        meshopt_decodeFilterExp(out.data(), count, stride);
    else if (filter != "NONE")
        throw SceneError(what + " has the filter \"" + filter + "\", which its mode and stride do not allow");
    return out;
}

} // namespace

void decodeMeshopt(Document& model) {
    for (size_t v = 0; v < model.bufferViews.size(); ++v) {
        tinygltf::BufferView& view = model.bufferViews[v];
        const auto it = view.extensions.find(kExtension);
        if (it == view.extensions.end()) continue;
        const std::string what = "buffer view " + std::to_string(v) + " " + kExtension;
        if (!it->second.IsObject()) throw SceneError(what + " is no object");
        tinygltf::Buffer decoded;
        decoded.data = decodeView(model, it->second, what);
        view.buffer = static_cast<int>(model.buffers.size());
        view.byteOffset = 0;
        view.byteLength = decoded.data.size();
        model.buffers.push_back(std::move(decoded));
        view.extensions.erase(it);
    }
}

} // namespace tarnvale::gltf
