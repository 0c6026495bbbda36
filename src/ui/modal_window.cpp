#include "ui/modal_window.h"

#include "ui/app.h"
#include "ui/dpi_scaling.h"

namespace ui {

namespace {
constexpr DWORD kStyle = WS_POPUP | WS_CAPTION | WS_SYSMENU;
}  // namespace

HWND CreateModalWindow(HWND owner, const wchar_t* windowClass, const std::wstring& caption, int clientWidth,
                       int clientHeight) {
    // The window comes up over the owner, on the owner's screen: its client area is scaled to that DPI.
    const int dpi = WindowDpi(owner);
    RECT frame{0, 0, ScaleToDpi(clientWidth, dpi), ScaleToDpi(clientHeight, dpi)};
    AdjustWindowRectEx(&frame, kStyle, FALSE, WS_EX_DLGMODALFRAME);
    const int width = frame.right - frame.left;
    const int height = frame.bottom - frame.top;
    RECT over{};
    GetWindowRect(owner, &over);
    const int x = over.left + ((over.right - over.left) - width) / 2;
    const int y = over.top + ((over.bottom - over.top) - height) / 2;
    HWND window = CreateWindowExW(WS_EX_DLGMODALFRAME, windowClass, caption.c_str(), kStyle, x, y, width, height, owner,
                                  nullptr, App().instance, nullptr);
    EnableWindow(owner, FALSE);
    ShowWindow(window, SW_SHOW);
    UpdateWindow(window);
    return window;
}

void RunModalLoop(HWND owner, HWND window, const std::function<bool()>& isOpen) {
    // GetMessageW returns only for a posted message. A message sent to the window from another
    // thread or process (a click sent by an automation tool, a shutdown broadcast) is handled inside
    // it, and when that handler destroys the window GetMessageW would go on waiting with the owner
    // still disabled. So the loop takes what is queued without waiting, and waits only while the
    // window is open, for any input including sent messages, then looks at the window again.
    MSG message;
    while (isOpen()) {
        if (!PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            if (!isOpen()) break;  // a sent message handled inside PeekMessageW closed it
            MsgWaitForMultipleObjectsEx(0, nullptr, INFINITE, QS_ALLINPUT, MWMO_INPUTAVAILABLE);
            continue;
        }
        if (message.message == WM_QUIT) {
            PostQuitMessage(static_cast<int>(message.wParam));
            break;
        }
        if (isOpen() && IsDialogMessageW(window, &message)) continue;
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
    EnableWindow(owner, TRUE);
    SetForegroundWindow(owner);
}

}  // namespace ui
