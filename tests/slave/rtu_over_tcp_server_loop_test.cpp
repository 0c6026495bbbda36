// The RTU-over-TCP slave with real loopback clients: RTU frames on the socket, requests split or
// joined on the stream, the CRC check, the unit filter of the serial line, the idle drop, one
// client at a time, and the lifecycle lines.
#include <gtest/gtest.h>

#include "slave/slave_test_support.h"

using namespace slavetest;

namespace {

ConnectionConfig RtuOverTcpSlaveConfig(uint16_t port = 0, uint8_t unitId = 1) {
    ConnectionConfig config = TcpSlaveConfig(port, unitId);
    config.transport = kTransportRtuOverTcp;
    return config;
}

class RtuOverTcpServerLoopTest : public ::testing::Test {
protected:
    void SetUp() override { SetEnglish(true); }
    void TearDown() override {
        slave.Disconnect();
        SetEnglish(false);
    }

    uint16_t Start(uint8_t unitId = 1) {
        EXPECT_TRUE(slave.Connect(RtuOverTcpSlaveConfig(0, unitId)));
        slave.Image().SetHoldingRegisters(0, {0x0011, 0x0022, 0x0033});
        return slave.ListeningPort();
    }

    ModbusClient slave;
    LogCapture log{slave};
};

// FC03 of registers 0..1 for unit 1, and its answer.
const Bytes kRequest = BuildRtuRequest(1, 3, {0x00, 0x00, 0x00, 0x02});
const Bytes kResponse = BuildRtuRequest(1, 3, {0x04, 0x00, 0x11, 0x00, 0x22});

TEST_F(RtuOverTcpServerLoopTest, AnswersRtuFramesOnTheSocketAndLogsTheLifecycle) {
    const uint16_t port = FreePort();
    ASSERT_TRUE(slave.Connect(RtuOverTcpSlaveConfig(port)));
    slave.Image().SetHoldingRegisters(0, {0x0011, 0x0022});
    ASSERT_TRUE(WaitForLine(log, "Slave RTU-over-TCP thread started."));
    EXPECT_EQ(log.Lines().front(), "Slave listening on port " + std::to_string(port) + " (RTU over TCP) ...");
    {
        TestClient client(port);
        ASSERT_TRUE(client.Send(kRequest));
        EXPECT_EQ(ToHex(client.Receive(kResponse.size(), 3000)), ToHex(kResponse));
    }
    ASSERT_TRUE(WaitForLine(log, "Client disconnected."));
    EXPECT_TRUE(log.Contains("RX: " + ToHex(kRequest)));
    EXPECT_TRUE(log.Contains("TX: " + ToHex(kResponse)));
    EXPECT_TRUE(log.Contains("Slave: FC03 read from 0, n=2"));
    slave.Disconnect();
    const auto lines = log.Lines();
    EXPECT_EQ(lines[lines.size() - 2], "Slave RTU-over-TCP thread stopped.");
    EXPECT_EQ(lines.back(), "Disconnected.");
}

TEST_F(RtuOverTcpServerLoopTest, LifecycleLinesInGerman) {
    SetEnglish(false);
    const uint16_t port = FreePort();
    ASSERT_TRUE(slave.Connect(RtuOverTcpSlaveConfig(port)));
    ASSERT_TRUE(WaitForLine(log, "Slave RTU-over-TCP-Thread gestartet."));
    slave.Disconnect();
    EXPECT_EQ(log.Lines().front(), "Slave lauscht auf Port " + std::to_string(port) + " (RTU over TCP) ...");
    EXPECT_TRUE(log.Contains("Slave RTU-over-TCP-Thread gestartet."));
    EXPECT_TRUE(log.Contains("Slave RTU-over-TCP-Thread beendet."));
}

TEST_F(RtuOverTcpServerLoopTest, RequestsSplitIntoBytesOrJoinedAreFramedByTheirFunctionCode) {
    const uint16_t port = Start();
    TestClient client(port);
    for (uint8_t b : kRequest) {
        ASSERT_TRUE(client.Send({b}));
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    EXPECT_EQ(ToHex(client.Receive(kResponse.size(), 3000)), ToHex(kResponse));

    // An FC16 and an FC03 in one segment: two answers.
    Bytes joined = BuildRtuRequest(1, 16, {0x00, 0x05, 0x00, 0x02, 0x04, 0x12, 0x34, 0x56, 0x78});
    const Bytes read = BuildRtuRequest(1, 3, {0x00, 0x05, 0x00, 0x02});
    joined.insert(joined.end(), read.begin(), read.end());
    ASSERT_TRUE(client.Send(joined));
    const Bytes writeEcho = BuildRtuRequest(1, 16, {0x00, 0x05, 0x00, 0x02});
    const Bytes readBack = BuildRtuRequest(1, 3, {0x04, 0x12, 0x34, 0x56, 0x78});
    EXPECT_EQ(ToHex(client.Receive(writeEcho.size() + readBack.size(), 3000)),
              ToHex(writeEcho) + " " + ToHex(readBack));
}

TEST_F(RtuOverTcpServerLoopTest, BadCrcIsLoggedAndNotAnswered) {
    const uint16_t port = Start();
    TestClient client(port);
    Bytes bad = kRequest;
    bad.back() ^= 0x55;
    ASSERT_TRUE(client.Send(bad));
    EXPECT_EQ(client.Await(300), TestClient::Result::Silent);
    EXPECT_EQ(CountLines(log, "RTU CRC error."), 1u);
    // The stream is in step again for the next request.
    ASSERT_TRUE(client.Send(kRequest));
    EXPECT_EQ(ToHex(client.Receive(kResponse.size(), 3000)), ToHex(kResponse));
}

TEST_F(RtuOverTcpServerLoopTest, OtherUnitIdsAndUnitZeroGetNoAnswer) {
    const uint16_t port = Start(5);
    TestClient client(port);
    ASSERT_TRUE(client.Send(BuildRtuRequest(1, 3, {0x00, 0x00, 0x00, 0x01})));
    EXPECT_EQ(client.Await(200), TestClient::Result::Silent);
    ASSERT_TRUE(client.Send(BuildRtuRequest(0, 3, {0x00, 0x00, 0x00, 0x01})));
    EXPECT_EQ(client.Await(200), TestClient::Result::Silent);
    EXPECT_TRUE(SlaveLines(log).empty());
    ASSERT_TRUE(client.Send(BuildRtuRequest(5, 3, {0x00, 0x02, 0x00, 0x01})));
    EXPECT_EQ(ToHex(client.Receive(7, 3000)), ToHex(BuildRtuRequest(5, 3, {0x02, 0x00, 0x33})));
}

TEST_F(RtuOverTcpServerLoopTest, UnknownFunctionCodeGetsExceptionOne) {
    const uint16_t port = Start();
    TestClient client(port);
    ASSERT_TRUE(client.Send(BuildRtuRequest(1, 0x2B, {0x0E, 0x01, 0x00})));
    EXPECT_EQ(ToHex(client.Receive(5, 3000)), ToHex(BuildRtuRequest(1, 0xAB, {0x01})));
    EXPECT_TRUE(log.Contains("Slave: Unknown FC 0x2b -> Exception"));
}

TEST_F(RtuOverTcpServerLoopTest, SilentClientIsDroppedAndTheNextOneIsServed) {
    const uint16_t port = Start();
    TestClient idle(port);
    const int64_t start = NowMs();
    EXPECT_EQ(idle.Await(5000), TestClient::Result::Closed);
    const int64_t elapsed = NowMs() - start;
    EXPECT_GE(elapsed, 400);
    EXPECT_LT(elapsed, 3000);
    TestClient next(port);
    ASSERT_TRUE(next.Send(kRequest));
    EXPECT_EQ(ToHex(next.Receive(kResponse.size(), 3000)), ToHex(kResponse));
}

TEST_F(RtuOverTcpServerLoopTest, SecondClientWaitsUntilTheFirstLeaves) {
    const uint16_t port = Start();
    TestClient first(port);
    ASSERT_TRUE(first.Send(kRequest));
    EXPECT_EQ(ToHex(first.Receive(kResponse.size(), 3000)), ToHex(kResponse));
    TestClient second(port);
    ASSERT_TRUE(second.Send(kRequest));
    EXPECT_EQ(second.Await(150), TestClient::Result::Silent);
    first.Close();
    EXPECT_EQ(ToHex(second.Receive(kResponse.size(), 3000)), ToHex(kResponse));
}

}  // namespace
