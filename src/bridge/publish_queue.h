#pragma once
// The bridge's messages waiting for the broker, oldest first, with a bound: past it the oldest
// message goes, and the count of those dropped is kept until it has been reported. Not locked:
// its owner (the MQTT connection) guards it.
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string>
#include <vector>

struct MqttMessage {
    std::string topic;
    std::string payload;
    bool retain = false;
};

class PublishQueue {
public:
    explicit PublishQueue(size_t limit) : limit_(limit == 0 ? 1 : limit) {}

    // Appends a message; a full queue drops its oldest first.
    void Push(MqttMessage message);
    // Puts messages back in front, in their order (those that were in flight when the connection
    // went), dropping the oldest when the bound is passed.
    void PushFront(std::vector<MqttMessage> messages);
    // Takes the oldest message; false when empty.
    bool Pop(MqttMessage& message);
    size_t Size() const { return messages_.size(); }
    bool Empty() const { return messages_.empty(); }
    void Clear() { messages_.clear(); }
    size_t Limit() const { return limit_; }
    // The number dropped since the last call, and resets it.
    uint64_t TakeDroppedCount();

private:
    void DropOldestBeyondLimit();

    size_t limit_;
    std::deque<MqttMessage> messages_;
    uint64_t dropped_ = 0;
};

// The pause before the next connection attempt: 0.5 s after the first failure, doubling with every
// further failure up to 30 s; a successful connection starts over.
class ReconnectBackoff {
public:
    static constexpr uint32_t kFirstDelayMs = 500;
    static constexpr uint32_t kLongestDelayMs = 30000;

    uint32_t NextDelayMs();
    void Reset() { next_ = kFirstDelayMs; }

private:
    uint32_t next_ = kFirstDelayMs;
};
