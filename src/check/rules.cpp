// The checks, one small function each, and the table that names them.
#include "check/check.h"

#include "anim/anim.h"
#include "material/material.h"
#include "partdata/partdata.h"
#include "platform/platform.h"
#include "platform/xml.h"
#include "texture/texture.h"
#include "xfile/xfile.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <set>
#include <unordered_set>

namespace tarnvale::check {

const char* severityName(Severity s) {
    switch (s) {
    case Severity::Error:
        return "error";
    case Severity::Warning:
        return "warning";
    case Severity::Info:
        break;
    }
    return "info";
}

namespace {

using scene::MemoryMaterial;
using scene::MemoryObject;

// A frame of the X file and what its merged mesh would hold.
struct Frame {
    MemoryObject* node = nullptr;
    std::string x;             // the cleaned name, as the frame and the XANIM part carry it
    bool mirrorStarts = false; // its world mirrors where its parent's does not
    size_t vertices = 0, triangles = 0;
    std::vector<std::shared_ptr<MemoryMaterial>> materials; // distinct, in first use
    std::vector<SGShapePtr> skinned;
    std::vector<KeyRecord> keys;
};

bool shownAsLod(MemoryObject& node) {
    return std::nearbyint(node.GetNodeValue()) != 0;
}

} // namespace

struct Context {
    const Subject& subject;
    std::vector<Finding>& out;
    std::vector<Frame> frames;
    std::vector<std::pair<std::shared_ptr<MemoryMaterial>, const Frame*>>
        materials; // used, each once, with its first frame
    platform::XmlDocument modelDef;
    bool modelDefRead = false;
    std::vector<platform::XmlElement> animations;
    std::vector<partdata::PartInfo> parts; // the model definition's
    // Each frame's part data where it has some: read, or why not.
    struct PartDataOf {
        const Frame* frame;
        std::optional<partdata::PartData> data;
        partdata::Unreadable why;
    };
    std::vector<PartDataOf> partData;
    int32_t materialField = 0, attachField = 0;
    std::vector<lod::Budget> budgets;

