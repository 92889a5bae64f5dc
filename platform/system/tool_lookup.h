// tool_lookup.h: the native platform's tools, and what stands in for them here.
//
// The port brings an adapter for each tool that the host does not have. Adapters lie in the folder "tovan/bin" beside
// the platform library, in the build folder and in a prefix alike; the library asks where it was itself loaded from.
#pragma once

#include "platform/system/export.h"

#include <string>
#include <vector>

namespace platform {

// Where to find the tool with that native path, such as "/bin/launchctl": the path itself when it exists, else the
// adapter of the same name. When there is neither it is the path itself, so that a failure names that.
PLATFORM_EXPORT std::string toolPath(const std::string& nativePath);

// The variables of this process's environment, as NAME=VALUE, that a tool found so needs beyond the user's own. An
// adapter must find the same user session as this process (home and temporary folder, the session's bus and run-time
// folder, the programs it calls); the native tool needs nothing.
PLATFORM_EXPORT std::vector<std::string> toolEnvironment(const std::string& nativePath, const std::string& foundPath);

// For tests: tools are looked for in this folder only, by their names, and may be missing there; the empty text ends
// that. Not while another thread looks up a tool that it is about to run.
PLATFORM_EXPORT void setToolFolderForTesting(const std::string& folder);

}  // namespace platform
