// Faults around the program: the polled device goes away and comes back; a process killed in the
// middle of saving the structures file; a settings store that cannot be written; a disk that fills
// up during the CSV, JSON and PCAP exports (in a small tmpfs of a private mount namespace).
#include <gtest/gtest.h>

#include <signal.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <random>
#include <sstream>

#include "common/localizer.h"
#include "model/alarm_engine.h"
#include "model/app_settings.h"
#include "model/demo_structure.h"
#include "model/structure_store.h"
#include "platform/file_io.h"
#include "platform/settings_store.h"
#include "polling/polling_engine.h"
#include "polling/recording_buffer.h"
#include "polling/structure_polling.h"
#include "process_stats.h"
#include "support/child_process.h"
#include "support/structure_polling_fixture.h"

namespace {

using Clock = std::chrono::steady_clock;

int64_t MsSince(Clock::time_point t) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - t).count();
}

std::string ReadFile(const std::string& path) {
    std::string content;
    platform::ReadWholeFile(path, content);
    return content;
}

ModbusStructure Device(const std::string& name, uint16_t port, int details) {
    ModbusStructure s;
    s.name = name;
    s.ip = "127.0.0.1";
    s.port = port;
    for (int i = 0; i < details; ++i) {
        Modbus::ModbusDetail d;
        d.name = name + " detail " + std::to_string(i);
        d.registerAddress = static_cast<uint16_t>(i);
        d.unit = "kW";
        s.details.push_back(d);
    }
    return s;
}

// ---------------------------------------------------------------------------------------------
// The polled device goes away and comes back.

class DeviceGoesAway : public StructurePollingFixture {
protected:
    DeviceGoesAway() : StructurePollingFixture("/nonexistent/faults.json") {}
    void SetUp() override {
        Localizer::SetAllLanguages(1);
        ASSERT_TRUE(StartSlave(0));
        port = slave.ListeningPort();
        id = store.AddStructure(Device("Pump", port, 5));
    }

    bool StartSlave(uint16_t onPort) {
        if (!StructurePollingFixture::StartSlave(onPort)) return false;
        slave.Image().SetHoldingRegisters(0, {10, 11, 12, 13, 14});
        return true;
    }

    bool Start(uint32_t intervalMs = 100) {
        return StartStructurePolling(polling, id, intervalMs, [](const std::string&) {}, HandOff()) ==
               StructurePollStart::Started;
    }

    static bool AllOk(const std::vector<std::vector<Modbus::PollingResult>>& cs) {
        if (cs.empty()) return false;
        for (const auto& c : cs)
            for (const auto& r : c)
                if (!r.ok) return false;
        return true;
    }
    static bool AllFailed(const std::vector<std::vector<Modbus::PollingResult>>& cs) {
        if (cs.empty()) return false;
        for (const auto& c : cs)
            for (const auto& r : c)
                if (r.ok || r.error != "Read error") return false;
        return true;
    }

    uint16_t port = 0;
    int32_t id = 0;
};

TEST_F(DeviceGoesAway, ReadsFailUntilStopAndStartPollsAgain) {
    ASSERT_TRUE(Start());
    EXPECT_TRUE(AllOk(NextCycles(3)));

    // The device goes away: every read of every later cycle fails, and the engine goes on.
    slave.Disconnect();
    NextCycles(1);  // a cycle that was under way
    EXPECT_TRUE(AllFailed(NextCycles(5)));
    EXPECT_TRUE(engine.IsRunning());

    // It comes back on the same port; polling does not reconnect by itself, so reads still fail.
    ASSERT_TRUE(StartSlave(port));
    NextCycles(1);
    EXPECT_TRUE(AllFailed(NextCycles(5)));
    EXPECT_TRUE(engine.IsRunning());
    EXPECT_TRUE(connection.IsConnected());  // a failed transaction never disconnects

    // Stop is prompt: at most one read (failing at once here) and one 50 ms sleep.
    const auto stopStart = Clock::now();
    StopStructurePolling(polling);
    EXPECT_LT(MsSince(stopStart), 500);
    EXPECT_FALSE(engine.IsRunning());
    EXPECT_FALSE(connection.IsConnected());

    // Start after Stop connects afresh and polls the device again.
    ASSERT_TRUE(Start());
    EXPECT_TRUE(AllOk(NextCycles(3)));
}

