#pragma once
// What the slave tests need of a child process beyond tests/support/child_process.h.
#if !defined(_WIN32)
#include <cstdint>
#include <string>

#include "support/child_process.h"

namespace slavetest {

// The port a `kestrel-cli slave --tcp-port 0` announced on stderr, or 0.
inline uint16_t AnnouncedPort(const ChildProcess& child, int timeoutMs = 5000) {
    const std::string marker = "slave listening on port ";
    if (!child.WaitForOutput(marker, timeoutMs, true)) return 0;
    if (!child.WaitForOutput("\n", timeoutMs, true)) return 0;
    const std::string err = child.Stderr();
    const size_t at = err.find(marker) + marker.size();
    return static_cast<uint16_t>(std::stoul(err.substr(at)));
}

}  // namespace slavetest
#endif
