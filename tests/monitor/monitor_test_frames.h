#pragma once
// Recorded RTU frames for the monitor tests: one request and one response for every function code
// the program names, plus 08 and 2B, whose lengths the monitor does not know.
#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "protocol/frame_codec.h"

namespace monitor_test {

using Bytes = std::vector<uint8_t>;

// Unit id, function code and data, with the CRC appended.
inline Bytes Frame(std::initializer_list<int> bytes) {
    std::vector<uint8_t> all;
    for (int b : bytes) all.push_back(static_cast<uint8_t>(b));
    return BuildRtuRequest(all[0], all[1], Bytes(all.begin() + 2, all.end()));
}

// The same frame with its last CRC byte spoiled.
inline Bytes WithBadCrc(Bytes frame) {
    frame.back() ^= 0x5A;
    return frame;
}

inline Bytes Join(const std::vector<Bytes>& frames) {
    Bytes all;
    for (const Bytes& f : frames) all.insert(all.end(), f.begin(), f.end());
    return all;
}

struct Exchange {
    Bytes request;
    Bytes response;
    std::string requestText;   // the frame line after the time, without the bytes
    std::string responseText;  // the same, without the response time
};

// Every function code with a normal request and response; the texts are those of the frame lines.
inline std::vector<Exchange> EveryFunctionCode() {
    return {
        {Frame({1, 1, 0, 0x13, 0, 10}), Frame({1, 1, 2, 0xCD, 0x01}),
         "request unit 1 FC01 Read Coils, address 19, count 10: ok",
         "response unit 1 FC01 Read Coils, count 10, values 1 0 1 1 0 0 1 1 1 0: ok"},
        {Frame({1, 2, 0, 0xC4, 0, 3}), Frame({1, 2, 1, 0x05}),
         "request unit 1 FC02 Read Discrete Inputs, address 196, count 3: ok",
         "response unit 1 FC02 Read Discrete Inputs, count 3, values 1 0 1: ok"},
        {Frame({1, 3, 0, 0x6B, 0, 3}), Frame({1, 3, 6, 0x02, 0x2B, 0, 0, 0, 0x64}),
         "request unit 1 FC03 Read Holding Registers, address 107, count 3: ok",
         "response unit 1 FC03 Read Holding Registers, count 3, values 555 0 100: ok"},
        {Frame({1, 4, 0, 0x08, 0, 1}), Frame({1, 4, 2, 0, 0x0A}),
         "request unit 1 FC04 Read Input Registers, address 8, count 1: ok",
         "response unit 1 FC04 Read Input Registers, count 1, values 10: ok"},
        {Frame({1, 5, 0, 0xAC, 0xFF, 0}), Frame({1, 5, 0, 0xAC, 0xFF, 0}),
         "request unit 1 FC05 Write Single Coil, address 172, values 1: ok",
         "response unit 1 FC05 Write Single Coil, address 172, values 1: ok"},
        {Frame({1, 6, 0, 1, 0, 3}), Frame({1, 6, 0, 1, 0, 3}),
         "request unit 1 FC06 Write Single Register, address 1, values 3: ok",
         "response unit 1 FC06 Write Single Register, address 1, values 3: ok"},
        {Frame({2, 7}), Frame({2, 7, 0x6D}),
         "request unit 2 FC07 Read Exception Status: ok",
         "response unit 2 FC07 Read Exception Status, values 109: ok"},
        {Frame({2, 8, 0, 0, 0xA5, 0x37}), Frame({2, 8, 0, 0, 0xA5, 0x37}),
         "request unit 2 Unknown FC: ok", "response unit 2 Unknown FC: ok"},
        {Frame({2, 11}), Frame({2, 11, 0xFF, 0xFF, 0x01, 0x08}),
         "request unit 2 FC11 Get Comm Event Counter: ok",
         "response unit 2 FC11 Get Comm Event Counter, values 65535 264: ok"},
        {Frame({2, 12}), Frame({2, 12, 8, 0, 0, 1, 0x08, 1, 0x21, 0x20, 0}),
         "request unit 2 FC12 Get Comm Event Log: ok", "response unit 2 FC12 Get Comm Event Log: ok"},
        {Frame({17, 15, 0, 0x13, 0, 10, 2, 0xCD, 0x01}), Frame({17, 15, 0, 0x13, 0, 10}),
         "request unit 17 FC15 Write Multiple Coils, address 19, count 10, values 1 0 1 1 0 0 1 1 1 0: ok",
         "response unit 17 FC15 Write Multiple Coils, address 19, count 10: ok"},
        {Frame({17, 16, 0, 1, 0, 2, 4, 0, 0x0A, 1, 2}), Frame({17, 16, 0, 1, 0, 2}),
         "request unit 17 FC16 Write Multiple Registers, address 1, count 2, values 10 258: ok",
         "response unit 17 FC16 Write Multiple Registers, address 1, count 2: ok"},
        {Frame({17, 17}), Frame({17, 17, 3, 0x42, 0xFF, 0x00}),
         "request unit 17 FC17 Report Server ID: ok", "response unit 17 FC17 Report Server ID: ok"},
        {Frame({17, 23, 0, 3, 0, 2, 0, 14, 0, 1, 2, 0, 0xFF}), Frame({17, 23, 4, 0, 0xFE, 0x0A, 0xCD}),
         "request unit 17 FC23 Read/Write Multiple Regs, address 3, count 2, values 255: ok",
         "response unit 17 FC23 Read/Write Multiple Regs, count 2, values 254 2765: ok"},
        {Frame({17, 24, 0x04, 0xDE}), Frame({17, 24, 0, 6, 0, 2, 0x01, 0xB8, 0x12, 0x84}),
         "request unit 17 FC24 Read FIFO Queue, address 1246: ok",
         "response unit 17 FC24 Read FIFO Queue, count 2, values 440 4740: ok"},
        {Frame({17, 43, 14, 1, 0}), Frame({17, 43, 14, 1, 1, 0, 0, 1, 0, 3, 'K', 'e', 's'}),
         "request unit 17 FC43 Read Device ID: ok", "response unit 17 FC43 Read Device ID: ok"},
    };
}

}  // namespace monitor_test
