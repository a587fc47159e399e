// The small layers that stand for the Windows services the exporter was written
// against: settings store, registry, message boxes, GUIDs, dates, processes, files
// and the single-byte code page. Each is an interface with a real implementation;
// tests use the recording doubles of platform/doubles.h.
#pragma once

#include "host/host.h"

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <cstdio>
#include <deque>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

namespace tarnvale::platform {

// ---- Paths and files -------------------------------------------------------------

// Paths are UTF-8, joined with "\" as on Windows; elsewhere every "\" becomes "/"
// when this program opens, tests or starts a file. Nothing else in a path changes.
std::string nativePath(std::string_view path);
// A path as the program keeps it, with "\" for every "/": what a system whose
// folders part with "/" hands over (a file box) becomes the Windows form.
std::string windowsPath(std::string_view path);
// The path as the system's file functions take it (wide characters on Windows).
std::filesystem::path systemPath(std::string_view path);
// A system path as this program writes paths: UTF-8.
std::string utf8Path(const std::filesystem::path& path);
// Opens a file as fopen does, by the program's path; errno tells why not.
std::FILE* openFile(std::string_view path, const char* mode);
bool fileExists(std::string_view path);
// Whether a file can be made in the folder.
bool folderWritable(std::string_view folder);
// Writes a file through a new one beside it, which takes the file's place (and
// permissions) only once `write` succeeded and the data reached the disk: a
// failure leaves the file that was there as it was. `write` gets the open file
// and gives the errno of a failed write, or 0. Gives 0, or the errno that ended it.
int replaceFile(std::string_view path, const std::function<int(std::FILE*)>& write);

// ---- Code page --------------------------------------------------------------------

// Text inside the program is UTF-8; generated files are Windows-1252. A character
// that 1252 lacks becomes "?"; a byte that is not valid UTF-8 stands for itself.
std::string toWindows1252(std::string_view utf8);
// The Windows-1252 byte of a code point, -1 when the code page lacks it.
int windows1252Byte(uint32_t codePoint);
// Windows-1252 bytes (a template line, say) as UTF-8.
std::string fromWindows1252(std::string_view bytes);
// The text of a file as UTF-8: UTF-16LE (with its mark, or recognised by its
// second byte), UTF-8 (a mark dropped), else Windows-1252.
std::string decodeTextFile(std::string_view bytes);

// ---- Characters -------------------------------------------------------------------

// Characters of UTF-8 text, and the byte offset of the first `characters` ones.
size_t characterCount(std::string_view utf8);
size_t characterOffset(std::string_view utf8, size_t characters);
// Lower or upper case of the letters of Windows-1252 (others unchanged).
std::string lowerCase(std::string_view utf8);
std::string upperCase(std::string_view utf8);
// Comparisons by characters that ignore the case of Windows-1252's letters.
bool startsWithNoCase(std::string_view text, std::string_view prefix);
bool containsNoCase(std::string_view text, std::string_view part);

// ---- Tasks -------------------------------------------------------------------------

// A job handed to other threads (Workers::post): it runs on a helper thread when
// one is free, or on the thread that waits for it, whichever comes first.
class Task {
  public:
    explicit Task(std::function<void()> job) : job_(std::move(job)) {}
    // Runs the job here unless it has been taken; gives whether it ran here.
    bool run();
    bool done() const { return state_.load(std::memory_order_acquire) == kDone; }
    // Returns once the job has run, here if nobody has taken it; rethrows its failure.
    void wait();

  private:
    static constexpr int kQueued = 0, kRunning = 1, kDone = 2;
    std::function<void()> job_;
    std::atomic<int> state_{kQueued};
    std::exception_ptr failure_;
    std::mutex mutex_;
    std::condition_variable finished_;
};

// ---- Output and input text files ----------------------------------------------------

// The open output file: a large buffer, one fwrite per fill. Never seeks.
class TextSink {
  public:
    TextSink() = default;
    ~TextSink();
    TextSink(const TextSink&) = delete;
    TextSink& operator=(const TextSink&) = delete;

