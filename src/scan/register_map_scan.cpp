// Which addresses of one table can be read: blocks of the largest read, and a refused block split
// in halves until the refused addresses stand alone.
//
// Cost: a block that reads costs one request. A block with one refused address costs two
// requests per halving on the way down to it (about 2 x log2(125) = 14 for a register block), so
// five refused addresses in 10,000 registers cost about 80 + 5 x 14 = 150 requests. A block in
// which every address is refused is a full binary tree of 2n - 1 requests: about two per address.
#include <algorithm>

#include "platform/clock.h"
#include "scan/scan_progress.h"
#include "scan/scanner.h"

namespace scan {
namespace {

constexpr uint8_t kIllegalDataAddress = 2;

enum class Step { Go, Stop, Lost };

class RegisterMapper {
public:
    RegisterMapper(Prober& prober, const RegisterScanOptions& options, const ScanControl& control,
                   RegisterScanResult& result)
        : prober_(prober), options_(options), control_(control), result_(result) {}

    // Settles first..last: readable, or refused address by address.
    Step Probe(uint32_t first, uint32_t last) {
        if (control_.stopRequested && control_.stopRequested()) return Step::Stop;
        const auto count = static_cast<uint16_t>(last - first + 1);
        const ProbeAnswer answer = prober_.Read(options_.unit, options_.functionCode, static_cast<uint16_t>(first), count);
        switch (answer.kind) {
            case ProbeAnswer::Kind::Values: AddReadable(first, last); return Step::Go;
            case ProbeAnswer::Kind::ConnectionFailed: return Step::Lost;
            case ProbeAnswer::Kind::Silent: return Step::Go;
            case ProbeAnswer::Kind::Exception: break;
        }
        if (answer.exceptionCode != kIllegalDataAddress || first == last) return Step::Go;
        const uint32_t middle = first + (last - first) / 2;
        const Step left = Probe(first, middle);
        if (left != Step::Go) return left;
        return Probe(middle + 1, last);
    }

private:
    void AddReadable(uint32_t first, uint32_t last) {
        auto& ranges = result_.ranges;
        if (!ranges.empty() && static_cast<uint32_t>(ranges.back().last) + 1 == first) {
            ranges.back().last = static_cast<uint16_t>(last);
            return;
        }
        ranges.push_back({static_cast<uint16_t>(first), static_cast<uint16_t>(last)});
    }

    Prober& prober_;
    const RegisterScanOptions& options_;
    const ScanControl& control_;
    RegisterScanResult& result_;
};

}  // namespace

uint16_t MaxBlock(uint8_t functionCode) { return functionCode == 1 || functionCode == 2 ? 2000 : 125; }

RegisterScanResult ScanRegisters(Prober& prober, const RegisterScanOptions& options, const ScanControl& control) {
    RegisterScanResult result;
    const int64_t started = platform::MonotonicMicroseconds();
    RegisterMapper mapper(prober, options, control, result);
    ProgressClock progress(control);
    ScanProgress now;
    now.total = options.to >= options.from ? static_cast<uint32_t>(options.to) - options.from + 1 : 0;
    const uint32_t block = MaxBlock(options.functionCode);
    for (uint32_t first = options.from; first <= options.to; first += block) {
        const uint32_t last = std::min<uint32_t>(first + block - 1, options.to);
        const Step step = mapper.Probe(first, last);
        if (step == Step::Stop) {
            result.interrupted = true;
            break;
        }
        if (step == Step::Lost) {
            result.connectionLost = true;
            break;
        }
        now.done = last - options.from + 1;
        now.found = static_cast<uint32_t>(result.ranges.size());
        now.requests = prober.Requests();
        progress.Report(now);
    }
    FinishOutcome(result, prober, started);
    return result;
}

}  // namespace scan
