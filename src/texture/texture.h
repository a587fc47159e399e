// Textures the simulator loads: every DDS name the X file's FS10Material blocks
// hold, written as DXT-compressed DDS with a full mipmap chain, from the images
// the glTF materials use (external, data: URI or embedded) or files beside the scene.
#pragma once

#include "gltf/gltf.h"
#include "platform/platform.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace tarnvale::texture {

// The name the X file gives a texture: the rule of the FS10Material block.
std::string ddsName(const std::string& textureName);

struct Image {
    int width = 0, height = 0;
    std::vector<uint8_t> rgba; // 8 bits a channel, rows top to bottom
};

// PNG, JPEG, BMP, TGA or WebP bytes as RGBA; none, and why, when they do not
// decode (WebP in a build without Debian's libwebp, the Windows one).
std::optional<Image> decode(const std::vector<uint8_t>& bytes, std::string& why);

// The sides of a DDS, PNG, JPEG, BMP, TGA or (where it decodes) WebP image from
// its header; none when the bytes are none of these.
std::optional<std::pair<int, int>> imageSize(const std::vector<uint8_t>& bytes);

// The side a texture gets: the nearest power of two (a tie goes up), at most 4096.
int powerOfTwoSide(int side);

enum class Format { Dxt1, Dxt5 };

struct Dds {
    std::vector<uint8_t> bytes; // the whole file
    int width = 0, height = 0, mips = 0;
    Format format = Format::Dxt1;
};

// The DDS file of an image: sides made powers of two, a mipmap chain down to
// 1x1, DXT1 when every pixel is opaque, else DXT5. A normal map (glTF's, +Y up)
// is written as the simulator reads bump maps: green inverted, X in alpha, DXT5.
Dds encode(const Image& image, bool normalMap);

// A DDS file's size, format and mipmap count ("1024x1024 DXT1 11 mips"); none
// when the bytes are not a DDS file.
std::optional<std::string> describe(const std::vector<uint8_t>& bytes);

// What became of one texture name.
struct Outcome {
    enum Kind { Written, Skipped, Failed } kind = Written;
    std::string name;   // as the X file has it
    std::string line;   // Written: "WING.DDS 1024x1024 DXT1 11 mips"
    std::string reason; // Skipped and Failed: the source and why
};

struct Options {
    std::string folder;      // where the DDS files go
    std::string sceneFolder; // where names of no glTF image are looked for
};

// Writes the named textures into the folder from their images; independent
// textures convert on the workers side by side (none: one after the other). A
// name two different images would take fails and names both; a texture that
// cannot be found or decoded is skipped.
std::vector<Outcome> writeTextures(const std::vector<std::string>& names,
                                   const std::vector<gltf::SourceImage>& images, const Options& options,
                                   platform::Workers* workers = nullptr);

} // namespace tarnvale::texture