    // A finding of the rule; `severity` lowers the rule's own where the export
    // takes care of what it found.
    void add(const Rule& rule, const Frame* frame, const MemoryMaterial* material, std::string message,
             std::optional<Severity> severity = std::nullopt) {
        Finding f{rule.kind, severity.value_or(rule.severity), {}, {}, {}, std::move(message)};
        if (frame) {
            f.node = frame->node->shownName(), f.frame = "frm-" + frame->x;
            const bool listed = frame >= frames.data() && frame < frames.data() + frames.size();
            f.place = 1 + (listed ? static_cast<size_t>(frame - frames.data()) : 0);
        }
        if (material) {
            f.material = material->shownName();
            f.place = 1 + frames.size();
            while (f.place - 1 - frames.size() < materials.size() &&
                   materials[f.place - 1 - frames.size()].first.get() != material)
                ++f.place;
        }
        out.push_back(std::move(f));
    }
};

namespace {

void addFrames(Context& c, MemoryObject& root) {
    // Depth first with a stack of its own: node chains may be long.
    std::vector<std::pair<MemoryObject*, bool>> stack{{&root, false}};
    while (!stack.empty()) {
        auto [node, parentMirrors] = stack.back();
        stack.pop_back();
        Frame f;
        f.node = node;
        f.x = platform::pCleanName(node->GetName());
        const bool mirrors = scene::mirrors(node->GetRelativeMatrix(nullptr, 0));
        f.mirrorStarts = mirrors && !parentMirrors;
        auto addMaterial = [&f](const std::shared_ptr<MemoryMaterial>& m) {
            if (m &&
                std::none_of(f.materials.begin(), f.materials.end(), [&](const auto& u) { return u == m; }))
                f.materials.push_back(m);
        };
        if (auto o = c.subject.loaded->outlines.find(node); o != c.subject.loaded->outlines.end()) {
            f.vertices += o->second.vertices;
            f.triangles += o->second.triangles;
            for (const auto& m : o->second.materials)
                addMaterial(m);
        }
        SGShapeListPtr shapes = node->GetShapes();
        const SGMaterial* last = nullptr;
        for (int32_t i = 0, n = shapes->GetCount(); i < n; ++i) {
            SGShapePtr shape = shapes->GetItem(i);
            if (shape->GetGeometryKind() != kGeometryPolygonMesh) continue;
            f.vertices += static_cast<size_t>(shape->GetVertexCount());
            for (int32_t p = 0, np = shape->GetPolygonCount(); p < np; ++p) {
                f.triangles += static_cast<size_t>(std::max(0, shape->FaceCornerCount(p) - 2));
                const SGMaterialPtr& m = shape->FaceMaterial(p);
                if (m.get() == last || !m) continue;
                last = m.get();
                addMaterial(std::dynamic_pointer_cast<MemoryMaterial>(m));
            }
            if (!shape->GetVertexWeights().empty()) f.skinned.push_back(shape);
        }
        f.keys = node->GetKeyframes(0.0f, 999999.0f);
        c.frames.push_back(std::move(f));
        const auto& children = node->children();
        for (auto it = children.rbegin(); it != children.rend(); ++it)
            stack.push_back({it->get(), mirrors});
    }
}

// The frames the export writes: the group's tree, or for a level of detail every
// shown LOD_ sibling's.
void collect(Context& c) {
    MemoryObject& group = *c.subject.group;
    auto parent = std::dynamic_pointer_cast<MemoryObject>(group.GetParent());
    if (platform::isLevelOfDetail(group.GetName()) && parent) {
        for (const auto& child : parent->children())
            if (platform::isLevelOfDetail(child->GetName()) && shownAsLod(*child)) addFrames(c, *child);
    } else {
        addFrames(c, group);
    }
    for (const Frame& f : c.frames)
        for (const auto& m : f.materials)
            if (std::none_of(c.materials.begin(), c.materials.end(),
                             [m](const auto& u) { return u.first == m; }))
                c.materials.push_back({m, &f});
    // Meshes read as counts only are counted from their outlines.
    const auto& outlines = c.subject.loaded->outlines;
    c.budgets = lod::budgetsOf(c.subject.group, [&outlines](const SGObjectPtr& node) {
        std::optional<lod::FrameCounts> counts;
        const auto it = outlines.find(dynamic_cast<const MemoryObject*>(node.get()));
        if (it == outlines.end()) return counts;
        counts.emplace();
        counts->vertices = it->second.vertices;
        for (const auto& part : it->second.parts)
            counts->draws.push_back({node, {}, part.vertices, part.triangles, part.material});
        return counts;
    });
    auto& fields = c.subject.loaded->scene->fields();
    c.materialField = fields.addMaterial(c.subject.materialField);
    c.attachField = fields.addObject(c.subject.attachField);
    if (platform::fileExists(c.subject.modelDefFile) && c.modelDef.load(c.subject.modelDefFile)) {
        c.modelDefRead = true;
        c.animations = c.modelDef.select("ModelInfo/Animation");
        c.parts = partdata::partInfos(c.modelDef);
    }
    for (const Frame& f : c.frames) {
        const std::string text = f.node->GetFieldText(c.attachField);
        if (text.empty()) continue;
        Context::PartDataOf one{&f, std::nullopt, {}};
        one.data = partdata::parse(text, &one.why);
        c.partData.push_back(std::move(one));
    }
}

// ---- The plug-in folder ---------------------------------------------------------------

void templateMissing(Context& c, const Rule& r) {
    if (!platform::fileExists(c.subject.templateFile))
        c.add(r, nullptr, nullptr,
              "the template " + c.subject.templateFile +
                  " does not exist, so no X file can be "
                  "written: put Tarnvale.X in the plug-in folder or set Template in the settings");
}

void modelDefMissing(Context& c, const Rule& r) {
    if (!platform::fileExists(c.subject.modelDefFile))
        c.add(r, nullptr, nullptr,
              "the model definition " + c.subject.modelDefFile +
                  " does not exist, so the export "
                  "stops after the X file: put the SDK's modeldef.xml in the plug-in folder, or name "
                  "it in fs10attach.xml");
}

void modelDefNotXml(Context& c, const Rule& r) {
    if (platform::fileExists(c.subject.modelDefFile) && !c.modelDefRead)
        c.add(r, nullptr, nullptr,
              "the model definition " + c.subject.modelDefFile +
                  " is not well-formed XML, so "
                  "the export stops after the X file: take the SDK's modeldef.xml again");
}

void modelDefTooFew(Context& c, const Rule& r) {
    if (c.modelDefRead && c.animations.size() < 2)
        c.add(r, nullptr, nullptr,
              "the model definition " + c.subject.modelDefFile + " has " +
                  std::to_string(c.animations.size()) +
                  " ModelInfo/Animation nodes and the "
                  "export needs at least 2: take the SDK's modeldef.xml again");
}

// ---- Animation ------------------------------------------------------------------------

bool animated(const Frame& f) {
    return f.keys.size() > 2;
}

// How far a definition name is from the part's name: edits from the name to the
// part's start of the same length, or to the whole part, whichever is less.
std::string nearestNames(const std::string& part, const std::vector<platform::XmlElement>& animations) {
    std::vector<std::pair<size_t, std::string>> ranked;
    std::set<std::string> seen;
    for (const auto& a : animations) {
        const std::string name = a.attribute("name").value_or("");
        if (name.empty() || !seen.insert(name).second) continue;
        const std::string lower = platform::lowerCase(name);
        ranked.push_back({std::min(platform::editDistance(lower, part.substr(0, lower.size())) + 1,
                                   platform::editDistance(lower, part)),
                          name});
    }
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& l, const auto& r) { return l.first < r.first; });
    std::string out;
    for (size_t i = 0; i < ranked.size() && i < 3; ++i)
        out += (i ? ", " : "") + ranked[i].second;
    return out;
}

