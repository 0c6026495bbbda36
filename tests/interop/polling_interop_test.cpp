// A structure polled against an independent Modbus server (pymodbus, Debian's package) over loopback.
#include <atomic>
#include <mutex>

#include <gtest/gtest.h>

#include "common/localizer.h"
#include "polling/structure_polling.h"
#include "support/child_process.h"

namespace {

TEST(PollingInterop, StructurePolledAgainstPymodbus) {
    Localizer::SetAllLanguages(1);
    const uint16_t port = FreeTcpPort();
    BackgroundProcess server({"timeout", "120", "/usr/bin/python3", KESTREL_PYMODBUS_SERVER, "--tcp", std::to_string(port)});
    ASSERT_TRUE(WaitForTcpPort(port, 15000));

    const std::string dir = MakeTempDir();
    StructureStore store(dir + "/s.json");
    ModbusStructure s;
    s.name = "pymodbus";
    s.ip = "127.0.0.1";
    s.port = port;
    auto detail = [](const char* name, uint8_t fc, uint16_t address, Modbus::DataType type) {
        Modbus::ModbusDetail d;
        d.name = name;
        d.functionCode = fc;
        d.registerAddress = address;
        d.dataType = type;
        return d;
    };
    s.details = {detail("Coil 3", 1, 3, Modbus::DataType::Boolean), detail("Input 1", 2, 1, Modbus::DataType::Boolean),
                 detail("Holding 5", 3, 5, Modbus::DataType::UInt16), detail("Input reg 7", 4, 7, Modbus::DataType::UInt16),
                 detail("Pair 10", 3, 10, Modbus::DataType::UInt32), detail("Beyond", 3, 5000, Modbus::DataType::UInt16)};
    const int32_t id = store.AddStructure(s);

    ModbusClient connection;
    PollingEngine engine;
    AlarmEngine alarms;
    RecordingBuffer recording;
    const StructurePolling polling{store, connection, engine, alarms, recording};
    std::mutex mutex;
    std::vector<Modbus::PollingResult> last;
    std::atomic<int> cycles{0};
    ASSERT_EQ(StartStructurePolling(polling, id, 100, nullptr,
                                    [&](const std::vector<Modbus::PollingResult>& r) {
                                        std::lock_guard<std::mutex> lock(mutex);
                                        last = r;
                                        ++cycles;
                                    }),
              StructurePollStart::Started);
    for (int i = 0; i < 300 && cycles.load() < 2; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    StopStructurePolling(polling);
    RunCommand({"rm", "-rf", dir});
    Localizer::SetAllLanguages(0);

    std::lock_guard<std::mutex> lock(mutex);
    ASSERT_EQ(last.size(), 6u);
    EXPECT_EQ(LiveValueLine(last[0]), "Coil 3: ON");
    EXPECT_EQ(LiveValueLine(last[1]), "Input 1: OFF");
    EXPECT_EQ(LiveValueLine(last[2]), "Holding 5: 1005");
    EXPECT_EQ(LiveValueLine(last[3]), "Input reg 7: 2007");
    EXPECT_EQ(LiveValueLine(last[4]), "Pair 10: " + std::to_string((1010u << 16) | 1011u));
    EXPECT_EQ(LiveValueLine(last[5]), "Beyond: [Fehler]");
    EXPECT_FALSE(last[5].ok);
    EXPECT_EQ(last[5].error, "Read error");
}

}  // namespace
