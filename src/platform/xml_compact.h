// The compact storage of an XmlDocument: elements, attributes and text in a few
// flat arrays, for documents of millions of elements (an XANIM file holds one a
// keyframe). Only xml.cpp includes it.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tarnvale::platform {

class CompactTree {
  public:
    static constexpr uint32_t kNone = UINT32_MAX;

    uint32_t create(std::string_view name);
    uint32_t createText(std::string_view text);
    uint32_t root() const { return root_; }
    void setRoot(uint32_t id);

    const std::string& name(uint32_t id) const { return names_[nodes_[id].name]; }
    bool isText(uint32_t id) const { return nodes_[id].name == kTextName; }
    // The text of a text node; of an element, all its text nodes' in order.
    std::string text(uint32_t id) const;
    void removeChildren(uint32_t id);
    bool attribute(uint32_t id, std::string_view name, std::string& value) const;
    void setAttribute(uint32_t id, std::string_view name, std::string_view value);
    // Calls f(name, value) for each attribute, in the order they were set first.
    void forEachAttribute(uint32_t id,
                          const std::function<void(const std::string&, std::string_view)>& f) const;

    uint32_t firstChild(uint32_t id) const { return nodes_[id].first; }
    uint32_t next(uint32_t id) const { return nodes_[id].next; }
    uint32_t parent(uint32_t id) const { return nodes_[id].parent; }
    // Moves `child` (detached or attached anywhere) to the end of `parent`'s children.
    void append(uint32_t parent, uint32_t child);
    void detach(uint32_t id);
    bool holdsText() const { return texts_ > 0; }

    // The document as the XML library would write it when no encoding is declared
    // and the tree holds no text: the declaration, then the root, with two spaces a
    // level and a line a child of elements that hold elements when `indent`.
    void serialise(const std::string& version, bool indent,
                   const std::function<void(const char*, size_t)>& write) const;

  private:
    static constexpr uint32_t kTextName = 0; // names_[0] is never an element's
    struct Node {
        uint32_t name;
        uint32_t parent = kNone, first = kNone, last = kNone, next = kNone;
        uint32_t attributes = kNone; // of a text node: its text
    };
    struct Attribute {
        uint32_t name;
        uint32_t next;
        uint64_t value; // where the value starts in the text store
    };

    uint32_t nameId(std::string_view name);
    uint64_t store(std::string_view value);
    std::string_view stored(uint64_t at) const;

    std::deque<Node> nodes_;
    std::deque<Attribute> attributes_;
    std::vector<std::string> names_{""};
    std::unordered_map<std::string, uint32_t> nameIds_;
    // Values, each a length of four bytes and its bytes, in blocks that never move.
    std::vector<std::unique_ptr<char[]>> blocks_;
    size_t blockUsed_ = 0, blockSize_ = 0;
    // Short values stored once: an XANIM file repeats its times and types.
    std::unordered_map<std::string, uint64_t> shortValues_;
    uint32_t root_ = kNone;
    size_t texts_ = 0;
};

} // namespace tarnvale::platform
