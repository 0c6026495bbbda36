#pragma once
// Pairing of the frames a bus monitor recovers: which frame is a request and which a response,
// which request a response answers, and the device's response time. Frames come in capture order;
// records go out in the same order, but a request's record waits until its fate is known (a
// response, the next request, or the end of the capture), and every record behind it waits with
// it, so that the order stays the capture order.
//
// Direction by shape and pairing state (the same function code's request and response can have the
// same length: an 8-byte FC01 frame, FC05/FC06 echoes, FC08 and FC2B whose lengths we do not know):
//   - a frame with the exception bit is a response;
//   - a frame from the unit and function code of the pending request that has a response's shape
//     (or any shape, for codes without a length rule) is that request's response, except that an
//     FC05/FC06 response must repeat the request byte for byte;
//   - otherwise a frame with a request's shape (or any shape, for codes without a length rule) is
//     a request; one with only a response's shape is a response without a request; a frame of
//     neither shape is `unknown`.
// A frame with a bad CRC gets a direction by the same rules but pairs with nothing: its request
// stays pending and ends unanswered unless a good response still comes.
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "monitor/frame_shapes.h"
#include "monitor/rtu_frame_splitter.h"

namespace Modbus {

enum class FrameDirection { Request, Response, Unknown };
enum class FrameStatus { Ok, Exception, CrcError, Unanswered };

struct MonitorRecord {
    int64_t wallUs = 0;  // capture time of the first byte, microseconds since 1970-01-01 UTC
    FrameDirection direction = FrameDirection::Unknown;
    uint8_t unitId = 0;
    uint8_t functionCode = 0;  // without the exception bit
    FrameFields fields;
    bool isException = false;
    uint8_t exceptionCode = 0;
    FrameStatus status = FrameStatus::Ok;
    bool hasResponseTime = false;
    double responseMs = 0.0;  // from the request's last byte to the response's first byte
    std::vector<uint8_t> bytes;
};

struct UnitStatistics {
    uint64_t requests = 0;
    uint64_t responses = 0;
    uint64_t exceptions = 0;
    uint64_t unanswered = 0;
    uint64_t crcErrors = 0;
    std::vector<double> responseTimesMs;
};

class BusPairing {
public:
    using RecordSink = std::function<void(const MonitorRecord&)>;

    explicit BusPairing(RecordSink sink);

    // One recovered frame with the wall-clock time of its first byte.
    void Add(const SplitFrame& frame, int64_t wallUs);
    // The end of the capture: a pending request is unanswered; every held record goes out.
    void Finish();

    // The unit id and function code whose response is due, for the splitter's length order.
    std::optional<std::pair<uint8_t, uint8_t>> ExpectedResponse() const;
    // Per unit id, in ascending order.
    const std::map<uint8_t, UnitStatistics>& Statistics() const { return statistics_; }

private:
    struct Pending {
        MonitorRecord record;  // the request, held at the front of `held_`
        int64_t lastByteUs = 0;
        uint16_t count = 0;
    };

    FrameDirection DirectionOf(const SplitFrame& frame) const;
    bool AnswersPending(const SplitFrame& frame) const;
    void AddRequest(MonitorRecord record, const SplitFrame& frame);
    void AddResponse(MonitorRecord record, const SplitFrame& frame);
    void Hold(MonitorRecord record);
    void ClosePending(FrameStatus status);

    RecordSink sink_;
    std::optional<Pending> pending_;
    std::deque<MonitorRecord> held_;  // records behind the pending request
    std::map<uint8_t, UnitStatistics> statistics_;
};

}  // namespace Modbus
