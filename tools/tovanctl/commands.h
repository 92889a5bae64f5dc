// commands.h: the verbs of tovanctl. Each adds its subcommands, with what they do, to the command line. A failure
// leaves as a CommandError or as one of the library's exceptions.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tovanctl {

void addLifecycleCommands(CLI::App& app);
void addServiceCommands(CLI::App& app);
// The verbs of `service` that act on what runs.
void addServiceRunCommands(CLI::App& service);
void addConfigCommands(CLI::App& app);
void addScheduleCommands(CLI::App& app);
// The verbs of `config` that compare the file with the shipped defaults.
void addConfigWhyCommand(CLI::App& config);
void addConfigDiffCommand(CLI::App& config);
void addConfigUpgradeCommand(CLI::App& config);
void addJobCommands(CLI::App& app);
void addNotifyCommands(CLI::App& app);
void addLogCommands(CLI::App& app);
void addScoreCommand(CLI::App& app);
void addDigestCommand(CLI::App& app);
void addStorageCommands(CLI::App& app);
void addStorageDoctor(CLI::App& storage);
void addDoctorCommand(CLI::App& app);

// --timeout SECONDS, at most a day.
void addTimeout(CLI::App& command, double& seconds, const std::string& help);

}  // namespace tovanctl
