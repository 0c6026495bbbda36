// The Register R/W page against a slave of ours (and, for FC17 and FC18, which our slave does not
// serve, a scripted peer): writes, reads with their decoded preview, the cyclic poll, manual
// requests during the poll on the one wire, and the slave role.
#include <gtest/gtest.h>

#include <algorithm>

#include "gui_harness.h"
#include "protocol/trace_log.h"
#include "support/scripted_tcp_peer.h"
#include "ui/app.h"
#include "ui/control_ids.h"
#include "ui/controls.h"
#include "ui/posted_messages.h"
#include "ui_test_support.h"

namespace {

using namespace gui;
namespace id = ui::id;
using Bytes = std::vector<uint8_t>;

class RegisterPage : public WindowTest {
protected:
    void SetUp() override {
        WindowTest::SetUp();
        GlobalTraceLog().Clear();
    }
    // Connects the window as master to a fresh slave of ours. Our slave drops a client that stays
    // silent for 500 ms, so a test acts right after connecting.
    void ConnectToSlave() {
        ASSERT_TRUE(slave.Started());
        ConnectTcp(slave.Port());
        ASSERT_TRUE(ui::MainConnection().IsConnected());
    }
    void SetValues(const std::vector<std::wstring>& values) {
        for (size_t i = 0; i < values.size(); ++i) Type(id::kWriteValue1 + static_cast<int>(i), values[i]);
    }
    std::wstring Reg(int i) { return Text(id::kRegister1 + i); }

