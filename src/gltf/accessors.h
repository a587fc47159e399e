// Checked reads of glTF accessors: every index and byte range is tested before use.
#pragma once

#include "gltf/gltf.h"

#include <tiny_gltf.h>

namespace tarnvale::gltf {

// The bytes of an accessor's elements, checked against its buffer view and buffer.
class AccessorView {
public:
    AccessorView(const tinygltf::Model& model, int accessorIndex, const std::string& what);
    size_t count() const { return count_; }
    int components() const { return components_; }
    // Component c of element i as a float (normalised integers scaled to 0..1 or -1..1).
    float component(size_t i, int c) const;
    // Element i of a scalar integer accessor.
    uint32_t index(size_t i) const;
    int componentType() const { return componentType_; }

private:
    const unsigned char* data_ = nullptr;
    size_t count_ = 0, stride_ = 0;
    int components_ = 0, componentType_ = 0, componentSize_ = 0;
    bool normalized_ = false;
};

} // namespace tarnvale::gltf
