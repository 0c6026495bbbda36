#include "support/scripted_tcp_peer.h"

ScriptedTcpPeer::ScriptedTcpPeer(Script script) {
    platform::NetStartup();
    listenSocket_ = platform::TcpSocket();
    platform::BindAny(listenSocket_, 0);
    platform::Listen(listenSocket_, 5);
    port_ = platform::LocalPort(listenSocket_);
    thread_ = std::thread([this, script = std::move(script)] { script(*this); });
}

ScriptedTcpPeer::~ScriptedTcpPeer() {
    platform::CloseSocket(listenSocket_);
    CloseClient();
    if (thread_.joinable()) thread_.join();
    platform::NetCleanup();
}

void ScriptedTcpPeer::Join() {
    if (thread_.joinable()) thread_.join();
}

bool ScriptedTcpPeer::Accept() {
    std::string peer;
    const SOCKET client = platform::Accept(listenSocket_, peer);
    if (client == INVALID_SOCKET) return false;
    platform::SetReceiveTimeout(client, 3000);
    clientSocket_.store(client);
    return true;
}

ScriptedTcpPeer::Bytes ScriptedTcpPeer::Receive(size_t n) {
    Bytes bytes(n);
    size_t got = 0;
    while (got < n) {
        const int r = platform::Recv(clientSocket_.load(), bytes.data() + got, n - got);
        if (r < 1) break;
        got += static_cast<size_t>(r);
    }
    bytes.resize(got);
    std::lock_guard<std::mutex> lock(mutex_);
    received_.insert(received_.end(), bytes.begin(), bytes.end());
    return bytes;
}

ScriptedTcpPeer::Bytes ScriptedTcpPeer::ReceiveTcpRequest() {
    Bytes frame = Receive(6);
    if (frame.size() < 6) return frame;
    const Bytes body = Receive((static_cast<size_t>(frame[4]) << 8) | frame[5]);
    frame.insert(frame.end(), body.begin(), body.end());
    return frame;
}

bool ScriptedTcpPeer::Send(const Bytes& bytes) {
    return platform::Send(clientSocket_.load(), bytes.data(), bytes.size()) == static_cast<int>(bytes.size());
}

void ScriptedTcpPeer::CloseClient() {
    const SOCKET client = clientSocket_.exchange(INVALID_SOCKET);
    if (client != INVALID_SOCKET) platform::CloseSocket(client);
}

ScriptedTcpPeer::Bytes ScriptedTcpPeer::Received() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return received_;
}

uint16_t ScriptedTcpPeer::ClosedPort() {
    ScriptedTcpPeer gone([](ScriptedTcpPeer&) {});
    return gone.Port();
}
