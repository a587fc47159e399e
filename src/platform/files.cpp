// Paths and the buffered text files.
#include "platform/platform.h"

#include <algorithm>

#include <cerrno>
#include <cstring>
#include <random>
#include <sys/stat.h>
#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

namespace tarnvale::platform {

std::string windowsPath(std::string_view path) {
    std::string p(path);
    std::replace(p.begin(), p.end(), '/', '\\');
    return p;
}

std::string nativePath(std::string_view path) {
    std::string p(path);
#ifndef _WIN32
    for (char& c : p)
        if (c == '\\') c = '/';
#endif
    return p;
}

std::filesystem::path systemPath(std::string_view path) {
#ifdef _WIN32
    return std::filesystem::path(std::u8string(path.begin(), path.end()));
#else
    return std::filesystem::path(nativePath(path));
#endif
}

std::string utf8Path(const std::filesystem::path& path) {
    const std::u8string u = path.u8string();
    return std::string(u.begin(), u.end());
}

std::FILE* openFile(std::string_view path, const char* mode) {
#ifdef _WIN32
    const std::string m(mode);
    return ::_wfopen(systemPath(path).c_str(), std::wstring(m.begin(), m.end()).c_str());
#else
    return std::fopen(nativePath(path).c_str(), mode);
#endif
}

bool fileExists(std::string_view path) {
    std::error_code ec;
    return std::filesystem::is_regular_file(systemPath(path), ec);
}

bool folderWritable(std::string_view folder) {
    // Trying is the one test that also holds for read-only mounts and for Windows.
    const std::string probe = std::string(folder) + "/.tarnvale-write-test";
    std::FILE* f = openFile(probe, "wb");
    if (!f) return false;
    std::fclose(f);
    std::error_code ec;
    std::filesystem::remove(systemPath(probe), ec);
    return true;
}

int replaceFile(std::string_view path, const std::function<int(std::FILE*)>& write) {
    namespace fs = std::filesystem;
    const fs::path target = systemPath(path);
    std::error_code ec;
    const bool existed = fs::exists(target, ec);
    // A file that cannot be written is not replaced behind its owner's back.
#ifdef _WIN32
    if (existed && ::_waccess(target.c_str(), 2) != 0) return errno ? errno : EACCES;
#else
    if (existed && ::access(target.c_str(), W_OK) != 0) return errno ? errno : EACCES;
#endif
    std::random_device random;
    std::string temp;
    std::FILE* f = nullptr;
    errno = 0;
    for (int attempt = 0; attempt < 100 && !f; ++attempt) {
        temp = utf8Path(target.parent_path() / (".tarnvale-" + std::to_string(random())));
        if (!fileExists(temp)) f = openFile(temp, "wb");
    }
    if (!f) return errno ? errno : EACCES;
    int error = write(f);
    if (!error && std::fflush(f) != 0) error = errno ? errno : EIO;
#ifdef _WIN32
    if (!error && ::_commit(::_fileno(f)) != 0) error = errno ? errno : EIO;
#else
    if (!error && ::fsync(::fileno(f)) != 0) error = errno ? errno : EIO;
#endif
    if (std::fclose(f) != 0 && !error) error = errno ? errno : EIO;
    if (!error) {
        if (existed) fs::permissions(systemPath(temp), fs::status(target, ec).permissions(), ec);
        fs::rename(systemPath(temp), target, ec);
        if (!ec) return 0;
        error = ec.value();
    }
    fs::remove(systemPath(temp), ec);
    return error;
}

namespace {

// The last line feed in the first n bytes, or none.
const char* lastLineFeed(const char* p, size_t n) {
    while (n > 0)
        if (p[--n] == '\n') return p + n;
    return nullptr;
}

} // namespace

Failure fileFailure(const std::string& path, int errnoValue, bool forWriting) {
    int32_t number =
        errnoValue == ENOENT ? (forWriting ? err::kPathNotFound : err::kFileNotFound) : err::kFileAccess;
    return Failure(number, path + ": " + std::strerror(errnoValue));
}

// ---- TextSink ----------------------------------------------------------------------

namespace {
constexpr size_t kSinkBuffer = 1 << 20;
}

TextSink::~TextSink() {
    // Closed without close(): a failure ended the writer. What was written so far
    // stays on disk, the texts still being made with it (up to one that fails); a
    // failure to flush it is the lesser news.
    try {
        drain(true);
    } catch (...) {
    }
    if (string_) flush();
    if (!file_) return;
    try {
        flush();
    } catch (const Failure&) {
    }
    std::fclose(file_);
}

void TextSink::openString(std::string& target, size_t bufferBytes) {
    if (isOpen()) close();
    string_ = &target;
    buffer_.resize(bufferBytes);
    used_ = flushed_ = lineStart_ = 0;
}

namespace {

// Opens a file for writing from its start, emptied. An old file of its own (a
// regular file, one link, writable) is unlinked and made anew with its mode,
// rather than truncated: the system then neither frees its pages while the file
// is opened nor, on the common file systems, starts writing the new one to disk
// when it is closed, as it does for a file emptied and written again (some 30 ms
// on an X file of 76 MB). Links, read-only files and the like are truncated.
std::FILE* openEmptied(const std::string& path) {
#ifndef _WIN32
    struct stat st {};
    const std::string native = nativePath(path);
    if (::lstat(native.c_str(), &st) == 0 && S_ISREG(st.st_mode) && st.st_nlink == 1 &&
        ::access(native.c_str(), W_OK) == 0 && ::unlink(native.c_str()) == 0) {
        std::FILE* f = openFile(path, "wb");
        // The old file's mode, and its owner where the system lets us give it.
        if (f && (::fchmod(::fileno(f), st.st_mode & 07777) != 0 ||
                  ::fchown(::fileno(f), st.st_uid, st.st_gid) != 0))
            errno = 0;
        return f;
    }
#endif
    return openFile(path, "wb");
}

} // namespace

void TextSink::open(const std::string& path) {
    if (isOpen()) close();
    path_ = path;
    file_ = openEmptied(path);
    if (!file_) throw fileFailure(path, errno, true);
    buffer_.resize(kSinkBuffer);
    used_ = flushed_ = lineStart_ = 0;
}

void TextSink::flush() {
    if (used_ == 0) return;
    if (const char* nl = lastLineFeed(buffer_.data(), used_))
        lineStart_ = flushed_ + static_cast<size_t>(nl - buffer_.data()) + 1;
    flushed_ += used_;
    if (string_) {
        string_->append(buffer_.data(), used_);
    } else if (std::fwrite(buffer_.data(), 1, used_, file_) != used_) {
        int e = errno;
        used_ = 0;
        throw fileFailure(path_, e ? e : EIO, true);
    }
    used_ = 0;
}

void TextSink::writeRaw(std::string_view bytes) {
    if (!isOpen()) throw Failure(err::kFileAccess, "Output file is not open");
    if (!later_.empty()) {
        later_.back().after.append(bytes);
        return;
    }
    append(bytes.data(), bytes.size());
}

namespace {
// Texts that may wait at once: beyond, the writer waits for the first.
constexpr size_t kMostWaiting = 64;
} // namespace

void TextSink::writeLater(std::shared_ptr<Task> task, std::shared_ptr<const std::string> text) {
    if (!isOpen()) throw Failure(err::kFileAccess, "Output file is not open");
    drain(false);
    if (later_.size() >= kMostWaiting) drain(true, kMostWaiting / 2);
    later_.push_back({std::move(task), std::move(text), {}});
}

void TextSink::drain(bool all, size_t above) {
    while (!later_.empty() && (later_.front().task->done() || (all && later_.size() > above))) {
        Later first = std::move(later_.front());
        later_.pop_front();
        try {
            first.task->wait(); // done, or run here, or waited for
        } catch (...) {
            later_.clear(); // the file ends where the writer failed, as on one thread
            throw;
        }
        append(first.text->data(), first.text->size());
        append(first.after.data(), first.after.size());
    }
}

void TextSink::append(const char* p, size_t n) {
    if (n <= buffer_.size() - used_) {
        std::memcpy(buffer_.data() + used_, p, n);
        used_ += n;
        return;
    }
    while (n > 0) {
        if (used_ == buffer_.size()) flush();
        size_t take = std::min(n, buffer_.size() - used_);
        std::memcpy(buffer_.data() + used_, p, take);
        used_ += take;
        p += take;
        n -= take;
    }
}

void TextSink::write(std::string_view text) {
    for (char c : text)
        if (static_cast<unsigned char>(c) >= 0x80) {
            writeRaw(toWindows1252(text));
            return;
        }
    writeRaw(text);
}

size_t TextSink::column() {
    // Only the print zone asks, rarely: the line start is found when asked. Behind
    // a text still being made, only a line begun after it can be told at once.
    if (!later_.empty()) {
        const std::string& tail = later_.back().after;
        if (const char* nl = lastLineFeed(tail.data(), tail.size()))
            return tail.size() - static_cast<size_t>(nl - tail.data()) - 1;
        drain(true);
    }
    if (const char* nl = lastLineFeed(buffer_.data(), used_))
        return used_ - static_cast<size_t>(nl - buffer_.data()) - 1;
    return flushed_ + used_ - lineStart_;
}

void TextSink::nextPrintZone() {
    static constexpr char kBlanks[] = "              ";
    size_t col = column();
    size_t next = (col / 14 + 1) * 14;
    writeRaw(std::string_view(kBlanks, next - col));
}

void TextSink::close() {
    drain(true);
    if (string_) {
        flush();
        string_ = nullptr;
        return;
    }
    if (!file_) return;
    std::FILE* f = file_;
    try {
        flush();
    } catch (...) {
        std::fclose(f);
        file_ = nullptr;
        throw;
    }
    file_ = nullptr;
    if (std::fclose(f) != 0) throw fileFailure(path_, errno, true);
}

// ---- TextSource --------------------------------------------------------------------

TextSource::~TextSource() {
    close();
}

void TextSource::open(const std::string& path) {
    close();
    path_ = path;
    file_ = openFile(path, "rb");
    if (!file_) throw fileFailure(path, errno, false);
    // A folder opens, but reads as nothing: it is no file to read.
    struct stat st {};
    if (::fstat(::fileno(file_), &st) == 0 && S_ISDIR(st.st_mode)) {
        close();
        throw fileFailure(path, EISDIR, false);
    }
}

bool TextSource::readLine(std::string& line) {
    line.clear();
    if (!file_) return false;
    int c = std::getc(file_);
    if (c == EOF) {
        // The end of the file, or a read that failed: that is no end.
        if (std::ferror(file_)) throw fileFailure(path_, errno ? errno : EIO, false);
        return false;
    }
    while (c != EOF) {
        if (c == '\n') break;
        if (c == '\r') {
            int d = std::getc(file_);
            if (d != '\n' && d != EOF) std::ungetc(d, file_);
            break;
        }
        line += static_cast<char>(c);
        c = std::getc(file_);
    }
    if (c == EOF && std::ferror(file_)) throw fileFailure(path_, errno ? errno : EIO, false);
    return true;
}

void TextSource::close() {
    if (file_) std::fclose(file_);
    file_ = nullptr;
}

} // namespace tarnvale::platform
