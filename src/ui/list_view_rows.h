#pragma once
// Rows of the report-style list views (structures, details, frames, alarms): append a row with its
// cells and item data, find and select the selected row.
#include <windows.h>

#include <string>
#include <vector>

namespace ui {

// Appends a row at the end with one text per column and `data` as its item data; returns its index.
int AppendRow(HWND list, const std::vector<std::wstring>& cells, LPARAM data = 0);
// The first selected row, or -1.
int SelectedRow(HWND list);
LPARAM RowData(HWND list, int row);
// Selects and focuses a row and scrolls it into view.
void SelectRow(HWND list, int row);

}  // namespace ui
