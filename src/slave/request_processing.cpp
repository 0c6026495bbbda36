// One request of a remote master: decode the frame, act on the image, answer. The slave is lenient
// on purpose, because masters in the field send requests a strict slave would refuse: read
// quantities are clamped, a quantity of 0 gets an empty payload, no address is refused unless
// exception injection says so, and a PDU too short for its function code is dropped unanswered.
#include <algorithm>
#include <string>

#include "common/localizer.h"
#include "platform/clock.h"
#include "protocol/modbus_client.h"

namespace {

constexpr uint16_t kMaxReadBits = 2000;
constexpr uint16_t kMaxReadRegisters = 125;
constexpr uint8_t kIllegalFunction = 1;

// A request taken apart: the same fields for both framings.
struct Request {
    bool isTcp = false;
    uint16_t transactionId = 0;
    uint8_t unitId = 0;
    uint8_t functionCode = 0;
    Modbus::Bytes pdu;  // the PDU data after the function code
};

uint16_t Word(const Modbus::Bytes& bytes, size_t at) {
    return static_cast<uint16_t>((bytes[at] << 8) | bytes[at + 1]);
}

// False for a frame too short to carry a unit id and a function code.
bool DecodeFrame(const Modbus::Bytes& frame, bool isTcp, Request& request) {
    request.isTcp = isTcp;
    if (isTcp) {
        // The protocol id and the MBAP length are not checked; the server loop already framed it.
        if (frame.size() < 8) return false;
        request.transactionId = Word(frame, 0);
        request.unitId = frame[6];
        request.functionCode = frame[7];
        request.pdu.assign(frame.begin() + 8, frame.end());
    } else {
        // The CRC was checked by the server loop; it is left off the PDU.
        if (frame.size() < 4) return false;
        request.unitId = frame[0];
        request.functionCode = frame[1];
        request.pdu.assign(frame.begin() + 2, frame.end() - 2);
    }
    return true;
}

// The shortest PDU data each function code needs; FC15 and FC16 also need their byte count's
// worth of data after the fixed five bytes.
bool IsLongEnough(uint8_t functionCode, const Modbus::Bytes& pdu) {
    if (functionCode == 15 || functionCode == 16) return pdu.size() >= 5 && pdu.size() >= 5u + pdu[4];
    return pdu.size() >= 4;
}

bool IsSupported(uint8_t functionCode) {
    return (functionCode >= 1 && functionCode <= 6) || functionCode == 15 || functionCode == 16;
}

std::string HexLower(uint8_t value) {
    static const char digits[] = "0123456789abcdef";
    std::string text;
    if (value >= 16) text.push_back(digits[value >> 4]);
    text.push_back(digits[value & 0x0F]);
    return text;
}

// Read responses: the byte count, then the data the image appends. The byte count of a register
// read is 2 x count in 8 bits.
template <typename AppendData>
Modbus::Bytes ReadResponse(size_t byteCount, AppendData appendData) {
    Modbus::Bytes data;
    data.reserve(1 + byteCount);
    data.push_back(static_cast<uint8_t>(byteCount & 0xFF));
    appendData(data);
    return data;
}

// FC15: coil i is bit (i mod 8) of data byte i / 8. A quantity larger than the bytes supplied
// reads the missing bits as 0; the quantity is not compared with the byte count. The image takes
// the packed bytes itself (SetCoilsPacked, the same rule); this list is for the change callback.
std::vector<bool> CoilsFromRequest(const Modbus::Bytes& pdu, uint16_t quantity) {
    std::vector<bool> bits(quantity, false);
    const size_t byteCount = pdu[4];
    for (size_t i = 0; i < quantity; ++i) {
        const size_t byteIndex = i / 8;
        if (byteIndex >= byteCount) break;
        bits[i] = ((pdu[5 + byteIndex] >> (i % 8)) & 1) != 0;
    }
    return bits;
}

// FC16: as many registers as the byte count holds, rounded up, whatever the quantity says. The
// low byte of a register cut short by an odd byte count is taken from the next PDU byte when there
// is one, else 0.
std::vector<uint16_t> RegistersFromRequest(const Modbus::Bytes& pdu) {
    const size_t byteCount = pdu[4];
    std::vector<uint16_t> values((byteCount + 1) / 2);
    for (size_t i = 0; i < values.size(); ++i) {
        const size_t at = 5 + 2 * i;
        const uint8_t low = at + 1 < pdu.size() ? pdu[at + 1] : 0;
        values[i] = static_cast<uint16_t>((pdu[at] << 8) | low);
    }
    return values;
}

}  // namespace

bool ModbusClient::IsInjectedAddress(uint16_t address) const {
    return exceptionInjectionEnabled && exceptionInjectionFrom <= address && address <= exceptionInjectionTo;
}