TEST_F(DeviceGoesAway, PollingOurSlaveSlowerThanItsIdleTimeLosesTheConnection) {
    // Our slave drops a client that is silent for 500 ms, and polling never reconnects: with an
    // interval of 700 ms the first cycle reads, and every later one fails until Stop. Both halves
    // are specified; the soak found it (docs/RELIABILITY.md).
    ASSERT_TRUE(Start(700));
    const auto cs = NextCycles(3, 5000);
    ASSERT_EQ(cs.size(), 3u);
    EXPECT_TRUE(AllOk({cs[0]}));
    EXPECT_TRUE(AllFailed({cs[1], cs[2]}));
    StopStructurePolling(polling);
    ASSERT_TRUE(Start(700));  // Start after Stop connects afresh: the first cycle reads again
    EXPECT_TRUE(AllOk(NextCycles(1)));
}

TEST_F(DeviceGoesAway, DeviceThatStopsAnsweringKeepsStopPrompt) {
    // A device that stays connected but never answers: each read waits out the 3 s time-out, and
    // Stop returns after the read under way plus at most 50 ms.
    SOCKET listener = platform::TcpSocket();
    ASSERT_TRUE(platform::BindAny(listener, 0));
    ASSERT_TRUE(platform::Listen(listener, 1));
    const int32_t silentId = store.AddStructure(Device("Silent", platform::LocalPort(listener), 3));
    std::atomic<int> cyclesSeen{0};
    ASSERT_EQ(StartStructurePolling(polling, silentId, 100, [](const std::string&) {},
                                    [&](const std::vector<Modbus::PollingResult>&) { ++cyclesSeen; }),
              StructurePollStart::Started);
    std::this_thread::sleep_for(std::chrono::milliseconds(500));  // a read is under way
    const auto stopStart = Clock::now();
    StopStructurePolling(polling);
    EXPECT_LT(MsSince(stopStart), 3000 + 50 + 500);
    EXPECT_FALSE(engine.IsRunning());
    platform::CloseSocket(listener);
}

// ---------------------------------------------------------------------------------------------
// A process killed in the middle of saving the structures file.

TEST(KilledMidSave, LeavesTheOldOrTheNewFileNeverATruncatedOne) {
    const std::string dir = MakeTempDir();
    const std::string path = dir + "/modbus_structures.json";
    // Two stores whose files differ in content and size (about 100 KB and 150 KB).
    StructureStore a(path), b(path);
    for (int i = 0; i < 20; ++i) a.AddStructure(Device("A" + std::to_string(i), 502, 20));
    for (int i = 0; i < 30; ++i) b.AddStructure(Device("B" + std::to_string(i), 503, 20));
    const std::string textA = a.SerializeStructures();
    const std::string textB = b.SerializeStructures();
    ASSERT_TRUE(a.SaveStructures());

    std::mt19937 random(4242);
    int kills = 0, sawA = 0, sawB = 0;
    for (int round = 0; round < 40; ++round) {
        ASSERT_EQ(reliability::Threads(), 1) << "fork needs a single-threaded test process";
        const pid_t child = fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            // Save the two stores in turn, as fast as possible, until killed (bounded: 30 s).
            const auto start = Clock::now();
            for (int i = 0; MsSince(start) < 30000; ++i) (i % 2 ? b : a).SaveStructures();
            _exit(0);
        }
        std::this_thread::sleep_for(std::chrono::microseconds(2000 + random() % 20000));
        kill(child, SIGKILL);
        int status = 0;
        waitpid(child, &status, 0);
        if (WIFSIGNALED(status)) ++kills;
        const std::string now = ReadFile(path);
        ASSERT_TRUE(now == textA || now == textB) << "round " << round << ": " << now.size() << " bytes";
        (now == textA ? sawA : sawB)++;
        StructureStore check(path);
        check.LoadStructures();
        EXPECT_EQ(check.Structures().size(), now == textA ? 20u : 30u);
    }
    EXPECT_EQ(kills, 40);
    EXPECT_GT(sawA + sawB, 0);
    RunCommand({"rm", "-rf", dir});
}

