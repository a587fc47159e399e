// The Qt front ends, offscreen: the real dialogs, driven through their widgets.
#include "editor/scripted.h"
#include "gui/gui.h"

#include <QApplication>
#include <QCheckBox>
#include <QFileDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSlider>
#include <QTest>
#include <QTimer>
#include <QToolButton>

namespace tarnvale::test {
namespace {

template <typename W> W* widget(QWidget& dialog, const char* name) {
    W* w = dialog.findChild<W*>(name);
    EXPECT_TRUE(w) << name;
    return w;
}

// A click on a check box's own box, at its left.
void tick(QWidget& dialog, const char* name) {
    QCheckBox* box = widget<QCheckBox>(dialog, name);
    QTest::mouseClick(box, Qt::LeftButton, {}, QPoint(6, box->height() / 2));
}

// Runs `act` on the modal window once it is up.
void whenModal(std::function<void(QWidget&)> act) {
    QTimer::singleShot(0, [act] {
        QWidget* modal = QApplication::activeModalWidget();
        ASSERT_TRUE(modal);
        act(*modal);
    });
}

TEST(QtEditor, TabsPresetsSlidersOkAndCancelReachTheRecord) {
    ScriptedForm f;
    auto dialog = gui::makeOptionsDialog(f.form);
    dialog->show(); // check boxes take clicks on what is drawn
    EXPECT_EQ(dialog->windowTitle(), "FSX Extended Parameters");
    QTest::mouseClick(widget<QToolButton>(*dialog, "tab9"), Qt::LeftButton);
    EXPECT_EQ(f.form.selectedTab(), 9);
    QTest::mouseClick(widget<QPushButton>(*dialog, "cmdStd(2)"), Qt::LeftButton); // Gloss
    QTest::keyClick(dialog.get(), Qt::Key_Tab, Qt::ControlModifier);
    EXPECT_EQ(f.form.selectedTab(), 10);
    EXPECT_EQ(widget<QWidget>(*dialog, "picOptions(8)")->x(), gui::pixels(-20000, 96));
    tick(*dialog, "chkEP(8)");
    QTest::mouseClick(widget<QPushButton>(*dialog, "cmdOK"), Qt::LeftButton);
    EXPECT_FALSE(f.form.isOpen());
    EXPECT_EQ(f.record->FresnelTextureFileName, "fresnel_ramp.dds");
    EXPECT_EQ(f.record->DoubleSidedMaterial, 1);
    EXPECT_EQ(f.record->bUseGlobalEnv, 1);

    // A slider and a box changed, then Escape: the record stays as it was.
    ScriptedForm g(f.record);
    auto second = gui::makeOptionsDialog(g.form);
    second->show();
    widget<QSlider>(*second, "sFinal")->setValue(12);
    EXPECT_EQ(g.form.control("Label1(18)").caption, "Final Alpha Value: 12");
    tick(*second, "chkEP(8)");
    EXPECT_EQ(g.form.control("chkEP(8)").value, 0);
    const std::string before = f.record->toString();
    QTest::keyClick(second.get(), Qt::Key_Escape);
    EXPECT_FALSE(g.form.isOpen());
    EXPECT_EQ(f.record->toString(), before);
}

// A texture picked in Qt's file box: the button shows its name, the record keeps
// its path in the Windows form, and the block names the file alone.
TEST(QtEditor, APickedTextureShowsItsNameAndTheBlockWritesItAlone) {
    TempDir d;
    const std::string picked = d.folder("textures") + "/night.dds";
    writeFile(picked, "DDS ");
    gui::QtDialogBoxes boxes;
    editor::frmOptions form(boxes, d.path());
    form.EditMaterial = std::make_shared<material::FS10Material>();
    form.Form_Load();
    whenModal([&](QWidget& w) {
        auto& box = static_cast<QFileDialog&>(w);
        box.selectFile(QString::fromStdString(picked));
        QMetaObject::invokeMethod(&box, "accept");
    });
    form.click("cmdET");
    EXPECT_EQ(form.control("cmdET").caption, "night.dds");
    form.click("cmdOK");
    EXPECT_EQ(form.EditMaterial->EmissiveTextureFileName, platform::windowsPath(picked));
    std::string block;
    platform::TextSink sink;
    sink.openString(block);
    form.EditMaterial->Output(sink);
    sink.close();
    EXPECT_NE(block.find("EmissiveTextureFileName {\r\n\"NIGHT.DDS\";"), std::string::npos) << block;
}

TEST(QtEditor, EveryWidgetStandsWhereTheModelPutsIt) {
    ScriptedForm f;
    auto dialog = gui::makeOptionsDialog(f.form);
    EXPECT_EQ(dialog->size(), QSize(gui::pixels(9990, 96), gui::pixels(4905, 96)));
    for (const editor::ControlState& c : f.form.controls()) {
        QWidget* w = widget<QWidget>(*dialog, c.layout->name);
        const QRect expected(gui::pixels(c.rect.left, 96), gui::pixels(c.rect.top, 96),
                             gui::pixels(c.rect.width, 96), gui::pixels(c.rect.height, 96));
        EXPECT_EQ(w->geometry(), expected) << c.layout->name;
        EXPECT_EQ(w->toolTip().toStdString(), c.toolTip) << c.layout->name;
        const std::string parent =
            c.layout->page < 0 ? "frmOptions" : "picOptions(" + std::to_string(c.layout->page) + ")";
        EXPECT_EQ(w->parentWidget()->objectName().toStdString(), parent) << c.layout->name;
    }
}

TEST(QtExportDialog, EnterIsOkAndEscapeIsCancel) {
    gui::QtExportDialogs dialogs(std::nullopt);
    auto dialog = dialogs.create();
    dialog->txtName = "Old";
    whenModal([](QWidget& w) {
        QLineEdit* name = widget<QLineEdit>(w, "txtName");
        name->clear();
        QTest::keyClicks(name, "New Name");
        QTest::keyClick(name, Qt::Key_Return);
    });
    dialog->Show();
    EXPECT_EQ(dialog->txtName, "New Name");
    EXPECT_FALSE(dialog->bCancel);
    whenModal([](QWidget& w) { QTest::keyClick(&w, Qt::Key_Escape); });
    dialog->Show();
    EXPECT_TRUE(dialog->bCancel);
}

TEST(QtMessageBoxes, TitleTextAndIcon) {
    gui::QtMessageBoxes boxes;
    QString shown;
    whenModal([&](QWidget& w) {
        auto& box = static_cast<QMessageBox&>(w);
        shown = box.windowTitle() + "|" + box.text() + "|" + QString::number(box.icon());
        box.accept();
    });
    boxes.show("Creating X file\r76 - no folder", "FS10 Export", platform::BoxIcon::Critical);
    EXPECT_EQ(shown, "FS10 Export|Creating X file\n76 - no folder|" + QString::number(QMessageBox::Critical));
}

} // namespace
} // namespace tarnvale::test

int main(int argc, char** argv) {
    // Tests draw their windows offscreen unless told otherwise.
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
