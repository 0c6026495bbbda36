#pragma once
// What the bridge tests need around kestrel-cli: a real mosquitto broker started as a plain process
// on 127.0.0.1 with a free port and a configuration of its own (never the system service), and
// mosquitto_sub as the subscriber that records what arrived. Both are stopped by the test.
#if !defined(_WIN32)
#include <pwd.h>
#include <unistd.h>

#include <fstream>
#include <memory>
#include <regex>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "support/child_process.h"
#include "support/text_lines.h"

namespace bridgetest {

inline void WriteText(const std::string& path, const std::string& text) {
    std::ofstream out(path, std::ios::binary);
    out << text;
}

inline std::vector<std::string> Lines(const std::string& text) { return SplitLines(text); }

// A payload with its "time" replaced by T, after checking that it is ISO 8601 UTC with milliseconds.
inline std::string WithoutTime(const std::string& payload) {
    static const std::regex time("\"time\": \"\\d{4}-\\d\\d-\\d\\dT\\d\\d:\\d\\d:\\d\\d\\.\\d{3}Z\"");
    return std::regex_replace(payload, time, "\"time\": T");
}

// The broker: `extra` lines are appended to the configuration (TLS files, password file,
// persistence). Runs as the user who starts it (mosquitto would otherwise switch to its own user
// and could not read the test's files).
class Broker {
public:
    Broker(const std::string& dir, const std::string& extra = "") : dir(dir), port(FreeTcpPort()) {
        const passwd* user = getpwuid(geteuid());
        config = dir + "/mosquitto-" + std::to_string(port) + ".conf";
        WriteText(config, "listener " + std::to_string(port) + " 127.0.0.1\n" + "user " +
                              std::string(user != nullptr ? user->pw_name : "root") + "\n" + extra);
        Start();
    }
    ~Broker() { Stop(); }

    bool Start() {
        process = std::make_unique<BackgroundProcess>(std::vector<std::string>{"/usr/sbin/mosquitto", "-c", config},
                                                      dir + "/broker-" + std::to_string(port) + ".log");
        return WaitForTcpPort(port, 5000);
    }
    void Stop() {
        if (process) process->Stop(5000);
        process.reset();
    }
    std::string Url() const { return "tcp://127.0.0.1:" + std::to_string(port); }

    std::string dir;
    uint16_t port;
    std::string config;
    std::unique_ptr<BackgroundProcess> process;
};

// mosquitto_sub printing "RETAIN TOPIC PAYLOAD" per message. Waits until its subscription is in
// place (a probe message came back) before the constructor returns.
class Subscriber {
public:
    Subscriber(const Broker& broker, const std::string& filter, std::vector<std::string> extra = {})
        : port(broker.port), filter(filter) {
        std::vector<std::string> argv = {"mosquitto_sub", "-h", "127.0.0.1", "-p", std::to_string(port), "-t",
                                         filter,          "-F", "%r %t %p", "-q", "1"};
        argv.insert(argv.end(), extra.begin(), extra.end());
        child = std::make_unique<ChildProcess>(argv);
    }

    // Publishes a probe under the filter until it arrives: the subscription is then in place.
    bool WaitSubscribed(const std::string& probeTopic, const std::vector<std::string>& publishArgs = {}) {
        for (int attempt = 0; attempt < 50; ++attempt) {
            std::vector<std::string> argv = {"mosquitto_pub", "-h", "127.0.0.1", "-p", std::to_string(port),
                                             "-t",            probeTopic, "-m", "probe"};
            argv.insert(argv.end(), publishArgs.begin(), publishArgs.end());
            RunCommand(argv, 5000);
            if (child->WaitForOutput(probeTopic + " probe", 100)) return true;
        }
        return false;
    }

    bool WaitFor(const std::string& text, int timeoutMs = 10000) const { return child->WaitForOutput(text, timeoutMs); }

    // The messages so far as "RETAIN TOPIC PAYLOAD" lines, without the probes.
    std::vector<std::string> Messages() const {
        std::vector<std::string> messages;
        for (const std::string& line : Lines(child->Stdout())) {
            if (line.find("/probe probe") == std::string::npos) messages.push_back(line);
        }
        return messages;
    }

    // The payloads that arrived on one topic, in order.
    std::vector<std::string> PayloadsOf(const std::string& topic) const {
        std::vector<std::string> payloads;
        for (const std::string& line : Messages()) {
            // "R TOPIC PAYLOAD": the topic may hold blanks, so it is matched as a whole.
            if (line.size() > 2 + topic.size() && line.compare(2, topic.size() + 1, topic + " ") == 0) {
                payloads.push_back(line.substr(2 + topic.size() + 1));
            }
        }
        return payloads;
    }

    std::string Stderr() const { return child->Stderr(); }

    uint16_t port;
    std::string filter;
    std::unique_ptr<ChildProcess> child;
};

}  // namespace bridgetest
#endif