// ---------------------------------------------------------------------------------------------
// A settings store that cannot be written.

TEST(UnwritableSettings, TheChangeIsLostSilentlyAndNothingElse) {
    const std::string dir = MakeTempDir();
    // A path below a regular file cannot be created, not even by root.
    ASSERT_TRUE(platform::WriteFileReplacing(dir + "/file", "x"));
    platform::SetSettingsLocation(dir + "/file/kestrel/settings");
    const int languageBefore = Localizer::Language(Localizer::Scope::Ui);

    AppSettings loaded;
    LoadSettings(loaded);
    EXPECT_EQ(loaded, AppSettings{});
    AppSettings changed = loaded;
    changed.language = 1;
    changed.mqttBroker = "tcp://elsewhere";
    changed.mqttPort = 8883;
    SaveSettings(changed);  // no exception, no message
    AppSettings reread;
    LoadSettings(reread);
    EXPECT_EQ(reread, AppSettings{});  // the change is lost
    // Nothing else: the language of this run is untouched, and other files still save.
    EXPECT_EQ(Localizer::Language(Localizer::Scope::Ui), languageBefore);
    StructureStore store(dir + "/structures.json");
    store.AddStructure(Device("X", 502, 1));
    EXPECT_TRUE(store.SaveStructures());
    platform::SetSettingsLocation("");
    RunCommand({"rm", "-rf", dir});
}

// ---------------------------------------------------------------------------------------------
// A full disk during the exports. The test re-runs itself (FullDiskInside.*) in a private mount
// namespace where a 256 KiB tmpfs is mounted over a temporary folder; that needs root (or user
// namespaces), which the test command's machine has. Elsewhere it is skipped, saying why.

std::string SelfPath() {
    char buffer[4096];
    const ssize_t n = ::readlink("/proc/self/exe", buffer, sizeof buffer - 1);
    return n > 0 ? std::string(buffer, static_cast<size_t>(n)) : std::string();
}

TEST(FullDisk, ExportsInASmallTmpfs) {
    if (::geteuid() != 0) GTEST_SKIP() << "mounting a tmpfs in a private mount namespace needs root";
    if (!HaveProgram("unshare")) GTEST_SKIP() << "unshare (util-linux) is not installed";
    const std::string dir = MakeTempDir();
    const CommandResult r = RunCommand(
        {"unshare", "-m", "--propagation", "private", "sh", "-c",
         "mount -t tmpfs -o size=256k kestrel-full \"$0\" && KESTREL_FULL_DISK_DIR=\"$0\" exec \"$1\" "
         "--gtest_filter='FullDiskInside.*' --gtest_also_run_disabled_tests",
         dir, SelfPath()},
        120000);
    EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
    EXPECT_NE(r.out.find("[  PASSED  ] 3 tests"), std::string::npos) << r.out;
    RunCommand({"rm", "-rf", dir});
}

class FullDiskInside : public ::testing::Test {
protected:
    void SetUp() override {
        const char* where = std::getenv("KESTREL_FULL_DISK_DIR");
        if (where == nullptr) GTEST_SKIP() << "runs inside FullDisk.ExportsInASmallTmpfs only";
        dir = where;
        Localizer::SetAllLanguages(1);
    }
    void TearDown() override {
        if (!dir.empty()) RunCommand({"sh", "-c", "rm -rf \"$0\"/*", dir});
    }

    // Fills the file system, then frees one page: a small file still fits, a larger one stops
    // part of the way.
    void FillDisk() {
        const std::string filler = dir + "/filler";
        std::FILE* f = std::fopen(filler.c_str(), "wb");
        ASSERT_NE(f, nullptr);
        const std::string block(4096, 'x');
        while (std::fwrite(block.data(), 1, block.size(), f) == block.size() && std::fflush(f) == 0) {
        }
        std::fclose(f);
        struct stat info {};
        ASSERT_EQ(::stat(filler.c_str(), &info), 0);
        ASSERT_EQ(::truncate(filler.c_str(), info.st_size - 4096), 0);
    }