// The definition the export takes for a part, by the export's own match.
platform::XmlElement definitionOf(Context& c, const std::string& part) {
    std::shared_ptr<platform::XmlDocument> none;
    bool hasAnimation = false;
    int32_t limit = 999999;
    anim::XAnimContext fields{none, c.animations, hasAnimation, limit};
    return anim::XAnimExporter(fields).pFindAnimationDef(part);
}

void animationMatch(Context& c, const Rule& r, bool fallback) {
    if (c.animations.size() < 2) return;
    for (const Frame& f : c.frames) {
        if (!animated(f)) continue;
        platform::XmlElement def;
        try {
            def = definitionOf(c, f.x);
        } catch (const Failure&) {
            if (!fallback)
                c.add(r, &f, nullptr,
                      "an Animation node of the model definition has no name, so the export fails "
                      "at this part: give every Animation node its name");
            continue;
        }
        const bool ambient = def && !platform::startsWithNoCase(f.x, def.attribute("name").value_or(""));
        if (!def && !fallback)
            c.add(r, &f, nullptr,
                  "it is animated, and its name " + f.x +
                      " starts with no Animation name of the "
                      "model definition, so the export fails here: rename it after one (nearest: " +
                      nearestNames(f.x, c.animations) + ")");
        if (ambient && fallback)
            c.add(r, &f, nullptr,
                  "its name " + f.x +
                      " starts with no Animation name of the model definition, so its "
                      "keys play as NonRandomAmbient: rename it after the animation it is meant for "
                      "(nearest: " +
                      nearestNames(f.x, c.animations) + ")");
    }
}
void animationUnmatched(Context& c, const Rule& r) {
    animationMatch(c, r, false);
}
void animationAmbient(Context& c, const Rule& r) {
    animationMatch(c, r, true);
}

void animationNoLength(Context& c, const Rule& r) {
    for (const Frame& f : c.frames)
        if (animated(f) &&
            std::none_of(f.keys.begin(), f.keys.end(), [](const KeyRecord& k) { return k.time > 0; }))
            c.add(r, &f, nullptr,
                  "all its " + std::to_string(f.keys.size()) +
                      " keys stand at time 0, so the export "
                      "cannot scale their times and fails here: spread the keys over the animation");
}

void animationStill(Context& c, const Rule& r) {
    for (const Frame& f : c.frames) {
        if (!animated(f)) continue;
        // The data as the file would hold it; a stream whose keys all read alike is dropped.
        std::string position, rotation;
        bool moves = false;
        for (const KeyRecord& k : f.keys) {
            std::string text = xfile::pFormatNumber(k.kx) + ";" + xfile::pFormatNumber(k.ky) + ";" +
                               xfile::pFormatNumber(k.kz) + ";" + xfile::pFormatNumber(k.kw);
            std::string& first = k.kind == 0 ? position : rotation;
            if (first.empty())
                first = std::move(text);
            else if (first != text)
                moves = true;
        }
        if (!moves)
            c.add(r, &f, nullptr,
                  "its " + std::to_string(f.keys.size()) +
                      " keys are all alike, so nothing of it "
                      "reaches the XANIM file: key the movement, or remove the keys");
    }
}

// ---- Names ----------------------------------------------------------------------------

void nameCollision(Context& c, const Rule& r) {
    std::map<std::string, const Frame*> first;
    for (const Frame& f : c.frames) {
        auto [it, fresh] = first.emplace(f.x, &f);
        if (!fresh)
            c.add(r, &f, nullptr,
                  "its frame has the name of the frame of " + it->second->node->shownName() +
                      ", so the XANIM file and the simulator cannot tell the two apart: rename one");
    }
}

void nameMapped(Context& c, const Rule& r) {
    for (const Frame& f : c.frames)
        if (f.node->shownName() != f.node->GetName())
            c.add(r, &f, nullptr,
                  "the X file cannot hold its name as it is, so it becomes " + f.x + " (the frame frm-" +
                      f.x + ")");
}

// ---- Meshes ---------------------------------------------------------------------------

