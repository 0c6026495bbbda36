// The MQTT bridge under load: kestrel-cli poll --mqtt polling a structure of 1,000 UINT16 details
// at 100 ms from our slave (in this process) and bridging them to a local mosquitto broker, with a
// subscriber (libmosquitto, in this process) that takes the time of every receipt. Prints "key
// value..." lines for tools/bench.sh:
//   delivered_per_s      messages the subscriber received per second
//   produced_per_s       1,000 messages for every cycle seen by the subscriber, per second (a
//                        cycle of 1,000 reads may take longer than the 100 ms interval)
//   delay_ms             median, p99 and max of receipt time minus the payload's "time" (the end of
//                        the cycle that produced it), in ms (the payload's time has ms resolution)
//   bridge_cpu_us        CPU time of the bridge thread ("kestrel-mqtt") per message delivered
//   process_cpu_us_per_s CPU time of the whole kestrel-cli process per second of the run
//   rss_kb               the process's RSS at the start of the measured run, at its end, its
//                        lowest and its highest sample (one sample a second)
// Usage: kestrel_bench_mqtt CLI BROKER_PORT QOS SECONDS [--no-mqtt]
//   --no-mqtt polls the same structure without the bridge (process CPU of polling alone).
#include <mosquitto.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fstream>
#include <mutex>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "model/structure_store.h"
#include "platform/clock.h"
#include "protocol/modbus_client.h"

namespace {

constexpr int kDetails = 1000;

// "2026-11-24T04:30:23.123Z" in a payload, as ms since 1970; -1 when there is none.
int64_t PayloadTimeMs(const char* payload, int length) {
    const std::string text(payload, static_cast<size_t>(length));
    const size_t at = text.find("\"time\": \"");
    if (at == std::string::npos) return -1;
    std::tm parts{};
    int millis = 0;
    if (std::sscanf(text.c_str() + at + 9, "%4d-%2d-%2dT%2d:%2d:%2d.%3dZ", &parts.tm_year, &parts.tm_mon,
                    &parts.tm_mday, &parts.tm_hour, &parts.tm_min, &parts.tm_sec, &millis) != 7) {
        return -1;
    }
    parts.tm_year -= 1900;
    parts.tm_mon -= 1;
    return static_cast<int64_t>(timegm(&parts)) * 1000 + millis;
}

struct Receipts {
    std::mutex mutex;
    bool measuring = false;
    uint64_t count = 0;
    std::vector<int64_t> delays;
    std::set<int64_t> cycleTimes;  // one time stamp per cycle
};

void OnMessage(mosquitto*, void* self, const mosquitto_message* message) {
    auto* receipts = static_cast<Receipts*>(self);
    const int64_t now = platform::UnixTimeMilliseconds();
    const int64_t time = PayloadTimeMs(static_cast<const char*>(message->payload), message->payloadlen);
    if (time < 0) return;  // the status topic
    std::lock_guard<std::mutex> lock(receipts->mutex);
    if (!receipts->measuring) return;
    ++receipts->count;
    receipts->delays.push_back(now - time);
    receipts->cycleTimes.insert(time);
}

// utime + stime in clock ticks from a /proc stat file; -1 when it cannot be read.
long CpuTicks(const std::string& statPath) {
    std::ifstream in(statPath);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const size_t close = text.rfind(')');
    if (close == std::string::npos) return -1;
    std::istringstream fields(text.substr(close + 2));
    std::string field;
    long utime = 0, stime = 0;
    for (int i = 3; fields >> field; ++i) {
        if (i == 14) utime = std::stol(field);
        if (i == 15) {
            stime = std::stol(field);
            break;
        }
    }
    return utime + stime;
}

// The /proc stat path of the thread named `name` in process `pid`, or "".
std::string ThreadStat(pid_t pid, const std::string& name) {
    const std::string tasks = "/proc/" + std::to_string(pid) + "/task";
    DIR* dir = opendir(tasks.c_str());
    if (dir == nullptr) return "";
    std::string found;
    while (dirent* entry = readdir(dir)) {
        if (entry->d_name[0] == '.') continue;
        std::ifstream comm(tasks + "/" + entry->d_name + "/comm");
        std::string line;
        std::getline(comm, line);
        if (line == name) found = tasks + "/" + entry->d_name + "/stat";
    }
    closedir(dir);
    return found;
}

long RssKb(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/status");
    std::string line;
    while (std::getline(in, line)) {
        if (line.rfind("VmRSS:", 0) == 0) return std::stol(line.substr(6));
    }
    return -1;
}

pid_t StartCli(const std::vector<std::string>& argv, const std::string& errPath) {
    const pid_t pid = fork();
    if (pid == 0) {
        FILE* out = std::freopen("/dev/null", "w", stdout);
        FILE* err = std::freopen(errPath.c_str(), "w", stderr);
        (void)out;
        (void)err;
        std::vector<char*> args;
        for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
        args.push_back(nullptr);
        execv(args[0], args.data());
        _exit(127);
    }
    return pid;
}

int64_t Percentile(std::vector<int64_t>& values, double fraction) {
    if (values.empty()) return -1;
    const size_t at = std::min(values.size() - 1, static_cast<size_t>(fraction * static_cast<double>(values.size())));
    std::nth_element(values.begin(), values.begin() + static_cast<long>(at), values.end());
    return values[at];
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 5) {
        std::fprintf(stderr, "usage: kestrel_bench_mqtt CLI BROKER_PORT QOS SECONDS [--no-mqtt]\n");
        return 2;
    }
    const std::string cli = argv[1];
    const int brokerPort = std::atoi(argv[2]);
    const int qos = std::atoi(argv[3]);
    const int seconds = std::atoi(argv[4]);
    const bool bridged = !(argc > 5 && std::string(argv[5]) == "--no-mqtt");
    signal(SIGPIPE, SIG_IGN);

