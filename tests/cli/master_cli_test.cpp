// kestrel-cli read and write: exact output lines, exit codes and usage errors. Native only (the
// command line runs as a child process); the device is our own slave in this test process.
#if !defined(_WIN32)
#include <cstdlib>
#include <sstream>

#include <gtest/gtest.h>

#include "protocol/modbus_client.h"
#include "support/child_process.h"
#include "support/text_lines.h"

namespace {

CommandResult Cli(std::vector<std::string> args) {
    args.insert(args.begin(), KESTREL_CLI_PATH);
    return RunCommand(args, 30000);
}

class MasterCli : public testing::Test {
protected:
    void SetUp() override {
        ConnectionConfig config;
        config.role = 1;
        config.port = 0;
        ASSERT_TRUE(slave.Connect(config));
        slave.Image().SetHoldingRegisters(0, {10, 20, 65535});
        slave.Image().SetCoils(0, {true, false, true});
        endpoint = "127.0.0.1:" + std::to_string(slave.ListeningPort());
    }
    void TearDown() override { slave.Disconnect(); }
    ModbusClient slave;
    std::string endpoint;
};

TEST_F(MasterCli, ReadPrintsRegistersAndLogsToStderr) {
    const CommandResult r = Cli({"--lang", "en", "read", "--tcp", endpoint, "--fc", "3", "--address", "0", "--count", "3"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "10\n20\n65535\n");
    EXPECT_EQ(SplitLines(r.err),
              (std::vector<std::string>{"Connecting to " + endpoint + " ...", "Connected.",
                                        "TX: 00 00 00 00 00 06 01 03 00 00 00 03", "RX: 00 00 00 00 00 09",
                                        "RX: 01 03 06 00 0A 00 14 FF FF", "Disconnected."}));
}

TEST_F(MasterCli, GermanIsTheDefaultLanguage) {
    // No stored settings: an empty configuration folder.
    const std::string config = MakeTempDir();
    const char* old = std::getenv("XDG_CONFIG_HOME");
    const std::string saved = old ? old : "";
    setenv("XDG_CONFIG_HOME", config.c_str(), 1);
    const CommandResult r = Cli({"read", "--tcp", endpoint, "--fc", "1", "--address", "0", "--count", "3"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "1\n0\n1\n");
    EXPECT_EQ(SplitLines(r.err).front(), "Verbinde mit " + endpoint + " ...");
    EXPECT_EQ(SplitLines(r.err).back(), "Getrennt.");
    if (old) setenv("XDG_CONFIG_HOME", saved.c_str(), 1); else unsetenv("XDG_CONFIG_HOME");
    RunCommand({"rm", "-rf", config});
}

TEST_F(MasterCli, RepeatRunsOnOneConnectionWithCountingTransactionIds) {
    const CommandResult r =
        Cli({"--lang", "en", "read", "--tcp", endpoint, "--fc", "3", "--address", "1", "--repeat", "3"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "20\n20\n20\n");
    std::vector<std::string> tx;
    for (const auto& line : SplitLines(r.err))
        if (line.rfind("TX: ", 0) == 0) tx.push_back(line);
    EXPECT_EQ(tx, (std::vector<std::string>{"TX: 00 00 00 00 00 06 01 03 00 01 00 01",
                                            "TX: 00 01 00 00 00 06 01 03 00 01 00 01",
                                            "TX: 00 02 00 00 00 06 01 03 00 01 00 01"}));
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 2 + 3 * 3 + 1);
}

TEST_F(MasterCli, WriteThenReadBack) {
    CommandResult r = Cli({"write", "--tcp", endpoint, "--unit", "1", "--fc", "16", "--address", "100", "1", "0xFFFF"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(slave.Image().GetHoldingRegisters(100, 2), (std::vector<uint16_t>{1, 0xFFFF}));
    r = Cli({"write", "--tcp", endpoint, "--fc", "15", "--address", "7", "1", "1", "0"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(slave.Image().GetCoils(7, 3), (std::vector<bool>{true, true, false}));
    r = Cli({"write", "--tcp", endpoint, "--fc", "5", "--address", "8", "0"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(slave.Image().GetCoils(8, 1), (std::vector<bool>{false}));
    r = Cli({"write", "--tcp", endpoint, "--fc", "6", "--address", "9", "4660"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(slave.Image().GetHoldingRegisters(9, 1), (std::vector<uint16_t>{4660}));
}

TEST_F(MasterCli, ReadWriteMultipleWithoutValuesWritesOneZero) {
    slave.Image().SetHoldingRegisters(50, {9, 9});
    const CommandResult r = Cli({"--lang", "en", "read", "--tcp", endpoint, "--fc", "23", "--address", "50", "--count", "2"});
    // Our slave has no FC23: exception 1, exit 1.
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("TX: 00 00 00 00 00 0D 01 17 00 32 00 02 00 32 00 01 02 00 00\n"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("Modbus Exception FC17.\n"), std::string::npos) << r.err;
}

TEST_F(MasterCli, ExceptionExitsOne) {
    slave.exceptionInjectionEnabled = true;
    slave.exceptionInjectionCode = 2;
    const CommandResult r = Cli({"--lang", "de", "write", "--tcp", endpoint, "--fc", "6", "--address", "3", "1"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_NE(r.err.find("Modbus Exception FC06: 2 Gegebenenfalls versuchen Sie mit FC10 anstelle FC06 zu schreiben.\n"),
              std::string::npos)
        << r.err;
}

TEST(MasterCliErrors, FailedConnectExitsOne) {
    const uint16_t port = FreeTcpPort();
    const CommandResult r = Cli({"--lang", "en", "read", "--tcp", "127.0.0.1:" + std::to_string(port), "--fc", "3",
                                 "--address", "0"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    const auto lines = SplitLines(r.err);
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[1].rfind("TCP connection failed: ", 0), 0u);
}

TEST(MasterCliErrors, MissingSerialDeviceExitsOne) {
    const CommandResult r = Cli({"--lang", "en", "read", "--rtu", "/dev/kestrel-none", "--fc", "3", "--address", "0"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(SplitLines(r.err), (std::vector<std::string>{"Opening /dev/kestrel-none @ 9600 Baud ...",
                                                           "Could not open serial port.", "Disconnected."}));
}

struct UsageCase {
    std::vector<std::string> args;
    std::string firstLine;
};

TEST(MasterCliErrors, UsageErrorsAreOneLinePlusUsageAndExitTwo) {
    const std::vector<UsageCase> cases = {
        {{"read", "--fc", "3", "--address", "0"}, "kestrel-cli: a connection is needed: --tcp HOST[:PORT] or --rtu DEVICE"},
        {{"read", "--tcp", "1.2.3.4", "--rtu", "x", "--fc", "3", "--address", "0"},
         "kestrel-cli: give either --tcp or --rtu, not both"},
        {{"read", "--tcp", "1.2.3.4", "--address", "0"}, "kestrel-cli: --fc is required"},
        {{"read", "--tcp", "1.2.3.4", "--fc", "5", "--address", "0"}, "kestrel-cli: --fc must be one of 1, 2, 3, 4, 23, 24, not '5'"},
        {{"write", "--tcp", "1.2.3.4", "--fc", "3", "--address", "0", "1"}, "kestrel-cli: --fc must be one of 5, 6, 15, 16, not '3'"},
        {{"read", "--tcp", "1.2.3.4", "--fc", "3"}, "kestrel-cli: --address is required"},
        {{"read", "--tcp", "1.2.3.4", "--fc", "3", "--address", "65536"},
         "kestrel-cli: --address must be a number from 0 to 65535, not '65536'"},
        {{"read", "--tcp", "1.2.3.4", "--fc", "3", "--address", "0", "--count", "70000"},
         "kestrel-cli: --count must be a number from 0 to 65535, not '70000'"},
        {{"read", "--tcp", "1.2.3.4", "--unit", "256", "--fc", "3", "--address", "0"},
         "kestrel-cli: --unit must be a number from 0 to 255, not '256'"},
        {{"read", "--tcp", "1.2.3.4:0", "--fc", "3", "--address", "0"},
         "kestrel-cli: the TCP port must be a number from 1 to 65535, not '0'"},
        {{"read", "--tcp", "device.local", "--fc", "3", "--address", "0"},
         "kestrel-cli: the host must be a dotted IPv4 address, not 'device.local'"},
        {{"read", "--tcp", "1.2.3.4", "--fc", "3", "--address", "0", "5"},
         "kestrel-cli: values are only given to --fc 23, not to a plain read"},
        {{"write", "--tcp", "1.2.3.4", "--fc", "6", "--address", "0", "65536"},
         "kestrel-cli: a register value must be a number from 0 to 65535, not '65536'"},
        {{"write", "--tcp", "1.2.3.4", "--fc", "6", "--address", "0", "1", "2"}, "kestrel-cli: --fc 6 writes exactly one VALUE"},
        {{"write", "--tcp", "1.2.3.4", "--fc", "15", "--address", "0", "2"},
         "kestrel-cli: a coil value must be a number from 0 to 1, not '2'"},
        {{"write", "--tcp", "1.2.3.4", "--fc", "16", "--address", "0"}, "kestrel-cli: write needs at least one VALUE"},
        {{"read", "--rtu", "/dev/x", "--parity", "X", "--fc", "3", "--address", "0"},
         "kestrel-cli: --parity must be N, E or O, not 'X'"},
        {{"read", "--rtu", "/dev/x", "--stop-bits", "3", "--fc", "3", "--address", "0"},
         "kestrel-cli: --stop-bits must be a number from 1 to 2, not '3'"},
        {{"read", "--tcp", "1.2.3.4", "--baud", "9600", "--fc", "3", "--address", "0"}, "kestrel-cli: --baud belongs to --rtu"},
        {{"read", "--tcp", "1.2.3.4", "--fc", "3", "--address", "0", "--speed", "1"}, "kestrel-cli: unknown option --speed"},
        {{"--lang", "fr", "read"}, "kestrel-cli: --lang must be en or de, not 'fr'"},
        {{"frobnicate"}, "kestrel-cli: unknown command 'frobnicate'"},
        {{}, "kestrel-cli: no command given"},
    };
    for (const UsageCase& c : cases) {
        const CommandResult r = Cli(c.args);
        EXPECT_EQ(r.exitCode, 2) << c.firstLine;
        const auto lines = SplitLines(r.err);
        ASSERT_GE(lines.size(), 2u) << c.firstLine;
        EXPECT_EQ(lines[0], c.firstLine);
        EXPECT_EQ(lines[1], "usage:");
        EXPECT_EQ(r.out, "");
    }
}

TEST(MasterCliErrors, HelpPrintsTheUsageAndExitsZero) {
    const CommandResult r = Cli({"--help"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_NE(r.out.find("  kestrel-cli [--lang en|de] read  CONN [--unit N] --fc 1|2|3|4|23|24 --address A [--count N] "
                         "[--repeat N] [VALUE...]\n"),
              std::string::npos);
    EXPECT_NE(r.out.find("CONN is  --tcp HOST[:PORT]  or  --rtu DEVICE [--baud N] [--parity N|E|O] [--stop-bits 1|2]\n"),
              std::string::npos);
}

}  // namespace
#endif
