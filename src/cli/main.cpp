// kestrel-cli: the headless command line on the same core as the window.
#include <cstdio>
#include <string>
#include <vector>

#include "cli/command.h"
#include "cli/language.h"

namespace {

void PrintUsage(std::FILE* to) {
    std::fputs("usage:\n", to);
    for (const cli::Command& command : cli::Commands()) std::fputs(command.usage, to);
    std::fputs("CONN is  --tcp HOST[:PORT]  or  --rtu DEVICE [--baud N] [--parity N|E|O] [--stop-bits 1|2]\n", to);
}

int UsageError(const std::string& message) {
    std::fprintf(stderr, "kestrel-cli: %s\n", message.c_str());
    PrintUsage(stderr);
    return 2;
}

}  // namespace

int main(int argc, char** argv) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    std::vector<std::string> args(argv + 1, argv + argc);
    try {
        if (cli::TakeFlag(args, "--help") || cli::TakeFlag(args, "-h")) {
            PrintUsage(stdout);
            return 0;
        }
        cli::ApplyLanguage(cli::TakeOption(args, "--lang"));
        if (args.empty()) return UsageError("no command given");
        const std::string name = args.front();
        args.erase(args.begin());
        for (const cli::Command& command : cli::Commands()) {
            if (name == command.name) return command.run(args);
        }
        return UsageError("unknown command '" + name + "'");
    } catch (const cli::UsageError& error) {
        return UsageError(error.what());
    }
}
