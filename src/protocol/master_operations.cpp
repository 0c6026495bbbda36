// The ten master operations, one per function code. Each builds its PDU data, frames it for the
// current transport, runs one transaction, tests for an exception and unpacks the result. None
// checks quantities against the protocol's limits, compares the response's transaction id, unit id
// or echo with the request, or checks an RTU response's CRC: what the caller asks for is sent, and
// what the device answers is read as it stands.
#include "common/localizer.h"
#include "platform/clock.h"
#include "protocol/modbus_client.h"
#include "protocol/trace_log.h"

using Modbus::Bytes;

namespace {

void PutWord(Bytes& data, uint16_t value) {
    data.push_back(static_cast<uint8_t>(value >> 8));
    data.push_back(static_cast<uint8_t>(value & 0xFF));
}

Bytes AddressAndWord(uint16_t address, uint16_t word) {
    Bytes data;
    PutWord(data, address);
    PutWord(data, word);
    return data;
}

uint16_t WordAt(const Bytes& bytes, size_t at) {
    return static_cast<uint16_t>((bytes[at] << 8) | bytes[at + 1]);
}

bool IsReadFunction(uint8_t fc) { return fc <= 4 || fc == 0x17 || fc == 0x18; }

// The exception test of an operation: reads test only a response of their minimum length, writes
// need just the function-code byte.
bool IsOperationException(const Bytes& response, uint8_t functionCode, bool isTcp) {
    const Modbus::ResponseLayout& layout = Modbus::LayoutFor(isTcp);
    const size_t needed = IsReadFunction(functionCode) ? layout.minimumLength : layout.functionCode + 1;
    return response.size() >= needed && IsExceptionResponse(response, isTcp);
}

std::string ExceptionText(uint8_t fc, uint8_t code) {
    const std::string number = std::to_string(code);
    switch (fc) {
        case 0x05: return "Modbus Exception FC05: " + number;
        case 0x06:
            return "Modbus Exception FC06: " + number +
                   Localizer::Text(Localizer::Scope::Connection, " Consider using FC10 instead of FC06.",
                                   " Gegebenenfalls versuchen Sie mit FC10 anstelle FC06 zu schreiben.");
        case 0x0F: return "Modbus Exception FC0F: " + number;
        case 0x10: return "Modbus Exception FC10: " + number;
        case 0x17: return "Modbus Exception FC17.";
        case 0x18: return "Modbus Exception FC18.";
        default: return "Modbus Exception: " + number;
    }
}

}  // namespace

// Every master operation exchanges its request here, so this is where the trace frame of the
// transaction is made: the wall-clock time of the request, the latency from the monotonic clock and
// the outcome. The RTU CRC is only noted in the frame; the operation still parses the response.
// RTU over TCP checks it in its transaction, which then fails.
bool ModbusClient::Transact(const Bytes& request, Bytes& response) {
    Modbus::TraceFrame frame;
    frame.timestamp = platform::UnixTimeMilliseconds();
    const int64_t started = platform::MonotonicMicroseconds();
    lastFailure = TransportFailure::None;
    bool ok = false;
    if (IsTcp()) {
        ok = TcpTransaction(request, response);
    } else if (IsRtuOverTcp()) {
        ok = RtuOverTcpTransaction(request, response);
    } else {
        ok = RtuTransaction(request, response);
    }
    if (!ok && lastFailure == TransportFailure::None) lastFailure = TransportFailure::Timeout;
    frame.latencyMs = (platform::MonotonicMicroseconds() - started) / 1000;

    frame.sequence = NextTraceSequence();
    frame.isRtu = !IsTcp();
    frame.text = tracePeerText;
    if (UsesSocket()) {
        frame.peerAddress = tracePeerAddress;
        frame.peerPort = config.port;
    }
    frame.request = request;
    frame.response = response;
    frame.isTimeout = !ok && lastFailure != TransportFailure::CrcError;
    if (!ok && lastFailure == TransportFailure::CrcError) frame.isCrcError = true;
    if (ok) {
        const size_t at = Modbus::LayoutFor(IsTcp()).functionCode;
        const uint8_t fc = at < request.size() ? request[at] : 0;
        frame.isException = IsOperationException(response, fc, IsTcp());
        frame.isCrcError = !IsTcp() && !HasValidCrc(response);
    }
    RecordTrace(std::move(frame));
    return ok;
}

bool ModbusClient::RunOperation(uint8_t unitId, uint8_t functionCode, const Bytes& data, const char* name,
                                Bytes& response) {
    lastExceptionCode = 0;
    const Bytes request =
        IsTcp() ? BuildTcpRequest(unitId, functionCode, data) : BuildRtuRequest(unitId, functionCode, data);
    if (!Transact(request, response)) {
        Log(std::string(name) + Text(" failed.", " fehlgeschlagen."));
        return false;
    }
    if (IsOperationException(response, functionCode, IsTcp())) {
        lastExceptionCode = ExceptionCode(response, IsTcp());
        Log(ExceptionText(functionCode, ExceptionCode(response, IsTcp())));
        return false;
    }
    return true;
}

