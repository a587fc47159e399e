// pExportAnimObject: keyframes of each animated part into AnimStream elements.
#include "anim/anim.h"
#include "platform/names.h"
#include "platform/number_text.h"
#include "xfile/xfile.h"

#include <cmath>
#include <cstdlib>

namespace tarnvale::anim {

namespace {

std::string number(float v) {
    return platform::formatMask(v, 2, 6);
}

// A length as a 32-bit float is written: seven significant digits at most, no
// trailing zeros (100, 2.5, 4.166667).
std::string single(float v) {
    return platform::generalSingle(v, true);
}

float checked(double v) {
    if (!std::isfinite(v) || std::fabs(v) > 3.4028234663852886e38) throw Failure(err::kOverflow, "Overflow");
    return static_cast<float>(v);
}

} // namespace

Quat pQuatMultiply(const Quat& a, const Quat& b) {
    const double ax = a.x, ay = a.y, az = a.z, aw = a.w, bx = b.x, by = b.y, bz = b.z, bw = b.w;
    Quat r;
    r.x = checked(((ax * bw + bz * ay) - by * az) + aw * bx);
    r.y = checked(((-ax * bz + ay * bw) + bx * az) + aw * by);
    r.z = checked(((by * ax - bx * ay) + az * bw) + aw * bz);
    r.w = checked(((-ax * bx - by * ay) - az * bz) + aw * bw);
    return r;
}

float leadingNumber(const std::string& text) {
    size_t i = 0;
    while (i < text.size() && (text[i] == ' ' || text[i] == '\t'))
        ++i;
    size_t start = i;
    if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
    size_t digits = 0;
    while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])))
        ++i, ++digits;
    if (i < text.size() && text[i] == '.') {
        ++i;
        while (i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])))
            ++i, ++digits;
    }
    if (digits == 0) return 0;
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        size_t e = i + 1;
        if (e < text.size() && (text[e] == '+' || text[e] == '-')) ++e;
        if (e < text.size() && std::isdigit(static_cast<unsigned char>(text[e]))) {
            while (e < text.size() && std::isdigit(static_cast<unsigned char>(text[e])))
                ++e;
            i = e;
        }
    }
    std::string part = text.substr(start, i - start);
    double v = std::strtod(part.c_str(), nullptr);
    return checked(v);
}

XmlElement XAnimExporter::pNewAnimStream(int32_t id, const std::string& partName) {
    XmlElement stream = f_.xmlAnim->createElement("AnimStream");
    stream.setAttribute("id", platform::plainNumber(id));
    stream.setAttribute("name", id != 0 ? "Position" : "Rotation");
    stream.setAttribute("partName", partName);
    return stream;
}

void XAnimExporter::pAttachStream(XmlElement anim, XmlElement stream, float length) {
    // Compared as written: values that differ only beyond the written decimals are equal.
    std::vector<XmlElement> keys = stream.childElements();
    bool differs = false;
    const std::string first = keys.empty() ? std::string() : keys[0].attribute("data").value_or("");
    for (const XmlElement& k : keys)
        if (k.attribute("data").value_or("") != first) {
            differs = true;
            break;
        }
    if (!differs) return;
    XmlElement attached = anim.appendChild(stream);
    attached.setAttribute("length", single(length));
}

void XAnimExporter::pExportAnimObject(XmlElement root, const SGObjectPtr& object) {
    xfile::walkDepthFirst(
        object,
        [&](const SGObjectPtr& node, int32_t, size_t) {
            std::vector<KeyRecord> keys = node->GetKeyframes(0.0f, static_cast<float>(f_.lKeyTimeLimit));
            if (keys.size() > kMinKeys) exportOwnAnimation(root, node, keys);
        },
        [](const SGObjectPtr&) {});
}

void XAnimExporter::exportOwnAnimation(XmlElement root, const SGObjectPtr& object,
                                       const std::vector<KeyRecord>& keys) {
    const std::string partName = platform::pCleanName(object->GetName());
    XmlElement definition = pFindAnimationDef(partName);
    XmlElement anim = pGetAnim(definition, root);
    float L = leadingNumber(anim.attribute("length").value_or(""));
    const bool declared = L > 0;
    const Vec3 R = object->GetRelativePosition(object->GetParent(), 0);

    XmlElement position = pNewAnimStream(2, partName);
    XmlElement rotation = pNewAnimStream(0, partName);

    float T = 0, M = 999999.0f;
    Quat B;
    for (const KeyRecord& k : keys) {
        if (k.time > T) T = k.time;
        if (k.time < M && k.kind == 2) {
            B = {k.kx, k.ky, k.kz, k.kw};
            M = k.time;
        }
    }
    if (!declared) L = T;
    if (T == 0) throw Failure(err::kDivisionByZero, "Division by zero");

    for (const KeyRecord& k : keys) {
        XmlElement key = f_.xmlAnim->createElement("Keyframe");
        key.setAttribute("time", number(checked(static_cast<double>(L) * k.time / T)));
        std::string data;
        if (k.kind == 0) {
            key.setAttribute("type", "Vector");
            data = number(checked(double(k.kx) - R.x)) + ";" + number(checked(double(k.ky) - R.y)) + ";" +
                   number(checked(double(k.kz) - R.z)) + ";" + number(k.kw);
            key.setAttribute("data", data);
            position.appendChild(key);
        } else {
            key.setAttribute("type", "Quaternion");
            Quat q = pQuatMultiply(B, {-k.kx, -k.ky, -k.kz, k.kw});
            data = number(q.x) + ";" + number(q.y) + ";" + number(q.z) + ";" + number(q.w);
            key.setAttribute("data", data);
            rotation.appendChild(key);
        }
    }
    anim.setAttribute("length", single(L));
    if (rotation.hasChildren()) pAttachStream(anim, rotation, L);
    if (position.hasChildren()) pAttachStream(anim, position, L);
    if (anim.hasChildren()) root.appendChild(anim);
}

} // namespace tarnvale::anim
