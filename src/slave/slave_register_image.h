#pragma once
// The slave's local image of coils and registers: four sparse ordered maps behind one mutex. Every
// address 0..65535 is valid, an address never written reads as 0, and blocks wrap at 65536.
#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

class SlaveRegisterImage {
public:
    void SetCoils(uint16_t start, const std::vector<bool>& values);
    void SetHoldingRegisters(uint16_t start, const std::vector<uint16_t>& values);
    std::vector<bool> GetCoils(uint16_t start, uint16_t count) const;
    std::vector<bool> GetDiscreteInputs(uint16_t start, uint16_t count) const;
    std::vector<uint16_t> GetHoldingRegisters(uint16_t start, uint16_t count) const;
    std::vector<uint16_t> GetInputRegisters(uint16_t start, uint16_t count) const;

private:
    mutable std::mutex mutex_;
    std::map<uint16_t, bool> coils_;
    std::map<uint16_t, bool> discreteInputs_;
    std::map<uint16_t, uint16_t> holdingRegisters_;
    std::map<uint16_t, uint16_t> inputRegisters_;
};
