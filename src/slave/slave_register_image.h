#pragma once
// The slave's local image of coils and registers: four tables behind one mutex. Every address
// 0..65535 is valid, an address never written reads as 0, and blocks wrap at 65536. A table is a
// flat array of all 65,536 values, allocated on its first write (so a connection that never serves
// costs nothing, and the two tables the program never writes stay empty): a read of 2,000 coils is
// then one pass over contiguous memory rather than a walk through 2,000 tree nodes.
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

class SlaveRegisterImage {
public:
    void SetCoils(uint16_t start, const std::vector<bool>& values);
    // `count` coils from `start` as a write request packs them, least significant bit first in
    // `byteCount` bytes; coils past the bytes given are switched off. One pass over the table, with
    // no list of bits in between: a request may write 65,535 coils.
    void SetCoilsPacked(uint16_t start, uint16_t count, const uint8_t* bytes, size_t byteCount);
    void SetHoldingRegisters(uint16_t start, const std::vector<uint16_t>& values);
    // The two tables a remote master can only read. The window never writes them (they read as
    // zero there); the command-line simulator seeds them.
    void SetDiscreteInputs(uint16_t start, const std::vector<bool>& values);
    void SetInputRegisters(uint16_t start, const std::vector<uint16_t>& values);
    std::vector<bool> GetCoils(uint16_t start, uint16_t count) const;
    std::vector<bool> GetDiscreteInputs(uint16_t start, uint16_t count) const;
    std::vector<uint16_t> GetHoldingRegisters(uint16_t start, uint16_t count) const;
    std::vector<uint16_t> GetInputRegisters(uint16_t start, uint16_t count) const;

    // The same reads, appended to `out` as a response carries them: bits packed least significant
    // first in ceil(count / 8) bytes; registers high byte first.
    void AppendCoilsPacked(uint16_t start, uint16_t count, std::vector<uint8_t>& out) const;
    void AppendDiscreteInputsPacked(uint16_t start, uint16_t count, std::vector<uint8_t>& out) const;
    void AppendHoldingRegisterBytes(uint16_t start, uint16_t count, std::vector<uint8_t>& out) const;
    void AppendInputRegisterBytes(uint16_t start, uint16_t count, std::vector<uint8_t>& out) const;

private:
    mutable std::mutex mutex_;
    // Empty until the first write, then 65,536 entries indexed by address.
    std::vector<uint8_t> coils_;
    std::vector<uint8_t> discreteInputs_;
    std::vector<uint16_t> holdingRegisters_;
    std::vector<uint16_t> inputRegisters_;
};
