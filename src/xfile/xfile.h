// X file generation: the template expander and the frame writer, with the number
// forms and the name cleaner that the other writers share.
#pragma once

#include "host/host.h"
#include "material/material.h"
#include "platform/names.h"
#include "platform/number_text.h"
#include "platform/platform.h"

#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

namespace tarnvale::xfile {

using platform::TextSink;

// ---- Number forms and names ------------------------------------------------------

using platform::kMaxNumberText;
using platform::paddedNumber;
using platform::plainNumber;

// A 32-bit float by the mask "0.00####": seven significant digits, then six
// decimals at most, half away from zero; two at least.
inline std::string pFormatNumber(float value) {
    return platform::formatMask(value, 2, 6);
}
// The same into out (at least kMaxNumberText bytes); gives the end.
inline char* formatNumberTo(float value, char* out) {
    return platform::formatMaskTo(value, 2, 6, out);
}
// The exact reference of pFormatNumber, for tests.
inline std::string formatNumberReference(float value) {
    return platform::formatMaskReference(value, 2, 6);
}
using platform::pCleanName;

// ---- Tree walk ----------------------------------------------------------------------

// Walks node and its descendants in the order of a recursive walk: enter(node,
// childCount, level) before a node's children, which are asked for one by one in
// list order, and leave(node) after them; the root is level 0. The path is held
// in a stack of its own, so a tree of any depth costs no call depth.
template <typename Enter, typename Leave>
void walkDepthFirst(const SGObjectPtr& root, Enter&& enter, Leave&& leave) {
    struct Level {
        SGObjectPtr node;
        SGNodeListPtr children;
        int32_t next, count;
    };
    std::vector<Level> path;
    auto open = [&](SGObjectPtr node) {
        if (!node) throw Failure(err::kObjectNotSet, "Object variable not set: no node");
        SGNodeListPtr children = node->GetChildren();
        const int32_t count = children->GetCount();
        enter(node, count, path.size());
        path.push_back({std::move(node), std::move(children), 0, count});
    };
    open(root);
    while (!path.empty()) {
        Level& top = path.back();
        if (top.next < top.count) {
            open(top.children->GetItem(top.next++));
            continue;
        }
        leave(top.node);
        path.pop_back();
    }
}

// ---- Template scan ----------------------------------------------------------------

struct TokenScan {
    int32_t firstHash = 0;  // 1-based position of the first "#", 0 if none
    int32_t secondHash = 0; // 1-based position of the next "#", 0 if none
    std::string token;      // text strictly between them
};
TokenScan pScanToken(const std::string& line);

// ---- The exporter -------------------------------------------------------------------

// ---- Skin records ---------------------------------------------------------------------

// One bone's share in one vertex; the weight is not normalised.
class MeshWeight {
  public:
    SGObjectPtr Bone;
    float Weight = 0;
};

// The weights of one vertex, in order, addressed from 1. Held by value: a skin
// gives a few per vertex of meshes of millions.
class PointBones {
  public:
    // The new entry; valid until the next Add or Remove.
    MeshWeight& Add(SGObjectPtr Bone, float Weight);
    // Position from 1; fails outside the collection.
    MeshWeight& Item(int32_t vntIndexKey);
    int32_t Count() const { return static_cast<int32_t>(items_.size()); }
    void Remove(int32_t vntIndexKey);
    auto begin() const { return items_.begin(); }
    auto end() const { return items_.end(); }
    // Room for that many entries, for a vertex whose weights come at once.
    void reserve(size_t count) { items_.reserve(count); }

  private:
    std::vector<MeshWeight> items_;
};

// The skin record of one mesh: a PointBones per vertex, at vertex index + 1.
class ObjectBones {
  public:
    SGShapePtr Object;
    // Sets Object and appends an empty PointBones per vertex of the shape.
    void Add(const SGShapePtr& o);
    // Position from 1; valid until the next Add or Remove.
    PointBones& Item(int32_t vntIndexKey);
    int32_t Count() const { return static_cast<int32_t>(items_.size() + unmade_); }
    void Remove(int32_t vntIndexKey);
    // Whether any entry holds a weight.
    bool hasWeights() const;
    // Writes the MeshSkinWeights block of the mesh named sname (cleaned).
    void Export(TextSink& i, const std::string& sname) const;
    // Appends a copy of the entry at that position (from 1): a further vertex
    // record of the same position carries its weights.
    void appendCopyOf(int32_t vntIndexKey);

