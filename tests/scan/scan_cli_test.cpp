// `kestrel-cli scan` as a user runs it: against the small test gateway of tools/peers (which
// answers exception 0x0B for ids without a device, or nothing), against our own slave over TCP,
// RTU over TCP and RTU on a pty pair. Exact table, CSV and JSON output (the seconds aside), the
// register maps found and the requests they cost, bounded scans of silent ids, Ctrl-C, reconnects
// and exit codes. Native only: it starts programs and uses pseudo-terminals.
#if !defined(_WIN32)
#include <memory>
#include <regex>
#include <sstream>

#include <gtest/gtest.h>

#include "slave/slave_process.h"
#include "support/child_process.h"
#include "support/text_lines.h"

namespace {

const std::string kGatewayScript = std::string(KESTREL_SOURCE_DIR) + "/tools/peers/test_gateway.py";

// The time a scan took is the one figure that changes from run to run.
std::string WithoutSeconds(const std::string& text) {
    static const std::regex seconds(R"(("seconds": |requests in )[0-9]+\.[0-9])");
    return std::regex_replace(text, seconds, "$1S");
}

// The gateway of tools/peers/test_gateway.py on an ephemeral port; stopped with the test.
class Gateway {
public:
    explicit Gateway(std::vector<std::string> options) : dir_(MakeTempDir()) {
        std::vector<std::string> argv = {"/usr/bin/python3", kGatewayScript, "--port-file", dir_ + "/port",
                                         "--lifetime", "100"};
        argv.insert(argv.end(), options.begin(), options.end());
        process_ = std::make_unique<BackgroundProcess>(argv, dir_ + "/gateway.log");
        if (!WaitForPath(dir_ + "/port", 15000)) return;
        const CommandResult port = RunCommand({"cat", dir_ + "/port"}, 5000);
        port_ = static_cast<uint16_t>(std::stoul(port.out));
    }
    ~Gateway() {
        process_.reset();
        RunCommand({"rm", "-rf", dir_}, 5000);
    }
    uint16_t Port() const { return port_; }
    std::string Endpoint() const { return "127.0.0.1:" + std::to_string(port_); }

private:
    std::string dir_;
    std::unique_ptr<BackgroundProcess> process_;
    uint16_t port_ = 0;
};

CommandResult Scan(const std::vector<std::string>& args, int timeoutMs = 60000) {
    std::vector<std::string> argv = {KESTREL_CLI_PATH, "--lang", "en", "scan"};
    argv.insert(argv.end(), args.begin(), args.end());
    return RunCommand(argv, timeoutMs);
}

// A gateway with devices 3 (answers), 5 (refuses FC03 with exception 1) and 9.
std::vector<std::string> ThreeDevices(const char* framing) {
    return {framing, "0", "--device", "3", "--device", "5:fc=3", "--device", "9"};
}

TEST(ScanUnits, TableListsTheDevicesOfAGatewayThatAnswersNoDeviceForAbsentIds) {
    Gateway gateway(ThreeDevices("--tcp"));
    ASSERT_NE(gateway.Port(), 0);
    const CommandResult r = Scan({"--tcp", gateway.Endpoint(), "--units", "1-10"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(WithoutSeconds(r.out),
              "unit  status     exception  values\n"
              "   3  answering             3000\n"
              "   5  exception  1\n"
              "   9  answering             9000\n"
              "10 ids probed: 2 answering, 1 exception, 7 no-device, 0 silent\n"
              "10 requests in S s\n");
    // The connection's own lines and the summary on stderr; no TX/RX lines without --verbose.
    EXPECT_EQ(WithoutSeconds(r.err), "Connecting to " + gateway.Endpoint() + " ...\nConnected.\nDisconnected.\n"
                                     "scan: 10 requests in S s\n");
}

TEST(ScanUnits, CsvAndJsonOverRtuOverTcpWithValuesOfSeveralRegisters) {
    Gateway gateway(ThreeDevices("--rtu-over-tcp"));
    ASSERT_NE(gateway.Port(), 0);
    CommandResult r = Scan({"--rtu-over-tcp", gateway.Endpoint(), "--units", "2-5", "--address", "7", "--count",
                            "2", "--format", "csv"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out,
              "unit;status;exception;values\n"
              "2;no-device;11;\n"
              "3;answering;;3007 3008\n"
              "4;no-device;11;\n"
              "5;exception;1;\n");
    EXPECT_NE(WithoutSeconds(r.err).find("scan: 4 requests in S s\n"), std::string::npos) << r.err;

    r = Scan({"--rtu-over-tcp", gateway.Endpoint(), "--units", "3-5", "--fc", "1", "--count", "3", "--format", "json"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(WithoutSeconds(r.out),
              "{\"units\": [\n"
              "  {\"unit\": 3, \"status\": \"answering\", \"exception\": null, \"values\": [0, 1, 0]},\n"
              "  {\"unit\": 4, \"status\": \"no-device\", \"exception\": 11, \"values\": []},\n"
              "  {\"unit\": 5, \"status\": \"answering\", \"exception\": null, \"values\": [0, 1, 0]}\n"
              "], \"requests\": 3, \"seconds\": S}\n");
}

TEST(ScanUnits, OwnTcpSlaveListsSilentIdsInJsonAndLeavesThemOutOfTheTable) {
    ChildProcess slave({KESTREL_CLI_PATH, "slave", "--tcp-port", "0", "--unit", "3", "--holding", "0=17",
                        "--duration", "60"});
    const uint16_t port = slavetest::AnnouncedPort(slave);
    ASSERT_NE(port, 0);
    const std::string endpoint = "127.0.0.1:" + std::to_string(port);
    CommandResult r = Scan({"--tcp", endpoint, "--units", "1-4", "--timeout", "50", "--format", "json"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(WithoutSeconds(r.out),
              "{\"units\": [\n"
              "  {\"unit\": 1, \"status\": \"silent\", \"exception\": null, \"values\": []},\n"
              "  {\"unit\": 2, \"status\": \"silent\", \"exception\": null, \"values\": []},\n"
              "  {\"unit\": 3, \"status\": \"answering\", \"exception\": null, \"values\": [17]},\n"
              "  {\"unit\": 4, \"status\": \"silent\", \"exception\": null, \"values\": []}\n"
              "], \"requests\": 4, \"seconds\": S}\n");
    r = Scan({"--tcp", endpoint, "--units", "2-4", "--timeout", "50"});
    EXPECT_EQ(WithoutSeconds(r.out),
              "unit  status     exception  values\n"
              "   3  answering             17\n"
              "3 ids probed: 1 answering, 0 exception, 0 no-device, 2 silent\n"
              "3 requests in S s\n");
}

TEST(ScanUnits, OwnRtuOverTcpSlaveWithVerboseFrames) {
    ChildProcess slave({KESTREL_CLI_PATH, "slave", "--rtu-over-tcp-port", "0", "--unit", "2", "--holding", "0=42",
                        "--duration", "60"});
    const uint16_t port = slavetest::AnnouncedPort(slave);
    ASSERT_NE(port, 0);
    const CommandResult r = Scan({"--rtu-over-tcp", "127.0.0.1:" + std::to_string(port), "--units", "1-2",
                                  "--timeout", "100", "--format", "csv", "--verbose"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "unit;status;exception;values\n1;silent;;\n2;answering;;42\n");
    const std::vector<std::string> err = SplitLines(r.err);
    ASSERT_GE(err.size(), 7u) << r.err;
    EXPECT_EQ(err[2], "TX: 01 03 00 00 00 01 84 0A");
    EXPECT_EQ(err[3].rfind("TCP recv error: ", 0), 0u);
    EXPECT_EQ(err[4], "ReadHoldingRegisters failed.");
    EXPECT_EQ(err[5], "TX: 02 03 00 00 00 01 84 39");
    EXPECT_EQ(err[6], "RX: 02 03 02 00 2A 7D 9B");
}

TEST(ScanUnits, RtuScanOverAPtyPair) {
    const std::string dir = MakeTempDir();
    BackgroundProcess socat({"timeout", "100", "socat", "pty,raw,echo=0,link=" + dir + "/ttyA",
                             "pty,raw,echo=0,link=" + dir + "/ttyB"});
    ASSERT_TRUE(WaitForPath(dir + "/ttyA", 5000) && WaitForPath(dir + "/ttyB", 5000));
    {
        ChildProcess slave({KESTREL_CLI_PATH, "--lang", "en", "slave", "--rtu", dir + "/ttyA", "--unit", "2",
                            "--holding", "4=7,8", "--duration", "60"});
        ASSERT_TRUE(slave.WaitForOutput("Slave RTU thread started.\n", 5000));
        const CommandResult r = Scan({"--rtu", dir + "/ttyB", "--units", "1-3", "--address", "4", "--count", "2",
                                      "--timeout", "500", "--format", "csv"});
        EXPECT_EQ(r.exitCode, 0) << r.err;
        EXPECT_EQ(r.out, "unit;status;exception;values\n1;silent;;\n2;answering;;7 8\n3;silent;;\n");
        EXPECT_EQ(WithoutSeconds(SplitLines(r.err).back()), "scan: 3 requests in S s");
    }
    RunCommand({"rm", "-rf", dir}, 5000);
}

TEST(ScanUnits, TwoHundredFortySevenSilentIdsEndInBoundedTimeWithProgress) {
    Gateway gateway({"--tcp", "0", "--silent-absent"});
    ASSERT_NE(gateway.Port(), 0);
    const CommandResult r = Scan({"--tcp", gateway.Endpoint(), "--timeout", "10", "--format", "csv"}, 30000);
    ASSERT_EQ(r.exitCode, 0) << r.err;
    const std::vector<std::string> rows = SplitLines(r.out);
    ASSERT_EQ(rows.size(), 248u);
    EXPECT_EQ(rows[1], "1;silent;;");
    EXPECT_EQ(rows[247], "247;silent;;");
    // Progress lines, a few a second at most, each of the same form, and the total at the end.
    const std::regex progress(R"(scan: ([0-9]+)/247 ids, 0 found)");
    size_t progressLines = 0;
    for (const std::string& line : SplitLines(r.err)) {
        if (line.rfind("scan: ", 0) == 0 && line.find(" ids, ") != std::string::npos) {
            EXPECT_TRUE(std::regex_match(line, progress)) << line;
            ++progressLines;
        }
    }
    EXPECT_GE(progressLines, 1u) << r.err;
    EXPECT_NE(WithoutSeconds(r.err).find("scan: 247 requests in S s\n"), std::string::npos);
}

TEST(ScanUnits, CtrlCPrintsWhatWasFoundSoFarAndExitsZero) {
    Gateway gateway({"--tcp", "0", "--silent-absent", "--device", "1"});
    ASSERT_NE(gateway.Port(), 0);
    ChildProcess scan({KESTREL_CLI_PATH, "--lang", "en", "scan", "--tcp", gateway.Endpoint(), "--timeout", "100",
                       "--format", "json"});
    ASSERT_TRUE(scan.WaitForOutput("scan: ", 10000, true));
    scan.Signal(SIGINT);
    EXPECT_EQ(scan.Wait(5000), 0);
    EXPECT_NE(scan.Stderr().find("kestrel-cli: scan interrupted; the results so far follow\n"), std::string::npos);
    // The signal cuts a probe's wait short; that is not a lost connection to be made again.
    EXPECT_EQ(scan.Stderr().find("Scan: the peer closed"), std::string::npos) << scan.Stderr();
    const std::string out = scan.Stdout();
    EXPECT_EQ(out.rfind("{\"units\": [\n  {\"unit\": 1, \"status\": \"answering\", \"exception\": null, \"values\": [1000]}", 0),
              0u)
        << out;
    EXPECT_EQ(out.substr(out.size() - 2), "}\n");
    EXPECT_EQ(out.find("\"unit\": 247,"), std::string::npos);
}

TEST(ScanUnits, APeerThatClosesIsReconnectedOncePerProbe) {
    Gateway gateway({"--tcp", "0", "--device", "1", "--device", "4", "--close-after", "2"});
    ASSERT_NE(gateway.Port(), 0);
    const CommandResult r = Scan({"--tcp", gateway.Endpoint(), "--units", "1-5", "--format", "csv"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "unit;status;exception;values\n1;answering;;1000\n2;no-device;11;\n3;no-device;11;\n"
                     "4;answering;;4000\n5;no-device;11;\n");
    const std::string reconnect = "Scan: the peer closed the connection at unit 3, reconnecting ...\nDisconnected.\nConnecting to " +
                                  gateway.Endpoint() + " ...\nConnected.\n";
    EXPECT_NE(r.err.find(reconnect), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("Scan: the peer closed the connection at unit 5, reconnecting ..."), std::string::npos);
    EXPECT_NE(WithoutSeconds(r.err).find("scan: 7 requests in S s\n"), std::string::npos) << r.err;
}

TEST(ScanUnits, AReconnectThatFailsStopsTheScanWithWhatWasFoundAndExitsOne) {
    Gateway gateway({"--tcp", "0", "--device", "1", "--close-after", "2", "--clients", "1"});
    ASSERT_NE(gateway.Port(), 0);
    const CommandResult r = Scan({"--tcp", gateway.Endpoint(), "--units", "1-5", "--format", "csv"});
    EXPECT_EQ(r.exitCode, 1) << r.err;
    EXPECT_EQ(r.out, "unit;status;exception;values\n1;answering;;1000\n2;no-device;11;\n");
    EXPECT_NE(r.err.find("Scan: the peer closed the connection at unit 3, reconnecting ...\n"), std::string::npos);
    EXPECT_NE(r.err.find("TCP connection failed: "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("kestrel-cli: the connection was lost and could not be made again; the results so far follow\n"),
              std::string::npos);
}

TEST(ScanUnits, GermanReconnectLine) {
    Gateway gateway({"--tcp", "0", "--device", "1", "--close-after", "1"});
    ASSERT_NE(gateway.Port(), 0);
    const CommandResult r = RunCommand({KESTREL_CLI_PATH, "--lang", "de", "scan", "--tcp", gateway.Endpoint(),
                                        "--units", "1-2", "--format", "csv"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_NE(r.err.find("Scan: Gegenstelle hat die Verbindung geschlossen bei Unit 2, verbinde neu ...\n"),
              std::string::npos)
        << r.err;
}

// ---- register maps ----

TEST(ScanRegisters, FiveRefusedHolesInTenThousandCostFewRequests) {
    Gateway gateway({"--tcp", "0", "--device", "9:refuse=17,500,4321,9000,9001"});
    ASSERT_NE(gateway.Port(), 0);
    const CommandResult r = Scan({"--tcp", gateway.Endpoint(), "--unit", "9", "--registers", "0-9999", "--format", "json"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    const std::string out = WithoutSeconds(r.out);
    EXPECT_EQ(out.substr(0, out.find("\"requests\"")),
              "{\"unit\": 9, \"fc\": 3, \"ranges\": [\n"
              "  {\"first\": 0, \"last\": 16, \"count\": 17},\n"
              "  {\"first\": 18, \"last\": 499, \"count\": 482},\n"
              "  {\"first\": 501, \"last\": 4320, \"count\": 3820},\n"
              "  {\"first\": 4322, \"last\": 8999, \"count\": 4678},\n"
              "  {\"first\": 9002, \"last\": 9999, \"count\": 998}\n"
              "], ");
    const std::smatch m = [&] {
        std::smatch match;
        std::regex_search(out, match, std::regex(R"("requests": ([0-9]+), "seconds": S\}\n$)"));
        return match;
    }();
    ASSERT_EQ(m.size(), 2u) << out;
    const int requests = std::stoi(m[1]);
    // 80 blocks of 125, plus about 14 requests per isolated hole: far below 10,000 single reads.
    EXPECT_GE(requests, 80);
    EXPECT_LE(requests, 200);
}

TEST(ScanRegisters, ReadableIslandsInARefusedSeaAreFoundExactly) {
    Gateway gateway({"--rtu-over-tcp", "0", "--device", "1:only=100-109,250-250,290-299"});
    ASSERT_NE(gateway.Port(), 0);
    CommandResult r = Scan({"--rtu-over-tcp", gateway.Endpoint(), "--registers", "0-299", "--format", "csv"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(r.out, "first;last;count\n100;109;10\n250;250;1\n290;299;10\n");
    // About two requests per refused address: no more than a full binary tree over each block.
    const std::smatch m = [&] {
        std::smatch match;
        std::regex_search(r.err, match, std::regex(R"(scan: ([0-9]+) requests in)"));
        return match;
    }();
    ASSERT_EQ(m.size(), 2u) << r.err;
    EXPECT_LE(std::stoi(m[1]), 2 * 300);
    EXPECT_GE(std::stoi(m[1]), 279);

    r = Scan({"--rtu-over-tcp", gateway.Endpoint(), "--registers", "95-255"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(WithoutSeconds(r.out).substr(0, r.out.find("requests") - 4),
              "first   last  count\n"
              "  100    109     10\n"
              "  250    250      1\n"
              "unit 1, FC03, 95-255: 2 ranges, 11 addresses readable\n");
}

TEST(ScanRegisters, CoilsAreReadInBlocksOfTwoThousandBits) {
    Gateway gateway({"--tcp", "0", "--device", "1"});
    ASSERT_NE(gateway.Port(), 0);
    const CommandResult r =
        Scan({"--tcp", gateway.Endpoint(), "--fc", "1", "--registers", "0-4999", "--format", "json"});
    EXPECT_EQ(r.exitCode, 0) << r.err;
    EXPECT_EQ(WithoutSeconds(r.out), "{\"unit\": 1, \"fc\": 1, \"ranges\": [\n"
                                     "  {\"first\": 0, \"last\": 4999, \"count\": 5000}\n"
                                     "], \"requests\": 3, \"seconds\": S}\n");
}

// ---- exit codes and usage ----

TEST(ScanCli, ConnectionThatCannotBeMadeExitsOne) {
    const uint16_t port = FreeTcpPort();
    const CommandResult r = Scan({"--tcp", "127.0.0.1:" + std::to_string(port), "--units", "1-2"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err.rfind("Connecting to 127.0.0.1:" + std::to_string(port) + " ...\nTCP connection failed: ", 0), 0u);
}

TEST(ScanCli, UsageErrorsExitTwo) {
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--units", "1-5"}, "kestrel-cli: a connection is needed: --tcp HOST[:PORT] or --rtu DEVICE"},
        {{"--tcp", "127.0.0.1", "--rtu-over-tcp", "127.0.0.1"}, "kestrel-cli: give only one of --tcp, --rtu and --rtu-over-tcp"},
        {{"--tcp", "127.0.0.1", "--units", "5-1"}, "kestrel-cli: --units FROM must not be above TO in '5-1'"},
        {{"--tcp", "127.0.0.1", "--units", "7"}, "kestrel-cli: --units must look like FROM-TO, not '7'"},
        {{"--tcp", "127.0.0.1", "--fc", "6"}, "kestrel-cli: --fc must be 1, 2, 3 or 4, not '6'"},
        {{"--tcp", "127.0.0.1", "--format", "xml"}, "kestrel-cli: --format must be table, csv or json, not 'xml'"},
        {{"--tcp", "127.0.0.1", "--count", "126"}, "kestrel-cli: --count must be a number from 1 to 125, not '126'"},
        {{"--tcp", "127.0.0.1", "--registers", "0-9", "--units", "1-2"},
         "kestrel-cli: --units scans unit ids; a register scan takes --unit N"},
        {{"--tcp", "127.0.0.1", "--unit", "2"}, "kestrel-cli: --unit belongs to --registers; the unit-id scan takes --units A-B"},
        {{"--tcp", "127.0.0.1", "--timeout", "0"}, "kestrel-cli: --timeout must be a number from 1 to 60000, not '0'"},
        {{"--rtu-over-tcp", "127.0.0.1", "--baud", "9600"}, "kestrel-cli: --baud belongs to --rtu"},
    };
    for (const auto& [args, message] : cases) {
        const CommandResult r = Scan(args, 10000);
        EXPECT_EQ(r.exitCode, 2) << message;
        EXPECT_EQ(SplitLines(r.err).front(), message);
        EXPECT_EQ(r.out, "");
    }
}

TEST(ScanCli, HelpPrintsTheUsageOptionsAndAnExample) {
    const CommandResult r = RunCommand({KESTREL_CLI_PATH, "scan", "--help"}, 10000);
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out.rfind("usage:\n  kestrel-cli [--lang en|de] scan  CONN [--units A-B | --unit N --registers FROM-TO]", 0), 0u) << r.out;
    EXPECT_NE(r.out.find("\nExample:\n  kestrel-cli scan --rtu-over-tcp 192.168.1.50:4001 --units 1-32 --format csv\n"),
              std::string::npos);
    const CommandResult usage = RunCommand({KESTREL_CLI_PATH, "--help"}, 10000);
    EXPECT_NE(usage.out.find("        or  --rtu-over-tcp HOST[:PORT]  (RTU frames over TCP, as gateways forward them)\n"),
              std::string::npos);
}

}  // namespace
#endif
