// Which DDS files the X file names, where each comes from, and writing them all,
// independent textures in parallel.
#include "texture/texture.h"

#include "material/material.h"
#include "platform/platform.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <system_error>
#include <thread>

namespace tarnvale::texture {

namespace {

namespace fs = std::filesystem;

bool startsWith(std::string_view s, std::string_view prefix) {
    return s.substr(0, prefix.size()) == prefix;
}

std::string_view trimmed(std::string_view s) {
    while (!s.empty() && (s.back() == '\r' || s.back() == ' '))
        s.remove_suffix(1);
    while (!s.empty() && s.front() == ' ')
        s.remove_prefix(1);
    return s;
}

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

std::vector<std::string> ddsNamesOf(std::string_view text) {
    std::vector<std::string> names;
    std::set<std::string> seen;
    bool inBlock = false, nameNext = false;
    while (!text.empty()) {
        const size_t end = text.find('\n');
        const std::string_view line = trimmed(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
        if (line == "FS10Material {")
            inBlock = true;
        else if (startsWith(line, "}  // FS10Material end"))
            inBlock = false;
        else if (nameNext && line.size() >= 3 && line.front() == '"' &&
                 line.substr(line.size() - 2) == "\";") {
            const std::string name = platform::fromWindows1252(line.substr(1, line.size() - 3));
            const size_t chars = platform::characterCount(name);
            if (chars >= 4 && name.substr(platform::characterOffset(name, chars - 4)) == ".DDS" &&
                seen.insert(name).second)
                names.push_back(name);
        }
        nameNext = inBlock && line.size() > 17 && line.substr(line.size() - 17) == "TextureFileName {";
    }
    return names;
}

std::string ddsName(const std::string& textureName) {
    const material::FS10Material rule;
    std::string name = textureName, warnings;
    return rule.NormalizeTextureName(name, warnings);
}

std::vector<Outcome> writeTextures(const std::vector<std::string>& names,
                                   const std::vector<gltf::SourceImage>& images, const Options& options) {
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

    // Each worker takes the next job; each job writes its own outcome.
    unsigned threads = options.threads ? options.threads : std::max(1u, std::thread::hardware_concurrency());
    threads = static_cast<unsigned>(std::min<size_t>(threads, jobs.size()));
    std::atomic<size_t> next{0};
    auto work = [&] {
        for (size_t j; (j = next++) < jobs.size();)
            run(jobs[j], outcomes[jobs[j].outcome], options.folder);
    };
    std::vector<std::thread> pool;
    for (unsigned t = 1; t < threads; ++t)
        pool.emplace_back(work);
    if (!jobs.empty()) work();
    for (std::thread& t : pool)
        t.join();
    return outcomes;
}

} // namespace tarnvale::texture
