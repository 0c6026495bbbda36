// The RTU slave's handling of the frames on its line: the slave reads the input's chunks one read
// at a time (a chunk longer than 256 bytes takes several reads, as from a driver; an empty chunk is
// a read that brings nothing) and answers them, as its server thread does, until the line is
// quiet. The slave keeps running from one input to the next, as it would on a line that carries
// burst after burst; its register image keeps what was written. Input format: slave_session.h.
// Checked: no crash, leak, out-of-bounds access or undefined behaviour; every chunk is read and
// the quiet line brings no frame; every response carries a correct CRC and the slave's own unit id.
#include <cstdint>

#include "slave_session.h"

using slavesession::Fail;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const fakewire::Bytes sent = slavesession::Run(slavesession::Transport::Rtu, data, size, [size](ModbusClient& slave) {
        // Each read takes a chunk or 256 bytes of it, so the line is drained within `size` reads.
        for (size_t reads = 0; !fakewire::Drained(); ++reads) {
            if (reads > size) Fail("the line was not drained");
            slave.ServeNextRtuFrame();
        }
        if (slave.ServeNextRtuFrame()) Fail("a read of the quiet line brought a frame");
    });
    // The responses one after another: an exception is 5 bytes, a read 5 + byte count, a write 8;
    // each for the slave's own unit id (RTU ignores unit 0) with a correct CRC.
    size_t at = 0;
    while (at < sent.size()) {
        if (sent.size() - at < 5) Fail("a response shorter than 5 bytes");
        const uint8_t fc = sent[at + 1];
        const size_t length = (fc & 0x80) ? 5 : (fc >= 1 && fc <= 4) ? 5 + sent[at + 2] : 8;
        if (sent.size() - at < length) Fail("a truncated response");
        if (sent[at] != slavesession::kUnitId) Fail("a response for another unit id");
        if (Crc16(sent.data() + at, length - 2) != (sent[at + length - 2] | sent[at + length - 1] << 8)) {
            Fail("a response with a wrong CRC");
        }
        at += length;
    }
    return 0;
}
