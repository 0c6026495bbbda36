// Our master against independent Modbus servers from Debian's packages (pymodbus and libmodbus),
// over TCP on loopback and over RTU on a socat pty pair, for every function code each supports.
// Both peers are seeded alike (tools/peers/): coil i = i % 3 == 0, discrete input i = i % 2 == 0,
// holding register i = 1000 + i, input register i = 2000 + i.
#include <memory>

#include <gtest/gtest.h>

#include "common/localizer.h"
#include "protocol/modbus_client.h"
#include "support/child_process.h"
#include "support/log_capture.h"

namespace {

enum class Peer { Pymodbus, Libmodbus };
enum class Transport { Tcp, Rtu };

struct Setup {
    Peer peer;
    Transport transport;
};

std::string Name(const testing::TestParamInfo<Setup>& info) {
    return std::string(info.param.peer == Peer::Pymodbus ? "Pymodbus" : "Libmodbus") +
           (info.param.transport == Transport::Tcp ? "Tcp" : "Rtu");
}

// Starts the peer server (and, for RTU, the pty pair it and we talk over); stops both at the end.
class PeerServer {
public:
    PeerServer(Setup setup) : dir_(MakeTempDir()) {
        std::string device;
        if (setup.transport == Transport::Rtu) {
            socat_ = std::make_unique<BackgroundProcess>(std::vector<std::string>{
                "timeout", "300", "socat", "pty,raw,echo=0,link=" + dir_ + "/ttyA", "pty,raw,echo=0,link=" + dir_ + "/ttyB"});
            ready_ = WaitForPath(dir_ + "/ttyA", 5000) && WaitForPath(dir_ + "/ttyB", 5000);
            device = dir_ + "/ttyB";
            ourDevice_ = dir_ + "/ttyA";
        } else {
            port_ = FreeTcpPort();
        }
        std::vector<std::string> argv;
        if (setup.peer == Peer::Pymodbus) {
            argv = {"timeout", "300", "/usr/bin/python3", KESTREL_PYMODBUS_SERVER};
            if (setup.transport == Transport::Tcp) {
                argv.insert(argv.end(), {"--tcp", std::to_string(port_)});
            } else {
                argv.insert(argv.end(), {"--rtu", device});
            }
        } else {
            argv = {"timeout", "300", KESTREL_LIBMODBUS_SERVER};
            if (setup.transport == Transport::Tcp) {
                argv.insert(argv.end(), {"tcp", std::to_string(port_)});
            } else {
                argv.insert(argv.end(), {"rtu", device});
            }
        }
        server_ = std::make_unique<BackgroundProcess>(argv, dir_ + "/server.log");
        if (setup.transport == Transport::Tcp) {
            ready_ = WaitForTcpPort(port_, 15000);
        } else {
            // The serial server gives no sign of life; give it time to open the port.
            std::this_thread::sleep_for(std::chrono::milliseconds(setup.peer == Peer::Pymodbus ? 1500 : 300));
            ready_ = ready_ && server_->Running();
        }
    }
    ~PeerServer() {
        server_.reset();
        socat_.reset();
        RunCommand({"rm", "-rf", dir_});
    }

    bool Ready() const { return ready_; }
    uint16_t Port() const { return port_; }
    const std::string& OurDevice() const { return ourDevice_; }

private:
    std::string dir_;
    std::string ourDevice_;
    uint16_t port_ = 0;
    bool ready_ = false;
    std::unique_ptr<BackgroundProcess> socat_;
    std::unique_ptr<BackgroundProcess> server_;
};

class MasterInterop : public testing::TestWithParam<Setup> {
protected:
    void SetUp() override {
        Localizer::SetLanguage(Localizer::Scope::Connection, 1);
        server = std::make_unique<PeerServer>(GetParam());
        ASSERT_TRUE(server->Ready()) << "the peer server did not come up";
        ConnectionConfig config;
        if (GetParam().transport == Transport::Tcp) {
            config.ipAddress = "127.0.0.1";
            config.port = server->Port();
        } else {
            config.transport = 1;
            config.serialPort = server->OurDevice();
            config.baudRate = 19200;
        }
        ASSERT_TRUE(client.Connect(config));
    }
    void TearDown() override { Localizer::SetLanguage(Localizer::Scope::Connection, 0); }
    bool IsPymodbus() const { return GetParam().peer == Peer::Pymodbus; }
    bool IsTcp() const { return GetParam().transport == Transport::Tcp; }

    std::unique_ptr<PeerServer> server;
    ModbusClient client;
    LogCapture log{client};
};

TEST_P(MasterInterop, ReadsTheSeededImage) {
    std::vector<bool> bits;
    ASSERT_TRUE(client.ReadCoils(1, 10, 7, bits));
    EXPECT_EQ(bits, (std::vector<bool>{false, false, true, false, false, true, false}));
    ASSERT_TRUE(client.ReadDiscreteInputs(1, 3, 4, bits));
    EXPECT_EQ(bits, (std::vector<bool>{false, true, false, true}));
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 5, 3, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{1005, 1006, 1007}));
    ASSERT_TRUE(client.ReadInputRegisters(1, 998, 2, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{2998, 2999}));
}

TEST_P(MasterInterop, WritesAndReadsBack) {
    ASSERT_TRUE(client.WriteSingleCoil(1, 1, true));
    ASSERT_TRUE(client.WriteMultipleCoils(1, 20, {true, true, false, true, false, false, false, false, true, true}));
    std::vector<bool> bits;
    ASSERT_TRUE(client.ReadCoils(1, 0, 2, bits));
    EXPECT_EQ(bits, (std::vector<bool>{true, true}));
    ASSERT_TRUE(client.ReadCoils(1, 20, 10, bits));
    EXPECT_EQ(bits, (std::vector<bool>{true, true, false, true, false, false, false, false, true, true}));

    ASSERT_TRUE(client.WriteSingleRegister(1, 100, 0xBEEF));
    ASSERT_TRUE(client.WriteMultipleRegisters(1, 200, {1, 2, 3, 65535}));
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 100, 1, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{0xBEEF}));
    ASSERT_TRUE(client.ReadHoldingRegisters(1, 200, 4, words));
    EXPECT_EQ(words, (std::vector<uint16_t>{1, 2, 3, 65535}));
}

