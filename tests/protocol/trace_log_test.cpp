#include "protocol/trace_log.h"

#include <gtest/gtest.h>

#include <atomic>

using Bytes = std::vector<uint8_t>;
using Modbus::CommStatistics;
using Modbus::TraceFrame;

namespace {

const Bytes kGlobalHeader{0xD4, 0xC3, 0xB2, 0xA1, 0x02, 0x00, 0x04, 0x00, 0x00, 0x00, 0x00, 0x00,
                          0x00, 0x00, 0x00, 0x00, 0xFF, 0xFF, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00};

const Bytes kFc03Request{0x00, 0x01, 0x00, 0x00, 0x00, 0x06, 0x01, 0x03, 0x00, 0x00, 0x00, 0x0A};

TraceFrame Frame(bool timeout, bool crc, bool exception, int64_t latency = 0) {
    TraceFrame f;
    f.request = kFc03Request;
    f.isTimeout = timeout;
    f.isCrcError = crc;
    f.isException = exception;
    f.latencyMs = latency;
    return f;
}

Bytes Slice(const Bytes& bytes, size_t from, size_t count) {
    return Bytes(bytes.begin() + static_cast<std::ptrdiff_t>(from),
                 bytes.begin() + static_cast<std::ptrdiff_t>(from + count));
}

uint32_t Le32(const Bytes& b, size_t at) {
    return static_cast<uint32_t>(b[at]) | (static_cast<uint32_t>(b[at + 1]) << 8) |
           (static_cast<uint32_t>(b[at + 2]) << 16) | (static_cast<uint32_t>(b[at + 3]) << 24);
}

uint16_t Be16(const Bytes& b, size_t at) { return static_cast<uint16_t>((b[at] << 8) | b[at + 1]); }

uint32_t Be32(const Bytes& b, size_t at) {
    return (static_cast<uint32_t>(b[at]) << 24) | (static_cast<uint32_t>(b[at + 1]) << 16) |
           (static_cast<uint32_t>(b[at + 2]) << 8) | static_cast<uint32_t>(b[at + 3]);
}

// Offsets inside a record (after its 16-byte header).
constexpr size_t kIpStart = 16 + 14;
constexpr size_t kTcpStart = kIpStart + 20;
constexpr size_t kPayloadStart = kTcpStart + 20;

}  // namespace

// --- PCAP layout ---

TEST(TracePcap, EmptyLogGivesOnlyThe24ByteGlobalHeader) {
    TraceLog log;
    EXPECT_EQ(log.BuildPcap("10.0.0.1", 502), kGlobalHeader);
    EXPECT_EQ(log.BuildPcap(), kGlobalHeader);
}

TEST(TracePcap, TwelveByteRequestGivesA66BytePacketWithIpTotalLength52) {
    TraceLog log;
    TraceFrame f;
    f.timestamp = 1700000000123;
    f.request = kFc03Request;
    log.Append(f);
    const Bytes pcap = log.BuildPcap("10.0.0.100", 1502);

    Bytes expected = kGlobalHeader;
    const Bytes record{
        // record header: seconds 1700000000, microseconds 123000, lengths 66 and 66
        0x00, 0xF1, 0x53, 0x65, 0x78, 0xE0, 0x01, 0x00, 0x42, 0x00, 0x00, 0x00, 0x42, 0x00, 0x00, 0x00,
        // Ethernet
        0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00, 0x00, 0x00, 0x00, 0x00, 0x01, 0x08, 0x00,
        // IPv4: total length 52, id 0, DF, TTL 64, TCP, checksum 0, 192.168.1.1 -> 10.0.0.100
        0x45, 0x00, 0x00, 0x34, 0x00, 0x00, 0x40, 0x00, 0x40, 0x06, 0x00, 0x00, 0xC0, 0xA8, 0x01, 0x01, 0x0A, 0x00,
        0x00, 0x64,
        // TCP: 5000 -> 1502, seq 0, ack 0, offset 0x50, PSH+ACK, window FFFF, checksum 0, urgent 0
        0x13, 0x88, 0x05, 0xDE, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x50, 0x18, 0xFF, 0xFF, 0x00, 0x00,
        0x00, 0x00};
    expected.insert(expected.end(), record.begin(), record.end());
    expected.insert(expected.end(), kFc03Request.begin(), kFc03Request.end());
    EXPECT_EQ(pcap, expected);
    EXPECT_EQ(pcap.size(), 24u + 16u + 66u);
}

