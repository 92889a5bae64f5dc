// arguments.h: what the command line asks for.
#pragma once

#include <string>

namespace exports {

// The program's interface: docs/exports.md lists them.
enum ExitCode : int {
  kDone = 0,
  kFailed = 1,      // a file cannot be read or written, exportfs cannot be run
  kUsage = 2,       // the command line is wrong
  kRefused = 3,     // the configuration is refused
  kIncomplete = 4,  // done, but something of the library's file is not exported
};

struct Arguments {
  bool once = false;
  bool check = false;  // look only
  bool json = false;
  std::string exportsFile;  // empty: the configuration's, else the library's own place
  std::string configurationFile = "/etc/tovan/exports.conf";
  std::string outputFile;  // empty: the server's usual one
  std::string exportfs = "/usr/sbin/exportfs";
  std::string servedList = "/var/lib/nfs/etab";
};

}  // namespace exports
