// kestrel-cli monitor as a process on a pseudo-terminal: the test writes recorded lines to the
// other end with chosen gaps and checks the exact frames, pairings and statistics, the CSV and
// the PCAP (decoded by tshark), and that the monitor never wrote a byte to the line. Native only.
#if !defined(_WIN32)
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <thread>

#include "monitor/monitor_test_frames.h"
#include "support/child_process.h"
#include "support/serial_pair.h"
#include "support/text_lines.h"

using namespace monitor_test;

namespace {

void Pause(int ms) { std::this_thread::sleep_for(std::chrono::milliseconds(ms)); }

const std::regex kTime(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z )");
const std::regex kResponseTime(R"(, \d+\.\d ms \| )");
const std::regex kStatisticsTimes(R"(;\d+\.\d;\d+\.\d;\d+\.\d$)");

// A frame line without its time and response time; the statistics rows with "T" for the times.
std::string Normalized(const std::string& line) {
    if (std::regex_search(line, kTime)) {
        return std::regex_replace(line.substr(25), kResponseTime, " | ");
    }
    return std::regex_replace(line, kStatisticsTimes, ";T;T;T");
}

std::vector<std::string> ExpectedLines(const std::vector<Exchange>& exchanges) {
    std::vector<std::string> lines;
    for (const Exchange& e : exchanges) {
        lines.push_back(e.requestText + " | " + HexDump(e.request));
        lines.push_back(e.responseText + " | " + HexDump(e.response));
    }
    return lines;
}

const char* kStatisticsHeader =
    "unit;requests;responses;exceptions;unanswered;crc_errors;rt_min_ms;rt_median_ms;rt_max_ms";

class MonitorCli : public testing::Test {
protected:
    void SetUp() override {
        ASSERT_TRUE(line.Ok());
        dir = MakeTempDir();
    }
    void TearDown() override {
        if (!HasFailure()) std::filesystem::remove_all(dir);
    }

    void Start(std::vector<std::string> extra = {}) {
        std::vector<std::string> argv = {KESTREL_CLI_PATH, "--lang", "en", "monitor", "--rtu", line.DeviceName(),
                                         "--baud", "19200", "--csv", dir + "/bus.csv", "--pcap", dir + "/bus.pcap"};
        argv.insert(argv.end(), extra.begin(), extra.end());
        monitor = std::make_unique<ChildProcess>(argv);
        ASSERT_TRUE(monitor->WaitForOutput("Listening on " + line.DeviceName() + " @ 19200 Baud ...", 10000, true))
            << monitor->Stderr();
    }
    // Waits until stdout shows `text` (the last frame came through), then stops the monitor the
    // way Ctrl-C does and checks that it wrote nothing to the line.
    void StopAfter(const std::string& text) {
        EXPECT_TRUE(monitor->WaitForOutput(text, 20000)) << monitor->Stdout();
        monitor->Signal(SIGINT);
        EXPECT_EQ(monitor->Wait(20000), 0) << monitor->Stderr();
        EXPECT_EQ(line.Read(1, 200), Bytes{}) << "the monitor wrote to the line";
        for (const std::string& l : SplitLines(monitor->Stdout())) output.push_back(Normalized(l));
    }
    void WaitForLines(size_t n) {
        for (int i = 0; i < 400 && SplitLines(monitor->Stdout()).size() < n; ++i) Pause(25);
    }
    // The frame lines (everything before the statistics header).
    std::vector<std::string> FrameLines() const {
        const auto header = std::find(output.begin(), output.end(), kStatisticsHeader);
        return {output.begin(), header};
    }
    std::vector<std::string> StatisticsLines() const {
        const auto header = std::find(output.begin(), output.end(), kStatisticsHeader);
        return {header, output.end()};
    }
    std::vector<std::string> CsvLines() const {
        std::ifstream in(dir + "/bus.csv");
        std::stringstream text;
        text << in.rdbuf();
        return SplitLines(text.str());
    }
    void WriteWithGaps(const std::vector<Bytes>& frames, int gapMs) {
        for (const Bytes& f : frames) {
            ASSERT_TRUE(line.Write(f));
            Pause(gapMs);
        }
    }

