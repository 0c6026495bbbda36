// The bus monitor's frame recovery and pairing on any byte stream in any slicing and timing.
//
// Input: reads, each [length][pause][length bytes]: the pause before the read in units of 250 us
// (0 to 63.75 ms, so silences and the 100 ms decision time both occur over several reads); a
// length with its high bit set also lets the splitter decide at the read's time plus 150 ms.
// Checked: no crash, out-of-bounds access or undefined behaviour; every byte is either in exactly
// one frame or counted as noise, in stream order (each frame is the bytes of the stream where the
// count says it starts); a frame holds 4 to 256 bytes and a good one has a right CRC; nothing is
// left undecided at the end; every frame gives exactly one record, and its line and CSV row.
#include <cstdint>
#include <cstdio>
#include <algorithm>
#include <cstdlib>
#include <vector>

#include "monitor/bus_pairing.h"
#include "monitor/monitor_text.h"
#include "monitor/rtu_frame_splitter.h"
#include "protocol/frame_codec.h"

namespace {

[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "invariant broken: %s\n", what);
    std::abort();
}

struct Check {
    std::vector<uint8_t> stream;  // every byte fed, in order
    size_t frames = 0;
    size_t records = 0;
};

void TakeFrame(Modbus::RtuFrameSplitter& splitter, Modbus::BusPairing& pairing, const Modbus::SplitFrame& frame) {
    if (frame.bytes.size() < Modbus::kMinimumRtuFrame || frame.bytes.size() > Modbus::kMaximumRtuFrame) {
        Fail("frame size");
    }
    if (frame.crcOk && !HasValidCrc(frame.bytes)) Fail("good frame with a wrong CRC");
    pairing.Add(frame, 1764000000000000 + frame.firstByteUs);
    if (const auto due = pairing.ExpectedResponse()) {
        splitter.ExpectResponse(due->first, due->second);
    } else {
        splitter.ExpectNothing();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Check c;
    Modbus::RtuFrameSplitter splitter(1750, 87);
    Modbus::BusPairing pairing([&](const Modbus::MonitorRecord& record) {
        ++c.records;
        if (Modbus::FrameLine(record).empty() || Modbus::CsvRow(record).empty()) Fail("empty text");
    });
    size_t frameBytes = 0;
    const auto take = [&](const Modbus::SplitFrame& frame) {
        // Where this frame must start: after every frame byte and every noise byte so far.
        const size_t start = frameBytes + static_cast<size_t>(splitter.NoiseBytes());
        if (start + frame.bytes.size() > c.stream.size()) Fail("frame beyond the stream");
        for (size_t i = 0; i < frame.bytes.size(); ++i) {
            if (c.stream[start + i] != frame.bytes[i]) Fail("frame bytes not where the stream has them");
        }
        frameBytes += frame.bytes.size();
        ++c.frames;
        TakeFrame(splitter, pairing, frame);
    };

    int64_t now = 0;
    size_t at = 0;
    Modbus::SplitFrame frame;
    while (at + 2 <= size) {
        const size_t length = data[at] & 0x7F;
        const bool decideLater = (data[at] & 0x80) != 0;
        now += static_cast<int64_t>(data[at + 1]) * 250;
        at += 2;
        const size_t n = std::min(length, size - at);
        c.stream.insert(c.stream.end(), data + at, data + at + n);
        splitter.Feed(data + at, n, now);
        at += n;
        while (splitter.Next(now, frame)) take(frame);
        if (decideLater) {
            now += 150000;
            while (splitter.Next(now, frame)) take(frame);
        }
    }
    while (splitter.NextAtEnd(frame)) take(frame);
    pairing.Finish();
    if (splitter.PendingBytes() != 0) Fail("bytes left undecided at the end");
    if (frameBytes + splitter.NoiseBytes() != c.stream.size()) Fail("bytes neither in a frame nor noise");
    if (c.records != c.frames) Fail("a frame without its record");
    (void)Modbus::StatisticsTable(pairing.Statistics(), splitter.NoiseBytes());
    return 0;
}
