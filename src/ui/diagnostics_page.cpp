#include "ui/diagnostics_page.h"

#include <commctrl.h>

#include <cstdio>
#include <deque>
#include <optional>
#include <string>

#include "platform/file_io.h"
#include "protocol/frame_codec.h"
#include "protocol/trace_log.h"
#include "ui/app.h"
#include "ui/control_ids.h"
#include "ui/controls.h"
#include "ui/file_dialogs.h"
#include "ui/list_view_rows.h"

namespace ui::diagnostics_page {
namespace {

struct Controls {
    HWND statistics, frames;
} c{};

std::wstring Decimal(long long value) { return std::to_wstring(value); }

// Decided in this order: a time-out wins over a CRC error, which wins over an exception.
std::wstring StatusText(const Modbus::TraceFrame& frame) {
    if (frame.isTimeout) return L"Timeout";
    if (frame.isCrcError) return T("CRC Error", "CRC-Fehler");
    if (frame.isException) return L"Exception";
    return L"OK";
}

// The function code sits at byte 7 of a TCP request, behind the MBAP header; RTU frames are looked
// up at the same place.
std::wstring FunctionCodeColumn(const Modbus::TraceFrame& frame) {
    if (frame.request.size() <= 7) return L"";
    return Wide(FunctionCodeName(frame.request[7]));
}

void AppendFrameRow(const Modbus::TraceFrame& frame) {
    AppendRow(c.frames, {Decimal(frame.timestamp), Wide(Modbus::TraceAddressText(frame)),
                         Decimal(Modbus::TraceUnitId(frame)), FunctionCodeColumn(frame), Decimal(frame.latencyMs),
                         StatusText(frame)});
}

std::wstring StatisticsLine(const Modbus::CommStatistics& s) {
    char latency[32];
    std::snprintf(latency, sizeof(latency), "%.1f", s.avgLatencyMs);
    return T("Total: ", "Gesamt: ") + Decimal(s.total) + L"  OK: " + Decimal(s.ok) + L"  Timeout: " +
           Decimal(s.timeouts) + T("  CRC Errors: ", "  CRC-Fehler: ") + Decimal(s.crcErrors) + L"  Exception: " +
           Decimal(s.exceptions) + T("  Avg Latency: ", "  Avg Latenz: ") + Wide(latency) + L"ms";
}

void ExportPcap() {
    const std::optional<std::wstring> path =
        AskSaveFileName(App().mainWindow, {{L"PCAP-Dateien", L"*.pcap"}}, L"pcap", L"capture.pcap");
    if (!path) return;
    // The capture names the device of the current connection settings.
    HWND window = App().mainWindow;
    const std::string ip = Utf8(GetText(GetDlgItem(window, id::kIpAddress)));
    const auto port = static_cast<uint16_t>(IntFromText(GetDlgItem(window, id::kPort)));
    const std::vector<uint8_t> pcap = GlobalTraceLog().BuildPcap(ip, port);
    platform::WriteFileReplacing(Utf8(*path), std::string(pcap.begin(), pcap.end()));
    // Shown after the attempt, whether or not the file could be written.
    ShowMessage(window, T("PCAP exported (Wireshark compatible).", "PCAP exportiert (Wireshark-kompatibel)."), L"OK",
                MB_OK | MB_ICONINFORMATION);
}

}  // namespace

void Build(HWND window, std::vector<HWND>& page) {
    ControlFactory f(window, &page, false);
    c.statistics = f.Static(id::kStatistics, T("No Data.", "Keine Daten."), 20, 183, 750, 20);
    c.frames = f.ListView(id::kFrameList,
                          {{T("Time (ms)", "Zeit (ms)"), 80},
                           {T("Address", "Adresse"), 130},
                           {L"Unit-ID", 50},
                           {L"FC", 175},
                           {L"Lat (ms)", 60},
                           {L"Status", 70}},
                          20, 208, 750, 567, LVS_SHOWSELALWAYS | WS_BORDER, LVS_EX_FULLROWSELECT | LVS_EX_GRIDLINES);
    f.Button(id::kTraceClear, T("Clear", "Leeren"), 20, 780, 100, 26);
    f.Button(id::kExportPcap, T("Export PCAP", "PCAP exportieren"), 130, 780, 130, 26);
}

bool OnCommand(int command) {
    switch (command) {
        case id::kTraceClear:
            GlobalTraceLog().Clear();
            Refresh();
            return true;
        case id::kExportPcap: ExportPcap(); return true;
        default: return false;
    }
}

void Refresh() {
    SendMessageW(c.frames, WM_SETREDRAW, FALSE, 0);
    SendMessageW(c.frames, LVM_DELETEALLITEMS, 0, 0);
    // Filled from a copy: the log's lock is never held while the list draws.
    const std::deque<Modbus::TraceFrame> frames = GlobalTraceLog().Snapshot();
    for (const Modbus::TraceFrame& frame : frames) AppendFrameRow(frame);
    SendMessageW(c.frames, WM_SETREDRAW, TRUE, 0);
    InvalidateRect(c.frames, nullptr, TRUE);
    SetText(c.statistics, StatisticsLine(ComputeCommStatistics(frames)));
}

}  // namespace ui::diagnostics_page
