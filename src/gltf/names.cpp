// Names as the X file can hold them where they stand as tokens (Frame, Mesh, a
// reference): a letter or `_`, then letters, digits, `_` and `-`.
#include "gltf/internal.h"
#include "platform/text.h"

namespace tarnvale::gltf {

namespace {

bool isAsciiLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool isAsciiDigit(char c) {
    return c >= '0' && c <= '9';
}

} // namespace

std::string identifierName(std::string_view utf8) {
    std::string out;
    out.reserve(utf8.size() + 1);
    for (const char c : utf8) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 0x80 && byte < 0xC0) continue; // the rest of a character already replaced
        const bool kept = isAsciiLetter(c) || isAsciiDigit(c) || c == '_' || c == '-' || c == ' ';
        out += kept ? c : '_';
    }
    if (!out.empty() && (isAsciiDigit(out[0]) || out[0] == '-')) out.insert(out.begin(), '_');
    return out;
}

std::string textureFileName(std::string_view utf8) {
    std::string out;
    for (size_t i = 0; i < utf8.size();) {
        const auto lead = static_cast<unsigned char>(utf8[i]);
        const size_t length = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : lead >= 0xC0 ? 2 : 1;
        const std::string_view character = utf8.substr(i, length);
        i += length;
        out += platform::toWindows1252(character).find('?') == std::string::npos || character == "?"
                   ? std::string(character)
                   : std::string("_");
    }
    const size_t folder = out.find_last_of("\\/"), dot = out.rfind('.');
    const bool hasDot = dot != std::string::npos && (folder == std::string::npos || dot > folder);
    std::string extension = hasDot ? platform::lowerCase(out.substr(dot + 1)) : std::string();
    if (extension.size() == 3) return out;
    static const std::pair<const char*, const char*> kKnown[] = {
        {"jpeg", "jpg"}, {"tiff", "tif"}, {"webp", "web"}, {"ktx2", "ktx"}};
    std::string three = extension.size() > 3 ? extension.substr(0, 3) : "img";
    for (const auto& [long_, short_] : kKnown)
        if (extension == long_) three = short_;
    return (hasDot ? out.substr(0, dot) : out) + "." + three;
}

std::string SiblingNames::take(const std::string& name) {
    // As the file reads them: lower case, blanks as `_`.
    auto asWritten = [](std::string s) {
        for (char& c : s)
            c = c == ' ' ? '_' : static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        return s;
    };
    std::string taken = name;
    for (int n = 2; !used_.insert(asWritten(taken)).second; ++n)
        taken = name + "_" + std::to_string(n);
    return taken;
}

} // namespace tarnvale::gltf
