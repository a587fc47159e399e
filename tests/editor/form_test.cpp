#include "editor/editor.h"
#include "editor/scripted.h"
#include "support.h"

#include <map>
#include <set>
#include <sstream>

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
    for (int p = 0; p < editor::kPageCount; ++p)
        EXPECT_EQ(perPage[p], expected[p]) << "page " << p + 1;
    // Each bound field has its control: showing and reading a record touches them all.
    ScriptedForm f;
    EXPECT_NO_THROW(f.form.ReadMaterial(*f.record));
}

// What a control shows: a box's or slider's value, a list's text, a button's
// caption and path, a swatch's colour.
std::string shown(const editor::ControlState& c) {
    switch (c.layout->kind) {
    case Kind::CheckBox:
    case Kind::Slider:
        return std::to_string(c.value);
    case Kind::DropDown:
        return c.text;
    case Kind::Button:
        return c.caption + "|" + c.tag;
    case Kind::Picture:
        return std::to_string(c.backColour);
    default:
        return c.caption;
    }
}

// The text form's elements that differ between two records, "key=value" of `b`.
std::string changed(const FS10Material& a, const FS10Material& b) {
    std::istringstream x(a.toString()), y(b.toString());
    std::string out;
    for (std::string p, q; std::getline(x, p, ';') && std::getline(y, q, ';');)
        if (p != q) out += q + ";";
    return out;
}

// A record of the defaults (power 100, so that the text form keeps its
// specular parts; a precipitation offset at its slider's grain) with the text
// form's `elements` in place of theirs.
std::shared_ptr<FS10Material> recordWith(const std::string& elements) {
    auto r = std::make_shared<FS10Material>();
    r->Power = 100;
    std::string text = ";" + r->toString() + ";";
    std::istringstream in("PrecipOffset=0.1;" + elements);
    for (std::string e; std::getline(in, e, ';');) {
        const size_t at = text.find(";" + e.substr(0, e.find('=') + 1));
        text.replace(at + 1, text.find(';', at + 1) - at - 1, e);
    }
    r->loadString(text.substr(1, text.size() - 2));
    return r;
}