void meshMaterials(Context& c, const Rule& r) {
    for (const Frame& f : c.frames)
        if (f.materials.size() > 1001)
            c.add(r, &f, nullptr,
                  "its meshes use " + std::to_string(f.materials.size()) +
                      " materials, and one "
                      "frame's mesh takes at most 1001: split it over several nodes");
}

// The frame a node has in the file, where it has one.
const Frame* frameOf(const Context& c, const SGObjectPtr& node) {
    for (const Frame& f : c.frames)
        if (f.node == node.get()) return &f;
    return nullptr;
}

std::string thousands(size_t n) {
    std::string s = std::to_string(n);
    for (size_t at = s.size(); at > 3; at -= 3)
        s.insert(at - 3, ",");
    return s;
}

void drawVertexLimit(Context& c, const Rule& r) {
    for (const lod::Budget& b : c.budgets)
        for (const lod::Draw& d : b.draws)
            if (b.shown && d.vertices > lod::kMaxDrawVertices)
                c.add(r, frameOf(c, d.node), nullptr,
                      "its triangles of material " + (d.material.empty() ? "(none)" : d.material) + " take " +
                          thousands(d.vertices) +
                          " vertices in one draw, and the compiler's 16-bit indices stop at 65,535: split "
                          "the mesh over several nodes, or give part of it another material");
}

void levelBudget(Context& c, const Rule& r) {
    const auto over = [](size_t value, const std::optional<size_t>& limit, const char* what) {
        return limit && value > *limit
                   ? std::string(what) + " " + thousands(value) + " (at most " + thousands(*limit) + ")"
                   : std::string();
    };
    for (const lod::Budget& b : c.budgets) {
        std::string said = over(b.triangles, c.subject.maxTriangles, "triangles");
        const std::string calls = over(b.drawCalls, c.subject.maxDrawCalls, "draw calls");
        if (!said.empty() && !calls.empty()) said += ", ";
        said += calls;
        if (b.shown && !said.empty())
            c.add(r,
                  frameOf(c, b.level == c.subject.group->GetName() ? SGObjectPtr(c.subject.group) : nullptr),
                  nullptr, b.level + " is over its budget: " + said + ": simplify it, or merge materials");
    }
}

void meshNoTriangles(Context& c, const Rule& r) {
    for (const Frame& f : c.frames)
        if (f.vertices > 0 && f.triangles == 0)
            c.add(r, &f, nullptr,
                  "its mesh has " + std::to_string(f.vertices) +
                      " vertices and no triangle, and the "
                      "export fails on such a mesh: give it faces or remove it");
}

void mirrored(Context& c, const Rule& r) {
    for (const Frame& f : c.frames)
        if (f.mirrorStarts)
            c.add(r, &f, nullptr,
                  "its transform mirrors it (a negative scale); the export turns the triangles of "
                  "this branch so that their fronts stay in front");
}

// ---- Materials and textures -----------------------------------------------------------

material::FS10Material recordOf(Context& c, const std::shared_ptr<MemoryMaterial>& m) {
    material::FS10Material record;
    record.CreateCSG(m, c.materialField);
    return record;
}

void materialEmptyName(Context& c, const Rule& r) {
    for (const auto& [m, frame] : c.materials) {
        const material::FS10Material record = recordOf(c, m);
        std::string empty;
        for (const auto& [key, value] :
             {std::pair<const char*, const std::string*>{"SrcBlend", &record.SrcBlend},
              {"DstBlend", &record.DstBlend},
              {"AlphaTestFunction", &record.AlphaTestFunction},
              {"EmissiveData", &record.EmissiveData}})
            if (value->empty()) empty += (empty.empty() ? "" : ", ") + std::string(key);
        if (!empty.empty())
            c.add(r, nullptr, m.get(),
                  "its simulator text leaves " + empty +
                      " empty, so the X file holds \"\" where the "
                      "compiler expects a name: choose one in the material editor or apply a preset");
    }
}

void cockpitWithoutTexture(Context& c, const Rule& r) {
    for (const auto& [m, frame] : c.materials) {
        const material::FS10Material record = recordOf(c, m);
        if (record.bIsVCTexture == 1 && record.DiffuseTextureFileName.empty())
            c.add(r, nullptr, m.get(),
                  "it is a virtual cockpit material without a texture, so the simulator has no panel "
                  "to draw on it: give it the panel's texture or clear its cockpit flag");
    }
}

// The images a used material takes, by the name it holds.
template <typename Each> void eachImage(Context& c, Each&& each) {
    std::set<std::string> seen;
    for (const auto& [m, frame] : c.materials) {
        if (!m->textures || m->textures->fileName.empty()) continue;
        for (const gltf::SourceImage& image : c.subject.loaded->images)
            if (image.name == m->textures->fileName && seen.insert(image.origin).second) each(m, image);
    }
}