bool ModbusClient::ReadRegisterWords(const Bytes& response, std::vector<uint16_t>& out) const {
    const Modbus::ResponseLayout& layout = Modbus::LayoutFor(IsTcp());
    if (response.size() < layout.minimumLength) return false;
    // ceil(byte count / 2) words, not checked against what actually came: a word that runs past the
    // end of the response reads the missing bytes as 0.
    const size_t words = (static_cast<size_t>(response[layout.byteCount]) + 1) / 2;
    out.clear();
    out.reserve(words);
    for (size_t i = 0; i < words; ++i) {
        const size_t at = layout.firstData + 2 * i;
        const uint8_t high = at < response.size() ? response[at] : 0;
        const uint8_t low = at + 1 < response.size() ? response[at + 1] : 0;
        out.push_back(static_cast<uint16_t>((high << 8) | low));
    }
    return true;
}

bool ModbusClient::ReadCoils(uint8_t unitId, uint16_t address, uint16_t count, std::vector<bool>& out) {
    if (!CanRunMasterOperation()) return false;
    Bytes response;
    if (!RunOperation(unitId, 0x01, AddressAndWord(address, count), "ReadCoils", response)) return false;
    return UnpackBits(response, IsTcp(), count, out);
}

bool ModbusClient::ReadDiscreteInputs(uint8_t unitId, uint16_t address, uint16_t count, std::vector<bool>& out) {
    if (!CanRunMasterOperation()) return false;
    Bytes response;
    if (!RunOperation(unitId, 0x02, AddressAndWord(address, count), "ReadDiscreteInputs", response)) return false;
    return UnpackBits(response, IsTcp(), count, out);
}

bool ModbusClient::ReadHoldingRegisters(uint8_t unitId, uint16_t address, uint16_t count,
                                        std::vector<uint16_t>& out) {
    if (!CanRunMasterOperation()) return false;
    Bytes response;
    if (!RunOperation(unitId, 0x03, AddressAndWord(address, count), "ReadHoldingRegisters", response)) return false;
    return ReadRegisterWords(response, out);
}

bool ModbusClient::ReadInputRegisters(uint8_t unitId, uint16_t address, uint16_t count, std::vector<uint16_t>& out) {
    if (!CanRunMasterOperation()) return false;
    Bytes response;
    if (!RunOperation(unitId, 0x04, AddressAndWord(address, count), "ReadInputRegisters", response)) return false;
    return ReadRegisterWords(response, out);
}

bool ModbusClient::WriteSingleCoil(uint8_t unitId, uint16_t address, bool value) {
    if (!CanRunMasterOperation()) return false;
    Bytes response;
    return RunOperation(unitId, 0x05, AddressAndWord(address, value ? 0xFF00 : 0x0000), "WriteSingleCoil", response);
}

bool ModbusClient::WriteSingleRegister(uint8_t unitId, uint16_t address, uint16_t value) {
    if (!CanRunMasterOperation()) return false;
    Bytes response;
    return RunOperation(unitId, 0x06, AddressAndWord(address, value), "WriteSingleRegister", response);
}

bool ModbusClient::WriteMultipleCoils(uint8_t unitId, uint16_t address, const std::vector<bool>& values) {
    if (!CanRunMasterOperation()) return false;
    const Bytes packed = PackBits(values);
    Bytes data = AddressAndWord(address, static_cast<uint16_t>(values.size()));
    data.push_back(static_cast<uint8_t>(packed.size()));  // byte counts are one byte: modulo 256
    data.insert(data.end(), packed.begin(), packed.end());
    Bytes response;
    return RunOperation(unitId, 0x0F, data, "WriteMultipleCoils", response);
}

bool ModbusClient::WriteMultipleRegisters(uint8_t unitId, uint16_t address, const std::vector<uint16_t>& values) {
    if (!CanRunMasterOperation()) return false;
    Bytes data = AddressAndWord(address, static_cast<uint16_t>(values.size()));
    data.push_back(static_cast<uint8_t>(2 * values.size()));
    for (uint16_t v : values) PutWord(data, v);
    Bytes response;
    return RunOperation(unitId, 0x10, data, "WriteMultipleRegisters", response);
}

bool ModbusClient::ReadWriteMultipleRegisters(uint8_t unitId, uint16_t readAddress, uint16_t readCount,
                                              uint16_t writeAddress, const std::vector<uint16_t>& values,
                                              std::vector<uint16_t>& out) {
    if (!CanRunMasterOperation()) return false;
    Bytes data = AddressAndWord(readAddress, readCount);
    PutWord(data, writeAddress);
    PutWord(data, static_cast<uint16_t>(values.size()));
    data.push_back(static_cast<uint8_t>(2 * values.size()));
    for (uint16_t v : values) PutWord(data, v);
    Bytes response;
    if (!RunOperation(unitId, 0x17, data, "ReadWriteMultipleRegisters", response)) return false;
    return ReadRegisterWords(response, out);
}

bool ModbusClient::ReadFifoQueue(uint8_t unitId, uint16_t fifoAddress, std::vector<uint16_t>& out) {
    if (!CanRunMasterOperation()) return false;
    Bytes data;
    PutWord(data, fifoAddress);
    Bytes response;
    if (!RunOperation(unitId, 0x18, data, "ReadFifoQueue", response)) return false;
    // Counted from the unit-id byte: 0 for RTU, 6 behind the MBAP header for TCP.
    const size_t base = IsTcp() ? 6 : 0;
    if (response.size() < base + 7) return false;
    const uint16_t fifoCount = WordAt(response, base + 4);
    out.clear();
    for (size_t i = 0; i < fifoCount && base + 6 + 1 + 2 * i < response.size(); ++i) {
        out.push_back(WordAt(response, base + 6 + 2 * i));
    }
    return true;
}
