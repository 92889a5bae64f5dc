// file_util.h's limit of open files.
#include <tovan/file_util.h>

#include "platform/system/error_text.h"

#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <limits>

namespace {

std::int64_t asCount(rlim_t limit) {
  constexpr auto most = std::numeric_limits<std::int64_t>::max();
  return limit == RLIM_INFINITY || limit > static_cast<rlim_t>(most) ? most : static_cast<std::int64_t>(limit);
}

bool readLimits(rlimit& limits) {
  if (getrlimit(RLIMIT_NOFILE, &limits) == 0) return true;
  std::fprintf(stderr, "[%d]: getrlimit(RLIMIT_NOFILE) failed: %s\n", static_cast<int>(getpid()),
               platform::errorText(errno).c_str());
  return false;
}

}  // namespace

extern "C" {

std::int64_t getMaxOpenFiles() {
  rlimit limits{};
  return readLimits(limits) ? asCount(limits.rlim_cur) : -1;
}

std::int64_t setMaxOpenFiles(std::int64_t n) {
  rlimit limits{};
  if (!readLimits(limits)) return -1;
  const std::int64_t present = asCount(limits.rlim_cur);
  if (present >= n || (n > asCount(limits.rlim_max) && limits.rlim_max != RLIM_INFINITY)) return present;
  limits.rlim_cur = static_cast<rlim_t>(n);
  if (setrlimit(RLIMIT_NOFILE, &limits) == 0) return n;
  std::fprintf(stderr, "[%d]: setrlimit(RLIMIT_NOFILE, %ld/%ld) failed: %s\n", static_cast<int>(getpid()),
               static_cast<long>(limits.rlim_cur), static_cast<long>(limits.rlim_max),
               platform::errorText(errno).c_str());
  return -1;
}

std::int64_t TovanGetMaxOpenFiles() { return getMaxOpenFiles(); }

std::int64_t TovanSetMaxOpenFiles(std::int64_t n) { return setMaxOpenFiles(n); }

std::int64_t TovanSetDefaultMaxOpenFiles() { return setMaxOpenFiles(2048); }

}  // extern "C"

namespace tovan {

std::int64_t CFileUtil::getMaxOpenFiles() { return ::getMaxOpenFiles(); }
std::int64_t CFileUtil::setMaxOpenFiles(std::int64_t n) { return ::setMaxOpenFiles(n); }
std::int64_t CFileUtil::setDefaultMaxOpenFiles() { return TovanSetDefaultMaxOpenFiles(); }

}  // namespace tovan
