// The Windows services themselves: wide text, the registry, the settings store,
// boxes and processes of the system.
#pragma once

#include "platform/boxes.h"
#include "platform/process.h"
#include "platform/registry.h"
#include "platform/settings.h"

#include <string>
#include <string_view>

namespace tarnvale::platform {

#ifdef _WIN32
// ---- Windows ------------------------------------------------------------------------

// UTF-8 and the wide characters of the Windows API.
std::wstring wide(std::string_view utf8);
std::string narrow(std::wstring_view text);

// The real registry. Keys open in the 32-bit view, as the host's plug-ins saw it,
// which is where 32-bit installers such as the SDK's write.
class WindowsRegistry : public Registry {
  public:
    bool openKey(uint32_t hive, const std::string& keyPath, uint32_t access) override;
    bool queryValue(uint32_t hive, const std::string& keyPath, const std::string& name,
                    RegValue& out) override;
};

// The per-user settings store of the host's programs:
// HKEY_CURRENT_USER\Software\VB and VBA Program Settings\<application>\<section>.
class RegistrySettings : public SettingsStore {
  public:
    std::string getSetting(const std::string& application, const std::string& section, const std::string& key,
                           const std::string& defaultValue) override;
};

// Message boxes as windows when a person is there to close them, else on the console.
class WindowsBoxes : public MessageBoxes {
  public:
    explicit WindowsBoxes(bool personThere, std::FILE* out = stderr) : person_(personThere), console_(out) {}
    void show(const std::string& text, const std::string& title, BoxIcon icon) override;

  private:
    bool person_;
    ConsoleBoxes console_;
};

// CreateProcessW with the command line as it is: Windows' own search finds the
// program. Exit codes come from GetExitCodeProcess.
class WindowsProcesses : public Processes {
  public:
    int64_t start(const std::string& commandLine, int32_t windowStyle) override;
    intptr_t open(int64_t processId, uint32_t access) override;
    bool exitCode(intptr_t handle, uint32_t& code) override;
    void sleep(int32_t milliseconds) override;
    void close(intptr_t handle) override;
};

using SystemProcesses = WindowsProcesses;
#endif

} // namespace tarnvale::platform
