#pragma once
// Two connected serial ports for tests. The code under test opens DeviceName() through the
// platform seam; the test plays the other end through Write and Read.
//   Linux:  a pseudo-terminal; the device is the pty's slave path, the test holds the master.
//   Wine:   two COM ports that tools/wine-run.sh maps to the two ends of a socat pty pair
//           (KESTREL_COM_A for the code under test, KESTREL_COM_B for the test).
#include <cstdint>
#include <string>
#include <vector>

#include "platform/serial.h"

class SerialPair {
public:
    using Bytes = std::vector<uint8_t>;

    SerialPair();
    ~SerialPair();
    SerialPair(const SerialPair&) = delete;
    SerialPair& operator=(const SerialPair&) = delete;

    bool Ok() const;
    const std::string& DeviceName() const { return deviceName_; }

    bool Write(const Bytes& bytes);
    // Writes everything, waiting while the line's buffer is full (a long burst), for at most
    // `timeoutMs`.
    bool WriteAll(const Bytes& bytes, int timeoutMs);
    // Reads until `n` bytes came or `timeoutMs` passed.
    Bytes Read(size_t n, int timeoutMs);
    // Reads one frame: everything until a gap of `gapMs` after the first byte, or `timeoutMs`.
    Bytes ReadFrame(int timeoutMs, int gapMs = 30);

private:
    std::string deviceName_;
#if defined(_WIN32)
    platform::SerialHandle peer_ = platform::InvalidSerialHandle();
#else
    int master_ = -1;
    int slave_ = -1;
#endif
};