std::vector<uint8_t> imageBytes(const gltf::SourceImage& image) {
    if (image.bytes) return *image.bytes;
    std::vector<uint8_t> bytes;
    if (std::FILE* f = platform::openFile(image.file, "rb")) {
        uint8_t buffer[1 << 16];
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;)
            bytes.insert(bytes.end(), buffer, buffer + n);
        std::fclose(f);
    }
    return bytes;
}

void textureMissing(Context& c, const Rule& r) {
    eachImage(c, [&](const std::shared_ptr<MemoryMaterial>& m, const gltf::SourceImage& image) {
        if (!image.bytes && !platform::fileExists(image.file))
            c.add(r, nullptr, m.get(),
                  "its image " + image.file +
                      " does not exist, so the model shows no texture there: "
                      "put the image there or point the material at another");
    });
}

// An image the export would convert that is none it reads: it skips it, or with
// --strict fails.
void textureUndecodable(Context& c, const Rule& r) {
    if (!c.subject.textures) return;
    eachImage(c, [&](const std::shared_ptr<MemoryMaterial>& m, const gltf::SourceImage& image) {
        const std::vector<uint8_t> bytes = imageBytes(image);
        if (bytes.empty() || texture::imageSize(bytes)) return;
        c.add(r, nullptr, m.get(),
              "its image " + image.origin +
                  " is none that Tarnvale converts (PNG, JPEG, BMP, TGA, WebP or DDS), so the export " +
                  (c.subject.strict ? "fails on it" : "skips it") + ": save it as PNG",
              c.subject.strict ? Severity::Error : Severity::Warning);
    });
}

void textureSize(Context& c, const Rule& r) {
    eachImage(c, [&](const std::shared_ptr<MemoryMaterial>& m, const gltf::SourceImage& image) {
        const auto size = texture::imageSize(imageBytes(image));
        auto power = [](int s) { return s > 0 && (s & (s - 1)) == 0; };
        if (!size || (power(size->first) && power(size->second))) return;
        const std::string sides = std::to_string(size->first) + "x" + std::to_string(size->second);
        if (c.subject.textures)
            c.add(r, nullptr, m.get(),
                  "its image " + image.origin + " is " + sides + ", and the export resizes it to " +
                      std::to_string(texture::powerOfTwoSide(size->first)) + "x" +
                      std::to_string(texture::powerOfTwoSide(size->second)) +
                      ", the nearest sides that are powers of two",
                  Severity::Info);
        else
            c.add(r, nullptr, m.get(),
                  "its image " + image.origin + " is " + sides +
                      ", and the simulator takes sides that are powers of two: resize it, or " +
                      (c.subject.addOn ? "set Textures in the export options" : "export with --textures") +
                      ", which does");
    });
}

void textureNotDds(Context& c, const Rule& r) {
    if (c.subject.textures) return;
    eachImage(c, [&](const std::shared_ptr<MemoryMaterial>& m, const gltf::SourceImage& image) {
        const std::vector<uint8_t> bytes = imageBytes(image);
        if (!bytes.empty() && !texture::describe(bytes))
            c.add(r, nullptr, m.get(),
                  "its image " + image.origin + " is not a DDS file, and the simulator reads only DDS: " +
                      (c.subject.addOn ? "set Textures in the export options"
                                       : "export with --textures FOLDER") +
                      " to convert it");
    });
}

// ---- Levels of detail -----------------------------------------------------------------

template <typename Each> void eachLodSibling(Context& c, Each&& each) {
    MemoryObject& group = *c.subject.group;
    auto parent = std::dynamic_pointer_cast<MemoryObject>(group.GetParent());
    if (!platform::isLevelOfDetail(group.GetName()) || !parent) return;
    for (const auto& child : parent->children()) {
        Frame f;
        f.node = child.get();
        f.x = platform::pCleanName(child->GetName());
        each(f);
    }
}

void lodGap(Context& c, const Rule& r) {
    eachLodSibling(c, [&](const Frame& f) {
        if (platform::isLevelOfDetail(f.node->GetName()) && !shownAsLod(*f.node))
            c.add(r, &f, nullptr,
                  "this level of detail is hidden, so the export leaves it out and the levels have "
                  "a gap: show it, or remove it");
    });
}

void lodSibling(Context& c, const Rule& r) {
    eachLodSibling(c, [&](const Frame& f) {
        if (!platform::isLevelOfDetail(f.node->GetName()) && shownAsLod(*f.node))
            c.add(r, &f, nullptr,
                  "it stands beside the levels of detail without LOD_ in its name, so the export of "
                  "the levels leaves it out: move it into each level, or hide it");
    });
}

