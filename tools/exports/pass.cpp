#include "tools/exports/pass.h"

#include <tovan/constants.h>
#include <tovan/file_util.h>
#include <unistd.h>

#include "tools/exports/ganesha_exports.h"
#include "tools/exports/guarded_file.h"
#include "tools/exports/library_lines.h"
#include "tools/exports/linux_exports.h"
#include "tools/exports/options.h"
#include "tools/exports/permitted_folder.h"
#include "tools/exports/server.h"
#include "tools/launchctl/failure.h"
#include "tools/support/text.h"

namespace exports {
namespace {

using launchctl::Failure;

// The folders that may be exported; the other lines are the report's problems.
std::vector<std::string> foldersToExport(const Configuration& configuration, Report& report) {
  const auto file = readGuarded(report.exportsFile);
  if (!file) {
    report.notes.push_back(report.exportsFile + " is not there: nothing is published");
    return {};
  }
  const LibraryLines lines = readLibraryLines(file->text);
  for (const LineProblem& problem : lines.problems) {
    report.problems.push_back({report.exportsFile, problem.line, problem.text});
  }
  std::vector<std::string> folders;
  for (const LibraryFolder& folder : lines.folders) {
    std::string reason = reasonAgainstFolder(folder.path, configuration.folders, file->owner);
    if (reason.empty()) {
      reason = configuration.server == Server::kernel ? reasonAgainstLinuxPath(folder.path)
                                                      : reasonAgainstGaneshaPath(folder.path);
    }
    if (reason.empty()) {
      folders.push_back(folder.path);
    } else {
      report.problems.push_back({report.exportsFile, folder.line, reason});
    }
  }
  return folders;
}

void listExports(const std::vector<std::string>& folders, const Configuration& configuration, Report& report) {
  report.folders = folders.size();
  for (const std::string& folder : folders) {
    for (const Client& client : configuration.clients) {
      report.exports.push_back({folder, client.host, optionsText(client.options, folder), false});
    }
  }
  if (configuration.clients.empty()) {
    report.notes.push_back("nothing is exported to any host: " + report.configurationFile +
                           " names none (a line such as: host = fileclient.example.org rw)");
  }
}

void compareOutput(const std::string& text, Report& report) {
  const auto written = readGuarded(report.outputFile);
  if (!written || written->text != text) report.notes.push_back(report.outputFile + " is not what it would be");
}

}  // namespace

Configuration loadConfiguration(const std::string& path) {
  const auto file = readGuarded(path);
  if (!file) return {};
  if (file->owner != 0 && file->owner != ::geteuid()) {
    throw Failure(path + ": refused: it belongs to user " + std::to_string(file->owner));
  }
  try {
    return readConfiguration(file->text);
  } catch (const ConfigurationError& error) {
    throw ConfigurationError(path + ": " + error.what());
  }
}

std::string exportsFileOf(const Arguments& arguments, const Configuration& configuration) {
  if (!arguments.exportsFile.empty()) return arguments.exportsFile;
  if (!configuration.exportsFile.empty()) return configuration.exportsFile;
  const plinth::CSharedCFRef<CFStringRef> place =
      TovanExpandTildeInPath(tovan::TovanCorePrivate::kTovanClusterStorageExportsFilePath);
  return tools::textOf(place.get());
}

std::string outputFileOf(const Arguments& arguments, const Configuration& configuration) {
  if (!arguments.outputFile.empty()) return arguments.outputFile;
  return configuration.server == Server::kernel ? "/etc/exports.d/tovan.exports" : "/etc/ganesha/tovan.conf";
}

Report makePass(const Arguments& arguments, const Configuration& configuration) {
  Report report;
  report.exportsFile = exportsFileOf(arguments, configuration);
  report.configurationFile = arguments.configurationFile;
  report.outputFile = outputFileOf(arguments, configuration);
  report.server = configuration.server;
  const std::vector<std::string> folders = foldersToExport(configuration, report);
  listExports(folders, configuration, report);
  const bool isKernel = configuration.server == Server::kernel;
  const std::string text =
      isKernel ? linuxExports(folders, configuration.clients) : ganeshaExports(folders, configuration);
  if (arguments.check) {
    compareOutput(text, report);
  } else {
    replaceFile(report.outputFile, text);
    if (isKernel) {
      reloadKernelServer(arguments.exportfs, report);
    } else {
      reloadGanesha(configuration, report);
    }
  }
  if (isKernel) readBack(arguments.servedList, configuration.clients, report);
  return report;
}

}  // namespace exports
