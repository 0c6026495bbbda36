// The Diagnostics page (statistics line, frame list, Clear, PCAP export after real traffic with a
// slave of ours), the Alarms page (columns in UTC, the counter, Acknowledge, Acknowledge All,
// Clear List), both refreshed only while visible, and the recording buttons (Record, CSV-Export,
// JSON-Export) with their dialogs.
#include <windows.h>
#include <commctrl.h>

#include <gtest/gtest.h>

#include "dialog_driver.h"
#include "gui_harness.h"
#include "protocol/trace_log.h"
#include "ui/app.h"
#include "ui/control_ids.h"
#include "ui/controls.h"
#include "ui/posted_messages.h"
#include "ui_test_support.h"

namespace {

using namespace gui;
namespace id = ui::id;

class PageTest : public WindowTest {
protected:
    void TearDown() override {
        ui::Alarms().SetClock(nullptr);
        WindowTest::TearDown();
    }
    SeenDialog LastDialog(size_t expectedCount) {
        PumpUntil([&] { return SeenDialogs().size() >= expectedCount; }, 3000);
        const auto seen = SeenDialogs();
        return seen.empty() ? SeenDialog{} : seen.back();
    }
};

class DiagnosticsPage : public PageTest {
protected:
    HWND Frames() { return Control(id::kFrameList); }
    std::wstring Zeros() {
        return Lang(L"Total: 0  OK: 0  Timeout: 0  CRC Errors: 0  Exception: 0  Avg Latency: 0.0ms",
                    L"Gesamt: 0  OK: 0  Timeout: 0  CRC-Fehler: 0  Exception: 0  Avg Latenz: 0.0ms");
    }
};

Modbus::TraceFrame Frame(int64_t timestamp, int64_t latency) {
    Modbus::TraceFrame frame;
    frame.timestamp = timestamp;
    frame.peerAddress = 0x7F000001;
    frame.peerPort = 1502;
    frame.request = {0x00, 0x01, 0x00, 0x00, 0x00, 0x06, 0x11, 0x03, 0x00, 0x00, 0x00, 0x02};
    frame.latencyMs = latency;
    return frame;
}

TEST_P(DiagnosticsPage, ShowsNoDataUntilFirstShownThenZeros) {
    EXPECT_EQ(Text(id::kStatistics), Lang(L"No Data.", L"Keine Daten."));
    EXPECT_EQ(Text(id::kTraceClear), Lang(L"Clear", L"Leeren"));
    EXPECT_EQ(Text(id::kExportPcap), Lang(L"Export PCAP", L"PCAP exportieren"));
    const std::vector<std::wstring> titles = {Lang(L"Time (ms)", L"Zeit (ms)"), Lang(L"Address", L"Adresse"), L"Unit-ID",
                                              L"FC", L"Lat (ms)", L"Status"};
    ASSERT_EQ(ListColumnCount(Frames()), 6);
    for (int i = 0; i < 6; ++i) EXPECT_EQ(ListColumnTitle(Frames(), i), titles[static_cast<size_t>(i)]);
    const RECT list = ControlRect(id::kFrameList);
    EXPECT_EQ(list.left, 20);
    EXPECT_EQ(list.top, 208);
    EXPECT_EQ(list.right - list.left, 750);
    EXPECT_EQ(list.bottom - list.top, 567);
    EXPECT_EQ(ControlRect(id::kExportPcap).left, 130);
    SelectTab(ui::kDiagnosticsPage);
    EXPECT_TRUE(PageControlsVisible(ui::kDiagnosticsPage));
    EXPECT_EQ(Text(id::kStatistics), Zeros());
}

TEST_P(DiagnosticsPage, ListsFramesWithTheirStatusOnlyWhileShown) {
    Modbus::TraceFrame ok = Frame(1000, 20);
    Modbus::TraceFrame both = Frame(2000, 0);
    both.isTimeout = true;
    both.isCrcError = true;
    Modbus::TraceFrame crc = Frame(3000, 40);
    crc.isCrcError = true;
    Modbus::TraceFrame exception = Frame(4000, 30);
    exception.isException = true;
    exception.request = {0x00, 0x01, 0x00};  // too short to name a function code
    for (const auto& frame : {ok, both, crc, exception}) RecordTrace(frame);
    Pump(100);
    // Hidden: nothing was redrawn.
    EXPECT_EQ(ListRowCount(Frames()), 0);
    EXPECT_EQ(Text(id::kStatistics), Lang(L"No Data.", L"Keine Daten."));

    SelectTab(ui::kDiagnosticsPage);
    ASSERT_EQ(ListRowCount(Frames()), 4);
    EXPECT_EQ(ListCell(Frames(), 0, 0), L"1000");
    EXPECT_EQ(ListCell(Frames(), 0, 1), L"127.0.0.1:1502");
    EXPECT_EQ(ListCell(Frames(), 0, 2), L"17");
    EXPECT_EQ(ListCell(Frames(), 0, 3), L"FC03 Read Holding Registers");
    EXPECT_EQ(ListCell(Frames(), 0, 4), L"20");
    EXPECT_EQ(ListCell(Frames(), 0, 5), L"OK");
    EXPECT_EQ(ListCell(Frames(), 1, 5), L"Timeout");
    EXPECT_EQ(ListCell(Frames(), 2, 5), Lang(L"CRC Error", L"CRC-Fehler"));
    EXPECT_EQ(ListCell(Frames(), 3, 5), L"Exception");
    EXPECT_EQ(ListCell(Frames(), 3, 3), L"");
    EXPECT_EQ(Text(id::kStatistics),
              Lang(L"Total: 4  OK: 2  Timeout: 1  CRC Errors: 1  Exception: 1  Avg Latency: 30.0ms",
                   L"Gesamt: 4  OK: 2  Timeout: 1  CRC-Fehler: 1  Exception: 1  Avg Latenz: 30.0ms"));

    // While shown, a new frame is listed at once.
    RecordTrace(Frame(5000, 10));
    EXPECT_TRUE(PumpUntil([&] { return ListRowCount(Frames()) == 5; }, 2000));

    Click(id::kTraceClear);
    EXPECT_EQ(ListRowCount(Frames()), 0);
    EXPECT_EQ(Text(id::kStatistics), Zeros());
}

TEST_P(DiagnosticsPage, RealTrafficIsListedAndExportedAsPcap) {
    TestSlave slave;
    ASSERT_TRUE(slave.Started());
    ConnectTcp(slave.Port());
    ASSERT_TRUE(ui::MainConnection().IsConnected());
    Type(id::kWriteAddress, L"5");
    Type(id::kWriteValue1, L"1234");
    Click(id::kWrite);
    Type(id::kReadAddress, L"5");
    Type(id::kReadCount, L"2");
    Click(id::kRead);
    Click(id::kRead);
    Click(id::kConnect);  // disconnect
    ASSERT_FALSE(ui::MainConnection().IsConnected());

    SelectTab(ui::kDiagnosticsPage);
    ASSERT_EQ(ListRowCount(Frames()), 3);
    EXPECT_EQ(ListCell(Frames(), 0, 1), L"127.0.0.1:" + std::to_wstring(slave.Port()));
    EXPECT_EQ(ListCell(Frames(), 0, 2), L"1");
    EXPECT_EQ(ListCell(Frames(), 0, 3), L"FC06 Write Single Register");
    EXPECT_EQ(ListCell(Frames(), 1, 3), L"FC03 Read Holding Registers");
    for (int row = 0; row < 3; ++row) EXPECT_EQ(ListCell(Frames(), row, 5), L"OK");
    EXPECT_EQ(Text(id::kStatistics).rfind(Lang(L"Total: 3  OK: 3  Timeout: 0  CRC Errors: 0  Exception: 0  Avg Latency: ",
                                                L"Gesamt: 3  OK: 3  Timeout: 0  CRC-Fehler: 0  Exception: 0  Avg Latenz: "),
                                          0),
              0u)
        << ui::Utf8(Text(id::kStatistics));
    Screenshot(Prefix() + "diagnostics");

    // The capture names the device of the connection settings; port 1502 is what the decoding
    // step tells tshark.
    Type(id::kPort, L"1502");
    const std::wstring pcap = ArtifactFolder() + ui::Wide(Prefix()) + L"capture.pcap";
    DeleteFileW(pcap.c_str());
    CancelFileDialog();
    Click(id::kExportPcap);
    Pump(100);
    EXPECT_EQ(SeenDialogs().size(), 1u);  // cancelled: no message
    EXPECT_EQ(GetFileAttributesW(pcap.c_str()), INVALID_FILE_ATTRIBUTES);
    std::wstring suggested;
    AnswerFileDialog(pcap, &suggested);
    Click(id::kExportPcap);
    const SeenDialog box = LastDialog(3);
    EXPECT_EQ(suggested, L"capture.pcap");
    EXPECT_EQ(box.caption, L"OK");
    EXPECT_EQ(box.text, Lang(L"PCAP exported (Wireshark compatible).", L"PCAP exportiert (Wireshark-kompatibel)."));
    const std::string bytes = ReadWholeFile(pcap);
    ASSERT_GE(bytes.size(), 24u);
    EXPECT_EQ(static_cast<uint8_t>(bytes[0]), 0xD4);  // little-endian magic A1B2C3D4
    EXPECT_EQ(static_cast<uint8_t>(bytes[3]), 0xA1);
    // Three requests and three responses.
    // FC06 request and echo of 12 bytes each, two FC03 requests of 12 and answers of 13 bytes.
    EXPECT_EQ(bytes.size(), 24u + 6 * (16 + 54) + 12 + 12 + 2 * (12 + 13));
}

class AlarmsPage : public PageTest {
protected:
    HWND Alarms() { return Control(id::kAlarmList); }
    std::wstring Counter(int n) { return Lang(L"Unacknowledged: ", L"Unquittiert: ") + std::to_wstring(n); }
    // The engine remembers the last value of every detail for the whole process: each test and
    // language takes detail ids of its own.
    Modbus::ModbusDetail Pump_(int32_t id) {
        Modbus::ModbusDetail detail;
        detail.id = id + 10 * Language();
        detail.name = "Pump";
        detail.alarmHigh = 100;
        detail.warnHigh = 90;
        detail.alarmOnChange = true;
        return detail;
    }
};

TEST_P(AlarmsPage, ListsEventsInUtcAndAcknowledgesThem) {
    EXPECT_EQ(Text(id::kAlarmCounter), Counter(0));
    const std::vector<std::wstring> titles = {Lang(L"Time", L"Zeit"), Lang(L"Type", L"Typ"), L"Detail",
                                              Lang(L"Message", L"Nachricht"), Lang(L"Ack.", L"Quitt.")};
    ASSERT_EQ(ListColumnCount(Alarms()), 5);
    for (int i = 0; i < 5; ++i) EXPECT_EQ(ListColumnTitle(Alarms(), i), titles[static_cast<size_t>(i)]);
    EXPECT_EQ(Text(id::kAcknowledge), Lang(L"Acknowledge", L"Quittieren"));
    EXPECT_EQ(Text(id::kAcknowledgeAll), Lang(L"Acknowledge All", L"Alle quittieren"));
    EXPECT_EQ(Text(id::kClearAlarms), Lang(L"Clear List", L"Liste leeren"));

    // 2023-11-14 23:59:59 UTC, whatever the local zone.
    ui::Alarms().SetClock([] { return int64_t{1700006399000}; });
    const Modbus::ModbusDetail pump = Pump_(100);
    ui::Alarms().EvaluateAlarms(pump, 50);   // first value: stored only
    ui::Alarms().EvaluateAlarms(pump, 110);  // alarm high, warning high, changed
    ui::Alarms().RaiseConnectionLost(12, "Pump", "lost");
    {
        std::lock_guard<std::mutex> lock(ui::Alarms().Mutex());
        Modbus::AlarmEvent odd;
        odd.type = 9;
        odd.detailName = "Odd";
        ui::Alarms().EventsLocked().push_back(odd);
    }
    // Hidden: the counter follows (it counts all five when it is set), the list does not.
    EXPECT_TRUE(PumpUntil([&] { return Text(id::kAlarmCounter) == Counter(5); }, 2000));
    EXPECT_EQ(ListRowCount(Alarms()), 0);

    SelectTab(ui::kAlarmsPage);
    EXPECT_EQ(Text(id::kAlarmCounter), Counter(5));
    ASSERT_EQ(ListRowCount(Alarms()), 5);
    EXPECT_EQ(ListCell(Alarms(), 0, 0), L"23:59:59");
    EXPECT_EQ(ListCell(Alarms(), 0, 1), L"Schwellenwert Alarm");
    EXPECT_EQ(ListCell(Alarms(), 0, 2), L"Pump");
    EXPECT_EQ(ListCell(Alarms(), 0, 3), Lang(L"Pump > 100.000000 (is: 110.00)", L"Pump > 100.000000 (ist: 110.00)"));
    EXPECT_EQ(ListCell(Alarms(), 0, 4), Lang(L"No", L"Nein"));
    EXPECT_EQ(ListCell(Alarms(), 1, 1), L"Schwellenwert Warnung");
    EXPECT_EQ(ListCell(Alarms(), 2, 1), L"Wert geaendert");
    EXPECT_EQ(ListCell(Alarms(), 2, 3),
              Lang(L"Pump changed: 50.000000 -> 110.000000", L"Pump geaendert: 50.000000 -> 110.000000"));
    EXPECT_EQ(ListCell(Alarms(), 3, 1), L"Verbindung verloren");
    EXPECT_EQ(ListCell(Alarms(), 4, 1), L"?");
    Screenshot(Prefix() + "alarms");

    // Nothing selected: nothing acknowledged.
    Click(id::kAcknowledge);
    EXPECT_EQ(Text(id::kAlarmCounter), Counter(5));
    SelectListRow(Alarms(), 1);
    Click(id::kAcknowledge);
    EXPECT_EQ(ListCell(Alarms(), 1, 4), Lang(L"Yes", L"Ja"));
    EXPECT_EQ(ListCell(Alarms(), 0, 4), Lang(L"No", L"Nein"));
    EXPECT_EQ(Text(id::kAlarmCounter), Counter(4));

    // A stale row (the events went meanwhile) does nothing.
    SelectListRow(Alarms(), 4);
    ui::Alarms().ClearAlarms();
    Click(id::kAcknowledge);
    EXPECT_EQ(ListRowCount(Alarms()), 0);
    EXPECT_EQ(Text(id::kAlarmCounter), Counter(0));
}

TEST_P(AlarmsPage, AcknowledgeAllThenOneNewAlarmAndClearList) {
    const Modbus::ModbusDetail pump = Pump_(200);
    ui::Alarms().EvaluateAlarms(pump, 120);
    ui::Alarms().EvaluateAlarms(pump, 10);
    SelectTab(ui::kAlarmsPage);
    EXPECT_EQ(Text(id::kAlarmCounter), Counter(3));  // alarm, warning, changed
    Click(id::kAcknowledgeAll);
    EXPECT_EQ(Text(id::kAlarmCounter), Counter(0));
    for (int row = 0; row < 3; ++row) EXPECT_EQ(ListCell(Alarms(), row, 4), Lang(L"Yes", L"Ja"));

    ui::Alarms().EvaluateAlarms(pump, 130);  // alarm and warning again, and a change
    Modbus::ModbusDetail quiet = pump;
    quiet.id = pump.id + 1;
    quiet.alarmOnChange = false;
    quiet.warnHigh = 0;
    ui::Alarms().ClearAlarms();
    Click(id::kClearAlarms);
    ui::Alarms().EvaluateAlarms(quiet, 150);  // exactly one new alarm
    EXPECT_TRUE(PumpUntil([&] { return ListRowCount(Alarms()) == 1; }, 2000));
    Click(id::kAcknowledgeAll);
    ui::Alarms().EvaluateAlarms(quiet, 50);
    ui::Alarms().EvaluateAlarms(quiet, 160);
    EXPECT_TRUE(PumpUntil([&] { return Text(id::kAlarmCounter) == Counter(1); }, 2000));
    EXPECT_EQ(Text(id::kAlarmCounter), Lang(L"Unacknowledged: 1", L"Unquittiert: 1"));

    // The buttons rebuild the list whichever page is shown.
    SelectTab(ui::kRegisterPage);
    SendMessageW(MainWindow(), WM_COMMAND, MAKEWPARAM(id::kClearAlarms, BN_CLICKED), 0);
    Pump(20);
    EXPECT_EQ(ListRowCount(Alarms()), 0);
    EXPECT_EQ(Text(id::kAlarmCounter), Counter(0));
    EXPECT_TRUE(ui::Alarms().ActiveKeys().empty());
}

class RecordingButtons : public PageTest {};

TEST_P(RecordingButtons, RecordWithoutAStructureUsesTheDefaultName) {
    SelectTab(ui::kStructuresPage);
    Click(id::kRecord);
    EXPECT_TRUE(ui::Recording().IsRecording());
    EXPECT_EQ(ui::Recording().RecordingName(), English() ? "Recording" : "Aufzeichnung");
    EXPECT_EQ(Text(id::kRecord), Lang(L"Stop", L"Stoppen"));
    Click(id::kRecord);
    EXPECT_FALSE(ui::Recording().IsRecording());
    EXPECT_EQ(Text(id::kRecord), Lang(L"Record", L"Aufzeichnen"));

    // An empty recording exports its header only.
    const std::wstring csv = ArtifactFolder() + ui::Wide(Prefix()) + L"empty-" + std::to_wstring(GetCurrentProcessId()) + L".csv";
    DeleteFileW(csv.c_str());
    AnswerFileDialog(csv);
    Click(id::kCsvExport);
    const SeenDialog box = LastDialog(2);
    EXPECT_EQ(box.text, Lang(L"CSV exported.", L"CSV exportiert."));
    EXPECT_EQ(ReadWholeFile(csv), English() ? "Timestamp;Name;RawValue;DisplayValue;Unit\r\n"
                                            : "Zeitstempel;Name;Rohwert;Anzeigewert;Einheit\r\n");
}

TEST_P(RecordingButtons, JsonExportWritesTheStructureList) {
    SelectTab(ui::kStructuresPage);
    Click(id::kStructureDemo);
    const std::wstring json = ArtifactFolder() + ui::Wide(Prefix()) + L"structures-" + std::to_wstring(GetCurrentProcessId()) + L".json";
    DeleteFileW(json.c_str());
    CancelFileDialog();
    Click(id::kJsonExport);
    Pump(100);
    EXPECT_EQ(SeenDialogs().size(), 1u);
    std::wstring suggested;
    AnswerFileDialog(json, &suggested);
    Click(id::kJsonExport);
    const SeenDialog box = LastDialog(3);
    EXPECT_EQ(suggested, L"modbus_structures.json");
    EXPECT_EQ(box.caption, L"OK");
    EXPECT_EQ(box.text, Lang(L"JSON exported.", L"JSON exportiert."));
    EXPECT_EQ(ReadWholeFile(json), ui::Store().SerializeStructures());
    EXPECT_NE(ReadWholeFile(json).find("Demo-Geraet"), std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(, DiagnosticsPage, testing::Values(1, 0), LanguageName);
INSTANTIATE_TEST_SUITE_P(, AlarmsPage, testing::Values(1, 0), LanguageName);
INSTANTIATE_TEST_SUITE_P(, RecordingButtons, testing::Values(1, 0), LanguageName);

}  // namespace
