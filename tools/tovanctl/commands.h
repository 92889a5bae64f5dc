// commands.h: the verbs of tovanctl. Each adds its subcommands, with what they do, to the command line. A failure
// leaves as a CommandError or as one of the library's exceptions.
#pragma once

#include <CLI/CLI.hpp>

namespace tovanctl {

void addServiceCommands(CLI::App& app);
void addConfigCommands(CLI::App& app);
void addJobCommands(CLI::App& app);

}  // namespace tovanctl
