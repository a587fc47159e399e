// Output: the FS10Material block of one Material in the X file.
#include "material/material.h"
#include "platform/number_text.h"

namespace tarnvale::material {

namespace {

using platform::TextSink;

// The texture blocks at the record's end, in the order they are written.
constexpr std::pair<const char*, std::string FS10Material::*> kTextureBlocks[] = {
    {"BumpTextureFileName", &FS10Material::BumpTextureFileName},
    {"DetailTextureFileName", &FS10Material::DetailTextureFileName},
    {"FresnelTextureFileName", &FS10Material::FresnelTextureFileName},
    {"DiffuseTextureFileName", &FS10Material::DiffuseTextureFileName},
    {"SpecularTextureFileName", &FS10Material::SpecularTextureFileName},
    {"ReflectionTextureFileName", &FS10Material::ReflectionTextureFileName},
    {"EmissiveTextureFileName", &FS10Material::EmissiveTextureFileName},
};

std::string D(float v) {
    return FS10Material::FormatSingle(v);
}
std::string N(int16_t v) {
    return platform::paddedNumber(v);
}
// A Single as the runtime prints it: a blank ahead unless negative, no digit
// before the point below 1, a blank behind.
std::string F(float v) {
    std::string text(v < 0 ? "" : " ");
    text += platform::generalSingle(v, false);
    text += ' ';
    return text;
}
std::string inQuotes(const std::string& s) {
    std::string text(1, '"');
    text += s;
    text += '"';
    return text;
}

void line(TextSink& file, const std::string& text) {
    file.write(text);
    file.endLine();
}

void block(TextSink& file, const char* name, const std::string& value) {
    line(file, std::string(name) + " {");
    line(file, value);
    line(file, "}");
}

} // namespace

std::string FS10Material::FormatSingle(float value) {
    return platform::formatMask(value, 1, 7);
}

std::string FS10Material::NormalizeTextureName(std::string& name, std::string& warnings) const {
    if (bIsVCTexture == 1) {
        size_t dot = name.rfind('.');
        if (dot != std::string::npos) name.erase(dot);
    }
    size_t slash = name.rfind('\\');
    if (slash != std::string::npos) name.erase(0, slash + 1);
    name = platform::upperCase(name);
    // The last three characters, not bytes: a name is UTF-8 here.
    const size_t characters = platform::characterCount(name);
    const size_t ending = characters >= 3 ? platform::characterOffset(name, characters - 3) : 0;
    const bool dds = characters >= 3 && name.compare(ending, std::string::npos, "DDS") == 0;
    if (!dds && bIsVCTexture == 0) {
        if (!platform::containsNoCase(warnings, name))
            warnings += "Warning - " + name + " is not a DDS file and will need converting\r";
        // A name of fewer than three characters has no ending to replace.
        if (characters >= 3) name.replace(ending, std::string::npos, "DDS");
    }
    return name;
}

std::vector<std::string> FS10Material::textureNames() const {
    std::vector<std::string> names;
    for (const auto& [blockName, field] : kTextureBlocks)
        if (!(this->*field).empty()) names.push_back(this->*field);
    return names;
}

std::string FS10Material::Output(TextSink& file) {
    std::string warnings;
    line(file, "FS10Material {");
    line(file, D(DiffRed) + ";" + D(DiffGreen) + ";" + D(DiffBlue) + ";" + D(DiffAlpha) + ";;");
    line(file, D(SpecRed) + ";" + D(SpecGreen) + ";" + D(SpecBlue) + ";;");
    line(file, D(Power) + ";  // Spec power");
    line(file, D(DetailScale) + ";" + D(BumpScale) + ";  // detail and bump scales");
    line(file, D(EnvironmentLevelScale) + ";  // scale env level");
    line(file, N(bUseGlobalEnv) + "; // use global env");
    line(file, N(bModEnvInvDiffuseAlpha) + "; // mod env inv diff alpha");
    line(file, N(bModEnvSpecularMapAlpha) + "; // mod env spec alpha");
    line(file, N(bFresnelDiffuse) + ";" + N(bFresnelSpecular) + ";" + N(bFresnelEnvironment) +
                   "; // fresnel diff, spec, env");
    line(file, N(bUsePrecipitation) + ";" + N(bPrecipOffset) + ";" + D(PrecipOffset) +
                   "; // precip use, offset, offset val");
    line(file, D(SpecMapPowerScale) + "; // specmap power");
    line(file, inQuotes(SrcBlend) + "; " + inQuotes(DstBlend) + "; // blend");
    block(file, "BlendDiffuseByBaseAlpha", N(BlendDiffuseByBaseAlpha) + ";");
    block(file, "BlendDiffuseByInverseSpecularMapAlpha", N(BlendDiffuseByInverseSpecularMapAlpha) + ";");
    block(file, "AllowBloom", N(AllowBloom) + ";");
    block(file, "SpecularBloomFloor", D(SpecularBloomFloor) + ";");
    block(file, "EmissiveData", inQuotes(EmissiveData) + ";");
    line(file, "AlphaData  {");
    line(file, N(ZTestAlpha) + ";  // ZTest Alpha");
    line(file, F(AlphaTestValue) + ";  // Alpha test threshold");
    line(file, inQuotes(AlphaTestFunction) + ";  // Alpha test function");
    line(file, N(FinalAlpha) + ";  // Perform final alpha write");
    line(file, D(FinalAlphaValue) + ";  // Final alpha value");
    line(file, "}");
    line(file, "EnhancedParameters  {");
    line(file, N(EPAssumeVerticalNormal) + ";  // Assume vertical normal");
    line(file, N(EPZWriteAlpha) + ";  // Z-Write alpha");
    line(file, N(EPNoZWrite) + ";  // No Z-Write");
    line(file, N(EPVolumeShadow) + ";  // Volume shadow");
    line(file, N(EPNoShadow) + ";  // No shadow");
    line(file, N(EPPrelitVertices) + ";  // PRelit vertices");
    line(file, "}");
    block(file, "BaseMaterialSkin", N(BaseMaterialSkin) + ";");
    block(file, "DoubleSidedMaterial", N(DoubleSidedMaterial) + ";");
    block(file, "BlendConstantSetting", N(BlendConstantSetting) + ";");
    block(file, "ForceTextureAddressWrapSetting", N(ForceTextureAddressWrapSetting) + ";");
    block(file, "ForceTextureAddressClampSetting", N(ForceTextureAddressClampSetting) + "; ");
    block(file, "BaseMaterialSpecular", N(BaseMaterialSpecular) + ";");
    block(file, "NoSpecularBloom", N(NoSpecularBloom) + ";");
    block(file, "EmissiveBloom", N(EmissiveBloom) + ";");
    block(file, "BloomData", N(BloomCopy) + ";" + N(BloomModAlpha) + ";");
    block(file, "AmbientLightScale", D(AmbientLightScale) + ";");

    if (bIsNNumber == 1) block(file, "NNumberTexture", N(bIsNNumber) + ";");
    for (const auto& [blockName, field] : kTextureBlocks)
        if (!(this->*field).empty())
            block(file, blockName, inQuotes(NormalizeTextureName(this->*field, warnings)) + ";");
    line(file, "}  // FS10Material end");
    return warnings;
}

} // namespace tarnvale::material
