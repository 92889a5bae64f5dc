// pass.h: one pass from the library's file to the server and back.
#pragma once

#include "tools/exports/arguments.h"
#include "tools/exports/configuration.h"
#include "tools/exports/report.h"

namespace exports {

// Reads the configuration; a missing file is a configuration without hosts. Failure when it cannot be read or others
// than root and this user could have written it; ConfigurationError, with the file's name, when it is refused.
Configuration loadConfiguration(const std::string& path);
// The library's file by the command line, else the configuration, else where the library has it.
std::string exportsFileOf(const Arguments& arguments, const Configuration& configuration);
// The file that is written.
std::string outputFileOf(const Arguments& arguments, const Configuration& configuration);

// Reads, writes, tells the server and reads back; with Arguments::check reads alone. Failure when a file cannot be read
// or written, or exportfs not run.
Report makePass(const Arguments& arguments, const Configuration& configuration);

}  // namespace exports
