// The compact storage of an XmlDocument: about 24 bytes an element, 16 an
// attribute, and each value's bytes (short ones once), where the XML library
// takes about a kilobyte for an element of three attributes.
#include "platform/xml_compact.h"

#include "host/host.h"

#include <array>
#include <cstring>

namespace tarnvale::platform {

namespace {

constexpr size_t kBlock = size_t(1) << 20;
constexpr size_t kShortValue = 15;
constexpr size_t kShortValuesKept = size_t(1) << 16;

// The characters the library writes as references in an attribute's value.
constexpr auto kEscaped = [] {
    std::array<bool, 256> table{};
    for (unsigned char c : std::string_view("<>&\"\n\r\t"))
        table[c] = true;
    return table;
}();

} // namespace

uint32_t CompactTree::nameId(std::string_view name) {
    // A document has a few names: a look along them beats hashing.
    if (names_.size() <= 32) {
        for (size_t i = 1; i < names_.size(); ++i)
            if (names_[i] == name) return static_cast<uint32_t>(i);
    }
    auto [it, added] = nameIds_.try_emplace(std::string(name), static_cast<uint32_t>(names_.size()));
    if (added) names_.emplace_back(name);
    return it->second;
}

uint64_t CompactTree::store(std::string_view value) {
    const bool isShort = value.size() <= kShortValue;
    if (isShort)
        if (auto it = shortValues_.find(std::string(value)); it != shortValues_.end()) return it->second;
    const size_t need = value.size() + 4;
    if (blocks_.empty() || blockUsed_ + need > blockSize_) {
        blockSize_ = std::max(kBlock, need);
        blocks_.push_back(std::make_unique_for_overwrite<char[]>(blockSize_));
        blockUsed_ = 0;
    }
    if (value.size() > UINT32_MAX) throw Failure(7, "Out of memory");
    const auto length = static_cast<uint32_t>(value.size());
    char* at = blocks_.back().get() + blockUsed_;
    std::memcpy(at, &length, 4);
    std::memcpy(at + 4, value.data(), value.size());
    const uint64_t where = uint64_t(blocks_.size() - 1) << 32 | blockUsed_;
    blockUsed_ += need;
    if (isShort && shortValues_.size() < kShortValuesKept) shortValues_.emplace(std::string(value), where);
    return where;
}

std::string_view CompactTree::stored(uint64_t at) const {
    const char* p = blocks_[at >> 32].get() + (at & UINT32_MAX);
    uint32_t length;
    std::memcpy(&length, p, 4);
    return std::string_view(p + 4, length);
}

uint32_t CompactTree::create(std::string_view name) {
    nodes_.push_back(Node{nameId(name)});
    return static_cast<uint32_t>(nodes_.size() - 1);
}

uint32_t CompactTree::createText(std::string_view text) {
    attributes_.push_back(Attribute{kTextName, kNone, store(text)});
    nodes_.push_back(Node{kTextName});
    nodes_.back().attributes = static_cast<uint32_t>(attributes_.size() - 1);
    ++texts_;
    return static_cast<uint32_t>(nodes_.size() - 1);
}

void CompactTree::setRoot(uint32_t id) {
    if (id == root_) return;
    detach(id);
    root_ = id;
}

std::string CompactTree::text(uint32_t id) const {
    if (isText(id)) return std::string(stored(attributes_[nodes_[id].attributes].value));
    std::string out;
    // Depth first without recursion: trees may be deep.
    for (uint32_t n = nodes_[id].first; n != kNone && n != id;) {
        if (isText(n)) out += stored(attributes_[nodes_[n].attributes].value);
        if (nodes_[n].first != kNone) {
            n = nodes_[n].first;
            continue;
        }
        while (n != id && nodes_[n].next == kNone)
            n = nodes_[n].parent;
        if (n != id) n = nodes_[n].next;
    }
    return out;
}

void CompactTree::removeChildren(uint32_t id) {
    while (nodes_[id].first != kNone)
        detach(nodes_[id].first);
}

bool CompactTree::attribute(uint32_t id, std::string_view name, std::string& value) const {
    for (uint32_t a = nodes_[id].attributes; a != kNone; a = attributes_[a].next)
        if (names_[attributes_[a].name] == name) {
            value = stored(attributes_[a].value);
            return true;
        }
    return false;
}

void CompactTree::setAttribute(uint32_t id, std::string_view name, std::string_view value) {
    uint32_t* link = &nodes_[id].attributes;
    for (; *link != kNone; link = &attributes_[*link].next)
        if (names_[attributes_[*link].name] == name) {
            attributes_[*link].value = store(value);
            return;
        }
    const uint32_t nameIndex = nameId(name);
    attributes_.push_back(Attribute{nameIndex, kNone, store(value)});
    *link = static_cast<uint32_t>(attributes_.size() - 1);
}

void CompactTree::forEachAttribute(uint32_t id,
                                   const std::function<void(const std::string&, std::string_view)>& f) const {
    for (uint32_t a = nodes_[id].attributes; a != kNone; a = attributes_[a].next)
        f(names_[attributes_[a].name], stored(attributes_[a].value));
}

void CompactTree::detach(uint32_t id) {
    Node& n = nodes_[id];
    if (id == root_) root_ = kNone;
    if (n.parent == kNone) return;
    Node& p = nodes_[n.parent];
    uint32_t before = kNone;
    for (uint32_t c = p.first; c != id; c = nodes_[c].next)
        before = c;
    (before == kNone ? p.first : nodes_[before].next) = n.next;
    if (p.last == id) p.last = before;
    if (isText(id)) --texts_;
    n.parent = n.next = kNone;
}

void CompactTree::append(uint32_t parent, uint32_t child) {
    detach(child);
    Node& p = nodes_[parent];
    (p.last == kNone ? p.first : nodes_[p.last].next) = child;
    p.last = child;
    nodes_[child].parent = parent;
    if (isText(child)) ++texts_;
}

void CompactTree::serialise(const std::string& version, bool indent,
                            const std::function<void(const char*, size_t)>& write) const {
    std::string out = "<?xml version=\"" + version + "\"?>\n";
    auto flush = [&](bool always) {
        if (always || out.size() >= (size_t(1) << 16)) {
            write(out.data(), out.size());
            out.clear();
        }
    };
    // The library indents thirty levels at most.
    auto margin = [&](size_t level) { out.append(2 * std::min<size_t>(level, 30), ' '); };
    auto startTag = [&](uint32_t id) {
        out += '<';
        out += name(id);
        for (uint32_t a = nodes_[id].attributes; a != kNone; a = attributes_[a].next) {
            out += ' ';
            out += names_[attributes_[a].name];
            out += "=\"";
            const std::string_view value = stored(attributes_[a].value);
            size_t plain = 0;
            for (size_t i = 0; i < value.size(); ++i) {
                if (!kEscaped[static_cast<unsigned char>(value[i])]) continue;
                const char* escaped = nullptr;
                switch (value[i]) {
                case '<':
                    escaped = "&lt;";
                    break;
                case '>':
                    escaped = "&gt;";
                    break;
                case '&':
                    escaped = "&amp;";
                    break;
                case '"':
                    escaped = "&quot;";
                    break;
                case '\n':
                    escaped = "&#10;";
                    break;
                case '\r':
                    escaped = "&#13;";
                    break;
                case '\t':
                    escaped = "&#9;";
                    break;
                default:
                    continue;
                }
                out.append(value.data() + plain, i - plain);
                out += escaped;
                plain = i + 1;
            }
            out.append(value.data() + plain, value.size() - plain);
            out += '"';
        }
        out += nodes_[id].first == kNone ? "/>" : ">";
    };
    if (root_ != kNone) {
        size_t level = 0;
        for (uint32_t n = root_;;) {
            startTag(n);
            flush(false);
            if (nodes_[n].first != kNone) {
                if (indent) out += '\n';
                n = nodes_[n].first;
                ++level;
                if (indent) margin(level);
                continue;
            }
            // Up through the elements this one closes.
            while (n != root_ && nodes_[n].next == kNone) {
                n = nodes_[n].parent;
                --level;
                if (indent) out += '\n', margin(level);
                out += "</" + name(n) + ">";
            }
            if (n == root_) break;
            n = nodes_[n].next;
            if (indent) out += '\n', margin(level);
        }
        out += '\n';
    }
    flush(true);
}

} // namespace tarnvale::platform
