#include "model/demo_structure.h"

namespace {

Modbus::ModbusDetail DemoDetail(const char* name, const char* unit, Modbus::DataType type, uint16_t address,
                                uint8_t functionCode, Modbus::ByteOrder order, double scale, double offset,
                                int32_t arraySize = 1) {
    Modbus::ModbusDetail d;
    d.name = name;
    d.unit = unit;
    d.dataType = type;
    d.arraySize = arraySize;
    d.registerAddress = address;
    d.functionCode = functionCode;
    d.byteOrder = order;
    d.scale = scale;
    d.offset = offset;
    d.warnLow = 0.0;
    d.warnHigh = 90.0;
    d.alarmLow = 0.0;
    d.alarmHigh = 100.0;
    d.alarmOnChange = false;
    d.widgetType = Modbus::WidgetType::Auto;
    return d;
}

}  // namespace

ModbusStructure BuildDemoStructure() {
    using Modbus::ByteOrder;
    using Modbus::DataType;
    const char* degreesCelsius = "\xC2\xB0" "C";
    const ByteOrder big = ByteOrder::BigEndian;

    ModbusStructure s;
    s.name = "Demo-Geraet";
    s.description = "Beispielgeraet mit allen Datentypen";
    s.ip = "127.0.0.1";
    s.port = 1502;
    s.unitId = 1;
    s.rtuOverTcp = false;
    s.details = {
        DemoDetail("Status Coil 0", "", DataType::Boolean, 0, 1, big, 1, 0),
        DemoDetail("Digital Input 1", "", DataType::Boolean, 1, 2, big, 1, 0),
        DemoDetail("Temperatur", degreesCelsius, DataType::Float32, 100, 3, big, 0.1, -50),
        DemoDetail("Druck", "bar", DataType::Float32, 102, 3, big, 0.01, 0),
        DemoDetail("Drehzahl", "rpm", DataType::UInt16, 104, 3, big, 1, 0),
        DemoDetail("Leistung", "kW", DataType::UInt32, 106, 3, big, 0.001, 0),
        DemoDetail("Energie", "kWh", DataType::UInt64, 110, 3, big, 0.001, 0),
        DemoDetail("Spannung", "V", DataType::Float32, 118, 4, big, 0.1, 0),
        DemoDetail("Strom", "A", DataType::Float32, 120, 4, big, 0.001, 0),
        DemoDetail("Frequenz", "Hz", DataType::Float32, 122, 4, ByteOrder::LittleEndianSwap, 0.01, 0),
        DemoDetail("Betriebsstunden", "h", DataType::UInt32, 130, 3, big, 1, 0),
        DemoDetail("Fehlerzaehler", "", DataType::Int16, 132, 3, big, 1, 0),
        DemoDetail("Steuerregister", "", DataType::UInt16, 200, 6, big, 1, 0),
        DemoDetail("Solltemperatur", degreesCelsius, DataType::Float32, 202, 16, big, 0.1, 0),
        DemoDetail("Geraetekennung", "", DataType::String, 300, 3, big, 1, 0, 8),
        DemoDetail("Rohdaten Register", "", DataType::Raw, 310, 3, big, 1, 0, 4),
    };
    return s;
}
