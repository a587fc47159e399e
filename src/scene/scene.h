// Our in-memory scene behind the host interfaces: what a scene reader (glTF) or a
// test builds, and what the exporter reads. Every operation is linear in what it
// touches; mesh data lives in flat arrays of its shape.
#pragma once

#include "host/host.h"

#include <map>
#include <optional>
#include <span>
#include <unordered_map>

namespace tarnvale::scene {

// Unit codes of MemoryScene::setUnits and the factor of each to metres.
enum UnitCode : int32_t {
    kMetres = 0,
    kCentimetres = 1,
    kMillimetres = 2,
    kInches = 3,
    kFeet = 4,
    kKilometres = 5,
    kYards = 6,
    kMiles = 7,
};

// Geometry kind given to shapes that are not polygon meshes (bones, lights ...).
inline constexpr int32_t kGeometryOther = 0;

// Named material and object fields of one scene, shared by its objects.
class FieldRegistry {
  public:
    int32_t findMaterial(const std::string& name) const;
    int32_t findObject(const std::string& name) const;
    // Gives the existing id when the name is already there.
    int32_t addMaterial(const std::string& name);
    int32_t addObject(const std::string& name);

  private:
    std::map<std::string, int32_t> material_;
    std::map<std::string, int32_t> object_;
};

class MemoryTextures : public SGTextures {
  public:
    std::string fileName, bumpFileName, detailFileName, specularFileName, reflectionFileName;
    std::string GetFileName() override { return fileName; }
    std::string GetBumpFileName() override { return bumpFileName; }
    std::string GetDetailFileName() override { return detailFileName; }
    std::string GetSpecularFileName() override { return specularFileName; }
    std::string GetReflectionFileName() override { return reflectionFileName; }
};

class MemoryMaterial : public SGMaterial {
  public:
    std::string name;
    std::string sourceName; // the name the modeller gave it, for messages; empty: `name`
    float power = 0;
    Rgba diffuse{0.8f, 0.8f, 0.8f, 1.0f};
    Rgb specular{1, 1, 1};
    Rgb emissive{0, 0, 0};
    std::shared_ptr<MemoryTextures> textures; // none: no texture
    std::map<int32_t, std::string> fields;

    std::string GetName() override { return name; }
    void SetName(const std::string& n) override { name = n; }
    float GetPower() override { return power; }
    Rgba GetDiffuse() override { return diffuse; }
    Rgb GetSpecular() override { return specular; }
    Rgb GetEmissive() override { return emissive; }
    void SetSpecular(float r, float g, float b) override { specular = {r, g, b}; }
    SGTexturesPtr GetTextures() override { return textures; }
    std::string GetMaterialField(int32_t fieldId) override;
    const std::string& shownName() const { return sourceName.empty() ? name : sourceName; }
};

class MemoryState : public SGState {
  public:
    std::string fileName, bumpFileName, detailFileName, specularFileName, reflectionFileName;
    Rgb diffuse{0.8f, 0.8f, 0.8f};
    int32_t alphaPercent = 100;
    int32_t shininess = 0;
    std::map<int32_t, std::string> fields;

    std::string GetFileName() override { return fileName; }
    std::string GetBumpFileName() override { return bumpFileName; }
    std::string GetDetailFileName() override { return detailFileName; }
    std::string GetSpecularFileName() override { return specularFileName; }
    std::string GetReflectionFileName() override { return reflectionFileName; }
    Rgb GetDiffuse() override { return diffuse; }
    int32_t GetAlphaPercent() override { return alphaPercent; }
    int32_t GetShininess() override { return shininess; }
    std::string GetMaterialField(int32_t fieldId) override;
};

// An array of whole numbers that takes 16 bits a number until a number needs more
// (UINT32_MAX, "none", is kept in either form).
class IndexArray {
  public:
    size_t size() const { return wide_ ? wideValues_.size() : narrow_.size(); }
    uint32_t operator[](size_t i) const {
        if (wide_) return wideValues_[i];
        const uint16_t v = narrow_[i];
        return v == kNarrowNone ? UINT32_MAX : v;
    }
    void set(size_t i, uint32_t v) {
        fit(v);
        if (wide_)
            wideValues_[i] = v;
        else
            narrow_[i] = static_cast<uint16_t>(v);
    }
    void push_back(uint32_t v) {
        fit(v);
        if (wide_)
            wideValues_.push_back(v);
        else
            narrow_.push_back(static_cast<uint16_t>(v));
    }
    void insert(size_t at, uint32_t v) {
        fit(v);
        if (wide_)
            wideValues_.insert(wideValues_.begin() + static_cast<std::ptrdiff_t>(at), v);
        else
            narrow_.insert(narrow_.begin() + static_cast<std::ptrdiff_t>(at), static_cast<uint16_t>(v));
    }
    void resize(size_t n) {
        if (wide_)
            wideValues_.resize(n);
        else
            narrow_.resize(n);
    }
    void reserve(size_t n) {
        if (wide_)
            wideValues_.reserve(n);
        else
            narrow_.reserve(n);
    }
    void clear() {
        std::vector<uint16_t>().swap(narrow_);
        std::vector<uint32_t>().swap(wideValues_);
        wide_ = false;
    }

