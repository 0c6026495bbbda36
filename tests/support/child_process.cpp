#include "support/child_process.h"

#if !defined(_WIN32)
#include <arpa/inet.h>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

extern char** environ;

namespace {

int64_t NowMs() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

std::vector<char*> Argv(const std::vector<std::string>& argv) {
    std::vector<char*> out;
    for (const auto& a : argv) out.push_back(const_cast<char*>(a.c_str()));
    out.push_back(nullptr);
    return out;
}

// Waits for the child up to `timeoutMs`; -1 when it is still running.
int WaitFor(pid_t pid, int timeoutMs, int& status) {
    const int64_t deadline = NowMs() + timeoutMs;
    while (true) {
        const pid_t r = waitpid(pid, &status, WNOHANG);
        if (r == pid) return 0;
        if (r < 0) return 0;
        if (NowMs() >= deadline) return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

int ExitCodeOf(int status) { return WIFEXITED(status) ? WEXITSTATUS(status) : -1; }

}  // namespace

CommandResult RunCommand(const std::vector<std::string>& argv, int timeoutMs) {
    ChildProcess child(argv);
    CommandResult result;
    if (!child.Started()) {
        result.err = "cannot start " + argv[0];
        return result;
    }
    result.exitCode = child.Wait(timeoutMs);
    if (result.exitCode == -1) {
        child.Signal(SIGKILL);
        child.Wait(5000);
    }
    result.out = child.Stdout();
    result.err = child.Stderr();
    return result;
}

BackgroundProcess::BackgroundProcess(const std::vector<std::string>& argv, const std::string& logPath) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    const std::string target = logPath.empty() ? "/dev/null" : logPath;
    posix_spawn_file_actions_addopen(&actions, 1, target.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    posix_spawn_file_actions_adddup2(&actions, 1, 2);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    std::vector<char*> args = Argv(argv);
    if (posix_spawnp(&pid_, args[0], &actions, nullptr, args.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
}

BackgroundProcess::~BackgroundProcess() {
    if (pid_ <= 0) return;
    Stop(2000);
    if (status_ == -1 && pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
}

bool BackgroundProcess::Running() {
    if (pid_ <= 0 || status_ != -1) return false;
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
        status_ = status;
        return false;
    }
    return true;
}

int BackgroundProcess::Stop(int timeoutMs) {
    if (pid_ <= 0) return -1;
    if (status_ == -1) {
        kill(pid_, SIGTERM);
        int status = 0;
        if (WaitFor(pid_, timeoutMs, status) == 0) status_ = status;
    }
    if (status_ == -1) return -1;
    return ExitCodeOf(status_);
}

uint16_t FreeTcpPort() {
    const int s = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in a{};
    a.sin_family = AF_INET;
    a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(s, reinterpret_cast<sockaddr*>(&a), sizeof a);
    socklen_t len = sizeof a;
    getsockname(s, reinterpret_cast<sockaddr*>(&a), &len);
    close(s);
    return ntohs(a.sin_port);
}

bool WaitForTcpPort(uint16_t port, int timeoutMs) {
    const int64_t deadline = NowMs() + timeoutMs;
    while (NowMs() < deadline) {
        const int s = socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in a{};
        a.sin_family = AF_INET;
        a.sin_port = htons(port);
        a.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        const bool ok = connect(s, reinterpret_cast<sockaddr*>(&a), sizeof a) == 0;
        close(s);
        if (ok) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
}

bool WaitForPath(const std::string& path, int timeoutMs) {
    const int64_t deadline = NowMs() + timeoutMs;
    struct stat st{};
    while (NowMs() < deadline) {
        if (stat(path.c_str(), &st) == 0) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

std::string MakeTempDir() {
    char pattern[] = "/tmp/kestrel-test-XXXXXX";
    const char* dir = mkdtemp(pattern);
    return dir ? dir : "/tmp";
}

bool HaveProgram(const std::string& name) {
    return RunCommand({"sh", "-c", "command -v " + name + " >/dev/null 2>&1"}, 5000).exitCode == 0;
}
#endif
