#include "model/value_decoding.h"

#include <gtest/gtest.h>

#include <cmath>

#include "model/value_display.h"

using Modbus::ByteOrder;
using Modbus::DataType;
using Modbus::ModbusDetail;
using Regs = std::vector<uint16_t>;

namespace {

ModbusDetail Detail(DataType type, ByteOrder order = ByteOrder::BigEndian) {
    ModbusDetail d;
    d.dataType = type;
    d.byteOrder = order;
    return d;
}

int64_t AsInt(const DecodedValue& v) {
    EXPECT_EQ(v.index(), 1u);
    return v.index() == 1 ? std::get<int64_t>(v) : -12345;
}

double AsDouble(const DecodedValue& v) {
    EXPECT_EQ(v.index(), 2u);
    return v.index() == 2 ? std::get<double>(v) : -12345.0;
}

}  // namespace

TEST(DecodedValue, HasFiveAlternativesInOrderAndStartsAsFalse) {
    static_assert(std::variant_size_v<DecodedValue> == 5);
    static_assert(std::is_same_v<std::variant_alternative_t<0, DecodedValue>, bool>);
    static_assert(std::is_same_v<std::variant_alternative_t<1, DecodedValue>, int64_t>);
    static_assert(std::is_same_v<std::variant_alternative_t<2, DecodedValue>, double>);
    static_assert(std::is_same_v<std::variant_alternative_t<3, DecodedValue>, std::string>);
    static_assert(std::is_same_v<std::variant_alternative_t<4, DecodedValue>, std::vector<uint16_t>>);
    const DecodedValue initial;
    EXPECT_EQ(initial.index(), 0u);
    EXPECT_FALSE(std::get<bool>(initial));
}

TEST(DecodeValue, Uint32InTheFourByteOrders) {
    const Regs regs{0x1234, 0x5678};
    EXPECT_EQ(AsInt(DecodeValue(regs, Detail(DataType::UInt32, ByteOrder::BigEndian))), 0x12345678);
    EXPECT_EQ(AsInt(DecodeValue(regs, Detail(DataType::UInt32, ByteOrder::LittleEndian))), 0x78563412);
    EXPECT_EQ(AsInt(DecodeValue(regs, Detail(DataType::UInt32, ByteOrder::BigEndianSwap))), 0x34127856);
    EXPECT_EQ(AsInt(DecodeValue(regs, Detail(DataType::UInt32, ByteOrder::LittleEndianSwap))), 0x56781234);
}

TEST(DecodeValue, ByteOrderOutsideTheTableAppliesNoPermutation) {
    EXPECT_EQ(AsInt(DecodeValue({0x1234, 0x5678}, Detail(DataType::UInt32, static_cast<ByteOrder>(7)))), 0x12345678);
    EXPECT_EQ(OrderedByteImage({0x1234}, static_cast<ByteOrder>(-3)), (std::vector<uint8_t>{0x12, 0x34}));
}

TEST(DecodeValue, OrderedByteImageOfThreeRegisters) {
    const Regs regs{0x0102, 0x0304, 0x0506};
    EXPECT_EQ(OrderedByteImage(regs, ByteOrder::BigEndian), (std::vector<uint8_t>{1, 2, 3, 4, 5, 6}));
    EXPECT_EQ(OrderedByteImage(regs, ByteOrder::LittleEndian), (std::vector<uint8_t>{6, 5, 4, 3, 2, 1}));
    EXPECT_EQ(OrderedByteImage(regs, ByteOrder::BigEndianSwap), (std::vector<uint8_t>{2, 1, 4, 3, 6, 5}));
    EXPECT_EQ(OrderedByteImage(regs, ByteOrder::LittleEndianSwap), (std::vector<uint8_t>{5, 6, 3, 4, 1, 2}));
}

TEST(DecodeValue, Int16OfFFFFIsMinusOneAndUint16Is65535) {
    EXPECT_EQ(AsInt(DecodeValue({0xFFFF}, Detail(DataType::Int16))), -1);
    EXPECT_EQ(AsInt(DecodeValue({0xFFFF}, Detail(DataType::UInt16))), 65535);
    EXPECT_EQ(AsInt(DecodeValue({0x8000}, Detail(DataType::Int16))), -32768);
}

