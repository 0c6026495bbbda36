#include "platform/serial.h"

#include "platform/win32/serial_dcb.h"

namespace platform {

void ApplyLineSettings(DCB& dcb, uint32_t baud, uint8_t dataBits, uint8_t stopBits, char parity) {
    dcb.BaudRate = baud;
    dcb.ByteSize = dataBits;
    dcb.StopBits = stopBits == 2 ? TWOSTOPBITS : ONESTOPBIT;
    dcb.Parity = parity == 'E' ? EVENPARITY : parity == 'O' ? ODDPARITY : NOPARITY;
    dcb.fBinary = 1;
    dcb.fParity = parity != 'N' ? 1 : 0;
    dcb.fOutxCtsFlow = 0;
    dcb.fOutxDsrFlow = 0;
    dcb.fDtrControl = DTR_CONTROL_ENABLE;
    dcb.fRtsControl = RTS_CONTROL_ENABLE;
    dcb.fOutX = 0;
    dcb.fInX = 0;
}

SerialHandle InvalidSerialHandle() { return INVALID_HANDLE_VALUE; }

SerialHandle OpenSerial(const std::string& name, uint32_t baud, uint8_t dataBits, uint8_t stopBits, char parity) {
    // The device-namespace prefix lets COM10 and above open.
    const std::string path = "\\\\.\\" + name;
    HANDLE h = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr);
    if (h == INVALID_HANDLE_VALUE) return h;

    DCB dcb;
    ZeroMemory(&dcb, sizeof dcb);
    dcb.DCBlength = sizeof dcb;
    GetCommState(h, &dcb);
    ApplyLineSettings(dcb, baud, dataBits, stopBits, parity);
    SetCommState(h, &dcb);

    COMMTIMEOUTS timeouts;
    ZeroMemory(&timeouts, sizeof timeouts);
    timeouts.ReadIntervalTimeout = 50;
    timeouts.ReadTotalTimeoutMultiplier = 10;
    timeouts.ReadTotalTimeoutConstant = 1000;
    timeouts.WriteTotalTimeoutMultiplier = 10;
    timeouts.WriteTotalTimeoutConstant = 1000;
    SetCommTimeouts(h, &timeouts);
    PurgeComm(h, PURGE_TXCLEAR | PURGE_RXCLEAR);
    return h;
}

bool SerialWrite(SerialHandle h, const uint8_t* data, size_t length, size_t& written) {
    DWORD count = 0;
    const BOOL ok = WriteFile(h, data, static_cast<DWORD>(length), &count, nullptr);
    written = count;
    return ok != FALSE;
}

bool SerialRead(SerialHandle h, uint8_t* data, size_t capacity, size_t& received) {
    DWORD count = 0;
    const BOOL ok = ReadFile(h, data, static_cast<DWORD>(capacity), &count, nullptr);
    received = count;
    return ok != FALSE;
}

void SerialSetReadTimeout(SerialHandle h, uint32_t totalMs) {
    COMMTIMEOUTS timeouts;
    ZeroMemory(&timeouts, sizeof timeouts);
    timeouts.ReadIntervalTimeout = 50;
    timeouts.ReadTotalTimeoutMultiplier = 0;
    timeouts.ReadTotalTimeoutConstant = totalMs;
    timeouts.WriteTotalTimeoutMultiplier = 10;
    timeouts.WriteTotalTimeoutConstant = 1000;
    SetCommTimeouts(h, &timeouts);
}

bool SerialReadAvailable(SerialHandle h, uint8_t* data, size_t capacity, uint32_t waitMs, size_t& received) {
    // MAXDWORD interval and multiplier with a constant: ReadFile returns as soon as a byte is there,
    // with everything buffered, or after the constant with nothing. The port keeps these time-outs;
    // only a listener, which never calls SerialRead, uses this.
    COMMTIMEOUTS timeouts;
    ZeroMemory(&timeouts, sizeof timeouts);
    timeouts.ReadIntervalTimeout = MAXDWORD;
    timeouts.ReadTotalTimeoutMultiplier = MAXDWORD;
    timeouts.ReadTotalTimeoutConstant = waitMs == 0 ? 1 : waitMs;
    timeouts.WriteTotalTimeoutMultiplier = 10;
    timeouts.WriteTotalTimeoutConstant = 1000;
    SetCommTimeouts(h, &timeouts);
    DWORD count = 0;
    const BOOL ok = ReadFile(h, data, static_cast<DWORD>(capacity), &count, nullptr);
    received = count;
    return ok != FALSE;
}

void SerialPurge(SerialHandle h, bool receive, bool transmit) {
    DWORD flags = 0;
    if (receive) flags |= PURGE_RXCLEAR;
    if (transmit) flags |= PURGE_TXCLEAR;
    PurgeComm(h, flags);
}

void SerialCancel(SerialHandle h) { CancelIoEx(h, nullptr); }

void SerialClose(SerialHandle h) { CloseHandle(h); }

}  // namespace platform
