#include "anim/anim.h"
#include "support.h"

#include <cmath>
#include <random>

namespace tarnvale::test {
namespace {

using anim::Quat;

// The animation export over a model definition and a scene built in the test.
struct AnimFixture {
    TempDir dir;
    std::shared_ptr<platform::XmlDocument> xmlAnim;
    platform::XmlDocument modelDef;
    std::vector<platform::XmlElement> nlAnimations;
    bool hasAnimation = false;
    int32_t keyTimeLimit = 999999;
    anim::XAnimContext ctx{xmlAnim, nlAnimations, hasAnimation, keyTimeLimit};
    std::shared_ptr<scene::MemoryScene> scene = scene::MemoryScene::create("root");

    explicit AnimFixture(const std::string& definitions) {
        EXPECT_TRUE(modelDef.loadText("<ModelInfo>" + definitions + "</ModelInfo>"));
        nlAnimations = modelDef.select("ModelInfo/Animation");
    }
    // Exports the root; gives the XANIM text, or "" when no file was written.
    std::string run() {
        std::string out = dir.file("a.x");
        SGObjectPtr group = scene->root();
        anim::XAnimExporter(ctx).pExportXAnim(out, group);
        return fs::exists(dir.file("a.xanim")) ? readFile(dir.file("a.xanim")) : std::string();
    }
    std::shared_ptr<scene::MemoryObject> part(const std::string& name, std::vector<KeyRecord> keys,
                                              std::shared_ptr<scene::MemoryObject> parent = nullptr) {
        auto p = (parent ? parent : scene->root())->addChild(name);
        p->setKeyframes(std::move(keys));
        return p;
    }
};

KeyRecord rot(float t, float x, float y, float z, float w) {
    return {0, t, 2, x, y, z, w, 0};
}
KeyRecord pos(float t, float x, float y, float z, float w = 0) {
    return {0, t, 0, x, y, z, w, 0};
}

TEST(XAnim, DocumentLayoutAndAttributeOrder) {
    AnimFixture f(
        R"(<Animation name="wheel" guid="G" type="Sim" typeParam="AutoPlay" typeParam2="x" length="100"/>)");
    f.part("Wheel 1",
           {rot(0, 0, 0, 0, 1), rot(50, 0, 0, 0.5f, 0.866025f), pos(25, 1, 2, 3), pos(50, 1, 2, 4)});
    std::string text = f.run();
    EXPECT_TRUE(f.hasAnimation);
    EXPECT_EQ(text, readFile(sourcePath("tests/data/wheel.xanim")));
}

TEST(XAnim, WalkTimesLengthsStreamsAndAnims) {
    struct Part {
        std::string name;
        std::vector<KeyRecord> keys;
        int parent = -1; // index of an earlier part, -1 for the root
        Vec3 at{};       // its translation, the rest position of its keys
    };
    struct Row {
        const char* what;
        std::string defs;
        std::vector<Part> parts;
        std::vector<std::string> present, absent; // "" as present: no file at all
    };
    const float h = std::sqrt(0.5f);
    const std::vector<Row> rows = {
        {"two keys are no animation, but the children are walked",
         R"(<Animation name="gear" length="10"/><Animation name="door" length="10"/>)",
         {{"gear", {pos(0, 0, 0, 0), pos(1, 5, 5, 5)}},
          {"door", {pos(0, 0, 0, 0), pos(1, 1, 0, 0), pos(2, 2, 0, 0)}, 0}},
         {"partName=\"door\""},
         {"partName=\"gear\""}},
        {"times follow the declared length; without one they stay, and the length is the last time",
         R"(<Animation name="flap" length="100"/><Animation name="slat"/>)",
         {{"flap", {pos(0, 0, 0, 0), pos(25, 1, 0, 0), pos(50, 2, 0, 0)}},
          {"slat", {pos(0, 0, 0, 0), pos(0.5f, 1, 0, 0), pos(1.5f, 2, 0, 0)}}},
         {"<Keyframe time=\"50.00\" type=\"Vector\" data=\"1.00;0.00;0.00;0.00\"/>",
          "<Anim name=\"flap\" guid=\"\" type=\"Standard\" typeParam=\"AutoPlay\" typeParam2=\"\" "
          "length=\"100\">",
          "<Keyframe time=\"0.50\"", "partName=\"slat\" length=\"1.5\""},
         {}},
        {"lengths are a Single's text: seven digits, no exponent",
         R"(<Animation name="flap" length="4.1666665"/><Animation name="slat"/>)",
         {{"flap", {pos(0, 0, 0, 0), pos(1, 1, 0, 0), pos(2, 2, 0, 0)}},
          {"slat", {pos(0, 0, 0, 0), pos(50000, 1, 0, 0), pos(100000, 2, 0, 0)}}},
         {"partName=\"flap\" length=\"4.166667\"", "partName=\"slat\" length=\"100000\""},
         {}},
        {"a second part reads the length the first wrote, in the one Anim",
         R"(<Animation name="wheel"/><Animation name="other"/>)",
         {{"wheel_a", {pos(0, 0, 0, 0), pos(5, 1, 0, 0), pos(10, 2, 0, 0)}},
          {"wheel_b", {pos(0, 0, 0, 0), pos(10, 1, 0, 0), pos(20, 2, 0, 0)}}},
         {"partName=\"wheel_b\" length=\"10\">\n      <Keyframe time=\"0.00\" type=\"Vector\" "
          "data=\"0.00;0.00;0.00;0.00\"/>\n"
          "      <Keyframe time=\"5.00\" type=\"Vector\" data=\"1.00"},
         {"<Anim name=\"other\""}},
        {"positions are relative to the rest position; the fourth value stays",
         R"(<Animation name="gear" length="10"/><Animation name="x"/>)",
         {{"gear", {pos(0, 1, 2, 3, 7), pos(1, 1, 2, 4, 7), pos(2, 1, 2, 5, 7)}, -1, {1, 2, 3}}},
         {"data=\"0.00;0.00;0.00;7.00\"", "data=\"0.00;0.00;2.00;7.00\""},
         {}},
        {"a constant stream is dropped",
         R"(<Animation name="door" length="10"/><Animation name="x"/>)",
         {{"door", {rot(0, 0, 0, 0, 1), pos(1, 0, 0, 0), rot(2, 0, 0, 0, 1), pos(3, 0, 1, 0)}}},
         {"name=\"Position\""},
         {"Rotation"}},
        {"data equal as written count as equal",
         R"(<Animation name="door" length="10"/><Animation name="x"/>)",
         {{"door", {rot(0, 0, 0, 0, 1), rot(2, 0, 0, -0.0000001f, 1), pos(3, 0, 1, 0)}}},
         {""},
         {}},
        {"the base rotation is the earliest rotation key",
         R"(<Animation name="prop" length="2"/><Animation name="x"/>)",
         {{"prop", {rot(2, 0, 0, 0, 1), pos(0, 1, 1, 1), rot(1, 0, h, 0, h), rot(1, 1, 0, 0, 0)}}},
         {"<Keyframe time=\"1.00\" type=\"Quaternion\" data=\"0.00;0.00;0.00;1.00\"/>",
          "<Keyframe time=\"2.00\" type=\"Quaternion\" data=\"0.00;0.707107;0.00;0.707107\"/>"},
         {}},
        {"an existing Anim is found by a name its definition's name contains",
         R"(<Animation name="wheel" length="10"/><Animation name="c_wheel_left" length="50"/>)",
         {{"wheel", {pos(0, 0, 0, 0), pos(1, 1, 0, 0), pos(2, 2, 0, 0)}},
          {"c_wheel_left",
           {rot(0, 0, 0, 0, 1), rot(1, 1, 0, 0, 0), rot(2, 0, 1, 0, 0), pos(1, 1, 0, 0), pos(2, 2, 0, 0)}}},
         {"name=\"Rotation\" partName=\"c_wheel_left\" length=\"10\"",
          "</AnimStream>\n    <AnimStream id=\"2\" name=\"Position\" partName=\"c_wheel_left\""},
         {"name=\"c_wheel_left\" guid"}},
        {"a length that is no number counts as undeclared",
         R"(<Animation name="a" length="abc"/><Animation name="b" length=" 12.5xyz"/>)",
         {{"a", {pos(0, 0, 0, 0), pos(1, 1, 0, 0), pos(4, 2, 0, 0)}},
          {"b", {pos(0, 0, 0, 0), pos(1, 1, 0, 0), pos(2, 2, 0, 0)}}},
         {"typeParam2=\"\" length=\"4\">", "partName=\"b\" length=\"12.5\""},
         {}},
    };
    for (const Row& r : rows) {
        AnimFixture f(r.defs);
        std::vector<std::shared_ptr<scene::MemoryObject>> made;
        for (const Part& p : r.parts) {
            made.push_back(f.part(p.name, p.keys, p.parent < 0 ? nullptr : made[p.parent]));
            made.back()->setMatrix({1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, p.at.x, p.at.y, p.at.z, 1});
        }
        const std::string text = f.run();
        EXPECT_EQ(f.hasAnimation, !text.empty()) << r.what;
        for (const auto& s : r.present)
            EXPECT_TRUE(s.empty() ? text.empty() : text.find(s) != std::string::npos)
                << r.what << ": " << s << "\n"
                << text;
        for (const auto& s : r.absent)
            EXPECT_EQ(text.find(s), std::string::npos) << r.what << ": " << s;
    }
    for (auto [text, number] : {std::pair{"abc", 0.0f}, {"-2.5e1x", -25.0f}, {".5", 0.5f}})
        EXPECT_FLOAT_EQ(anim::leadingNumber(text), number) << text;
}

TEST(AnimationMatch, LongestPrefixFirstOfEqualAndFallback) {
    struct Row {
        std::string defs, part, chosen; // chosen "" means none
    };
    const std::vector<Row> rows = {
        {R"(<Animation name="wheel"/><Animation name="wheel_left"/>)", "wheel_left_2", "wheel_left"},
        {R"(<Animation name="wheel"/><Animation name="wheel_left"/>)", "wheel_2", "wheel"},
        {R"(<Animation name="Wheel" guid="1"/><Animation name="wheel" guid="2"/>)", "wheel_1", "Wheel"},
        {R"(<Animation name="wheel_left_long"/>)", "wheel_left", ""},
        {R"(<Animation name="NonRandomAmbient"/><Animation name="gear"/>)", "gear_1", "gear"},
        {R"(<Animation name="gear"/><Animation name="NonRandomAmbient"/>)", "gear_1", "gear"},
        {R"(<Animation name="NonRandomAmbient"/><Animation name="wheel"/>)", "gear", "NonRandomAmbient"},
        {R"(<Animation name="NONRANDOMAMBIENT"/><Animation name="wheel"/>)", "gear", ""},
        {R"(<Animation name="NONRANDOMAMBIENT"/>)", "nonrandomambient_2", "NONRANDOMAMBIENT"},
        // Letters of the code page match in either case, counted as characters.
        {"<Animation name=\"\xC3\x89LEVATOR\"/>", "\xC3\xA9levator_1", "\xC3\x89LEVATOR"},
        {"<Animation name=\"\xC3\xA9\xC3\xA9\"/><Animation name=\"\xC3\xA9x\"/>", "\xC3\xA9x", "\xC3\xA9x"},
    };
    for (const Row& r : rows) {
        AnimFixture f(r.defs);
        platform::XmlElement found = anim::XAnimExporter(f.ctx).pFindAnimationDef(r.part);
        EXPECT_EQ(found ? found.attribute("name").value_or("?") : std::string(), r.chosen)
            << r.part << " in " << r.defs;
    }
}

TEST(AnimationMatch, AnimAttributesDefaultsAndOverrides) {
    const std::pair<const char*, const char*> rows[] = {
        // a definition's attributes, the Anim's head
        {R"(name="a")",
         R"(<Anim name="a" guid="" type="Standard" typeParam="AutoPlay" typeParam2="" length=")"},
        {R"(name="a" typeParam="P" typeparam="Q" typeParam2="R" typeparam2="")",
         R"(<Anim name="a" guid="" type="Standard" typeParam="Q" typeParam2="R" length=")"},
        {R"(name="a" TypeParam="P" type="" guid="")",
         R"(<Anim name="a" guid="" type="" typeParam="AutoPlay" typeParam2="" length=")"},
        {R"(name="a" typeParam="" typeparam="")",
         R"(<Anim name="a" guid="" type="Standard" typeParam="" typeParam2="" length=")"},
    };
    for (auto [def, head] : rows) {
        AnimFixture f(std::string("<Animation ") + def + "/><Animation name=\"zzz\"/>");
        f.part("a", {pos(0, 0, 0, 0), pos(1, 1, 0, 0), pos(2, 2, 0, 0)});
        std::string text = f.run();
        EXPECT_NE(text.find(head), std::string::npos) << def << "\n" << text;
    }
}

// One ulp of a 32-bit float at v.
double ulp(float v) {
    return std::nextafter(std::fabs(v), INFINITY) - std::fabs(v);
}

TEST(QuatMultiply, AgreesWithDoublePrecisionWithinOneUlpAndGivesTheIdentity) {
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> d(-1, 1);
    for (int i = 0; i < 200000; ++i) {
        Quat a{d(rng), d(rng), d(rng), d(rng)}, b{d(rng), d(rng), d(rng), d(rng)};
        Quat r = anim::pQuatMultiply(a, b);
        // The Hamilton product, written the usual way.
        double x = double(a.w) * b.x + double(a.x) * b.w + double(a.y) * b.z - double(a.z) * b.y;
        double y = double(a.w) * b.y - double(a.x) * b.z + double(a.y) * b.w + double(a.z) * b.x;
        double z = double(a.w) * b.z + double(a.x) * b.y - double(a.y) * b.x + double(a.z) * b.w;
        double w = double(a.w) * b.w - double(a.x) * b.x - double(a.y) * b.y - double(a.z) * b.z;
        for (auto [got, exact] : {std::pair{r.x, x}, {r.y, y}, {r.z, z}, {r.w, w}})
            ASSERT_LE(std::fabs(got - exact), ulp(static_cast<float>(exact))) << i;
    }
    // A key times its own conjugate is the identity, as written.
    Quat k{0.1f, 0.2f, 0.3f, std::sqrt(1 - 0.14f)}, c{-k.x, -k.y, -k.z, k.w};
    Quat r = anim::pQuatMultiply(k, c);
    EXPECT_EQ(platform::formatMask(r.x, 2, 6) + ";" + platform::formatMask(r.y, 2, 6) + ";" +
                  platform::formatMask(r.z, 2, 6) + ";" + platform::formatMask(r.w, 2, 6),
              "0.00;0.00;0.00;1.00");
}

TEST(XAnimExport, DriverSavesTheFileOnlyWhenAStreamRemains) {
    struct Row {
        const char* what;
        std::vector<KeyRecord> keys;
        std::string modelDef; // "" keeps the rig's
        bool file;            // a new XANIM file
        std::string ends;     // what the export left
    };
    const std::string done =
        "x xanim config | information FSX Export: Export to D/plane.x Completed.; | P\\xtomdl.exe";
    const std::string tool = " /dict:\"P\\modeldef.xml\" \"D/plane.x\"";
    const std::string failed = "x xanim | critical FS10 Export: Creating XANIM file\r";
    const std::vector<Row> rows = {
        {"keys that turn",
         {rot(0, 0, 0, 0, 1), rot(1, 0, 0, 1, 0), rot(2, 0, 0, 0, 1)},
         "",
         true,
         done + " /xanim" + tool},
        {"constant keys",
         {rot(0, 0, 0, 0, 1), rot(1, 0, 0, 0, 1), rot(2, 0, 0, 0, 1)},
         "",
         false,
         done + tool},
        {"no definition for the part",
         {pos(0, 0, 0, 0), pos(1, 1, 0, 0), pos(2, 2, 0, 0)},
         "<ModelInfo><Animation name=\"a\"/><Animation name=\"NONRANDOMAMBIENT\"/></ModelInfo>",
         false,
         failed + "91 - Object variable not set: no animation definition; |"},
        {"a definition without a name",
         {pos(0, 0, 0, 0), pos(1, 1, 0, 0), pos(2, 2, 0, 0)},
         "<ModelInfo><Animation guid=\"x\"/><Animation name=\"wheel\"/></ModelInfo>",
         false,
         failed + "94 - Invalid use of Null: an Animation node has no name; |"},
        {"all keys at time zero",
         {pos(0, 0, 0, 0), pos(0, 1, 0, 0), pos(0, 2, 0, 0)},
         "",
         false,
         failed + "11 - Division by zero; |"},
    };
    for (const Row& r : rows) {
        Rig rig;
        rig.installTool();
        if (!r.modelDef.empty()) writeFile(rig.pluginFolder + "/modeldef.xml", r.modelDef);
        rig.scene->root()->addChild("Wheel")->setKeyframes(r.keys);
        writeFile(rig.dir.file("plane.xanim"), "an older file"); // not removed when no new one comes
        auto t = rig.plugin();
        rig.exportTo(*t, rig.dir.file("plane.x"));
        EXPECT_EQ(outcome(rig, rig.dir.file("plane.x")), r.ends) << r.what;
        EXPECT_EQ(t->bHasAnimation, r.file) << r.what;
        platform::XmlDocument doc;
        EXPECT_EQ(doc.load(rig.dir.file("plane.xanim")), r.file) << r.what;
        EXPECT_EQ(doc.select("AnimLib/Anim/AnimStream/Keyframe").size(), r.file ? 3u : 0u);
    }
}

} // namespace
} // namespace tarnvale::test
