#pragma once
// An in-memory stand-in for the network and serial backends, used by the fuzz targets in place of
// platform/posix/{net,serial,clock}_posix.cpp. The code under test is the real connection object,
// transports, server loops and request processing; only the bytes come from the fuzzer instead of
// a socket or a serial line, and sleeps return at once, so one input runs in microseconds.
//
// The peer side is a queue of chunks. A TCP receive takes bytes from the front chunk (so the stream
// reaches the reader split exactly where the input says); a serial read takes one chunk (at most
// the read's capacity) per call, as a driver returns one burst per read.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace fakewire {

using Bytes = std::vector<uint8_t>;

// What a receive sees once the queued chunks are used up.
enum class AfterData {
    Closed,   // TCP: recv returns 0 (the peer closed); serial: a read returns nothing
    TimedOut  // TCP: recv fails as at the end of SO_RCVTIMEO; serial: a read returns nothing
};

// Starts a new exchange: the chunks the peer sends, and how the stream ends.
void Reset(const std::vector<Bytes>& chunks, AfterData after, bool sendFails = false);
// Everything the code under test sent, in order.
Bytes Sent();
// Frees every buffer of the wire. libFuzzer looks for leaks whenever an input ends with more
// allocations than frees, so an input must leave nothing allocated that it did not find.
void Release();

// For the server loops, which run on a thread of their own and are kept running from one input to
// the next: OfferOneClient starts a session whose stream is the queued chunks (Reset first). On
// TCP the next Accept returns one client with that stream; on a serial line the reads return the
// chunks. A session is over when the server comes back to Accept, or reads the quiet line after the
// last chunk; it then waits for the next session or for the stop. WaitSessionDone waits (bounded)
// for the end of the session offered last.
void OfferOneClient();
bool WaitSessionDone(int timeoutMs);
// Serial reads after the last chunk wait for the next session (or a cancel) instead of returning
// nothing: the slave's read loop would otherwise spin.
void SetSerialBlocksWhenEmpty(bool blocks);

// Splits `data` into chunks at the lengths an input gives: each chunk is one length byte L and
// then L & 0x7F bytes (fewer at the end of the input). With `crcFlag`, a chunk whose L has its
// high bit set gets the Modbus CRC of its bytes appended, so that mutated RTU frames stay valid.
std::vector<Bytes> SplitChunks(const uint8_t* data, size_t size, bool crcFlag);

}  // namespace fakewire
