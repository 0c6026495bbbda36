#pragma once
// What a reliability test watches in its own process (Linux /proc): open descriptors, threads and
// resident memory.
#include <dirent.h>

#include <cstdint>
#include <fstream>
#include <string>

namespace reliability {

inline int OpenDescriptors() {
    int n = 0;
    if (DIR* dir = ::opendir("/proc/self/fd")) {
        while (const dirent* entry = ::readdir(dir)) {
            if (entry->d_name[0] != '.') ++n;
        }
        ::closedir(dir);
    }
    return n - 1;  // the directory stream itself
}

// A field of /proc/self/status ("Threads", "VmRSS" in kB), or -1.
inline int64_t StatusField(const std::string& name) {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind(name + ":", 0) == 0) return std::stoll(line.substr(name.size() + 1));
    }
    return -1;
}

inline int Threads() { return static_cast<int>(StatusField("Threads")); }
inline int64_t ResidentKb() { return StatusField("VmRSS"); }

}  // namespace reliability
