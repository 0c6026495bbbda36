#include "polling/polling_engine.h"

#include "common/localizer.h"
#include "model/value_display.h"
#include "platform/clock.h"

std::string ReadErrorText() { return Localizer::Text(Localizer::Scope::Messages, "Read error", "Lesefehler"); }

void PollingEngine::SetDetails(std::vector<Modbus::ModbusDetail> newDetails) {
    std::lock_guard<std::mutex> lock(mutex);
    details = std::move(newDetails);
}

void PollingEngine::SetReadDetail(ReadDetail callback) { readDetail = std::move(callback); }

void PollingEngine::SetOnResults(OnResults callback) { onResults = std::move(callback); }

void PollingEngine::Start(uint32_t intervalMs) {
    if (running.load()) return;
    if (thread.joinable()) thread.join();  // a thread that ended on its own
    interval.store(intervalMs);
    running.store(true);
    thread = std::thread([this] { Run(); });
}

void PollingEngine::Stop() {
    running.store(false);
    if (thread.joinable()) thread.join();
}

std::vector<Modbus::PollingResult> PollingEngine::PollOnce() { return PollCycle(false); }

std::vector<Modbus::PollingResult> PollingEngine::PollCycle(bool stopWhenAsked) {
    std::vector<Modbus::ModbusDetail> copy;
    {
        std::lock_guard<std::mutex> lock(mutex);
        copy = details;
    }
    std::vector<Modbus::PollingResult> results;
    if (copy.empty() || !readDetail) return results;
    results.reserve(copy.size());
    // One read per detail: details are never merged into larger requests.
    for (const Modbus::ModbusDetail& detail : copy) {
        // A stop waits for the read under way, not for the rest of the cycle: against a device
        // that has gone silent every read takes the full receive time-out.
        if (stopWhenAsked && !running.load()) break;
        Modbus::PollingResult result;
        result.detailId = detail.id;
        result.name = detail.name;
        std::vector<uint16_t> registers;
        result.ok = readDetail(detail, registers);
        if (result.ok && !registers.empty()) {
            result.value = DecodeValue(registers, detail);
            result.displayText = FormatDisplayText(detail, result.value);
        } else {
            // A read that succeeded with no registers keeps ok = true next to the error text.
            result.error = ReadErrorText();
        }
        results.push_back(std::move(result));
    }
    return results;
}

size_t PollingEngine::DetailCount() {
    std::lock_guard<std::mutex> lock(mutex);
    return details.size();
}

void PollingEngine::Run() {
    while (running.load()) {
        const int64_t cycleStart = platform::MonotonicMicroseconds();
        std::vector<Modbus::PollingResult> results = PollCycle(true);
        // A cycle cut short by a stop is not handed on.
        if (!running.load() && results.size() < DetailCount()) break;
        if (!results.empty() && onResults) onResults(results);
        // A cycle that took longer than the interval is followed at once by the next one.
        const int64_t deadline = cycleStart + static_cast<int64_t>(interval.load()) * 1000;
        while (running.load() && platform::MonotonicMicroseconds() < deadline) platform::SleepMilliseconds(50);
    }
}
