// Levels of detail: the levels an export meets, what each costs the simulator to
// draw, and levels made from a scene that has none. A step on the scene before
// the export; the X writers see levels made here as they see hand-made ones.
#pragma once

#include "host/host.h"
#include "platform/workers.h"
#include "scene/scene.h"

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tarnvale::lod {

// ---- Levels found -------------------------------------------------------------------

// The number of a level: the whole number right after the last "LOD_" of its
// name, in any case ("plane_LOD_50" gives 50); none where no digit follows.
std::optional<int> levelNumber(std::string_view name);

// A level beside the exported group, as the export meets it.
struct Level {
    SGObjectPtr node;
    std::string name;          // the node's name
    std::optional<int> number; // levelNumber of the name
    bool shown = true;         // a node value other than 0: the export writes it
};
// The levels the export of `group` meets: when the group's name holds LOD_, the
// children of its parent whose names hold it, in list order; none otherwise.
std::vector<Level> levelsOf(const SGObjectPtr& group);

// ---- Budget -----------------------------------------------------------------------

// The compiler draws a frame's mesh once per material, 16-bit indices in each.
inline constexpr size_t kMaxDrawVertices = 65535;

// One draw: a frame's triangles of one material.
struct Draw {
    SGObjectPtr node;
    std::string material; // the material's name ("" for none)
    size_t vertices = 0;  // distinct (position, pair, normal) among its corners
    size_t triangles = 0;
    SGMaterialPtr source; // the material itself
};

// What the simulator draws of one level (or of the group, where there are none).
struct Budget {
    SGObjectPtr node;          // the level (or the group)
    std::string level;         // its name
    std::optional<int> number; // the level's number
    bool shown = true;
    size_t triangles = 0;
    size_t vertices = 0;      // vertex records as the X file holds them
    size_t materials = 0;     // distinct materials of its meshes
    size_t drawCalls = 0;     // frames with a mesh, times their materials
    size_t animatedParts = 0; // nodes with keys enough for the XANIM file
    std::vector<Draw> draws;  // in frame order, materials by first use
};
// What a scene read for counting only (the checker's quick read) holds of a
// node's meshes: vertex records and draws, materials in `source`.
struct FrameCounts {
    size_t vertices = 0;
    std::vector<Draw> draws;
};
// The counts of a node's meshes where the scene holds only those, else none.
using CountsOf = std::function<std::optional<FrameCounts>(const SGObjectPtr& node)>;

// The budget of the frames below and at `root`, their meshes counted where the
// scene holds them and taken from `counted` where it holds only counts.
Budget budgetOf(const SGObjectPtr& root, const CountsOf& counted = {});
// The budgets of what the export of `group` writes: each level it meets, hidden
// ones included (shown false); the group alone where it meets none.
std::vector<Budget> budgetsOf(const SGObjectPtr& group, const CountsOf& counted = {});

// ---- Generated levels ---------------------------------------------------------------

struct Generation {
    std::vector<int> numbers; // falling; the first level is the scene as it is
    double share = 0.5;       // of the triangles of the level before, for each further level
};
// Reads "100,50,25": positive whole numbers, falling; gives the reason when it cannot.
std::optional<std::string> parseLevelNumbers(std::string_view text, std::vector<int>& numbers);

// Makes the levels: the group (or, for the scene's root, its children) moves into
// a new node "<group>_LOD_<first>", and beside it, under the group's parent (the
// root for the root), a node "<group>_LOD_<n>" per further number holds a copy
// of it whose meshes keep about `share` of the triangles of the level before
// (simplified on the workers, side by side; none: one after the other).
// Copies keep transforms, keys, part data and skins; their names end in
// "_lod<n>", so that they stay apart in the X file and still start with the name
// their animation is found by. Gives the first level, which the export takes.
// Fails with the reason when the group already holds or is a level.
std::shared_ptr<scene::MemoryObject> generateLevels(scene::MemoryScene& scene,
                                                    const std::shared_ptr<scene::MemoryObject>& group,
                                                    const Generation& generation,
                                                    platform::Workers* workers = nullptr);

// A mesh with about `share` of its triangles: each material's triangles are
// simplified apart, their borders kept, so that no material moves into
// another's place; vertices keep their pairs, normals and skin weights.
std::shared_ptr<scene::MemoryShape> simplified(SGShape& shape, double share);

} // namespace tarnvale::lod
