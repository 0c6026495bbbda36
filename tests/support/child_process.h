#pragma once
// Native (POSIX) helpers for tests that start other programs: a peer server that runs in the
// background until the test stops it, and a command run to completion with its output captured.
// Every child is bounded in time and killed when its owner goes away.
#if !defined(_WIN32)
#include <cstdint>
#include <string>
#include <sys/types.h>
#include <vector>

struct CommandResult {
    int exitCode = -1;  // -1 when it had to be killed
    std::string out;
    std::string err;
};

// Runs argv[0] with its arguments, waits at most `timeoutMs`, captures stdout and stderr.
CommandResult RunCommand(const std::vector<std::string>& argv, int timeoutMs = 30000);

class BackgroundProcess {
public:
    // Starts the program; stdout and stderr go to `logPath` (or /dev/null when empty).
    explicit BackgroundProcess(const std::vector<std::string>& argv, const std::string& logPath = "");
    ~BackgroundProcess();  // SIGTERM, then SIGKILL after 2 s, and reaps it
    BackgroundProcess(const BackgroundProcess&) = delete;
    BackgroundProcess& operator=(const BackgroundProcess&) = delete;

    bool Running();
    // Sends SIGTERM and waits up to `timeoutMs` for the exit; returns the exit code or -1.
    int Stop(int timeoutMs = 5000);
    pid_t Pid() const { return pid_; }

private:
    pid_t pid_ = -1;
    int status_ = -1;
};

// A TCP port on 127.0.0.1 that was free a moment ago.
uint16_t FreeTcpPort();
// Waits until something accepts connections on 127.0.0.1:port.
bool WaitForTcpPort(uint16_t port, int timeoutMs);
// Waits until the path exists.
bool WaitForPath(const std::string& path, int timeoutMs);
// A fresh temporary directory, removed by the caller (or left in /tmp on failure for inspection).
std::string MakeTempDir();
bool HaveProgram(const std::string& name);
#endif
