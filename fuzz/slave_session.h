#pragma once
// What the two slave targets share: one started slave for the whole run, and the steps of one
// input. The session is served on the fuzzing thread by the same code the slave's server thread
// runs for each client (TCP) or each read of its line (RTU); the server thread itself waits for
// the stop (fake_wire.h), so an input costs no thread hand-over.
//
// Input: [flags][injection code][injection from hi lo][injection to hi lo] then the peer's chunks
// (fake_wire.h; on RTU a chunk whose length byte has its high bit set gets a correct CRC appended).
//   flags bit 0: exception injection on; bit 1: English log lines.
#include <cstddef>
#include <cstdint>
#include <functional>

#include "fake_wire.h"
#include "protocol/modbus_client.h"

namespace slavesession {

constexpr uint8_t kUnitId = 1;

[[noreturn]] void Fail(const char* what);

enum class Transport { Tcp, Rtu };

// Applies the input's header to the slave of the run on `transport` (started on first use, with
// unit id kUnitId; it keeps running, and keeps what clients wrote, from one input to the next),
// queues the rest as the peer's stream, which ends with a close, and runs `serve` on it. Returns
// what the slave sent in answer; nothing for an input too short for the header.
fakewire::Bytes Run(Transport transport, const uint8_t* data, size_t size,
                    const std::function<void(ModbusClient&)>& serve);

}  // namespace slavesession
