// The part data commands: show, set and list.
#include "app/command.h"

#include "partdata/partdata.h"
#include "platform/xml.h"
#include "shell/shell.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <nlohmann/json.hpp>

namespace tarnvale::app {

namespace {

using nlohmann::json;
using partdata::Attached;
using partdata::Element;
using partdata::Kind;

// An edit the command refuses, with the reason; the file stays as it was.
struct Refused : std::runtime_error {
    using std::runtime_error::runtime_error;
};

json elementJson(const Element& e) {
    json out = {{"kind", partdata::kindName(e.kind)}};
    if (e.kind != Kind::noCrash && e.kind != Kind::other) out["name"] = e.name;
    if (e.attached == Attached::effect) out["effect"] = {{"name", e.effectName}, {"params", e.effectParams}};
    if (e.attached == Attached::libraryObject)
        out["libraryObject"] = {{"guid", e.objectGuid}, {"scale", e.objectScale}};
    if (e.kind == Kind::platform) out["surface"] = e.surface;
    if (!e.xml.empty()) out["xml"] = e.xml;
    return out;
}

std::string elementText(const Element& e) {
    std::string out = partdata::kindName(e.kind);
    switch (e.kind) {
    case Kind::visibility:
    case Kind::mouseRect:
        out += " " + e.name;
        break;
    case Kind::attachPoint:
        out += " " + e.name + ": " +
               (e.attached == Attached::effect
                    ? "effect " + e.effectName + (e.effectParams.empty() ? "" : " (" + e.effectParams + ")")
                : e.attached == Attached::libraryObject ? "library object " + e.objectGuid + " at scale " +
                                                              (e.objectScale.empty() ? "1" : e.objectScale)
                                                        : std::string("nothing attached"));
        break;
    case Kind::platform:
        out += " " + e.name + ": " + e.surface;
        break;
    case Kind::noCrash:
        break;
    case Kind::other:
        return "kept as written: " + e.xml;
    }
    return e.xml.empty() ? out : out + " (kept as written, with more than this)";
}

// The model definition's parts; none, with a note, when it cannot be read.
std::optional<std::vector<partdata::PartInfo>> modelDefParts(const PartOptions& o, std::string& file) {
    file = shell::modelDefinitionLocation(*registryFor(o.registry), o.pluginDir);
    platform::XmlDocument doc;
    if (!platform::fileExists(file) || !doc.load(file)) return std::nullopt;
    return partdata::partInfos(doc);
}

// A part of the model definition that has what the element needs, or why not.
void checkPartName(const PartOptions& o, Kind kind, const std::string& name) {
    std::string file;
    const auto parts = modelDefParts(o, file);
    if (!parts) {
        std::fprintf(stderr, "tarnvale: the model definition %s cannot be read, so \"%s\" is not checked\n",
                     file.c_str(), name.c_str());
        return;
    }
    const bool visibility = kind == Kind::visibility;
    const std::vector<std::string> names = partdata::partsFor(*parts, kind);
    if (std::find(names.begin(), names.end(), name) != names.end()) return;
    std::string nearest;
    for (const std::string& n : partdata::nearestNames(name, names))
        nearest += (nearest.empty() ? "" : ", ") + n;
    throw Refused("the model definition " + file + " has no part \"" + name + "\" with a " +
                  (visibility ? "Visibility" : "MouseRect") +
                  (nearest.empty() ? std::string(" (it has none)") : "; the nearest: " + nearest) +
                  " (tarnvale part list shows them)");
}

// The element the options ask for, checked as the checks would.
Element requested(const PartOptions& o, const partdata::PartData& now) {
    Element e;
    if (o.visibility || o.mouseRect) {
        e.kind = o.visibility ? Kind::visibility : Kind::mouseRect;
        e.name = o.visibility ? *o.visibility : *o.mouseRect;
        checkPartName(o, e.kind, e.name);
    } else if (o.effect || o.libraryObject) {
        e.kind = Kind::attachPoint;
        const Element* point = now.find(Kind::attachPoint);
        e.name = point && !point->name.empty() ? point->name : "attachpt_" + platform::pCleanName(*o.node);
        if (o.effect) {
            if (const auto bare = partdata::withoutExtension(*o.effect))
                throw Refused("the effect \"" + *o.effect +
                              "\" has a file extension, and the simulator adds its own: give \"" + *bare +
                              "\"");
            e.attached = Attached::effect, e.effectName = *o.effect, e.effectParams = o.params;
        } else {
            if (!partdata::isGuid(*o.libraryObject))
                throw Refused(
                    "the library object \"" + *o.libraryObject +
                    "\" is not a GUID ({xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}), and the simulator finds "
                    "library objects by GUID");
            e.attached = Attached::libraryObject, e.objectGuid = *o.libraryObject, e.objectScale = o.scale;
        }
    } else if (o.platform) {
        e.kind = Kind::platform;
        e.surface = platform::upperCase(*o.platform);
        const auto& types = partdata::surfaceTypes();
        if (std::find(types.begin(), types.end(), e.surface) == types.end()) {
            std::string nearest;
            for (const std::string& n : partdata::nearestNames(e.surface, types))
                nearest += (nearest.empty() ? "" : ", ") + n;
            throw Refused("\"" + *o.platform +
                          "\" is no surface type of the simulator; the nearest: " + nearest);
        }
        const Element* was = now.find(Kind::platform);
        e.name = was && !was->name.empty() ? was->name : platform::pCleanName(*o.node);
    } else {
        e.kind = Kind::noCrash;
    }
    return e;
}

// The node's part data text after the edit; empty when nothing is left.
std::string edited(const PartOptions& o, const std::string& text) {
    partdata::Unreadable why;
    auto data = partdata::parse(text, &why);
    if (!data) throw Refused("its part data cannot be read (" + why.reason() + "); mend the text first");
    if (o.remove) {
        const std::string& kind = *o.remove;
        const auto k =
            kind == "effect" || kind == "library-object" ? Kind::attachPoint : partdata::kindNamed(kind);
        if (!k || !data->remove(*k)) throw Refused("its part data has no " + kind + " to remove");
    } else {
        data->set(requested(o, *data));
    }
    return data->elements.empty() && data->rootAttributes.empty() ? std::string() : partdata::write(*data);
}

json partJson(const std::string& node, const std::string& text) {
    json out = {{"node", node}, {"text", text}, {"elements", json::array()}};
    partdata::Unreadable why;
    if (const auto data = partdata::parse(text, &why))
        for (const Element& e : data->elements)
            out["elements"].push_back(elementJson(e));
    else
        out["error"] = why.reason();
    return out;
}

std::string dumped(const json& j) {
    return j.dump(-1, ' ', false, json::error_handler_t::replace);
}

} // namespace

int runPartShow(const PartOptions& o, std::FILE* out) {
    gltf::LoadedScene loaded;
    gltf::ReadOptions read;
    read.outline = true; // the nodes are what it shows: meshes counted, not kept
    try {
        loaded = o.fromStdin ? gltf::readSceneText(std::string(std::istreambuf_iterator<char>(std::cin), {}),
                                                   "stdin", read)
                             : gltf::readScene(o.scene, read);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "tarnvale: cannot read %s: %s\n", o.scene.c_str(), e.what());
        return kUnreadable;
    }
    const int32_t field =
        loaded.scene->fields().addObject(shell::attachIdSetting(*settingsStore(o.settings)));
    json report = {{"scene", o.scene}, {"nodes", json::array()}};
    bool found = false;
    std::vector<scene::MemoryObject*> stack;
    for (auto it = loaded.scene->root()->children().rbegin(); it != loaded.scene->root()->children().rend();
         ++it)
        stack.push_back(it->get());
    while (!stack.empty()) {
        scene::MemoryObject* node = stack.back();
        stack.pop_back();
        for (auto it = node->children().rbegin(); it != node->children().rend(); ++it)
            stack.push_back(it->get());
        const bool named = o.node && (node->shownName() == *o.node || node->GetName() == *o.node);
        found = found || named;
        const std::string text = node->GetFieldText(field);
        if ((o.node && !named) || (!o.node && text.empty())) continue;
        json one = partJson(node->shownName(), text);
        one["frame"] = "frm-" + platform::pCleanName(node->GetName());
        if (!o.json) {
            std::fprintf(out, "node %s (%s)\n", node->shownName().c_str(),
                         one["frame"].get<std::string>().c_str());
            const auto data = partdata::parse(text);
            if (!data)
                std::fprintf(out, "  cannot be read: %s\n", one["error"].get<std::string>().c_str());
            else if (data->elements.empty())
                std::fprintf(out, "  no part data\n");
            else
                for (const Element& e : data->elements)
                    std::fprintf(out, "  %s\n", elementText(e).c_str());
        }
        report["nodes"].push_back(std::move(one));
    }
    if (o.node && !found) {
        std::fprintf(stderr, "tarnvale: %s has no node named \"%s\"\n", o.scene.c_str(), o.node->c_str());
        return kUnreadable;
    }
    if (o.json) std::fprintf(out, "%s\n", dumped(report).c_str());
    return kExported;
}

