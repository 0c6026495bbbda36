// The shared objects of polling under two threads at once: the poll thread (engine, alarm engine,
// recording, trace log through the connection) and a second thread acting as the window (toggling
// and exporting the recording, reading the alarms, snapshotting and clearing the trace). Run under
// ThreadSanitizer (preset linux-tsan) this finds unguarded shared state.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <thread>

#include <gtest/gtest.h>

#include "polling/structure_polling.h"
#include "protocol/trace_log.h"

#if !defined(_WIN32)
#include <unistd.h>
#endif

namespace {

std::string TempPath(const char* name) {
#if defined(_WIN32)
    return name;
#else
    return std::string("/tmp/kestrel-concurrency-") + std::to_string(::getpid()) + "-" + name;
#endif
}

TEST(Concurrency, PollThreadAndWindowThreadShareAlarmsRecordingAndTrace) {
    ModbusClient slave;
    ConnectionConfig slaveConfig;
    slaveConfig.role = 1;
    slaveConfig.port = 0;
    ASSERT_TRUE(slave.Connect(slaveConfig));

    StructureStore store(TempPath("store.json"));
    ModbusStructure s;
    s.name = "Device";
    s.ip = "127.0.0.1";
    s.port = slave.ListeningPort();
    Modbus::ModbusDetail d;
    d.name = "Counter";
    d.registerAddress = 0;
    d.alarmOnChange = true;
    d.alarmHigh = 50;
    s.details = {d, d};
    const int32_t id = store.AddStructure(s);

    ModbusClient connection;
    PollingEngine engine;
    AlarmEngine alarms;
    RecordingBuffer recording;
    const StructurePolling polling{store, connection, engine, alarms, recording};
    std::atomic<int> alarmsSeen{0};
    alarms.SetAlarmCallback([&alarmsSeen](const Modbus::AlarmEvent&) { ++alarmsSeen; });
    std::atomic<int> cycles{0};
    GlobalTraceLog().SetCallback([](const Modbus::TraceFrame&) {});

    ASSERT_EQ(StartStructurePolling(polling, id, 100, nullptr,
                                    [&cycles](const std::vector<Modbus::PollingResult>&) { ++cycles; }),
              StructurePollStart::Started);

    // The "window": a bounded number of rounds over every shared object, while the slave's image
    // changes under the poll thread.
    const std::string csv = TempPath("rec.csv");
    for (int round = 0; round < 40; ++round) {
        slave.Image().SetHoldingRegisters(0, {static_cast<uint16_t>(round * 3)});
        if (round % 10 == 0) recording.ToggleRecording("Device");
        recording.ExportCsv(csv);
        (void)recording.Entries();
        (void)alarms.Events();
        if (round % 7 == 0) alarms.AcknowledgeAll();
        if (round == 20) alarms.ClearAlarms();
        (void)GlobalTraceLog().Snapshot();
        (void)GlobalTraceLog().ComputeStatistics();
        (void)GlobalTraceLog().BuildPcap("127.0.0.1", slave.ListeningPort());
        if (round == 30) GlobalTraceLog().Clear();
        engine.SetDetails(store.FindStructure(id)->details);
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    StopStructurePolling(polling);
    GlobalTraceLog().SetCallback(nullptr);
    slave.Disconnect();
    std::remove(csv.c_str());
    std::remove(store.Path().c_str());

    EXPECT_GE(cycles.load(), 3);
    EXPECT_GE(alarmsSeen.load(), 2);
}

}  // namespace
