// The one-line text form of a material: key=value elements joined by ";".
#include "material/material.h"
#include "platform/number_text.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <variant>

namespace tarnvale::material {

struct TextKeys {
    using Member = std::variant<float FS10Material::*, int16_t FS10Material::*, std::string FS10Material::*>;
    struct Key {
        const char* name;
        Member member;
    };
    using M = FS10Material;
    // The writer's order.
    static constexpr Key kWritten[50] = {
        {"SpecRed", &M::SpecRed},
        {"SpecGreen", &M::SpecGreen},
        {"SpecBlue", &M::SpecBlue},
        {"DetailScale", &M::DetailScale},
        {"BumpScale", &M::BumpScale},
        {"EnvLevelScale", &M::EnvironmentLevelScale},
        {"UseGlobalEnv", &M::bUseGlobalEnv},
        {"ModEnvInvDiffAlpha", &M::bModEnvInvDiffuseAlpha},
        {"ModEnvSpecAlpha", &M::bModEnvSpecularMapAlpha},
        {"FresnelDiff", &M::bFresnelDiffuse},
        {"FresnelSpec", &M::bFresnelSpecular},
        {"FresnelEnv", &M::bFresnelEnvironment},
        {"UsePrecip", &M::bUsePrecipitation},
        {"UsePrecipOffset", &M::bPrecipOffset},
        {"PrecipOffset", &M::PrecipOffset},
        {"SpecMapPowerScale", &M::SpecMapPowerScale},
        {"SrcBlend", &M::SrcBlend},
        {"DstBlend", &M::DstBlend},
        {"BlendDiffBaseAlpha", &M::BlendDiffuseByBaseAlpha},
        {"BlendDiffInvSpecMapAlpha", &M::BlendDiffuseByInverseSpecularMapAlpha},
        {"AllowBloom", &M::AllowBloom},
        {"SpecBloomFloor", &M::SpecularBloomFloor},
        {"EmissiveData", &M::EmissiveData},
        {"AlphaTestFunction", &M::AlphaTestFunction},
        {"AlphaTestValue", &M::AlphaTestValue},
        {"ZTestAlpha", &M::ZTestAlpha},
        {"AssumeVerticalNormal", &M::EPAssumeVerticalNormal},
        {"NoShadow", &M::EPNoShadow},
        {"NoZWrite", &M::EPNoZWrite},
        {"PreLitVertices", &M::EPPrelitVertices},
        {"VolumeShadow", &M::EPVolumeShadow},
        {"ZWriteAlpha", &M::EPZWriteAlpha},
        {"BaseMaterialSkin", &M::BaseMaterialSkin},
        {"DoubleSided", &M::DoubleSidedMaterial},
        {"BlendConstantSetting", &M::BlendConstantSetting},
        {"ForceTextureWrap", &M::ForceTextureAddressWrapSetting},
        {"ForceTextureClamp", &M::ForceTextureAddressClampSetting},
        {"BaseMaterialSpec", &M::BaseMaterialSpecular},
        {"NoSpecBloom", &M::NoSpecularBloom},
        {"EmissiveBloom", &M::EmissiveBloom},
        {"AmbientLightScale", &M::AmbientLightScale},
        {"EmissiveTexture", &M::EmissiveTextureFileName},
        {"ReflectionTexture", &M::ReflectionTextureFileName},
        {"FresnelTexture", &M::FresnelTextureFileName},
        {"BloomCopy", &M::BloomCopy},
        {"BloomModAlpha", &M::BloomModAlpha},
        {"IsNNumber", &M::bIsNNumber},
        {"IsVCTexture", &M::bIsVCTexture},
        {"FinalAlpha", &M::FinalAlpha},
        {"FinalAlphaValue", &M::FinalAlphaValue},
    };
    // The reader's order.
    static constexpr const char* kRead[50] = {"SpecRed",
                                              "SpecGreen",
                                              "SpecBlue",
                                              "UseGlobalEnv",
                                              "SrcBlend",
                                              "DstBlend",
                                              "DetailScale",
                                              "BumpScale",
                                              "EnvLevelScale",
                                              "ModEnvInvDiffAlpha",
                                              "ModEnvSpecAlpha",
                                              "FresnelDiff",
                                              "FresnelSpec",
                                              "FresnelEnv",
                                              "UsePrecip",
                                              "UsePrecipOffset",
                                              "PrecipOffset",
                                              "SpecMapPowerScale",
                                              "BlendDiffBaseAlpha",
                                              "BlendDiffInvSpecMapAlpha",
                                              "AllowBloom",
                                              "SpecBloomFloor",
                                              "EmissiveData",
                                              "AlphaTestFunction",
                                              "AlphaTestValue",
                                              "ZTestAlpha",
                                              "FinalAlphaValue",
                                              "FinalAlpha",
                                              "AssumeVerticalNormal",
                                              "NoShadow",
                                              "NoZWrite",
                                              "PrelitVertices",
                                              "VolumeShadow",
                                              "ZWriteAlpha",
                                              "BaseMaterialSkin",
                                              "DoubleSided",
                                              "BlendConstantSetting",
                                              "ForceTextureWrap",
                                              "ForceTextureClamp",
                                              "BaseMaterialSpec",
                                              "NoSpecBloom",
                                              "EmissiveBloom",
                                              "AmbientLightScale",
                                              "EmissiveTexture",
                                              "ReflectionTexture",
                                              "FresnelTexture",
                                              "BloomCopy",
                                              "BloomModAlpha",
                                              "IsNNumber",
                                              "IsVCTexture"};