int runPartSet(const PartOptions& o, std::FILE* out) {
    const std::string key = shell::attachIdSetting(*settingsStore(o.settings));
    std::string text;
    try {
        auto edit = [&](const std::string& old) { return text = edited(o, old); };
        if (o.fromStdin)
            gltf::editNodeExtraText(std::string(std::istreambuf_iterator<char>(std::cin), {}), *o.node, key,
                                    edit);
        else
            gltf::editNodeExtra(o.scene, *o.node, key, edit);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "tarnvale: %s is unchanged: %s\n", o.fromStdin ? "the scene" : o.scene.c_str(),
                     e.what());
        return kUnreadable;
    }
    if (o.fromStdin || o.json) std::fprintf(out, "%s\n", dumped(partJson(*o.node, text)).c_str());
    if (!o.fromStdin)
        std::fprintf(stderr, "tarnvale: wrote the part data of %s into extras.%s of %s\n", o.node->c_str(),
                     key.c_str(), o.scene.c_str());
    return kExported;
}

int runPartList(const PartOptions& o, std::FILE* out) {
    std::string file;
    const auto parts = modelDefParts(o, file);
    if (!parts) {
        std::fprintf(stderr, "tarnvale: cannot read the model definition %s\n", file.c_str());
        return kUnreadable;
    }
    json report = {{"modelDef", file}, {"parts", json::array()}, {"surfaces", partdata::surfaceTypes()}};
    for (const partdata::PartInfo& p : *parts) {
        report["parts"].push_back({{"name", p.name},
                                   {"animation", p.animation},
                                   {"visibility", p.visibility},
                                   {"visibleInRange", p.visibleInRange},
                                   {"mouseRect", p.mouseRect}});
        if (o.json) continue;
        std::string has;
        for (const auto& [yes, what] : {std::pair{p.animation, "animation"},
                                        {p.visibility, "visibility"},
                                        {p.visibleInRange, "visible-in-range"},
                                        {p.mouseRect, "mouse-rect"}})
            if (yes) has += (has.empty() ? "" : ", ") + std::string(what);
        std::fprintf(out, "%-24s %s\n", p.name.c_str(), has.empty() ? "-" : has.c_str());
    }
    if (o.json) std::fprintf(out, "%s\n", dumped(report).c_str());
    return kExported;
}

} // namespace tarnvale::app
