#include "platform/system/tool_lookup.h"

#include <dlfcn.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <mutex>

namespace platform {
namespace {

// Relative to the folder of this library; the build places the adapters there.
constexpr const char* kAdapters = TOVAN_ADAPTERS_BESIDE_LIBRARY;

constexpr const char* kSessionVariables[] = {
    "HOME",
    "TMPDIR",
    "PATH",
    "XDG_RUNTIME_DIR",
    "XDG_CONFIG_HOME",
    "DBUS_SESSION_BUS_ADDRESS",
    // Where the port's own bus and job host are, when that is not their usual place.
    "TOVAN_BUS_FOLDER",
    "TOVAN_LAUNCHD",
    "TOVAN_LAUNCHD_FOLDER",
    // How the port's mount and umount work.
    "TOVAN_NFS_VERSION",
    "TOVAN_HOST_MOUNT",
    "TOVAN_HOST_UMOUNT",
};

constinit std::mutex folderGuard;
constinit char folderForTesting[PATH_MAX] = "";

std::string testFolder() {
  const std::lock_guard guard(folderGuard);
  return folderForTesting;
}

bool exists(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

std::string folderOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

// Symbolic links to the library are followed. Empty when the loader or the file system cannot tell.
std::string libraryFolder() {
  Dl_info image{};
  if (::dladdr(reinterpret_cast<const void*>(&toolPath), &image) == 0 || image.dli_fname == nullptr) return "";
  struct Free {
    void operator()(char* text) const { std::free(text); }
  };
  const std::unique_ptr<char, Free> real(::realpath(image.dli_fname, nullptr));
  return real != nullptr ? folderOf(real.get()) : "";
}

}  // namespace

std::string toolPath(const std::string& nativePath) {
  const std::string name = nativePath.substr(nativePath.rfind('/') + 1);
  if (const std::string folder = testFolder(); !folder.empty()) return folder + "/" + name;
  if (exists(nativePath)) return nativePath;
  const std::string library = libraryFolder();
  if (library.empty()) return nativePath;
  std::string adapter = library + "/" + kAdapters + "/" + name;
  return exists(adapter) ? adapter : nativePath;
}

std::vector<std::string> toolEnvironment(const std::string& nativePath, const std::string& foundPath) {
  std::vector<std::string> environment;
  if (foundPath == nativePath) return environment;
  for (const char* const name : kSessionVariables) {
    if (const char* const value = std::getenv(name)) environment.push_back(std::string(name) + "=" + value);
  }
  return environment;
}

void setToolFolderForTesting(const std::string& folder) {
  const std::lock_guard guard(folderGuard);
  const std::size_t size = folder.size() < sizeof folderForTesting ? folder.size() : 0;
  std::memcpy(folderForTesting, folder.data(), size);
  folderForTesting[size] = '\0';
}

}  // namespace platform
