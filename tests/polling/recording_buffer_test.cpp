// The recording buffer and its CSV export.
#include "polling/recording_buffer.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <sstream>

#include <gtest/gtest.h>

#if !defined(_WIN32)
#include <unistd.h>
#endif

#include "common/localizer.h"

namespace {

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

int64_t FixedClock() { return 1700000000123LL; }

std::string TempPath(const char* name) {
#if defined(_WIN32)
    return std::string(name);
#else
    return std::string("/tmp/kestrel-") + std::to_string(::getpid()) + "-" + name;
#endif
}

Modbus::ModbusDetail Detail(int32_t id, const std::string& name, const std::string& unit, double scale = 1.0) {
    Modbus::ModbusDetail d;
    d.id = id;
    d.name = name;
    d.unit = unit;
    d.scale = scale;
    return d;
}

Modbus::PollingResult Result(const Modbus::ModbusDetail& d, DecodedValue value) {
    Modbus::PollingResult r;
    r.detailId = d.id;
    r.name = d.name;
    r.value = std::move(value);
    r.ok = true;
    return r;
}

class Recording : public testing::Test {
protected:
    void SetUp() override {
        Localizer::SetAllLanguages(1);
        buffer.SetClock(FixedClock);
    }
    void TearDown() override {
        Localizer::SetAllLanguages(0);
        std::remove(path.c_str());
    }
    RecordingBuffer buffer;
    std::string path = TempPath("recording.csv");
};

TEST_F(Recording, EmptyRecordingExportsOnlyTheHeader) {
    ASSERT_TRUE(buffer.ExportCsv(path));
    EXPECT_EQ(ReadFile(path), "Timestamp;Name;RawValue;DisplayValue;Unit\r\n");
    Localizer::SetAllLanguages(0);
    ASSERT_TRUE(buffer.ExportCsv(path));
    EXPECT_EQ(ReadFile(path), "Zeitstempel;Name;Rohwert;Anzeigewert;Einheit\r\n");
}

TEST_F(Recording, EntryAtAKnownTimeIsWrittenInUtcWithoutMilliseconds) {
    const auto d = Detail(3, "Druck", "bar", 0.01);
    ASSERT_TRUE(buffer.ToggleRecording("Pumpe"));
    buffer.Record(Result(d, int64_t{1234}), d);
    ASSERT_TRUE(buffer.ExportCsv(path));
    EXPECT_EQ(ReadFile(path),
              "Timestamp;Name;RawValue;DisplayValue;Unit\r\n"
              "2023-11-14T22:13:20;Druck;1234.000000;12.340 bar;bar\r\n");
}

TEST_F(Recording, RawValuesOfEveryKind) {
    EXPECT_EQ(RawValueText(DecodedValue{true}), "1.000000");
    EXPECT_EQ(RawValueText(DecodedValue{false}), "0.000000");
    EXPECT_EQ(RawValueText(DecodedValue{int64_t{-42}}), "-42.000000");
    EXPECT_EQ(RawValueText(DecodedValue{3.25}), "3.250000");
    EXPECT_EQ(RawValueText(DecodedValue{std::string("abc")}), "0.000000");
    EXPECT_EQ(RawValueText(DecodedValue{std::vector<uint16_t>{7, 8}}), "0.000000");
}

TEST_F(Recording, BoolRecordsOnOff) {
    const auto d = Detail(1, "Pumpe", "");
    buffer.ToggleRecording("x");
    buffer.Record(Result(d, true), d);
    buffer.Record(Result(d, false), d);
    const auto entries = buffer.Entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].rawValue, "1.000000");
    EXPECT_EQ(entries[0].displayValue, "ON");
    EXPECT_EQ(entries[1].displayValue, "OFF");
    EXPECT_EQ(entries[0].timestampMs, 1700000000123LL);
    EXPECT_EQ(entries[0].detailId, 1);
}

