#pragma once
// Collects the lines a connection logs, from any thread.
#include <mutex>
#include <string>
#include <vector>

#include "protocol/modbus_client.h"

class LogCapture {
public:
    explicit LogCapture(ModbusClient& client) : client_(client) {
        client.SetLogCallback([this](const std::string& line) {
            std::lock_guard<std::mutex> lock(mutex_);
            lines_.push_back(line);
        });
    }
    // The client may outlive the capture (and log "Disconnected." when it is destroyed).
    ~LogCapture() { client_.SetLogCallback(nullptr); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> Lines() const {
        std::lock_guard<std::mutex> lock(mutex_);
        return lines_;
    }
    void Clear() {
        std::lock_guard<std::mutex> lock(mutex_);
        lines_.clear();
    }
    bool Contains(const std::string& line) const {
        std::lock_guard<std::mutex> lock(mutex_);
        for (const auto& l : lines_)
            if (l == line) return true;
        return false;
    }

private:
    ModbusClient& client_;
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
};
