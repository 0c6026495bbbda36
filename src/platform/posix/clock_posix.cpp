#include "platform/clock.h"

#include <ctime>

namespace platform {

int64_t MonotonicMicroseconds() {
    timespec ts{};
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000 + ts.tv_nsec / 1000;
}

int64_t UnixTimeMilliseconds() {
    timespec ts{};
    clock_gettime(CLOCK_REALTIME, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

void SleepMilliseconds(uint32_t milliseconds) {
    timespec ts{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L};
    while (nanosleep(&ts, &ts) != 0) {
        // interrupted by a signal: sleep the rest
    }
}

}  // namespace platform
