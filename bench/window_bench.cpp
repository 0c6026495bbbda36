// The window's row of the comparison (run under Wine by tools/bench.sh): the real main window,
// created in this process as the program creates it, and timed where a long session makes it work
// hardest.
//
//   1 The protocol log of the Register R/W page: LINES lines appended through the program's own
//     path. Three of every four are connection lines (TX, RX header, RX body), handed to
//     register_page::AppendPostedLine as the window procedure hands over a WM_APP_LOG line; the
//     fourth is a result line of a handler (register_page::AppendLog). Each append is timed alone; the first 1,000 are compared
//     with the last 1,000. Every 100 lines the window's pending messages are handled as the message
//     loop would, which puts the collected lines into the edit control and paints it; that is timed
//     apart (per 100 lines, the first ten against the last ten). Each round starts with a new
//     window, so the log starts empty.
//   2 A refresh of the Diagnostics page while it is shown, with the trace log holding its cap of
//     10,000 frames (FC03 reads of ten registers).
//
// Usage: kestrel_bench_window [rounds=3] [lines=100000] [refreshes=7] [seconds per round=90]
// A round that runs out of its time stops early and says how many lines it appended.
// Prints "key median min max" lines, then a small table.
#include <windows.h>

#include <commctrl.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "model/app_settings.h"
#include "protocol/trace_log.h"
#include "ui/app.h"
#include "ui/control_ids.h"
#include "ui/diagnostics_page.h"
#include "ui/main_window.h"
#include "ui/posted_messages.h"
#include "ui/register_page.h"

namespace {

constexpr size_t kCompared = 1000;  // appends at each end of the log that are compared
constexpr int kPaintEvery = 100;    // lines between two handlings of the window's messages
constexpr size_t kPaintsCompared = 10;

LARGE_INTEGER frequency;

double NowMs() {
    LARGE_INTEGER now;
    QueryPerformanceCounter(&now);
    return static_cast<double>(now.QuadPart) * 1000.0 / static_cast<double>(frequency.QuadPart);
}

// CPU time of this thread (user + kernel), milliseconds; it counts in ticks of the system clock, so
// it is read over blocks of 1,000 appends, never per append.
double ThreadCpuMs() {
    FILETIME created, exited, kernel, user;
    GetThreadTimes(GetCurrentThread(), &created, &exited, &kernel, &user);
    const auto ms = [](const FILETIME& t) {
        return static_cast<double>((static_cast<uint64_t>(t.dwHighDateTime) << 32) | t.dwLowDateTime) / 10000.0;
    };
    return ms(kernel) + ms(user);
}

struct Figure {
    double median = 0, min = 0, max = 0;
};

Figure Summary(std::vector<double> values) {
    if (values.empty()) return {};
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    const double median = (n % 2) ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
    return {median, values.front(), values.back()};
}

double Sum(const std::vector<double>& v, size_t from, size_t to) {
    double s = 0;
    for (size_t i = from; i < to && i < v.size(); ++i) s += v[i];
    return s;
}

// Handles every pending message of this thread, painting included, as the message loop does.
void PumpAll() {
    MSG message;
    while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
        TranslateMessage(&message);
        DispatchMessageW(&message);
    }
}

void PumpFor(int milliseconds) {
    const double end = NowMs() + milliseconds;
    do {
        PumpAll();
        Sleep(2);
    } while (NowMs() < end);
}

void MakeWorkingFolder() {
    wchar_t temp[MAX_PATH] = {};
    GetTempPathW(MAX_PATH, temp);
    const std::filesystem::path folder =
        std::filesystem::path(temp) / ("kestrel-window-bench-" + std::to_string(GetCurrentProcessId()));
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    SetCurrentDirectoryW(folder.wstring().c_str());
    AppSettings settings;
    settings.language = 1;
    SaveSettings(settings);
}

HWND OpenWindow() {
    ui::LoadSettingsAndLanguage();
    HWND window = ui::CreateMainWindow();
    ShowWindow(window, SW_SHOWNORMAL);
    UpdateWindow(window);
    PumpFor(200);
    return window;
}