  private:
    static constexpr uint16_t kNarrowNone = 0xFFFF;
    void fit(uint32_t v) {
        if (wide_ || v < kNarrowNone || v == UINT32_MAX) return;
        wideValues_.resize(narrow_.size());
        for (size_t i = 0; i < narrow_.size(); ++i)
            wideValues_[i] = (*this)[i];
        std::vector<uint16_t>().swap(narrow_);
        wide_ = true;
    }
    bool wide_ = false;
    std::vector<uint16_t> narrow_;
    std::vector<uint32_t> wideValues_;
};

// The geometry of a shape, in flat arrays. Compact while it can be: corners that
// use one index for vertex, normal and pair keep one number, and a mesh of
// triangles keeps no start offsets. Shared, read-only, between shapes that merged it.
// Corner indices are relative to the piece's bases in its shape and may point
// outside the piece's own arrays (a polygon added later refers to earlier vertices).
struct MeshData {
    struct Corner {
        int32_t vertex, normal, uv;
    };
    static constexpr uint32_t kNoMaterial = UINT32_MAX;

    std::vector<Vec3> positions;
    std::vector<Vec3> normals;
    std::vector<Uv> uvs;
    bool uniform = true;         // corners in `single`, else in `full`
    IndexArray single;           // one index per corner: vertex, normal and pair
    std::vector<Corner> full;    // per corner (vertex, normal, pair)
    bool triangles = true;       // polygon p has corners [3p, 3p + 3), else `start`
    std::vector<uint32_t> start; // polygon p has corners [start[p], start[p + 1])
    IndexArray material;         // per polygon: a slot of `materials`
    std::vector<SGMaterialPtr> materials;
    // Skin weights, vertex by vertex; bones by slot. A shape holds its bones
    // weakly: a skeleton may own the node that owns the shape.
    struct Weight {
        uint32_t vertex, bone;
        float weight;
    };
    std::vector<Weight> weights;
    std::vector<std::weak_ptr<SGObject>> bones;

    size_t polygonCount() const { return material.size(); }
    size_t cornerCount() const { return uniform ? single.size() : full.size(); }
    uint32_t first(size_t p) const { return triangles ? static_cast<uint32_t>(3 * p) : start[p]; }
    uint32_t last(size_t p) const { return triangles ? static_cast<uint32_t>(3 * p + 3) : start[p + 1]; }
    Corner corner(size_t c) const {
        if (!uniform) return full[c];
        const auto i = static_cast<int32_t>(single[c]);
        return {i, i, i};
    }
    void makeFull();    // corners as (vertex, normal, pair) records
    void makeGeneral(); // explicit start offsets
    // The slot of a material in `materials`, added when new; kNoMaterial for none.
    uint32_t slotFor(const SGMaterialPtr& material);
    // The polygons and materials without those at these ascending local positions;
    // positions, normals and pairs are left empty, for the caller to move or copy.
    MeshData without(std::span<const uint32_t> polygons) const;

  private:
    std::unordered_map<const SGMaterial*, uint32_t> slotOf_;
    const SGMaterial* lastMaterial_ = nullptr; // polygons come in runs of one material
    uint32_t lastSlot_ = kNoMaterial;
};

// A shape: a polygon mesh (geometry kind 11) or any other kind (a bone: type code 16).
// Merging another shape shares its geometry in pieces. Changes through the host
// interface go to a piece of the shape's own behind the shared ones, so that adding
// and deleting polygons never copies what it does not touch; the bulk builders see
// one piece of their own.
class MemoryShape : public SGShape {
  public:
    using Corner = MeshData::Corner;

    explicit MemoryShape(int32_t geometryKind = kGeometryPolygonMesh, int32_t typeCode = kGeometryPolygonMesh)
        : kind_(geometryKind), typeCode_(typeCode) {}

    // Bulk building, for readers of large scenes. Indices are checked by addPolygon.
    std::vector<Vec3>& positions() { return own().positions; }
    std::vector<Vec3>& normals() { return own().normals; }
    std::vector<Uv>& uvs() { return own().uvs; }
    // Appends a polygon with its corners; fails on an index out of range.
    void addPolygon(const SGMaterialPtr& material, std::span<const Corner> corners);
    // Replaces the skin weights (vertex ascending); fails on a vertex out of range.
    void setWeights(const std::vector<VertexWeight>& weights);
    void reserve(size_t polygons, size_t corners);

