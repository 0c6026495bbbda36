// The store's counters, the serializer byte for byte and the tolerant reader.
#include "model/structure_store.h"

#include <gtest/gtest.h>

#include <cmath>
#include <stdexcept>

#include "model/demo_structure.h"

using Modbus::ByteOrder;
using Modbus::DataType;
using Modbus::ModbusDetail;
using Modbus::WidgetType;

namespace {

ModbusDetail Detail(const std::string& name) {
    ModbusDetail d;
    d.name = name;
    return d;
}

ModbusStructure Structure(const std::string& name, int details = 0) {
    ModbusStructure s;
    s.name = name;
    for (int i = 0; i < details; ++i) s.details.push_back(Detail(name + "." + std::to_string(i)));
    return s;
}

// The text of one structure object in the file layout, for building test files by hand.
std::string StructureObject(const std::string& id, const std::string& extra = "") {
    return "    {\n      \"id\": " + id + ",\n      \"name\": \"S" + id + "\",\n      \"ip\": \"10.0.0.1\",\n" + extra +
           "      \"details\": [\n      ]\n    }";
}

}  // namespace

TEST(StructureStore, StartsEmptyWithBothCountersAtOne) {
    StructureStore store;
    EXPECT_TRUE(store.Structures().empty());
    EXPECT_EQ(store.NextStructureId(), 1);
    EXPECT_EQ(store.NextDetailId(), 1);
    EXPECT_EQ(store.Path(), "modbus_structures.json");
}

TEST(StructureStore, AddStructureHandsOutStructureAndDetailIdsInOrder) {
    StructureStore store;
    ModbusStructure first = Structure("first", 2);
    first.id = 77;
    first.details[0].id = 99;
    EXPECT_EQ(store.AddStructure(first), 1);
    EXPECT_EQ(store.AddStructure(Structure("second", 3)), 2);
    const auto list = store.Structures();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].id, 1);
    EXPECT_EQ(list[0].details[0].id, 1);
    EXPECT_EQ(list[0].details[1].id, 2);
    EXPECT_EQ(list[1].id, 2);
    EXPECT_EQ(list[1].details[2].id, 5);
    EXPECT_EQ(store.NextStructureId(), 3);
    EXPECT_EQ(store.NextDetailId(), 6);
}

TEST(SerializeStructures, EmptyStoreIsHeadFollowedByTail) {
    StructureStore store;
    EXPECT_EQ(store.SerializeStructures(), "{\n  \"structures\": [\n\n  ]\n}\n");
}

