// The connection object's life: construction, connect in either role, disconnect, logging.
#include "common/localizer.h"
#include "protocol/modbus_client.h"
#include "protocol/trace_log.h"

ModbusClient::ModbusClient() : serialHandle(platform::InvalidSerialHandle()) { platform::NetStartup(); }

ModbusClient::~ModbusClient() {
    Disconnect();
    platform::NetCleanup();
}

bool ModbusClient::Connect(const ConnectionConfig& newConfig) {
    if (connected.load()) Disconnect();
    config = newConfig;
    masterReceive = TcpReceiveBuffer{};
    rtuOverTcpStale = false;
    const bool socketBased = config.transport == kTransportTcp || config.transport == kTransportRtuOverTcp;
    tracePeerText = socketBased ? config.ipAddress + ":" + std::to_string(config.port) : config.serialPort;
    tracePeerAddress = socketBased ? Modbus::ParseIpv4Address(config.ipAddress) : 0;
    bool ok = false;
    if (config.transport == kTransportTcp) {
        ok = config.role == 0 ? ConnectTcpMaster() : StartTcpSlave();
    } else if (config.transport == kTransportRtuOverTcp) {
        // The master connects exactly as over TCP; only the framing differs.
        ok = config.role == 0 ? ConnectTcpMaster() : StartRtuOverTcpSlave();
    } else {
        ok = config.role == 0 ? OpenSerialMaster() : StartRtuSlave();
    }
    if (ok) {
        connected.store(true);
        Log("Connected.", "Verbunden.");
    }
    return ok;
}

void ModbusClient::Disconnect() {
    running.store(false);
    connected.store(false);
    if (serverThread.joinable()) {
        // Break a blocked accept or recv (closing the sockets only where that is the one way) and a
        // pending serial read, then wait for the thread.
        {
            std::lock_guard<std::mutex> lock(socketMutex);
            for (int i : {1, 2}) {
                const SOCKET s = sockets[i].load();
                if (s != INVALID_SOCKET && platform::InterruptSocket(s)) sockets[i].store(INVALID_SOCKET);
            }
        }
        if (platform::IsValid(serialHandle)) platform::SerialCancel(serialHandle);
        serverThread.join();
    }
    for (auto& s : sockets) {
        const SOCKET open = s.exchange(INVALID_SOCKET);
        if (open != INVALID_SOCKET) platform::CloseSocket(open);
    }
    if (platform::IsValid(serialHandle)) {
        platform::SerialClose(serialHandle);
        serialHandle = platform::InvalidSerialHandle();
    }
    Log("Disconnected.", "Getrennt.");
}

bool ModbusClient::ConnectTcpMaster() {
    SOCKET s = platform::TcpSocket();
    if (s == INVALID_SOCKET) {
        Log("Socket creation failed.", "Socket-Erstellung fehlgeschlagen.");
        return false;
    }
    // A fixed 3000 ms for every send and receive of the master; not a setting.
    platform::SetReceiveTimeout(s, 3000);
    platform::SetSendTimeout(s, 3000);
    platform::SetNoDelay(s);
    Log(Text("Connecting to ", "Verbinde mit ") + config.ipAddress + ":" + std::to_string(config.port) + " ...");
    if (!platform::ConnectIpv4(s, config.ipAddress, config.port)) {
        Log(Text("TCP connection failed: ", "TCP-Verbindung fehlgeschlagen: ") +
            std::to_string(platform::LastSocketError()));
        platform::CloseSocket(s);
        sockets[0] = INVALID_SOCKET;
        return false;
    }
    sockets[0] = s;
    return true;
}

bool ModbusClient::OpenSerialMaster() {
    Log(Text("Opening ", "Oeffne ") + config.serialPort + " @ " + std::to_string(config.baudRate) + " Baud ...");
    serialHandle = OpenSerialPort(config.serialPort, config.baudRate, config.dataBits, config.stopBits, config.parity);
    if (!platform::IsValid(serialHandle)) {
        Log("Could not open serial port.", "Seriellen Port konnte nicht geoeffnet werden.");
        return false;
    }
    return true;
}

platform::SerialHandle ModbusClient::OpenSerialPort(const std::string& name, uint32_t baud, uint8_t dataBits,
                                                    uint8_t stopBits, char parity) {
    return platform::OpenSerial(name, baud, dataBits, stopBits, parity);
}

std::string ModbusClient::Text(const char* english, const char* german) const {
    return Localizer::Text(Localizer::Scope::Connection, english, german);
}

void ModbusClient::Log(const std::string& line) const {
    if (onLog) onLog(line);
}

void ModbusClient::LogFrame(const char* prefix, const uint8_t* data, size_t length) const {
    if (!onLog) return;
    std::string line;
    line.reserve(4 + 3 * length);
    line += prefix;
    AppendHexDump(line, data, length);
    onLog(line);
}

void ModbusClient::Log(const char* english, const char* german) const { Log(Text(english, german)); }
