// The MeshMaterialList of a mesh: materials by first use, each written in full.
#include "xfile/xfile.h"

#include <algorithm>

#include <charconv>
#include <cstring>

#include <unordered_map>

namespace tarnvale::xfile {

namespace {

// Slots of the materials array: indices 0 to 1000.
constexpr int32_t kMaterialSlots = 1001;

[[noreturn]] void outOfRange() {
    throw Failure(err::kSubscript, "Subscript out of range");
}

std::string real(float v) {
    return pFormatNumber(v);
}

// The DDS files a record names, each once: what a texture conversion must make.
void noteDdsNames(const std::vector<std::string>& written, std::vector<std::string>& names) {
    for (const std::string& name : written)
        if (name.ends_with(".DDS") && std::find(names.begin(), names.end(), name) == names.end())
            names.push_back(name);
}

} // namespace

std::string XFileExporter::pTextureName(const std::string& path) {
    size_t slash = path.rfind('\\');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

void XFileExporter::pBuildMaterialTable(const SGShapePtr& shape, std::vector<int32_t>& faceMaterials,
                                        int32_t triangleCount, std::vector<SGMaterialPtr>& materials,
                                        int32_t& materialCount) {
    materialCount = 0;
    if (triangleCount <= 0) outOfRange(); // no face materials array can be formed
    materials.assign(kMaterialSlots, nullptr);
    faceMaterials.assign(static_cast<size_t>(triangleCount), 0);
    // The slots hold each material once, so a map gives the same first-use index as
    // a search of the slots, without the search's cost per polygon.
    std::unordered_map<const SGMaterial*, int32_t> slotOf;
    size_t face = 0;
    const int32_t polygons = shape->GetPolygonCount();
    for (int32_t i = 0; i < polygons; ++i) {
        SGFace polygon = shape->GetPolygon(i);
        const SGMaterialPtr& m = polygon.GetMaterial();
        const int32_t triangles = polygon.GetCornerCount() - 2;
        int32_t index;
        auto it = m ? slotOf.find(m.get()) : slotOf.end();
        if (it != slotOf.end()) {
            index = it->second;
        } else if (materialCount >= kMaterialSlots) {
            outOfRange(); // the search runs past the last slot
        } else if (!m) {
            index = materialCount; // no material matches the empty slot; nothing is stored
        } else {
            index = materialCount;
            materials[index] = m;
            slotOf.emplace(m.get(), index);
            ++materialCount;
        }
        for (int32_t t = 0; t < triangles; ++t) {
            if (face >= faceMaterials.size()) outOfRange();
            faceMaterials[face++] = index;
        }
    }
    materials.resize(static_cast<size_t>(materialCount));
}

void XFileExporter::pWriteMaterialList(const SGShapePtr& shape, TextSink& file, const std::string& meshName,
                                       int32_t triangleCount) {
    std::vector<int32_t> faceMaterials;
    std::vector<SGMaterialPtr> materials;
    int32_t materialCount = 0;
    pBuildMaterialTable(shape, faceMaterials, triangleCount, materials, materialCount);
    file.writeRaw("MeshMaterialList {\r\n" + plainNumber(materialCount) + ";        // " +
                  paddedNumber(materialCount) + "Materials\r\n" + plainNumber(triangleCount) + ";  // " +
                  paddedNumber(triangleCount) + "faces with materials\r\n");
    const size_t faces = faceMaterials.size();
    writeInChunks(file, f_.workers, faces,
                  [indices = std::move(faceMaterials)](size_t first, size_t end, TextSink& out) {
                      for (size_t i = first; i < end; ++i) {
                          char* p = out.claim(16);
                          if (i > 0) p = std::copy_n(",\r\n", 3, p);
                          out.commit(std::to_chars(p, p + 13, indices[i]).ptr);
                      }
                  });
    file.writeRaw(";\r\n");
    for (int32_t i = 0; i < materialCount; ++i) {
        materials[i]->SetName("mtl_" + meshName + "_" + plainNumber(i));
        pWriteMaterial(materials[i], file);
    }
    file.writeRaw("} // end material list ");
    file.write(meshName);
    file.endLine();
}

void XFileExporter::pWriteMaterial(const SGMaterialPtr& material, TextSink& file) {
    std::string path;
    if (SGTexturesPtr textures = material->GetTextures()) path = textures->GetFileName();
    float power = material->GetPower();
    if (power < 1.0f) power = 250.0f;
    file.writeRaw("Material ");
    file.write(material->GetName());
    file.writeRaw(" {\r\n");
    Rgba d = material->GetDiffuse();
    if (d.a >= 0.97f) d.a = 1.0f;
    file.writeRaw(real(d.r) + ";" + real(d.g) + ";" + real(d.b) + ";" + real(d.a) + ";;\r\n");
    file.writeRaw(real(250.0f - power) + ";\r\n");
    Rgb s = material->GetSpecular();
    file.writeRaw(real(s.r) + ";" + real(s.g) + ";" + real(s.b) + ";;\r\n");
    Rgb e = material->GetEmissive();
    file.writeRaw(real(e.r) + ";" + real(e.g) + ";" + real(e.b) + ";;\r\n");
    if (!path.empty()) {
        const std::string name = pTextureName(path);
        for (const char* block : {" TextureFileName {", " DiffuseTextureFileName {"}) {
            file.writeRaw(block);
            file.writeRaw("\r\n     \"");
            file.write(name);
            file.writeRaw("\";\r\n }\r\n");
        }
    }
    material::FS10Material record;
    record.CreateCSG(material, f_.lMaterialFieldId);
    std::string warnings = record.Output(file);
    if (!warnings.empty()) f_.AppendStatus(warnings);
    if (f_.ddsNames) noteDdsNames(record.textureNames(), *f_.ddsNames);
    file.writeRaw("}     // end material ");
    file.write(material->GetName());
    file.endLine();
}

} // namespace tarnvale::xfile
