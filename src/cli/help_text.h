#pragma once
// What kestrel-cli says about itself: the usage of every command (`kestrel-cli --help`), one
// command's usage with its help text (`kestrel-cli COMMAND --help`) and the manual page
// kestrel-cli(1) (`kestrel-cli --man`, run by the build). All three are made from the usage and
// help fields of Commands(), so the page and the program never disagree.
#include <string>

#include "cli/command.h"

namespace cli {

// "usage:", every command's usage lines in the fixed order, and what CONN stands for.
std::string UsageText();
// "usage:", the command's usage lines, a blank line and its help text.
std::string CommandHelpText(const Command& command);
// The manual page in roff (man(7)) for the program of the given version.
std::string ManPage(const std::string& version);

}  // namespace cli
