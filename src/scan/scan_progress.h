#pragma once
// Hands the scan's progress to the caller no more often than the control's interval, so that a
// fast scan does not flood the terminal and a slow one still shows it is alive; and closes the
// outcome of a scan.
#include "platform/clock.h"
#include "scan/scanner.h"

namespace scan {

class ProgressClock {
public:
    explicit ProgressClock(const ScanControl& control)
        : control_(control), last_(platform::MonotonicMicroseconds()) {}

    void Report(const ScanProgress& progress) {
        if (!control_.onProgress) return;
        const int64_t now = platform::MonotonicMicroseconds();
        if (now - last_ < static_cast<int64_t>(control_.progressIntervalMs) * 1000) return;
        last_ = now;
        control_.onProgress(progress);
    }

private:
    const ScanControl& control_;
    int64_t last_;
};

// Closes a scan that ended (done, stopped or lost): the requests it made and the seconds since
// `startedUs` on the monotonic clock.
inline void FinishOutcome(ScanOutcome& outcome, const Prober& prober, int64_t startedUs) {
    outcome.requests = prober.Requests();
    outcome.seconds = static_cast<double>(platform::MonotonicMicroseconds() - startedUs) / 1e6;
}

}  // namespace scan