TEST(TracePcap, RequestWithoutResponseGivesOneRecord) {
    TraceLog log;
    log.Append(Frame(true, false, false));
    const Bytes pcap = log.BuildPcap("127.0.0.1", 502);
    EXPECT_EQ(pcap.size(), 24u + 16u + 54u + 12u);
}

TEST(TracePcap, ResponseRecordSwapsPortsKeepsAddressesAndAddsLatency) {
    TraceLog log;
    TraceFrame f;
    f.timestamp = 1000;
    f.latencyMs = 2500;  // response at 3.5 s
    f.request = kFc03Request;
    f.response = {0x00, 0x01, 0x00, 0x00, 0x00, 0x05, 0x01, 0x03, 0x02, 0x12, 0x34};
    log.Append(f);
    const Bytes pcap = log.BuildPcap("172.16.5.9", 1502);
    ASSERT_EQ(pcap.size(), 24u + (16u + 54u + 12u) + (16u + 54u + 11u));

    const Bytes req = Slice(pcap, 24, 16 + 54 + 12);
    const Bytes rsp = Slice(pcap, 24 + 16 + 54 + 12, 16 + 54 + 11);
    EXPECT_EQ(Le32(req, 0), 1u);
    EXPECT_EQ(Le32(req, 4), 0u);
    EXPECT_EQ(Le32(rsp, 0), 3u);
    EXPECT_EQ(Le32(rsp, 4), 500000u);
    EXPECT_EQ(Le32(rsp, 8), 65u);
    EXPECT_EQ(Le32(rsp, 12), 65u);
    EXPECT_EQ(Be16(rsp, kIpStart + 2), 51u);

    // Both directions: source 192.168.1.1, destination the device.
    for (const Bytes* r : {&req, &rsp}) {
        EXPECT_EQ(Slice(*r, kIpStart + 12, 8), (Bytes{192, 168, 1, 1, 172, 16, 5, 9}));
    }
    EXPECT_EQ(Be16(req, kTcpStart), 5000u);
    EXPECT_EQ(Be16(req, kTcpStart + 2), 1502u);
    EXPECT_EQ(Be16(rsp, kTcpStart), 1502u);
    EXPECT_EQ(Be16(rsp, kTcpStart + 2), 5000u);
    // One index per frame: both records carry identification 0 and sequence 0.
    EXPECT_EQ(Be16(rsp, kIpStart + 4), 0u);
    EXPECT_EQ(Be32(rsp, kTcpStart + 4), 0u);
    EXPECT_EQ(Slice(rsp, kPayloadStart, 11), f.response);
}

TEST(TracePcap, PacketIndexCountsFramesNotRecords) {
    TraceLog log;
    for (int i = 0; i < 3; ++i) {
        TraceFrame f = Frame(false, false, false);
        f.response = {0x00, 0x01, 0x00, 0x00, 0x00, 0x03, 0x01, 0x83, 0x02};
        log.Append(f);
    }
    const Bytes pcap = log.BuildPcap("1.2.3.4", 502);
    const size_t requestRecord = 16 + 54 + 12;
    const size_t responseRecord = 16 + 54 + 9;
    ASSERT_EQ(pcap.size(), 24 + 3 * (requestRecord + responseRecord));
    for (uint32_t i = 0; i < 3; ++i) {
        const size_t at = 24 + i * (requestRecord + responseRecord);
        const Bytes req = Slice(pcap, at, requestRecord);
        const Bytes rsp = Slice(pcap, at + requestRecord, responseRecord);
        EXPECT_EQ(Be16(req, kIpStart + 4), i);
        EXPECT_EQ(Be16(rsp, kIpStart + 4), i);
        EXPECT_EQ(Be32(req, kTcpStart + 4), i * 100);
        EXPECT_EQ(Be32(rsp, kTcpStart + 4), i * 100);
    }
}

TEST(TracePcap, FrameWithResponseOnlyGivesOneRecordAndStillTakesAnIndex) {
    TraceLog log;
    TraceFrame empty;
    log.Append(empty);  // neither request nor response: no record, index 0 used up
    TraceFrame onlyResponse;
    onlyResponse.response = {0x01, 0x03, 0x02, 0x00, 0x07, 0xF9, 0x86};
    log.Append(onlyResponse);
    const Bytes pcap = log.BuildPcap("1.2.3.4", 502);
    ASSERT_EQ(pcap.size(), 24u + 16u + 54u + 7u);
    const Bytes rsp = Slice(pcap, 24, 16 + 54 + 7);
    EXPECT_EQ(Be16(rsp, kIpStart + 4), 1u);
    EXPECT_EQ(Be32(rsp, kTcpStart + 4), 100u);
    EXPECT_EQ(Be16(rsp, kTcpStart), 502u);
}

