#pragma once
// Structure polling end to end over loopback, as the Structures page runs it: our own slave serves
// the device, and the connection, polling engine, alarm engine and recording that StructurePolling
// ties together read it. Every cycle handed on is collected. TearDown stops the polling and the
// slave.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "model/alarm_engine.h"
#include "model/structure_store.h"
#include "polling/polling_engine.h"
#include "polling/recording_buffer.h"
#include "polling/structure_polling.h"
#include "protocol/modbus_client.h"

class StructurePollingFixture : public testing::Test {
protected:
    explicit StructurePollingFixture(const std::string& storePath) : store(storePath) {}

    void TearDown() override {
        StopStructurePolling(polling);
        slave.Disconnect();
    }

    // Starts the slave (unit id 1) on `port`; 0 takes any free port (ListeningPort tells which).
    bool StartSlave(uint16_t port = 0) {
        ConnectionConfig config;
        config.role = 1;
        config.port = port;
        config.unitId = 1;
        return slave.Connect(config);
    }

    // The results handler that collects every cycle handed on.
    PollingEngine::OnResults HandOff() {
        return [this](const std::vector<Modbus::PollingResult>& results) {
            std::lock_guard<std::mutex> lock(mutex_);
            cycles_.push_back(results);
            ++handedOff_;
        };
    }

    int HandedOff() const { return handedOff_.load(); }

    // Waits (bounded: 4 s) until `n` cycles in all have been handed on; returns the last one.
    std::vector<Modbus::PollingResult> WaitForCycles(int n) {
        for (int i = 0; i < 400 && handedOff_.load() < n; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
        std::lock_guard<std::mutex> lock(mutex_);
        return cycles_.empty() ? std::vector<Modbus::PollingResult>{} : cycles_.back();
    }

    // Waits (bounded) for `n` more cycles and returns them; nothing when they did not all come.
    std::vector<std::vector<Modbus::PollingResult>> NextCycles(size_t n, int timeoutMs = 5000) {
        size_t from;
        {
            std::lock_guard<std::mutex> lock(mutex_);
            from = cycles_.size();
        }
        const auto start = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() - start < std::chrono::milliseconds(timeoutMs)) {
            {
                std::lock_guard<std::mutex> lock(mutex_);
                if (cycles_.size() >= from + n) {
                    return {cycles_.begin() + static_cast<std::ptrdiff_t>(from), cycles_.end()};
                }
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return {};
    }

    ModbusClient slave;
    StructureStore store;
    ModbusClient connection;
    PollingEngine engine;
    AlarmEngine alarms;
    RecordingBuffer recording;
    StructurePolling polling{store, connection, engine, alarms, recording};

private:
    std::mutex mutex_;
    std::vector<std::vector<Modbus::PollingResult>> cycles_;
    std::atomic<int> handedOff_{0};
};
