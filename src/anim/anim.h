// Animation export: the XANIM document, the keyframe walk and the match of parts
// to the model definition's animations.
#pragma once

#include "host/host.h"
#include "platform/xml.h"

#include <memory>
#include <string>
#include <vector>

namespace tarnvale::anim {

// The last key time the walk asks a node for.
inline constexpr int32_t kKeyTimeLimit = 999999;
// A node with more keys than this is an animated part of the XANIM file.
inline constexpr size_t kMinKeys = 2;

using platform::XmlDocument;
using platform::XmlElement;

// The fields of the main class that the animation export reads and writes.
struct XAnimContext {
    std::shared_ptr<XmlDocument>& xmlAnim;
    std::vector<XmlElement>& nlAnimations;
    bool& bHasAnimation;
    int32_t& lKeyTimeLimit;
};

// A quaternion: x, y, z, w.
struct Quat {
    float x = 0, y = 0, z = 0, w = 0;
};

// The Hamilton product a times b, each component evaluated in double precision in
// a fixed order of terms and rounded to a 32-bit float once. Not normalised.
Quat pQuatMultiply(const Quat& a, const Quat& b);

// The leading number of a text, with "." as the point; 0 when it starts with none.
float leadingNumber(const std::string& text);

// The XANIM file of an export file: the name with "anim" added ("plane.x" ->
// "plane.xanim").
std::string xanimPath(const std::string& exportFileName);

class XAnimExporter {
  public:
    explicit XAnimExporter(XAnimContext& fields) : f_(fields) {}

    // Builds the XANIM document of the group and saves it beside the export file
    // when at least one animation came out; then sets bHasAnimation.
    void pExportXAnim(std::string& strOutputFile, SGObjectPtr& cgExportGroup);

    // The walk: the object's own animation, then its children, depth first.
    void pExportAnimObject(XmlElement root, const SGObjectPtr& object);
    // The model definition's Animation node whose name is the longest prefix of
    // partName (ignoring case), else a "NonRandomAmbient" node; empty when none.
    XmlElement pFindAnimationDef(const std::string& partName);
    // The Anim element under root whose name occurs in the definition's name, or a
    // new detached one filled from the definition's attributes.
    XmlElement pGetAnim(XmlElement definition, XmlElement root);
    // A detached AnimStream: id 0 is "Rotation", any other "Position".
    XmlElement pNewAnimStream(int32_t id, const std::string& partName);
    // Appends the stream to anim, with its length, unless all its data are equal.
    void pAttachStream(XmlElement anim, XmlElement stream, float length);

  private:
    void exportOwnAnimation(XmlElement root, const SGObjectPtr& object, const std::vector<KeyRecord>& keys);

    XAnimContext& f_;
};

} // namespace tarnvale::anim