TEST_F(Recording, SemicolonInANameGivesAnExtraColumn) {
    const auto d = Detail(1, "Temp;innen", "C");
    buffer.ToggleRecording("x");
    buffer.Record(Result(d, int64_t{5}), d);
    ASSERT_TRUE(buffer.ExportCsv(path));
    const std::string text = ReadFile(path);
    const std::string line = text.substr(text.find("\r\n") + 2);
    EXPECT_EQ(line, "2023-11-14T22:13:20;Temp;innen;5.000000;5 C;C\r\n");
    EXPECT_EQ(std::count(line.begin(), line.end(), ';'), 5);
}

TEST_F(Recording, NothingIsRecordedWhileOff) {
    const auto d = Detail(1, "A", "");
    buffer.Record(Result(d, int64_t{1}), d);
    EXPECT_TRUE(buffer.Entries().empty());
    EXPECT_FALSE(buffer.IsRecording());
}

TEST_F(Recording, TogglingOffAndOnAgainStartsEmpty) {
    const auto d = Detail(1, "A", "");
    EXPECT_TRUE(buffer.ToggleRecording("first"));
    buffer.Record(Result(d, int64_t{1}), d);
    EXPECT_FALSE(buffer.ToggleRecording("ignored"));
    EXPECT_EQ(buffer.Entries().size(), 1u);  // stopping keeps the recording for export
    buffer.Record(Result(d, int64_t{2}), d);
    EXPECT_EQ(buffer.Entries().size(), 1u);
    EXPECT_TRUE(buffer.ToggleRecording("second"));
    EXPECT_TRUE(buffer.Entries().empty());
    EXPECT_EQ(buffer.RecordingName(), "second");
    EXPECT_EQ(buffer.StartTimeMs(), 1700000000123LL);
}

TEST_F(Recording, ButtonTextsAndDefaultName) {
    EXPECT_EQ(RecordButtonText(false), "Record");
    EXPECT_EQ(RecordButtonText(true), "Stop");
    EXPECT_EQ(DefaultRecordingName(), "Recording");
    Localizer::SetAllLanguages(0);
    EXPECT_EQ(RecordButtonText(false), "Aufzeichnen");
    EXPECT_EQ(RecordButtonText(true), "Stoppen");
    EXPECT_EQ(DefaultRecordingName(), "Aufzeichnung");
}

TEST_F(Recording, ExportToAnUnwritablePathFailsAndWritesNothing) {
#if defined(_WIN32)
    EXPECT_FALSE(buffer.ExportCsv("Z:\\no\\such\\folder\\x.csv"));
#else
    EXPECT_FALSE(buffer.ExportCsv("/nonexistent-folder/x.csv"));
#endif
}

TEST(CsvTimestamp, UtcCalendar) {
    EXPECT_EQ(CsvTimestamp(1700000000123LL), "2023-11-14T22:13:20");
    EXPECT_EQ(CsvTimestamp(0), "1970-01-01T00:00:00");
    EXPECT_EQ(CsvTimestamp(951782400000LL), "2000-02-29T00:00:00");
    EXPECT_EQ(CsvTimestamp(4102444799999LL), "2099-12-31T23:59:59");
}

TEST_F(Recording, UnitAndUtf8NamesAreWrittenAsStored) {
    const auto d = Detail(9, "Temperatur \xC3\xA4", "\xC2\xB0" "C", 0.1);
    buffer.ToggleRecording("x");
    buffer.Record(Result(d, 3.5), d);
    ASSERT_TRUE(buffer.ExportCsv(path));
    const std::string text = ReadFile(path);
    EXPECT_NE(text.find(";Temperatur \xC3\xA4;3.500000;0.350 \xC2\xB0" "C;\xC2\xB0" "C\r\n"), std::string::npos) << text;
    EXPECT_NE(text.substr(0, 3), "\xEF\xBB\xBF");  // no byte order mark
}

}  // namespace