// WM_CLOSE, then the messages until WM_QUIT (the shut-down runs in WM_DESTROY).
void CloseMainWindow(HWND window) {
    SendMessageW(window, WM_CLOSE, 0, 0);
    const double end = NowMs() + 10000;
    MSG message;
    while (NowMs() < end) {
        while (PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE)) {
            if (message.message == WM_QUIT) return;
            TranslateMessage(&message);
            DispatchMessageW(&message);
        }
        Sleep(5);
    }
}

size_t LogLength(HWND window) {
    return static_cast<size_t>(GetWindowTextLengthW(GetDlgItem(window, ui::id::kProtocolLog)));
}

struct LogRound {
    size_t lines = 0;
    size_t characters = 0;
    double firstMs = 0, lastMs = 0, totalMs = 0;  // appends only
    double firstPaintMs = 0, lastPaintMs = 0;       // per handling of the pending messages
    double wallMs = 0;                              // everything, painting included
    double firstCpuMs = 0, lastCpuMs = 0;           // CPU of the first and the last block of 1,000
    double firstMedianUs = 0, lastMedianUs = 0;     // the median single append of each of those
    std::vector<double> blockMs;                    // wall time of each block of 1,000 appends
};

LogRound AppendRound(size_t lines, double budgetMs) {
    HWND window = OpenWindow();
    std::vector<double> append;
    std::vector<double> paint;
    std::vector<double> blockCpu;  // CPU of the appends in each block of 1,000, painting taken out
    append.reserve(lines);
    double blockStartCpu = ThreadCpuMs(), paintCpu = 0;
    const std::wstring kConnectionLines[3] = {
        L"TX: 00 2A 00 00 00 06 01 03 00 00 00 0A\r\n", L"RX: 00 2A 00 00 00 17 01\r\n",
        L"RX: 03 14 00 07 00 00 00 01 00 02 00 03 00 04 00 05 00 06 00 07 00 08\r\n"};
    const double started = NowMs();
    for (size_t i = 0; i < lines; ++i) {
        const double t0 = NowMs();
        if (i % 4 == 3) {
            ui::register_page::AppendLog(L"[Master] Gelesen ab 0: " + std::to_wstring(i) + L"\r\n");
        } else {
            ui::register_page::AppendPostedLine(kConnectionLines[i % 4]);
        }
        append.push_back(NowMs() - t0);
        if ((i + 1) % kPaintEvery == 0) {
            const double c0 = ThreadCpuMs();
            const double p0 = NowMs();
            PumpAll();
            paint.push_back(NowMs() - p0);
            const double c1 = ThreadCpuMs();
            paintCpu += c1 - c0;
            if ((i + 1) % kCompared == 0) {
                blockCpu.push_back(c1 - blockStartCpu - paintCpu);
                blockStartCpu = c1;
                paintCpu = 0;
            }
            if (NowMs() - started > budgetMs) break;
        }
    }
    LogRound round;
    round.wallMs = NowMs() - started;
    round.lines = append.size();
    round.characters = LogLength(window);
    const size_t n = append.size();
    round.firstMs = Sum(append, 0, kCompared);
    round.lastMs = Sum(append, n > kCompared ? n - kCompared : 0, n);
    round.totalMs = Sum(append, 0, n);
    // A sum of 1,000 appends of some microseconds each moves with one preemption of the thread on a
    // busy machine; the median append of each end does not.
    const auto part = [&](size_t from, size_t to) {
        return std::vector<double>(append.begin() + static_cast<ptrdiff_t>(from), append.begin() + static_cast<ptrdiff_t>(to));
    };
    round.firstMedianUs = Summary(part(0, std::min(n, kCompared))).median * 1000.0;
    round.lastMedianUs = Summary(part(n > kCompared ? n - kCompared : 0, n)).median * 1000.0;
    for (size_t b = 0; b + kCompared <= n; b += kCompared) round.blockMs.push_back(Sum(append, b, b + kCompared));
    if (!blockCpu.empty()) {
        round.firstCpuMs = blockCpu.front();
        round.lastCpuMs = blockCpu.back();
    }
    const size_t p = paint.size();
    round.firstPaintMs = Sum(paint, 0, kPaintsCompared) / static_cast<double>(std::min(p, kPaintsCompared));
    round.lastPaintMs =
        Sum(paint, p > kPaintsCompared ? p - kPaintsCompared : 0, p) / static_cast<double>(std::min(p, kPaintsCompared));
    CloseMainWindow(window);
    return round;
}