// Every bound row but the colours and the texture label: its control, its key in
// the text form, a value no other row holds and what the control shows for it,
// then a change of the control and the value OK stores. A flag's value is the
// opposite of its default, a click its change, and its default comes back.
TEST(EditorBinding, EachFieldShowsOnItsControlAloneAndOkStoresItsControlAlone) {
    struct Row {
        const char *control, *key;
        std::string value = "", shows = "", change = "", stores = "", label = "";
    };
    // Sliders at their grain: rounded in double precision, a half to the even
    // neighbour, held in their range, their labels rewritten.
    const Row rows[] = {
        {"sDetailMap", "DetailScale", "1.15", "11", "38", "3.8", "Label1(1)=Detail: 1.1"}, // 11.5 in 32 bits
        {"sBumpMap", "BumpScale", "25", "200", "42", "4.2", "Label1(2)=Bump: 20"},
        {"cmdFR", "FresnelTexture", "C:\\r\\ramp.dds", "ramp.dds|C:\\r\\ramp.dds", "C:\\n\\new.dds",
         "C:\\n\\new.dds"},
        {"chkFRDiff", "FresnelDiff"},
        {"chkFRRef", "FresnelEnv"},
        {"chkFRSpec", "FresnelSpec"},
        {"chkPrecip", "UsePrecip"},
        {"chkOffset", "UsePrecipOffset"},
        {"sPrecipOff", "PrecipOffset", "5.3", "53", "54", "5.4", "Label1(4)=Offset: 5.3"},
        {"chkSF(0)", "ModEnvInvDiffAlpha"},
        {"chkSF(1)", "ModEnvSpecAlpha"},
        {"chkSF(2)", "BlendDiffBaseAlpha"},
        {"chkSF(3)", "BlendDiffInvSpecMapAlpha"},
        {"chkSF(4)", "UseGlobalEnv"},
        {"sRefScale", "EnvLevelScale", "0.125", "12", "62", "0.62", "Label1(6)=Reflection Scale: 0.12"},
        {"sSpecPower", "SpecMapPowerScale", "71.5", "72", "73", "73",
         "Label1(3)=Specular Map Power Scale: 72"},
        {"chkBloom(0)", "AllowBloom"},
        {"chkBloom(1)", "BloomCopy"},
        {"chkBloom(2)", "BloomModAlpha"},
        {"chkBloom(3)", "NoSpecBloom"},
        {"chkBloom(4)", "EmissiveBloom"},
        {"slBFloor", "SpecBloomFloor", "0.05", "5", "14", "0.14", "Label1(7)=Specular Bloom Floor : 0.05"},
        {"slAmbScale", "AmbientLightScale", "0.27", "27", "28", "0.28", "Label1(8)=Ambient Scale : 0.27"},
        {"cmbDest", "DstBlend", "DestColor", "DestColor", "SrcColor", "SrcColor"},
        {"cmbSrc", "SrcBlend", "InvDestColor", "InvDestColor", "DestAlpha", "DestAlpha"},
        {"cmbEmissive", "EmissiveData", "MultiplyBlend", "MultiplyBlend", "Additive", "Additive"},
        {"cmdET", "EmissiveTexture", "C:\\e\\glow.dds", "glow.dds|C:\\e\\glow.dds", "C:\\n\\new.dds",
         "C:\\n\\new.dds"},
        {"chkZAlpha", "ZTestAlpha"},
        {"sAlphaTest", "AlphaTestValue", "0.5", "50", "84", "0.84", "Label1(13)=Alpha Test Level : 0.5"},
        {"cmbATestMode", "AlphaTestFunction", "GreaterEqual", "GreaterEqual", "Less", "Less"},
        {"chkFinal", "FinalAlpha"},
        {"sFinal", "FinalAlphaValue", "128.4", "128", "98", "98", "Label1(18)=Final Alpha Value: 128"},
        {"chkEP(0)", "AssumeVerticalNormal"},
        {"chkEP(1)", "ZWriteAlpha"},
        {"chkEP(2)", "NoZWrite"},
        {"chkEP(3)", "VolumeShadow"},
        {"chkEP(4)", "NoShadow"},
        {"chkEP(5)", "PreLitVertices"},
        {"chkEP(6)", "BaseMaterialSpec"},
        {"chkEP(7)", "BaseMaterialSkin"},
        {"chkEP(8)", "DoubleSided"},
        {"chkEP(9)", "BlendConstantSetting"},
        {"chkEP(10)", "ForceTextureWrap"},
        {"chkEP(11)", "ForceTextureClamp"},
        {"chkAirMat(0)", "IsVCTexture"},
        {"chkAirMat(1)", "IsNNumber"},
    };
    ScriptedForm plain(recordWith(""));
    for (Row r : rows) {
        const std::string fallback = FS10Material::GetFieldValue(plain.record->fieldList(), r.key);
        if (r.value.empty())
            r = {r.control, r.key, fallback == "0" ? "1" : "0", fallback == "0" ? "1" : "0", "", fallback};
        ScriptedForm f(recordWith(std::string(r.key) + "=" + r.value));
        std::set<std::string> differs, expected{std::string(r.control) + "=" + r.shows};
        for (size_t i = 0; i < f.form.controls().size(); ++i)
            if (shown(f.form.controls()[i]) != shown(plain.form.controls()[i]))
                differs.insert(std::string(f.form.controls()[i].layout->name) + "=" +
                               shown(f.form.controls()[i]));
        if (!r.label.empty()) expected.insert(r.label);
        EXPECT_EQ(differs, expected) << r.key;
        const FS10Material before = *f.record;
        const Kind kind = f.form.control(r.control).layout->kind;
        f.boxes.answers = {r.change};
        if (kind == Kind::Slider)
            f.form.slide(r.control, std::stoi(r.change));
        else if (kind == Kind::DropDown)
            f.form.pick(r.control, r.change);
        else
            f.form.click(r.control);
        f.form.click("cmdOK");
        EXPECT_EQ(changed(before, *f.record), std::string(r.key) + "=" + r.stores + ";") << r.control;
    }
}

