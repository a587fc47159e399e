#include "platform/xml.h"

#include "host/host.h"
#include "platform/platform.h"

#include <cerrno>
#include <cstring>
#include <pugixml.hpp>
#include <sstream>

namespace tarnvale::platform {

namespace {

pugi::xml_node toNode(void* p) { return pugi::xml_node(static_cast<pugi::xml_node_struct*>(p)); }
void* fromNode(pugi::xml_node n) { return n ? n.internal_object() : nullptr; }

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

} // namespace

struct XmlAccess {
    static XmlElement wrap(pugi::xml_node n) { return XmlElement(fromNode(n)); }
};

namespace {

std::vector<XmlElement> selectFrom(pugi::xml_node from, const std::string& path) {
    std::vector<pugi::xml_node> level{from};
    for (const std::string& part : splitPath(path)) {
        std::vector<pugi::xml_node> next;
        for (pugi::xml_node n : level)
            for (pugi::xml_node c = n.child(part.c_str()); c; c = c.next_sibling(part.c_str())) next.push_back(c);
        level = std::move(next);
    }
    std::vector<XmlElement> out;
    out.reserve(level.size());
    for (pugi::xml_node n : level) out.push_back(XmlAccess::wrap(n));
    return out;
}

constexpr unsigned kParse = pugi::parse_default | pugi::parse_declaration | pugi::parse_pi | pugi::parse_comments;
constexpr unsigned kFormat = pugi::format_default | pugi::format_no_declaration;

} // namespace

struct XmlDocument::Impl {
    pugi::xml_document doc;
    pugi::xml_document scratch; // home of elements that are not attached yet
};

// ---- XmlElement ---------------------------------------------------------------------

std::string XmlElement::name() const { return toNode(node_).name(); }
std::string XmlElement::text() const { return toNode(node_).text().get(); }
void XmlElement::setText(const std::string& text) { toNode(node_).text().set(text.c_str()); }

std::optional<std::string> XmlElement::attribute(const std::string& name) const {
    pugi::xml_attribute a = toNode(node_).attribute(name.c_str());
    if (!a) return std::nullopt;
    return std::string(a.value());
}

void XmlElement::setAttribute(const std::string& name, const std::string& value) {
    pugi::xml_node n = toNode(node_);
    pugi::xml_attribute a = n.attribute(name.c_str());
    if (!a) a = n.append_attribute(name.c_str());
    a.set_value(value.c_str());
}

XmlElement XmlElement::child(const std::string& name) const {
    return XmlElement(fromNode(toNode(node_).child(name.c_str())));
}

std::vector<XmlElement> XmlElement::select(const std::string& path) const {
    return selectFrom(toNode(node_), path);
}

std::vector<XmlElement> XmlElement::childElements() const {
    std::vector<XmlElement> out;
    for (pugi::xml_node c : toNode(node_).children())
        if (c.type() == pugi::node_element) out.push_back(XmlElement(fromNode(c)));
    return out;
}

bool XmlElement::hasChildren() const { return static_cast<bool>(toNode(node_).first_child()); }

XmlElement XmlElement::appendChild(XmlElement child) {
    pugi::xml_node parent = toNode(node_), c = toNode(child.node_);
    if (!parent || !c) throw Failure(err::kObjectNotSet, "XML: no element to append");
    if (parent.root() == c.root()) {
        pugi::xml_node moved = parent.append_move(c);
        if (!moved) throw Failure(err::kInvalidCall, "XML: an element cannot be appended inside itself");
        return XmlElement(fromNode(moved));
    }
    pugi::xml_node copy = parent.append_copy(c);
    c.parent().remove_child(c);
    return XmlElement(fromNode(copy));
}

// ---- XmlDocument --------------------------------------------------------------------

XmlDocument::XmlDocument() : impl_(std::make_unique<Impl>()) {}
XmlDocument::~XmlDocument() = default;

bool XmlDocument::load(const std::string& path) {
    pugi::xml_parse_result r = impl_->doc.load_file(nativePath(path).c_str(), kParse);
    if (!r || !impl_->doc.document_element()) {
        impl_->doc.reset();
        return false;
    }
    return true;
}

bool XmlDocument::loadText(const std::string& text) {
    pugi::xml_parse_result r = impl_->doc.load_string(text.c_str(), kParse);
    if (!r || !impl_->doc.document_element()) {
        impl_->doc.reset();
        return false;
    }
    return true;
}

void XmlDocument::save(const std::string& path) const {
    errno = 0;
    if (!impl_->doc.save_file(nativePath(path).c_str(), "\t", kFormat, pugi::encoding_utf8))
        throw fileFailure(path, errno ? errno : EACCES, true);
}

std::string XmlDocument::toString() const {
    std::ostringstream out;
    impl_->doc.save(out, "\t", kFormat, pugi::encoding_utf8);
    return out.str();
}

XmlElement XmlDocument::createElement(const std::string& name) {
    return XmlElement(fromNode(impl_->scratch.append_child(name.c_str())));
}

void XmlDocument::appendProcessingInstruction(const std::string& target, const std::string& data) {
    pugi::xml_node pi = impl_->doc.append_child(target == "xml" ? pugi::node_declaration : pugi::node_pi);
    if (target == "xml") {
        // The declaration's text is kept as attributes by the library.
        std::string rest = data;
        while (!rest.empty()) {
            size_t eq = rest.find('=');
            if (eq == std::string::npos || eq + 1 >= rest.size()) break;
            std::string name = rest.substr(0, eq);
            while (!name.empty() && name.front() == ' ') name.erase(0, 1);
            char quote = rest[eq + 1];
            size_t end = rest.find(quote, eq + 2);
            if (end == std::string::npos) break;
            pi.append_attribute(name.c_str()).set_value(rest.substr(eq + 2, end - eq - 2).c_str());
            rest = rest.substr(end + 1);
        }
    } else {
        pi.set_name(target.c_str());
        pi.set_value(data.c_str());
    }
}

XmlElement XmlDocument::documentElement() const { return XmlElement(fromNode(impl_->doc.document_element())); }

void XmlDocument::setDocumentElement(XmlElement element) {
    pugi::xml_node old = impl_->doc.document_element();
    XmlElement root(fromNode(impl_->doc));
    XmlElement placed = root.appendChild(element);
    if (old && old != toNode(placed.node_)) impl_->doc.remove_child(old);
}

std::vector<XmlElement> XmlDocument::select(const std::string& path) const {
    return selectFrom(impl_->doc, path);
}

} // namespace tarnvale::platform