TEST(SerializeStructures, ExactLayoutOfTwoStructures) {
    StructureStore store;
    ModbusStructure s = Structure("Boiler \"1\"");
    s.description = "line\nbreak";
    s.ip = "10.1.2.3";
    s.port = 1502;
    s.unitId = 17;
    s.rtuOverTcp = true;
    ModbusDetail d = Detail("Temp\\C");
    d.unit = "\xC2\xB0" "C";
    d.dataType = DataType::Float32;
    d.arraySize = 2;
    d.registerAddress = 40001;
    d.functionCode = 4;
    d.byteOrder = ByteOrder::LittleEndianSwap;
    d.scale = 0.1;
    d.offset = -50;
    d.warnLow = 0.001;
    d.warnHigh = 0.00001;
    d.alarmLow = -1e6;
    d.alarmHigh = 1e6;
    d.alarmOnChange = true;
    d.widgetType = WidgetType::Led;
    s.details = {d, Detail("second")};
    store.AddStructure(s);
    store.AddStructure(Structure("empty"));

    const std::string expected =
        "{\n"
        "  \"structures\": [\n"
        "    {\n"
        "      \"id\": 1,\n"
        "      \"name\": \"Boiler \\\"1\\\"\",\n"
        "      \"description\": \"line\\nbreak\",\n"
        "      \"ip\": \"10.1.2.3\",\n"
        "      \"port\": 1502,\n"
        "      \"unitId\": 17,\n"
        "      \"rtuOverTcp\": true,\n"
        "      \"details\": [\n"
        "        {\n"
        "          \"id\": 1,\n"
        "          \"name\": \"Temp\\\\C\",\n"
        "          \"unit\": \"\xC2\xB0" "C\",\n"
        "          \"dataType\": \"FLOAT32\",\n"
        "          \"arraySize\": 2,\n"
        "          \"registerAddress\": 40001,\n"
        "          \"functionCode\": 4,\n"
        "          \"byteOrder\": \"LITTLE_ENDIAN_SWAP\",\n"
        "          \"scale\": 0.1,\n"
        "          \"offset\": -50,\n"
        "          \"warnLow\": 0.001,\n"
        "          \"warnHigh\": 1e-05,\n"
        "          \"alarmLow\": -1e+06,\n"
        "          \"alarmHigh\": 1e+06,\n"
        "          \"alarmOnChange\": true,\n"
        "          \"widgetType\": \"LED\"\n"
        "        },\n"
        "        {\n"
        "          \"id\": 2,\n"
        "          \"name\": \"second\",\n"
        "          \"unit\": \"\",\n"
        "          \"dataType\": \"UINT16\",\n"
        "          \"arraySize\": 1,\n"
        "          \"registerAddress\": 0,\n"
        "          \"functionCode\": 3,\n"
        "          \"byteOrder\": \"BIG_ENDIAN\",\n"
        "          \"scale\": 1,\n"
        "          \"offset\": 0,\n"
        "          \"warnLow\": 0,\n"
        "          \"warnHigh\": 0,\n"
        "          \"alarmLow\": 0,\n"
        "          \"alarmHigh\": 0,\n"
        "          \"alarmOnChange\": false,\n"
        "          \"widgetType\": \"AUTO\"\n"
        "        }\n"
        "      ]\n"
        "    },\n"
        "    {\n"
        "      \"id\": 2,\n"
        "      \"name\": \"empty\",\n"
        "      \"description\": \"\",\n"
        "      \"ip\": \"192.168.1.1\",\n"
        "      \"port\": 502,\n"
        "      \"unitId\": 1,\n"
        "      \"rtuOverTcp\": false,\n"
        "      \"details\": [\n"
        "\n"
        "      ]\n"
        "    }\n"
        "  ]\n"
        "}\n";
    EXPECT_EQ(store.SerializeStructures(), expected);
}

TEST(SerializeStructures, EnumerationsOutsideTheTablesWriteDefaultNames) {
    StructureStore store;
    ModbusStructure s = Structure("x", 1);
    s.details[0].dataType = static_cast<DataType>(40);
    s.details[0].byteOrder = static_cast<ByteOrder>(-1);
    s.details[0].widgetType = static_cast<WidgetType>(9);
    store.AddStructure(s);
    const std::string text = store.SerializeStructures();
    EXPECT_NE(text.find("\"dataType\": \"UINT16\",\n"), std::string::npos);
    EXPECT_NE(text.find("\"byteOrder\": \"BIG_ENDIAN\",\n"), std::string::npos);
    EXPECT_NE(text.find("\"widgetType\": \"AUTO\"\n"), std::string::npos);
}

TEST(SerializeStructures, NegativeIdsAndLargeUnsignedFieldsInDecimal) {
    StructureStore store;
    ModbusStructure s = Structure("x", 1);
    s.port = 65535;
    s.unitId = 255;
    s.details[0].registerAddress = 65535;
    s.details[0].functionCode = 255;
    s.details[0].arraySize = -3;
    store.AddStructure(s);
    const std::string text = store.SerializeStructures();
    EXPECT_NE(text.find("\"port\": 65535,\n"), std::string::npos);
    EXPECT_NE(text.find("\"unitId\": 255,\n"), std::string::npos);
    EXPECT_NE(text.find("\"registerAddress\": 65535,\n"), std::string::npos);
    EXPECT_NE(text.find("\"functionCode\": 255,\n"), std::string::npos);
    EXPECT_NE(text.find("\"arraySize\": -3,\n"), std::string::npos);
}

