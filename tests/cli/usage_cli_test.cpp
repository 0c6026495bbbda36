// kestrel-cli's usage: the commands in one fixed order, and each command's own --help. Native only
// (the command line runs as a child process).
#if !defined(_WIN32)
#include <algorithm>
#include <sstream>

#include <gtest/gtest.h>

#include "support/child_process.h"

namespace {

CommandResult Cli(std::vector<std::string> args) {
    args.insert(args.begin(), KESTREL_CLI_PATH);
    return RunCommand(args, 30000);
}

// The command word of every first usage line ("  kestrel-cli [--lang en|de] NAME ...").
std::vector<std::string> CommandsInUsage(const std::string& usage) {
    const std::string lead = "  kestrel-cli [--lang en|de] ";
    std::vector<std::string> names;
    std::stringstream lines(usage);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.rfind(lead, 0) != 0) continue;
        const std::string rest = line.substr(lead.size());
        names.push_back(rest.substr(0, rest.find(' ')));
    }
    return names;
}

TEST(UsageCli, ListsTheCommandsInTheirFixedOrder) {
    const CommandResult r = Cli({"--help"});
    ASSERT_EQ(r.exitCode, 0);
    const std::vector<std::string> order = {"read",       "write",  "scan",     "slave", "monitor",
                                            "structures", "decode", "settings", "poll",  "demo"};
    const std::vector<std::string> listed = CommandsInUsage(r.out);
    std::vector<std::string> expected;
    for (const auto& name : order) {
        if (std::find(listed.begin(), listed.end(), name) != listed.end()) expected.push_back(name);
    }
    EXPECT_EQ(listed, expected) << r.out;
    for (const char* name : {"read", "write", "slave", "structures", "decode", "settings", "poll", "demo"}) {
        EXPECT_NE(std::find(listed.begin(), listed.end(), name), listed.end()) << name;
    }
}

TEST(UsageCli, CommandHelpPrintsOnlyThatCommandsUsage) {
    const CommandResult r = Cli({"read", "--help"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out.rfind("usage:\n  kestrel-cli [--lang en|de] read  CONN [--unit N] --fc 1|2|3|4|23|24 --address A "
                          "[--count N] [--repeat N] [VALUE...]\n",
                          0),
              0u)
        << r.out;
    EXPECT_EQ(CommandsInUsage(r.out), std::vector<std::string>{"read"});
    EXPECT_EQ(r.err, "");
}

TEST(UsageCli, HelpAfterOtherOptionsStillMeansHelp) {
    const CommandResult r = Cli({"--lang", "en", "slave", "--tcp-port", "0", "-h"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(CommandsInUsage(r.out), std::vector<std::string>{"slave"});
}

TEST(UsageCli, HelpOfAnUnknownCommandIsAUsageError) {
    const CommandResult r = Cli({"frobnicate", "--help"});
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err.rfind("kestrel-cli: unknown command 'frobnicate'\nusage:\n", 0), 0u) << r.err;
}

}  // namespace
#endif
