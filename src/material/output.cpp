// Output: the FS10Material block of one Material in the X file.
#include "material/material.h"
#include "platform/number_text.h"

#include <cctype>
#include <strings.h>

namespace tarnvale::material {

namespace {

using platform::TextSink;

std::string D(float v) { return FS10Material::FormatSingle(v); }
std::string N(int16_t v) { return platform::paddedNumber(v); }
// A Single as the runtime prints it: a blank ahead unless negative, no digit
// before the point below 1, a blank behind.
std::string F(float v) {
    std::string text(v < 0 ? "" : " ");
    text += platform::generalSingle(v, false);
    text += ' ';
    return text;
}
std::string quoted(const std::string& s) {
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

bool containsNoCase(const std::string& hay, const std::string& needle) {
    if (needle.empty()) return true;
    for (size_t i = 0; i + needle.size() <= hay.size(); ++i)
        if (strncasecmp(hay.data() + i, needle.data(), needle.size()) == 0) return true;
    return false;
}

std::string upper(std::string s) {
    // Upper case in the output's code page.
    std::string b = platform::toWindows1252(s);
    for (char& ch : b) {
        auto c = static_cast<unsigned char>(ch);
        if ((c >= 'a' && c <= 'z') || (c >= 0xE0 && c <= 0xFE && c != 0xF7)) c = static_cast<unsigned char>(c - 32);
        else if (c == 0x9A || c == 0x9C || c == 0x9E) c = static_cast<unsigned char>(c - 16);
        else if (c == 0xFF) c = 0x9F;
        ch = static_cast<char>(c);
    }
    return platform::fromWindows1252(b);
}

} // namespace

std::string FS10Material::FormatSingle(float value) { return platform::formatMask(value, 1, 7); }

std::string FS10Material::NormalizeTextureName(std::string& name, std::string& warnings) const {
    if (bIsVCTexture == 1) {
        size_t dot = name.rfind('.');
        if (dot != std::string::npos) name.erase(dot);
    }
    size_t slash = name.rfind('\\');
    if (slash != std::string::npos) name.erase(0, slash + 1);
    name = upper(name);
    const bool dds = name.size() >= 3 && name.compare(name.size() - 3, 3, "DDS") == 0;
    if (!dds && bIsVCTexture == 0) {
        if (!containsNoCase(warnings, name))
            warnings += "Warning - " + name + " is not a DDS file and will need converting\r";
        // A name of fewer than three characters has no ending to replace.
        if (name.size() >= 3) name.replace(name.size() - 3, 3, "DDS");
    }
    return name;
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
    line(file, quoted(SrcBlend) + "; " + quoted(DstBlend) + "; // blend");
    block(file, "BlendDiffuseByBaseAlpha", N(BlendDiffuseByBaseAlpha) + ";");
    block(file, "BlendDiffuseByInverseSpecularMapAlpha", N(BlendDiffuseByInverseSpecularMapAlpha) + ";");
    block(file, "AllowBloom", N(AllowBloom) + ";");
    block(file, "SpecularBloomFloor", D(SpecularBloomFloor) + ";");
    block(file, "EmissiveData", quoted(EmissiveData) + ";");
    line(file, "AlphaData  {");
    line(file, N(ZTestAlpha) + ";  // ZTest Alpha");
    line(file, F(AlphaTestValue) + ";  // Alpha test threshold");
    line(file, quoted(AlphaTestFunction) + ";  // Alpha test function");
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
    const std::pair<const char*, std::string*> textures[] = {
        {"BumpTextureFileName", &BumpTextureFileName},         {"DetailTextureFileName", &DetailTextureFileName},
        {"FresnelTextureFileName", &FresnelTextureFileName},   {"DiffuseTextureFileName", &DiffuseTextureFileName},
        {"SpecularTextureFileName", &SpecularTextureFileName}, {"ReflectionTextureFileName", &ReflectionTextureFileName},
        {"EmissiveTextureFileName", &EmissiveTextureFileName},
    };
    for (const auto& [blockName, field] : textures)
        if (!field->empty()) block(file, blockName, quoted(NormalizeTextureName(*field, warnings)) + ";");
    line(file, "}  // FS10Material end");
    return warnings;
}

} // namespace tarnvale::material