TEST(TracePcap, RtuFrameIsWrappedUnchanged) {
    TraceLog log;
    TraceFrame f;
    f.isRtu = true;
    f.request = {0x01, 0x03, 0x00, 0x00, 0x00, 0x0A, 0xC5, 0xCD};
    log.Append(f);
    const Bytes pcap = log.BuildPcap("1.2.3.4", 502);
    ASSERT_EQ(pcap.size(), 24u + 16u + 54u + 8u);
    EXPECT_EQ(Slice(pcap, 24 + kPayloadStart, 8), f.request);
    EXPECT_EQ(Be16(pcap, 24 + kIpStart + 2), 48u);
}

TEST(TracePcap, TimestampSplitsIntoSecondsAndMicroseconds) {
    TraceLog log;
    TraceFrame f = Frame(false, false, false);
    f.timestamp = 1234567;
    log.Append(f);
    const Bytes pcap = log.BuildPcap("1.2.3.4", 502);
    EXPECT_EQ(Le32(pcap, 24), 1234u);
    EXPECT_EQ(Le32(pcap, 28), 567000u);
}

namespace {
Bytes Destination(const std::string& ip) {
    TraceLog log;
    log.Append(Frame(false, false, false));
    return Slice(log.BuildPcap(ip, 502), 24 + kIpStart + 16, 4);
}
}  // namespace

TEST(TracePcap, ConnectionIpWithThreePartsKeepsTheFourthFromDefault) {
    EXPECT_EQ(Destination("10.0.0"), (Bytes{10, 0, 0, 100}));
}

TEST(TracePcap, UnparsableIpPartsKeepTheirDefaults) {
    EXPECT_EQ(Destination(""), (Bytes{192, 168, 1, 100}));
    EXPECT_EQ(Destination("device"), (Bytes{192, 168, 1, 100}));
    EXPECT_EQ(Destination("10.x.3.4"), (Bytes{10, 168, 1, 100}));
    EXPECT_EQ(Destination("172.16.5.9"), (Bytes{172, 16, 5, 9}));
    EXPECT_EQ(Destination("127.0.0.1"), (Bytes{127, 0, 0, 1}));
}

TEST(TracePcap, NoArgumentFormUsesTheStoredEndpoint) {
    TraceLog log;
    log.Append(Frame(false, false, false));
    Bytes pcap = log.BuildPcap();
    EXPECT_EQ(Slice(pcap, 24 + kIpStart + 16, 4), (Bytes{192, 168, 1, 100}));
    EXPECT_EQ(Be16(pcap, 24 + kTcpStart + 2), 502u);
    log.SetPcapEndpoint("10.1.2.3", 1502);
    pcap = log.BuildPcap();
    EXPECT_EQ(Slice(pcap, 24 + kIpStart + 16, 4), (Bytes{10, 1, 2, 3}));
    EXPECT_EQ(Be16(pcap, 24 + kTcpStart + 2), 1502u);
    EXPECT_EQ(pcap, log.BuildPcap("10.1.2.3", 1502));
}

// --- statistics ---

TEST(TraceStatistics, EmptyLogIsAllZeros) {
    TraceLog log;
    const CommStatistics s = log.ComputeStatistics();
    EXPECT_EQ(s.total, 0u);
    EXPECT_EQ(s.ok, 0u);
    EXPECT_EQ(s.timeouts, 0u);
    EXPECT_EQ(s.crcErrors, 0u);
    EXPECT_EQ(s.exceptions, 0u);
    EXPECT_EQ(s.avgLatencyMs, 0.0);
    EXPECT_EQ(s.minLatencyMs, 0.0);
    EXPECT_EQ(s.maxLatencyMs, 0.0);
}

TEST(TraceStatistics, RequestWithoutResponseCountsByItsFlagsAlone) {
    TraceLog plain;
    plain.Append(Frame(false, false, false));
    EXPECT_EQ(plain.ComputeStatistics().ok, 1u);
    EXPECT_EQ(plain.ComputeStatistics().timeouts, 0u);

    TraceLog timedOut;
    timedOut.Append(Frame(true, false, false));
    EXPECT_EQ(timedOut.ComputeStatistics().timeouts, 1u);
    EXPECT_EQ(timedOut.ComputeStatistics().ok, 0u);
}