    SerialPair line;
    std::string dir;
    std::unique_ptr<ChildProcess> monitor;
    std::vector<std::string> output;
};

std::vector<Bytes> FramesOf(const std::vector<Exchange>& exchanges) {
    std::vector<Bytes> frames;
    for (const Exchange& e : exchanges) {
        frames.push_back(e.request);
        frames.push_back(e.response);
    }
    return frames;
}

std::vector<std::string> EveryCodeStatistics() {
    return {kStatisticsHeader, "1;6;6;0;0;0;T;T;T", "2;4;4;0;0;0;T;T;T", "17;6;6;0;0;0;T;T;T",
            "noise bytes skipped: 0"};
}

}  // namespace

TEST_F(MonitorCli, EveryFunctionCodeWithNormalGaps) {
    const auto exchanges = EveryFunctionCode();
    Start();
    WriteWithGaps(FramesOf(exchanges), 15);
    StopAfter(HexDump(exchanges.back().response));
    EXPECT_EQ(FrameLines(), ExpectedLines(exchanges));
    EXPECT_EQ(StatisticsLines(), EveryCodeStatistics());

    // The CSV: the header, then one row per frame in the order captured.
    const std::vector<std::string> csv = CsvLines();
    ASSERT_EQ(csv.size(), 1 + 2 * exchanges.size());
    EXPECT_EQ(csv[0], "time;direction;unit;fc;name;address;count;values;exception;status;response_ms;bytes");
    const std::string time = R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d\.\d{3}Z)";
    const std::string fields = R"((\d+);(\d+);[^;]+;\d*;\d*;[0-9 ]*;;ok;)";
    const std::regex request(time + ";request;" + fields + R"(;([0-9A-F ]+)$)");
    const std::regex response(time + ";response;" + fields + R"(\d+\.\d;([0-9A-F ]+)$)");
    for (size_t i = 0; i < exchanges.size(); ++i) {
        std::smatch m;
        ASSERT_TRUE(std::regex_match(csv[1 + 2 * i], m, request)) << csv[1 + 2 * i];
        EXPECT_EQ(m[1].str(), std::to_string(exchanges[i].request[0]));
        EXPECT_EQ(m[2].str(), std::to_string(exchanges[i].request[1]));
        EXPECT_EQ(m[3].str(), HexDump(exchanges[i].request));
        ASSERT_TRUE(std::regex_match(csv[2 + 2 * i], m, response)) << csv[2 + 2 * i];
        EXPECT_EQ(m[3].str(), HexDump(exchanges[i].response));
    }
    EXPECT_EQ(csv[5].substr(24), ";request;1;3;FC03 Read Holding Registers;107;3;;;ok;;01 03 00 6B 00 03 74 17");
    EXPECT_EQ(std::regex_replace(csv[6].substr(24), std::regex(R"(;ok;\d+\.\d;)"), ";ok;T;"),
              ";response;1;3;FC03 Read Holding Registers;;3;555 0 100;;ok;T;01 03 06 02 2B 00 00 00 64 05 7A");

    // The PCAP decoded by tshark as Modbus RTU: every frame, in order, with its unit id and code.
    // Wireshark 4.0 leaves RTU frames of 4 bytes (the FC07, FC11, FC12 and FC17 requests) as plain
    // data: those must carry exactly the frame's bytes.
    if (!HaveProgram("tshark")) GTEST_SKIP() << "tshark is not installed";
    const CommandResult decoded =
        RunCommand({"tshark", "-r", dir + "/bus.pcap", "-d", "tcp.port==502,mbrtu", "-T", "fields", "-e",
                    "mbrtu.unit_id", "-e", "modbus.func_code", "-e", "tcp.payload"});
    ASSERT_EQ(decoded.exitCode, 0) << decoded.err;
    std::vector<std::string> expected;
    for (const Bytes& f : FramesOf(exchanges)) {
        std::string payload = HexDump(f);
        payload.erase(std::remove(payload.begin(), payload.end(), ' '), payload.end());
        for (char& c : payload) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        expected.push_back(f.size() < 5 ? "\t\t" + payload
                                        : std::to_string(f[0]) + "\t" + std::to_string(f[1]) + "\t" + payload);
    }
    EXPECT_EQ(SplitLines(decoded.out), expected);
}

