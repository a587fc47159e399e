// The reader's node and mesh building, shared by its files: the Builder that
// turns a loaded document into the scene, and the transform and skin maths.
// Only src/gltf includes this header.
#pragma once

#include "gltf/internal.h"

#include <array>
#include <map>
#include <optional>
#include <set>
#include <unordered_map>
#include <vector>

namespace tarnvale::gltf {

using scene::MemoryObject;
using scene::MemoryShape;

// Quaternion (x, y, z, w) and scale to the upper 3x3 rows of an X matrix.
Matrix16 composeTrs(const std::vector<double>& t, const std::vector<double>& r, const std::vector<double>& s);
// S M S with S = diag(-1, 1, 1, 1): the x row and x column change sign, except
// their shared element.
Matrix16 mirrorX(Matrix16 m);
// Brings a skinned shape's positions and normals into its node's frame: each
// vertex by the blend of its joints' matrices by its weights (the first joint's
// when it has none); a normal by the inverse transpose of its vertex's blend.
void placeSkinnedVertices(MemoryShape& shape, const std::vector<VertexWeight>& weights,
                          const std::vector<size_t>& jointOf, const std::vector<Matrix16>& toNode,
                          const std::vector<int32_t>& normalVertex);

// A texture's coordinate set and KHR_texture_transform, as u' = a u + b v + c,
// v' = d u + e v + f (translation times rotation times scale).
struct UvTransform {
    int set = 0;
    double a = 1, b = 0, c = 0, d = 0, e = 1, f = 0;
    bool operator==(const UvTransform& o) const {
        return set == o.set && a == o.a && b == o.b && c == o.c && d == o.d && e == o.e && f == o.f;
    }
};

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
    std::set<int> warnedTransforms_;
    // Nodes whose scale went into their mesh: their children's matrices take it on.
    std::map<const MemoryObject*, std::array<float, 3>>
        movedScale_; // materials told of maps whose coordinates differ
    // The coordinate set and transform of the material's base colour texture.
    UvTransform baseColorUvs(int materialIndex);
    std::vector<bool> visited_;
    std::unordered_map<const MemoryObject*, SiblingNames> siblingNames_;
    std::map<int, NodeKeys> keys_;

    void checkNode(int index, const std::string& where) const {
        if (index < 0 || static_cast<size_t>(index) >= model_.nodes.size())
            throw SceneError(where + " names node " + std::to_string(index) + ", which does not exist");
    }
    void addTree(MemoryObject& root, const std::vector<int>& roots);
    // EXT_mesh_gpu_instancing: the node's mesh on a child per instance, placed by its TRS.
    void addInstances(MemoryObject& obj, int index, const tinygltf::Value& extension, bool worldMirrors);
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

} // namespace tarnvale::gltf
