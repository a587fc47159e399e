// pExportXAnim: the document around the walk, saved only when it holds an Anim.
#include "anim/anim.h"

namespace tarnvale::anim {

std::string xanimPath(const std::string& exportFileName) {
    return exportFileName + "anim";
}

void XAnimExporter::pExportXAnim(std::string& strOutputFile, SGObjectPtr& cgExportGroup) {
    if (!cgExportGroup) throw Failure(err::kObjectNotSet, "Object variable not set: no export group");
    f_.xmlAnim = std::make_shared<XmlDocument>(platform::XmlStorage::compact);
    XmlDocument& doc = *f_.xmlAnim;
    doc.appendProcessingInstruction("xml", "version=\"1.0\"");
    XmlElement root = doc.createElement("AnimLib");
    doc.setDocumentElement(root);
    root = doc.documentElement();
    root.setAttribute("version", "9.1");
    pExportAnimObject(root, cgExportGroup);
    if (root.hasChildren()) {
        doc.save(xanimPath(strOutputFile), true);
        f_.bHasAnimation = true;
    }
}

} // namespace tarnvale::anim
