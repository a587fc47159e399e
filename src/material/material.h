// The simulator's material model: the record FS10Material, its one-line text form,
// its X template block, and its derivation from host materials.
#pragma once

#include "host/host.h"
#include "platform/platform.h"

#include <cstdint>
#include <string>
#include <vector>

namespace tarnvale::material {

class FS10Material;

// Shows a record in the material editor's window; OK writes the record, Cancel
// leaves it. Implemented by the editor, so that this code needs no toolkit.
class RecordEditor {
  public:
    virtual ~RecordEditor() = default;
    virtual void edit(FS10Material& record) = 0;
};

// One material's simulator parameters. Flags are 16-bit: 0 off, 1 on.
class FS10Material {
  public:
    // ---- Public fields, with their defaults --------------------------------------
    float Power = 0;          // specular power, from the host material
    float DetailScale = 1.0f; // times the detail texture is tiled
    float BumpScale = 1.0f;   // times the bump map is tiled
    float EnvironmentLevelScale = 0.3f;
    int16_t bUseGlobalEnv = 0;
    int16_t bModEnvInvDiffuseAlpha = 0;
    int16_t bModEnvSpecularMapAlpha = 0;
    int16_t bFresnelDiffuse = 0;
    int16_t bFresnelSpecular = 0;
    int16_t bFresnelEnvironment = 0;
    int16_t bUsePrecipitation = 0;
    int16_t bPrecipOffset = 0;
    float PrecipOffset = 0;
    float SpecMapPowerScale = 202.0f;
    std::string SrcBlend = "One";
    std::string DstBlend = "Zero";
    int16_t BlendDiffuseByBaseAlpha = 0;
    int16_t BlendDiffuseByInverseSpecularMapAlpha = 0;
    int16_t AllowBloom = 1;
    float SpecularBloomFloor = 0.9f;
    std::string EmissiveData = "Blend";
    int16_t BaseMaterialSkin = 0;
    int16_t DoubleSidedMaterial = 0;
    int16_t BlendConstantSetting = 0;
    int16_t ForceTextureAddressWrapSetting = 1;
    int16_t ForceTextureAddressClampSetting = 0;
    int16_t BaseMaterialSpecular = 1;
    int16_t NoSpecularBloom = 0;
    int16_t EmissiveBloom = 0;
    int16_t ZTestAlpha = 0;
    float AlphaTestValue = 0.1f;
    int16_t FinalAlpha = 0;
    float FinalAlphaValue = 255.0f;
    std::string AlphaTestFunction = "Never";
    float AmbientLightScale = 1.0f;
    std::string DiffuseTextureFileName;  // from the host material
    std::string SpecularTextureFileName; // from the host material
    std::string EmissiveTextureFileName;
    std::string ReflectionTextureFileName;
    std::string BumpTextureFileName;   // from the host material
    std::string DetailTextureFileName; // from the host material
    std::string FresnelTextureFileName;
    int16_t EPAssumeVerticalNormal = 0;
    int16_t EPZWriteAlpha = 0;
    int16_t EPNoZWrite = 0;
    int16_t EPVolumeShadow = 0;
    int16_t EPNoShadow = 0;
    int16_t EPPrelitVertices = 0;
    int16_t BloomCopy = 0;
    int16_t BloomModAlpha = 0;
    int16_t bIsNNumber = 0;
    int16_t bIsVCTexture = 0; // a virtual cockpit panel texture

    // ---- Operations --------------------------------------------------------------
    // Writes the FS10Material block; gives the warnings (empty as a rule). The
    // texture name fields hold the written names afterwards.
    std::string Output(platform::TextSink& file);
    // The texture names that are set, in the order Output writes their blocks
    // (after Output: as written).
    std::vector<std::string> textureNames() const;
    // From the host's older flat material.
    void Create(const SGStatePtr& m, int32_t fieldId);
    // From a host material: colours, blend, power, textures, then the custom field.
    void CreateCSG(const SGMaterialPtr& m, int32_t fieldId);
    // Reads the text form; keys it lacks keep (numbers) or empty (texts) their field.
    void loadString(const std::string& sField);
    // The text form: 50 key=value elements joined by ";".
    std::string toString() const;
    // Diffuse and specular colour as red + green*256 + blue*65536.
    int32_t getDiffColor() const;
    int32_t getSpecColor() const;
    // Sets the specular colour from a colour integer and passes it to the host material.
    void setSpecular(int32_t l);
    // Opens the editor on this record (modal); fails when no editor was given.
    void Edit();
    // Who shows the editor for Edit; none by default.
    std::shared_ptr<RecordEditor> Editor;

    // The value of key in a list of key=value elements, ignoring case; empty if absent.
    static std::string GetFieldValue(const std::vector<std::string>& list, const std::string& key);
    // A Single by the mask "0.0######".
    static std::string FormatSingle(float value);
    // The texture name rule of the block: path dropped, upper case, DDS ending.
    std::string NormalizeTextureName(std::string& name, std::string& warnings) const;

    // The private colours, read for tests and the editor.
    Rgba diffuse() const { return {DiffRed, DiffGreen, DiffBlue, DiffAlpha}; }
    Rgb specular() const { return {SpecRed, SpecGreen, SpecBlue}; }
    const std::vector<std::string>& fieldList() const { return FieldList; }
    const SGMaterialPtr& hostMaterial() const { return HostMaterial; }

  private:
    float DiffRed = 0, DiffGreen = 0, DiffBlue = 0, DiffAlpha = 0;
    float SpecRed = 0.9f, SpecGreen = 0.9f, SpecBlue = 0.9f;
    std::vector<std::string> FieldList;
    SGMaterialPtr HostMaterial;

    void setBlend(bool blended);
    friend struct TextKeys;
};

// ---- Standard presets --------------------------------------------------------------

inline constexpr int kPresetCount = 5;

// A control that the presets set, with its value under each preset (nullptr: that
// preset leaves it alone). Values are the control's own: "1" for a ticked box, a
// slider's number, a texture button's file name.
struct PresetCell {
    const char* control;
    const char* values[kPresetCount];
};

enum class BlendDefault { None, Opaque, Transparent };

// The cells in the order a preset sets them; its blend default runs after them.
const std::vector<PresetCell>& presetCells();
BlendDefault presetBlendDefault(int index);

// A text form written where folders part with "/" (Linux, macOS, the Blender
// add-on): the paths of its texture keys (EmissiveTexture, ReflectionTexture,
// FresnelTexture) with "\" for "/", as the texture name rules take them.
std::string windowsTexturePaths(std::string textForm);

// ---- User library -----------------------------------------------------------------

// The folder's files whose last six characters, in upper case, are "FSXMAT", as
// spelled on disk, in the order the file system gives them; no folders, no hidden
// files.
std::vector<std::string> listLibraryFiles(const std::string& folder);
// The first line of a library file as UTF-8 text, its texture paths in the
// Windows form (windowsTexturePaths); empty when it cannot be read.
std::string readLibraryLine(const std::string& path);
// Writes the text form as the file's one line (Windows-1252, CR LF), replacing a
// file that exists; false when it cannot be written.
bool writeLibraryLine(const std::string& path, const std::string& text);

} // namespace tarnvale::material
