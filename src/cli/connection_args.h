#pragma once
// The CONN part of the master commands:  --tcp HOST[:PORT]  or  --rtu DEVICE [--baud N]
// [--parity N|E|O] [--stop-bits 1|2]  or  --rtu-over-tcp HOST[:PORT] (RTU frames over TCP).
#include <string>
#include <vector>

#include "protocol/modbus_client.h"

// The help lines of the CONN options, for the help texts of the commands that take CONN.
#define KESTREL_CLI_CONNECTION_HELP \
    "  --tcp HOST[:PORT]      Modbus TCP to a dotted IPv4 address (or localhost); port 502 unless given\n" \
    "  --rtu DEVICE           Modbus RTU on a serial port (/dev/ttyUSB0, COM3), 8 data bits\n" \
    "  --baud N               with --rtu: the baud rate; default 9600\n" \
    "  --parity N|E|O         with --rtu: no, even or odd parity; default N\n" \
    "  --stop-bits 1|2        with --rtu: the stop bits; default 1\n"                                           \
    "  --rtu-over-tcp HOST[:PORT]  RTU frames over TCP, as serial-to-Ethernet gateways forward them; port 502\n"

namespace cli {

// Takes the connection options out of `args` into a master ConnectionConfig; UsageError when
// none or more than one of --tcp, --rtu and --rtu-over-tcp is given, or a value is out of range.
ConnectionConfig TakeMasterConnection(std::vector<std::string>& args);

// Takes --baud, --parity and --stop-bits into `config` (defaults 9600, N, 1; 8 data bits).
void TakeSerialLineOptions(std::vector<std::string>& args, ConnectionConfig& config);

// "HOST[:PORT]" with a dotted IPv4 address (or "localhost"); the port defaults to 502.
void ParseTcpEndpoint(const std::string& text, ConnectionConfig& config);

}  // namespace cli
