// The XML layer over libxml2, a conforming parser: a file that is not
// well-formed is a failed load. External references are never resolved.
#include "platform/xml.h"

#include "host/host.h"
#include "platform/platform.h"
#include "platform/xml_compact.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <libxml/encoding.h>
#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlsave.h>

namespace tarnvale::platform {

namespace {

xmlNode* toNode(void* p) {
    return static_cast<xmlNode*>(p);
}
const xmlChar* xml(const std::string& s) {
    return reinterpret_cast<const xmlChar*>(s.c_str());
}
std::string str(const xmlChar* s) {
    return s ? reinterpret_cast<const char*>(s) : "";
}

// Strict parsing: no network, no external subset, entities left as references
// (their internal text is read through them), no messages of the library's own.
constexpr int kParseOptions = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;

// The options do not reach the encoding converters, which print to standard error
// through the library's handler of this thread: silenced while a document is read.
struct QuietParse {
    xmlStructuredErrorFunc before = xmlStructuredError;
    void* context = xmlStructuredErrorContext;
    QuietParse() {
        xmlSetStructuredErrorFunc(nullptr, [](void*, xmlErrorPtr) {});
    }
    ~QuietParse() { xmlSetStructuredErrorFunc(context, before); }
};

xmlDoc* parse(const char* bytes, size_t size, const char* url) {
    // The library takes a length of int: a larger file is no document of ours.
    if (size > static_cast<size_t>(INT_MAX)) return nullptr;
    QuietParse quiet;
    return xmlReadMemory(bytes, static_cast<int>(size), url, nullptr, kParseOptions);
}

#ifndef LIBXML_ICONV_ENABLED
// Without iconv (the Windows build) libxml2 knows UTF-8, UTF-16 and Latin-1 only;
// documents in the Windows code page read and write through these.
int fromCodePage(unsigned char* out, int* outLength, const unsigned char* in, int* inLength) {
    int o = 0, i = 0;
    for (; i < *inLength; ++i) {
        const std::string utf8 = fromWindows1252(std::string_view(reinterpret_cast<const char*>(in + i), 1));
        if (o + static_cast<int>(utf8.size()) > *outLength) break;
        std::memcpy(out + o, utf8.data(), utf8.size());
        o += static_cast<int>(utf8.size());
    }
    *outLength = o;
    *inLength = i;
    return o;
}

// A character the code page lacks is an error, which libxml2 writes as a reference.
int toCodePage(unsigned char* out, int* outLength, const unsigned char* in, int* inLength) {
    int o = 0, i = 0;
    while (i < *inLength && o < *outLength) {
        const unsigned char lead = in[i];
        const int length = lead < 0x80 ? 1 : lead >= 0xF0 ? 4 : lead >= 0xE0 ? 3 : 2;
        if (i + length > *inLength) break; // the rest comes with the next call
        uint32_t cp = length == 1 ? lead : lead & (0x7F >> length);
        for (int k = 1; k < length; ++k)
            cp = cp << 6 | (in[i + k] & 0x3F);
        const int b = windows1252Byte(cp);
        if (b < 0) {
            *outLength = o;
            *inLength = i;
            return -2;
        }
        out[o++] = static_cast<unsigned char>(b);
        i += length;
    }
    *outLength = o;
    *inLength = i;
    return o;
}
#endif

void initialiseLibrary() {
    xmlInitParser();
#ifndef LIBXML_ICONV_ENABLED
    if (!xmlFindCharEncodingHandler("windows-1252"))
        xmlNewCharEncodingHandler("windows-1252", fromCodePage, toCodePage);
#endif
}

// The element's name as the document spells it, prefix included.
std::string qualifiedName(const xmlNode* n) {
    std::string name = str(n->name);
    if (n->ns && n->ns->prefix) name = str(n->ns->prefix) + ":" + name;
    return name;
}

bool isElementNamed(const xmlNode* n, const std::string& name) {
    return n->type == XML_ELEMENT_NODE && qualifiedName(n) == name;
}

std::vector<std::string> splitPath(const std::string& path) {
    std::vector<std::string> parts;
    size_t start = 0;
    while (start <= path.size()) {
        size_t slash = path.find('/', start);
        if (slash == std::string::npos) slash = path.size();
        if (slash > start) parts.push_back(path.substr(start, slash - start));
        start = slash + 1;
    }
    return parts;
}

std::vector<XmlElement> selectFrom(xmlNode* from, const std::string& path);

// Writes what the library serialises to a C file, keeping the first error.
struct FileOutput {
    std::FILE* file;
    int error = 0;
    static int write(void* context, const char* buffer, int length) {
        auto* out = static_cast<FileOutput*>(context);
        if (std::fwrite(buffer, 1, static_cast<size_t>(length), out->file) != static_cast<size_t>(length)) {
            if (!out->error) out->error = errno ? errno : EIO;
            return -1;
        }
        return length;
    }
};

int appendToString(void* context, const char* buffer, int length) {
    static_cast<std::string*>(context)->append(buffer, static_cast<size_t>(length));
    return length;
}

// Serialises the document in its declared encoding; false when the library failed.
bool serialise(xmlDoc* doc, xmlOutputWriteCallback write, void* context, bool indent) {
    int options = indent ? XML_SAVE_FORMAT : 0;
    const char* encoding = reinterpret_cast<const char*>(doc->encoding);
    if (!encoding) {
        // UTF-8 as it is, under a declaration that names no encoding (which the
        // library would add, or else write every other character as a reference).
        const std::string declaration =
            "<?xml version=\"" + str(doc->version ? doc->version : BAD_CAST "1.0") + "\"?>\n";
        if (write(context, declaration.data(), static_cast<int>(declaration.size())) < 0) return false;
        encoding = "UTF-8";
        options |= XML_SAVE_NO_DECL;
    }
    xmlSaveCtxt* save = xmlSaveToIO(write, nullptr, context, encoding, options);
    if (!save) return false;
    const long written = xmlSaveDoc(save, doc);
    return xmlSaveClose(save) >= 0 && written >= 0;
}

} // namespace

struct XmlAccess {
    static XmlElement wrap(xmlNode* n) { return XmlElement(n); }
    static XmlElement wrap(CompactTree* t, uint32_t id) { return XmlElement(t, id); }
};

namespace {

std::vector<XmlElement> selectFrom(xmlNode* from, const std::string& path) {
    std::vector<xmlNode*> level{from};
    for (const std::string& part : splitPath(path)) {
        std::vector<xmlNode*> next;
        for (xmlNode* n : level)
            for (xmlNode* c = n->children; c; c = c->next)
                if (isElementNamed(c, part)) next.push_back(c);
        level = std::move(next);
    }
    std::vector<XmlElement> out;
    out.reserve(level.size());
    for (xmlNode* n : level)
        out.push_back(XmlAccess::wrap(n));
    return out;
}

// The same walk in a compact tree, from the elements `level` holds.
std::vector<XmlElement> selectFrom(CompactTree& t, std::vector<uint32_t> level,
                                   const std::vector<std::string>& parts, size_t first) {
    for (size_t p = first; p < parts.size(); ++p) {
        std::vector<uint32_t> next;
        for (uint32_t n : level)
            for (uint32_t c = t.firstChild(n); c != CompactTree::kNone; c = t.next(c))
                if (!t.isText(c) && t.name(c) == parts[p]) next.push_back(c);
        level = std::move(next);
    }
    std::vector<XmlElement> out;
    out.reserve(level.size());
    for (uint32_t n : level)
        out.push_back(XmlAccess::wrap(&t, n));
    return out;
}

// A copy of a compact element and all it holds in the library's tree, without
// recursion: trees may be deep.
xmlNode* toLibrary(const CompactTree& t, uint32_t top, xmlDoc* doc) {
    auto copy = [&](uint32_t id) {
        if (t.isText(id)) {
            const std::string text = t.text(id);
            return xmlNewDocTextLen(doc, xml(text), static_cast<int>(text.size()));
        }
        xmlNode* n = xmlNewDocNode(doc, nullptr, xml(t.name(id)), nullptr);
        if (n)
            t.forEachAttribute(id, [&](const std::string& name, std::string_view value) {
                xmlSetProp(n, xml(name), xml(std::string(value)));
            });
        return n;
    };
    xmlNode* result = copy(top);
    if (!result) throw Failure(7, "Out of memory");
    std::vector<std::pair<uint32_t, xmlNode*>> pending{{top, result}};
    while (!pending.empty()) {
        auto [id, node] = pending.back();
        pending.pop_back();
        for (uint32_t c = t.firstChild(id); c != CompactTree::kNone; c = t.next(c)) {
            xmlNode* made = copy(c);
            if (!made || !xmlAddChild(node, made)) {
                if (made) xmlFreeNode(made);
                xmlFreeNode(result);
                throw Failure(7, "Out of memory");
            }
            pending.emplace_back(c, made);
        }
    }
    return result;
}

// The reverse, for a document loaded into compact storage.
uint32_t fromLibrary(CompactTree& t, xmlNode* top) {
    const uint32_t result = t.create(qualifiedName(top));
    std::vector<std::pair<xmlNode*, uint32_t>> pending{{top, result}};
    while (!pending.empty()) {
        auto [node, id] = pending.back();
        pending.pop_back();
        for (xmlAttr* a = node->properties; a; a = a->next) {
            std::string name = str(a->name);
            if (a->ns && a->ns->prefix) name = str(a->ns->prefix) + ":" + name;
            xmlChar* value = xmlNodeListGetString(node->doc, a->children, 1);
            t.setAttribute(id, name, str(value));
            xmlFree(value);
        }
        for (xmlNode* c = node->children; c; c = c->next) {
            if (c->type == XML_ELEMENT_NODE) {
                const uint32_t made = t.create(qualifiedName(c));
                t.append(id, made);
                pending.emplace_back(c, made);
            } else if (c->type == XML_TEXT_NODE || c->type == XML_CDATA_SECTION_NODE ||
                       c->type == XML_ENTITY_REF_NODE) {
                xmlChar* content = xmlNodeGetContent(c);
                t.append(id, t.createText(str(content)));
                xmlFree(content);
            }
        }
    }
    return result;
}

} // namespace

struct XmlDocument::Impl {
    xmlDoc* doc = nullptr;
    // The elements of a compact document; its xmlDoc then keeps the declaration
    // and the processing instructions only.
    std::unique_ptr<CompactTree> compact;
    // The parent of elements that are not attached yet; freed with the document.
    xmlNode* scratch = nullptr;

