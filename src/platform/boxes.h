// What the user is shown: message boxes and the progress of an export.
#pragma once

#include <cstdio>
#include <string>

namespace tarnvale::platform {

// ---- Message boxes ----------------------------------------------------------------

enum class BoxIcon { Plain, Information, Critical };

class MessageBoxes {
  public:
    virtual ~MessageBoxes() = default;
    // Shows the text and waits until it has been acknowledged.
    virtual void show(const std::string& text, const std::string& title, BoxIcon icon) = 0;
};

// Boxes on standard error: the title, the icon kind and the text, a CR shown as a
// line break. Waits for Enter when `waitForPerson` and standard input is a terminal.
class ConsoleBoxes : public MessageBoxes {
  public:
    explicit ConsoleBoxes(std::FILE* out = stderr, bool waitForPerson = false)
        : out_(out), wait_(waitForPerson) {}
    void show(const std::string& text, const std::string& title, BoxIcon icon) override;

  private:
    std::FILE* out_;
    bool wait_;
};

const char* iconName(BoxIcon icon);

// ---- Progress --------------------------------------------------------------------

// Told how far a long export has come: the stage text and the share done (0..1).
class Progress {
  public:
    virtual ~Progress() = default;
    virtual void report(const std::string& stage, double share) = 0;
};

} // namespace tarnvale::platform
