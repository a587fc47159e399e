// Textures: the DDS files a --textures export writes, read back by a decoder of
// their own and by Pillow's DDS reader, and what happens to what cannot be made.
#include "gltf/gltf_builder.h"
#include "support.h"
#include "texture/texture.h"

#include <squish.h>
#define STB_IMAGE_WRITE_IMPLEMENTATION
#include <stb/stb_image_write.h>

#include <cmath>
#include <functional>

namespace tarnvale::test {
namespace {

using Pixel = std::function<std::array<uint8_t, 4>(int x, int y)>;

texture::Image image(int w, int h, const Pixel& pixel) {
    texture::Image im{w, h, std::vector<uint8_t>(static_cast<size_t>(w) * h * 4)};
    for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x) {
            const auto p = pixel(x, y);
            std::copy(p.begin(), p.end(), im.rgba.begin() + (static_cast<size_t>(y) * w + x) * 4);
        }
    return im;
}

std::string png(const texture::Image& im) {
    std::string out;
    stbi_write_png_to_func(
        [](void* o, void* data, int n) { static_cast<std::string*>(o)->append(static_cast<char*>(data), n); },
        &out, im.width, im.height, 4, im.rgba.data(), im.width * 4);
    return out;
}

uint32_t u32(const std::vector<uint8_t>& b, size_t at) {
    return b[at] | b[at + 1] << 8 | b[at + 2] << 16 | uint32_t(b[at + 3]) << 24;
}

// The largest level of a DDS file as a reader decodes it.
texture::Image topLevel(const std::vector<uint8_t>& dds) {
    const int h = static_cast<int>(u32(dds, 12)), w = static_cast<int>(u32(dds, 16));
    const int flags = u32(dds, 84) == 0x31545844u ? squish::kDxt1 : squish::kDxt5;
    texture::Image im{w, h, std::vector<uint8_t>(static_cast<size_t>(w) * h * 4)};
    squish::DecompressImage(im.rgba.data(), w, h, dds.data() + 128, flags);
    return im;
}

double rmse(const texture::Image& a, const texture::Image& b) {
    double sum = 0;
    for (size_t i = 0; i < a.rgba.size(); ++i)
        sum += std::pow(double(a.rgba[i]) - b.rgba[i], 2);
    return std::sqrt(sum / a.rgba.size());
}

const Pixel kOpaqueGradient = [](int x, int y) {
    return std::array<uint8_t, 4>{uint8_t(x * 3), uint8_t(y * 5), 90, 255};
};
const Pixel kFadingAlpha = [](int x, int y) {
    return std::array<uint8_t, 4>{200, uint8_t(x * 4), 40, uint8_t(y * 8)};
};

TEST(Dds, SidesMipmapsFormatAndPixels) {
    struct Case {
        int w, h;
        Pixel pixel;
        std::string description; // as the command's line shows it
    } cases[] = {
        {300, 200, kOpaqueGradient, "256x256 DXT1 9 mips"}, // each side to its nearest power of two
        {64, 32, kFadingAlpha, "64x32 DXT5 7 mips"},
        {5000, 3, kOpaqueGradient, "4096x4 DXT1 13 mips"}, // at most 4096; a tie goes up
        {1, 1, kFadingAlpha, "1x1 DXT5 1 mip"},
    };
    for (const Case& c : cases) {
        const texture::Image source = image(c.w, c.h, c.pixel);
        const texture::Dds dds = texture::encode(source, false);
        EXPECT_EQ(texture::describe(dds.bytes), c.description);
        // Every level is there: the file holds the blocks of each, down to 1x1.
        size_t size = 128;
        for (int w = dds.width, h = dds.height, m = 0; m < dds.mips;
             ++m, w = std::max(1, w / 2), h = std::max(1, h / 2))
            size += static_cast<size_t>((w + 3) / 4) * ((h + 3) / 4) *
                    (dds.format == texture::Format::Dxt1 ? 8 : 16);
        EXPECT_EQ(dds.bytes.size(), size) << c.description;
        if (c.w == dds.width && c.h == dds.height) {
            EXPECT_LT(rmse(topLevel(dds.bytes), source), 6.0) << c.description;
        }
    }
}

TEST(Dds, NormalMapsTurnGreenOverAndKeepXInAlpha) {
    const texture::Dds dds = texture::encode(image(16, 16,
                                                   [](int, int) {
                                                       return std::array<uint8_t, 4>{200, 60, 230, 255};
                                                   }),
                                             true);
    ASSERT_EQ(dds.format, texture::Format::Dxt5);
    const texture::Image back = topLevel(dds.bytes);
    EXPECT_EQ(back.rgba[3], 200);           // X, from red
    EXPECT_NEAR(back.rgba[1], 255 - 60, 2); // Y, turned over
}

TEST(Textures, WhatCannotBeMadeAndWhatIsCopied) {
    TempDir d;
    gltf::SourceImage left{"a\\wing.png", "left", "", nullptr, 0},
        right{"b\\wing.png", "right", "", nullptr, 1},
        gone{"gone.png", d.file("gone.png"), d.file("gone.png"), nullptr, 2};
    // A DDS file beside the scene that no material's image takes goes as it is.
    const std::vector<uint8_t> dds = texture::encode(image(8, 8, kFadingAlpha), false).bytes;
    writeFile(d.file("Old.dds"), std::string(dds.begin(), dds.end()));
    const auto outcomes = texture::writeTextures({"WING.DDS", "GONE.DDS", "ELSEWHERE.DDS", "OLD.DDS"},
                                                 {left, right, gone}, {d.folder("out"), d.path()});
    ASSERT_EQ(outcomes.size(), 4u);
    EXPECT_EQ(outcomes[3].line, "OLD.DDS 8x8 DXT5 4 mips (copied)");
    EXPECT_EQ(readFile(d.file("out/OLD.DDS")), readFile(d.file("Old.dds")));
    using texture::Outcome;
    EXPECT_EQ(std::vector({outcomes[0].kind, outcomes[1].kind, outcomes[2].kind}),
              std::vector({Outcome::Failed, Outcome::Skipped, Outcome::Skipped}));
    EXPECT_EQ(outcomes[0].reason,
              "two images would both take this name: a\\wing.png (left) and b\\wing.png (right)");
    EXPECT_NE(outcomes[1].reason.find(d.file("gone.png") + ": cannot be read"), std::string::npos);
}

// An image in a .glb's buffer, one in a data: URI and one beside the scene each
// reach the folder under the X file's name; Pillow opens them as the simulator
// would; a missing one is skipped and --strict makes that a failure.
TEST(Textures, EveryKindOfImageReachesTheFolderUnderTheXFilesName) {
    TempDir d;
    GltfBuilder b;
    const int hull = b.image(png(image(300, 200, kOpaqueGradient)), "hull");
    b.doc["images"].push_back(
        {{"uri", "data:image/png;base64," + GltfBuilder::base64(png(image(32, 32, kOpaqueGradient)))}});
    b.doc["images"].push_back({{"uri", "tex/ext%20wing.png"}});
    b.doc["images"].push_back({{"uri", "missing.png"}});
    writeFile(d.folder("tex") + "/ext wing.png", png(image(50, 50, kFadingAlpha))); // 50 is nearer 64 than 32
    // Converters' kinds: JPEG under its long extension, and WebP (Pillow writes both).
    b.doc["images"].push_back({{"uri", "tex/base.jpeg"}});
    b.doc["images"].push_back({{"uri", "tex/skin.webp"}});
    run("cd '" + d.file("tex") +
            "' && /usr/bin/python3 -c 'from PIL import Image\nfor n in (\"base.jpeg\", "
            "\"skin.webp\"): Image.new(\"RGB\", (16, 16), (200, 30, 20)).save(n)'",
        d);
    const char* slots[] = {"baseColor", "normal", "baseColor", "baseColor", "baseColor", "baseColor"};
    for (int i = 0; i < 6; ++i) {
        b.doc["textures"].push_back({{"source", i == 0 ? hull : i}});
        nlohmann::json m = {{"name", "m" + std::to_string(i)}};
        if (std::string(slots[i]) == "normal")
            m["normalTexture"] = {{"index", i}};
        else
            m["pbrMetallicRoughness"] = {{"baseColorTexture", {{"index", i}}}};
        b.doc["materials"].push_back(m);
        b.node({{"mesh", b.triangles({0, 0, 0, 1, 0, 0, 0, float(i + 1), 0}, {}, {{"material", i}})}});
    }
    const std::string scene = b.saveGlb(d.file("plane.glb"));
    RunResult r = tarnvale(
        "export " + scene + " -o " + d.folder("out") + "/plane.x --yes --textures " + d.file("dds"), d);
    EXPECT_EQ(r.code, 0) << r.err;
    EXPECT_EQ(
        r.out,
        "HULL.DDS 256x256 DXT1 9 mips\nM1_NORMAL.DDS 32x32 DXT5 6 mips\nEXT WING.DDS 64x64 DXT5 7 mips\n"
        "BASE.DDS 16x16 DXT1 5 mips\nSKIN.DDS 16x16 DXT1 5 mips\n");
    // The check finds what the export does: every image but the missing one converts.
    const RunResult checked = tarnvale("check " + scene + " --textures", d);
    EXPECT_EQ(checked.out.find("texture-undecodable"), std::string::npos) << checked.out;
    EXPECT_NE(r.err.find("texture MISSING.DDS skipped: " + d.file("missing.png")), std::string::npos)
        << r.err;
    const RunResult listed =
        run("/usr/bin/python3 -c 'import sys; from PIL import Image\n"
            "for p in sys.argv[1:]: i = Image.open(p); print(i.format, *i.size, i.tile[0][3][1])' '" +
                d.file("dds/HULL.DDS") + "' '" + d.file("dds/M1_NORMAL.DDS") + "' '" +
                d.file("dds/EXT WING.DDS") + "'",
            d);
    EXPECT_EQ(listed.out, "DDS 256 256 DXT1\nDDS 32 32 DXT5\nDDS 64 64 DXT5\n") << listed.err;
    EXPECT_EQ(tarnvale("export " + scene + " -o " + d.file("out/plane.x") +
                           " --yes --quiet --strict --textures " + d.file("dds"),
                       d)
                  .code,
              1);
}

} // namespace
} // namespace tarnvale::test
