#include "cli/command.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>

namespace cli {
namespace {

std::vector<Command>& Registry() {
    static std::vector<Command> commands;
    return commands;
}

std::atomic<bool> g_stop{false};

extern "C" void OnStopSignal(int) { g_stop.store(true); }

}  // namespace

CommandRegistrar::CommandRegistrar(const Command& command) { Registry().push_back(command); }

const std::vector<std::string>& CommandOrder() {
    // The master commands first, then the slave side, the device descriptions and their polling.
    static const std::vector<std::string> order = {"read",   "write",    "scan",     "slave", "monitor",
                                                   "structures", "decode", "settings", "poll",  "demo"};
    return order;
}

std::vector<Command> Commands() {
    std::vector<Command> commands = Registry();
    const auto rank = [](const Command& command) {
        const auto& order = CommandOrder();
        return static_cast<size_t>(std::find(order.begin(), order.end(), command.name) - order.begin());
    };
    std::sort(commands.begin(), commands.end(), [&](const Command& a, const Command& b) {
        const size_t ra = rank(a), rb = rank(b);
        return ra != rb ? ra < rb : std::string(a.name) < std::string(b.name);
    });
    return commands;
}

std::optional<std::string> TakeOption(std::vector<std::string>& args, const std::string& flag) {
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] != flag) continue;
        if (i + 1 >= args.size()) throw UsageError(flag + " needs a value");
        std::string value = args[i + 1];
        args.erase(args.begin() + static_cast<long>(i), args.begin() + static_cast<long>(i) + 2);
        return value;
    }
    return std::nullopt;
}

std::vector<std::string> TakeRepeatedOption(std::vector<std::string>& args, const std::string& flag) {
    std::vector<std::string> values;
    while (auto value = TakeOption(args, flag)) values.push_back(*value);
    return values;
}

bool TakeFlag(std::vector<std::string>& args, const std::string& flag) {
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == flag) {
            args.erase(args.begin() + static_cast<long>(i));
            return true;
        }
    }
    return false;
}

uint64_t ParseUnsigned(const std::string& text, const std::string& what, uint64_t min, uint64_t max) {
    const bool hex = text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X');
    const std::string digits = hex ? text.substr(2) : text;
    bool ok = !digits.empty();
    for (char c : digits) ok = ok && (hex ? std::isxdigit(static_cast<unsigned char>(c)) : std::isdigit(static_cast<unsigned char>(c)));
    uint64_t value = 0;
    if (ok) {
        errno = 0;
        value = std::strtoull(digits.c_str(), nullptr, hex ? 16 : 10);
        ok = errno == 0;
    }
    if (!ok || value < min || value > max) {
        throw UsageError(what + " must be a number from " + std::to_string(min) + " to " + std::to_string(max) +
                         ", not '" + text + "'");
    }
    return value;
}

int64_t ParseSigned(const std::string& text, const std::string& what, int64_t min, int64_t max) {
    if (!text.empty() && text[0] == '-') {
        const uint64_t magnitude = ParseUnsigned(text.substr(1), what, 0, static_cast<uint64_t>(INT64_MAX));
        const int64_t value = -static_cast<int64_t>(magnitude);
        if (value < min) throw UsageError(what + " must be from " + std::to_string(min) + " to " + std::to_string(max) + ", not '" + text + "'");
        return value;
    }
    const uint64_t value = ParseUnsigned(text, what, 0, static_cast<uint64_t>(INT64_MAX));
    if (static_cast<int64_t>(value) > max || static_cast<int64_t>(value) < min) throw UsageError(what + " must be from " + std::to_string(min) + " to " + std::to_string(max) + ", not '" + text + "'");
    return static_cast<int64_t>(value);
}

double ParseDouble(const std::string& text, const std::string& what) {
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(text.c_str(), &end);
    if (text.empty() || end == nullptr || *end != '\0' || errno != 0) {
        throw UsageError(what + " must be a number, not '" + text + "'");
    }
    return value;
}

void RejectUnknownOptions(const std::vector<std::string>& args) {
    for (const auto& a : args) {
        if (a.size() > 2 && a[0] == '-' && a[1] == '-') throw UsageError("unknown option " + a);
    }
}

void InstallStopSignals() {
    std::signal(SIGINT, OnStopSignal);
    std::signal(SIGTERM, OnStopSignal);
}

bool StopRequested() { return g_stop.load(); }

}  // namespace cli
