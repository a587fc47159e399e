// frmOptions: the binding of the controls to the record, and what each control
// does when it is used. No handler touches the record but cmdOK's ReadMaterial.
#include "editor/editor.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <strings.h>
#include <variant>

namespace tarnvale::editor {

namespace {

using material::FS10Material;
using M = FS10Material;

// A control bound to a field: a flag to a check box, a Single to a slider by a
// factor, a text to a drop-down list or a texture button.
struct Binding {
    const char* control;
    std::variant<int16_t M::*, float M::*, std::string M::*> field;
    double factor = 0;
};

// In the order ShowMaterial applies them.
const Binding kBindings[] = {
    {"sDetailMap", &M::DetailScale, 10},
    {"sBumpMap", &M::BumpScale, 10},
    {"cmdFR", &M::FresnelTextureFileName},
    {"chkFRDiff", &M::bFresnelDiffuse},
    {"chkFRRef", &M::bFresnelEnvironment},
    {"chkFRSpec", &M::bFresnelSpecular},
    {"chkPrecip", &M::bUsePrecipitation},
    {"chkOffset", &M::bPrecipOffset},
    {"sPrecipOff", &M::PrecipOffset, 10},
    {"chkSF(0)", &M::bModEnvInvDiffuseAlpha},
    {"chkSF(1)", &M::bModEnvSpecularMapAlpha},
    {"chkSF(2)", &M::BlendDiffuseByBaseAlpha},
    {"chkSF(3)", &M::BlendDiffuseByInverseSpecularMapAlpha},
    {"chkSF(4)", &M::bUseGlobalEnv},
    {"sRefScale", &M::EnvironmentLevelScale, 100},
    {"sSpecPower", &M::SpecMapPowerScale, 1},
    {"chkBloom(0)", &M::AllowBloom},
    {"chkBloom(1)", &M::BloomCopy},
    {"chkBloom(2)", &M::BloomModAlpha},
    {"chkBloom(3)", &M::NoSpecularBloom},
    {"chkBloom(4)", &M::EmissiveBloom},
    {"slBFloor", &M::SpecularBloomFloor, 100},
    {"slAmbScale", &M::AmbientLightScale, 100},
    {"cmbDest", &M::DstBlend},
    {"cmbSrc", &M::SrcBlend},
    {"cmbEmissive", &M::EmissiveData},
    {"cmdET", &M::EmissiveTextureFileName},
    {"chkZAlpha", &M::ZTestAlpha},
    {"sAlphaTest", &M::AlphaTestValue, 100},
    {"cmbATestMode", &M::AlphaTestFunction},
    {"chkFinal", &M::FinalAlpha},
    {"sFinal", &M::FinalAlphaValue, 1},
    {"chkEP(0)", &M::EPAssumeVerticalNormal},
    {"chkEP(1)", &M::EPZWriteAlpha},
    {"chkEP(2)", &M::EPNoZWrite},
    {"chkEP(3)", &M::EPVolumeShadow},
    {"chkEP(4)", &M::EPNoShadow},
    {"chkEP(5)", &M::EPPrelitVertices},
    {"chkEP(6)", &M::BaseMaterialSpecular},
    {"chkEP(7)", &M::BaseMaterialSkin},
    {"chkEP(8)", &M::DoubleSidedMaterial},
    {"chkEP(9)", &M::BlendConstantSetting},
    {"chkEP(10)", &M::ForceTextureAddressWrapSetting},
    {"chkEP(11)", &M::ForceTextureAddressClampSetting},
    {"chkAirMat(0)", &M::bIsVCTexture},
    {"chkAirMat(1)", &M::bIsNNumber},
};

// ReadMaterial's order; "picSpec" stands for the specular colour.
const char* const kReadOrder[] = {
    "sDetailMap", "sBumpMap",     "cmdFR",       "chkFRDiff",    "chkFRRef",     "chkFRSpec",   "chkPrecip",
    "chkOffset",  "sPrecipOff",   "chkSF(0)",    "chkSF(1)",     "chkSF(2)",     "chkSF(3)",    "chkSF(4)",
    "sRefScale",  "sSpecPower",   "chkBloom(0)", "chkBloom(1)",  "chkBloom(2)",  "chkBloom(3)", "chkBloom(4)",
    "slBFloor",   "slAmbScale",   "cmbSrc",      "cmbDest",      "cmbEmissive",  "cmdET",       "chkZAlpha",
    "sAlphaTest", "cmbATestMode", "chkFinal",    "sFinal",       "chkEP(0)",     "chkEP(1)",    "chkEP(2)",
    "chkEP(3)",   "chkEP(4)",     "chkEP(5)",    "chkEP(6)",     "chkEP(7)",     "chkEP(8)",    "chkEP(9)",
    "chkEP(10)",  "chkEP(11)",    "picSpec",     "chkAirMat(1)", "chkAirMat(0)",
};

// Each slider's label: the prefix and the divisor of the number behind it.
struct SliderLabel {
    const char* slider;
    const char* label;
    const char* prefix;
    double divisor;
};
const SliderLabel kSliderLabels[] = {
    {"sDetailMap", "Label1(1)", "Detail: ", 10},
    {"sBumpMap", "Label1(2)", "Bump: ", 10},
    {"sPrecipOff", "Label1(4)", "Offset: ", 10},
    {"sRefScale", "Label1(6)", "Reflection Scale: ", 100},
    {"sSpecPower", "Label1(3)", "Specular Map Power Scale: ", 1},
    {"slBFloor", "Label1(7)", "Specular Bloom Floor : ", 100},
    {"slAmbScale", "Label1(8)", "Ambient Scale : ", 100},
    {"sAlphaTest", "Label1(13)", "Alpha Test Level : ", 100},
    {"sFinal", "Label1(18)", "Final Alpha Value: ", 1},
};

// Pairs of boxes that exclude each other.
const std::pair<const char*, const char*> kExclusions[] = {{"chkBloom(1)", "chkBloom(2)"},
                                                           {"chkSF(0)", "chkSF(1)"}};

// A quotient in its shortest general decimal form: 0.9, 1, 0.05.
std::string shortNumber(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.15g", v);
    return buf;
}

const Binding& bindingOf(const std::string& control) {
    for (const Binding& b : kBindings)
        if (control == b.control) return b;
    throw std::logic_error("no binding for " + control);
}

} // namespace

bool readablePicture(const std::string& path) {
    std::ifstream in(platform::systemPath(path), std::ios::binary);
    char head[4] = {};
    in.read(head, 4);
    const std::string_view h(head, static_cast<size_t>(in.gcount()));
    return h.substr(0, 2) == "BM" || h.substr(0, 3) == "GIF" || h.substr(0, 3) == "\xFF\xD8\xFF";
}

frmOptions::frmOptions(DialogBoxes& boxes, std::string libraryFolder)
    : boxes_(boxes), library_(std::move(libraryFolder)) {
    for (const ControlSpec& layout : controlSpecs()) {
        ControlState c;
        c.layout = &layout;
        c.caption = layout.caption;
        c.toolTip = layout.toolTip;
        c.rect = layout.rect;
        c.value = layout.kind == Kind::Slider ? layout.slider.initial : layout.startsTicked ? 1 : 0;
        controls_.push_back(std::move(c));
    }
}

ControlState& frmOptions::control(const std::string& name) {
    for (ControlState& c : controls_)
        if (name == c.layout->name) return c;
    throw std::out_of_range("frmOptions has no control " + name);
}

void frmOptions::Form_Load() {
    control("Label1(0)").caption = "Diffuse\rDetail\rBump\rSpecular";
    ShowMaterial(*EditMaterial);
    ListUserMaterials();
}

// ---- Binding ---------------------------------------------------------------------------

void frmOptions::ShowMaterial(FS10Material& m) {
    const FS10Material fresh; // a list shows a new record's item for a text it lacks
    control("Picture1").backColour = m.getDiffColor();
    control("picSpec").backColour = m.getSpecColor();
    control("lblTex").caption = m.DiffuseTextureFileName + "\r" + m.DetailTextureFileName + "\r" +
                                m.BumpTextureFileName + "\r" + m.SpecularTextureFileName;
    for (const Binding& b : kBindings) {
        ControlState& c = control(b.control);
        if (auto flag = std::get_if<int16_t M::*>(&b.field)) {
            setChecked(c, m.*(*flag) != 0 ? 1 : 0);
        } else if (auto single = std::get_if<float M::*>(&b.field)) {
            // In double precision, a half to the even neighbour.
            const double scaled = std::nearbyint(static_cast<double>(m.*(*single)) * b.factor);
            setSlider(c, static_cast<int32_t>(std::clamp(scaled, -2147483648.0, 2147483647.0)));
        } else {
            const auto field = std::get<std::string M::*>(b.field);
            const std::string& text = m.*field;
            if (c.layout->kind == Kind::Button)
                SetTextureButton(text, c);
            else if (std::string(b.control) != "cmbEmissive" || !text.empty())
                setListText(c, text, fresh.*field);
        }
    }
}

void frmOptions::ReadMaterial(FS10Material& m) {
    for (const char* name : kReadOrder) {
        ControlState& c = control(name);
        if (c.layout->kind == Kind::Picture) {
            // An untouched swatch leaves the colour's parts exact.
            if (c.backColour != m.getSpecColor()) m.setSpecular(c.backColour);
            continue;
        }
        const Binding& b = bindingOf(name);
        if (auto flag = std::get_if<int16_t M::*>(&b.field))
            m.*(*flag) = c.value != 0 ? 1 : 0;
        else if (auto single = std::get_if<float M::*>(&b.field))
            m.*(*single) = static_cast<float>(c.value / b.factor);
        else
            m.*std::get<std::string M::*>(b.field) = c.layout->kind == Kind::Button ? c.tag : c.text;
    }
}

void frmOptions::SetTextureButton(const std::string& path, ControlState& button) {
    button.tag = path;
    const size_t slash = path.rfind('\\');
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    button.caption = name.empty() ? "<< None >>" : name;
}

// ---- Controls set by the program, as by a person -------------------------------------------

void frmOptions::setChecked(ControlState& box, int32_t state) {
    if (box.value == state) return;
    box.value = state;
    onCheck(box);
}

void frmOptions::setSlider(ControlState& slider, int32_t value) {
    value = std::clamp(value, slider.layout->slider.min, slider.layout->slider.max);
    if (slider.value == value) return;
    slider.value = value;
    onSlider(slider);
}

void frmOptions::setListText(ControlState& list, const std::string& text, const std::string& otherwise) {
    // A list shows its own items only; a text that names one in another case shows
    // it, and one that names none (empty, or a typing error) shows `otherwise`, so
    // that OK never writes a name the compiler does not know.
    list.text = otherwise;
    for (const std::string& item : *list.layout->items)
        if (strcasecmp(item.c_str(), text.c_str()) == 0) list.text = item;
}

// ---- Events ------------------------------------------------------------------------------

void frmOptions::click(const std::string& name) {
    ControlState& c = control(name);
    // Disabled, or on a page that is not shown: out of a person's reach.
    if (!c.enabled ||
        (c.layout->page >= 0 && !control("picOptions(" + std::to_string(c.layout->page) + ")").enabled))
        return;
    switch (c.layout->kind) {
    case Kind::CheckBox:
        setChecked(c, c.value ? 0 : 1);
        break;
    case Kind::Button:
        onButton(c);
        break;
    case Kind::Picture:
        if (name == "picSpec") pickSpecular();
        break;
    default:
        break;
    }
}

void frmOptions::slide(const std::string& name, int32_t value) {
    setSlider(control(name), value);
}

void frmOptions::pick(const std::string& name, const std::string& item) {
    ControlState& c = control(name);
    if (c.layout->kind == Kind::DropDown) {
        for (const std::string& i : *c.layout->items)
            if (i == item) c.text = i;
    } else if (c.layout->kind == Kind::ListBox) {
        for (size_t i = 0; i < c.items.size(); ++i)
            if (c.items[i] == item) c.selected = static_cast<int32_t>(i);
    }
}

void frmOptions::selectTab(int tab) {
    if (tab < 1 || tab > kPageCount || tab == selectedTab_) return;
    selectedTab_ = tab;
    pageSwitch();
}

void frmOptions::keyDown(int keyCode, int shift) {
    // Ctrl+Tab alone selects the next tab, from the last the first.
    if (keyCode == 9 && shift == 2) selectTab(selectedTab_ % kPageCount + 1);
}

void frmOptions::pageSwitch() {
    for (int i = 0; i < kPageCount; ++i) {
        ControlState& panel = control("picOptions(" + std::to_string(i) + ")");
        const bool shown = i == selectedTab_ - 1;
        panel.rect.left = shown ? 120 : -20000;
        panel.enabled = shown;
    }
}

void frmOptions::onCheck(ControlState& box) {
    if (box.value != 1) return;
    for (const auto& [a, b] : kExclusions) {
        if (box.layout->name == std::string(a)) setChecked(control(b), 0);
        if (box.layout->name == std::string(b)) setChecked(control(a), 0);
    }
}

void frmOptions::onSlider(ControlState& slider) {
    for (const SliderLabel& l : kSliderLabels)
        if (slider.layout->name == std::string(l.slider))
            control(l.label).caption = l.prefix + shortNumber(slider.value / l.divisor);
}

void frmOptions::onButton(ControlState& button) {
    const std::string name = button.layout->name;
    if (name == "cmdOK") {
        ReadMaterial(*EditMaterial);
        open_ = false;
        committed_ = true;
    } else if (name == "cmdCancel") {
        open_ = false;
    } else if (name == "cmd1" || name == "cmd2") {
        setBlendDefault(name == "cmd2");
    } else if (name == "cmdFR") {
        pickTexture(button, control("Picture2"));
    } else if (name == "cmdET") {
        pickTexture(button, control("Picture3"));
    } else if (name.rfind("cmdStd(", 0) == 0) {
        cmdStd_Click(name[7] - '0');
    } else if (name == "cmdULoad") {
        const ControlState& list = control("lstUser");
        if (list.selected >= 0) loadLibraryFile(library_ + "\\" + list.items[list.selected]);
    } else if (name == "cmdUSave") {
        saveToLibrary();
    } else if (name == "cmdUDelete") {
        const ControlState& list = control("lstUser");
        if (list.selected < 0) return;
        std::error_code ec; // a failure is passed over
        std::filesystem::remove(platform::systemPath(library_ + "\\" + list.items[list.selected]), ec);
        ListUserMaterials();
    }
}

void frmOptions::pickTexture(ControlState& button, ControlState& preview) {
    cdlg.Flags = 4096; // the picked file must exist
    cdlg.Filter = "Graphics|*.tga;*.bmp;*.dds|DDS files|*.dds|BMP|*.bmp|TGA|*.tga";
    cdlg.DefaultExt = "dds";
    if (boxes_.showOpen(cdlg)) {
        SetTextureButton(cdlg.FileName, button);
        if (readablePicture(cdlg.FileName)) preview.picture = cdlg.FileName; // else the preview stays
        return;
    }
    // Cancelling the box is the way to clear a texture.
    preview.picture.clear();
    button.caption = "<< None >>";
    button.tag.clear();
}

void frmOptions::pickSpecular() {
    ControlState& swatch = control("picSpec");
    cdlg.Color = swatch.backColour;
    if (boxes_.showColor(cdlg)) swatch.backColour = cdlg.Color;
}

void frmOptions::setBlendDefault(bool transparent) {
    control("cmbSrc").text = transparent ? "SrcAlpha" : "One";
    control("cmbDest").text = transparent ? "InvSrcAlpha" : "Zero";
    setChecked(control("chkZAlpha"), transparent ? 1 : 0);
    control("cmbATestMode").text = transparent ? "Greater" : "Never";
}

void frmOptions::cmdStd_Click(int index) {
    if (index < 0 || index >= material::kPresetCount) return;
    for (const material::PresetCell& cell : material::presetCells()) {
        const char* value = cell.values[index];
        if (!value) continue;
        ControlState& c = control(cell.control);
        if (c.layout->kind == Kind::CheckBox)
            setChecked(c, std::atoi(value));
        else if (c.layout->kind == Kind::Slider)
            setSlider(c, std::atoi(value));
        else
            SetTextureButton(value, c);
    }
    const material::BlendDefault blend = material::presetBlendDefault(index);
    if (blend != material::BlendDefault::None) setBlendDefault(blend == material::BlendDefault::Transparent);
}

// ---- User library ------------------------------------------------------------------------

void frmOptions::ListUserMaterials() {
    ControlState& list = control("lstUser");
    list.items = material::listLibraryFiles(library_);
    list.selected = -1;
    control("cmdULoad").enabled = control("cmdUDelete").enabled = !list.items.empty();
}

// A record that carries the edited one's texture names and its specular colour at
// the colour's grain; it has no host material, so the host is never touched.
namespace {
FS10Material libraryRecord(const FS10Material& edited) {
    FS10Material temp;
    temp.DiffuseTextureFileName = edited.DiffuseTextureFileName;
    temp.SpecularTextureFileName = edited.SpecularTextureFileName;
    temp.BumpTextureFileName = edited.BumpTextureFileName;
    temp.setSpecular(edited.getSpecColor());
    return temp;
}
} // namespace

void frmOptions::saveToLibrary() {
    cdlg.Flags = 0;
    cdlg.FileName = library_ + "\\*.FSXMat";
    cdlg.Flags = 8; // the current folder stays; no question before replacing a file
    cdlg.Filter = "FS10 Material (FSXMat)|*.FSXMat|All Files|*.*";
    cdlg.DefaultExt = "FSXMat";
    if (boxes_.showSave(cdlg)) {
        FS10Material temp = libraryRecord(*EditMaterial);
        ReadMaterial(temp);
        material::writeLibraryLine(cdlg.FileName, temp.toString()); // a failure is passed over
    }
    ListUserMaterials();
}

void frmOptions::loadLibraryFile(const std::string& path) {
    FS10Material temp = libraryRecord(*EditMaterial);
    temp.loadString(material::readLibraryLine(path));
    ShowMaterial(temp);
    control("Picture1").backColour = EditMaterial->getDiffColor();
    control("picSpec").backColour = EditMaterial->getSpecColor();
    ListUserMaterials();
}

// ---- Edit and the library's folder ---------------------------------------------------------

void FormEditor::edit(FS10Material& record) {
    frmOptions form(boxes_, library_);
    form.EditMaterial = std::shared_ptr<FS10Material>(std::shared_ptr<void>(), &record); // held by the caller
    window_.showModal(form);
    committed_ = form.committed();
}

std::string libraryFolder(const std::string& pluginFolder) {
    if (platform::folderWritable(pluginFolder)) return pluginFolder;
#ifdef _WIN32
    const char* data = std::getenv("APPDATA");
    const std::string folder = std::string(data ? data : ".") + "\\Tarnvale";
#else
    const char* data = std::getenv("XDG_DATA_HOME");
    const char* home = std::getenv("HOME");
    const std::string folder = data && *data ? std::string(data) + "/tarnvale"
                                             : std::string(home ? home : ".") + "/.local/share/tarnvale";
#endif
    std::error_code ec;
    std::filesystem::create_directories(platform::systemPath(folder), ec);
    return folder;
}

} // namespace tarnvale::editor
