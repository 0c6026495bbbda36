#pragma once
// Native (POSIX) helpers for tests that start other programs: a child whose output is captured
// live (the command line under test), a peer server that runs in the background with its output in
// a log file until the test stops it, and a command run to completion. Every child is bounded in
// time and killed when its owner goes away.
#if !defined(_WIN32)
#include <fcntl.h>
#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

// A child with its stdout and stderr captured on reader threads while it runs. Its output pipes
// must close when it exits: a grandchild that keeps them open would hold up Wait. Long-running
// peers that start helpers of their own (timeout, socat) are BackgroundProcess instead.
class ChildProcess {
public:
    explicit ChildProcess(const std::vector<std::string>& argv, const std::string& workingDirectory = "") {
        int out[2], err[2];
        if (pipe2(out, O_CLOEXEC) != 0) return;
        if (pipe2(err, O_CLOEXEC) != 0) {
            close(out[0]);
            close(out[1]);
            return;
        }
        pid_ = fork();
        if (pid_ == 0) {
            dup2(out[1], 1);
            dup2(err[1], 2);
            const int devnull = open("/dev/null", O_RDONLY);
            if (devnull >= 0) dup2(devnull, 0);
            if (!workingDirectory.empty() && chdir(workingDirectory.c_str()) != 0) _exit(126);
            std::vector<char*> args;
            for (const auto& a : argv) args.push_back(const_cast<char*>(a.c_str()));
            args.push_back(nullptr);
            execvp(args[0], args.data());
            _exit(127);
        }
        close(out[1]);
        close(err[1]);
        if (pid_ < 0) {
            close(out[0]);
            close(err[0]);
            return;
        }
        outReader_ = std::thread([this, fd = out[0]] { Drain(fd, stdout_); });
        errReader_ = std::thread([this, fd = err[0]] { Drain(fd, stderr_); });
    }

    ~ChildProcess() {
        if (pid_ > 0 && !exited_) {
            kill(pid_, SIGKILL);
            Wait(5000);
        }
        if (outReader_.joinable()) outReader_.join();
        if (errReader_.joinable()) errReader_.join();
    }

    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool Started() const { return pid_ > 0; }
    void Signal(int signal) {
        if (pid_ > 0 && !exited_) kill(pid_, signal);
    }

    // The exit code (128 + n for a signal n), or -1 when it is still running after timeoutMs.
    int Wait(int timeoutMs) {
        if (pid_ <= 0) return -1;
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        while (!exited_) {
            int status = 0;
            const pid_t done = waitpid(pid_, &status, WNOHANG);
            if (done == pid_) {
                exited_ = true;
                exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
                break;
            }
            if (std::chrono::steady_clock::now() >= deadline) return -1;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        // The pipes close with the process; let the readers take the rest.
        if (outReader_.joinable()) outReader_.join();
        if (errReader_.joinable()) errReader_.join();
        return exitCode_;
    }

    std::string Stdout() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return stdout_;
    }
    std::string Stderr() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return stderr_;
    }

    // Waits (bounded) until stdout (or stderr) holds `text`.
    bool WaitForOutput(const std::string& text, int timeoutMs, bool inStderr = false) const {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
        while (std::chrono::steady_clock::now() < deadline) {
            if ((inStderr ? Stderr() : Stdout()).find(text) != std::string::npos) return true;
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return (inStderr ? Stderr() : Stdout()).find(text) != std::string::npos;
    }

private:
    void Drain(int fd, std::string& into) {
        char buffer[4096];
        while (true) {
            const ssize_t n = read(fd, buffer, sizeof buffer);
            if (n <= 0) break;
            std::lock_guard<std::mutex> lock(mutex_);
            into.append(buffer, static_cast<size_t>(n));
        }
        close(fd);
    }

    pid_t pid_ = -1;
    bool exited_ = false;
    int exitCode_ = -1;
    mutable std::mutex mutex_;
    std::string stdout_;
    std::string stderr_;
    std::thread outReader_;
    std::thread errReader_;
};


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
