#pragma once
// The line settings the Windows serial backend gives a port, kept apart so they can be checked
// without a driver (a driver, or Wine, may not report every bit back through GetCommState).
#include <cstdint>

#include <windows.h>

namespace platform {

// Baud, data bits, stop bits (2 = TWOSTOPBITS, else ONESTOPBIT), parity ('E' even, 'O' odd, any
// other letter none) and the fixed rest: binary mode, parity checking unless the letter is 'N' (also
// for a letter that sets no parity bit), no CTS/DSR or XON/XOFF flow control, DTR and RTS enabled.
// Other fields keep what the port reported.
void ApplyLineSettings(DCB& dcb, uint32_t baud, uint8_t dataBits, uint8_t stopBits, char parity);

}  // namespace platform
