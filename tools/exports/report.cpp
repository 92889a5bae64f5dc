#include "tools/exports/report.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "tools/exports/path_text.h"

namespace exports {
namespace {

bool isMissing(const Report& report, const ReportedExport& one) { return report.isReadBack && !one.isServed; }

std::string placeOf(const ReportedProblem& problem) {
  return problem.line == 0 ? problem.file : problem.file + ":" + std::to_string(problem.line);
}

const char* serverName(Server server) { return server == Server::kernel ? "kernel" : "ganesha"; }

}  // namespace

ExitCode exitCodeOf(const Report& report) {
  const bool lacksHosts = report.folders > 0 && report.exports.empty();
  const bool isMissingOne = std::any_of(report.exports.begin(), report.exports.end(),
                                        [&report](const ReportedExport& one) { return isMissing(report, one); });
  return lacksHosts || isMissingOne || !report.problems.empty() ? kIncomplete : kDone;
}

std::string textOf(const Report& report) {
  std::string text;
  for (const ReportedExport& one : report.exports) {
    const char* const state = !report.isReadBack ? "meant     " : one.isServed ? "exported  " : "NOT SERVED";
    text.append(state).append("  ").append(octalText(one.path)).append("  ").append(one.host);
    text.append("(").append(one.options).append(")\n");
  }
  for (const ReportedProblem& problem : report.problems) {
    text.append(placeOf(problem)).append(": skipped: ").append(problem.text).append("\n");
  }
  for (const std::string& note : report.notes) text.append(note).append("\n");
  return text;
}

std::string jsonOf(const Report& report) {
  nlohmann::json exported = nlohmann::json::array();
  for (const ReportedExport& one : report.exports) {
    nlohmann::json entry = {{"path", one.path}, {"host", one.host}, {"options", one.options}};
    entry["served"] = report.isReadBack ? nlohmann::json(one.isServed) : nlohmann::json(nullptr);
    exported.push_back(std::move(entry));
  }
  nlohmann::json problems = nlohmann::json::array();
  for (const ReportedProblem& problem : report.problems) {
    problems.push_back({{"file", problem.file}, {"line", problem.line}, {"text", problem.text}});
  }
  const nlohmann::json object = {{"exportsFile", report.exportsFile},
                                 {"configurationFile", report.configurationFile},
                                 {"outputFile", report.outputFile},
                                 {"server", serverName(report.server)},
                                 {"exports", std::move(exported)},
                                 {"problems", std::move(problems)},
                                 {"notes", report.notes},
                                 {"exitCode", static_cast<int>(exitCodeOf(report))}};
  return object.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

}  // namespace exports
