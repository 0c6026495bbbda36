#include "model/structure.h"

#include <gtest/gtest.h>

using Modbus::ByteOrder;
using Modbus::DataType;
using Modbus::ModbusDetail;
using Modbus::WidgetType;

TEST(ModbusStructure, DefaultsAreThoseOfANewDevice) {
    const ModbusStructure s;
    EXPECT_EQ(s.id, 0);
    EXPECT_EQ(s.name, "");
    EXPECT_EQ(s.description, "");
    EXPECT_EQ(s.ip, "192.168.1.1");
    EXPECT_EQ(s.port, 502);
    EXPECT_EQ(s.unitId, 1);
    EXPECT_FALSE(s.rtuOverTcp);
    EXPECT_TRUE(s.details.empty());
}

TEST(ModbusDetail, DefaultsAreAHoldingRegisterUint16) {
    const ModbusDetail d;
    EXPECT_EQ(d.id, 0);
    EXPECT_EQ(d.name, "");
    EXPECT_EQ(d.unit, "");
    EXPECT_EQ(d.dataType, DataType::UInt16);
    EXPECT_EQ(d.arraySize, 1);
    EXPECT_EQ(d.registerAddress, 0);
    EXPECT_EQ(d.functionCode, 3);
    EXPECT_EQ(d.byteOrder, ByteOrder::BigEndian);
    EXPECT_EQ(d.scale, 1.0);
    EXPECT_EQ(d.offset, 0.0);
    EXPECT_EQ(d.warnLow, 0.0);
    EXPECT_EQ(d.warnHigh, 0.0);
    EXPECT_EQ(d.alarmLow, 0.0);
    EXPECT_EQ(d.alarmHigh, 0.0);
    EXPECT_FALSE(d.alarmOnChange);
    EXPECT_EQ(d.widgetType, WidgetType::Auto);
}

TEST(ModbusDetail, EnumerationsAre32BitWithTheTableValues) {
    static_assert(sizeof(DataType) == 4 && sizeof(ByteOrder) == 4 && sizeof(WidgetType) == 4);
    EXPECT_EQ(static_cast<int>(DataType::Boolean), 0);
    EXPECT_EQ(static_cast<int>(DataType::Float32), 8);
    EXPECT_EQ(static_cast<int>(DataType::Raw), 11);
    EXPECT_EQ(static_cast<int>(ByteOrder::LittleEndianSwap), 3);
    EXPECT_EQ(static_cast<int>(WidgetType::Chart), 4);
}

TEST(TypeNames, EveryDataTypeWritesAndParsesItsName) {
    const char* names[] = {"BOOLEAN", "BYTE",   "INT16",   "UINT16",  "INT32",  "UINT32",
                           "INT64",   "UINT64", "FLOAT32", "FLOAT64", "STRING", "RAW"};
    for (int i = 0; i < 12; ++i) {
        EXPECT_STREQ(Modbus::DataTypeName(static_cast<DataType>(i)), names[i]);
        EXPECT_EQ(Modbus::ParseDataType(names[i]), static_cast<DataType>(i));
    }
}

TEST(TypeNames, EveryByteOrderAndWidgetWritesAndParsesItsName) {
    const char* orders[] = {"BIG_ENDIAN", "LITTLE_ENDIAN", "BIG_ENDIAN_SWAP", "LITTLE_ENDIAN_SWAP"};
    for (int i = 0; i < 4; ++i) {
        EXPECT_STREQ(Modbus::ByteOrderName(static_cast<ByteOrder>(i)), orders[i]);
        EXPECT_EQ(Modbus::ParseByteOrder(orders[i]), static_cast<ByteOrder>(i));
    }
    const char* widgets[] = {"AUTO", "VALUE", "LED", "GAUGE", "CHART"};
    for (int i = 0; i < 5; ++i) {
        EXPECT_STREQ(Modbus::WidgetTypeName(static_cast<WidgetType>(i)), widgets[i]);
        EXPECT_EQ(Modbus::ParseWidgetType(widgets[i]), static_cast<WidgetType>(i));
    }
}

