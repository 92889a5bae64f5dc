#include "tools/launchctl/streams.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace launchctl {
namespace {

int openStream(const char* path, bool input, int wanted) noexcept {
  const bool none = path == nullptr || *path == '\0';
  const int flags = input ? O_RDONLY : none ? O_WRONLY : O_WRONLY | O_CREAT | O_APPEND;
  const int opened = ::open(none ? "/dev/null" : path, flags | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC, 0644);
  if (opened < 0) return errno;
  struct stat facts {};
  int error = ::fstat(opened, &facts) == 0 ? 0 : errno;
  if (error == 0 && !S_ISREG(facts.st_mode) && !S_ISCHR(facts.st_mode)) error = EINVAL;
  // What was opened without blocking is handed on blocking, as programs expect it.
  if (error == 0 && ::fcntl(opened, F_SETFL, flags & O_APPEND) < 0) error = errno;
  if (error == 0 && opened == wanted) {
    return ::fcntl(opened, F_SETFD, 0) < 0 ? errno : 0;
  }
  if (error == 0 && ::dup2(opened, wanted) < 0) error = errno;
  ::close(opened);
  return error;
}

}  // namespace

int openStreams(const char* in, const char* out, const char* err, const char** failed) noexcept {
  const char* const paths[] = {in, out, err};
  for (int stream = 0; stream < 3; ++stream) {
    const int error = openStream(paths[stream], stream == 0, stream);
    if (error != 0) {
      *failed = paths[stream] == nullptr || *paths[stream] == '\0' ? "/dev/null" : paths[stream];
      return error;
    }
  }
  return 0;
}

}  // namespace launchctl
