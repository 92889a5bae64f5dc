// report.h: what a pass found, as text and as JSON.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "tools/exports/arguments.h"
#include "tools/exports/configuration.h"

namespace exports {

struct ReportedExport {
  std::string path;
  std::string host;
  std::string options;
  bool isServed = false;
};

struct ReportedProblem {
  std::string file;
  std::size_t line = 0;  // 0: the file as a whole
  std::string text;
};

struct Report {
  std::string exportsFile;
  std::string configurationFile;
  std::string outputFile;
  Server server = Server::kernel;
  bool isReadBack = false;  // whether isServed is known
  std::size_t folders = 0;  // that the library's file names and that may be exported
  std::vector<ReportedExport> exports;
  std::set<std::string> unservable;  // folders that are in the server's list, though it cannot serve them
  std::vector<ReportedProblem> problems;
  std::vector<std::string> notes;  // for the administrator: what is to be done, what the server said
};

ExitCode exitCodeOf(const Report& report);
// Lines for a terminal; paths in octal escapes.
std::string textOf(const Report& report);
// One object on one line.
std::string jsonOf(const Report& report);

}  // namespace exports
