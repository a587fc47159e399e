// Part data read into its elements and written back.
#include "partdata/partdata.h"
#include "platform/xml.h"

#include <gtest/gtest.h>
#include <stdexcept>

namespace tarnvale::partdata {
namespace {

std::string wrapped(const std::string& elements) {
    return "<FSMakeMdlData version=\"9.0\">" + elements + "</FSMakeMdlData>";
}

// Every form the compiler reads, as the writer lays it out.
const char* const kWritten =
    "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n"
    "<FSMakeMdlData version=\"9.0\">\n"
    "  <Visibility name=\"gear_door_visible\"> </Visibility>\n"
    "  <MouseRect name=\"switch_panel_light\"> </MouseRect>\n"
    "  <Attachpoint name=\"attachpt_navred\">\n"
    "    <AttachedObject>\n"
    "      <Effect effectName=\"fx_navred\" effectParams=\"DAY=1, NIGHT=1\"/>\n"
    "    </AttachedObject>\n"
    "  </Attachpoint>\n"
    "  <Attachpoint name=\"attachpt_crate\">\n"
    "    <AttachedObject>\n"
    "      <LibraryObject name=\"{0A1B2C3D-4E5F-6789-ABCD-EF0123456789}\" scale=\"1.0\"/>\n"
    "    </AttachedObject>\n"
    "  </Attachpoint>\n"
    "  <Platform name=\"deck\" surfaceType=\"CONCRETE\"> </Platform>\n"
    "  <NoCrash/>\n"
    "</FSMakeMdlData>";

TEST(PartData, EveryFormReadsIntoItsFieldsAndWritesBackAsTheCompilerReadsIt) {
    struct Case {
        Kind kind;
        std::string name;
        Attached attached;
        std::string effectName, effectParams, guid, scale, surface;
    };
    const Case kCases[] = {
        {Kind::visibility, "gear_door_visible", Attached::none, "", "", "", "", ""},
        {Kind::mouseRect, "switch_panel_light", Attached::none, "", "", "", "", ""},
        {Kind::attachPoint, "attachpt_navred", Attached::effect, "fx_navred", "DAY=1, NIGHT=1", "", "", ""},
        {Kind::attachPoint, "attachpt_crate", Attached::libraryObject, "", "",
         "{0A1B2C3D-4E5F-6789-ABCD-EF0123456789}", "1.0", ""},
        {Kind::platform, "deck", Attached::none, "", "", "", "", "CONCRETE"},
        {Kind::noCrash, "", Attached::none, "", "", "", "", ""},
    };
    const auto read = parse(kWritten);
    ASSERT_TRUE(read);
    ASSERT_EQ(read->elements.size(), std::size(kCases));
    PartData made; // the same from the fields alone, as `part set` makes them
    for (size_t i = 0; i < std::size(kCases); ++i) {
        const Case& c = kCases[i];
        const Element& e = read->elements[i];
        EXPECT_EQ(
            std::tie(e.kind, e.name, e.attached, e.effectName, e.effectParams, e.objectGuid, e.objectScale,
                     e.surface),
            std::tie(c.kind, c.name, c.attached, c.effectName, c.effectParams, c.guid, c.scale, c.surface))
            << i;
        EXPECT_EQ(e.xml, "") << i << ": nothing beyond the fields to keep";
        made.elements.push_back(
            {c.kind, c.name, c.attached, c.effectName, c.effectParams, c.guid, c.scale, c.surface, ""});
    }
    EXPECT_EQ(write(*read), kWritten);
    EXPECT_EQ(write(made), kWritten);
    // Compact forms read the same.
    const auto compact = parse(wrapped("<Visibility name=\"v\"/><NoCrash></NoCrash>"));
    ASSERT_TRUE(compact);
    EXPECT_EQ(write(*compact),
              "<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>\n<FSMakeMdlData version=\"9.0\">\n"
              "  <Visibility name=\"v\"> </Visibility>\n  <NoCrash/>\n</FSMakeMdlData>");
}

TEST(PartData, WhatItDoesNotKnowIsKeptInItsPlace) {
    const std::string text =
        "<FSMakeMdlData version=\"9.0\" author=\"me\"><Foo a=\"1\"><Bar/>text</Foo>"
        "<Visibility name=\"v\" lag=\"2\"/><MouseRect name=\"m\"><!-- the switch --></MouseRect>"
        "<Attachpoint name=\"p\"><AttachedObject><Effect effectName=\"fx\"/>"
        "<Effect effectName=\"fy\"/></AttachedObject></Attachpoint>"
        "<Attachpoint name=\"q\"><AttachedObject><Effect "
        "effectName=\"fz\"/></AttachedObject><Light/></Attachpoint>"
        "<Platform name=\"d\" surfaceType=\"SAND\"><Edge/></Platform></FSMakeMdlData>";
    auto read = parse(text);
    ASSERT_TRUE(read);
    const Kind kinds[] = {Kind::other,       Kind::visibility,  Kind::mouseRect,
                          Kind::attachPoint, Kind::attachPoint, Kind::platform};
    ASSERT_EQ(read->elements.size(), std::size(kinds));
    for (size_t i = 0; i < std::size(kinds); ++i) {
        EXPECT_EQ(read->elements[i].kind, kinds[i]) << i;
        EXPECT_NE(read->elements[i].xml, "") << i << " is kept as written";
    }
    EXPECT_EQ(read->elements[1].name, "v") << "the fields are read all the same, for the checks";
    EXPECT_EQ(read->elements[3].effectName, "fx");
    const std::string written = write(*read);
    for (const char* kept : {"author=\"me\"", "<Foo a=\"1\"><Bar/>text</Foo>", "lag=\"2\"",
                             "<!-- the switch -->", "effectName=\"fy\"", "<Edge/>", "<Light/>"})
        EXPECT_NE(written.find(kept), std::string::npos) << kept << "\n" << written;
    EXPECT_LT(written.find("<Foo"), written.find("<Visibility")) << "in its place";
    // Written again, it reads the same.
    const auto again = parse(written);
    ASSERT_TRUE(again);
    EXPECT_EQ(write(*again), written);
    // An edit replaces the element of its kind and keeps the rest.
    read->set({Kind::visibility, "w", Attached::none, "", "", "", "", "", ""});
    read->elements.push_back({Kind::visibility, "x", Attached::none, "", "", "", "", "", ""});
    read->set({Kind::visibility, "y", Attached::none, "", "", "", "", "", ""});
    EXPECT_EQ(read->elements.size(), std::size(kinds));
    EXPECT_EQ(read->elements[1].name, "y");
    EXPECT_TRUE(read->remove(Kind::platform));
    EXPECT_FALSE(read->remove(Kind::platform));
    EXPECT_EQ(read->elements.size(), std::size(kinds) - 1);
}

TEST(PartData, TextGoesThroughTheCodePageAndBadTextSaysWhy) {
    // é is a character of the code page; € is one of Windows-1252 beyond ISO-8859-1.
    const auto read =
        parse("<?xml version=\"1.0\" encoding=\"ISO-8859-1\"?>" +
              wrapped("<Visibility name=\"caf\u00e9\"/><Platform name=\"\u20ac\" surfaceType=\"ICE\"/>"));
    ASSERT_TRUE(read);
    EXPECT_EQ(read->elements[0].name, "caf\u00e9");
    const std::string written = write(*read);
    EXPECT_NE(written.find("name=\"caf\u00e9\""), std::string::npos) << written;
    EXPECT_EQ(parse(written)->elements[1].name, read->elements[1].name) << written;

    // A name that the file's own code page holds and ISO-8859-1 does not (Æ's byte
    // is Ć in ISO-8859-2) cannot be written as a reference: said, not written.
    const auto foreign = parse("<?xml version=\"1.0\" encoding=\"ISO-8859-2\"?><FSMakeMdlData><MouseRect "
                               "na\u00c6e=\"x\"/></FSMakeMdlData>");
    ASSERT_TRUE(foreign);
    EXPECT_THROW(write(*foreign), std::invalid_argument);

    EXPECT_EQ(parse("")->elements.size(), 0u);
    EXPECT_EQ(parse("")->version, "9.0");
    Unreadable why;
    EXPECT_FALSE(parse("<FSMakeMdlData>", &why));
    EXPECT_EQ(why.reason(), "it is not well-formed XML");
    EXPECT_FALSE(parse("<part></part>", &why));
    EXPECT_EQ(why.reason(), "its root is part, and the compiler reads only FSMakeMdlData");
}

TEST(PartData, ModelDefinitionPartsNearestNamesAndGuids) {
    platform::XmlDocument modelDef;
    ASSERT_TRUE(modelDef.loadText("<ModelInfo><Animation name=\"a\"/>"
                                  "<PartInfo><Name> door </Name><Visibility/><Animation/></PartInfo>"
                                  "<PartInfo><Name>pilot</Name><VisibleInRange/></PartInfo>"
                                  "<PartInfo><Name>switch</Name><MouseRect/></PartInfo>"
                                  "<PartInfo><Visibility/></PartInfo></ModelInfo>"));
    const auto parts = partInfos(modelDef);
    ASSERT_EQ(parts.size(), 3u) << "a part without a name is none";
    EXPECT_EQ(std::tie(parts[0].name, parts[0].visibility, parts[0].animation, parts[0].mouseRect),
              std::make_tuple(std::string("door"), true, true, false));
    EXPECT_TRUE(parts[1].visibleInRange);
    EXPECT_FALSE(parts[1].visibility);
    EXPECT_TRUE(parts[2].mouseRect);
    // A visibility may name a part shown in a range; a mouse rect only one with a MouseRect.
    EXPECT_EQ(partsFor(parts, Kind::visibility), (std::vector<std::string>{"door", "pilot"}));
    EXPECT_EQ(partsFor(parts, Kind::mouseRect), std::vector<std::string>{"switch"});
    EXPECT_EQ(withoutExtension("fx_navred.fx"), "fx_navred");
    EXPECT_EQ(withoutExtension("fx_navred"), std::nullopt);
    EXPECT_EQ(withoutExtension("fx_navred."), std::nullopt);

    const std::vector<std::string> names = {"gear_door", "switch_light", "gear_doors", "pilot"};
    EXPECT_EQ(nearestNames("GEAR_DOR", names, 2), (std::vector<std::string>{"gear_door", "gear_doors"}));
    EXPECT_EQ(nearestNames("pilots", names, 1), (std::vector<std::string>{"pilot"}));

    const std::pair<const char*, bool> kGuids[] = {
        {"{0A1B2C3D-4E5F-6789-ABCD-EF0123456789}", true}, {"0a1b2c3d-4e5f-6789-abcd-ef0123456789", true},
        {"{0A1B2C3D-4E5F-6789-ABCD-EF012345678}", false}, {"0A1B2C3D-4E5F-6789-ABCD-EF01234567890", false},
        {"0A1B2C3D+4E5F-6789-ABCD-EF0123456789", false},  {"0A1B2C3G-4E5F-6789-ABCD-EF0123456789", false},
        {"{0A1B2C3D-4E5F-6789-ABCD-EF0123456789", false}, {"crate", false},
    };
    for (const auto& [text, guid] : kGuids)
        EXPECT_EQ(isGuid(text), guid) << text;
    for (const Kind k : {Kind::visibility, Kind::mouseRect, Kind::attachPoint, Kind::platform, Kind::noCrash})
        EXPECT_EQ(kindNamed(kindName(k)), k);
}

} // namespace
} // namespace tarnvale::partdata
