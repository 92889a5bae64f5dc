// launchctl for Linux: loads job descriptions and asks after them. docs/launch-agents.md describes it.
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tools/launchctl/back_end.h"
#include "tools/launchctl/failure.h"
#include "tools/launchctl/job_file.h"

namespace {

using launchctl::BackEnd;
using launchctl::Failure;
using Arguments = std::vector<std::string>;

enum ExitCode : int { kSuccess = 0, kFailed = 1, kUsage = 2 };

constexpr const char* kHelp =
    "usage: launchctl VERB [argument...]\n"
    "\n"
    "  load [-w] [-S SESSION] [-D DOMAIN] PATH...    load job descriptions; of a folder, every *.plist in it\n"
    "  unload [-w] [-S SESSION] [-D DOMAIN] PATH...  end the jobs and forget them\n"
    "  list                                          all loaded jobs: process, last exit, label\n"
    "  list [-x] LABEL                               one job; -x as an XML property list\n"
    "  start LABEL                                   start a job that does not run\n"
    "  stop LABEL                                    end a job's process; its conditions decide what follows\n"
    "  help                                          this text\n"
    "\n"
    "TOVAN_LAUNCHD=systemd|embedded chooses what runs the jobs. Exit codes: 0 done, 1 failed, 2 wrong command line.\n";

class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

void complain(const std::string& text) { std::fprintf(stderr, "launchctl: %s\n", text.c_str()); }

// The paths that follow the options of load and unload. The options are taken and mean nothing here: a user has one
// session and one domain.
Arguments pathsOf(const Arguments& arguments) {
  Arguments paths;
  bool options = true;
  for (std::size_t index = 0; index < arguments.size(); ++index) {
    const std::string& argument = arguments[index];
    if (!options || argument.empty() || argument[0] != '-' || argument == "-") {
      paths.push_back(argument);
    } else if (argument == "--") {
      options = false;
    } else if (argument == "-S" || argument == "-D") {
      if (++index == arguments.size()) throw UsageError(argument + " needs a name");
    } else if (argument != "-w") {
      throw UsageError("unknown option " + argument);
    }
  }
  if (paths.empty()) throw UsageError("no job description is named");
  return paths;
}

// Calls the function for every description that the paths name; a failure is said, and the others still get their turn.
int forEachFile(const Arguments& paths, const std::function<bool(const std::string& path, bool inFolder)>& work) {
  bool failed = false;
  for (const std::string& path : paths) {
    try {
      const launchctl::NamedFiles named = launchctl::filesOfArgument(path);
      for (const std::string& file : named.files) {
        try {
          if (!work(file, named.folder)) failed = true;
        } catch (const Failure& failure) {
          complain(failure.what());
          failed = true;
        }
      }
    } catch (const Failure& failure) {
      complain(failure.what());
      failed = true;
    }
  }
  return failed ? kFailed : kSuccess;
}

bool loadFile(BackEnd& backEnd, const std::string& path) {
  std::vector<std::string> unknownKeys;
  launchctl::JobToLoad job;
  job.description = launchctl::readJobFile(path, &unknownKeys);
  for (const std::string& key : unknownKeys) {
    std::string text = path;
    complain(text.append(": the key \"").append(key).append("\" is unknown here and ignored"));
  }
  job.file = path;
  job.environment = launchctl::loaderEnvironment();
  const auto own = job.description.environment.find("PATH");
  try {
    job.program = launchctl::findProgram(
        job.description.program, own == job.description.environment.end() ? job.environment["PATH"] : own->second);
  } catch (const Failure& failure) {
    throw Failure(path + ": \"Program\": " + failure.what());
  }
  if (!backEnd.load(job)) complain(job.description.label + ": already loaded");
  return true;
}

// A description that cannot be read any more still names the job that was loaded from it.
std::string labelOfFile(BackEnd& backEnd, const std::string& path) {
  try {
    return launchctl::readJobFile(path, nullptr).label;
  } catch (const Failure&) {
    for (const launchctl::JobStatus& job : backEnd.list()) {
      if (job.file == path) return job.label;
    }
    throw;
  }
}

bool unloadFile(BackEnd& backEnd, const std::string& path, bool inFolder) {
  const std::string label = labelOfFile(backEnd, path);
  if (backEnd.unload(label)) return true;
  if (inFolder) return true;  // a folder's descriptions need not all be loaded
  throw Failure(label + ": not loaded");
}

int load(const Arguments& arguments) {
  const Arguments paths = pathsOf(arguments);
  const auto backEnd = launchctl::chooseBackEnd();
  return forEachFile(paths, [&](const std::string& path, bool) { return loadFile(*backEnd, path); });
}

int unload(const Arguments& arguments) {
  const Arguments paths = pathsOf(arguments);
  const auto backEnd = launchctl::chooseBackEnd();
  return forEachFile(paths,
                     [&](const std::string& path, bool inFolder) { return unloadFile(*backEnd, path, inFolder); });
}

void printJob(const launchctl::JobStatus& job) {
  std::string text = "{\n\t\"Label\" = \"" + job.label + "\";\n";
  if (job.pid) text += "\t\"PID\" = " + std::to_string(*job.pid) + ";\n";
  text += "\t\"LastExitStatus\" = " + std::to_string(job.lastExitStatus) + ";\n";
  if (!job.problem.empty()) text += "\t\"LaunchProblem\" = \"" + job.problem + "\";\n";
  text += "\t\"Program\" = \"" + job.program + "\";\n\t\"ProgramArguments\" = (\n";
  for (const std::string& argument : job.arguments) text += "\t\t\"" + argument + "\";\n";
  text += "\t);\n\t\"JobDescription\" = \"" + job.file + "\";\n};\n";
  std::fwrite(text.data(), 1, text.size(), stdout);
}

int listAll() {
  std::printf("PID\tStatus\tLabel\n");
  for (const launchctl::JobStatus& job : launchctl::chooseBackEnd()->list()) {
    std::printf("%s\t%s\t%s\n", job.pid ? std::to_string(*job.pid).c_str() : "-",
                launchctl::exitColumn(job.lastExitStatus).c_str(), job.label.c_str());
  }
  return kSuccess;
}

int list(const Arguments& arguments) {
  if (arguments.empty()) return listAll();
  const bool asList = arguments[0] == "-x";
  if (arguments.size() != (asList ? 2U : 1U) || arguments.back().empty()) throw UsageError("list takes [-x] LABEL");
  if (!asList && arguments[0][0] == '-') throw UsageError("unknown option " + arguments[0]);
  const auto job = launchctl::chooseBackEnd()->status(arguments.back());
  if (!job) throw Failure("no job of the label \"" + arguments.back() + "\" is loaded");
  if (asList) {
    const std::string text = launchctl::xml(launchctl::listOfStatus(*job).get());
    std::fwrite(text.data(), 1, text.size(), stdout);
  } else {
    printJob(*job);
  }
  return kSuccess;
}

int onLabel(const Arguments& arguments, bool (BackEnd::*operation)(const std::string&)) {
  if (arguments.size() != 1 || arguments[0].empty()) throw UsageError("exactly one label is needed");
  const auto backEnd = launchctl::chooseBackEnd();
  if (!(backEnd.get()->*operation)(arguments[0])) {
    throw Failure("no job of the label \"" + arguments[0] + "\" is loaded");
  }
  return kSuccess;
}

int help(const Arguments&) {
  std::fputs(kHelp, stdout);
  return kSuccess;
}

int run(const std::string& verb, const Arguments& arguments) {
  static const std::map<std::string, std::function<int(const Arguments&)>> verbs = {
      {"load", load},
      {"unload", unload},
      {"list", list},
      {"start", [](const Arguments& given) { return onLabel(given, &BackEnd::start); }},
      {"stop", [](const Arguments& given) { return onLabel(given, &BackEnd::stop); }},
      {"help", help},
      {"--help", help},
      {"-h", help}};
  const auto found = verbs.find(verb);
  if (found == verbs.end()) throw UsageError(verb.empty() ? "no verb is given" : "unknown verb \"" + verb + "\"");
  return found->second(arguments);
}

}  // namespace

int main(int argc, char** argv) {
  const Arguments arguments(argv + (argc > 1 ? 2 : argc), argv + argc);
  try {
    int status = run(argc > 1 ? argv[1] : "", arguments);
    if (std::fflush(stdout) != 0) {
      complain("cannot write the output");
      status = kFailed;
    }
    return status;
  } catch (const UsageError& error) {
    complain(error.what());
    std::fputs("launchctl help shows the verbs.\n", stderr);
    return kUsage;
  } catch (const std::exception& failure) {
    complain(failure.what());
    return kFailed;
  }
}
