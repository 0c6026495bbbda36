#include "platform/standard_streams.h"

#include <fcntl.h>
#include <io.h>
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "platform/win32/wide_text.h"

// The C runtime writes a console byte by byte in its own code page, so UTF-8 text comes out as
// one wrong character per byte, whatever the console's code page. Text for a console therefore
// goes through a pipe instead: the streams that lead to the console write into it, in the order
// the program writes, and a relay thread turns what arrives into UTF-16 for WriteConsoleW.
namespace platform {
namespace {

struct ConsoleRelay {
    HANDLE console = INVALID_HANDLE_VALUE;
    HANDLE pipe = INVALID_HANDLE_VALUE;  // the read end
    bool relayed[2] = {false, false};    // stdout, stderr
    std::thread thread;
};

ConsoleRelay* g_relay = nullptr;  // lives until the process ends; joined at exit

HANDLE OsHandle(std::FILE* stream) { return reinterpret_cast<HANDLE>(_get_osfhandle(_fileno(stream))); }

bool IsConsole(std::FILE* stream) {
    DWORD mode = 0;
    return GetConsoleMode(OsHandle(stream), &mode) != 0;
}

// How many leading bytes of `text` end on a whole character: a character cut off by the end of a
// read waits for the rest.
size_t WholeCharacters(const std::string& text) {
    const size_t size = text.size();
    for (size_t back = 1; back <= 3 && back <= size; ++back) {
        const auto byte = static_cast<unsigned char>(text[size - back]);
        if ((byte & 0xC0) == 0x80) continue;  // a continuation byte: look further back
        const size_t length = byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
        return length > back ? size - back : size;
    }
    return size;
}

void WriteToConsole(HANDLE console, const std::string& utf8) {
    std::wstring text;
    for (wchar_t c : Wide(utf8)) {
        if (c == L'\n') text += L'\r';  // what the C runtime's text mode does for a console
        text += c;
    }
    const wchar_t* at = text.data();
    size_t left = text.size();
    while (left > 0) {
        DWORD written = 0;
        if (!WriteConsoleW(console, at, static_cast<DWORD>(left), &written, nullptr) || written == 0) return;
        at += written;
        left -= written;
    }
}

void Relay(ConsoleRelay* relay) {
    std::string pending;
    char buffer[4096];
    DWORD n = 0;
    while (ReadFile(relay->pipe, buffer, sizeof buffer, &n, nullptr) && n > 0) {
        pending.append(buffer, n);
        const size_t whole = WholeCharacters(pending);
        WriteToConsole(relay->console, pending.substr(0, whole));
        pending.erase(0, whole);
    }
    WriteToConsole(relay->console, pending);  // a character cut short at the very end
    CloseHandle(relay->pipe);
}

// At exit: everything written goes out, the streams' pipe ends close, and the relay writes the
// rest to the console before the process ends.
void FinishRelay() {
    std::fflush(stdout);
    std::fflush(stderr);
    if (g_relay->relayed[0]) _close(_fileno(stdout));
    if (g_relay->relayed[1]) _close(_fileno(stderr));
    g_relay->thread.join();
}

}  // namespace

void UseUtf8StandardStreams() {
    std::FILE* const streams[] = {stdout, stderr};
    bool console[2] = {IsConsole(stdout), IsConsole(stderr)};
    // Text mode would turn every "\n" into "\r\n": a script gets the same bytes as elsewhere.
    for (int i = 0; i < 2; ++i) {
        if (!console[i]) _setmode(_fileno(streams[i]), _O_BINARY);
    }
    if (!console[0] && !console[1]) return;

    HANDLE read = INVALID_HANDLE_VALUE, write = INVALID_HANDLE_VALUE;
    if (!CreatePipe(&read, &write, nullptr, 64 * 1024)) return;  // the console gets the C runtime's bytes
    const int writeFd = _open_osfhandle(reinterpret_cast<intptr_t>(write), _O_BINARY);
    if (writeFd < 0) {
        CloseHandle(read);
        CloseHandle(write);
        return;
    }
    // A handle of our own: the console's C runtime handle closes when its descriptor is redirected.
    HANDLE target = INVALID_HANDLE_VALUE;
    if (!DuplicateHandle(GetCurrentProcess(), OsHandle(console[0] ? stdout : stderr), GetCurrentProcess(), &target, 0,
                         FALSE, DUPLICATE_SAME_ACCESS)) {
        CloseHandle(read);
        _close(writeFd);
        return;
    }
    g_relay = new ConsoleRelay;
    g_relay->console = target;
    g_relay->pipe = read;
    for (int i = 0; i < 2; ++i) {
        if (!console[i]) continue;
        g_relay->relayed[i] = _dup2(writeFd, _fileno(streams[i])) == 0;
        // Unbuffered: each piece reaches the console as it is written, stdout and stderr in order.
        std::setvbuf(streams[i], nullptr, _IONBF, 0);
    }
    _close(writeFd);
    g_relay->thread = std::thread(Relay, g_relay);
    std::atexit(FinishRelay);
}

}  // namespace platform
