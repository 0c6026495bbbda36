// The MQTT connection on Eclipse Mosquitto's client library (libmosquitto). The library is driven
// from our own bridge thread through its external-loop calls (read, write, misc on a socket we
// poll), so that one poll() also wakes for the poll thread's new messages. Everything that touches
// the library's client object runs on that thread; the library's callbacks run inside those calls.
//
// The library keeps its own copies of the QoS 1 and 2 messages it has not seen acknowledged. We
// never rely on them across a lost connection: the client object is thrown away with the link and
// what was in flight goes back to the front of our queue, so that order, the bound and the count
// of what was dropped are ours alone.
#include "bridge/mqtt_connection.h"

#include <fcntl.h>
#include <mosquitto.h>
#include <poll.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <mutex>
#include <optional>
#include <set>
#include <thread>
#include <vector>

#include "bridge/publish_queue.h"
#include "common/localizer.h"
#include "platform/clock.h"

namespace {

constexpr int kKeepAliveSeconds = 30;
// Handed to the library and not yet taken by the broker: a whole cycle of 1,000 details fits, so
// QoS 1 does not wait for acknowledgements in the middle of a cycle.
constexpr size_t kInFlightWindow = 1000;
constexpr int64_t kConnectTimeoutMs = 10000;  // a connection attempt without an answer is given up
constexpr uint32_t kFirstAttemptWaitMs = 3000;
constexpr int kIdleWakeMs = 100;  // keep-alive and deadlines are looked at this often
constexpr const char* kOnline = "online";
constexpr const char* kOffline = "offline";

const char* Say(const char* english, const char* german) {
    return Localizer::Text(Localizer::Scope::Messages, english, german);
}

std::string Format(const char* pattern, const std::string& a, const std::string& b = "",
                   const std::string& c = "") {
    std::string text = pattern;
    for (const std::string* part : {&a, &b, &c}) {
        const size_t at = text.find("%s");
        if (at == std::string::npos) break;
        text.replace(at, 2, *part);
    }
    return text;
}

int64_t NowMs() { return platform::MonotonicMicroseconds() / 1000; }

void InitLibraryOnce() {
    // Process-wide, never cleaned up: the process ends with it.
    static const int initialised = mosquitto_lib_init();
    (void)initialised;
}

std::string LibraryError(int rc, int savedErrno) {
    if (rc == MOSQ_ERR_ERRNO) return std::strerror(savedErrno);
    return mosquitto_strerror(rc);
}

enum class LinkState { Disconnected, Connecting, Connected };

}  // namespace

bool MqttAvailable() { return true; }

struct MqttConnection::Impl {
    MqttBridgeSettings settings;
    std::string statusTopic;
    std::string label;  // host:port for the messages
    LogCallback log;

    // Shared between the bridge thread, the poll thread (Publish) and Start/Stop; under `mutex`.
    std::mutex mutex;
    std::condition_variable firstAttemptDone;
    bool firstAttemptOver = false;
    PublishQueue queue;
    bool acceptingQosZero = false;  // QoS 0 messages are only taken while connected
    bool stopRequested = false;
    int64_t drainDeadlineMs = 0;
    int wakeRead = -1;
    int wakeWrite = -1;

    std::atomic<bool> failed{false};
    std::atomic<uint32_t> connections{0};
    std::atomic<uint64_t> delivered{0};

    // The bridge thread's own.
    std::thread thread;
    mosquitto* client = nullptr;
    LinkState state = LinkState::Disconnected;
    int64_t nextAttemptMs = 0;
    int64_t attemptStartedMs = 0;
    ReconnectBackoff backoff;
    bool outageReported = false;  // one line per outage, not one per attempt
    bool stopAttemptMade = false;
    bool disconnecting = false;
    std::deque<std::pair<int, MqttMessage>> inFlight;  // oldest first
    std::set<int> publishedEarly;  // QoS 0 messages written before mosquitto_publish returned
    std::string lastLibraryLog;    // the library's last error line (carries the OpenSSL reason)
    // What the library's callbacks reported during the last call into it.
    std::optional<int> connackCode;
    std::optional<std::pair<int, int>> linkDown;  // rc and errno

    Impl(MqttBridgeSettings s, std::string status, LogCallback l)
        : settings(std::move(s)), statusTopic(std::move(status)), label(BrokerLabel(settings)), log(std::move(l)),
          queue(settings.queueLimit) {}

    void Report(const std::string& line) {
        if (log) log(line);
    }

    void Wake() {
        const char byte = 1;
        if (wakeWrite >= 0 && write(wakeWrite, &byte, 1) < 0) {
            // A full pipe already holds a wake-up.
        }
    }

