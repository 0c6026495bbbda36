#include "model/alarm_engine.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>

#include "common/localizer.h"

using Modbus::AlarmEvent;
using Modbus::ModbusDetail;

namespace {

class Alarms : public ::testing::Test {
protected:
    void SetUp() override {
        Localizer::SetAllLanguages(1);
        engine.SetClock([this] { return now; });
        engine.SetAlarmCallback([this](const AlarmEvent& e) { seen.push_back(e); });
    }
    void TearDown() override { Localizer::SetAllLanguages(0); }

    static ModbusDetail Detail(int32_t id, const std::string& name) {
        ModbusDetail d;
        d.id = id;
        d.name = name;
        return d;
    }

    std::vector<std::string> Messages() const {
        std::vector<std::string> m;
        for (const AlarmEvent& e : engine.Events()) m.push_back(e.message);
        return m;
    }

    AlarmEngine engine;
    std::vector<AlarmEvent> seen;
    int64_t now = 1700000000000;
};

}  // namespace

TEST_F(Alarms, AllLimitsZeroNeverRaiseAThresholdEvent) {
    const ModbusDetail d = Detail(1, "Zero");
    for (double v : {-1e9, -1.0, 0.0, 1.0, 1e9, double(NAN), double(INFINITY)}) engine.EvaluateAlarms(d, v);
    EXPECT_TRUE(engine.Events().empty());
    EXPECT_TRUE(engine.ActiveKeys().empty());
}

TEST_F(Alarms, OneEventPerExcursionReArmedWhenTheValueReturns) {
    ModbusDetail d = Detail(12, "Temp");
    d.alarmHigh = 100;
    for (double v : {90.0, 110.0, 120.0, 95.0, 130.0}) engine.EvaluateAlarms(d, v);
    EXPECT_EQ(Messages(), (std::vector<std::string>{"Temp > 100.000000 (is: 110.00)", "Temp > 100.000000 (is: 130.00)"}));
    EXPECT_EQ(engine.ActiveKeys(), (std::set<std::string>{"12_ALARM_HIGH"}));
}

TEST_F(Alarms, AValueEqualToALimitIsNoExcursion) {
    ModbusDetail d = Detail(3, "P");
    d.warnHigh = 90;
    d.warnLow = 10;
    engine.EvaluateAlarms(d, 90);
    engine.EvaluateAlarms(d, 10);
    EXPECT_TRUE(engine.Events().empty());
    engine.EvaluateAlarms(d, 90.0000001);
    EXPECT_EQ(engine.Events().size(), 1u);
}

TEST_F(Alarms, APairIsEvaluatedAsAWholeEvenWithOneLimitAtZero) {
    ModbusDetail d = Detail(4, "Level");
    d.alarmLow = 10;
    engine.EvaluateAlarms(d, 5);
    const auto events = engine.Events();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].message, "Level > 0.000000 (is: 5.00)");
    EXPECT_EQ(events[1].message, "Level < 10.000000 (is: 5.00)");
    EXPECT_EQ(engine.ActiveKeys(), (std::set<std::string>{"4_ALARM_HIGH", "4_ALARM_LOW"}));
}

TEST_F(Alarms, ConditionsAreCheckedInOrderAlarmHighLowThenWarnHighLow) {
    ModbusDetail d = Detail(5, "X");
    d.alarmHigh = 100;
    d.alarmLow = 20;
    d.warnHigh = 80;
    d.warnLow = 30;
    engine.EvaluateAlarms(d, 10);  // ALARM_LOW and WARN_LOW
    engine.EvaluateAlarms(d, 200);  // ALARM_HIGH and WARN_HIGH; the lows re-arm
    const auto events = engine.Events();
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[0].message, "X < 20.000000 (is: 10.00)");
    EXPECT_EQ(events[0].type, Modbus::kAlarmThreshold);
    EXPECT_EQ(events[1].message, "X < 30.000000 (is: 10.00)");
    EXPECT_EQ(events[1].type, Modbus::kAlarmWarning);
    EXPECT_EQ(events[2].message, "X > 100.000000 (is: 200.00)");
    EXPECT_EQ(events[3].message, "X > 80.000000 (is: 200.00)");
    EXPECT_EQ(events[3].type, Modbus::kAlarmWarning);
    EXPECT_EQ(engine.ActiveKeys(), (std::set<std::string>{"5_ALARM_HIGH", "5_WARN_HIGH"}));
}

