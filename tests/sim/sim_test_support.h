#pragma once
// Helpers of the simulator tests: kestrel-cli's path, line splitting, the "Fault: " lines of a run
// and a socat pty pair for RTU between two programs.
#if !defined(_WIN32)
#include <memory>
#include <string>
#include <vector>

#include "slave/slave_process.h"
#include "slave/slave_test_support.h"
#include "support/child_process.h"
#include "support/text_lines.h"

namespace simtest {

inline std::vector<std::string> Cli(std::vector<std::string> args) {
    args.insert(args.begin(), KESTREL_CLI_PATH);
    return args;
}

inline std::vector<std::string> Lines(const std::string& text) { return SplitLines(text); }

inline std::vector<std::string> FaultLines(const std::string& text) {
    std::vector<std::string> faults;
    for (const std::string& line : Lines(text)) {
        if (line.rfind("Fault: ", 0) == 0) faults.push_back(line);
    }
    return faults;
}

inline std::string ReadText(const std::string& path) {
    std::string text;
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f == nullptr) return "<missing>";
    char buffer[4096];
    size_t n = 0;
    while ((n = std::fread(buffer, 1, sizeof buffer, f)) > 0) text.append(buffer, n);
    std::fclose(f);
    return text;
}

inline void WriteText(const std::string& path, const std::string& text) {
    FILE* f = std::fopen(path.c_str(), "wb");
    if (f == nullptr) return;
    std::fwrite(text.data(), 1, text.size(), f);
    std::fclose(f);
}

// Two pty ends joined by socat: A for the slave, B for its master.
class PtyPair {
public:
    PtyPair() : dir_(MakeTempDir()) {
        socat_ = std::make_unique<BackgroundProcess>(std::vector<std::string>{
            "timeout", "120", "socat", "pty,raw,echo=0,link=" + A(), "pty,raw,echo=0,link=" + B()});
        ok_ = WaitForPath(A(), 5000) && WaitForPath(B(), 5000);
    }
    ~PtyPair() {
        socat_.reset();
        RunCommand({"rm", "-rf", dir_}, 5000);
    }
    bool Ok() const { return ok_; }
    std::string A() const { return dir_ + "/ttyA"; }
    std::string B() const { return dir_ + "/ttyB"; }

private:
    std::string dir_;
    std::unique_ptr<BackgroundProcess> socat_;
    bool ok_ = false;
};

}  // namespace simtest
#endif