TEST(TraceStatistics, EachFrameCountsOnceTimeoutFirst) {
    TraceLog log;
    log.Append(Frame(true, true, true));    // timeout
    log.Append(Frame(true, false, false));  // timeout
    log.Append(Frame(false, true, true));   // CRC error, not an exception
    log.Append(Frame(false, false, true));  // OK and exception
    log.Append(Frame(false, false, false)); // OK
    const CommStatistics s = log.ComputeStatistics();
    EXPECT_EQ(s.total, 5u);
    EXPECT_EQ(s.timeouts, 2u);
    EXPECT_EQ(s.crcErrors, 1u);
    EXPECT_EQ(s.ok, 2u);
    EXPECT_EQ(s.exceptions, 1u);
}

TEST(TraceStatistics, ZeroLatencyIsLeftOutOfTheLatencyFiguresButCounted) {
    TraceLog log;
    log.Append(Frame(false, false, false, 0));
    log.Append(Frame(false, false, false, 10));
    log.Append(Frame(true, false, false, 30));  // a timed-out frame's latency counts too
    log.Append(Frame(false, false, false, 0));
    const CommStatistics s = log.ComputeStatistics();
    EXPECT_EQ(s.total, 4u);
    EXPECT_DOUBLE_EQ(s.avgLatencyMs, 20.0);
    EXPECT_DOUBLE_EQ(s.minLatencyMs, 10.0);
    EXPECT_DOUBLE_EQ(s.maxLatencyMs, 30.0);
}

TEST(TraceStatistics, OnlyZeroOrNegativeLatenciesLeaveTheFiguresZero) {
    TraceLog log;
    log.Append(Frame(false, false, false, 0));
    log.Append(Frame(false, false, false, -5));
    const CommStatistics s = log.ComputeStatistics();
    EXPECT_EQ(s.total, 2u);
    EXPECT_EQ(s.ok, 2u);
    EXPECT_EQ(s.avgLatencyMs, 0.0);
    EXPECT_EQ(s.minLatencyMs, 0.0);
    EXPECT_EQ(s.maxLatencyMs, 0.0);
}

TEST(TraceStatistics, AverageIsNotRounded) {
    TraceLog log;
    log.Append(Frame(false, false, false, 1));
    log.Append(Frame(false, false, false, 2));
    log.Append(Frame(false, false, false, 2));
    EXPECT_DOUBLE_EQ(log.ComputeStatistics().avgLatencyMs, 5.0 / 3.0);
}

// --- the log itself ---

TEST(TraceLog, SnapshotIsACopyInOrder) {
    TraceLog log;
    for (int i = 0; i < 3; ++i) {
        TraceFrame f;
        f.sequence = static_cast<uint16_t>(i + 1);
        log.Append(f);
    }
    std::deque<TraceFrame> copy = log.Snapshot();
    ASSERT_EQ(copy.size(), 3u);
    EXPECT_EQ(copy[0].sequence, 1);
    EXPECT_EQ(copy[2].sequence, 3);
    copy.clear();
    EXPECT_EQ(log.Size(), 3u);
}

TEST(TraceLog, ClearEmptiesTheLogAndTheStatistics) {
    TraceLog log;
    log.Append(Frame(false, false, true, 7));
    log.Clear();
    EXPECT_EQ(log.Size(), 0u);
    EXPECT_EQ(log.ComputeStatistics().total, 0u);
    EXPECT_EQ(log.ComputeStatistics().avgLatencyMs, 0.0);
    EXPECT_EQ(log.BuildPcap("1.2.3.4", 502), kGlobalHeader);
}

TEST(TraceLog, KeepsTheNewestFramesUpToItsCapacity) {
    TraceLog log(3);
    for (uint16_t i = 1; i <= 5; ++i) {
        TraceFrame f;
        f.sequence = i;
        log.Append(f);
    }
    const std::deque<TraceFrame> frames = log.Snapshot();
    ASSERT_EQ(frames.size(), 3u);
    EXPECT_EQ(frames[0].sequence, 3);
    EXPECT_EQ(frames[2].sequence, 5);
    log.SetCapacity(1);
    ASSERT_EQ(log.Size(), 1u);
    EXPECT_EQ(log.Snapshot()[0].sequence, 5);
    log.SetCapacity(0);
    EXPECT_EQ(log.Capacity(), 1u);
}

