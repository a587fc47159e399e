#include "editor/editor.h"
#include "editor/scripted.h"
#include "support.h"

#include <set>

namespace tarnvale::test {
namespace {

using editor::Kind;
using material::FS10Material;

TEST(EditorLayout, EveryControlIsWhereItsPageAndTheFormHoldIt) {
    std::set<std::string> names;
    int panels = 0, perPage[editor::kPageCount] = {};
    for (const editor::ControlSpec& c : editor::controlSpecs()) {
        EXPECT_TRUE(names.insert(c.name).second) << c.name;
        const editor::Rect& r = c.rect;
        // On the form's client area; a page's controls inside their panel.
        EXPECT_TRUE(r.left >= 0 && r.top >= 0 && r.width > 0 && r.height > 0) << c.name;
        EXPECT_LE(r.left + r.width, editor::kFormClient.width) << c.name;
        EXPECT_LE(r.top + r.height, editor::kFormClient.height) << c.name;
        if (c.kind == Kind::Panel) ++panels;
        if (c.page >= 0) {
            ++perPage[c.page];
            EXPECT_LE(r.top + r.height, 2160) << c.name;
        }
        EXPECT_TRUE(c.kind != Kind::Slider || c.slider.min < c.slider.max) << c.name;
        EXPECT_TRUE(c.kind != Kind::DropDown || c.items->size() == 10 || c.items->size() == 8) << c.name;
    }
    EXPECT_EQ(panels, editor::kPageCount);
    EXPECT_EQ(editor::pageSpecs().size(), static_cast<size_t>(editor::kPageCount));
    const int expected[editor::kPageCount] = {4, 6, 4, 9, 9, 6, 5, 8, 11, 12, 2};
    for (int p = 0; p < editor::kPageCount; ++p) EXPECT_EQ(perPage[p], expected[p]) << "page " << p + 1;
    // Each bound field has its control: showing and reading a record touches them all.
    ScriptedForm f;
    EXPECT_NO_THROW(f.form.ReadMaterial(*f.record));
}

TEST(EditorBinding, SlidersShowAndWriteBackAtTheirGrain) {
    struct Row {
        const char* slider;
        float FS10Material::*field;
        float in;
        int32_t shown;
        const char *labelName, *label;
        float out;
    };
    using M = FS10Material;
    const Row rows[] = {
        {"sDetailMap", &M::DetailScale, 1.23f, 12, "Label1(1)", "Detail: 1.2", 1.2f},
        {"sBumpMap", &M::BumpScale, 25.0f, 200, "Label1(2)", "Bump: 20", 20.0f}, // above the range: its maximum
        {"sPrecipOff", &M::PrecipOffset, 0.0f, 1, "Label1(4)", "Offset:", 0.1f}, // below: its minimum, which it had
        {"sRefScale", &M::EnvironmentLevelScale, 0.125f, 12, "Label1(6)", "Reflection Scale: 0.12", 0.12f}, // half to even
        {"sSpecPower", &M::SpecMapPowerScale, 202.5f, 202, "Label1(3)", "Specular Map Power Scale: 202", 202.0f},
        {"slBFloor", &M::SpecularBloomFloor, 0.05f, 5, "Label1(7)", "Specular Bloom Floor : 0.05", 0.05f},
        {"slAmbScale", &M::AmbientLightScale, 1.0f, 100, "Label1(8)", "Ambient Scale :", 1.0f}, // unchanged: no new label
        {"sAlphaTest", &M::AlphaTestValue, 0.5f, 50, "Label1(13)", "Alpha Test Level : 0.5", 0.5f},
        {"sFinal", &M::FinalAlphaValue, 128.4f, 128, "Label1(18)", "Final Alpha Value: 128", 128.0f},
    };
    auto record = std::make_shared<FS10Material>();
    for (const Row& r : rows) (*record).*r.field = r.in;
    ScriptedForm f(record);
    for (const Row& r : rows) {
        EXPECT_EQ(f.form.control(r.slider).value, r.shown) << r.slider;
        EXPECT_EQ(f.form.control(r.labelName).caption, r.label) << r.slider;
    }
    f.form.click("cmdOK");
    EXPECT_FALSE(f.form.isOpen());
    for (const Row& r : rows) EXPECT_FLOAT_EQ((*record).*r.field, r.out) << r.slider;
}

TEST(EditorBinding, FlagsTextsTexturesAndColoursWithCancelKeepingTheRecord) {
    auto record = std::make_shared<FS10Material>();
    record->Power = 100;
    record->loadString("BloomCopy=1;BloomModAlpha=1;ForceTextureWrap=1;ForceTextureClamp=1;NoShadow=-1;"
                       "VolumeShadow=1;SrcBlend=srcalpha;DstBlend=Nothing;AlphaTestFunction=Less;"
                       "FresnelTexture=C:\\tex\\ramp.dds;EmissiveTexture=;SpecRed=0.3");
    record->DiffuseTextureFileName = "C:\\d.dds";
    const FS10Material before = *record;
    ScriptedForm f(record);
    EXPECT_EQ(f.form.control("chkBloom(1)").value, 0); // the later row wins the exclusion
    EXPECT_EQ(f.form.control("chkBloom(2)").value, 1);
    EXPECT_EQ(f.form.control("chkEP(4)").value, 1);
    EXPECT_EQ(f.form.control("cmbSrc").text, "SrcAlpha");
    EXPECT_EQ(f.form.control("cmbDest").text, ""); // no item of the list
    EXPECT_EQ(f.form.control("cmbEmissive").text, ""); // an empty EmissiveData leaves no selection
    EXPECT_EQ(f.form.control("cmdFR").caption, "ramp.dds");
    EXPECT_EQ(f.form.control("cmdFR").tag, "C:\\tex\\ramp.dds");
    EXPECT_EQ(f.form.control("lblTex").caption, "C:\\d.dds\r\r\r");
    EXPECT_EQ(f.form.control("Label1(0)").caption, "Diffuse\rDetail\rBump\rSpecular");
    f.form.click("chkEP(0)");
    f.form.click("cmd2");
    f.form.closeBox(); // as Cancel: the record is as it was
    EXPECT_EQ(record->toString(), before.toString());
    ScriptedForm ok(record);
    ok.form.click("cmdOK");
    // -1 comes back as 1; an untouched swatch leaves the colour exact.
    expectFields(record->toString(), "BloomCopy=0;BloomModAlpha=1;NoShadow=1;ForceTextureWrap=1;ForceTextureClamp=1;"
                                     "EmissiveData=;DstBlend=;SpecRed=0.3", "after OK");
}

TEST(EditorEvents, ExclusionsBlendDefaultsPicksAndTabs) {
    TempDir pictures;
    writeFile(pictures.file("paint.bmp"), "BM....");
    writeFile(pictures.file("paint.dds"), "DDS ....");
    auto host = std::make_shared<scene::MemoryMaterial>();
    auto record = std::make_shared<FS10Material>();
    record->CreateCSG(host, 0);
    record->Power = 100;
    ScriptedForm f(record);
    f.form.click("chkBloom(2)");
    f.form.click("chkBloom(1)");
    EXPECT_EQ(f.form.control("chkBloom(2)").value, 0);
    f.form.click("chkBloom(1)");
    EXPECT_EQ(f.form.control("chkBloom(1)").value + f.form.control("chkBloom(2)").value, 0);
    f.form.click("cmd2");
    f.form.click("cmd1");
    // A picked file shows its name and keeps its path; a DDS keeps the bitmap's preview.
    f.boxes.answers = {pictures.file("paint.bmp"), pictures.file("paint.dds"), std::nullopt, "255"};
    f.form.click("cmdET");
    f.form.click("cmdET");
    EXPECT_EQ(f.form.control("cmdET").caption, pictures.file("paint.dds"));
    EXPECT_EQ(f.form.control("Picture3").picture, pictures.file("paint.bmp"));
    f.form.click("cmdFR"); // cancelled: the texture goes
    EXPECT_EQ(f.form.control("cmdFR").caption, "<< None >>");
    f.form.click("picSpec");
    EXPECT_EQ(f.boxes.shown, (std::vector<std::string>{"open 4096 dds", "open 4096 dds", "open 4096 dds", "color"}));
    // Ctrl+Tab from the last tab to the first; with Shift, or Tab alone, nothing.
    f.form.selectTab(11);
    f.form.keyDown(9, 2);
    EXPECT_EQ(f.form.selectedTab(), 1);
    f.form.keyDown(9, 3);
    f.form.keyDown(9, 0);
    EXPECT_EQ(f.form.selectedTab(), 1);
    EXPECT_EQ(f.form.control("picOptions(0)").rect.left, 120);
    EXPECT_EQ(f.form.control("picOptions(5)").rect.left, -20000);
    f.form.click("chkSF(4)"); // on a page that is not shown: out of reach
    EXPECT_EQ(f.form.control("chkSF(4)").value, 0);
    f.form.click("cmdOK");
    EXPECT_EQ(record->SrcBlend + record->DstBlend + record->AlphaTestFunction, "OneZeroNever");
    EXPECT_EQ(record->ZTestAlpha, 0);
    EXPECT_EQ(record->EmissiveTextureFileName, pictures.file("paint.dds"));
    EXPECT_EQ(record->FresnelTextureFileName, "");
    EXPECT_FLOAT_EQ(host->specular.r, 1.0f); // the swatch's new colour reached the host material
    EXPECT_FLOAT_EQ(host->specular.g, 0.0f);
}

TEST(EditorPresets, EachSetsItsCellsAndRunsItsBlendDefaultLast) {
    // Presets clicked in turn; controls and their values or texts after.
    const std::vector<std::pair<std::vector<int>, std::vector<std::pair<const char*, std::string>>>> rows = {
        {{1, 0}, {{"cmbSrc", "SrcAlpha"}, {"chkEP(4)", "1"}, {"chkZAlpha", "1"}, {"sRefScale", "30"}}},
        {{3, 4}, {{"chkSF(4)", "1"}, {"sRefScale", "40"}, {"chkAirMat(1)", "1"}, {"cmbSrc", "SrcAlpha"}}},
        {{2}, {{"cmdFR", "fresnel_ramp.dds"}, {"chkSF(0)", "1"}, {"chkSF(2)", "0"}, {"cmbATestMode", "Never"}}},
        {{3}, {{"cmdFR", "<< None >>"}, {"chkSF(2)", "1"}, {"Label1(6)", "Reflection Scale: 0.4"}}},
        {{7, -1}, {{"chkFRRef", "0"}, {"sRefScale", "30"}, {"cmbSrc", "One"}}}, // outside 0 to 4: nothing
        {{0}, {{"Label1(8)", "Ambient Scale :"}, {"Label1(7)", "Specular Bloom Floor :"}}}, // same values: no label
    };
    for (const auto& [clicks, expected] : rows) {
        auto record = std::make_shared<FS10Material>();
        const std::string before = record->toString();
        ScriptedForm f(record);
        for (int i : clicks) f.form.cmdStd_Click(i);
        for (const auto& [name, value] : expected) {
            const editor::ControlState& c = f.form.control(name);
            const std::string shown = c.layout->kind == Kind::CheckBox || c.layout->kind == Kind::Slider
                                          ? std::to_string(c.value)
                                          : c.layout->kind == Kind::DropDown ? c.text : c.caption;
            EXPECT_EQ(shown, value) << name << " after preset " << clicks[0];
        }
        f.form.click("cmdCancel"); // a preset changes nothing in the record when cancelled
        EXPECT_EQ(record->toString(), before);
    }
}

TEST(EditorLibrary, ListSaveLoadAndDelete) {
    ScriptedForm f;
    EXPECT_FALSE(f.form.control("cmdULoad").enabled);
    EXPECT_FALSE(f.form.control("cmdUDelete").enabled);
    EXPECT_TRUE(f.form.control("cmdUSave").enabled);
    for (const char* name : {"ABCFSXMAT", "x.fsxmat", "note.txt", ".hidden.FSXMat"}) writeFile(f.dir.file(name), "");
    fs::create_directories(f.dir.file("folder.FSXMat"));
    writeFile(f.dir.file("old.FSXMat"), "old");
    // Save replaces a file without asking, as one line of the text form.
    f.boxes.answers = {f.dir.file("old.FSXMat")};
    f.form.cmdStd_Click(2);
    f.form.click("cmdUSave");
    EXPECT_EQ(f.boxes.shown.back(), "save 8 FSXMat " + f.dir.path() + "\\*.FSXMat");
    const std::string saved = readFile(f.dir.file("old.FSXMat"));
    EXPECT_EQ(saved.substr(saved.size() - 2), "\r\n");
    EXPECT_NE(saved.find("FresnelTexture=fresnel_ramp.dds;"), std::string::npos);
    std::set<std::string> listed(f.form.control("lstUser").items.begin(), f.form.control("lstUser").items.end());
    EXPECT_EQ(listed, (std::set<std::string>{"ABCFSXMAT", "x.fsxmat", "old.FSXMat"}));
    EXPECT_TRUE(f.form.control("cmdULoad").enabled);
    // Load reads the first line alone and never changes the record before OK.
    writeFile(f.dir.file("x.fsxmat"), "SrcBlend=DestColor;IsNNumber=1\r\nSrcBlend=Zero\r\n");
    ScriptedForm g(f.record, f.dir.path());
    const std::string before = g.record->toString();
    g.form.pick("lstUser", "x.fsxmat");
    g.form.click("cmdULoad");
    EXPECT_EQ(g.form.control("cmbSrc").text, "DestColor");
    EXPECT_EQ(g.form.control("cmbDest").text, ""); // keys the line lacks empty the texts
    EXPECT_EQ(g.record->toString(), before);
    g.form.pick("lstUser", "ABCFSXMAT");
    g.form.click("cmdUDelete");
    EXPECT_FALSE(fs::exists(f.dir.file("ABCFSXMAT")));
    g.form.click("cmdOK");
    EXPECT_EQ(g.record->SrcBlend, "DestColor");
    EXPECT_EQ(g.record->bIsNNumber, 1);
}

TEST(EditorForm, EditOpensANewFormOnTheRecordEachTime) {
    TempDir d;
    ScriptedBoxes boxes;
    struct Window : editor::FormWindow {
        std::vector<editor::frmOptions*> forms;
        void showModal(editor::frmOptions& form) override {
            form.Form_Load();
            forms.push_back(&form);
            form.slide("sFinal", forms.size() == 1 ? 7 : form.control("sFinal").value);
            form.click("cmdOK");
        }
    } window;
    FS10Material record;
    record.Editor = std::make_shared<editor::FormEditor>(window, boxes, d.path());
    record.Edit();
    record.Edit(); // the second form starts from the record, not from the first's controls
    EXPECT_FLOAT_EQ(record.FinalAlphaValue, 7.0f);
    EXPECT_EQ(window.forms.size(), 2u);
    EXPECT_THROW(FS10Material().Edit(), Failure);
}

} // namespace
} // namespace tarnvale::test
