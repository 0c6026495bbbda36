#include "ui/controls.h"

#include <commctrl.h>

#include <cstdlib>
#include <map>

#include "common/localizer.h"
#include "platform/win32/wide_text.h"
#include "ui/app.h"
#include "ui/dpi_scaling.h"

namespace ui {

std::wstring T(const char* english, const char* german) { return Wide(App().language ? english : german); }

std::wstring Wide(const std::string& utf8) { return platform::Wide(utf8); }

std::string Utf8(const std::wstring& wide) { return platform::Utf8(wide); }

namespace {

// Smaller copies of the normal font, by height in pixels, shared by every label that needs one.
std::map<LONG, HFONT>& NarrowFonts() {
    static std::map<LONG, HFONT> fonts;
    return fonts;
}

int TextWidth(HDC dc, HFONT font, const std::wstring& text) {
    HGDIOBJ old = SelectObject(dc, font);
    SIZE size{};
    GetTextExtentPoint32W(dc, text.c_str(), static_cast<int>(text.size()), &size);
    SelectObject(dc, old);
    return size.cx;
}

// The layout leaves some labels just the room their text takes in a narrow system font; where the
// normal font is wider, the label gets the normal font a pixel or two smaller until its text fits,
// rather than showing it cut off or wrapped onto a line below its height.
void FitLabelText(HWND label, const std::wstring& text, int width, HFONT normal) {
    if (label == nullptr || normal == nullptr || text.empty()) return;
    HDC dc = GetDC(label);
    int needed = TextWidth(dc, normal, text);
    if (needed > width) {
        HGDIOBJ old = SelectObject(dc, normal);
        LOGFONTW font{};
        GetObjectW(normal, sizeof(font), &font);
        // The face actually used (a name such as "MS Shell Dlg" is only an alias for it), so the
        // smaller font is the same outline font and not a bitmap face of that size.
        GetTextFaceW(dc, LF_FACESIZE, font.lfFaceName);
        SelectObject(dc, old);
        HFONT narrow = nullptr;
        // One pixel of height at a time: the same face, smaller, keeps its proportions.
        const LONG height = font.lfHeight < 0 ? -font.lfHeight : font.lfHeight;
        for (LONG h = height - 1; h >= height * 2 / 3 && needed > width; --h) {
            HFONT& cached = NarrowFonts()[h];
            if (cached == nullptr) {
                font.lfHeight = -h;
                cached = CreateFontIndirectW(&font);
            }
            narrow = cached;
            needed = TextWidth(dc, narrow, text);
        }
        if (narrow != nullptr) SendMessageW(label, WM_SETFONT, reinterpret_cast<WPARAM>(narrow), TRUE);
    }
    ReleaseDC(label, dc);
}

enum class FontRole { Normal, Bold, FittedLabel };

// A control as the factory placed it: the design rectangle (96 DPI) and what to redo at another DPI.
struct PlacedControl {
    HWND control;
    RECT design;  // left, top, right, bottom
    FontRole font;
    std::wstring fittedText;        // a fitted label's text
    std::vector<int> columnWidths;  // a list view's design column widths
};

// The placed controls of each top-level window.
std::map<HWND, std::vector<PlacedControl>>& Places() {
    static std::map<HWND, std::vector<PlacedControl>> places;
    return places;
}

PlacedControl* FindPlace(HWND parent, HWND control) {
    for (PlacedControl& place : Places()[parent]) {
        if (place.control == control) return &place;
    }
    return nullptr;
}

}  // namespace

void LayOutForDpi(HWND window, int dpi) {
    const InterfaceFonts fonts = FontsForDpi(dpi);
    for (const PlacedControl& place : Places()[window]) {
        const RECT r = ScaleToDpi(place.design, dpi);
        SetWindowPos(place.control, nullptr, r.left, r.top, r.right - r.left, r.bottom - r.top,
                     SWP_NOZORDER | SWP_NOACTIVATE);
        const HFONT font = place.font == FontRole::Bold ? fonts.bold : fonts.normal;
        SendMessageW(place.control, WM_SETFONT, reinterpret_cast<WPARAM>(font), TRUE);
        if (place.font == FontRole::FittedLabel) FitLabelText(place.control, place.fittedText, r.right - r.left, font);
        for (size_t i = 0; i < place.columnWidths.size(); ++i) {
            SendMessageW(place.control, LVM_SETCOLUMNWIDTH, i, MAKELPARAM(ScaleToDpi(place.columnWidths[i], dpi), 0));
        }
    }
}

void ForgetPlaces(HWND window) { Places().erase(window); }

void DeleteNarrowFonts() {
    for (auto& [width, font] : NarrowFonts()) DeleteObject(font);
    NarrowFonts().clear();
}

ControlFactory::ControlFactory(HWND parent, std::vector<HWND>* page, bool visible)
    : parent_(parent), page_(page), visible_(visible ? WS_VISIBLE : 0), dpi_(WindowDpi(parent)) {}

HWND ControlFactory::Create(const wchar_t* windowClass, const std::wstring& text, DWORD style, DWORD exStyle, int x,
                            int y, int w, int h, int id) {
    const RECT design{x, y, x + w, y + h};
    const RECT r = ScaleToDpi(design, dpi_);
    HWND control = CreateWindowExW(exStyle, windowClass, text.c_str(), WS_CHILD | visible_ | style, r.left, r.top,
                                   r.right - r.left, r.bottom - r.top, parent_,
                                   reinterpret_cast<HMENU>(static_cast<INT_PTR>(id)), App().instance, nullptr);
    SendMessageW(control, WM_SETFONT, reinterpret_cast<WPARAM>(FontsForDpi(dpi_).normal), TRUE);
    if (control != nullptr) Places()[parent_].push_back({control, design, FontRole::Normal, {}, {}});
    if (page_ != nullptr && control != nullptr) page_->push_back(control);
    return control;
}

HWND ControlFactory::Group(const std::wstring& text, int x, int y, int w, int h) {
    return Bold(Create(WC_BUTTONW, text, BS_GROUPBOX, 0, x, y, w, h, -1));
}

HWND ControlFactory::Label(const std::wstring& text, int x, int y, int w, int h, DWORD style) {
    HWND label = Create(WC_STATICW, text, style, 0, x, y, w, h, -1);
    FitLabelText(label, text, ScaleToDpi(w, dpi_), FontsForDpi(dpi_).normal);
    if (PlacedControl* place = FindPlace(parent_, label)) {
        place->font = FontRole::FittedLabel;
        place->fittedText = text;
    }
    return label;
}

HWND ControlFactory::Static(int id, const std::wstring& text, int x, int y, int w, int h) {
    return Create(WC_STATICW, text, SS_LEFT, 0, x, y, w, h, id);
}

HWND ControlFactory::Edit(int id, const std::wstring& text, int x, int y, int w, int h, DWORD style) {
    return Create(WC_EDITW, text, ES_AUTOHSCROLL | WS_TABSTOP | style, WS_EX_CLIENTEDGE, x, y, w, h, id);
}

HWND ControlFactory::Button(int id, const std::wstring& text, int x, int y, int w, int h, DWORD style) {
    return Create(WC_BUTTONW, text, WS_TABSTOP | style, 0, x, y, w, h, id);
}

HWND ControlFactory::Radio(int id, const std::wstring& text, int x, int y, int w, int h, bool startsGroup) {
    return Create(WC_BUTTONW, text, BS_AUTORADIOBUTTON | WS_TABSTOP | (startsGroup ? WS_GROUP : 0), 0, x, y, w, h, id);
}

HWND ControlFactory::CheckBox(int id, const std::wstring& text, int x, int y, int w, int h) {
    return Create(WC_BUTTONW, text, BS_AUTOCHECKBOX | WS_TABSTOP, 0, x, y, w, h, id);
}

HWND ControlFactory::DropList(int id, const std::vector<std::wstring>& items, int selected, int x, int y, int w, int h,
                              DWORD style) {
    HWND combo = Create(WC_COMBOBOXW, L"", CBS_DROPDOWNLIST | WS_TABSTOP | style, 0, x, y, w, h, id);
    for (const std::wstring& item : items) SendMessageW(combo, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(item.c_str()));
    SendMessageW(combo, CB_SETCURSEL, static_cast<WPARAM>(selected), 0);
    return combo;
}

HWND ControlFactory::ListView(int id, const std::vector<Column>& columns, int x, int y, int w, int h, DWORD style,
                              DWORD extendedStyle) {
    HWND list = Create(WC_LISTVIEWW, L"", LVS_REPORT | WS_TABSTOP | style, WS_EX_CLIENTEDGE, x, y, w, h, id);
    if (extendedStyle != 0) SendMessageW(list, LVM_SETEXTENDEDLISTVIEWSTYLE, extendedStyle, extendedStyle);
    for (size_t i = 0; i < columns.size(); ++i) {
        LVCOLUMNW column{};
        column.mask = LVCF_TEXT | LVCF_WIDTH | LVCF_FMT | LVCF_SUBITEM;
        column.fmt = LVCFMT_LEFT;
        column.cx = ScaleToDpi(columns[i].width, dpi_);
        column.pszText = const_cast<wchar_t*>(columns[i].title.c_str());
        column.iSubItem = static_cast<int>(i);
        SendMessageW(list, LVM_INSERTCOLUMNW, i, reinterpret_cast<LPARAM>(&column));
    }
    if (PlacedControl* place = FindPlace(parent_, list)) {
        for (const Column& column : columns) place->columnWidths.push_back(column.width);
    }
    return list;
}

HWND ControlFactory::Tabs(int id, int x, int y, int w, int h, DWORD style) {
    return Create(WC_TABCONTROLW, L"", style, 0, x, y, w, h, id);
}

HWND ControlFactory::Bold(HWND control) {
    SendMessageW(control, WM_SETFONT, reinterpret_cast<WPARAM>(FontsForDpi(dpi_).bold), TRUE);
    if (PlacedControl* place = FindPlace(parent_, control)) place->font = FontRole::Bold;
    return control;
}

std::wstring GetText(HWND control) {
    const int length = GetWindowTextLengthW(control);
    std::wstring text(static_cast<size_t>(length) + 1, L'\0');
    const int copied = GetWindowTextW(control, text.data(), length + 1);
    text.resize(static_cast<size_t>(copied > 0 ? copied : 0));
    return text;
}

void SetText(HWND control, const std::wstring& text) { SetWindowTextW(control, text.c_str()); }

int IntFromText(HWND control) { return _wtoi(GetText(control).c_str()); }

double DoubleFromText(HWND control) { return _wtof(GetText(control).c_str()); }

bool IsChecked(HWND control) { return SendMessageW(control, BM_GETCHECK, 0, 0) == BST_CHECKED; }

void SetChecked(HWND control, bool checked) {
    SendMessageW(control, BM_SETCHECK, checked ? BST_CHECKED : BST_UNCHECKED, 0);
}

int SelectedIndex(HWND comboBox) { return static_cast<int>(SendMessageW(comboBox, CB_GETCURSEL, 0, 0)); }

std::wstring SelectedItemText(HWND comboBox) {
    const int index = SelectedIndex(comboBox);
    if (index < 0) return L"";
    const LRESULT length = SendMessageW(comboBox, CB_GETLBTEXTLEN, static_cast<WPARAM>(index), 0);
    if (length < 0) return L"";
    std::wstring text(static_cast<size_t>(length) + 1, L'\0');
    SendMessageW(comboBox, CB_GETLBTEXT, static_cast<WPARAM>(index), reinterpret_cast<LPARAM>(text.data()));
    text.resize(static_cast<size_t>(length));
    return text;
}

void Enable(HWND control, bool enabled) { EnableWindow(control, enabled ? TRUE : FALSE); }

void AppendToEdit(HWND edit, const std::wstring& text) {
    // A shown edit control scrolls and redraws itself and its scroll bar inside EM_REPLACESEL, line
    // by line: about 10 ms of drawing per append under Wine, so a busy log could not keep up with
    // the lines posted to it. The text goes in while the control is marked not visible (what
    // WM_SETREDRAW does for windows that pass it to DefWindowProc; the edit control keeps it to
    // itself and draws anyway), then the control and its frame are invalidated: the log is painted
    // once at the next WM_PAINT, however many lines came in before it.
    const LONG_PTR style = GetWindowLongPtrW(edit, GWL_STYLE);
    const bool shown = (style & WS_VISIBLE) != 0;
    if (shown) SetWindowLongPtrW(edit, GWL_STYLE, style & ~static_cast<LONG_PTR>(WS_VISIBLE));
    const int length = GetWindowTextLengthW(edit);
    SendMessageW(edit, EM_SETSEL, static_cast<WPARAM>(length), static_cast<LPARAM>(length));
    SendMessageW(edit, EM_REPLACESEL, FALSE, reinterpret_cast<LPARAM>(text.c_str()));
    SendMessageW(edit, EM_SCROLLCARET, 0, 0);
    if (shown) {
        SetWindowLongPtrW(edit, GWL_STYLE, style);
        RedrawWindow(edit, nullptr, nullptr, RDW_INVALIDATE | RDW_ERASE | RDW_FRAME);
    }
}

}  // namespace ui
