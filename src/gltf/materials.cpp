// glTF materials as scene materials: colours, power, texture names, fields, and
// glTF's alpha mode and double-sidedness as the simulator's material text.
#include "gltf/internal.h"
#include "material/material.h"
#include "platform/number_text.h"

namespace tarnvale::gltf {

namespace {

using scene::MemoryMaterial;
using scene::MemoryTextures;

std::string percentDecode(const std::string& s) {
    std::string out;
    for (size_t i = 0; i < s.size(); ++i) {
        if (s[i] == '%' && i + 2 < s.size() && std::isxdigit(static_cast<unsigned char>(s[i + 1])) &&
            std::isxdigit(static_cast<unsigned char>(s[i + 2]))) {
            out += static_cast<char>(std::stoi(s.substr(i + 1, 2), nullptr, 16));
            i += 2;
        } else {
            out += s[i];
        }
    }
    return out;
}

std::string extensionFor(const std::string& mimeType) {
    if (mimeType == "image/jpeg") return ".jpg";
    if (mimeType == "image/png") return ".png";
    if (mimeType == "image/webp") return ".webp";
    if (mimeType == "image/ktx2") return ".ktx2";
    if (mimeType == "image/vnd-ms.dds") return ".dds";
    return ".png";
}

// A member of a JSON object; a null value when there is none (or no object).
const tinygltf::Value& member(const tinygltf::Value& v, const char* key) {
    static const tinygltf::Value kNone;
    return v.IsObject() && v.Has(key) ? v.Get(key) : kNone;
}

float number(const tinygltf::Value& v, float otherwise) {
    return v.IsNumber() ? static_cast<float>(v.GetNumberAsDouble()) : otherwise;
}

} // namespace

std::string MaterialMap::textureName(int textureIndex, const std::string& materialName, const char* slot) {
    if (static_cast<size_t>(textureIndex) >= model_.textures.size())
        throw SceneError("material " + materialName + " names texture " + std::to_string(textureIndex) +
                         ", which does not exist");
    const tinygltf::Texture& t = model_.textures[textureIndex];
    int source = t.source;
    for (const auto& [name, ext] : t.extensions) // an image in another format's extension
        if (source < 0 && ext.Has("source") && ext.Get("source").IsInt())
            source = ext.Get("source").Get<int>();
    if (source < 0 || static_cast<size_t>(source) >= model_.images.size())
        throw SceneError("texture " + std::to_string(textureIndex) + " names no existing image");
    const tinygltf::Image& img = model_.images[source];
    std::string name;
    if (!img.uri.empty() && img.uri.rfind("data:", 0) != 0) {
        name = percentDecode(img.uri);
    } else {
        std::string mime = img.mimeType;
        if (mime.empty() && img.uri.rfind("data:", 0) == 0) mime = img.uri.substr(5, img.uri.find(';') - 5);
        name = img.name.empty() ? materialName + "_" + slot : img.name;
        for (char& c : name)
            if (c == '/' || c == '\\') c = '_';
        if (name.find('.') == std::string::npos) name += extensionFor(mime);
    }
    // Windows paths, so that folders stay folders for the texture name rules.
    name = textureFileName(name);
    for (char& c : name)
        if (c == '/') c = '\\';
    if (options_.keepImages) noteImage(source, name, std::string_view(slot) == "normal");
    return name;
}

void MaterialMap::noteImage(int image, const std::string& name, bool normalMap) {
    if (!imageIndex_.emplace(std::make_pair(image, normalMap), images_.size()).second) return;
    const tinygltf::Image& img = model_.images[static_cast<size_t>(image)];
    SourceImage s;
    s.name = name;
    s.image = image;
    s.normalMap = normalMap;
    // Every use of an image shares its bytes.
    for (const SourceImage& other : images_)
        if (other.image == image) s.bytes = other.bytes;
    const std::string index = std::to_string(image);
    if (!s.bytes && img.bufferView >= 0) {
        const std::string_view b = bufferViewBytes(model_, img.bufferView, "image " + index);
        s.bytes = std::make_shared<const std::vector<uint8_t>>(b.begin(), b.end());
    }
    if (!s.bytes && !img.image.empty()) s.bytes = std::make_shared<const std::vector<uint8_t>>(img.image);
    if (img.uri.rfind("data:", 0) == 0)
        s.origin = "the data: URI of image " + index;
    else if (!img.uri.empty())
        s.origin = s.file = (folder_.empty() ? "" : folder_ + "/") + percentDecode(img.uri);
    else
        s.origin = "image " + index + " in the file's buffers";
    images_.push_back(std::move(s));
}

void MaterialMap::readFields(const tinygltf::Value& extras, MemoryMaterial& m) {
    if (!extras.IsObject()) return;
    for (const std::string& key : extras.Keys())
        if (const tinygltf::Value& v = extras.Get(key); v.IsString())
            m.fields[scene_.fields().addMaterial(key)] =
                key == options_.materialField ? material::windowsTexturePaths(v.Get<std::string>())
                                              : v.Get<std::string>();
}

void MaterialMap::addIntent(const tinygltf::Material& g, const std::shared_ptr<MemoryMaterial>& material) {
    MemoryMaterial& m = *material;
    // An opaque material ignores its alpha; a masked one is tested, not blended.
    if (g.alphaMode != "BLEND" && g.alphaMode != "MASK") m.diffuse.a = 1;
    const bool mask = g.alphaMode == "MASK";
    const int32_t field = scene_.fields().addMaterial(options_.materialField);
    if ((!mask && !g.doubleSided) || m.fields.count(field)) return; // a text of the user's own stands
    // The blend that the export derives, so that the text does not change it.
    material::FS10Material derived;
    derived.CreateCSG(material, -1);
    std::string text;
    if (mask)
        text = "SrcBlend=One;DstBlend=Zero;AlphaTestFunction=GreaterEqual;AlphaTestValue=" +
               platform::generalSingle(static_cast<float>(g.alphaCutoff), true) + ";ZTestAlpha=1";
    else
        text = "SrcBlend=" + derived.SrcBlend + ";DstBlend=" + derived.DstBlend +
               ";AlphaTestFunction=" + derived.AlphaTestFunction;
    text += ";EmissiveData=" + derived.EmissiveData;
    if (g.doubleSided) text += ";DoubleSided=1";
    m.fields[field] = text;
}

void MaterialMap::collect(LoadedScene& out) {
    for (size_t i = 0; i < model_.materials.size(); ++i)
        out.materials.push_back(get(static_cast<int>(i)));
    out.defaultMaterial = default_;
    out.images = std::move(images_);
}

std::shared_ptr<MemoryMaterial> MaterialMap::get(int index) {
    if (index < 0) {
        if (!default_) {
            default_ = std::make_shared<MemoryMaterial>();
            default_->name = "default";
            default_->diffuse = {1, 1, 1, 1};
            default_->power = powerFromRoughness(1.0f);
        }
        return default_;
    }
    if (static_cast<size_t>(index) >= model_.materials.size())
        throw SceneError("a primitive names material " + std::to_string(index) + ", which does not exist");
    auto& slot = materials_[index];
    if (slot) return slot;
    const tinygltf::Material& g = model_.materials[index];
    auto m = std::make_shared<MemoryMaterial>();
    m->sourceName = g.name.empty() ? "material_" + std::to_string(index) : g.name;
    m->name = identifierName(m->sourceName);
    const auto& pbr = g.pbrMetallicRoughness;
    auto channel = [](const std::vector<double>& v, size_t i, double def) {
        return static_cast<float>(i < v.size() ? v[i] : def);
    };
    m->diffuse = {channel(pbr.baseColorFactor, 0, 1), channel(pbr.baseColorFactor, 1, 1),
                  channel(pbr.baseColorFactor, 2, 1), channel(pbr.baseColorFactor, 3, 1)};
    m->emissive = {channel(g.emissiveFactor, 0, 0), channel(g.emissiveFactor, 1, 0),
                   channel(g.emissiveFactor, 2, 0)};
    if (auto it = g.extensions.find("KHR_materials_emissive_strength"); it != g.extensions.end()) {
        // The strength scales the colour; the host material's colour stops at 1.
        const float strength = number(member(it->second, "emissiveStrength"), 1.0f);
        auto scaled = [strength](float c) { return std::clamp(c * strength, 0.0f, 1.0f); };
        m->emissive = {scaled(m->emissive.r), scaled(m->emissive.g), scaled(m->emissive.b)};
    }
    m->specular = {1, 1, 1};
    m->power = powerFromRoughness(static_cast<float>(pbr.roughnessFactor));

    int specularTexture = -1;
    if (auto it = g.extensions.find("KHR_materials_specular"); it != g.extensions.end()) {
        const tinygltf::Value& e = it->second;
        const float factor = number(member(e, "specularFactor"), 1.0f);
        Rgb colour{1, 1, 1};
        if (const tinygltf::Value& c = member(e, "specularColorFactor"); c.IsArray() && c.ArrayLen() == 3)
            colour = {number(c.Get(0), 1), number(c.Get(1), 1), number(c.Get(2), 1)};
        m->specular = {colour.r * factor, colour.g * factor, colour.b * factor};
        for (const char* key : {"specularColorTexture", "specularTexture"})
            if (const tinygltf::Value& i = member(member(e, key), "index"); specularTexture < 0 && i.IsInt())
                specularTexture = i.Get<int>();
    }
    const int base = pbr.baseColorTexture.index, normal = g.normalTexture.index;
    if (base >= 0 || normal >= 0 || specularTexture >= 0) {
        auto t = std::make_shared<MemoryTextures>();
        // No base colour texture: no diffuse name at all ("." would be taken for one).
        t->fileName = base >= 0 ? textureName(base, m->sourceName, "basecolor") : "";
        t->bumpFileName = normal >= 0 ? textureName(normal, m->sourceName, "normal") : ".";
        t->specularFileName =
            specularTexture >= 0 ? textureName(specularTexture, m->sourceName, "specular") : ".";
        t->detailFileName = ".";
        m->textures = t;
    }
    // A colour picked in the editor of a modeller that writes no KHR_materials_specular.
    if (const tinygltf::Value& c = member(g.extras, "tarnvale_specular"); c.IsArray() && c.ArrayLen() == 3)
        m->specular = {number(c.Get(0), 1), number(c.Get(1), 1), number(c.Get(2), 1)};
    readFields(g.extras, *m);
    addIntent(g, m);
    slot = m;
    return m;
}

float powerFromRoughness(float roughness) {
    double r = std::clamp(static_cast<double>(roughness), 0.0, 1.0);
    double r4 = r * r * r * r;
    double exponent = r4 > 0 ? std::min(249.0, 2.0 / r4 - 2.0) : 249.0;
    if (exponent < 1.0) return 0.0f;
    return static_cast<float>(250.0 - exponent);
}

} // namespace tarnvale::gltf
