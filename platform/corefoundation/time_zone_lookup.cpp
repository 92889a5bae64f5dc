// Finding zones: by name, by the environment's TZ, by /etc/localtime; and the two that are kept for the process.
#include "platform/corefoundation/time_zone_lookup.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <mutex>

#include "platform/corefoundation/base.h"
#include "platform/corefoundation/string.h"

namespace cf {
namespace {

constexpr const char* kLocalTimeFile = "/etc/localtime";

// A descriptor that is closed with its scope.
class Descriptor {
 public:
  // Without blocking, whatever lies at the path.
  explicit Descriptor(const char* path) : number_(::open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY)) {}
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (number_ >= 0) ::close(number_);
  }
  int number() const noexcept { return number_; }

 private:
  int number_;
};

// The zone in a file, which must be a regular one of at most a mebibyte (the largest known has four kibibytes).
std::optional<Zone> zoneInFile(const std::string& path) {
  constexpr off_t greatestSize = 1 << 20;
  const Descriptor file(path.c_str());
  struct stat facts {};
  if (file.number() < 0 || ::fstat(file.number(), &facts) != 0 || !S_ISREG(facts.st_mode) ||
      facts.st_size > greatestSize) {
    return std::nullopt;
  }
  std::vector<std::uint8_t> content(static_cast<std::size_t>(facts.st_size));
  std::size_t length = 0;
  while (length < content.size()) {
    const ssize_t got = ::read(file.number(), content.data() + length, content.size() - length);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return std::nullopt;
    length += static_cast<std::size_t>(got);
  }
  return Zone::fromTZif(content);
}

std::string zoneFolder() {
  const char* const folder = std::getenv("TZDIR");
  return folder != nullptr && *folder != '\0' ? folder : "/usr/share/zoneinfo";
}

// Whether the name stays inside the zone folder.
bool isSafeName(std::string_view name) {
  if (name.empty() || name.front() == '/' || name.find('\0') != std::string_view::npos) return false;
  return ("/" + std::string(name) + "/").find("/../") == std::string::npos;
}

std::optional<Zone> zoneNamed(const std::string& name) {
  if (!isSafeName(name)) return std::nullopt;
  if (std::optional<Zone> zone = zoneInFile(zoneFolder() + "/" + name)) return zone;
  if (name == "GMT" || name == "UTC") return Zone::fixed(0, name);
  return std::nullopt;
}

// "GMT+2", "GMT-0330", "GMT+5:30": the offset in seconds.
std::optional<std::int32_t> offsetOfAbbreviation(std::string_view text) {
  if (text.size() < 5 || text.substr(0, 3) != "GMT" || (text[3] != '+' && text[3] != '-')) return std::nullopt;
  std::string digits;
  for (const char c : text.substr(4)) {
    const bool separates = c == ':' && !digits.empty() && digits.size() <= 2 && text.size() - 4 == digits.size() + 3;
    if (separates) continue;
    if (c < '0' || c > '9') return std::nullopt;
    digits += c;
  }
  if (digits.size() > 4) return std::nullopt;
  const int number = std::atoi(digits.c_str());
  const int hours = digits.size() <= 2 ? number : number / 100;
  const int minutes = digits.size() <= 2 ? 0 : number % 100;
  if (hours > 23 || minutes > 59) return std::nullopt;
  const int offset = hours * 3600 + minutes * 60;
  return text[3] == '-' ? -offset : offset;
}

CFTimeZoneRef createGMT() { return createTimeZone("GMT", Zone::fixed(0, "GMT")); }

// What TZ says; GMT when it says nothing that can be read, as the C library takes it.
CFTimeZoneRef createFromEnvironment(std::string text) {
  if (!text.empty() && text.front() == ':') text.erase(0, 1);
  if (text.empty()) return createGMT();
  std::optional<Zone> zone = text.front() == '/' ? zoneInFile(text) : zoneNamed(text);
  if (!zone) {
    if (std::optional<PosixZone> rules = PosixZone::parse(text)) zone = Zone::following(std::move(*rules));
  }
  return zone ? createTimeZone(text, std::move(*zone)) : createGMT();
}

// The zone's name is the part of the link's target behind the zone folder.
std::string nameOfLocalTimeFile() {
  std::string target(4096, '\0');
  const ssize_t length = ::readlink(kLocalTimeFile, target.data(), target.size());
  target.resize(length > 0 ? static_cast<std::size_t>(length) : 0);
  constexpr std::string_view folder = "/zoneinfo/";
  const std::size_t at = target.rfind(folder);
  return at == std::string::npos ? "localtime" : target.substr(at + folder.size());
}

CFTimeZoneRef createSystemTimeZone() {
  if (const char* const environment = std::getenv("TZ")) return createFromEnvironment(environment);
  std::optional<Zone> zone = zoneInFile(kLocalTimeFile);
  return zone ? createTimeZone(nameOfLocalTimeFile(), std::move(*zone)) : createGMT();
}

// The zones kept for the process, each with a reference of its own.
constinit std::mutex keptZonesMutex;
constinit CFTimeZoneRef keptSystemZone = nullptr;
constinit CFTimeZoneRef keptDefaultZone = nullptr;

}  // namespace
}  // namespace cf

CFTimeZoneRef CFTimeZoneCopySystem() {
  const std::lock_guard lock(cf::keptZonesMutex);
  if (cf::keptSystemZone == nullptr) cf::keptSystemZone = cf::createSystemTimeZone();
  return static_cast<CFTimeZoneRef>(CFRetain(cf::keptSystemZone));
}

void CFTimeZoneResetSystem() {
  cf::Owned<CFTimeZoneRef> old;
  const std::lock_guard lock(cf::keptZonesMutex);
  old.reset(std::exchange(cf::keptSystemZone, nullptr));
}

CFTimeZoneRef CFTimeZoneCopyDefault() {
  {
    const std::lock_guard lock(cf::keptZonesMutex);
    if (cf::keptDefaultZone != nullptr) return static_cast<CFTimeZoneRef>(CFRetain(cf::keptDefaultZone));
  }
  return CFTimeZoneCopySystem();
}

void CFTimeZoneSetDefault(CFTimeZoneRef timeZone) {
  cf::Owned<CFTimeZoneRef> old;
  const std::lock_guard lock(cf::keptZonesMutex);
  old.reset(std::exchange(cf::keptDefaultZone, static_cast<CFTimeZoneRef>(CFRetain(timeZone))));
}

CFTimeZoneRef CFTimeZoneCreateWithName(CFAllocatorRef, CFStringRef name, Boolean tryAbbreviation) {
  if (name == nullptr) return nullptr;
  const std::string text(cf::utf8View(name));
  if (std::optional<cf::Zone> zone = cf::zoneNamed(text)) return cf::createTimeZone(text, std::move(*zone));
  if (tryAbbreviation) {
    if (const std::optional<std::int32_t> offset = cf::offsetOfAbbreviation(text)) {
      return cf::createFixedTimeZone(*offset);
    }
  }
  return nullptr;
}
