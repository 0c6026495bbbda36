// Structure polling end to end over loopback: our own slave serves the device, the structure-polling
// connection reads it, the results feed the alarm engine and the recording and are handed on.
#include "polling/structure_polling.h"

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include <gtest/gtest.h>

#include "common/localizer.h"
#include "support/log_capture.h"
#include "support/scripted_tcp_peer.h"
#include "support/structure_polling_fixture.h"

#if !defined(_WIN32)
#include <unistd.h>
#endif

namespace {

using Clock = std::chrono::steady_clock;

std::string TempStorePath() {
#if defined(_WIN32)
    return "structure_polling_test.json";
#else
    return "/tmp/kestrel-structure-polling-" + std::to_string(::getpid()) + ".json";
#endif
}

Modbus::ModbusDetail Detail(const std::string& name, uint16_t address, Modbus::DataType type, uint8_t fc = 3) {
    Modbus::ModbusDetail d;
    d.name = name;
    d.registerAddress = address;
    d.dataType = type;
    d.functionCode = fc;
    return d;
}

class StructurePollingTest : public StructurePollingFixture {
protected:
    StructurePollingTest() : StructurePollingFixture(TempStorePath()) {}
    void SetUp() override {
        Localizer::SetAllLanguages(1);
        ASSERT_TRUE(StartSlave());
        slave.Image().SetHoldingRegisters(10, {1450, 0x42C8, 0x0000});  // 1450, then 100.0f
        slave.Image().SetCoils(0, {true});
    }
    void TearDown() override {
        StructurePollingFixture::TearDown();
        std::remove(store.Path().c_str());
        Localizer::SetAllLanguages(0);
    }

    int32_t AddDevice(uint16_t port, std::vector<Modbus::ModbusDetail> details) {
        ModbusStructure s;
        s.name = "Pump";
        s.ip = "127.0.0.1";
        s.port = port;
        s.unitId = 1;
        s.details = std::move(details);
        return store.AddStructure(s);
    }
};

TEST_F(StructurePollingTest, MissingStructureOrNoDetailsDoesNotStart) {
    EXPECT_EQ(StartStructurePolling(polling, 99, 100, nullptr, HandOff()), StructurePollStart::NoStructureOrDetails);
    const int32_t empty = AddDevice(slave.ListeningPort(), {});
    EXPECT_EQ(StartStructurePolling(polling, empty, 100, nullptr, HandOff()), StructurePollStart::NoStructureOrDetails);
    EXPECT_FALSE(engine.IsRunning());
    EXPECT_FALSE(connection.IsConnected());
    EXPECT_EQ(StructurePollStartMessage(StructurePollStart::NoStructureOrDetails), "Please select a structure with details.");
    EXPECT_EQ(StructurePollStartTitle(StructurePollStart::NoStructureOrDetails), "Notice");
    Localizer::SetAllLanguages(0);
    EXPECT_EQ(StructurePollStartMessage(StructurePollStart::NoStructureOrDetails), "Bitte Struktur mit Details auswaehlen.");
    EXPECT_EQ(StructurePollStartTitle(StructurePollStart::NoStructureOrDetails), "Hinweis");
}

TEST_F(StructurePollingTest, UnreachableDeviceFailsToConnectAndNoThreadStarts) {
    const uint16_t closedPort = ScriptedTcpPeer::ClosedPort();
    const int32_t id = AddDevice(closedPort, {Detail("Speed", 10, Modbus::DataType::UInt16)});
    std::vector<std::string> lines;
    EXPECT_EQ(StartStructurePolling(polling, id, 100, [&lines](const std::string& l) { lines.push_back(l); }, HandOff()),
              StructurePollStart::ConnectionFailed);
    EXPECT_FALSE(engine.IsRunning());
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[0], "Connecting to 127.0.0.1:" + std::to_string(closedPort) + " ...");
    EXPECT_EQ(StructurePollStartMessage(StructurePollStart::ConnectionFailed), "Connection to structure failed.");
    EXPECT_EQ(StructurePollStartTitle(StructurePollStart::ConnectionFailed), "Error");
    Localizer::SetAllLanguages(0);
    EXPECT_EQ(StructurePollStartMessage(StructurePollStart::ConnectionFailed), "Verbindung zur Struktur fehlgeschlagen.");
    EXPECT_EQ(StructurePollStartTitle(StructurePollStart::ConnectionFailed), "Fehler");
    EXPECT_EQ(PollingStartedText(), "Polling gestartet...\r\n");
    connection.SetLogCallback(nullptr);  // `lines` ends here; the connection lives on to TearDown
}

