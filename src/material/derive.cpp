// Creating a record from a host material, and the colour integers.
#include "material/material.h"

#include <cmath>

namespace tarnvale::material {

namespace {

// The constant as a 32-bit float, as the host's alpha is compared with it.
constexpr float kOpaqueAlpha = 0.97f;

std::string noneIfDot(const std::string& name) {
    return name == "." ? std::string() : name;
}

int32_t pack(float r, float g, float b) {
    // The product is taken in double, then rounded half to even.
    auto channel = [](float c) {
        return static_cast<int32_t>(std::nearbyint(static_cast<double>(c) * 255.0));
    };
    return channel(r) + channel(g) * 256 + channel(b) * 65536;
}

} // namespace

void FS10Material::setBlend(bool blended) {
    SrcBlend = blended ? "SrcAlpha" : "One";
    DstBlend = blended ? "InvSrcAlpha" : "Zero";
}

void FS10Material::CreateCSG(const SGMaterialPtr& m, int32_t fieldId) {
    if (!m) throw Failure(err::kObjectNotSet, "Object variable not set: no material");
    HostMaterial = m;
    Rgba d = m->GetDiffuse();
    DiffRed = d.r, DiffGreen = d.g, DiffBlue = d.b, DiffAlpha = d.a;
    const bool blended = DiffAlpha < kOpaqueAlpha;
    if (!blended) DiffAlpha = 1.0f;
    Rgb s = m->GetSpecular();
    SpecRed = s.r, SpecGreen = s.g, SpecBlue = s.b;
    float p = m->GetPower();
    Power = p == 0 ? 0.0f : 250.0f - p;
    bUseGlobalEnv = 0;
    if (SGTexturesPtr t = m->GetTextures()) {
        BumpTextureFileName = noneIfDot(t->GetBumpFileName());
        DetailTextureFileName = noneIfDot(t->GetDetailFileName());
        SpecularTextureFileName = noneIfDot(t->GetSpecularFileName());
        DiffuseTextureFileName = t->GetFileName();
        if (platform::characterCount(t->GetReflectionFileName()) > 2) bUseGlobalEnv = 1;
    }
    setBlend(blended);
    loadString(m->GetMaterialField(fieldId));
}

void FS10Material::Create(const SGStatePtr& m, int32_t fieldId) {
    if (!m) throw Failure(err::kObjectNotSet, "Object variable not set: no material");
    Rgb d = m->GetDiffuse();
    DiffRed = d.r, DiffGreen = d.g, DiffBlue = d.b;
    int32_t a = m->GetAlphaPercent();
    const bool blended = a > 1;
    DiffAlpha = blended ? static_cast<float>(a) / 100.0f : 1.0f;
    bUseGlobalEnv = 0;
    Power = static_cast<float>(m->GetShininess()) * 2.5f;
    BumpTextureFileName = m->GetBumpFileName();
    DetailTextureFileName = m->GetDetailFileName();
    SpecularTextureFileName = m->GetSpecularFileName();
    DiffuseTextureFileName = m->GetFileName();
    if (platform::characterCount(m->GetReflectionFileName()) > 2) bUseGlobalEnv = 1;
    setBlend(blended);
    loadString(m->GetMaterialField(fieldId));
}

int32_t FS10Material::getDiffColor() const {
    return pack(DiffRed, DiffGreen, DiffBlue);
}
int32_t FS10Material::getSpecColor() const {
    return pack(SpecRed, SpecGreen, SpecBlue);
}

void FS10Material::setSpecular(int32_t l) {
    SpecBlue = static_cast<float>(static_cast<double>(l / 65536) / 255.0);
    SpecGreen = static_cast<float>(static_cast<double>((l / 256) % 256) / 255.0);
    SpecRed = static_cast<float>(static_cast<double>(l % 256) / 255.0);
    if (HostMaterial) HostMaterial->SetSpecular(SpecRed, SpecGreen, SpecBlue);
}

void FS10Material::Edit() {
    if (!Editor) throw Failure(err::kObjectNotSet, "Object variable not set: no editor for the material");
    Editor->edit(*this);
}

} // namespace tarnvale::material
