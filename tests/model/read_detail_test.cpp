// ReadDetailRegisters against a scripted Modbus TCP device on loopback: the exact request each
// function code sends and what lands in the register vector.
#include <gtest/gtest.h>

#include <memory>

#include "model/value_decoding.h"
#include "protocol/modbus_client.h"
#include "support/scripted_tcp_peer.h"

using Bytes = std::vector<uint8_t>;
using Regs = std::vector<uint16_t>;
using Modbus::DataType;
using Modbus::ModbusDetail;

namespace {

class ReadDetail : public ::testing::Test {
protected:
    // A device that answers each request, in turn, with the next of `responses`.
    void Start(std::vector<Bytes> responses) {
        peer = std::make_unique<ScriptedTcpPeer>([responses](ScriptedTcpPeer& p) {
            if (!p.Accept()) return;
            for (const Bytes& response : responses) {
                if (p.ReceiveTcpRequest().size() < 8) return;
                p.Send(response);
            }
            p.Receive(1);
        });
        ConnectionConfig config;
        config.ipAddress = "127.0.0.1";
        config.port = peer->Port();
        ASSERT_TRUE(client.Connect(config));
    }

    void TearDown() override {
        client.Disconnect();
        peer.reset();
    }

    static ModbusDetail Detail(DataType type, int32_t arraySize, uint16_t address, uint8_t functionCode) {
        ModbusDetail d;
        d.dataType = type;
        d.arraySize = arraySize;
        d.registerAddress = address;
        d.functionCode = functionCode;
        return d;
    }

    ModbusClient client;
    std::unique_ptr<ScriptedTcpPeer> peer;
};

}  // namespace

TEST_F(ReadDetail, Fc3ReadsRegisterCountHoldingRegistersWithTheStructuresUnitId) {
    Start({{0x00, 0x00, 0x00, 0x00, 0x00, 0x07, 0x07, 0x03, 0x04, 0x41, 0x48, 0x00, 0x00}});
    Regs regs;
    ASSERT_TRUE(ReadDetailRegisters(client, 7, Detail(DataType::Float32, 1, 100, 3), regs));
    EXPECT_EQ(regs, (Regs{0x4148, 0x0000}));
    client.Disconnect();
    peer->Join();
    EXPECT_EQ(peer->Received(), (Bytes{0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x07, 0x03, 0x00, 0x64, 0x00, 0x02}));
}

TEST_F(ReadDetail, Fc4ReadsInputRegisters) {
    Start({{0x00, 0x00, 0x00, 0x00, 0x00, 0x07, 0x01, 0x04, 0x04, 0x00, 0x01, 0x00, 0x02}});
    Regs regs;
    ASSERT_TRUE(ReadDetailRegisters(client, 1, Detail(DataType::UInt64, 2, 0x0010, 4), regs));
    EXPECT_EQ(regs, (Regs{1, 2}));
    client.Disconnect();
    peer->Join();
    // Two UINT64 elements are eight registers.
    EXPECT_EQ(peer->Received(), (Bytes{0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x01, 0x04, 0x00, 0x10, 0x00, 0x08}));
}

TEST_F(ReadDetail, WriteFunctionCodesReadHoldingRegisters) {
    const Bytes answer{0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x01, 0x03, 0x02, 0x00, 0x2A};
    Start({answer, answer, answer});
    Regs regs;
    ASSERT_TRUE(ReadDetailRegisters(client, 1, Detail(DataType::UInt16, 1, 200, 6), regs));
    ASSERT_TRUE(ReadDetailRegisters(client, 1, Detail(DataType::UInt16, 1, 202, 16), regs));
    ASSERT_TRUE(ReadDetailRegisters(client, 1, Detail(DataType::UInt16, 1, 204, 0), regs));
    EXPECT_EQ(regs, (Regs{42}));
    client.Disconnect();
    peer->Join();
    EXPECT_EQ(peer->Received(), (Bytes{0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x01, 0x03, 0x00, 0xC8, 0x00, 0x01,
                                       0x00, 0x01, 0x00, 0x00, 0x00, 0x06, 0x01, 0x03, 0x00, 0xCA, 0x00, 0x01,
                                       0x00, 0x02, 0x00, 0x00, 0x00, 0x06, 0x01, 0x03, 0x00, 0xCC, 0x00, 0x01}));
}

