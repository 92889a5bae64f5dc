// CFUtil::CFDataWriteToURL.
#include <tovan/cf_util.h>

#include "foundation/replacement_file.h"
#include "platform/system/descriptor.h"
#include "platform/system/locked_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <string>

namespace tovan {
namespace {

using platform::Descriptor;

constexpr mode_t kNewFileMode = 0666;  // less the process's file-creation mask

// With the room reserved first, so that a full disk or a file-size limit leaves the old content.
bool replaceContent(const Descriptor& file, CFDataRef data) {
  const CFIndex length = CFDataGetLength(data);
  struct stat facts {};
  if (fstat(file.get(), &facts) != 0) return false;
  const bool isRegular = S_ISREG(facts.st_mode);
  if (isRegular && !platform::reserveSpace(file.get(), length)) return false;
  if (!platform::writeAll(file, CFDataGetBytePtr(data), static_cast<std::size_t>(length))) return false;
  return !isRegular || ftruncate(file.get(), length) == 0;
}

bool writeInPlace(const std::string& path, CFDataRef data) {
  // Without O_NONBLOCK a FIFO that nobody reads would hold the caller for ever.
  const int flags = O_WRONLY | O_NONBLOCK | O_NOCTTY;
  Descriptor file = Descriptor::open(path.c_str(), flags | O_CREAT | O_EXCL, kNewFileMode);
  const bool isNew = static_cast<bool>(file);
  if (!isNew && errno == EEXIST) file = Descriptor::open(path.c_str(), flags);
  if (!file) return false;
  if (replaceContent(file, data)) return true;
  if (isNew) unlink(path.c_str());
  return false;
}

// The path behind any symbolic links at its end; the last of them, when it leads nowhere, is the file to be made.
std::string withoutLinks(std::string path) {
  constexpr int kMostLinks = 40;
  for (int link = 0; link < kMostLinks; ++link) {
    char target[PATH_MAX];
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    if (length <= 0 || static_cast<std::size_t>(length) == sizeof target) break;
    // A relative target begins at the link's folder.
    path.resize(target[0] == '/' ? 0 : path.rfind('/') + 1);
    path.append(target, static_cast<std::size_t>(length));
  }
  return path;
}

bool writeAtomically(const std::string& path, CFDataRef data) {
  const std::string target = withoutLinks(path);
  struct stat facts {};
  const bool isThere = stat(target.c_str(), &facts) == 0;
  if (!isThere && errno != ENOENT) return false;
  // A folder, device or FIFO would stop being what it is.
  if (isThere && !S_ISREG(facts.st_mode)) return false;
  ReplacementFile replacement(target);
  if (replacement.error() != 0) return false;
  const Descriptor file = Descriptor::open(replacement.path().c_str(), O_WRONLY);
  return file && replaceContent(file, data) && replacement.replace() == 0;
}

// Empty when the URL has none.
std::string pathOf(CFURLRef url) {
  UInt8 path[PATH_MAX];
  if (url == nullptr || !CFURLGetFileSystemRepresentation(url, true, path, sizeof path)) return {};
  return reinterpret_cast<const char*>(path);
}

}  // namespace

bool CFUtil::CFDataWriteToURL(CFDataRef data, CFURLRef url, bool atomically) {
  const std::string path = pathOf(url);
  if (data == nullptr || path.empty()) return false;
  return atomically ? writeAtomically(path, data) : writeInPlace(path, data);
}

}  // namespace tovan