    void EndFirstAttempt() {
        std::lock_guard<std::mutex> lock(mutex);
        firstAttemptOver = true;
        firstAttemptDone.notify_all();
    }

    void Fail(const std::string& line) {
        Report(line);
        failed = true;
        EndFirstAttempt();
    }

    // ---- the library's client object

    static void OnConnect(mosquitto*, void* self, int rc) { static_cast<Impl*>(self)->connackCode = rc; }
    static void OnDisconnect(mosquitto*, void* self, int rc) {
        static_cast<Impl*>(self)->linkDown = std::make_pair(rc, errno);
    }
    static void OnPublish(mosquitto*, void* self, int mid) { static_cast<Impl*>(self)->MarkPublished(mid); }
    static void OnLog(mosquitto*, void* self, int level, const char* line) {
        if ((level & (MOSQ_LOG_ERR | MOSQ_LOG_WARNING)) != 0) static_cast<Impl*>(self)->lastLibraryLog = line;
    }

    bool CreateClient() {
        const MqttBridgeSettings& s = settings;
        client = mosquitto_new(s.clientId.empty() ? nullptr : s.clientId.c_str(), true, this);
        if (client == nullptr) {
            Fail(Format(Say("MQTT: cannot create the client (%s)", "MQTT: der Client laesst sich nicht anlegen (%s)"),
                        std::strerror(errno)));
            return false;
        }
        mosquitto_int_option(client, MOSQ_OPT_PROTOCOL_VERSION, MQTT_PROTOCOL_V311);
        mosquitto_int_option(client, MOSQ_OPT_TCP_NODELAY, 1);
        mosquitto_max_inflight_messages_set(client, kInFlightWindow);
        mosquitto_connect_callback_set(client, OnConnect);
        mosquitto_disconnect_callback_set(client, OnDisconnect);
        mosquitto_publish_callback_set(client, OnPublish);
        mosquitto_log_callback_set(client, OnLog);
        int rc = mosquitto_will_set(client, statusTopic.c_str(), static_cast<int>(std::strlen(kOffline)), kOffline,
                                    s.qos, true);
        if (rc == MOSQ_ERR_SUCCESS && !s.username.empty()) {
            rc = mosquitto_username_pw_set(client, s.username.c_str(), s.password.empty() ? nullptr : s.password.c_str());
        }
        if (rc == MOSQ_ERR_SUCCESS && s.tls) {
            if (s.caFile.empty()) {
                rc = mosquitto_int_option(client, MOSQ_OPT_TLS_USE_OS_CERTS, 1);
            } else {
                rc = mosquitto_tls_set(client, s.caFile.c_str(), nullptr, nullptr, nullptr, nullptr);
                if (rc != MOSQ_ERR_SUCCESS) {
                    Fail(Format(Say("MQTT: cannot use the CA file %s (%s)",
                                      "MQTT: die CA-Datei %s ist nicht verwendbar (%s)"),
                                s.caFile, mosquitto_strerror(rc)));
                    return false;
                }
            }
            if (rc == MOSQ_ERR_SUCCESS) rc = mosquitto_tls_opts_set(client, 1, nullptr, nullptr);  // verify the peer
        }
        if (rc != MOSQ_ERR_SUCCESS) {
            Fail(Format(Say("MQTT: cannot set up the client (%s)", "MQTT: der Client laesst sich nicht einrichten (%s)"),
                        mosquitto_strerror(rc)));
            return false;
        }
        return true;
    }

    void DestroyClient() {
        if (client != nullptr) mosquitto_destroy(client);
        client = nullptr;
    }

    // ---- the connection's states

    void BeginAttempt() {
        if (client == nullptr && !CreateClient()) return;
        attemptStartedMs = NowMs();
        lastLibraryLog.clear();
        errno = 0;
        const int rc = mosquitto_connect_async(client, settings.host.c_str(), settings.port, kKeepAliveSeconds);
        if (rc == MOSQ_ERR_SUCCESS) {
            state = LinkState::Connecting;
            return;
        }
        if (rc == MOSQ_ERR_TLS) {
            FailTls();
            return;
        }
        AttemptFailed(LibraryError(rc, errno));
    }

    void AttemptFailed(const std::string& reason) {
        DestroyClient();
        state = LinkState::Disconnected;
        nextAttemptMs = NowMs() + backoff.NextDelayMs();
        if (!outageReported) {
            Report(Format(Say("MQTT: %s not reachable (%s); trying again with pauses growing to 30 s",
                             "MQTT: %s nicht erreichbar (%s); neuer Versuch mit bis zu 30 s Pause"),
                       label, reason));
            outageReported = true;
        }
        EndFirstAttempt();
    }