TEST(TypeNames, ValuesOutsideTheTablesWriteTheDefaultNames) {
    EXPECT_STREQ(Modbus::DataTypeName(static_cast<DataType>(12)), "UINT16");
    EXPECT_STREQ(Modbus::DataTypeName(static_cast<DataType>(-1)), "UINT16");
    EXPECT_STREQ(Modbus::ByteOrderName(static_cast<ByteOrder>(4)), "BIG_ENDIAN");
    EXPECT_STREQ(Modbus::ByteOrderName(static_cast<ByteOrder>(INT32_MIN)), "BIG_ENDIAN");
    EXPECT_STREQ(Modbus::WidgetTypeName(static_cast<WidgetType>(5)), "AUTO");
}

TEST(TypeNames, ParseIsExactAndCaseSensitiveWithDefaultsForUnknownNames) {
    EXPECT_EQ(Modbus::ParseDataType("float32"), DataType::UInt16);
    EXPECT_EQ(Modbus::ParseDataType(""), DataType::UInt16);
    EXPECT_EQ(Modbus::ParseDataType("FLOAT32 "), DataType::UInt16);
    EXPECT_EQ(Modbus::ParseDataType(std::string("RAW\0", 4)), DataType::UInt16);
    EXPECT_EQ(Modbus::ParseByteOrder("little_endian"), ByteOrder::BigEndian);
    EXPECT_EQ(Modbus::ParseByteOrder("LITTLE"), ByteOrder::BigEndian);
    EXPECT_EQ(Modbus::ParseWidgetType("Led"), WidgetType::Auto);
    EXPECT_TRUE(Modbus::IsDataTypeName("RAW"));
    EXPECT_FALSE(Modbus::IsDataTypeName("raw"));
    EXPECT_TRUE(Modbus::IsByteOrderName("BIG_ENDIAN_SWAP"));
    EXPECT_TRUE(Modbus::IsWidgetTypeName("GAUGE"));
}

namespace {
ModbusDetail Detail(DataType type, int32_t arraySize) {
    ModbusDetail d;
    d.dataType = type;
    d.arraySize = arraySize;
    return d;
}
}  // namespace

TEST(RegisterCountFor, OneTwoOrFourRegistersPerElement) {
    for (DataType t : {DataType::Boolean, DataType::Byte, DataType::Int16, DataType::UInt16, DataType::String,
                       DataType::Raw}) {
        EXPECT_EQ(Modbus::RegisterCountFor(Detail(t, 3)), 3) << Modbus::DataTypeName(t);
    }
    for (DataType t : {DataType::Int32, DataType::UInt32, DataType::Float32}) {
        EXPECT_EQ(Modbus::RegisterCountFor(Detail(t, 3)), 6) << Modbus::DataTypeName(t);
    }
    for (DataType t : {DataType::Int64, DataType::UInt64, DataType::Float64}) {
        EXPECT_EQ(Modbus::RegisterCountFor(Detail(t, 3)), 12) << Modbus::DataTypeName(t);
    }
}

TEST(RegisterCountFor, TypeOutsideTheTableTakesOneRegister) {
    EXPECT_EQ(Modbus::RegisterCountFor(Detail(static_cast<DataType>(99), 50)), 1);
}

TEST(RegisterCountFor, ProductIsTruncatedTo16Bits) {
    EXPECT_EQ(Modbus::RegisterCountFor(Detail(DataType::Float64, 16385)), 4);   // 65540
    EXPECT_EQ(Modbus::RegisterCountFor(Detail(DataType::UInt16, 65536)), 0);
    EXPECT_EQ(Modbus::RegisterCountFor(Detail(DataType::UInt16, -1)), 0xFFFF);
    EXPECT_EQ(Modbus::RegisterCountFor(Detail(DataType::Int64, INT32_MAX)), 0xFFFC);
}
