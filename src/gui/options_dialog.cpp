// frmOptions drawn with Qt widgets. Every widget stands for a control of the
// model, at its place; every user action goes to the model, and the widgets then
// follow the model's state. Nothing here decides what a control does.
#include "gui/gui.h"

#include <QApplication>
#include <QCheckBox>
#include <QCloseEvent>
#include <QComboBox>
#include <QDialog>
#include <QKeyEvent>
#include <QLabel>
#include <QListWidget>
#include <QPixmap>
#include <QPushButton>
#include <QScreen>
#include <QSlider>
#include <QToolButton>
#include <map>

namespace tarnvale::gui {

namespace {

using editor::Kind;

QString text(const std::string& s) {
    QString t = QString::fromStdString(s);
    t.replace('\r', '\n'); // captions break lines at a carriage return
    return t;
}

// A colour integer (red in the low byte); a system colour stands for the face.
QColor colour(int32_t value, const QPalette& palette) {
    if (value < 0) return palette.color(QPalette::Button);
    return QColor(value & 0xFF, (value >> 8) & 0xFF, (value >> 16) & 0xFF);
}

class OptionsDialog : public QDialog {
  public:
    explicit OptionsDialog(editor::frmOptions& form) : form_(form) {
        const QScreen* screen = QGuiApplication::primaryScreen();
        dpi_ = screen ? screen->logicalDotsPerInch() : 96.0;
        setObjectName("frmOptions");
        setWindowTitle(editor::kFormCaption);
        setWindowFlags(Qt::Dialog | Qt::WindowTitleHint | Qt::WindowCloseButtonHint |
                       Qt::MSWindowsFixedSizeDialogHint);
        setFixedSize(pixels(editor::kFormClient.width, dpi_), pixels(editor::kFormClient.height, dpi_));
        QFont small = font();
        small.setPointSizeF(8);
        setFont(small);
        for (const editor::ControlState& c : form_.controls())
            build(*c.layout);
        // At opening every panel stands at its place, the first one in front.
        widgets_.at("picOptions(0)")->raise();
        sync();
    }

    // The widgets as the model holds them; signals are held while they follow.
    void sync() {
        for (const editor::ControlState& c : form_.controls()) {
            QWidget* w = widgets_.at(c.layout->name);
            const QSignalBlocker hold(w);
            w->setToolTip(QString::fromStdString(c.toolTip));
            w->setEnabled(c.enabled);
            w->setGeometry(pixels(c.rect.left, dpi_), pixels(c.rect.top, dpi_), pixels(c.rect.width, dpi_),
                           pixels(c.rect.height, dpi_));
            switch (c.layout->kind) {
            case Kind::Label:
                static_cast<QLabel*>(w)->setText(text(c.caption));
                break;
            case Kind::Button:
                static_cast<QPushButton*>(w)->setText(text(c.caption));
                break;
            case Kind::CheckBox:
                static_cast<QCheckBox*>(w)->setText(text(c.caption));
                static_cast<QCheckBox*>(w)->setChecked(c.value != 0);
                break;
            case Kind::Slider:
                static_cast<QSlider*>(w)->setValue(c.value);
                break;
            case Kind::DropDown: {
                auto* box = static_cast<QComboBox*>(w);
                box->setCurrentIndex(box->findText(QString::fromStdString(c.text)));
                break;
            }
            case Kind::ListBox: {
                auto* list = static_cast<QListWidget*>(w);
                list->clear();
                for (const std::string& item : c.items)
                    list->addItem(QString::fromStdString(item));
                list->setCurrentRow(c.selected);
                break;
            }
            case Kind::Picture: {
                auto* picture = static_cast<QLabel*>(w);
                QPalette p = picture->palette();
                p.setColor(QPalette::Window, colour(c.backColour, palette()));
                picture->setPalette(p);
                picture->setPixmap(c.picture.empty() ? QPixmap()
                                                     : QPixmap(QString::fromStdString(c.picture)));
                break;
            }
            case Kind::TabStrip:
                for (int i = 0; i < static_cast<int>(tabs_.size()); ++i)
                    tabs_[i]->setChecked(i + 1 == form_.selectedTab());
                break;
            case Kind::Panel:
                break;
            }
        }
    }

  protected:
    void reject() override {
        act([&] { form_.click("cmdCancel"); });
    }
    void closeEvent(QCloseEvent* e) override {
        if (form_.isOpen()) act([&] { form_.closeBox(); });
        e->accept();
    }
    void keyPressEvent(QKeyEvent* e) override {
        if (!preview(e)) QDialog::keyPressEvent(e);
    }
    bool eventFilter(QObject* object, QEvent* e) override {
        if (e->type() == QEvent::KeyPress && preview(static_cast<QKeyEvent*>(e))) return true;
        if (e->type() == QEvent::MouseButtonPress && object->objectName() == "picSpec") {
            act([&] { form_.click("picSpec"); });
            return true;
        }
        return QDialog::eventFilter(object, e);
    }

  private:
    // The form sees keys before the focused control does: Ctrl with Tab goes to it.
    bool preview(QKeyEvent* e) {
        if (e->key() != Qt::Key_Tab && e->key() != Qt::Key_Backtab) return false;
        const Qt::KeyboardModifiers m = e->modifiers();
        if (!(m & Qt::ControlModifier)) return false;
        const int shift = (m & Qt::ShiftModifier ? 1 : 0) | 2 | (m & Qt::AltModifier ? 4 : 0);
        act([&] { form_.keyDown(9, shift); });
        return true;
    }

