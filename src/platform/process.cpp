// How Windows reads a command line: its arguments and the program it starts.
#include "platform/platform.h"

#include <optional>

namespace tarnvale::platform {

std::vector<std::string> splitCommandLine(std::string_view s) {
    std::vector<std::string> args;
    size_t i = 0;
    while (true) {
        while (i < s.size() && (s[i] == ' ' || s[i] == '\t'))
            ++i;
        if (i >= s.size()) break;
        std::string arg;
        bool quoted = false;
        while (i < s.size()) {
            char c = s[i];
            if (!quoted && (c == ' ' || c == '\t')) break;
            if (c == '\\') {
                size_t n = 0;
                while (i < s.size() && s[i] == '\\')
                    ++n, ++i;
                if (i < s.size() && s[i] == '"') {
                    arg.append(n / 2, '\\');
                    if (n % 2) {
                        arg += '"';
                        ++i;
                    }
                } else {
                    arg.append(n, '\\');
                }
                continue;
            }
            if (c == '"') {
                // Inside quotes, "" is a literal quote.
                if (quoted && i + 1 < s.size() && s[i + 1] == '"') {
                    arg += '"';
                    i += 2;
                    continue;
                }
                quoted = !quoted;
                ++i;
                continue;
            }
            arg += c;
            ++i;
        }
        args.push_back(std::move(arg));
    }
    return args;
}

std::optional<std::pair<std::string, std::string>>
findProgram(std::string_view line, const std::function<bool(const std::string&)>& isFile) {
    size_t start = 0;
    while (start < line.size() && (line[start] == ' ' || line[start] == '\t'))
        ++start;
    if (start < line.size() && line[start] == '"') {
        const size_t close = line.find('"', start + 1);
        const size_t end = close == std::string_view::npos ? line.size() : close;
        std::string program(line.substr(start + 1, end - start - 1));
        if (!isFile(program)) return std::nullopt;
        return std::make_pair(program, std::string(line.substr(std::min(line.size(), end + 1))));
    }
    auto withExtension = [](std::string candidate) {
        const size_t name = candidate.find_last_of("\\/");
        if (candidate.find('.', name == std::string::npos ? 0 : name) == std::string::npos)
            candidate += ".exe";
        return candidate;
    };
    const size_t quote = line.find('"', start);
    const std::string_view run =
        line.substr(start, quote == std::string_view::npos ? std::string_view::npos : quote - start);
    for (size_t at = 1; at <= run.size(); ++at) {
        // A candidate ends before each blank that follows a word, and at the run's end.
        const bool wordEnds = at == run.size() || run[at] == ' ' || run[at] == '\t';
        if (!wordEnds || run[at - 1] == ' ' || run[at - 1] == '\t') continue;
        const std::string candidate = withExtension(std::string(run.substr(0, at)));
        if (isFile(candidate)) return std::make_pair(candidate, std::string(line.substr(start + at)));
    }
    return std::nullopt;
}

} // namespace tarnvale::platform
