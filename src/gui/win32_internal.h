// What the Win32 front ends share: text, sizes, window classes and a modal loop.
#pragma once

#include "platform/platform.h"

#include <windows.h>
// The common controls want windows.h ahead of them.
#include <commctrl.h>

#include <string>

namespace tarnvale::gui::win32 {

// Captions break lines at a carriage return: a lone CR becomes CR LF.
inline std::wstring caption(const std::string& text) {
    std::string t;
    for (size_t i = 0; i < text.size(); ++i) {
        t += text[i];
        if (text[i] == '\r' && (i + 1 == text.size() || text[i + 1] != '\n')) t += '\n';
    }
    return platform::wide(t);
}

// Pixels of a length in twips on this screen.
int pixels(int32_t twips);

// Registers a window class once; the procedure finds its object in GWLP_USERDATA.
void registerClass(const wchar_t* name, WNDPROC procedure);

// A top-level window with the given client size, centred on the screen; `self` is
// kept for the window procedure.
HWND createTopWindow(const wchar_t* className, const std::string& title, int clientWidth, int clientHeight,
                     void* self);

// A child control in pixels, in the dialog font.
HWND createChild(HWND parent, const wchar_t* className, const std::wstring& text, DWORD style, int id,
                 RECT place);

// Runs messages until `done` holds, with the dialog keys (Tab, Enter, Escape);
// `preview` sees each message first and gives true when it took it.
template <typename Done, typename Preview> void runModal(HWND window, Done done, Preview preview) {
    MSG msg;
    while (!done() && ::GetMessageW(&msg, nullptr, 0, 0) > 0) {
        if (preview(msg)) continue;
        if (::IsDialogMessageW(window, &msg)) continue;
        ::TranslateMessage(&msg);
        ::DispatchMessageW(&msg);
    }
}

} // namespace tarnvale::gui::win32
