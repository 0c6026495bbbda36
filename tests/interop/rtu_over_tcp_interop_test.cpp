// RTU over TCP against pymodbus (Debian's python3-pymodbus, whose RTU framer runs on a TCP socket
// in both roles): our master against its server for every function code, kestrel-cli read/write
// with --rtu-over-tcp, its client against `kestrel-cli slave --rtu-over-tcp-port 0`, the PCAP of
// such a connection decoded by tshark as RTU, and `poll` of a structure with rtuOverTcp set.
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include <gtest/gtest.h>

#include "common/localizer.h"
#include "model/structure_store.h"
#include "protocol/modbus_client.h"
#include "protocol/trace_log.h"
#include "slave/slave_process.h"
#include "support/child_process.h"
#include "support/log_capture.h"
#include "support/text_lines.h"

namespace {

const char* kPython = "/usr/bin/python3";

bool HavePymodbus() { return RunCommand({kPython, "-c", "import pymodbus.server"}, 20000).exitCode == 0; }

// pymodbus answering RTU frames on a TCP port, seeded as tools/peers/pymodbus_server.py says:
// coil i = i % 3 == 0, discrete input i = i % 2 == 0, holding i = 1000 + i, input i = 2000 + i.
class PymodbusRtuOverTcpServer {
public:
    PymodbusRtuOverTcpServer()
        : port_(FreeTcpPort()),
          process_({"timeout", "120", kPython, KESTREL_PYMODBUS_SERVER, "--rtu-over-tcp", std::to_string(port_)}) {
        ready_ = WaitForTcpPort(port_, 15000);
    }
    bool Ready() const { return ready_; }
    uint16_t Port() const { return port_; }

private:
    uint16_t port_;
    BackgroundProcess process_;
    bool ready_ = false;
};

class RtuOverTcpInterop : public testing::Test {
protected:
    void SetUp() override {
        if (!HavePymodbus()) GTEST_SKIP() << "pymodbus is not installed for /usr/bin/python3";
        Localizer::SetLanguage(Localizer::Scope::Connection, 1);
        SetTraceCallback(nullptr);
        GlobalTraceLog().Clear();
        server = std::make_unique<PymodbusRtuOverTcpServer>();
        ASSERT_TRUE(server->Ready()) << "the pymodbus server did not come up";
    }
    void TearDown() override {
        client.Disconnect();
        GlobalTraceLog().Clear();
        Localizer::SetLanguage(Localizer::Scope::Connection, 0);
    }
    void ConnectClient() {
        ConnectionConfig config;
        config.transport = kTransportRtuOverTcp;
        config.port = server->Port();
        ASSERT_TRUE(client.Connect(config));
        log.Clear();
    }
    CommandResult Cli(const std::string& verb, const std::vector<std::string>& rest) {
        std::vector<std::string> argv{KESTREL_CLI_PATH, "--lang", "en", verb, "--rtu-over-tcp",
                                      "127.0.0.1:" + std::to_string(server->Port())};
        argv.insert(argv.end(), rest.begin(), rest.end());
        return RunCommand(argv, 30000);
    }

    std::unique_ptr<PymodbusRtuOverTcpServer> server;
    ModbusClient client;
    LogCapture log{client};
};

TEST_F(RtuOverTcpInterop, EveryFunctionCodeAgainstPymodbus) {
    ConnectClient();
    std::vector<bool> bits;
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadCoils(1, 10, 7, bits));
    EXPECT_EQ(bits, (std::vector<bool>{false, false, true, false, false, true, false}));
    ASSERT_TRUE(client.ReadDiscreteInputs(1, 3, 4, bits));
    EXPECT_EQ(bits, (std::vector<bool>{false, true, false, true}));
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 5, 3, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{1005, 1006, 1007}));
    ASSERT_TRUE(client.ReadInputRegisters(1, 998, 2, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{2998, 2999}));
    ASSERT_TRUE(client.WriteSingleCoil(1, 1, true));
    ASSERT_TRUE(client.WriteSingleRegister(1, 100, 0xBEEF));
    ASSERT_TRUE(client.WriteMultipleCoils(1, 20, {true, true, false, true, false, false, false, false, true, true}));
    ASSERT_TRUE(client.WriteMultipleRegisters(1, 200, {1, 2, 3, 65535}));
    ASSERT_TRUE(client.ReadCoils(1, 0, 2, bits));
    EXPECT_EQ(bits, (std::vector<bool>{true, true}));
    ASSERT_TRUE(client.ReadCoils(1, 20, 10, bits));
    EXPECT_EQ(bits, (std::vector<bool>{true, true, false, true, false, false, false, false, true, true}));
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 100, 1, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{0xBEEF}));
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 200, 4, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{1, 2, 3, 65535}));
    ASSERT_TRUE(client.ReadWriteMultipleRegisters(1, 300, 3, 300, {7, 8}, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{7, 8, 1302}));
    // pymodbus answers FC24 with an empty FIFO; with the CRC the response is long enough.
    words = {1};
    ASSERT_TRUE(client.ReadFifoQueue(1, 0, words));
    EXPECT_TRUE(words.empty());
    EXPECT_EQ(log.Lines().back(), "RX: 01 18 00 02 00 00 80 08");
    EXPECT_EQ(GlobalTraceLog().ComputeStatistics().ok, 14u);
}

