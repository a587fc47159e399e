// Message boxes on the console, GUIDs and the long date and time texts.
#include "platform/platform.h"

#include <ctime>
#include <random>
#include <unistd.h>

namespace tarnvale::platform {

const char* iconName(BoxIcon icon) {
    switch (icon) {
    case BoxIcon::Information:
        return "information";
    case BoxIcon::Critical:
        return "critical";
    case BoxIcon::Plain:
        break;
    }
    return "plain";
}

void ConsoleBoxes::show(const std::string& text, const std::string& title, BoxIcon icon) {
    std::string body = text;
    for (char& c : body)
        if (c == '\r') c = '\n';
    std::fprintf(out_, "[%s] %s\n%s\n", iconName(icon), title.c_str(), body.c_str());
    std::fflush(out_);
    if (wait_ && ::isatty(STDIN_FILENO)) {
        std::fprintf(out_, "(press Enter)");
        std::fflush(out_);
        int c;
        while ((c = std::getchar()) != '\n' && c != EOF) {
        }
    }
}

#ifndef _WIN32
// Windows has its own: CoCreateGuid and the locale's formats (windows.cpp).
bool RandomGuids::create(Guid& out) {
    std::random_device rd;
    uint8_t b[16];
    for (int i = 0; i < 16; i += 4) {
        uint32_t r = rd();
        for (int k = 0; k < 4; ++k)
            b[i + k] = static_cast<uint8_t>(r >> (8 * k));
    }
    out.data1 = uint32_t(b[0]) << 24 | uint32_t(b[1]) << 16 | uint32_t(b[2]) << 8 | b[3];
    out.data2 = static_cast<uint16_t>(b[4] << 8 | b[5]);
    out.data3 = static_cast<uint16_t>(((b[6] << 8 | b[7]) & 0x0FFF) | 0x4000); // version 4
    for (int i = 0; i < 8; ++i)
        out.data4[i] = b[8 + i];
    out.data4[0] = static_cast<uint8_t>((out.data4[0] & 0x3F) | 0x80); // RFC 4122 variant
    return true;
}

namespace {

std::string formatNow(const char* format) {
    std::time_t t = std::time(nullptr);
    std::tm tm{};
    localtime_r(&t, &tm);
    char buf[128];
    size_t n = std::strftime(buf, sizeof buf, format, &tm);
    return std::string(buf, n);
}

} // namespace

std::string SystemClock::longDate() {
    return formatNow("%A, %d %B %Y");
}
std::string SystemClock::longTime() {
    return formatNow("%H:%M:%S");
}
#endif

} // namespace tarnvale::platform
