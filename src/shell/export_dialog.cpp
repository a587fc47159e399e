// The export dialog on a console.
#include "shell/shell.h"

namespace tarnvale::shell {

namespace {

class ConsoleExportDialog : public frmExport {
public:
    ConsoleExportDialog(bool ask, std::optional<std::string> name, std::FILE* in, std::FILE* out)
        : ask_(ask), name_(std::move(name)), in_(in), out_(out) {}

    void Show() override {
        if (name_) txtName = *name_;
        if (!ask_) {
            OKButton_Click();
            return;
        }
        std::fprintf(out_, "%s\n%s\n%s [%s]: ", Caption.c_str(), Label2.c_str(), Label1.c_str(), txtName.c_str());
        std::fflush(out_);
        std::string line;
        int c;
        while ((c = std::fgetc(in_)) != EOF && c != '\n') line += static_cast<char>(c);
        if (c == EOF && line.empty()) {
            std::fputc('\n', out_);
            CancelButton_Click();
            return;
        }
        if (!line.empty() && line.back() == '\r') line.pop_back();
        if (!line.empty()) txtName = line;
        OKButton_Click();
    }

private:
    bool ask_;
    std::optional<std::string> name_;
    std::FILE* in_;
    std::FILE* out_;
};

} // namespace

std::unique_ptr<frmExport> ConsoleExportDialogs::create() {
    return std::make_unique<ConsoleExportDialog>(ask_, name_, in_, out_);
}

} // namespace tarnvale::shell
