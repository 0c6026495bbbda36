// The polling engine: one cycle's results, the interval rule, the cycle timing and the stop.
#include "polling/polling_engine.h"

#include <atomic>
#include <chrono>
#include <thread>

#include <gtest/gtest.h>

#include "common/localizer.h"
#include "polling/structure_polling.h"

namespace {

using Clock = std::chrono::steady_clock;

Modbus::ModbusDetail Detail(int32_t id, const std::string& name, Modbus::DataType type = Modbus::DataType::UInt16) {
    Modbus::ModbusDetail d;
    d.id = id;
    d.name = name;
    d.dataType = type;
    return d;
}

class PollingEngineTest : public testing::Test {
protected:
    void SetUp() override { Localizer::SetAllLanguages(1); }
    void TearDown() override {
        engine.Stop();
        Localizer::SetAllLanguages(0);
    }
    PollingEngine engine;
};

TEST(PollInterval, BelowOneHundredBecomesOneHundred) {
    EXPECT_EQ(PollIntervalFromText("50"), 100u);
    EXPECT_EQ(PollIntervalFromText("abc"), 100u);
    EXPECT_EQ(PollIntervalFromText(""), 100u);
    EXPECT_EQ(PollIntervalFromText("0"), 100u);
    EXPECT_EQ(PollIntervalFromText("99"), 100u);
    EXPECT_EQ(PollIntervalFromText("100"), 100u);
    EXPECT_EQ(PollIntervalFromText("250"), 250u);
    EXPECT_EQ(PollIntervalFromText(" 300ms"), 300u);
}

TEST(PollInterval, NegativeEntryBecomesAVeryLongInterval) {
    EXPECT_EQ(PollIntervalFromText("-5"), 4294967291u);
    EXPECT_EQ(PollIntervalFromText("-1"), 4294967295u);
}

TEST_F(PollingEngineTest, FailedReadGivesReadErrorAndNotOk) {
    engine.SetDetails({Detail(7, "Temp")});
    engine.SetReadDetail([](const Modbus::ModbusDetail&, std::vector<uint16_t>&) { return false; });
    const auto results = engine.PollOnce();
    ASSERT_EQ(results.size(), 1u);
    EXPECT_EQ(results[0].detailId, 7);
    EXPECT_EQ(results[0].name, "Temp");
    EXPECT_FALSE(results[0].ok);
    EXPECT_EQ(results[0].error, "Read error");
    EXPECT_EQ(results[0].displayText, "");
    EXPECT_EQ(results[0].value.index(), 0u);
}

TEST_F(PollingEngineTest, ReadErrorIsLesefehlerInGerman) {
    Localizer::SetAllLanguages(0);
    engine.SetDetails({Detail(1, "A")});
    engine.SetReadDetail([](const Modbus::ModbusDetail&, std::vector<uint16_t>&) { return false; });
    EXPECT_EQ(engine.PollOnce()[0].error, "Lesefehler");
}

TEST_F(PollingEngineTest, SuccessWithNoRegistersIsOkWithReadErrorAndInitialValue) {
    engine.SetDetails({Detail(1, "Empty")});
    engine.SetReadDetail([](const Modbus::ModbusDetail&, std::vector<uint16_t>& out) {
        out.clear();
        return true;
    });
    const auto results = engine.PollOnce();
    ASSERT_EQ(results.size(), 1u);
    EXPECT_TRUE(results[0].ok);
    EXPECT_EQ(results[0].error, "Read error");
    ASSERT_EQ(results[0].value.index(), 0u);
    EXPECT_FALSE(std::get<bool>(results[0].value));
    EXPECT_EQ(LiveValueLine(results[0]), "Empty: ");
}

TEST_F(PollingEngineTest, DecodesAndFormatsEachDetailWithOneReadEach) {
    Modbus::ModbusDetail speed = Detail(1, "Speed");
    speed.unit = "rpm";
    Modbus::ModbusDetail temp = Detail(2, "Temp", Modbus::DataType::Int16);
    temp.scale = 0.1;
    temp.unit = "C";
    Modbus::ModbusDetail flag = Detail(3, "Flag", Modbus::DataType::Boolean);
    engine.SetDetails({speed, temp, flag});
    std::vector<int32_t> reads;
    engine.SetReadDetail([&reads](const Modbus::ModbusDetail& d, std::vector<uint16_t>& out) {
        reads.push_back(d.id);
        if (d.id == 1) out = {1450};
        if (d.id == 2) out = {0xFF38};  // -200
        if (d.id == 3) out = {1};
        return true;
    });
    const auto results = engine.PollOnce();
    EXPECT_EQ(reads, (std::vector<int32_t>{1, 2, 3}));
    ASSERT_EQ(results.size(), 3u);
    EXPECT_EQ(results[0].displayText, "1450 rpm");
    EXPECT_EQ(std::get<int64_t>(results[0].value), 1450);
    EXPECT_EQ(results[1].displayText, "-20.000 C");
    EXPECT_EQ(results[2].displayText, "ON");
    EXPECT_EQ(LiveValueLine(results[1]), "Temp: -20.000 C");
    for (const auto& r : results) {
        EXPECT_TRUE(r.ok);
        EXPECT_EQ(r.error, "");
    }
}

TEST_F(PollingEngineTest, FailedLineShowsFehlerInBothLanguages) {
    Modbus::PollingResult r;
    r.name = "Druck";
    r.ok = false;
    r.error = "Read error";
    EXPECT_EQ(LiveValueLine(r), "Druck: [Fehler]");
    Localizer::SetAllLanguages(0);
    EXPECT_EQ(LiveValueLine(r), "Druck: [Fehler]");
}

TEST_F(PollingEngineTest, NoDetailsOrNoReadFunctionGivesNoResults) {
    engine.SetReadDetail([](const Modbus::ModbusDetail&, std::vector<uint16_t>&) { return true; });
    EXPECT_TRUE(engine.PollOnce().empty());
    PollingEngine other;
    other.SetDetails({Detail(1, "A")});
    EXPECT_TRUE(other.PollOnce().empty());
}

TEST_F(PollingEngineTest, PollsAboutEveryIntervalAndStops) {
    engine.SetDetails({Detail(1, "A")});
    engine.SetReadDetail([](const Modbus::ModbusDetail&, std::vector<uint16_t>& out) {
        out = {1};
        return true;
    });
    std::atomic<int> cycles{0};
    engine.SetOnResults([&cycles](const std::vector<Modbus::PollingResult>&) { ++cycles; });
    engine.Start(PollIntervalFromText("50"));  // becomes 100 ms
    EXPECT_EQ(engine.Interval(), 100u);
    std::this_thread::sleep_for(std::chrono::milliseconds(1050));
    engine.Stop();
    EXPECT_FALSE(engine.IsRunning());
    // About ten cycles in a second; generous bounds for a loaded machine.
    EXPECT_GE(cycles.load(), 5);
    EXPECT_LE(cycles.load(), 12);
    const int after = cycles.load();
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    EXPECT_EQ(cycles.load(), after);
}

TEST_F(PollingEngineTest, SecondStartWhileRunningKeepsTheIntervalButNewDetailsApply) {
    std::atomic<int32_t> lastId{0};
    engine.SetDetails({Detail(1, "A")});
    engine.SetReadDetail([&lastId](const Modbus::ModbusDetail& d, std::vector<uint16_t>& out) {
        lastId = d.id;
        out = {1};
        return true;
    });
    engine.Start(100);
    engine.SetDetails({Detail(2, "B")});
    engine.Start(5000);
    EXPECT_EQ(engine.Interval(), 100u);
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    EXPECT_EQ(lastId.load(), 2);
}

TEST_F(PollingEngineTest, StopDuringALongReadReturnsAfterThatReadAndAtMostFiftyMillisecondsMore) {
    engine.SetDetails({Detail(1, "Slow")});
    std::atomic<bool> inRead{false};
    engine.SetReadDetail([&inRead](const Modbus::ModbusDetail&, std::vector<uint16_t>& out) {
        inRead = true;
        std::this_thread::sleep_for(std::chrono::milliseconds(600));
        out = {1};
        return true;
    });
    engine.Start(100);
    for (int i = 0; i < 200 && !inRead.load(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    ASSERT_TRUE(inRead.load());
    const auto start = Clock::now();
    engine.Stop();
    const auto elapsed = Clock::now() - start;
    EXPECT_LT(elapsed, std::chrono::milliseconds(600 + 50 + 400));
    EXPECT_GE(elapsed, std::chrono::milliseconds(300));  // it did wait for the read
}

TEST_F(PollingEngineTest, CycleLongerThanTheIntervalIsFollowedAtOnce) {
    engine.SetDetails({Detail(1, "Slow")});
    engine.SetReadDetail([](const Modbus::ModbusDetail&, std::vector<uint16_t>& out) {
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
        out = {1};
        return true;
    });
    std::atomic<int> cycles{0};
    engine.SetOnResults([&cycles](const std::vector<Modbus::PollingResult>&) { ++cycles; });
    engine.Start(100);
    std::this_thread::sleep_for(std::chrono::milliseconds(1000));
    engine.Stop();
    // 150 ms per cycle with no wait in between: about six cycles.
    EXPECT_GE(cycles.load(), 4);
    EXPECT_LE(cycles.load(), 8);
}

TEST_F(PollingEngineTest, RestartAfterStopRunsAgain) {
    engine.SetDetails({Detail(1, "A")});
    engine.SetReadDetail([](const Modbus::ModbusDetail&, std::vector<uint16_t>& out) {
        out = {1};
        return true;
    });
    std::atomic<int> cycles{0};
    engine.SetOnResults([&cycles](const std::vector<Modbus::PollingResult>&) { ++cycles; });
    engine.Start(100);
    engine.Stop();
    const int first = cycles.load();
    engine.Start(100);
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    engine.Stop();
    EXPECT_GT(cycles.load(), first);
}

}  // namespace