TEST(ParseStructures, ReproducesEveryFieldOfWhatWasSerialized) {
    StructureStore written;
    ModbusStructure s = Structure("Quote \" backslash \\ line\nfeed\rtab\tsemi;colon \xE2\x82\xAC");
    s.description = "\xC3\xA4\xC3\xB6\xC3\xBC \"quoted\" C:\\path\\ [brackets]";
    s.ip = "127.0.0.1";
    s.port = 1502;
    s.unitId = 247;
    s.rtuOverTcp = true;
    for (int t = 0; t < Modbus::kDataTypeCount; ++t) {
        ModbusDetail d = Detail("detail \\\" " + std::to_string(t));
        d.unit = "u\t" + std::to_string(t);
        d.dataType = static_cast<DataType>(t);
        d.byteOrder = static_cast<ByteOrder>(t % Modbus::kByteOrderCount);
        d.widgetType = static_cast<WidgetType>(t % Modbus::kWidgetTypeCount);
        d.arraySize = t + 1;
        d.registerAddress = static_cast<uint16_t>(1000 * t);
        d.functionCode = static_cast<uint8_t>(1 + t % 4);
        d.scale = 0.5 * (t + 1);
        d.offset = -1.25 * t;
        d.warnLow = -t;
        d.warnHigh = 90 + t;
        d.alarmLow = -100.5;
        d.alarmHigh = 100.25;
        d.alarmOnChange = t % 2 == 1;
        s.details.push_back(d);
    }
    written.AddStructure(s);
    written.AddStructure(Structure("second", 1));

    StructureStore read;
    EXPECT_TRUE(read.ParseStructures(written.SerializeStructures()));
    const auto a = written.Structures();
    const auto b = read.Structures();
    ASSERT_EQ(b.size(), a.size());
    for (size_t i = 0; i < a.size(); ++i) {
        EXPECT_EQ(b[i].id, a[i].id);
        EXPECT_EQ(b[i].name, a[i].name);
        EXPECT_EQ(b[i].description, a[i].description);
        EXPECT_EQ(b[i].ip, a[i].ip);
        EXPECT_EQ(b[i].port, a[i].port);
        EXPECT_EQ(b[i].unitId, a[i].unitId);
        EXPECT_EQ(b[i].rtuOverTcp, a[i].rtuOverTcp);
        ASSERT_EQ(b[i].details.size(), a[i].details.size());
        for (size_t j = 0; j < a[i].details.size(); ++j) {
            const ModbusDetail& x = a[i].details[j];
            const ModbusDetail& y = b[i].details[j];
            EXPECT_EQ(y.id, x.id);
            EXPECT_EQ(y.name, x.name);
            EXPECT_EQ(y.unit, x.unit);
            EXPECT_EQ(y.dataType, x.dataType);
            EXPECT_EQ(y.arraySize, x.arraySize);
            EXPECT_EQ(y.registerAddress, x.registerAddress);
            EXPECT_EQ(y.functionCode, x.functionCode);
            EXPECT_EQ(y.byteOrder, x.byteOrder);
            EXPECT_EQ(y.scale, x.scale);
            EXPECT_EQ(y.offset, x.offset);
            EXPECT_EQ(y.warnLow, x.warnLow);
            EXPECT_EQ(y.warnHigh, x.warnHigh);
            EXPECT_EQ(y.alarmLow, x.alarmLow);
            EXPECT_EQ(y.alarmHigh, x.alarmHigh);
            EXPECT_EQ(y.alarmOnChange, x.alarmOnChange);
            EXPECT_EQ(y.widgetType, x.widgetType);
        }
    }
    // And the text of the reread store is the same text.
    EXPECT_EQ(read.SerializeStructures(), written.SerializeStructures());
}

TEST(ParseStructures, DoublesKeepOnlySixSignificantDigits) {
    StructureStore written;
    ModbusStructure s = Structure("x", 1);
    s.details[0].scale = 0.123456789;
    written.AddStructure(s);
    StructureStore read;
    read.ParseStructures(written.SerializeStructures());
    EXPECT_EQ(read.Structures()[0].details[0].scale, 0.123457);
}