TEST_P(MasterInterop, ReadWriteMultipleRegisters) {
    std::vector<uint16_t> words;
    ASSERT_TRUE(client.ReadWriteMultipleRegisters(1, 300, 3, 300, {7, 8}, words));
    // Both servers write before they read.
    EXPECT_EQ(words, (std::vector<uint16_t>{7, 8, 1302}));
}

TEST_P(MasterInterop, ExceptionForAnAddressOutsideTheImage) {
    std::vector<uint16_t> words;
    EXPECT_FALSE(client.ReadHoldingRegisters(1, 5000, 2, words));
    EXPECT_EQ(log.Lines().back(), "Modbus Exception: 2");
}

TEST_P(MasterInterop, ReadFifoQueue) {
    std::vector<uint16_t> words{1};
    const bool ok = client.ReadFifoQueue(1, 0, words);
    if (!IsPymodbus()) {
        // libmodbus has no FC24: over TCP it answers with exception 1; over RTU it cannot tell
        // where the unknown request ends and stays silent.
        EXPECT_FALSE(ok);
        EXPECT_EQ(log.Lines().back(), IsTcp() ? "Modbus Exception FC18." : "ReadFifoQueue failed.");
        return;
    }
    // pymodbus always answers with an empty FIFO: byte count 2, FIFO count 0. Over RTU the CRC
    // makes the response long enough and the read succeeds with no words; over TCP the response
    // is one byte short of the minimum and the read fails without a message of its own.
    const std::string rx = log.Lines().back();
    if (IsTcp()) {
        EXPECT_FALSE(ok);
        EXPECT_EQ(rx, "RX: 01 18 00 02 00 00");
    } else {
        EXPECT_TRUE(ok);
        EXPECT_TRUE(words.empty());
        EXPECT_EQ(rx.substr(0, 21), "RX: 01 18 00 02 00 00");
    }
}

INSTANTIATE_TEST_SUITE_P(Peers, MasterInterop,
                         testing::Values(Setup{Peer::Pymodbus, Transport::Tcp}, Setup{Peer::Pymodbus, Transport::Rtu},
                                         Setup{Peer::Libmodbus, Transport::Tcp}, Setup{Peer::Libmodbus, Transport::Rtu}),
                         Name);

// ---- kestrel-cli as a new user would type it ----

class CliInterop : public MasterInterop {
protected:
    std::vector<std::string> Conn() const {
        if (IsTcp()) return {"--tcp", "127.0.0.1:" + std::to_string(server->Port())};
        return {"--rtu", server->OurDevice(), "--baud", "19200"};
    }
    CommandResult Cli(const std::vector<std::string>& rest, const std::string& verb) {
        client.Disconnect();  // the serial port is the command's now
        std::vector<std::string> argv{KESTREL_CLI_PATH, "--lang", "en", verb};
        const auto conn = Conn();
        argv.insert(argv.end(), conn.begin(), conn.end());
        argv.insert(argv.end(), rest.begin(), rest.end());
        return RunCommand(argv, 30000);
    }
};

TEST_P(CliInterop, ReadsRegistersAndCoils) {
    CommandResult r = Cli({"--fc", "3", "--address", "10", "--count", "3"}, "read");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "1010\n1011\n1012\n");
    r = Cli({"--fc", "1", "--address", "0", "--count", "4"}, "read");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "1\n0\n0\n1\n");
    r = Cli({"--fc", "2", "--address", "0", "--count", "2"}, "read");
    EXPECT_EQ(r.out, "1\n0\n");
    r = Cli({"--fc", "4", "--address", "0", "--count", "1", "--repeat", "2"}, "read");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "2000\n2000\n");
}

TEST_P(CliInterop, WritesThenReadsBack) {
    CommandResult r = Cli({"--fc", "16", "--address", "40", "11", "22", "0x33"}, "write");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "");
    r = Cli({"--fc", "6", "--address", "43", "65535"}, "write");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    r = Cli({"--fc", "15", "--address", "50", "1", "1", "0", "1"}, "write");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    r = Cli({"--fc", "5", "--address", "52", "1"}, "write");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    r = Cli({"--fc", "3", "--address", "40", "--count", "4"}, "read");
    EXPECT_EQ(r.out, "11\n22\n51\n65535\n");
    r = Cli({"--fc", "1", "--address", "50", "--count", "4"}, "read");
    EXPECT_EQ(r.out, "1\n1\n1\n1\n");
    r = Cli({"--fc", "23", "--address", "60", "--count", "2", "5", "6"}, "read");
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "5\n6\n");
}

TEST_P(CliInterop, ExceptionExitsOneWithTheExceptionLine) {
    const CommandResult r = Cli({"--fc", "6", "--address", "5000", "1"}, "write");
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("Modbus Exception FC06: 2 Consider using FC10 instead of FC06.\n"), std::string::npos) << r.err;
}

INSTANTIATE_TEST_SUITE_P(Peers, CliInterop,
                         testing::Values(Setup{Peer::Pymodbus, Transport::Tcp}, Setup{Peer::Pymodbus, Transport::Rtu},
                                         Setup{Peer::Libmodbus, Transport::Tcp}, Setup{Peer::Libmodbus, Transport::Rtu}),
                         Name);

}  // namespace