TEST_F(Alarms, ScaleAndOffsetApplyBeforeTheComparison) {
    ModbusDetail d = Detail(6, "Temperatur");
    d.scale = 0.1;
    d.offset = -50;
    d.unit = "\xC2\xB0" "C";
    d.warnHigh = 20;
    d.alarmHigh = 19.99;
    engine.EvaluateAlarms(d, 700);  // 20.00: not above 20, above 19.99
    ASSERT_EQ(engine.Events().size(), 1u);
    EXPECT_EQ(engine.Events()[0].message, "Temperatur > 19.990000 (is: 20.00 \xC2\xB0" "C)");
}

TEST_F(Alarms, ValueChangeRaisesOnlyOnADifferentValue) {
    ModbusDetail d = Detail(7, "Pump");
    d.alarmOnChange = true;
    for (double v : {1.0, 1.0, 2.0}) engine.EvaluateAlarms(d, v);
    const auto events = engine.Events();
    ASSERT_EQ(events.size(), 1u);
    EXPECT_EQ(events[0].message, "Pump changed: 1.000000 -> 2.000000");
    EXPECT_EQ(events[0].type, Modbus::kAlarmValueChanged);
    EXPECT_EQ(events[0].detailId, 7);
    EXPECT_EQ(events[0].detailName, "Pump");
}

TEST_F(Alarms, ValueChangeComparesTheScaledValue) {
    ModbusDetail d = Detail(8, "S");
    d.alarmOnChange = true;
    d.scale = 2;
    engine.EvaluateAlarms(d, 1);
    engine.EvaluateAlarms(d, 1.5);
    EXPECT_EQ(Messages(), (std::vector<std::string>{"S changed: 2.000000 -> 3.000000"}));
}

TEST_F(Alarms, MessagesInGerman) {
    Localizer::SetLanguage(Localizer::Scope::Messages, 0);
    ModbusDetail d = Detail(9, "Pumpe");
    d.alarmOnChange = true;
    d.alarmHigh = 5;
    d.unit = "bar";
    engine.EvaluateAlarms(d, 1);
    engine.EvaluateAlarms(d, 6.126);
    EXPECT_EQ(Messages(),
              (std::vector<std::string>{"Pumpe > 5.000000 (ist: 6.13 bar)", "Pumpe geaendert: 1.000000 -> 6.126000"}));
}

TEST_F(Alarms, EventsCarryTheirFieldsAndReachTheCallback) {
    ModbusDetail d = Detail(10, "Druck");
    d.warnHigh = 1;
    now = 86399000;  // 23:59:59 UTC on the first day
    engine.EvaluateAlarms(d, 2);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].timestamp, 86399000);
    EXPECT_EQ(seen[0].detailId, 10);
    EXPECT_EQ(seen[0].detailName, "Druck");
    EXPECT_EQ(seen[0].type, 0);
    EXPECT_FALSE(seen[0].acknowledged);
    EXPECT_EQ(Modbus::FormatAlarmTime(seen[0].timestamp), "23:59:59");
}

TEST_F(Alarms, NanClearsTheActiveKeysOfTheEvaluatedPairs) {
    ModbusDetail d = Detail(11, "N");
    d.alarmHigh = 1;
    engine.EvaluateAlarms(d, 5);
    EXPECT_EQ(engine.ActiveKeys().size(), 1u);
    engine.EvaluateAlarms(d, NAN);
    EXPECT_TRUE(engine.ActiveKeys().empty());
    engine.EvaluateAlarms(d, 5);
    EXPECT_EQ(engine.Events().size(), 2u);
}

TEST_F(Alarms, ANanLimitCountsAsSet) {
    ModbusDetail d = Detail(13, "L");
    d.alarmHigh = NAN;
    engine.EvaluateAlarms(d, -3);  // ALARM_LOW: -3 < 0
    EXPECT_EQ(Messages(), (std::vector<std::string>{"L < 0.000000 (is: -3.00)"}));
}

TEST_F(Alarms, KeysOfAPairWithBothLimitsZeroAreLeftAlone) {
    ModbusDetail d = Detail(14, "K");
    d.alarmHigh = 10;
    engine.EvaluateAlarms(d, 20);
    d.alarmHigh = 0;  // the limits were removed while the condition was active
    engine.EvaluateAlarms(d, 0);
    EXPECT_EQ(engine.ActiveKeys(), (std::set<std::string>{"14_ALARM_HIGH"}));
}

