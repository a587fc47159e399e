// frmOptions drawn with Win32 common controls. Every window stands for a control
// of the model, at its place; every user action goes to the model, and the
// windows then follow the model's state. Nothing here decides what a control does.
#include "gui/win32.h"
#include "gui/win32_internal.h"

#include <olectl.h>

#include <cstring>

namespace tarnvale::gui {

namespace {

using editor::Kind;
constexpr int kFirstId = 1000;
constexpr const wchar_t* kFormClass = L"TarnvaleOptions";
constexpr const wchar_t* kPanelClass = L"TarnvalePanel";

// A picture file as the form's picture box shows it, or none.
HBITMAP loadPicture(const std::string& path) {
    std::wstring file = platform::wide(path);
    IPicture* picture = nullptr;
    if (FAILED(::OleLoadPicturePath(file.data(), nullptr, 0, 0, IID_IPicture,
                                    reinterpret_cast<void**>(&picture))))
        return nullptr;
    OLE_HANDLE handle = 0;
    short type = 0;
    HBITMAP copy = nullptr;
    if (SUCCEEDED(picture->get_Type(&type)) && type == PICTYPE_BITMAP &&
        SUCCEEDED(picture->get_Handle(&handle)))
        copy = static_cast<HBITMAP>(
            ::CopyImage(reinterpret_cast<HANDLE>(static_cast<UINT_PTR>(handle)), IMAGE_BITMAP, 0, 0, 0));
    picture->Release();
    return copy;
}

// A colour integer (red in the low byte); a system colour stands for the face.
COLORREF colour(int32_t value) {
    return value < 0 ? ::GetSysColor(COLOR_BTNFACE) : static_cast<COLORREF>(value & 0xFFFFFF);
}

class Win32OptionsWindow : public OptionsWindow {
  public:
    explicit Win32OptionsWindow(editor::frmOptions& form) : form_(form) {
        ::CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        INITCOMMONCONTROLSEX common{sizeof common, ICC_TAB_CLASSES | ICC_BAR_CLASSES | ICC_STANDARD_CLASSES};
        ::InitCommonControlsEx(&common);
        win32::registerClass(kFormClass, &Win32OptionsWindow::procedure);
        win32::registerClass(kPanelClass, &Win32OptionsWindow::panelProcedure);
        window_ =
            win32::createTopWindow(kFormClass, editor::kFormCaption, win32::pixels(editor::kFormClient.width),
                                   win32::pixels(editor::kFormClient.height), this);
        if (!window_) throw Failure(err::kInvalidCall, "the material editor's window cannot be made here");
        tips_ = ::CreateWindowExW(WS_EX_TOPMOST, TOOLTIPS_CLASSW, nullptr, WS_POPUP | TTS_ALWAYSTIP, 0, 0, 0,
                                  0, window_, nullptr, ::GetModuleHandleW(nullptr), nullptr);
        ::SendMessageW(tips_, TTM_SETMAXTIPWIDTH, 0, 400);
        const auto& controls = form_.controls();
        shown_.resize(controls.size());
        for (size_t i = 0; i < controls.size(); ++i)
            build(i, *controls[i].layout);
        // Panels stand over the tab strip's frame.
        for (size_t i = 0; i < controls.size(); ++i)
            if (controls[i].layout->kind == Kind::Panel)
                ::SetWindowPos(windows_[i], HWND_TOP, 0, 0, 0, 0, SWP_NOMOVE | SWP_NOSIZE | SWP_NOACTIVATE);
        sync();
        ::ShowWindow(window_, SW_SHOW);
        ::SetForegroundWindow(window_);
    }

    ~Win32OptionsWindow() override {
        if (window_) ::DestroyWindow(window_);
        for (HBITMAP b : bitmaps_)
            if (b) ::DeleteObject(b);
        ::CoUninitialize();
    }

    void* handle() const override { return window_; }

    void* control(const std::string& name) const override {
        const auto& controls = form_.controls();
        for (size_t i = 0; i < controls.size(); ++i)
            if (name == controls[i].layout->name) return windows_[i];
        return nullptr;
    }

    void runModal() override {
        win32::runModal(
            window_, [this] { return !form_.isOpen(); },
            [this](MSG& msg) {
                // The form sees keys before the focused control does: Ctrl with Tab goes to it.
                if (msg.message != WM_KEYDOWN || msg.wParam != VK_TAB ||
                    !(::GetKeyState(VK_CONTROL) & 0x8000))
                    return false;
                const int shift = (::GetKeyState(VK_SHIFT) & 0x8000 ? 1 : 0) | 2 |
                                  (::GetKeyState(VK_MENU) & 0x8000 ? 4 : 0);
                act([&] { form_.keyDown(9, shift); });
                return true;
            });
    }