TEST_F(MonitorCli, BackToBackFramesInOneWrite) {
    const auto exchanges = EveryFunctionCode();
    Start();
    ASSERT_TRUE(line.Write(Join(FramesOf(exchanges))));
    StopAfter(HexDump(exchanges.back().response));
    EXPECT_EQ(FrameLines(), ExpectedLines(exchanges));
    EXPECT_EQ(StatisticsLines(), EveryCodeStatistics());
}

TEST_F(MonitorCli, OneFrameSplitOverSeveralWritesWithShortPauses) {
    const auto exchanges = EveryFunctionCode();
    Start();
    for (const Bytes& f : FramesOf(exchanges)) {
        // Three pieces, 3 ms apart: longer than the 3.5-character silence at 19,200 Bd.
        const size_t third = f.size() / 3;
        ASSERT_TRUE(line.Write(Bytes(f.begin(), f.begin() + static_cast<long>(third))));
        Pause(3);
        ASSERT_TRUE(line.Write(Bytes(f.begin() + static_cast<long>(third), f.end() - static_cast<long>(third))));
        Pause(3);
        ASSERT_TRUE(line.Write(Bytes(f.end() - static_cast<long>(third), f.end())));
        Pause(12);
    }
    StopAfter(HexDump(exchanges.back().response));
    EXPECT_EQ(FrameLines(), ExpectedLines(exchanges));
    EXPECT_EQ(StatisticsLines(), EveryCodeStatistics());
}

TEST_F(MonitorCli, NoiseBeforeAndBetweenFramesIsSkippedAndCounted) {
    const auto all = EveryFunctionCode();
    const std::vector<Exchange> exchanges(all.begin(), all.begin() + 3);
    Start();
    ASSERT_TRUE(line.Write({0x00}));
    Pause(15);
    WriteWithGaps({exchanges[0].request, {0xFF, 0xFE}, exchanges[0].response}, 15);
    // Noise glued to the frames in one write.
    ASSERT_TRUE(line.Write(Join({{0x00, 0xFF}, exchanges[1].request, {0xF8}, exchanges[1].response})));
    Pause(15);
    WriteWithGaps({{0x55}, exchanges[2].request, exchanges[2].response}, 15);
    StopAfter(HexDump(exchanges[2].response));
    EXPECT_EQ(FrameLines(), ExpectedLines(exchanges));
    EXPECT_EQ(StatisticsLines(),
              (std::vector<std::string>{kStatisticsHeader, "1;3;3;0;0;0;T;T;T", "noise bytes skipped: 7"}));
}

TEST_F(MonitorCli, ABadCrcResponseIsReportedWithItsBytesAndItsRequestStaysUnanswered) {
    const Bytes request = Frame({1, 3, 0, 0, 0, 2});
    const Bytes bad = WithBadCrc(Frame({1, 3, 4, 0, 10, 0, 20}));
    const Bytes write = Frame({1, 6, 0, 1, 0, 3});
    Start();
    WriteWithGaps({request, bad, write, write}, 15);
    StopAfter(HexDump(write));
    EXPECT_EQ(FrameLines(), (std::vector<std::string>{
                                "request unit 1 FC03 Read Holding Registers, address 0, count 2: unanswered | 01 03 "
                                "00 00 00 02 C4 0B",
                                "response unit 1 FC03 Read Holding Registers: crc_error | 01 03 04 00 0A 00 14 DA 64",
                                "request unit 1 FC06 Write Single Register, address 1, values 3: ok | 01 06 00 01 00 "
                                "03 98 0B",
                                "response unit 1 FC06 Write Single Register, address 1, values 3: ok | 01 06 00 01 "
                                "00 03 98 0B"}));
    EXPECT_EQ(StatisticsLines(),
              (std::vector<std::string>{kStatisticsHeader, "1;2;1;0;1;1;T;T;T", "noise bytes skipped: 0"}));
    const std::vector<std::string> csv = CsvLines();
    ASSERT_EQ(csv.size(), 5u);
    EXPECT_EQ(csv[2].substr(24), ";response;1;3;FC03 Read Holding Registers;;;;;crc_error;;01 03 04 00 0A 00 14 DA 64");
}

