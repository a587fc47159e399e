// pExportXAnim: the document around the walk, saved only when it holds an Anim.
#include "anim/anim.h"

namespace tarnvale::anim {

std::string xanimPath(const std::string& exportFileName) { return exportFileName + "anim"; }

void XAnimExporter::pExportXAnim(std::string& strOutputFile, SGObjectPtr& cgExportGroup) {
    f_.xmlAnim = std::make_shared<XmlDocument>();
    XmlDocument& doc = *f_.xmlAnim;
    doc.appendProcessingInstruction("xml", "version=\"1.0\"");
    XmlElement root = doc.createElement("AnimLib");
    doc.setDocumentElement(root);
    root = doc.documentElement();
    root.setAttribute("version", "9.1");
    pExportAnimObject(root, cgExportGroup);
    if (root.childCount() > 0) {
        doc.save(xanimPath(strOutputFile));
        f_.bHasAnimation = true;
    }
}

void XAnimExporter::pExportAnimObject(XmlElement root, const SGObjectPtr& object) {
    SGNodeListPtr children = object->GetChildren();
    int32_t count = children->GetCount();
    for (int32_t i = 0; i < count; ++i) pExportAnimObject(root, children->GetItem(i));
}

} // namespace tarnvale::anim
