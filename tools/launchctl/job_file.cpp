#include "tools/launchctl/job_file.h"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "tools/launchctl/descriptor.h"
#include "tools/launchctl/failure.h"
#include "tools/launchctl/whole_file.h"

namespace launchctl {
namespace {

constexpr std::size_t kLargestDescription = 1;  // MiB

std::string absolutePath(std::string argument) {
  if (argument.empty()) throw Failure("an empty path names no job description");
  while (argument.size() > 1 && argument.back() == '/') argument.pop_back();
  if (argument.front() == '/') return argument;
  std::error_code error;
  const std::filesystem::path folder = std::filesystem::current_path(error);
  if (error) throw Failure(argument + ": the current folder is not there: " + error.message());
  return (folder / argument).string();
}

void refuseOthers(const std::string& path, const struct stat& facts) {
  if (facts.st_uid != ::geteuid()) {
    throw Failure(path + ": refused: it belongs to user " + std::to_string(facts.st_uid) + ", not to you (" +
                  std::to_string(::geteuid()) + ")");
  }
  if ((facts.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    throw Failure(path + ": refused: others can write it; take that away with chmod go-w");
  }
}

std::vector<std::string> descriptionsInFolder(const std::string& path) {
  Descriptor folder(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!folder) throw systemFailure(path + ": cannot open the folder");
  struct stat facts {};
  if (::fstat(folder.get(), &facts) != 0) throw systemFailure(path + ": cannot look at the folder");
  refuseOthers(path, facts);
  const int number = ::fcntl(folder.get(), F_DUPFD_CLOEXEC, 0);
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(::fdopendir(number), ::closedir);
  if (!entries) throw systemFailure(path + ": cannot read the folder");
  std::vector<std::string> found;
  while (const dirent* const entry = ::readdir(entries.get())) {
    const std::string name = entry->d_name;
    // Names that begin with a dot are other programs' business, such as a file that is being written.
    if (name.front() != '.' && name.size() > 6 && name.compare(name.size() - 6, 6, ".plist") == 0) {
      found.push_back(path);
      found.back().append("/").append(name);
    }
  }
  std::sort(found.begin(), found.end());
  return found;
}

}  // namespace

NamedFiles filesOfArgument(const std::string& argument) {
  const std::string path = absolutePath(argument);
  struct stat facts {};
  if (::lstat(path.c_str(), &facts) == 0 && S_ISDIR(facts.st_mode)) return {true, descriptionsInFolder(path)};
  return {false, {path}};
}

JobDescription readJobFile(const std::string& path, std::vector<std::string>* unknownKeys) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file) {
    if (errno == ELOOP) throw Failure(path + ": refused: it is a symbolic link");
    throw systemFailure(path + ": cannot open it");
  }
  struct stat facts {};
  if (::fstat(file.get(), &facts) != 0) throw systemFailure(path + ": cannot look at it");
  if (!S_ISREG(facts.st_mode)) throw Failure(path + ": refused: it is not a regular file");
  refuseOthers(path, facts);
  const std::string content = readWhole(path, file.get(), kLargestDescription);
  try {
    return describeJob(parseDictionary(content), unknownKeys);
  } catch (const Failure& failure) {
    throw Failure(path + ": " + failure.what());
  }
}

}  // namespace launchctl
