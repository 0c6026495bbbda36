#pragma once
// Recovers Modbus RTU frames from the bytes a listen-only port delivers. A desktop system does not
// show the silences that end RTU frames reliably: bytes come in reads of any size, several frames
// may come in one read, and a pause inside a frame may look like a silence. So a silence is only a
// hint; a frame is what its function code's length rule and its CRC-16 confirm:
//
//   1. Length and CRC: at the current byte, the function code's request and response lengths are
//      tried (the expected response first, see ExpectResponse); the first whose CRC is right is a
//      frame, wherever the silences are.
//   2. CRC alone, for 08 and 2B: the shortest length of 4 to 256 bytes whose CRC is right and that
//      ends at a silence, at the end of the data, or where a plausible frame (unit id 0..247, a
//      known function code) begins; failing such an end (noise right behind the frame), the shortest
//      right CRC. Pauses inside are allowed. A code we do not know at all is believed only between
//      two visible silences, with a right CRC: in a stream without gaps, random bytes would pass.
//   3. Bad CRC: when no length is right and the bytes start with a plausible unit id and function
//      code, a length of the rule that ends at a visible silence or exactly where a good frame
//      begins is a frame with a bad CRC; so are the 4 to 256 bytes up to the next silence when the
//      bytes came after a silence. Either only when no good frame begins inside those bytes.
//   4. Noise: otherwise the first byte is noise; it is counted and skipped, and the search starts
//      again at the next byte.
//
// A candidate that needs more bytes than have come waits for them; when the line stays quiet for
// the decision time (100 ms) the bytes there are decided as they are. A silence is visible when a
// read brings bytes at least the 3.5-character time after the previous read's bytes would have
// ended at the line's speed (1.75 ms at more than 19,200 Bd).
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace Modbus {

struct SplitFrame {
    std::vector<uint8_t> bytes;
    bool crcOk = false;
    int64_t firstByteUs = 0;  // when the read that brought its first byte returned (monotonic)
    int64_t lastByteUs = 0;   // the same for its last byte
};

// The 3.5-character silence of a line, in microseconds: 3.5 characters of 1 start bit, the data
// bits, a parity bit unless parity is 'N', and the stop bits; 1750 us above 19,200 Bd.
int64_t SilenceMicroseconds(uint32_t baud, uint8_t dataBits, char parity, uint8_t stopBits);
// One character on the line, in microseconds (the same bit count).
int64_t CharacterMicroseconds(uint32_t baud, uint8_t dataBits, char parity, uint8_t stopBits);

class RtuFrameSplitter {
public:
    static constexpr int64_t kDecisionMicroseconds = 100000;

    RtuFrameSplitter(int64_t silenceUs, int64_t characterUs, int64_t decisionUs = kDecisionMicroseconds);

    // The bytes of one read and the time it returned.
    void Feed(const uint8_t* data, size_t length, int64_t arrivalUs);
    // The pairing state: a response from `unitId` to `functionCode` is due, so its length is tried
    // before the request's; ExpectNothing tries the request's first.
    void ExpectResponse(uint8_t unitId, uint8_t functionCode);
    void ExpectNothing();

    // The next frame that can be decided at `nowUs`; false when more bytes or more quiet are needed.
    bool Next(int64_t nowUs, SplitFrame& frame);
    // At the end of the capture: decides what is left as if the line stayed quiet for good.
    bool NextAtEnd(SplitFrame& frame);

    uint64_t NoiseBytes() const { return noiseBytes_; }
    size_t PendingBytes() const { return bytes_.size() - start_; }

private:
    enum class Outcome { Good, Incomplete, None };
    struct Match {
        Outcome outcome;
        size_t length;
    };

    bool Decide(bool tailQuiet, bool tailDone, SplitFrame& frame);
    Match MatchAt(size_t at, bool tailQuiet, bool tailDone) const;
    Match MatchByLength(size_t at, bool tailDone) const;
    Match MatchByCrcAlone(size_t at, bool tailQuiet, bool tailDone) const;
    Match MatchBadCrc(bool tailQuiet, bool tailDone) const;
    Match MatchSegment(size_t at, bool tailQuiet, bool tailDone) const;
    bool GoodFrameInside(size_t at, size_t length) const;
    bool CrcRight(size_t at, size_t length) const;
    bool SilenceAt(size_t at, bool tailQuiet) const;
    bool PlausibleStartAt(size_t at) const;
    void Emit(size_t length, bool crcOk, SplitFrame& frame);
    void Compact();

    int64_t silenceUs_;
    int64_t characterUs_;
    int64_t decisionUs_;
    std::vector<uint8_t> bytes_;
    std::vector<int64_t> arrivalUs_;   // per byte: when its read returned
    std::vector<uint8_t> silenceBefore_;  // per byte: a visible silence came before it
    size_t start_ = 0;                  // bytes before it are decided
    int64_t lastArrivalUs_ = 0;
    bool seenAny_ = false;
    std::optional<std::pair<uint8_t, uint8_t>> expected_;
    uint64_t noiseBytes_ = 0;
};

}  // namespace Modbus
