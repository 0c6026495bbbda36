#include "ui/list_view_rows.h"

#include <commctrl.h>

namespace ui {

int AppendRow(HWND list, const std::vector<std::wstring>& cells, LPARAM data) {
    if (cells.empty()) return -1;
    LVITEMW item{};
    item.mask = LVIF_TEXT | LVIF_PARAM;
    item.iItem = static_cast<int>(SendMessageW(list, LVM_GETITEMCOUNT, 0, 0));
    item.pszText = const_cast<wchar_t*>(cells[0].c_str());
    item.lParam = data;
    const int row = static_cast<int>(SendMessageW(list, LVM_INSERTITEMW, 0, reinterpret_cast<LPARAM>(&item)));
    for (size_t column = 1; column < cells.size(); ++column) {
        LVITEMW cell{};
        cell.iSubItem = static_cast<int>(column);
        cell.pszText = const_cast<wchar_t*>(cells[column].c_str());
        SendMessageW(list, LVM_SETITEMTEXTW, static_cast<WPARAM>(row), reinterpret_cast<LPARAM>(&cell));
    }
    return row;
}

int SelectedRow(HWND list) {
    return static_cast<int>(SendMessageW(list, LVM_GETNEXTITEM, static_cast<WPARAM>(-1), LVNI_SELECTED));
}

LPARAM RowData(HWND list, int row) {
    LVITEMW item{};
    item.mask = LVIF_PARAM;
    item.iItem = row;
    SendMessageW(list, LVM_GETITEMW, 0, reinterpret_cast<LPARAM>(&item));
    return item.lParam;
}

void SelectRow(HWND list, int row) {
    LVITEMW item{};
    item.stateMask = LVIS_SELECTED | LVIS_FOCUSED;
    item.state = LVIS_SELECTED | LVIS_FOCUSED;
    SendMessageW(list, LVM_SETITEMSTATE, static_cast<WPARAM>(row), reinterpret_cast<LPARAM>(&item));
    SendMessageW(list, LVM_ENSUREVISIBLE, static_cast<WPARAM>(row), FALSE);
}

}  // namespace ui
