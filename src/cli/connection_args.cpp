#include "cli/connection_args.h"

#include "cli/command.h"

namespace cli {
namespace {

bool IsDottedIpv4(const std::string& text) {
    int parts = 0;
    size_t i = 0;
    while (i <= text.size()) {
        size_t end = text.find('.', i);
        if (end == std::string::npos) end = text.size();
        const std::string part = text.substr(i, end - i);
        if (part.empty() || part.size() > 3) return false;
        for (char c : part)
            if (c < '0' || c > '9') return false;
        if (std::stoi(part) > 255) return false;
        ++parts;
        i = end + 1;
    }
    return parts == 4;
}

}  // namespace

void ParseTcpEndpoint(const std::string& text, ConnectionConfig& config) {
    std::string host = text;
    const size_t colon = text.rfind(':');
    if (colon != std::string::npos) {
        host = text.substr(0, colon);
        config.port = static_cast<uint16_t>(ParseUnsigned(text.substr(colon + 1), "the TCP port", 1, 65535));
    }
    if (host == "localhost") host = "127.0.0.1";
    if (!IsDottedIpv4(host)) throw UsageError("the host must be a dotted IPv4 address, not '" + host + "'");
    config.ipAddress = host;
}

void TakeSerialLineOptions(std::vector<std::string>& args, ConnectionConfig& config) {
    config.baudRate = 9600;
    config.dataBits = 8;
    config.stopBits = 1;
    config.parity = 'N';
    if (auto baud = TakeOption(args, "--baud")) {
        config.baudRate = static_cast<uint32_t>(ParseUnsigned(*baud, "--baud", 1, 4000000));
    }
    if (auto parity = TakeOption(args, "--parity")) {
        if (*parity != "N" && *parity != "E" && *parity != "O") {
            throw UsageError("--parity must be N, E or O, not '" + *parity + "'");
        }
        config.parity = (*parity)[0];
    }
    if (auto stop = TakeOption(args, "--stop-bits")) {
        config.stopBits = static_cast<uint8_t>(ParseUnsigned(*stop, "--stop-bits", 1, 2));
    }
}

ConnectionConfig TakeMasterConnection(std::vector<std::string>& args) {
    ConnectionConfig config;
    config.role = 0;
    const auto tcp = TakeOption(args, "--tcp");
    const auto rtu = TakeOption(args, "--rtu");
    const auto rtuOverTcp = TakeOption(args, "--rtu-over-tcp");
    if (rtuOverTcp && (tcp || rtu)) throw UsageError("give only one of --tcp, --rtu and --rtu-over-tcp");
    if (tcp && rtu) throw UsageError("give either --tcp or --rtu, not both");
    if (!tcp && !rtu && !rtuOverTcp) throw UsageError("a connection is needed: --tcp HOST[:PORT] or --rtu DEVICE");
    if (tcp || rtuOverTcp) {
        config.transport = tcp ? kTransportTcp : kTransportRtuOverTcp;
        config.port = 502;
        ParseTcpEndpoint(tcp ? *tcp : *rtuOverTcp, config);
        for (const char* serialOnly : {"--baud", "--parity", "--stop-bits"}) {
            if (TakeOption(args, serialOnly)) {
                // The line settings of a gateway's serial side are the gateway's, not ours.
                throw UsageError(std::string(serialOnly) + " belongs to --rtu");
            }
        }
    } else {
        config.transport = kTransportRtu;
        config.serialPort = *rtu;
        TakeSerialLineOptions(args, config);
    }
    return config;
}

}  // namespace cli
