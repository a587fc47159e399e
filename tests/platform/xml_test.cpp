#include "platform/xml.h"
#include "support.h"

namespace tarnvale::platform {
namespace {

TEST(Xml, DetachedElementsAttachWithTheirChildren) {
    XmlDocument doc;
    doc.appendProcessingInstruction("xml", "version=\"1.0\"");
    doc.setDocumentElement(doc.createElement("AnimLib"));
    XmlElement root = doc.documentElement();
    root.setAttribute("version", "9.1");
    XmlElement anim = doc.createElement("Anim");
    anim.setAttribute("name", "wheel");
    XmlElement stream = doc.createElement("AnimStream");
    stream.appendChild(doc.createElement("Keyframe")).setAttribute("time", "0.00");
    stream = anim.appendChild(stream);
    stream.setAttribute("length", "100");
    anim = root.appendChild(anim);
    EXPECT_EQ(doc.toString(), "<?xml version=\"1.0\"?>\n<AnimLib version=\"9.1\">\n\t<Anim name=\"wheel\">\n"
                              "\t\t<AnimStream length=\"100\">\n\t\t\t<Keyframe time=\"0.00\" />\n"
                              "\t\t</AnimStream>\n\t</Anim>\n</AnimLib>\n");
}

TEST(Xml, AppendingAnAttachedElementMovesItToTheEnd) {
    XmlDocument doc;
    doc.setDocumentElement(doc.createElement("r"));
    XmlElement r = doc.documentElement();
    XmlElement a = r.appendChild(doc.createElement("a"));
    r.appendChild(doc.createElement("b"));
    r.appendChild(a);
    auto kids = r.childElements();
    ASSERT_EQ(kids.size(), 2u);
    EXPECT_EQ(kids[0].name(), "b");
    EXPECT_EQ(kids[1].name(), "a");
}

TEST(Xml, LoadResultsAndSelection) {
    test::TempDir d;
    XmlDocument doc;
    EXPECT_FALSE(doc.load(d.file("missing.xml")));
    test::writeFile(d.file("bad.xml"), "<ModelInfo><Animation name=\"x\"></ModelInfo>");
    EXPECT_FALSE(doc.load(d.file("bad.xml")));
    EXPECT_FALSE(doc.documentElement());
    test::writeFile(d.file("m.xml"),
                    "<ModelInfo><Animation name=\"a\"/><Other/><Animation name=\"b\"/></ModelInfo>");
    ASSERT_TRUE(doc.load(d.file("m.xml")));
    auto nodes = doc.select("ModelInfo/Animation");
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_EQ(nodes[1].attribute("name").value_or(""), "b");
    EXPECT_FALSE(nodes[0].attribute("guid").has_value());
}

TEST(Xml, ExternalEntitiesAreNotResolved) {
    test::TempDir d;
    test::writeFile(d.file("secret.txt"), "secret");
    test::writeFile(d.file("e.xml"), "<!DOCTYPE r [<!ENTITY x SYSTEM \"" + d.file("secret.txt") +
                                         "\">]><r><FriendlyName>&x;</FriendlyName></r>");
    XmlDocument doc;
    doc.load(d.file("e.xml"));
    if (doc.documentElement()) {
        EXPECT_NE(doc.documentElement().child("FriendlyName").text(), "secret");
    }
}

} // namespace
} // namespace tarnvale::platform
