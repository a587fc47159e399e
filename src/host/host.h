// The scene as the exporter sees it: the host's interfaces, held by counted
// references. Implementations live elsewhere (src/scene); this header has no logic.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace tarnvale {

// The one failure type of the system: a host call, a file, the XML layer or the
// export's own arithmetic failed. Carries the number and text the failure box shows.
class Failure : public std::runtime_error {
  public:
    Failure(int32_t number, const std::string& description)
        : std::runtime_error(description), number_(number) {}
    // A failure with no pending error: the handler shows the stage text alone.
    static Failure withoutPendingError() { return Failure(0, ""); }
    int32_t number() const { return number_; }
    std::string description() const { return what(); }

  private:
    int32_t number_;
};

// Error numbers used across the system, in the numbering of the host's runtime.
namespace err {
inline constexpr int32_t kInvalidCall = 5;
inline constexpr int32_t kOverflow = 6;
inline constexpr int32_t kSubscript = 9;
inline constexpr int32_t kTypeMismatch = 13;
inline constexpr int32_t kDivisionByZero = 11;
inline constexpr int32_t kFileNotFound = 53;
inline constexpr int32_t kFileAccess = 75;
inline constexpr int32_t kPathNotFound = 76;
inline constexpr int32_t kObjectNotSet = 91;
} // namespace err

class SGScene;
class SGDocument;
class SGUnits;
class SGObject;
class SGNodeList;
class SGShapeList;
class SGShape;
class SGMaterial;
class SGTextures;
class SGState;

using SGScenePtr = std::shared_ptr<SGScene>;
using SGDocumentPtr = std::shared_ptr<SGDocument>;
using SGUnitsPtr = std::shared_ptr<SGUnits>;
using SGObjectPtr = std::shared_ptr<SGObject>;
using SGNodeListPtr = std::shared_ptr<SGNodeList>;
using SGShapeListPtr = std::shared_ptr<SGShapeList>;
using SGShapePtr = std::shared_ptr<SGShape>;
using SGMaterialPtr = std::shared_ptr<SGMaterial>;
using SGTexturesPtr = std::shared_ptr<SGTextures>;
using SGStatePtr = std::shared_ptr<SGState>;

struct Rgb {
    float r = 0, g = 0, b = 0;
};
struct Rgba {
    float r = 0, g = 0, b = 0, a = 1;
};
struct Vec3 {
    float x = 0, y = 0, z = 0;
};
struct Uv {
    float u = 0, v = 0;
};

// 16 values, four rows of four, in the order of an X FrameTransformMatrix
// (row vectors, translation in the last row).
using Matrix16 = std::array<float, 16>;

// One keyframe record. kind 0 is a position key, 2 a rotation key (kx, ky, kz, kw
// a quaternion with w last).
struct KeyRecord {
    int32_t reserved0 = 0;
    float time = 0;
    int32_t kind = 0;
    float kx = 0, ky = 0, kz = 0, kw = 0;
    int32_t reserved1 = 0;
};

// A vertex record of GetMeshArrays: position and its texture pair share one index.
struct MeshVertex {
    float x = 0, y = 0, z = 0, u = 0, v = 0;
};
struct MeshNormal {
    float x = 0, y = 0, z = 0;
};

// What GetMeshArrays gives. polygons is the stream: per polygon n, then n pairs of
// (vertex index, normal index). extra is not looked at by the exporter.
// repeated: for each vertex record past the shape's positions (another texture
// pair at a position), the position it repeats.
struct MeshArrays {
    std::vector<MeshVertex> vertices;
    int32_t vertexCount = 0;
    std::vector<MeshNormal> normals;
    int32_t normalCount = 0;
    std::vector<int32_t> polygons;
    int32_t extra = 0;
    std::vector<int32_t> repeated;
};

// A vertex's share of a bone, as a skin gives it: 0-based vertex, the bone's node,
// the weight (not normalised).
struct VertexWeight {
    int32_t vertex = 0;
    SGObjectPtr bone;
    float weight = 0;
};

// A polygon of a shape: a light handle (shape, index), valid while the shape lives
// and its polygon list is not shortened.
class SGFace {
  public:
    SGFace(SGShape* shape, int32_t index) : shape_(shape), index_(index) {}
    int32_t index() const { return index_; }
    int32_t GetCornerCount() const;
    // The polygon's material, or none; the reference is valid until the shape changes.
    const SGMaterialPtr& GetMaterial() const;
    void SetMaterial(const SGMaterialPtr& material);
    Uv GetCornerUV(int32_t corner) const;
    int32_t GetCornerVertex(int32_t corner) const;
    int32_t GetCornerNormal(int32_t corner) const;
    void AddCorner(int32_t vertex, int32_t normal, int32_t uv);

