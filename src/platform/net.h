#pragma once
// The platform seam for TCP/IPv4 sockets. Winsock 2 on Windows, BSD sockets elsewhere; the rest of
// the program sees only SOCKET, INVALID_SOCKET and the functions below. Error numbers are the
// platform's own (WSAGetLastError() on Windows, errno elsewhere), reported in decimal in log lines.
#include <cstddef>
#include <cstdint>
#include <string>

#if defined(_WIN32)
#include <winsock2.h>
#else
using SOCKET = int;
inline constexpr SOCKET INVALID_SOCKET = -1;
#endif

namespace platform {

bool NetStartup();  // WSAStartup(2.2) on Windows; nothing elsewhere
void NetCleanup();

SOCKET TcpSocket();  // AF_INET, SOCK_STREAM, IPPROTO_TCP
bool SetReceiveTimeout(SOCKET s, uint32_t milliseconds);
bool SetSendTimeout(SOCKET s, uint32_t milliseconds);
bool SetReuseAddress(SOCKET s);
// TCP_NODELAY: every Modbus frame goes out in one send and must not wait for the peer's ACK.
bool SetNoDelay(SOCKET s);
// Fills the address with inet_pton; a text that is not a dotted IPv4 address leaves it 0.0.0.0.
bool ConnectIpv4(SOCKET s, const std::string& ip, uint16_t port);
bool BindAny(SOCKET s, uint16_t port);
bool Listen(SOCKET s, int backlog);
// Blocks until a client connects; the peer's address is formatted with inet_ntop.
SOCKET Accept(SOCKET s, std::string& peerAddress);
// The local port a socket is bound to (0 when unknown).
uint16_t LocalPort(SOCKET s);

// One send/recv call. Send returns the bytes sent or -1 (SOCKET_ERROR); Recv returns the bytes
// received, 0 when the peer closed, or -1 on error or time-out.
int Send(SOCKET s, const uint8_t* data, size_t length);
int Recv(SOCKET s, uint8_t* data, size_t length);

// Takes whatever bytes have already arrived, without waiting: the count (0 when none are waiting),
// or -1 when the peer closed or the socket failed. Used to discard what a peer sent too late.
int RecvWaiting(SOCKET s, uint8_t* data, size_t length);
// True when the error number is that of a receive time-out (SO_RCVTIMEO ran out, or a signal cut
// the wait short): the connection itself is not lost.
bool IsTimeoutError(int error);

// Closes the socket and breaks any call blocked on it in another thread.
void CloseSocket(SOCKET s);
// Ends both directions of the connection but keeps the socket open: the peer sees the connection
// closed, and the owner's next receive returns 0 before it closes the socket itself.
void ShutdownSocket(SOCKET s);

// Breaks a call blocked on the socket in another thread. POSIX: shuts the socket down and keeps the
// descriptor, so its number cannot be handed out again while the blocked thread still uses it; the
// caller closes it once that thread has let go. Winsock breaks a blocked accept only by closing the
// socket, so on Windows this closes it. Returns true when the socket was closed.
bool InterruptSocket(SOCKET s);

// The error number of the last failed socket call on this thread; 0 after an orderly close.
int LastSocketError();

}  // namespace platform