void ModbusClient::ProcessRequest(const Modbus::Bytes& frame, SOCKET client) {
    // The response filter is told which request a response answers, while this one runs.
    requestBeingAnswered = &frame;
    struct ClearOnReturn {
        const Modbus::Bytes*& slot;
        ~ClearOnReturn() { slot = nullptr; }
    } clearOnReturn{requestBeingAnswered};
    Request request;
    // A frame from an accepted socket is MBAP-framed, except on the RTU-over-TCP slave.
    if (!DecodeFrame(frame, client != INVALID_SOCKET && !IsRtuOverTcp(), request)) return;
    // Unit 0 is answered like the own unit id, with a response that carries 0.
    if (request.unitId != config.unitId && request.unitId != 0) return;

    const uint8_t fc = request.functionCode;
    const auto respond = [&](const Modbus::Bytes& data) {
        SendResponse(request.isTcp, client, request.transactionId, request.unitId, fc, data);
    };
    if (!IsSupported(fc)) {
        Log(Text("Slave: Unknown FC 0x", "Slave: Unbekannter FC 0x") + HexLower(fc) + " -> Exception");
        SendException(request.isTcp, client, request.transactionId, request.unitId, fc, kIllegalFunction);
        return;
    }
    const Modbus::Bytes& pdu = request.pdu;
    if (!IsLongEnough(fc, pdu)) return;
    const uint16_t start = Word(pdu, 0);
    const uint16_t quantity = Word(pdu, 2);  // the value field for FC05 and FC06
    if (IsInjectedAddress(start)) {
        SendException(request.isTcp, client, request.transactionId, request.unitId, fc, exceptionInjectionCode);
        return;
    }
    // The first four PDU bytes, which the write responses echo.
    const auto echo = [&pdu] { return Modbus::Bytes(pdu.begin(), pdu.begin() + 4); };

    switch (fc) {
        case 1: {
            const uint16_t count = std::min(quantity, kMaxReadBits);
            respond(ReadResponse((count + 7u) / 8u, [&](Modbus::Bytes& d) { image.AppendCoilsPacked(start, count, d); }));
            if (onLog) {
                Log(Text("Slave: FC01 Coils read from ", "Slave: FC01 Coils gelesen ab ") + std::to_string(start) +
                    ", n=" + std::to_string(count));
            }
            break;
        }
        case 2: {
            const uint16_t count = std::min(quantity, kMaxReadBits);
            respond(ReadResponse((count + 7u) / 8u,
                                 [&](Modbus::Bytes& d) { image.AppendDiscreteInputsPacked(start, count, d); }));
            break;
        }
        case 3: {
            const uint16_t count = std::min(quantity, kMaxReadRegisters);
            respond(ReadResponse(2u * count, [&](Modbus::Bytes& d) { image.AppendHoldingRegisterBytes(start, count, d); }));
            if (onLog) {
                Log(Text("Slave: FC03 read from ", "Slave: FC03 gelesen ab ") + std::to_string(start) + ", n=" +
                    std::to_string(count));
            }
            break;
        }
        case 4: {
            const uint16_t count = std::min(quantity, kMaxReadRegisters);
            respond(ReadResponse(2u * count, [&](Modbus::Bytes& d) { image.AppendInputRegisterBytes(start, count, d); }));
            break;
        }
        case 5: {
            const bool on = quantity == 0xFF00;  // every other value, 0x0000 included, means off
            const std::vector<bool> value{on};
            image.SetCoils(start, value);
            if (coilsChanged) coilsChanged(start, value);
            respond(echo());
            Log("Slave: FC05 Coil " + std::to_string(start) + " = " + (on ? "ON" : "OFF"));
            break;
        }
        case 6: {
            const std::vector<uint16_t> value{quantity};
            image.SetHoldingRegisters(start, value);
            if (registerChanged) registerChanged(start, value);
            respond(echo());
            Log("Slave: FC06 Register " + std::to_string(start) + " = " + std::to_string(quantity));
            break;
        }
        case 15: {
            image.SetCoilsPacked(start, quantity, pdu.data() + 5, pdu[4]);
            if (coilsChanged) coilsChanged(start, CoilsFromRequest(pdu, quantity));
            respond(echo());
            Log("Slave: FC0F " + std::to_string(quantity) + Text(" Coils from ", " Coils ab ") + std::to_string(start));
            break;
        }
        case 16: {
            const std::vector<uint16_t> values = RegistersFromRequest(pdu);
            image.SetHoldingRegisters(start, values);
            if (registerChanged) registerChanged(start, values);
            respond(echo());
            if (onLog) {
                Log(Text("Slave: FC10 written from ", "Slave: FC10 geschrieben ab ") + std::to_string(start) +
                    ", n=" + std::to_string(quantity));
            }
            break;
        }
    }
}

void ModbusClient::SendResponse(bool isTcp, SOCKET client, uint16_t transactionId, uint8_t unitId,
                                uint8_t functionCode, const Modbus::Bytes& data) {
    // A slow device, simulated; applies to exceptions as well.
    if (responseDelayMs != 0) platform::SleepMilliseconds(responseDelayMs);
    Modbus::Bytes frame = isTcp ? BuildTcpFrame(transactionId, unitId, functionCode, data)
                                : BuildRtuRequest(unitId, functionCode, data);
    if (responseFilter) {
        // The one place where a simulator reshapes what goes out; the slave's own paths never see it.
        SlaveAnswer answer{isTcp, client, requestBeingAnswered, std::move(frame)};
        const SlaveAnswerAction action = responseFilter(answer);
        if (action == SlaveAnswerAction::CloseConnection && client != INVALID_SOCKET) {
            platform::ShutdownSocket(client);
        }
        if (action != SlaveAnswerAction::Send) return;
        frame = std::move(answer.frame);
    }
    if (isTcp) {
        TcpSend(client, frame.data(), frame.size());
    } else {
        // The RTU frame goes to the serial line, or to the client socket of the RTU-over-TCP slave.
        if (client != INVALID_SOCKET) {
            TcpSend(client, frame.data(), frame.size());
        } else {
            RtuSend(frame.data(), frame.size());
        }
    }
}

void ModbusClient::SendException(bool isTcp, SOCKET client, uint16_t transactionId, uint8_t unitId,
                                 uint8_t functionCode, uint8_t exceptionCode) {
    SendResponse(isTcp, client, transactionId, unitId, static_cast<uint8_t>(functionCode | 0x80),
                 Modbus::Bytes{exceptionCode});
}