    // The windows as the model holds them.
    void sync() override {
        syncing_ = true;
        const auto& controls = form_.controls();
        for (size_t i = 0; i < controls.size(); ++i)
            follow(i, controls[i]);
        syncing_ = false;
    }

  private:
    // What a window shows now, so that only changes reach it.
    struct Shown {
        std::string text, toolTip, picture;
        std::vector<std::string> items;
        RECT rect{-1, -1, -1, -1};
        bool enabled = true, tipAdded = false;
    };

    template <typename Action> void act(Action action) {
        if (syncing_ || !form_.isOpen()) return;
        action();
        sync();
    }

    void build(size_t index, const editor::ControlSpec& layout) {
        HWND parent = layout.page >= 0 ? windows_.at(panels_.at(layout.page)) : window_;
        const int id = kFirstId + static_cast<int>(index);
        const RECT none{0, 0, 0, 0}; // sync puts every window in its place
        const std::wstring text = win32::caption(layout.caption);
        HWND w = nullptr;
        switch (layout.kind) {
        case Kind::Label:
            w = win32::createChild(parent, L"STATIC", text, SS_LEFT, id, none);
            break;
        case Kind::Button:
            w = win32::createChild(
                parent, L"BUTTON", text,
                WS_TABSTOP | (std::string(layout.name) == "cmdOK" ? BS_DEFPUSHBUTTON : BS_PUSHBUTTON) |
                    BS_MULTILINE,
                id, none);
            break;
        case Kind::CheckBox:
            w = win32::createChild(parent, L"BUTTON", text, WS_TABSTOP | BS_CHECKBOX | BS_MULTILINE, id,
                                   none);
            break;
        case Kind::Slider:
            w = win32::createChild(parent, TRACKBAR_CLASSW, L"", WS_TABSTOP | TBS_AUTOTICKS | TBS_BOTTOM, id,
                                   none);
            ::SendMessageW(w, TBM_SETRANGEMIN, FALSE, layout.slider.min);
            ::SendMessageW(w, TBM_SETRANGEMAX, FALSE, layout.slider.max);
            ::SendMessageW(w, TBM_SETLINESIZE, 0, layout.slider.smallStep);
            ::SendMessageW(w, TBM_SETPAGESIZE, 0, layout.slider.largeStep);
            ::SendMessageW(w, TBM_SETTICFREQ, layout.slider.tickEvery, 0);
            break;
        case Kind::DropDown:
            w = win32::createChild(parent, WC_COMBOBOXW, L"", WS_TABSTOP | WS_VSCROLL | CBS_DROPDOWNLIST, id,
                                   none);
            for (const std::string& item : *layout.items)
                ::SendMessageW(w, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(platform::wide(item).c_str()));
            break;
        case Kind::ListBox:
            w = win32::createChild(parent, L"LISTBOX", L"", WS_TABSTOP | WS_BORDER | WS_VSCROLL | LBS_NOTIFY,
                                   id, none);
            break;
        case Kind::Picture:
            w = win32::createChild(parent, L"STATIC", L"", SS_OWNERDRAW | SS_NOTIFY, id, none);
            break;
        case Kind::Panel:
            w = ::CreateWindowExW(WS_EX_CONTROLPARENT, kPanelClass, L"",
                                  WS_CHILD | WS_VISIBLE | WS_CLIPSIBLINGS, 0, 0, 0, 0, parent,
                                  reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)),
                                  ::GetModuleHandleW(nullptr), nullptr);
            panels_.push_back(index);
            break;
        case Kind::TabStrip:
            // Eleven tabs do not fit in one row of the strip's width: the strip makes two.
            w = win32::createChild(parent, WC_TABCONTROLW, L"",
                                   WS_TABSTOP | WS_CLIPSIBLINGS | TCS_MULTILINE | TCS_TOOLTIPS, id, none);
            for (int i = 0; i < editor::kPageCount; ++i) {
                std::wstring page = platform::wide(editor::pageSpecs()[i].caption);
                TCITEMW item{};
                item.mask = TCIF_TEXT;
                item.pszText = page.data();
                ::SendMessageW(w, TCM_INSERTITEMW, i, reinterpret_cast<LPARAM>(&item));
            }
            tabStrip_ = w;
            break;
        }
        windows_.push_back(w);
        bitmaps_.push_back(nullptr);
    }