    void Connected() {
        state = LinkState::Connected;
        ++connections;
        backoff.Reset();
        outageReported = false;
        Report(Format(Say("MQTT: connected to %s", "MQTT: verbunden mit %s"), label));
        uint64_t dropped = 0;
        {
            std::lock_guard<std::mutex> lock(mutex);
            acceptingQosZero = true;
            dropped = queue.TakeDroppedCount();
        }
        ReportDropped(dropped);
        EndFirstAttempt();
        // "online" goes first, ahead of what waited for the broker.
        Send(MqttMessage{statusTopic, kOnline, true});
    }

    void ReportDropped(uint64_t dropped) {
        if (dropped == 0) return;
        Report(Format(Say("MQTT: the queue held its limit of %s messages while the broker was away: %s oldest dropped",
                         "MQTT: die Warteschlange war mit %s Nachrichten voll, solange der Broker fehlte: %s aelteste "
                         "verworfen (dropped)"),
                   std::to_string(queue.Limit()), std::to_string(dropped)));
    }

    void LinkLost(const std::string& reason) {
        Report(Format(Say("MQTT: connection to %s lost (%s); reconnecting", "MQTT: Verbindung zu %s verloren (%s); "
                                                                           "verbinde neu"),
                   label, reason));
        outageReported = true;
        std::vector<MqttMessage> unacknowledged;
        for (auto& [mid, message] : inFlight) {
            // The next connection says "online" anew.
            if (!(message.topic == statusTopic && message.payload == kOnline)) unacknowledged.push_back(std::move(message));
        }
        inFlight.clear();
        publishedEarly.clear();
        {
            std::lock_guard<std::mutex> lock(mutex);
            acceptingQosZero = false;
            if (settings.qos == 0) {
                queue.Clear();  // QoS 0 keeps nothing for a broker that is away
            } else {
                queue.PushFront(std::move(unacknowledged));
            }
        }
        DestroyClient();
        state = LinkState::Disconnected;
        nextAttemptMs = NowMs() + backoff.NextDelayMs();
    }

    // After every call into the library: what its callbacks reported.
    void HandleLibraryEvents() {
        if (connackCode) {
            const int code = *connackCode;
            connackCode.reset();
            if (code == 0) {
                Connected();
            } else if (code == 3) {  // server unavailable: try again later
                linkDown.reset();
                AttemptFailed(mosquitto_connack_string(code));
                return;
            } else {
                Fail(Format(Say("MQTT: %s refused the login: %s", "MQTT: %s hat die Anmeldung abgelehnt: %s"), label,
                            mosquitto_connack_string(code)));
                return;
            }
        }
        if (!linkDown) return;
        const auto [rc, savedErrno] = *linkDown;
        linkDown.reset();
        if (disconnecting) return;
        if (state == LinkState::Connecting) {
            if (rc == MOSQ_ERR_TLS) {
                FailTls();
            } else {
                AttemptFailed(LibraryError(rc, savedErrno));
            }
        } else if (state == LinkState::Connected) {
            LinkLost(LibraryError(rc, savedErrno));
        }
    }

    void FailTls() {
        const std::string reason = lastLibraryLog.empty() ? "TLS" : lastLibraryLog;
        if (reason.find("certificate verify failed") != std::string::npos) {
            Fail(Format(Say("MQTT: the certificate of %s does not verify with %s (%s)",
                              "MQTT: das Zertifikat von %s laesst sich mit %s nicht bestaetigen (%s)"),
                        label, settings.caFile.empty() ? "the system's CA certificates" : settings.caFile, reason));
        } else {
            Fail(Format(Say("MQTT: TLS with %s failed (%s)", "MQTT: TLS mit %s fehlgeschlagen (%s)"), label, reason));
        }
    }

    void MarkPublished(int mid) {
        const auto at = std::find_if(inFlight.begin(), inFlight.end(), [mid](const auto& m) { return m.first == mid; });
        if (at == inFlight.end()) {
            publishedEarly.insert(mid);
            return;
        }
        inFlight.erase(at);
        ++delivered;
    }

