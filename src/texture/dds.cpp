// Images to DDS: decoding, power-of-two sides, the mipmap chain, DXT compression
// and the DDS header.
#include "texture/texture.h"

#ifdef TARNVALE_HAVE_WEBP
#include <webp/decode.h>
#endif

#include <squish.h>
#include <stb/stb_image.h>
#include <stb/stb_image_resize.h>

#include <algorithm>
#include <cstring>

namespace tarnvale::texture {

namespace {

constexpr int kMaxSide = 4096;

uint32_t fourCc(Format f) {
    return f == Format::Dxt1 ? 0x31545844u : 0x35545844u;
} // "DXT1", "DXT5"

void put32(std::vector<uint8_t>& out, uint32_t v) {
    for (int i = 0; i < 4; ++i)
        out.push_back(static_cast<uint8_t>(v >> (8 * i)));
}

uint32_t get32(const std::vector<uint8_t>& in, size_t at) {
    return uint32_t(in[at]) | uint32_t(in[at + 1]) << 8 | uint32_t(in[at + 2]) << 16 |
           uint32_t(in[at + 3]) << 24;
}

// The 128 bytes before the data: "DDS ", the header, its pixel format.
void writeHeader(std::vector<uint8_t>& out, int width, int height, int mips, Format format,
                 uint32_t topLevelSize) {
    out.insert(out.end(), {'D', 'D', 'S', ' '});
    put32(out, 124);
    put32(out, 0x1 | 0x2 | 0x4 | 0x1000 | 0x20000 |
                   0x80000); // caps, height, width, pixel format, mips, linear size
    put32(out, static_cast<uint32_t>(height));
    put32(out, static_cast<uint32_t>(width));
    put32(out, topLevelSize);
    put32(out, 0); // depth
    put32(out, static_cast<uint32_t>(mips));
    for (int i = 0; i < 11; ++i)
        put32(out, 0);
    put32(out, 32);  // pixel format size
    put32(out, 0x4); // a four-character code
    put32(out, fourCc(format));
    for (int i = 0; i < 5; ++i)
        put32(out, 0);                   // bit count and masks
    put32(out, 0x1000 | 0x400000 | 0x8); // texture, mipmap, complex
    for (int i = 0; i < 4; ++i)
        put32(out, 0);
}

Image resized(const Image& in, int width, int height, bool linear) {
    if (in.width == width && in.height == height) return in;
    Image out{width, height, std::vector<uint8_t>(static_cast<size_t>(width) * height * 4)};
    // Colour is filtered in sRGB's linear light, its alpha apart; normal maps as numbers.
    if (linear)
        stbir_resize_uint8(in.rgba.data(), in.width, in.height, 0, out.rgba.data(), width, height, 0, 4);
    else
        stbir_resize_uint8_srgb(in.rgba.data(), in.width, in.height, 0, out.rgba.data(), width, height, 0, 4,
                                3, 0);
    return out;
}

} // namespace

// A WebP file: a RIFF container of the WEBP form.
static bool isWebp(const std::vector<uint8_t>& bytes) {
    return bytes.size() >= 12 && std::memcmp(bytes.data(), "RIFF", 4) == 0 &&
           std::memcmp(bytes.data() + 8, "WEBP", 4) == 0;
}

std::optional<Image> decode(const std::vector<uint8_t>& bytes, std::string& why) {
    int w = 0, h = 0, channels = 0;
    if (bytes.size() > static_cast<size_t>(INT32_MAX)) {
        why = "the image is larger than 2 GiB";
        return std::nullopt;
    }
    if (isWebp(bytes)) {
#ifdef TARNVALE_HAVE_WEBP
        uint8_t* pixels = WebPDecodeRGBA(bytes.data(), bytes.size(), &w, &h);
        if (!pixels) {
            why = "a WebP image that cannot be decoded";
            return std::nullopt;
        }
        Image image{w, h, std::vector<uint8_t>(pixels, pixels + static_cast<size_t>(w) * h * 4)};
        WebPFree(pixels);
        return image;
#else
        why = "a WebP image, which this build does not read: save it as PNG";
        return std::nullopt;
#endif
    }
    stbi_uc* pixels =
        stbi_load_from_memory(bytes.data(), static_cast<int>(bytes.size()), &w, &h, &channels, 4);
    if (!pixels) {
        const char* reason = stbi_failure_reason();
        why = std::string("not an image this program reads (PNG, JPEG, BMP, TGA): ") +
              (reason ? reason : "unknown");
        return std::nullopt;
    }
    Image image{w, h, std::vector<uint8_t>(pixels, pixels + static_cast<size_t>(w) * h * 4)};
    stbi_image_free(pixels);
    return image;
}

int powerOfTwoSide(int side) {
    int below = 1;
    while (below * 2 <= side && below < kMaxSide)
        below *= 2;
    if (below >= kMaxSide) return kMaxSide;
    const int above = below * 2;
    return side - below < above - side ? below : above;
}

Dds encode(const Image& source, bool normalMap) {
    Image base = resized(source, powerOfTwoSide(source.width), powerOfTwoSide(source.height), normalMap);
    bool opaque = true;
    if (normalMap) {
        // glTF's normals point +Y up, the simulator's down: green turns over, and
        // X goes to alpha, where DXT5 keeps it best.
        for (size_t i = 0; i < base.rgba.size(); i += 4) {
            const uint8_t x = base.rgba[i];
            base.rgba[i] = 0;
            base.rgba[i + 1] = static_cast<uint8_t>(255 - base.rgba[i + 1]);
            base.rgba[i + 2] = 0;
            base.rgba[i + 3] = x;
        }
        opaque = false;
    } else {
        for (size_t i = 3; i < base.rgba.size() && opaque; i += 4)
            opaque = base.rgba[i] == 255;
    }
    Dds dds;
    dds.width = base.width;
    dds.height = base.height;
    dds.format = opaque ? Format::Dxt1 : Format::Dxt5;
    const int flags = (opaque ? squish::kDxt1 : squish::kDxt5) | squish::kColourClusterFit;
    dds.mips = 1;
    for (int w = base.width, h = base.height; w > 1 || h > 1; w = std::max(1, w / 2), h = std::max(1, h / 2))
        ++dds.mips;
    const auto topSize =
        static_cast<uint32_t>(squish::GetStorageRequirements(base.width, base.height, flags));
    size_t total = 128;
    for (int w = base.width, h = base.height, m = 0; m < dds.mips;
         ++m, w = std::max(1, w / 2), h = std::max(1, h / 2))
        total += static_cast<size_t>(squish::GetStorageRequirements(w, h, flags));
    dds.bytes.reserve(total);
    writeHeader(dds.bytes, dds.width, dds.height, dds.mips, dds.format, topSize);
    Image level = std::move(base);
    for (int m = 0; m < dds.mips; ++m) {
        if (m > 0)
            level = resized(level, std::max(1, level.width / 2), std::max(1, level.height / 2), normalMap);
        const size_t at = dds.bytes.size();
        dds.bytes.resize(
            at + static_cast<size_t>(squish::GetStorageRequirements(level.width, level.height, flags)));
        squish::CompressImage(level.rgba.data(), level.width, level.height, dds.bytes.data() + at, flags);
    }
    return dds;
}

std::optional<std::string> describe(const std::vector<uint8_t>& bytes) {
    if (bytes.size() < 128 || std::memcmp(bytes.data(), "DDS ", 4) != 0 || get32(bytes, 4) != 124)
        return std::nullopt;
    const uint32_t height = get32(bytes, 12), width = get32(bytes, 16), mips = std::max(1u, get32(bytes, 28));
    std::string format = "uncompressed";
    if (get32(bytes, 80) & 0x4) { // a four-character code names the format
        format.assign(reinterpret_cast<const char*>(bytes.data()) + 84, 4);
        format.erase(std::remove(format.begin(), format.end(), '\0'), format.end());
    }
    return std::to_string(width) + "x" + std::to_string(height) + " " + format + " " + std::to_string(mips) +
           (mips == 1 ? " mip" : " mips");
}

std::optional<std::pair<int, int>> imageSize(const std::vector<uint8_t>& bytes) {
    if (describe(bytes)) {
        const uint32_t height = get32(bytes, 12), width = get32(bytes, 16);
        if (width > INT32_MAX || height > INT32_MAX) return std::nullopt;
        return std::pair<int, int>(static_cast<int>(width), static_cast<int>(height));
    }
    int w = 0, h = 0, channels = 0;
#ifdef TARNVALE_HAVE_WEBP
    if (isWebp(bytes))
        return WebPGetInfo(bytes.data(), bytes.size(), &w, &h) ? std::optional(std::pair<int, int>(w, h))
                                                               : std::nullopt;
#endif
    if (bytes.size() > static_cast<size_t>(INT32_MAX) ||
        !stbi_info_from_memory(bytes.data(), static_cast<int>(bytes.size()), &w, &h, &channels))
        return std::nullopt;
    return std::pair<int, int>(w, h);
}

} // namespace tarnvale::texture
