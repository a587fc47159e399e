// The part data commands as a user runs them, and what their edits give in the X file.
#include "gltf/gltf_builder.h"
#include "platform/text.h"
#include "xfile/x_reader.h"

namespace tarnvale::test {
namespace {

const char* const kGuid = "{0A1B2C3D-4E5F-6789-ABCD-EF0123456789}";

// door (a triangle), nav (empty), switch (part data of its own), two twins and
// a node whose part data is broken, as a .glb.
struct PartScene {
    TempDir d;
    std::string glb = d.file("s.glb");

    PartScene() {
        GltfBuilder b;
        const int mesh = b.triangles({0, 0, 0, 1, 0, 0, 0, 1, 0}, {0, 1, 2});
        b.node({{"name", "door"}, {"mesh", mesh}});
        b.node(
            {{"name", "nav"},
             {"extras",
              {{"FS10att",
                "<FSMakeMdlData version=\"9.0\"><Attachpoint name=\"attachpt_navred\"/></FSMakeMdlData>"}}}});
        b.node({{"name", "switch"},
                {"extras", {{"FS10att", "<FSMakeMdlData version=\"9.0\"><Foo/></FSMakeMdlData>"}}}});
        b.node({{"name", "twin"}});
        b.node({{"name", "twin"}});
        b.node({{"name", "broken"}, {"extras", {{"FS10att", "<FSMakeMdlData>"}}}});
        b.saveGlb(glb);
    }
    RunResult part(const std::string& args) { return tarnvale("part " + args, d); }
    // The node's elements, as `part show --json` gives them.
    json elements(const std::string& node) {
        const RunResult r = part("show " + glb + " --json --node " + node);
        EXPECT_EQ(r.code, 0) << r.err;
        return json::parse(r.out)["nodes"][0]["elements"];
    }
};

// A .glb's JSON chunk, parsed, and its binary chunk.
std::pair<json, std::string> chunks(const std::string& glb) {
    const std::string bytes = readFile(glb);
    uint32_t length = 0;
    std::memcpy(&length, bytes.data() + 12, 4);
    return {json::parse(bytes.substr(20, length)), bytes.substr(20 + length)};
}

TEST(Part, SetEditsOneNodeOfTheFileAndTheXFileCarriesItsText) {
    PartScene s;
    struct Edit {
        std::string node, args;
        json elements; // the node's after the edit
    };
    const json visibility = {{"kind", "visibility"}, {"name", "gear_door_visible"}};
    const json effect = {{"kind", "attach-point"},
                         {"name", "attachpt_navred"},
                         {"effect", {{"name", "fx_navred"}, {"params", "DAY=1, NIGHT=1"}}}};
    const Edit kEdits[] = {
        {"door", "--visibility gear_door_visible", {visibility}},
        {"door",
         "--platform grass",
         {visibility, {{"kind", "platform"}, {"name", "door"}, {"surface", "GRASS"}}}},
        {"door", "--remove platform", {visibility}},
        {"door", "--no-crash", {visibility, {{"kind", "no-crash"}}}},
        {"nav", "--effect fx_navred --params 'DAY=1, NIGHT=1'", {effect}},
        // The attach point keeps its name when its object changes.
        {"nav",
         std::string("--library-object '") + kGuid + "' --scale 2.0",
         {{{"kind", "attach-point"},
           {"name", "attachpt_navred"},
           {"libraryObject", {{"guid", kGuid}, {"scale", "2.0"}}}}}},
        {"nav", "--effect fx_navred --params 'DAY=1, NIGHT=1'", {effect}},
        // A new attach point is named after its node.
        {"door",
         "--effect fx_smoke",
         {visibility,
          {{"kind", "no-crash"}},
          {{"kind", "attach-point"},
           {"name", "attachpt_door"},
           {"effect", {{"name", "fx_smoke"}, {"params", ""}}}}}},
        {"switch",
         "--mouse-rect switch_panel_light",
         {{{"kind", "other"}, {"xml", "<Foo/>"}}, {{"kind", "mouse-rect"}, {"name", "switch_panel_light"}}}},
    };
    for (const Edit& e : kEdits) {
        const auto [before, bin] = chunks(s.glb);
        const RunResult r = s.part("set " + s.glb + " --node " + e.node + " " + e.args);
        ASSERT_EQ(r.code, 0) << e.args << "\n" << r.err;
        EXPECT_EQ(s.elements(e.node), e.elements) << e.args;
        const auto [after, binAfter] = chunks(s.glb);
        EXPECT_EQ(binAfter, bin) << "the binary chunk byte for byte";
        for (const auto& [key, value] : before.items())
            EXPECT_TRUE(key == "nodes" || after[key].dump() == value.dump()) << key;
        for (size_t n = 0; n < before["nodes"].size(); ++n)
            EXPECT_TRUE(before["nodes"][n]["name"] == e.node || after["nodes"][n] == before["nodes"][n]) << n;
    }
    // Removing the last element removes the text, and the frame's PartData with it.
    ASSERT_EQ(s.part("set " + s.glb + " --node door --remove visibility").code, 0);
    ASSERT_EQ(s.part("set " + s.glb + " --node door --remove no-crash").code, 0);
    ASSERT_EQ(s.part("set " + s.glb + " --node door --remove effect").code, 0);
    EXPECT_FALSE(chunks(s.glb).first["nodes"][0].contains("extras"));
    ASSERT_EQ(s.part("set " + s.glb + " --node broken --remove other").code, 2);

    // The X file holds each node's text as the compiler reads it.
    const RunResult exported =
        tarnvale("export " + s.glb + " -o " + s.d.file("s.x") + " --yes --no-tool --group nav", s.d);
    ASSERT_EQ(exported.code, 0) << exported.err;
    const auto frames = XReader(readFile(s.d.file("s.x"))).frames();
    ASSERT_EQ(frames.size(), 1u);
    EXPECT_EQ(
        frames[0].partData,
        platform::toWindows1252(chunks(s.glb).first["nodes"][1]["extras"]["FS10att"].get<std::string>()));
    EXPECT_NE(frames[0].partData.find("<Effect effectName=\"fx_navred\" effectParams=\"DAY=1, NIGHT=1\"/>"),
              std::string::npos);
}

TEST(Part, SetRefusesWhatTheChecksWouldAndLeavesTheFileAsItWas) {
    PartScene s;
    const std::string before = readFile(s.glb);
    const std::pair<std::string, std::string> kRefused[] = {
        {"--node ghost --no-crash", "it has no node named \"ghost\"; its nodes: \"door\", \"nav\""},
        {"--node twin --no-crash", "two of its nodes are named \"twin\""},
        {"--node broken --no-crash",
         "its part data cannot be read (it is not well-formed XML); mend the text first"},
        {"--node door --visibility gear_door_visibel",
         "no part \"gear_door_visibel\" with a Visibility; the nearest: gear_door_visible"},
        {"--node door --mouse-rect gear_door_visible", "with a MouseRect; the nearest: switch_"},
        {"--node nav --effect fx_navred.fx",
         "has a file extension, and the simulator adds its own: give \"fx_navred\""},
        {"--node nav --library-object crate", "\"crate\" is not a GUID"},
        {"--node door --platform concret",
         "\"concret\" is no surface type of the simulator; the nearest: CONCRETE"},
        {"--node door --remove platform", "its part data has no platform to remove"},
        {"--node door --no-crash --platform SAND", "give one of --visibility"},
        {"--node door --params x", "--params requires --effect"},
    };
    for (const auto& [args, says] : kRefused) {
        const RunResult r = s.part("set " + s.glb + " " + args);
        EXPECT_EQ(r.code, 2) << args;
        EXPECT_NE(r.err.find(says), std::string::npos) << args << "\n" << r.err;
        EXPECT_EQ(readFile(s.glb), before) << args;
    }
}

TEST(Part, ShowListAndStdinAsTheAddOnUsesThem) {
    PartScene s;
    const RunResult shown = s.part("show " + s.glb);
    EXPECT_EQ(shown.out, "node nav (frm-nav)\n  attach-point attachpt_navred: nothing attached\n"
                         "node switch (frm-switch)\n  kept as written: <Foo/>\n"
                         "node broken (frm-broken)\n  cannot be read: it is not well-formed XML\n");
    const RunResult listed = s.part("list --json");
    ASSERT_EQ(listed.code, 0) << listed.err;
    const json parts = json::parse(listed.out)["parts"];
    const json kSwitch = {{"name", "switch_panel_light"},
                          {"animation", true},
                          {"visibility", false},
                          {"visibleInRange", false},
                          {"mouseRect", true}};
    EXPECT_NE(std::find(parts.begin(), parts.end(), kSwitch), parts.end()) << parts.dump(1);
    EXPECT_EQ(s.part("list").out.find("pilot_visible            visible-in-range\n") != std::string::npos,
              true);

    writeFile(
        s.d.file("in.gltf"),
        R"({"asset": {"version": "2.0"}, "nodes": [{"name": "gear door", "extras": {"FS10att": ""}}]})");
    const RunResult piped = tarnvale("part set --stdin --node 'gear door' --visibility gear_door_visible",
                                     s.d, "", s.d.file("in.gltf"));
    ASSERT_EQ(piped.code, 0) << piped.err;
    const json out = json::parse(piped.out);
    EXPECT_EQ(out["elements"], json::array({{{"kind", "visibility"}, {"name", "gear_door_visible"}}}));
    EXPECT_NE(out["text"].get<std::string>().find("<Visibility name=\"gear_door_visible\"> </Visibility>"),
              std::string::npos);
}

} // namespace
} // namespace tarnvale::test
