#pragma once
// The platform seam for serial ports. On Windows a port is a COM device opened with CreateFileA on
// its device-namespace name; elsewhere it is a device path (such as /dev/ttyUSB0) opened raw with
// termios. Both give the same read semantics: one read of up to the requested number of bytes that
// ends 50 ms after the last byte, or when nothing came within 1000 ms + 10 ms per requested byte.
#include <cstddef>
#include <cstdint>
#include <string>

#if defined(_WIN32)
#include <windows.h>
#endif

namespace platform {

#if defined(_WIN32)
using SerialHandle = HANDLE;
#else
struct PosixSerialPort;
using SerialHandle = PosixSerialPort*;
#endif

// INVALID_HANDLE_VALUE on Windows, a null pointer elsewhere.
SerialHandle InvalidSerialHandle();
inline bool IsValid(SerialHandle h) { return h != InvalidSerialHandle(); }

// Opens the port with the given line settings (parity 'N', 'E' or 'O'; any other letter means no
// parity bit, with parity checking switched on), sets the read time-outs and purges both buffers.
SerialHandle OpenSerial(const std::string& name, uint32_t baud, uint8_t dataBits, uint8_t stopBits, char parity);

// One write of the whole buffer; true only when it succeeded.
bool SerialWrite(SerialHandle h, const uint8_t* data, size_t length, size_t& written);
// One read of up to `capacity` bytes with the time-outs above; false when the read failed or was
// cancelled. `received` may be 0 on success (nothing came in time).
bool SerialRead(SerialHandle h, uint8_t* data, size_t capacity, size_t& received);
// One read for a listener that timestamps what it gets: waits up to `waitMs` for the first byte,
// then returns at once with whatever the driver holds (up to `capacity`), without waiting for a
// gap. `received` is 0 when nothing came within `waitMs`; false when the read failed or the device
// went away. On Windows it replaces the port's read time-outs with its own, so a port read this
// way is not also read with SerialRead.
bool SerialReadAvailable(SerialHandle h, uint8_t* data, size_t capacity, uint32_t waitMs, size_t& received);
void SerialPurge(SerialHandle h, bool receive, bool transmit);
// Replaces the total read time-out of 1000 ms + 10 ms per requested byte by a fixed one (the 50 ms
// gap after the last byte stays). For callers that wait less for a silent device (the scanner).
void SerialSetReadTimeout(SerialHandle h, uint32_t totalMs);
// Breaks a read pending in another thread at once (CancelIoEx on Windows).
void SerialCancel(SerialHandle h);
void SerialClose(SerialHandle h);

}  // namespace platform
