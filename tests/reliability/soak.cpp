// The soak run: our slave serves a device of 50 details over loopback; structure polling reads all
// of them cycle after cycle with recording on, for the whole run, as the Structures page does.
// Meanwhile a second connection makes manual transactions (every kind the register tab offers),
// spread evenly over the run. The slave serves one client at a time, so the manual transactions go
// to a second slave in the same process. At the end it reports cycles, failed reads, resident
// memory, descriptors and threads at the start and the end.
//
//   reliability_soak SECONDS MANUAL_TRANSACTIONS [INTERVAL_MS]
//
// Exit status 0 when every read and transaction succeeded and descriptors and threads stayed flat
// while running and are back where they started after the stop; the report goes to stdout.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include <unistd.h>

#include "common/localizer.h"
#include "model/alarm_engine.h"
#include "model/structure_store.h"
#include "polling/polling_engine.h"
#include "polling/recording_buffer.h"
#include "polling/structure_polling.h"
#include "process_stats.h"
#include "protocol/modbus_client.h"
#include "protocol/trace_log.h"

namespace {

using Clock = std::chrono::steady_clock;
using namespace reliability;

std::vector<Modbus::ModbusDetail> FiftyDetails() {
    std::vector<Modbus::ModbusDetail> details;
    const Modbus::DataType types[] = {Modbus::DataType::UInt16, Modbus::DataType::Int16, Modbus::DataType::Float32,
                                      Modbus::DataType::UInt32, Modbus::DataType::Int64, Modbus::DataType::String,
                                      Modbus::DataType::Raw,    Modbus::DataType::Boolean};
    for (int i = 0; i < 50; ++i) {
        Modbus::ModbusDetail d;
        d.name = "Detail " + std::to_string(i);
        d.unit = i % 3 == 0 ? "kW" : "";
        d.dataType = types[i % 8];
        d.arraySize = d.dataType == Modbus::DataType::String ? 8 : 1;
        d.registerAddress = static_cast<uint16_t>(10 * i);
        d.functionCode = i % 10 == 9 ? 1 : (i % 10 == 8 ? 4 : 3);
        d.scale = i % 4 == 0 ? 0.1 : 1.0;
        d.warnHigh = i % 5 == 0 ? 100 : 0;
        d.alarmHigh = i % 5 == 0 ? 1000 : 0;
        d.alarmOnChange = i % 7 == 0;
        details.push_back(d);
    }
    return details;
}

struct Figures {
    int fds;
    int threads;
    int64_t rssKb;
};

Figures Now() { return {OpenDescriptors(), Threads(), ResidentKb()}; }

int64_t Ms(Clock::time_point t) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(t.time_since_epoch()).count();
}