    std::string dir;
};

TEST_F(FullDiskInside, CsvExportFailsAndLeavesNoFile) {
    RecordingBuffer recording;
    recording.ToggleRecording("Full");
    Modbus::ModbusDetail detail;
    detail.name = "A rather long detail name, so that the recording is many pages long";
    detail.unit = "kW";
    for (int i = 0; i < 2000; ++i) {
        Modbus::PollingResult result;
        result.detailId = 1;
        result.name = detail.name;
        result.value = int64_t{i};
        result.ok = true;
        recording.Record(result, detail);
    }
    FillDisk();
    const std::string path = dir + "/recording.csv";
    // As the Structures page uses it: a failed export shows no "CSV exported." message.
    EXPECT_FALSE(recording.ExportCsv(path));
    EXPECT_FALSE(platform::FileExists(path));
}

TEST_F(FullDiskInside, StructuresSaveAndJsonExportKeepTheOldFile) {
    const std::string path = dir + "/modbus_structures.json";
    StructureStore small(path);
    small.AddStructure(Device("Small", 502, 1));
    ASSERT_TRUE(small.SaveStructures());
    const std::string old = ReadFile(path);
    FillDisk();

    StructureStore big(path);
    for (int i = 0; i < 50; ++i) big.AddStructure(Device("Big" + std::to_string(i), 502, 10));
    // The save fails silently (its result says so); the old file stays whole and no temporary
    // file is left.
    EXPECT_FALSE(big.SaveStructures());
    EXPECT_EQ(ReadFile(path), old);
    EXPECT_FALSE(platform::FileExists(path + ".tmp"));
    // Export (backup) saves, then copies the file. The save fails silently, so the copy takes the
    // old file, which still fits: the export reports success with the contents of the last good
    // save, not with the structures in memory. That is what the export's two steps give; the
    // copy itself never leaves a partial file (it is written to a temporary file and renamed).
    const std::string backup = dir + "/backup.json";
    EXPECT_TRUE(big.ExportStructures(backup));
    EXPECT_EQ(ReadFile(backup), old);
    EXPECT_FALSE(platform::FileExists(backup + ".tmp"));
    // A copy that does not fit either fails and leaves nothing at the target.
    const std::string bigBackup = dir + "/big-backup.json";
    ASSERT_TRUE(platform::RemoveFile(path));
    ASSERT_TRUE(platform::RemoveFile(dir + "/filler"));
    ASSERT_TRUE(big.SaveStructures());
    FillDisk();
    EXPECT_FALSE(big.ExportStructures(bigBackup));
    EXPECT_FALSE(platform::FileExists(bigBackup));
    EXPECT_FALSE(platform::FileExists(bigBackup + ".tmp"));
}

TEST_F(FullDiskInside, PollWithCsvAndPcapOnAFullDisk) {
    // The command line's poll writes the recording and the trace after polling; on a full disk
    // both fail with their message and exit status 1, and neither leaves a partial file.
    ModbusClient slave;
    ConnectionConfig config;
    config.role = 1;
    config.port = 0;
    ASSERT_TRUE(slave.Connect(config));
    const std::string storePath = dir + "/store.json";
    {
        StructureStore store(storePath);
        store.AddStructure(Device("Pump", slave.ListeningPort(), 20));
        ASSERT_TRUE(store.SaveStructures());
    }
    FillDisk();
    const CommandResult r = RunCommand({KESTREL_CLI_PATH, "--lang", "en", "poll", "--file", storePath, "--id", "1",
                                        "--interval", "100", "--cycles", "5", "--record", dir + "/rec.csv", "--pcap",
                                        dir + "/trace.pcap"},
                                       60000);
    slave.Disconnect();
    EXPECT_EQ(r.exitCode, 1) << r.err;
    EXPECT_NE(r.err.find("rec.csv: cannot write the CSV file"), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("trace.pcap: cannot write the PCAP file"), std::string::npos) << r.err;
    EXPECT_FALSE(platform::FileExists(dir + "/rec.csv"));
    EXPECT_FALSE(platform::FileExists(dir + "/trace.pcap"));
}

}  // namespace