TEST_F(MonitorCli, AnUnansweredRequestAndAnExceptionResponse) {
    const Bytes unanswered = Frame({5, 4, 0, 0, 0, 1});
    const Bytes request = Frame({1, 6, 0, 1, 0, 3});
    const Bytes exception = Frame({1, 0x86, 2});
    const Bytes last = Frame({5, 4, 0, 0, 0, 1});
    Start();
    WriteWithGaps({unanswered, request, exception, last}, 15);
    StopAfter(HexDump(exception));
    Pause(50);
    EXPECT_EQ(FrameLines(), (std::vector<std::string>{
                                "request unit 5 FC04 Read Input Registers, address 0, count 1: unanswered | 05 04 00 "
                                "00 00 01 30 4E",
                                "request unit 1 FC06 Write Single Register, address 1, values 3: ok | 01 06 00 01 00 "
                                "03 98 0B",
                                "response unit 1 FC06 Write Single Register, exception 2: exception | 01 86 02 C3 A1",
                                "request unit 5 FC04 Read Input Registers, address 0, count 1: unanswered | 05 04 00 "
                                "00 00 01 30 4E"}));
    EXPECT_EQ(StatisticsLines(), (std::vector<std::string>{kStatisticsHeader, "1;1;1;1;0;0;T;T;T", "5;2;0;0;2;0;;;",
                                                           "noise bytes skipped: 0"}));
    const std::vector<std::string> csv = CsvLines();
    ASSERT_EQ(csv.size(), 5u);
    EXPECT_TRUE(std::regex_match(csv[3].substr(24),
                                 std::regex(R"(;response;1;6;FC06 Write Single Register;;;;2;exception;\d+\.\d;)"
                                             R"(01 86 02 C3 A1)")))
        << csv[3];
}

TEST_F(MonitorCli, Fc08And2BAreRecoveredByTheirCrc) {
    const auto all = EveryFunctionCode();
    std::vector<Exchange> exchanges;
    for (const Exchange& e : all)
        if (e.request[1] == 8 || e.request[1] == 43) exchanges.push_back(e);
    ASSERT_EQ(exchanges.size(), 2u);
    Start();
    WriteWithGaps(FramesOf(exchanges), 15);
    ASSERT_TRUE(line.Write(Join(FramesOf(exchanges))));
    WaitForLines(8);
    StopAfter(HexDump(exchanges.back().response));
    std::vector<std::string> expected = ExpectedLines(exchanges);
    const std::vector<std::string> twice = ExpectedLines(exchanges);
    expected.insert(expected.end(), twice.begin(), twice.end());
    EXPECT_EQ(FrameLines(), expected);
}

TEST_F(MonitorCli, TenThousandFramesInARow) {
    const auto all = EveryFunctionCode();
    std::vector<Bytes> frames;
    for (size_t i = 0; frames.size() < 10000; ++i) {
        frames.push_back(all[i % all.size()].request);
        frames.push_back(all[i % all.size()].response);
    }
    const Bytes stream = Join(frames);
    Start({"--quiet"});
    // One burst, as fast as the line takes it.
    ASSERT_TRUE(line.WriteAll(stream, 20000));
    // The last response completes the last pair: wait until the CSV holds every row.
    for (int i = 0; i < 400 && CsvLines().size() < 1 + frames.size(); ++i) Pause(25);
    StopAfter("");
    EXPECT_TRUE(FrameLines().empty());
    EXPECT_EQ(StatisticsLines(), (std::vector<std::string>{kStatisticsHeader, "1;1878;1878;0;0;0;T;T;T",
                                                           "2;1250;1250;0;0;0;T;T;T", "17;1872;1872;0;0;0;T;T;T",
                                                           "noise bytes skipped: 0"}));
    const std::vector<std::string> csv = CsvLines();
    ASSERT_EQ(csv.size(), 1 + frames.size());
    for (size_t i = 0; i < frames.size(); ++i) {
        const std::string& row = csv[1 + i];
        ASSERT_EQ(row.substr(row.rfind(';') + 1), HexDump(frames[i])) << "row " << i;
        ASSERT_NE(row.find(i % 2 == 0 ? ";request;" : ";response;"), std::string::npos) << row;
    }
}

