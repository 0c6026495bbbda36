#pragma once
// Small helpers that make building a page read like a table of its controls: one line per
// control with its id, text and position. Every control gets the normal font, group boxes the bold
// one; a page's controls are created hidden and appended to the page's list, the connection
// panel's are created visible and belong to no page.
//
// Positions are the design's, at 96 DPI: the factory places each control at its position scaled
// to the DPI of the window (see dpi_scaling.h), gives it the fonts of that DPI, and remembers the
// design rectangle, so that the window can lay out every control again when it moves to a screen
// with another DPI.
#include <windows.h>

#include <string>
#include <vector>

namespace ui {

// The interface text of a pair, in the window's language, as UTF-16.
std::wstring T(const char* english, const char* german);
// UTF-8 to UTF-16 and back, for texts that come from or go to the core.
std::wstring Wide(const std::string& utf8);
std::string Utf8(const std::wstring& wide);

struct Column {
    std::wstring title;
    int width;
};

// Frees the narrowed fonts some labels got to fit their text (at shut-down, with the other fonts).
void DeleteNarrowFonts();

// Lays out every control the factory made in `window` at `dpi`: its design rectangle scaled, the
// fonts of that DPI (labels fitted again), list view columns scaled.
void LayOutForDpi(HWND window, int dpi);
// Forgets the controls of a window that is being destroyed.
void ForgetPlaces(HWND window);

class ControlFactory {
public:
    // `page` receives every control created (nullptr: none); `visible` creates them shown.
    ControlFactory(HWND parent, std::vector<HWND>* page, bool visible);

    // The DPI the controls are placed for (the parent window's).
    int Dpi() const { return dpi_; }

    HWND Group(const std::wstring& text, int x, int y, int w, int h);
    HWND Label(const std::wstring& text, int x, int y, int w, int h, DWORD style = SS_LEFT);
    // A static control the handlers write into (a status line, a counter).
    HWND Static(int id, const std::wstring& text, int x, int y, int w, int h);
    HWND Edit(int id, const std::wstring& text, int x, int y, int w, int h, DWORD style = 0);
    HWND Button(int id, const std::wstring& text, int x, int y, int w, int h, DWORD style = BS_PUSHBUTTON);
    HWND Radio(int id, const std::wstring& text, int x, int y, int w, int h, bool startsGroup);
    HWND CheckBox(int id, const std::wstring& text, int x, int y, int w, int h);
    // A drop-down list with its items and the index selected (-1: none).
    HWND DropList(int id, const std::vector<std::wstring>& items, int selected, int x, int y, int w, int h,
                  DWORD style = 0);
    // A report-style list view with its columns (left-aligned).
    HWND ListView(int id, const std::vector<Column>& columns, int x, int y, int w, int h, DWORD style = 0,
                  DWORD extendedStyle = 0);

    // The tab control the pages are drawn over.
    HWND Tabs(int id, int x, int y, int w, int h, DWORD style);

    // Gives a control the bold font.
    HWND Bold(HWND control);

private:
    HWND Create(const wchar_t* windowClass, const std::wstring& text, DWORD style, DWORD exStyle, int x, int y, int w,
                int h, int id);

    HWND parent_;
    std::vector<HWND>* page_;
    DWORD visible_;
    int dpi_;
};

// Control texts as the handlers read them.
std::wstring GetText(HWND control);
void SetText(HWND control, const std::wstring& text);
// `_wtoi` / `_wtof` of the control's text: text that is not a number gives 0.
int IntFromText(HWND control);
double DoubleFromText(HWND control);
bool IsChecked(HWND control);
void SetChecked(HWND control, bool checked);
int SelectedIndex(HWND comboBox);
std::wstring SelectedItemText(HWND comboBox);
void Enable(HWND control, bool enabled);

// Appends text at the end of an edit control without re-reading its contents: the selection goes
// to the end, the text replaces it (not undoable), the caret is scrolled into view. A shown control
// is repainted at the next WM_PAINT, not inside the call.
void AppendToEdit(HWND edit, const std::wstring& text);

}  // namespace ui