// ---- Part data ------------------------------------------------------------------------

void partDataNotXml(Context& c, const Rule& r) {
    for (const auto& p : c.partData)
        if (!p.data && !p.why.wellFormed)
            c.add(r, p.frame, nullptr,
                  "its part data (" + c.subject.attachField +
                      ") is not well-formed XML, and the "
                      "compiler cannot read it: mend the text");
}

void partDataRoot(Context& c, const Rule& r) {
    for (const auto& p : c.partData)
        if (!p.data && p.why.wellFormed)
            c.add(r, p.frame, nullptr,
                  "its part data's root is " + p.why.root +
                      ", and the compiler "
                      "reads only FSMakeMdlData: put the text inside <FSMakeMdlData version=\"9.0\">");
}

// Each element of the kind in the part data that could be read, with its frame.
template <typename Each> void eachElement(Context& c, partdata::Kind kind, Each&& each) {
    for (const auto& p : c.partData)
        if (p.data)
            for (const partdata::Element& e : p.data->elements)
                if (e.kind == kind) each(*p.frame, e);
}

std::string quotedList(const std::vector<std::string>& names) {
    std::string out;
    for (const std::string& n : names)
        out += (out.empty() ? "" : ", ") + ("\"" + n + "\"");
    return out;
}

void partDataVersion(Context& c, const Rule& r) {
    for (const auto& p : c.partData)
        if (p.data && p.data->version != "9.0")
            c.add(r, p.frame, nullptr,
                  (p.data->version ? "its part data's version is \"" + *p.data->version + "\""
                                   : std::string("its part data names no version")) +
                      ", and the compiler reads version 9.0: set version=\"9.0\" on FSMakeMdlData");
}

// A Visibility or MouseRect that names no part of the model definition that has
// one; the nearest names that do.
void partNotDefined(Context& c, const Rule& r, partdata::Kind kind) {
    if (!c.modelDefRead) return;
    const bool visibility = kind == partdata::Kind::visibility;
    const std::vector<std::string> names = partdata::partsFor(c.parts, kind);
    const char* what = visibility ? "Visibility" : "MouseRect";
    eachElement(c, kind, [&](const Frame& f, const partdata::Element& e) {
        if (std::find(names.begin(), names.end(), e.name) != names.end()) return;
        c.add(r, &f, nullptr,
              "its " + std::string(what) + " names \"" + e.name +
                  "\", which is no part of the model definition " + "with a " + what +
                  ", so the compiler cannot give it one: " +
                  (names.empty() ? "add a PartInfo with a " + std::string(what) + " to the model definition"
                                 : "name one of them, the nearest being " +
                                       quotedList(partdata::nearestNames(e.name, names))));
    });
}

void partDataVisibility(Context& c, const Rule& r) {
    partNotDefined(c, r, partdata::Kind::visibility);
}

void partDataMouseRect(Context& c, const Rule& r) {
    partNotDefined(c, r, partdata::Kind::mouseRect);
}

void attachPointTwice(Context& c, const Rule& r) {
    std::map<std::string, const Frame*> first;
    eachElement(c, partdata::Kind::attachPoint, [&](const Frame& f, const partdata::Element& e) {
        const auto [at, added] = first.emplace(e.name, &f);
        if (!added)
            c.add(r, &f, nullptr,
                  "its attach point \"" + e.name + "\" has the name of the one on " +
                      at->second->node->shownName() +
                      ", and the simulator tells attach points apart by name: rename one");
    });
}

void effectExtension(Context& c, const Rule& r) {
    eachElement(c, partdata::Kind::attachPoint, [&](const Frame& f, const partdata::Element& e) {
        const auto bare = partdata::withoutExtension(e.effectName);
        if (e.attached != partdata::Attached::effect || !bare) return;
        c.add(r, &f, nullptr,
              "its effect \"" + e.effectName +
                  "\" has a file extension, and the simulator adds its own: write \"" + *bare + "\"");
    });
}

void platformSurface(Context& c, const Rule& r) {
    const auto& types = partdata::surfaceTypes();
    eachElement(c, partdata::Kind::platform, [&](const Frame& f, const partdata::Element& e) {
        if (std::find(types.begin(), types.end(), e.surface) != types.end()) return;
        c.add(r, &f, nullptr,
              "its platform's surfaceType \"" + e.surface +
                  "\" is no surface the simulator knows: use one of its types, the nearest being " +
                  quotedList(partdata::nearestNames(e.surface, types)));
    });
}

