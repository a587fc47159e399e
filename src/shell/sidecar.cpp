// The sidecar config document: friendly name and model GUID kept beside the model.
#include "shell/shell.h"

#include <cstdio>

namespace tarnvale::shell {

std::string sidecarPath(const std::string& exportFileName) {
    size_t dot = exportFileName.rfind('.');
    std::string head = dot == std::string::npos ? std::string() : exportFileName.substr(0, dot + 1);
    return head + "config";
}

std::string guidText(const platform::Guid& g) {
    char buf[40];
    std::snprintf(buf, sizeof buf, "%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X", g.data1, g.data2,
                  g.data3, g.data4[0], g.data4[1], g.data4[2], g.data4[3], g.data4[4], g.data4[5], g.data4[6],
                  g.data4[7]);
    return buf;
}

XmlElement Tarnvale::configDocumentOpen(const std::string& path) {
    xmlConfig = std::make_shared<XmlDocument>();
    if (xmlConfig->load(path)) return xmlConfig->documentElement();
    // Missing or unreadable: a new document, which replaces the file when saved.
    xmlConfig->appendProcessingInstruction("xml", "version=\"1.0\"");
    xmlConfig->setDocumentElement(xmlConfig->createElement("TarnvaleConfig"));
    XmlElement root = xmlConfig->documentElement();
    root.setAttribute("version", "1.0");
    return root;
}

namespace {

XmlElement appendTextElement(XmlDocument& doc, XmlElement parent, const std::string& name,
                             const std::string& text) {
    XmlElement e = parent.appendChild(doc.createElement(name));
    e.setText(text);
    return e;
}

} // namespace

std::string Tarnvale::friendlyNameGet(const SGObjectPtr& group) {
    if (XmlElement e = xmlConfigRoot.child("FriendlyName")) return e.text();
    std::string name = group->GetName();
    appendTextElement(*xmlConfig, xmlConfigRoot, "FriendlyName", name);
    return name;
}

std::string Tarnvale::modelGuidGet() {
    if (XmlElement e = xmlConfigRoot.child("GUID")) return e.text();
    platform::Guid guid;
    std::string text = sys_.guids.create(guid) ? guidText(guid) : std::string();
    appendTextElement(*xmlConfig, xmlConfigRoot, "GUID", text);
    return text;
}

} // namespace tarnvale::shell
