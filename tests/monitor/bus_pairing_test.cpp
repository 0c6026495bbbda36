// Pairing, statistics and the texts of the bus monitor: directions, held requests, response
// times, the exact CSV rows, frame lines and statistics table.
#include <gtest/gtest.h>

#include "monitor/bus_pairing.h"
#include "monitor/monitor_test_frames.h"
#include "monitor/monitor_text.h"

using namespace monitor_test;
using Modbus::BusPairing;
using Modbus::MonitorRecord;
using Modbus::SplitFrame;

namespace {

// 2025-11-24T16:00:00.000Z
constexpr int64_t kWallUs = 1764000000000000;

class Pairing : public testing::Test {
protected:
    // A frame whose first byte came at `firstMs` and whose last byte came `lengthMs` later.
    void Add(const Bytes& bytes, int64_t firstMs, bool crcOk = true, int64_t lengthMs = 4) {
        SplitFrame frame{bytes, crcOk, firstMs * 1000, (firstMs + lengthMs) * 1000};
        pairing.Add(frame, kWallUs + firstMs * 1000);
    }
    // The frame lines without their time.
    std::vector<std::string> Lines() const {
        std::vector<std::string> lines;
        for (const MonitorRecord& r : records) lines.push_back(Modbus::FrameLine(r).substr(25));
        return lines;
    }
    std::string Table(uint64_t noise = 0) const { return Modbus::StatisticsTable(pairing.Statistics(), noise); }

    std::vector<MonitorRecord> records;
    BusPairing pairing{[this](const MonitorRecord& r) { records.push_back(r); }};
};

}  // namespace

