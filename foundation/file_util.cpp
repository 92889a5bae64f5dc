// file_util.h's file tests and folders; the limit of open files is file_util_limit.cpp.
#include <tovan/file_util.h>

#include <plinth/shared_cf_ref.h>

#include "platform/system/console_user.h"
#include "platform/system/home.h"

#include <glob.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstring>
#include <mutex>
#include <optional>
#include <string>

using plinth::CSharedCFRef;

namespace {

constinit std::mutex homeLock;

std::optional<struct stat> examine(const char* path) {
  struct stat facts {};
  if (path == nullptr || stat(path, &facts) != 0) return std::nullopt;
  return facts;
}

CFStringRef createPathString(const std::string& path) {
  return path.empty() ? nullptr : CFStringCreateWithFileSystemRepresentation(kCFAllocatorDefault, path.c_str());
}

}  // namespace

extern "C" {

uid_t currentUser() { return platform::consoleUser(); }

bool fileExists(const char* path) { return examine(path).has_value(); }

std::int64_t fileSize(const char* path) {
  const auto facts = examine(path);
  return facts ? facts->st_size : -1;
}

char* expandTildeInFilePath(const char* path) {
  if (path == nullptr) return nullptr;
  glob_t matches{};
  const bool found = glob(path, GLOB_TILDE, nullptr, &matches) == 0 && matches.gl_pathc > 0;
  char* const first = found ? strdup(matches.gl_pathv[0]) : nullptr;
  globfree(&matches);
  return first;
}

CFStringRef TovanGetHomeDirectory() {
  const std::lock_guard locked(homeLock);
  return createPathString(platform::homeDirectory());
}

CFStringRef TovanGetTemporaryDirectory() { return createPathString(platform::temporaryDirectory()); }

CFStringRef TovanExpandTildeInPath(CFStringRef path) {
  if (path == nullptr) return nullptr;
  if (!CFStringHasPrefix(path, CFSTR("~/"))) return static_cast<CFStringRef>(CFRetain(path));
  const CSharedCFRef<CFStringRef> home = TovanGetHomeDirectory();
  const CFRange behindTilde = CFRangeMake(1, CFStringGetLength(path) - 1);
  const CSharedCFRef<CFStringRef> rest = CFStringCreateWithSubstring(kCFAllocatorDefault, path, behindTilde);
  if (home.isNull() || rest.isNull()) return nullptr;
  return CFStringCreateWithFormat(kCFAllocatorDefault, nullptr, CFSTR("%@%@"), home.get(), rest.get());
}

}  // extern "C"

namespace tovan {

CFStringRef CFileUtil::getHomeDirectory() { return TovanGetHomeDirectory(); }
CFStringRef CFileUtil::getTemporaryDirectory() { return TovanGetTemporaryDirectory(); }
CFStringRef CFileUtil::expandTildeInPath(CFStringRef path) { return TovanExpandTildeInPath(path); }

}  // namespace tovan
