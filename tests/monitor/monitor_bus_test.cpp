// Our own RTU master and slave talk over a line of pseudo-terminals; a forwarder copies both
// sides to a third pty where kestrel-cli monitor listens. What the monitor saw (its CSV) must be
// exactly what both ends logged as TX/RX, in order, with the right directions and pairings, and
// the monitor must not have sent a byte. Native only.
#if !defined(_WIN32)
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <sstream>

#include "protocol/modbus_client.h"
#include "support/child_process.h"
#include "support/serial_forwarder.h"
#include "support/text_lines.h"

namespace {

struct Seen {
    std::string direction;
    std::string bytes;
    bool operator==(const Seen&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Seen& s) { return out << s.direction << " " << s.bytes; }

std::vector<std::string> Fields(const std::string& row) {
    std::vector<std::string> fields;
    std::istringstream in(row);
    std::string field;
    while (std::getline(in, field, ';')) fields.push_back(field);
    if (!row.empty() && row.back() == ';') fields.push_back("");
    return fields;
}

// A connection's TX/RX lines as frames: `txIs` is the direction its TX lines have on the bus.
class FrameLog {
public:
    explicit FrameLog(std::string txIs) : txIs_(std::move(txIs)), rxIs_(txIs_ == "request" ? "response" : "request") {}
    void operator()(const std::string& line) {
        std::lock_guard<std::mutex> lock(mutex_);
        if (line.rfind("TX: ", 0) == 0) frames_.push_back({txIs_, line.substr(4)});
        if (line.rfind("RX: ", 0) == 0) frames_.push_back({rxIs_, line.substr(4)});
    }
    std::vector<Seen> Frames() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return frames_;
    }

private:
    std::string txIs_, rxIs_;
    mutable std::mutex mutex_;
    std::vector<Seen> frames_;
};

}  // namespace

TEST(MonitorOnABus, SeesExactlyWhatTheMasterAndTheSlaveLogged) {
    SerialForwarder bus;
    ASSERT_TRUE(bus.Ok());
    const std::string dir = MakeTempDir();
    ChildProcess monitor({KESTREL_CLI_PATH, "--lang", "en", "monitor", "--rtu", bus.ListenerDevice(), "--baud", "19200",
                          "--csv", dir + "/bus.csv", "--quiet"});
    ASSERT_TRUE(monitor.WaitForOutput("Listening on", 10000, true)) << monitor.Stderr();

    FrameLog slaveLog("response");
    ModbusClient slave;
    slave.SetLogCallback([&](const std::string& line) { slaveLog(line); });
    slave.Image().SetHoldingRegisters(0, {10, 20, 30, 40});
    slave.Image().SetCoils(0, {true, false, true, true});
    slave.exceptionInjectionEnabled = true;  // exception 2 for register 100 only
    slave.exceptionInjectionCode = 2;
    slave.exceptionInjectionFrom = 100;
    slave.exceptionInjectionTo = 100;
    ConnectionConfig slaveConfig;
    slaveConfig.transport = 1;
    slaveConfig.role = 1;
    slaveConfig.serialPort = bus.SlaveDevice();
    slaveConfig.baudRate = 19200;
    ASSERT_TRUE(slave.Connect(slaveConfig));

    FrameLog masterLog("request");
    ModbusClient master;
    master.SetLogCallback([&](const std::string& line) { masterLog(line); });
    ConnectionConfig masterConfig = slaveConfig;
    masterConfig.role = 0;
    masterConfig.serialPort = bus.MasterDevice();
    ASSERT_TRUE(master.Connect(masterConfig));

    std::vector<uint16_t> words;
    std::vector<bool> bits;
    EXPECT_TRUE(master.ReadHoldingRegisters(1, 0, 4, words));
    EXPECT_TRUE(master.WriteSingleRegister(1, 5, 1234));
    EXPECT_TRUE(master.ReadCoils(1, 0, 10, bits));
    EXPECT_TRUE(master.WriteMultipleRegisters(1, 10, {1, 2, 3}));
    EXPECT_TRUE(master.WriteMultipleCoils(1, 0, {true, false, true}));
    EXPECT_TRUE(master.ReadInputRegisters(1, 0, 2, words));
    EXPECT_TRUE(master.ReadDiscreteInputs(1, 0, 5, bits));
    EXPECT_TRUE(master.WriteSingleCoil(1, 3, true));
    EXPECT_FALSE(master.ReadHoldingRegisters(1, 100, 1, words));  // exception 2
    EXPECT_FALSE(master.ReadFifoQueue(1, 0, words));              // not served: exception 1
    EXPECT_FALSE(master.ReadHoldingRegisters(9, 0, 1, words));    // nobody is unit 9: unanswered
    EXPECT_TRUE(master.ReadHoldingRegisters(1, 1, 2, words));
    master.Disconnect();
    slave.Disconnect();

    // The last frame has come through once the CSV holds as many rows as the master logged frames.
    const std::vector<Seen> masterFrames = masterLog.Frames();
    std::vector<std::string> rows;
    for (int i = 0; i < 200; ++i) {
        std::ifstream in(dir + "/bus.csv");
        std::stringstream text;
        text << in.rdbuf();
        rows = SplitLines(text.str());
        // The last response releases every row behind the unanswered request.
        if (rows.size() >= 1 + masterFrames.size()) break;
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    monitor.Signal(SIGINT);
    ASSERT_EQ(monitor.Wait(20000), 0) << monitor.Stderr();

    ASSERT_EQ(masterFrames.size(), 23u);
    EXPECT_EQ(slaveLog.Frames(), masterFrames);
    std::vector<Seen> monitorFrames;
    std::vector<std::string> statuses;
    for (size_t i = 1; i < rows.size(); ++i) {
        const std::vector<std::string> f = Fields(rows[i]);
        ASSERT_EQ(f.size(), 12u) << rows[i];
        monitorFrames.push_back({f[1], f[11]});
        statuses.push_back(f[9]);
    }
    EXPECT_EQ(monitorFrames, masterFrames);
    std::vector<std::string> expectedStatuses(23, "ok");
    expectedStatuses[17] = "exception";
    expectedStatuses[19] = "exception";
    expectedStatuses[20] = "unanswered";
    EXPECT_EQ(statuses, expectedStatuses);
    EXPECT_EQ(SplitLines(monitor.Stdout()),
              (std::vector<std::string>{
                  "unit;requests;responses;exceptions;unanswered;crc_errors;rt_min_ms;rt_median_ms;rt_max_ms",
                  SplitLines(monitor.Stdout())[1], "9;1;0;0;1;0;;;", "noise bytes skipped: 0"}));
    EXPECT_EQ(SplitLines(monitor.Stdout())[1].rfind("1;11;11;2;0;0;", 0), 0u);
    EXPECT_EQ(bus.BytesFromListener(), 0u);
    if (!HasFailure()) std::filesystem::remove_all(dir);
}
#endif
