#pragma once
// Lively values for the demo device: writes, for a step number, a plausible value of every demo
// detail into a slave's image (coils, discrete inputs, input and holding registers), encoded the
// way the detail decodes it (type, byte order, scale and offset).
#include <cstdint>
#include <string>
#include <vector>

#include "model/structure.h"
#include "slave/slave_register_image.h"

// The registers that decode to `engineeringValue` for the detail: (value - offset) / scale, as the
// detail's numeric type, in its byte order.
std::vector<uint16_t> EncodeEngineeringValue(const Modbus::ModbusDetail& detail, double engineeringValue);
// The registers that hold `text` for a STRING detail of `registers` registers (NUL-padded).
std::vector<uint16_t> EncodeText(const std::string& text, size_t registers);

class DemoDeviceSimulator {
public:
    DemoDeviceSimulator(SlaveRegisterImage& image, ModbusStructure demo);
    // Writes the values of step `step` (0, 1, 2, ...): the temperature climbs past its warning
    // and alarm limits within the first five steps, other values move a little every step.
    void Step(uint32_t step);
    // The engineering value the simulator gives a detail at a step (NaN for details it does not set).
    static double ValueAt(const std::string& detailName, uint32_t step);

private:
    SlaveRegisterImage& image;
    ModbusStructure demo;
};
