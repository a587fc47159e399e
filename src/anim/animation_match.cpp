// Which animation of the model definition a part belongs to, and its Anim element.
#include "anim/anim.h"

#include "platform/platform.h"

namespace tarnvale::anim {

namespace {

std::string requiredName(const XmlElement& definition) {
    std::optional<std::string> name = definition.attribute("name");
    if (!name) throw Failure(94, "Invalid use of Null: an Animation node has no name");
    return *name;
}

} // namespace

XmlElement XAnimExporter::pFindAnimationDef(const std::string& partName) {
    XmlElement best;
    size_t bestLength = 0;
    for (const XmlElement& node : f_.nlAnimations) {
        const std::string name = requiredName(node);
        const size_t n = platform::characterCount(name);
        if (n <= bestLength) continue;
        // The first n characters of the part name against the name, ignoring case.
        if (platform::startsWithNoCase(partName, name)) {
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
        if (e.name() == "Anim" && platform::containsNoCase(D, e.attribute("name").value_or(""))) return e;

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