TEST(ParseStructures, ANameEndingInABackslashDoesNotSurviveTheReader) {
    // The reader ends a string at a quote not preceded by a backslash, so the escaped backslash
    // at the end of this name makes it run on to the next quote.
    StructureStore written;
    ModbusStructure s = Structure("dir\\");
    s.description = "next";
    written.AddStructure(s);
    StructureStore read;
    read.ParseStructures(written.SerializeStructures());
    ASSERT_EQ(read.Structures().size(), 1u);
    EXPECT_EQ(read.Structures()[0].name, "dir\\\",\n      ");
    EXPECT_EQ(read.Structures()[0].description, "next");
}

TEST(ParseStructures, StructureWithoutIpIsSkippedTogetherWithEverythingAfterIt) {
    const std::string text = "{\n  \"structures\": [\n" + StructureObject("1") + ",\n" +
                             "    {\n      \"id\": 2,\n      \"name\": \"no address\",\n      \"details\": [\n      ]\n    },\n" +
                             StructureObject("3") + "\n  ]\n}\n";
    StructureStore store;
    EXPECT_TRUE(store.ParseStructures(text));
    // The "ip" after structure 2 belongs to structure 3, whose brace is the nearest before it:
    // so structure 2 is skipped but 3 is found.
    const auto list = store.Structures();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].name, "S1");
    EXPECT_EQ(list[1].name, "S3");

    const std::string lastWithoutIp = "{\n  \"structures\": [\n" + StructureObject("1") + ",\n" +
                                      "    {\n      \"id\": 2,\n      \"name\": \"no address\"\n    }\n  ]\n}\n";
    store.ParseStructures(lastWithoutIp);
    ASSERT_EQ(store.Structures().size(), 1u);
    EXPECT_EQ(store.Structures()[0].name, "S1");
}

TEST(ParseStructures, ABraceInANameBeforeTheIpIsTakenForTheObjectsBrace) {
    // The reader walks back from "ip": to the nearest brace, wherever it stands: a brace in the
    // name or description makes the structure an empty object of that text.
    StructureStore written;
    ModbusStructure s = Structure("tank {1}", 1);
    written.AddStructure(s);
    written.AddStructure(Structure("next"));
    StructureStore read;
    read.ParseStructures(written.SerializeStructures());
    const auto list = read.Structures();
    ASSERT_EQ(list.size(), 2u);
    EXPECT_EQ(list[0].name, "");
    EXPECT_EQ(list[0].ip, "");
    EXPECT_TRUE(list[0].details.empty());
    EXPECT_EQ(list[1].name, "next");
}

TEST(ParseStructures, UnmatchedBraceStopsKeepingWhatWasRead) {
    const std::string text = "{\"structures\": [\n" + StructureObject("1") + ",\n    {\n      \"ip\": \"1.1.1.1\",\n";
    StructureStore store;
    EXPECT_TRUE(store.ParseStructures(text));
    ASSERT_EQ(store.Structures().size(), 1u);
    EXPECT_EQ(store.Structures()[0].id, 1);
}

TEST(ParseStructures, UnknownDataTypeLoadsAsUint16AndMissingArraySizeKeepsOne) {
    const std::string text =
        "{\"structures\": [{\n\"id\": 4,\n\"ip\": \"1.2.3.4\",\n\"details\": [\n{\n\"id\": 8,\n"
        "\"dataType\": \"DOUBLE\",\n\"byteOrder\": \"MIDDLE_ENDIAN\",\n\"widgetType\": \"DIAL\"\n}\n]\n}]}";
    StructureStore store;
    store.ParseStructures(text);
    ASSERT_EQ(store.Structures().size(), 1u);
    ASSERT_EQ(store.Structures()[0].details.size(), 1u);
    const ModbusDetail d = store.Structures()[0].details[0];
    EXPECT_EQ(d.id, 8);
    EXPECT_EQ(d.dataType, DataType::UInt16);
    EXPECT_EQ(d.byteOrder, ByteOrder::BigEndian);
    EXPECT_EQ(d.widgetType, WidgetType::Auto);
    EXPECT_EQ(d.arraySize, 1);
    EXPECT_EQ(d.functionCode, 3);
    EXPECT_EQ(d.scale, 1.0);
    EXPECT_FALSE(d.alarmOnChange);
}