TEST_F(Alarms, AcknowledgeOneAllAndTheUnacknowledgedCount) {
    ModbusDetail d = Detail(15, "A");
    d.alarmOnChange = true;
    for (double v : {1.0, 2.0, 3.0, 4.0}) engine.EvaluateAlarms(d, v);
    EXPECT_EQ(engine.UnacknowledgedCount(), 3u);
    EXPECT_TRUE(engine.Acknowledge(1));
    EXPECT_FALSE(engine.Acknowledge(3));
    EXPECT_EQ(engine.UnacknowledgedCount(), 2u);
    EXPECT_TRUE(engine.Events()[1].acknowledged);
    engine.AcknowledgeAll();
    EXPECT_EQ(engine.UnacknowledgedCount(), 0u);
    engine.EvaluateAlarms(d, 5.0);
    EXPECT_EQ(engine.UnacknowledgedCount(), 1u);
    EXPECT_EQ(engine.EventCount(), 4u);
}

TEST_F(Alarms, ClearEmptiesTheListAndReArmsActiveConditions) {
    ModbusDetail d = Detail(16, "C");
    d.alarmHigh = 1;
    engine.EvaluateAlarms(d, 2);
    engine.ClearAlarms();
    EXPECT_EQ(engine.EventCount(), 0u);
    EXPECT_EQ(engine.UnacknowledgedCount(), 0u);
    EXPECT_TRUE(engine.ActiveKeys().empty());
    engine.EvaluateAlarms(d, 2);  // still above: raises again after the clear
    EXPECT_EQ(engine.EventCount(), 1u);
}

TEST_F(Alarms, ConnectionLostGoesIntoTheSameList) {
    engine.RaiseConnectionLost(0, "Demo-Geraet", "Connection lost");
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].type, Modbus::kAlarmConnectionLost);
    EXPECT_EQ(seen[0].message, "Connection lost");
    EXPECT_EQ(seen[0].detailName, "Demo-Geraet");
    EXPECT_EQ(engine.UnacknowledgedCount(), 1u);
}

TEST_F(Alarms, TheCallbackRunsWithTheLockHeld) {
    bool locked = false;
    engine.SetAlarmCallback([&](const AlarmEvent&) { locked = !engine.Mutex().try_lock(); if (!locked) engine.Mutex().unlock(); });
    engine.RaiseConnectionLost(1, "x", "y");
    EXPECT_TRUE(locked);
}

TEST_F(Alarms, EvaluationFromAPollThreadWhileTheWindowReadsAndAcknowledges) {
    ModbusDetail d = Detail(17, "T");
    d.alarmHigh = 50;
    d.alarmOnChange = true;
    engine.SetAlarmCallback(nullptr);
    std::thread poll([&] {
        for (int i = 0; i < 2000; ++i) engine.EvaluateAlarms(d, i % 100);
    });
    for (int i = 0; i < 200; ++i) {
        (void)engine.Events();
        engine.AcknowledgeAll();
    }
    poll.join();
    // 1999 changes and 20 excursions above 50.
    EXPECT_EQ(engine.EventCount(), 1999u + 20u);
}

TEST(AlarmKindName, GermanInBothLanguages) {
    Localizer::SetAllLanguages(1);
    EXPECT_STREQ(Modbus::AlarmKindName(0), "Schwellenwert Warnung");
    EXPECT_STREQ(Modbus::AlarmKindName(1), "Schwellenwert Alarm");
    EXPECT_STREQ(Modbus::AlarmKindName(2), "Wert geaendert");
    EXPECT_STREQ(Modbus::AlarmKindName(3), "Verbindung verloren");
    EXPECT_STREQ(Modbus::AlarmKindName(4), "?");
    EXPECT_STREQ(Modbus::AlarmKindName(-1), "?");
    Localizer::SetAllLanguages(0);
}

TEST(FormatAlarmTime, IsUtcTimeOfDay) {
    EXPECT_EQ(Modbus::FormatAlarmTime(0), "00:00:00");
    EXPECT_EQ(Modbus::FormatAlarmTime(1700000000999), "22:13:20");
    EXPECT_EQ(Modbus::FormatAlarmTime(-1), "23:59:59");
}

TEST(AlarmEngineClock, StampsEventsWithTheWallClock) {
    AlarmEngine engine;
    engine.RaiseConnectionLost(1, "x", "y");
    const int64_t stamp = engine.Events().at(0).timestamp;
    EXPECT_GT(stamp, 1600000000000LL);  // after 2020
}
