// The TCP slave's handling of a whole client session: the real server thread accepts one client
// whose byte stream is the input, split into the chunks that each receive returns, and serves it
// until the stream ends. The slave keeps running from one input to the next, serving client after
// client as it does in the field; its register image keeps what the clients wrote.
//
// Input: [flags][injection code][injection from hi lo][injection to hi lo] then the
// client's chunks (fake_wire.h).  flags bit 0: exception injection on; bit 1: English log lines.
// Checked: no crash, leak, out-of-bounds access or undefined behaviour; every session ends
// within a bounded time; every response is a well-formed MBAP frame.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "common/localizer.h"
#include "fake_wire.h"
#include "protocol/modbus_client.h"

namespace {

constexpr uint8_t kUnitId = 1;

[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "invariant broken: %s\n", what);
    std::abort();
}

// The responses, one after another, each an MBAP header whose length covers exactly what follows.
bool WellFormedResponses(const fakewire::Bytes& sent) {
    size_t at = 0;
    while (at < sent.size()) {
        if (sent.size() - at < 8) return false;
        const size_t length = static_cast<size_t>(sent[at + 4]) << 8 | sent[at + 5];
        if (sent[at + 2] != 0 || sent[at + 3] != 0 || length < 2 || sent.size() - at - 6 < length) return false;
        at += 6 + length;
    }
    return true;
}

// One slave for the whole run, like a slave that serves client after client; its server thread
// waits for the next session between inputs. It is never stopped: the process ends with it.
struct RunningSlave {
    ModbusClient slave;
    RunningSlave() {
        ConnectionConfig config;
        config.role = 1;
        config.unitId = kUnitId;
        slave.SetLogCallback([](const std::string&) {});
        if (!slave.Connect(config)) Fail("the slave did not start");
    }
};

ModbusClient& Slave() {
    static RunningSlave* running = new RunningSlave;
    return running->slave;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 6) return 0;
    ModbusClient& slave = Slave();
    if (!fakewire::WaitSessionDone(10000)) Fail("the slave is still busy with the last session");
    Localizer::SetAllLanguages((data[0] & 2) ? 1 : 0);
    fakewire::Reset(fakewire::SplitChunks(data + 6, size - 6, false), fakewire::AfterData::Closed);
    // The server thread waits for the next session, so it reads these only after the offer.
    slave.exceptionInjectionEnabled = (data[0] & 1) != 0;
    slave.exceptionInjectionCode = data[1];
    slave.exceptionInjectionFrom = static_cast<uint16_t>(data[2] << 8 | data[3]);
    slave.exceptionInjectionTo = static_cast<uint16_t>(data[4] << 8 | data[5]);
    fakewire::OfferOneClient();
    if (!fakewire::WaitSessionDone(10000)) Fail("the session did not end");
    if (!WellFormedResponses(fakewire::Sent())) Fail("a malformed response");
    fakewire::Release();
    return 0;
}
