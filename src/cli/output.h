#pragma once
// Output of the commands that print a line per transaction (read, write, slave). While a
// BufferedOutput exists, lines for stdout and stderr gather in one buffer, in the order they were
// written, and go out in batches: every 20 ms from a flusher thread, at once when 64 KiB have
// gathered, and when the BufferedOutput ends. A script reading the output live sees every line
// within about 20 ms, and a run of many transactions costs a few writes instead of one or two per
// line. One buffer for both streams keeps their lines in order when they go to the same file.
// Without a BufferedOutput every line is written at once.
#include <string_view>

namespace cli {

class BufferedOutput {
public:
    BufferedOutput();
    ~BufferedOutput();
    BufferedOutput(const BufferedOutput&) = delete;
    BufferedOutput& operator=(const BufferedOutput&) = delete;
};

// The text and a line end.
void OutLine(std::string_view line);
void ErrLine(std::string_view line);
// Text as it is (several lines at once).
void OutText(std::string_view text);
// Writes whatever has gathered, now.
void FlushOutput();

}  // namespace cli