    void follow(size_t i, const editor::ControlState& c) {
        HWND w = windows_[i];
        Shown& s = shown_[i];
        const RECT r{win32::pixels(c.rect.left), win32::pixels(c.rect.top), win32::pixels(c.rect.width),
                     win32::pixels(c.rect.height)};
        if (std::memcmp(&r, &s.rect, sizeof r) != 0) {
            ::SetWindowPos(w, nullptr, r.left, r.top, r.right, r.bottom, SWP_NOZORDER | SWP_NOACTIVATE);
            s.rect = r;
        }
        if (c.enabled != s.enabled) ::EnableWindow(w, c.enabled);
        s.enabled = c.enabled;
        if (c.toolTip != s.toolTip || (!s.tipAdded && !c.toolTip.empty())) setTip(w, s, c.toolTip);
        switch (c.layout->kind) {
        case Kind::Label:
        case Kind::Button:
        case Kind::CheckBox:
            if (c.caption != s.text) ::SetWindowTextW(w, win32::caption(c.caption).c_str());
            s.text = c.caption;
            if (c.layout->kind == Kind::CheckBox)
                ::SendMessageW(w, BM_SETCHECK, c.value ? BST_CHECKED : BST_UNCHECKED, 0);
            break;
        case Kind::Slider:
            ::SendMessageW(w, TBM_SETPOS, TRUE, c.value);
            break;
        case Kind::DropDown: {
            const LRESULT at = c.text.empty()
                                   ? CB_ERR
                                   : ::SendMessageW(w, CB_FINDSTRINGEXACT, static_cast<WPARAM>(-1),
                                                    reinterpret_cast<LPARAM>(platform::wide(c.text).c_str()));
            ::SendMessageW(w, CB_SETCURSEL, at == CB_ERR ? static_cast<WPARAM>(-1) : static_cast<WPARAM>(at),
                           0);
            break;
        }
        case Kind::ListBox:
            if (c.items != s.items) {
                ::SendMessageW(w, LB_RESETCONTENT, 0, 0);
                for (const std::string& item : c.items)
                    ::SendMessageW(w, LB_ADDSTRING, 0,
                                   reinterpret_cast<LPARAM>(platform::wide(item).c_str()));
                s.items = c.items;
            }
            ::SendMessageW(w, LB_SETCURSEL, static_cast<WPARAM>(c.selected), 0);
            break;
        case Kind::Picture:
            if (c.picture != s.picture) {
                if (bitmaps_[i]) ::DeleteObject(bitmaps_[i]);
                bitmaps_[i] = c.picture.empty() ? nullptr : loadPicture(c.picture);
                s.picture = c.picture;
            }
            ::InvalidateRect(w, nullptr, TRUE);
            break;
        case Kind::TabStrip:
            ::SendMessageW(w, TCM_SETCURSEL, form_.selectedTab() - 1, 0);
            break;
        case Kind::Panel:
            break;
        }
    }

    void setTip(HWND w, Shown& s, const std::string& text) {
        std::wstring tip = platform::wide(text);
        TOOLINFOW info{};
        info.cbSize = sizeof info;
        info.uFlags = TTF_IDISHWND | TTF_SUBCLASS;
        info.hwnd = window_;
        info.uId = reinterpret_cast<UINT_PTR>(w);
        info.lpszText = tip.data();
        ::SendMessageW(tips_, s.tipAdded ? TTM_UPDATETIPTEXTW : TTM_ADDTOOLW, 0,
                       reinterpret_cast<LPARAM>(&info));
        s.tipAdded = true;
        s.toolTip = text;
    }

    // The picture boxes: their back colour, the picture at the top left, a sunken edge.
    void draw(const DRAWITEMSTRUCT& item) {
        const size_t i = static_cast<size_t>(item.CtlID - kFirstId);
        const editor::ControlState& c = form_.controls()[i];
        RECT r = item.rcItem;
        HBRUSH brush = ::CreateSolidBrush(colour(c.backColour));
        ::FillRect(item.hDC, &r, brush);
        ::DeleteObject(brush);
        if (HBITMAP b = bitmaps_[i]) {
            HDC source = ::CreateCompatibleDC(item.hDC);
            HGDIOBJ old = ::SelectObject(source, b);
            ::BitBlt(item.hDC, 2, 2, r.right - 4, r.bottom - 4, source, 0, 0, SRCCOPY);
            ::SelectObject(source, old);
            ::DeleteDC(source);
        }
        ::DrawEdge(item.hDC, &r, EDGE_SUNKEN, BF_RECT);
    }

    std::string itemText(HWND w, UINT lengthMessage, UINT textMessage, LRESULT at) {
        const LRESULT n = ::SendMessageW(w, lengthMessage, static_cast<WPARAM>(at), 0);
        if (n < 0) return "";
        std::wstring text(static_cast<size_t>(n) + 1, L'\0');
        ::SendMessageW(w, textMessage, static_cast<WPARAM>(at), reinterpret_cast<LPARAM>(text.data()));
        text.resize(static_cast<size_t>(n));
        return platform::narrow(text);
    }