void libraryObjectGuid(Context& c, const Rule& r) {
    eachElement(c, partdata::Kind::attachPoint, [&](const Frame& f, const partdata::Element& e) {
        if (e.attached == partdata::Attached::libraryObject && !partdata::isGuid(e.objectGuid))
            c.add(r, &f, nullptr,
                  "its library object's name \"" + e.objectGuid +
                      "\" is not a GUID, and the simulator finds library objects by GUID: write it as "
                      "{xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx}");
    });
}

void attachPointGeometry(Context& c, const Rule& r) {
    eachElement(c, partdata::Kind::attachPoint, [&](const Frame& f, const partdata::Element&) {
        if (f.triangles > 0)
            c.add(r, &f, nullptr,
                  "it holds an attach point and " + std::to_string(f.triangles) +
                      " triangles; the simulator puts the attached object at its pivot and does not draw "
                      "its own geometry");
    });
}

// ---- Skins ----------------------------------------------------------------------------

// Per vertex of the frame's skinned meshes: the sum of its weights and their number.
template <typename Each> void eachSkin(Context& c, Each&& each) {
    for (const Frame& f : c.frames)
        for (const SGShapePtr& shape : f.skinned) {
            std::vector<std::pair<double, int>> perVertex(static_cast<size_t>(shape->GetVertexCount()));
            for (const VertexWeight& w : shape->GetVertexWeights()) {
                auto& [sum, count] = perVertex[static_cast<size_t>(w.vertex)];
                sum += w.weight;
                ++count;
            }
            each(f, perVertex);
        }
}

void skinWeights(Context& c, const Rule& r) {
    eachSkin(c, [&](const Frame& f, const std::vector<std::pair<double, int>>& perVertex) {
        size_t off = 0;
        double low = 1, high = 1;
        for (const auto& [sum, count] : perVertex)
            if (count > 0 && std::abs(sum - 1) > 1e-3)
                ++off, low = std::min(low, sum), high = std::max(high, sum);
        if (off > 0)
            c.add(r, &f, nullptr,
                  std::to_string(off) + " of its vertices have weights that do not sum to 1 (from " +
                      xfile::pFormatNumber(static_cast<float>(low)) + " to " +
                      xfile::pFormatNumber(static_cast<float>(high)) +
                      "), and the export writes them as they are: normalise the weights");
    });
}

void skinInfluences(Context& c, const Rule& r) {
    eachSkin(c, [&](const Frame& f, const std::vector<std::pair<double, int>>& perVertex) {
        int most = 0;
        size_t over = 0;
        for (const auto& [sum, count] : perVertex)
            if (count > kMaxInfluences) ++over, most = std::max(most, count);
        if (over > 0)
            c.add(r, &f, nullptr,
                  std::to_string(over) + " of its vertices have up to " + std::to_string(most) +
                      " bones, and the simulator blends at most " + std::to_string(kMaxInfluences) +
                      ": limit the influences per vertex");
    });
}

void skinJointsOutside(Context& c, const Rule& r) {
    const scene::BonesLeftOut& left = c.subject.bonesLeftOut;
    if (left.bones.empty()) return;
    std::string names;
    for (const std::string& n : left.bones)
        names += (names.empty() ? "" : ", ") + n;
    c.add(r, nullptr, nullptr,
          "skins in the group use joints outside it (" + names +
              "), whose weights the export "
              "leaves out: export the group that holds the joints");
}

// ---- The reader -----------------------------------------------------------------------

void readerSkipped(Context& c, const Rule& r) {
    for (const std::string& w : c.subject.loaded->warnings)
        c.add(r, nullptr, nullptr, w);
}

void extensionIgnored(Context& c, const Rule& r) {
    const auto& names = c.subject.loaded->ignoredExtensions;
    std::string list;
    for (const std::string& n : names)
        list += (list.empty() ? "" : ", ") + n;
    if (!names.empty())
        c.add(r, nullptr, nullptr,
              "the file uses " + list + ", which Tarnvale does not read: what " +
                  (names.size() == 1 ? "it adds" : "they add") + " is left out of the model");
}

} // namespace

