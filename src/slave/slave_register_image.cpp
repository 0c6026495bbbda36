#include "slave/slave_register_image.h"

#include <algorithm>

namespace {

constexpr size_t kAddresses = 65536;

// The block wraps at 65536; a table never written reads as all zero.
template <typename Stored, typename Out>
std::vector<Out> ReadBlock(const std::vector<Stored>& table, uint16_t start, uint16_t count) {
    std::vector<Out> values(count);
    if (table.empty()) return values;
    for (uint32_t i = 0; i < count; ++i) values[i] = static_cast<Out>(table[static_cast<uint16_t>(start + i)]);
    return values;
}

template <typename Stored, typename In>
void WriteBlock(std::vector<Stored>& table, uint16_t start, const std::vector<In>& values) {
    if (values.empty()) return;
    if (table.empty()) table.assign(kAddresses, 0);
    for (size_t i = 0; i < values.size(); ++i) table[static_cast<uint16_t>(start + i)] = static_cast<Stored>(values[i]);
}

// `count` entries from `start` set to `value`, wrapping at 65536: at most two runs of memory.
template <typename Stored>
void FillBlock(std::vector<Stored>& table, uint16_t start, uint32_t count, Stored value) {
    const uint32_t first = std::min<uint32_t>(count, static_cast<uint32_t>(kAddresses - start));
    std::fill_n(table.begin() + start, first, value);
    std::fill_n(table.begin(), count - first, value);
}

void AppendPacked(const std::vector<uint8_t>& table, uint16_t start, uint16_t count, std::vector<uint8_t>& out) {
    const size_t first = out.size();
    out.resize(first + (count + 7u) / 8u, 0);
    if (table.empty()) return;
    uint8_t* bytes = out.data() + first;
    for (uint32_t i = 0; i < count; ++i) {
        bytes[i / 8] |= static_cast<uint8_t>((table[static_cast<uint16_t>(start + i)] & 1u) << (i % 8));
    }
}

void AppendBigEndian(const std::vector<uint16_t>& table, uint16_t start, uint16_t count, std::vector<uint8_t>& out) {
    const size_t first = out.size();
    out.resize(first + 2u * count, 0);
    if (table.empty()) return;
    uint8_t* bytes = out.data() + first;
    for (uint32_t i = 0; i < count; ++i) {
        const uint16_t value = table[static_cast<uint16_t>(start + i)];
        bytes[2 * i] = static_cast<uint8_t>(value >> 8);
        bytes[2 * i + 1] = static_cast<uint8_t>(value & 0xFF);
    }
}

}  // namespace

void SlaveRegisterImage::SetCoils(uint16_t start, const std::vector<bool>& values) {
    std::lock_guard<std::mutex> lock(mutex_);
    WriteBlock(coils_, start, values);
}

void SlaveRegisterImage::SetCoilsPacked(uint16_t start, uint16_t count, const uint8_t* bytes, size_t byteCount) {
    if (count == 0) return;
    std::lock_guard<std::mutex> lock(mutex_);
    if (coils_.empty()) coils_.assign(kAddresses, 0);
    const uint32_t carried = static_cast<uint32_t>(std::min<size_t>(count, byteCount * 8));
    for (uint32_t i = 0; i < carried; ++i) {
        coils_[static_cast<uint16_t>(start + i)] = static_cast<uint8_t>((bytes[i / 8] >> (i % 8)) & 1u);
    }
    FillBlock<uint8_t>(coils_, static_cast<uint16_t>(start + carried), count - carried, 0);
}

void SlaveRegisterImage::SetHoldingRegisters(uint16_t start, const std::vector<uint16_t>& values) {
    std::lock_guard<std::mutex> lock(mutex_);
    WriteBlock(holdingRegisters_, start, values);
}

void SlaveRegisterImage::SetDiscreteInputs(uint16_t start, const std::vector<bool>& values) {
    std::lock_guard<std::mutex> lock(mutex_);
    WriteBlock(discreteInputs_, start, values);
}

void SlaveRegisterImage::SetInputRegisters(uint16_t start, const std::vector<uint16_t>& values) {
    std::lock_guard<std::mutex> lock(mutex_);
    WriteBlock(inputRegisters_, start, values);
}

std::vector<bool> SlaveRegisterImage::GetCoils(uint16_t start, uint16_t count) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return ReadBlock<uint8_t, bool>(coils_, start, count);
}

std::vector<bool> SlaveRegisterImage::GetDiscreteInputs(uint16_t start, uint16_t count) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return ReadBlock<uint8_t, bool>(discreteInputs_, start, count);
}

std::vector<uint16_t> SlaveRegisterImage::GetHoldingRegisters(uint16_t start, uint16_t count) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return ReadBlock<uint16_t, uint16_t>(holdingRegisters_, start, count);
}

std::vector<uint16_t> SlaveRegisterImage::GetInputRegisters(uint16_t start, uint16_t count) const {
    std::lock_guard<std::mutex> lock(mutex_);
    return ReadBlock<uint16_t, uint16_t>(inputRegisters_, start, count);
}

void SlaveRegisterImage::AppendCoilsPacked(uint16_t start, uint16_t count, std::vector<uint8_t>& out) const {
    std::lock_guard<std::mutex> lock(mutex_);
    AppendPacked(coils_, start, count, out);
}

void SlaveRegisterImage::AppendDiscreteInputsPacked(uint16_t start, uint16_t count, std::vector<uint8_t>& out) const {
    std::lock_guard<std::mutex> lock(mutex_);
    AppendPacked(discreteInputs_, start, count, out);
}

void SlaveRegisterImage::AppendHoldingRegisterBytes(uint16_t start, uint16_t count, std::vector<uint8_t>& out) const {
    std::lock_guard<std::mutex> lock(mutex_);
    AppendBigEndian(holdingRegisters_, start, count, out);
}

void SlaveRegisterImage::AppendInputRegisterBytes(uint16_t start, uint16_t count, std::vector<uint8_t>& out) const {
    std::lock_guard<std::mutex> lock(mutex_);
    AppendBigEndian(inputRegisters_, start, count, out);
}
