// The Win32 helpers, the common dialog's boxes and frmExport.
#include "gui/win32.h"
#include "gui/win32_internal.h"

#include <commdlg.h>

#include <cmath>
#include <vector>

namespace tarnvale::gui {

namespace win32 {

int pixels(int32_t twips) {
    HDC screen = ::GetDC(nullptr);
    const int dpi = screen ? ::GetDeviceCaps(screen, LOGPIXELSY) : 96;
    if (screen) ::ReleaseDC(nullptr, screen);
    return static_cast<int>(std::lround(twips / 15.0 * dpi / 96.0));
}

void registerClass(const wchar_t* name, WNDPROC procedure) {
    WNDCLASSEXW c{};
    if (::GetClassInfoExW(::GetModuleHandleW(nullptr), name, &c)) return;
    c.cbSize = sizeof c;
    c.lpfnWndProc = procedure;
    c.hInstance = ::GetModuleHandleW(nullptr);
    c.hCursor = ::LoadCursorW(nullptr, reinterpret_cast<LPCWSTR>(IDC_ARROW));
    c.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
    c.lpszClassName = name;
    ::RegisterClassExW(&c);
}

HWND createTopWindow(const wchar_t* className, const std::string& title, int clientWidth, int clientHeight,
                     void* self) {
    const DWORD style = WS_POPUP | WS_CAPTION | WS_SYSMENU | WS_CLIPCHILDREN;
    const DWORD exStyle = WS_EX_DLGMODALFRAME | WS_EX_CONTROLPARENT;
    RECT r{0, 0, clientWidth, clientHeight};
    ::AdjustWindowRectEx(&r, style, FALSE, exStyle);
    const int w = r.right - r.left, h = r.bottom - r.top;
    const int x = (::GetSystemMetrics(SM_CXSCREEN) - w) / 2, y = (::GetSystemMetrics(SM_CYSCREEN) - h) / 2;
    HWND window = ::CreateWindowExW(exStyle, className, platform::wide(title).c_str(), style, x, y, w, h,
                                    nullptr, nullptr, ::GetModuleHandleW(nullptr), nullptr);
    if (window) ::SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(self));
    return window;
}

HWND createChild(HWND parent, const wchar_t* className, const std::wstring& text, DWORD style, int id,
                 RECT place) {
    HWND child = ::CreateWindowExW(0, className, text.c_str(), WS_CHILD | WS_VISIBLE | style, place.left,
                                   place.top, place.right, place.bottom, parent,
                                   reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)),
                                   ::GetModuleHandleW(nullptr), nullptr);
    ::SendMessageW(child, WM_SETFONT, reinterpret_cast<WPARAM>(::GetStockObject(DEFAULT_GUI_FONT)), FALSE);
    return child;
}

} // namespace win32

// ---- The common dialog --------------------------------------------------------------

namespace {

// "Name|*.a;*.b|Other|*.c" as the file boxes take it: parts ended by NULs, and one more.
std::wstring fileFilter(const std::string& filter) {
    std::wstring out = platform::wide(filter);
    for (wchar_t& c : out)
        if (c == L'|') c = L'\0';
    out.push_back(L'\0');
    out.push_back(L'\0');
    return out;
}

bool pickFile(editor::CommonDialog& cdlg, bool save) {
    const std::wstring filter = fileFilter(cdlg.Filter), title = platform::wide(cdlg.DialogTitle),
                       extension = platform::wide(cdlg.DefaultExt);
    std::vector<wchar_t> file(32768, L'\0');
    const std::wstring start = platform::wide(cdlg.FileName);
    std::copy_n(start.begin(), std::min(start.size(), file.size() - 1), file.begin());
    OPENFILENAMEW box{};
    box.lStructSize = sizeof box;
    box.hwndOwner = ::GetActiveWindow();
    box.lpstrFilter = filter.c_str();
    box.nFilterIndex = 1;
    box.lpstrFile = file.data();
    box.nMaxFile = static_cast<DWORD>(file.size());
    box.lpstrTitle = title.empty() ? nullptr : title.c_str();
    box.lpstrDefExt = extension.empty() ? nullptr : extension.c_str();
    // The form's own flags, in explorer style; the working folder stays where it
    // was, as relative paths given on the command line depend on it.
    box.Flags = static_cast<DWORD>(cdlg.Flags) | OFN_EXPLORER | OFN_NOCHANGEDIR;
    const BOOL chosen = save ? ::GetSaveFileNameW(&box) : ::GetOpenFileNameW(&box);
    if (!chosen) return false;
    cdlg.FileName = platform::narrow(file.data());
    return true;
}

} // namespace

