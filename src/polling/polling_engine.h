#pragma once
// The single polling worker: reads every detail of one structure cyclically on a thread of its own,
// decodes each detail's registers and hands the results of a cycle to a callback. It reads through
// whatever its read function is bound to (the structure-polling connection, or the main connection
// for the register tab's cyclic poll).
#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "model/structure.h"
#include "model/value_decoding.h"

namespace Modbus {

struct PollingResult {
    int32_t detailId = 0;
    std::string name;
    DecodedValue value;  // the first alternative (false) when nothing was decoded
    std::string displayText;
    bool ok = false;  // what the read call returned
    std::string error;  // "Read error" / "Lesefehler" when the read failed or returned no registers
};

}  // namespace Modbus

class PollingEngine {
public:
    using ReadDetail = std::function<bool(const Modbus::ModbusDetail&, std::vector<uint16_t>&)>;
    using OnResults = std::function<void(const std::vector<Modbus::PollingResult>&)>;

    PollingEngine() = default;
    ~PollingEngine() { Stop(); }
    PollingEngine(const PollingEngine&) = delete;
    PollingEngine& operator=(const PollingEngine&) = delete;

    void SetDetails(std::vector<Modbus::ModbusDetail> details);
    // Install before Start; the poll thread calls them.
    void SetReadDetail(ReadDetail readDetail);
    void SetOnResults(OnResults onResults);

    // Starts the thread when it is not running; a start while running changes nothing (not even
    // the interval).
    void Start(uint32_t intervalMs);
    // Clears the running flag and joins the thread: returns after the read in progress and at most
    // one 50 ms sleep more.
    void Stop();
    bool IsRunning() const { return running.load(); }
    uint32_t Interval() const { return interval.load(); }

    // One cycle's reads and decoding, without the wait (what the thread does each cycle).
    std::vector<Modbus::PollingResult> PollOnce();

private:
    void Run();
    // One cycle; with `stopWhenAsked` it ends before the next read once Stop has been called.
    std::vector<Modbus::PollingResult> PollCycle(bool stopWhenAsked);
    size_t DetailCount();

    std::atomic<bool> running{false};
    std::atomic<uint32_t> interval{1000};
    std::thread thread;
    std::mutex mutex;  // guards details; the callbacks are set before Start and only read after
    std::vector<Modbus::ModbusDetail> details;
    ReadDetail readDetail;
    OnResults onResults;
};

// "Read error" / "Lesefehler", in the language of the polling messages.
std::string ReadErrorText();
