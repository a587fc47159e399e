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
constexpr uint64_t kPow10i[] = {
    1ull,           10ull,           100ull,           1000ull,           10000ull,
    100000ull,      1000000ull,      10000000ull,      100000000ull,      1000000000ull,
    10000000000ull, 100000000000ull, 1000000000000ull, 10000000000000ull, 100000000000000ull};

constexpr char kPairs[201] =
    "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
    "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
    "8081828384858687888990919293949596979899";

int digitCount(uint64_t v) {
    // Most numbers here are small: comparisons, not divisions.
    int n = 1;
    for (uint64_t limit = 10; n < 20 && v >= limit; limit *= 10)
        ++n;
    return n;
}

// Decimal digits of v, two at a time from a table, written in place.
inline char* writeDigits(char* out, uint64_t v) {
    char* end = out + digitCount(v);
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
    return end;
}

// m / 10^k rounded half up, for k from 1 to 7, by constant divisors.
uint64_t roundDown(uint64_t m, int k) {
    switch (k) {
    case 1:
        return (m + 5) / 10;
    case 2:
        return (m + 50) / 100;
    case 3:
        return (m + 500) / 1000;
    case 4:
        return (m + 5000) / 10000;
    case 5:
        return (m + 50000) / 100000;
    case 6:
        return (m + 500000) / 1000000;
    case 7:
        return (m + 5000000) / 10000000;
    default:
        return 0;
    }
}

// Writes m * 10^(e-6), m having 7 digits, rounded to MaxDec decimals half away
// from zero, with minDec to MaxDec decimals.
template <int MaxDec> char* writeScaled(char* out, uint64_t m, int e, int minDec) {
    if (e >= 6) {
        // Whole number: the seven digits, then zeros.
        out = writeDigits(out, m);
        for (int i = 6; i < e; ++i)
            *out++ = '0';
        *out++ = '.';
        for (int i = 0; i < minDec; ++i)
            *out++ = '0';
        return out;
    }
    // The value in units of 10^-MaxDec: m * 10^(e - 6 + MaxDec).
    const int shift = e - 6 + MaxDec;
    const uint64_t units = shift >= 0 ? m * kPow10i[shift] : roundDown(m, -shift);
    constexpr uint64_t kOne = kPow10i[MaxDec];
    out = writeDigits(out, units / kOne);
    *out++ = '.';
    uint64_t frac = units % kOne;
    // All MaxDec decimals go in place; the zeros past minDec are then given back.
    int i = MaxDec;
    for (; i >= 2; i -= 2) {
        const auto pair = static_cast<size_t>(frac % 100) * 2;
        frac /= 100;
        out[i - 1] = kPairs[pair + 1];
        out[i - 2] = kPairs[pair];
    }
    if (i == 1) out[0] = static_cast<char>('0' + frac);
    int keep = MaxDec;
    while (keep > minDec && out[keep - 1] == '0')
        --keep;
    return out + keep;
}

char* writeScaled(char* out, uint64_t m, int e, int minDec, int maxDec) {
    switch (maxDec) {
    case 6:
        return writeScaled<6>(out, m, e, minDec);
    case 7:
        return writeScaled<7>(out, m, e, minDec);
    case 5:
        return writeScaled<5>(out, m, e, minDec);
    case 4:
        return writeScaled<4>(out, m, e, minDec);
    case 3:
        return writeScaled<3>(out, m, e, minDec);
    case 2:
        return writeScaled<2>(out, m, e, minDec);
    case 1:
        return writeScaled<1>(out, m, e, minDec);
    default:
        return writeScaled<0>(out, m, e, minDec);
    }
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
    while (i < ePos && s[i] == '.')
        ++i;
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
    for (int i = 0; i < minDec; ++i)
        *out++ = '0';
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
    while (n > 1 && digits[n - 1] == '0')
        --n;
    if (e >= 7 || e < -5) {
        // d.dddE+XX
        *p++ = digits[0];
        if (n > 1) {
            *p++ = '.';
            for (int i = 1; i < n; ++i)
                *p++ = digits[i];
        }
        *p++ = 'E';
        *p++ = e < 0 ? '-' : '+';
        int ae = e < 0 ? -e : e;
        *p++ = static_cast<char>('0' + ae / 10);
        *p++ = static_cast<char>('0' + ae % 10);
    } else if (e >= 0) {
        for (int i = 0; i <= e; ++i)
            *p++ = i < n ? digits[i] : '0';
        if (n > e + 1) {
            *p++ = '.';
            for (int i = e + 1; i < n; ++i)
                *p++ = digits[i];
        }
    } else {
        if (leadingZero) *p++ = '0';
        *p++ = '.';
        for (int i = -1; i > e; --i)
            *p++ = '0';
        for (int i = 0; i < n; ++i)
            *p++ = digits[i];
    }
    return std::string(buf, p);
}

char* plainNumberTo(int64_t value, char* out) {
    if (value < 0) {
        *out++ = '-';
        return writeDigits(out, static_cast<uint64_t>(0) - static_cast<uint64_t>(value));
    }
    return writeDigits(out, static_cast<uint64_t>(value));
}

std::string plainNumber(int64_t value) {
    char buf[24];
    return std::string(buf, std::to_chars(buf, buf + sizeof buf, value).ptr);
}

char* paddedNumberTo(int64_t value, char* out) {
    if (value >= 0) *out++ = ' ';
    out = std::to_chars(out, out + 21, value).ptr;
    *out++ = ' ';
    return out;
}

std::string paddedNumber(int64_t value) {
    char buf[26];
    return std::string(buf, paddedNumberTo(value, buf));
}

} // namespace tarnvale::platform
