// The TCP server loop with real loopback clients: start and stop lines, the MBAP length rule, the
// idle disconnect, one client at a time, and a prompt stop in every state.
#include <gtest/gtest.h>

#include "slave/slave_test_support.h"

using namespace slavetest;

namespace {

class TcpServerLoopTest : public ::testing::Test {
protected:
    void SetUp() override { SetEnglish(true); }
    void TearDown() override { slave.Disconnect(); }

    uint16_t Start() {
        EXPECT_TRUE(slave.Connect(TcpSlaveConfig()));
        return slave.ListeningPort();
    }

    ModbusClient slave;
    LogCapture log{slave};
};

constexpr const char* kRequest = "00 01 00 00 00 06 01 03 00 00 00 01";
constexpr const char* kResponse = "00 01 00 00 00 05 01 03 02 00 00";

TEST_F(TcpServerLoopTest, StartsListeningAndLogsTheLifecycle) {
    const uint16_t port = FreePort();
    ASSERT_TRUE(slave.Connect(TcpSlaveConfig(port)));
    EXPECT_TRUE(slave.IsConnected());
    EXPECT_EQ(slave.ListeningPort(), port);
    ASSERT_TRUE(WaitForLine(log, "Slave TCP thread started."));
    std::vector<std::string> lines = log.Lines();
    ASSERT_EQ(lines.size(), 3u);
    EXPECT_EQ(lines[0], "Slave listening on port " + std::to_string(port) + " ...");
    // "Connected." comes from Connect on this thread, so its place next to the thread's first
    // line is not fixed.
    EXPECT_TRUE(log.Contains("Connected."));
    slave.Disconnect();
    EXPECT_FALSE(slave.IsConnected());
    lines = log.Lines();
    ASSERT_GE(lines.size(), 2u);
    EXPECT_EQ(lines[lines.size() - 2], "Slave TCP thread stopped.");
    EXPECT_EQ(lines.back(), "Disconnected.");
    EXPECT_EQ(CountLines(log, "Accept failed."), 0u);
}

TEST_F(TcpServerLoopTest, LifecycleLinesInGerman) {
    SetEnglish(false);
    const uint16_t port = FreePort();
    ASSERT_TRUE(slave.Connect(TcpSlaveConfig(port)));
    {
        TestClient client(port);
        ASSERT_TRUE(WaitForLine(log, "Client verbunden: 127.0.0.1"));
    }
    ASSERT_TRUE(WaitForLine(log, "Client getrennt."));
    slave.Disconnect();
    EXPECT_EQ(log.Lines().front(), "Slave lauscht auf Port " + std::to_string(port) + " ...");
    EXPECT_TRUE(log.Contains("Slave TCP-Thread gestartet."));
    EXPECT_TRUE(log.Contains("Verbunden."));
    EXPECT_TRUE(log.Contains("TCP recv Fehler: 0"));  // the orderly close ends the serve loop
    const std::vector<std::string> lines = log.Lines();
    EXPECT_EQ(lines[lines.size() - 2], "Slave TCP-Thread beendet.");
    EXPECT_EQ(lines.back(), "Getrennt.");
}

TEST_F(TcpServerLoopTest, BindFailureIsLoggedAndNothingStarts) {
    // A listening socket on the port makes the bind fail, SO_REUSEADDR notwithstanding.
    const SOCKET holder = platform::TcpSocket();
    ASSERT_TRUE(platform::BindAny(holder, 0));
    ASSERT_TRUE(platform::Listen(holder, 1));
    const uint16_t port = platform::LocalPort(holder);
    const bool started = slave.Connect(TcpSlaveConfig(port));
    platform::CloseSocket(holder);
#if defined(_WIN32)
    if (started) GTEST_SKIP() << "this Windows socket layer lets SO_REUSEADDR share a listening port";
    ASSERT_EQ(log.Lines().size(), 1u);
    // WSAEADDRINUSE, or WSAEACCES where the holder has the port exclusively (Wine reports that).
    const std::string line = log.Lines()[0];
    EXPECT_TRUE(line == "Bind failed: 10048" || line == "Bind failed: 10013") << line;
#else
    EXPECT_FALSE(started);
    EXPECT_EQ(log.Lines(), std::vector<std::string>{"Bind failed: " + std::to_string(EADDRINUSE)});
#endif
    EXPECT_FALSE(slave.IsConnected());
}

TEST_F(TcpServerLoopTest, BindFailureInGerman) {
    SetEnglish(false);
    const SOCKET holder = platform::TcpSocket();
    ASSERT_TRUE(platform::BindAny(holder, 0));
    ASSERT_TRUE(platform::Listen(holder, 1));
    const bool started = slave.Connect(TcpSlaveConfig(platform::LocalPort(holder)));
    platform::CloseSocket(holder);
    if (started) GTEST_SKIP() << "this socket layer lets SO_REUSEADDR share a listening port";
    ASSERT_EQ(log.Lines().size(), 1u);
    EXPECT_EQ(log.Lines()[0].rfind("Bind fehlgeschlagen: ", 0), 0u) << log.Lines()[0];
}

TEST_F(TcpServerLoopTest, MbapLengthZeroEndsTheClientWithoutAResponse) {
    const uint16_t port = Start();
    TestClient client(port);
    ASSERT_TRUE(client.Send(Hex("00 01 00 00 00 00")));
    EXPECT_EQ(client.Await(3000), TestClient::Result::Closed);
    ASSERT_TRUE(WaitForLine(log, "Client disconnected."));
    for (const auto& line : log.Lines()) EXPECT_NE(line.rfind("TX:", 0), 0u) << line;
}

TEST_F(TcpServerLoopTest, MbapLength261EndsTheClientWithoutAResponse) {
    const uint16_t port = Start();
    TestClient client(port);
    ASSERT_TRUE(client.Send(Hex("00 01 00 00 01 05 01 03 00 00 00 01")));
    EXPECT_EQ(client.Await(3000), TestClient::Result::Closed);
    ASSERT_TRUE(WaitForLine(log, "Client disconnected."));
    for (const auto& line : log.Lines()) EXPECT_NE(line.rfind("TX:", 0), 0u) << line;
}

TEST_F(TcpServerLoopTest, MbapLength260IsStillServed) {
    const uint16_t port = Start();
    TestClient client(port);
    Bytes request = Hex("00 09 00 00 01 04 01 03 00 00 00 01");
    request.resize(6 + 260, 0);  // padding after the PDU is ignored
    const Bytes response = client.Exchange(request);
    EXPECT_EQ(ToHex(response), "00 09 00 00 00 05 01 03 02 00 00");
}

TEST_F(TcpServerLoopTest, SilentClientIsDroppedAfterAboutHalfASecondAndTheNextOneIsServed) {
    const uint16_t port = Start();
    TestClient idle(port);
    ASSERT_TRUE(WaitForLine(log, "Client connected: 127.0.0.1"));
    const int64_t start = NowMs();
    EXPECT_EQ(idle.Await(5000), TestClient::Result::Closed);
    const int64_t elapsed = NowMs() - start;
    EXPECT_GE(elapsed, 350);
    EXPECT_LE(elapsed, 2500);
    ASSERT_TRUE(WaitForLine(log, "Client disconnected."));
    // The time-out is a failed receive like any other and is logged as one.
    bool recvError = false;
    for (const auto& line : log.Lines()) recvError = recvError || line.rfind("TCP recv error: ", 0) == 0;
    EXPECT_TRUE(recvError);

    TestClient next(port);
    EXPECT_EQ(ToHex(next.Exchange(Hex(kRequest))), kResponse);
    EXPECT_EQ(CountLines(log, "Client connected: 127.0.0.1"), 2u);
}

TEST_F(TcpServerLoopTest, AClientThatKeepsAskingStaysConnected) {
    const uint16_t port = Start();
    TestClient client(port);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(ToHex(client.Exchange(Hex(kRequest))), kResponse);
        std::this_thread::sleep_for(std::chrono::milliseconds(250));
    }
    EXPECT_EQ(CountLines(log, "Client connected: 127.0.0.1"), 1u);
    EXPECT_EQ(CountLines(log, "Client disconnected."), 0u);
}