    TestSlave slave;
};

TEST_P(RegisterPage, StartsWithTheListsAndFieldsAsBuilt) {
    EXPECT_EQ(ListItems(id::kWriteFunction),
              (std::vector<std::wstring>{L"FC05 Write Single Coil", L"FC06 Write Single Register",
                                         L"FC0F Write Multiple Coils", L"FC10 Write Multiple Registers"}));
    EXPECT_EQ(Text(id::kWriteFunction), L"FC06 Write Single Register");
    EXPECT_EQ(ListItems(id::kReadFunction),
              (std::vector<std::wstring>{L"FC01 Read Coils", L"FC02 Read Discrete Inputs", L"FC03 Read Holding Registers",
                                         L"FC04 Read Input Registers", L"FC17 Read/Write Multiple",
                                         L"FC18 Read FIFO Queue"}));
    EXPECT_EQ(Text(id::kReadFunction), L"FC03 Read Holding Registers");
    EXPECT_EQ(ListItems(id::kDataType),
              (std::vector<std::wstring>{L"BOOLEAN", L"BYTE", L"INT16", L"UINT16", L"INT32", L"UINT32", L"INT64",
                                         L"UINT64", L"FLOAT32", L"FLOAT64", L"STRING", L"RAW"}));
    EXPECT_EQ(Text(id::kDataType), L"UINT16");
    EXPECT_EQ(ListItems(id::kByteOrder),
              (std::vector<std::wstring>{L"Big Endian", L"Little Endian", L"Big Endian Swap", L"Little Endian Swap"}));
    EXPECT_EQ(Text(id::kByteOrder), L"Big Endian");
    EXPECT_EQ(Text(id::kWriteAddress), L"0");
    for (int i = 0; i < 4; ++i) EXPECT_EQ(Text(id::kWriteValue1 + i), L"0");
    EXPECT_EQ(Text(id::kReadAddress), L"0");
    EXPECT_EQ(Text(id::kReadCount), L"4");
    EXPECT_EQ(Text(id::kScale), L"1.0");
    EXPECT_EQ(Text(id::kOffset), L"0.0");
    EXPECT_EQ(Text(id::kDecoded), L"");
    for (int i = 0; i < 4; ++i) EXPECT_EQ(Reg(i), L"0");
    EXPECT_EQ(Text(id::kPollInterval), L"1000");
    EXPECT_EQ(LogText(), L"");
    const RECT log = ControlRect(id::kProtocolLog);
    EXPECT_EQ(log.left, 20);
    EXPECT_EQ(log.top, 515);
    EXPECT_EQ(log.right - log.left, 750);
    EXPECT_EQ(log.bottom - log.top, 288);
}

TEST_P(RegisterPage, WritesEachFunctionAndLogsItsLine) {
    ConnectToSlave();
    Select(id::kWriteFunction, 0);
    Type(id::kWriteAddress, L"3");
    SetValues({L"1"});
    Click(id::kWrite);
    EXPECT_TRUE(LogHasLine(L"[Master] FC05 Coil 3 = ON"));
    EXPECT_EQ(slave.Image().GetCoils(3, 1), std::vector<bool>{true});
    SetValues({L"0"});
    Click(id::kWrite);
    EXPECT_TRUE(LogHasLine(L"[Master] FC05 Coil 3 = OFF"));
    EXPECT_EQ(slave.Image().GetCoils(3, 1), std::vector<bool>{false});

    Select(id::kWriteFunction, 1);
    SetValues({L"70000"});
    Click(id::kWrite);
    EXPECT_TRUE(LogHasLine(L"[Master] FC06 Register 3 = 4464"));
    EXPECT_EQ(slave.Image().GetHoldingRegisters(3, 1), std::vector<uint16_t>{4464});

    Select(id::kWriteFunction, 2);
    Type(id::kWriteAddress, L"10");
    SetValues({L"1", L"0", L"5", L"0"});
    Click(id::kWrite);
    EXPECT_TRUE(LogHasLine(L"[Master] FC0F 4 Coils geschrieben ab 10"));
    EXPECT_EQ(slave.Image().GetCoils(10, 5), (std::vector<bool>{true, false, true, false, false}));

    Select(id::kWriteFunction, 3);
    Type(id::kWriteAddress, L"20");
    SetValues({L"1", L"65535", L"65536", L"-1"});
    Click(id::kWrite);
    EXPECT_TRUE(LogHasLine(L"[Master] FC10 4 Register geschrieben ab 20"));
    EXPECT_EQ(slave.Image().GetHoldingRegisters(20, 5), (std::vector<uint16_t>{1, 65535, 0, 65535, 0}));
    // Successful writes leave the status line alone.
    EXPECT_EQ(Text(id::kConnectionStatus), std::wstring(L"TCP Master") + Lang(L" - Connected", L" - Verbunden"));
}

TEST_P(RegisterPage, AFailedWriteOfSeventyThousandReportsTheTruncatedValue) {
    // The slave refuses every request with an exception, so each write fails at once.
    slave.Client().exceptionInjectionEnabled = true;
    ConnectToSlave();
    SetValues({L"70000"});
    Type(id::kWriteAddress, L"5");
    Click(id::kWrite);
    EXPECT_TRUE(LogHasLine(L"[Master] FC06 FEHLER \u2013 Register 5 nicht geschrieben (Wert war 4464)")) << ui::Utf8(LogText());
    EXPECT_EQ(Text(id::kConnectionStatus), Lang(L"Write failed \u2013 device did not respond",
                                                L"Schreiben fehlgeschlagen \u2013 Ger\u00e4t hat nicht geantwortet"));
    Select(id::kWriteFunction, 0);
    Click(id::kWrite);
    EXPECT_TRUE(LogHasLine(L"[Master] FC05 FEHLER \u2013 Coil 5 nicht geschrieben"));
    Select(id::kWriteFunction, 2);
    Click(id::kWrite);
    EXPECT_TRUE(LogHasLine(L"[Master] FC0F FEHLER \u2013 Coils ab 5 nicht geschrieben"));
    Select(id::kWriteFunction, 3);
    Click(id::kWrite);
    EXPECT_TRUE(LogHasLine(L"[Master] FC10 FEHLER \u2013 Register ab 5 nicht geschrieben"));
    Click(id::kRead);
    EXPECT_TRUE(LogHasLine(L"[Master] Lesen fehlgeschlagen!"));
    Screenshot(Prefix() + "register-failures");
}

TEST_P(RegisterPage, ReadsHoldingRegistersIntoTheFieldsAndTheDecodedPreview) {
    slave.Image().SetHoldingRegisters(100, {7, 8, 9, 10, 11});
    ConnectToSlave();
    Type(id::kReadAddress, L"100");
    Type(id::kReadCount, L"");  // empty: four registers
    Click(id::kRead);
    ASSERT_EQ(GlobalTraceLog().Snapshot().size(), 1u);
    const Bytes request = GlobalTraceLog().Snapshot()[0].request;
    EXPECT_EQ(Bytes(request.begin() + 6, request.end()), (Bytes{0x01, 0x03, 0x00, 0x64, 0x00, 0x04}));
    EXPECT_EQ(Reg(0), L"7");
    EXPECT_EQ(Reg(3), L"10");
    EXPECT_EQ(Text(id::kDecoded), L"7");
    EXPECT_TRUE(LogHasLine(L"[Master] Gelesen ab 100: 7"));

    // INT16 with a scale and an offset.
    slave.Image().SetHoldingRegisters(100, {0xFFFE});
    Select(id::kDataType, 2);
    Type(id::kScale, L"0.5");
    Type(id::kOffset, L"10");
    Click(id::kRead);
    EXPECT_EQ(Reg(0), L"65534");
    EXPECT_EQ(Text(id::kDecoded), L"9.000");
    EXPECT_TRUE(LogHasLine(L"[Master] Gelesen ab 100: 9.000"));
}

TEST_P(RegisterPage, TheLogReadsInTheOrderThingsHappened) {
    ConnectToSlave();
    Click(id::kRead);
    // The connection's frames (posted from inside the request) come before the page's result.
    const auto lines = LogLines();
    ASSERT_GE(lines.size(), 4u);
    EXPECT_EQ(lines.back(), L"[Master] Gelesen ab 0: 0");
    // "TX: " or "RX: ", the transaction id, then the rest of the frame.
    EXPECT_EQ(lines[lines.size() - 4].substr(0, 4), L"TX: ");
    EXPECT_EQ(lines[lines.size() - 4].substr(10), L"00 00 00 06 01 03 00 00 00 04");
    EXPECT_EQ(lines[lines.size() - 3].substr(0, 4), L"RX: ");
    EXPECT_EQ(lines[lines.size() - 3].substr(10), L"00 00 00 0B");
    EXPECT_EQ(lines[lines.size() - 2], L"RX: 01 03 08 00 00 00 00 00 00 00 00");
}

TEST_P(RegisterPage, Float32TakesTwoRegistersAndDecodesOnlyWhatWasRead) {
    slave.Image().SetHoldingRegisters(0, {0x4049, 0x0FDB, 0x1234});
    ConnectToSlave();
    Select(id::kDataType, 8);
    Type(id::kReadCount, L"2");
    Click(id::kRead);
    EXPECT_EQ(Text(id::kDecoded), L"3.142");
    EXPECT_EQ(Reg(1), L"4059");
    Type(id::kReadCount, L"1");
    Click(id::kRead);
    // One register read: it is decoded alone, the missing bytes read as zero (0x40490000).
    EXPECT_EQ(Text(id::kDecoded), L"3.141");
    EXPECT_TRUE(LogHasLine(L"[Master] Gelesen ab 0: 3.141"));
}

TEST_P(RegisterPage, Fc01ReadingTwoBitsLeavesReg3AndReg4Alone) {
    slave.Image().SetCoils(0, {true, false, true, true});
    ConnectToSlave();
    SetWindowTextW(Control(id::kRegister1 + 2), L"77");
    SetWindowTextW(Control(id::kRegister1 + 3), L"88");
    Select(id::kReadFunction, 0);
    Type(id::kReadCount, L"2");
    Click(id::kRead);
    EXPECT_EQ(Reg(0), L"1");
    EXPECT_EQ(Reg(1), L"0");
    EXPECT_EQ(Reg(2), L"77");
    EXPECT_EQ(Reg(3), L"88");
    EXPECT_EQ(Text(id::kDecoded), L"ON");
    EXPECT_TRUE(LogHasLine(L"[Master] Bits gelesen ab 0"));
    // FC02: our slave has no discrete inputs set; they read as OFF.
    Select(id::kReadFunction, 1);
    Click(id::kRead);
    EXPECT_EQ(Reg(0), L"0");
    EXPECT_EQ(Text(id::kDecoded), L"OFF");
}

TEST_P(RegisterPage, Fc17ReadsAndWritesZeroToTheStartAddress) {
    ScriptedTcpPeer device([](ScriptedTcpPeer& peer) {
        if (!peer.Accept()) return;
        const Bytes request = peer.ReceiveTcpRequest();
        if (request.size() < 2) return;
        // Three registers 0, 0x0102, 0x0304 come back.
        peer.Send({request[0], request[1], 0x00, 0x00, 0x00, 0x09, 0x01, 0x17, 0x06, 0x00, 0x00, 0x01, 0x02, 0x03, 0x04});
        peer.Receive(1);  // until the window disconnects
    });
    ConnectTcp(device.Port());
    Select(id::kReadFunction, 4);
    Type(id::kReadAddress, L"8");
    Type(id::kReadCount, L"3");
    Click(id::kRead);
    ASSERT_EQ(GlobalTraceLog().Snapshot().size(), 1u);
    const Bytes request = GlobalTraceLog().Snapshot()[0].request;
    // Read 3 from 8, write one register of value 0 at 8.
    EXPECT_EQ(Bytes(request.begin() + 6, request.end()),
              (Bytes{0x01, 0x17, 0x00, 0x08, 0x00, 0x03, 0x00, 0x08, 0x00, 0x01, 0x02, 0x00, 0x00}));
    EXPECT_EQ(Reg(0), L"0");
    EXPECT_EQ(Reg(1), L"258");
    EXPECT_EQ(Reg(2), L"772");
    EXPECT_TRUE(LogHasLine(L"[Master] Gelesen ab 8: 0"));
    Click(id::kConnect);
}

TEST_P(RegisterPage, Fc18ReadsTheFifoQueueAndIgnoresTheCount) {
    ScriptedTcpPeer device([](ScriptedTcpPeer& peer) {
        if (!peer.Accept()) return;
        const Bytes request = peer.ReceiveTcpRequest();
        if (request.size() < 2) return;
        // Byte count 6, FIFO count 2: 0x00AA, 0x00BB.
        peer.Send({request[0], request[1], 0x00, 0x00, 0x00, 0x0A, 0x01, 0x18, 0x00, 0x06, 0x00, 0x02, 0x00, 0xAA, 0x00, 0xBB});
        peer.Receive(1);
    });
    ConnectTcp(device.Port());
    Select(id::kReadFunction, 5);
    Type(id::kReadAddress, L"4");
    Type(id::kReadCount, L"9");
    SetWindowTextW(Control(id::kRegister1 + 2), L"55");
    Click(id::kRead);
    ASSERT_EQ(GlobalTraceLog().Snapshot().size(), 1u);
    const Bytes request = GlobalTraceLog().Snapshot()[0].request;
    EXPECT_EQ(Bytes(request.begin() + 6, request.end()), (Bytes{0x01, 0x18, 0x00, 0x04}));
    EXPECT_EQ(Reg(0), L"170");
    EXPECT_EQ(Reg(1), L"187");
    EXPECT_EQ(Reg(2), L"55");
    EXPECT_TRUE(LogHasLine(L"[Master] Gelesen ab 4: 170"));
    Click(id::kConnect);
}

TEST_P(RegisterPage, OurSlaveRefusesFc17AndFc18AndTheReadFails) {
    ConnectToSlave();
    Select(id::kReadFunction, 4);
    Click(id::kRead);
    Select(id::kReadFunction, 5);
    Click(id::kRead);
    EXPECT_EQ(CountLogLinesStartingWith(L"[Master] Lesen fehlgeschlagen!"), 2);
}

TEST_P(RegisterPage, CyclicPollReadsFc03WhateverTheListSaysAndAFiftyIsRaisedTo100) {
    slave.Image().SetHoldingRegisters(30, {1234});
    ConnectToSlave();
    Type(id::kReadAddress, L"30");
    Type(id::kReadCount, L"1");
    Select(id::kReadFunction, 0);  // not consulted by the poll
    Type(id::kPollInterval, L"50");
    Click(id::kPollStart);
    EXPECT_EQ(ui::Poller().Interval(), 100u);
    EXPECT_FALSE(IsEnabled(id::kPollStart));
    EXPECT_TRUE(IsEnabled(id::kPollStop));
    Sleep(450);  // the window thread stands still while several cycles queue their lines
    ASSERT_TRUE(PumpUntil([] { return CountLogLinesStartingWith(L"[Poll] 1234") >= 5; }, 5000));
    Click(id::kPollStop);
    EXPECT_TRUE(IsEnabled(id::kPollStart));
    EXPECT_FALSE(IsEnabled(id::kPollStop));
    EXPECT_FALSE(ui::Poller().IsRunning());
    EXPECT_EQ(Text(id::kDecoded), L"1234");
    // Each cycle reads TX, RX (the header and the body), then its result, however far the window
    // thread falls behind the poll: a result line never lands after the next cycle's frames.
    const std::vector<std::wstring> lines = LogLines();
    const auto starts = [&lines](size_t i, const wchar_t* prefix) { return lines[i].rfind(prefix, 0) == 0; };
    for (size_t i = 0; i < lines.size(); ++i) {
        if (!starts(i, L"[Poll] ")) continue;
        ASSERT_GT(i, 2u);
        EXPECT_TRUE(starts(i - 3, L"TX: ") && starts(i - 2, L"RX: ") && starts(i - 1, L"RX: ")) << "before line " << i;
        if (i + 1 < lines.size()) {
            EXPECT_TRUE(starts(i + 1, L"TX: ")) << "after line " << i;
        }
    }
    for (const auto& frame : GlobalTraceLog().Snapshot()) {
        EXPECT_EQ(Bytes(frame.request.begin() + 6, frame.request.end()), (Bytes{0x01, 0x03, 0x00, 0x1E, 0x00, 0x01}));
    }
    // Stop does not disconnect.
    EXPECT_TRUE(ui::MainConnection().IsConnected());
    Screenshot(Prefix() + "register-polling");
}

TEST_P(RegisterPage, ANegativeIntervalIsNotRaisedButTakenAsAVeryLongOne) {
    ConnectToSlave();
    Type(id::kPollInterval, L"-1");
    Click(id::kPollStart);
    EXPECT_EQ(ui::Poller().Interval(), 4294967295u);
    ASSERT_TRUE(PumpUntil([] { return CountLogLinesStartingWith(L"[Poll] ") == 1; }, 3000));
    Pump(600);
    EXPECT_EQ(CountLogLinesStartingWith(L"[Poll] "), 1);
    Click(id::kPollStop);
    EXPECT_FALSE(ui::Poller().IsRunning());
}

TEST_P(RegisterPage, ManualReadsAndWritesDuringTheCyclicPollNeverMixOnTheWire) {
    slave.Image().SetHoldingRegisters(0, {5, 6, 7, 8});
    ConnectToSlave();
    Type(id::kPollInterval, L"100");
    Click(id::kPollStart);
    Type(id::kWriteAddress, L"50");
    for (int i = 0; i < 25; ++i) {
        SetValues({std::to_wstring(1000 + i)});
        Click(id::kWrite);
        Click(id::kRead);
        Pump(15);
    }
    ASSERT_TRUE(PumpUntil([] { return CountLogLinesStartingWith(L"[Poll] ") >= 3; }, 3000));
    Click(id::kPollStop);
    EXPECT_EQ(CountLogLinesStartingWith(L"[Master] FC06 Register 50 = "), 25);
    EXPECT_EQ(CountLogLinesStartingWith(L"[Master] Gelesen ab 0: 5"), 25);
    EXPECT_TRUE(LogHasLine(L"[Master] FC06 Register 50 = 1024"));
    EXPECT_EQ(CountLogLinesStartingWith(L"[Master] Lesen fehlgeschlagen!"), 0);
    EXPECT_EQ(slave.Image().GetHoldingRegisters(50, 1), std::vector<uint16_t>{1024});
    // Every request got its own answer: same transaction id, same function, nothing timed out.
    const auto frames = GlobalTraceLog().Snapshot();
    EXPECT_GE(frames.size(), 53u);
    for (const auto& frame : frames) {
        ASSERT_GE(frame.response.size(), 8u);
        EXPECT_FALSE(frame.isTimeout);
        EXPECT_EQ(frame.response[0], frame.request[0]);
        EXPECT_EQ(frame.response[1], frame.request[1]);
        EXPECT_EQ(frame.response[7], frame.request[7]);
    }
}

TEST_P(RegisterPage, SlaveRoleWriteSetsTheLocalImageInGermanWithoutTouchingTheStatus) {
    ConnectTcp(FreeTcpPort(), false);
    const std::wstring status = Text(id::kConnectionStatus);
    Type(id::kWriteAddress, L"5");
    SetValues({L"1", L"2", L"70000", L"4"});
    Click(id::kWrite);
    EXPECT_TRUE(LogHasLine(L"[Slave] Lokale Register ab Adresse 5 gesetzt"));
    EXPECT_EQ(ui::MainConnection().Image().GetHoldingRegisters(5, 4), (std::vector<uint16_t>{1, 2, 4464, 4}));
    EXPECT_EQ(Text(id::kConnectionStatus), status);
    Click(id::kConnect);
}

TEST_P(RegisterPage, ARemoteMastersWritesAppearInReg1To4) {
    const uint16_t port = FreeTcpPort();
    ConnectTcp(port, false);
    Type(id::kReadAddress, L"10");
    ModbusClient master;
    ConnectionConfig config;
    config.ipAddress = "127.0.0.1";
    config.port = port;
    ASSERT_TRUE(master.Connect(config));
    // 9 to 12: the first falls before the shown addresses, 10 to 12 are Reg 1 to 3.
    ASSERT_TRUE(master.WriteMultipleRegisters(1, 9, {90, 100, 110, 120}));
    ASSERT_TRUE(master.WriteSingleRegister(1, 13, 130));
    ASSERT_TRUE(master.WriteSingleRegister(1, 14, 140));
    master.Disconnect();
    ASSERT_TRUE(PumpUntil([this] { return Reg(3) == L"130"; }, 3000));
    EXPECT_EQ(Reg(0), L"100");
    EXPECT_EQ(Reg(1), L"110");
    EXPECT_EQ(Reg(2), L"120");
    EXPECT_EQ(Reg(3), L"130");
    Screenshot(Prefix() + "register-slave");
    Click(id::kConnect);
}

INSTANTIATE_TEST_SUITE_P(, RegisterPage, testing::Values(1, 0), LanguageName);

}  // namespace
