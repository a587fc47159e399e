// The per-user settings store (INI) and the registry stand-in (.reg files).
#include "platform/platform.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <strings.h>

namespace tarnvale::platform {

namespace {

std::string upper(std::string s) {
    for (char& c : s)
        c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return s;
}

std::string trim(std::string_view s) {
    size_t b = 0, e = s.size();
    while (b < e && std::isspace(static_cast<unsigned char>(s[b])))
        ++b;
    while (e > b && std::isspace(static_cast<unsigned char>(s[e - 1])))
        --e;
    return std::string(s.substr(b, e - b));
}

// A quoted .reg string at s[i] ("..." with \\ and \" escapes); advances i past it.
bool readQuoted(std::string_view s, size_t& i, std::string& out) {
    if (i >= s.size() || s[i] != '"') return false;
    out.clear();
    for (++i; i < s.size(); ++i) {
        if (s[i] == '\\' && i + 1 < s.size()) {
            out += s[++i];
        } else if (s[i] == '"') {
            ++i;
            return true;
        } else {
            out += s[i];
        }
    }
    return false;
}

bool parseHexBytes(std::string_view s, std::vector<uint8_t>& out) {
    out.clear();
    std::string item;
    std::istringstream in{std::string(s)};
    while (std::getline(in, item, ',')) {
        item = trim(item);
        if (item.empty()) continue;
        char* end = nullptr;
        unsigned long v = std::strtoul(item.c_str(), &end, 16);
        if (*end != '\0' || v > 0xFF) return false;
        out.push_back(static_cast<uint8_t>(v));
    }
    return true;
}

// The value part after "=": a string, dword:, hex: or hex(n):.
bool parseValue(std::string_view s, RegValue& v) {
    if (!s.empty() && s[0] == '"') {
        size_t i = 0;
        std::string text;
        if (!readQuoted(s, i, text)) return false;
        v.type = kRegString;
        v.data.assign(text.begin(), text.end());
        v.data.push_back(0);
        return true;
    }
    if (s.substr(0, 6) == "dword:") {
        std::string digits = trim(s.substr(6));
        if (digits.empty() || digits.size() > 8) return false;
        char* end = nullptr;
        unsigned long x = std::strtoul(digits.c_str(), &end, 16);
        if (*end != '\0') return false;
        v.type = kRegDword;
        v.data = {uint8_t(x), uint8_t(x >> 8), uint8_t(x >> 16), uint8_t(x >> 24)};
        return true;
    }
    if (s.substr(0, 4) == "hex:") {
        v.type = kRegBinary;
        return parseHexBytes(s.substr(4), v.data);
    }
    if (s.substr(0, 4) == "hex(") {
        size_t close = s.find("):");
        if (close == std::string_view::npos) return false;
        v.type =
            static_cast<uint32_t>(std::strtoul(std::string(s.substr(4, close - 4)).c_str(), nullptr, 16));
        return parseHexBytes(s.substr(close + 2), v.data);
    }
    return false;
}

const char* hiveName(uint32_t hive) {
    switch (hive) {
    case 0x80000000u:
        return "HKEY_CLASSES_ROOT";
    case 0x80000001u:
        return "HKEY_CURRENT_USER";
    case 0x80000002u:
        return "HKEY_LOCAL_MACHINE";
    case 0x80000003u:
        return "HKEY_USERS";
    default:
        return "";
    }
}

std::string fullKey(uint32_t hive, const std::string& keyPath) {
    std::string path = keyPath;
    while (!path.empty() && path.back() == '\\')
        path.pop_back();
    return upper(std::string(hiveName(hive)) + "\\" + path);
}

} // namespace

std::string IniSettings::getSetting(const std::string& application, const std::string& section,
                                    const std::string& key, const std::string& defaultValue) {
    // Sections and keys match ignoring case, as the platform's store does; lines may
    // be of any length. The first entry of a key counts.
    std::ifstream file(systemPath(path_), std::ios::binary);
    if (!file) return defaultValue;
    std::ostringstream bytes;
    bytes << file.rdbuf();
    // Saved by a Windows editor the file may be UTF-16 or 8-bit; read as the .reg files are.
    std::istringstream in(decodeTextFile(bytes.str()));
    const std::string wanted = application + "\\" + section;
    bool inSection = false;
    std::string line;
    while (std::getline(in, line)) {
        const std::string t = trim(line);
        if (t.empty() || t[0] == ';' || t[0] == '#') continue;
        if (t[0] == '[') {
            const size_t close = t.find(']');
            const std::string name =
                trim(std::string_view(t).substr(1, close == std::string::npos ? t.size() - 1 : close - 1));
            inSection = strcasecmp(name.c_str(), wanted.c_str()) == 0;
            continue;
        }
        const size_t eq = t.find_first_of("=:");
        if (!inSection || eq == std::string::npos) continue;
        if (strcasecmp(trim(std::string_view(t).substr(0, eq)).c_str(), key.c_str()) != 0) continue;
        std::string value = trim(std::string_view(t).substr(eq + 1));
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
            value = value.substr(1, value.size() - 2);
        return value;
    }
    return defaultValue;
}

std::string IniSettings::defaultPath() {
    if (const char* x = std::getenv("XDG_CONFIG_HOME"); x && *x)
        return std::string(x) + "/tarnvale/settings.ini";
    const char* home = std::getenv("HOME");
    return std::string(home ? home : ".") + "/.config/tarnvale/settings.ini";
}

RegFileRegistry::RegFileRegistry(const std::string& path) {
    std::ifstream in(systemPath(path), std::ios::binary);
    if (!in) return;
    std::ostringstream bytes;
    bytes << in.rdbuf();
    // What the registry editor exports is UTF-16LE; older files are 8-bit.
    parse(decodeTextFile(bytes.str()));
}

void RegFileRegistry::parse(std::string_view text) {
    std::string current;
    std::string pending; // a value continued with a final backslash
    std::istringstream in{std::string(text)};
    std::string raw;
    while (std::getline(in, raw)) {
        std::string line = trim(raw);
        if (!pending.empty()) {
            line = pending + line;
            pending.clear();
        }
        if (!line.empty() && line.back() == '\\' && line.find('=') != std::string::npos) {
            line.pop_back();
            pending = line;
            continue;
        }
        if (line.empty() || line[0] == ';') continue;
        if (line[0] == '[') {
            size_t close = line.rfind(']');
            if (close == std::string::npos) continue;
            current = line.substr(1, close - 1);
            while (!current.empty() && current.back() == '\\')
                current.pop_back();
            current = upper(current);
            if (std::find(keys_.begin(), keys_.end(), current) == keys_.end()) keys_.push_back(current);
            continue;
        }
        if (current.empty()) continue;
        std::string name;
        size_t i = 0;
        if (line[0] == '@') {
            i = 1;
        } else if (!readQuoted(line, i, name)) {
            continue;
        }
        while (i < line.size() && line[i] == ' ')
            ++i;
        if (i >= line.size() || line[i] != '=') continue;
        RegValue v;
        if (!parseValue(trim(std::string_view(line).substr(i + 1)), v)) continue;
        std::string uname = upper(name);
        auto it = std::find_if(values_.begin(), values_.end(),
                               [&](const Entry& e) { return e.key == current && e.name == uname; });
        if (it != values_.end())
            it->value = std::move(v);
        else
            values_.push_back({current, uname, std::move(v)});
    }
}

bool RegFileRegistry::openKey(uint32_t hive, const std::string& keyPath, uint32_t) {
    std::string k = fullKey(hive, keyPath);
    return std::find(keys_.begin(), keys_.end(), k) != keys_.end();
}

bool RegFileRegistry::queryValue(uint32_t hive, const std::string& keyPath, const std::string& name,
                                 RegValue& out) {
    std::string k = fullKey(hive, keyPath), n = upper(name);
    for (const Entry& e : values_)
        if (e.key == k && e.name == n) {
            out = e.value;
            return true;
        }
    return false;
}

} // namespace tarnvale::platform
