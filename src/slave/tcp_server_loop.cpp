// The Modbus TCP slave: a listen socket and one server thread that serves one client at a time.
// Disconnect stops it by clearing `running` and closing the listen and client sockets, which
// breaks a blocked accept or receive; the thread then ends on its own and is joined.
#include <string>

#include "protocol/modbus_client.h"

namespace {

// A client that stays silent this long is dropped, so that the next one in the backlog is served.
constexpr uint32_t kClientIdleMs = 500;
// An MBAP length of 0, or one that no Modbus frame can have, ends the client.
constexpr size_t kMaxMbapLength = 260;

}  // namespace

bool ModbusClient::StartTcpSlave() {
    const SOCKET s = platform::TcpSocket();
    if (s == INVALID_SOCKET) {
        Log("Listen socket failed.", "Listen-Socket fehlgeschlagen.");
        return false;
    }
    platform::SetReuseAddress(s);
    if (!platform::BindAny(s, config.port)) {
        Log(Text("Bind failed: ", "Bind fehlgeschlagen: ") + std::to_string(platform::LastSocketError()));
        platform::CloseSocket(s);
        return false;
    }
    if (!platform::Listen(s, 5)) {
        Log(Text("Listen failed: ", "Listen fehlgeschlagen: ") + std::to_string(platform::LastSocketError()));
        platform::CloseSocket(s);
        return false;
    }
    sockets[1] = s;
    if (IsRtuOverTcp()) {
        Log(Text("Slave listening on port ", "Slave lauscht auf Port ") + std::to_string(config.port) +
            " (RTU over TCP) ...");
    } else {
        Log(Text("Slave listening on port ", "Slave lauscht auf Port ") + std::to_string(config.port) + " ...");
    }
    running.store(true);
    serverThread = std::thread(&ModbusClient::TcpServerLoop, this);
    return true;
}

void ModbusClient::TcpServerLoop() {
    // The RTU-over-TCP slave runs this same loop; only its thread lines and its framing differ.
    const bool rtuFrames = IsRtuOverTcp();
    if (rtuFrames) {
        Log("Slave RTU-over-TCP thread started.", "Slave RTU-over-TCP-Thread gestartet.");
    } else {
        Log("Slave TCP thread started.", "Slave TCP-Thread gestartet.");
    }
    while (running.load()) {
        const SOCKET listenSocket = sockets[1].load();
        std::string peer;
        const SOCKET client = listenSocket == INVALID_SOCKET ? INVALID_SOCKET : platform::Accept(listenSocket, peer);
        if (client == INVALID_SOCKET) {
            // A stop closes the listen socket under the accept; only an unexpected failure is logged.
            // Either way the thread ends and does not accept again.
            if (running.load()) Log("Accept failed.", "Accept fehlgeschlagen.");
            break;
        }
        Log(Text("Client connected: ", "Client verbunden: ") + peer);
        {
            std::lock_guard<std::mutex> lock(socketMutex);
            if (!running.load()) {
                // A stop came while accept returned: this client is not served.
                platform::CloseSocket(client);
                Log("Client disconnected.", "Client getrennt.");
                break;
            }
            sockets[2].store(client);
        }
        platform::SetReceiveTimeout(client, kClientIdleMs);
        platform::SetNoDelay(client);
        if (rtuFrames) {
            ServeRtuOverTcpClient(client);
        } else {
            ServeTcpClient(client);
        }
        // Disconnect may have closed the socket already (Windows); whoever takes it out closes it.
        SOCKET open = INVALID_SOCKET;
        {
            std::lock_guard<std::mutex> lock(socketMutex);
            open = sockets[2].exchange(INVALID_SOCKET);
        }
        if (open != INVALID_SOCKET) platform::CloseSocket(open);
        Log("Client disconnected.", "Client getrennt.");
    }
    if (rtuFrames) {
        Log("Slave RTU-over-TCP thread stopped.", "Slave RTU-over-TCP-Thread beendet.");
    } else {
        Log("Slave TCP thread stopped.", "Slave TCP-Thread beendet.");
    }
}

void ModbusClient::ServeTcpClient(SOCKET client) {
    // Strictly one request after another: the response goes out before the next request is taken.
    // Any failed receive, the idle time-out included, ends the client.
    TcpReceiveBuffer received;
    Modbus::Bytes frame;
    frame.reserve(6 + kMaxMbapLength);
    while (running.load()) {
        frame.clear();
        if (!TcpReceive(client, received, frame, 6)) return;
        const size_t length = (static_cast<size_t>(frame[4]) << 8) | frame[5];
        if (length == 0 || length > kMaxMbapLength) return;
        if (!TcpReceive(client, received, frame, length)) return;
        ProcessRequest(frame, client);
    }
}
