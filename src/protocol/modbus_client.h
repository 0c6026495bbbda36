#pragma once
// The connection object: one Modbus TCP or RTU connection in the master role, or the owner of a
// slave server (TCP listener or serial port) in the slave role. Master operations take no lock and
// are used by one thread at a time; `connected` and `running` are atomic because Disconnect may run
// on another thread than the slave server.
#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/net.h"
#include "platform/serial.h"
#include "protocol/frame_codec.h"
#include "slave/slave_register_image.h"

// The kinds of connection. The window only ever sets TCP or RTU; RTU over TCP (the RTU frame, CRC
// included, on a TCP socket, as serial-to-Ethernet gateways forward it) comes from kestrel-cli.
inline constexpr int32_t kTransportTcp = 0;
inline constexpr int32_t kTransportRtu = 1;
inline constexpr int32_t kTransportRtuOverTcp = 2;

struct ConnectionConfig {
    int32_t transport = 0;  // kTransportTcp (0), kTransportRtu (any other value), kTransportRtuOverTcp
    int32_t role = 0;       // 0 = master, non-zero = slave
    std::string ipAddress = "127.0.0.1";
    uint16_t port = 502;
    std::string serialPort = "COM1";
    uint32_t baudRate = 9600;
    uint8_t dataBits = 8;
    uint8_t stopBits = 1;
    char parity = 'N';
    uint8_t unitId = 1;  // the slave's own unit id
};

// Why the last master transaction failed below the Modbus level (see LastTransportFailure).
enum class TransportFailure {
    None,
    Timeout,         // the peer stayed silent (or stopped mid-frame) past the receive time-out
    ConnectionLost,  // the peer closed the TCP connection, or the socket failed
    CrcError,        // an RTU-over-TCP response whose CRC does not match
};

// What the slave is about to send for one request: the request as it came and the response frame
// as built (MBAP or RTU with its CRC). A response filter (the command line's fault simulator) may
// change the frame, or keep it back, before it goes out.
struct SlaveAnswer {
    bool isTcp = false;
    SOCKET client = INVALID_SOCKET;
    const Modbus::Bytes* request = nullptr;  // null when a response is sent outside a request
    Modbus::Bytes frame;
};
enum class SlaveAnswerAction {
    Send,             // send the (possibly changed) frame
    Withhold,         // send nothing
    CloseConnection,  // send nothing and end the TCP client's connection
};

class ModbusClient {
public:
    using LogCallback = std::function<void(const std::string&)>;
    using RegisterChangedCallback = std::function<void(uint16_t, const std::vector<uint16_t>&)>;
    using CoilsChangedCallback = std::function<void(uint16_t, const std::vector<bool>&)>;
    using ResponseFilter = std::function<SlaveAnswerAction(SlaveAnswer&)>;

    ModbusClient();
    ~ModbusClient();
    ModbusClient(const ModbusClient&) = delete;
    ModbusClient& operator=(const ModbusClient&) = delete;

    bool Connect(const ConnectionConfig& config);
    void Disconnect();
    bool IsConnected() const { return connected.load(); }
    void SetLogCallback(LogCallback callback) { onLog = std::move(callback); }
    const ConnectionConfig& Config() const { return config; }

    // Master operations; true when a valid, non-exception response came.
    bool ReadCoils(uint8_t unitId, uint16_t address, uint16_t count, std::vector<bool>& out);
    bool ReadDiscreteInputs(uint8_t unitId, uint16_t address, uint16_t count, std::vector<bool>& out);
    bool ReadHoldingRegisters(uint8_t unitId, uint16_t address, uint16_t count, std::vector<uint16_t>& out);
    bool ReadInputRegisters(uint8_t unitId, uint16_t address, uint16_t count, std::vector<uint16_t>& out);
    bool WriteSingleCoil(uint8_t unitId, uint16_t address, bool value);
    bool WriteSingleRegister(uint8_t unitId, uint16_t address, uint16_t value);
    bool WriteMultipleCoils(uint8_t unitId, uint16_t address, const std::vector<bool>& values);
    bool WriteMultipleRegisters(uint8_t unitId, uint16_t address, const std::vector<uint16_t>& values);
    bool ReadWriteMultipleRegisters(uint8_t unitId, uint16_t readAddress, uint16_t readCount, uint16_t writeAddress,
                                    const std::vector<uint16_t>& values, std::vector<uint16_t>& out);
    bool ReadFifoQueue(uint8_t unitId, uint16_t fifoAddress, std::vector<uint16_t>& out);