    static const Key& byName(const char* name) {
        for (const Key& k : kWritten)
            if (strcasecmp(k.name, name) == 0) return k;
        throw Failure(err::kInvalidCall, std::string("no key ") + name);
    }
};

namespace {

bool equalNoCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

std::string trimmed(const std::string& s) {
    size_t b = s.find_first_not_of(" \t"), e = s.find_last_not_of(" \t");
    return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
}

// A number in text as the runtime converts it: blanks around, a sign, digits with
// "." as the point, an exponent; True and False as -1 and 0.
bool toNumber(const std::string& text, double& out) {
    std::string t = trimmed(text);
    if (t.empty()) return false;
    if (equalNoCase(t, "True")) return out = -1, true;
    if (equalNoCase(t, "False")) return out = 0, true;
    const char* b = t.data() + (t[0] == '+' ? 1 : 0);
    auto r = std::from_chars(b, t.data() + t.size(), out);
    return r.ec == std::errc() && r.ptr == t.data() + t.size() && std::isfinite(out);
}

} // namespace

std::string FS10Material::GetFieldValue(const std::vector<std::string>& list, const std::string& key) {
    if (key.empty()) return {};
    const std::string probe = key + "=";
    for (const std::string& element : list)
        if (element.size() >= probe.size() &&
            equalNoCase(std::string_view(element).substr(0, probe.size()), probe))
            return element.substr(probe.size());
    return {};
}

void FS10Material::loadString(const std::string& sField) {
    if (!sField.empty()) {
        FieldList.clear();
        size_t start = 0;
        while (true) {
            size_t semi = sField.find(';', start);
            FieldList.push_back(
                sField.substr(start, semi == std::string::npos ? std::string::npos : semi - start));
            if (semi == std::string::npos) break;
            start = semi + 1;
        }
        for (const char* name : TextKeys::kRead) {
            const std::string value = GetFieldValue(FieldList, name);
            std::visit(
                [&](auto member) {
                    using T = std::remove_reference_t<decltype(this->*member)>;
                    double d = 0;
                    if constexpr (std::is_same_v<T, std::string>) {
                        this->*member = value;
                    } else if constexpr (std::is_same_v<T, float>) {
                        if (toNumber(value, d) && std::fabs(d) <= 3.4028234663852886e38)
                            this->*member = float(d);
                    } else {
                        if (toNumber(value, d)) {
                            double r = std::nearbyint(d);
                            if (r >= -32768 && r <= 32767) this->*member = static_cast<int16_t>(r);
                        }
                    }
                },
                TextKeys::byName(name).member);
        }
    }
    if (Power < 3.0f) {
        SpecRed = SpecGreen = SpecBlue = 0;
        BaseMaterialSpecular = 0;
    }
}

std::string windowsTexturePaths(std::string text) {
    for (size_t start = 0; start <= text.size();) {
        const size_t end = std::min(text.find(';', start), text.size());
        const std::string_view element(text.data() + start, end - start);
        for (std::string_view key : {"EmissiveTexture=", "ReflectionTexture=", "FresnelTexture="})
            if (element.size() >= key.size() && equalNoCase(element.substr(0, key.size()), key))
                std::replace(text.begin() + static_cast<std::ptrdiff_t>(start + key.size()),
                             text.begin() + static_cast<std::ptrdiff_t>(end), '/', '\\');
        start = end + 1;
    }
    return text;
}

std::string FS10Material::toString() const {
    std::string out;
    for (const auto& key : TextKeys::kWritten) {
        if (!out.empty()) out += ';';
        out += key.name;
        out += '=';
        std::visit(
            [&](auto member) {
                using T = std::remove_cv_t<std::remove_reference_t<decltype(this->*member)>>;
                if constexpr (std::is_same_v<T, std::string>)
                    out += this->*member;
                else if constexpr (std::is_same_v<T, float>)
                    out += platform::generalSingle(this->*member, true);
                else
                    out += platform::plainNumber(this->*member);
            },
            key.member);
    }
    return out;
}

} // namespace tarnvale::material
