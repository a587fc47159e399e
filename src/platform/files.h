// Paths and files, and the text files the writers and readers use.
#pragma once

#include "host/host.h"
#include "platform/workers.h"

#include <cstdio>
#include <deque>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

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

} // namespace tarnvale::platform
