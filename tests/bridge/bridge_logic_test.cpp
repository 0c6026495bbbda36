// The bridge's own logic without a broker: topic levels, the duplicate-topic check, the JSON
// payloads, the broker URL, the bounded queue and the back-off.
#include <cmath>

#include <gtest/gtest.h>

#include "bridge/bridge_settings.h"
#include "bridge/payloads.h"
#include "bridge/publish_queue.h"
#include "bridge/topic_names.h"

namespace {

TEST(TopicLevel, ReplacesSeparatorsWildcardsAndControlCharactersOnly) {
    EXPECT_EQ(TopicLevel("Halle 3/Nord"), "Halle 3_Nord");
    EXPECT_EQ(TopicLevel("a+b#c"), "a_b_c");
    EXPECT_EQ(TopicLevel(std::string("a\0b", 3)), "a_b");
    EXPECT_EQ(TopicLevel("\t\x1F\x7F"), "___");
    EXPECT_EQ(TopicLevel("Öl\xC2\x85x"), "Öl_x");  // U+0085 is a C1 control character
    EXPECT_EQ(TopicLevel("Temperatur °C Übersicht"), "Temperatur °C Übersicht");
    EXPECT_EQ(TopicLevel("\xFF\xC3"), "__");  // bytes that are not UTF-8, one '_' each
    EXPECT_EQ(TopicLevel("\xEF\xBF\xBF"), "_");  // U+FFFF, refused by brokers
}

TEST(TopicPrefix, RejectsWildcardsAndControlCharacters) {
    EXPECT_EQ(CheckTopicPrefix("werk/halle 2"), "");
    EXPECT_EQ(CheckTopicPrefix(""), "");
    EXPECT_EQ(CheckTopicPrefix("a/#"), "the topic prefix must not contain the wildcards + or #");
    EXPECT_EQ(CheckTopicPrefix("a\nb"), "the topic prefix must not contain control characters");
}

ModbusStructure Structure(std::vector<std::string> names) {
    ModbusStructure s;
    s.name = "Pumpe";
    int32_t id = 1;
    for (const std::string& name : names) {
        Modbus::ModbusDetail detail;
        detail.id = id++;
        detail.name = name;
        s.details.push_back(detail);
    }
    return s;
}

TEST(StructureTopics, NamesEveryDetailTheAlarmsAndTheStatus) {
    std::string error;
    const auto topics = BuildStructureTopics("p", Structure({"Druck", "Temp/1"}), error);
    ASSERT_TRUE(topics) << error;
    EXPECT_EQ(topics->details.at(1), "p/Pumpe/Druck");
    EXPECT_EQ(topics->details.at(2), "p/Pumpe/Temp_1");
    EXPECT_EQ(topics->alarms, "p/Pumpe/alarms");
    EXPECT_EQ(topics->status, "p/Pumpe/status");
    const auto noPrefix = BuildStructureTopics("", Structure({"Druck"}), error);
    ASSERT_TRUE(noPrefix);
    EXPECT_EQ(noPrefix->details.at(1), "Pumpe/Druck");
}

TEST(StructureTopics, TwoDetailsOnOneTopicAreAnError) {
    std::string error;
    EXPECT_FALSE(BuildStructureTopics("p", Structure({"a#b", "x", "a+b"}), error));
    EXPECT_EQ(error, "detail 'a+b' (id 3) and detail 'a#b' (id 1) map to the same topic 'p/Pumpe/a_b'");
    EXPECT_FALSE(BuildStructureTopics("p", Structure({"status"}), error));
    EXPECT_EQ(error, "detail 'status' (id 1) and the status topic map to the same topic 'p/Pumpe/status'");
    EXPECT_FALSE(BuildStructureTopics("p", Structure({"alarms"}), error));
    EXPECT_EQ(error, "detail 'alarms' (id 1) and the alarms topic map to the same topic 'p/Pumpe/alarms'");
}

TEST(Payloads, TimeIsIsoUtcWithMilliseconds) {
    EXPECT_EQ(IsoTimeUtc(0), "1970-01-01T00:00:00.000Z");
    EXPECT_EQ(IsoTimeUtc(1795494623123), "2026-11-24T04:30:23.123Z");
    EXPECT_EQ(IsoTimeUtc(-1), "1969-12-31T23:59:59.999Z");
}

TEST(Payloads, JsonStringsEscapeAndRepairText) {
    EXPECT_EQ(JsonString("a\"b\\c"), R"("a\"b\\c")");
    EXPECT_EQ(JsonString("\n\r\t\x01"), R"("\n\r\t\u0001")");
    EXPECT_EQ(JsonString("°C"), "\"°C\"");
    EXPECT_EQ(JsonString("A\xFF" "B"), "\"A\xEF\xBF\xBD" "B\"");  // a stray byte becomes U+FFFD
}

Modbus::PollingResult Result(DecodedValue value, const std::string& text, bool ok = true) {
    Modbus::PollingResult result;
    result.detailId = 1;
    result.name = "x";
    result.value = std::move(value);
    result.displayText = text;
    result.ok = ok;
    if (!ok) result.error = "Read error";
    return result;
}

TEST(Payloads, ValueByKindOfValue) {
    Modbus::ModbusDetail detail;
    EXPECT_EQ(ValueJson(detail, Result(true, "ON")), "true");
    EXPECT_EQ(ValueJson(detail, Result(int64_t{-7}, "-7")), "-7");
    EXPECT_EQ(ValueJson(detail, Result(2.5, "2.500")), "2.5");
    EXPECT_EQ(ValueJson(detail, Result(std::string("AB"), "AB")), "\"AB\"");
    EXPECT_EQ(ValueJson(detail, Result(std::vector<uint16_t>{1}, "0001")), "\"0001\"");
    EXPECT_EQ(ValueJson(detail, Result(std::nan(""), "nan")), "null");
    detail.scale = 0.1;
    detail.offset = -50;
    EXPECT_EQ(ValueJson(detail, Result(int64_t{700}, "20.000")), "20");
    EXPECT_EQ(ValueJson(detail, Result(int64_t{1}, "-49.900")), "-49.9");
}

TEST(Payloads, AFailedReadIsNullInvalidAndFehler) {
    Modbus::ModbusDetail detail;
    detail.unit = "bar";
    EXPECT_EQ(ValuePayload(detail, Result(false, "", false), 0),
              R"({"value": null, "text": "[Fehler]", "unit": "bar", "valid": false, "time": "1970-01-01T00:00:00.000Z"})");
    // A read that answered with no registers shows its empty text, like the "Live Values" box.
    Modbus::PollingResult empty = Result(false, "");
    empty.error = "Read error";
    EXPECT_EQ(ValuePayload(detail, empty, 0),
              R"({"value": null, "text": "", "unit": "bar", "valid": false, "time": "1970-01-01T00:00:00.000Z"})");
}

TEST(Payloads, AlarmEvent) {
    Modbus::AlarmEvent event;
    event.timestamp = 1000;
    event.type = 2;
    event.detailName = "Pumpe";
    event.message = "Pumpe changed: 1.000000 -> 2.000000";
    EXPECT_EQ(AlarmPayload(event), R"({"type": 2, "kind": "Wert geaendert", "detail": "Pumpe", )"
                                   R"("message": "Pumpe changed: 1.000000 -> 2.000000", "time": "1970-01-01T00:00:01.000Z"})");
}

TEST(BrokerUrl, SchemesHostsAndPorts) {
    std::string error;
    auto a = ParseBrokerUrl("tcp://broker.example", error);
    ASSERT_TRUE(a);
    EXPECT_EQ(a->host, "broker.example");
    EXPECT_FALSE(a->port);
    EXPECT_FALSE(a->tls);
    a = ParseBrokerUrl("mqtts://10.0.0.1:8883", error);
    ASSERT_TRUE(a);
    EXPECT_EQ(a->host, "10.0.0.1");
    EXPECT_EQ(a->port, 8883);
    EXPECT_TRUE(a->tls);
    a = ParseBrokerUrl("[::1]:1884", error);
    ASSERT_TRUE(a);
    EXPECT_EQ(a->host, "::1");
    EXPECT_EQ(a->port, 1884);
    EXPECT_FALSE(ParseBrokerUrl("tcp://host:0", error));
    EXPECT_EQ(error, "broker URL 'tcp://host:0' has no valid port (1 to 65535)");
    EXPECT_FALSE(ParseBrokerUrl("tcp://", error));
    EXPECT_EQ(error, "broker URL 'tcp://' names no host");
}

std::vector<std::string> Drain(PublishQueue& queue) {
    std::vector<std::string> payloads;
    MqttMessage message;
    while (queue.Pop(message)) payloads.push_back(message.payload);
    return payloads;
}

TEST(PublishQueue, DropsTheOldestBeyondItsBoundAndCountsThem) {
    PublishQueue queue(3);
    for (const char* p : {"1", "2", "3", "4", "5"}) queue.Push({"t", p, false});
    EXPECT_EQ(queue.TakeDroppedCount(), 2u);
    EXPECT_EQ(queue.TakeDroppedCount(), 0u);
    EXPECT_EQ(Drain(queue), (std::vector<std::string>{"3", "4", "5"}));
}

TEST(PublishQueue, MessagesPutBackGoInFrontInTheirOrder) {
    PublishQueue queue(4);
    queue.Push({"t", "3", false});
    queue.Push({"t", "4", false});
    queue.PushFront({{"t", "1", false}, {"t", "2", false}});
    EXPECT_EQ(Drain(queue), (std::vector<std::string>{"1", "2", "3", "4"}));
    queue.Push({"t", "5", false});
    queue.Push({"t", "6", false});
    queue.PushFront({{"t", "2", false}, {"t", "3", false}, {"t", "4", false}});
    EXPECT_EQ(queue.TakeDroppedCount(), 1u);
    EXPECT_EQ(Drain(queue), (std::vector<std::string>{"3", "4", "5", "6"}));
}

TEST(ReconnectBackoff, DoublesFromHalfASecondUpTo30Seconds) {
    ReconnectBackoff backoff;
    std::vector<uint32_t> delays;
    for (int i = 0; i < 9; ++i) delays.push_back(backoff.NextDelayMs());
    EXPECT_EQ(delays, (std::vector<uint32_t>{500, 1000, 2000, 4000, 8000, 16000, 30000, 30000, 30000}));
    backoff.Reset();
    EXPECT_EQ(backoff.NextDelayMs(), 500u);
}

}  // namespace
