// Which DDS files the X file names, where each comes from, and writing them all,
// independent textures in parallel.
#include "texture/texture.h"

#include "material/material.h"
#include "platform/platform.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>

namespace tarnvale::texture {

namespace {

namespace fs = std::filesystem;

// One texture to make: from bytes in hand or from a file beside the scene.
struct Job {
    size_t outcome;
    std::shared_ptr<const std::vector<uint8_t>> bytes;
    std::string file; // when there are no bytes
    std::string origin;
    bool normalMap = false;
};

// The system's text for an error number; safe in the workers, unlike strerror.
std::string errorText(int number) {
    return std::generic_category().message(number);
}

bool readWhole(const std::string& path, std::vector<uint8_t>& out) {
    errno = 0;
    std::FILE* f = platform::openFile(path, "rb");
    if (!f) return false;
    uint8_t buffer[1 << 16];
    for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;)
        out.insert(out.end(), buffer, buffer + n);
    const bool ok = !std::ferror(f);
    std::fclose(f);
    return ok;
}

bool writeWhole(const std::string& path, const std::vector<uint8_t>& bytes, std::string& why) {
    errno = 0;
    std::FILE* f = platform::openFile(path, "wb");
    if (!f) {
        why = "cannot write " + path + ": " + errorText(errno);
        return false;
    }
    const bool written = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    if (std::fclose(f) != 0 || !written) {
        why = "cannot write " + path + ": " + errorText(errno);
        return false;
    }
    return true;
}

void run(const Job& job, Outcome& outcome, const std::string& folder) {
    std::vector<uint8_t> read;
    const std::vector<uint8_t>* bytes = job.bytes.get();
    if (!bytes) {
        if (!readWhole(job.file, read)) {
            outcome = {Outcome::Skipped, outcome.name, "",
                       job.file + ": cannot be read: " + errorText(errno)};
            return;
        }
        bytes = &read;
    }
    const std::string target = folder + "/" + outcome.name;
    std::string why;
    // A DDS file is already what the simulator loads: it goes as it is.
    if (std::optional<std::string> dds = describe(*bytes)) {
        if (!writeWhole(target, *bytes, why))
            outcome = {Outcome::Failed, outcome.name, "", why};
        else
            outcome.line = outcome.name + " " + *dds + " (copied)";
        return;
    }
    std::optional<Image> image = decode(*bytes, why);
    if (!image) {
        outcome = {Outcome::Skipped, outcome.name, "", job.origin + ": " + why};
        return;
    }
    const Dds dds = encode(*image, job.normalMap);
    if (!writeWhole(target, dds.bytes, why)) {
        outcome = {Outcome::Failed, outcome.name, "", why};
        return;
    }
    outcome.line = outcome.name + " " + describe(dds.bytes).value_or("");
}

// Image files beside the scene by the DDS name they would take.
std::map<std::string, std::vector<std::string>> filesBeside(const std::string& folder) {
    static constexpr const char* kExtensions[] = {".dds", ".png", ".jpg", ".jpeg", ".bmp", ".tga"};
    std::map<std::string, std::vector<std::string>> out;
    std::error_code ec;
    for (fs::directory_iterator it(platform::systemPath(folder.empty() ? "." : folder), ec), end;
         !ec && it != end; it.increment(ec)) {
        if (!it->is_regular_file(ec)) continue;
        const std::string extension = platform::lowerCase(platform::utf8Path(it->path().extension()));
        if (std::find(std::begin(kExtensions), std::end(kExtensions), extension) == std::end(kExtensions))
            continue;
        out[ddsName(platform::utf8Path(it->path().filename()))].push_back(platform::utf8Path(it->path()));
    }
    for (auto& [name, files] : out)
        std::sort(files.begin(), files.end());
    return out;
}

} // namespace

std::string ddsName(const std::string& textureName) {
    const material::FS10Material rule;
    std::string name = textureName, warnings;
    return rule.NormalizeTextureName(name, warnings);
}

std::vector<Outcome> writeTextures(const std::vector<std::string>& names,
                                   const std::vector<gltf::SourceImage>& images, const Options& options,
                                   platform::Workers* workers) {
    std::map<std::string, std::vector<const gltf::SourceImage*>> byName;
    for (const gltf::SourceImage& image : images)
        byName[ddsName(image.name)].push_back(&image);
    std::optional<std::map<std::string, std::vector<std::string>>> beside;

    std::vector<Outcome> outcomes(names.size());
    std::vector<Job> jobs;
    for (size_t i = 0; i < names.size(); ++i) {
        Outcome& o = outcomes[i];
        o.name = names[i];
        const auto found = byName.find(o.name);
        if (found != byName.end()) {
            const auto& sources = found->second;
            if (sources.size() > 1) {
                o.kind = Outcome::Failed;
                auto what = [](const gltf::SourceImage* s) {
                    return s->name + " (" + s->origin + (s->normalMap ? ", as a normal map" : "") + ")";
                };
                o.reason =
                    "two images would both take this name: " + what(sources[0]) + " and " + what(sources[1]);
                continue;
            }
            const gltf::SourceImage& s = *sources.front();
            if (!s.bytes && s.file.empty()) {
                o.kind = Outcome::Skipped;
                o.reason = s.origin + ": the file holds no data for it";
                continue;
            }
            jobs.push_back({i, s.bytes, s.file, s.origin, s.normalMap});
            continue;
        }
        if (!beside) beside = filesBeside(options.sceneFolder);
        const auto file = beside->find(o.name);
        if (file == beside->end()) {
            o.kind = Outcome::Skipped;
            o.reason = "no image of the scene's materials takes this name, nor a file in " +
                       (options.sceneFolder.empty() ? std::string(".") : options.sceneFolder);
        } else if (file->second.size() > 1) {
            o.kind = Outcome::Failed;
            o.reason = "two images would both take this name: " + file->second[0] + " and " + file->second[1];
        } else {
            jobs.push_back({i, nullptr, file->second.front(), file->second.front(), false});
        }
    }

    // Each job writes its own outcome; with workers they convert side by side.
    std::vector<std::function<void()>> converts;
    for (const Job& job : jobs)
        converts.push_back([&job, &outcome = outcomes[job.outcome], &folder = options.folder] {
            run(job, outcome, folder);
        });
    platform::runAll(workers, std::move(converts));
    return outcomes;
}

} // namespace tarnvale::texture
