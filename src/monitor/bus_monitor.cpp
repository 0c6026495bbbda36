// The bus monitor's read loop.
#include "monitor/bus_monitor.h"

#include <sstream>

#include "common/localizer.h"
#include "monitor/bus_pairing.h"
#include "monitor/capture_files.h"
#include "monitor/monitor_text.h"
#include "monitor/rtu_frame_splitter.h"
#include "platform/clock.h"
#include "platform/serial.h"

namespace Modbus {
namespace {

using Localizer::Scope;

constexpr uint32_t kReadWaitMs = 5;
constexpr size_t kReadSize = 4096;

std::string T(const char* english, const char* german) { return Localizer::Text(Scope::Connection, english, german); }

// The port, closed when the monitor ends.
class ListeningPort {
public:
    explicit ListeningPort(const MonitorOptions& o)
        : handle_(platform::OpenSerial(o.device, o.baud, o.dataBits, o.stopBits, o.parity)) {}
    ~ListeningPort() {
        if (platform::IsValid(handle_)) platform::SerialClose(handle_);
    }
    ListeningPort(const ListeningPort&) = delete;
    ListeningPort& operator=(const ListeningPort&) = delete;
    bool IsOpen() const { return platform::IsValid(handle_); }
    platform::SerialHandle Handle() const { return handle_; }

private:
    platform::SerialHandle handle_;
};

struct Outputs {
    const MonitorOptions& options;
    const MonitorOutput& output;
    CsvCapture csv;
    PcapCapture pcap;
    bool fileFailed = false;

    // The files first: once a frame's line is out, the frame is on disk.
    void Put(const MonitorRecord& record) {
        if (!options.csvPath.empty() && !fileFailed && !csv.Write(record)) Fail(options.csvPath);
        if (!options.pcapPath.empty() && !fileFailed && !pcap.Write(record)) Fail(options.pcapPath);
        if (!options.quiet) output.line(FrameLine(record));
    }
    void Fail(const std::string& path) {
        fileFailed = true;
        output.message(T("Could not write ", "Konnte nicht schreiben: ") + path);
    }
};

void PutLines(const std::string& text, const MonitorOutput& output) {
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line)) output.line(line);
}

}  // namespace

int RunBusMonitor(const MonitorOptions& options, const std::function<bool()>& stopRequested,
                  const MonitorOutput& output) {
    ListeningPort port(options);
    if (!port.IsOpen()) {
        output.message(T("Could not open serial port.", "Seriellen Port konnte nicht geoeffnet werden."));
        return 1;
    }
    Outputs outputs{options, output, {}, {}};
    if (!options.csvPath.empty() && !outputs.csv.Create(options.csvPath)) {
        output.message(T("Could not create ", "Konnte nicht anlegen: ") + options.csvPath);
        return 1;
    }
    if (!options.pcapPath.empty() && !outputs.pcap.Create(options.pcapPath)) {
        output.message(T("Could not create ", "Konnte nicht anlegen: ") + options.pcapPath);
        return 1;
    }

    // Said once the port is open and purged: from here on every byte on the line is heard.
    output.message(T("Listening on ", "Hoere auf ") + options.device + " @ " + std::to_string(options.baud) +
                   " Baud ...");
    const int64_t startUs = platform::MonotonicMicroseconds();
    const int64_t startWallUs = platform::UnixTimeMilliseconds() * 1000;
    RtuFrameSplitter splitter(SilenceMicroseconds(options.baud, options.dataBits, options.parity, options.stopBits),
                              CharacterMicroseconds(options.baud, options.dataBits, options.parity, options.stopBits));
    BusPairing pairing([&](const MonitorRecord& record) { outputs.Put(record); });
    const auto take = [&](const SplitFrame& frame) {
        pairing.Add(frame, startWallUs + (frame.firstByteUs - startUs));
        if (const auto due = pairing.ExpectedResponse()) {
            splitter.ExpectResponse(due->first, due->second);
        } else {
            splitter.ExpectNothing();
        }
    };

    bool lineFailed = false;
    std::vector<uint8_t> buffer(kReadSize);
    SplitFrame frame;
    while (!stopRequested()) {
        const int64_t nowUs = platform::MonotonicMicroseconds();
        const int64_t durationUs = static_cast<int64_t>(options.durationSeconds) * 1000000;
        if (options.durationSeconds != 0 && nowUs - startUs >= durationUs) break;
        size_t received = 0;
        if (!platform::SerialReadAvailable(port.Handle(), buffer.data(), buffer.size(), kReadWaitMs, received)) {
            output.message(T("RTU recv error.", "RTU recv Fehler."));
            lineFailed = true;
            break;
        }
        const int64_t arrivalUs = platform::MonotonicMicroseconds();
        splitter.Feed(buffer.data(), received, arrivalUs);
        while (splitter.Next(arrivalUs, frame)) take(frame);
    }
    while (splitter.NextAtEnd(frame)) take(frame);
    pairing.Finish();
    PutLines(StatisticsTable(pairing.Statistics(), splitter.NoiseBytes()), output);
    return lineFailed || outputs.fileFailed ? 1 : 0;
}

}  // namespace Modbus