TEST(ParseStructures, MissingKeysGiveDefaultsAndAbsentIpIsEmpty) {
    StructureStore store;
    store.ParseStructures("{\"ip\": 5}");
    ASSERT_EQ(store.Structures().size(), 1u);
    const ModbusStructure s = store.Structures()[0];
    EXPECT_EQ(s.id, 0);
    EXPECT_EQ(s.ip, "");  // "ip" is there but not as a string value
    EXPECT_EQ(s.port, 502);
    EXPECT_EQ(s.unitId, 1);
    EXPECT_FALSE(s.rtuOverTcp);
    EXPECT_TRUE(s.details.empty());
}

TEST(ParseStructures, NumbersAreNarrowedAndLiteralsMustBeExactlyTrue) {
    StructureStore store;
    store.ParseStructures(
        "{\"id\": 3, \"ip\": \"x\", \"port\": 70000, \"unitId\": 300, \"rtuOverTcp\": True, \"details\": [{\"id\": 1, "
        "\"registerAddress\": -1, \"functionCode\": 259, \"alarmOnChange\": true }]}");
    const ModbusStructure s = store.Structures().at(0);
    EXPECT_EQ(s.port, 70000 & 0xFFFF);
    EXPECT_EQ(s.unitId, 300 & 0xFF);
    EXPECT_FALSE(s.rtuOverTcp);
    ASSERT_EQ(s.details.size(), 1u);
    EXPECT_EQ(s.details[0].registerAddress, 65535);
    EXPECT_EQ(s.details[0].functionCode, 3);
    EXPECT_TRUE(s.details[0].alarmOnChange);  // trailing blanks are trimmed
}

TEST(ParseStructures, CountersRiseAboveTheIdsReadButAreNeverReset) {
    StructureStore store;
    store.AddStructure(Structure("a", 1));
    store.AddStructure(Structure("b", 1));
    const std::string text = "{\n" + StructureObject("5") + ",\n" + StructureObject("9") + "\n}";
    store.ParseStructures(text);
    EXPECT_EQ(store.AddStructure(Structure("c")), 10);

    StructureStore higher;
    for (int i = 0; i < 20; ++i) higher.AddStructure(Structure("x"));
    higher.ParseStructures(text);
    EXPECT_EQ(higher.AddStructure(Structure("c")), 21);
}

TEST(ParseStructures, DetailIdsRaiseTheDetailCounter) {
    StructureStore store;
    store.ParseStructures(
        "{\"id\": 2, \"ip\": \"a\", \"details\": [ {\"id\": 40}, {\"id\": 7} ]}");
    EXPECT_EQ(store.NextDetailId(), 41);
    EXPECT_EQ(store.NextStructureId(), 3);
    ModbusStructure s = Structure("n", 1);
    store.AddStructure(s);
    EXPECT_EQ(store.Structures().back().details[0].id, 41);
}

TEST(ParseStructures, HighestIdWrapsTheCounterInsteadOfOverflowing) {
    StructureStore store;
    store.ParseStructures("{\"id\": 2147483647, \"ip\": \"a\"}");
    EXPECT_EQ(store.NextStructureId(), INT32_MIN);
}

TEST(ParseStructures, EmptyTextAndEmptyObjectGiveAnEmptyList) {
    StructureStore store;
    store.AddStructure(Structure("old"));
    EXPECT_FALSE(store.ParseStructures(""));
    EXPECT_TRUE(store.Structures().empty());
    store.AddStructure(Structure("old"));
    EXPECT_FALSE(store.ParseStructures("{}"));
    EXPECT_TRUE(store.Structures().empty());
    EXPECT_FALSE(store.ParseStructures("{\n  \"structures\": [\n\n  ]\n}\n"));
}