bool Win32DialogBoxes::showOpen(editor::CommonDialog& cdlg) {
    return pickFile(cdlg, false);
}
bool Win32DialogBoxes::showSave(editor::CommonDialog& cdlg) {
    return pickFile(cdlg, true);
}

bool Win32DialogBoxes::showColor(editor::CommonDialog& cdlg) {
    static_assert(sizeof(COLORREF) == sizeof(uint32_t));
    COLORREF custom[16];
    for (int i = 0; i < 16; ++i)
        custom[i] = RGB(255, 255, 255);
    CHOOSECOLORW box{};
    box.lStructSize = sizeof box;
    box.hwndOwner = ::GetActiveWindow();
    box.rgbResult = static_cast<COLORREF>(cdlg.Color) & 0xFFFFFF; // red in the low byte, as the form keeps it
    box.lpCustColors = custom;
    box.Flags = static_cast<DWORD>(cdlg.Flags) | CC_RGBINIT | CC_FULLOPEN;
    if (!::ChooseColorW(&box)) return false;
    cdlg.Color = static_cast<int32_t>(box.rgbResult);
    return true;
}

// ---- frmExport ------------------------------------------------------------------------

namespace {

constexpr int kNameBox = 100;

class Win32ExportDialog : public shell::frmExport {
  public:
    explicit Win32ExportDialog(std::optional<std::string> name) : name_(std::move(name)) {}

    void Show() override {
        if (name_) txtName = *name_;
        win32::registerClass(L"TarnvaleExport", &Win32ExportDialog::procedure);
        using win32::pixels;
        window_ = win32::createTopWindow(L"TarnvaleExport", Caption, pixels(6030), pixels(1170), this);
        if (!window_) { // no desktop to show it on: the export goes on as from a closed box
            OKButton_Click();
            return;
        }
        auto place = [](int l, int t, int w, int h) {
            return RECT{pixels(l), pixels(t), pixels(w), pixels(h)};
        };
        // In their tab order: OK, Cancel, the name, its caption, the GUID line.
        win32::createChild(window_, L"BUTTON", L"OK", WS_TABSTOP | BS_DEFPUSHBUTTON, IDOK,
                           place(4680, 120, 1215, 375));
        win32::createChild(window_, L"BUTTON", L"Cancel", WS_TABSTOP | BS_PUSHBUTTON, IDCANCEL,
                           place(4680, 600, 1215, 375));
        name_box_ = win32::createChild(window_, L"EDIT", platform::wide(txtName),
                                       WS_TABSTOP | WS_BORDER | ES_AUTOHSCROLL, kNameBox,
                                       place(1080, 120, 3435, 315));
        win32::createChild(window_, L"STATIC", win32::caption(Label1), SS_LEFT, -1,
                           place(300, 180, 735, 195));
        win32::createChild(window_, L"STATIC", win32::caption(Label2), SS_LEFT, -1,
                           place(300, 540, 4215, 255));
        ::ShowWindow(window_, SW_SHOW);
        ::SetForegroundWindow(window_);
        ::SetFocus(name_box_);
        ::SendMessageW(name_box_, EM_SETSEL, 0, -1);
        win32::runModal(
            window_, [this] { return ended_; }, [](MSG&) { return false; });
        if (cancelled_)
            CancelButton_Click();
        else
            OKButton_Click();
        ::DestroyWindow(window_);
    }

  private:
    // Escape and Cancel cancel; OK and the close box end the dialog with the name.
    void end(bool cancel) {
        const int n = ::GetWindowTextLengthW(name_box_);
        std::wstring text(static_cast<size_t>(n) + 1, L'\0');
        ::GetWindowTextW(name_box_, text.data(), n + 1);
        text.resize(static_cast<size_t>(n));
        txtName = platform::narrow(text);
        cancelled_ = cancel;
        ended_ = true;
    }

    static LRESULT CALLBACK procedure(HWND window, UINT message, WPARAM w, LPARAM l) {
        auto* self = reinterpret_cast<Win32ExportDialog*>(::GetWindowLongPtrW(window, GWLP_USERDATA));
        if (self && message == WM_COMMAND && (LOWORD(w) == IDOK || LOWORD(w) == IDCANCEL)) {
            self->end(LOWORD(w) == IDCANCEL);
            return 0;
        }
        if (self && message == WM_CLOSE) {
            self->end(false);
            return 0;
        }
        return ::DefWindowProcW(window, message, w, l);
    }

    std::optional<std::string> name_;
    HWND window_ = nullptr, name_box_ = nullptr;
    bool ended_ = false, cancelled_ = false;
};

} // namespace

std::unique_ptr<shell::frmExport> Win32ExportDialogs::create() {
    return std::make_unique<Win32ExportDialog>(name_);
}

} // namespace tarnvale::gui
