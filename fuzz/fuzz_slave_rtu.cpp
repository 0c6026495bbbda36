// The RTU slave's handling of the frames on its line: the real server thread reads the input's
// chunks one read at a time (a chunk longer than 256 bytes takes several reads, as from a driver)
// and answers them, until the line is quiet. The slave keeps running from one input to the next,
// as it would on a line that carries burst after burst; its register image keeps what was written.
//
// Input: [flags][injection code][injection from hi lo][injection to hi lo] then the
// chunks (fake_wire.h); a chunk whose length byte has its high bit set gets a correct CRC
// appended, so that mutations reach the request processing behind the CRC check.
//   flags bit 0: exception injection on; bit 1: English log lines.
// Checked: no crash, leak, out-of-bounds access or undefined behaviour; every session ends within a
// bounded time; every response carries a correct CRC and the slave's own unit id.
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

// One slave for the whole run, like a slave that serves client after client; its server thread
// waits for the next session between inputs. It is never stopped: the process ends with it.
struct RunningSlave {
    ModbusClient slave;
    RunningSlave() {
        fakewire::SetSerialBlocksWhenEmpty(true);
        ConnectionConfig config;
        config.transport = 1;
        config.role = 1;
        config.serialPort = "fuzz";
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
    fakewire::Reset(fakewire::SplitChunks(data + 6, size - 6, true), fakewire::AfterData::Closed);
    // The server thread waits for the next session, so it reads these only after the offer.
    slave.exceptionInjectionEnabled = (data[0] & 1) != 0;
    slave.exceptionInjectionCode = data[1];
    slave.exceptionInjectionFrom = static_cast<uint16_t>(data[2] << 8 | data[3]);
    slave.exceptionInjectionTo = static_cast<uint16_t>(data[4] << 8 | data[5]);
    fakewire::OfferOneClient();
    if (!fakewire::WaitSessionDone(10000)) Fail("the session did not end");
    // The responses one after another: an exception is 5 bytes, a read 5 + byte count, a write 8;
    // each for the slave's own unit id (RTU ignores unit 0) with a correct CRC.
    const fakewire::Bytes sent = fakewire::Sent();
    size_t at = 0;
    while (at < sent.size()) {
        if (sent.size() - at < 5) Fail("a response shorter than 5 bytes");
        const uint8_t fc = sent[at + 1];
        const size_t length = (fc & 0x80) ? 5 : (fc >= 1 && fc <= 4) ? 5 + sent[at + 2] : 8;
        if (sent.size() - at < length) Fail("a truncated response");
        if (sent[at] != kUnitId) Fail("a response for another unit id");
        if (Crc16(sent.data() + at, length - 2) != (sent[at + length - 2] | sent[at + length - 1] << 8)) {
            Fail("a response with a wrong CRC");
        }
        at += length;
    }
    fakewire::Release();
    return 0;
}
