// The TCP slave's handling of a whole client session: the input is the client's byte stream,
// split into the chunks that each receive returns, and the slave serves it as it serves every
// client it accepts, until the stream ends. The slave keeps running from one input to the next,
// serving client after client as it does in the field; its register image keeps what the clients
// wrote. Input format: slave_session.h.
// Checked: no crash, leak, out-of-bounds access or undefined behaviour; every session ends (a
// hang is libFuzzer's time-out); every response is a well-formed MBAP frame.
#include <cstdint>

#include "slave_session.h"

namespace {

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fakewire::Bytes sent = slavesession::Run(slavesession::Transport::Tcp, data, size, [](ModbusClient& slave) {
        slave.ServeTcpClient(fakewire::AcceptedClient());
    });
    if (!WellFormedResponses(sent)) slavesession::Fail("a malformed response");
    return 0;
}
