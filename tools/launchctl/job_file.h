// job_file.h: job descriptions on disk. They decide what runs as the user, so only a regular file that belongs to the
// user and that nobody else can write is read; the same holds for a folder that is named in place of files.
#pragma once

#include <string>
#include <vector>

#include "tools/launchctl/job_description.h"

namespace launchctl {

// The descriptions that an argument names: the argument itself, or every *.plist of the folder, sorted. Failure for a
// folder that is not the user's own or that others can write. Links are not followed; paths become absolute.
struct NamedFiles {
  bool folder = false;
  std::vector<std::string> files;
};
NamedFiles filesOfArgument(const std::string& argument);

// Reads and checks one. Failure beginning with the path: not the user's own, writable by others, a link, a FIFO or
// anything else that is no regular file, larger than 1 MiB, no property list, or what describeJob() refuses. Nothing
// blocks.
JobDescription readJobFile(const std::string& path, std::vector<std::string>* unknownKeys);

}  // namespace launchctl
