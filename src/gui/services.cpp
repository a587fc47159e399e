// The Qt session, the common dialog's boxes, frmExport and message boxes.
#include "gui/gui.h"

#include <QApplication>
#include <QCloseEvent>
#include <QColorDialog>
#include <QDialog>
#include <QFileDialog>
#include <QLabel>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QScreen>
#include <cstdlib>

namespace tarnvale::gui {

namespace {

// "Name|*.a;*.b|Other|*.c" as Qt writes it: "Name (*.a *.b);;Other (*.c)".
QString qtFilter(const std::string& filter) {
    QStringList parts = QString::fromStdString(filter).split('|');
    QStringList out;
    for (int i = 0; i + 1 < parts.size(); i += 2)
        out << parts[i] + " (" + parts[i + 1].replace(';', ' ') + ")";
    return out.join(";;");
}

// The folder and name a box starts from: the common dialog's file name, with
// wildcards standing for no name.
QString startPath(const std::string& fileName) {
    QString path = QString::fromStdString(platform::nativePath(fileName));
    if (path.contains('*')) path = path.left(path.lastIndexOf('/') + 1);
    return path;
}

bool pickFile(editor::CommonDialog& cdlg, QFileDialog::AcceptMode mode) {
    QFileDialog box(nullptr, QString::fromStdString(cdlg.DialogTitle), startPath(cdlg.FileName),
                    qtFilter(cdlg.Filter));
    box.setAcceptMode(mode);
    box.setDefaultSuffix(QString::fromStdString(cdlg.DefaultExt));
    box.setFileMode(mode == QFileDialog::AcceptOpen ? QFileDialog::ExistingFile : QFileDialog::AnyFile);
    box.setOption(QFileDialog::DontConfirmOverwrite); // the library replaces a file without asking
    if (box.exec() != QDialog::Accepted || box.selectedFiles().isEmpty()) return false;
    cdlg.FileName = platform::windowsPath(box.selectedFiles().front().toStdString());
    return true;
}

// Escape and the Cancel button reject the dialog; the title bar's close box only
// ends it, setting no flag, so that the export goes on.
class ExportWindow : public QDialog {
  public:
    bool cancelled = false;
    void reject() override {
        cancelled = true;
        QDialog::reject();
    }

  protected:
    void closeEvent(QCloseEvent* e) override {
        e->accept();
        done(Rejected);
    }
};

class QtExportDialog : public shell::frmExport {
  public:
    explicit QtExportDialog(std::optional<std::string> name) : name_(std::move(name)) {}

    void Show() override {
        if (name_) txtName = *name_;
        ExportWindow dialog;
        dialog.setWindowTitle(QString::fromStdString(Caption));
        dialog.setWindowFlags(Qt::Dialog | Qt::WindowTitleHint | Qt::WindowCloseButtonHint |
                              Qt::MSWindowsFixedSizeDialogHint);
        const QScreen* screen = QGuiApplication::primaryScreen();
        const double dpi = screen ? screen->logicalDotsPerInch() : 96.0;
        auto place = [&](QWidget* w, const char* name, int l, int t, int wd, int h) {
            w->setObjectName(name);
            w->setGeometry(pixels(l, dpi), pixels(t, dpi), pixels(wd, dpi), pixels(h, dpi));
        };
        dialog.setFixedSize(pixels(6030, dpi), pixels(1170, dpi));
        // In their tab order: OK, Cancel, the name, its caption, the GUID line.
        auto* ok = new QPushButton("OK", &dialog);
        auto* cancel = new QPushButton("Cancel", &dialog);
        auto* name = new QLineEdit(QString::fromStdString(txtName), &dialog);
        place(ok, "OKButton", 4680, 120, 1215, 375);
        place(cancel, "CancelButton", 4680, 600, 1215, 375);
        place(name, "txtName", 1080, 120, 3435, 315);
        place(new QLabel(QString::fromStdString(Label1), &dialog), "Label1", 300, 180, 735, 195);
        place(new QLabel(QString::fromStdString(Label2), &dialog), "Label2", 300, 540, 4215, 255);
        ok->setDefault(true); // Enter
        QObject::connect(ok, &QPushButton::clicked, &dialog, &QDialog::accept);
        QObject::connect(cancel, &QPushButton::clicked, &dialog, &QDialog::reject);
        name->setFocus();
        dialog.exec();
        txtName = name->text().toStdString();
        if (dialog.cancelled)
            CancelButton_Click();
        else
            OKButton_Click();
    }

  private:
    std::optional<std::string> name_;
};

} // namespace

QtSession::QtSession(int& argc, char** argv) : app_(std::make_unique<QApplication>(argc, argv)) {}
QtSession::~QtSession() = default;

bool QtDialogBoxes::showOpen(editor::CommonDialog& cdlg) {
    return pickFile(cdlg, QFileDialog::AcceptOpen);
}
bool QtDialogBoxes::showSave(editor::CommonDialog& cdlg) {
    return pickFile(cdlg, QFileDialog::AcceptSave);
}

bool QtDialogBoxes::showColor(editor::CommonDialog& cdlg) {
    const QColor start(cdlg.Color & 0xFF, (cdlg.Color >> 8) & 0xFF, (cdlg.Color >> 16) & 0xFF);
    const QColor picked = QColorDialog::getColor(start, nullptr, QString::fromStdString(cdlg.DialogTitle));
    if (!picked.isValid()) return false;
    cdlg.Color = picked.red() | picked.green() << 8 | picked.blue() << 16;
    return true;
}

std::unique_ptr<shell::frmExport> QtExportDialogs::create() {
    return std::make_unique<QtExportDialog>(name_);
}

void QtMessageBoxes::show(const std::string& text, const std::string& title, platform::BoxIcon icon) {
    QMessageBox box;
    box.setWindowTitle(QString::fromStdString(title));
    box.setText(QString::fromStdString(text).replace('\r', '\n'));
    box.setIcon(icon == platform::BoxIcon::Information ? QMessageBox::Information
                : icon == platform::BoxIcon::Critical  ? QMessageBox::Critical
                                                       : QMessageBox::NoIcon);
    box.setStandardButtons(QMessageBox::Ok);
    box.exec();
}

} // namespace tarnvale::gui
