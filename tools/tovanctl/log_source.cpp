#include "tools/tovanctl/log_source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <tovan/constants.h>
#include <tovan/file_util.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <utility>

#include "tools/tovanctl/daemon.h"
#include "tools/tovanctl/exit_code.h"
#include "tools/tovanctl/services.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {
namespace {

std::string logPath(const std::string& service, std::uint32_t instance) {
  const plinth::CSharedCFRef<CFStringRef> folder(
      TovanExpandTildeInPath(string(tovan::TovanCorePrivate::kTovanLogFilePath).get()));
  return text(folder.get()) + service + (instance != 0 ? "-" + std::to_string(instance) : "") + ".log";
}

bool isThere(const std::string& path) {
  std::error_code ignored;
  return std::filesystem::exists(path, ignored);
}

[[noreturn]] void fail(const std::string& path, const std::string& reason) {
  throw CommandError(kFailed, "cannot read " + path + ": " + reason);
}

}  // namespace

LogSource logOfService(const std::string& service, std::uint32_t instance) {
  LogSource source;
  source.path = logPath(service, instance);
  if (service == kDaemonName) {
    source.hint = "the daemon makes it when it starts";
    return source;
  }
  const bool mayBeFileName = !service.empty() && service.find('/') == std::string::npos;
  if (mayBeFileName && isThere(source.path)) return source;
  const tovan::CServiceCacheFile cache;
  serviceOfName(cache, service);
  source.hint = "a service makes it when it starts, if its Logging or the cluster's LogToFile is on";
  return source;
}

LogSource sourceOf(const LogOptions& options) {
  if (options.service.empty() == options.file.empty()) {
    throw CommandError(kUsage, "name either a service or, with --file, a file");
  }
  if (options.file.empty()) return logOfService(options.service, options.instance);
  if (options.hasInstance) throw CommandError(kUsage, "--instance belongs to a service, not to a file");
  return {options.file, "", true};
}

LogFile::LogFile(LogFile&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}

LogFile& LogFile::operator=(LogFile&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  return *this;
}

LogFile::~LogFile() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

LogFile openLog(const LogSource& source) {
  if (source.isNamed && source.path == "-") return LogFile(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3));
  LogFile file(::open(source.path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | (source.isNamed ? 0 : O_NONBLOCK)));
  if (!file && errno == ENOENT) return file;
  if (!file) fail(source.path, std::strerror(errno));
  struct stat facts {};
  if (::fstat(file.descriptor(), &facts) != 0) fail(source.path, std::strerror(errno));
  if (S_ISDIR(facts.st_mode)) fail(source.path, "it is a folder");
  if (!source.isNamed && !S_ISREG(facts.st_mode)) fail(source.path, "it is no file");
  return file;
}

}  // namespace tovanctl
