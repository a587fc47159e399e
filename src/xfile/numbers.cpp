// The written forms of numbers: pFormatNumber's mask "0.00####" on a 32-bit float,
// and the plain and padded whole numbers. Integer arithmetic, no locale.
#include "xfile/xfile.h"

#include <charconv>
#include <cmath>
#include <cstring>

namespace tarnvale::xfile {

namespace {

constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                             1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
constexpr uint64_t kPow10i[] = {1ull,
                                10ull,
                                100ull,
                                1000ull,
                                10000ull,
                                100000ull,
                                1000000ull,
                                10000000ull,
                                100000000ull,
                                1000000000ull,
                                10000000000ull,
                                100000000000ull,
                                1000000000000ull,
                                10000000000000ull,
                                100000000000000ull};

char* writeDigits(char* out, uint64_t v) { return std::to_chars(out, out + 24, v).ptr; }

// Writes m * 10^(e-6), m having 7 digits, rounded to six decimals half away from
// zero, with two to six decimals.
char* writeScaled(char* out, uint64_t m, int e) {
    if (e >= 6) {
        // Whole number: the seven digits, then zeros.
        out = writeDigits(out, m);
        for (int i = 6; i < e; ++i) *out++ = '0';
        *out++ = '.';
        *out++ = '0';
        *out++ = '0';
        return out;
    }
    uint64_t micro; // the value in millionths
    if (e >= 0) {
        micro = m * kPow10i[e];
    } else if (e >= -7) {
        uint64_t div = kPow10i[-e];
        micro = (m + div / 2) / div;
    } else {
        micro = 0;
    }
    out = writeDigits(out, micro / 1000000);
    *out++ = '.';
    uint64_t frac = micro % 1000000;
    char f[6];
    for (int i = 5; i >= 0; --i) {
        f[i] = static_cast<char>('0' + frac % 10);
        frac /= 10;
    }
    int keep = 6;
    while (keep > 2 && f[keep - 1] == '0') --keep;
    std::memcpy(out, f, keep);
    return out + keep;
}

// The seven significant digits of a (> 0, finite) from its exact decimal
// expansion, half away from zero: m in [1e6, 1e7), a ~ m * 10^(e-6).
void exactDigits(double a, uint64_t& m, int& e) {
    char buf[160];
    auto r = std::to_chars(buf, buf + sizeof buf, a, std::chars_format::scientific, 120);
    // d.ddd...e±x: 121 digits of the exact value (floats need fewer).
    std::string_view s(buf, r.ptr - buf);
    size_t ePos = s.find('e');
    int exp10 = 0;
    std::from_chars(s.data() + ePos + 1 + (s[ePos + 1] == '+'), s.data() + s.size(), exp10);
    m = 0;
    int taken = 0;
    size_t i = 0;
    for (; i < ePos && taken < 7; ++i) {
        if (s[i] == '.') continue;
        m = m * 10 + static_cast<uint64_t>(s[i] - '0');
        ++taken;
    }
    while (i < ePos && s[i] == '.') ++i;
    if (i < ePos && s[i] >= '5') ++m;
    e = exp10;
    if (m >= 10000000) {
        m /= 10;
        ++e;
    }
}

char* formatFinite(float value, char* out, bool exactOnly) {
    if (value == 0.0f) {
        std::memcpy(out, "0.00", 4);
        return out + 4;
    }
    double a = std::fabs(static_cast<double>(value));
    if (value < 0) *out++ = '-';
    // Anything below 5e-8 is 0.00 at six decimals, even after the seven-digit step.
    if (a < 4.0e-8) {
        std::memcpy(out, "0.00", 4);
        return out + 4;
    }
    uint64_t m = 0;
    int e = 0;
    bool exact = exactOnly || a >= 1e22;
    if (!exact) {
        e = static_cast<int>(std::floor(std::log10(a)));
        for (int tries = 0; tries < 3; ++tries) {
            int k = 6 - e;
            if (k > 22 || k < -22) {
                exact = true;
                break;
            }
            double scaled = k >= 0 ? a * kPow10[k] : a / kPow10[-k];
            if (scaled >= 1e7) {
                ++e;
                continue;
            }
            if (scaled < 1e6) {
                --e;
                continue;
            }
            double fl = std::floor(scaled);
            double frac = scaled - fl;
            // The double product is off by far less than 1e-6 here; near a tie the
            // exact expansion decides.
            if (std::fabs(frac - 0.5) < 1e-6) {
                exact = true;
                break;
            }
            m = static_cast<uint64_t>(fl) + (frac > 0.5 ? 1 : 0);
            if (m == 10000000) {
                m = 1000000;
                ++e;
            }
            break;
        }
        if (m == 0) exact = true;
    }
    if (exact) exactDigits(a, m, e);
    return writeScaled(out, m, e);
}

} // namespace

char* formatNumberTo(float value, char* out) {
    if (!std::isfinite(value)) throw Failure(err::kOverflow, "Overflow");
    return formatFinite(value, out, false);
}

std::string pFormatNumber(float value) {
    char buf[kMaxNumberText];
    return std::string(buf, formatNumberTo(value, buf));
}

std::string formatNumberReference(float value) {
    if (!std::isfinite(value)) throw Failure(err::kOverflow, "Overflow");
    char buf[kMaxNumberText];
    return std::string(buf, formatFinite(value, buf, true));
}

std::string plainNumber(int64_t value) {
    char buf[24];
    return std::string(buf, std::to_chars(buf, buf + sizeof buf, value).ptr);
}

std::string paddedNumber(int64_t value) {
    char buf[26];
    char* p = buf;
    if (value >= 0) *p++ = ' ';
    p = std::to_chars(p, buf + 24, value).ptr;
    *p++ = ' ';
    return std::string(buf, p);
}

} // namespace tarnvale::xfile
