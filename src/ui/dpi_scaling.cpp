#include "ui/dpi_scaling.h"

#include <map>

namespace ui {
namespace {

// GetDpiForWindow exists from Windows 10 1607 on; looked up at run time so the program still
// starts on Windows 7 and 8.
using GetDpiForWindowFunction = UINT(WINAPI*)(HWND);

GetDpiForWindowFunction DpiForWindowFunction() {
    static const auto function = reinterpret_cast<GetDpiForWindowFunction>(
        reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"user32.dll"), "GetDpiForWindow")));
    return function;
}

std::map<int, InterfaceFonts>& FontsByDpi() {
    static std::map<int, InterfaceFonts> fonts;
    return fonts;
}

}  // namespace

int SystemDpi() {
    HDC screen = GetDC(nullptr);
    const int dpi = screen != nullptr ? GetDeviceCaps(screen, LOGPIXELSY) : kDesignDpi;
    if (screen != nullptr) ReleaseDC(nullptr, screen);
    return dpi > 0 ? dpi : kDesignDpi;
}

int WindowDpi(HWND window) {
    if (GetDpiForWindowFunction function = DpiForWindowFunction(); function != nullptr && window != nullptr) {
        const UINT dpi = function(window);
        if (dpi > 0) return static_cast<int>(dpi);
    }
    return SystemDpi();
}

int ScaleToDpi(int length, int dpi) { return dpi == kDesignDpi ? length : MulDiv(length, dpi, kDesignDpi); }

RECT ScaleToDpi(const RECT& design, int dpi) {
    return {ScaleToDpi(design.left, dpi), ScaleToDpi(design.top, dpi), ScaleToDpi(design.right, dpi),
            ScaleToDpi(design.bottom, dpi)};
}

InterfaceFonts FontsForDpi(int dpi) {
    InterfaceFonts& fonts = FontsByDpi()[dpi];
    if (fonts.normal != nullptr) return fonts;
    NONCLIENTMETRICSW metrics{};
    metrics.cbSize = 504;  // the size without iPaddedBorderWidth, accepted by every Windows version
    SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, metrics.cbSize, &metrics, 0);
    // The message font comes at the system DPI; a window on a screen of another DPI scales it.
    LOGFONTW normal = metrics.lfMessageFont;
    const int system = SystemDpi();
    if (dpi != system) normal.lfHeight = MulDiv(normal.lfHeight, dpi, system);
    fonts.normal = CreateFontIndirectW(&normal);
    LOGFONTW bold = normal;
    bold.lfWeight = FW_BOLD;
    fonts.bold = CreateFontIndirectW(&bold);
    return fonts;
}

void FreeFontsOfAllDpis() {
    for (auto& [dpi, fonts] : FontsByDpi()) {
        if (fonts.normal != nullptr) DeleteObject(fonts.normal);
        if (fonts.bold != nullptr) DeleteObject(fonts.bold);
    }
    FontsByDpi().clear();
}

}  // namespace ui