    int32_t GetGeometryKind() override { return kind_; }
    int32_t GetTypeCode() override { return typeCode_; }
    int32_t GetVertexCount() override { return vertexCount(); }
    int32_t GetPolygonCount() override { return polygonCount(); }
    SGFace GetPolygon(int32_t position) override;
    SGFace AddPolygon() override;
    void DeletePolygons(const std::vector<int32_t>& positions) override;
    int32_t AddUV(float u, float v) override;
    void MergeShape(const SGShapePtr& other) override;
    void SetName(const std::string& name) override { name_ = name; }
    std::string GetName() override { return name_; }
    void Prepare() override {}
    void GetMeshArrays(MeshArrays& out) override;
    std::vector<VertexWeight> GetVertexWeights() override;

    int32_t FaceCornerCount(int32_t face) override;
    const SGMaterialPtr& FaceMaterial(int32_t face) override;
    void FaceSetMaterial(int32_t face, const SGMaterialPtr& material) override;
    Uv FaceCornerUV(int32_t face, int32_t corner) override;
    int32_t FaceCornerVertex(int32_t face, int32_t corner) override;
    int32_t FaceCornerNormal(int32_t face, int32_t corner) override;
    void FaceAddCorner(int32_t face, int32_t vertex, int32_t normal, int32_t uv) override;

  private:
    // One piece of the shape's geometry, with the offsets of its indices in the shape.
    struct Piece {
        std::shared_ptr<const MeshData> data;
        int32_t vertexBase = 0, normalBase = 0, uvBase = 0;
        uint32_t polygonBase = 0;
    };
    // The piece that holds a polygon, and the polygon's index in it.
    struct Located {
        Piece* piece;
        uint32_t local;
    };

    // All pieces as one piece of the shape's own.
    MeshData& own();
    // All pieces into one new array set, indices shifted by their bases.
    void concatenatePieces(MeshData& m);
    // The last piece, held by this shape alone; a new empty one behind a shared one.
    Piece& editPiece() {
        if (!pieces_.empty() && pieces_.back().data.use_count() == 1) return pieces_.back();
        return addEditPiece();
    }
    Piece& addEditPiece();
    // The piece's arrays, copied first when another shape shares them.
    static MeshData& changeable(Piece& piece) {
        if (piece.data.use_count() != 1) unshare(piece);
        return const_cast<MeshData&>(*piece.data); // made non-const by a shape, and held alone
    }
    static void unshare(Piece& piece);
    // Totals of the shape: the last piece's bases plus what it holds.
    int32_t vertexCount() const;
    int32_t normalCount() const;
    int32_t uvCount() const;
    int32_t polygonCount() const;
    // The piece of the last polygon asked for, then the last piece (where polygons
    // are added), then a search: edits alternate between an old polygon and its copy.
    Located locate(int32_t face) {
        const auto f = static_cast<uint32_t>(face);
        if (lastPiece_ < pieces_.size()) {
            Piece& q = pieces_[lastPiece_];
            if (f - q.polygonBase < q.data->polygonCount()) return {&q, f - q.polygonBase};
        }
        if (!pieces_.empty()) {
            Piece& q = pieces_.back();
            if (f - q.polygonBase < q.data->polygonCount()) return {&q, f - q.polygonBase};
        }
        return locateAmongPieces(face);
    }
    Located locateAmongPieces(int32_t face);
    // A corner in its piece's own indices, and the piece.
    Corner cornerOf(int32_t face, int32_t corner, const Piece*& piece);
    // The pair at an index relative to the piece's pair base, wherever it is stored.
    Uv pairAt(const Piece& piece, int32_t local) const;
    void checkCorner(const MeshData& d, int32_t vertex, int32_t normal, int32_t uv) const;

    int32_t kind_;
    int32_t typeCode_;
    std::string name_;
    std::vector<Piece> pieces_;
    size_t lastPiece_ = 0; // where the last polygon was found
};

class MemoryScene;

class MemoryObject : public SGObject, public std::enable_shared_from_this<MemoryObject> {
  public:
    MemoryObject(std::string name, std::shared_ptr<FieldRegistry> fields);
    // Releases the subtree without recursion, however deep it is.
    ~MemoryObject() override;
    MemoryObject(const MemoryObject&) = delete;
    MemoryObject& operator=(const MemoryObject&) = delete;

