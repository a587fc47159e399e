#include "platform/xml.h"
#include "support.h"
#include "xml_cases.h"

namespace tarnvale::platform {
namespace {

TEST(Xml, NotWellFormedIsAFailedLoad) {
    test::TempDir d;
    XmlDocument doc;
    EXPECT_FALSE(doc.load(d.file("missing.xml")));
    testing::internal::CaptureStderr(); // the library's own messages stay unprinted
    for (const test::XmlDefect& defect : test::kXmlDefects) {
        test::writeFile(d.file("bad.xml"), defect.apply("<ModelInfo><Animation name=\"a\"/></ModelInfo>"));
        EXPECT_FALSE(doc.load(d.file("bad.xml"))) << defect.what;
        EXPECT_FALSE(doc.documentElement()) << defect.what;
        EXPECT_TRUE(doc.select("ModelInfo/Animation").empty()) << defect.what;
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

TEST(Xml, TrickyButWellFormedDocuments) {
    test::TempDir d;
    test::writeFile(d.file("secret.txt"), "secret");
    const std::string text =
        "<!DOCTYPE r [<!ENTITY e \"E\"><!ENTITY x SYSTEM \"" + d.file("secret.txt") +
        "\">]>"
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
        for (char c : std::string("<?xml version=\"1.0\" encoding=\"UTF-16\"?><c><n>\xE9</n></c>"))
            s += c, s += '\0';
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
        n.setText("\xC3\x80\xC3\xA9");             // Àé
        doc.save(d.file("s.xml"));
        const std::string saved = test::readFile(d.file("s.xml"));
        EXPECT_EQ(saved.rfind(r.savedStarts, 0), 0u) << r.what;
        EXPECT_NE(saved.find(r.savedHolds), std::string::npos) << r.what;
    }
}

// The compact storage answers and saves exactly as the library's tree does: the
// same steps on a document of each kind, compared at every read and byte for byte.
TEST(Xml, CompactDocumentsReadAndSaveAsTheLibrarysDo) {
    struct Row {
        const char* what;
        std::string load; // the document loaded first, if any
        std::function<void(XmlDocument&)> steps;
        std::string text = ""; // what toString gives, where the row says
    };
    auto begin = [](XmlDocument& doc, const std::string& root) {
        doc.appendProcessingInstruction("xml", "version=\"1.0\"");
        XmlElement r = doc.createElement(root);
        doc.setDocumentElement(r);
        return doc.documentElement();
    };
    const Row rows[] = {
        {"escapes, order, moves and overwrites", "",
         [&](XmlDocument& doc) {
             XmlElement r = begin(doc, "AnimLib");
             r.setAttribute("version", "9.1");
             XmlElement a = doc.createElement("Anim");
             a.setAttribute("name", "a&b<c>\"d'\n\r\t\xC3\xA9\xE2\x82\xAC");
             a.setAttribute("guid", "");
             XmlElement s = doc.createElement("AnimStream");
             s.appendChild(doc.createElement("Keyframe")).setAttribute("time", "0.00");
             s = a.appendChild(s);
             s.setAttribute("length", "100");
             a.setAttribute("guid", "again");
             r.appendChild(a);
             XmlElement b = r.appendChild(doc.createElement("b"));
             r.appendChild(a); // an attached element moves to the end
             EXPECT_THROW(b.appendChild(r), Failure);
             EXPECT_EQ(r.childElements().size(), 2u);
             EXPECT_EQ(r.childElements()[0], b);
         },
         "<?xml version=\"1.0\"?>\n<AnimLib version=\"9.1\"><b/><Anim "
         "name=\"a&amp;b&lt;c&gt;&quot;d'&#10;&#13;&#9;\xC3\xA9\xE2\x82\xAC\" guid=\"again\"><AnimStream "
         "length=\"100\"><Keyframe time=\"0.00\"/></AnimStream></Anim></AnimLib>\n"},
        {"deeper than the indentation goes", "",
         [&](XmlDocument& doc) {
             XmlElement e = begin(doc, "d0");
             for (int i = 1; i < 40; ++i)
                 e = e.appendChild(doc.createElement("d" + std::to_string(i)));
             e.setAttribute("at", "bottom");
         }},
        {"text, which the library writes", "",
         [&](XmlDocument& doc) {
             XmlElement r = begin(doc, "r");
             r.appendChild(doc.createElement("t")).setText("x < y & \r z");
             r.appendChild(doc.createElement("e"));
             EXPECT_EQ(r.text(), "x < y & \r z");
         }},
        {"an encoding declared", "",
         [&](XmlDocument& doc) {
             doc.appendProcessingInstruction("xml", "version=\"1.0\" encoding=\"windows-1252\"");
             doc.setDocumentElement(doc.createElement("r"));
             doc.documentElement().setAttribute("n", "\xC3\xA9\xC4\x81");
         }},
        {"a processing instruction", "",
         [&](XmlDocument& doc) {
             doc.appendProcessingInstruction("keep", "this");
             begin(doc, "r").appendChild(doc.createElement("c"));
         }},
        {"no root", "", [](XmlDocument&) {}},
        {"a document loaded and changed",
         "<ModelInfo a=\"1\"><Animation name=\"x\">t<![CDATA[<c>]]><i/></Animation><Animation/></ModelInfo>",
         [](XmlDocument& doc) {
             std::vector<XmlElement> found = doc.select("ModelInfo/Animation");
             ASSERT_EQ(found.size(), 2u);
             EXPECT_EQ(found[0].text(), "t<c>");
             EXPECT_EQ(found[0].attribute("name").value_or("?"), "x");
             EXPECT_FALSE(found[1].attribute("name"));
             EXPECT_TRUE(found[0].child("i"));
             EXPECT_FALSE(found[0].child("t"));
             EXPECT_EQ(doc.documentElement().select("Animation/i").size(), 1u);
             found[0].setText("new");
             found[1].appendChild(doc.createElement("added"));
         }},
    };
    for (const Row& r : rows) {
        test::TempDir d;
        std::string texts[2], files[2];
        const XmlStorage storages[] = {XmlStorage::library, XmlStorage::compact};
        for (int k = 0; k < 2; ++k) {
            XmlDocument doc(storages[k]);
            if (!r.load.empty()) {
                ASSERT_TRUE(doc.loadText(r.load)) << r.what;
            }
            r.steps(doc);
            texts[k] = doc.toString();
            doc.save(d.file("s.xml"), true);
            files[k] = test::readFile(d.file("s.xml"));
        }
        if (!r.text.empty()) {
            EXPECT_EQ(texts[0], r.text) << r.what;
        }
        EXPECT_EQ(texts[1], texts[0]) << r.what;
        EXPECT_EQ(files[1], files[0]) << r.what;
    }
}

} // namespace
} // namespace tarnvale::platform
