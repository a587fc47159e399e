#include "xfile/index_texts.h"
#include "xfile/xfile.h"

#include <clocale>
#include <cmath>
#include <cstring>
#include <gtest/gtest.h>
#include <locale>
#include <random>

namespace tarnvale::xfile {
namespace {

TEST(FormatNumber, MaskRowsAndNonFiniteValues) {
    const std::pair<float, const char*> rows[] = {
        {0.0f, "0.00"},
        {1.0f, "1.00"},
        {0.5f, "0.50"},
        {-1.25f, "-1.25"},
        {0.1234567f, "0.123457"},
        {0.0000001f, "0.00"},
        {1000000.0f, "1000000.00"},
        {-2.5f, "-2.50"},
        {200.0f, "200.00"},
        {0.98f, "0.98"},
        {-0.0f, "0.00"},
        // Seven significant digits, not the binary value.
        {1.1f, "1.10"},
        {123456.7f, "123456.70"},
        {0.1f, "0.10"},
        {16777217.0f, "16777220.00"},
        {1e10f, "10000000000.00"},
        {3.4e38f, "340000000000000000000000000000000000000.00"},
        // Half away from zero at the sixth decimal, after the seven-digit step.
        {2.5e-6f, "0.000003"},
        {-2.5e-6f, "-0.000003"},
        {5e-7f, "0.000001"},
        {1.5e-6f, "0.000002"},
        {0.0000004f, "0.00"},
        {-0.0000001f, "-0.00"},
        {1.2345675f, "1.234568"},
        {9.9999999f, "10.00"},
        {0.9999995f, "1.00"},
    };
    for (auto [value, text] : rows)
        EXPECT_EQ(pFormatNumber(value), text) << "value " << value;
    EXPECT_THROW(pFormatNumber(std::nanf("")), Failure);
    EXPECT_THROW(pFormatNumber(INFINITY), Failure);
}

TEST(FormatNumber, FastPathAgreesWithExactReference) {
    std::mt19937 rng(12345);
    std::uniform_int_distribution<uint32_t> bits;
    std::uniform_real_distribution<float> unit(-1000.0f, 1000.0f);
    for (int i = 0; i < 1000000; ++i) {
        // Random bit patterns cover every magnitude; plain values cover the common range.
        uint32_t b = bits(rng);
        float v;
        std::memcpy(&v, &b, 4);
        if (i % 2) v = unit(rng);
        if (!std::isfinite(v)) continue;
        ASSERT_EQ(pFormatNumber(v), formatNumberReference(v)) << "bits " << b;
    }
    // Values on the seven-digit ties of the decimal grid.
    for (int k = 0; k < 100000; ++k) {
        float v = static_cast<float>(k) + 0.5f;
        ASSERT_EQ(pFormatNumber(v / 1024.0f), formatNumberReference(v / 1024.0f));
        ASSERT_EQ(pFormatNumber(v * 8.0f), formatNumberReference(v * 8.0f));
    }
}

TEST(FormatNumber, IgnoresTheLocale) {
    struct Comma : std::numpunct<char> {
        char do_decimal_point() const override { return ','; }
    };
    std::locale old = std::locale::global(std::locale(std::locale::classic(), new Comma));
    for (const char* name : {"de_DE.UTF-8", "fr_FR.UTF-8", "de_DE", "C.UTF-8"})
        if (std::setlocale(LC_ALL, name)) break;
    EXPECT_EQ(pFormatNumber(-1234.5f), "-1234.50");
    EXPECT_EQ(pFormatNumber(0.125f), "0.125");
    std::setlocale(LC_ALL, "C");
    std::locale::global(old);
}

TEST(Names, CleanNameAndTheLevelOfDetailWord) {
    for (auto [name, clean] : {std::pair{"My Plane?", "my_plane_"},
                               {"Wing Left", "wing_left"},
                               {"A-b.C#1", "a-b.c#1"},
                               {"\xC3\x84RA", "\xC3\xA4ra"}}) // upper-case A with diaeresis
        EXPECT_EQ(pCleanName(name), clean);
    for (auto [name, level] : {std::pair{"plane_LOD_100", true},
                               {"plane_lod_0", true},
                               {"Lod_", true},
                               {"x LoD_y", true},
                               {"\xC3\x84LOD_1", true},
                               {"plane_LOD100", false},
                               {"LO_D", false},
                               {"", false}})
        EXPECT_EQ(platform::isLevelOfDetail(name), level) << name;
}

// The mesh writer's index texts: from the table or formatted where they stand,
// every index reads as plainNumber writes it.
TEST(IndexTexts, EveryIndexReadsAsItsPlainNumber) {
    const IndexTexts texts(1000, 100);
    for (int32_t v : {0, 7, 9, 10, 99, 100, 999, 1000, 12345678, INT32_MAX, -1, INT32_MIN}) {
        char out[32];
        EXPECT_EQ(std::string(out, texts.write(v, out)), plainNumber(v)) << v;
    }
    const IndexTexts all(3000000); // the table stops at kMaxIndices
    for (int32_t v : {IndexTexts::kMaxIndices - 1, IndexTexts::kMaxIndices, 2999999}) {
        char out[32];
        EXPECT_EQ(std::string(out, all.write(v, out)), plainNumber(v)) << v;
    }
}

} // namespace
} // namespace tarnvale::xfile
