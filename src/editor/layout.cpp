// frmOptions as laid out: every control with its place in twips, captions, tool
// tips, ranges and states. Data, read by the model and drawn by the front ends.
#include "editor/editor.h"

namespace tarnvale::editor {

namespace {

const std::vector<std::string> kBlends = {"Zero",         "One",         "SrcColor",  "InvSrcColor",
                                          "SrcAlpha",     "InvSrcAlpha", "DestAlpha", "InvDestAlpha",
                                          "DestColor",    "InvDestColor"};
const std::vector<std::string> kEmissive = {"Additive",
                                            "AdditiveNightOnly",
                                            "Blend",
                                            "MultiplyBlend",
                                            "AdditiveUserControlled",
                                            "AdditiveNightOnlyUserControlled",
                                            "BlendUserControlled",
                                            "MultiplyBlendUserControlled"};
const std::vector<std::string> kAlphaTests = {"Never",   "Less",     "Equal",        "LessEqual",
                                              "Greater", "NotEqual", "GreaterEqual", "Always"};

using K = Kind;

// A slider with small step 1, large step 5 and a tick every 10.
SliderRange range(int32_t min, int32_t max, int32_t initial) { return {min, max, 1, 5, 10, initial}; }

ControlSpec panel(int page, int32_t top, int32_t height, const char* toolTip = "") {
    static const char* kNames[kPageCount] = {"picOptions(0)", "picOptions(1)", "picOptions(2)", "picOptions(3)",
                                             "picOptions(4)", "picOptions(5)", "picOptions(6)", "picOptions(7)",
                                             "picOptions(8)", "picOptions(9)", "picOptions(10)"};
    return {kNames[page], K::Panel, -1, "", toolTip, {120, top, 9705, height}};
}

std::vector<ControlSpec> makeControls() {
    return {
        // The form around the pages.
        {"lblTex", K::Label, -1, "", "", {1260, 0, 8595, 975}},
        {"Label1(0)", K::Label, -1, "Textures 1 Textures 2 Textures 3 Textures 4", "", {0, 60, 1155, 855}},
        {"Label1(14)", K::Label, -1, "Base Material", "", {120, 4200, 1155, 255}},
        {"Picture1", K::Picture, -1, "", "", {1380, 4200, 2175, 555}},
        {"Label1(16)", K::Label, -1, "Specular (Click to change)", "", {3660, 4200, 1095, 555}},
        {"picSpec", K::Picture, -1, "", "", {4800, 4200, 2175, 615}},
        {"cmdOK", K::Button, -1, "OK", "", {7470, 4275, 1095, 555}},
        {"cmdCancel", K::Button, -1, "Cancel", "", {8700, 4275, 1095, 555}},
        {"Label1(15)", K::Label, -1, "Diffuse", "", {120, 4440, 1155, 255}},
        {"tbsOptions", K::TabStrip, -1, "", "", {60, 1140, 9855, 2925}},
        // Page 1: Other Texture.
        panel(0, 1800, 2100),
        {"sDetailMap", K::Slider, 0, "", "Number of times the detail texture is tiled", {1560, 180, 5415, 435},
         range(1, 200, 10)},
        {"Label1(1)", K::Label, 0, "Detail:", "", {360, 300, 1155, 255}},
        {"sBumpMap", K::Slider, 0, "", "Number of times the bump map is tiled.", {1560, 720, 5415, 435},
         range(1, 200, 10)},
        {"Label1(2)", K::Label, 0, "Bump:", "", {360, 840, 1155, 255}},
        // Page 2: Fresnel Ramp.
        panel(1, 1860, 2100),
        {"cmdFR", K::Button, 1, "<< None >>", "Click here to select the fresnel ramp dds file", {1680, 180, 3435, 435}},
        {"Picture2", K::Picture, 1, "", "", {5520, 240, 3840, 300}},
        {"Label1(5)", K::Label, 1, "Fresnel Ramp", "", {360, 300, 1155, 255}},
        {"chkFRDiff", K::CheckBox, 1, "Diffuse", "Fresnel affects diffuse texture", {360, 840, 1515, 255}, {}, true},
        {"chkFRRef", K::CheckBox, 1, "Reflection", "Fresnel affects reflection texture", {360, 1200, 1515, 255}, {}, true},
        {"chkFRSpec", K::CheckBox, 1, "Specular", "Fresnel affects specular map", {360, 1560, 1515, 255}, {}, true},
        // Page 3: Precipitation.
        panel(2, 1860, 2100),
        {"chkPrecip", K::CheckBox, 2, "Take into account",
         "Will cause Specular and reflection only to show when there is precipitation", {1680, 240, 2715, 315}},
        {"chkOffset", K::CheckBox, 2, "Apply offset to start", "Delay appearance of specular and reflection",
         {1680, 600, 2835, 315}},
        {"Label1(4)", K::Label, 2, "Offset:", "", {240, 1080, 1155, 255}},
        {"sPrecipOff", K::Slider, 2, "", "Offset time of delay", {1560, 1020, 5415, 435}, range(1, 100, 1)},
        // Page 4: Special Functionality.
        panel(3, 1860, 2100),
        {"Label1(6)", K::Label, 3, "Reflection Scale :", "", {4380, 60, 3735, 255}},
        {"chkSF(0)", K::CheckBox, 3, "Blend environment by inverse of diffuse alpha",
         "Blend reflection or environment map by the inverse of the diffuse map alpha.", {120, 120, 4250, 255}},
        {"sRefScale", K::Slider, 3, "", "Mulitplier for enviroment map power", {4260, 360, 5415, 435},
         range(0, 100, 100)},
        {"chkSF(1)", K::CheckBox, 3, "Blend environment by specular alpha map", "Blend reflection by specular map alpha",
         {120, 420, 4250, 255}},
        {"chkSF(2)", K::CheckBox, 3, "Blend diffuse color by diffuse alpha",
         "Blend (multiply) the diffuse color by the diffuse alpha value.", {120, 720, 4250, 255}},
        {"Label1(3)", K::Label, 3, "Specular Map Power Scale :", "", {4380, 900, 4095, 255}},
        {"chkSF(3)", K::CheckBox, 3, "Blend diffuse by inverse of specular map alpha",
         "Blend diffuse color with the inverse of the specular map alpha", {120, 1020, 4250, 255}},
        {"sSpecPower", K::Slider, 3, "", "Multiplier for specular map power", {4260, 1200, 5415, 435},
         range(0, 255, 239)},
        {"chkSF(4)", K::CheckBox, 3, "Use Global Environment Map as reflection",
         "Use the standard environment map as the reflection.", {120, 1320, 4250, 255}},
        // Page 5: Bloom.
        panel(4, 1860, 2100),
        {"chkBloom(0)", K::CheckBox, 4, "Allow Bloom", "Turn on bloom (specular by default)", {120, 60, 3800, 255}},
        {"Label1(7)", K::Label, 4, "Specular Bloom Floor :", "", {4320, 60, 3735, 255}},
        {"chkBloom(1)", K::CheckBox, 4, "Bloom material by copying", "", {120, 360, 3800, 255}},
        {"slBFloor", K::Slider, 4, "", "Value above which the specular component will bloom", {4200, 360, 5415, 435},
         range(0, 100, 90)},
        {"chkBloom(2)", K::CheckBox, 4, "Bloom material modulating by alpha", "", {120, 660, 3800, 255}},
        {"chkBloom(3)", K::CheckBox, 4, "No Specular bloom", "Turn off specular bloom", {120, 960, 3800, 255}},
        {"Label1(8)", K::Label, 4, "Ambient Scale :", "", {4320, 900, 4095, 255}},
        {"chkBloom(4)", K::CheckBox, 4, "Allow emissive bloom", "Bloom using emissive (night) texture.",
         {120, 1260, 3800, 255}},
        {"slAmbScale", K::Slider, 4, "", "Adjustment to the ambient light on the material.", {4200, 1200, 5415, 435},
         range(0, 100, 100)},
        // Page 6: Framebuffer Blend.
        panel(5, 1860, 2100),
        {"cmd1", K::Button, 5, "Set Default Opaque", "", {2580, 60, 1875, 495}},
        {"cmd2", K::Button, 5, "Set Default Transparent", "", {4920, 60, 1935, 495}},
        {"cmbSrc", K::DropDown, 5, "", "", {3960, 660, 2955, 315}, {}, false, &kBlends},
        {"Label1(10)", K::Label, 5, "Source Blend", "", {2340, 720, 1335, 255}},
        {"cmbDest", K::DropDown, 5, "", "", {3960, 1140, 2955, 315}, {}, false, &kBlends},
        {"Label1(9)", K::Label, 5, "Destination Blend", "", {2280, 1200, 1515, 255}},
        // Page 7: Emissive Properties.
        panel(6, 1860, 2100),
        {"cmbEmissive", K::DropDown, 6, "", "", {2040, 540, 2955, 315}, {}, false, &kEmissive},
        {"Label1(11)", K::Label, 6, "Emissive Mode", "", {540, 600, 1335, 255}},
        {"cmdET", K::Button, 6, "<< None >>", "", {2040, 1020, 3435, 435}},
        {"Picture3", K::Picture, 6, "", "", {5700, 1080, 3840, 300}},
        {"Label1(17)", K::Label, 6, "Emissive Texture", "", {540, 1140, 1395, 255}},
        // Page 8: Material Alpha Test.
        panel(7, 1860, 2160),
        {"chkZAlpha", K::CheckBox, 7, "Z-Test Alpha", "", {2280, 120, 4695, 255}},
        {"sAlphaTest", K::Slider, 7, "", "", {2160, 360, 5415, 435}, range(0, 100, 100)},
        {"Label1(13)", K::Label, 7, "Alpha Test Level: 0.0", "", {360, 420, 2115, 255}},
        {"Label1(12)", K::Label, 7, "Alpha Test Mode", "", {360, 840, 1635, 255}},
        {"cmbATestMode", K::DropDown, 7, "", "", {2280, 840, 2955, 315}, {}, false, &kAlphaTests},
        {"chkFinal", K::CheckBox, 7, "Final Alpha Write", "", {2280, 1260, 4695, 255}},
        {"Label1(18)", K::Label, 7, "Final Alpha Value: 255", "", {360, 1680, 2115, 255}},
        {"sFinal", K::Slider, 7, "", "", {2160, 1620, 5415, 435}, {0, 255, 1, 8, 8, 255}},
        // Page 9: Standard Materials.
        panel(8, 1860, 2100, "used for the main parts of an aircraft, where there is no alpha component"),
        {"Label2", K::Label, 8,
         "Use the mouse over tooltip to get more information anout these material settings. They are taken from the "
         "new aircraft procedures  file in the Modeling SDK.",
         "", {360, 0, 9195, 375}},
        {"cmdStd(0)", K::Button, 8, "General Material", "", {840, 420, 1575, 375}},
        {"cmdStd(1)", K::Button, 8, "Propeller", "This is used for propeller discs that have partial transparency",
         {2460, 420, 1575, 375}},
        {"cmdStd(2)", K::Button, 8, "Gloss", "Gloss is used for painted surfaces", {4080, 420, 1575, 375}},
        {"cmdStd(3)", K::Button, 8, "Chrome", "Chrome is used for propeller spinners and landing gear sliders",
         {5700, 420, 1575, 375}},
        {"cmdStd(4)", K::Button, 8, "Tail Number", "Tail numbers are used for ATC identification decals",
         {7320, 420, 1575, 375}},
        {"lstUser", K::ListBox, 8, "", "", {2460, 840, 4815, 1230}},
        {"cmdULoad", K::Button, 8, "Load", "", {7380, 840, 1455, 315}},
        {"Label3", K::Label, 8, "User Saved Materials", "", {840, 900, 1515, 435}},
        {"cmdUSave", K::Button, 8, "Save", "", {7380, 1260, 1455, 315}},
        {"cmdUDelete", K::Button, 8, "Delete", "", {7380, 1680, 1455, 315}},
        // Page 10: Enhanced Parameters.
        panel(9, 1860, 2100),
        {"chkEP(0)", K::CheckBox, 9, "Assume vertical normal", "Used for flat shading e.g. trees", {1380, 60, 3000, 255}},
        {"chkEP(6)", K::CheckBox, 9, "No base material specular", "Turn off specular lighting for the material",
         {4860, 60, 4695, 255}},
        {"chkEP(1)", K::CheckBox, 9, "Z-write alpha", "Write alpha to scene depth buffer (alpha sorting)",
         {1380, 360, 3000, 255}},
        {"chkEP(7)", K::CheckBox, 9, "Skinned mesh", "Enable skin and bone animations", {4860, 360, 4695, 255}},
        {"chkEP(2)", K::CheckBox, 9, "No Z-write", "Disable depth sorting", {1380, 660, 3000, 255}},
        {"chkEP(8)", K::CheckBox, 9, "Double sided", "Render both sides of the polygon", {4860, 660, 4695, 255}},
        {"chkEP(3)", K::CheckBox, 9, "Volume shadow", "Turn on volume shadow (object must be manifold)",
         {1380, 960, 3000, 255}},
        {"chkEP(9)", K::CheckBox, 9, "Blend constant", "Internal use", {4860, 960, 4695, 255}},
        {"chkEP(4)", K::CheckBox, 9, "No shadow", "Turn off self shadow", {1380, 1260, 3000, 255}},
        {"chkEP(10)", K::CheckBox, 9, "Force Texture Address Wrap", "", {4860, 1260, 4695, 255}},
        {"chkEP(5)", K::CheckBox, 9, "Prelit vertices", "", {1380, 1560, 3000, 255}},
        {"chkEP(11)", K::CheckBox, 9, "Force Texture Address Clamp", "", {4860, 1560, 4695, 255}},
        // Page 11: Aircraft Material.
        panel(10, 1860, 2100),
        {"chkAirMat(0)", K::CheckBox, 10, "Is virtual cockpit panel texture", "", {1020, 180, 4695, 255}},
        {"chkAirMat(1)", K::CheckBox, 10, "Is N-Number texture", "", {1020, 600, 4695, 255}},
    };
}

} // namespace

const std::vector<ControlSpec>& controlSpecs() {
    static const std::vector<ControlSpec> controls = makeControls();
    return controls;
}

const std::vector<PageSpec>& pageSpecs() {
    static const std::vector<PageSpec> pages = {
        {"Other Texture", "Other Texture Info"},
        {"Fresnel Ramp", "Fresnel Ramp"},
        {"Precipitation", "Precipitation"},
        {"Special Functionality", "Special Functionality"},
        {"Bloom", "Bloom"},
        {"Framebuffer Blend", "Framebuffer Blend"},
        {"Emissive Properties", "Emissive Properties"},
        {"Material Alpha Test", "Material Alpha Test"},
        {"Standard Materials", "Settings from SDK"},
        {"Enhanced Parameters", "Enhanced Parameters"},
        {"Aircraft Material", "Aircraft Material"},
    };
    return pages;
}

} // namespace tarnvale::editor