int64_t SteadyMs() { return Ms(Clock::now()); }

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        std::fprintf(stderr, "usage: reliability_soak SECONDS MANUAL_TRANSACTIONS [INTERVAL_MS]\n");
        return 2;
    }
    const int seconds = std::stoi(argv[1]);
    const long manualTotal = std::stol(argv[2]);
    const uint32_t intervalMs = argc > 3 ? static_cast<uint32_t>(std::stoul(argv[3])) : 100;
    Localizer::SetAllLanguages(1);
    GlobalTraceLog();  // the process-wide trace log exists from the start, as in the program

    const Figures before = Now();

    ConnectionConfig slaveConfig;
    slaveConfig.role = 1;
    slaveConfig.port = 0;
    ModbusClient polledSlave;
    ModbusClient manualSlave;
    if (!polledSlave.Connect(slaveConfig) || !manualSlave.Connect(slaveConfig)) {
        std::fprintf(stderr, "the slaves did not start\n");
        return 1;
    }
    for (int i = 0; i < 500; ++i) {
        polledSlave.Image().SetHoldingRegisters(static_cast<uint16_t>(i), {static_cast<uint16_t>(i * 7)});
    }

    const std::string storePath = "/tmp/kestrel-soak-" + std::to_string(::getpid()) + ".json";
    StructureStore store(storePath);
    ModbusStructure device;
    device.name = "Soak";
    device.ip = "127.0.0.1";
    device.port = polledSlave.ListeningPort();
    device.details = FiftyDetails();
    const int32_t id = store.AddStructure(device);

    ModbusClient connection;
    PollingEngine engine;
    AlarmEngine alarms;
    RecordingBuffer recording;
    const StructurePolling polling{store, connection, engine, alarms, recording};
    recording.ToggleRecording("Soak");

    std::atomic<long> cycles{0}, failedReads{0}, reads{0};
    // When the first read failed (steady-clock milliseconds; 0: none did), to tell a connection
    // lost at one moment from reads failing here and there.
    std::atomic<int64_t> firstFailedReadAt{0};
    auto handOff = [&](const std::vector<Modbus::PollingResult>& results) {
        ++cycles;
        for (const auto& r : results) {
            ++reads;
            if (!r.ok) {
                ++failedReads;
                int64_t none = 0;
                firstFailedReadAt.compare_exchange_strong(none, SteadyMs());
            }
        }
    };
    if (StartStructurePolling(polling, id, intervalMs, [](const std::string&) {}, handOff) !=
        StructurePollStart::Started) {
        std::fprintf(stderr, "polling did not start\n");
        return 1;
    }
    // The manual transactions, spread over the run: a mix of every operation the register tab
    // offers, through one connection held open as the register tab holds it.
    ModbusClient manual;
    ConnectionConfig masterConfig;
    masterConfig.port = manualSlave.ListeningPort();
    long manualDone = 0, manualFailed = 0;
    int64_t firstFailedManualAt = 0;
    // The longest the manual loop was away between two rounds (it sleeps 20 ms): on a machine too
    // busy to run this process, longer than the slave's 500 ms idle time, the slave drops the client.
    int64_t longestPauseMs = 0;
    std::vector<uint16_t> words;
    std::vector<bool> bits;
    if (!manual.Connect(masterConfig)) {
        std::fprintf(stderr, "the manual connection failed\n");
        return 1;
    }
    // One transaction first, and the first poll cycle, so that both slaves have accepted their
    // clients before the figures are taken: a slave accepts on its own thread, a moment after the
    // client's connect returned.
    if (!manual.ReadHoldingRegisters(1, 0, 1, words)) ++manualFailed;
    ++manualDone;
    for (int i = 0; i < 500 && cycles.load() == 0; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
    const Figures started = Now();
    const auto start = Clock::now();
    const auto end = start + std::chrono::seconds(seconds);
    int64_t lastRound = SteadyMs();
    for (bool last = false; !last;) {
        longestPauseMs = std::max(longestPauseMs, SteadyMs() - lastRound);
        lastRound = SteadyMs();
        last = Clock::now() >= end;  // the last round makes the transactions still due
        const auto elapsed = Clock::now() - start;
        const long due = last ? manualTotal
                              : static_cast<long>(manualTotal * std::chrono::duration<double>(elapsed).count() / seconds) + 1;
        while (manualDone < std::min(due, manualTotal)) {
            bool ok = false;
            const uint16_t a = static_cast<uint16_t>(manualDone % 1000);
            switch (manualDone % 6) {
                case 0: ok = manual.ReadHoldingRegisters(1, a, 10, words); break;
                case 1: ok = manual.WriteSingleRegister(1, a, static_cast<uint16_t>(manualDone)); break;
                case 2: ok = manual.ReadCoils(1, a, 16, bits); break;
                case 3: ok = manual.WriteMultipleRegisters(1, a, {1, 2, 3, 4}); break;
                case 4: ok = manual.WriteSingleCoil(1, a, manualDone % 2 == 0); break;
                case 5: ok = manual.ReadInputRegisters(1, a, 4, words); break;
            }
            ++manualDone;
            if (!ok && ++manualFailed == 1) firstFailedManualAt = SteadyMs();
        }
        if (!last) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    const Figures during = Now();

    StopStructurePolling(polling);
    // Counted after the stop: a copy of the entries holds the recording's lock, and the poll
    // thread's next append waits for it. After an hour that copy is 700,000 entries and takes
    // longer than the slave's 500 ms idle time, so counting while polling cost the last cycle.
    const size_t entries = recording.Entries().size();
    manual.Disconnect();
    polledSlave.Disconnect();
    manualSlave.Disconnect();
    std::remove(storePath.c_str());
    const Figures after = Now();

    std::printf("soak: %d s, interval %u ms, 50 details\n", seconds, intervalMs);
    std::printf("cycles: %ld, detail reads: %ld, failed reads: %ld\n", cycles.load(), reads.load(),
                failedReads.load());
    std::printf("manual transactions: %ld, failed: %ld\n", manualDone, manualFailed);
    std::printf("recording entries: %zu, alarm events: %zu\n", entries, alarms.Events().size());
    const int64_t startMs = Ms(start);
    const auto at = [startMs](int64_t ms) {
        return ms == 0 ? std::string("none") : std::to_string((ms - startMs) / 1000) + " s";
    };
    std::printf("first failed read: %s, first failed manual transaction: %s (into the run)\n",
                at(firstFailedReadAt.load()).c_str(), at(firstFailedManualAt).c_str());
    std::printf("longest pause of the manual loop: %lld ms\n", (long long)longestPauseMs);
    std::printf("before: fds %d threads %d rss %lld kB\n", before.fds, before.threads, (long long)before.rssKb);
    std::printf("running, at start: fds %d threads %d rss %lld kB\n", started.fds, started.threads,
                (long long)started.rssKb);
    std::printf("running, at end: fds %d threads %d rss %lld kB\n", during.fds, during.threads, (long long)during.rssKb);
    std::printf("after stop: fds %d threads %d rss %lld kB\n", after.fds, after.threads, (long long)after.rssKb);

    const bool flat = started.fds == during.fds && started.threads == during.threads && before.fds == after.fds &&
                      before.threads == after.threads;
    const bool clean = failedReads.load() == 0 && manualFailed == 0 && cycles.load() > 0 && manualDone == manualTotal;
    std::printf("%s\n", flat && clean ? "PASS" : "FAIL");
    return flat && clean ? 0 : 1;
}
