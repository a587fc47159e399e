// Numbers as text in generated files. Every number of the X and XANIM files goes
// through these; none looks at the locale.
#pragma once

#include "host/host.h"

#include <cstdint>
#include <string>

namespace tarnvale::platform {

// Longest text of a masked number.
inline constexpr size_t kMaxNumberText = 64;

// A 32-bit float by a mask "0.0…#…": taken at seven significant digits, rounded to
// maxDecimals half away from zero, with minDecimals to maxDecimals decimals, "."
// as the point, no exponent, "-" ahead of a negative value. Overflow on NaN or
// infinity. maxDecimals is at most 7.
std::string formatMask(float value, int minDecimals, int maxDecimals);
// The same into out (at least kMaxNumberText bytes); gives the end.
char* formatMaskTo(float value, int minDecimals, int maxDecimals, char* out);
// The same from the exact decimal expansion alone: slow, the reference for tests.
std::string formatMaskReference(float value, int minDecimals, int maxDecimals);

// A 32-bit float in its general form: at most seven significant digits, no
// trailing zeros, E notation below 1E-05 and from 1E+07 on. Without leadingZero a
// value below 1 has no digit before the point (".1").
std::string generalSingle(float value, bool leadingZero);

// Decimal digits with "-" ahead of a negative value: 42 -> "42".
std::string plainNumber(int64_t value);
// The same into out (at least 21 bytes); gives the end.
char* plainNumberTo(int64_t value, char* out);
// A blank (or "-") ahead, the digits, one blank behind: 42 -> " 42 ", -3 -> "-3 ".
std::string paddedNumber(int64_t value);
// The same into out (at least 22 bytes); gives the end.
char* paddedNumberTo(int64_t value, char* out);

} // namespace tarnvale::platform
