#include "platform/net.h"

#include <algorithm>

#include <ws2tcpip.h>

namespace platform {

bool NetStartup() {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 2), &data) == 0;
}

void NetCleanup() { WSACleanup(); }

SOCKET TcpSocket() { return socket(AF_INET, SOCK_STREAM, IPPROTO_TCP); }

bool SetReceiveTimeout(SOCKET s, uint32_t milliseconds) {
    const DWORD value = milliseconds;
    return setsockopt(s, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&value), sizeof value) == 0;
}

bool SetSendTimeout(SOCKET s, uint32_t milliseconds) {
    const DWORD value = milliseconds;
    return setsockopt(s, SOL_SOCKET, SO_SNDTIMEO, reinterpret_cast<const char*>(&value), sizeof value) == 0;
}

bool SetReuseAddress(SOCKET s) {
    const BOOL on = TRUE;
    return setsockopt(s, SOL_SOCKET, SO_REUSEADDR, reinterpret_cast<const char*>(&on), sizeof on) == 0;
}

bool SetNoDelay(SOCKET s) {
    const BOOL on = TRUE;
    return setsockopt(s, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on) == 0;
}

bool ConnectIpv4(SOCKET s, const std::string& ip, uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, ip.c_str(), &address.sin_addr);
    return connect(s, reinterpret_cast<const sockaddr*>(&address), sizeof address) != SOCKET_ERROR;
}

bool BindAny(SOCKET s, uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    return bind(s, reinterpret_cast<const sockaddr*>(&address), sizeof address) != SOCKET_ERROR;
}

bool Listen(SOCKET s, int backlog) { return listen(s, backlog) != SOCKET_ERROR; }

SOCKET Accept(SOCKET s, std::string& peerAddress) {
    sockaddr_in peer{};
    int length = sizeof peer;
    const SOCKET client = accept(s, reinterpret_cast<sockaddr*>(&peer), &length);
    if (client == INVALID_SOCKET) return INVALID_SOCKET;
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &peer.sin_addr, text, sizeof text);
    peerAddress = text;
    return client;
}

uint16_t LocalPort(SOCKET s) {
    sockaddr_in address{};
    int length = sizeof address;
    if (getsockname(s, reinterpret_cast<sockaddr*>(&address), &length) != 0) return 0;
    return ntohs(address.sin_port);
}

int Send(SOCKET s, const uint8_t* data, size_t length) {
    return send(s, reinterpret_cast<const char*>(data), static_cast<int>(length), 0);
}

int Recv(SOCKET s, uint8_t* data, size_t length) {
    return recv(s, reinterpret_cast<char*>(data), static_cast<int>(length), 0);
}

int RecvWaiting(SOCKET s, uint8_t* data, size_t length) {
    u_long waiting = 0;
    if (ioctlsocket(s, FIONREAD, &waiting) != 0) return -1;
    if (waiting == 0) return 0;
    const int received = recv(s, reinterpret_cast<char*>(data), static_cast<int>(std::min<u_long>(waiting, length)), 0);
    return received > 0 ? received : -1;
}

bool IsTimeoutError(int error) { return error == WSAETIMEDOUT; }

void CloseSocket(SOCKET s) {
    if (s != INVALID_SOCKET) closesocket(s);
}

void ShutdownSocket(SOCKET s) {
    if (s != INVALID_SOCKET) shutdown(s, SD_BOTH);
}

bool InterruptSocket(SOCKET s) {
    CloseSocket(s);
    return true;
}

int LastSocketError() { return WSAGetLastError(); }

}  // namespace platform
