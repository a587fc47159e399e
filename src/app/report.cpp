// The export's report for programs that run the command (the Blender add-on):
// one JSON object a line, written as things happen.
#include "app/command.h"

#include <cmath>
#include <nlohmann/json.hpp>

namespace tarnvale::app {

namespace {

// Box texts part their lines with CR, as Windows boxes do; the report with LF.
std::string lines(std::string text) {
    for (char& c : text)
        if (c == '\r') c = '\n';
    return text;
}

} // namespace

void JsonReport::write(const nlohmann::json& object) {
    std::fprintf(out_, "%s\n", object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
    std::fflush(out_);
}

void JsonReport::report(const std::string& stage, double share) {
    // A line for each new stage and each further percent: enough for a progress bar.
    if (stage == stage_ && share < share_ + 0.01) return;
    stage_ = stage;
    share_ = share;
    write({{"stage", stage}, {"share", std::round(share * 1000) / 1000}});
}

void JsonReport::show(const std::string& text, const std::string& title, platform::BoxIcon icon) {
    write({{"box", {{"title", title}, {"text", lines(text)}, {"icon", platform::iconName(icon)}}}});
}

void JsonReport::note(const char* kind, const std::string& text) {
    write({{kind, text}});
}

void JsonReport::finding(const nlohmann::json& finding) {
    write({{"finding", finding}});
}

void JsonReport::budget(const nlohmann::json& level) {
    write({{"budget", level}});
}

void JsonReport::result(int code, const std::vector<std::string>& files) {
    write({{"result", {{"code", code}, {"files", files}}}});
}

} // namespace tarnvale::app
