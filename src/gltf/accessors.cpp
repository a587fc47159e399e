#include "gltf/accessors.h"

#include <cstring>

namespace tarnvale::gltf {

AccessorView::AccessorView(const tinygltf::Model& model, int accessorIndex, const std::string& what) {
    auto fail = [&](const std::string& why) { throw SceneError(what + ": " + why); };
    if (accessorIndex < 0 || static_cast<size_t>(accessorIndex) >= model.accessors.size())
        fail("accessor " + std::to_string(accessorIndex) + " does not exist");
    const tinygltf::Accessor& a = model.accessors[accessorIndex];
    if (a.sparse.isSparse) fail("sparse accessors are not supported");
    componentType_ = a.componentType;
    componentSize_ = tinygltf::GetComponentSizeInBytes(static_cast<uint32_t>(a.componentType));
    components_ = tinygltf::GetNumComponentsInType(static_cast<uint32_t>(a.type));
    if (componentSize_ <= 0 || components_ <= 0) fail("accessor " + std::to_string(accessorIndex) + " has no valid type");
    normalized_ = a.normalized;
    count_ = a.count;
    if (count_ == 0) return;
    if (a.bufferView < 0 || static_cast<size_t>(a.bufferView) >= model.bufferViews.size())
        fail("accessor " + std::to_string(accessorIndex) + " has no valid buffer view");
    const tinygltf::BufferView& v = model.bufferViews[a.bufferView];
    if (v.buffer < 0 || static_cast<size_t>(v.buffer) >= model.buffers.size())
        fail("buffer view " + std::to_string(a.bufferView) + " has no valid buffer");
    const tinygltf::Buffer& b = model.buffers[v.buffer];
    const size_t elementSize = static_cast<size_t>(componentSize_) * components_;
    stride_ = v.byteStride ? v.byteStride : elementSize;
    if (stride_ < elementSize) fail("buffer view " + std::to_string(a.bufferView) + " has a stride below its element size");
    if (v.byteOffset > b.data.size() || v.byteLength > b.data.size() - v.byteOffset)
        fail("buffer view " + std::to_string(a.bufferView) + " lies outside its buffer");
    // The last element must end inside the view; sizes are checked without overflow.
    if (a.byteOffset > v.byteLength || count_ - 1 > (v.byteLength - a.byteOffset) / stride_ ||
        a.byteOffset + (count_ - 1) * stride_ + elementSize > v.byteLength)
        fail("accessor " + std::to_string(accessorIndex) + " reads past the end of its buffer view");
    data_ = b.data.data() + v.byteOffset + a.byteOffset;
}

float AccessorView::component(size_t i, int c) const {
    const unsigned char* p = data_ + i * stride_ + static_cast<size_t>(c) * componentSize_;
    switch (componentType_) {
    case TINYGLTF_COMPONENT_TYPE_FLOAT: {
        float f;
        std::memcpy(&f, p, 4);
        return f;
    }
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE: return normalized_ ? *p / 255.0f : *p;
    case TINYGLTF_COMPONENT_TYPE_BYTE: {
        auto s = static_cast<int8_t>(*p);
        return normalized_ ? std::max(s / 127.0f, -1.0f) : s;
    }
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT: {
        uint16_t u;
        std::memcpy(&u, p, 2);
        return normalized_ ? u / 65535.0f : u;
    }
    case TINYGLTF_COMPONENT_TYPE_SHORT: {
        int16_t s;
        std::memcpy(&s, p, 2);
        return normalized_ ? std::max(s / 32767.0f, -1.0f) : s;
    }
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT: {
        uint32_t u;
        std::memcpy(&u, p, 4);
        return static_cast<float>(u);
    }
    default: return 0;
    }
}

uint32_t AccessorView::index(size_t i) const {
    const unsigned char* p = data_ + i * stride_;
    switch (componentType_) {
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE: return *p;
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT: {
        uint16_t u;
        std::memcpy(&u, p, 2);
        return u;
    }
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT: {
        uint32_t u;
        std::memcpy(&u, p, 4);
        return u;
    }
    default: throw SceneError("indices must be unsigned integers");
    }
}

} // namespace tarnvale::gltf
