// Which unit ids answer: one probe per id, in order.
#include "platform/clock.h"
#include "scan/scan_progress.h"
#include "scan/scanner.h"

namespace scan {

const char* UnitStatusName(UnitStatus status) {
    switch (status) {
        case UnitStatus::Answering: return "answering";
        case UnitStatus::Exception: return "exception";
        case UnitStatus::NoDevice: return "no-device";
        case UnitStatus::Silent: break;
    }
    return "silent";
}

UnitStatus StatusForAnswer(const ProbeAnswer& answer) {
    switch (answer.kind) {
        case ProbeAnswer::Kind::Values: return UnitStatus::Answering;
        case ProbeAnswer::Kind::Exception:
            return answer.exceptionCode == 0x0A || answer.exceptionCode == 0x0B ? UnitStatus::NoDevice
                                                                                : UnitStatus::Exception;
        case ProbeAnswer::Kind::Silent:
        case ProbeAnswer::Kind::ConnectionFailed: break;
    }
    return UnitStatus::Silent;
}

UnitScanResult ScanUnits(Prober& prober, const UnitScanOptions& options, const ScanControl& control) {
    UnitScanResult result;
    const int64_t started = platform::MonotonicMicroseconds();
    const uint32_t total = options.lastUnit >= options.firstUnit ? options.lastUnit - options.firstUnit + 1u : 0u;
    ProgressClock progress(control);
    ScanProgress now;
    now.total = total;
    for (uint32_t unit = options.firstUnit; unit <= options.lastUnit; ++unit) {
        if (control.stopRequested && control.stopRequested()) {
            result.interrupted = true;
            break;
        }
        const ProbeAnswer answer =
            prober.Read(static_cast<uint8_t>(unit), options.functionCode, options.address, options.count);
        if (answer.kind == ProbeAnswer::Kind::ConnectionFailed) {
            result.connectionLost = true;
            break;
        }
        UnitResult found;
        found.unit = static_cast<uint8_t>(unit);
        found.status = StatusForAnswer(answer);
        found.exceptionCode = answer.exceptionCode;
        found.values = answer.values;
        if (found.status == UnitStatus::Answering || found.status == UnitStatus::Exception) ++now.found;
        result.units.push_back(std::move(found));
        ++now.done;
        now.requests = prober.Requests();
        progress.Report(now);
    }
    FinishOutcome(result, prober, started);
    return result;
}

}  // namespace scan