    ModbusClient slave;
    ConnectionConfig config;
    config.role = 1;
    config.port = 0;
    if (!slave.Connect(config)) {
        std::fprintf(stderr, "slave failed\n");
        return 1;
    }
    std::vector<uint16_t> values(kDetails);
    for (int i = 0; i < kDetails; ++i) values[i] = static_cast<uint16_t>(i);
    slave.Image().SetHoldingRegisters(0, values);

    char dirTemplate[] = "/tmp/kestrel-mqtt-bench-XXXXXX";
    const std::string dir = mkdtemp(dirTemplate);
    ModbusStructure structure;
    structure.name = "Bench";
    structure.ip = "127.0.0.1";
    structure.port = slave.ListeningPort();
    for (int i = 0; i < kDetails; ++i) {
        Modbus::ModbusDetail detail;
        char name[16];
        std::snprintf(name, sizeof name, "d%d", i);
        detail.name = name;
        detail.registerAddress = static_cast<uint16_t>(i);
        structure.details.push_back(detail);
    }
    {
        StructureStore store(dir + "/structures.json");
        store.AddStructure(structure);
        store.SaveStructures();
    }

    Receipts receipts;
    mosquitto_lib_init();
    mosquitto* subscriber = mosquitto_new("kestrel-bench-subscriber", true, &receipts);
    mosquitto_message_callback_set(subscriber, OnMessage);
    if (mosquitto_connect(subscriber, "127.0.0.1", brokerPort, 30) != MOSQ_ERR_SUCCESS ||
        mosquitto_subscribe(subscriber, nullptr, "bench/#", qos) != MOSQ_ERR_SUCCESS) {
        std::fprintf(stderr, "subscriber failed\n");
        return 1;
    }
    mosquitto_loop_start(subscriber);

    std::vector<std::string> args = {cli, "poll", "--file", dir + "/structures.json", "--id", "1", "--interval", "100"};
    if (bridged) {
        for (const std::string& a : {std::string("--mqtt"), std::string("--mqtt-broker"),
                                     "tcp://127.0.0.1:" + std::to_string(brokerPort), std::string("--mqtt-prefix"),
                                     std::string("bench"), std::string("--mqtt-qos"), std::to_string(qos),
                                     std::string("--mqtt-client-id"), std::string("kestrel-bench")}) {
            args.push_back(a);
        }
    }
    setenv("XDG_CONFIG_HOME", dir.c_str(), 1);  // never the user's settings
    const pid_t child = StartCli(args, dir + "/stderr.txt");

    // Warm up: connections made, first cycles done.
    std::this_thread::sleep_for(std::chrono::seconds(3));
    const std::string procStat = "/proc/" + std::to_string(child) + "/stat";
    const std::string bridgeStat = bridged ? ThreadStat(child, "kestrel-mqtt") : "";
    const long ticks = sysconf(_SC_CLK_TCK);
    const long processStart = CpuTicks(procStat);
    const long bridgeStart = bridgeStat.empty() ? 0 : CpuTicks(bridgeStat);
    {
        std::lock_guard<std::mutex> lock(receipts.mutex);
        receipts.measuring = true;
    }
    const auto started = std::chrono::steady_clock::now();
    const long rssStart = RssKb(child);
    long rssMin = rssStart, rssMax = rssStart, rssEnd = rssStart;
    for (int s = 0; s < seconds; ++s) {
        std::this_thread::sleep_until(started + std::chrono::seconds(s + 1));
        rssEnd = RssKb(child);
        rssMin = std::min(rssMin, rssEnd);
        rssMax = std::max(rssMax, rssEnd);
    }
    const long processEnd = CpuTicks(procStat);
    const long bridgeEnd = bridgeStat.empty() ? 0 : CpuTicks(bridgeStat);
    const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    uint64_t count = 0;
    size_t cycles = 0;
    std::vector<int64_t> delays;
    {
        std::lock_guard<std::mutex> lock(receipts.mutex);
        receipts.measuring = false;
        count = receipts.count;
        delays = receipts.delays;
        cycles = receipts.cycleTimes.size();
    }

    kill(child, SIGTERM);
    int status = 0;
    waitpid(child, &status, 0);
    mosquitto_loop_stop(subscriber, true);
    mosquitto_destroy(subscriber);
    slave.Disconnect();
    std::system(("rm -rf " + dir).c_str());

    const double tickUs = 1e6 / static_cast<double>(ticks);
    std::printf("delivered_per_s %.0f\n", static_cast<double>(count) / elapsed);
    std::printf("produced_per_s %.0f\n", static_cast<double>(cycles * kDetails) / elapsed);
    std::printf("delay_ms %lld %lld %lld\n", static_cast<long long>(Percentile(delays, 0.5)),
                static_cast<long long>(Percentile(delays, 0.99)), static_cast<long long>(Percentile(delays, 1.0)));
    std::printf("bridge_cpu_us %.2f\n",
                count > 0 ? static_cast<double>(bridgeEnd - bridgeStart) * tickUs / static_cast<double>(count) : 0.0);
    std::printf("process_cpu_us_per_s %.0f\n", static_cast<double>(processEnd - processStart) * tickUs / elapsed);
    std::printf("rss_kb %ld %ld %ld %ld\n", rssStart, rssEnd, rssMin, rssMax);
    std::printf("exit_status %d\n", WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status));
    return 0;
}
