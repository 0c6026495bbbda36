#include "protocol/frame_codec.h"

#include <gtest/gtest.h>

#include "protocol/modbus_client.h"

using Modbus::Bytes;

TEST(Crc16, OfReadHoldingRequestIsCDC5) {
    const Bytes frame{0x01, 0x03, 0x00, 0x00, 0x00, 0x0A};
    EXPECT_EQ(Crc16(frame.data(), frame.size()), 0xCDC5);
}

TEST(Crc16, OfEmptyBufferIsFFFF) { EXPECT_EQ(Crc16(nullptr, 0), 0xFFFF); }

TEST(BuildRtuRequest, AppendsCrcLowByteFirst) {
    EXPECT_EQ(BuildRtuRequest(1, 3, {0x00, 0x00, 0x00, 0x0A}), (Bytes{0x01, 0x03, 0x00, 0x00, 0x00, 0x0A, 0xC5, 0xCD}));
}

TEST(BuildRtuRequest, WithNoDataHasUnitFunctionAndCrc) {
    const Bytes frame = BuildRtuRequest(0x11, 0x07, {});
    ASSERT_EQ(frame.size(), 4u);
    EXPECT_EQ(frame[0], 0x11);
    EXPECT_EQ(frame[1], 0x07);
    EXPECT_TRUE(HasValidCrc(frame));
}

TEST(BuildTcpRequest, FirstRequestCarriesTransactionIdZero) {
    ModbusClient client;
    EXPECT_EQ(client.BuildTcpRequest(1, 3, {0x00, 0x00, 0x00, 0x0A}),
              (Bytes{0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x01, 0x03, 0x00, 0x00, 0x00, 0x0A}));
    EXPECT_EQ(client.BuildTcpRequest(1, 3, {0x00, 0x00, 0x00, 0x0A})[1], 0x01);
}

TEST(BuildTcpRequest, FourDataBytesGiveLengthSix) {
    ModbusClient client;
    const Bytes frame = client.BuildTcpRequest(9, 6, {1, 2, 3, 4});
    EXPECT_EQ(frame[4], 0x00);
    EXPECT_EQ(frame[5], 0x06);
    EXPECT_EQ(frame[2], 0x00);
    EXPECT_EQ(frame[3], 0x00);
    EXPECT_EQ(frame[6], 9);
    EXPECT_EQ(frame[7], 6);
}

TEST(BuildTcpRequest, TransactionIdWrapsOnTheWireButCounterKeepsCounting) {
    ModbusClient client;
    for (int i = 0; i < 65536; ++i) client.BuildTcpRequest(1, 3, {});
    const Bytes frame = client.BuildTcpRequest(1, 3, {});
    EXPECT_EQ(frame[0], 0x00);
    EXPECT_EQ(frame[1], 0x00);
    EXPECT_EQ(client.TransactionCounter(), 65537u);
    EXPECT_EQ(client.BuildTcpRequest(1, 3, {})[1], 0x01);
}

TEST(BuildTcpRequest, LengthIsTruncatedTo16Bits) {
    const Bytes data(65535, 0);
    const Bytes frame = BuildTcpFrame(0, 1, 16, data);
    // 65535 + 2 = 65537 -> 0x0001
    EXPECT_EQ(frame[4], 0x00);
    EXPECT_EQ(frame[5], 0x01);
}

TEST(ExceptionTest, RtuResponseWithHighBitIsExceptionWithCode) {
    const Bytes response{0x01, 0x83, 0x02, 0x12, 0x34};
    EXPECT_TRUE(IsExceptionResponse(response, false));
    EXPECT_EQ(ExceptionCode(response, false), 2);
}

TEST(ExceptionTest, TcpOffsetsAreSevenAndEight) {
    const Bytes response{0x00, 0x01, 0x00, 0x00, 0x00, 0x03, 0x01, 0x90, 0x04};
    EXPECT_TRUE(IsExceptionResponse(response, true));
    EXPECT_EQ(ExceptionCode(response, true), 4);
    EXPECT_FALSE(IsExceptionResponse(Bytes{0x00, 0x01, 0x00, 0x00, 0x00, 0x03, 0x01, 0x10, 0x04}, true));
}

