// The checker: what would make the export or the SDK's compiler fail, or build a
// model other than the author meant, found in the scene as the export reads it
// and in the plug-in folder's files, before anything is written.
#pragma once

#include "gltf/gltf.h"
#include "lod/lod.h"
#include "scene/scene.h"

#include <string>
#include <vector>

namespace tarnvale::check {

enum class Severity {
    Error,   // the export or the compile fails, or the model comes out wrong
    Warning, // likely not what the author meant
    Info,    // what the export does on its own, said so that it is no surprise
};

const char* severityName(Severity s); // "error", "warning", "info"

struct Finding {
    std::string kind;
    Severity severity = Severity::Error;
    std::string node;     // the node as the modeller named it; empty for the scene or a material
    std::string frame;    // the name of its frame in the X file ("frm-wing_001")
    std::string material; // the material as the modeller named it, where it concerns one
    std::string message;  // one sentence: what is wrong and what to do
    size_t place = 0;     // the scene's first, then the frames' in file order, then the materials'
};

// What the checks read: the scene as the export reads it and the files the
// export would read beside it.
struct Subject {
    gltf::LoadedScene* loaded = nullptr;
    std::shared_ptr<scene::MemoryObject> group; // what is exported
    std::string templateFile;
    std::string modelDefFile;
    std::string materialField = "FS10"; // the FieldId and AttachId settings
    std::string attachField = "FS10att";
    bool textures = false; // the export converts the images (--textures)
    bool strict = false;   // and a texture it skips fails it (--strict)
    // The findings go to the Blender add-on (a JSON report): advice in its words,
    // the export options, rather than the command's.
    bool addOn = false;
    scene::BonesLeftOut bonesLeftOut; // joints outside the group, as the export leaves them out
    // A level over these is over its budget (a warning); none: no limit.
    std::optional<size_t> maxTriangles, maxDrawCalls;
};

// One check: its kind, its severity, what it finds (for the documentation of the
// report) and the function that finds it.
struct Context;
struct Rule {
    const char* kind;
    Severity severity;
    const char* finds;
    void (*run)(Context& context, const Rule& rule);
};

const std::vector<Rule>& rules();

// Runs every rule; the findings in the order of what they concern (the scene,
// the frames as the file holds them, the materials as first used), and of the
// rules among those of one concern. `budgets`, where given, gets what each level
// (or the group) costs to draw, as lod::budgetsOf counts it.
std::vector<Finding> run(const Subject& subject, std::vector<lod::Budget>* budgets = nullptr);

// The skin influences one vertex may have: the simulator blends at most four bones.
inline constexpr int kMaxInfluences = 4;

} // namespace tarnvale::check
