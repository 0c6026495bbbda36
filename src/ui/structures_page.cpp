#include "ui/structures_page.h"

#include <commctrl.h>

#include <exception>
#include <optional>
#include <stdexcept>

#include "platform/file_io.h"
#include "polling/structure_polling.h"
#include "ui/app.h"
#include "ui/connection_panel.h"
#include "ui/control_ids.h"
#include "ui/controls.h"
#include "ui/detail_dialog.h"
#include "ui/file_dialogs.h"
#include "ui/list_view_rows.h"
#include "ui/main_window.h"
#include "ui/recording_controls.h"

namespace ui::structures_page {
namespace {

struct Controls {
    HWND structures, details;
    HWND name, ip, port, unitId, description, rtuOverTcp;
    HWND interval, pollStart, pollStop, liveValues;
} c{};

// The inline editor either adds a new structure or replaces the fields of this one.
bool editing = false;
int32_t editingId = 0;

// The structures file could not be read completely and has not been written since: it is kept
// as it is until the user changes a structure.
bool fileDamaged = false;

constexpr int kButtonX = 712;
constexpr int kButtonStep = 28;

StructurePolling Polling() {
    return {Store(), StructurePollingConnection(), Poller(), Alarms(), Recording()};
}

std::wstring Decimal(long long value) { return std::to_wstring(value); }

void BuildStructureGroup(ControlFactory& f) {
    f.Group(T("Modbus Structures", "Modbus-Strukturen"), 15, 183, 760, 175);
    c.structures = f.ListView(id::kStructureList,
                              {{L"Name", 250}, {T("Address", "Adresse"), 220}, {L"Unit-ID", 90}, {L"Details", 90}},
                              20, 201, 682, 140, LVS_SINGLESEL | LVS_SHOWSELALWAYS,
                              LVS_EX_FULLROWSELECT | LVS_EX_GRIDLINES);
    f.Button(id::kStructureNew, T("New", "Neu"), kButtonX, 201, 58, 24);
    f.Button(id::kStructureEdit, T("Edit", "Bearb."), kButtonX, 201 + kButtonStep, 58, 24);
    f.Button(id::kStructureDelete, T("Delete", "Loeschen"), kButtonX, 201 + 2 * kButtonStep, 58, 24);
    f.Button(id::kStructureDemo, L"Demo", kButtonX, 201 + 3 * kButtonStep, 58, 24);
    f.Button(id::kStructureConnect, T("Conn.", "Verb."), kButtonX, 201 + 4 * kButtonStep, 58, 24);
}

void BuildEditorGroup(ControlFactory& f) {
    f.Group(T("Edit Structure", "Struktur bearbeiten"), 15, 356, 760, 115);
    f.Label(L"Name:", 25, 381, 50, 16);
    c.name = f.Edit(id::kStructureName, L"", 80, 378, 190, 22);
    f.Label(L"IP:", 282, 381, 20, 16);
    c.ip = f.Edit(id::kStructureIp, L"192.168.1.1", 305, 378, 120, 22);
    f.Label(L"Port:", 437, 381, 32, 16);
    c.port = f.Edit(id::kStructurePort, L"502", 472, 378, 60, 22, ES_NUMBER);
    f.Label(L"Unit-ID:", 545, 381, 50, 16);
    c.unitId = f.Edit(id::kStructureUnitId, L"1", 598, 378, 45, 22, ES_NUMBER);
    f.Label(T("Descr.:", "Beschr.:"), 25, 411, 50, 16);
    c.description = f.Edit(id::kStructureDescription, L"", 80, 408, 345, 22);
    c.rtuOverTcp = f.CheckBox(id::kStructureRtuOverTcp, L"RTU over TCP", 437, 409, 130, 20);
    f.Button(id::kStructureSave, T("Save", "Speichern"), 598, 406, 80, 26);
    f.Button(id::kStructureCancel, T("Cancel", "Abbrechen"), 688, 406, 80, 26);
}

void BuildDetailGroup(ControlFactory& f) {
    f.Group(T("Details of selected Structure", "Details der ausgewaehlten Struktur"), 15, 460, 760, 160);
    c.details = f.ListView(id::kDetailList,
                           {{L"Name", 190},
                            {T("Data Type", "Datentyp"), 90},
                            {T("Reg. Address", "Register-Adr."), 95},
                            {T("Function Code", "Funktionscode"), 200},
                            {T("Unit", "Einheit"), 80}},
                           20, 478, 682, 128, LVS_SINGLESEL | LVS_SHOWSELALWAYS,
                           LVS_EX_FULLROWSELECT | LVS_EX_GRIDLINES);
    f.Button(id::kDetailNew, T("New", "Neu"), kButtonX, 478, 58, 24);
    f.Button(id::kDetailDelete, L"Del", kButtonX, 506, 58, 24);
}

void BuildPollingGroup(ControlFactory& f) {
    f.Group(T("Polling / Recording", "Polling / Aufzeichnung"), 15, 620, 760, 52);
    f.Label(T("Interval (ms):", "Intervall (ms):"), 25, 643, 85, 16);
    c.interval = f.Edit(id::kStructurePollInterval, L"1000", 115, 640, 65, 22, ES_NUMBER);
    c.pollStart = f.Button(id::kStructurePollStart, T("Start", "Starten"), 190, 638, 80, 26);
    c.pollStop = f.Button(id::kStructurePollStop, T("Stop", "Stoppen"), 278, 638, 80, 26);
    recording_controls::Build(f, 380, 638);
}

void BuildLiveValuesGroup(ControlFactory& f) {
    f.Group(T("Live Values", "Live-Werte"), 15, 673, 760, 137);
    c.liveValues = f.Edit(id::kLiveValues, L"", 20, 691, 750, 112,
                          ES_MULTILINE | ES_READONLY | ES_AUTOVSCROLL | WS_VSCROLL);
}

// The structure of the selected row of the structure list, if it is still in the store.
std::optional<ModbusStructure> SelectedStructure() {
    const int row = SelectedRow(c.structures);
    if (row < 0) return std::nullopt;
    return Store().FindStructure(static_cast<int32_t>(RowData(c.structures, row)));
}

void FillStructureList() {
    SendMessageW(c.structures, LVM_DELETEALLITEMS, 0, 0);
    for (const ModbusStructure& s : Store().Structures()) {
        AppendRow(c.structures,
                  {Wide(s.name), Wide(s.ip) + L":" + Decimal(s.port), Decimal(s.unitId),
                   Decimal(static_cast<long long>(s.details.size()))},
                  s.id);
    }
}

void FillDetailList(int32_t structureId) {
    SendMessageW(c.details, LVM_DELETEALLITEMS, 0, 0);
    const std::optional<ModbusStructure> s = Store().FindStructure(structureId);
    if (!s) return;
    for (const Modbus::ModbusDetail& d : s->details) {
        AppendRow(c.details,
                  {Wide(d.name), Wide(Modbus::DataTypeName(d.dataType)), Decimal(d.registerAddress),
                   FunctionCodeText(d.functionCode), Wide(d.unit)},
                  d.id);
    }
}

// Rebuilds the structure list and selects the structure again (which refills its details).
void RefreshKeepingSelection(int32_t structureId) {
    FillStructureList();
    SendMessageW(c.details, LVM_DELETEALLITEMS, 0, 0);
    const int count = static_cast<int>(SendMessageW(c.structures, LVM_GETITEMCOUNT, 0, 0));
    for (int row = 0; row < count; ++row) {
        if (static_cast<int32_t>(RowData(c.structures, row)) == structureId) {
            SelectRow(c.structures, row);
            return;
        }
    }
    App().selectedStructureId = 0;
}

void SaveStore() {
    if (Store().SaveStructures()) fileDamaged = false;
}

std::wstring FilePathForMessage() {
    wchar_t full[MAX_PATH] = {};
    const std::wstring name = Wide(Store().Path());
    if (GetFullPathNameW(name.c_str(), MAX_PATH, full, nullptr) == 0) return name;
    return full;
}

// The report of a structures file that could not be read completely: which file, and why.
std::wstring damagedFileMessage;

void ReportDamagedFile() {
    if (damagedFileMessage.empty()) return;
    const std::wstring text = damagedFileMessage;
    damagedFileMessage.clear();
    ShowMessage(App().mainWindow, text, T("Structures file", "Strukturdatei"), MB_OK | MB_ICONWARNING);
}

// What the reader's conversion error means to a user, with the error's own text for the details.
std::wstring ProblemText(const std::exception& error) {
    std::wstring meaning;
    if (dynamic_cast<const std::out_of_range*>(&error) != nullptr) {
        meaning = T("a number is too large", "eine Zahl ist zu gro\u00df");
    } else if (dynamic_cast<const std::invalid_argument*>(&error) != nullptr) {
        meaning = T("a value that must be a number is not one", "ein Wert, der eine Zahl sein muss, ist keine");
    } else {
        return Wide(error.what());
    }
    return meaning + L" (" + Wide(error.what()) + L")";
}

// Reads the structures file. The store's reader throws on a number it cannot convert; what was
// read before stays, and the user is told which file is damaged and why. True when it was read
// completely (or is missing).
bool ReadStructuresFile() {
    try {
        Store().LoadStructures();
        fileDamaged = false;
        return true;
    } catch (const std::exception& error) {
        fileDamaged = true;
        damagedFileMessage =
            T("The structures file could not be read completely:\n",
              "Die Strukturdatei konnte nicht vollst\u00e4ndig gelesen werden:\n") +
            FilePathForMessage() + L"\n\n" + T("Problem: ", "Problem: ") + ProblemText(error) + L"\n\n" +
            T("The structures read before the error are shown. The file stays as it is until you change a "
              "structure.",
              "Die bis zum Fehler gelesenen Strukturen werden angezeigt. Die Datei bleibt unver\u00e4ndert, bis Sie "
              "eine Struktur \u00e4ndern.");
        return false;
    }
}

void ResetEditor() {
    editing = false;
    editingId = 0;
    SetText(c.name, L"");
    SetText(c.ip, L"192.168.1.1");
    SetText(c.port, L"502");
    SetText(c.unitId, L"1");
    SetText(c.description, L"");
    SetChecked(c.rtuOverTcp, false);
}

void ValidationError(HWND field, const std::wstring& text) {
    ShowMessage(App().mainWindow, text, T("Validation Error", "Validierungsfehler"), MB_OK | MB_ICONWARNING);
    SetFocus(field);
}

void OnNewStructure() {
    ResetEditor();
    SetFocus(c.name);
}

void OnEditStructure() {
    const std::optional<ModbusStructure> s = SelectedStructure();
    if (!s) return;
    editing = true;
    editingId = s->id;
    SetText(c.name, Wide(s->name));
    SetText(c.ip, Wide(s->ip));
    SetText(c.port, Decimal(s->port));
    SetText(c.unitId, Decimal(s->unitId));
    SetText(c.description, Wide(s->description));
    SetChecked(c.rtuOverTcp, s->rtuOverTcp);
}

void OnSaveStructure() {
    const std::wstring name = GetText(c.name);
    const std::wstring ip = GetText(c.ip);
    const int port = IntFromText(c.port);
    if (name.empty()) return ValidationError(c.name, T("Name must not be empty.", "Name darf nicht leer sein."));
    if (ip.empty()) return ValidationError(c.ip, T("IP address must not be empty.", "IP-Adresse darf nicht leer sein."));
    if (port < 1 || port > 65535) {
        return ValidationError(c.port,
                               T("Port must be in range 1\u201365535.", "Port muss im Bereich 1\u201365535 liegen."));
    }
    ModbusStructure s;
    s.name = Utf8(name);
    s.ip = Utf8(ip);
    s.description = Utf8(GetText(c.description));
    s.port = static_cast<uint16_t>(port);
    s.unitId = static_cast<uint8_t>(IntFromText(c.unitId));
    s.rtuOverTcp = IsChecked(c.rtuOverTcp);

    int32_t savedId;
    if (editing && Store().UpdateStructureFields(editingId, s)) {
        savedId = editingId;
    } else {
        savedId = Store().AddStructure(s);
    }
    SaveStore();
    ResetEditor();
    RefreshKeepingSelection(savedId);
}

void OnDeleteStructure() {
    const int row = SelectedRow(c.structures);
    if (row < 0) return;
    if (ShowMessage(App().mainWindow, T("Delete structure?", "Struktur loeschen?"), T("Confirm", "Bestaetigen"),
                    MB_YESNO | MB_ICONQUESTION) != IDYES) {
        return;
    }
    const int32_t structureId = static_cast<int32_t>(RowData(c.structures, row));
    Store().RemoveStructure(structureId);
    SaveStore();
    if (editing && editingId == structureId) ResetEditor();
    RefreshLists();
}

void OnDemo() {
    Store().CreateDemoStructure();
    fileDamaged = false;
    RefreshKeepingSelection(App().selectedStructureId);
}

void OnConnectStructure() {
    const std::optional<ModbusStructure> s = SelectedStructure();
    if (!s) return;
    connection_panel::FillTcpEndpoint(Wide(s->ip), Decimal(s->port), Decimal(s->unitId));
    SwitchPage(kRegisterPage);
    connection_panel::OnConnectButton();
}

// Opens the detail dialog for a new detail of the selected structure or for one of its details,
// and stores what the user saved.
void EditDetail(const Modbus::ModbusDetail& detail, bool isNew) {
    const int32_t structureId = App().selectedStructureId;
    const std::optional<Modbus::ModbusDetail> edited = ShowDetailDialog(App().mainWindow, detail, isNew);
    if (!edited) return;
    if (isNew) {
        Store().AddDetail(structureId, *edited);
    } else {
        Store().UpdateDetail(structureId, *edited);
    }
    SaveStore();
    RefreshKeepingSelection(structureId);
}

void OnNewDetail() {
    if (App().selectedStructureId == 0 || !Store().FindStructure(App().selectedStructureId)) {
        ShowMessage(App().mainWindow, T("Please select a structure first.", "Bitte zuerst eine Struktur auswaehlen."),
                    T("Notice", "Hinweis"), MB_OK | MB_ICONINFORMATION);
        return;
    }
    EditDetail(Modbus::ModbusDetail{}, true);
}

void OnDeleteDetail() {
    const int row = SelectedRow(c.details);
    const int32_t structureId = App().selectedStructureId;
    if (row < 0 || structureId == 0) return;
    if (ShowMessage(App().mainWindow, T("Delete detail?", "Detail loeschen?"), T("Confirm", "Bestaetigen"),
                    MB_YESNO | MB_ICONQUESTION) != IDYES) {
        return;
    }
    Store().RemoveDetail(structureId, static_cast<int32_t>(RowData(c.details, row)));
    SaveStore();
    RefreshKeepingSelection(structureId);
}

void OnPollStart() {
    const int32_t structureId = App().selectedStructureId;
    const uint32_t interval = PollIntervalFromText(Utf8(GetText(c.interval)));
    const StructurePollStart result = StartStructurePolling(
        Polling(), structureId, interval, [](const std::string& line) { PostLogLine(line, "[Poll] "); },
        [](const PollResults& results) { PostPollResults(false, results); });
    if (result != StructurePollStart::Started) {
        const UINT icon = result == StructurePollStart::ConnectionFailed ? MB_ICONERROR : MB_ICONINFORMATION;
        ShowMessage(App().mainWindow, Wide(StructurePollStartMessage(result)), Wide(StructurePollStartTitle(result)),
                    MB_OK | icon);
        return;
    }
    Enable(c.pollStart, false);
    Enable(c.pollStop, true);
    SetText(c.liveValues, Wide(PollingStartedText()));
}

void OnPollStop() {
    StopStructurePolling(Polling());
    Enable(c.pollStart, true);
    Enable(c.pollStop, false);
}

}  // namespace

void Build(HWND window, std::vector<HWND>& page, int, int) {
    ControlFactory f(window, &page, false);
    BuildStructureGroup(f);
    BuildEditorGroup(f);
    BuildDetailGroup(f);
    BuildPollingGroup(f);
    BuildLiveValuesGroup(f);
    Enable(c.pollStop, false);
    editing = false;
    editingId = 0;
    fileDamaged = false;
}

bool OnCommand(int command) {
    switch (command) {
        case id::kStructureNew: OnNewStructure(); return true;
        case id::kStructureEdit: OnEditStructure(); return true;
        case id::kStructureDelete: OnDeleteStructure(); return true;
        case id::kStructureDemo: OnDemo(); return true;
        case id::kStructureConnect: OnConnectStructure(); return true;
        case id::kStructureSave: OnSaveStructure(); return true;
        case id::kStructureCancel: ResetEditor(); return true;
        case id::kDetailNew: OnNewDetail(); return true;
        case id::kDetailDelete: OnDeleteDetail(); return true;
        case id::kStructurePollStart: OnPollStart(); return true;
        case id::kStructurePollStop: OnPollStop(); return true;
        case id::kRecord: recording_controls::OnRecord(); return true;
        case id::kCsvExport: recording_controls::OnCsvExport(); return true;
        case id::kJsonExport: recording_controls::OnJsonExport(); return true;
        default: return false;
    }
}

void OnStructureSelected(int32_t structureId) {
    App().selectedStructureId = structureId;
    FillDetailList(structureId);
}

void OnDetailDoubleClick(int item) {
    const std::optional<ModbusStructure> s = Store().FindStructure(App().selectedStructureId);
    if (!s) return;
    const int32_t detailId = static_cast<int32_t>(RowData(c.details, item));
    for (const Modbus::ModbusDetail& d : s->details) {
        if (d.id == detailId) return EditDetail(d, false);
    }
}

HWND StructureList() { return c.structures; }

HWND DetailList() { return c.details; }

void ShowLiveValues(const PollResults& results) {
    std::wstring text;
    for (const Modbus::PollingResult& result : results) text += Wide(LiveValueLine(result)) + L"\r\n";
    SetText(c.liveValues, text);
}

void LoadStructures() {
    if (!ReadStructuresFile()) {
        // Shown once the window is up, so the message box has its owner on the screen.
        SetTimer(App().mainWindow, 0, 0, [](HWND window, UINT, UINT_PTR timer, DWORD) {
            KillTimer(window, timer);
            ReportDamagedFile();
        });
    }
    FillStructureList();
}

void RefreshLists() {
    FillStructureList();
    SendMessageW(c.details, LVM_DELETEALLITEMS, 0, 0);
    App().selectedStructureId = 0;
}

bool ExportStructuresFile(const std::wstring& to) {
    if (fileDamaged) return platform::CopyFileOverwriting(Store().Path(), Utf8(to));
    return Store().ExportStructures(Utf8(to));
}

ImportResult ImportStructuresFile(const std::wstring& from) {
    if (!platform::CopyFileOverwriting(Utf8(from), Store().Path())) return ImportResult::CopyFailed;
    const bool complete = ReadStructuresFile();
    RefreshLists();
    if (complete) return ImportResult::Imported;
    ReportDamagedFile();
    return ImportResult::Damaged;
}

}  // namespace ui::structures_page
