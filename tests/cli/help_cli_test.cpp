// Every command's `kestrel-cli COMMAND --help`: a non-empty help with its options and an example,
// in agreement with its usage lines; and the manual page made from the same texts. Native only
// (the command line runs as a child process).
#if !defined(_WIN32)
#include <algorithm>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "support/child_process.h"
#include "support/text_lines.h"

namespace {

CommandResult Cli(std::vector<std::string> args) {
    args.insert(args.begin(), KESTREL_CLI_PATH);
    return RunCommand(args, 30000);
}

// The command words of the usage ("  kestrel-cli [--lang en|de] NAME ...").
std::vector<std::string> CommandNames() {
    const std::string lead = "  kestrel-cli [--lang en|de] ";
    std::vector<std::string> names;
    for (const std::string& line : SplitLines(Cli({"--help"}).out)) {
        if (line.rfind(lead, 0) == 0) names.push_back(line.substr(lead.size(), line.find(' ', lead.size()) - lead.size()));
    }
    return names;
}

std::set<std::string> OptionsIn(const std::string& text) {
    std::set<std::string> options;
    const std::regex option("--[a-z0-9][a-z0-9-]*");
    for (auto it = std::sregex_iterator(text.begin(), text.end(), option); it != std::sregex_iterator(); ++it) {
        options.insert(it->str());
    }
    return options;
}

// A command's help as `COMMAND --help` prints it, split into its usage and the help text after it.
struct CommandHelp {
    std::string usage;
    std::string help;
};

CommandHelp HelpOf(const std::string& name) {
    const CommandResult r = Cli({name, "--help"});
    EXPECT_EQ(r.exitCode, 0) << name;
    EXPECT_EQ(r.err, "") << name;
    CommandHelp parts;
    const size_t blank = r.out.find("\n\n");
    if (r.out.rfind("usage:\n", 0) != 0 || blank == std::string::npos) return parts;
    parts.usage = r.out.substr(7, blank + 1 - 7);
    parts.help = r.out.substr(blank + 2);
    return parts;
}

// The options the help explains: the first word of every entry line ("  --name ARG   what it does").
std::set<std::string> HelpEntries(const std::string& help) {
    std::set<std::string> entries;
    for (const std::string& line : SplitLines(help)) {
        if (line == "Example:") break;
        if (line.rfind("  --", 0) == 0) entries.insert(line.substr(2, line.find_first_of(" ,", 2) - 2));
    }
    return entries;
}

// The options CONN stands for, from the end of the general usage that explains it ("CONN is ..."
// and the lines after it).
std::set<std::string> ConnectionOptions() {
    const std::string usage = Cli({"--help"}).out;
    const size_t at = usage.find("\nCONN is ");
    return at == std::string::npos ? std::set<std::string>() : OptionsIn(usage.substr(at));
}

// The options a command's usage offers, CONN spelled out; --lang belongs to every command and is
// explained once, in the manual page and the general usage.
std::set<std::string> UsageOptions(const std::string& usage) {
    std::set<std::string> options = OptionsIn(usage);
    options.erase("--lang");
    if (usage.find(" CONN ") != std::string::npos) {
        for (const std::string& option : ConnectionOptions()) options.insert(option);
    }
    return options;
}

TEST(HelpCli, TheUsageNamesTheCommandsThatHaveHelp) {
    const std::vector<std::string> names = CommandNames();
    for (const char* name : {"read", "write", "slave", "structures", "decode", "settings", "poll", "demo"}) {
        EXPECT_NE(std::find(names.begin(), names.end(), name), names.end()) << name;
    }
}

TEST(HelpCli, EveryCommandHasAHelpWithOptionsAndAnExample) {
    for (const std::string& name : CommandNames()) {
        const CommandHelp h = HelpOf(name);
        ASSERT_FALSE(h.help.empty()) << name << " --help has no help text after its usage";
        const std::vector<std::string> lines = SplitLines(h.help);
        const auto example = std::find(lines.begin(), lines.end(), "Example:");
        ASSERT_NE(example, lines.end()) << name << ":\n" << h.help;
        ASSERT_NE(example + 1, lines.end()) << name << ": nothing after Example:";
        for (auto line = example + 1; line != lines.end(); ++line) {
            EXPECT_EQ(line->rfind("  kestrel-cli ", 0), 0u) << name << ": an example is a command line: " << *line;
        }
        EXPECT_EQ(h.help.back(), '\n') << name;
        for (auto line = lines.begin(); line != example; ++line) {
            EXPECT_LE(line->size(), 112u) << name << ": " << *line;
            // An entry: two spaces, the option and its argument, two spaces or more, what it does.
            if (line->rfind("  -", 0) == 0) {
                EXPECT_NE(line->find_first_not_of(' ', line->find("  ", 2)), std::string::npos)
                    << name << ": no gap of two spaces between the option and what it does: " << *line;
            }
        }
    }
}

TEST(HelpCli, EveryOptionOfTheUsageIsExplainedInTheHelp) {
    for (const std::string& name : CommandNames()) {
        const CommandHelp h = HelpOf(name);
        const std::set<std::string> explained = HelpEntries(h.help);
        for (const std::string& option : UsageOptions(h.usage)) {
            EXPECT_TRUE(explained.count(option)) << name << " --help does not explain " << option;
        }
    }
}

TEST(HelpCli, TheHelpExplainsOnlyOptionsOfTheUsage) {
    for (const std::string& name : CommandNames()) {
        const CommandHelp h = HelpOf(name);
        const std::set<std::string> offered = UsageOptions(h.usage);
        for (const std::string& option : HelpEntries(h.help)) {
            EXPECT_TRUE(offered.count(option)) << name << " --help explains " << option << ", which its usage lacks";
        }
    }
}

TEST(HelpCli, TheExamplesUseOnlyOptionsOfTheirCommand) {
    for (const std::string& name : CommandNames()) {
        const CommandHelp h = HelpOf(name);
        std::set<std::string> offered = UsageOptions(h.usage);
        offered.insert("--lang");
        const std::string examples = h.help.substr(h.help.find("Example:"));
        for (const std::string& line : SplitLines(examples)) {
            if (line == "Example:") continue;
            EXPECT_NE(line.find(" " + name + " "), std::string::npos) << name << ": " << line;
            for (const std::string& option : OptionsIn(line)) {
                EXPECT_TRUE(offered.count(option)) << name << " example uses " << option << ": " << line;
            }
        }
    }
}

// A help example that runs without a device: it prints what the help promises.
TEST(HelpCli, TheDecodeExamplesRun) {
    CommandResult r = Cli({"--lang", "en", "decode", "--type", "UINT16", "--scale", "0.1", "--offset", "-50", "--unit",
                           "degC", "700"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "20.000 degC\n");
    r = Cli({"--lang", "en", "decode", "--type", "FLOAT32", "0x41C8", "0x0000"});
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out, "25.000\n");
}

std::string ReadFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

// Text as the page writes it: hyphens and backslashes escaped.
std::string Roff(const std::string& text) {
    std::string out;
    for (char c : text) out += c == '-' ? std::string("\\-") : c == '\\' ? std::string("\\e") : std::string(1, c);
    return out;
}

TEST(ManPage, HoldsEveryCommandWithItsUsageOptionsAndExamples) {
    const CommandResult r = Cli({"--man"});
    ASSERT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.out.rfind(".\\\" kestrel-cli(1)", 0), 0u);
    EXPECT_NE(r.out.find("\n.TH KESTREL\\-CLI 1 "), std::string::npos);
    for (const char* section : {"NAME", "SYNOPSIS", "DESCRIPTION", "OPTIONS", "COMMANDS", "EXIT STATUS", "FILES"}) {
        EXPECT_NE(r.out.find("\n.SH " + std::string(section) + "\n"), std::string::npos) << section;
    }
    for (const std::string& name : CommandNames()) {
        const size_t at = r.out.find("\n.SS " + name + "\n");
        ASSERT_NE(at, std::string::npos) << name;
        const size_t next = r.out.find("\n.S", at + 1);
        const std::string section = r.out.substr(at, next - at);
        const CommandHelp h = HelpOf(name);
        for (const std::string& line : SplitLines(h.usage)) EXPECT_NE(section.find(Roff(line.substr(2))), std::string::npos) << line;
        for (const std::string& option : HelpEntries(h.help)) {
            EXPECT_NE(section.find(".TP\n\\fB" + Roff(option)), std::string::npos) << name << " " << option;
        }
        const std::string examples = h.help.substr(h.help.find("Example:") + 9);
        for (const std::string& line : SplitLines(examples)) {
            EXPECT_NE(section.find("\n" + Roff(line.substr(2)) + "\n"), std::string::npos) << line;
        }
    }
}

// The build writes the page next to the program (build/<preset>/man/kestrel-cli.1), and man renders
// it without a warning.
TEST(ManPage, TheBuiltPageIsTheProgramsAndManRendersIt) {
    const std::string path = std::string(KESTREL_BINARY_DIR) + "/man/kestrel-cli.1";
    EXPECT_EQ(ReadFile(path), Cli({"--man"}).out);
    if (!HaveProgram("man")) GTEST_SKIP() << "man is not installed";
    const CommandResult r = RunCommand({"env", "MANWIDTH=100", "man", "--warnings", "-l", path}, 30000);
    EXPECT_EQ(r.exitCode, 0);
    EXPECT_EQ(r.err, "");
    EXPECT_NE(r.out.find("KESTREL-CLI(1)"), std::string::npos);
    for (const std::string& name : CommandNames()) {
        EXPECT_NE(r.out.find("kestrel-cli [--lang en|de] " + name), std::string::npos) << name;
    }
}

}  // namespace
#endif
