// Text: the Windows-1252 code page, UTF-16 files, and characters compared and
// cased as the code page's letters are.
#include "platform/platform.h"

namespace tarnvale::platform {

namespace {

// Unicode code points of Windows-1252 bytes 0x80 to 0x9F; 0 where the byte is unused.
constexpr uint16_t kHigh1252[32] = {0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
                                    0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

// Length of the UTF-8 sequence at s[i], 0 when it is not a valid one.
size_t sequenceLength(std::string_view s, size_t i) {
    const auto b = static_cast<unsigned char>(s[i]);
    const size_t len = b < 0x80                ? 1
                       : b >= 0xF0 && b < 0xF5 ? 4
                       : b >= 0xE0 && b < 0xF0 ? 3
                       : b >= 0xC2 && b < 0xE0 ? 2
                                               : 0;
    if (len == 0 || i + len > s.size()) return 0;
    for (size_t k = 1; k < len; ++k)
        if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) return 0;
    return len;
}

// Decodes one UTF-8 sequence at s[i]; gives the code point and advances i. An
// invalid sequence gives its first byte as a code point of its own.
uint32_t decodeUtf8(std::string_view s, size_t& i) {
    const size_t len = sequenceLength(s, i);
    const auto b = static_cast<unsigned char>(s[i]);
    if (len <= 1) {
        ++i;
        return b;
    }
    uint32_t cp = b & (0x7F >> len);
    for (size_t k = 1; k < len; ++k)
        cp = cp << 6 | (static_cast<unsigned char>(s[i + k]) & 0x3F);
    i += len;
    return cp;
}

void appendUtf8(std::string& out, uint32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | cp >> 6);
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
        out += static_cast<char>(0xE0 | cp >> 12);
        out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xF0 | cp >> 18);
        out += static_cast<char>(0x80 | (cp >> 12 & 0x3F));
        out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

bool validUtf8(std::string_view s) {
    for (size_t i = 0; i < s.size();) {
        const size_t len = sequenceLength(s, i);
        if (len == 0) return false;
        i += len;
    }
    return true;
}

std::string fromUtf16Le(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size() / 2);
    for (size_t i = 0; i + 1 < bytes.size(); i += 2) {
        uint32_t unit = static_cast<unsigned char>(bytes[i]) | static_cast<unsigned char>(bytes[i + 1]) << 8;
        if (unit >= 0xD800 && unit < 0xDC00 && i + 3 < bytes.size()) {
            const uint32_t low =
                static_cast<unsigned char>(bytes[i + 2]) | static_cast<unsigned char>(bytes[i + 3]) << 8;
            if (low >= 0xDC00 && low < 0xE000) {
                unit = 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00);
                i += 2;
            }
        }
        appendUtf8(out, unit);
    }
    return out;
}

// The lower-case partner of a letter of the code page; other characters as they are.
uint32_t lower1252(uint32_t cp) {
    if ((cp >= 'A' && cp <= 'Z') || (cp >= 0xC0 && cp <= 0xDE && cp != 0xD7)) return cp + 0x20;
    if (cp == 0x160 || cp == 0x152 || cp == 0x17D) return cp + 1;
    if (cp == 0x178) return 0xFF;
    return cp;
}

uint32_t upper1252(uint32_t cp) {
    if ((cp >= 'a' && cp <= 'z') || (cp >= 0xE0 && cp <= 0xFE && cp != 0xF7)) return cp - 0x20;
    if (cp == 0x161 || cp == 0x153 || cp == 0x17E) return cp - 1;
    if (cp == 0xFF) return 0x178;
    return cp;
}

std::u32string foldedCodePoints(std::string_view utf8) {
    std::u32string out;
    out.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size();)
        out += static_cast<char32_t>(lower1252(decodeUtf8(utf8, i)));
    return out;
}

template <typename Map> std::string mapLetters(std::string_view utf8, Map map) {
    std::string out;
    out.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size();)
        appendUtf8(out, map(decodeUtf8(utf8, i)));
    return out;
}

} // namespace

int windows1252Byte(uint32_t cp) {
    if (cp < 0x80 || (cp >= 0xA0 && cp <= 0xFF)) return static_cast<int>(cp);
    for (int i = 0; i < 32; ++i)
        if (kHigh1252[i] == cp && cp != 0) return 0x80 + i;
    return -1;
}

std::string toWindows1252(std::string_view utf8) {
    std::string out;
    out.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size();) {
        if (static_cast<unsigned char>(utf8[i]) < 0x80) {
            out += utf8[i++];
            continue;
        }
        const int b = windows1252Byte(decodeUtf8(utf8, i));
        out += static_cast<char>(b < 0 ? '?' : b);
    }
    return out;
}

std::string fromWindows1252(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    for (char ch : bytes) {
        auto b = static_cast<unsigned char>(ch);
        uint32_t cp = b >= 0x80 && b < 0xA0 && kHigh1252[b - 0x80] ? kHigh1252[b - 0x80] : b;
        appendUtf8(out, cp);
    }
    return out;
}

std::string decodeTextFile(std::string_view bytes) {
    if (bytes.size() >= 2 && static_cast<unsigned char>(bytes[0]) == 0xFF &&
        static_cast<unsigned char>(bytes[1]) == 0xFE)
        return fromUtf16Le(bytes.substr(2));
    if (bytes.size() >= 2 && bytes[0] != 0 && bytes[1] == 0) return fromUtf16Le(bytes);
    if (bytes.substr(0, 3) == "\xEF\xBB\xBF") bytes.remove_prefix(3);
    return validUtf8(bytes) ? std::string(bytes) : fromWindows1252(bytes);
}

size_t characterCount(std::string_view utf8) {
    size_t n = 0;
    for (size_t i = 0; i < utf8.size(); ++n)
        decodeUtf8(utf8, i);
    return n;
}

size_t characterOffset(std::string_view utf8, size_t characters) {
    size_t i = 0;
    for (size_t n = 0; n < characters && i < utf8.size(); ++n)
        decodeUtf8(utf8, i);
    return i;
}

std::string lowerCase(std::string_view utf8) {
    return mapLetters(utf8, lower1252);
}
std::string upperCase(std::string_view utf8) {
    return mapLetters(utf8, upper1252);
}

bool startsWithNoCase(std::string_view text, std::string_view prefix) {
    const std::u32string t = foldedCodePoints(text), p = foldedCodePoints(prefix);
    return t.size() >= p.size() && t.compare(0, p.size(), p) == 0;
}

bool containsNoCase(std::string_view text, std::string_view part) {
    return foldedCodePoints(text).find(foldedCodePoints(part)) != std::u32string::npos;
}

} // namespace tarnvale::platform
