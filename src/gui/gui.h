// Qt 6 front ends: the material editor, the export dialog, message boxes and the
// common dialog's boxes, each drawn from its model and adding no rule of its own.
#pragma once

#include "editor/editor.h"
#include "shell/shell.h"

#include <memory>

class QApplication;
class QWidget;

namespace tarnvale::gui {

// The application object a run needs before any window; one per process.
class QtSession {
  public:
    QtSession(int& argc, char** argv);
    ~QtSession();
    QtSession(const QtSession&) = delete;
    QtSession& operator=(const QtSession&) = delete;

  private:
    std::unique_ptr<QApplication> app_;
};

// Pixels of a length in twips: 15 to the pixel at 96 dots an inch, scaled for
// the screen's dots per inch.
int pixels(int32_t twips, double dotsPerInch);

// frmOptions as a Qt dialog, modal, until the model closes the form.
class QtFormWindow : public editor::FormWindow {
  public:
    void showModal(editor::frmOptions& form) override;
};

// The common dialog as QFileDialog and QColorDialog.
class QtDialogBoxes : public editor::DialogBoxes {
  public:
    bool showOpen(editor::CommonDialog& cdlg) override;
    bool showSave(editor::CommonDialog& cdlg) override;
    bool showColor(editor::CommonDialog& cdlg) override;
};

// frmExport as a Qt dialog: Enter for OK, Escape for Cancel.
class QtExportDialogs : public shell::ExportDialogs {
  public:
    explicit QtExportDialogs(std::optional<std::string> name) : name_(std::move(name)) {}
    std::unique_ptr<shell::frmExport> create() override;

  private:
    std::optional<std::string> name_;
};

// Message boxes as Qt message boxes, waiting for OK.
class QtMessageBoxes : public platform::MessageBoxes {
  public:
    void show(const std::string& text, const std::string& title, platform::BoxIcon icon) override;
};

// The editor's dialog itself, for the tests and the screenshot tool: built from
// the form's model, synchronised with it after every action.
std::unique_ptr<QWidget> makeOptionsDialog(editor::frmOptions& form);
// Runs one model action through the dialog's widgets and lets them follow.
void refresh(QWidget& optionsDialog);

} // namespace tarnvale::gui
