// Win32 front ends for the Windows build: the material editor, the export dialog
// and the common dialog's boxes, drawn from the same models as the Qt ones and
// adding no rule of their own.
#pragma once

#include "editor/editor.h"
#include "shell/shell.h"

#include <memory>

namespace tarnvale::gui {

// frmOptions as a Win32 window, modal, until the model closes the form.
class Win32FormWindow : public editor::FormWindow {
  public:
    void showModal(editor::frmOptions& form) override;
};

// The common dialog as GetOpenFileNameW, GetSaveFileNameW and ChooseColorW.
class Win32DialogBoxes : public editor::DialogBoxes {
  public:
    bool showOpen(editor::CommonDialog& cdlg) override;
    bool showSave(editor::CommonDialog& cdlg) override;
    bool showColor(editor::CommonDialog& cdlg) override;
};

// frmExport as a Win32 dialog: Enter for OK, Escape for Cancel.
class Win32ExportDialogs : public shell::ExportDialogs {
  public:
    explicit Win32ExportDialogs(std::optional<std::string> name) : name_(std::move(name)) {}
    std::unique_ptr<shell::frmExport> create() override;

  private:
    std::optional<std::string> name_;
};

// The editor's window itself, for the tests and the screenshot tool.
class OptionsWindow {
  public:
    virtual ~OptionsWindow() = default;
    // The window (an HWND).
    virtual void* handle() const = 0;
    // The control's window by the model's name, for a test to click.
    virtual void* control(const std::string& name) const = 0;
    // Runs the window's messages until the model closes the form.
    virtual void runModal() = 0;
    // Lets the widgets follow the model after a change made outside the window.
    virtual void sync() = 0;
};
std::unique_ptr<OptionsWindow> makeOptionsWindow(editor::frmOptions& form);

} // namespace tarnvale::gui
