// The master's handling of whatever a device answers: every operation, over TCP and RTU, against
// a peer whose bytes are the input (split into the chunks a receive sees).
//
// Input: [flags][operation][address hi lo][count hi lo] then the peer's chunks (fake_wire.h).
//   flags bit 0: RTU, else TCP;  bit 1: the stream times out after the chunks, else it closes;
//   bit 2: the send fails;  bit 3: English log lines.
// Checked: no crash, no out-of-bounds access (ASan), no undefined behaviour (UBSan); the
// operation never disconnects; a successful one never logs a failure.
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "common/localizer.h"
#include "fake_wire.h"
#include "protocol/modbus_client.h"
#include "protocol/trace_log.h"

namespace {

[[noreturn]] void Fail(const char* what) {
    std::fprintf(stderr, "invariant broken: %s\n", what);
    std::abort();
}

ModbusClient& Client(bool rtu) {
    static ModbusClient tcp;
    static ModbusClient serial;
    return rtu ? serial : tcp;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
    GlobalTraceLog().SetCapacity(64);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size < 6) return 0;
    const uint8_t flags = data[0];
    const uint8_t operation = data[1] % 10;
    const uint16_t address = static_cast<uint16_t>(data[2] << 8 | data[3]);
    const uint16_t count = static_cast<uint16_t>(data[4] << 8 | data[5]);
    const bool rtu = (flags & 1) != 0;
    Localizer::SetAllLanguages((flags & 8) ? 1 : 0);

    fakewire::Reset(fakewire::SplitChunks(data + 6, size - 6, rtu),
                    (flags & 2) ? fakewire::AfterData::TimedOut : fakewire::AfterData::Closed, (flags & 4) != 0);

    ModbusClient& client = Client(rtu);
    if (!client.IsConnected()) {
        ConnectionConfig config;
        config.transport = rtu ? 1 : 0;
        config.serialPort = "fuzz";
        if (!client.Connect(config)) Fail("connect");
    }
    std::vector<std::string> lines;
    client.SetLogCallback([&lines](const std::string& line) { lines.push_back(line); });

    // Write operations send at most a few hundred values: enough to reach every byte-count wrap.
    const size_t writeCount = count % 300;
    std::vector<bool> bits(writeCount, (count & 1) != 0);
    std::vector<uint16_t> words(writeCount, address);
    std::vector<bool> bitsOut;
    std::vector<uint16_t> wordsOut;
    bool ok = false;
    switch (operation) {
        case 0: ok = client.ReadCoils(1, address, count, bitsOut); break;
        case 1: ok = client.ReadDiscreteInputs(1, address, count, bitsOut); break;
        case 2: ok = client.ReadHoldingRegisters(1, address, count, wordsOut); break;
        case 3: ok = client.ReadInputRegisters(1, address, count, wordsOut); break;
        case 4: ok = client.WriteSingleCoil(1, address, (count & 1) != 0); break;
        case 5: ok = client.WriteSingleRegister(1, address, count); break;
        case 6: ok = client.WriteMultipleCoils(1, address, bits); break;
        case 7: ok = client.WriteMultipleRegisters(1, address, words); break;
        case 8: ok = client.ReadWriteMultipleRegisters(1, address, count, address, words, wordsOut); break;
        case 9: ok = client.ReadFifoQueue(1, address, wordsOut); break;
    }
    client.SetLogCallback(nullptr);
    GlobalTraceLog().Clear();
    fakewire::Release();

    if (!client.IsConnected()) Fail("an operation disconnected");
    // A read never yields more than the response can hold: 8 bits per byte, 1 word per 2 bytes.
    if (ok && bitsOut.size() > 8 * 256) Fail("more bits than a response holds");
    if (ok && wordsOut.size() > 65536) Fail("more words than a response holds");
    // A success never logs the operation's failure text.
    if (ok) {
        for (const std::string& line : lines) {
            if (line.find("failed.") != std::string::npos || line.find("fehlgeschlagen.") != std::string::npos) {
                Fail("a successful operation logged a failure");
            }
        }
    }
    return 0;
}
