// Part data read into its elements and written back, through the XML layer.
#include "partdata/partdata.h"

#include "platform/names.h"
#include "platform/text.h"
#include "platform/xml.h"

#include <algorithm>
#include <cctype>
#include <initializer_list>
#include <stdexcept>
#include <string_view>

namespace tarnvale::partdata {

namespace {

using platform::XmlDocument;
using platform::XmlElement;

constexpr const char* kRoot = "FSMakeMdlData";

struct KindTag {
    Kind kind;
    const char* tag;  // as the compiler spells the element
    const char* name; // as the command and the reports spell the kind
};
constexpr KindTag kKinds[] = {
    {Kind::visibility, "Visibility", "visibility"},
    {Kind::mouseRect, "MouseRect", "mouse-rect"},
    {Kind::attachPoint, "Attachpoint", "attach-point"},
    {Kind::platform, "Platform", "platform"},
    {Kind::noCrash, "NoCrash", "no-crash"},
    {Kind::other, "", "other"},
};

std::string attr(const XmlElement& e, const char* name) {
    return e.attribute(name).value_or("");
}

bool blank(const std::string& s) {
    return std::all_of(s.begin(), s.end(), [](unsigned char c) { return std::isspace(c); });
}

bool onlyAttributes(const XmlElement& e, std::initializer_list<std::string> allowed) {
    const auto names = e.attributeNames();
    return std::all_of(names.begin(), names.end(), [&](const std::string& a) {
        return std::find(allowed.begin(), allowed.end(), a) != allowed.end();
    });
}

// Holds only attributes of these names and nothing but blanks inside.
bool plain(const XmlElement& e, std::initializer_list<std::string> allowed) {
    return onlyAttributes(e, allowed) && e.childElements().empty() && blank(e.text());
}

// Reads an attach point's object; whether the point holds no more than that.
bool readAttached(const XmlElement& point, Element& out) {
    const XmlElement holder = point.child("AttachedObject");
    if (!holder) return point.childElements().empty(); // nothing attached yet
    const auto objects = holder.childElements();
    for (const XmlElement& o : objects) {
        if (o.name() == "Effect") {
            out.attached = Attached::effect;
            out.effectName = attr(o, "effectName"), out.effectParams = attr(o, "effectParams");
        } else if (o.name() == "LibraryObject") {
            out.attached = Attached::libraryObject;
            out.objectGuid = attr(o, "name"), out.objectScale = attr(o, "scale");
        } else {
            continue;
        }
        const bool effect = out.attached == Attached::effect;
        return point.childElements().size() == 1 && objects.size() == 1 && onlyAttributes(holder, {}) &&
               (effect ? plain(o, {"effectName", "effectParams"}) : plain(o, {"name", "scale"}));
    }
    return false;
}

Element readElement(const XmlElement& e) {
    Element out;
    const std::string tag = e.name();
    for (const KindTag& k : kKinds)
        if (tag == k.tag) out.kind = k.kind;
    out.name = attr(e, "name");
    bool known = false;
    switch (out.kind) {
    case Kind::visibility:
    case Kind::mouseRect:
        known = plain(e, {"name"});
        break;
    case Kind::attachPoint:
        known = readAttached(e, out) && onlyAttributes(e, {"name"}) && blank(e.text());
        break;
    case Kind::platform:
        out.surface = attr(e, "surfaceType");
        known = plain(e, {"name", "surfaceType"});
        break;
    case Kind::noCrash:
        known = plain(e, {});
        break;
    case Kind::other:
        break;
    }
    // A comment or processing instruction inside is the modeller's too.
    std::string xml = e.outerXml();
    if (!known || xml.find("<!--") != std::string::npos || xml.find("<?") != std::string::npos)
        out.xml = std::move(xml);
    return out;
}

const char* tagOf(Kind kind) {
    for (const KindTag& k : kKinds)
        if (k.kind == kind) return k.tag;
    return "";
}

XmlElement makeElement(XmlDocument& doc, const Element& e) {
    if (!e.xml.empty()) {
        XmlDocument kept;
        if (!kept.loadText(e.xml)) throw std::invalid_argument("a kept element is not well-formed XML");
        return doc.importCopy(kept.documentElement());
    }
    if (e.kind == Kind::other) throw std::invalid_argument("an element of no known kind has no text");
    XmlElement out = doc.createElement(tagOf(e.kind));
    if (e.kind == Kind::noCrash) return out;
    out.setAttribute("name", e.name);
    if (e.kind == Kind::platform) out.setAttribute("surfaceType", e.surface);
    if (e.kind != Kind::attachPoint || e.attached == Attached::none) {
        out.setText(" "); // the compiler's own examples keep a blank inside
        return out;
    }
    XmlElement holder = out.appendChild(doc.createElement("AttachedObject"));
    const bool effect = e.attached == Attached::effect;
    XmlElement object = holder.appendChild(doc.createElement(effect ? "Effect" : "LibraryObject"));
    object.setAttribute(effect ? "effectName" : "name", effect ? e.effectName : e.objectGuid);
    const std::string& more = effect ? e.effectParams : e.objectScale;
    if (!more.empty()) object.setAttribute(effect ? "effectParams" : "scale", more);
    return out;
}

} // namespace

const Element* PartData::find(Kind kind) const {
    for (const Element& e : elements)
        if (e.kind == kind) return &e;
    return nullptr;
}

void PartData::set(Element e) {
    auto first =
        std::find_if(elements.begin(), elements.end(), [&](const Element& x) { return x.kind == e.kind; });
    if (first == elements.end()) return elements.push_back(std::move(e));
    *first = std::move(e);
    const Kind kind = first->kind;
    elements.erase(
        std::remove_if(first + 1, elements.end(), [kind](const Element& x) { return x.kind == kind; }),
        elements.end());
}

bool PartData::remove(Kind kind) {
    const size_t before = elements.size();
    elements.erase(
        std::remove_if(elements.begin(), elements.end(), [kind](const Element& x) { return x.kind == kind; }),
        elements.end());
    return elements.size() != before;
}

std::string Unreadable::reason() const {
    return wellFormed ? "its root is " + root + ", and the compiler reads only " + kRoot
                      : std::string("it is not well-formed XML");
}

std::optional<PartData> parse(const std::string& text, Unreadable* why) {
    PartData out;
    if (blank(text)) return out;
    XmlDocument doc;
    // The compiler gets the text's bytes in the code page, as the X file holds them.
    if (!doc.loadText(platform::toWindows1252(text))) {
        if (why) *why = Unreadable{};
        return std::nullopt;
    }
    const XmlElement root = doc.documentElement();
    if (root.name() != kRoot) {
        if (why) *why = Unreadable{true, root.name()};
        return std::nullopt;
    }
    out.version = root.attribute("version");
    for (const std::string& a : root.attributeNames())
        if (a != "version") out.rootAttributes.emplace_back(a, attr(root, a.c_str()));
    for (const XmlElement& e : root.childElements())
        out.elements.push_back(readElement(e));
    return out;
}

std::string write(const PartData& data) {
    XmlDocument doc;
    doc.appendProcessingInstruction("xml", "version=\"1.0\" encoding=\"ISO-8859-1\"");
    XmlElement root = doc.createElement(kRoot);
    if (data.version) root.setAttribute("version", *data.version);
    for (const auto& [name, value] : data.rootAttributes)
        root.setAttribute(name, value);
    for (const Element& e : data.elements)
        root.appendChild(makeElement(doc, e));
    doc.setDocumentElement(root);
    std::string text = platform::fromWindows1252(doc.toString(true));
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.pop_back();
    // A character beyond the code page stands as a reference, which a name cannot hold.
    if (!XmlDocument().loadText(platform::toWindows1252(text)))
        throw std::invalid_argument(
            "a name in it holds a character that ISO-8859-1 lacks, so the compiler could "
            "not read it: rename the element or attribute");
    return text;
}

const char* kindName(Kind kind) {
    for (const KindTag& k : kKinds)
        if (k.kind == kind) return k.name;
    return "other";
}

std::optional<Kind> kindNamed(const std::string& name) {
    for (const KindTag& k : kKinds)
        if (name == k.name) return k.kind;
    return std::nullopt;
}

const std::vector<std::string>& surfaceTypes() {
    static const std::vector<std::string> types = {
        "ASPHALT",    "BITUMINOUS", "BRICK",      "CONCRETE",    "CORAL",
        "DIRT",       "FOREST",     "GRASS",      "GRASS_BUMPY", "GRAVEL",
        "HARD_TURF",  "ICE",        "LONG_GRASS", "MACADAM",     "OIL_TREATED",
        "PLANKS",     "SAND",       "SHALE",      "SHORT_GRASS", "SNOW",
        "STEEL_MATS", "TARMAC",     "URBAN",      "WATER",       "WRIGHT_FLYER_TRACK"};
    return types;
}

std::vector<PartInfo> partInfos(const platform::XmlDocument& modelDef) {
    std::vector<PartInfo> out;
    for (const XmlElement& e : modelDef.select("ModelInfo/PartInfo")) {
        PartInfo p;
        const XmlElement name = e.child("Name");
        p.name = name ? name.text() : std::string();
        p.name.erase(0, p.name.find_first_not_of(" \t\r\n"));
        p.name.erase(p.name.find_last_not_of(" \t\r\n") + 1);
        p.animation = static_cast<bool>(e.child("Animation"));
        p.visibility = static_cast<bool>(e.child("Visibility"));
        p.visibleInRange = static_cast<bool>(e.child("VisibleInRange"));
        p.mouseRect = static_cast<bool>(e.child("MouseRect"));
        if (!p.name.empty()) out.push_back(std::move(p));
    }
    return out;
}

std::vector<std::string> partsFor(const std::vector<PartInfo>& parts, Kind kind) {
    std::vector<std::string> out;
    for (const PartInfo& p : parts)
        if (kind == Kind::visibility ? p.visibility || p.visibleInRange
                                     : kind == Kind::mouseRect && p.mouseRect)
            out.push_back(p.name);
    return out;
}

std::optional<std::string> withoutExtension(const std::string& effectName) {
    const size_t dot = effectName.rfind('.');
    if (dot == std::string::npos || dot + 1 == effectName.size()) return std::nullopt;
    return effectName.substr(0, dot);
}

std::vector<std::string> nearestNames(const std::string& name, const std::vector<std::string>& names,
                                      size_t count) {
    std::vector<std::pair<size_t, size_t>> ranked; // (edits, place)
    for (size_t i = 0; i < names.size(); ++i)
        ranked.emplace_back(platform::editDistance(platform::lowerCase(name), platform::lowerCase(names[i])),
                            i);
    std::stable_sort(ranked.begin(), ranked.end());
    std::vector<std::string> out;
    for (size_t i = 0; i < ranked.size() && out.size() < count; ++i)
        out.push_back(names[ranked[i].second]);
    return out;
}

bool isGuid(const std::string& text) {
    std::string_view s = text;
    if (s.size() >= 2 && s.front() == '{' && s.back() == '}') s = s.substr(1, s.size() - 2);
    if (s.size() != 36) return false;
    for (size_t i = 0; i < s.size(); ++i) {
        const bool dash = i == 8 || i == 13 || i == 18 || i == 23;
        if (dash ? s[i] != '-' : !std::isxdigit(static_cast<unsigned char>(s[i]))) return false;
    }
    return true;
}

} // namespace tarnvale::partdata
