// The material editor frmOptions as a model without any toolkit: its pages and
// controls as data, their state, the binding to FS10Material, every control's
// reaction, the presets and the user library. Front ends (Qt, Win32) draw the
// controls from this model and hand every user action to it; they add no rule.
#pragma once

#include "material/material.h"

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnvale::editor {

// ---- The form as laid out ------------------------------------------------------------

enum class Kind { Label, Button, CheckBox, Slider, DropDown, ListBox, Picture, Panel, TabStrip };

// A position and size in twips (15 to the pixel at 96 dots an inch).
struct Rect {
    int32_t left = 0, top = 0, width = 0, height = 0;
};

struct SliderRange {
    int32_t min = 0, max = 0, smallStep = 0, largeStep = 0, tickEvery = 0, initial = 0;
};

// One control: its name as the form knows it ("chkSF(0)", "cmdOK"), kind, the
// page it stands on (-1: on the form itself), initial caption and tool tip, place.
struct ControlSpec {
    const char* name;
    Kind kind;
    int page;
    const char* caption;
    const char* toolTip;
    Rect rect;
    SliderRange slider{};                            // sliders
    bool startsTicked = false;                       // check boxes
    const std::vector<std::string>* items = nullptr; // drop-down lists: the fixed items
};

struct PageSpec {
    const char* caption;
    const char* toolTip;
};

inline constexpr const char* kFormCaption = "FSX Extended Parameters";
inline constexpr Rect kFormClient{0, 0, 9990, 4905};
inline constexpr int kPageCount = 11;

// All controls in their tab order: the form's, then the tab strip, then each
// page's panel followed by its controls.
const std::vector<ControlSpec>& controlSpecs();
const std::vector<PageSpec>& pageSpecs();

// ---- Common dialog and picture loading ----------------------------------------------------

// The common dialog cdlg of one form: what is set in it stays from one use to the
// next within one opening of the form.
struct CommonDialog {
    int32_t Flags = 0;
    std::string DialogTitle = "Select";
    std::string FileName = "*.*";
    std::string Filter = "Graphics|*.tga;*.bmp;*.dds|DDS files|*.dds|BMP|*.bmp|TGA|*.tga";
    std::string DefaultExt = "dds";
    int32_t Color = 0; // red in the low byte
};

// The boxes a front end shows for the common dialog: each reads and sets its
// settings, and gives false when the user cancelled or the box failed (the error
// the dialog reports).
class DialogBoxes {
  public:
    virtual ~DialogBoxes() = default;
    virtual bool showOpen(CommonDialog& cdlg) = 0;
    virtual bool showSave(CommonDialog& cdlg) = 0;
    virtual bool showColor(CommonDialog& cdlg) = 0;
};

// Whether the picture loader reads a file: ordinary bitmaps (BMP, GIF, JPEG), not
// DDS or TGA.
bool readablePicture(const std::string& path);

// ---- The form -----------------------------------------------------------------------------

// The state of one control while the form is open.
struct ControlState {
    const ControlSpec* layout = nullptr;
    std::string caption, toolTip;
    std::string tag;  // texture buttons: the full path
    std::string text; // drop-down lists: the shown item, "" for none
    bool enabled = true;
    Rect rect;         // panels move off the form when their page is not selected
    int32_t value = 0; // check box 0 or 1, slider value
    int32_t backColour = 0x8000000F;
    std::string picture;            // previews: the file shown, "" for none
    std::vector<std::string> items; // list box
    int32_t selected = -1;          // list box
};

class frmOptions {
  public:
    frmOptions(DialogBoxes& boxes, std::string libraryFolder);

    // The record being edited, set before the form loads.
    std::shared_ptr<material::FS10Material> EditMaterial;

    // Loading: the texture label's lines, ShowMaterial, ListUserMaterials.
    void Form_Load();

    // ---- What a person does, by control name ----
    // A click: a button, a check box (turns it over), the specular swatch.
    void click(const std::string& control);
    // Sets a slider's value (kept in its range), as a drag or a key does.
    void slide(const std::string& control, int32_t value);
    // Picks an item of a drop-down list, or selects a name of the user list.
    void pick(const std::string& control, const std::string& item);
    // Selects tab number `tab` (from 1).
    void selectTab(int tab);
    // A key seen by the form: code and shift state (Ctrl+Tab: 9 and 2).
    void keyDown(int keyCode, int shift);
    // The close box of the title bar: as Cancel.
    void closeBox() { click("cmdCancel"); }
    bool isOpen() const { return open_; }
    // Whether the form closed by OK.
    bool committed() const { return committed_; }

    // ---- State ----
    ControlState& control(const std::string& name);
    const std::vector<ControlState>& controls() const { return controls_; }
    int selectedTab() const { return selectedTab_; }
    CommonDialog cdlg;

    // ---- Routines of the form ----
    void ShowMaterial(material::FS10Material& material);
    void ReadMaterial(material::FS10Material& material);
    void SetTextureButton(const std::string& path, ControlState& button);
    void ListUserMaterials();
    // Library Load of a file by path: the steps of cmdULoad after the file's choice.
    void loadLibraryFile(const std::string& path);
    // The presets' handler, told the index of the button; another index does nothing.
    void cmdStd_Click(int index);

  private:
    void setChecked(ControlState& box, int32_t state);
    void setSlider(ControlState& slider, int32_t value);
    void setListText(ControlState& list, const std::string& text, const std::string& otherwise);
    void onCheck(ControlState& box);
    void onSlider(ControlState& slider);
    void onButton(ControlState& button);
    void pickTexture(ControlState& button, ControlState& preview);
    void pickSpecular();
    void setBlendDefault(bool transparent);
    void saveToLibrary();
    void pageSwitch();

    DialogBoxes& boxes_;
    std::string library_;
    std::vector<ControlState> controls_;
    int selectedTab_ = 1;
    bool open_ = true;
    bool committed_ = false;
};

// Shows a form modally, from loading to closing; what a front end offers.
class FormWindow {
  public:
    virtual ~FormWindow() = default;
    virtual void showModal(frmOptions& form) = 0;
};

// Edit's way to the window: a new form per edit, on the record, shown modally.
class FormEditor : public material::RecordEditor {
  public:
    FormEditor(FormWindow& window, DialogBoxes& boxes, std::string libraryFolder)
        : window_(window), boxes_(boxes), library_(std::move(libraryFolder)) {}
    void edit(material::FS10Material& record) override;
    // Whether the last edit ended with OK (its record was written).
    bool committed() const { return committed_; }

  private:
    bool committed_ = false;
    FormWindow& window_;
    DialogBoxes& boxes_;
    std::string library_;
};

// The library folder: the plug-in folder where the user may write there, else a
// per-user folder ($XDG_DATA_HOME/tarnvale, or ~/.local/share/tarnvale).
std::string libraryFolder(const std::string& pluginFolder);

} // namespace tarnvale::editor
