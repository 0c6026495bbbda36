#include "cli/help_text.h"

#include <sstream>
#include <vector>

namespace cli {
namespace {

constexpr char kConnectionUsage[] =
    "CONN is  --tcp HOST[:PORT]  or  --rtu DEVICE [--baud N] [--parity N|E|O] [--stop-bits 1|2]\n"
    "        or  --rtu-over-tcp HOST[:PORT]  (RTU frames over TCP, as gateways forward them)\n";

constexpr char kSummary[] = "Modbus TCP and RTU master, slave and structure poller on the command line";

// The parts of the page that belong to no single command.
constexpr char kDescription[] =
    "kestrel-cli is the command line of Kestrel, a tool for engineers who commission and test field devices "
    "that speak Modbus. It reads and writes a remote device as a master (Modbus TCP or RTU), serves a register "
    "image as a slave, decodes register values, keeps the structures file (devices described as typed data "
    "points) and the settings the Kestrel window uses, and polls a structure as the window's Structures page "
    "does.\n"
    "\n"
    "Results go to stdout and the connection log (frames as TX:/RX: lines, messages, exceptions) to stderr, "
    "except for slave, which prints its log on stdout. Every text is UTF-8.\n";

constexpr char kGlobalOptions[] =
    "  --lang en|de          the language of messages and log lines; default: the stored setting (German "
    "when none)\n"
    "  --help, -h            without a command: every command's usage; with one: its usage, options and an "
    "example\n";

constexpr char kExitStatus[] =
    "  0                     the command did what was asked\n"
    "  1                     an operation failed: no connection, an exception response, a time-out, a file "
    "that cannot be read or written\n"
    "  2                     a usage error: an unknown command or option, a missing or malformed value\n";

constexpr char kFiles[] =
    "  modbus_structures.json  the structures file in the current folder, unless --file names another\n"
    "  ~/.config/kestrel/settings  the stored settings ($XDG_CONFIG_HOME/kestrel/settings when that is set); "
    "on Windows the registry key HKEY_CURRENT_USER\\Software\\Kestrel\n";

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) lines.push_back(line);
    return lines;
}

// Text for roff: a backslash prints as itself, a hyphen as the ASCII minus that shells and
// copy-paste expect, and a line never starts with a control character.
std::string Roff(const std::string& text) {
    std::string out;
    if (!text.empty() && (text[0] == '.' || text[0] == '\'')) out += "\\&";
    for (char c : text) {
        if (c == '\\') {
            out += "\\e";
        } else if (c == '-') {
            out += "\\-";
        } else {
            out += c;
        }
    }
    return out;
}

std::string Trimmed(const std::string& text) {
    const size_t first = text.find_first_not_of(' ');
    return first == std::string::npos ? std::string() : text.substr(first);
}

// "  TERM   what it means" -> .TP with the term in bold. A line without the gap is a term alone.
std::string TaggedParagraph(const std::string& line) {
    const std::string entry = Trimmed(line);
    const size_t gap = entry.find("  ");
    const std::string term = entry.substr(0, gap);
    std::string out = ".TP\n\\fB" + Roff(term) + "\\fR\n";
    if (gap != std::string::npos) out += Roff(Trimmed(entry.substr(gap))) + "\n";
    return out;
}

// A help text in roff. Its lines are: sentences (filled into paragraphs), a blank line (a new
// paragraph), a heading such as "Options:" at the margin, "TERM  meaning" entries indented by two
// spaces (a line indented further continues the meaning above), and "Example:" followed by command
// lines kept exactly as they stand.
std::string HelpInRoff(const std::string& help) {
    std::string out;
    bool example = false;
    for (const std::string& line : Lines(help)) {
        if (example) {
            out += Roff(line.rfind("  ", 0) == 0 ? line.substr(2) : line) + "\n";
        } else if (line.empty()) {
            out += ".PP\n";
        } else if (line == "Example:") {
            out += ".PP\nExample:\n.RS\n.nf\n";
            example = true;
        } else if (line[0] != ' ' && line.back() == ':') {
            out += ".PP\n" + Roff(line) + "\n";
        } else if (line.rfind("   ", 0) == 0) {
            out += Roff(Trimmed(line)) + "\n";  // the description of the entry above, continued
        } else if (line[0] == ' ') {
            out += TaggedParagraph(line);
        } else {
            out += Roff(line) + "\n";
        }
    }
    if (example) out += ".fi\n.RE\n";
    return out;
}

// Usage lines as they stand, less the two spaces that indent them under "usage:".
std::string Verbatim(const std::string& text) {
    std::string out = ".nf\n";
    for (const std::string& line : Lines(text)) out += Roff(line.rfind("  ", 0) == 0 ? line.substr(2) : line) + "\n";
    return out + ".fi\n";
}

}  // namespace

std::string UsageText() {
    std::string text = "usage:\n";
    for (const Command& command : Commands()) text += command.usage;
    return text + kConnectionUsage;
}

std::string CommandHelpText(const Command& command) {
    std::string text = "usage:\n";
    text += command.usage;
    if (command.help[0] != '\0') {
        text += "\n";
        text += command.help;
    }
    return text;
}

std::string ManPage(const std::string& version) {
    std::string page = ".\\\" kestrel-cli(1), made by `kestrel-cli --man` from the help texts of its commands.\n";
    page += ".TH KESTREL\\-CLI 1 \"\" \"kestrel\\-cli " + Roff(version) + "\" \"User Commands\"\n.nh\n";
    page += ".SH NAME\nkestrel\\-cli \\- " + Roff(kSummary) + "\n";
    std::string synopsis;
    for (const Command& command : Commands()) synopsis += command.usage;
    page += ".SH SYNOPSIS\n" + Verbatim(synopsis + kConnectionUsage);
    page += ".SH DESCRIPTION\n" + HelpInRoff(kDescription);
    page += ".SH OPTIONS\nThese come before the command.\n" + HelpInRoff(kGlobalOptions);
    page += ".SH COMMANDS\n";
    for (const Command& command : Commands()) {
        page += ".SS " + Roff(command.name) + "\n" + Verbatim(command.usage);
        if (command.help[0] != '\0') page += ".PP\n" + HelpInRoff(command.help);
    }
    page += ".SH EXIT STATUS\n" + HelpInRoff(kExitStatus);
    page += ".SH FILES\n" + HelpInRoff(kFiles);
    page += ".SH SEE ALSO\nThe README of Kestrel, installed as /usr/share/doc/kestrel\\-cli/README.md.\n";
    return page;
}

}  // namespace cli