TEST_F(TcpServerLoopTest, SecondClientWaitsUntilTheFirstLeaves) {
    const uint16_t port = Start();
    TestClient first(port);
    EXPECT_EQ(ToHex(first.Exchange(Hex(kRequest))), kResponse);
    TestClient second(port);  // completes in the listen backlog
    ASSERT_TRUE(second.IsOpen());
    ASSERT_TRUE(second.Send(Hex("00 02 00 00 00 06 01 03 00 00 00 01")));
    for (int i = 0; i < 3; ++i) {
        // The first client keeps itself alive; the second hears nothing meanwhile.
        EXPECT_EQ(second.Await(150), TestClient::Result::Silent);
        EXPECT_EQ(ToHex(first.Exchange(Hex(kRequest))), kResponse);
    }
    first.Close();
    EXPECT_EQ(ToHex(second.ReceiveResponse(3000)), "00 02 00 00 00 05 01 03 02 00 00");
    EXPECT_EQ(CountLines(log, "Client connected: 127.0.0.1"), 2u);
}

TEST_F(TcpServerLoopTest, StopWhileIdleInAcceptIsPrompt) {
    Start();
    ASSERT_TRUE(WaitForLine(log, "Slave TCP thread started."));
    const int64_t start = NowMs();
    slave.Disconnect();
    EXPECT_LE(NowMs() - start, 1000);
    EXPECT_TRUE(log.Contains("Slave TCP thread stopped."));
    EXPECT_FALSE(log.Contains("Accept failed."));
}

