#include "bridge/publish_queue.h"

#include <algorithm>

void PublishQueue::Push(MqttMessage message) {
    messages_.push_back(std::move(message));
    DropOldestBeyondLimit();
}

void PublishQueue::PushFront(std::vector<MqttMessage> messages) {
    for (auto it = messages.rbegin(); it != messages.rend(); ++it) messages_.push_front(std::move(*it));
    DropOldestBeyondLimit();
}

bool PublishQueue::Pop(MqttMessage& message) {
    if (messages_.empty()) return false;
    message = std::move(messages_.front());
    messages_.pop_front();
    return true;
}

uint64_t PublishQueue::TakeDroppedCount() {
    const uint64_t dropped = dropped_;
    dropped_ = 0;
    return dropped;
}

void PublishQueue::DropOldestBeyondLimit() {
    while (messages_.size() > limit_) {
        messages_.pop_front();
        ++dropped_;
    }
}

uint32_t ReconnectBackoff::NextDelayMs() {
    const uint32_t delay = next_;
    next_ = std::min(next_ * 2, kLongestDelayMs);
    return delay;
}