TEST(TraceLog, DefaultCapacityIsTenThousand) {
    TraceLog log;
    EXPECT_EQ(log.Capacity(), 10000u);
    for (int i = 0; i < 10005; ++i) log.Append(Frame(false, false, false, i));
    EXPECT_EQ(log.Size(), 10000u);
    EXPECT_EQ(log.Snapshot().front().latencyMs, 5);
    EXPECT_EQ(log.ComputeStatistics().total, 10000u);
}

TEST(TraceLog, RecordAppendsBeforeItCallsTheCallback) {
    TraceLog log;
    std::vector<size_t> sizesSeen;
    std::vector<uint16_t> sequencesSeen;
    log.SetCallback([&](const TraceFrame& f) {
        // The callback may read the log: it runs outside the log's mutex.
        sizesSeen.push_back(log.Snapshot().size());
        sequencesSeen.push_back(f.sequence);
    });
    TraceFrame f;
    f.sequence = 41;
    log.Record(f);
    f.sequence = 42;
    log.Record(f);
    EXPECT_EQ(sizesSeen, (std::vector<size_t>{1, 2}));
    EXPECT_EQ(sequencesSeen, (std::vector<uint16_t>{41, 42}));

    log.SetCallback(nullptr);
    log.Record(f);
    EXPECT_EQ(sizesSeen.size(), 2u);
    EXPECT_EQ(log.Size(), 3u);
}

TEST(TraceLog, GlobalLogAndCallbackAreProcessWide) {
    TraceLog& log = GlobalTraceLog();
    EXPECT_EQ(&log, &GlobalTraceLog());
    log.Clear();
    std::atomic<int> calls{0};
    SetTraceCallback([&](const TraceFrame&) { ++calls; });
    RecordTrace(Frame(false, false, false));
    SetTraceCallback(nullptr);
    RecordTrace(Frame(false, false, false));
    EXPECT_EQ(calls.load(), 1);
    EXPECT_EQ(log.Size(), 2u);
    log.Clear();
}

TEST(TraceLog, SequenceNumbersRunOn) {
    const uint16_t a = NextTraceSequence();
    const uint16_t b = NextTraceSequence();
    EXPECT_EQ(static_cast<uint16_t>(a + 1), b);
}

// --- helpers for the list view ---

TEST(TraceFrameHelpers, UnitIdFollowsTheFraming) {
    TraceFrame tcp;
    tcp.request = {0x00, 0x05, 0x00, 0x00, 0x00, 0x06, 0x11, 0x03, 0x00, 0x00, 0x00, 0x01};
    EXPECT_EQ(Modbus::TraceUnitId(tcp), 0x11);
    TraceFrame rtu;
    rtu.isRtu = true;
    rtu.request = {0x07, 0x03, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00};
    EXPECT_EQ(Modbus::TraceUnitId(rtu), 7);
    EXPECT_EQ(Modbus::TraceUnitId(TraceFrame{}), 0);
}

TEST(TraceFrameHelpers, AddressTextIsAddressColonPortOrTheSerialPort) {
    TraceFrame tcp;
    tcp.peerAddress = 0xC0A8010A;
    tcp.peerPort = 502;
    EXPECT_EQ(Modbus::TraceAddressText(tcp), "192.168.1.10:502");
    TraceFrame rtu;
    rtu.isRtu = true;
    rtu.text = "COM3";
    EXPECT_EQ(Modbus::TraceAddressText(rtu), "COM3");
}

TEST(TraceFrameHelpers, ParseIpv4AddressAcceptsOnlyFourParts) {
    EXPECT_EQ(Modbus::ParseIpv4Address("192.168.1.10"), 0xC0A8010Au);
    EXPECT_EQ(Modbus::ParseIpv4Address("127.0.0.1"), 0x7F000001u);
    EXPECT_EQ(Modbus::ParseIpv4Address("0.0.0.0"), 0u);
    EXPECT_EQ(Modbus::ParseIpv4Address("10.0.0"), 0u);
    EXPECT_EQ(Modbus::ParseIpv4Address("256.1.1.1"), 0u);
    EXPECT_EQ(Modbus::ParseIpv4Address("1.2.3.4.5"), 0u);
    EXPECT_EQ(Modbus::ParseIpv4Address("1.2.3.4 "), 0u);
    EXPECT_EQ(Modbus::ParseIpv4Address("1..3.4"), 0u);
    EXPECT_EQ(Modbus::ParseIpv4Address("0001.2.3.4"), 0u);
    EXPECT_EQ(Modbus::ParseIpv4Address(""), 0u);
}
