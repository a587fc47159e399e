// The registry, read only: the system's or a .reg file standing in for it.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarnvale::platform {

// ---- Registry ---------------------------------------------------------------------

inline constexpr uint32_t kHkeyLocalMachine = 0x80000002u;
inline constexpr uint32_t kRegString = 1;
inline constexpr uint32_t kRegBinary = 3;
inline constexpr uint32_t kRegDword = 4;

struct RegValue {
    uint32_t type = 0;
    std::vector<uint8_t> data; // as the registry stores it: strings with their NUL
};

class Registry {
  public:
    virtual ~Registry() = default;
    // Whether the key exists and may be opened with that access mask.
    virtual bool openKey(uint32_t hive, const std::string& keyPath, uint32_t access) = 0;
    // The value's type and bytes; false when key or value is missing.
    virtual bool queryValue(uint32_t hive, const std::string& keyPath, const std::string& name,
                            RegValue& out) = 0;
};

// A registry read from a file in the Windows .reg export syntax: [HKEY_...\key]
// sections, "Name"="text", "Name"=dword:0000002a, "Name"=hex:01,02, @ for the default
// value. No file, or a file that cannot be read, is an empty registry.
class RegFileRegistry : public Registry {
  public:
    RegFileRegistry() = default;
    explicit RegFileRegistry(const std::string& path);
    // Parses .reg text; lines it cannot read are skipped.
    void parse(std::string_view text);
    bool openKey(uint32_t hive, const std::string& keyPath, uint32_t access) override;
    bool queryValue(uint32_t hive, const std::string& keyPath, const std::string& name,
                    RegValue& out) override;

  private:
    struct Entry {
        std::string key;  // upper case, "HIVE\path"
        std::string name; // upper case; "" for the default value
        RegValue value;
    };
    std::vector<std::string> keys_;
    std::vector<Entry> values_;
};

} // namespace tarnvale::platform