    // Building.
    std::shared_ptr<MemoryObject> addChild(const std::string& name);
    // A new last child that has the source's transform, rest, node value, fields
    // and keys (not its children or shapes), under the name given.
    std::shared_ptr<MemoryObject> addCopyOf(const MemoryObject& source, const std::string& name);
    // Moves a node (and its subtree; not an ancestor of this one) from its parent
    // to the end of this node's children.
    void adopt(std::shared_ptr<MemoryObject> child);
    void addShapeLast(const SGShapePtr& shape) { shapes_.push_back(shape); }
    void addShapeFirst(const SGShapePtr& shape) { shapes_.insert(shapes_.begin(), shape); }
    // Local transform relative to the parent; also sets the rest position unless one
    // was set explicitly.
    void setMatrix(const Matrix16& m) { matrix_ = m; }
    void setRestPosition(const Vec3& p) { rest_ = p; }
    void setNodeValue(double v) { value_ = v; }
    // The name the modeller gave the node, where the scene's differs; for messages.
    void setSourceName(std::string name) { sourceName_ = std::move(name); }
    const std::string& shownName() const { return sourceName_.empty() ? name_ : sourceName_; }
    void setFieldText(int32_t fieldId, const std::string& text) { fieldText_[fieldId] = text; }
    void setKeyframes(std::vector<KeyRecord> keys) { keys_ = std::move(keys); }
    const Matrix16& matrix() const { return matrix_; }
    const std::vector<std::shared_ptr<MemoryObject>>& children() const { return children_; }
    // This node or the first of its descendants (depth first) with that name, or
    // with that name as the modeller gave it.
    std::shared_ptr<MemoryObject> findByName(const std::string& name);

    std::string GetName() override { return name_; }
    SGObjectPtr GetParent() override { return parent_.lock(); }
    SGNodeListPtr GetChildren() override;
    SGShapeListPtr GetShapes() override;
    SGShapePtr GetShape() override;
    void AddShape(const SGShapePtr& shape) override;
    void RemoveShape(const SGShapePtr& shape) override;
    double GetNodeValue() override { return value_; }
    std::string GetFieldText(int32_t fieldId) override;
    int32_t FindMaterialField(const std::string& name) override { return fields_->findMaterial(name); }
    int32_t FindObjectField(const std::string& name) override { return fields_->findObject(name); }
    int32_t AddMaterialField(const std::string& name) override { return fields_->addMaterial(name); }
    int32_t AddObjectField(const std::string& name) override { return fields_->addObject(name); }
    Matrix16 GetRelativeMatrix(const SGObjectPtr& node, int32_t flags) override;
    Vec3 GetRelativePosition(const SGObjectPtr& node, int32_t flags) override;
    std::vector<KeyRecord> GetKeyframes(float start, float end) override;

  private:
    Matrix16 worldMatrix();

    std::string name_, sourceName_;
    std::shared_ptr<FieldRegistry> fields_;
    std::weak_ptr<MemoryObject> parent_;
    std::vector<std::shared_ptr<MemoryObject>> children_;
    std::vector<SGShapePtr> shapes_;
    Matrix16 matrix_{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1};
    std::optional<Vec3> rest_;
    double value_ = 1;
    std::map<int32_t, std::string> fieldText_;
    std::vector<KeyRecord> keys_;
};

class MemoryUnits : public SGUnits {
  public:
    std::string ToMetres(double value, int32_t unitCode) override;
};

// The scene and its document in one object.
class MemoryScene : public SGScene, public SGDocument, public std::enable_shared_from_this<MemoryScene> {
  public:
    static std::shared_ptr<MemoryScene> create(const std::string& rootName);

    std::shared_ptr<MemoryObject> root() { return root_; }
    FieldRegistry& fields() { return *fields_; }
    void setUnits(int32_t code) { units_ = code; }

    SGDocumentPtr GetDocument() override;
    SGShapePtr CreateShape() override { return std::make_shared<MemoryShape>(); }
    SGUnitsPtr CreateUnits() override { return std::make_shared<MemoryUnits>(); }
    SGObjectPtr GetRootObject() override { return root_; }
    int32_t GetUnits() override { return units_; }

  private:
    MemoryScene() = default;
    std::shared_ptr<FieldRegistry> fields_;
    std::shared_ptr<MemoryObject> root_;
    int32_t units_ = kMetres;
};

// What keepBonesWithin left out.
struct BonesLeftOut {
    std::vector<std::string> bones; // as the modeller named them, each once
    size_t vertices = 0; // vertices that kept other joints' weights, scaled back to the sum they had
};
// Leaves out, in the shapes below the group, the skin weights of bones that are
// not in the group. A vertex that keeps weights of other bones gets them scaled
// to the sum it had, so that it still moves as a whole.
BonesLeftOut keepBonesWithin(MemoryObject& group);

// 4x4 helpers on row-vector matrices.
Matrix16 multiply(const Matrix16& a, const Matrix16& b);
// Fails on a singular matrix.
Matrix16 inverse(const Matrix16& m);
// Whether a transform turns space inside out (its 3x3 part has a negative determinant).
bool mirrors(const Matrix16& m);

} // namespace tarnvale::scene