TEST(ParseStructures, MalformedNumberThrowsAndKeepsTheStructuresBeforeIt) {
    const std::string text = "{\n" + StructureObject("1") + ",\n" + StructureObject("2", "      \"port\": abc,\n") +
                             ",\n" + StructureObject("3") + "\n}";
    StructureStore store;
    try {
        store.ParseStructures(text);
        FAIL() << "no error";
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "invalid stoi argument");
    }
    ASSERT_EQ(store.Structures().size(), 1u);
    EXPECT_EQ(store.Structures()[0].id, 1);
    // The lock was released as the error left the parser.
    EXPECT_EQ(store.AddStructure(Structure("after")), 2);
}

TEST(ParseStructures, OutOfRangeNumbersThrowTheStandardErrors) {
    StructureStore store;
    EXPECT_THROW(store.ParseStructures("{\"id\": 99999999999, \"ip\": \"a\"}"), std::out_of_range);
    try {
        store.ParseStructures("{\"ip\": \"a\", \"details\": [{\"scale\": 1e400}]}");
        FAIL();
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "stod argument out of range");
    }
    try {
        store.ParseStructures("{\"ip\": \"a\", \"details\": [{\"offset\": -}]}");
        FAIL();
    } catch (const std::invalid_argument& e) {
        EXPECT_STREQ(e.what(), "invalid stod argument");
    }
}

TEST(ParseStructures, NonFiniteDoublesRoundTrip) {
    StructureStore written;
    ModbusStructure s = Structure("x", 1);
    s.details[0].alarmHigh = INFINITY;
    s.details[0].alarmLow = -INFINITY;
    s.details[0].warnHigh = NAN;
    written.AddStructure(s);
    StructureStore read;
    read.ParseStructures(written.SerializeStructures());
    const ModbusDetail d = read.Structures().at(0).details.at(0);
    EXPECT_EQ(d.alarmHigh, INFINITY);
    EXPECT_EQ(d.alarmLow, -INFINITY);
    EXPECT_TRUE(std::isnan(d.warnHigh));
}

TEST(ParseStructures, DetailsAreFoundWhereverTheNextBraceIs) {
    // The search for detail objects is not bounded by the closing bracket.
    StructureStore store;
    store.ParseStructures("{\"ip\": \"a\", \"details\": [], \"extra\": {\"name\": \"stray\"}}");
    ASSERT_EQ(store.Structures().size(), 1u);
    ASSERT_EQ(store.Structures()[0].details.size(), 1u);
    EXPECT_EQ(store.Structures()[0].details[0].name, "stray");
}

TEST(StructureStoreEditing, UpdateRemoveAndDetailsKeepIdsUnique) {
    StructureStore store;
    const int32_t id = store.AddStructure(Structure("a", 2));
    ModbusStructure fields = Structure("renamed");
    fields.ip = "10.0.0.9";
    fields.port = 1503;
    fields.unitId = 9;
    fields.rtuOverTcp = true;
    EXPECT_TRUE(store.UpdateStructureFields(id, fields));
    auto s = store.FindStructure(id);
    ASSERT_TRUE(s);
    EXPECT_EQ(s->name, "renamed");
    EXPECT_EQ(s->ip, "10.0.0.9");
    EXPECT_EQ(s->details.size(), 2u);
    EXPECT_EQ(s->id, id);

    EXPECT_EQ(store.AddDetail(id, Detail("third")), 3);
    ModbusDetail changed = store.FindStructure(id)->details[2];
    changed.unit = "bar";
    EXPECT_TRUE(store.UpdateDetail(id, changed));
    EXPECT_EQ(store.FindStructure(id)->details[2].unit, "bar");
    EXPECT_TRUE(store.RemoveDetail(id, 1));
    EXPECT_FALSE(store.RemoveDetail(id, 1));
    EXPECT_EQ(store.FindStructure(id)->details.size(), 2u);
    EXPECT_EQ(store.AddDetail(999, Detail("none")), 0);
    EXPECT_TRUE(store.RemoveStructure(id));
    EXPECT_FALSE(store.FindStructure(id));
    EXPECT_FALSE(store.RemoveStructure(id));
    EXPECT_FALSE(store.UpdateStructureFields(id, fields));
}