    void reset(xmlDoc* fresh) {
        release();
        doc = fresh ? fresh : xmlNewDoc(BAD_CAST "1.0");
        if (compact) {
            compact = std::make_unique<CompactTree>();
            if (xmlNode* root = fresh ? xmlDocGetRootElement(fresh) : nullptr) {
                compact->setRoot(fromLibrary(*compact, root));
                xmlUnlinkNode(root);
                xmlFreeNode(root);
            }
        }
        scratch = xmlNewDocNode(doc, nullptr, BAD_CAST "scratch", nullptr);
        if (!doc || !scratch) throw Failure(7, "Out of memory");
    }
    void release() {
        // The scratch tree first: its nodes use the document's dictionary.
        if (scratch) xmlFreeNode(scratch);
        if (doc) xmlFreeDoc(doc);
        scratch = nullptr;
        doc = nullptr;
    }
    ~Impl() { release(); }

    // Serialises the document as the library writes it; a compact tree with
    // nothing the library would write otherwise goes straight to `write`.
    bool serialiseDocument(xmlOutputWriteCallback write, void* context, bool indent) {
        if (!compact) return serialise(doc, write, context, indent);
        if (!doc->encoding && !doc->children && !compact->holdsText()) {
            bool failed = false;
            compact->serialise(str(doc->version ? doc->version : BAD_CAST "1.0"), indent,
                               [&](const char* bytes, size_t length) {
                                   if (!failed && write(context, bytes, static_cast<int>(length)) < 0)
                                       failed = true;
                               });
            return !failed;
        }
        // The rest through the library, on a copy that lives while it is written.
        xmlNode* root =
            compact->root() == CompactTree::kNone ? nullptr : toLibrary(*compact, compact->root(), doc);
        if (root) xmlDocSetRootElement(doc, root);
        const bool ok = serialise(doc, write, context, indent);
        if (root) {
            xmlUnlinkNode(root);
            xmlFreeNode(root);
        }
        return ok;
    }
};

// ---- XmlElement ---------------------------------------------------------------------

CompactTree* XmlElement::compact() const {
    return id_ == kLibraryNode ? nullptr : static_cast<CompactTree*>(node_);
}

std::string XmlElement::name() const {
    if (CompactTree* t = compact()) return t->name(id_);
    return qualifiedName(toNode(node_));
}

std::string XmlElement::text() const {
    if (CompactTree* t = compact()) return t->text(id_);
    xmlChar* content = xmlNodeGetContent(toNode(node_));
    std::string out = str(content);
    xmlFree(content);
    return out;
}

void XmlElement::setText(const std::string& value) {
    if (CompactTree* t = compact()) {
        t->removeChildren(id_);
        if (!value.empty()) t->append(id_, t->createText(value));
        return;
    }
    xmlNode* n = toNode(node_);
    while (xmlNode* c = n->children) {
        xmlUnlinkNode(c);
        xmlFreeNode(c);
    }
    // Added as plain text: the library escapes it when it saves.
    xmlNodeAddContentLen(n, xml(value), static_cast<int>(value.size()));
}

std::optional<std::string> XmlElement::attribute(const std::string& name) const {
    if (CompactTree* t = compact()) {
        std::string value;
        if (t->attribute(id_, name, value)) return value;
        return std::nullopt;
    }
    xmlNode* n = toNode(node_);
    // The attributes the element holds; defaults of a document type do not count.
    for (xmlAttr* a = n->properties; a; a = a->next) {
        std::string attrName = str(a->name);
        if (a->ns && a->ns->prefix) attrName = str(a->ns->prefix) + ":" + attrName;
        if (attrName != name) continue;
        xmlChar* value = xmlNodeListGetString(n->doc, a->children, 1);
        std::string out = str(value);
        xmlFree(value);
        return out;
    }
    return std::nullopt;
}

std::vector<std::string> XmlElement::attributeNames() const {
    std::vector<std::string> out;
    if (CompactTree* t = compact()) {
        t->forEachAttribute(id_, [&out](const std::string& name, std::string_view) { out.push_back(name); });
        return out;
    }
    for (xmlAttr* a = toNode(node_)->properties; a; a = a->next)
        out.push_back(a->ns && a->ns->prefix ? str(a->ns->prefix) + ":" + str(a->name) : str(a->name));
    return out;
}

void XmlElement::setAttribute(const std::string& name, const std::string& value) {
    if (CompactTree* t = compact()) return t->setAttribute(id_, name, value);
    if (!xmlSetProp(toNode(node_), xml(name), xml(value)))
        throw Failure(5, "XML: attribute " + name + " cannot be set");
}

XmlElement XmlElement::child(const std::string& name) const {
    if (CompactTree* t = compact()) {
        for (uint32_t c = t->firstChild(id_); c != CompactTree::kNone; c = t->next(c))
            if (!t->isText(c) && t->name(c) == name) return XmlElement(t, c);
        return XmlElement();
    }
    for (xmlNode* c = toNode(node_)->children; c; c = c->next)
        if (isElementNamed(c, name)) return XmlElement(c);
    return XmlElement();
}

std::vector<XmlElement> XmlElement::select(const std::string& path) const {
    if (CompactTree* t = compact()) return selectFrom(*t, {id_}, splitPath(path), 0);
    return selectFrom(toNode(node_), path);
}

std::vector<XmlElement> XmlElement::childElements() const {
    std::vector<XmlElement> out;
    if (CompactTree* t = compact()) {
        for (uint32_t c = t->firstChild(id_); c != CompactTree::kNone; c = t->next(c))
            if (!t->isText(c)) out.push_back(XmlElement(t, c));
        return out;
    }
    for (xmlNode* c = toNode(node_)->children; c; c = c->next)
        if (c->type == XML_ELEMENT_NODE) out.push_back(XmlElement(c));
    return out;
}

bool XmlElement::hasChildren() const {
    if (CompactTree* t = compact()) return t->firstChild(id_) != CompactTree::kNone;
    return toNode(node_)->children != nullptr;
}

XmlElement XmlElement::appendChild(XmlElement child) {
    if (CompactTree* t = compact()) {
        if (!child) throw Failure(err::kObjectNotSet, "XML: no element to append");
        if (child.node_ != node_)
            throw Failure(err::kInvalidCall, "XML: the element belongs to another document");
        for (uint32_t p = id_; p != CompactTree::kNone; p = t->parent(p))
            if (p == child.id_)
                throw Failure(err::kInvalidCall, "XML: an element cannot be appended inside itself");
        t->append(id_, child.id_);
        return child;
    }
    xmlNode *parent = toNode(node_), *c = child.compact() ? nullptr : toNode(child.node_);
    if (child.compact()) throw Failure(err::kInvalidCall, "XML: the element belongs to another document");
    if (!parent || !c) throw Failure(err::kObjectNotSet, "XML: no element to append");
    if (parent->doc != c->doc)
        throw Failure(err::kInvalidCall, "XML: the element belongs to another document");
    for (xmlNode* p = parent; p; p = p->parent)
        if (p == c) throw Failure(err::kInvalidCall, "XML: an element cannot be appended inside itself");
    xmlUnlinkNode(c);
    if (!xmlAddChild(parent, c)) throw Failure(err::kInvalidCall, "XML: the element cannot be appended");
    return XmlElement(c);
}

std::string XmlElement::outerXml() const {
    if (compact() || !node_) throw Failure(err::kInvalidCall, "XML: the element has no text of its own");
    xmlBuffer* buffer = xmlBufferCreate();
    if (!buffer) throw Failure(7, "Out of memory");
    const int length = xmlNodeDump(buffer, toNode(node_)->doc, toNode(node_), 0, 0);
    std::string out = length < 0 ? std::string() : str(xmlBufferContent(buffer));
    xmlBufferFree(buffer);
    if (length < 0) throw Failure(err::kInvalidCall, "XML: the element cannot be written");
    return out;
}

// ---- XmlDocument --------------------------------------------------------------------

XmlDocument::XmlDocument(XmlStorage storage) : impl_(std::make_unique<Impl>()) {
    initialiseLibrary();
    if (storage == XmlStorage::compact) impl_->compact = std::make_unique<CompactTree>();
    impl_->reset(nullptr);
}

XmlDocument::~XmlDocument() = default;

bool XmlDocument::load(const std::string& path) {
    // Read here, so that names outside the code page open on Windows too.
    std::string bytes;
    if (std::FILE* f = openFile(path, "rb")) {
        char buffer[1 << 16];
        for (size_t n; (n = std::fread(buffer, 1, sizeof buffer, f)) > 0;)
            bytes.append(buffer, n);
        const bool failed = std::ferror(f) != 0;
        std::fclose(f);
        if (failed) bytes.clear();
    }
    xmlDoc* doc = bytes.empty() ? nullptr : parse(bytes.data(), bytes.size(), nativePath(path).c_str());
    if (!doc || !xmlDocGetRootElement(doc)) {
        if (doc) xmlFreeDoc(doc);
        impl_->reset(nullptr);
        return false;
    }
    impl_->reset(doc);
    return true;
}

bool XmlDocument::loadText(const std::string& text) {
    xmlDoc* doc = parse(text.data(), text.size(), nullptr);
    if (!doc || !xmlDocGetRootElement(doc)) {
        if (doc) xmlFreeDoc(doc);
        impl_->reset(nullptr);
        return false;
    }
    impl_->reset(doc);
    return true;
}

void XmlDocument::save(const std::string& path, bool indent) const {
    // Through a new file: a failed save leaves the one there (a sidecar's GUID).
    bool encoded = true;
    const int error = replaceFile(path, [&](std::FILE* f) {
        FileOutput out{f};
        encoded = impl_->serialiseDocument(FileOutput::write, &out, indent);
        return out.error ? out.error : encoded ? 0 : EILSEQ;
    });
    if (!encoded && error == EILSEQ)
        throw Failure(err::kFileAccess, path + ": the XML document cannot be saved in its encoding");
    if (error) throw fileFailure(path, error, true);
}

std::string XmlDocument::toString(bool indent) const {
    std::string out;
    if (!impl_->serialiseDocument(appendToString, &out, indent))
        throw Failure(err::kFileAccess, "the XML document cannot be written in its encoding");
    return out;
}

XmlElement XmlDocument::createElement(const std::string& name) {
    if (CompactTree* t = impl_->compact.get()) return XmlElement(t, t->create(name));
    xmlNode* n = xmlNewDocNode(impl_->doc, nullptr, xml(name), nullptr);
    if (!n || !xmlAddChild(impl_->scratch, n))
        throw Failure(err::kInvalidCall, "XML: element " + name + " cannot be made");
    return XmlElement(n);
}

XmlElement XmlDocument::importCopy(XmlElement from) {
    if (impl_->compact || from.compact() || !from)
        throw Failure(err::kInvalidCall, "XML: only elements of the library's tree are copied");
    xmlNode* n = xmlDocCopyNode(toNode(from.node_), impl_->doc, 1);
    if (!n || !xmlAddChild(impl_->scratch, n))
        throw Failure(err::kInvalidCall, "XML: the element cannot be copied");
    return XmlElement(n);
}

void XmlDocument::appendProcessingInstruction(const std::string& target, const std::string& data) {
    if (target != "xml") {
        xmlNode* pi = xmlNewDocPI(impl_->doc, xml(target), xml(data));
        if (!pi || !xmlAddChild(reinterpret_cast<xmlNode*>(impl_->doc), pi))
            throw Failure(err::kInvalidCall, "XML: processing instruction " + target + " cannot be made");
        return;
    }
    // The declaration is the document's own: its version (and encoding) are kept there.
    auto value = [&](const char* key) -> std::optional<std::string> {
        const size_t at = data.find(std::string(key) + "=");
        if (at == std::string::npos || at + std::strlen(key) + 2 > data.size()) return std::nullopt;
        const char quote = data[at + std::strlen(key) + 1];
        const size_t start = at + std::strlen(key) + 2, end = data.find(quote, start);
        if (end == std::string::npos) return std::nullopt;
        return data.substr(start, end - start);
    };
    if (auto v = value("version")) {
        xmlFree(const_cast<xmlChar*>(impl_->doc->version));
        impl_->doc->version = xmlStrdup(xml(*v));
    }
    if (auto e = value("encoding")) {
        xmlFree(const_cast<xmlChar*>(impl_->doc->encoding));
        impl_->doc->encoding = xmlStrdup(xml(*e));
    }
}

XmlElement XmlDocument::documentElement() const {
    if (CompactTree* t = impl_->compact.get())
        return t->root() == CompactTree::kNone ? XmlElement() : XmlElement(t, t->root());
    return XmlElement(xmlDocGetRootElement(impl_->doc));
}

void XmlDocument::setDocumentElement(XmlElement element) {
    if (CompactTree* t = impl_->compact.get()) {
        if (element.node_ != t || !element)
            throw Failure(err::kInvalidCall, "XML: the element belongs to another document");
        return t->setRoot(element.id_);
    }
    if (element.compact()) throw Failure(err::kInvalidCall, "XML: the element belongs to another document");
    xmlNode* n = toNode(element.node_);
    if (!n || n->doc != impl_->doc)
        throw Failure(err::kInvalidCall, "XML: the element belongs to another document");
    if (n == xmlDocGetRootElement(impl_->doc)) return;
    xmlUnlinkNode(n);
    if (xmlNode* old = xmlDocSetRootElement(impl_->doc, n)) xmlFreeNode(old);
}

std::vector<XmlElement> XmlDocument::select(const std::string& path) const {
    if (CompactTree* t = impl_->compact.get()) {
        const std::vector<std::string> parts = splitPath(path);
        if (t->root() == CompactTree::kNone || parts.empty()) return {};
        if (t->name(t->root()) != parts[0]) return {};
        return selectFrom(*t, {t->root()}, parts, 1);
    }
    return selectFrom(reinterpret_cast<xmlNode*>(impl_->doc), path);
}

} // namespace tarnvale::platform