TEST(DecodeValue, Float32Of4148And0000Is12Point5) {
    EXPECT_EQ(AsDouble(DecodeValue({0x4148, 0x0000}, Detail(DataType::Float32))), 12.5);
    // The same value with the words swapped, as the demo's Frequenz reads it.
    EXPECT_EQ(AsDouble(DecodeValue({0x0000, 0x4148}, Detail(DataType::Float32, ByteOrder::LittleEndianSwap))), 12.5);
    EXPECT_EQ(AsDouble(DecodeValue({0x4841, 0x0000}, Detail(DataType::Float32, ByteOrder::BigEndianSwap))), 12.5);
    EXPECT_EQ(AsDouble(DecodeValue({0x0000, 0x4841}, Detail(DataType::Float32, ByteOrder::LittleEndian))), 12.5);
}

TEST(DecodeValue, Float32NanAndInfinityPassThrough) {
    EXPECT_TRUE(std::isnan(AsDouble(DecodeValue({0x7FC0, 0x0000}, Detail(DataType::Float32)))));
    EXPECT_EQ(AsDouble(DecodeValue({0xFF80, 0x0000}, Detail(DataType::Float32))), -INFINITY);
}

TEST(DecodeValue, SingleRegisterAsInt32IsTheUpperHalf) {
    EXPECT_EQ(AsInt(DecodeValue({0x1234}, Detail(DataType::Int32))), 0x12340000);
    EXPECT_EQ(AsInt(DecodeValue({0x1234}, Detail(DataType::UInt32))), 0x12340000);
    // The zero fill follows the permutation: a reversed single register is 34 12, then zeros.
    EXPECT_EQ(AsInt(DecodeValue({0x1234}, Detail(DataType::UInt32, ByteOrder::LittleEndian))), 0x34120000);
}

TEST(DecodeValue, Int32IsSignExtendedUint32IsNot) {
    EXPECT_EQ(AsInt(DecodeValue({0xFFFF, 0xFFFE}, Detail(DataType::Int32))), -2);
    EXPECT_EQ(AsInt(DecodeValue({0xFFFF, 0xFFFE}, Detail(DataType::UInt32))), 4294967294LL);
}

TEST(DecodeValue, SixtyFourBitIntegersTakeTheBitsAsTheyAre) {
    const Regs regs{0x0102, 0x0304, 0x0506, 0x0708};
    EXPECT_EQ(AsInt(DecodeValue(regs, Detail(DataType::Int64))), 0x0102030405060708LL);
    EXPECT_EQ(AsInt(DecodeValue(regs, Detail(DataType::UInt64, ByteOrder::LittleEndian))), 0x0807060504030201LL);
    EXPECT_EQ(AsInt(DecodeValue({0xFFFF, 0xFFFF, 0xFFFF, 0xFFFF}, Detail(DataType::UInt64))), -1);
    EXPECT_EQ(AsInt(DecodeValue({0x0000, 0x0001}, Detail(DataType::Int64))), 0x0000000100000000LL);
}

TEST(DecodeValue, Float64OfFourRegistersAndZeroFilledShortRead) {
    EXPECT_EQ(AsDouble(DecodeValue({0x4029, 0x0000, 0x0000, 0x0000}, Detail(DataType::Float64))), 12.5);
    // Two registers are zero-filled to eight bytes before the double is read.
    EXPECT_EQ(AsDouble(DecodeValue({0x4029, 0x0000}, Detail(DataType::Float64))), 12.5);
}

TEST(DecodeValue, StringSkipsZeroBytesWithoutEndingThere) {
    const DecodedValue v = DecodeValue({0x4142, 0x0043, 0x4400}, Detail(DataType::String));
    ASSERT_EQ(v.index(), 3u);
    EXPECT_EQ(std::get<std::string>(v), "ABCD");
}

TEST(DecodeValue, StringIgnoresTheByteOrderAndKeepsUtf8Bytes) {
    const DecodedValue v = DecodeValue({0x4142, 0xC3A4, 0x0000}, Detail(DataType::String, ByteOrder::LittleEndian));
    ASSERT_EQ(v.index(), 3u);
    EXPECT_EQ(std::get<std::string>(v), "AB\xC3\xA4");
    EXPECT_EQ(std::get<std::string>(DecodeValue({0x0000, 0x0000}, Detail(DataType::String))), "");
}

TEST(DecodeValue, BooleanIsBitZeroOfTheFirstRegister) {
    const DecodedValue two = DecodeValue({2}, Detail(DataType::Boolean));
    const DecodedValue three = DecodeValue({3}, Detail(DataType::Boolean));
    ASSERT_EQ(two.index(), 0u);
    ASSERT_EQ(three.index(), 0u);
    EXPECT_FALSE(std::get<bool>(two));
    EXPECT_TRUE(std::get<bool>(three));
    // The byte order does not matter: 0x0100 would be 1 in the low byte if it were swapped.
    EXPECT_FALSE(std::get<bool>(DecodeValue({0x0100}, Detail(DataType::Boolean, ByteOrder::BigEndianSwap))));
}

