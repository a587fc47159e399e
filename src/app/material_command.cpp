// The material commands: show, edit, apply and library.
#include "app/command.h"

#include "gltf/gltf.h"
#include "shell/shell.h"

#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <strings.h>

namespace tarnvale::app {

namespace {

// Boxes that any Show cancels: apply runs the editor's steps without a window.
struct NoBoxes : editor::DialogBoxes {
    bool showOpen(editor::CommonDialog&) override { return false; }
    bool showSave(editor::CommonDialog&) override { return false; }
    bool showColor(editor::CommonDialog&) override { return false; }
};

// A scene read for its materials, with the field that carries their text.
struct SceneMaterials {
    gltf::LoadedScene loaded;
    std::string fieldName;
    int32_t fieldId = -1;

    explicit SceneMaterials(const MaterialOptions& o) {
        gltf::ReadOptions read;
        read.materialField = fieldName = shell::fieldIdSetting(*settingsStore(o.settings));
        if (o.fromStdin)
            loaded =
                gltf::readSceneText(std::string(std::istreambuf_iterator<char>(std::cin), {}), "stdin", read);
        else
            loaded = gltf::readScene(o.scene, read);
        fieldId = loaded.scene->root()->FindMaterialField(fieldName);
        if (fieldId < 0) fieldId = loaded.scene->root()->AddMaterialField(fieldName);
    }
    // The materials with their glTF index (-1: the default one).
    std::vector<std::pair<int, std::shared_ptr<scene::MemoryMaterial>>> all() const {
        std::vector<std::pair<int, std::shared_ptr<scene::MemoryMaterial>>> out;
        for (size_t i = 0; i < loaded.materials.size(); ++i)
            out.emplace_back(static_cast<int>(i), loaded.materials[i]);
        if (loaded.defaultMaterial) out.emplace_back(-1, loaded.defaultMaterial);
        return out;
    }
    material::FS10Material derive(const SGMaterialPtr& m) const {
        material::FS10Material record;
        record.CreateCSG(m, fieldId);
        return record;
    }
};

std::string materialNames(const SceneMaterials& s) {
    std::string names;
    for (const auto& [index, m] : s.all())
        names += (names.empty() ? "" : ", ") + ("\"" + m->shownName() + "\"");
    return names.empty() ? "none" : names;
}

// Reads the scene and finds the material by its name in the file (or as the
// scene holds it); prints why not and gives false.
bool findMaterial(const MaterialOptions& o, std::optional<SceneMaterials>& s, int& index,
                  SGMaterialPtr& found) {
    try {
        s.emplace(o);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "tarnvale: cannot read %s: %s\n", o.scene.c_str(), e.what());
        return false;
    }
    for (const auto& [i, m] : s->all())
        if ((o.fromStdin && i == 0) ||
            (o.material && (m->shownName() == *o.material || m->GetName() == *o.material))) {
            index = i;
            found = m;
            return true;
        }
    std::fprintf(stderr, "tarnvale: %s has no material named \"%s\"; its materials: %s\n", o.scene.c_str(),
                 o.material.value_or("").c_str(), materialNames(*s).c_str());
    return false;
}

// Writes the record's text form into the material's field in the scene file, and
// the material's specular colour when the editor changed it.
int writeBack(const MaterialOptions& o, const SceneMaterials& s, int index,
              const material::FS10Material& record, const std::optional<Rgb>& specular = std::nullopt) {
    if (o.fromStdin) {
        nlohmann::json out = {{"text", record.toString()}, {"specular", nullptr}};
        if (specular) out["specular"] = {specular->r, specular->g, specular->b};
        std::printf("%s\n", out.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
        return kExported;
    }
    if (index < 0) {
        std::fprintf(stderr,
                     "tarnvale: the material \"default\" stands for primitives without a material and has no "
                     "place in %s to keep its text; give them a material of their own\n",
                     o.scene.c_str());
        return kFailed;
    }
    try {
        gltf::writeMaterialExtra(o.scene, index, s.fieldName, record.toString(), specular);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "tarnvale: %s is unchanged: %s\n", o.scene.c_str(), e.what());
        return kFailed;
    }
    std::fprintf(stderr, "tarnvale: wrote the material's text into extras.%s of %s\n", s.fieldName.c_str(),
                 o.scene.c_str());
    return kExported;
}

// A standard preset by its caption (in any case) or its number; -1 for none.
int presetIndex(const std::string& name) {
    const char* const captions[] = {"General Material", "Propeller", "Gloss", "Chrome", "Tail Number"};
    for (int i = 0; i < material::kPresetCount; ++i)
        if (strcasecmp(name.c_str(), captions[i]) == 0 || name == std::to_string(i)) return i;
    return -1;
}

// The library's folder; says so when it is not the plug-in folder.
std::string libraryFolder(const MaterialOptions& o) {
    const std::string folder = editor::libraryFolder(o.pluginDir);
    if (folder != o.pluginDir)
        std::fprintf(stderr, "tarnvale: %s cannot be written; the material library is in %s\n",
                     o.pluginDir.c_str(), folder.c_str());
    return folder;
}

} // namespace

