// The scanner's core in-process, over real loopback sockets: unit ids against our own slave (TCP
// and RTU over TCP) and a scripted gateway that closes, register maps against our slave's exception
// injection, stop and progress, and the three output formats byte for byte. Runs natively and
// under Wine.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>

#include "common/localizer.h"
#include "protocol/modbus_client.h"
#include "scan/scanner.h"
#include "support/scripted_tcp_peer.h"

namespace {

using Lines = std::vector<std::string>;

class ScanCore : public testing::Test {
protected:
    void SetUp() override { Localizer::SetAllLanguages(1); }
    void TearDown() override {
        slave.Disconnect();
        Localizer::SetAllLanguages(0);
    }

    // Our slave, unit 3, holding registers 0..2 = 17, 18, 19, on a free port.
    ConnectionConfig StartSlave(int32_t transport) {
        ConnectionConfig config;
        config.transport = transport;
        config.role = 1;
        config.port = 0;
        config.unitId = 3;
        EXPECT_TRUE(slave.Connect(config));
        slave.Image().SetHoldingRegisters(0, {17, 18, 19});
        ConnectionConfig master;
        master.transport = transport;
        master.port = slave.ListeningPort();
        return master;
    }

    std::unique_ptr<scan::Prober> MakeProber(const ConnectionConfig& config, uint32_t timeoutMs) {
        return std::make_unique<scan::Prober>(
            client, config, timeoutMs, [this](const std::string& line) { connectionLines.push_back(line); },
            [this](const std::string& line) { probeLines.push_back(line); });
    }

