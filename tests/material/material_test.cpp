#include "material/material.h"
#include "support.h"

namespace tarnvale::material {
namespace {

using test::expectFields;
using test::readFile;
using test::sourcePath;

std::string output(FS10Material& m, std::string* warnings = nullptr) {
    test::TempDir d;
    platform::TextSink sink;
    sink.open(d.file("o.x"));
    std::string w = m.Output(sink);
    sink.close();
    if (warnings) *warnings = w;
    return readFile(d.file("o.x"));
}

TEST(FS10Material, DefaultTextFormAndBlockGolden) {
    FS10Material m;
    EXPECT_EQ(m.toString(), readFile(sourcePath("tests/data/default_text_form.txt")));
    std::string warnings;
    const std::string block = output(m, &warnings);
    EXPECT_EQ(readFile(sourcePath("tests/data/default_fs10.txt")), block);
    EXPECT_EQ(warnings, "");
    // The block's fixed texts, line by line, whatever the values: the compiler
    // reads them so. A block of one value is its name, its value's end and "}".
    std::vector<std::string> ends = {"FS10Material {",
                                     ";;",
                                     ";;",
                                     ";  // Spec power",
                                     ";  // detail and bump scales",
                                     ";  // scale env level",
                                     "; // use global env",
                                     "; // mod env inv diff alpha",
                                     "; // mod env spec alpha",
                                     "; // fresnel diff, spec, env",
                                     "; // precip use, offset, offset val",
                                     "; // specmap power",
                                     "; // blend"};
    auto blocks = [&](std::initializer_list<const char*> names, const char* value = ";") {
        for (const char* name : names)
            ends.insert(ends.end(), {std::string(name) + " {", value, "}"});
    };
    blocks({"BlendDiffuseByBaseAlpha", "BlendDiffuseByInverseSpecularMapAlpha", "AllowBloom",
            "SpecularBloomFloor", "EmissiveData"});
    ends.insert(ends.end(),
                {"AlphaData  {", ";  // ZTest Alpha", ";  // Alpha test threshold",
                 ";  // Alpha test function", ";  // Perform final alpha write", ";  // Final alpha value",
                 "}", "EnhancedParameters  {", ";  // Assume vertical normal", ";  // Z-Write alpha",
                 ";  // No Z-Write", ";  // Volume shadow", ";  // No shadow", ";  // PRelit vertices", "}"});
    blocks({"BaseMaterialSkin", "DoubleSidedMaterial", "BlendConstantSetting",
            "ForceTextureAddressWrapSetting"});
    blocks({"ForceTextureAddressClampSetting"}, "; ");
    blocks({"BaseMaterialSpecular", "NoSpecularBloom", "EmissiveBloom", "BloomData", "AmbientLightScale"});
    ends.push_back("}  // FS10Material end");
    std::istringstream lines(block);
    std::string line;
    for (const std::string& end : ends) {
        std::getline(lines, line);
        EXPECT_TRUE(line.ends_with(end + "\r")) << "\"" << line << "\" should end in \"" << end << "\"";
    }
    EXPECT_FALSE(std::getline(lines, line)) << "more lines than the block has";
}

TEST(FS10Material, NumberFormsOfTheBlock) {
    for (auto [v, formatted] : {std::pair{1.0f, "1.0"},
                                {202.0f, "202.0"},
                                {0.9f, "0.9"},
                                {0.3f, "0.3"},
                                {0.0f, "0.0"},
                                {0.12345678f, "0.1234568"},
                                {-2.5f, "-2.5"},
                                {1e8f, "100000000.0"}})
        EXPECT_EQ(FS10Material::FormatSingle(v), formatted) << v;
    FS10Material m;
    m.AlphaTestValue = 0.5f;
    m.bUseGlobalEnv = -1;
    m.ZTestAlpha = 1;
    std::string out = output(m);
    EXPECT_NE(out.find("\r\n .5 ;  // Alpha test threshold\r\n"), std::string::npos);
    EXPECT_NE(out.find("\r\n-1 ; // use global env\r\n"), std::string::npos);
    m.AlphaTestValue = 1.0f;
    EXPECT_NE(output(m).find("\r\n 1 ;  // Alpha test threshold\r\n"), std::string::npos);
    m.AlphaTestValue = 0.0f;
    EXPECT_NE(output(m).find("\r\n 0 ;  // Alpha test threshold\r\n"), std::string::npos);
}

TEST(FS10Material, ConditionalBlocksInTheirOrder) {
    FS10Material m;
    m.bIsNNumber = 1;
    m.DiffuseTextureFileName = "C:\\tex\\wing.bmp";
    m.BumpTextureFileName = "wing_bump.dds";
    m.EmissiveTextureFileName = "wing.bmp"; // the same name warns once
    std::string warnings;
    EXPECT_EQ(output(m, &warnings), readFile(sourcePath("tests/data/fs10_texture_blocks.txt")));
    EXPECT_EQ(warnings, "Warning - WING.BMP is not a DDS file and will need converting\r");
    EXPECT_EQ(m.DiffuseTextureFileName, "WING.DDS");
    m.bIsNNumber = 2;
    EXPECT_EQ(output(m).find("NNumberTexture"), std::string::npos);
    // Every texture block in its place; the names a conversion makes in that order.
    FS10Material all;
    std::string* fields[] = {&all.BumpTextureFileName,     &all.DetailTextureFileName,
                             &all.FresnelTextureFileName,  &all.DiffuseTextureFileName,
                             &all.SpecularTextureFileName, &all.ReflectionTextureFileName,
                             &all.EmissiveTextureFileName};
    const std::vector<std::string> names = {"BUMP.DDS", "DETAIL.DDS",     "FRESNEL.DDS", "DIFFUSE.DDS",
                                            "SPEC.DDS", "REFLECTION.DDS", "GLOW.DDS"};
    for (size_t i = 0; i < names.size(); ++i)
        *fields[i] = names[i];
    EXPECT_EQ(all.textureNames(), names);
    const std::string text = output(all);
    for (size_t i = 1; i < names.size(); ++i)
        EXPECT_LT(text.find("\"" + names[i - 1] + "\""), text.find("\"" + names[i] + "\"")) << names[i];
    EXPECT_NE(text.find("ReflectionTextureFileName {"), std::string::npos);
}

TEST(FS10Material, TextureNameRule) {
    struct Row {
        std::string in;
        int16_t vc;
        std::string out;
        bool warned;
    };
    const std::vector<Row> rows = {
        {"a.jpeg", 0, "A.JDDS", true},
        {"mydds", 0, "MYDDS", false},
        {"SKIN.dds", 0, "SKIN.DDS", false},
        {"C:\\T\\skin.DDS", 0, "SKIN.DDS", false},
        {"tex/skin.bmp", 0, "TEX/SKIN.DDS", true},
        {"panel.bmp", 1, "PANEL", false},
        {"C:\\vc\\gauges.v2.bmp", 1, "GAUGES.V2", false},
        {"a", 0, "A", true},
        {"wing.bm\xC3\xA9", 0, "WING.DDS", true}, // the last three characters, not bytes
    };
    for (const Row& r : rows) {
        FS10Material m;
        m.bIsVCTexture = r.vc;
        std::string name = r.in, warnings;
        EXPECT_EQ(m.NormalizeTextureName(name, warnings), r.out) << r.in;
        EXPECT_EQ(name, r.out);
        EXPECT_EQ(!warnings.empty(), r.warned) << r.in;
    }
}

TEST(FS10Material, TextFormLoadsByItsRulesAndRoundTrips) {
    struct Row {
        float power;
        std::string text, fields;
    };
    const Row rows[] = {
        // Keys match in any case; texts the line lacks are emptied, numbers keep their value.
        {10, "SRCBLEND=Zero",
         "SrcBlend=Zero;DstBlend=;EmissiveData=;AlphaTestFunction=;DetailScale=1;SpecRed=0.9"},
        // The first of two equal keys wins (here no number); a flag out of range is 1;
        // a ";" cuts a value; a key is matched whole, not as the start of another.
        {10,
         "EmissiveTexture=a=b.dds;FinalAlphaValue=12;DetailScale=abc;BumpScale=;AllowBloom=70000;DetailScale="
         "3;"
         "prelitvertices=1;FinalAlpha=1;SpecBlueX=9;specblue=0.5;EmissiveData=x;y",
         "EmissiveTexture=a=b.dds;FinalAlphaValue=12;FinalAlpha=1;DetailScale=1;BumpScale=1;AllowBloom=1;"
         "PreLitVertices=1;SpecBlue=0.5;EmissiveData=x"},
        {0, "", "SpecRed=0;BaseMaterialSpec=0"}, // a low power clears the specular
        {3, "", "SpecGreen=0.9;BaseMaterialSpec=1"},
        {100,
         "SpecRed=0.25;DetailScale=2.5;UseGlobalEnv=1;SrcBlend=SrcAlpha;EmissiveTexture=night.dds;"
         "IsVCTexture=1;"
         "FinalAlphaValue=128;AmbientLightScale=0.1234567",
         "SpecRed=0.25;DetailScale=2.5;UseGlobalEnv=1;IsVCTexture=1;FinalAlphaValue=128;AmbientLightScale=0."
         "1234567"},
    };
    for (const Row& r : rows) {
        FS10Material m, again;
        m.Power = again.Power = r.power;
        m.loadString(r.text);
        expectFields(m.toString(), r.fields, r.text);
        again.loadString(m.toString());
        EXPECT_EQ(again.toString(), m.toString()) << r.text;
    }
}

scene::MemoryMaterial hostMaterial(float alpha, float power) {
    scene::MemoryMaterial m;
    m.diffuse = {0.2f, 0.4f, 0.6f, alpha};
    m.specular = {0.5f, 0.5f, 0.5f};
    m.power = power;
    return m;
}

TEST(FS10Material, CreateCsgBlendAndPower) {
    struct Row {
        float alpha, power;
        float diffAlpha, fs10Power;
        const char* src;
        float specRed;
    };
    const Row rows[] = {
        {0.969f, 50, 0.969f, 200, "SrcAlpha", 0.5f}, {0.97f, 50, 1.0f, 200, "One", 0.5f},
        {0.98f, 50, 1.0f, 200, "One", 0.5f},         {1.0f, 0, 1.0f, 0, "One", 0.0f},
        {1.0f, 248, 1.0f, 2, "One", 0.0f},           {1.0f, 247, 1.0f, 3, "One", 0.5f},
    };
    for (const Row& r : rows) {
        auto host = std::make_shared<scene::MemoryMaterial>(hostMaterial(r.alpha, r.power));
        FS10Material m;
        m.CreateCSG(host, 0);
        EXPECT_FLOAT_EQ(m.diffuse().a, r.diffAlpha) << r.alpha;
        EXPECT_FLOAT_EQ(m.Power, r.fs10Power) << r.power;
        EXPECT_EQ(m.SrcBlend, r.src) << r.alpha;
        EXPECT_FLOAT_EQ(m.specular().r, r.specRed) << r.power;
        EXPECT_EQ(m.hostMaterial(), host);
    }
}

TEST(FS10Material, CreateCsgTexturesAndField) {
    auto host = std::make_shared<scene::MemoryMaterial>(hostMaterial(1, 50));
    host->textures = std::make_shared<scene::MemoryTextures>();
    host->textures->fileName = ".";
    host->textures->bumpFileName = ".";
    host->textures->detailFileName = "detail.dds";
    host->textures->specularFileName = "spec.dds";
    host->textures->reflectionFileName = "ab";
    host->fields[4] = "UseGlobalEnv=0;DstBlend=One;SpecRed=0.1";
    FS10Material m;
    m.CreateCSG(host, 4);
    EXPECT_EQ(m.DiffuseTextureFileName + "|" + m.BumpTextureFileName + "|" + m.DetailTextureFileName + "|" +
                  m.SpecularTextureFileName,
              ".||detail.dds|spec.dds");
    // The field's text wins, and keys it lacks empty the texts.
    expectFields(m.toString(), "UseGlobalEnv=0;DstBlend=One;SrcBlend=;SpecRed=0.1", "field");
    // Without a field, a reflection name longer than two characters (not bytes) turns it on.
    host->fields.clear();
    for (auto [reflection, env] : {std::pair{"\xC3\xA9\xC3\xA9", 0}, {"ab", 0}, {"env", 1}}) {
        host->textures->reflectionFileName = reflection;
        FS10Material g;
        g.CreateCSG(host, 4);
        EXPECT_EQ(g.bUseGlobalEnv, env) << reflection;
    }
}

TEST(FS10Material, CreateFromFlatMaterial) {
    auto state = std::make_shared<scene::MemoryState>();
    state->alphaPercent = 1;
    state->shininess = 4;
    state->fileName = ".";
    FS10Material opaque;
    opaque.Create(state, 0);
    EXPECT_FLOAT_EQ(opaque.diffuse().a + opaque.Power, 11.0f);
    expectFields(opaque.toString(), "SrcBlend=One;SpecRed=0.9", "opaque");
    EXPECT_EQ(opaque.DiffuseTextureFileName, ".");
    EXPECT_FALSE(opaque.hostMaterial());
    state->alphaPercent = 2;
    FS10Material blended;
    blended.Create(state, 0);
    EXPECT_FLOAT_EQ(blended.diffuse().a, 0.02f);
    expectFields(blended.toString(), "DstBlend=InvSrcAlpha", "blended");
}

TEST(FS10Material, ColourIntegers) {
    FS10Material m;
    EXPECT_EQ(m.getSpecColor(), 15066597);
    auto host = std::make_shared<scene::MemoryMaterial>(hostMaterial(1, 50));
    m.CreateCSG(host, 0);
    EXPECT_EQ(m.getDiffColor(), 51 + 102 * 256 + 153 * 65536);
    m.setSpecular(m.getSpecColor());
    EXPECT_FLOAT_EQ(m.specular().r, 128.0f / 255.0f);
    EXPECT_FLOAT_EQ(host->specular.g, 128.0f / 255.0f);
    // Bits above the blue byte land in blue, which then exceeds 1.
    m.setSpecular(0x02FF0000);
    EXPECT_FLOAT_EQ(m.specular().b, 767.0f / 255.0f);
    EXPECT_EQ(m.specular().r, 0.0f);
}

} // namespace
} // namespace tarnvale::material
