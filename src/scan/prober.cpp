// The scanner's connection: one read per probe through the master operations, the request count,
// and one reconnect per probe when a TCP peer (or an RTU-over-TCP gateway) closed the connection.
#include "common/localizer.h"
#include "scan/scanner.h"

namespace scan {

Prober::Prober(ModbusClient& client, const ConnectionConfig& config, uint32_t timeoutMs,
               ModbusClient::LogCallback connectionLog, ModbusClient::LogCallback probeLog)
    : client_(client),
      config_(config),
      timeoutMs_(timeoutMs),
      connectionLog_(std::move(connectionLog)),
      probeLog_(std::move(probeLog)) {
    // The lines of a probe and those of the connection go to different places; the probe's are
    // many (a scan of 247 ids makes hundreds) and the caller may not want them.
    client_.SetLogCallback([this](const std::string& line) {
        const ModbusClient::LogCallback& to = inProbe_ ? probeLog_ : connectionLog_;
        if (to) to(line);
    });
}

Prober::~Prober() { client_.SetLogCallback(nullptr); }

bool Prober::Connect() {
    if (!client_.Connect(config_)) return false;
    client_.SetResponseTimeout(timeoutMs_);
    return true;
}

void Prober::Disconnect() { client_.Disconnect(); }

ProbeAnswer Prober::ReadOnce(uint8_t unit, uint8_t functionCode, uint16_t address, uint16_t count) {
    ProbeAnswer answer;
    std::vector<bool> bits;
    bool ok = false;
    inProbe_ = true;
    ++requests_;
    switch (functionCode) {
        case 1: ok = client_.ReadCoils(unit, address, count, bits); break;
        case 2: ok = client_.ReadDiscreteInputs(unit, address, count, bits); break;
        case 4: ok = client_.ReadInputRegisters(unit, address, count, answer.values); break;
        default: ok = client_.ReadHoldingRegisters(unit, address, count, answer.values); break;
    }
    inProbe_ = false;
    if (ok) {
        answer.kind = ProbeAnswer::Kind::Values;
        if (functionCode == 1 || functionCode == 2) answer.values.assign(bits.begin(), bits.end());
        return answer;
    }
    answer.values.clear();
    if (client_.LastExceptionCode() != 0) {
        answer.kind = ProbeAnswer::Kind::Exception;
        answer.exceptionCode = client_.LastExceptionCode();
        return answer;
    }
    // A time-out, a CRC error, or a response too short to read: nothing usable came.
    answer.kind = client_.LastTransportFailure() == TransportFailure::ConnectionLost ? ProbeAnswer::Kind::ConnectionFailed
                                                                                  : ProbeAnswer::Kind::Silent;
    return answer;
}

bool Prober::Reconnect(uint8_t unit) {
    const std::string text = Localizer::Text(Localizer::Scope::Connection,
                                             "Scan: the peer closed the connection at unit ",
                                             "Scan: Gegenstelle hat die Verbindung geschlossen bei Unit ") +
                             std::to_string(unit) +
                             Localizer::Text(Localizer::Scope::Connection, ", reconnecting ...", ", verbinde neu ...");
    if (connectionLog_) connectionLog_(text);
    return Connect();
}

ProbeAnswer Prober::Read(uint8_t unit, uint8_t functionCode, uint16_t address, uint16_t count) {
    ProbeAnswer answer = ReadOnce(unit, functionCode, address, count);
    if (answer.kind != ProbeAnswer::Kind::ConnectionFailed) return answer;
    // Only a socket can be made again; a serial port that fails stays failed.
    if (config_.transport == kTransportTcp || config_.transport == kTransportRtuOverTcp) {
        if (!Reconnect(unit)) return answer;
        answer = ReadOnce(unit, functionCode, address, count);
        // Lost again at once: this probe had its reconnect; the next probe gets one of its own.
        if (answer.kind == ProbeAnswer::Kind::ConnectionFailed) answer.kind = ProbeAnswer::Kind::Silent;
        return answer;
    }
    answer.kind = ProbeAnswer::Kind::Silent;
    return answer;
}

}  // namespace scan
