#include "ui/detail_dialog.h"

#include <cstdio>
#include <string>

#include "ui/app.h"
#include "ui/control_ids.h"
#include "ui/controls.h"
#include "ui/file_dialogs.h"
#include "ui/main_window.h"
#include "ui/modal_window.h"

namespace ui {
namespace {

constexpr int kClientWidth = 420;
constexpr int kClientHeight = 426;

constexpr FunctionCodeChoice kFunctionCodes[] = {
    {1, L"FC01 Read Coils", true},
    {2, L"FC02 Read Discrete Inputs", true},
    {3, L"FC03 Read Holding Registers", false},
    {4, L"FC04 Read Input Registers", false},
    {5, L"FC05 Write Single Coil", true},
    {6, L"FC06 Write Single Register", false},
    {15, L"FC15 Write Multiple Coils", true},
    {16, L"FC16 Write Multiple Registers", false},
};

constexpr int kBooleanIndex = static_cast<int>(Modbus::DataType::Boolean);
constexpr int kStringIndex = static_cast<int>(Modbus::DataType::String);

// The dialog being shown (there is at most one) and what it edits.
struct DialogState {
    HWND window = nullptr;
    Modbus::ModbusDetail detail;
    bool accepted = false;
    HWND name, dataType, arraySize, functionCode, address, byteOrder, scale, offset, unit;
    HWND warnLow, warnHigh, alarmLow, alarmHigh, alarmOnChange;
    HWND arraySizeLabel, byteOrderLabel, scaleLabel, offsetLabel, unitLabel;
    HWND limitLabels[4];
} d;

std::wstring Number(double value) {
    wchar_t text[32];
    std::swprintf(text, 32, L"%g", value);
    return text;
}

bool IsBitAccess(int code) {
    for (const FunctionCodeChoice& choice : kFunctionCodes) {
        if (choice.code == code) return choice.bitAccess;
    }
    return false;
}

int SelectedFunctionCode() {
    const int index = SelectedIndex(d.functionCode);
    if (index < 0) return 3;
    return static_cast<int>(SendMessageW(d.functionCode, CB_GETITEMDATA, static_cast<WPARAM>(index), 0));
}

// Rebuilds the function-code list for the data type and keeps the chosen code where it still fits:
// a boolean offers every code and keeps a bit-access one; any other type offers the register codes
// only and falls back to FC03 when a bit-access code was chosen.
void RebuildFunctionCodes(int type, int current) {
    const bool wasBitAccess = IsBitAccess(current);
    const bool boolean = type == kBooleanIndex;
    SendMessageW(d.functionCode, CB_RESETCONTENT, 0, 0);
    int selection = -1;
    for (const FunctionCodeChoice& choice : kFunctionCodes) {
        if (!boolean && choice.bitAccess) continue;
        const auto index = static_cast<int>(SendMessageW(d.functionCode, CB_ADDSTRING, 0, reinterpret_cast<LPARAM>(choice.name)));
        SendMessageW(d.functionCode, CB_SETITEMDATA, static_cast<WPARAM>(index), static_cast<LPARAM>(choice.code));
        const int wanted = boolean ? current : (wasBitAccess ? 3 : current);
        if (selection < 0 && choice.code == wanted && (!boolean || wasBitAccess)) selection = index;
    }
    SendMessageW(d.functionCode, CB_SETCURSEL, static_cast<WPARAM>(selection < 0 ? 0 : selection), 0);
}

void ShowFieldsFor(int type) {
    const bool boolean = type == kBooleanIndex;
    const bool numeric = !boolean && type != kStringIndex;
    for (HWND control : {d.arraySizeLabel, d.arraySize, d.byteOrderLabel, d.byteOrder}) {
        ShowWindow(control, boolean ? SW_HIDE : SW_SHOW);
    }
    if (boolean) SetText(d.arraySize, L"1");
    for (HWND control : {d.scaleLabel, d.scale, d.offsetLabel, d.offset, d.unitLabel, d.unit, d.warnLow, d.warnHigh,
                         d.alarmLow, d.alarmHigh}) {
        ShowWindow(control, numeric ? SW_SHOW : SW_HIDE);
    }
    for (HWND label : d.limitLabels) ShowWindow(label, numeric ? SW_SHOW : SW_HIDE);
}

void OnDataTypeChanged() {
    const int type = SelectedIndex(d.dataType);
    RebuildFunctionCodes(type, SelectedFunctionCode());
    ShowFieldsFor(type);
}

void BuildControls(HWND window) {
    const Modbus::ModbusDetail& detail = d.detail;
    ControlFactory f(window, nullptr, true);
    f.Label(L"Name: *", 12, 15, 90, 16);
    d.name = f.Edit(id::kDetailName, Wide(detail.name), 107, 12, 295, 22);
    f.Label(T("Data Type:", "Datentyp:"), 12, 45, 90, 16);
    std::vector<std::wstring> types;
    for (int t = 0; t <= kStringIndex; ++t) types.push_back(Wide(Modbus::DataTypeName(static_cast<Modbus::DataType>(t))));
    d.dataType = f.DropList(id::kDetailDataType, types, static_cast<int>(detail.dataType), 107, 42, 200, 200, WS_VSCROLL);
    d.arraySizeLabel = f.Label(T("Array Size:", "Array-Groesse:"), 12, 75, 90, 16);
    d.arraySize = f.Edit(id::kDetailArraySize, std::to_wstring(detail.arraySize), 107, 72, 80, 22, ES_NUMBER);
    f.Label(T("Function Code:", "Funktionscode:"), 12, 105, 92, 16);
    d.functionCode = f.DropList(id::kDetailFunctionCode, {}, -1, 107, 102, 285, 200);
    f.Label(T("Reg. Address:", "Register-Adr.:"), 12, 135, 90, 16);
    d.address = f.Edit(id::kDetailAddress, std::to_wstring(detail.registerAddress), 107, 132, 80, 22, ES_NUMBER);
    d.byteOrderLabel = f.Label(T("Byte Order:", "Byte-Reihenfolge:"), 12, 165, 110, 16);
    d.byteOrder = f.DropList(id::kDetailByteOrder,
                             {L"Big Endian", L"Little Endian", L"Big Endian Swap", L"Little Endian Swap"},
                             static_cast<int>(detail.byteOrder), 127, 162, 185, 200);
    d.scaleLabel = f.Label(L"Scale:", 12, 195, 44, 16);
    d.scale = f.Edit(id::kDetailScale, Number(detail.scale), 58, 192, 80, 22);
    d.offsetLabel = f.Label(L"Offset:", 152, 195, 46, 16);
    d.offset = f.Edit(id::kDetailOffset, Number(detail.offset), 202, 192, 80, 22);
    d.unitLabel = f.Label(T("Unit:", "Einheit:"), 12, 225, 90, 16);
    d.unit = f.Edit(id::kDetailUnit, Wide(detail.unit), 107, 222, 100, 22);

    f.Group(T("Alarms", "Alarmierung"), 6, 262, 408, 116);
    d.limitLabels[0] = f.Label(T("Warn Min:", "Warn. Min:"), 14, 293, 66, 16);
    d.warnLow = f.Edit(id::kDetailWarnLow, Number(detail.warnLow), 83, 290, 75, 22);
    d.limitLabels[1] = f.Label(L"Max:", 170, 293, 30, 16);
    d.warnHigh = f.Edit(id::kDetailWarnHigh, Number(detail.warnHigh), 203, 290, 75, 22);
    d.limitLabels[2] = f.Label(L"Alarm Min:", 14, 323, 66, 16);
    d.alarmLow = f.Edit(id::kDetailAlarmLow, Number(detail.alarmLow), 83, 320, 75, 22);
    d.limitLabels[3] = f.Label(L"Max:", 170, 323, 30, 16);
    d.alarmHigh = f.Edit(id::kDetailAlarmHigh, Number(detail.alarmHigh), 203, 320, 75, 22);
    d.alarmOnChange = f.CheckBox(id::kDetailAlarmOnChange, T("Alarm on value change", "Alarm bei Wert\u00e4nderung"), 12,
                                 350, 260, 20);
    SetChecked(d.alarmOnChange, detail.alarmOnChange);

    f.Button(id::kDetailSave, T("Save", "Speichern"), 118, 390, 88, 26, BS_DEFPUSHBUTTON);
    f.Button(id::kDetailCancel, T("Cancel", "Abbrechen"), 214, 390, 88, 26);

    // The detail's own code is the one to keep when the list is built the first time.
    RebuildFunctionCodes(static_cast<int>(detail.dataType), detail.functionCode);
    ShowFieldsFor(static_cast<int>(detail.dataType));
}

void OnSave() {
    const std::wstring name = GetText(d.name);
    if (name.empty()) {
        ShowMessage(d.window, T("Name must not be empty.", "Name darf nicht leer sein."),
                    T("Validation Error", "Validierungsfehler"), MB_OK | MB_ICONWARNING);
        SetFocus(d.name);
        return;
    }
    Modbus::ModbusDetail& detail = d.detail;
    detail.name = Utf8(name);
    // RAW is not offered: a RAW detail opened here keeps its type unless another one is chosen.
    const int type = SelectedIndex(d.dataType);
    if (type >= 0) detail.dataType = static_cast<Modbus::DataType>(type);
    const int arraySize = IntFromText(d.arraySize);
    detail.arraySize = arraySize < 1 ? 1 : arraySize;
    detail.functionCode = static_cast<uint8_t>(SelectedFunctionCode());
    detail.registerAddress = static_cast<uint16_t>(IntFromText(d.address));
    const int order = SelectedIndex(d.byteOrder);
    if (order >= 0) detail.byteOrder = static_cast<Modbus::ByteOrder>(order);
    detail.scale = DoubleFromText(d.scale);
    if (detail.scale == 0.0) detail.scale = 1.0;
    detail.offset = DoubleFromText(d.offset);
    detail.unit = Utf8(GetText(d.unit));
    detail.warnLow = DoubleFromText(d.warnLow);
    detail.warnHigh = DoubleFromText(d.warnHigh);
    detail.alarmLow = DoubleFromText(d.alarmLow);
    detail.alarmHigh = DoubleFromText(d.alarmHigh);
    detail.alarmOnChange = IsChecked(d.alarmOnChange);
    d.accepted = true;
    DestroyWindow(d.window);
}

}  // namespace

const FunctionCodeChoice* FunctionCodeTable(size_t& count) {
    count = sizeof(kFunctionCodes) / sizeof(kFunctionCodes[0]);
    return kFunctionCodes;
}

std::wstring FunctionCodeText(int code) {
    for (const FunctionCodeChoice& choice : kFunctionCodes) {
        if (choice.code == code) return choice.name;
    }
    wchar_t text[8];
    std::swprintf(text, 8, L"FC%02d", code);
    return text;
}

LRESULT CALLBACK DetailDialogProc(HWND window, UINT message, WPARAM wParam, LPARAM lParam) {
    switch (message) {
        case WM_CREATE:
            d.window = window;
            BuildControls(window);
            return 0;
        case WM_COMMAND:
            switch (LOWORD(wParam)) {
                case id::kDetailSave: OnSave(); return 0;
                case id::kDetailCancel:
                case IDCANCEL: DestroyWindow(window); return 0;
                case id::kDetailDataType:
                    if (HIWORD(wParam) == CBN_SELCHANGE) OnDataTypeChanged();
                    return 0;
                default: break;
            }
            break;
        case DM_GETDEFID: return MAKELRESULT(id::kDetailSave, DC_HASDEFID);
        case WM_CTLCOLORSTATIC:
            SetBkMode(reinterpret_cast<HDC>(wParam), TRANSPARENT);
            return reinterpret_cast<LRESULT>(GetSysColorBrush(COLOR_BTNFACE));
        case WM_DPICHANGED: OnDpiChanged(window, wParam, lParam); return 0;
        case WM_DESTROY:
            ForgetPlaces(window);
            d.window = nullptr;
            return 0;
        default: break;
    }
    return DefWindowProcW(window, message, wParam, lParam);
}

std::optional<Modbus::ModbusDetail> ShowDetailDialog(HWND owner, const Modbus::ModbusDetail& detail, bool isNew) {
    if (d.window != nullptr) {
        SetForegroundWindow(d.window);
        return std::nullopt;
    }
    d.detail = detail;
    d.accepted = false;
    const std::wstring caption = isNew ? T("New Detail", "Neues Detail") : T("Edit Detail", "Detail bearbeiten");
    HWND window = CreateModalWindow(owner, kDetailDialogClass, caption, kClientWidth, kClientHeight);
    SetFocus(d.name);
    RunModalLoop(owner, window, [] { return d.window != nullptr; });
    if (!d.accepted) return std::nullopt;
    return d.detail;
}

}  // namespace ui
