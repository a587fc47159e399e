#include "platform/xml.h"
#include "support.h"
#include "xml_cases.h"

namespace tarnvale::platform {
namespace {

TEST(Xml, ElementsMoveAndSaveWithoutAddedWhitespace) {
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
    root.appendChild(anim);
    XmlElement b = root.appendChild(doc.createElement("b"));
    root.appendChild(anim); // an attached element moves to the end
    EXPECT_THROW(b.appendChild(root), Failure);
    EXPECT_EQ(doc.toString(), "<?xml version=\"1.0\"?>\n<AnimLib version=\"9.1\"><b/><Anim name=\"wheel\">"
                              "<AnimStream length=\"100\"><Keyframe time=\"0.00\"/></AnimStream></Anim></AnimLib>\n");
}

TEST(Xml, NotWellFormedIsAFailedLoad) {
    test::TempDir d;
    XmlDocument doc;
    EXPECT_FALSE(doc.load(d.file("missing.xml")));
    for (const test::XmlDefect& defect : test::kXmlDefects) {
        test::writeFile(d.file("bad.xml"), defect.apply("<ModelInfo><Animation name=\"a\"/></ModelInfo>"));
        EXPECT_FALSE(doc.load(d.file("bad.xml"))) << defect.what;
        EXPECT_FALSE(doc.documentElement()) << defect.what;
        EXPECT_TRUE(doc.select("ModelInfo/Animation").empty()) << defect.what;
    }
}

TEST(Xml, TrickyButWellFormedDocuments) {
    test::TempDir d;
    test::writeFile(d.file("secret.txt"), "secret");
    const std::string text =
        "<!DOCTYPE r [<!ENTITY e \"E\"><!ENTITY x SYSTEM \"" + d.file("secret.txt") + "\">]>"
        "<r><?FriendlyName not this?><FriendlyName a=\"&e;\">a<!--c-->b<![CDATA[<c>]]>&amp;&e;</FriendlyName>"
        "<Secret>&x;</Secret><ModelInfo/></r>";
    test::writeFile(d.file("t.xml"), text);
    XmlDocument doc;
    ASSERT_TRUE(doc.load(d.file("t.xml")));
    XmlElement root = doc.documentElement();
    XmlElement name = root.child("FriendlyName");
    ASSERT_TRUE(name); // the element, not the processing instruction of that name
    EXPECT_EQ(name.text(), "ab<c>&E");
    EXPECT_EQ(name.attribute("a").value_or(""), "E");
    EXPECT_EQ(root.child("Secret").text().find("secret"), std::string::npos);
    EXPECT_TRUE(doc.select("ModelInfo").empty()); // paths start at the document
    EXPECT_EQ(root.select("ModelInfo").size(), 1u);
    name.setText("n&m<");
    EXPECT_EQ(name.text(), "n&m<");
    EXPECT_NE(doc.toString().find("<FriendlyName a=\"&e;\">n&amp;m&lt;</FriendlyName>"), std::string::npos);
}

TEST(Xml, DocumentsKeepTheEncodingTheyDeclare) {
    test::TempDir d;
    struct Row {
        const char* what;
        std::string bytes;
        std::string savedStarts; // what the saved file begins with
        std::string savedHolds;  // the new name as it is saved
    };
    const std::string utf16 = [] {
        std::string s = "\xFF\xFE";
        for (char c : std::string("<?xml version=\"1.0\" encoding=\"UTF-16\"?><c><n>\xE9</n></c>")) s += c, s += '\0';
        return s;
    }();
    const Row rows[] = {
        {"Windows-1252", "<?xml version=\"1.0\" encoding=\"windows-1252\"?><c><n>\xE9</n></c>",
         "<?xml version=\"1.0\" encoding=\"windows-1252\"?>", "<n>\xC0\xE9</n>"},
        {"UTF-16 with its mark", utf16, "\xFF\xFE<\0", std::string("<\0n\0>\0\xC0\0\xE9\0<\0", 10)},
        {"UTF-8", "<c><n>\xC3\xA9</n></c>", "<?xml version=\"1.0\"?>", "<n>\xC3\x80\xC3\xA9</n>"},
    };
    for (const Row& r : rows) {
        test::writeFile(d.file("e.xml"), r.bytes);
        XmlDocument doc;
        ASSERT_TRUE(doc.load(d.file("e.xml"))) << r.what;
        XmlElement n = doc.documentElement().child("n");
        EXPECT_EQ(n.text(), "\xC3\xA9") << r.what; // é, as the program holds text
        n.setText("\xC3\x80\xC3\xA9");          // Àé
        doc.save(d.file("s.xml"));
        const std::string saved = test::readFile(d.file("s.xml"));
        EXPECT_EQ(saved.rfind(r.savedStarts, 0), 0u) << r.what;
        EXPECT_NE(saved.find(r.savedHolds), std::string::npos) << r.what;
    }
}

} // namespace
} // namespace tarnvale::platform