    // Hands one message to the library; false when the link broke under the write (the message then
    // waits in front of the queue for the next connection).
    bool Send(MqttMessage message) {
        int mid = 0;
        errno = 0;
        const int rc = mosquitto_publish(client, &mid, message.topic.c_str(), static_cast<int>(message.payload.size()),
                                         message.payload.data(), settings.qos, message.retain);
        if (rc == MOSQ_ERR_SUCCESS) {
            if (publishedEarly.erase(mid) > 0) {
                ++delivered;
            } else {
                inFlight.emplace_back(mid, std::move(message));
            }
            return true;
        }
        if (rc == MOSQ_ERR_INVAL || rc == MOSQ_ERR_MALFORMED_UTF8 || rc == MOSQ_ERR_PAYLOAD_SIZE ||
            rc == MOSQ_ERR_OVERSIZE_PACKET) {
            Report(Format(Say("MQTT: cannot publish on '%s' (%s)", "MQTT: Veroeffentlichen auf '%s' nicht moeglich (%s)"),
                          message.topic, mosquitto_strerror(rc)));
            return true;
        }
        const int savedErrno = errno;
        {
            std::lock_guard<std::mutex> lock(mutex);
            queue.PushFront({std::move(message)});
        }
        if (state == LinkState::Connected) LinkLost(LibraryError(rc, savedErrno));
        return false;
    }

    // Hands queued messages to the library while the window of messages in flight has room.
    void HandOver() {
        while (state == LinkState::Connected && inFlight.size() < kInFlightWindow) {
            MqttMessage message;
            {
                std::lock_guard<std::mutex> lock(mutex);
                if (!queue.Pop(message)) return;
            }
            if (!Send(std::move(message))) return;
            HandleLibraryEvents();
        }
    }

    // Waits for the socket, a wake-up or the next deadline, then lets the library read, write and
    // keep the connection alive.
    void WaitAndService(bool stopping, int64_t deadlineMs) {
        int timeout = kIdleWakeMs;
        const int64_t now = NowMs();
        if (state == LinkState::Disconnected) timeout = static_cast<int>(std::clamp<int64_t>(nextAttemptMs - now, 0, timeout));
        if (stopping) timeout = static_cast<int>(std::clamp<int64_t>(deadlineMs - now, 0, timeout));
        pollfd fds[2] = {{wakeRead, POLLIN, 0}, {-1, 0, 0}};
        const int socket = client != nullptr ? mosquitto_socket(client) : -1;
        if (socket >= 0) fds[1] = {socket, static_cast<short>(POLLIN | (mosquitto_want_write(client) ? POLLOUT : 0)), 0};
        if (poll(fds, socket >= 0 ? 2 : 1, timeout) < 0 && errno != EINTR) return;
        if ((fds[0].revents & POLLIN) != 0) {
            char buffer[256];
            while (read(wakeRead, buffer, sizeof buffer) > 0) {
            }
        }
        if (socket < 0 || client == nullptr) return;
        if ((fds[1].revents & (POLLIN | POLLERR | POLLHUP)) != 0) {
            NoteFailure(mosquitto_loop_read(client, 100));
            HandleLibraryEvents();
        }
        // A refused or broken socket the library did not notice (it may be in the middle of a TLS
        // handshake, waiting for bytes that never come).
        if ((fds[1].revents & (POLLERR | POLLHUP)) != 0 && client != nullptr && mosquitto_socket(client) == socket) {
            SocketBroke(socket);
            return;
        }
        if (client != nullptr && mosquitto_socket(client) >= 0 && mosquitto_want_write(client)) {
            NoteFailure(mosquitto_loop_write(client, 100));
            HandleLibraryEvents();
        }
        if (client != nullptr && mosquitto_socket(client) >= 0) {
            NoteFailure(mosquitto_loop_misc(client));
            HandleLibraryEvents();
        }
    }

    // A loop call that failed without telling through the disconnect callback (a TLS handshake
    // that failed does so) is a link that went down all the same.
    void NoteFailure(int rc) {
        if (rc == MOSQ_ERR_SUCCESS || rc == MOSQ_ERR_NO_CONN || linkDown || disconnecting) return;
        linkDown = std::make_pair(rc, errno);
    }

