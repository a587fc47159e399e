// Writing a material's text back into the scene file, and nothing else.
#include "gltf/gltf.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <unistd.h>

namespace tarnvale::gltf {

namespace {

using Json = nlohmann::ordered_json; // members keep their order

uint32_t word(const std::string& bytes, size_t at) {
    uint32_t v = 0;
    std::memcpy(&v, bytes.data() + at, 4);
    return v;
}

void putWord(std::string& out, uint32_t v) { out.append(reinterpret_cast<const char*>(&v), 4); }

// The .glb with its JSON chunk replaced; every other chunk as it was.
std::string rebuildGlb(const std::string& bytes, std::string json) {
    if (bytes.size() < 20) throw SceneError("the .glb has no header");
    const uint32_t jsonLength = word(bytes, 12);
    if (jsonLength > bytes.size() - 20) throw SceneError("the .glb's JSON chunk runs past its end");
    while (json.size() % 4) json += ' ';
    const std::string rest = bytes.substr(20 + jsonLength);
    std::string out = bytes.substr(0, 8);
    putWord(out, static_cast<uint32_t>(12 + 8 + json.size() + rest.size()));
    putWord(out, static_cast<uint32_t>(json.size()));
    out += "JSON";
    out += json;
    out += rest;
    return out;
}

// Writes the bytes to a new file beside the target, then puts it in its place.
void replaceFile(const std::string& path, const std::string& bytes) {
    const std::string folder = std::filesystem::path(path).parent_path().string();
    std::string temp = (folder.empty() ? std::string(".") : folder) + "/.tarnvale-XXXXXX";
    const int fd = ::mkstemp(temp.data());
    if (fd < 0) throw SceneError(std::string("cannot write beside it: ") + std::strerror(errno));
    // A short write is followed by another, which then tells the reason.
    size_t done = 0;
    int error = 0;
    while (done < bytes.size()) {
        const ssize_t n = ::write(fd, bytes.data() + done, bytes.size() - done);
        if (n <= 0) {
            error = n < 0 ? errno : EIO;
            break;
        }
        done += static_cast<size_t>(n);
    }
    bool ok = error == 0;
    if (::fsync(fd) != 0 && ok) ok = false, error = errno;
    ::close(fd);
    std::error_code ec;
    if (ok) {
        // The new file keeps the permissions of the one it replaces.
        std::filesystem::permissions(temp, std::filesystem::status(path, ec).permissions(), ec);
        std::filesystem::rename(temp, path, ec);
        if (!ec) return;
        error = ec.value();
    }
    std::filesystem::remove(temp, ec);
    throw SceneError(std::string("cannot write it: ") + std::strerror(error ? error : EIO));
}

} // namespace

void writeMaterialExtra(const std::string& path, int materialIndex, const std::string& key, const std::string& text) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw SceneError("cannot open the file");
    const std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    in.close();
    const bool binary = bytes.compare(0, 4, "glTF") == 0;
    Json doc = Json::parse(binary ? bytes.substr(20, bytes.size() >= 20 ? word(bytes, 12) : 0) : bytes, nullptr, false);
    if (doc.is_discarded() || !doc.is_object()) throw SceneError("its JSON cannot be read");
    Json& materials = doc["materials"];
    if (!materials.is_array() || materialIndex < 0 || static_cast<size_t>(materialIndex) >= materials.size())
        throw SceneError("it has no material " + std::to_string(materialIndex));
    Json& extras = materials[static_cast<size_t>(materialIndex)]["extras"];
    if (extras.is_null()) extras = Json::object();
    if (!extras.is_object()) throw SceneError("the material's extras are no object");
    extras[key] = text;
    const std::string json = doc.dump(-1, ' ', false, Json::error_handler_t::replace);
    replaceFile(path, binary ? rebuildGlb(bytes, json) : json);
}

} // namespace tarnvale::gltf
