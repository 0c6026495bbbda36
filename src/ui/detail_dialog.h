#pragma once
// The detail dialog: a top-level window of its own class in which one detail of a structure is
// created or edited. It runs modally over the main window; the caller stores the detail.
#include <windows.h>

#include <optional>

#include "model/structure.h"

namespace ui {

inline constexpr const wchar_t* kDetailDialogClass = L"KestrelDetailDlg";

LRESULT CALLBACK DetailDialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam);

// Shows the dialog filled from `detail` ("New Detail" or "Edit Detail") and runs it until it is
// closed. Returns the edited detail (its id kept) when the user saved, nothing when cancelled.
std::optional<Modbus::ModbusDetail> ShowDetailDialog(HWND owner, const Modbus::ModbusDetail& detail, bool isNew);

// The function codes the dialog offers, in table order, and their names.
struct FunctionCodeChoice {
    int code;
    const wchar_t* name;
    bool bitAccess;
};
const FunctionCodeChoice* FunctionCodeTable(size_t& count);
// The table's name of a code, or "FC" and the code in two digits for one not in the table.
std::wstring FunctionCodeText(int code);

}  // namespace ui
