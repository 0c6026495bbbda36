// The frame recovery of the bus monitor on recorded byte streams with chosen read sizes and
// times: frames in one read, frames split over reads, noise, bad CRCs, codes recovered by CRC
// alone, and a long gapless stream.
#include <gtest/gtest.h>

#include "monitor/rtu_frame_splitter.h"
#include "monitor/monitor_test_frames.h"

using namespace monitor_test;
using Modbus::RtuFrameSplitter;
using Modbus::SplitFrame;

namespace {

// 19,200 Bd, 8N1: 3.5 characters are 1822 us, one character 520 us.
constexpr int64_t kSilenceUs = 1822;
constexpr int64_t kCharacterUs = 520;

struct Seen {
    Bytes bytes;
    bool crcOk;
};

class Splitter : public testing::Test {
protected:
    // One read at `atUs`, then every frame that can be decided right then.
    void Read(const Bytes& bytes, int64_t atUs) {
        splitter.Feed(bytes.data(), bytes.size(), atUs);
        DecideAt(atUs);
    }
    void DecideAt(int64_t nowUs) {
        SplitFrame frame;
        while (splitter.Next(nowUs, frame)) seen.push_back({frame.bytes, frame.crcOk});
    }
    void End() {
        SplitFrame frame;
        while (splitter.NextAtEnd(frame)) seen.push_back({frame.bytes, frame.crcOk});
    }
    std::vector<Bytes> Good() const {
        std::vector<Bytes> good;
        for (const Seen& s : seen) {
            EXPECT_TRUE(s.crcOk);
            good.push_back(s.bytes);
        }
        return good;
    }

    RtuFrameSplitter splitter{kSilenceUs, kCharacterUs};
    std::vector<Seen> seen;
};

std::vector<Bytes> AllFrames() {
    std::vector<Bytes> frames;
    for (const Exchange& e : EveryFunctionCode()) {
        frames.push_back(e.request);
        frames.push_back(e.response);
    }
    return frames;
}

}  // namespace

TEST(SplitterTiming, SilenceIsThreeAndAHalfCharactersWithTheFloorAbove19200) {
    EXPECT_EQ(Modbus::SilenceMicroseconds(9600, 8, 'N', 1), 3645);
    EXPECT_EQ(Modbus::SilenceMicroseconds(19200, 8, 'E', 1), 2005);
    EXPECT_EQ(Modbus::SilenceMicroseconds(38400, 8, 'E', 1), 1750);
    EXPECT_EQ(Modbus::SilenceMicroseconds(115200, 8, 'N', 2), 1750);
    EXPECT_EQ(Modbus::CharacterMicroseconds(9600, 8, 'E', 1), 1145);
}

TEST_F(Splitter, EveryFunctionCodeWithGapsComesOutFrameByFrame) {
    int64_t t = 0;
    for (const Bytes& f : AllFrames()) {
        Read(f, t);
        t += 20000;
        DecideAt(t);
    }
    EXPECT_EQ(Good(), AllFrames());
    EXPECT_EQ(splitter.NoiseBytes(), 0u);
}

TEST_F(Splitter, BackToBackFramesInOneReadAreStillSeparateFrames) {
    Read(Join(AllFrames()), 1000);
    End();
    EXPECT_EQ(Good(), AllFrames());
    EXPECT_EQ(splitter.NoiseBytes(), 0u);
    EXPECT_EQ(splitter.PendingBytes(), 0u);
}

TEST_F(Splitter, KnownLengthsNeedNoSilenceAtAll) {
    // Nothing after the reads, no quiet time: length and CRC decide alone.
    const Bytes request = Frame({1, 3, 0, 0, 0, 2});
    const Bytes response = Frame({1, 3, 4, 0, 10, 0, 20});
    Read(Join({request, response}), 1000);
    EXPECT_EQ(Good(), (std::vector<Bytes>{request, response}));
}

TEST_F(Splitter, AFrameSplitOverReadsWithShortPausesIsOneFrame) {
    const Bytes frame = Frame({17, 16, 0, 1, 0, 2, 4, 0, 0x0A, 1, 2});
    Read(Bytes(frame.begin(), frame.begin() + 3), 0);
    DecideAt(10000);  // a visible silence, far shorter than the decision time
    Read(Bytes(frame.begin() + 3, frame.begin() + 9), 10000);
    DecideAt(20000);
    EXPECT_TRUE(seen.empty());
    Read(Bytes(frame.begin() + 9, frame.end()), 20000);
    EXPECT_EQ(Good(), std::vector<Bytes>{frame});
}

TEST_F(Splitter, NoiseBeforeAndBetweenFramesIsSkippedAndCounted) {
    const Bytes a = Frame({1, 3, 0, 0, 0, 2});
    const Bytes b = Frame({1, 3, 4, 0, 10, 0, 20});
    Read({0x00}, 0);
    Read(a, 10000);
    Read({0xFF, 0xFF, 0x00}, 20000);
    Read(b, 30000);
    Read(Join({{0xAA}, a, {0x00, 0x55}, b}), 40000);
    End();
    EXPECT_EQ(Good(), (std::vector<Bytes>{a, b, a, b}));
    EXPECT_EQ(splitter.NoiseBytes(), 7u);
}

