// A small XML DOM over pugixml: what the sidecar, the model definition and the
// XANIM document need. Nobody else includes pugixml.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnvale::platform {

// A handle to an element; empty (false) when a lookup found nothing. Valid while
// its document lives.
class XmlElement {
public:
    XmlElement() = default;
    explicit operator bool() const { return node_ != nullptr; }
    bool operator==(const XmlElement& o) const { return node_ == o.node_; }

    std::string name() const;
    // Text of the element (its first text child); empty when it has none.
    std::string text() const;
    void setText(const std::string& text);
    // The attribute's value, or none when it is absent.
    std::optional<std::string> attribute(const std::string& name) const;
    // Sets the attribute; a new attribute goes behind the existing ones.
    void setAttribute(const std::string& name, const std::string& value);
    // First child element with that name.
    XmlElement child(const std::string& name) const;
    // Elements by a relative path of element names joined by "/".
    std::vector<XmlElement> select(const std::string& path) const;
    std::vector<XmlElement> childElements() const;
    // Whether it has a child node of any kind.
    bool hasChildren() const;
    // Appends `child` as last child and gives its handle there. A detached element
    // of the same document is moved; an element that is already attached moves to
    // the end. Handles to elements inside a moved detached tree stay valid only
    // when both belong to the same document.
    XmlElement appendChild(XmlElement child);

private:
    friend class XmlDocument;
    friend struct XmlAccess;
    explicit XmlElement(void* node) : node_(node) {}
    void* node_ = nullptr;
};

class XmlDocument {
public:
    XmlDocument();
    ~XmlDocument();
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;

    // Loads a file synchronously; false (and an empty document) when it is missing
    // or not well-formed. External references are never resolved.
    bool load(const std::string& path);
    bool loadText(const std::string& text);
    // Saves with the library's own layout; fails with the system's error text.
    void save(const std::string& path) const;
    std::string toString() const;

    // A new element attached to nothing, for appendChild.
    XmlElement createElement(const std::string& name);
    void appendProcessingInstruction(const std::string& target, const std::string& data);
    XmlElement documentElement() const;
    void setDocumentElement(XmlElement element);
    std::vector<XmlElement> select(const std::string& path) const;

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace tarnvale::platform