    // Framing. BuildTcpRequest consumes the next transaction id.
    Modbus::Bytes BuildTcpRequest(uint8_t unitId, uint8_t functionCode, const Modbus::Bytes& data);
    uint32_t TransactionCounter() const { return transactionCounter; }

    // Transports.
    bool TcpSend(SOCKET s, const uint8_t* data, size_t length);
    bool TcpRecvExact(SOCKET s, Modbus::Bytes& out, size_t n);
    bool TcpTransaction(const Modbus::Bytes& request, Modbus::Bytes& response);
    bool RtuSend(const uint8_t* data, size_t length);
    bool RtuRecv(Modbus::Bytes& out);
    bool RtuTransaction(const Modbus::Bytes& request, Modbus::Bytes& response);
    // RTU over TCP: the RTU request sent with TcpSend; the response read from the socket until the
    // function code says it is complete, then its CRC checked (one RX line for the whole frame).
    bool RtuOverTcpTransaction(const Modbus::Bytes& request, Modbus::Bytes& response);
    // The receive time-out of a master connection (3000 ms on a socket after Connect; 1000 ms +
    // 10 ms per byte on a serial port), for callers such as the scanner that wait less for a
    // silent device. On a serial port the 50 ms gap that ends a frame stays.
    void SetResponseTimeout(uint32_t milliseconds);
    // What the last master operation ended with: the exception code of an exception response (0
    // when there was none) and the transport's failure (None when a response came).
    uint8_t LastExceptionCode() const { return lastExceptionCode; }
    TransportFailure LastTransportFailure() const { return lastFailure; }
    platform::SerialHandle OpenSerialPort(const std::string& name, uint32_t baud, uint8_t dataBits,
                                          uint8_t stopBits, char parity);

    // Slave role: the image, its options and the change notifications.
    SlaveRegisterImage& Image() { return image; }
    void SetRegisterChangedCallback(RegisterChangedCallback callback) { registerChanged = std::move(callback); }
    void SetCoilsChangedCallback(CoilsChangedCallback callback) { coilsChanged = std::move(callback); }
    // Set before Connect; runs on the server thread for every response, after the response delay.
    // Without one (the window never sets one) the slave sends exactly what it built.
    void SetResponseFilter(ResponseFilter filter) { responseFilter = std::move(filter); }
    uint32_t responseDelayMs = 0;
    bool exceptionInjectionEnabled = false;
    uint8_t exceptionInjectionCode = 4;
    uint16_t exceptionInjectionFrom = 0;
    uint16_t exceptionInjectionTo = 65535;

    bool IsInjectedAddress(uint16_t address) const;
    void ProcessRequest(const Modbus::Bytes& frame, SOCKET client);
    void SendResponse(bool isTcp, SOCKET client, uint16_t transactionId, uint8_t unitId, uint8_t functionCode,
                      const Modbus::Bytes& data);
    void SendException(bool isTcp, SOCKET client, uint16_t transactionId, uint8_t unitId, uint8_t functionCode,
                       uint8_t exceptionCode);
    // A client session of the TCP slave: request after request from an accepted client, each
    // answered before the next is taken, until its stream ends or fails (the idle time-out
    // included) or the slave stops. The server thread runs it for every client it accepts.
    void ServeTcpClient(SOCKET client);
    // The same for the RTU-over-TCP slave: RTU frames on the accepted socket, each one's end found
    // from its function code; a wrong CRC is logged and the bytes received so far are dropped.
    void ServeRtuOverTcpClient(SOCKET client);
    // One read of the RTU slave's line and what follows it: a frame too short or with a wrong CRC
    // is dropped (the latter logged), one for another unit id ignored, any other answered. False
    // when the read brought nothing (it timed out empty or failed). The server thread runs it
    // until the slave stops.
    bool ServeNextRtuFrame();
    // The TCP port the slave listens on (useful when it was started on port 0).
    uint16_t ListeningPort() const { return platform::LocalPort(sockets[1]); }

private:
    // Bytes read from a TCP socket and not yet taken. A receive takes whatever has arrived, so a
    // whole response (or request) usually costs one recv; what is left waits for the next frame.
    struct TcpReceiveBuffer {
        uint8_t data[1024];
        size_t begin = 0;
        size_t end = 0;
    };
    // Appends exactly n bytes of the stream to `out`: TcpRecvExact's receive with its RX and
    // error lines, served from the buffer first.
    bool TcpReceive(SOCKET s, TcpReceiveBuffer& buffer, Modbus::Bytes& out, size_t n);

