// GUIDs and the dates of the file's header.
#pragma once

#include <cstdint>
#include <string>

namespace tarnvale::platform {

// ---- GUIDs, dates -----------------------------------------------------------------

struct Guid {
    uint32_t data1 = 0;
    uint16_t data2 = 0, data3 = 0;
    uint8_t data4[8] = {};
};

class GuidSource {
  public:
    virtual ~GuidSource() = default;
    // A new GUID; false when none can be made.
    virtual bool create(Guid& out) = 0;
};

// Standard random (version 4) GUIDs.
class RandomGuids : public GuidSource {
  public:
    bool create(Guid& out) override;
};

class Clock {
  public:
    virtual ~Clock() = default;
    // Today in a long date form, e.g. "Monday, 23 November 2026".
    virtual std::string longDate() = 0;
    // Now in a long time form, e.g. "08:29:21".
    virtual std::string longTime() = 0;
};

class SystemClock : public Clock {
  public:
    std::string longDate() override;
    std::string longTime() override;
};

} // namespace tarnvale::platform
