#pragma once
// The window is designed at 96 DPI. On a screen with another DPI (a 150 % laptop screen is 144)
// every position, size and font is scaled by dpi / 96: Windows 10 and 11 tell a per-monitor aware
// program the DPI of each window and leave the scaling to it. At 96 DPI nothing changes.
#include <windows.h>

namespace ui {

inline constexpr int kDesignDpi = 96;

// The DPI the system draws at (the primary screen's); the DPI of a window (the screen it is on,
// where Windows tells it: Windows 10 1607 and later; the system DPI before that).
int SystemDpi();
int WindowDpi(HWND window);
// A design length at `dpi`: length * dpi / 96, rounded.
int ScaleToDpi(int length, int dpi);
RECT ScaleToDpi(const RECT& design, int dpi);

// The interface fonts at a DPI: the system's message font and the same in bold, scaled from the
// system DPI when `dpi` differs. Made once per DPI and kept until FreeFontsOfAllDpis at shut-down,
// so a window moved to another screen never deletes a font other windows still use.
struct InterfaceFonts {
    HFONT normal = nullptr;
    HFONT bold = nullptr;
};
InterfaceFonts FontsForDpi(int dpi);
void FreeFontsOfAllDpis();

}  // namespace ui