TEST(DecodeValue, ByteIsTheSecondByteOfThePermutedImage) {
    EXPECT_EQ(AsInt(DecodeValue({0x12FE}, Detail(DataType::Byte))), 0xFE);
    EXPECT_EQ(AsInt(DecodeValue({0x12FE}, Detail(DataType::Byte, ByteOrder::BigEndianSwap))), 0x12);
    EXPECT_EQ(AsInt(DecodeValue({0x1234, 0x5678}, Detail(DataType::Byte, ByteOrder::LittleEndian))), 0x56);
}

TEST(DecodeValue, RawIsACopyOfTheRegistersAsReceived) {
    const Regs regs{0x0001, 0xABCD, 0x8000};
    const DecodedValue v = DecodeValue(regs, Detail(DataType::Raw, ByteOrder::LittleEndian));
    ASSERT_EQ(v.index(), 4u);
    EXPECT_EQ(std::get<Regs>(v), regs);
}

TEST(DecodeValue, EmptyRegistersGiveInt64ZeroForEveryType) {
    for (int t = -1; t <= 12; ++t) {
        const DecodedValue v = DecodeValue({}, Detail(static_cast<DataType>(t)));
        ASSERT_EQ(v.index(), 1u) << t;
        EXPECT_EQ(std::get<int64_t>(v), 0) << t;
    }
}

TEST(DecodeValue, TypeOutsideTheTableGivesInt64Zero) {
    EXPECT_EQ(AsInt(DecodeValue({0x1234}, Detail(static_cast<DataType>(12)))), 0);
}

TEST(DecodeValue, ArraysDecodeOnlyTheFirstElement) {
    ModbusDetail d = Detail(DataType::Int16);
    d.arraySize = 3;
    EXPECT_EQ(AsInt(DecodeValue({0x0005, 0x0006, 0x0007}, d)), 5);
}

TEST(DecodeValue, ScalingIsNotApplied) {
    ModbusDetail d = Detail(DataType::UInt16);
    d.scale = 0.1;
    d.offset = -50;
    EXPECT_EQ(AsInt(DecodeValue({700}, d)), 700);
}

TEST(ValueDisplay, TextsByKindOfValue) {
    ModbusDetail d = Detail(DataType::UInt16);
    EXPECT_EQ(FormatDisplayText(d, DecodedValue{true}), "ON");
    EXPECT_EQ(FormatDisplayText(d, DecodedValue{false}), "OFF");
    EXPECT_EQ(FormatDisplayText(d, DecodedValue{int64_t{-42}}), "-42");
    EXPECT_EQ(FormatDisplayText(d, DecodedValue{12.5}), "12.500");
    EXPECT_EQ(FormatDisplayText(d, DecodedValue{std::string("ABCD")}), "ABCD");
    EXPECT_EQ(FormatDisplayText(d, DecodedValue{Regs{0x0001, 0xABCD}}), "0001 ABCD");
    EXPECT_EQ(FormatDisplayText(d, DecodedValue{Regs{}}), "");
    d.unit = "rpm";
    EXPECT_EQ(FormatDisplayText(d, DecodedValue{int64_t{1500}}), "1500 rpm");
    EXPECT_EQ(FormatDisplayText(d, DecodedValue{true}), "ON");
    d.scale = 0.1;
    d.offset = -50;
    EXPECT_EQ(FormatDisplayText(d, DecodedValue{int64_t{700}}), "20.000 rpm");
    EXPECT_EQ(FormatDisplayText(d, DecodedValue{12.5}), "-48.750 rpm");
}

TEST(ValueDisplay, NumericValueOfEachKind) {
    EXPECT_EQ(NumericValue(DecodedValue{true}), 1.0);
    EXPECT_EQ(NumericValue(DecodedValue{false}), 0.0);
    EXPECT_EQ(NumericValue(DecodedValue{int64_t{-7}}), -7.0);
    EXPECT_EQ(NumericValue(DecodedValue{2.25}), 2.25);
    EXPECT_EQ(NumericValue(DecodedValue{std::string("12")}), 0.0);
    EXPECT_EQ(NumericValue(DecodedValue{Regs{9, 8}}), 9.0);
    EXPECT_EQ(NumericValue(DecodedValue{Regs{}}), 0.0);
}
