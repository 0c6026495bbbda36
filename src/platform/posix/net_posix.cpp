#include "platform/net.h"

#include <arpa/inet.h>
#include <cerrno>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

namespace platform {
namespace {

thread_local int t_lastError = 0;

bool Check(int result) {
    if (result < 0) {
        t_lastError = errno;
        return false;
    }
    return true;
}

bool SetTimeout(SOCKET s, int option, uint32_t milliseconds) {
    timeval tv{};
    tv.tv_sec = milliseconds / 1000;
    tv.tv_usec = static_cast<suseconds_t>(milliseconds % 1000) * 1000;
    return Check(setsockopt(s, SOL_SOCKET, option, &tv, sizeof tv));
}

}  // namespace

bool NetStartup() { return true; }
void NetCleanup() {}

SOCKET TcpSocket() {
    const int s = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    if (s < 0) {
        t_lastError = errno;
        return INVALID_SOCKET;
    }
    return s;
}

bool SetReceiveTimeout(SOCKET s, uint32_t milliseconds) { return SetTimeout(s, SO_RCVTIMEO, milliseconds); }
bool SetSendTimeout(SOCKET s, uint32_t milliseconds) { return SetTimeout(s, SO_SNDTIMEO, milliseconds); }

bool SetReuseAddress(SOCKET s) {
    const int on = 1;
    return Check(setsockopt(s, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on));
}

bool SetNoDelay(SOCKET s) {
    const int on = 1;
    return Check(setsockopt(s, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on));
}

bool ConnectIpv4(SOCKET s, const std::string& ip, uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    inet_pton(AF_INET, ip.c_str(), &address.sin_addr);
    return Check(connect(s, reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

bool BindAny(SOCKET s, uint16_t port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(port);
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    return Check(bind(s, reinterpret_cast<const sockaddr*>(&address), sizeof address));
}

bool Listen(SOCKET s, int backlog) { return Check(listen(s, backlog)); }

SOCKET Accept(SOCKET s, std::string& peerAddress) {
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    const int client = accept4(s, reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC);
    if (client < 0) {
        t_lastError = errno;
        return INVALID_SOCKET;
    }
    char text[INET_ADDRSTRLEN] = {};
    inet_ntop(AF_INET, &peer.sin_addr, text, sizeof text);
    peerAddress = text;
    return client;
}

uint16_t LocalPort(SOCKET s) {
    sockaddr_in address{};
    socklen_t length = sizeof address;
    if (getsockname(s, reinterpret_cast<sockaddr*>(&address), &length) != 0) return 0;
    return ntohs(address.sin_port);
}

int Send(SOCKET s, const uint8_t* data, size_t length) {
    // MSG_NOSIGNAL: a peer that went away is an error result, not a SIGPIPE that ends the process.
    const ssize_t sent = send(s, data, length, MSG_NOSIGNAL);
    if (sent < 0) {
        t_lastError = errno;
        return -1;
    }
    return static_cast<int>(sent);
}

int Recv(SOCKET s, uint8_t* data, size_t length) {
    const ssize_t received = recv(s, data, length, 0);
    if (received < 0) {
        t_lastError = errno;
        return -1;
    }
    if (received == 0) t_lastError = 0;
    return static_cast<int>(received);
}

int RecvWaiting(SOCKET s, uint8_t* data, size_t length) {
    const ssize_t received = recv(s, data, length, MSG_DONTWAIT);
    if (received < 0) {
        t_lastError = errno;
        return errno == EAGAIN || errno == EWOULDBLOCK ? 0 : -1;
    }
    return received == 0 ? -1 : static_cast<int>(received);
}

// A receive with SO_RCVTIMEO is not restarted after a signal handler (Ctrl-C in a command) and
// fails with EINTR: a wait cut short, like a time-out; the connection is still there.
bool IsTimeoutError(int error) { return error == EAGAIN || error == EWOULDBLOCK || error == EINTR; }

void CloseSocket(SOCKET s) {
    if (s == INVALID_SOCKET) return;
    // Unlike closesocket on Windows, close() alone does not wake a thread blocked in accept() or
    // recv() on the same socket; shutdown() does.
    shutdown(s, SHUT_RDWR);
    close(s);
}

void ShutdownSocket(SOCKET s) {
    if (s != INVALID_SOCKET) shutdown(s, SHUT_RDWR);
}

bool InterruptSocket(SOCKET s) {
    if (s != INVALID_SOCKET) shutdown(s, SHUT_RDWR);
    return false;
}

int LastSocketError() { return t_lastError; }

}  // namespace platform