TEST_F(RtuOverTcpInterop, ExceptionFrameFromPymodbus) {
    ConnectClient();
    std::vector<uint16_t> words;
    EXPECT_FALSE(client.ReadHoldingRegisters(1, 5000, 2, words));
    EXPECT_EQ(log.Lines(), (std::vector<std::string>{"TX: 01 03 13 88 00 02 40 A5", "RX: 01 83 02 C0 F1",
                                                     "Modbus Exception: 2"}));
    EXPECT_FALSE(client.WriteSingleRegister(1, 5000, 1));
    EXPECT_EQ(log.Lines().back(), "Modbus Exception FC06: 2 Consider using FC10 instead of FC06.");
    // The connection is kept and in step.
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 0, 1, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{1000}));
}

TEST_F(RtuOverTcpInterop, CliReadsAndWritesOverRtuOverTcp) {
    CommandResult r = Cli("read", {"--fc", "3", "--address", "10", "--count", "3"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "1010\n1011\n1012\n");
    const std::string p = std::to_string(server->Port());
    EXPECT_EQ(r.err, "Connecting to 127.0.0.1:" + p + " ...\nConnected.\nTX: 01 03 00 0A 00 03 25 C9\n"
                     "RX: 01 03 06 03 F2 03 F3 03 F4 E9 93\nDisconnected.\n");
    r = Cli("write", {"--fc", "16", "--address", "40", "11", "22"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    r = Cli("read", {"--fc", "4", "--address", "0", "--count", "1", "--repeat", "2"});
    EXPECT_EQ(r.out, "2000\n2000\n");
    r = Cli("read", {"--fc", "3", "--address", "40", "--count", "2"});
    EXPECT_EQ(r.out, "11\n22\n");
    r = Cli("write", {"--fc", "6", "--address", "5000", "1"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("Modbus Exception FC06: 2 Consider using FC10 instead of FC06.\n"), std::string::npos);
}

TEST_F(RtuOverTcpInterop, PcapOfAnRtuOverTcpConnectionDecodesAsRtuWithTheDashDOption) {
    if (!HaveProgram("tshark")) GTEST_SKIP() << "tshark is not installed";
    ConnectClient();
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 0, 3, words));
    ASSERT_TRUE(client.WriteMultipleRegisters(1, 10, {0x1234, 0xBEEF}));
    EXPECT_FALSE(client.ReadInputRegisters(1, 5000, 1, words));
    client.Disconnect();

    const std::string dir = MakeTempDir();
    const std::string path = dir + "/rtu-over-tcp.pcap";
    const std::vector<uint8_t> pcap = GlobalTraceLog().BuildPcap("127.0.0.1", server->Port());
    std::ofstream(path, std::ios::binary).write(reinterpret_cast<const char*>(pcap.data()),
                                                static_cast<std::streamsize>(pcap.size()));
    const std::string port = std::to_string(server->Port());
    const CommandResult r = RunCommand({"tshark", "-r", path, "-d", "tcp.port==" + port + ",mbrtu", "-Y", "mbrtu",
                                        "-T", "fields", "-e", "mbrtu.unit_id", "-e", "modbus.func_code", "-e",
                                        "modbus.regval_uint16", "-e", "modbus.exception_code"},
                                       60000);
    std::filesystem::remove_all(dir);
    ASSERT_EQ(r.exitCode, 0) << r.err;
    // The raw RTU frames, as sent and received, decoded by the RTU dissector: requests and their
    // responses with values, and the exception (shown with the function code without bit 7).
    EXPECT_EQ(SplitLines(r.out), (std::vector<std::string>{"1\t3\t\t", "1\t3\t1000,1001,1002\t",
                                                           "1\t16\t4660,48879\t", "1\t16\t\t", "1\t4\t\t",
                                                           "1\t4\t\t2"}))
        << r.out;
}

// ---- our slave as the gateway ----

class RtuOverTcpSlave {
public:
    explicit RtuOverTcpSlave(std::vector<std::string> extra = {}) {
        std::vector<std::string> argv = {KESTREL_CLI_PATH, "--lang", "en", "slave", "--rtu-over-tcp-port", "0",
                                         "--duration", "120"};
        argv.insert(argv.end(), extra.begin(), extra.end());
        process_ = std::make_unique<ChildProcess>(argv);
        port_ = slavetest::AnnouncedPort(*process_);
    }
    ~RtuOverTcpSlave() {
        process_->Signal(SIGTERM);
        process_->Wait(5000);
    }
    uint16_t Port() const { return port_; }
    ChildProcess& Process() { return *process_; }

private:
    std::unique_ptr<ChildProcess> process_;
    uint16_t port_ = 0;
};

TEST(RtuOverTcpSlaveInterop, PymodbusClientReadsAndWritesOurSlave) {
    if (!HavePymodbus()) GTEST_SKIP() << "pymodbus is not installed for /usr/bin/python3";
    RtuOverTcpSlave slave({"--holding", "0=11,22,33", "--coils", "0=1,0,1", "--inject", "4:100-199"});
    ASSERT_NE(slave.Port(), 0) << slave.Process().Stderr();
    const CommandResult r = RunCommand(
        {kPython, KESTREL_SLAVE_PYMODBUS_CLIENT, "rtu-over-tcp", std::to_string(slave.Port()), "rh:0:3", "rc:0:3",
         "wr:5:500", "rh:5:1", "wrs:10:1,2,65535", "rh:10:3", "wc:7:1", "rc:7:1", "wcs:20:1,0,1,1,0,0,0,0,1",
         "rc:20:9", "ri:0:2", "rd:0:2", "rh:150:1", "unit:2", "rh:0:1"},
        60000);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    const std::vector<std::string> lines = SplitLines(r.out);
    const std::vector<std::string> expected = {
        "rh 0 11 22 33", "rc 0 1 0 1",       "wr 5 ok",  "rh 5 500",  "wrs 10 ok",
        "rh 10 1 2 65535", "wc 7 ok",        "rc 7 1",   "wcs 20 ok", "rc 20 1 0 1 1 0 0 0 0 1",
        "ri 0 0 0",      "rd 0 0 0",         "rh 150 exception 4", "unit 2"};
    ASSERT_EQ(lines.size(), expected.size() + 1) << r.out << r.err;
    EXPECT_EQ(std::vector<std::string>(lines.begin(), lines.end() - 1), expected);
    // Unit 2 is not ours: no answer, as on a serial line.
    EXPECT_EQ(lines.back().rfind("rh 0 error", 0), 0u) << lines.back();
    EXPECT_TRUE(slave.Process().WaitForOutput("Slave: FC10 written from 10, n=3\n", 3000));
}

TEST(RtuOverTcpSlaveInterop, PollOfAStructureWithTheFlagUsesRtuFrames) {
    RtuOverTcpSlave slave({"--holding", "5=1234,0,42"});
    ASSERT_NE(slave.Port(), 0) << slave.Process().Stderr();
    const std::string dir = MakeTempDir();
    {
        StructureStore store(dir + "/modbus_structures.json");
        ModbusStructure s;
        s.name = "Gateway";
        s.ip = "127.0.0.1";
        s.port = slave.Port();
        s.unitId = 1;
        s.rtuOverTcp = true;
        Modbus::ModbusDetail d;
        d.name = "Level";
        d.functionCode = 3;
        d.registerAddress = 5;
        d.dataType = Modbus::DataType::UInt16;
        s.details.push_back(d);
        d.name = "Pair";
        d.registerAddress = 6;
        d.dataType = Modbus::DataType::UInt32;
        s.details.push_back(d);
        store.AddStructure(s);
        ASSERT_TRUE(store.SaveStructures());
    }
    const CommandResult r = RunCommand({KESTREL_CLI_PATH, "--lang", "en", "poll", "--file",
                                        dir + "/modbus_structures.json", "--name", "Gateway", "--cycles", "1"},
                                       30000);
    std::filesystem::remove_all(dir);
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "Level: 1234\nPair: 42\n");
    // RTU frames on the wire: the request carries the CRC and no MBAP header.
    EXPECT_NE(r.err.find("TX: 01 03 00 05 00 01 94 0B\n"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("RX: 01 03 02 04 D2 "), std::string::npos) << r.err;
    EXPECT_TRUE(slave.Process().WaitForOutput("Slave: FC03 read from 6, n=2\n", 3000));
}

}  // namespace
