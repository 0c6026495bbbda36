#include "ui/detail_dialog.h"

namespace ui {

LRESULT CALLBACK DetailDialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    return DefWindowProcW(window, message, wParam, lParam);
}

}  // namespace ui
