// kestrel-cli: the headless command line on the same core as the window.
#include <algorithm>
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
    std::fputs("        or  --rtu-over-tcp HOST[:PORT]  (RTU frames over TCP, as gateways forward them)\n", to);
}

// `kestrel-cli COMMAND --help`: the command's own usage, its options and an example.
void PrintCommandHelp(const cli::Command& command) {
    std::fputs("usage:\n", stdout);
    std::fputs(command.usage, stdout);
    if (command.help[0] != '\0') {
        std::fputs("\n", stdout);
        std::fputs(command.help, stdout);
    }
}

bool AsksForHelp(const std::vector<std::string>& args) {
    return std::find(args.begin(), args.end(), "--help") != args.end() ||
           std::find(args.begin(), args.end(), "-h") != args.end();
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
        cli::ApplyLanguage(cli::TakeOption(args, "--lang"));
        const std::vector<cli::Command> commands = cli::Commands();
        const auto named = [&](const std::string& name) {
            return std::find_if(commands.begin(), commands.end(),
                                [&](const cli::Command& command) { return name == command.name; });
        };
        if (!args.empty() && named(args.front()) != commands.end() && AsksForHelp(args)) {
            PrintCommandHelp(*named(args.front()));
            return 0;
        }
        if (AsksForHelp(args) && (args.front() == "--help" || args.front() == "-h")) {
            PrintUsage(stdout);
            return 0;
        }
        if (args.empty()) return UsageError("no command given");
        const std::string name = args.front();
        args.erase(args.begin());
        if (const auto command = named(name); command != commands.end()) return command->run(args);
        return UsageError("unknown command '" + name + "'");
    } catch (const cli::UsageError& error) {
        return UsageError(error.what());
    }
}