TEST(EditorBinding, ListsFlagsTexturesAndColoursAtTheirEdges) {
    auto record =
        recordWith("BloomCopy=1;BloomModAlpha=1;ForceTextureWrap=1;ForceTextureClamp=1;NoShadow=-1;"
                   "VolumeShadow=1;SrcBlend=srcalpha;DstBlend=Nothing;AlphaTestFunction=;EmissiveData=;"
                   "SpecRed=0.3;PrecipOffset=0;SpecMapPowerScale=202.5");
    record->DiffuseTextureFileName = "C:\\d.dds";
    const FS10Material before = *record;
    ScriptedForm f(record);
    // The later row wins the exclusion; a list shows its item in its own case, and a
    // new record's item for a text it lacks; an empty EmissiveData selects nothing.
    for (const auto& [control, value] : {std::pair{"chkBloom(1)", "0"},
                                         {"chkBloom(2)", "1"},
                                         {"chkEP(4)", "1"},
                                         {"cmbSrc", "SrcAlpha"},
                                         {"cmbDest", "Zero"},
                                         {"cmbATestMode", "Never"},
                                         {"cmbEmissive", ""},
                                         {"lblTex", "C:\\d.dds\r\r\r"},
                                         {"Label1(0)", "Diffuse\rDetail\rBump\rSpecular"}})
        EXPECT_EQ(shown(f.form.control(control)), value) << control;
    f.form.click("chkEP(0)");
    f.form.click("cmd2");
    f.form.closeBox(); // as Cancel: the record is as it was
    EXPECT_EQ(record->toString(), before.toString());
    ScriptedForm ok(record);
    ok.form.click("cmdOK");
    // -1 comes back as 1; untouched sliders store their grain (the offset its
    // slider's minimum), an untouched swatch leaves the colour exact.
    EXPECT_EQ(changed(before, *record),
              "PrecipOffset=0.1;SpecMapPowerScale=202;SrcBlend=SrcAlpha;DstBlend=Zero;"
              "AlphaTestFunction=Never;NoShadow=1;BloomCopy=0;");
    // An EmissiveData that names no item shows the new record's; an empty one keeps
    // what the list shows.
    ScriptedForm glow(recordWith("EmissiveData=Glow"));
    EXPECT_EQ(glow.form.control("cmbEmissive").text, "Blend");
    glow.form.pick("cmbEmissive", "Additive");
    glow.form.ShowMaterial(*recordWith("EmissiveData="));
    EXPECT_EQ(glow.form.control("cmbEmissive").text, "Additive");
}

TEST(EditorEvents, ExclusionsBlendDefaultsPicksAndTabs) {
    ScriptedForm f;
    // Either box of a pair, ticked, clears the other; clearing clears nothing.
    for (const auto& [a, b] : {std::pair{"chkBloom(1)", "chkBloom(2)"}, {"chkSF(0)", "chkSF(1)"}})
        for (const auto& [first, second] : {std::pair{a, b}, {b, a}}) {
            f.form.click(first);
            f.form.click(second);
            EXPECT_EQ(f.form.control(first).value, 0) << second;
            f.form.click(first);
            EXPECT_EQ(f.form.control(second).value, 0) << first;
            f.form.click(first);
            EXPECT_EQ(f.form.control(first).value + f.form.control(second).value, 0) << first;
        }
    // Each blend default sets its four controls, whatever they showed, and leaves
    // the alpha test's slider.
    for (const auto& [button, values] :
         {std::pair{"cmd1", "One Zero 0 Never"}, {"cmd2", "SrcAlpha InvSrcAlpha 1 Greater"}}) {
        f.form.ShowMaterial(
            *recordWith(std::string("SrcBlend=DestColor;DstBlend=SrcColor;AlphaTestFunction=Always;") +
                        "AlphaTestValue=0.42;ZTestAlpha=" + (button == std::string("cmd1") ? "1" : "0")));
        f.form.click(button);
        EXPECT_EQ(f.form.control("cmbSrc").text + " " + f.form.control("cmbDest").text + " " +
                      shown(f.form.control("chkZAlpha")) + " " + f.form.control("cmbATestMode").text + " " +
                      shown(f.form.control("sAlphaTest")),
                  std::string(values) + " 42");
    }
    // A picked file shows its name and keeps its path; a DDS keeps the bitmap's preview.
    writeFile(f.dir.file("paint.bmp"), "BM....");
    writeFile(f.dir.file("paint.dds"), "DDS ....");
    f.boxes.answers = {f.dir.file("paint.bmp"), f.dir.file("paint.dds"), std::nullopt, "255", std::nullopt};
    f.form.click("cmdET");
    f.form.click("cmdET");
    EXPECT_EQ(f.form.control("cmdET").caption, f.dir.file("paint.dds"));
    EXPECT_EQ(f.form.control("Picture3").picture, f.dir.file("paint.bmp"));
    f.form.click("cmdFR"); // cancelled: the texture goes
    EXPECT_EQ(f.form.control("cmdFR").caption, "<< None >>");
    f.form.click("picSpec");
    f.form.click("picSpec"); // cancelled: the swatch stays
    EXPECT_EQ(f.form.control("picSpec").backColour, 255);
    EXPECT_EQ(f.boxes.shown, (std::vector<std::string>{"open 4096 dds", "open 4096 dds", "open 4096 dds",
                                                       "color", "color"}));
    // Ctrl+Tab from the last tab to the first; with Shift, or Tab alone, nothing.
    f.form.selectTab(11);
    for (int shift : {2, 3, 0})
        f.form.keyDown(9, shift);
    EXPECT_EQ(std::to_string(f.form.selectedTab()) + " " +
                  std::to_string(f.form.control("picOptions(0)").rect.left) + " " +
                  std::to_string(f.form.control("picOptions(5)").rect.left),
              "1 120 -20000");
    f.form.click("chkSF(4)"); // on a page that is not shown: out of reach
    EXPECT_EQ(f.form.control("chkSF(4)").value, 0);
}