  private:
    SGShape* shape_;
    int32_t index_;
};

class SGUnits {
  public:
    virtual ~SGUnits() = default;
    // value in the given unit code, as metres, in decimal text with a "." point.
    virtual std::string ToMetres(double value, int32_t unitCode) = 0;
};

class SGDocument {
  public:
    virtual ~SGDocument() = default;
    virtual SGObjectPtr GetRootObject() = 0;
    // Unit code of the scene's coordinates.
    virtual int32_t GetUnits() = 0;
};

class SGScene {
  public:
    virtual ~SGScene() = default;
    virtual SGDocumentPtr GetDocument() = 0;
    // A new shape, attached to no node.
    virtual SGShapePtr CreateShape() = 0;
    // Stands for the program creating the host's units object.
    virtual SGUnitsPtr CreateUnits() = 0;
};

class SGNodeList {
  public:
    virtual ~SGNodeList() = default;
    virtual int32_t GetCount() = 0;
    // 0-based; a position out of range fails.
    virtual SGObjectPtr GetItem(int32_t position) = 0;
};

class SGShapeList {
  public:
    virtual ~SGShapeList() = default;
    virtual int32_t GetCount() = 0;
    virtual SGShapePtr GetItem(int32_t position) = 0;
};

class SGObject {
  public:
    virtual ~SGObject() = default;
    virtual std::string GetName() = 0;
    // None for the root object.
    virtual SGObjectPtr GetParent() = 0;
    virtual SGNodeListPtr GetChildren() = 0;
    // The node's own shapes in list order (not those of its children).
    virtual SGShapeListPtr GetShapes() = 0;
    // The first shape, or none.
    virtual SGShapePtr GetShape() = 0;
    virtual void AddShape(const SGShapePtr& shape) = 0;
    virtual void RemoveShape(const SGShapePtr& shape) = 0;
    virtual double GetNodeValue() = 0;
    // Text of the object field with that id; empty when never set.
    virtual std::string GetFieldText(int32_t fieldId) = 0;
    // Ids of named fields of the scene; Find gives a negative id when there is none.
    virtual int32_t FindMaterialField(const std::string& name) = 0;
    virtual int32_t FindObjectField(const std::string& name) = 0;
    virtual int32_t AddMaterialField(const std::string& name) = 0;
    virtual int32_t AddObjectField(const std::string& name) = 0;
    // This node's transform relative to `node` (its parent, as the exporter asks).
    virtual Matrix16 GetRelativeMatrix(const SGObjectPtr& node, int32_t flags) = 0;
    // This node's rest position relative to `node`.
    virtual Vec3 GetRelativePosition(const SGObjectPtr& node, int32_t flags) = 0;
    // All keys with start <= time <= end, in the host's order.
    virtual std::vector<KeyRecord> GetKeyframes(float start, float end) = 0;
};

class SGShape {
  public:
    virtual ~SGShape() = default;
    // 11 is a polygon mesh.
    virtual int32_t GetGeometryKind() = 0;
    // Modulo 100 equal to 16 is a bone.
    virtual int32_t GetTypeCode() = 0;
    virtual int32_t GetVertexCount() = 0;
    virtual int32_t GetPolygonCount() = 0;
    virtual SGFace GetPolygon(int32_t position) = 0;
    // Appends an empty polygon and gives it.
    virtual SGFace AddPolygon() = 0;
    // Removes the polygons at these positions (ascending); the others keep their order.
    virtual void DeletePolygons(const std::vector<int32_t>& positions) = 0;
    // Stores a texture pair and gives its index.
    virtual int32_t AddUV(float u, float v) = 0;
    // Appends all vertices, normals, pairs and polygons of `other`, with their materials.
    virtual void MergeShape(const SGShapePtr& other) = 0;
    virtual void SetName(const std::string& name) = 0;
    virtual std::string GetName() = 0;
    // Brings the shape up to date before it is read.
    virtual void Prepare() = 0;
    virtual void GetMeshArrays(MeshArrays& out) = 0;
    // The skin weights of the shape's vertices, vertex by vertex, in the scene's
    // order; none for a shape without a skin.
    virtual std::vector<VertexWeight> GetVertexWeights() = 0;

