#include "ui/register_page.h"

#include <mutex>

#include "model/structure.h"
#include "model/value_decoding.h"
#include "model/value_display.h"
#include "ui/app.h"
#include "ui/connection_panel.h"
#include "ui/control_ids.h"
#include "ui/controls.h"

namespace ui::register_page {
namespace {

// At most this many queued log lines are taken at once.
constexpr int kLinesPerAppend = 1000;

struct Controls {
    HWND writeFunction, writeAddress, values[4], write;
    HWND readFunction, readAddress, count, read, dataType, byteOrder, scale, offset, decoded, registers[4];
    HWND interval, pollStart, pollStop, log;
} c{};

std::wstring Decimal(long long value) { return std::to_wstring(value); }

// The protocol log takes lines faster than an edit control can: each EM_REPLACESEL costs time that
// grows with the text the control holds (under Wine it recounts its whole text and walks its list
// of lines), so a log appended line by line slows down as it grows. The lines are collected here
// and go into the control together, at the latest when the message loop comes to the flush message
// posted with the first of them, and before the control handles any other message: whoever reads
// the log, paints it or scrolls it sees every line appended so far, in order.
constexpr UINT kFlushLog = WM_APP + 16;  // posted to the log control
std::wstring pendingLog;
WNDPROC editProcedure = nullptr;

void FlushLog() {
    if (pendingLog.empty()) return;
    std::wstring text;
    text.swap(pendingLog);  // the control's own messages below find nothing pending
    AppendToEdit(c.log, text);
}

LRESULT CALLBACK LogProcedure(HWND edit, UINT message, WPARAM wParam, LPARAM lParam) {
    FlushLog();
    if (message == kFlushLog) return 0;
    return CallWindowProcW(editProcedure, edit, message, wParam, lParam);
}

void QueueLogText(const std::wstring& text) {
    const bool first = pendingLog.empty();
    pendingLog += text;
    if (first) PostMessageW(c.log, kFlushLog, 0, 0);
}

uint16_t Word(HWND field) { return static_cast<uint16_t>(IntFromText(field)); }

uint8_t UnitId() { return static_cast<uint8_t>(connection_panel::UnitIdField()); }

// The write group's four values, each truncated to 16 bits.
std::vector<uint16_t> WriteValues() {
    std::vector<uint16_t> values;
    for (HWND field : c.values) values.push_back(Word(field));
    return values;
}

std::vector<bool> WriteBits() {
    std::vector<bool> bits;
    for (HWND field : c.values) bits.push_back(IntFromText(field) != 0);
    return bits;
}

void BuildWriteGroup(ControlFactory& f) {
    f.Group(T("Write Registers (FC05/FC06/FC0F/FC10)", "Register schreiben (FC05/FC06/FC0F/FC10)"), 15, 183, 760, 110);
    f.Label(L"FC:", 20, 208, 20, 16);
    c.writeFunction = f.DropList(id::kWriteFunction,
                                 {L"FC05 Write Single Coil", L"FC06 Write Single Register", L"FC0F Write Multiple Coils",
                                  L"FC10 Write Multiple Registers"},
                                 1, 45, 205, 175, 200);
    SendMessageW(c.writeFunction, CB_SETDROPPEDWIDTH, 230, 0);
    f.Label(T("Start Addr.:", "Startadr.:"), 225, 208, 60, 16);
    c.writeAddress = f.Edit(id::kWriteAddress, L"0", 290, 205, 55, 22, ES_NUMBER);
    const int valueX[4] = {68, 228, 388, 548};
    for (int i = 0; i < 4; ++i) {
        const std::wstring n = Decimal(i + 1);
        f.Label(T("Value ", "Wert ") + n + L":", valueX[i] - 48, 236, 45, 16);
        c.values[i] = f.Edit(id::kWriteValue1 + i, L"0", valueX[i], 233, 100, 22);
    }
    c.write = f.Button(id::kWrite, T("Write", "Schreiben"), 690, 231, 80, 26);
}

void BuildReadGroup(ControlFactory& f) {
    f.Group(T("Read Registers (FC01/FC02/FC03/FC04/FC17/FC18)", "Register lesen (FC01/FC02/FC03/FC04/FC17/FC18)"), 15,
            303, 760, 140);
    f.Label(L"FC:", 20, 328, 20, 16);
    c.readFunction = f.DropList(id::kReadFunction,
                                {L"FC01 Read Coils", L"FC02 Read Discrete Inputs", L"FC03 Read Holding Registers",
                                 L"FC04 Read Input Registers", L"FC17 Read/Write Multiple", L"FC18 Read FIFO Queue"},
                                2, 45, 325, 175, 200);
    // The closed list cuts the longer names; the open one shows them whole.
    SendMessageW(c.readFunction, CB_SETDROPPEDWIDTH, 230, 0);
    f.Label(T("Start Addr.:", "Startadr.:"), 225, 328, 60, 16);
    c.readAddress = f.Edit(id::kReadAddress, L"0", 290, 325, 55, 22, ES_NUMBER);
    f.Label(T("Count:", "Anz.:"), 345, 328, 30, 16);
    c.count = f.Edit(id::kReadCount, L"4", 375, 325, 40, 22, ES_NUMBER);
    c.read = f.Button(id::kRead, T("Read", "Lesen"), 690, 323, 80, 26);

    f.Label(T("Data Type:", "Datentyp:"), 20, 356, 60, 16);
    c.dataType = f.DropList(id::kDataType,
                            {L"BOOLEAN", L"BYTE", L"INT16", L"UINT16", L"INT32", L"UINT32", L"INT64", L"UINT64",
                             L"FLOAT32", L"FLOAT64", L"STRING", L"RAW"},
                            3, 85, 353, 100, 200);
    f.Label(L"Byteorder:", 195, 356, 65, 16);
    c.byteOrder = f.DropList(id::kByteOrder, {L"Big Endian", L"Little Endian", L"Big Endian Swap", L"Little Endian Swap"},
                             0, 265, 353, 155, 200);
    f.Label(L"Scale:", 20, 384, 38, 16);
    c.scale = f.Edit(id::kScale, L"1.0", 62, 381, 70, 22);
    f.Label(L"Offset:", 140, 384, 42, 16);
    c.offset = f.Edit(id::kOffset, L"0.0", 187, 381, 70, 22);
    f.Label(T("Decoded:", "Dekodiert:"), 265, 384, 65, 16);
    c.decoded = f.Edit(id::kDecoded, L"", 335, 381, 200, 22, ES_READONLY);
    const int registerX[4] = {62, 222, 382, 542};
    for (int i = 0; i < 4; ++i) {
        f.Label(L"Reg " + Decimal(i + 1) + L":", registerX[i] - 42, 412, 40, 16);
        c.registers[i] = f.Edit(id::kRegister1 + i, L"0", registerX[i], 409, 108, 22, ES_READONLY | ES_NUMBER);
    }
}

void BuildPollingGroup(ControlFactory& f) {
    f.Group(T("Cyclic Polling", "Zyklisches Polling"), 15, 444, 760, 45);
    f.Label(T("Interval (ms):", "Intervall (ms):"), 20, 465, 90, 16);
    c.interval = f.Edit(id::kPollInterval, L"1000", 115, 462, 65, 22, ES_NUMBER);
    c.pollStart = f.Button(id::kPollStart, T("Start", "Starten"), 190, 460, 80, 26);
    c.pollStop = f.Button(id::kPollStop, T("Stop", "Stoppen"), 278, 460, 80, 26);
}

void BuildLogGroup(ControlFactory& f) {
    f.Group(T("Protocol Log", "Protokoll"), 15, 497, 760, 313);
    c.log = f.Edit(id::kProtocolLog, L"", 20, 515, 750, 288,
                   ES_MULTILINE | ES_READONLY | ES_AUTOVSCROLL | WS_VSCROLL);
    // The log keeps everything: lift the edit control's default limit of 32K characters.
    SendMessageW(c.log, EM_SETLIMITTEXT, 0, 0);
    pendingLog.clear();
    editProcedure = reinterpret_cast<WNDPROC>(
        SetWindowLongPtrW(c.log, GWLP_WNDPROC, reinterpret_cast<LONG_PTR>(LogProcedure)));
}

// The master-role writes: the request by the chosen function, and its log line.
bool WriteAsMaster(int function, uint16_t address, uint8_t unitId, std::wstring& line) {
    const std::wstring a = Decimal(address);
    ModbusClient& client = MainConnection();
    std::lock_guard<std::mutex> wire(MainWireMutex());
    switch (function) {
        case 0: {
            const bool on = IntFromText(c.values[0]) != 0;
            if (client.WriteSingleCoil(unitId, address, on)) {
                line = L"[Master] FC05 Coil " + a + (on ? L" = ON\r\n" : L" = OFF\r\n");
                return true;
            }
            line = L"[Master] FC05 FEHLER \u2013 Coil " + a + L" nicht geschrieben\r\n";
            return false;
        }
        case 1: {
            const uint16_t value = Word(c.values[0]);
            if (client.WriteSingleRegister(unitId, address, value)) {
                line = L"[Master] FC06 Register " + a + L" = " + Decimal(value) + L"\r\n";
                return true;
            }
            line = L"[Master] FC06 FEHLER \u2013 Register " + a + L" nicht geschrieben (Wert war " + Decimal(value) +
                   L")\r\n";
            return false;
        }
        case 2:
            if (client.WriteMultipleCoils(unitId, address, WriteBits())) {
                line = L"[Master] FC0F 4 Coils geschrieben ab " + a + L"\r\n";
                return true;
            }
            line = L"[Master] FC0F FEHLER \u2013 Coils ab " + a + L" nicht geschrieben\r\n";
            return false;
        case 3:
            if (client.WriteMultipleRegisters(unitId, address, WriteValues())) {
                line = L"[Master] FC10 4 Register geschrieben ab " + a + L"\r\n";
                return true;
            }
            line = L"[Master] FC10 FEHLER \u2013 Register ab " + a + L" nicht geschrieben\r\n";
            return false;
        default:
            return true;  // no function selected: nothing is sent and nothing is logged
    }
}

// The registers the decoded preview needs for `count` elements of the type at this list index.
size_t RegistersForPreview(int typeIndex, int count) {
    using Modbus::DataType;
    switch (static_cast<DataType>(typeIndex)) {
        case DataType::Boolean:
        case DataType::Byte:
        case DataType::Int16:
        case DataType::UInt16:
        case DataType::String:
        case DataType::Raw: return static_cast<size_t>(count);
        case DataType::Int32:
        case DataType::UInt32:
        case DataType::Float32: return 2 * static_cast<size_t>(count);
        case DataType::Int64:
        case DataType::UInt64:
        case DataType::Float64: return 4 * static_cast<size_t>(count);
    }
    return 1;
}

void ShowBits(const std::vector<bool>& bits, uint16_t address) {
    for (size_t i = 0; i < 4 && i < bits.size(); ++i) SetText(c.registers[i], bits[i] ? L"1" : L"0");
    SetText(c.decoded, bits.empty() ? L"" : (bits[0] ? L"ON" : L"OFF"));
    AppendLog(L"[Master] Bits gelesen ab " + Decimal(address) + L"\r\n");
}

void ShowRegisters(const std::vector<uint16_t>& registers, uint16_t address, int count, double scale) {
    for (size_t i = 0; i < 4 && i < registers.size(); ++i) SetText(c.registers[i], Decimal(registers[i]));
    Modbus::ModbusDetail detail;
    detail.dataType = static_cast<Modbus::DataType>(SelectedIndex(c.dataType));
    detail.byteOrder = static_cast<Modbus::ByteOrder>(SelectedIndex(c.byteOrder));
    detail.scale = scale;
    detail.offset = DoubleFromText(c.offset);
    detail.arraySize = count;
    const size_t needed = RegistersForPreview(SelectedIndex(c.dataType), count);
    const std::vector<uint16_t> used(registers.begin(),
                                     registers.begin() + static_cast<std::ptrdiff_t>(std::min(needed, registers.size())));
    const std::wstring text = Wide(FormatDisplayText(detail, DecodeValue(used, detail)));
    SetText(c.decoded, text);
    AppendLog(L"[Master] Gelesen ab " + Decimal(address) + L": " + text + L"\r\n");
}

}  // namespace

void Build(HWND window, std::vector<HWND>& page) {
    ControlFactory f(window, &page, false);
    BuildWriteGroup(f);
    BuildReadGroup(f);
    BuildPollingGroup(f);
    BuildLogGroup(f);
    // Write and Read wait for a connection; Start is left enabled until the first disconnect.
    Enable(c.write, false);
    Enable(c.read, false);
    Enable(c.pollStop, false);
}

void OnWrite() {
    const uint16_t address = static_cast<uint16_t>(IntFromText(c.writeAddress));
    const int function = SelectedIndex(c.writeFunction);
    const uint8_t unitId = UnitId();
    if (!connection_panel::IsMasterRole()) {
        // The slave role writes the program's own image, which a remote master then reads.
        MainConnection().Image().SetHoldingRegisters(address, WriteValues());
        AppendLog(L"[Slave] Lokale Register ab Adresse " + Decimal(address) + L" gesetzt\r\n");
        return;
    }
    std::wstring line;
    const bool ok = WriteAsMaster(function, address, unitId, line);
    AppendLog(line);
    if (!ok) {
        connection_panel::SetStatus(
            T("Write failed \u2013 device did not respond", "Schreiben fehlgeschlagen \u2013 Ger\u00e4t hat nicht geantwortet"));
    }
}

void OnRead() {
    const uint16_t address = static_cast<uint16_t>(IntFromText(c.readAddress));
    const uint8_t unitId = UnitId();
    int count = IntFromText(c.count);
    if (count == 0) count = 4;
    const int function = SelectedIndex(c.readFunction);
    double scale = DoubleFromText(c.scale);
    if (scale == 0.0) scale = 1.0;
    const uint16_t quantity = static_cast<uint16_t>(count);

    ModbusClient& client = MainConnection();
    std::vector<bool> bits;
    std::vector<uint16_t> registers;
    bool ok = false;
    {
        std::lock_guard<std::mutex> wire(MainWireMutex());
        switch (function) {
            case 0: ok = client.ReadCoils(unitId, address, quantity, bits); break;
            case 1: ok = client.ReadDiscreteInputs(unitId, address, quantity, bits); break;
            case 2: ok = client.ReadHoldingRegisters(unitId, address, quantity, registers); break;
            case 3: ok = client.ReadInputRegisters(unitId, address, quantity, registers); break;
            // FC17 reads `count` registers and writes one 0 to the same start address.
            case 4: ok = client.ReadWriteMultipleRegisters(unitId, address, quantity, address, {0}, registers); break;
            case 5: ok = client.ReadFifoQueue(unitId, address, registers); break;
            default: return;
        }
    }
    if (!ok) {
        AppendLog(L"[Master] Lesen fehlgeschlagen!\r\n");
        return;
    }
    if (function <= 1) {
        ShowBits(bits, address);
    } else {
        ShowRegisters(registers, address, count, scale);
    }
}

void OnPollStart() {
    uint32_t interval = static_cast<uint32_t>(IntFromText(c.interval));
    if (interval < 100) interval = 100;  // unsigned: a negative entry stays a very long interval
    const uint16_t address = static_cast<uint16_t>(IntFromText(c.readAddress));
    const uint16_t count = static_cast<uint16_t>(IntFromText(c.count));
    const uint8_t unitId = UnitId();

    Modbus::ModbusDetail detail;
    detail.name = "Poll";
    detail.functionCode = 3;
    detail.registerAddress = address;
    detail.dataType = static_cast<Modbus::DataType>(SelectedIndex(c.dataType));
    detail.byteOrder = static_cast<Modbus::ByteOrder>(SelectedIndex(c.byteOrder));
    detail.scale = DoubleFromText(c.scale);
    detail.offset = DoubleFromText(c.offset);

    PollingEngine& engine = Poller();
    // There is one worker: while structure polling runs on it, this Start leaves it alone (its
    // details and read function belong to the running poll) and only switches the buttons.
    if (!engine.IsRunning()) {
        engine.SetDetails({detail});
        // Always FC03, whatever the read list says, on the shared wire of the main connection.
        engine.SetReadDetail([unitId, count](const Modbus::ModbusDetail& d, std::vector<uint16_t>& out) {
            std::lock_guard<std::mutex> wire(MainWireMutex());
            return MainConnection().ReadHoldingRegisters(unitId, d.registerAddress, count, out);
        });
        engine.SetOnResults([](const PollResults& results) { PostPollResults(true, results); });
        engine.Start(interval);
    }
    Enable(c.pollStart, false);
    Enable(c.pollStop, true);
}

void OnPollStop() {
    Poller().Stop();
    Enable(c.pollStart, true);
    Enable(c.pollStop, false);
}

void OnSlaveWrite(const SlaveWrite& write) {
    const int readStart = static_cast<uint16_t>(IntFromText(c.readAddress));
    for (size_t i = 0; i < write.values.size(); ++i) {
        const long k = static_cast<long>(write.startAddress) + static_cast<long>(i) - readStart;
        if (k >= 0 && k < 4) SetText(c.registers[k], Decimal(write.values[i]));
    }
}

void OnPollResults(const PollResults& results) {
    if (results.empty() || !results.front().ok) return;
    const std::wstring text = Wide(results.front().displayText);
    SetText(c.decoded, text);
    // The cycle's TX and RX lines were posted before this result and are in the log already;
    // what is still queued belongs to the next cycle and comes after this line.
    QueueLogText(L"[Poll] " + text + L"\r\n");
}

void AppendLog(const std::wstring& text) {
    // A request made on this thread has posted the connection's own lines (TX, RX, errors); they
    // are still queued, and go in first, so the log reads in the order things happened.
    std::wstring lines;
    MSG message;
    for (int i = 0; i < kLinesPerAppend && PeekMessageW(&message, App().mainWindow, WM_APP_LOG, WM_APP_LOG, PM_REMOVE);
         ++i) {
        if (const auto line = TakeLogLine(message.lParam)) lines += *line;
    }
    QueueLogText(lines + text);
}

void AppendPostedLine(const std::wstring& text) {
    // Lines come in bursts (a slave logs four per request, a poll two per detail). The burst's
    // lines that wait next in the queue are taken with this one, in the order posted, instead of
    // one trip through the message loop each.
    std::wstring lines = text;
    MSG next;
    for (int i = 0; i < kLinesPerAppend && PeekMessageW(&next, App().mainWindow, 0, 0, PM_NOREMOVE | PM_NOYIELD) &&
                    next.message == WM_APP_LOG;
         ++i) {
        PeekMessageW(&next, App().mainWindow, WM_APP_LOG, WM_APP_LOG, PM_REMOVE | PM_NOYIELD);
        if (const auto line = TakeLogLine(next.lParam)) lines += *line;
    }
    QueueLogText(lines);
}

void EnableConnectionButtons(bool write, bool read, bool pollStart) {
    Enable(c.write, write);
    Enable(c.read, read);
    Enable(c.pollStart, pollStart);
}

}  // namespace ui::register_page
