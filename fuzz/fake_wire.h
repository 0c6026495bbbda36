#pragma once
// An in-memory stand-in for the network and serial backends, used by the fuzz targets in place of
// platform/posix/{net,serial,clock}_posix.cpp. The code under test is the real connection object,
// transports, slave sessions and request processing; only the bytes come from the fuzzer instead
// of a socket or a serial line, and sleeps return at once, so one input runs in microseconds.
//
// The peer side is a queue of chunks. A TCP receive takes bytes from the front chunk (so the stream
// reaches the reader split exactly where the input says); a serial read takes one chunk (at most
// the read's capacity) per call, as a driver returns one burst per read.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/net.h"

namespace fakewire {

using Bytes = std::vector<uint8_t>;

// What a receive sees once the queued chunks are used up.
enum class AfterData {
    Closed,   // TCP: recv returns 0 (the peer closed); serial: a read returns nothing
    TimedOut  // TCP: recv fails as at the end of SO_RCVTIMEO; serial: a read returns nothing
};

// Starts a new exchange: the chunks the peer sends, and how the stream ends.
void Reset(std::vector<Bytes> chunks, AfterData after, bool sendFails = false);
// Everything the code under test sent, in order.
Bytes Sent();
// Frees every buffer of the wire. libFuzzer looks for leaks whenever an input ends with more
// allocations than frees, so an input must leave nothing allocated that it did not find.
void Release();

// The slave targets serve a started slave's sessions on the fuzzing thread itself
// (ModbusClient::ServeTcpClient, ServeNextRtuFrame), as its server thread would, without handing
// each input over to that thread. The server thread is kept out of the way: an accept waits until
// the listen socket is closed, and after ParkOtherSerialReaders a serial read on any other thread
// than the caller's waits until the read is cancelled. Both end when the slave stops.
void ParkOtherSerialReaders();
// The socket the slave targets serve, as an accept would return it.
SOCKET AcceptedClient();
// True when every queued chunk has been read.
bool Drained();

// Splits `data` into chunks at the lengths an input gives: each chunk is one length byte L and
// then L & 0x7F bytes (fewer at the end of the input). With `crcFlag`, a chunk whose L has its
// high bit set gets the Modbus CRC of its bytes appended, so that mutated RTU frames stay valid.
std::vector<Bytes> SplitChunks(const uint8_t* data, size_t size, bool crcFlag);

}  // namespace fakewire
