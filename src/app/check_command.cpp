// `tarnvale check` and the checks of `export --check`: the scene read as the
// export reads it, the findings as text or JSON.
#include "app/command.h"

#include "shell/shell.h"

#include <nlohmann/json.hpp>

namespace tarnvale::app {

namespace {

check::Subject subjectOf(const std::string& pluginDir, platform::SettingsStore& settings,
                         const std::string& regFile, bool textures, gltf::LoadedScene& loaded,
                         const std::shared_ptr<scene::MemoryObject>& group, const scene::BonesLeftOut& left) {
    check::Subject s;
    s.loaded = &loaded;
    s.group = group;
    s.templateFile = shell::templateSetting(settings, pluginDir);
    s.modelDefFile = shell::modelDefinitionLocation(*registryFor(regFile), pluginDir);
    s.materialField = shell::fieldIdSetting(settings);
    s.attachField = shell::attachIdSetting(settings);
    s.textures = textures;
    s.bonesLeftOut = left;
    return s;
}

nlohmann::json orNull(const std::string& s) {
    return s.empty() ? nlohmann::json() : nlohmann::json(s);
}

} // namespace

std::vector<check::Finding> checkForExport(const ExportOptions& o, platform::SettingsStore& settings,
                                           gltf::LoadedScene& loaded,
                                           const std::shared_ptr<scene::MemoryObject>& group,
                                           const scene::BonesLeftOut& left,
                                           std::vector<lod::Budget>* budgets) {
    check::Subject subject =
        subjectOf(o.pluginDir, settings, o.registry, !o.textures.empty(), loaded, group, left);
    subject.addOn = o.jsonReport;
    subject.strict = o.strict;
    return check::run(subject, budgets);
}

nlohmann::json budgetJson(const lod::Budget& b) {
    size_t largest = 0;
    for (const lod::Draw& d : b.draws)
        largest = std::max(largest, d.vertices);
    return {{"level", b.level},         {"number", b.number ? nlohmann::json(*b.number) : nlohmann::json()},
            {"shown", b.shown},         {"triangles", b.triangles},
            {"vertices", b.vertices},   {"materials", b.materials},
            {"drawCalls", b.drawCalls}, {"animatedParts", b.animatedParts},
            {"largestDraw", largest}};
}

nlohmann::json checkJson(const CheckOptions& o, const std::vector<check::Finding>& findings,
                         const std::vector<lod::Budget>& budgets) {
    nlohmann::json counts = {{"error", 0}, {"warning", 0}, {"info", 0}}, list = nlohmann::json::array();
    for (const check::Finding& f : findings) {
        const char* severity = check::severityName(f.severity);
        counts[severity] = counts[severity].get<int>() + 1;
        list.push_back({{"kind", f.kind},
                        {"severity", severity},
                        {"node", orNull(f.node)},
                        {"frame", orNull(f.frame)},
                        {"material", orNull(f.material)},
                        {"message", f.message}});
    }
    nlohmann::json levels = nlohmann::json::array();
    for (const lod::Budget& b : budgets)
        levels.push_back(budgetJson(b));
    return {{"scene", o.scene},
            {"group", o.group ? nlohmann::json(*o.group) : nlohmann::json()},
            {"counts", counts},
            {"findings", list},
            {"levels", levels}};
}

std::string checkText(const std::string& scene, const std::vector<check::Finding>& findings,
                      const std::vector<lod::Budget>& budgets) {
    size_t counts[3] = {0, 0, 0};
    // The findings of one node or material together, in the order they first appear.
    std::vector<std::pair<std::string, std::vector<const check::Finding*>>> groups;
    for (const check::Finding& f : findings) {
        ++counts[static_cast<int>(f.severity)];
        const std::string heading = !f.node.empty()       ? "node " + f.node + " (" + f.frame + ")"
                                    : !f.material.empty() ? "material " + f.material
                                                          : "the scene";
        auto it =
            std::find_if(groups.begin(), groups.end(), [&](const auto& g) { return g.first == heading; });
        if (it == groups.end()) it = groups.insert(groups.end(), {heading, {}});
        it->second.push_back(&f);
    }
    auto count = [](size_t n, const char* one, const char* many) {
        return std::to_string(n) + " " + (n == 1 ? one : many);
    };
    std::string out = scene + ": " + count(counts[0], "error", "errors") + ", " +
                      count(counts[1], "warning", "warnings") + ", " + count(counts[2], "note", "notes") +
                      "\n";
    for (const auto& [heading, list] : groups) {
        out += "  " + heading + "\n";
        for (const check::Finding* f : list) {
            std::string severity = check::severityName(f->severity);
            severity.resize(8, ' ');
            out += "    " + severity + f->kind + ": " + f->message + "\n";
        }
    }
    if (budgets.empty()) return out;
    // Columns as wide as their heading or their widest value.
    const std::vector<std::string> head = {"level",      "number",         "shown",
                                           "triangles",  "vertices",       "materials",
                                           "draw calls", "animated parts", "largest draw"};
    std::vector<std::vector<std::string>> rows{head};
    for (const lod::Budget& b : budgets) {
        const nlohmann::json j = budgetJson(b);
        rows.push_back({b.level, b.number ? std::to_string(*b.number) : "-", b.shown ? "yes" : "hidden"});
        for (const char* key :
             {"triangles", "vertices", "materials", "drawCalls", "animatedParts", "largestDraw"})
            rows.back().push_back(std::to_string(j[key].get<size_t>()));
    }
    std::vector<size_t> width(head.size(), 0);
    for (const auto& row : rows)
        for (size_t i = 0; i < row.size(); ++i)
            width[i] = std::max(width[i], platform::characterCount(row[i]));
    out += "  what the simulator draws, level by level:\n";
    for (const auto& row : rows) {
        std::string line = "   ";
        for (size_t i = 0; i < row.size(); ++i) {
            const std::string pad(width[i] - platform::characterCount(row[i]), ' ');
            line += " " + (i == 0 || i == 2 ? row[i] + pad : pad + row[i]);
        }
        while (line.back() == ' ')
            line.pop_back();
        out += line + "\n";
    }
    return out;
}

int runCheck(const CheckOptions& o, std::FILE* out) {
    const auto settings = settingsStore(o.settings);
    gltf::ReadOptions readOptions;
    readOptions.animation = o.animation;
    readOptions.sampleRate = o.sampleRate;
    readOptions.keepImages = true;
    readOptions.outline = true;
    readOptions.materialField = shell::fieldIdSetting(*settings);
    auto refuse = [&](const std::string& why) {
        if (o.json)
            std::fprintf(out, "%s\n", nlohmann::json({{"scene", o.scene}, {"error", why}}).dump().c_str());
        else
            std::fprintf(stderr, "tarnvale: %s\n", why.c_str());
        return kUnreadable;
    };
    gltf::LoadedScene loaded;
    try {
        loaded = gltf::readScene(o.scene, readOptions);
    } catch (const std::exception& e) {
        return refuse("cannot read " + o.scene + ": " + e.what());
    }
    scene::BonesLeftOut left;
    const auto group = findGroup(loaded, o.group, left);
    if (!group) return refuse(o.scene + " has no node named \"" + *o.group + "\"");
    check::Subject subject = subjectOf(o.pluginDir, *settings, o.registry, o.textures, loaded, group, left);
    subject.addOn = o.json;
    subject.strict = o.strict;
    subject.maxTriangles = o.maxTriangles;
    subject.maxDrawCalls = o.maxDrawCalls;
    std::vector<lod::Budget> budgets;
    const std::vector<check::Finding> findings = check::run(subject, &budgets);
    if (o.json)
        std::fprintf(out, "%s\n", checkJson(o, findings, budgets).dump().c_str());
    else
        std::fputs(checkText(o.scene, findings, budgets).c_str(), out);
    const bool errors = std::any_of(findings.begin(), findings.end(), [](const check::Finding& f) {
        return f.severity == check::Severity::Error;
    });
    return errors ? kFailed : kExported;
}

} // namespace tarnvale::app
