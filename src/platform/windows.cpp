// The platform layer on Windows: the real registry, the per-user settings store,
// message boxes, processes, GUIDs and the user's long date and time formats.
#include "platform/platform.h"

#include <windows.h>
// objbase.h wants windows.h ahead of it.
#include <objbase.h>

#include <cstring>

namespace tarnvale::platform {

std::wstring wide(std::string_view utf8) {
    if (utf8.empty()) return {};
    const int n = ::MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), nullptr, 0);
    std::wstring out(static_cast<size_t>(n), L'\0');
    ::MultiByteToWideChar(CP_UTF8, 0, utf8.data(), static_cast<int>(utf8.size()), out.data(), n);
    return out;
}

std::string narrow(std::wstring_view text) {
    if (text.empty()) return {};
    const int n = ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0,
                                        nullptr, nullptr);
    std::string out(static_cast<size_t>(n), '\0');
    ::WideCharToMultiByte(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), out.data(), n, nullptr,
                          nullptr);
    return out;
}

// ---- Registry ------------------------------------------------------------------------

namespace {

HKEY hiveKey(uint32_t hive) {
    return reinterpret_cast<HKEY>(static_cast<uintptr_t>(hive));
}

// A key opened for as long as it is needed.
class OpenKey {
  public:
    OpenKey(HKEY hive, const std::string& path, REGSAM access) {
        ok_ = ::RegOpenKeyExW(hive, wide(path).c_str(), 0, access, &key_) == ERROR_SUCCESS;
    }
    ~OpenKey() {
        if (ok_) ::RegCloseKey(key_);
    }
    OpenKey(const OpenKey&) = delete;
    OpenKey& operator=(const OpenKey&) = delete;
    explicit operator bool() const { return ok_; }
    HKEY get() const { return key_; }

  private:
    HKEY key_{};
    bool ok_ = false;
};

// The value's type and bytes, strings as UTF-8 with their NUL.
bool readValue(HKEY key, const std::string& name, RegValue& out) {
    const std::wstring wname = wide(name);
    DWORD type = 0, size = 0;
    if (::RegQueryValueExW(key, wname.c_str(), nullptr, &type, nullptr, &size) != ERROR_SUCCESS) return false;
    std::vector<uint8_t> bytes(size);
    if (::RegQueryValueExW(key, wname.c_str(), nullptr, &type, bytes.data(), &size) != ERROR_SUCCESS)
        return false;
    bytes.resize(size);
    out.type = type;
    if (type == REG_SZ || type == REG_EXPAND_SZ) {
        std::wstring text(bytes.size() / 2, L'\0');
        std::memcpy(text.data(), bytes.data(), text.size() * 2);
        const bool terminated = !text.empty() && text.back() == L'\0';
        if (terminated) text.pop_back();
        const std::string utf8 = narrow(text);
        out.data.assign(utf8.begin(), utf8.end());
        if (terminated) out.data.push_back(0);
    } else {
        out.data = std::move(bytes);
    }
    return true;
}

} // namespace

bool WindowsRegistry::openKey(uint32_t hive, const std::string& keyPath, uint32_t access) {
    return static_cast<bool>(OpenKey(hiveKey(hive), keyPath, access | KEY_WOW64_32KEY));
}

bool WindowsRegistry::queryValue(uint32_t hive, const std::string& keyPath, const std::string& name,
                                 RegValue& out) {
    OpenKey key(hiveKey(hive), keyPath, KEY_QUERY_VALUE | KEY_WOW64_32KEY);
    return key && readValue(key.get(), name, out);
}

std::string RegistrySettings::getSetting(const std::string& application, const std::string& section,
                                         const std::string& key, const std::string& defaultValue) {
    OpenKey open(HKEY_CURRENT_USER, "Software\\VB and VBA Program Settings\\" + application + "\\" + section,
                 KEY_QUERY_VALUE);
    RegValue value;
    if (!open || !readValue(open.get(), key, value) || (value.type != REG_SZ && value.type != REG_EXPAND_SZ))
        return defaultValue;
    if (!value.data.empty() && value.data.back() == 0) value.data.pop_back();
    return std::string(value.data.begin(), value.data.end());
}

// ---- Message boxes ---------------------------------------------------------------------

void WindowsBoxes::show(const std::string& text, const std::string& title, BoxIcon icon) {
    if (!person_) return console_.show(text, title, icon);
    UINT style = MB_OK | MB_SETFOREGROUND;
    if (icon == BoxIcon::Information) style |= MB_ICONINFORMATION;
    if (icon == BoxIcon::Critical) style |= MB_ICONERROR;
    // A box that cannot be shown (no desktop) still reaches the user.
    if (::MessageBoxW(nullptr, wide(text).c_str(), wide(title).c_str(), style) == 0)
        console_.show(text, title, icon);
}

// ---- Processes ---------------------------------------------------------------------------

int64_t WindowsProcesses::start(const std::string& commandLine, int32_t windowStyle) {
    std::wstring line = wide(commandLine); // CreateProcessW may write into it
    STARTUPINFOW startup{};
    startup.cb = sizeof startup;
    startup.dwFlags = STARTF_USESHOWWINDOW;
    startup.wShowWindow = static_cast<WORD>(windowStyle);
    PROCESS_INFORMATION info{};
    if (!::CreateProcessW(nullptr, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &startup,
                          &info)) {
        const DWORD error = ::GetLastError();
        throw Failure(err::kFileNotFound,
                      "File not found: " + commandLine + " (error " + std::to_string(error) + ")");
    }
    ::CloseHandle(info.hThread);
    ::CloseHandle(info.hProcess);
    return info.dwProcessId;
}

intptr_t WindowsProcesses::open(int64_t processId, uint32_t access) {
    HANDLE h = ::OpenProcess(access, FALSE, static_cast<DWORD>(processId));
    return reinterpret_cast<intptr_t>(h);
}

bool WindowsProcesses::exitCode(intptr_t handle, uint32_t& code) {
    DWORD c = 0;
    if (!handle || !::GetExitCodeProcess(reinterpret_cast<HANDLE>(handle), &c)) return false;
    code = c;
    return true;
}

void WindowsProcesses::sleep(int32_t milliseconds) {
    ::Sleep(static_cast<DWORD>(milliseconds));
}

void WindowsProcesses::close(intptr_t handle) {
    if (handle) ::CloseHandle(reinterpret_cast<HANDLE>(handle));
}

// ---- GUIDs, dates -------------------------------------------------------------------------

bool RandomGuids::create(Guid& out) {
    GUID g{};
    if (FAILED(::CoCreateGuid(&g))) return false;
    out.data1 = g.Data1;
    out.data2 = g.Data2;
    out.data3 = g.Data3;
    std::memcpy(out.data4, g.Data4, sizeof out.data4);
    return true;
}

std::string SystemClock::longDate() {
    wchar_t buf[128];
    const int n =
        ::GetDateFormatEx(LOCALE_NAME_USER_DEFAULT, DATE_LONGDATE, nullptr, nullptr, buf, 128, nullptr);
    return n > 0 ? narrow(std::wstring_view(buf, static_cast<size_t>(n - 1))) : std::string();
}

std::string SystemClock::longTime() {
    wchar_t buf[128];
    const int n = ::GetTimeFormatEx(LOCALE_NAME_USER_DEFAULT, 0, nullptr, nullptr, buf, 128);
    return n > 0 ? narrow(std::wstring_view(buf, static_cast<size_t>(n - 1))) : std::string();
}

} // namespace tarnvale::platform