const std::vector<Rule>& rules() {
    static const std::vector<Rule> table = {
        {"template-missing", Severity::Error, "the template file does not exist", templateMissing},
        {"modeldef-missing", Severity::Error, "the model definition does not exist", modelDefMissing},
        {"modeldef-xml", Severity::Error, "the model definition is not well-formed XML", modelDefNotXml},
        {"modeldef-animations", Severity::Error, "the model definition has fewer than two Animation nodes",
         modelDefTooFew},
        {"animation-unmatched", Severity::Error,
         "an animated node's name starts with no Animation name of the model definition, and there is no "
         "NonRandomAmbient",
         animationUnmatched},
        {"animation-ambient", Severity::Warning,
         "an animated node's name starts with no Animation name, so it falls to NonRandomAmbient",
         animationAmbient},
        {"animation-no-length", Severity::Error, "an animated node's keys all stand at time 0",
         animationNoLength},
        {"animation-still", Severity::Warning, "an animated node's keys are all alike, so it is dropped",
         animationStill},
        {"reader-skipped", Severity::Warning,
         "a part of the file the export leaves out: points and lines, scale keys, fewer than 3 keys, a "
         "second "
         "animation of the same part, key times that run back",
         readerSkipped},
        {"extension-ignored", Severity::Info, "the file uses glTF extensions that the export does not read",
         extensionIgnored},
        {"name-collision", Severity::Warning, "two frames get the same name in the X file", nameCollision},
        {"name-mapped", Severity::Info, "a name the X file cannot hold, and what it becomes", nameMapped},
        {"mesh-materials", Severity::Error, "a frame's mesh uses more than 1001 materials", meshMaterials},
        {"mesh-no-triangles", Severity::Error, "a frame's mesh has vertices and no triangle",
         meshNoTriangles},
        {"draw-vertex-limit", Severity::Error,
         "a frame's triangles of one material take more than 65,535 vertices, the most one draw holds",
         drawVertexLimit},
        {"level-budget", Severity::Warning,
         "a level has more triangles or draw calls than --max-triangles or --max-draw-calls allow",
         levelBudget},
        {"mirrored", Severity::Info, "a node's world transform mirrors", mirrored},
        {"material-empty-name", Severity::Error,
         "a material's text leaves SrcBlend, DstBlend, AlphaTestFunction or EmissiveData empty",
         materialEmptyName},
        {"cockpit-no-texture", Severity::Error, "a virtual cockpit material has no texture",
         cockpitWithoutTexture},
        {"texture-missing", Severity::Error, "a material's image file does not exist", textureMissing},
        {"texture-undecodable", Severity::Warning,
         "exporting with --textures: an image is none the export reads, so it is skipped (an error with "
         "--strict)",
         textureUndecodable},
        {"texture-size", Severity::Warning, "an image's sides are not powers of two", textureSize},
        {"texture-not-dds", Severity::Warning,
         "an image is not DDS, and the export does not convert it (no "
         "--textures)",
         textureNotDds},
        {"lod-gap", Severity::Warning, "a level of detail is hidden, so the export leaves it out", lodGap},
        {"lod-sibling", Severity::Warning, "a shown sibling of the levels of detail has no LOD_ in its name",
         lodSibling},
        {"partdata-xml", Severity::Error, "a node's part data is not well-formed XML", partDataNotXml},
        {"partdata-root", Severity::Error, "a node's part data has a root other than FSMakeMdlData",
         partDataRoot},
        {"partdata-version", Severity::Warning, "a node's part data has a version other than 9.0",
         partDataVersion},
        {"partdata-visibility", Severity::Error,
         "a Visibility names no part of the model definition that has a Visibility or VisibleInRange",
         partDataVisibility},
        {"partdata-mouse-rect", Severity::Error,
         "a MouseRect names no part of the model definition that has a MouseRect", partDataMouseRect},
        {"attach-point-twice", Severity::Error, "two attach points have one name", attachPointTwice},
        {"attach-effect-extension", Severity::Error, "an effect's name has a file extension",
         effectExtension},
        {"attach-library-guid", Severity::Error, "a library object's name is not a GUID", libraryObjectGuid},
        {"attach-point-geometry", Severity::Info,
         "a node with an attach point holds geometry, which is not drawn", attachPointGeometry},
        {"platform-surface", Severity::Error, "a platform's surfaceType is no surface type of the simulator",
         platformSurface},
        {"skin-weights", Severity::Warning, "a skinned vertex's weights do not sum to 1", skinWeights},
        {"skin-influences", Severity::Warning, "a skinned vertex has more bones than the simulator blends",
         skinInfluences},
        {"skin-joints-outside", Severity::Warning, "skins in the group use joints outside it",
         skinJointsOutside},
    };
    return table;
}

std::vector<Finding> run(const Subject& subject, std::vector<lod::Budget>* budgets) {
    std::vector<Finding> findings;
    Context context{subject, findings, {}, {}, platform::XmlDocument(), false, {}, {}, {}, 0, 0, {}};
    collect(context);
    for (const Rule& rule : rules())
        rule.run(context, rule);
    if (budgets) *budgets = std::move(context.budgets);
    std::stable_sort(findings.begin(), findings.end(),
                     [](const Finding& a, const Finding& b) { return a.place < b.place; });
    return findings;
}

} // namespace tarnvale::check