    template <typename Action> void act(Action action) {
        action();
        sync();
        if (!form_.isOpen()) done(Accepted);
    }

    void build(const editor::ControlSpec& layout) {
        QWidget* parent =
            layout.page >= 0 ? widgets_.at("picOptions(" + std::to_string(layout.page) + ")") : this;
        const std::string name = layout.name;
        QWidget* w = nullptr;
        switch (layout.kind) {
        case Kind::Label: {
            auto* label = new QLabel(parent);
            label->setWordWrap(true);
            label->setAlignment(Qt::AlignLeft | Qt::AlignTop);
            w = label;
            break;
        }
        case Kind::Button: {
            auto* button = new QPushButton(parent);
            button->setAutoDefault(false);
            button->setDefault(name == "cmdOK");
            connect(button, &QPushButton::clicked, this, [this, name] { act([&] { form_.click(name); }); });
            w = button;
            break;
        }
        case Kind::CheckBox: {
            auto* box = new QCheckBox(parent);
            connect(box, &QCheckBox::clicked, this, [this, name] { act([&] { form_.click(name); }); });
            w = box;
            break;
        }
        case Kind::Slider: {
            auto* slider = new QSlider(Qt::Horizontal, parent);
            slider->setRange(layout.slider.min, layout.slider.max);
            slider->setSingleStep(layout.slider.smallStep);
            slider->setPageStep(layout.slider.largeStep);
            slider->setTickInterval(layout.slider.tickEvery);
            slider->setTickPosition(QSlider::TicksBelow);
            connect(slider, &QSlider::valueChanged, this,
                    [this, name](int v) { act([&] { form_.slide(name, v); }); });
            w = slider;
            break;
        }
        case Kind::DropDown: {
            auto* box = new QComboBox(parent);
            for (const std::string& item : *layout.items)
                box->addItem(QString::fromStdString(item));
            connect(box, &QComboBox::activated, this, [this, name, box](int i) {
                act([&] { form_.pick(name, box->itemText(i).toStdString()); });
            });
            w = box;
            break;
        }
        case Kind::ListBox: {
            auto* list = new QListWidget(parent);
            connect(list, &QListWidget::currentRowChanged, this, [this, name, list](int row) {
                if (row >= 0) act([&] { form_.pick(name, list->item(row)->text().toStdString()); });
            });
            w = list;
            break;
        }
        case Kind::Picture: {
            auto* picture = new QLabel(parent);
            picture->setAutoFillBackground(true);
            picture->setAlignment(Qt::AlignLeft | Qt::AlignTop);
            picture->setFrameShape(QFrame::Panel);
            picture->setFrameShadow(QFrame::Sunken);
            w = picture;
            break;
        }
        case Kind::Panel:
            w = new QWidget(parent);
            w->setAutoFillBackground(true); // a panel hides what lies behind it
            break;
        case Kind::TabStrip:
            w = buildTabStrip(parent, layout.rect);
            break;
        }
        w->setObjectName(QString::fromStdString(name));
        w->installEventFilter(this);
        widgets_[name] = w;
    }

    // Eleven tabs in two rows over the strip's frame: the strip's height holds two
    // rows, and its width does not hold eleven tabs in one.
    QWidget* buildTabStrip(QWidget* parent, const editor::Rect& rect) {
        auto* strip = new QWidget(parent);
        const auto& pages = editor::pageSpecs();
        constexpr int kRows = 2;
        const int perRow = (editor::kPageCount + kRows - 1) / kRows, rowHeight = pixels(330, dpi_);
        const int width = pixels(rect.width, dpi_);
        auto* frame = new QFrame(strip);
        frame->setFrameShape(QFrame::StyledPanel);
        frame->setGeometry(0, kRows * rowHeight, width, pixels(rect.height, dpi_) - kRows * rowHeight);
        for (int i = 0; i < editor::kPageCount; ++i) {
            auto* tab = new QToolButton(strip);
            tab->setCheckable(true);
            tab->setAutoExclusive(true);
            tab->setText(QString::fromStdString(pages[i].caption));
            tab->setToolTip(QString::fromStdString(pages[i].toolTip));
            tab->setObjectName(QString("tab%1").arg(i + 1));
            const int row = i / perRow, column = i % perRow,
                      inRow = row == 0 ? perRow : editor::kPageCount - perRow;
            tab->setGeometry(column * width / inRow, row * rowHeight, width / inRow, rowHeight);
            connect(tab, &QToolButton::clicked, this, [this, i] { act([&] { form_.selectTab(i + 1); }); });
            tabs_.push_back(tab);
        }
        return strip;
    }

    editor::frmOptions& form_;
    double dpi_ = 96;
    std::map<std::string, QWidget*> widgets_;
    std::vector<QToolButton*> tabs_;
};

} // namespace

int pixels(int32_t twips, double dotsPerInch) {
    return static_cast<int>(std::lround(twips / 15.0 * dotsPerInch / 96.0));
}

std::unique_ptr<QWidget> makeOptionsDialog(editor::frmOptions& form) {
    return std::make_unique<OptionsDialog>(form);
}

void refresh(QWidget& optionsDialog) {
    static_cast<OptionsDialog&>(optionsDialog).sync();
}

void QtFormWindow::showModal(editor::frmOptions& form) {
    form.Form_Load();
    OptionsDialog dialog(form);
    dialog.exec();
}

} // namespace tarnvale::gui