TEST_F(ReadDetail, CoilDetailYieldsOneRegisterWhateverTheArraySize) {
    // Five coils requested; the device answers 0x1D (first bit set) and then 0x1C (first bit clear).
    Start({{0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0x01, 0x01, 0x01, 0x1D},
           {0x00, 0x00, 0x00, 0x00, 0x00, 0x04, 0x01, 0x01, 0x01, 0x1C}});
    Regs regs{9, 9, 9};
    ASSERT_TRUE(ReadDetailRegisters(client, 1, Detail(DataType::Boolean, 5, 0, 1), regs));
    EXPECT_EQ(regs, (Regs{1}));
    ASSERT_TRUE(ReadDetailRegisters(client, 1, Detail(DataType::Boolean, 5, 0, 1), regs));
    EXPECT_EQ(regs, (Regs{0}));
    client.Disconnect();
    peer->Join();
    const Bytes request{0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x01, 0x01, 0x00, 0x00, 0x00, 0x05};
    Bytes both = request;
    both.insert(both.end(), request.begin(), request.end());
    both[1] = 0x00;
    both[13] = 0x01;  // the second request's transaction id
    EXPECT_EQ(peer->Received(), both);
}

TEST_F(ReadDetail, DiscreteInputDetailUsesFc2AndGivesOneRegister) {
    Start({{0x00, 0x00, 0x00, 0x00, 0x00, 0x05, 0x03, 0x02, 0x02, 0x01, 0xFF}});
    Regs regs;
    ASSERT_TRUE(ReadDetailRegisters(client, 3, Detail(DataType::UInt16, 12, 1, 2), regs));
    EXPECT_EQ(regs, (Regs{1}));
    client.Disconnect();
    peer->Join();
    EXPECT_EQ(peer->Received(), (Bytes{0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x03, 0x02, 0x00, 0x01, 0x00, 0x0C}));
}

TEST_F(ReadDetail, CoilReadReturningNoBitsGivesZero) {
    Start({{0x00, 0x00, 0x00, 0x00, 0x00, 0x03, 0x01, 0x01, 0x00}});
    Regs regs;
    ASSERT_TRUE(ReadDetailRegisters(client, 1, Detail(DataType::Boolean, 0, 0, 1), regs));
    EXPECT_EQ(regs, (Regs{0}));
}

TEST_F(ReadDetail, ExceptionResponseIsAFailedRead) {
    Start({{0x00, 0x00, 0x00, 0x00, 0x00, 0x03, 0x01, 0x83, 0x02},
           {0x00, 0x00, 0x00, 0x00, 0x00, 0x03, 0x01, 0x81, 0x02}});
    Regs regs;
    EXPECT_FALSE(ReadDetailRegisters(client, 1, Detail(DataType::UInt16, 1, 0, 3), regs));
    EXPECT_TRUE(regs.empty());
    EXPECT_FALSE(ReadDetailRegisters(client, 1, Detail(DataType::Boolean, 1, 0, 1), regs));
    EXPECT_TRUE(regs.empty());
}

TEST(ReadDetailDisconnected, FailsWithoutAConnection) {
    ModbusClient client;
    Regs regs;
    ModbusDetail d;
    EXPECT_FALSE(ReadDetailRegisters(client, 1, d, regs));
    d.functionCode = 1;
    EXPECT_FALSE(ReadDetailRegisters(client, 1, d, regs));
    EXPECT_TRUE(regs.empty());
}
