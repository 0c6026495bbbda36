#pragma once
// A child process for tests (POSIX only): started with its stdout and stderr captured on reader
// threads, waited for with a bound, and killed by the destructor if it is still running, so no
// child outlives its test.
#if !defined(_WIN32)
#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace slavetest {

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

// Runs a program to its end (killed after timeoutMs) and returns its exit code and output.
struct RunResult {
    int exitCode = -1;
    std::string out;
    std::string err;
};

inline RunResult RunProgram(const std::vector<std::string>& argv, int timeoutMs) {
    ChildProcess child(argv);
    RunResult result;
    result.exitCode = child.Wait(timeoutMs);
    if (result.exitCode == -1) {
        child.Signal(SIGKILL);
        child.Wait(5000);
        result.exitCode = -1;
    }
    result.out = child.Stdout();
    result.err = child.Stderr();
    return result;
}

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