TEST(MonitorText, IsoTimeIsUtcWithMilliseconds) {
    EXPECT_EQ(Modbus::IsoUtcTime(kWallUs + 123456), "2025-11-24T16:00:00.123Z");
    EXPECT_EQ(Modbus::IsoUtcTime(0), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(Modbus::IsoUtcTime(951782400999000), "2000-02-29T00:00:00.999Z");
}

TEST_F(Pairing, EveryFunctionCodePairsWithItsResponse) {
    int64_t t = 0;
    std::vector<std::string> expected;
    for (const Exchange& e : EveryFunctionCode()) {
        Add(e.request, t);
        Add(e.response, t + 10);
        t += 100;
        expected.push_back(e.requestText + " | " + HexDump(e.request));
        expected.push_back(e.responseText + ", 6.0 ms | " + HexDump(e.response));
    }
    pairing.Finish();
    EXPECT_EQ(Lines(), expected);
    EXPECT_EQ(Table(), "unit;requests;responses;exceptions;unanswered;crc_errors;rt_min_ms;rt_median_ms;rt_max_ms\n"
                       "1;6;6;0;0;0;6.0;6.0;6.0\n"
                       "2;4;4;0;0;0;6.0;6.0;6.0\n"
                       "17;6;6;0;0;0;6.0;6.0;6.0\n"
                       "noise bytes skipped: 0\n");
}

TEST_F(Pairing, ARequestIsHeldUntilItsResponseAndTheResponseTimeRunsFromItsLastByte) {
    Add(Frame({1, 3, 0, 0, 0, 2}), 0);
    EXPECT_TRUE(records.empty());
    Add(Frame({1, 3, 4, 0, 10, 0, 20}), 16);
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(Modbus::CsvRow(records[0]),
              "2025-11-24T16:00:00.000Z;request;1;3;FC03 Read Holding Registers;0;2;;;ok;;01 03 00 00 00 02 C4 0B");
    EXPECT_EQ(Modbus::CsvRow(records[1]),
              "2025-11-24T16:00:00.016Z;response;1;3;FC03 Read Holding Registers;;2;10 20;;ok;12.0;"
              "01 03 04 00 0A 00 14 DA 3E");
}

TEST_F(Pairing, ARequestWithoutResponseBeforeTheNextRequestIsUnanswered) {
    Add(Frame({1, 3, 0, 0, 0, 2}), 0);
    Add(Frame({2, 3, 0, 0, 0, 2}), 100);
    Add(Frame({2, 3, 4, 0, 10, 0, 20}), 110);
    Add(Frame({3, 4, 0, 0, 0, 1}), 200);
    pairing.Finish();
    EXPECT_EQ(Lines(), (std::vector<std::string>{
                           "request unit 1 FC03 Read Holding Registers, address 0, count 2: unanswered | 01 03 00 00 "
                           "00 02 C4 0B",
                           "request unit 2 FC03 Read Holding Registers, address 0, count 2: ok | 02 03 00 00 00 02 "
                           "C4 38",
                           "response unit 2 FC03 Read Holding Registers, count 2, values 10 20: ok, 6.0 ms | 02 03 "
                           "04 00 0A 00 14 E9 3E",
                           "request unit 3 FC04 Read Input Registers, address 0, count 1: unanswered | 03 04 00 00 "
                           "00 01 30 28"}));
    EXPECT_EQ(Table(), "unit;requests;responses;exceptions;unanswered;crc_errors;rt_min_ms;rt_median_ms;rt_max_ms\n"
                       "1;1;0;0;1;0;;;\n"
                       "2;1;1;0;0;0;6.0;6.0;6.0\n"
                       "3;1;0;0;1;0;;;\n"
                       "noise bytes skipped: 0\n");
}

TEST_F(Pairing, AnExceptionIsAResponseAndAnException) {
    Add(Frame({1, 6, 0, 1, 0, 3}), 0);
    Add(Frame({1, 0x86, 2}), 10);
    pairing.Finish();
    ASSERT_EQ(records.size(), 2u);
    EXPECT_EQ(Modbus::CsvRow(records[1]),
              "2025-11-24T16:00:00.010Z;response;1;6;FC06 Write Single Register;;;;2;exception;6.0;01 86 02 C3 A1");
    EXPECT_EQ(Table(7), "unit;requests;responses;exceptions;unanswered;crc_errors;rt_min_ms;rt_median_ms;rt_max_ms\n"
                        "1;1;1;1;0;0;6.0;6.0;6.0\n"
                        "noise bytes skipped: 7\n");
}

TEST_F(Pairing, AResponseWithABadCrcCountsOnlyAsACrcErrorAndItsRequestStaysUnanswered) {
    const Bytes bad = WithBadCrc(Frame({1, 3, 4, 0, 10, 0, 20}));
    Add(Frame({1, 3, 0, 0, 0, 2}), 0);
    Add(bad, 10, false);
    Add(Frame({1, 3, 0, 0, 0, 2}), 100);
    Add(Frame({1, 3, 4, 0, 10, 0, 20}), 108);
    pairing.Finish();
    EXPECT_EQ(Lines(), (std::vector<std::string>{
                           "request unit 1 FC03 Read Holding Registers, address 0, count 2: unanswered | 01 03 00 00 "
                           "00 02 C4 0B",
                           "response unit 1 FC03 Read Holding Registers: crc_error | 01 03 04 00 0A 00 14 DA 64",
                           "request unit 1 FC03 Read Holding Registers, address 0, count 2: ok | 01 03 00 00 00 02 "
                           "C4 0B",
                           "response unit 1 FC03 Read Holding Registers, count 2, values 10 20: ok, 4.0 ms | 01 03 "
                           "04 00 0A 00 14 DA 3E"}));
    EXPECT_EQ(Modbus::CsvRow(records[1]),
              "2025-11-24T16:00:00.010Z;response;1;3;FC03 Read Holding Registers;;;;;crc_error;;01 03 04 00 0A 00 14 "
              "DA 64");
    EXPECT_EQ(Table(), "unit;requests;responses;exceptions;unanswered;crc_errors;rt_min_ms;rt_median_ms;rt_max_ms\n"
                       "1;2;1;0;1;1;4.0;4.0;4.0\n"
                       "noise bytes skipped: 0\n");
}

TEST_F(Pairing, AnEchoThatDiffersIsANewRequest) {
    // Started in the middle: the first frame is a response, but nothing says so yet.
    Add(Frame({1, 6, 0, 1, 0, 3}), 0);
    Add(Frame({1, 6, 0, 2, 0, 4}), 100);
    Add(Frame({1, 6, 0, 2, 0, 4}), 105);
    pairing.Finish();
    ASSERT_EQ(records.size(), 3u);
    EXPECT_EQ(Modbus::StatusName(records[0].status), std::string("unanswered"));
    EXPECT_EQ(Modbus::DirectionName(records[1].direction), std::string("request"));
    EXPECT_EQ(Modbus::DirectionName(records[2].direction), std::string("response"));
    EXPECT_EQ(Modbus::StatusName(records[2].status), std::string("ok"));
}

TEST_F(Pairing, FramesBehindAHeldRequestKeepTheCaptureOrder) {
    Add(Frame({1, 1, 0, 0, 0, 20}), 0);
    Add(Frame({9, 4, 2, 0, 1}), 5);     // a response nobody asked for (another master?)
    Add(Frame({1, 1, 3, 1, 2, 3}), 10);  // 8 bytes, like a request: the pending one makes it its response
    pairing.Finish();
    EXPECT_EQ(Lines(), (std::vector<std::string>{
                           "request unit 1 FC01 Read Coils, address 0, count 20: ok | 01 01 00 00 00 14 3C 05",
                           "response unit 9 FC04 Read Input Registers, count 1, values 1: ok | 09 04 02 00 01 99 31",
                           "response unit 1 FC01 Read Coils, count 20, values 1 0 0 0 0 0 0 0 0 1 0 0 0 0 0 0 1 1 0 "
                           "0: ok, 6.0 ms | 01 01 03 "
                           "01 02 03 2C EF"}));
}

TEST_F(Pairing, AFrameOfNeitherShapeIsUnknown) {
    Add(Frame({1, 3, 0, 0, 0, 2, 9}), 0);  // 9 bytes: neither an FC03 request nor a response with byte count 0
    pairing.Finish();
    ASSERT_EQ(records.size(), 1u);
    EXPECT_EQ(Modbus::CsvRow(records[0]),
              "2025-11-24T16:00:00.000Z;unknown;1;3;FC03 Read Holding Registers;;;;;ok;;01 03 00 00 00 02 09 " +
                  HexDump(Bytes(records[0].bytes.end() - 2, records[0].bytes.end())));
}