TEST_F(Splitter, ABadCrcFrameEndingAtASilenceIsReportedWithItsBytes) {
    const Bytes request = Frame({1, 3, 0, 0, 0, 2});
    const Bytes bad = WithBadCrc(Frame({1, 3, 4, 0, 10, 0, 20}));
    const Bytes next = Frame({1, 6, 0, 1, 0, 3});
    Read(request, 0);
    Read(bad, 10000);
    Read(next, 20000);
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(seen[1].bytes, bad);
    EXPECT_FALSE(seen[1].crcOk);
    EXPECT_TRUE(seen[0].crcOk && seen[2].crcOk);
    EXPECT_EQ(splitter.NoiseBytes(), 0u);
}

TEST_F(Splitter, ABadCrcFrameAtTheEndOfTheDataWaitsForTheSilenceAfterIt) {
    const Bytes bad = WithBadCrc(Frame({1, 3, 4, 0, 10, 0, 20}));
    Read(bad, 0);
    EXPECT_TRUE(seen.empty());
    DecideAt(kSilenceUs);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_EQ(seen[0].bytes, bad);
    EXPECT_FALSE(seen[0].crcOk);
}

TEST_F(Splitter, ABadCrcFrameRightBeforeAGoodFrameIsReportedToo) {
    const Bytes bad = WithBadCrc(Frame({1, 3, 4, 0, 10, 0, 20}));
    const Bytes next = Frame({1, 6, 0, 1, 0, 3});
    Read(Join({bad, next}), 0);
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].bytes, bad);
    EXPECT_FALSE(seen[0].crcOk);
    EXPECT_EQ(seen[1].bytes, next);
}

TEST_F(Splitter, ATruncatedFrameBeforeASilenceIsABadFrame) {
    const Bytes full = Frame({1, 3, 0, 0, 0, 2});
    const Bytes cut(full.begin(), full.begin() + 5);
    Read(cut, 0);
    Read(full, 30000);
    End();
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0].bytes, cut);
    EXPECT_FALSE(seen[0].crcOk);
    EXPECT_EQ(seen[1].bytes, full);
}

TEST_F(Splitter, AnIncompleteFrameWaitsForTheDecisionTimeThenIsDecided) {
    const Bytes full = Frame({1, 3, 0, 0, 0, 2});
    Read(Bytes(full.begin(), full.begin() + 6), 0);
    DecideAt(50000);
    EXPECT_TRUE(seen.empty());
    DecideAt(RtuFrameSplitter::kDecisionMicroseconds);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_FALSE(seen[0].crcOk);
    EXPECT_EQ(seen[0].bytes.size(), 6u);
}

TEST_F(Splitter, Fc08And2BAreRecoveredByCrcAloneEvenBackToBack) {
    const std::vector<Bytes> frames = {Frame({2, 8, 0, 0, 0xA5, 0x37}), Frame({2, 8, 0, 0, 0xA5, 0x37}),
                                       Frame({17, 43, 14, 1, 0}),
                                       Frame({17, 43, 14, 1, 1, 0, 0, 1, 0, 3, 'K', 'e', 's'}),
                                       Frame({1, 3, 0, 0, 0, 2})};
    Read(Join(frames), 0);
    End();
    EXPECT_EQ(Good(), frames);
}

TEST_F(Splitter, ACodeWeDoNotKnowIsAFrameOnlyBetweenSilences) {
    const Bytes vendor = Frame({5, 0x41, 1, 2, 3});
    const Bytes next = Frame({1, 3, 0, 0, 0, 2});
    Read(vendor, 0);
    Read(next, 20000);
    // Glued to a frame in front of it, the same bytes are noise.
    Read(Join({next, vendor}), 40000);
    End();
    ASSERT_EQ(seen.size(), 3u);
    EXPECT_EQ(Good(), (std::vector<Bytes>{vendor, next, next}));
    EXPECT_EQ(splitter.NoiseBytes(), vendor.size());
}

TEST_F(Splitter, ACrcAloneFrameAtTheEndWaitsForTheSilence) {
    const Bytes frame = Frame({2, 8, 0, 0, 0xA5, 0x37});
    Read(frame, 0);
    EXPECT_TRUE(seen.empty());
    DecideAt(kSilenceUs);
    EXPECT_EQ(Good(), std::vector<Bytes>{frame});
}

TEST_F(Splitter, ExceptionResponsesAreFiveBytes) {
    const std::vector<Bytes> frames = {Frame({1, 6, 0, 1, 0, 3}), Frame({1, 0x86, 2}), Frame({1, 3, 0, 0, 0, 2}),
                                       Frame({1, 0x83, 2})};
    Read(Join(frames), 0);
    EXPECT_EQ(Good(), frames);
}

TEST_F(Splitter, TenThousandFramesInARowWithoutAnyGap) {
    std::vector<Bytes> frames;
    const std::vector<Bytes> every = AllFrames();
    for (size_t i = 0; frames.size() < 10000; ++i) frames.push_back(every[i % every.size()]);
    const Bytes stream = Join(frames);
    // Reads of 4,096 bytes, each cutting frames anywhere, one right after the other.
    for (size_t at = 0; at < stream.size(); at += 4096) {
        const size_t end = std::min(stream.size(), at + 4096);
        Read(Bytes(stream.begin() + static_cast<long>(at), stream.begin() + static_cast<long>(end)),
             static_cast<int64_t>(at));
    }
    End();
    EXPECT_EQ(Good(), frames);
    EXPECT_EQ(splitter.NoiseBytes(), 0u);
}
