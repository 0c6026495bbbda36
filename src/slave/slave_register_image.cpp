#include "slave/slave_register_image.h"

namespace {

template <typename Value, typename Out>
std::vector<Out> ReadBlock(const std::map<uint16_t, Value>& table, uint16_t start, uint16_t count) {
    std::vector<Out> values(count);
    for (uint16_t i = 0; i < count; ++i) {
        const auto it = table.find(static_cast<uint16_t>(start + i));  // wraps at 65536
        if (it != table.end()) values[i] = it->second;
    }
    return values;
}

}  // namespace

void SlaveRegisterImage::SetCoils(uint16_t start, const std::vector<bool>& values) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (size_t i = 0; i < values.size(); ++i) coils_[static_cast<uint16_t>(start + i)] = values[i];
}

void SlaveRegisterImage::SetHoldingRegisters(uint16_t start, const std::vector<uint16_t>& values) {
    std::lock_guard<std::mutex> lock(mutex_);
    for (size_t i = 0; i < values.size(); ++i) holdingRegisters_[static_cast<uint16_t>(start + i)] = values[i];
}

std::vector<bool> SlaveRegisterImage::GetCoils(uint16_t start, uint16_t count) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return ReadBlock<bool, bool>(coils_, start, count);
}

std::vector<bool> SlaveRegisterImage::GetDiscreteInputs(uint16_t start, uint16_t count) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return ReadBlock<bool, bool>(discreteInputs_, start, count);
}

std::vector<uint16_t> SlaveRegisterImage::GetHoldingRegisters(uint16_t start, uint16_t count) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return ReadBlock<uint16_t, uint16_t>(holdingRegisters_, start, count);
}

std::vector<uint16_t> SlaveRegisterImage::GetInputRegisters(uint16_t start, uint16_t count) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return ReadBlock<uint16_t, uint16_t>(inputRegisters_, start, count);
}
