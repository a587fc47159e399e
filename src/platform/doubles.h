// Recording and scripted doubles of the platform interfaces, for tests and for
// runs that must not touch the user's machine.
#pragma once

#include "platform/platform.h"

#include <map>

namespace tarnvale::platform {

struct ShownBox {
    std::string text, title;
    BoxIcon icon;
};

class RecordingBoxes : public MessageBoxes {
  public:
    std::vector<ShownBox> shown;
    void show(const std::string& text, const std::string& title, BoxIcon icon) override {
        shown.push_back({text, title, icon});
    }
};

// Settings from a map keyed "application\section\key".
class MapSettings : public SettingsStore {
  public:
    std::map<std::string, std::string> values;
    std::string getSetting(const std::string& application, const std::string& section, const std::string& key,
                           const std::string& defaultValue) override {
        auto it = values.find(application + "\\" + section + "\\" + key);
        return it == values.end() ? defaultValue : it->second;
    }
};

// Gives the GUIDs of its list in turn, then fails.
class FixedGuids : public GuidSource {
  public:
    std::vector<Guid> next;
    bool create(Guid& out) override {
        if (next.empty()) return false;
        out = next.front();
        next.erase(next.begin());
        return true;
    }
};

class FixedClock : public Clock {
  public:
    std::string date = "Monday, 23 November 2026", time = "08:30:00";
    std::string longDate() override { return date; }
    std::string longTime() override { return time; }
};

} // namespace tarnvale::platform