  private:
    // Makes the empty entries that are only counted.
    void make();
    // By value: a record holds one per vertex of a mesh, nearly always empty. A
    // mesh without a skin keeps them only counted, in unmade_, until one is asked
    // for: most meshes never are, and a record of millions of vertices is not made.
    std::vector<PointBones> items_;
    size_t unmade_ = 0;
};

using ObjectBonesCollection = std::vector<std::shared_ptr<ObjectBones>>;

// The fields of the main class that the X writers read and write.
struct XFileContext {
    const std::string& strTemplateFile;
    SGObjectPtr& cgExportGroup;
    SGScenePtr& SceneGraph;
    const std::string& strFriendlyName;
    const std::string& strGuid;
    ObjectBonesCollection& colObjectBones;
    int32_t& lMaterialFieldId;
    int32_t& lAttachFieldId;
    std::function<void(const std::string&)> AppendStatus;
    platform::Clock& clock;
    platform::Progress* progress = nullptr;
    // Threads that format the long runs of numbers; none: the caller's alone.
    platform::Workers* workers = nullptr;
    // Where the DDS names of the FS10Material blocks go as they are written, each
    // once, in the file's order; none: not collected.
    std::vector<std::string>* ddsNames = nullptr;
};

// Items a chunk of writeInChunks holds.
inline size_t chunkItems(const platform::Workers* workers) {
    return workers ? workers->grain() : 4096;
}

// Writes items [first, end) of a long run into the sink.
using ChunkFormat = std::function<void(size_t first, size_t end, TextSink& out)>;

// Writes the items [0, count) as format writes them. With workers, chunks of
// chunkItems (the last maybe shorter) are formatted on the helper threads into
// texts of their own, which the file takes in order as they are done, so that it
// reads as one thread writes it; the writer goes on meanwhile. `format` may then
// run after the call has returned: what it reads it must own (by value, or
// shared), and nobody may change that until the file is closed.
void writeInChunks(TextSink& file, platform::Workers* workers, size_t count, ChunkFormat format);

class XFileExporter {
  public:
    explicit XFileExporter(XFileContext& fields) : f_(fields) {}

    // Writes the X file: copies the template line by line and expands its tokens.
    // cgExportGroup may be moved to the last LOD child written.
    void pExportFSX(std::string& strOutputFile, SGObjectPtr& cgExportGroup);

    // One frame tree: the node's frame and those of all its descendants.
    void pWriteFrame(const SGObjectPtr& node, TextSink& file);
    // The "//" comment tree of the node and its descendants, indented by depth.
    void pWriteHierarchy(const SGObjectPtr& node, TextSink& file, int16_t depth);
    // One Mesh block: positions, triangles, materials, normals, skin, texture pairs.
    void pWriteMesh(const SGShapePtr& shape, TextSink& file, const std::string& meshName,
                    const SGObjectPtr& node);
    // Moves polygons of virtual cockpit materials to the end with v mirrored.
    void pFlipTextureV(const SGShapePtr& shape);
    // Skin records of the meshes below node, into colObjectBones.
    void pFindSkins(const SGObjectPtr& node);
    // The MeshMaterialList block of a mesh.
    void pWriteMaterialList(const SGShapePtr& shape, TextSink& file, const std::string& meshName,
                            int32_t triangleCount);
    // The distinct materials by first use, and each triangle's index among them.
    void pBuildMaterialTable(const SGShapePtr& shape, std::vector<int32_t>& faceMaterials,
                             int32_t triangleCount, std::vector<SGMaterialPtr>& materials,
                             int32_t& materialCount);
    // One Material block with its FS10Material block.
    void pWriteMaterial(const SGMaterialPtr& material, TextSink& file);

    // The number of fan triangles of a polygon stream.
    static int32_t pCountTriangles(int32_t polygonCount, const std::vector<int32_t>& stream);
    // The file name of a path: the text behind its last backslash.
    static std::string pTextureName(const std::string& path);

  private:
    std::string metreFactor(SGUnits& units);
    void writeScene(TextSink& file, SGObjectPtr& cgExportGroup);
    void pWritePartData(const SGObjectPtr& node, TextSink& file);
    void pWriteMatrix(const SGObjectPtr& node, TextSink& file);
    void pWriteBoneInfo(const SGObjectPtr& node, TextSink& file);
    void pWriteAnimLink(const SGObjectPtr& node, TextSink& file);
    // The head of a frame: its opening line, part data, matrix, mesh, bone info and
    // link name; the child frames and the closing line follow.
    void writeFrameHead(const SGObjectPtr& node, TextSink& file);

    void frameDone();
    // Progress within the mesh being written: `fraction` of its polygons.
    void meshProgress(int32_t polygons, double fraction);
    void reportProgress(double done);

    // The first record of each shape, so that a mesh finds its record at once.
    ObjectBones* recordOf(const SGShape* shape) const;
    void indexRecords();

    XFileContext& f_;
    std::unordered_map<const SGShape*, ObjectBones*> recordOf_;
    // Work units of the progress report: one per frame and one per polygon.
    double workTotal_ = 0;
    double workDone_ = 0;
};

} // namespace tarnvale::xfile
