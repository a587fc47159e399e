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
        std::fprintf(out_, "%s\n%s\n%s [%s]: ", Caption.c_str(), Label2.c_str(), Label1.c_str(),
                     txtName.c_str());
        std::fflush(out_);
        std::string line;
        int c;
        while ((c = std::fgetc(in_)) != EOF && c != '\n')
            line += static_cast<char>(c);
        if (c == EOF && line.empty()) {
            std::fputc('\n', out_);
            CancelButton_Click();
            return;
        }
        std::string typed;
        for (size_t i = 0; i < line.size(); ++i) {
            const auto ch = static_cast<unsigned char>(line[i]);
            if (ch != 0x1B) {
                if (ch >= 0x20 && ch != 0x7F) typed += line[i];
                continue;
            }
            // A key's own sequence (an arrow: ESC [ A) is no Escape; it is dropped.
            if (i + 1 >= line.size() || (line[i + 1] != '[' && line[i + 1] != 'O')) {
                std::fputc('\n', out_);
                CancelButton_Click();
                return;
            }
            for (i += 2; i < line.size() && !(line[i] >= 0x40 && line[i] <= 0x7E); ++i) {
            }
        }
        if (!typed.empty()) txtName = typed;
        OKButton_Click();
    }

  private:
    bool ask_;
    std::optional<std::string> name_;
    std::FILE* in_;
    std::FILE* out_;
};

} // namespace

void frmExport::OKButton_Click() {
    std::string kept;
    for (char c : txtName)
        if (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F) kept += c;
    txtName = kept;
    bCancel = false;
}

std::unique_ptr<frmExport> ConsoleExportDialogs::create() {
    return std::make_unique<ConsoleExportDialog>(ask_, name_, in_, out_);
}

} // namespace tarnvale::shell
