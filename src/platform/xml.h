// A small XML DOM over libxml2: what the sidecar, the model definition and the
// XANIM document need. Nobody else includes libxml2.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tarnvale::platform {

class CompactTree;

// A handle to an element; empty (false) when a lookup found nothing. Valid while
// its document lives.
class XmlElement {
  public:
    XmlElement() = default;
    explicit operator bool() const { return node_ != nullptr; }
    bool operator==(const XmlElement& o) const { return node_ == o.node_ && id_ == o.id_; }

    std::string name() const;
    // The element's whole text: its text, CDATA and entity text, comments skipped.
    std::string text() const;
    // Replaces all the element's children by this text.
    void setText(const std::string& text);
    // The attribute's value, or none when it is absent.
    std::optional<std::string> attribute(const std::string& name) const;
    // The names of the attributes it holds, in their order.
    std::vector<std::string> attributeNames() const;
    // Sets the attribute; a new attribute goes behind the existing ones.
    void setAttribute(const std::string& name, const std::string& value);
    // First child element with that name (elements only, as the document spells
    // the name, prefix included).
    XmlElement child(const std::string& name) const;
    // Elements by a relative path of element names joined by "/".
    std::vector<XmlElement> select(const std::string& path) const;
    std::vector<XmlElement> childElements() const;
    // Whether it has a child node of any kind.
    bool hasChildren() const;
    // Appends `child`, an element of the same document, as last child and gives its
    // handle. A detached element is moved in; an attached one moves to the end.
    // Handles stay valid.
    XmlElement appendChild(XmlElement child);
    // The element with all it holds as XML text in UTF-8, without a declaration
    // (an element of the library's tree only).
    std::string outerXml() const;

  private:
    friend class XmlDocument;
    friend struct XmlAccess;
    static constexpr uint32_t kLibraryNode = UINT32_MAX;
    explicit XmlElement(void* node, uint32_t id = kLibraryNode) : node_(node), id_(id) {}
    CompactTree* compact() const;
    // The library's node, or the compact tree that holds element id_.
    void* node_ = nullptr;
    uint32_t id_ = kLibraryNode;
};

// How a document keeps its elements: the XML library's tree, or a compact one of
// our own for documents of millions of elements, which saves byte for byte as the
// library would. Processing instructions of a compact document come before its root.
enum class XmlStorage { library, compact };

class XmlDocument {
  public:
    explicit XmlDocument(XmlStorage storage = XmlStorage::library);
    ~XmlDocument();
    XmlDocument(const XmlDocument&) = delete;
    XmlDocument& operator=(const XmlDocument&) = delete;

    // Loads a file synchronously; false (and an empty document) when it is missing
    // or not well-formed. UTF-8, UTF-16 and the encodings a declaration names are
    // read; internal entities are expanded, external references never resolved.
    bool load(const std::string& path);
    bool loadText(const std::string& text);
    // Saves in the encoding the document declares (UTF-8 without one), adding no
    // whitespace unless `indent`; fails with the system's error text.
    void save(const std::string& path, bool indent = false) const;
    std::string toString(bool indent = false) const;

    // A new element attached to nothing, for appendChild; freed with the document.
    XmlElement createElement(const std::string& name);
    // A deep copy of an element of another document (both of the library's
    // tree), attached to nothing, for appendChild.
    XmlElement importCopy(XmlElement from);
    // A processing instruction; the target "xml" sets the declaration's version
    // and encoding.
    void appendProcessingInstruction(const std::string& target, const std::string& data);
    XmlElement documentElement() const;
    void setDocumentElement(XmlElement element);
    std::vector<XmlElement> select(const std::string& path) const;

  private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
};

} // namespace tarnvale::platform