    bool ConnectTcpMaster();
    bool OpenSerialMaster();
    bool StartTcpSlave();
    bool StartRtuSlave();
    bool StartRtuOverTcpSlave();
    void TcpServerLoop();
    void RtuServerLoop();

    // Runs one request/response exchange on the current transport.
    bool Transact(const Modbus::Bytes& request, Modbus::Bytes& response);
    // The common steps of every master operation: frame the request, exchange it, test for an
    // exception. `name` gives the failure text ("ReadCoils failed.").
    bool RunOperation(uint8_t unitId, uint8_t functionCode, const Modbus::Bytes& data, const char* name,
                      Modbus::Bytes& response);
    bool ReadRegisterWords(const Modbus::Bytes& response, std::vector<uint16_t>& out) const;
    // MBAP framing. RTU over TCP frames (and reads responses) as RTU does.
    bool IsTcp() const { return config.transport == kTransportTcp; }
    bool IsRtuOverTcp() const { return config.transport == kTransportRtuOverTcp; }
    // The socket-based transports: TCP and RTU over TCP.
    bool UsesSocket() const { return IsTcp() || IsRtuOverTcp(); }
    // Appends exactly n bytes of the stream to `out` without an RX line; sets `lastFailure`.
    bool TcpReceiveQuiet(SOCKET s, TcpReceiveBuffer& buffer, Modbus::Bytes& out, size_t n);
    // Drops what is left of an earlier, failed exchange: the buffered bytes and whatever is already
    // waiting on the socket, so that a late answer is not read as the next response.
    void DiscardStaleBytes(SOCKET s, TcpReceiveBuffer& buffer);
    bool CanRunMasterOperation() const { return connected.load() && config.role == 0; }
    void Log(const std::string& line) const;
    // "TX: "/"RX: " and the hex dump, formatted only when a log callback listens.
    void LogFrame(const char* prefix, const uint8_t* data, size_t length) const;
    void Log(const char* english, const char* german) const;
    std::string Text(const char* english, const char* german) const;

    // master, listen, client. The slave thread and Disconnect hand the client socket over under
    // `socketMutex`: whoever takes a socket out (sets its slot invalid) closes it, and Disconnect
    // only interrupts the sockets the thread is blocked on, closing them after the join.
    std::atomic<SOCKET> sockets[3] = {INVALID_SOCKET, INVALID_SOCKET, INVALID_SOCKET};
    std::mutex socketMutex;
    platform::SerialHandle serialHandle;
    ConnectionConfig config;
    std::atomic<bool> connected{false};
    std::atomic<bool> running{false};
    std::thread serverThread;
    uint32_t transactionCounter = 0;
    TcpReceiveBuffer masterReceive;
    // Set after an RTU-over-TCP exchange that failed part-way; the next one discards stale bytes.
    bool rtuOverTcpStale = false;
    uint8_t lastExceptionCode = 0;
    TransportFailure lastFailure = TransportFailure::None;
    // The peer as the trace frames carry it, made once per Connect.
    std::string tracePeerText;
    uint32_t tracePeerAddress = 0;
    SlaveRegisterImage image;
    LogCallback onLog;
    RegisterChangedCallback registerChanged;
    CoilsChangedCallback coilsChanged;
    ResponseFilter responseFilter;
    // The request ProcessRequest is answering, for the response filter.
    const Modbus::Bytes* requestBeingAnswered = nullptr;
};
