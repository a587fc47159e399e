// pWriteMesh: one Mesh block, strictly in the order the file reads.
#include "xfile/index_texts.h"
#include "xfile/xfile.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <unordered_map>

namespace tarnvale::xfile {

namespace {

// Writes one line of numbers at a time straight into the sink's buffer.
class LineBuffer {
  public:
    static constexpr size_t kMaxLine = 512;
    explicit LineBuffer(TextSink& file) : file_(file) {}
    void begin() { p_ = file_.claim(kMaxLine); }
    void raw(std::string_view s) {
        std::memcpy(p_, s.data(), s.size());
        p_ += s.size();
    }
    void real(float v) { p_ = formatNumberTo(v, p_); }
    void index(int32_t v, const IndexTexts& texts) { p_ = texts.write(v, p_); }
    void end() { file_.commit(p_); }

  private:
    TextSink& file_;
    char* p_ = nullptr;
};

// A list of (x, y, z) records: "x; y; z;" each, joined by "," and a line end.
template <typename Record>
void writeTriples(TextSink& file, platform::Workers* workers,
                  std::shared_ptr<const std::vector<Record>> records, int32_t count) {
    writeInChunks(file, workers, static_cast<size_t>(count),
                  [records](size_t first, size_t end, TextSink& out) {
                      LineBuffer line(out);
                      for (size_t i = first; i < end; ++i) {
                          line.begin();
                          if (i > 0) line.raw(",\r\n");
                          const Record& r = (*records)[i];
                          line.real(r.x);
                          line.raw("; ");
                          line.real(r.y);
                          line.raw("; ");
                          line.real(r.z);
                          line.raw(";");
                          line.end();
                      }
                  });
}

const int32_t& entry(const std::vector<int32_t>& stream, size_t at) {
    if (at >= stream.size()) throw Failure(err::kSubscript, "Subscript out of range: polygon stream");
    return stream[at];
}

// The fans of all polygons, " 3;a,b,c;" each, with the vertex (offset 0) or the
// normal (offset 1) indices of the corners.
void writeTriangleList(TextSink& file, platform::Workers* workers, int32_t polygonCount,
                       std::shared_ptr<const std::vector<int32_t>> polygonStream, int offset,
                       std::shared_ptr<const IndexTexts> indexTexts) {
    const std::vector<int32_t>& stream = *polygonStream;
    // Where each chunk's polygons start in the stream, and whether a triangle (and
    // so a separator) comes before them.
    const size_t polygons = static_cast<size_t>(std::max(polygonCount, 0));
    const size_t grain = chunkItems(workers);
    std::vector<size_t> start((polygons + grain - 1) / grain + 1);
    std::vector<char> written(start.size());
    for (size_t poly = 0, p = 0; poly < polygons; ++poly) {
        if (poly % grain == 0) start[poly / grain] = p;
        const int32_t n = entry(stream, p);
        if (n >= 3) written[poly / grain + 1] = 1;
        p += 2 * static_cast<size_t>(std::max(n, 0)) + 1;
    }
    for (size_t c = 1; c < written.size(); ++c)
        written[c] = written[c] || written[c - 1];
    writeInChunks(file, workers, polygons,
                  [polygonStream, offset, indexTexts, grain, start = std::move(start),
                   written = std::move(written)](size_t firstPolygon, size_t end, TextSink& out) {
                      const std::vector<int32_t>& corners = *polygonStream;
                      const IndexTexts& texts = *indexTexts;
                      LineBuffer line(out);
                      size_t p = start[firstPolygon / grain];
                      bool first = !written[firstPolygon / grain];
                      for (size_t poly = firstPolygon; poly < end; ++poly) {
                          const int32_t n = entry(corners, p);
                          for (int32_t j = 0; j <= n - 3; ++j) {
                              line.begin();
                              if (!first) line.raw(",\r\n");
                              first = false;
                              line.raw(" 3;");
                              line.index(entry(corners, p + 1 + offset), texts);
                              line.raw(",");
                              line.index(entry(corners, p + 1 + 2 * (j + 1) + offset), texts);
                              line.raw(",");
                              line.index(entry(corners, p + 1 + 2 * (j + 2) + offset), texts);
                              line.raw(";");
                              line.end();
                          }
                          p += 2 * static_cast<size_t>(std::max(n, 0)) + 1;
                      }
                  });
}

} // namespace

int32_t XFileExporter::pCountTriangles(int32_t polygonCount, const std::vector<int32_t>& stream) {
    int64_t count = 0;
    size_t p = 0;
    for (int32_t poly = 0; poly < polygonCount; ++poly) {
        const int32_t n = entry(stream, p);
        count += n - 2;
        p += 2 * static_cast<size_t>(std::max(n, 0)) + 1;
    }
    if (count > INT32_MAX) throw Failure(err::kOverflow, "Overflow");
    return static_cast<int32_t>(count);
}

void XFileExporter::pFlipTextureV(const SGShapePtr& shape) {
    const int32_t count = shape->GetPolygonCount();
    std::vector<int32_t> toDelete;
    const SGMaterial* lastSeen = nullptr;
    bool seen = false, marked = false;
    // A record per material object, made once: the records are the same for every
    // polygon of that material, so alternating materials stay linear.
    std::unordered_map<const SGMaterial*, bool> isVC;
    for (int32_t i = 0; i < count; ++i) {
        SGFace face = shape->GetPolygon(i);
        const SGMaterialPtr& m = face.GetMaterial(); // valid until the shape changes
        if (!seen || m.get() != lastSeen) {
            auto it = isVC.find(m.get());
            if (it == isVC.end()) {
                material::FS10Material record;
                record.CreateCSG(m, f_.lMaterialFieldId);
                it = isVC.emplace(m.get(), record.bIsVCTexture == 1).first;
            }
            marked = it->second;
            lastSeen = m.get();
            seen = true;
        }
        if (!marked) continue;
        const SGMaterialPtr material = m; // held: the shape grows below
        SGFace copy = shape->AddPolygon();
        copy.SetMaterial(material);
        for (int32_t j = 0, corners = face.GetCornerCount(); j < corners; ++j) {
            Uv uv = face.GetCornerUV(j);
            int32_t index = shape->AddUV(uv.u, -uv.v);
            copy.AddCorner(face.GetCornerVertex(j), face.GetCornerNormal(j), index);
        }
        toDelete.push_back(i);
    }
    if (!toDelete.empty()) shape->DeletePolygons(toDelete);
}

void XFileExporter::pWriteMesh(const SGShapePtr& shape, TextSink& file, const std::string& meshName,
                               const SGObjectPtr&) {
    file.writeRaw("Mesh ");
    file.write(meshName);
    file.writeRaw(" {");
    file.endLine();
    shape->Prepare();
    pFlipTextureV(shape);
    // Shared with the chunks of its numbers, which may be formatted after this
    // returns; nothing changes the arrays once they are gathered.
    const auto arrays = std::make_shared<MeshArrays>();
    MeshArrays& a = *arrays;
    shape->GetMeshArrays(a);
    if (a.vertexCount < 0 || static_cast<size_t>(a.vertexCount) > a.vertices.size() || a.normalCount < 0 ||
        static_cast<size_t>(a.normalCount) > a.normals.size())
        throw Failure(err::kSubscript, "Subscript out of range: mesh arrays");

    const std::string name = platform::toWindows1252(meshName);
    file.writeRaw(plainNumber(a.vertexCount) + ";  // " + name + " contains " + paddedNumber(a.vertexCount) +
                  "vertices\r\n");
    const int32_t polygonCount = shape->GetPolygonCount();
    writeTriples(file, f_.workers, std::shared_ptr<const std::vector<MeshVertex>>(arrays, &a.vertices),
                 a.vertexCount);
    file.writeRaw(";\r\n\r\n");
    meshProgress(polygonCount, 0.2);

    const int32_t triangleCount = pCountTriangles(polygonCount, a.polygons);
    file.writeRaw(plainNumber(triangleCount) + ";  // ***** " + name + " has " + paddedNumber(triangleCount) +
                  "faces\r\n");
    const auto indexTexts = std::make_shared<const IndexTexts>(std::max(a.vertexCount, a.normalCount));
    const std::shared_ptr<const std::vector<int32_t>> polygons(arrays, &a.polygons);
    writeTriangleList(file, f_.workers, polygonCount, polygons, 0, indexTexts);
    file.writeRaw(";\r\n\r\n");
    meshProgress(polygonCount, 0.4);

    pWriteMaterialList(shape, file, meshName, triangleCount);
    meshProgress(polygonCount, 0.5);

    file.writeRaw("MeshNormals {\r\n" + plainNumber(a.normalCount) + ";  // " + name + " has " +
                  paddedNumber(a.normalCount) + " normals\r\n");
    writeTriples(file, f_.workers, std::shared_ptr<const std::vector<MeshNormal>>(arrays, &a.normals),
                 a.normalCount);
    file.writeRaw(";\r\n" + plainNumber(triangleCount) + ";     // " + name + paddedNumber(triangleCount) +
                  " faces with normals\r\n");
    writeTriangleList(file, f_.workers, polygonCount, polygons, 1, indexTexts);
    file.writeRaw(";\r\n} // end mesh normals " + name + "\r\n");
    meshProgress(polygonCount, 0.8);

    if (ObjectBones* record = recordOf(shape.get())) {
        // Further records of a position carry its weights, so that the block
        // numbers the vertices as the Mesh block does.
        for (int32_t i = record->Count(); i < a.vertexCount; ++i) {
            const size_t extra = static_cast<size_t>(i) - (a.vertices.size() - a.repeated.size());
            record->appendCopyOf(extra < a.repeated.size() ? a.repeated[extra] + 1 : 0);
        }
        record->Export(file, meshName);
    }

    // Shift each axis by the whole number that brings its smallest value (never
    // above 0) into [0, 1): this also brings back the mirrored v of cockpit polygons.
    float minU = 0, minV = 0;
    for (int32_t i = 0; i < a.vertexCount; ++i) {
        minU = std::min(minU, a.vertices[i].u);
        minV = std::min(minV, a.vertices[i].v);
    }
    const float shiftU = -std::floor(minU), shiftV = -std::floor(minV);
    file.writeRaw("MeshTextureCoords {\r\n" + plainNumber(a.vertexCount) + ";      // " +
                  paddedNumber(a.vertexCount) + " uv pairs\r\n");
    writeInChunks(file, f_.workers, static_cast<size_t>(a.vertexCount),
                  [arrays, shiftU, shiftV](size_t first, size_t end, TextSink& out) {
                      const std::vector<MeshVertex>& vertices = arrays->vertices;
                      LineBuffer pairs(out);
                      for (size_t i = first; i < end; ++i) {
                          pairs.begin();
                          if (i > 0) pairs.raw(",\r\n");
                          pairs.real(vertices[i].u + shiftU);
                          pairs.raw("; ");
                          pairs.real(vertices[i].v + shiftV);
                          pairs.raw(";");
                          pairs.end();
                      }
                  });
    file.writeRaw(";\r\n\r\n} // end mesh text coords " + name + "\r\n} // end mesh " + name + "\r\n");
    meshProgress(polygonCount, 1.0);
}

} // namespace tarnvale::xfile