TEST(EditorPresets, EachSetsItsCellsAndNothingElse) {
    // Each preset's cells as the presets' table gives them ("-": left alone), the
    // blend default's four controls last.
    const std::vector<std::pair<const char*, std::array<const char*, 5>>> cells = {
        {"chkFRRef", {"1", "-", "1", "1", "1"}},
        {"chkFRSpec", {"1", "-", "1", "1", "1"}},
        {"cmdFR", {"-", "", "fresnel_ramp.dds", "", "-"}},
        {"chkSF(0)", {"-", "-", "1", "1", "-"}},
        {"chkSF(2)", {"-", "-", "-", "1", "-"}},
        {"chkSF(4)", {"-", "-", "1", "1", "-"}},
        {"sRefScale", {"30", "30", "30", "40", "-"}},
        {"sSpecPower", {"202", "202", "202", "202", "-"}},
        {"chkBloom(0)", {"1", "1", "1", "1", "1"}},
        {"slBFloor", {"90", "90", "90", "90", "90"}},
        {"slAmbScale", {"100", "100", "100", "100", "100"}},
        {"chkEP(4)", {"-", "1", "-", "-", "-"}},
        {"chkAirMat(1)", {"-", "-", "-", "-", "1"}},
        {"cmbSrc", {"-", "SrcAlpha", "One", "One", "SrcAlpha"}},
        {"cmbDest", {"-", "InvSrcAlpha", "Zero", "Zero", "InvSrcAlpha"}},
        {"chkZAlpha", {"-", "1", "0", "0", "1"}},
        {"cmbATestMode", {"-", "Greater", "Never", "Never", "Greater"}},
    };
    for (int p = 0; p < 5; ++p) {
        // A record whose every field differs from what this preset sets.
        const std::string z = cells.back().second[p] == std::string("Never") ? "1" : "0";
        ScriptedForm f(
            recordWith("FresnelEnv=0;FresnelSpec=0;FresnelTexture=C:\\s\\start.dds;ModEnvInvDiffAlpha=0;"
                       "BlendDiffBaseAlpha=0;UseGlobalEnv=0;EnvLevelScale=0.55;SpecMapPowerScale=55;"
                       "AllowBloom=0;SpecBloomFloor=0.55;AmbientLightScale=0.55;NoShadow=0;IsNNumber=0;"
                       "SrcBlend=DestColor;DstBlend=SrcColor;AlphaTestFunction=Always;ZTestAlpha=" +
                       z));
        std::map<std::string, std::string> before;
        for (const auto& [control, values] : cells)
            before[control] = shown(f.form.control(control));
        f.form.cmdStd_Click(p);
        for (const auto& [control, values] : cells) {
            const std::string cell = values[p];
            const std::string expected = cell == "-" ? before[control]
                                         : control == std::string("cmdFR")
                                             ? (cell.empty() ? "<< None >>" : cell) + "|" + cell
                                             : cell;
            EXPECT_EQ(shown(f.form.control(control)), expected) << control << " after preset " << p;
            EXPECT_NE(before[control] == expected, cell != "-")
                << control << " did not differ before preset " << p;
        }
        const std::string record = f.record->toString();
        f.form.click("cmdCancel"); // a preset changes nothing in the record when cancelled
        EXPECT_EQ(f.record->toString(), record);
    }
    ScriptedForm none;
    for (int outside : {-1, 5})
        none.form.cmdStd_Click(outside);
    EXPECT_EQ(none.form.control("sRefScale").value, 30); // 0.3: the record's, untouched
    none.form.cmdStd_Click(0);                           // values the sliders have already: their labels stay
    EXPECT_EQ(none.form.control("Label1(8)").caption + "|" + none.form.control("Label1(7)").caption,
              "Ambient Scale :|Specular Bloom Floor :");
}