    LRESULT handle(HWND window, UINT message, WPARAM w, LPARAM l) {
        const auto& controls = form_.controls();
        auto nameOf = [&](int id) -> const char* {
            const int i = id - kFirstId;
            return i >= 0 && i < static_cast<int>(controls.size())
                       ? controls[static_cast<size_t>(i)].layout->name
                       : nullptr;
        };
        switch (message) {
        case WM_COMMAND: {
            const int id = LOWORD(w), code = HIWORD(w);
            if (id == IDOK || id == IDCANCEL) { // Enter and Escape
                act([&] { form_.click(id == IDOK ? "cmdOK" : "cmdCancel"); });
                return 0;
            }
            const char* name = nameOf(id);
            if (!name) break;
            const Kind kind = controls[static_cast<size_t>(id - kFirstId)].layout->kind;
            HWND control = reinterpret_cast<HWND>(l);
            if ((kind == Kind::Button || kind == Kind::CheckBox) && code == BN_CLICKED)
                act([&] { form_.click(name); });
            if (kind == Kind::Picture && code == STN_CLICKED) act([&] { form_.click(name); });
            if (kind == Kind::DropDown && code == CBN_SELCHANGE) {
                const LRESULT at = ::SendMessageW(control, CB_GETCURSEL, 0, 0);
                if (at != CB_ERR) {
                    const std::string item = itemText(control, CB_GETLBTEXTLEN, CB_GETLBTEXT, at);
                    act([&] { form_.pick(name, item); });
                }
            }
            if (kind == Kind::ListBox && code == LBN_SELCHANGE) {
                const LRESULT at = ::SendMessageW(control, LB_GETCURSEL, 0, 0);
                if (at != LB_ERR) {
                    const std::string item = itemText(control, LB_GETTEXTLEN, LB_GETTEXT, at);
                    act([&] { form_.pick(name, item); });
                }
            }
            return 0;
        }
        case WM_HSCROLL:
            if (const char* name = nameOf(::GetDlgCtrlID(reinterpret_cast<HWND>(l)))) {
                const auto value =
                    static_cast<int32_t>(::SendMessageW(reinterpret_cast<HWND>(l), TBM_GETPOS, 0, 0));
                act([&] { form_.slide(name, value); });
            }
            return 0;
        case WM_NOTIFY: {
            const auto* header = reinterpret_cast<const NMHDR*>(l);
            if (header->hwndFrom == tabStrip_ && header->code == TCN_SELCHANGE) {
                const int tab = static_cast<int>(::SendMessageW(tabStrip_, TCM_GETCURSEL, 0, 0)) + 1;
                act([&] { form_.selectTab(tab); });
            } else if (header->code == TTN_GETDISPINFOW && header->idFrom < editor::kPageCount &&
                       ::GetParent(header->hwndFrom) != window_) {
                // The tab strip's own tips: one per page.
                auto* info = reinterpret_cast<NMTTDISPINFOW*>(l);
                tabTip_ = platform::wide(editor::pageSpecs()[header->idFrom].toolTip);
                info->lpszText = tabTip_.data();
            }
            return 0;
        }
        case WM_DRAWITEM:
            draw(*reinterpret_cast<const DRAWITEMSTRUCT*>(l));
            return TRUE;
        case WM_CLOSE:
            act([&] { form_.closeBox(); });
            return 0;
        default:
            break;
        }
        return ::DefWindowProcW(window, message, w, l);
    }

    static LRESULT CALLBACK procedure(HWND window, UINT message, WPARAM w, LPARAM l) {
        auto* self = reinterpret_cast<Win32OptionsWindow*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
        return self ? self->handle(window, message, w, l) : ::DefWindowProcW(window, message, w, l);
    }

    // A page's panel hands what its controls report to the form's window.
    static LRESULT CALLBACK panelProcedure(HWND panel, UINT message, WPARAM w, LPARAM l) {
        switch (message) {
        case WM_COMMAND:
        case WM_HSCROLL:
        case WM_NOTIFY:
        case WM_DRAWITEM:
            return ::SendMessageW(::GetAncestor(panel, GA_ROOT), message, w, l);
        default:
            return ::DefWindowProcW(panel, message, w, l);
        }
    }

    editor::frmOptions& form_;
    HWND window_ = nullptr, tips_ = nullptr, tabStrip_ = nullptr;
    std::vector<HWND> windows_;    // by the model's control index
    std::vector<HBITMAP> bitmaps_; // pictures shown, by control index
    std::vector<Shown> shown_;
    std::vector<size_t> panels_; // control index of each page's panel
    std::wstring tabTip_;
    bool syncing_ = false;
};

} // namespace

std::unique_ptr<OptionsWindow> makeOptionsWindow(editor::frmOptions& form) {
    return std::make_unique<Win32OptionsWindow>(form);
}

void Win32FormWindow::showModal(editor::frmOptions& form) {
    form.Form_Load();
    Win32OptionsWindow window(form);
    window.runModal();
}

} // namespace tarnvale::gui
