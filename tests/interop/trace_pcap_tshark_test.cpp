// The PCAP export read back by a real analyser: our master talks to a pymodbus server over loopback,
// the trace log is written as a capture file, and tshark decodes it as Modbus/TCP. Native only
// (needs /usr/bin/python3 with pymodbus, and tshark); skipped when either is missing.
#if !defined(_WIN32)
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "protocol/modbus_client.h"
#include "protocol/trace_log.h"
#include "support/child_process.h"
#include "support/text_lines.h"

namespace {

const char* kPython = "/usr/bin/python3";

bool HavePymodbus() { return RunCommand({kPython, "-c", "import pymodbus.server"}, 20000).exitCode == 0; }

class PymodbusServer {
public:
    explicit PymodbusServer(const std::string& dir)
        : portFile_(dir + "/port"),
          process_({kPython, std::string(KESTREL_SOURCE_DIR) + "/tests/interop/trace_pymodbus_server.py", portFile_,
                    "60"},
                   dir + "/server.log") {}

    uint16_t WaitForPort() {
        if (!WaitForPath(portFile_, 15000)) return 0;
        std::ifstream in(portFile_);
        unsigned port = 0;
        in >> port;
        return static_cast<uint16_t>(port);
    }

private:
    std::string portFile_;
    BackgroundProcess process_;
};

class TracePcapTshark : public testing::Test {
protected:
    void SetUp() override {
        if (!HaveProgram("tshark")) GTEST_SKIP() << "tshark is not installed";
        if (!HavePymodbus()) GTEST_SKIP() << "pymodbus is not installed for /usr/bin/python3";
        dir_ = MakeTempDir();
        SetTraceCallback(nullptr);
        GlobalTraceLog().Clear();
    }
    void TearDown() override {
        GlobalTraceLog().Clear();
        if (!dir_.empty() && !HasFailure()) std::filesystem::remove_all(dir_);
    }

    std::string WritePcap(const std::vector<uint8_t>& pcap) {
        const std::string path = dir_ + "/trace.pcap";
        std::ofstream out(path, std::ios::binary);
        out.write(reinterpret_cast<const char*>(pcap.data()), static_cast<std::streamsize>(pcap.size()));
        return path;
    }

    std::string dir_;
};

}  // namespace

TEST_F(TracePcapTshark, CaptureOfRealTransactionsDecodesWithIdsUnitsCodesAndValues) {
    PymodbusServer server(dir_);
    const uint16_t port = server.WaitForPort();
    ASSERT_NE(port, 0) << "pymodbus server did not start";

    ModbusClient client;
    ConnectionConfig config;
    config.ipAddress = "127.0.0.1";
    config.port = port;
    ASSERT_TRUE(client.Connect(config));
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 0, 3, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{1000, 1001, 1002}));
    ASSERT_TRUE(client.ReadHoldingRegisters(17, 5, 2, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{2005, 2006}));
    ASSERT_TRUE(client.ReadInputRegisters(1, 2, 2, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{3002, 3003}));
    ASSERT_TRUE(client.WriteMultipleRegisters(17, 10, {0x1234, 0xBEEF}));
    ASSERT_TRUE(client.ReadHoldingRegisters(17, 10, 2, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{0x1234, 0xBEEF}));
    client.Disconnect();

    ASSERT_EQ(GlobalTraceLog().Size(), 5u);
    const std::string path = WritePcap(GlobalTraceLog().BuildPcap("127.0.0.1", port));
    const CommandResult result =
        RunCommand({"tshark", "-r", path, "-o", "mbtcp.tcp.port:" + std::to_string(port), "-Y", "mbtcp", "-T", "fields",
                    "-e", "mbtcp.trans_id", "-e", "mbtcp.unit_id", "-e", "modbus.func_code", "-e",
                    "modbus.regval_uint16"},
                   60000);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const std::vector<std::string> expected{
        "0\t1\t3\t",           "0\t1\t3\t1000,1001,1002", "1\t17\t3\t",
        "1\t17\t3\t2005,2006", "2\t1\t4\t",               "2\t1\t4\t3002,3003",
        "3\t17\t16\t4660,48879", "3\t17\t16\t",           "4\t17\t3\t",
        "4\t17\t3\t4660,48879",
    };
    EXPECT_EQ(SplitLines(result.out), expected) << result.out;
}

TEST_F(TracePcapTshark, CaptureCarriesTheDeviceAddressPortsAndTimes) {
    PymodbusServer server(dir_);
    const uint16_t port = server.WaitForPort();
    ASSERT_NE(port, 0) << "pymodbus server did not start";

    ModbusClient client;
    ConnectionConfig config;
    config.ipAddress = "127.0.0.1";
    config.port = port;
    ASSERT_TRUE(client.Connect(config));
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 0, 1, words));
    client.Disconnect();

    const Modbus::TraceFrame frame = GlobalTraceLog().Snapshot().at(0);
    const std::string path = WritePcap(GlobalTraceLog().BuildPcap("10.0.0", port));
    const CommandResult result = RunCommand(
        {"tshark", "-r", path, "-o", "mbtcp.tcp.port:" + std::to_string(port), "-T", "fields", "-e", "ip.src", "-e",
         "ip.dst", "-e", "tcp.srcport", "-e", "tcp.dstport", "-e", "ip.len", "-e", "frame.time_epoch"},
        60000);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const std::vector<std::string> lines = SplitLines(result.out);
    ASSERT_EQ(lines.size(), 2u) << result.out;

    auto epoch = [](int64_t ms) {
        char text[64];
        std::snprintf(text, sizeof text, "%lld.%03lld000000", static_cast<long long>(ms / 1000),
                      static_cast<long long>(ms % 1000));
        return std::string(text);
    };
    const std::string p = std::to_string(port);
    EXPECT_EQ(lines[0], "192.168.1.1\t10.0.0.100\t5000\t" + p + "\t52\t" + epoch(frame.timestamp));
    EXPECT_EQ(lines[1], "192.168.1.1\t10.0.0.100\t" + p + "\t5000\t51\t" + epoch(frame.timestamp + frame.latencyMs));
}

TEST_F(TracePcapTshark, RtuFramesAreWrappedAsTheyAreAndShowAsMalformed) {
    Modbus::TraceFrame frame;
    frame.isRtu = true;
    frame.timestamp = 1700000000000;
    frame.latencyMs = 60;
    frame.request = {0x01, 0x03, 0x00, 0x00, 0x00, 0x0A, 0xC5, 0xCD};
    frame.response = {0x01, 0x03, 0x02, 0x00, 0x07, 0xF9, 0x86};
    GlobalTraceLog().Append(frame);
    const std::string path = WritePcap(GlobalTraceLog().BuildPcap("127.0.0.1", 1502));
    const CommandResult all = RunCommand(
        {"tshark", "-r", path, "-o", "mbtcp.tcp.port:1502", "-T", "fields", "-e", "frame.len"}, 60000);
    ASSERT_EQ(all.exitCode, 0) << all.err;
    EXPECT_EQ(SplitLines(all.out), (std::vector<std::string>{"62", "61"}));
    // The unit id and the CRC sit where the dissector expects the MBAP header.
    const CommandResult malformed = RunCommand(
        {"tshark", "-r", path, "-o", "mbtcp.tcp.port:1502", "-Y", "_ws.malformed", "-T", "fields", "-e", "frame.number"},
        60000);
    ASSERT_EQ(malformed.exitCode, 0) << malformed.err;
    EXPECT_FALSE(SplitLines(malformed.out).empty()) << all.out;
}
#endif
