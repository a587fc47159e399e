// Names as the X file can hold them where they stand as tokens (Frame, Mesh, a
// reference): a letter or `_`, then letters, digits, `_` and `-`.
#include "gltf/internal.h"

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
