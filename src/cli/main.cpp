// kestrel-cli: the headless command line on the same core as the window.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "cli/command.h"
#include "cli/help_text.h"
#include "cli/language.h"
#include "platform/standard_streams.h"
#if defined(_WIN32)
#include "platform/win32/wide_text.h"
#endif

#ifndef KESTREL_VERSION
#define KESTREL_VERSION "unknown"
#endif

namespace {

bool AsksForHelp(const std::vector<std::string>& args) {
    return std::find(args.begin(), args.end(), "--help") != args.end() ||
           std::find(args.begin(), args.end(), "-h") != args.end();
}

int UsageError(const std::string& message) {
    std::fprintf(stderr, "kestrel-cli: %s\n", message.c_str());
    std::fputs(cli::UsageText().c_str(), stderr);
    return 2;
}

// `args` are the arguments after the program name, in UTF-8.
int Run(std::vector<std::string> args) {
    std::setvbuf(stdout, nullptr, _IOLBF, 0);
    platform::UseUtf8StandardStreams();
    // The build writes the manual page with this; it is no command of its own.
    if (args.size() == 1 && args.front() == "--man") {
        std::fputs(cli::ManPage(KESTREL_VERSION).c_str(), stdout);
        return 0;
    }
    try {
        cli::ApplyLanguage(cli::TakeOption(args, "--lang"));
        const std::vector<cli::Command> commands = cli::Commands();
        const auto named = [&](const std::string& name) {
            return std::find_if(commands.begin(), commands.end(),
                                [&](const cli::Command& command) { return name == command.name; });
        };
        if (!args.empty() && named(args.front()) != commands.end() && AsksForHelp(args)) {
            std::fputs(cli::CommandHelpText(*named(args.front())).c_str(), stdout);
            return 0;
        }
        if (AsksForHelp(args) && (args.front() == "--help" || args.front() == "-h")) {
            std::fputs(cli::UsageText().c_str(), stdout);
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

}  // namespace

#if defined(_WIN32)
// Windows hands a program its arguments in UTF-16. The C runtime's narrow argv would carry them in
// the ANSI code page, where "°C" or "Größe" are not the UTF-8 bytes the rest of the program works
// with; they are converted here, once.
int wmain(int argc, wchar_t** argv) {
    std::vector<std::string> args;
    for (int i = 1; i < argc; ++i) args.push_back(platform::Utf8(argv[i]));
    return Run(std::move(args));
}
#else
int main(int argc, char** argv) { return Run(std::vector<std::string>(argv + 1, argv + argc)); }
#endif
