// The code page of the generated files and the characters of UTF-8 text.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tarnvale::platform {

// ---- Code page --------------------------------------------------------------------

// Text inside the program is UTF-8; generated files are Windows-1252. A character
// that 1252 lacks becomes "?"; a byte that is not valid UTF-8 stands for itself.
std::string toWindows1252(std::string_view utf8);
// The Windows-1252 byte of a code point, -1 when the code page lacks it.
int windows1252Byte(uint32_t codePoint);
// Windows-1252 bytes (a template line, say) as UTF-8.
std::string fromWindows1252(std::string_view bytes);
// The text of a file as UTF-8: UTF-16LE (with its mark, or recognised by its
// second byte), UTF-8 (a mark dropped), else Windows-1252.
std::string decodeTextFile(std::string_view bytes);

// ---- Characters -------------------------------------------------------------------

// Characters of UTF-8 text, and the byte offset of the first `characters` ones.
size_t characterCount(std::string_view utf8);
size_t characterOffset(std::string_view utf8, size_t characters);
// Lower or upper case of the letters of Windows-1252 (others unchanged).
std::string lowerCase(std::string_view utf8);
std::string upperCase(std::string_view utf8);
// Comparisons by characters that ignore the case of Windows-1252's letters.
bool startsWithNoCase(std::string_view text, std::string_view prefix);
bool containsNoCase(std::string_view text, std::string_view part);

} // namespace tarnvale::platform