TEST(ExceptionTest, CodeMissingFromTruncatedResponseReadsZero) {
    EXPECT_TRUE(IsExceptionResponse(Bytes{0x01, 0x86}, false));
    EXPECT_EQ(ExceptionCode(Bytes{0x01, 0x86}, false), 0);
}

TEST(PackBits, LeastSignificantBitFirst) {
    EXPECT_EQ(PackBits({true, false, true, true, false, false, true, false, true}), (Bytes{0x4D, 0x01}));
    EXPECT_EQ(PackBits({}), Bytes{});
    EXPECT_EQ(PackBits(std::vector<bool>(8, true)), Bytes{0xFF});
}

TEST(UnpackBits, CountLargerThanSuppliedBitsYieldsFewerValues) {
    // RTU: unit, fc, byte count 1, data, crc
    const Bytes response{0x01, 0x01, 0x01, 0xA5, 0x00, 0x00};
    std::vector<bool> out;
    ASSERT_TRUE(UnpackBits(response, false, 10, out));
    EXPECT_EQ(out, (std::vector<bool>{true, false, true, false, false, true, false, true}));
}

TEST(UnpackBits, StopsAtRequestedCount) {
    const Bytes response{0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0x01, 0x01, 0x01, 0x03};
    std::vector<bool> out{true, true, true, true, true};
    ASSERT_TRUE(UnpackBits(response, true, 3, out));
    EXPECT_EQ(out, (std::vector<bool>{true, true, false}));
}

TEST(UnpackBits, FailsWhenShorterThanByteCountSays) {
    std::vector<bool> out;
    EXPECT_FALSE(UnpackBits(Bytes{0x01, 0x01, 0x02, 0xFF}, false, 16, out));
    EXPECT_FALSE(UnpackBits(Bytes{0x01, 0x01}, false, 1, out));
    EXPECT_FALSE(UnpackBits(Bytes{0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0x01, 0x01}, true, 1, out));
}

TEST(HexDump, UpperCaseWithSingleBlanks) {
    const Bytes frame{0x01, 0x03, 0x00, 0x00, 0x00, 0x0A, 0xab};
    EXPECT_EQ(HexDump(frame), "01 03 00 00 00 0A AB");
    EXPECT_EQ(HexDump(Bytes{}), "");
    EXPECT_EQ(HexDump(Bytes{0x0F}), "0F");
}

TEST(FunctionCodeName, NamesEveryListedCode) {
    EXPECT_STREQ(FunctionCodeName(1), "FC01 Read Coils");
    EXPECT_STREQ(FunctionCodeName(2), "FC02 Read Discrete Inputs");
    EXPECT_STREQ(FunctionCodeName(3), "FC03 Read Holding Registers");
    EXPECT_STREQ(FunctionCodeName(4), "FC04 Read Input Registers");
    EXPECT_STREQ(FunctionCodeName(5), "FC05 Write Single Coil");
    EXPECT_STREQ(FunctionCodeName(6), "FC06 Write Single Register");
    EXPECT_STREQ(FunctionCodeName(7), "FC07 Read Exception Status");
    EXPECT_STREQ(FunctionCodeName(11), "FC11 Get Comm Event Counter");
    EXPECT_STREQ(FunctionCodeName(12), "FC12 Get Comm Event Log");
    EXPECT_STREQ(FunctionCodeName(15), "FC15 Write Multiple Coils");
    EXPECT_STREQ(FunctionCodeName(16), "FC16 Write Multiple Registers");
    EXPECT_STREQ(FunctionCodeName(17), "FC17 Report Server ID");
    EXPECT_STREQ(FunctionCodeName(23), "FC23 Read/Write Multiple Regs");
    EXPECT_STREQ(FunctionCodeName(24), "FC24 Read FIFO Queue");
    EXPECT_STREQ(FunctionCodeName(43), "FC43 Read Device ID");
    EXPECT_STREQ(FunctionCodeName(0), "Unknown FC");
    EXPECT_STREQ(FunctionCodeName(8), "Unknown FC");
    EXPECT_STREQ(FunctionCodeName(0x83), "Unknown FC");
}
