#pragma once
// An RS-485 line for tests, made of three pseudo-terminals: what the master port and the slave
// port write reaches the other one and, as a copy, the listener port, where a bus monitor hears
// both sides. Whatever the listener port writes is counted and dropped (a listener must send
// nothing). A thread copies between the pty master ends until the forwarder goes away. Native only.
#if !defined(_WIN32)
#include <atomic>
#include <cstddef>
#include <string>
#include <thread>

class SerialForwarder {
public:
    SerialForwarder();
    ~SerialForwarder();
    SerialForwarder(const SerialForwarder&) = delete;
    SerialForwarder& operator=(const SerialForwarder&) = delete;

    bool Ok() const { return ok_; }
    const std::string& MasterDevice() const { return names_[0]; }
    const std::string& SlaveDevice() const { return names_[1]; }
    const std::string& ListenerDevice() const { return names_[2]; }
    size_t BytesFromListener() const { return fromListener_.load(); }

private:
    void Run();

    bool ok_ = false;
    int masters_[3] = {-1, -1, -1};
    int slaves_[3] = {-1, -1, -1};  // held open so a pty does not hang up between two opens
    std::string names_[3];
    std::atomic<bool> stop_{false};
    std::atomic<size_t> fromListener_{0};
    std::thread thread_;
};
#endif