    // Polygon operations behind SGFace.
    virtual int32_t FaceCornerCount(int32_t face) = 0;
    virtual const SGMaterialPtr& FaceMaterial(int32_t face) = 0;
    virtual void FaceSetMaterial(int32_t face, const SGMaterialPtr& material) = 0;
    virtual Uv FaceCornerUV(int32_t face, int32_t corner) = 0;
    virtual int32_t FaceCornerVertex(int32_t face, int32_t corner) = 0;
    virtual int32_t FaceCornerNormal(int32_t face, int32_t corner) = 0;
    virtual void FaceAddCorner(int32_t face, int32_t vertex, int32_t normal, int32_t uv) = 0;
};

class SGTextures {
  public:
    virtual ~SGTextures() = default;
    virtual std::string GetFileName() = 0;
    virtual std::string GetBumpFileName() = 0;
    virtual std::string GetDetailFileName() = 0;
    virtual std::string GetSpecularFileName() = 0;
    virtual std::string GetReflectionFileName() = 0;
};

class SGMaterial {
  public:
    virtual ~SGMaterial() = default;
    virtual std::string GetName() = 0;
    virtual void SetName(const std::string& name) = 0;
    // Specular power (shininess exponent).
    virtual float GetPower() = 0;
    virtual Rgba GetDiffuse() = 0;
    virtual Rgb GetSpecular() = 0;
    virtual Rgb GetEmissive() = 0;
    virtual void SetSpecular(float r, float g, float b) = 0;
    // None when the material uses no texture.
    virtual SGTexturesPtr GetTextures() = 0;
    // Text of the material field with that id; empty when never set.
    virtual std::string GetMaterialField(int32_t fieldId) = 0;
};

// The host's older flat material.
class SGState {
  public:
    virtual ~SGState() = default;
    virtual std::string GetFileName() = 0;
    virtual std::string GetBumpFileName() = 0;
    virtual std::string GetDetailFileName() = 0;
    virtual std::string GetSpecularFileName() = 0;
    virtual std::string GetReflectionFileName() = 0;
    virtual Rgb GetDiffuse() = 0;
    // Opacity in percent.
    virtual int32_t GetAlphaPercent() = 0;
    virtual int32_t GetShininess() = 0;
    virtual std::string GetMaterialField(int32_t fieldId) = 0;
};

inline int32_t SGFace::GetCornerCount() const {
    return shape_->FaceCornerCount(index_);
}
inline const SGMaterialPtr& SGFace::GetMaterial() const {
    return shape_->FaceMaterial(index_);
}
inline void SGFace::SetMaterial(const SGMaterialPtr& m) {
    shape_->FaceSetMaterial(index_, m);
}
inline Uv SGFace::GetCornerUV(int32_t c) const {
    return shape_->FaceCornerUV(index_, c);
}
inline int32_t SGFace::GetCornerVertex(int32_t c) const {
    return shape_->FaceCornerVertex(index_, c);
}
inline int32_t SGFace::GetCornerNormal(int32_t c) const {
    return shape_->FaceCornerNormal(index_, c);
}
inline void SGFace::AddCorner(int32_t v, int32_t n, int32_t uv) {
    shape_->FaceAddCorner(index_, v, n, uv);
}

// The host's import/export plug-in interface, as a plug-in answers it.
class PluginImportExport {
  public:
    virtual ~PluginImportExport() = default;
    // Exports the group beside ExportFileName. ApplicationState and the user data
    // are the host's and are not looked at.
    virtual void PluginImportExport_Export(const std::string& ExportFileName, const SGObjectPtr& ExportGroup,
                                           const SGScenePtr& SceneGraph, int32_t ApplicationState,
                                           const std::vector<float>& UserDataSingles,
                                           const std::vector<int32_t>& UserDataLongs,
                                           const std::string& UserDataString) = 0;
    virtual std::string PluginImportExport_Author() = 0;
    virtual int32_t PluginImportExport_PluginClass() = 0;
    virtual int32_t PluginImportExport_Cost() = 0;
    virtual std::string PluginImportExport_FileType() = 0;
    virtual std::string PluginImportExport_FileTypeDescription() = 0;
    virtual void PluginImportExport_Import(const std::string& ImportFileName, const SGObjectPtr& ImportGroup,
                                           const SGScenePtr& SceneGraph, int32_t ApplicationState,
                                           const std::vector<float>& UserDataSingles,
                                           const std::vector<int32_t>& UserDataLongs,
                                           const std::string& UserDataString) = 0;
    virtual bool PluginImportExport_SupportExport() = 0;
    virtual bool PluginImportExport_SupportImport() = 0;
    // The plug-in's icon; none is a null reference.
    virtual std::shared_ptr<void> PluginImportExport_Icon() = 0;
};

// Geometry kind and type codes that the exporter tests.
inline constexpr int32_t kGeometryPolygonMesh = 11;
inline constexpr int32_t kTypeCodeBone = 16;

} // namespace tarnvale
