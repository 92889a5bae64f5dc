#include "tools/exports/guarded_file.h"

#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>

#include "tools/launchctl/descriptor.h"
#include "tools/launchctl/failure.h"
#include "tools/launchctl/whole_file.h"

namespace exports {
namespace {

using launchctl::Descriptor;
using launchctl::Failure;
using launchctl::systemFailure;

constexpr std::size_t kLargest = 8;  // MiB

void writeWhole(int descriptor, std::string_view text, const std::string& path) {
  while (!text.empty()) {
    const ssize_t count = ::write(descriptor, text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw systemFailure(path + ": cannot write it");
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  if (::fchmod(descriptor, 0644) != 0) throw systemFailure(path + ": cannot set its mode");
  if (::fsync(descriptor) != 0) throw systemFailure(path + ": cannot write it");
}

// A file beside the one to be written, which goes unless it gets its name.
class FileBeside {
 public:
  explicit FileBeside(const std::string& path) : path_(path) {
    const std::size_t name = path.rfind('/') + 1;
    // exportfs reads no file whose name begins with a dot.
    beside_ = path.substr(0, name) + "." + path.substr(name) + ".XXXXXX";
    descriptor_.reset(::mkostemp(beside_.data(), O_CLOEXEC));
    if (!descriptor_) throw systemFailure(path + ": cannot make a file beside it");
  }
  ~FileBeside() {
    if (!beside_.empty()) ::unlink(beside_.c_str());
  }
  FileBeside(const FileBeside&) = delete;
  FileBeside& operator=(const FileBeside&) = delete;

  int descriptor() const { return descriptor_.get(); }
  void takePlace() {
    if (::rename(beside_.c_str(), path_.c_str()) != 0) throw systemFailure(path_ + ": cannot be replaced");
    beside_.clear();
  }

 private:
  const std::string& path_;
  std::string beside_;
  Descriptor descriptor_;
};

}  // namespace

std::optional<GuardedText> readGuarded(const std::string& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file) {
    if (errno == ENOENT) return std::nullopt;
    if (errno == ELOOP) throw Failure(path + ": refused: it is a symbolic link");
    throw systemFailure(path + ": cannot open it");
  }
  struct stat facts {};
  if (::fstat(file.get(), &facts) != 0) throw systemFailure(path + ": cannot look at it");
  if (!S_ISREG(facts.st_mode)) throw Failure(path + ": refused: it is not a regular file");
  if ((facts.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    throw Failure(path + ": refused: others can write it; take that away with chmod go-w");
  }
  return GuardedText{launchctl::readWhole(path, file.get(), kLargest), facts.st_uid};
}

void replaceFile(const std::string& path, std::string_view text) {
  std::error_code error;
  std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
  if (error) throw Failure(path + ": its folder cannot be made: " + error.message());
  FileBeside file(path);
  writeWhole(file.descriptor(), text, path);
  file.takePlace();
}

}  // namespace exports