// A traced FC03 read of ten registers at 127.0.0.1:502, as the connection records it.
Modbus::TraceFrame Fc03Frame(int i) {
    Modbus::TraceFrame frame;
    frame.timestamp = 1763800000000LL + i * 20;
    frame.text = "127.0.0.1:502";
    frame.sequence = static_cast<uint16_t>(i + 1);
    frame.peerPort = 502;
    frame.peerAddress = 0x7F000001;
    const auto id = static_cast<uint8_t>(i & 0xFF);
    frame.request = {static_cast<uint8_t>(i >> 8), id, 0, 0, 0, 6, 1, 3, 0, 0, 0, 10};
    frame.response = {static_cast<uint8_t>(i >> 8), id, 0, 0, 0, 23, 1, 3, 20};
    for (int r = 0; r < 10; ++r) {
        frame.response.push_back(0);
        frame.response.push_back(static_cast<uint8_t>(r));
    }
    frame.latencyMs = i % 7;
    frame.isTimeout = (i % 500) == 499;
    if (frame.isTimeout) frame.response.clear();
    return frame;
}

struct RefreshFigures {
    Figure refresh, refreshAndPaint;
    size_t rows = 0;
};

RefreshFigures DiagnosticsRefresh(int refreshes) {
    TraceLog& log = GlobalTraceLog();
    log.Clear();
    // Appended without the trace callback: the figure is the refresh alone, not 10,000 posts.
    for (int i = 0; static_cast<size_t>(i) < log.Capacity(); ++i) log.Append(Fc03Frame(i));
    HWND window = OpenWindow();
    ui::SwitchPage(ui::kDiagnosticsPage);
    ui::diagnostics_page::Refresh();
    PumpFor(200);
    HWND list = GetDlgItem(window, ui::id::kFrameList);
    std::vector<double> refresh, withPaint;
    for (int i = 0; i < refreshes; ++i) {
        const double t0 = NowMs();
        ui::diagnostics_page::Refresh();
        const double t1 = NowMs();
        UpdateWindow(window);
        UpdateWindow(list);
        const double t2 = NowMs();
        refresh.push_back(t1 - t0);
        withPaint.push_back(t2 - t0);
        PumpAll();
    }
    RefreshFigures figures{Summary(refresh), Summary(withPaint),
                           static_cast<size_t>(SendMessageW(list, LVM_GETITEMCOUNT, 0, 0))};
    CloseMainWindow(window);
    log.Clear();
    return figures;
}

int Arg(int argc, char** argv, int index, int fallback) {
    return argc > index ? std::max(1, std::atoi(argv[index])) : fallback;
}

}  // namespace

