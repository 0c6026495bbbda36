#include "cli/demo_simulator.h"

#include <cmath>
#include <cstring>
#include <limits>

#include "model/value_decoding.h"

namespace {

std::vector<uint16_t> RegistersFromBytes(const std::vector<uint8_t>& bytes) {
    std::vector<uint16_t> registers(bytes.size() / 2);
    for (size_t i = 0; i < registers.size(); ++i) {
        registers[i] = static_cast<uint16_t>((bytes[2 * i] << 8) | bytes[2 * i + 1]);
    }
    return registers;
}

std::vector<uint8_t> BigEndianBytes(uint64_t bits, size_t size) {
    std::vector<uint8_t> bytes(size);
    for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(bits >> (8 * (size - 1 - i)));
    return bytes;
}

}  // namespace

std::vector<uint16_t> EncodeEngineeringValue(const Modbus::ModbusDetail& detail, double engineeringValue) {
    using Modbus::DataType;
    const double scale = detail.scale == 0.0 ? 1.0 : detail.scale;
    const double raw = (engineeringValue - detail.offset) / scale;
    std::vector<uint8_t> bytes;
    switch (detail.dataType) {
        case DataType::Float32: {
            const float f = static_cast<float>(raw);
            uint32_t bits = 0;
            std::memcpy(&bits, &f, sizeof bits);
            bytes = BigEndianBytes(bits, 4);
            break;
        }
        case DataType::Float64: {
            uint64_t bits = 0;
            std::memcpy(&bits, &raw, sizeof bits);
            bytes = BigEndianBytes(bits, 8);
            break;
        }
        case DataType::Int32:
        case DataType::UInt32:
            bytes = BigEndianBytes(static_cast<uint64_t>(static_cast<int64_t>(std::llround(raw))), 4);
            break;
        case DataType::Int64:
        case DataType::UInt64:
            bytes = BigEndianBytes(static_cast<uint64_t>(static_cast<int64_t>(std::llround(raw))), 8);
            break;
        default:
            bytes = BigEndianBytes(static_cast<uint64_t>(static_cast<int64_t>(std::llround(raw))), 2);
            break;
    }
    // Every byte order is its own inverse, so ordering the big-endian image gives the wire image.
    return RegistersFromBytes(OrderedByteImage(RegistersFromBytes(bytes), detail.byteOrder));
}

std::vector<uint16_t> EncodeText(const std::string& text, size_t registers) {
    std::vector<uint8_t> bytes(registers * 2, 0);
    for (size_t i = 0; i < text.size() && i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(text[i]);
    return RegistersFromBytes(bytes);
}

DemoDeviceSimulator::DemoDeviceSimulator(SlaveRegisterImage& image, ModbusStructure demo)
    : image(image), demo(std::move(demo)) {}

double DemoDeviceSimulator::ValueAt(const std::string& name, uint32_t step) {
    static const double kTemperatures[] = {72, 80, 88, 96, 104, 112, 104, 96, 88, 80};
    const double t = static_cast<double>(step);
    if (name == "Temperatur") return kTemperatures[step % 10] + 0.3 * std::sin(t);
    if (name == "Druck") return 4.0 + 0.5 * std::sin(t / 3.0);
    if (name == "Drehzahl") return 1450 + (step * 37) % 100;
    if (name == "Leistung") return 12.5 + 0.25 * (step % 20);
    if (name == "Energie") return 123456.789 + 0.5 * t;
    if (name == "Betriebsstunden") return 8760 + step;
    if (name == "Fehlerzaehler") return step / 5;
    if (name == "Steuerregister") return 1 + 2 * (step % 2);
    if (name == "Spannung") return 230.0 + 2.0 * std::sin(t / 2.0);
    if (name == "Strom") return 12.0 + 0.75 * std::sin(t / 4.0);
    if (name == "Frequenz") return 50.0 + 0.05 * std::sin(t);
    if (name == "Solltemperatur") return 65.0;
    return std::numeric_limits<double>::quiet_NaN();
}

void DemoDeviceSimulator::Step(uint32_t step) {
    using Modbus::DataType;
    for (const Modbus::ModbusDetail& detail : demo.details) {
        if (detail.functionCode == 2) {
            image.SetDiscreteInputs(detail.registerAddress, {step % 3 != 0});
        } else if (detail.functionCode == 4) {
            const double value = ValueAt(detail.name, step);
            if (!std::isnan(value)) image.SetInputRegisters(detail.registerAddress, EncodeEngineeringValue(detail, value));
        } else if (detail.functionCode == 1) {
            image.SetCoils(detail.registerAddress, {step % 2 == 0});
        } else if (detail.dataType == DataType::String) {
            image.SetHoldingRegisters(detail.registerAddress,
                                      EncodeText("KESTREL-DEMO-01", static_cast<size_t>(RegisterCountFor(detail))));
        } else if (detail.dataType == DataType::Raw) {
            image.SetHoldingRegisters(detail.registerAddress, {0xDEAD, 0xBEEF, static_cast<uint16_t>(step), 0x1234});
        } else {
            const double value = ValueAt(detail.name, step);
            if (!std::isnan(value)) image.SetHoldingRegisters(detail.registerAddress, EncodeEngineeringValue(detail, value));
        }
    }
}