TEST_F(TcpServerLoopTest, StopWhileAClientIsConnectedIsPrompt) {
    const uint16_t port = Start();
    TestClient client(port);
    EXPECT_EQ(ToHex(client.Exchange(Hex(kRequest))), kResponse);
    // The client keeps the serve loop blocked in a receive while the stop comes.
    const int64_t start = NowMs();
    slave.Disconnect();
    EXPECT_LE(NowMs() - start, 1000);
    const std::vector<std::string> lines = log.Lines();
    ASSERT_GE(lines.size(), 3u);
    EXPECT_EQ(lines[lines.size() - 3], "Client disconnected.");
    EXPECT_EQ(lines[lines.size() - 2], "Slave TCP thread stopped.");
    EXPECT_EQ(lines.back(), "Disconnected.");
    EXPECT_EQ(client.Await(2000), TestClient::Result::Closed);
}

TEST_F(TcpServerLoopTest, StopWhileAClientWaitsInTheBacklogIsPrompt) {
    const uint16_t port = Start();
    TestClient first(port);
    EXPECT_EQ(ToHex(first.Exchange(Hex(kRequest))), kResponse);
    TestClient second(port);
    const int64_t start = NowMs();
    slave.Disconnect();
    EXPECT_LE(NowMs() - start, 1000);
    EXPECT_EQ(CountLines(log, "Slave TCP thread stopped."), 1u);
}

TEST_F(TcpServerLoopTest, ReconnectAfterDisconnectServesAgain) {
    for (int round = 0; round < 3; ++round) {
        const uint16_t port = Start();
        TestClient client(port);
        EXPECT_EQ(ToHex(client.Exchange(Hex(kRequest))), kResponse);
        slave.Disconnect();
    }
    EXPECT_EQ(CountLines(log, "Slave TCP thread stopped."), 3u);
}

TEST_F(TcpServerLoopTest, ConnectWhileServingRestartsTheServer) {
    const uint16_t port = Start();
    TestClient client(port);
    EXPECT_EQ(ToHex(client.Exchange(Hex(kRequest))), kResponse);
    const uint16_t port2 = Start();  // Connect while connected disconnects first
    EXPECT_EQ(CountLines(log, "Disconnected."), 1u);
    TestClient again(port2);
    EXPECT_EQ(ToHex(again.Exchange(Hex(kRequest))), kResponse);
}

TEST_F(TcpServerLoopTest, GarbageDoesNotStopTheServer) {
    const uint16_t port = Start();
    {
        TestClient client(port);
        ASSERT_TRUE(client.Send(Hex("FF FF FF FF 00 03 FF FF FF")));  // unit 0xFF, fc 0xFF: foreign
        ASSERT_TRUE(client.Send(Hex("00 00 12 34 00 02 01")));        // a header and half a body
    }
    ASSERT_TRUE(WaitForLine(log, "Client disconnected."));
    TestClient next(port);
    EXPECT_EQ(ToHex(next.Exchange(Hex(kRequest))), kResponse);
}

}  // namespace
