// The Structures page as a user works it: the structure list and its inline editor with the
// validation boxes, New/Edit/Delete/Demo/Conn., the detail dialog (its function-code list per data
// type, field visibility, validation), the structures file, and structure polling against a slave
// of ours with live values, alarms, recording and the CSV export read back.
#include <windows.h>
#include <commctrl.h>

#include <gtest/gtest.h>

#include <algorithm>

#include "dialog_driver.h"
#include "gui_harness.h"
#include "model/structure_store.h"
#include "ui/app.h"
#include "ui/control_ids.h"
#include "ui/controls.h"
#include "ui/main_window.h"
#include "ui/posted_messages.h"
#include "ui_test_support.h"

namespace {

using namespace gui;
namespace id = ui::id;

class StructuresPage : public WindowTest {
protected:
    void SetUp() override {
        WindowTest::SetUp();
        SelectTab(ui::kStructuresPage);
    }
    HWND Structures() { return Control(id::kStructureList); }
    HWND Details() { return Control(id::kDetailList); }

    // Fills the inline editor and presses Save.
    void SaveStructure(const std::wstring& name, const std::wstring& ip, const std::wstring& port,
                       const std::wstring& unitId = L"1", const std::wstring& description = L"") {
        Type(id::kStructureName, name);
        Type(id::kStructureIp, ip);
        Type(id::kStructurePort, port);
        Type(id::kStructureUnitId, unitId);
        Type(id::kStructureDescription, description);
        Click(id::kStructureSave);
        Pump(50);
    }
    // Clears the selection of the structure list (the selected structure id stays, as after a
    // click into the empty part of the list).
    void Deselect() {
        LVITEMW item{};
        item.stateMask = LVIS_SELECTED;
        SendMessageW(Structures(), LVM_SETITEMSTATE, static_cast<WPARAM>(-1), reinterpret_cast<LPARAM>(&item));
        Pump(10);
    }
    int RowOf(const std::wstring& name) {
        for (int row = 0; row < ListRowCount(Structures()); ++row)
            if (ListCell(Structures(), row, 0) == name) return row;
        return -1;
    }
    std::string StructuresFile() { return ReadWholeFile(ui::Wide(WorkingFolder()) + L"modbus_structures.json"); }
    // The last message box seen, after waiting for it.
    SeenDialog LastDialog(size_t expectedCount) {
        PumpUntil([&] { return SeenDialogs().size() >= expectedCount; }, 3000);
        const auto seen = SeenDialogs();
        return seen.empty() ? SeenDialog{} : seen.back();
    }
    // Adds a detail to the selected structure through the detail dialog.
    void AddDetailThroughDialog(const std::wstring& name, int typeIndex, const std::wstring& address) {
        const bool ran = RunModal([] { Click(id::kDetailNew); }, L"KestrelDetailDlg",
                                  {[&](HWND d) {
                                      TypeChild(d, id::kDetailName, name);
                                      SelectChild(d, id::kDetailDataType, typeIndex);
                                      TypeChild(d, id::kDetailAddress, address);
                                      ClickChild(d, id::kDetailSave);
                                  }});
        EXPECT_TRUE(ran);
        Pump(20);
    }
};

TEST_P(StructuresPage, ShowsItsControlsAtTheirPlacesInTheLanguage) {
    EXPECT_TRUE(PageControlsVisible(ui::kStructuresPage));
    for (const auto& [english, german] : std::vector<std::pair<const wchar_t*, const wchar_t*>>{
             {L"Modbus Structures", L"Modbus-Strukturen"},
             {L"Edit Structure", L"Struktur bearbeiten"},
             {L"Details of selected Structure", L"Details der ausgewaehlten Struktur"},
             {L"Polling / Recording", L"Polling / Aufzeichnung"},
             {L"Live Values", L"Live-Werte"},
             {L"Interval (ms):", L"Intervall (ms):"},
             {L"Descr.:", L"Beschr.:"}}) {
        EXPECT_TRUE(HasChildText(Lang(english, german))) << ui::Utf8(english);
    }
    EXPECT_EQ(Text(id::kStructureNew), Lang(L"New", L"Neu"));
    EXPECT_EQ(Text(id::kStructureEdit), Lang(L"Edit", L"Bearb."));
    EXPECT_EQ(Text(id::kStructureDelete), Lang(L"Delete", L"Loeschen"));
    EXPECT_EQ(Text(id::kStructureDemo), L"Demo");
    EXPECT_EQ(Text(id::kStructureConnect), Lang(L"Conn.", L"Verb."));
    EXPECT_EQ(Text(id::kStructureRtuOverTcp), L"RTU over TCP");
    EXPECT_EQ(Text(id::kStructureSave), Lang(L"Save", L"Speichern"));
    EXPECT_EQ(Text(id::kStructureCancel), Lang(L"Cancel", L"Abbrechen"));
    EXPECT_EQ(Text(id::kDetailNew), Lang(L"New", L"Neu"));
    EXPECT_EQ(Text(id::kDetailDelete), L"Del");
    EXPECT_EQ(Text(id::kStructurePollStart), Lang(L"Start", L"Starten"));
    EXPECT_EQ(Text(id::kStructurePollStop), Lang(L"Stop", L"Stoppen"));
    EXPECT_EQ(Text(id::kRecord), Lang(L"Record", L"Aufzeichnen"));
    EXPECT_EQ(Text(id::kCsvExport), L"CSV-Export");
    EXPECT_EQ(Text(id::kJsonExport), L"JSON-Export");
    EXPECT_EQ(Text(id::kStructureIp), L"192.168.1.1");
    EXPECT_EQ(Text(id::kStructurePollInterval), L"1000");
    EXPECT_TRUE(IsEnabled(id::kStructurePollStart));
    EXPECT_FALSE(IsEnabled(id::kStructurePollStop));

    EXPECT_EQ(ListColumnCount(Structures()), 4);
    EXPECT_EQ(ListColumnTitle(Structures(), 0), L"Name");
    EXPECT_EQ(ListColumnTitle(Structures(), 1), Lang(L"Address", L"Adresse"));
    EXPECT_EQ(ListColumnTitle(Structures(), 2), L"Unit-ID");
    EXPECT_EQ(ListColumnTitle(Structures(), 3), L"Details");
    EXPECT_EQ(ListColumnCount(Details()), 5);
    EXPECT_EQ(ListColumnTitle(Details(), 1), Lang(L"Data Type", L"Datentyp"));
    EXPECT_EQ(ListColumnTitle(Details(), 2), Lang(L"Reg. Address", L"Register-Adr."));
    EXPECT_EQ(ListColumnTitle(Details(), 3), Lang(L"Function Code", L"Funktionscode"));
    EXPECT_EQ(ListColumnTitle(Details(), 4), Lang(L"Unit", L"Einheit"));

    const RECT list = ControlRect(id::kStructureList);
    EXPECT_EQ(list.left, 20);
    EXPECT_EQ(list.top, 201);
    EXPECT_EQ(list.right - list.left, 682);
    EXPECT_EQ(list.bottom - list.top, 140);
    // The structure buttons stand in a column beside the list, each below the one before.
    int previousBottom = 0;
    for (int button = id::kStructureNew; button <= id::kStructureConnect; ++button) {
        const RECT r = ControlRect(button);
        EXPECT_EQ(r.left, 712);
        EXPECT_EQ(r.right - r.left, 58);
        EXPECT_EQ(r.bottom - r.top, 24);
        if (button == id::kStructureNew) {
            EXPECT_EQ(r.top, 201);
        }
        EXPECT_GE(r.top, previousBottom);
        previousBottom = r.bottom;
    }
    const RECT details = ControlRect(id::kDetailList);
    EXPECT_EQ(details.left, 20);
    EXPECT_EQ(details.top, 478);
    EXPECT_EQ(ControlRect(id::kDetailNew).top, 478);
    EXPECT_EQ(ControlRect(id::kDetailDelete).top, 506);

    Click(id::kStructureDemo);
    SelectListRow(Structures(), 0);
    Screenshot(Prefix() + "structures");
}

TEST_P(StructuresPage, SaveValidatesNameIpAndPortInThatOrder) {
    const std::wstring title = Lang(L"Validation Error", L"Validierungsfehler");
    SaveStructure(L"", L"", L"0");
    SeenDialog box = LastDialog(1);
    EXPECT_EQ(box.caption, title);
    EXPECT_EQ(box.text, Lang(L"Name must not be empty.", L"Name darf nicht leer sein."));
    EXPECT_EQ(GetFocus(), Control(id::kStructureName));

    SaveStructure(L"Pump", L"", L"0");
    box = LastDialog(2);
    EXPECT_EQ(box.text, Lang(L"IP address must not be empty.", L"IP-Adresse darf nicht leer sein."));
    EXPECT_EQ(GetFocus(), Control(id::kStructureIp));

    for (const wchar_t* port : {L"0", L"70000", L""}) {
        const size_t before = SeenDialogs().size();
        SaveStructure(L"Pump", L"10.0.0.5", port);
        box = LastDialog(before + 1);
        EXPECT_EQ(box.caption, title);
        EXPECT_EQ(box.text, Lang(L"Port must be in range 1\u201365535.", L"Port muss im Bereich 1\u201365535 liegen."));
        EXPECT_EQ(GetFocus(), Control(id::kStructurePort));
    }
    EXPECT_EQ(ListRowCount(Structures()), 0);
    EXPECT_TRUE(StructuresFile().empty());  // nothing was saved

    SaveStructure(L"Pump", L"10.0.0.5", L"65535", L"300", L"Hall \"B\"");
    ASSERT_EQ(ListRowCount(Structures()), 1);
    EXPECT_EQ(ListCell(Structures(), 0, 0), L"Pump");
    EXPECT_EQ(ListCell(Structures(), 0, 1), L"10.0.0.5:65535");
    EXPECT_EQ(ListCell(Structures(), 0, 2), L"44");  // the unit id narrowed to 8 bits
    EXPECT_EQ(ListCell(Structures(), 0, 3), L"0");
    const std::string file = StructuresFile();
    EXPECT_NE(file.find("\"name\": \"Pump\""), std::string::npos) << file;
    EXPECT_NE(file.find("\"description\": \"Hall \\\"B\\\"\""), std::string::npos) << file;
    EXPECT_NE(file.find("\"port\": 65535"), std::string::npos);
}

TEST_P(StructuresPage, EditKeepsTheIdAndTheDetailsAndDeleteAsksFirst) {
    SaveStructure(L"Boiler", L"10.0.0.7", L"502");
    SaveStructure(L"Chiller", L"10.0.0.8", L"1502", L"3");
    ASSERT_EQ(ListRowCount(Structures()), 2);

    // Edit without a selection does nothing.
    Deselect();
    Type(id::kStructureName, L"");
    Click(id::kStructureEdit);
    EXPECT_EQ(Text(id::kStructureName), L"");

    SelectListRow(Structures(), RowOf(L"Chiller"));
    AddDetailThroughDialog(L"Flow", 3, L"40");
    const auto before = ui::Store().Structures();
    ASSERT_EQ(before.size(), 2u);
    const int32_t chillerId = before[1].id;
    ASSERT_EQ(before[1].details.size(), 1u);

    SelectListRow(Structures(), RowOf(L"Chiller"));
    Click(id::kStructureEdit);
    EXPECT_EQ(Text(id::kStructureName), L"Chiller");
    EXPECT_EQ(Text(id::kStructureIp), L"10.0.0.8");
    EXPECT_EQ(Text(id::kStructurePort), L"1502");
    EXPECT_EQ(Text(id::kStructureUnitId), L"3");
    Type(id::kStructureName, L"Chiller 2");
    Click(id::kStructureRtuOverTcp);
    Click(id::kStructureSave);
    Pump(30);

    const auto after = ui::Store().Structures();
    ASSERT_EQ(after.size(), 2u);  // replaced, not added
    EXPECT_EQ(after[1].id, chillerId);
    EXPECT_EQ(after[1].name, "Chiller 2");
    EXPECT_TRUE(after[1].rtuOverTcp);
    ASSERT_EQ(after[1].details.size(), 1u);
    EXPECT_EQ(after[1].details[0].name, "Flow");
    EXPECT_GE(RowOf(L"Chiller 2"), 0);
    EXPECT_NE(StructuresFile().find("\"rtuOverTcp\": true"), std::string::npos);

    // Delete asks; No keeps the structure, Yes removes it and empties the detail list.
    SelectListRow(Structures(), RowOf(L"Chiller 2"));
    EXPECT_EQ(ListRowCount(Details()), 1);
    AnswerNextDialog(IDNO);
    Click(id::kStructureDelete);
    SeenDialog box = LastDialog(1);
    EXPECT_EQ(box.caption, Lang(L"Confirm", L"Bestaetigen"));
    EXPECT_EQ(box.text, Lang(L"Delete structure?", L"Struktur loeschen?"));
    EXPECT_EQ(ListRowCount(Structures()), 2);

    AnswerNextDialog(IDYES);
    Click(id::kStructureDelete);
    LastDialog(2);
    Pump(30);
    EXPECT_EQ(ListRowCount(Structures()), 1);
    EXPECT_EQ(RowOf(L"Chiller 2"), -1);
    EXPECT_EQ(ListRowCount(Details()), 0);
    EXPECT_EQ(ui::App().selectedStructureId, 0);
    EXPECT_EQ(StructuresFile().find("Chiller"), std::string::npos);

    // Delete without a selection asks nothing.
    const size_t seen = SeenDialogs().size();
    Click(id::kStructureDelete);
    Pump(100);
    EXPECT_EQ(SeenDialogs().size(), seen);
}

TEST_P(StructuresPage, DemoDeviceListsItsSixteenDetails) {
    Click(id::kStructureDemo);
    ASSERT_EQ(ListRowCount(Structures()), 1);
    EXPECT_EQ(ListCell(Structures(), 0, 0), L"Demo-Geraet");
    EXPECT_EQ(ListCell(Structures(), 0, 1), L"127.0.0.1:1502");
    EXPECT_EQ(ListCell(Structures(), 0, 3), L"16");
    SelectListRow(Structures(), 0);
    ASSERT_EQ(ListRowCount(Details()), 16);
    EXPECT_EQ(ListCell(Details(), 0, 0), L"Status Coil 0");
    EXPECT_EQ(ListCell(Details(), 0, 1), L"BOOLEAN");
    EXPECT_EQ(ListCell(Details(), 0, 3), L"FC01 Read Coils");
    EXPECT_EQ(ListCell(Details(), 2, 0), L"Temperatur");
    EXPECT_EQ(ListCell(Details(), 2, 1), L"FLOAT32");
    EXPECT_EQ(ListCell(Details(), 2, 2), L"100");
    EXPECT_EQ(ListCell(Details(), 2, 4), L"\u00b0C");
    EXPECT_EQ(ListCell(Details(), 13, 3), L"FC16 Write Multiple Registers");
    EXPECT_EQ(ListCell(Details(), 15, 1), L"RAW");
    EXPECT_NE(StructuresFile().find("Demo-Geraet"), std::string::npos);
}

TEST_P(StructuresPage, NewDetailNeedsASelectedStructure) {
    Click(id::kDetailNew);
    const SeenDialog box = LastDialog(1);
    EXPECT_EQ(box.text, Lang(L"Please select a structure first.", L"Bitte zuerst eine Struktur auswaehlen."));
    EXPECT_EQ(FindTopLevel(L"KestrelDetailDlg"), nullptr);
}

TEST_P(StructuresPage, DetailDialogOffersFunctionCodesByDataTypeAndHidesFields) {
    SaveStructure(L"Meter", L"10.0.0.9", L"502");
    SelectListRow(Structures(), 0);
    const std::vector<std::wstring> registerCodes = {L"FC03 Read Holding Registers", L"FC04 Read Input Registers",
                                                     L"FC06 Write Single Register", L"FC16 Write Multiple Registers"};
    const std::vector<std::wstring> allCodes = {L"FC01 Read Coils",
                                                L"FC02 Read Discrete Inputs",
                                                L"FC03 Read Holding Registers",
                                                L"FC04 Read Input Registers",
                                                L"FC05 Write Single Coil",
                                                L"FC06 Write Single Register",
                                                L"FC15 Write Multiple Coils",
                                                L"FC16 Write Multiple Registers"};
    auto functionCode = [](HWND d) { return Text(Child(d, id::kDetailFunctionCode)); };
    auto shown = [](HWND d, int control) { return IsWindowVisible(Child(d, control)) != FALSE; };

    const bool ran = RunModal(
        [] { Click(id::kDetailNew); }, L"KestrelDetailDlg",
        {[&](HWND d) {
             EXPECT_EQ(Text(d), Lang(L"New Detail", L"Neues Detail"));
             EXPECT_FALSE(IsWindowEnabled(MainWindow()));  // modal
             // The 11 types without RAW, UINT16 chosen; the register codes, FC03 chosen.
             const auto types = ComboItems(Child(d, id::kDetailDataType));
             ASSERT_EQ(types.size(), 11u);
             EXPECT_EQ(types.front(), L"BOOLEAN");
             EXPECT_EQ(types.back(), L"STRING");
             EXPECT_EQ(Text(Child(d, id::kDetailDataType)), L"UINT16");
             EXPECT_EQ(ComboItems(Child(d, id::kDetailFunctionCode)), registerCodes);
             EXPECT_EQ(functionCode(d), L"FC03 Read Holding Registers");
             for (int control : {id::kDetailArraySize, id::kDetailByteOrder, id::kDetailScale, id::kDetailOffset,
                                 id::kDetailUnit, id::kDetailWarnLow, id::kDetailAlarmHigh, id::kDetailAlarmOnChange})
                 EXPECT_TRUE(shown(d, control)) << control;
             for (const auto& [control, x, y, w] : std::vector<std::tuple<int, int, int, int>>{
                      {id::kDetailName, 107, 12, 295},
                      {id::kDetailDataType, 107, 42, 200},
                      {id::kDetailArraySize, 107, 72, 80},
                      {id::kDetailFunctionCode, 107, 102, 285},
                      {id::kDetailAddress, 107, 132, 80},
                      {id::kDetailByteOrder, 127, 162, 185},
                      {id::kDetailScale, 58, 192, 80},
                      {id::kDetailOffset, 202, 192, 80},
                      {id::kDetailUnit, 107, 222, 100},
                      {id::kDetailWarnLow, 83, 290, 75},
                      {id::kDetailWarnHigh, 203, 290, 75},
                      {id::kDetailAlarmLow, 83, 320, 75},
                      {id::kDetailAlarmHigh, 203, 320, 75},
                      {id::kDetailAlarmOnChange, 12, 350, 260}}) {
                 const RECT r = ChildRect(d, control);
                 EXPECT_EQ(r.left, x) << control;
                 EXPECT_EQ(r.top, y) << control;
                 EXPECT_EQ(r.right - r.left, w) << control;
             }
             Screenshot(Prefix() + "detail-dialog", d);
         },
         [&](HWND d) {
             // FC04 chosen, then BOOLEAN: every code, and since FC04 is no bit code the first.
             SelectChild(d, id::kDetailFunctionCode, 1);
             TypeChild(d, id::kDetailArraySize, L"5");
             SelectChild(d, id::kDetailDataType, 0);
             EXPECT_EQ(ComboItems(Child(d, id::kDetailFunctionCode)), allCodes);
             EXPECT_EQ(functionCode(d), L"FC01 Read Coils");
             EXPECT_FALSE(shown(d, id::kDetailArraySize));
             EXPECT_FALSE(shown(d, id::kDetailByteOrder));
             EXPECT_EQ(Text(Child(d, id::kDetailArraySize)), L"1");
             for (int control : {id::kDetailScale, id::kDetailOffset, id::kDetailUnit, id::kDetailWarnLow,
                                 id::kDetailWarnHigh, id::kDetailAlarmLow, id::kDetailAlarmHigh})
                 EXPECT_FALSE(shown(d, control)) << control;
             EXPECT_TRUE(shown(d, id::kDetailAlarmOnChange));
             Screenshot(Prefix() + "detail-dialog-boolean", d);
         },
         [&](HWND d) {
             // A bit code stays while the type stays BOOLEAN...
             SelectChild(d, id::kDetailFunctionCode, 6);  // FC15
             SelectChild(d, id::kDetailDataType, 0);
             EXPECT_EQ(functionCode(d), L"FC15 Write Multiple Coils");
             // ...and becomes FC03 for a register type.
             SelectChild(d, id::kDetailDataType, 8);  // FLOAT32
             EXPECT_EQ(ComboItems(Child(d, id::kDetailFunctionCode)), registerCodes);
             EXPECT_EQ(functionCode(d), L"FC03 Read Holding Registers");
             EXPECT_TRUE(shown(d, id::kDetailArraySize));
             EXPECT_TRUE(shown(d, id::kDetailScale));
             // A register code is kept across register types; STRING hides the numeric fields.
             SelectChild(d, id::kDetailFunctionCode, 3);  // FC16
             SelectChild(d, id::kDetailDataType, 10);     // STRING
             EXPECT_EQ(functionCode(d), L"FC16 Write Multiple Registers");
             EXPECT_TRUE(shown(d, id::kDetailArraySize));
             EXPECT_TRUE(shown(d, id::kDetailByteOrder));
             EXPECT_FALSE(shown(d, id::kDetailScale));
             EXPECT_FALSE(shown(d, id::kDetailWarnHigh));
             // Back to a BOOLEAN from a register code: the first item.
             SelectChild(d, id::kDetailDataType, 0);
             EXPECT_EQ(functionCode(d), L"FC01 Read Coils");
         },
         [&](HWND d) {
             // An empty name keeps the dialog open with a warning.
             TypeChild(d, id::kDetailName, L"");
             ClickChild(d, id::kDetailSave);
         },
         [&](HWND d) {
             const SeenDialog box = LastDialog(1);
             EXPECT_EQ(box.caption, Lang(L"Validation Error", L"Validierungsfehler"));
             EXPECT_EQ(box.text, Lang(L"Name must not be empty.", L"Name darf nicht leer sein."));
             EXPECT_TRUE(IsWindow(d));
             EXPECT_EQ(GetFocus(), Child(d, id::kDetailName));
             // Saved: a FLOAT32 at 7 with scale text that is no number (becomes 1.0) and limits.
             TypeChild(d, id::kDetailName, L"Level");
             SelectChild(d, id::kDetailDataType, 8);
             TypeChild(d, id::kDetailArraySize, L"0");
             TypeChild(d, id::kDetailAddress, L"7");
             SelectChild(d, id::kDetailByteOrder, 3);
             TypeChild(d, id::kDetailScale, L"abc");
             TypeChild(d, id::kDetailOffset, L"-2.5");
             TypeChild(d, id::kDetailUnit, L"m");
             TypeChild(d, id::kDetailWarnHigh, L"80");
             TypeChild(d, id::kDetailAlarmHigh, L"x");
             ClickChild(d, id::kDetailAlarmOnChange);
             ClickChild(d, id::kDetailSave);
         }});
    EXPECT_TRUE(ran);
    Pump(30);
    EXPECT_TRUE(IsWindowEnabled(MainWindow()));
    ASSERT_EQ(ListRowCount(Details()), 1);
    EXPECT_EQ(ListCell(Details(), 0, 0), L"Level");
    EXPECT_EQ(ListCell(Details(), 0, 1), L"FLOAT32");
    EXPECT_EQ(ListCell(Details(), 0, 2), L"7");
    EXPECT_EQ(ListCell(Details(), 0, 3), L"FC03 Read Holding Registers");
    EXPECT_EQ(ListCell(Details(), 0, 4), L"m");
    const ModbusStructure s = ui::Store().Structures().at(0);
    ASSERT_EQ(s.details.size(), 1u);
    const Modbus::ModbusDetail& d = s.details[0];
    EXPECT_EQ(d.arraySize, 1);
    EXPECT_EQ(d.byteOrder, Modbus::ByteOrder::LittleEndianSwap);
    EXPECT_EQ(d.scale, 1.0);
    EXPECT_EQ(d.offset, -2.5);
    EXPECT_EQ(d.warnHigh, 80.0);
    EXPECT_EQ(d.alarmHigh, 0.0);
    EXPECT_TRUE(d.alarmOnChange);
    EXPECT_NE(StructuresFile().find("\"name\": \"Level\""), std::string::npos);
}

TEST_P(StructuresPage, DoubleClickEditsADetailAndDelAsksFirst) {
    Click(id::kStructureDemo);
    SelectListRow(Structures(), 0);
    ASSERT_EQ(ListRowCount(Details()), 16);

    // Cancel changes nothing.
    EXPECT_TRUE(RunModal([&] { DoubleClickListRow(Details(), 0); }, L"KestrelDetailDlg",
                         {[&](HWND d) {
                             EXPECT_EQ(Text(d), Lang(L"Edit Detail", L"Detail bearbeiten"));
                             EXPECT_EQ(Text(Child(d, id::kDetailName)), L"Status Coil 0");
                             EXPECT_EQ(Text(Child(d, id::kDetailDataType)), L"BOOLEAN");
                             EXPECT_EQ(Text(Child(d, id::kDetailFunctionCode)), L"FC01 Read Coils");
                             TypeChild(d, id::kDetailName, L"Changed");
                             ClickChild(d, id::kDetailCancel);
                         }}));
    EXPECT_EQ(ListCell(Details(), 0, 0), L"Status Coil 0");

    // The second detail reads discrete inputs: its bit code is kept when the dialog opens.
    EXPECT_TRUE(RunModal([&] { DoubleClickListRow(Details(), 1); }, L"KestrelDetailDlg",
                         {[&](HWND d) {
                             EXPECT_EQ(Text(Child(d, id::kDetailFunctionCode)), L"FC02 Read Discrete Inputs");
                             EXPECT_FALSE(IsWindowVisible(Child(d, id::kDetailScale)));
                         },
                          [&](HWND d) { PostMessageW(d, WM_CLOSE, 0, 0); }}));

    // Edited and saved: the same id, in place.
    const int32_t temperatureId = ui::Store().Structures()[0].details[2].id;
    EXPECT_TRUE(RunModal([&] { DoubleClickListRow(Details(), 2); }, L"KestrelDetailDlg",
                         {[&](HWND d) {
                             EXPECT_EQ(Text(Child(d, id::kDetailScale)), L"0.1");
                             EXPECT_EQ(Text(Child(d, id::kDetailOffset)), L"-50");
                             EXPECT_EQ(Text(Child(d, id::kDetailAlarmHigh)), L"100");
                             TypeChild(d, id::kDetailName, L"Temperatur 2");
                             ClickChild(d, id::kDetailSave);
                         }}));
    Pump(30);
    EXPECT_EQ(ListCell(Details(), 2, 0), L"Temperatur 2");
    EXPECT_EQ(ui::Store().Structures()[0].details[2].id, temperatureId);
    EXPECT_EQ(ListRowCount(Details()), 16);

    // The RAW detail keeps its type through the dialog, which does not offer RAW.
    EXPECT_TRUE(RunModal([&] { DoubleClickListRow(Details(), 15); }, L"KestrelDetailDlg",
                         {[&](HWND d) { ClickChild(d, id::kDetailSave); }}));
    Pump(30);
    EXPECT_EQ(ListCell(Details(), 15, 1), L"RAW");

    // Del asks; No keeps, Yes removes.
    SelectListRow(Details(), 3);
    AnswerNextDialog(IDNO);
    Click(id::kDetailDelete);
    const SeenDialog box = LastDialog(1);
    EXPECT_EQ(box.caption, Lang(L"Confirm", L"Bestaetigen"));
    EXPECT_EQ(box.text, Lang(L"Delete detail?", L"Detail loeschen?"));
    EXPECT_EQ(ListRowCount(Details()), 16);
    SelectListRow(Details(), 3);
    AnswerNextDialog(IDYES);
    Click(id::kDetailDelete);
    LastDialog(2);
    Pump(30);
    EXPECT_EQ(ListRowCount(Details()), 15);
    EXPECT_EQ(ListCell(Structures(), 0, 3), L"15");
    EXPECT_EQ(StructuresFile().find("\"name\": \"Druck\""), std::string::npos);
}

TEST_P(StructuresPage, ConnConnectsTheMainConnectionToTheStructure) {
    TestSlave slave;
    ASSERT_TRUE(slave.Started());
    Click(id::kRtu);  // the IP fields are hidden and stay so: Conn. does not run the visibility pass
    SaveStructure(L"Local", L"127.0.0.1", std::to_wstring(slave.Port()), L"7");
    Deselect();
    Click(id::kStructureConnect);  // nothing selected: nothing happens
    EXPECT_FALSE(ui::MainConnection().IsConnected());
    EXPECT_EQ(ui::CurrentPage(), ui::kStructuresPage);

    SelectListRow(Structures(), 0);
    Click(id::kStructureConnect);
    EXPECT_TRUE(ui::MainConnection().IsConnected());
    EXPECT_EQ(ui::CurrentPage(), ui::kRegisterPage);
    EXPECT_TRUE(PageControlsVisible(ui::kRegisterPage));
    EXPECT_TRUE(PageControlsHidden(ui::kStructuresPage));
    EXPECT_EQ(Text(id::kIpAddress), L"127.0.0.1");
    EXPECT_EQ(Text(id::kPort), std::to_wstring(slave.Port()));
    EXPECT_EQ(Text(id::kUnitId), L"7");
    EXPECT_TRUE(IsChecked(id::kTcp));
    EXPECT_FALSE(IsChecked(id::kRtu));
    EXPECT_FALSE(IsVisible(id::kIpAddress));
    EXPECT_EQ(Text(id::kConnect), Lang(L"Disconnect", L"Trennen"));

    // Pressed again it disconnects, as the Connect button would.
    SelectTab(ui::kStructuresPage);
    Click(id::kStructureConnect);
    EXPECT_FALSE(ui::MainConnection().IsConnected());
    EXPECT_EQ(Text(id::kConnect), Lang(L"Connect", L"Verbinden"));
}

TEST_P(StructuresPage, PollingNeedsAStructureWithDetailsAndAReachableDevice) {
    Click(id::kStructurePollStart);
    SeenDialog box = LastDialog(1);
    EXPECT_EQ(box.caption, Lang(L"Notice", L"Hinweis"));
    EXPECT_EQ(box.text, Lang(L"Please select a structure with details.", L"Bitte Struktur mit Details auswaehlen."));

    SaveStructure(L"Empty", L"127.0.0.1", L"1502");
    SelectListRow(Structures(), 0);
    Click(id::kStructurePollStart);
    box = LastDialog(2);
    EXPECT_EQ(box.text, Lang(L"Please select a structure with details.", L"Bitte Struktur mit Details auswaehlen."));

    // Details, but nobody listens on the port.
    AddDetailThroughDialog(L"Value", 3, L"0");
    Type(id::kStructureName, L"");
    Click(id::kStructureEdit);
    Type(id::kStructurePort, std::to_wstring(FreeTcpPort()));
    Click(id::kStructureSave);
    SelectListRow(Structures(), 0);
    Click(id::kStructurePollStart);
    box = LastDialog(3);
    EXPECT_EQ(box.caption, Lang(L"Error", L"Fehler"));
    EXPECT_EQ(box.text, Lang(L"Connection to structure failed.", L"Verbindung zur Struktur fehlgeschlagen."));
    EXPECT_FALSE(ui::Poller().IsRunning());
    EXPECT_TRUE(IsEnabled(id::kStructurePollStart));
    EXPECT_FALSE(IsEnabled(id::kStructurePollStop));
}

TEST_P(StructuresPage, PollsOurSlaveWithLiveValuesAlarmsAndARecording) {
    TestSlave slave;
    ASSERT_TRUE(slave.Started());
    slave.Image().SetHoldingRegisters(10, {150});
    slave.Image().SetHoldingRegisters(20, {0x4148, 0x0000});  // 12.5 as FLOAT32

    SaveStructure(L"Tank", L"127.0.0.1", std::to_wstring(slave.Port()));
    SelectListRow(Structures(), 0);
    AddDetailThroughDialog(L"Pressure", 3, L"10");
    AddDetailThroughDialog(L"Level", 8, L"20");
    // The first detail alarms above 100.
    {
        ModbusStructure s = ui::Store().Structures().at(0);
        s.details[0].alarmHigh = 100;
        s.details[0].unit = "bar";
        ui::Store().UpdateDetail(s.id, s.details[0]);
    }
    Click(id::kRecord);
    EXPECT_EQ(Text(id::kRecord), Lang(L"Stop", L"Stoppen"));
    EXPECT_EQ(ui::Recording().RecordingName(), "Tank");

    // Our slave drops a client silent for 500 ms: poll every 100 ms ("50" is raised to 100).
    Type(id::kStructurePollInterval, L"50");
    Click(id::kStructurePollStart);
    ASSERT_TRUE(ui::Poller().IsRunning());
    EXPECT_EQ(ui::Poller().Interval(), 100u);
    EXPECT_FALSE(IsEnabled(id::kStructurePollStart));
    EXPECT_TRUE(IsEnabled(id::kStructurePollStop));
    EXPECT_TRUE(ui::StructurePollingConnection().IsConnected());
    EXPECT_FALSE(ui::MainConnection().IsConnected());  // a connection of its own

    const std::wstring expected = L"Pressure: 150 bar\r\nLevel: 12.500\r\n";
    EXPECT_TRUE(PumpUntil([&] { return Text(id::kLiveValues) == expected; }, 5000)) << ui::Utf8(Text(id::kLiveValues));
    // The alarm arrived: the counter follows while the Alarms page is hidden.
    EXPECT_TRUE(PumpUntil([&] { return Text(id::kAlarmCounter) == Lang(L"Unacknowledged: 1", L"Unquittiert: 1"); }, 3000));
    slave.Image().SetHoldingRegisters(10, {42});
    EXPECT_TRUE(PumpUntil([&] { return Text(id::kLiveValues).find(L"Pressure: 42 bar") == 0; }, 3000));
    Screenshot(Prefix() + "structures-polling");

    SelectTab(ui::kAlarmsPage);
    HWND alarms = Control(id::kAlarmList);
    ASSERT_EQ(ListRowCount(alarms), 1);
    EXPECT_EQ(ListCell(alarms, 0, 1), L"Schwellenwert Alarm");
    EXPECT_EQ(ListCell(alarms, 0, 2), L"Pressure");
    EXPECT_EQ(ListCell(alarms, 0, 3), Lang(L"Pressure > 100.000000 (is: 150.00 bar)", L"Pressure > 100.000000 (ist: 150.00 bar)"));
    EXPECT_EQ(ListCell(alarms, 0, 4), Lang(L"No", L"Nein"));
    SelectListRow(alarms, 0);
    Click(id::kAcknowledge);
    EXPECT_EQ(ListCell(alarms, 0, 4), Lang(L"Yes", L"Ja"));
    EXPECT_EQ(Text(id::kAlarmCounter), Lang(L"Unacknowledged: 0", L"Unquittiert: 0"));
    // A second excursion raises again and shows up at once while the page is visible.
    slave.Image().SetHoldingRegisters(10, {180});
    EXPECT_TRUE(PumpUntil([&] { return ListRowCount(alarms) == 2; }, 3000));
    EXPECT_EQ(Text(id::kAlarmCounter), Lang(L"Unacknowledged: 1", L"Unquittiert: 1"));

    // The device goes away: every read fails, in both languages shown as "[Fehler]".
    SelectTab(ui::kStructuresPage);
    slave.Client().Disconnect();
    EXPECT_TRUE(PumpUntil([&] { return Text(id::kLiveValues) == L"Pressure: [Fehler]\r\nLevel: [Fehler]\r\n"; }, 5000))
        << ui::Utf8(Text(id::kLiveValues));
    Click(id::kStructurePollStop);
    EXPECT_FALSE(ui::Poller().IsRunning());
    EXPECT_FALSE(ui::StructurePollingConnection().IsConnected());
    EXPECT_TRUE(IsEnabled(id::kStructurePollStart));
    EXPECT_FALSE(IsEnabled(id::kStructurePollStop));
    Click(id::kRecord);
    EXPECT_EQ(Text(id::kRecord), Lang(L"Record", L"Aufzeichnen"));

    // The recording as CSV, through the save dialog, read back.
    const std::wstring csv = ArtifactFolder() + ui::Wide(Prefix()) + L"recording-" +
                             std::to_wstring(GetCurrentProcessId()) + L".csv";
    DeleteFileW(csv.c_str());
    std::wstring suggested;
    AnswerFileDialog(csv, &suggested);
    Click(id::kCsvExport);
    const SeenDialog box = LastDialog(2);
    EXPECT_EQ(suggested, L"recording.csv");
    EXPECT_EQ(box.caption, L"OK");
    EXPECT_EQ(box.text, Lang(L"CSV exported.", L"CSV exportiert."));
    const std::string text = ReadWholeFile(csv);
    EXPECT_EQ(text.rfind(English() ? "Timestamp;Name;RawValue;DisplayValue;Unit\r\n"
                                   : "Zeitstempel;Name;Rohwert;Anzeigewert;Einheit\r\n",
                         0),
              0u)
        << text;
    EXPECT_NE(text.find(";Pressure;150.000000;150 bar;bar\r\n"), std::string::npos) << text;
    EXPECT_NE(text.find(";Pressure;42.000000;42 bar;bar\r\n"), std::string::npos);
    EXPECT_NE(text.find(";Level;12.500000;12.500;\r\n"), std::string::npos);
}

TEST_P(StructuresPage, ADamagedFileIsReportedAndKeptUntilAChange) {
    // Two structures, the second with a port that is no number.
    ui::Store().ParseStructures("");
    const std::string good =
        "{\n  \"structures\": [\n    {\n      \"id\": 4,\n      \"name\": \"Good\",\n      \"description\": \"\",\n"
        "      \"ip\": \"10.0.0.1\",\n      \"port\": 502,\n      \"unitId\": 1,\n      \"rtuOverTcp\": false,\n"
        "      \"details\": [\n      ]\n    },\n    {\n      \"id\": 5,\n      \"name\": \"Bad\",\n"
        "      \"description\": \"\",\n      \"ip\": \"10.0.0.2\",\n      \"port\": x502,\n      \"unitId\": 1,\n"
        "      \"rtuOverTcp\": false,\n      \"details\": [\n      ]\n    }\n  ]\n}\n";
    const std::wstring file = ui::Wide(WorkingFolder()) + L"modbus_structures.json";
    WriteWholeFile(file, good);
    HandleNextDialog([&](HWND box) {
        Screenshot(Prefix() + "structures-damaged-file-box", box);
        PostMessageW(box, WM_COMMAND, MAKEWPARAM(IDOK, BN_CLICKED), 0);
    });
    RestartApp();
    SelectTab(ui::kStructuresPage);
    const SeenDialog box = LastDialog(1);
    EXPECT_NE(box.text.find(file), std::wstring::npos) << ui::Utf8(box.text);
    EXPECT_NE(box.text.find(Lang(L"Problem: a value that must be a number is not one (",
                                 L"Problem: ein Wert, der eine Zahl sein muss, ist keine (")),
              std::wstring::npos)
        << ui::Utf8(box.text);
    EXPECT_NE(box.text.find(L"stoi"), std::wstring::npos) << ui::Utf8(box.text);
    EXPECT_EQ(box.caption, Lang(L"Structures file", L"Strukturdatei"));
    // The program runs on with what was read; the file is as it was.
    ASSERT_EQ(ListRowCount(Structures()), 1);
    EXPECT_EQ(ListCell(Structures(), 0, 0), L"Good");
    EXPECT_EQ(ReadWholeFile(file), good);
    // Recording, polling attempts and selections write nothing...
    SelectListRow(Structures(), 0);
    Click(id::kStructureEdit);
    EXPECT_EQ(ReadWholeFile(file), good);
    // ...a change does.
    Type(id::kStructureName, L"Good 2");
    Click(id::kStructureSave);
    EXPECT_NE(ReadWholeFile(file), good);
    EXPECT_NE(ReadWholeFile(file).find("Good 2"), std::string::npos);
}

TEST_P(StructuresPage, ANumberTooLargeInTheFileIsNamedSo) {
    const std::string file =
        "{\n  \"structures\": [\n    {\n      \"id\": 4,\n      \"name\": \"Big\",\n      \"description\": \"\",\n"
        "      \"ip\": \"10.0.0.1\",\n      \"port\": 99999999999,\n      \"unitId\": 1,\n"
        "      \"rtuOverTcp\": false,\n      \"details\": [\n      ]\n    }\n  ]\n}\n";
    const std::wstring path = ui::Wide(WorkingFolder()) + L"modbus_structures.json";
    WriteWholeFile(path, file);
    AnswerNextDialog(IDOK);
    RestartApp();
    const SeenDialog box = LastDialog(1);
    EXPECT_NE(box.text.find(Lang(L"Problem: a number is too large (", L"Problem: eine Zahl ist zu gro\u00df (")),
              std::wstring::npos)
        << ui::Utf8(box.text);
    EXPECT_EQ(ListRowCount(Structures()), 0);
    EXPECT_EQ(ReadWholeFile(path), file);
}

INSTANTIATE_TEST_SUITE_P(, StructuresPage, testing::Values(1, 0), LanguageName);

}  // namespace
