#include "ui/recording_controls.h"

#include <optional>

#include "platform/file_io.h"
#include "ui/app.h"
#include "ui/control_ids.h"
#include "ui/file_dialogs.h"

namespace ui::recording_controls {
namespace {

HWND recordButton = nullptr;

}  // namespace

void Build(ControlFactory& f, int x, int y) {
    recordButton = f.Button(id::kRecord, Wide(RecordButtonText(Recording().IsRecording())), x, y, 100, 26);
    f.Button(id::kCsvExport, L"CSV-Export", x + 108, y, 95, 26);
    f.Button(id::kJsonExport, L"JSON-Export", x + 211, y, 95, 26);
}

void OnRecord() {
    std::string name = DefaultRecordingName();
    if (const std::optional<ModbusStructure> s = Store().FindStructure(App().selectedStructureId)) name = s->name;
    const bool on = Recording().ToggleRecording(name);
    SetText(recordButton, Wide(RecordButtonText(on)));
}

void OnCsvExport() {
    const std::optional<std::wstring> path =
        AskSaveFileName(App().mainWindow, {{L"CSV-Dateien", L"*.csv"}}, L"csv", L"recording.csv");
    if (!path) return;
    // A failed export says nothing.
    if (Recording().ExportCsv(Utf8(*path))) {
        ShowMessage(App().mainWindow, T("CSV exported.", "CSV exportiert."), L"OK", MB_OK | MB_ICONINFORMATION);
    }
}

void OnJsonExport() {
    const std::optional<std::wstring> path =
        AskSaveFileName(App().mainWindow, {{L"JSON-Dateien", L"*.json"}}, L"json", L"modbus_structures.json");
    if (!path) return;
    // The message follows the attempt, whether or not the file could be written.
    platform::WriteFileReplacing(Utf8(*path), Store().SerializeStructures());
    ShowMessage(App().mainWindow, T("JSON exported.", "JSON exportiert."), L"OK", MB_OK | MB_ICONINFORMATION);
}

}  // namespace ui::recording_controls