TEST(DemoStructure, IsTheDemoDeviceWithSixteenDetails) {
    const ModbusStructure s = BuildDemoStructure();
    EXPECT_EQ(s.name, "Demo-Geraet");
    EXPECT_EQ(s.description, "Beispielgeraet mit allen Datentypen");
    EXPECT_EQ(s.ip, "127.0.0.1");
    EXPECT_EQ(s.port, 1502);
    EXPECT_EQ(s.unitId, 1);
    EXPECT_FALSE(s.rtuOverTcp);
    struct Row {
        const char* name;
        const char* unit;
        DataType type;
        uint16_t address;
        uint8_t fc;
        ByteOrder order;
        double scale;
        double offset;
        int32_t arraySize;
    };
    const char* degrees = "\xC2\xB0" "C";
    const Row rows[] = {
        {"Status Coil 0", "", DataType::Boolean, 0, 1, ByteOrder::BigEndian, 1, 0, 1},
        {"Digital Input 1", "", DataType::Boolean, 1, 2, ByteOrder::BigEndian, 1, 0, 1},
        {"Temperatur", degrees, DataType::Float32, 100, 3, ByteOrder::BigEndian, 0.1, -50, 1},
        {"Druck", "bar", DataType::Float32, 102, 3, ByteOrder::BigEndian, 0.01, 0, 1},
        {"Drehzahl", "rpm", DataType::UInt16, 104, 3, ByteOrder::BigEndian, 1, 0, 1},
        {"Leistung", "kW", DataType::UInt32, 106, 3, ByteOrder::BigEndian, 0.001, 0, 1},
        {"Energie", "kWh", DataType::UInt64, 110, 3, ByteOrder::BigEndian, 0.001, 0, 1},
        {"Spannung", "V", DataType::Float32, 118, 4, ByteOrder::BigEndian, 0.1, 0, 1},
        {"Strom", "A", DataType::Float32, 120, 4, ByteOrder::BigEndian, 0.001, 0, 1},
        {"Frequenz", "Hz", DataType::Float32, 122, 4, ByteOrder::LittleEndianSwap, 0.01, 0, 1},
        {"Betriebsstunden", "h", DataType::UInt32, 130, 3, ByteOrder::BigEndian, 1, 0, 1},
        {"Fehlerzaehler", "", DataType::Int16, 132, 3, ByteOrder::BigEndian, 1, 0, 1},
        {"Steuerregister", "", DataType::UInt16, 200, 6, ByteOrder::BigEndian, 1, 0, 1},
        {"Solltemperatur", degrees, DataType::Float32, 202, 16, ByteOrder::BigEndian, 0.1, 0, 1},
        {"Geraetekennung", "", DataType::String, 300, 3, ByteOrder::BigEndian, 1, 0, 8},
        {"Rohdaten Register", "", DataType::Raw, 310, 3, ByteOrder::BigEndian, 1, 0, 4},
    };
    ASSERT_EQ(s.details.size(), 16u);
    for (size_t i = 0; i < 16; ++i) {
        const ModbusDetail& d = s.details[i];
        const Row& r = rows[i];
        EXPECT_EQ(d.name, r.name);
        EXPECT_EQ(d.unit, r.unit) << r.name;
        EXPECT_EQ(d.dataType, r.type) << r.name;
        EXPECT_EQ(d.registerAddress, r.address) << r.name;
        EXPECT_EQ(d.functionCode, r.fc) << r.name;
        EXPECT_EQ(d.byteOrder, r.order) << r.name;
        EXPECT_EQ(d.scale, r.scale) << r.name;
        EXPECT_EQ(d.offset, r.offset) << r.name;
        EXPECT_EQ(d.arraySize, r.arraySize) << r.name;
        EXPECT_EQ(d.warnLow, 0.0);
        EXPECT_EQ(d.warnHigh, 90.0);
        EXPECT_EQ(d.alarmLow, 0.0);
        EXPECT_EQ(d.alarmHigh, 100.0);
        EXPECT_FALSE(d.alarmOnChange);
        EXPECT_EQ(d.widgetType, WidgetType::Auto);
    }
}