int main(int argc, char** argv) {
    const int rounds = Arg(argc, argv, 1, 3);
    const auto lines = static_cast<size_t>(Arg(argc, argv, 2, 100000));
    const int refreshes = Arg(argc, argv, 3, 7);
    const double budgetMs = Arg(argc, argv, 4, 90) * 1000.0;
    QueryPerformanceFrequency(&frequency);
    ui::InitialiseControlsAndClasses(GetModuleHandleW(nullptr));
    MakeWorkingFolder();

    std::vector<double> first, last, ratio, total, wall, firstPaint, lastPaint, firstCpu, lastCpu, firstMedian,
        lastMedian;
    std::vector<double> blocks;  // the last round's blocks
    size_t minLines = lines, characters = 0;
    for (int r = 0; r < rounds; ++r) {
        const LogRound round = AppendRound(lines, budgetMs);
        first.push_back(round.firstMs);
        last.push_back(round.lastMs);
        ratio.push_back(round.firstMs > 0 ? round.lastMs / round.firstMs : 0);
        total.push_back(round.totalMs / 1000.0);
        wall.push_back(round.wallMs / 1000.0);
        firstPaint.push_back(round.firstPaintMs);
        lastPaint.push_back(round.lastPaintMs);
        firstMedian.push_back(round.firstMedianUs);
        lastMedian.push_back(round.lastMedianUs);
        firstCpu.push_back(round.firstCpuMs);
        lastCpu.push_back(round.lastCpuMs);
        minLines = std::min(minLines, round.lines);
        characters = round.characters;
        blocks = round.blockMs;
    }
    const RefreshFigures diagnostics = DiagnosticsRefresh(refreshes);

    const auto print = [](const char* key, const Figure& f) {
        std::printf("%s %.3f %.3f %.3f\n", key, f.median, f.min, f.max);
    };
    std::printf("log_rounds %d\n", rounds);
    std::printf("log_lines %zu %zu\n", minLines, lines);
    std::printf("log_characters %zu\n", characters);
    print("log_first1000_ms", Summary(first));
    print("log_last1000_ms", Summary(last));
    print("log_ratio", Summary(ratio));
    print("log_first1000_median_append_us", Summary(firstMedian));
    print("log_last1000_median_append_us", Summary(lastMedian));
    print("log_first1000_cpu_ms", Summary(firstCpu));
    print("log_last1000_cpu_ms", Summary(lastCpu));
    print("log_appends_s", Summary(total));
    print("log_wall_s", Summary(wall));
    print("log_paint_first_ms", Summary(firstPaint));
    print("log_paint_last_ms", Summary(lastPaint));
    std::printf("trace_rows %zu\n", diagnostics.rows);
    print("refresh_ms", diagnostics.refresh);
    print("refresh_paint_ms", diagnostics.refreshAndPaint);
    // The growth along the log: every tenth block of 1,000 appends of the last round.
    std::printf("log_blocks_ms");
    for (size_t b = 0; b < blocks.size(); b += std::max<size_t>(1, blocks.size() / 10)) std::printf(" %zu:%.0f", b * kCompared, blocks[b]);
    std::printf("\n");

    const Figure f = Summary(first), l = Summary(last), q = Summary(ratio), t = Summary(total), w = Summary(wall);
    const Figure pf = Summary(firstPaint), pl = Summary(lastPaint);
    const Figure d = diagnostics.refresh, dp = diagnostics.refreshAndPaint;
    std::printf("\n%-50s %28s\n", "window under Wine", "median [min-max]");
    std::printf("%-50s %10.2f [%.2f-%.2f]\n", "log: first 1,000 appends, ms", f.median, f.min, f.max);
    std::printf("%-50s %10.2f [%.2f-%.2f]\n", "log: last 1,000 appends, ms", l.median, l.min, l.max);
    std::printf("%-50s %10.2f [%.2f-%.2f]\n", "log: last / first", q.median, q.min, q.max);
    const Figure fm = Summary(firstMedian), lm = Summary(lastMedian);
    std::printf("%-50s %10.2f [%.2f-%.2f]\n", "log: median append of the first 1,000, us", fm.median, fm.min, fm.max);
    std::printf("%-50s %10.2f [%.2f-%.2f]\n", "log: median append of the last 1,000, us", lm.median, lm.min, lm.max);
    const Figure fc = Summary(firstCpu), lc = Summary(lastCpu);
    std::printf("%-50s %10.2f [%.2f-%.2f]\n", "log: first 1,000 appends, CPU ms", fc.median, fc.min, fc.max);
    std::printf("%-50s %10.2f [%.2f-%.2f]\n", "log: last 1,000 appends, CPU ms", lc.median, lc.min, lc.max);
    std::printf("%-50s %10.2f [%.2f-%.2f]\n", "log: all appends, s", t.median, t.min, t.max);
    std::printf("%-50s %10.2f [%.2f-%.2f]\n", "log: wall time with painting, s", w.median, w.min, w.max);
    std::printf("%-50s %10.2f [%.2f-%.2f]\n", "log: flushed and painted per 100 lines, first ten, ms", pf.median, pf.min, pf.max);
    std::printf("%-50s %10.2f [%.2f-%.2f]\n", "log: flushed and painted per 100 lines, last ten, ms", pl.median, pl.min, pl.max);
    std::printf("%-50s %10zu of %zu, %d rounds\n", "log: lines appended (fewest of a round)", minLines, lines, rounds);
    std::printf("%-50s %10.2f [%.2f-%.2f]\n", "diagnostics refresh, 10,000 frames, ms", d.median, d.min, d.max);
    std::printf("%-50s %10.2f [%.2f-%.2f]\n", "  with the paint that follows, ms", dp.median, dp.min, dp.max);
    std::fflush(stdout);
    return 0;
}
