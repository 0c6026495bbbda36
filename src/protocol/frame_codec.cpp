#include "protocol/frame_codec.h"

using Modbus::Bytes;

Bytes BuildRtuRequest(uint8_t unitId, uint8_t functionCode, const Bytes& data) {
    Bytes frame;
    frame.reserve(data.size() + 4);
    frame.push_back(unitId);
    frame.push_back(functionCode);
    frame.insert(frame.end(), data.begin(), data.end());
    const uint16_t crc = Crc16(frame.data(), frame.size());
    frame.push_back(static_cast<uint8_t>(crc & 0xFF));
    frame.push_back(static_cast<uint8_t>(crc >> 8));
    return frame;
}

Bytes BuildTcpFrame(uint16_t transactionId, uint8_t unitId, uint8_t functionCode, const Bytes& data) {
    const uint16_t length = static_cast<uint16_t>(data.size() + 2);
    Bytes frame;
    frame.reserve(data.size() + 8);
    frame.push_back(static_cast<uint8_t>(transactionId >> 8));
    frame.push_back(static_cast<uint8_t>(transactionId & 0xFF));
    frame.push_back(0x00);
    frame.push_back(0x00);
    frame.push_back(static_cast<uint8_t>(length >> 8));
    frame.push_back(static_cast<uint8_t>(length & 0xFF));
    frame.push_back(unitId);
    frame.push_back(functionCode);
    frame.insert(frame.end(), data.begin(), data.end());
    return frame;
}

uint16_t Crc16(const uint8_t* bytes, size_t length) {
    uint16_t crc = 0xFFFF;
    for (size_t i = 0; i < length; ++i) {
        crc ^= bytes[i];
        for (int bit = 0; bit < 8; ++bit) {
            if (crc & 0x0001) {
                crc = static_cast<uint16_t>((crc >> 1) ^ 0xA001);
            } else {
                crc = static_cast<uint16_t>(crc >> 1);
            }
        }
    }
    return crc;
}

bool HasValidCrc(const Bytes& frame) {
    if (frame.size() < 2) return false;
    const size_t n = frame.size() - 2;
    const uint16_t crc = Crc16(frame.data(), n);
    return frame[n] == (crc & 0xFF) && frame[n + 1] == (crc >> 8);
}

Bytes PackBits(const std::vector<bool>& bits) {
    Bytes packed((bits.size() + 7) / 8, 0);
    for (size_t i = 0; i < bits.size(); ++i) {
        if (bits[i]) packed[i / 8] |= static_cast<uint8_t>(1u << (i % 8));
    }
    return packed;
}

bool UnpackBits(const Bytes& response, bool isTcp, uint16_t count, std::vector<bool>& out) {
    const Modbus::ResponseLayout& layout = Modbus::LayoutFor(isTcp);
    if (response.size() < layout.minimumLength) return false;
    const size_t byteCount = response[layout.byteCount];
    if (response.size() < layout.minimumLength + byteCount) return false;
    out.clear();
    for (size_t i = 0; i < count && i < byteCount * 8; ++i) {
        const uint8_t data = response[layout.firstData + i / 8];
        out.push_back(((data >> (i % 8)) & 1) != 0);
    }
    return true;
}

void AppendHexDump(std::string& text, const uint8_t* bytes, size_t length) {
    static const char kDigits[] = "0123456789ABCDEF";
    if (length == 0) return;
    const size_t at = text.size();
    text.resize(at + length * 3 - 1);
    char* out = text.data() + at;
    for (size_t i = 0; i < length; ++i) {
        if (i > 0) *out++ = ' ';
        *out++ = kDigits[bytes[i] >> 4];
        *out++ = kDigits[bytes[i] & 0x0F];
    }
}

std::string HexDump(const uint8_t* bytes, size_t length) {
    std::string text;
    AppendHexDump(text, bytes, length);
    return text;
}

const char* FunctionCodeName(uint8_t fc) {
    switch (fc) {
        case 1: return "FC01 Read Coils";
        case 2: return "FC02 Read Discrete Inputs";
        case 3: return "FC03 Read Holding Registers";
        case 4: return "FC04 Read Input Registers";
        case 5: return "FC05 Write Single Coil";
        case 6: return "FC06 Write Single Register";
        case 7: return "FC07 Read Exception Status";
        case 11: return "FC11 Get Comm Event Counter";
        case 12: return "FC12 Get Comm Event Log";
        case 15: return "FC15 Write Multiple Coils";
        case 16: return "FC16 Write Multiple Registers";
        case 17: return "FC17 Report Server ID";
        case 23: return "FC23 Read/Write Multiple Regs";
        case 24: return "FC24 Read FIFO Queue";
        case 43: return "FC43 Read Device ID";
        default: return "Unknown FC";
    }
}

bool IsExceptionResponse(const Bytes& response, bool isTcp) {
    const size_t at = Modbus::LayoutFor(isTcp).functionCode;
    return response.size() > at && response[at] >= 0x80;
}

uint8_t ExceptionCode(const Bytes& response, bool isTcp) {
    const size_t at = Modbus::LayoutFor(isTcp).byteCount;
    return response.size() > at ? response[at] : 0;
}
