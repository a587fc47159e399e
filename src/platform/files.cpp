// Paths, the Windows-1252 code page and the buffered text files.
#include "platform/platform.h"

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace tarnvale::platform {

std::string nativePath(std::string_view path) {
    std::string p(path);
    for (char& c : p)
        if (c == '\\') c = '/';
    return p;
}

bool fileExists(std::string_view path) {
    struct stat st {};
    return ::stat(nativePath(path).c_str(), &st) == 0 && S_ISREG(st.st_mode);
}

namespace {

// Unicode code points of Windows-1252 bytes 0x80 to 0x9F; 0 where the byte is unused.
constexpr uint16_t kHigh1252[32] = {0x20AC, 0,      0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                    0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0,      0x017D, 0,
                                    0,      0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                    0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0,      0x017E, 0x0178};

int byteFor(uint32_t cp) {
    if (cp < 0x80 || (cp >= 0xA0 && cp <= 0xFF)) return static_cast<int>(cp);
    for (int i = 0; i < 32; ++i)
        if (kHigh1252[i] == cp && cp != 0) return 0x80 + i;
    return '?';
}

// Decodes one UTF-8 sequence at s[i]; gives the code point and advances i. An
// invalid sequence gives its first byte as a code point of its own.
uint32_t decodeUtf8(std::string_view s, size_t& i) {
    auto b = static_cast<unsigned char>(s[i]);
    int len = b >= 0xF0 && b < 0xF8 ? 4 : b >= 0xE0 ? 3 : b >= 0xC2 && b < 0xE0 ? 2 : 0;
    if (len == 0 || i + len > s.size()) {
        ++i;
        return b;
    }
    uint32_t cp = b & (0x7F >> len);
    for (int k = 1; k < len; ++k) {
        auto c = static_cast<unsigned char>(s[i + k]);
        if ((c & 0xC0) != 0x80) {
            ++i;
            return b;
        }
        cp = cp << 6 | (c & 0x3F);
    }
    i += len;
    return cp;
}

void appendUtf8(std::string& out, uint32_t cp) {
    if (cp < 0x80) {
        out += static_cast<char>(cp);
    } else if (cp < 0x800) {
        out += static_cast<char>(0xC0 | cp >> 6);
        out += static_cast<char>(0x80 | (cp & 0x3F));
    } else {
        out += static_cast<char>(0xE0 | cp >> 12);
        out += static_cast<char>(0x80 | (cp >> 6 & 0x3F));
        out += static_cast<char>(0x80 | (cp & 0x3F));
    }
}

} // namespace

std::string toWindows1252(std::string_view utf8) {
    std::string out;
    out.reserve(utf8.size());
    for (size_t i = 0; i < utf8.size();) {
        if (static_cast<unsigned char>(utf8[i]) < 0x80) {
            out += utf8[i++];
            continue;
        }
        out += static_cast<char>(byteFor(decodeUtf8(utf8, i)));
    }
    return out;
}

std::string fromWindows1252(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    for (char ch : bytes) {
        auto b = static_cast<unsigned char>(ch);
        uint32_t cp = b >= 0x80 && b < 0xA0 && kHigh1252[b - 0x80] ? kHigh1252[b - 0x80] : b;
        appendUtf8(out, cp);
    }
    return out;
}

Failure fileFailure(const std::string& path, int errnoValue, bool forWriting) {
    int32_t number = errnoValue == ENOENT ? (forWriting ? err::kPathNotFound : err::kFileNotFound)
                                          : err::kFileAccess;
    return Failure(number, path + ": " + std::strerror(errnoValue));
}

// ---- TextSink ----------------------------------------------------------------------

namespace {
constexpr size_t kSinkBuffer = 1 << 20;
}

TextSink::~TextSink() {
    // Closed without close(): a failure ended the writer. What was written so far
    // stays on disk; a failure to flush it is the lesser news.
    if (!file_) return;
    try {
        flush();
    } catch (const Failure&) {
    }
    std::fclose(file_);
}

void TextSink::open(const std::string& path) {
    if (file_) close();
    path_ = path;
    file_ = std::fopen(nativePath(path).c_str(), "wb");
    if (!file_) throw fileFailure(path, errno, true);
    buffer_.resize(kSinkBuffer);
    used_ = flushed_ = lineStart_ = 0;
}

void TextSink::flush() {
    if (used_ == 0) return;
    if (const void* nl = ::memrchr(buffer_.data(), '\n', used_))
        lineStart_ = flushed_ + static_cast<size_t>(static_cast<const char*>(nl) - buffer_.data()) + 1;
    flushed_ += used_;
    if (std::fwrite(buffer_.data(), 1, used_, file_) != used_) {
        int e = errno;
        used_ = 0;
        throw fileFailure(path_, e ? e : EIO, true);
    }
    used_ = 0;
}

void TextSink::writeRaw(std::string_view bytes) {
    if (!file_) throw Failure(err::kFileAccess, "Output file is not open");
    const char* p = bytes.data();
    size_t n = bytes.size();
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

size_t TextSink::column() const {
    // Only the print zone asks, rarely: the line start is found when asked.
    if (const void* nl = ::memrchr(buffer_.data(), '\n', used_))
        return used_ - (static_cast<const char*>(nl) - buffer_.data()) - 1;
    return flushed_ + used_ - lineStart_;
}

void TextSink::nextPrintZone() {
    static constexpr char kBlanks[] = "              ";
    size_t col = column();
    size_t next = (col / 14 + 1) * 14;
    writeRaw(std::string_view(kBlanks, next - col));
}

void TextSink::close() {
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

TextSource::~TextSource() { close(); }

void TextSource::open(const std::string& path) {
    close();
    file_ = std::fopen(nativePath(path).c_str(), "rb");
    if (!file_) throw fileFailure(path, errno, false);
}

bool TextSource::readLine(std::string& line) {
    line.clear();
    if (!file_) return false;
    int c = std::getc(file_);
    if (c == EOF) return false;
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
    return true;
}

void TextSource::close() {
    if (file_) std::fclose(file_);
    file_ = nullptr;
}

} // namespace tarnvale::platform
