// Checked reads of glTF accessors, sparse ones and those without data included.
#include "gltf/internal.h"

#include <cstring>

namespace tarnvale::gltf {

namespace {

size_t componentBytes(int type) {
    return static_cast<size_t>(tinygltf::GetComponentSizeInBytes(static_cast<uint32_t>(type)));
}

} // namespace

AccessorView::AccessorView(const Document& model, int accessorIndex, const std::string& what) : what_(what) {
    auto fail = [&](const std::string& why) { throw SceneError(what + ": " + why); };
    if (accessorIndex < 0 || static_cast<size_t>(accessorIndex) >= model.accessors.size())
        fail("accessor " + std::to_string(accessorIndex) + " does not exist");
    const tinygltf::Accessor& a = model.accessors[accessorIndex];
    componentType_ = a.componentType;
    componentSize_ = tinygltf::GetComponentSizeInBytes(static_cast<uint32_t>(a.componentType));
    components_ = tinygltf::GetNumComponentsInType(static_cast<uint32_t>(a.type));
    if (componentSize_ <= 0 || components_ <= 0)
        fail("accessor " + std::to_string(accessorIndex) + " has no valid type");
    normalized_ = a.normalized;
    count_ = a.count;
    if (count_ == 0) return;
    const size_t elementSize = static_cast<size_t>(componentSize_) * components_;
    if (!a.sparse.isSparse && a.bufferView >= 0) {
        data_ = viewBytes(model, a.bufferView, a.byteOffset, count_, elementSize, stride_);
        return;
    }
    gatherSparse(model, a, elementSize);
}

std::string_view bufferViewBytes(const Document& model, int viewIndex, const std::string& what) {
    auto fail = [&](const std::string& why) {
        throw SceneError(what + ": buffer view " + std::to_string(viewIndex) + why);
    };
    if (viewIndex < 0 || static_cast<size_t>(viewIndex) >= model.bufferViews.size()) fail(" does not exist");
    const tinygltf::BufferView& v = model.bufferViews[viewIndex];
    if (v.buffer < 0 || static_cast<size_t>(v.buffer) >= model.buffers.size()) fail(" has no valid buffer");
    const std::string_view b = model.bufferBytes(static_cast<size_t>(v.buffer));
    if (v.byteOffset > b.size() || v.byteLength > b.size() - v.byteOffset) fail(" lies outside its buffer");
    return b.substr(v.byteOffset, v.byteLength);
}

const unsigned char* AccessorView::viewBytes(const Document& model, int viewIndex, size_t byteOffset,
                                             size_t count, size_t elementSize, size_t& stride) const {
    const std::string_view bytes = bufferViewBytes(model, viewIndex, what_);
    const tinygltf::BufferView& v = model.bufferViews[viewIndex];
    if (stride == 0) stride = v.byteStride ? v.byteStride : elementSize;
    if (stride < elementSize)
        throw SceneError(what_ + ": buffer view " + std::to_string(viewIndex) +
                         " has a stride below its element size");
    // The last element must end inside the view; sizes are checked without overflow.
    if (byteOffset > bytes.size() || count - 1 > (bytes.size() - byteOffset) / stride ||
        byteOffset + (count - 1) * stride + elementSize > bytes.size())
        throw SceneError(what_ + ": an accessor reads past the end of buffer view " +
                         std::to_string(viewIndex));
    return reinterpret_cast<const unsigned char*>(bytes.data()) + byteOffset;
}

void AccessorView::gatherSparse(const Document& model, const tinygltf::Accessor& a, size_t elementSize) {
    // Base values from the buffer view, zeros without one; then the sparse ones.
    if (count_ > (size_t{1} << 31) / elementSize) throw SceneError(what_ + ": the accessor is too large");
    own_.assign(count_ * elementSize, 0);
    if (a.bufferView >= 0) {
        size_t stride = 0;
        const unsigned char* base = viewBytes(model, a.bufferView, a.byteOffset, count_, elementSize, stride);
        for (size_t i = 0; i < count_; ++i)
            std::memcpy(own_.data() + i * elementSize, base + i * stride, elementSize);
    }
    if (a.sparse.isSparse && a.sparse.count > 0) {
        const auto n = static_cast<size_t>(a.sparse.count);
        if (n > count_) throw SceneError(what_ + ": more sparse values than elements");
        const int indexType = a.sparse.indices.componentType;
        if (indexType != TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE &&
            indexType != TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT &&
            indexType != TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT)
            throw SceneError(what_ + ": sparse indices must be unsigned integers");
        // Sparse index and value views are tightly packed.
        size_t indexStride = componentBytes(indexType), valueStride = elementSize;
        const unsigned char* indices =
            viewBytes(model, a.sparse.indices.bufferView, a.sparse.indices.byteOffset, n,
                      componentBytes(indexType), indexStride);
        const unsigned char* values = viewBytes(model, a.sparse.values.bufferView, a.sparse.values.byteOffset,
                                                n, elementSize, valueStride);
        for (size_t k = 0; k < n; ++k) {
            uint32_t at = 0;
            const unsigned char* p = indices + k * indexStride;
            if (indexType == TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE)
                at = *p;
            else if (indexType == TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT) {
                uint16_t u;
                std::memcpy(&u, p, 2);
                at = u;
            } else
                std::memcpy(&at, p, 4);
            if (at >= count_)
                throw SceneError(what_ + ": sparse index " + std::to_string(at) +
                                 " is past the last element");
            std::memcpy(own_.data() + at * elementSize, values + k * valueStride, elementSize);
        }
    }
    data_ = own_.data();
    stride_ = elementSize;
}

float AccessorView::component(size_t i, int c) const {
    const unsigned char* p = data_ + i * stride_ + static_cast<size_t>(c) * componentSize_;
    switch (componentType_) {
    case TINYGLTF_COMPONENT_TYPE_FLOAT: {
        float f;
        std::memcpy(&f, p, 4);
        return f;
    }
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE:
        return normalized_ ? *p / 255.0f : *p;
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
    default:
        return 0;
    }
}

uint32_t AccessorView::index(size_t i) const {
    const unsigned char* p = data_ + i * stride_;
    switch (componentType_) {
    case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE:
        return *p;
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
    default:
        throw SceneError(what_ + ": indices must be unsigned integers");
    }
}

bool AccessorView::finite(int n) const {
    if (componentType_ != TINYGLTF_COMPONENT_TYPE_FLOAT) return true; // integers always are
    bool bad = false;
    // An exponent of all ones is an infinity or not a number.
    auto infinite = [](uint32_t bits) { return (bits & 0x7F800000u) == 0x7F800000u; };
    if (stride_ == static_cast<size_t>(n) * 4) {
        // Packed: one run of floats, which the compiler checks many at a time.
        for (size_t k = 0; k < count_ * static_cast<size_t>(n); ++k) {
            uint32_t bits;
            std::memcpy(&bits, data_ + k * 4, 4);
            bad |= infinite(bits);
        }
        return !bad;
    }
    for (size_t i = 0; i < count_; ++i)
        for (int c = 0; c < n; ++c) {
            uint32_t bits;
            std::memcpy(&bits, data_ + i * stride_ + static_cast<size_t>(c) * 4, 4);
            bad |= infinite(bits);
        }
    return !bad;
}

uint32_t AccessorView::largestIndex(size_t count) const {
    uint32_t largest = 0;
    eachIndex(count, [&](uint32_t v) { largest = std::max(largest, v); });
    return largest;
}

std::string nodeName(const tinygltf::Model& model, int index) {
    const std::string& name = model.nodes[static_cast<size_t>(index)].name;
    return name.empty() ? "node_" + std::to_string(index) : name;
}

} // namespace tarnvale::gltf