    ModbusClient slave;
    ModbusClient client;
    Lines connectionLines;
    Lines probeLines;
};

TEST_F(ScanCore, UnitIdsOfOurTcpSlave) {
    const ConnectionConfig config = StartSlave(kTransportTcp);
    auto prober = MakeProber(config, 100);
    ASSERT_TRUE(prober->Connect());
    scan::UnitScanOptions options;
    options.firstUnit = 2;
    options.lastUnit = 4;
    options.count = 2;
    const scan::UnitScanResult result = scan::ScanUnits(*prober, options, {});
    prober->Disconnect();
    ASSERT_EQ(result.units.size(), 3u);
    EXPECT_EQ(result.units[0].status, scan::UnitStatus::Silent);
    EXPECT_EQ(result.units[1].status, scan::UnitStatus::Answering);
    EXPECT_EQ(result.units[1].values, (std::vector<uint16_t>{17, 18}));
    EXPECT_EQ(result.units[2].status, scan::UnitStatus::Silent);
    EXPECT_EQ(result.requests, 3u);
    EXPECT_FALSE(result.interrupted);
    EXPECT_FALSE(result.connectionLost);
    // The connection's lines apart from the probes' TX/RX and failure lines.
    EXPECT_EQ(connectionLines, (Lines{"Connecting to 127.0.0.1:" + std::to_string(config.port) + " ...", "Connected.",
                                      "Disconnected."}));
    EXPECT_EQ(probeLines.front(), "TX: 00 00 00 00 00 06 02 03 00 00 00 02");
    EXPECT_EQ(probeLines[2], "ReadHoldingRegisters failed.");
}

TEST_F(ScanCore, UnitIdsOfOurRtuOverTcpSlaveWithBitsAndAnException) {
    const ConnectionConfig config = StartSlave(kTransportRtuOverTcp);
    slave.Image().SetCoils(5, {true, false, true});
    auto prober = MakeProber(config, 100);
    ASSERT_TRUE(prober->Connect());
    scan::UnitScanOptions options;
    options.firstUnit = 3;
    options.lastUnit = 3;
    options.functionCode = 1;
    options.address = 5;
    options.count = 3;
    scan::UnitScanResult result = scan::ScanUnits(*prober, options, {});
    ASSERT_EQ(result.units.size(), 1u);
    EXPECT_EQ(result.units[0].values, (std::vector<uint16_t>{1, 0, 1}));

    slave.exceptionInjectionEnabled = true;
    slave.exceptionInjectionCode = 0x0B;
    slave.exceptionInjectionFrom = 5;
    slave.exceptionInjectionTo = 5;
    result = scan::ScanUnits(*prober, options, {});
    EXPECT_EQ(result.units[0].status, scan::UnitStatus::NoDevice);
    EXPECT_EQ(result.units[0].exceptionCode, 0x0B);
    slave.exceptionInjectionCode = 4;
    result = scan::ScanUnits(*prober, options, {});
    EXPECT_EQ(result.units[0].status, scan::UnitStatus::Exception);
    EXPECT_EQ(result.units[0].exceptionCode, 4);
    EXPECT_EQ(prober->Requests(), 3u);
}

TEST_F(ScanCore, APeerThatClosesIsReconnectedAndTheProbeRepeated) {
    // Answers unit 1 on the first connection and closes; answers again on the second.
    const ScriptedTcpPeer::Bytes answer = {0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x01, 0x03, 0x02, 0x00, 0x07};
    ScriptedTcpPeer gateway([answer](ScriptedTcpPeer& p) {
        if (!p.Accept()) return;
        ScriptedTcpPeer::Bytes request = p.ReceiveTcpRequest();
        ScriptedTcpPeer::Bytes response = answer;
        response[0] = request[0];
        response[1] = request[1];
        p.Send(response);
        p.CloseClient();
        if (!p.Accept()) return;
        request = p.ReceiveTcpRequest();
        response[0] = request[0];
        response[1] = request[1];
        response[6] = request[6];
        p.Send(response);
        p.Receive(1);
    });
    ConnectionConfig config;
    config.port = gateway.Port();
    auto prober = MakeProber(config, 1000);
    ASSERT_TRUE(prober->Connect());
    scan::UnitScanOptions options;
    options.firstUnit = 1;
    options.lastUnit = 2;
    const scan::UnitScanResult result = scan::ScanUnits(*prober, options, {});
    ASSERT_EQ(result.units.size(), 2u);
    EXPECT_EQ(result.units[0].values, (std::vector<uint16_t>{7}));
    EXPECT_EQ(result.units[1].status, scan::UnitStatus::Answering);
    EXPECT_EQ(result.requests, 3u);  // unit 2 twice: lost, then again after the reconnect
    const std::string port = std::to_string(gateway.Port());
    EXPECT_EQ(connectionLines, (Lines{"Connecting to 127.0.0.1:" + port + " ...", "Connected.",
                                      "Scan: the peer closed the connection at unit 2, reconnecting ...",
                                      "Disconnected.", "Connecting to 127.0.0.1:" + port + " ...", "Connected."}));
}

TEST_F(ScanCore, RegisterMapAgainstInjectionByStartAddress) {
    // Our slave refuses a read whose start address lies in 100..199, whatever it covers: blocks
    // starting below 100 read, and every start in 100..199 is refused on its own.
    const ConnectionConfig config = StartSlave(kTransportTcp);
    slave.exceptionInjectionEnabled = true;
    slave.exceptionInjectionCode = 2;
    slave.exceptionInjectionFrom = 100;
    slave.exceptionInjectionTo = 199;
    auto prober = MakeProber(config, 500);
    ASSERT_TRUE(prober->Connect());
    scan::RegisterScanOptions options;
    options.unit = 3;
    options.from = 0;
    options.to = 299;
    const scan::RegisterScanResult result = scan::ScanRegisters(*prober, options, {});
    ASSERT_EQ(result.ranges.size(), 2u);
    EXPECT_EQ(result.ranges[0].first, 0);
    EXPECT_EQ(result.ranges[0].last, 124);
    EXPECT_EQ(result.ranges[1].first, 200);
    EXPECT_EQ(result.ranges[1].last, 299);
    // Block 0-124 reads; block 125-249 splits down to 125..199 refused one by one and 200-249 read
    // in a few pieces; block 250-299 reads. Far below 300 single reads, above the 3 blocks.
    EXPECT_GT(result.requests, 3u);
    EXPECT_LT(result.requests, 200u);
}

TEST_F(ScanCore, StopBetweenProbesAndProgress) {
    const ConnectionConfig config = StartSlave(kTransportTcp);
    auto prober = MakeProber(config, 100);
    ASSERT_TRUE(prober->Connect());
    scan::ScanControl control;
    int progressCalls = 0;
    scan::ScanProgress last;
    control.progressIntervalMs = 0;  // every probe
    control.onProgress = [&](const scan::ScanProgress& p) {
        ++progressCalls;
        last = p;
    };
    control.stopRequested = [&] { return progressCalls >= 3; };
    scan::UnitScanOptions options;
    options.firstUnit = 1;
    options.lastUnit = 10;
    const scan::UnitScanResult result = scan::ScanUnits(*prober, options, control);
    EXPECT_TRUE(result.interrupted);
    EXPECT_EQ(result.units.size(), 3u);
    EXPECT_EQ(last.done, 3u);
    EXPECT_EQ(last.total, 10u);
    EXPECT_EQ(last.found, 1u);  // unit 3
}

TEST(ScanFormats, UnitsInTheThreeFormats) {
    scan::UnitScanResult result;
    result.units = {{1, scan::UnitStatus::Silent, 0, {}},
                    {3, scan::UnitStatus::Answering, 0, {17, 18}},
                    {4, scan::UnitStatus::NoDevice, 0x0B, {}},
                    {12, scan::UnitStatus::Exception, 2, {}}};
    result.requests = 4;
    result.seconds = 12.43;
    EXPECT_EQ(scan::FormatUnits(result, "json"),
              "{\"units\": [\n"
              "  {\"unit\": 1, \"status\": \"silent\", \"exception\": null, \"values\": []},\n"
              "  {\"unit\": 3, \"status\": \"answering\", \"exception\": null, \"values\": [17, 18]},\n"
              "  {\"unit\": 4, \"status\": \"no-device\", \"exception\": 11, \"values\": []},\n"
              "  {\"unit\": 12, \"status\": \"exception\", \"exception\": 2, \"values\": []}\n"
              "], \"requests\": 4, \"seconds\": 12.4}\n");
    EXPECT_EQ(scan::FormatUnits(result, "csv"),
              "unit;status;exception;values\n1;silent;;\n3;answering;;17 18\n4;no-device;11;\n12;exception;2;\n");
    EXPECT_EQ(scan::FormatUnits(result, "table"),
              "unit  status     exception  values\n"
              "   3  answering             17 18\n"
              "  12  exception  2\n"
              "4 ids probed: 1 answering, 1 exception, 1 no-device, 1 silent\n"
              "4 requests in 12.4 s\n");
    EXPECT_EQ(scan::FormatUnits(scan::UnitScanResult{}, "json"), "{\"units\": [], \"requests\": 0, \"seconds\": 0.0}\n");
}

TEST(ScanFormats, RangesInTheThreeFormats) {
    scan::RegisterScanResult result;
    result.ranges = {{0, 9}, {12, 12}, {40000, 65535}};
    result.requests = 208;
    result.seconds = 0.75;
    scan::RegisterScanOptions options;
    options.unit = 1;
    options.functionCode = 4;
    options.from = 0;
    options.to = 65535;
    EXPECT_EQ(scan::FormatRegisters(result, options, "json"),
              "{\"unit\": 1, \"fc\": 4, \"ranges\": [\n"
              "  {\"first\": 0, \"last\": 9, \"count\": 10},\n"
              "  {\"first\": 12, \"last\": 12, \"count\": 1},\n"
              "  {\"first\": 40000, \"last\": 65535, \"count\": 25536}\n"
              "], \"requests\": 208, \"seconds\": 0.8}\n");
    EXPECT_EQ(scan::FormatRegisters(result, options, "csv"), "first;last;count\n0;9;10\n12;12;1\n40000;65535;25536\n");
    EXPECT_EQ(scan::FormatRegisters(result, options, "table"),
              "first   last  count\n"
              "    0      9     10\n"
              "   12     12      1\n"
              "40000  65535  25536\n"
              "unit 1, FC04, 0-65535: 3 ranges, 25547 addresses readable\n"
              "208 requests in 0.8 s\n");
}

}  // namespace
