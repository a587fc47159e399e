// Animation export: the XANIM document, the keyframe walk and the match of parts
// to the model definition's animations.
#pragma once

#include "host/host.h"
#include "platform/xml.h"

#include <memory>
#include <string>
#include <vector>

namespace tarnvale::anim {

using platform::XmlDocument;
using platform::XmlElement;

// The fields of the main class that the animation export reads and writes.
struct XAnimContext {
    std::shared_ptr<XmlDocument>& xmlAnim;
    std::vector<XmlElement>& nlAnimations;
    bool& bHasAnimation;
    int32_t& lKeyTimeLimit;
};

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

private:
    XAnimContext& f_;
};

} // namespace tarnvale::anim
