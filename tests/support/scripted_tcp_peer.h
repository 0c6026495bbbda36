#pragma once
// A TCP peer on 127.0.0.1 that a test scripts: it accepts, records what it receives, sends chosen
// bytes, stays silent or closes. The script runs on a thread of its own; the destructor closes
// every socket (which breaks a blocked accept or receive) and joins it, so a peer never outlives
// its test.
#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

#include "platform/net.h"

class ScriptedTcpPeer {
public:
    using Bytes = std::vector<uint8_t>;
    using Script = std::function<void(ScriptedTcpPeer&)>;

    explicit ScriptedTcpPeer(Script script);
    ~ScriptedTcpPeer();
    ScriptedTcpPeer(const ScriptedTcpPeer&) = delete;
    ScriptedTcpPeer& operator=(const ScriptedTcpPeer&) = delete;

    uint16_t Port() const { return port_; }
    // A loopback port that was just listened on and is closed now: a connect to it is refused.
    static uint16_t ClosedPort();
    // Waits for the script to end (bounded by the sockets' time-outs).
    void Join();

    // For the script:
    bool Accept();
    // Receives exactly n bytes, or fewer when the client closes or 3 s pass in silence.
    Bytes Receive(size_t n);
    // Receives one Modbus TCP request (MBAP header and body).
    Bytes ReceiveTcpRequest();
    bool Send(const Bytes& bytes);
    void CloseClient();

    // Everything received, in order.
    Bytes Received() const;

private:
    SOCKET listenSocket_ = INVALID_SOCKET;
    std::atomic<SOCKET> clientSocket_{INVALID_SOCKET};
    uint16_t port_ = 0;
    mutable std::mutex mutex_;
    Bytes received_;
    std::thread thread_;
};