    void SocketBroke(int socket) {
        int error = 0;
        socklen_t length = sizeof error;
        if (getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &length) != 0 || error == 0) {
            error = state == LinkState::Connecting ? ECONNREFUSED : ECONNRESET;
        }
        if (state == LinkState::Connecting) {
            AttemptFailed(std::strerror(error));
        } else if (state == LinkState::Connected) {
            LinkLost(std::strerror(error));
        }
    }

    bool StopIsDone(int64_t deadlineMs) {
        if (NowMs() >= deadlineMs) return true;
        if (state == LinkState::Connected) {
            std::lock_guard<std::mutex> lock(mutex);
            return queue.Empty() && inFlight.empty();
        }
        // Not connected: one attempt is made at once; when it fails, the broker is not reachable.
        return state == LinkState::Disconnected && stopAttemptMade && nextAttemptMs > NowMs();
    }

    void Run() {
        pthread_setname_np(pthread_self(), "kestrel-mqtt");  // shown by top -H, found by the benchmark
        while (!failed) {
            bool stopping = false;
            int64_t deadlineMs = 0;
            {
                std::lock_guard<std::mutex> lock(mutex);
                stopping = stopRequested;
                deadlineMs = drainDeadlineMs;
            }
            if (stopping) {
                if (StopIsDone(deadlineMs)) break;
                if (state == LinkState::Disconnected && !stopAttemptMade) {
                    stopAttemptMade = true;
                    nextAttemptMs = NowMs();
                }
            }
            if (state == LinkState::Disconnected && NowMs() >= nextAttemptMs) BeginAttempt();
            if (state == LinkState::Connecting && NowMs() - attemptStartedMs > kConnectTimeoutMs) {
                AttemptFailed(Say("no answer", "keine Antwort"));
            }
            HandOver();
            WaitAndService(stopping, deadlineMs);
        }
        if (state == LinkState::Connected && client != nullptr) {
            disconnecting = true;
            mosquitto_disconnect(client);
            mosquitto_loop_write(client, 1);
        }
        DestroyClient();
        EndFirstAttempt();
    }

    size_t Undelivered() {
        std::lock_guard<std::mutex> lock(mutex);
        return queue.Size() + inFlight.size();
    }
};

MqttConnection::MqttConnection(MqttBridgeSettings settings, std::string statusTopic, LogCallback log)
    : impl_(std::make_unique<Impl>(std::move(settings), std::move(statusTopic), std::move(log))) {}

MqttConnection::~MqttConnection() {
    Stop(0);
    if (impl_->wakeRead >= 0) close(impl_->wakeRead);
    if (impl_->wakeWrite >= 0) close(impl_->wakeWrite);
}

bool MqttConnection::Start() {
    InitLibraryOnce();
    int fds[2];
    if (pipe2(fds, O_CLOEXEC | O_NONBLOCK) != 0) {
        impl_->Fail(Format(Say("MQTT: cannot start the bridge (%s)", "MQTT: die Bruecke startet nicht (%s)"),
                           std::strerror(errno)));
        return false;
    }
    impl_->wakeRead = fds[0];
    impl_->wakeWrite = fds[1];
    impl_->thread = std::thread([impl = impl_.get()] { impl->Run(); });
    std::unique_lock<std::mutex> lock(impl_->mutex);
    impl_->firstAttemptDone.wait_for(lock, std::chrono::milliseconds(kFirstAttemptWaitMs),
                                     [impl = impl_.get()] { return impl->firstAttemptOver; });
    return !impl_->failed;
}

void MqttConnection::Publish(std::string topic, std::string payload, bool retain) {
    bool wasEmpty = false;
    {
        std::lock_guard<std::mutex> lock(impl_->mutex);
        if (impl_->stopRequested) return;
        if (impl_->settings.qos == 0 && !impl_->acceptingQosZero) return;
        wasEmpty = impl_->queue.Empty();
        impl_->queue.Push(MqttMessage{std::move(topic), std::move(payload), retain});
    }
    // The bridge thread looks at the whole queue when it wakes: one wake-up per burst is enough
    // (a cycle of 1,000 details is one write to the pipe, not 1,000).
    if (wasEmpty) impl_->Wake();
}

void MqttConnection::Stop(uint32_t drainMs) {
    if (!impl_->thread.joinable()) return;
    {
        std::lock_guard<std::mutex> lock(impl_->mutex);
        impl_->stopRequested = true;
        impl_->drainDeadlineMs = NowMs() + drainMs;
        // Also at QoS 0: the last word on the status topic is ours.
        impl_->queue.Push(MqttMessage{impl_->statusTopic, kOffline, true});
    }
    impl_->Wake();
    impl_->thread.join();
    if (impl_->failed) return;
    uint64_t dropped = 0;
    {
        std::lock_guard<std::mutex> lock(impl_->mutex);
        dropped = impl_->queue.TakeDroppedCount();
    }
    impl_->ReportDropped(dropped);
    if (const size_t left = impl_->Undelivered(); left > 0 && drainMs > 0) {
        impl_->Report(Format(Say("MQTT: %s messages not delivered: the broker was not reachable in time",
                              "MQTT: %s Nachrichten nicht zugestellt: der Broker war nicht rechtzeitig erreichbar"),
                          std::to_string(left)));
    }
}

bool MqttConnection::Failed() const { return impl_->failed; }
uint32_t MqttConnection::ConnectionCount() const { return impl_->connections; }
uint64_t MqttConnection::DeliveredCount() const { return impl_->delivered; }