int runMaterialShow(const MaterialOptions& o, std::FILE* out) {
    std::optional<SceneMaterials> s;
    int index = 0;
    SGMaterialPtr one;
    if (o.material) {
        if (!findMaterial(o, s, index, one)) return kUnreadable;
    } else {
        try {
            s.emplace(o);
        } catch (const std::exception& e) {
            std::fprintf(stderr, "tarnvale: cannot read %s: %s\n", o.scene.c_str(), e.what());
            return kUnreadable;
        }
    }
    for (const auto& [i, m] : s->all()) {
        if (one && m != one) continue;
        material::FS10Material record = s->derive(m);
        const std::string text = record.toString(); // before Output puts the written names in
        std::string block;
        platform::TextSink sink;
        sink.openString(block);
        record.Output(sink);
        sink.close();
        std::string shown = platform::fromWindows1252(block);
        for (size_t at; (at = shown.find("\r\n")) != std::string::npos;)
            shown.erase(at, 1);
        const std::string field = m->GetMaterialField(s->fieldId);
        std::fprintf(out, "material \"%s\"\n%s: %s\ntext form: %s\n%s\n", m->shownName().c_str(),
                     s->fieldName.c_str(), field.empty() ? "(none)" : field.c_str(), text.c_str(),
                     shown.c_str());
    }
    return kExported;
}

int runMaterialEdit(const MaterialOptions& o, editor::FormWindow& window, editor::DialogBoxes& boxes) {
    std::optional<SceneMaterials> s;
    int index = 0;
    SGMaterialPtr m;
    if (!findMaterial(o, s, index, m)) return kUnreadable;
    material::FS10Material record = s->derive(m);
    const Rgb before = m->GetSpecular();
    auto editor = std::make_shared<editor::FormEditor>(window, boxes, libraryFolder(o));
    record.Editor = editor;
    record.Edit();
    if (!editor->committed()) {
        std::fprintf(stderr, "tarnvale: cancelled; %s is unchanged\n", o.scene.c_str());
        return kCancelled;
    }
    const Rgb after = m->GetSpecular();
    const bool picked = after.r != before.r || after.g != before.g || after.b != before.b;
    return writeBack(o, *s, index, record, picked ? std::optional<Rgb>(after) : std::nullopt);
}

int runMaterialApply(const MaterialOptions& o) {
    std::optional<SceneMaterials> s;
    int index = 0;
    SGMaterialPtr m;
    if (!findMaterial(o, s, index, m)) return kUnreadable;
    const int preset = presetIndex(o.preset);
    if (o.preset.empty() ? !platform::fileExists(o.from) : preset < 0) {
        std::fprintf(stderr,
                     o.preset.empty() ? "tarnvale: cannot read %s\n"
                                      : "tarnvale: there is no standard material %s; the presets are General "
                                        "Material, Propeller, Gloss, Chrome and Tail Number (or 0 to 4)\n",
                     o.preset.empty() ? o.from.c_str() : o.preset.c_str());
        return kUnreadable;
    }
    auto record = std::make_shared<material::FS10Material>(s->derive(m));
    NoBoxes none;
    editor::frmOptions form(none, libraryFolder(o));
    form.EditMaterial = record;
    form.Form_Load();
    if (o.preset.empty())
        form.loadLibraryFile(o.from);
    else
        form.cmdStd_Click(preset);
    form.click("cmdOK");
    return writeBack(o, *s, index, *record);
}

int runMaterialSave(const MaterialOptions& o) {
    std::optional<SceneMaterials> s;
    int index = 0;
    SGMaterialPtr m;
    if (!findMaterial(o, s, index, m)) return kUnreadable;
    // The editor's Save, its file box answered with the file asked for.
    struct SaveTo : NoBoxes {
        std::string path;
        bool showSave(editor::CommonDialog& cdlg) override { return cdlg.FileName = path, true; }
    } box;
    box.path = o.to;
    auto record = std::make_shared<material::FS10Material>(s->derive(m));
    editor::frmOptions form(box, libraryFolder(o));
    form.EditMaterial = record;
    form.Form_Load();
    form.click("cmdUSave");
    if (material::readLibraryLine(o.to).empty()) {
        std::fprintf(stderr, "tarnvale: cannot write %s\n", o.to.c_str());
        return kFailed;
    }
    return kExported;
}

int runMaterialLibrary(const MaterialOptions& o, std::FILE* out) {
    const std::string folder = libraryFolder(o);
    std::fprintf(out, "%s\n", folder.c_str());
    for (const std::string& name : material::listLibraryFiles(folder))
        std::fprintf(out, "%s\n", name.c_str());
    return kExported;
}

} // namespace tarnvale::app