TEST_F(MonitorCli, TheCapturesSurviveAKill) {
    const auto all = EveryFunctionCode();
    const std::vector<Exchange> exchanges(all.begin(), all.begin() + 4);
    Start();
    WriteWithGaps(FramesOf(exchanges), 15);
    ASSERT_TRUE(monitor->WaitForOutput(HexDump(exchanges.back().response), 20000)) << monitor->Stdout();
    monitor->Signal(SIGKILL);
    EXPECT_EQ(monitor->Wait(20000), 128 + SIGKILL);
    // Every frame is in both files already, the PCAP whole record by record.
    EXPECT_EQ(CsvLines().size(), 1 + 2 * exchanges.size());
    std::ifstream in(dir + "/bus.pcap", std::ios::binary);
    const std::string pcap((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    size_t expectedSize = 24;
    for (const Bytes& f : FramesOf(exchanges)) expectedSize += 16 + 54 + f.size();
    EXPECT_EQ(pcap.size(), expectedSize);
    if (!HaveProgram("tshark")) GTEST_SKIP() << "tshark is not installed";
    const CommandResult decoded = RunCommand({"tshark", "-r", dir + "/bus.pcap", "-d", "tcp.port==502,mbrtu", "-T",
                                              "fields", "-e", "mbrtu.unit_id", "-e", "modbus.func_code"});
    std::vector<std::string> expected;
    for (const Bytes& f : FramesOf(exchanges)) expected.push_back(std::to_string(f[0]) + "\t" + std::to_string(f[1]));
    EXPECT_EQ(SplitLines(decoded.out), expected);
}

TEST_F(MonitorCli, AFileThatCannotBeCreatedEndsWithExitCode1) {
    const CommandResult r = RunCommand({KESTREL_CLI_PATH, "--lang", "en", "monitor", "--rtu", line.DeviceName(),
                                        "--csv", dir + "/no/such/folder/bus.csv"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "Could not create " + dir + "/no/such/folder/bus.csv\n");
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(line.Read(1, 100), Bytes{});
}

TEST(MonitorCliUsage, WithoutADeviceItIsAUsageError) {
    const CommandResult r = RunCommand({KESTREL_CLI_PATH, "--lang", "en", "monitor", "--baud", "9600"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(SplitLines(r.err).front(), "kestrel-cli: monitor needs --rtu DEVICE");
}

TEST(MonitorCliUsage, APortThatDoesNotOpenEndsWithExitCode1) {
    const CommandResult r = RunCommand({KESTREL_CLI_PATH, "--lang", "en", "monitor", "--rtu", "/nonexistent/tty"});
    EXPECT_EQ(r.exitCode, 1);
    EXPECT_EQ(r.err, "Could not open serial port.\n");
    EXPECT_EQ(r.out, "");
}

TEST(MonitorCliUsage, HelpNamesEveryOptionAndTheTsharkOption) {
    const CommandResult r = RunCommand({KESTREL_CLI_PATH, "monitor", "--help"});
    EXPECT_EQ(r.exitCode, 0);
    for (const char* option : {"--rtu", "--baud", "--parity", "--stop-bits", "--pcap", "--csv", "--duration", "--quiet",
                               "-d tcp.port==502,mbrtu"}) {
        EXPECT_NE(r.out.find(option), std::string::npos) << option;
    }
}

#endif
