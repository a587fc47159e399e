// The .glb container: its JSON chunk, and its binary chunk read where it lies in
// the file. The glTF library would copy the binary chunk into a buffer of its
// own, zeroed first: tens of megabytes of page faults and copying on a large
// scene. It is shown a stand-in instead, whose buffer 0 holds four bytes.
#include "gltf/internal.h"

#include <cstring>

namespace tarnvale::gltf {

namespace {

constexpr uint32_t kJsonChunk = 0x4E4F534A, kBinChunk = 0x004E4942;
// The stand-in's buffer 0: the library wants at least this much.

uint32_t word(std::string_view bytes, size_t at) {
    uint32_t v = 0;
    std::memcpy(&v, bytes.data() + at, 4);
    return v;
}

void putWord(std::string& out, uint32_t v) {
    out.append(reinterpret_cast<const char*>(&v), 4);
}

bool isBlank(char c) {
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// A small scanner of JSON text that finds buffer 0's byteLength. It gives up
// (and the file takes the library's own road) on anything it is not sure of: a
// key with an escape, a key given twice, a length that is not plain digits.
class Scan {
  public:
    explicit Scan(std::string_view text) : t_(text) {}

    std::optional<BufferZero> bufferZero() {
        if (!take('{')) return std::nullopt;
        std::optional<BufferZero> found;
        bool seen = false;
        do {
            std::string_view key;
            if (!keyThen(key)) return std::nullopt;
            if (key == "buffers") {
                if (seen) return std::nullopt;
                seen = true;
                found = firstBuffer();
                if (!found) return std::nullopt;
            } else if (!skipValue()) {
                return std::nullopt;
            }
        } while (take(','));
        return take('}') ? found : std::nullopt;
    }

  private:
    // The object of buffer 0: no uri, one byteLength of plain digits.
    std::optional<BufferZero> firstBuffer() {
        if (!take('[') || !take('{')) return std::nullopt;
        std::optional<BufferZero> length;
        do {
            std::string_view key;
            if (!keyThen(key)) return std::nullopt;
            if (key == "uri") return std::nullopt;
            if (key == "byteLength") {
                if (length) return std::nullopt;
                blanks();
                BufferZero b{i_, 0, 0};
                while (i_ < t_.size() && t_[i_] >= '0' && t_[i_] <= '9' && i_ - b.at < 16)
                    b.byteLength = b.byteLength * 10 + static_cast<uint64_t>(t_[i_++] - '0');
                b.digits = i_ - b.at;
                blanks();
                if (b.digits == 0 || b.byteLength == 0 || t_[b.at] == '0' || i_ >= t_.size() ||
                    (t_[i_] != ',' && t_[i_] != '}'))
                    return std::nullopt;
                length = b;
            } else if (!skipValue()) {
                return std::nullopt;
            }
        } while (take(','));
        if (!take('}')) return std::nullopt;
        // The other buffers are the library's to read.
        while (take(','))
            if (!skipValue()) return std::nullopt;
        return take(']') ? length : std::nullopt;
    }

    void blanks() {
        while (i_ < t_.size() && isBlank(t_[i_]))
            ++i_;
    }
    bool take(char c) {
        blanks();
        if (i_ >= t_.size() || t_[i_] != c) return false;
        ++i_;
        return true;
    }
    // A member's key without escapes, and its colon.
    bool keyThen(std::string_view& key) {
        if (!take('"')) return false;
        const size_t start = i_;
        while (i_ < t_.size() && t_[i_] != '"' && t_[i_] != '\\')
            ++i_;
        if (i_ >= t_.size() || t_[i_] != '"') return false;
        key = t_.substr(start, i_ - start);
        ++i_;
        return take(':');
    }
    // Any value: strings and nested arrays and objects as a whole. It ends, at its
    // own depth, before a comma, a closing bracket or a blank.
    bool skipValue() {
        blanks();
        for (size_t depth = 0; i_ < t_.size();) {
            const char c = t_[i_];
            if (depth == 0 && (c == ',' || c == ']' || c == '}' || isBlank(c))) return true;
            if (c == '"') {
                for (++i_; i_ < t_.size() && t_[i_] != '"'; ++i_)
                    if (t_[i_] == '\\') ++i_;
                if (i_ >= t_.size()) return false;
            } else if (c == '[' || c == '{') {
                ++depth;
            } else if (c == ']' || c == '}') {
                --depth;
            }
            ++i_;
        }
        return false;
    }

    std::string_view t_;
    size_t i_ = 0;
};

} // namespace

std::optional<BufferZero> glbBufferZero(std::string_view json) {
    return Scan(json).bufferZero();
}

GlbChunks glbChunks(std::string_view bytes) {
    GlbChunks c;
    if (bytes.size() < 20 || bytes.compare(0, 4, "glTF") != 0) return c;
    const uint64_t declared = word(bytes, 8), jsonLength = word(bytes, 12);
    if (word(bytes, 16) != kJsonChunk || declared > bytes.size() || 20 + jsonLength > declared) return c;
    c.json = bytes.substr(20, jsonLength);
    const uint64_t bin = 20 + jsonLength;
    if (bin + 8 > declared) return c;
    const uint64_t binLength = word(bytes, bin);
    if (word(bytes, bin + 4) != kBinChunk || binLength < 4 || binLength % 4 != 0 ||
        bin + 8 + binLength > declared)
        return c;
    c.binary = bytes.substr(bin + 8, binLength);
    c.hasBinary = true;
    return c;
}

std::optional<std::string> glbStandIn(std::string_view bytes, std::string_view& buffer0) {
    const GlbChunks c = glbChunks(bytes);
    if (!c.hasBinary || c.json.size() % 4 != 0) return std::nullopt;
    const std::optional<BufferZero> b = glbBufferZero(c.json);
    if (!b || b->byteLength > c.binary.size()) return std::nullopt;
    std::string out;
    out.reserve(20 + c.json.size() + 8 + kStandInBytes);
    out.append(bytes.substr(0, 8));
    putWord(out, static_cast<uint32_t>(20 + c.json.size() + 8 + kStandInBytes));
    out.append(bytes.substr(12, 8));
    // The length rewritten in place, padded with blanks: the chunk keeps its size.
    out.append(c.json.substr(0, b->at));
    out += std::to_string(kStandInBytes);
    out.append(b->digits - 1, ' ');
    out.append(c.json.substr(b->at + b->digits));
    putWord(out, kStandInBytes);
    putWord(out, kBinChunk);
    out.append(kStandInBytes, '\0');
    buffer0 = c.binary.substr(0, static_cast<size_t>(b->byteLength));
    return out;
}

std::string glbWithJson(std::string_view bytes, std::string json) {
    const GlbChunks c = glbChunks(bytes);
    while (json.size() % 4)
        json += ' ';
    const std::string_view rest = bytes.substr(20 + c.json.size());
    std::string out(bytes.substr(0, 8));
    putWord(out, static_cast<uint32_t>(20 + json.size() + rest.size()));
    putWord(out, static_cast<uint32_t>(json.size()));
    putWord(out, kJsonChunk);
    out += json;
    out.append(rest);
    return out;
}

} // namespace tarnvale::gltf
