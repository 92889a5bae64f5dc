#include "foundation/replacement_file.h"

#include "platform/system/descriptor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <memory>
#include <utility>

namespace tovan {

namespace {

struct Free {
  void operator()(char* text) const noexcept { std::free(text); }
};

// The path with its links resolved, or the path itself when nothing is there yet.
std::string realPath(const std::string& path) {
  const std::unique_ptr<char, Free> resolved(::realpath(path.c_str(), nullptr));
  return resolved ? std::string(resolved.get()) : path;
}

// Unique in this process; another process's leftover of the same name only makes the caller ask for the next one.
std::string nextName() {
  static constinit std::atomic<unsigned int> counter{0};
  return ".tovan-" + std::to_string(::getpid()) + "-" + std::to_string(counter.fetch_add(1, std::memory_order_relaxed));
}

}  // namespace

ReplacementFile::ReplacementFile(const std::string& path) : target_(realPath(path)) {
  const std::string::size_type slash = target_.rfind('/');
  create(slash == std::string::npos ? std::string() : target_.substr(0, slash + 1));
}

ReplacementFile::~ReplacementFile() {
  if (!path_.empty()) ::unlink(path_.c_str());
}

void ReplacementFile::create(const std::string& folder) {
  constexpr int kAttempts = 1000;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    std::string name = folder + nextName();
    const platform::Descriptor file = platform::Descriptor::open(name.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0666);
    error_ = file ? 0 : errno;
    if (error_ == EEXIST) continue;
    if (error_ == 0) {
      path_ = std::move(name);
      takePermissionsOf(target_);
    }
    return;
  }
}

// Best effort: whoever may replace the file but not give it away gets a file of their own.
void ReplacementFile::takePermissionsOf(const std::string& file) {
  struct stat old {};
  if (::stat(file.c_str(), &old) != 0) return;
  [[maybe_unused]] const int given = ::chown(path_.c_str(), old.st_uid, old.st_gid);
  ::chmod(path_.c_str(), old.st_mode & 0777);
}

int ReplacementFile::flush() {
  const platform::Descriptor file = platform::Descriptor::open(path_.c_str(), O_WRONLY);
  if (!file || ::fsync(file.get()) != 0) return errno;
  isFlushed_ = true;
  return 0;
}

int ReplacementFile::replace() {
  const int error = isFlushed_ ? 0 : flush();
  if (error != 0) return error;
  if (::rename(path_.c_str(), target_.c_str()) != 0) return errno;
  path_.clear();
  return 0;
}

}  // namespace tovan
