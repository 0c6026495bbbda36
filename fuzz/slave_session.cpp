#include "slave_session.h"

#include <cstdio>
#include <cstdlib>
#include <string>

#include "common/localizer.h"

namespace slavesession {

void Fail(const char* what) {
    std::fprintf(stderr, "invariant broken: %s\n", what);
    std::abort();
}

namespace {

// Never stopped: the process ends with it.
ModbusClient* StartSlave(Transport transport) {
    auto* slave = new ModbusClient;
    ConnectionConfig config;
    config.role = 1;
    config.unitId = kUnitId;
    if (transport == Transport::Rtu) {
        config.transport = 1;
        config.serialPort = "fuzz";
        // The reads of the line are this thread's; the server thread's read waits for the stop.
        fakewire::ParkOtherSerialReaders();
    }
    slave->SetLogCallback([](const std::string&) {});
    if (!slave->Connect(config)) Fail("the slave did not start");
    return slave;
}

}  // namespace

fakewire::Bytes Run(Transport transport, const uint8_t* data, size_t size,
                    const std::function<void(ModbusClient&)>& serve) {
    if (size < 6) return {};
    static ModbusClient* const slave = StartSlave(transport);
    Localizer::SetAllLanguages((data[0] & 2) ? 1 : 0);
    fakewire::Reset(fakewire::SplitChunks(data + 6, size - 6, transport == Transport::Rtu),
                    fakewire::AfterData::Closed);
    slave->exceptionInjectionEnabled = (data[0] & 1) != 0;
    slave->exceptionInjectionCode = data[1];
    slave->exceptionInjectionFrom = static_cast<uint16_t>(data[2] << 8 | data[3]);
    slave->exceptionInjectionTo = static_cast<uint16_t>(data[4] << 8 | data[5]);
    serve(*slave);
    fakewire::Bytes sent = fakewire::Sent();
    fakewire::Release();
    return sent;
}

}  // namespace slavesession
