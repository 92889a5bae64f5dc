// job_description.h: what a job description says, checked. docs/launch-agents.md lists the keys.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/launchctl/property_list.h"

namespace launchctl {

// The condition that a path exists (true), or that it does not. Whatever is at the path counts, a link to nowhere
// included; nothing is opened.
struct PathState {
  std::string path;  // absolute
  bool exists = true;
};

struct JobDescription {
  std::string label;
  std::string program;                 // an absolute path, or a name to be found along PATH
  std::vector<std::string> arguments;  // argv, the name first; never empty
  std::map<std::string, std::string> environment;
  std::string workingDirectory;  // empty: the root folder
  bool runAtLoad = false;
  bool keepAlive = false;              // "KeepAlive" is true
  std::optional<bool> successfulExit;  // restart after exits that were (true) or were not (false) successful
  std::vector<PathState> pathStates;   // when there are any, they alone decide: one that holds is enough
  double exitTimeOut = 20;             // seconds from SIGTERM to SIGKILL; 0: no SIGKILL
  double throttleInterval = 10;        // seconds
  std::string standardInPath;          // empty: the null device
  std::string standardOutPath;
  std::string standardErrorPath;
  Dictionary list;  // the description as it was read

  bool triggered() const { return !pathStates.empty(); }
  // Whether loading alone starts it. A job that runs again depending on its exit must run once to have one.
  bool startsAtLoad() const { return !triggered() && (runAtLoad || keepAlive || successfulExit.has_value()); }
};

// Checks a description. Failure, naming the key and the type it must have, for what cannot be used; keys that mean
// nothing here are added to unknownKeys ("KeepAlive.X" for the inner ones), each once.
JobDescription describeJob(const Dictionary& list, std::vector<std::string>* unknownKeys);

// The path at which the program of a job is found: itself when it is absolute, else along the folders of `searchPath`.
// Failure when there is none.
std::string findProgram(const std::string& program, const std::string& searchPath);

// The environment that jobs get from the loader: PATH, the user's names and folders, the language, the session's bus
// and the system's own variables. The description's variables come on top.
std::map<std::string, std::string> loaderEnvironment();

}  // namespace launchctl
