// XML that is not well-formed or that expands without bound, each made from a
// document that is: the table the XML layer, the sidecar, the model definition
// and fs10attach.xml are tried with.
#pragma once

#include <string>

namespace tarnvale::test {

struct XmlDefect {
    const char* what;
    const char* inside; // put before the root's closing tag
    const char* after;  // put behind the document
    const char* before; // put ahead of the document

    std::string apply(const std::string& document) const {
        const size_t close = document.rfind("</");
        return before + document.substr(0, close) + inside + document.substr(close) + after;
    }
};

inline const XmlDefect kXmlDefects[] = {
    {"two root elements", "", "<again/>", ""},
    {"a raw &", "<x>fish & chips</x>", "", ""},
    {"an undefined entity", "<x>&nope;</x>", "", ""},
    {"a duplicate attribute", "<x a=\"1\" a=\"2\"/>", "", ""},
    {"text after the root", "", "tail", ""},
    {"< in an attribute value", "<x a=\"<\"/>", "", ""},
    {"a control character", "<x>\x01</x>", "", ""},
    {"a second XML declaration", "", "", "<?xml version=\"1.0\"?>\n<?xml version=\"1.0\"?>\n"},
    {"an element left open", "<x>", "", ""},
    {"bytes its declared encoding cannot read", "", "", "<?xml version=\"1.0\" encoding=\"UTF-32\"?>"},
    {"a billion laughs", "<x a=\"&l9;\">&l9;</x>", "",
     "<!DOCTYPE r [<!ENTITY l0 \"lol\"><!ENTITY l1 \"&l0;&l0;&l0;&l0;&l0;&l0;&l0;&l0;&l0;&l0;\">"
     "<!ENTITY l2 \"&l1;&l1;&l1;&l1;&l1;&l1;&l1;&l1;&l1;&l1;\"><!ENTITY l3 "
     "\"&l2;&l2;&l2;&l2;&l2;&l2;&l2;&l2;&l2;&l2;\">"
     "<!ENTITY l4 \"&l3;&l3;&l3;&l3;&l3;&l3;&l3;&l3;&l3;&l3;\"><!ENTITY l5 "
     "\"&l4;&l4;&l4;&l4;&l4;&l4;&l4;&l4;&l4;&l4;\">"
     "<!ENTITY l6 \"&l5;&l5;&l5;&l5;&l5;&l5;&l5;&l5;&l5;&l5;\"><!ENTITY l7 "
     "\"&l6;&l6;&l6;&l6;&l6;&l6;&l6;&l6;&l6;&l6;\">"
     "<!ENTITY l8 \"&l7;&l7;&l7;&l7;&l7;&l7;&l7;&l7;&l7;&l7;\"><!ENTITY l9 "
     "\"&l8;&l8;&l8;&l8;&l8;&l8;&l8;&l8;&l8;&l8;\">]>"},
};

} // namespace tarnvale::test
