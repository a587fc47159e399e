// The per-user settings store.
#pragma once

#include <string>

namespace tarnvale::platform {

// ---- Settings store ---------------------------------------------------------------

class SettingsStore {
  public:
    virtual ~SettingsStore() = default;
    // The value of key in (application, section), or the default.
    virtual std::string getSetting(const std::string& application, const std::string& section,
                                   const std::string& key, const std::string& defaultValue) = 0;
};

// An INI file with sections named "application\section". A missing or unreadable
// file is an empty store.
class IniSettings : public SettingsStore {
  public:
    explicit IniSettings(std::string path) : path_(std::move(path)) {}
    std::string getSetting(const std::string& application, const std::string& section, const std::string& key,
                           const std::string& defaultValue) override;
    // $XDG_CONFIG_HOME/tarnvale/settings.ini, or ~/.config/tarnvale/settings.ini.
    static std::string defaultPath();

  private:
    std::string path_;
};

} // namespace tarnvale::platform