TEST(EditorLibrary, ListSaveLoadAndDelete) {
    ScriptedForm f;
    auto enabled = [&] { // Load, Delete, Save
        return std::to_string(f.form.control("cmdULoad").enabled) +
               std::to_string(f.form.control("cmdUDelete").enabled) +
               std::to_string(f.form.control("cmdUSave").enabled);
    };
    EXPECT_EQ(enabled(), "001");
    for (const char* name : {"ABCFSXMAT", "x.fsxmat", "note.txt", ".hidden.FSXMat"})
        writeFile(f.dir.file(name), "");
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
    std::set<std::string> listed(f.form.control("lstUser").items.begin(),
                                 f.form.control("lstUser").items.end());
    EXPECT_EQ(listed, (std::set<std::string>{"ABCFSXMAT", "x.fsxmat", "old.FSXMat"}));
    EXPECT_EQ(enabled(), "111");
    // Load: the first line alone, on a record that carries the edited one's texture
    // names (not the detail) and colours, so the file's colour and its lack of power
    // change nothing but the box of the base material's specular; paths written
    // with "/" come in the Windows form; keys the line lacks give the lists a new
    // record's items. The edited record changes only at OK.
    writeFile(f.dir.file("x.fsxmat"),
              "SrcBlend=DestColor;IsNNumber=1;SpecRed=0;FresnelTexture=/home/pat/ramp.dds;"
              "BaseMaterialSpec=1\r\nSrcBlend=Zero\r\n");
    auto host = std::make_shared<scene::MemoryMaterial>();
    host->diffuse = {0.5f, 0.25f, 1, 1};
    host->specular = {0.2f, 0.4f, 0.6f};
    host->power = 100;
    host->textures = std::make_shared<scene::MemoryTextures>();
    host->textures->fileName = "d.dds", host->textures->bumpFileName = "b.dds",
    host->textures->detailFileName = "t.dds";
    host->textures->specularFileName = "s.dds";
    auto edited = std::make_shared<FS10Material>();
    edited->CreateCSG(host, 0);
    const int32_t specular = edited->getSpecColor();
    ScriptedForm g(edited, f.dir.path());
    const std::string before = g.record->toString();
    g.form.pick("lstUser", "x.fsxmat");
    g.form.click("cmdULoad");
    for (const auto& [control, value] : {std::pair{"cmbSrc", std::string("DestColor")},
                                         {"cmbDest", "Zero"},
                                         {"cmdFR", "ramp.dds|\\home\\pat\\ramp.dds"},
                                         {"chkEP(6)", "0"},
                                         {"lblTex", "d.dds\r\rb.dds\rs.dds"},
                                         {"Picture1", std::to_string(edited->getDiffColor())},
                                         {"picSpec", std::to_string(edited->getSpecColor())}})
        EXPECT_EQ(shown(g.form.control(control)), value) << control;
    EXPECT_EQ(g.form.control("lstUser").selected, -1); // the list was read again
    EXPECT_EQ(g.record->toString(), before);
    g.form.pick("lstUser", "ABCFSXMAT");
    g.form.click("cmdUDelete");
    EXPECT_FALSE(fs::exists(f.dir.file("ABCFSXMAT")));
    g.form.click("cmdOK");
    EXPECT_EQ(g.record->SrcBlend + " " + std::to_string(g.record->bIsNNumber), "DestColor 1");
    EXPECT_FLOAT_EQ(host->specular.g, 0.4f); // neither the record's colour nor the host's turned black
    EXPECT_EQ(g.record->getSpecColor(), specular);
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