    // Creates the file, or replaces the one there, emptied (a plain file of its own
    // is made anew, a link written through); fails with the system's error text.
    void open(const std::string& path);
    // Writes into `target` instead of a file (shown text, a part of a file made on
    // another thread), through a buffer of that many bytes.
    void openString(std::string& target, size_t bufferBytes = size_t(1) << 20);
    // UTF-8 text, written in Windows-1252.
    void write(std::string_view text);
    // Bytes written as they are (ASCII numbers, template text).
    void writeRaw(std::string_view bytes);
    void writeChar(char c) { writeRaw(std::string_view(&c, 1)); }
    // CR LF.
    void endLine() { writeRaw("\r\n"); }
    // Column of the next byte on the current line, from 0.
    size_t column();
    // Room for up to `bytes` bytes written in place; commit() says where they end.
    // Nothing else may be written in between.
    char* claim(size_t bytes) {
        if (!later_.empty()) {
            if (scratch_.size() < bytes) scratch_.resize(bytes);
            return scratch_.data();
        }
        if (buffer_.size() - used_ < bytes) {
            flush();
            if (buffer_.size() < bytes) buffer_.resize(bytes);
        }
        return buffer_.data() + used_;
    }
    void commit(const char* end) {
        if (!later_.empty())
            later_.back().after.append(scratch_.data(), static_cast<size_t>(end - scratch_.data()));
        else
            used_ = static_cast<size_t>(end - buffer_.data());
    }
    // Advances to the next print zone (tab stops every 14 columns).
    void nextPrintZone();
    // Text that a task makes, written in this place once the task is done: what
    // is written after it waits in memory until then. A failure of the task is
    // thrown by the write that finds it done, or by close().
    void writeLater(std::shared_ptr<Task> task, std::shared_ptr<const std::string> text);
    // Flushes and closes; fails when the data cannot be written.
    void close();
    bool isOpen() const { return file_ != nullptr || string_ != nullptr; }

  private:
    // Bytes left as the system gives them, not zeroed: a small file touches only
    // the pages it fills. A new size drops the contents (asked only when empty).
    struct Buffer {
        std::unique_ptr<char[]> bytes;
        size_t length = 0;
        char* data() const { return bytes.get(); }
        size_t size() const { return length; }
        void resize(size_t n) {
            if (n != length) bytes = std::make_unique_for_overwrite<char[]>(n), length = n;
        }
    };
    void flush();
    // Bytes into the buffer and the file, behind every text waiting.
    void append(const char* p, size_t n);
    // Writes the waiting texts whose tasks are done, in order; with `all`, waits
    // for (or runs) the others too; with `above`, until at most that many wait.
    void drain(bool all, size_t above = 0);
    // A text still being made, and what was written after it.
    struct Later {
        std::shared_ptr<Task> task;
        std::shared_ptr<const std::string> text;
        std::string after;
    };
    std::deque<Later> later_;
    std::FILE* file_ = nullptr;
    std::string* string_ = nullptr;
    std::string path_;
    Buffer buffer_;
    Buffer scratch_; // where a claim is written while texts wait
    size_t used_ = 0;
    size_t flushed_ = 0;   // bytes written to the file before the buffer's start
    size_t lineStart_ = 0; // offset in the file of the line that was open at the last flush
};

// A text file read line by line; a line ends at CR LF, LF or CR.
class TextSource {
  public:
    TextSource() = default;
    ~TextSource();
    TextSource(const TextSource&) = delete;
    TextSource& operator=(const TextSource&) = delete;

    // Fails on a file that cannot be opened, and on a folder.
    void open(const std::string& path);
    // The next line's bytes without its line end; false at the end of the file.
    // Fails when the file cannot be read.
    bool readLine(std::string& line);
    void close();