TEST_F(StructurePollingTest, PollsOurSlaveAndFeedsAlarmsRecordingAndHandOff) {
    Modbus::ModbusDetail speed = Detail("Speed", 10, Modbus::DataType::UInt16);
    speed.unit = "rpm";
    speed.alarmHigh = 1000;  // 1450 is beyond it
    Modbus::ModbusDetail level = Detail("Level", 11, Modbus::DataType::Float32);
    Modbus::ModbusDetail run = Detail("Run", 0, Modbus::DataType::Boolean, 1);
    const int32_t id = AddDevice(slave.ListeningPort(), {speed, level, run});
    std::vector<Modbus::AlarmEvent> events;
    alarms.SetAlarmCallback([&events](const Modbus::AlarmEvent& e) { events.push_back(e); });
    recording.ToggleRecording("Pump");

    ASSERT_EQ(StartStructurePolling(polling, id, 100, nullptr, HandOff()), StructurePollStart::Started);
    EXPECT_EQ(PollingStartedText(), "Polling started...\r\n");
    const auto results = WaitForCycles(2);
    ASSERT_EQ(results.size(), 3u);
    EXPECT_EQ(LiveValueLine(results[0]), "Speed: 1450 rpm");
    EXPECT_EQ(LiveValueLine(results[1]), "Level: 100.000");
    EXPECT_EQ(LiveValueLine(results[2]), "Run: ON");
    StopStructurePolling(polling);
    EXPECT_FALSE(connection.IsConnected());  // stopping always closes the polling connection

    ASSERT_EQ(events.size(), 1u);  // raised once, however many cycles saw it
    EXPECT_EQ(events[0].detailName, "Speed");
    EXPECT_EQ(events[0].type, Modbus::kAlarmThreshold);
    const auto entries = recording.Entries();
    ASSERT_GE(entries.size(), 6u);
    EXPECT_EQ(entries[0].name, "Speed");
    EXPECT_EQ(entries[0].rawValue, "1450.000000");
    EXPECT_EQ(entries[0].displayValue, "1450 rpm");
    EXPECT_EQ(entries[2].displayValue, "ON");
}

TEST_F(StructurePollingTest, ResultOfADetailThatWasRemovedMeanwhileIsSkipped) {
    Modbus::ModbusDetail speed = Detail("Speed", 10, Modbus::DataType::UInt16);
    speed.alarmHigh = 1000;
    const int32_t id = AddDevice(slave.ListeningPort(), {speed});
    const int32_t detailId = store.FindStructure(id)->details[0].id;
    ASSERT_TRUE(store.RemoveDetail(id, detailId));  // the engine still holds its copy
    std::atomic<int> raised{0};
    alarms.SetAlarmCallback([&raised](const Modbus::AlarmEvent&) { ++raised; });
    recording.ToggleRecording("x");
    const PollingEngine::OnResults handler = MakeStructureResultsHandler(polling, id, HandOff());
    Modbus::PollingResult r;
    r.detailId = detailId;
    r.name = "Speed";
    r.ok = true;
    r.value = int64_t{5000};
    handler({r});
    EXPECT_EQ(raised.load(), 0);
    EXPECT_TRUE(recording.Entries().empty());
    EXPECT_EQ(HandedOff(), 1);  // handed on all the same
}

TEST_F(StructurePollingTest, FailedReadsAreNeitherAlarmedNorRecorded) {
    Modbus::ModbusDetail speed = Detail("Speed", 10, Modbus::DataType::UInt16);
    speed.alarmHigh = 1;
    const int32_t id = AddDevice(slave.ListeningPort(), {speed});
    std::atomic<int> raised{0};
    alarms.SetAlarmCallback([&raised](const Modbus::AlarmEvent&) { ++raised; });
    recording.ToggleRecording("x");
    Modbus::PollingResult r;
    r.detailId = store.FindStructure(id)->details[0].id;
    r.ok = false;
    r.value = int64_t{5000};
    MakeStructureResultsHandler(polling, id, HandOff())({r});
    EXPECT_EQ(raised.load(), 0);
    EXPECT_TRUE(recording.Entries().empty());
}

TEST_F(StructurePollingTest, AnAlreadyConnectedConnectionIsUsedAsItIs) {
    ConnectionConfig config;
    config.ipAddress = "127.0.0.1";
    config.port = slave.ListeningPort();
    ASSERT_TRUE(connection.Connect(config));
    // The structure names a port nothing listens on; polling still reads through the open connection.
    const int32_t id = AddDevice(1, {Detail("Speed", 10, Modbus::DataType::UInt16)});
    ASSERT_EQ(StartStructurePolling(polling, id, 100, nullptr, HandOff()), StructurePollStart::Started);
    const auto results = WaitForCycles(1);
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].displayText, "1450");
}

TEST_F(StructurePollingTest, StopDuringASlowReadReturnsAfterThatRead) {
    slave.responseDelayMs = 800;
    const int32_t id = AddDevice(slave.ListeningPort(), {Detail("Speed", 10, Modbus::DataType::UInt16)});
    ASSERT_EQ(StartStructurePolling(polling, id, 100, nullptr, HandOff()), StructurePollStart::Started);
    std::this_thread::sleep_for(std::chrono::milliseconds(200));  // inside the first, delayed read
    const auto start = Clock::now();
    StopStructurePolling(polling);
    const auto elapsed = Clock::now() - start;
    EXPECT_FALSE(engine.IsRunning());
    EXPECT_LT(elapsed, std::chrono::milliseconds(800 + 50 + 700));
    EXPECT_GE(elapsed, std::chrono::milliseconds(300));
    EXPECT_EQ(HandedOff(), 1);
}

}  // namespace
