#include "platform/standard_streams.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <initializer_list>

namespace platform {
namespace {

UINT g_consoleCodePage = 0;  // the console's output code page before the run; 0: not changed

void RestoreConsoleCodePage() {
    if (g_consoleCodePage != 0) SetConsoleOutputCP(g_consoleCodePage);
}

bool IsConsole(std::FILE* stream) {
    const auto handle = reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream)));
    DWORD mode = 0;
    return handle != INVALID_HANDLE_VALUE && GetConsoleMode(handle, &mode) != 0;
}

}  // namespace

void UseUtf8StandardStreams() {
    bool console = false;
    for (std::FILE* stream : {stdout, stderr}) {
        if (IsConsole(stream)) {
            console = true;
        } else {
            // Text mode would turn every "\n" into "\r\n": a script gets the same bytes as elsewhere.
            _setmode(_fileno(stream), _O_BINARY);
        }
    }
    if (!console) return;
    // The console decodes what is written to it in its output code page (the OEM one, 437 or 850,
    // by default): UTF-8 for the run, and the user's own code page again afterwards.
    const UINT previous = GetConsoleOutputCP();
    if (previous != CP_UTF8 && SetConsoleOutputCP(CP_UTF8)) {
        g_consoleCodePage = previous;
        std::atexit(RestoreConsoleCodePage);
    }
}

}  // namespace platform