  private:
    std::FILE* file_ = nullptr;
    std::string path_;
};

// The failure for a file that cannot be opened: number and the system's text.
Failure fileFailure(const std::string& path, int errnoValue, bool forWriting);

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

// ---- Progress --------------------------------------------------------------------

// Told how far a long export has come: the stage text and the share done (0..1).
class Progress {
  public:
    virtual ~Progress() = default;
    virtual void report(const std::string& stage, double share) = 0;
};

// ---- Threads ----------------------------------------------------------------------

// Threads for parallel loops, the caller's own among them; made once, they wait
// between loops. One thread runs every job on the caller's. `grain`: the items a
// job of a long run takes (the tests make it small, so that small scenes split).
class Workers {
  public:
    explicit Workers(unsigned threads = 0, size_t grain = 4096); // 0: one a core
    ~Workers();
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;
    unsigned count() const { return static_cast<unsigned>(helpers_.size()) + 1; }
    size_t grain() const { return grain_; }
    // Runs job(i) for every i below `jobs` on all threads and returns when all are
    // done; rethrows the first failure of a job, after which others may be skipped.
    void forEach(size_t jobs, const std::function<void(size_t)>& job);
    // Hands a job to the helper threads, first come first served; with none, it
    // runs when it is waited for.
    std::shared_ptr<Task> post(std::function<void()> job);

  private:
    struct Shared;
    std::unique_ptr<Shared> shared_;
    std::vector<std::thread> helpers_;
    size_t grain_;
};

// ---- Processes --------------------------------------------------------------------

inline constexpr uint32_t kStillActive = 259;

class Processes {
  public:
    virtual ~Processes() = default;
    // Starts the command line; gives the process id. Fails when it cannot start.
    virtual int64_t start(const std::string& commandLine, int32_t windowStyle) = 0;
    // A handle for querying the process, or 0 when it cannot be opened.
    virtual intptr_t open(int64_t processId, uint32_t access) = 0;
    // The exit code, kStillActive while it runs; false when it cannot be asked.
    virtual bool exitCode(intptr_t handle, uint32_t& code) = 0;
    virtual void sleep(int32_t milliseconds) = 0;
    virtual void close(intptr_t handle) = 0;
};

// Splits a command line by the Windows rules: blanks separate arguments outside
// double quotes; 2n backslashes before a quote give n and a quote that opens or
// closes; 2n+1 give n and a literal quote; other backslashes are literal.
std::vector<std::string> splitCommandLine(std::string_view commandLine);

// The program a command line starts and the rest of the line, as Windows finds
// them: a quoted first word is the program; otherwise each prefix of the line that
// ends before a blank (".exe" added when its file name has no extension), left to
// right, then the whole run of words ahead of the first quote. The first that
// names an existing file wins; none when no candidate does.
std::optional<std::pair<std::string, std::string>>
findProgram(std::string_view commandLine, const std::function<bool(const std::string&)>& isFile);

#ifndef _WIN32
// Arguments of a Windows program run through wine, as wine sees paths: a word that
// names an existing file or folder, alone or as the value of a "/name:" switch,
// becomes "Z:" and its path with "\" (wine's Z: drive is the Unix root).
std::vector<std::string> wineArguments(std::vector<std::string> args,
                                       const std::function<bool(const std::string&)>& exists);

// Starts programs directly, without a shell: the program as findProgram finds it,
// with "\" mapped to "/", and the rest of the line split by the Windows rules. A
// Windows program starts through wine when wine is on the PATH.
class PosixProcesses : public Processes {
  public:
    ~PosixProcesses() override;
    int64_t start(const std::string& commandLine, int32_t windowStyle) override;
    intptr_t open(int64_t processId, uint32_t access) override;
    bool exitCode(intptr_t handle, uint32_t& code) override;
    void sleep(int32_t milliseconds) override;
    void close(intptr_t handle) override;

  private:
    struct Child {
        int64_t pid;
        bool ended = false;
        uint32_t code = 0;
    };
    std::vector<Child> children_;
    void reap(Child& c, bool wait);
};
#endif

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
#else
using SystemProcesses = PosixProcesses;
#endif

} // namespace tarnvale::platform
