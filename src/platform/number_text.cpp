// Numbers as text for the generated files: fixed masks on 32-bit floats in
// integer arithmetic, general forms, whole numbers. No locale anywhere.
#include "platform/number_text.h"

#include <charconv>
#include <cmath>
#include <cstring>

namespace tarnvale::platform {

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

constexpr char kPairs[201] = "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
                             "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
                             "8081828384858687888990919293949596979899";

// Decimal digits of v, two at a time from a table.
char* writeDigits(char* out, uint64_t v) {
    char tmp[24];
    char* end = tmp + sizeof tmp;
    char* p = end;
    while (v >= 100) {
        const auto pair = static_cast<size_t>(v % 100) * 2;
        v /= 100;
        *--p = kPairs[pair + 1];
        *--p = kPairs[pair];
    }
    if (v >= 10) {
        *--p = kPairs[v * 2 + 1];
        *--p = kPairs[v * 2];
    } else {
        *--p = static_cast<char>('0' + v);
    }
    const auto n = static_cast<size_t>(end - p);
    std::memcpy(out, p, n);
    return out + n;
}

// Writes m * 10^(e-6), m having 7 digits, rounded to maxDec decimals half away
// from zero, with minDec to maxDec decimals.
char* writeScaled(char* out, uint64_t m, int e, int minDec, int maxDec) {
    if (e >= 6) {
        // Whole number: the seven digits, then zeros.
        out = writeDigits(out, m);
        for (int i = 6; i < e; ++i) *out++ = '0';
        *out++ = '.';
        for (int i = 0; i < minDec; ++i) *out++ = '0';
        return out;
    }
    // The value in units of 10^-maxDec: m * 10^(e - 6 + maxDec).
    int shift = e - 6 + maxDec;
    uint64_t units;
    if (shift >= 0) {
        units = m * kPow10i[shift];
    } else if (shift >= -7) {
        uint64_t div = kPow10i[-shift];
        units = (m + div / 2) / div;
    } else {
        units = 0;
    }
    const uint64_t one = kPow10i[maxDec];
    out = writeDigits(out, units / one);
    *out++ = '.';
    uint64_t frac = units % one;
    char f[16];
    int i = maxDec;
    for (; i >= 2; i -= 2) {
        const auto pair = static_cast<size_t>(frac % 100) * 2;
        frac /= 100;
        f[i - 1] = kPairs[pair + 1];
        f[i - 2] = kPairs[pair];
    }
    if (i == 1) f[0] = static_cast<char>('0' + frac);
    int keep = maxDec;
    while (keep > minDec && f[keep - 1] == '0') --keep;
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

char* writeZero(char* out, int minDec) {
    *out++ = '0';
    *out++ = '.';
    for (int i = 0; i < minDec; ++i) *out++ = '0';
    return out;
}

// The seven significant digits of a (> 0, finite), half away from zero.
void sevenDigits(double a, bool exactOnly, uint64_t& m, int& e);

char* formatFinite(float value, char* out, int minDec, int maxDec, bool exactOnly) {
    if (value == 0.0f) return writeZero(out, minDec);
    double a = std::fabs(static_cast<double>(value));
    if (value < 0) *out++ = '-';
    // Far below the last decimal: zero even after the seven-digit step.
    static constexpr double kZeroBelow[] = {4e-2, 4e-3, 4e-4, 4e-5, 4e-6, 4e-7, 4e-8, 4e-9};
    if (a < kZeroBelow[maxDec]) return writeZero(out, minDec);
    uint64_t m = 0;
    int e = 0;
    sevenDigits(a, exactOnly, m, e);
    return writeScaled(out, m, e, minDec, maxDec);
}

void sevenDigits(double a, bool exactOnly, uint64_t& m, int& e) {
    m = 0;
    e = 0;
    if (!exactOnly && a >= 1e-15 && a < 1e22) {
        // The binary exponent gives the decimal one, or one below it.
        uint64_t bits;
        std::memcpy(&bits, &a, 8);
        const int e2 = static_cast<int>((bits >> 52) & 0x7FF) - 1023;
        e = (e2 * 78913) >> 18; // floor(e2 * log10(2))
        for (int tries = 0; tries < 3; ++tries) {
            const int k = 6 - e;
            const double scaled = k >= 0 ? a * kPow10[k] : a / kPow10[-k];
            if (scaled >= 1e7) {
                ++e;
                continue;
            }
            if (scaled < 1e6) {
                --e;
                continue;
            }
            const auto whole = static_cast<uint64_t>(scaled);
            const double frac = scaled - static_cast<double>(whole);
            // The double product is off by far less than 1e-6 here; near a tie the
            // exact expansion decides.
            if (std::fabs(frac - 0.5) < 1e-6) break;
            m = whole + (frac > 0.5 ? 1 : 0);
            if (m == 10000000) {
                m = 1000000;
                ++e;
            }
            return;
        }
    }
    exactDigits(a, m, e);
}

void checkFinite(float value) {
    if (!std::isfinite(value)) throw Failure(err::kOverflow, "Overflow");
}

} // namespace

char* formatMaskTo(float value, int minDecimals, int maxDecimals, char* out) {
    checkFinite(value);
    return formatFinite(value, out, minDecimals, maxDecimals, false);
}

std::string formatMask(float value, int minDecimals, int maxDecimals) {
    char buf[kMaxNumberText];
    return std::string(buf, formatMaskTo(value, minDecimals, maxDecimals, buf));
}

std::string formatMaskReference(float value, int minDecimals, int maxDecimals) {
    checkFinite(value);
    char buf[kMaxNumberText];
    return std::string(buf, formatFinite(value, buf, minDecimals, maxDecimals, true));
}

std::string generalSingle(float value, bool leadingZero) {
    checkFinite(value);
    if (value == 0.0f) return "0";
    char buf[kMaxNumberText];
    char* p = buf;
    double a = std::fabs(static_cast<double>(value));
    if (value < 0) *p++ = '-';
    uint64_t m = 0;
    int e = 0;
    sevenDigits(a, false, m, e);
    char digits[8];
    for (int i = 6; i >= 0; --i) {
        digits[i] = static_cast<char>('0' + m % 10);
        m /= 10;
    }
    int n = 7;
    while (n > 1 && digits[n - 1] == '0') --n;
    if (e >= 7 || e < -5) {
        // d.dddE+XX
        *p++ = digits[0];
        if (n > 1) {
            *p++ = '.';
            for (int i = 1; i < n; ++i) *p++ = digits[i];
        }
        *p++ = 'E';
        *p++ = e < 0 ? '-' : '+';
        int ae = e < 0 ? -e : e;
        *p++ = static_cast<char>('0' + ae / 10);
        *p++ = static_cast<char>('0' + ae % 10);
    } else if (e >= 0) {
        for (int i = 0; i <= e; ++i) *p++ = i < n ? digits[i] : '0';
        if (n > e + 1) {
            *p++ = '.';
            for (int i = e + 1; i < n; ++i) *p++ = digits[i];
        }
    } else {
        if (leadingZero) *p++ = '0';
        *p++ = '.';
        for (int i = -1; i > e; --i) *p++ = '0';
        for (int i = 0; i < n; ++i) *p++ = digits[i];
    }
    return std::string(buf, p);
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

} // namespace tarnvale::platform
