// Which animation of the model definition a part belongs to, and its Anim element.
#include "anim/anim.h"

#include <strings.h>

namespace tarnvale::anim {

namespace {

std::string requiredName(const XmlElement& definition) {
    std::optional<std::string> name = definition.attribute("name");
    if (!name) throw Failure(94, "Invalid use of Null: an Animation node has no name");
    return *name;
}

// Characters of a UTF-8 text.
size_t characters(const std::string& s) {
    size_t n = 0;
    for (unsigned char c : s)
        if ((c & 0xC0) != 0x80) ++n;
    return n;
}

// The first n characters of a UTF-8 text.
std::string leftChars(const std::string& s, size_t n) {
    size_t i = 0, seen = 0;
    while (i < s.size()) {
        if ((static_cast<unsigned char>(s[i]) & 0xC0) != 0x80) {
            if (seen == n) break;
            ++seen;
        }
        ++i;
    }
    return s.substr(0, i);
}

bool equalNoCase(const std::string& a, const std::string& b) {
    return a.size() == b.size() && strncasecmp(a.data(), b.data(), a.size()) == 0;
}

bool containsNoCase(const std::string& hay, const std::string& needle) {
    if (needle.empty()) return true; // an empty text is found at the start of any
    for (size_t i = 0; i + needle.size() <= hay.size(); ++i)
        if (strncasecmp(hay.data() + i, needle.data(), needle.size()) == 0) return true;
    return false;
}

} // namespace

XmlElement XAnimExporter::pFindAnimationDef(const std::string& partName) {
    XmlElement best;
    size_t bestLength = 0;
    for (const XmlElement& node : f_.nlAnimations) {
        const std::string name = requiredName(node);
        const size_t n = characters(name);
        if (n <= bestLength) continue;
        if (equalNoCase(name, leftChars(partName, n))) {
            best = node;
            bestLength = n;
        } else if (name == "NonRandomAmbient" && bestLength == 0) {
            best = node; // the fallback; any real match replaces it
        }
    }
    return best;
}

XmlElement XAnimExporter::pGetAnim(XmlElement definition, XmlElement root) {
    if (!definition) throw Failure(err::kObjectNotSet, "Object variable not set: no animation definition");
    const std::string D = requiredName(definition);
    for (const XmlElement& e : root.childElements())
        if (e.name() == "Anim" && containsNoCase(D, e.attribute("name").value_or(""))) return e;

    XmlElement anim = f_.xmlAnim->createElement("Anim");
    anim.setAttribute("name", D);
    anim.setAttribute("guid", "");
    if (auto v = definition.attribute("guid")) anim.setAttribute("guid", *v);
    anim.setAttribute("type", "Standard");
    if (auto v = definition.attribute("type")) anim.setAttribute("type", *v);
    anim.setAttribute("typeParam", "AutoPlay");
    if (auto v = definition.attribute("typeParam")) anim.setAttribute("typeParam", *v);
    if (auto v = definition.attribute("typeparam"); v && !v->empty()) anim.setAttribute("typeParam", *v);
    anim.setAttribute("typeParam2", "");
    if (auto v = definition.attribute("typeParam2")) anim.setAttribute("typeParam2", *v);
    if (auto v = definition.attribute("typeparam2"); v && !v->empty()) anim.setAttribute("typeParam2", *v);
    anim.setAttribute("length", "0");
    if (auto v = definition.attribute("length")) anim.setAttribute("length", *v);
    return anim;
}

} // namespace tarnvale::anim
