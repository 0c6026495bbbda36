#pragma once
// kestrel-cli is a set of commands (read, write, slave, structures, ...), one source file each.
// A command registers itself with KESTREL_CLI_COMMAND; main() picks it by its first word.
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace cli {

// Thrown inside a command for a usage error; main() prints the message and the usage and exits 2.
// It never leaves the command line program.
struct UsageError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

struct Command {
    const char* name;
    const char* usage;  // the command's usage lines, each ending in '\n'
    // What `kestrel-cli COMMAND --help` prints after the usage: the options, one per line, and an
    // example; every line ends in '\n'. The man page is made from the same text.
    const char* help;
    int (*run)(std::vector<std::string>& args);
};

struct CommandRegistrar {
    explicit CommandRegistrar(const Command& command);
};

// Every command, in the order of the usage (CommandOrder), whatever order the linker ran the
// registrars in.
std::vector<Command> Commands();
// The names in the order the usage lists them; a command missing here comes after them, by name.
const std::vector<std::string>& CommandOrder();

#define KESTREL_CLI_COMMAND(id, name, usage, help, run) \
    static const ::cli::CommandRegistrar id##_registrar(::cli::Command{name, usage, help, run})

// Argument helpers. Each takes (and removes) what it parses from `args`.
// --flag VALUE; nullopt when absent; UsageError when the value is missing.
std::optional<std::string> TakeOption(std::vector<std::string>& args, const std::string& flag);
// Every occurrence of --flag VALUE, in order.
std::vector<std::string> TakeRepeatedOption(std::vector<std::string>& args, const std::string& flag);
bool TakeFlag(std::vector<std::string>& args, const std::string& flag);
// Parses a decimal or 0x-hexadecimal unsigned number within [min, max]; UsageError naming `what`
// otherwise.
uint64_t ParseUnsigned(const std::string& text, const std::string& what, uint64_t min, uint64_t max);
int64_t ParseSigned(const std::string& text, const std::string& what, int64_t min, int64_t max);
double ParseDouble(const std::string& text, const std::string& what);
// Anything left that starts with "--" is an unknown option.
void RejectUnknownOptions(const std::vector<std::string>& args);

// Installs SIGINT/SIGTERM handlers that set a flag; true once one arrived.
void InstallStopSignals();
bool StopRequested();

}  // namespace cli
