// What the host brings: the frameworks, launchctl, lingering, the bus.
#include <fmt/format.h>
#include <plinth/plinth.h>
#include <pwd.h>
#include <sys/stat.h>
#include <tovan/framework_location.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>

#include "tools/tovanctl/bus.h"
#include "tools/tovanctl/doctor_checks.h"
#include "tools/tovanctl/jobs.h"
#include "tools/tovanctl/values.h"

namespace tovanctl {
namespace {

using plinth::CSharedCFRef;

constexpr double kRoundTripTimeout = 5;

bool isThere(const std::string& path) { return ::access(path.c_str(), F_OK) == 0; }

std::string pathOf(CFURLRef url) {
  if (url == nullptr) return {};
  const CSharedCFRef<CFStringRef> path(CFURLCopyFileSystemPath(url, kCFURLPOSIXPathStyle));
  return text(path.get());
}

std::string userName() {
  const passwd* const entry = ::getpwuid(::geteuid());
  return entry != nullptr ? entry->pw_name : std::to_string(::geteuid());
}

// Whether launch agents run under the systemd user manager here: launchctl's own choice, from outside.
bool usesSystemd() {
  const char* const asked = std::getenv("TOVAN_LAUNCHD");
  if (asked != nullptr && *asked != '\0') return std::string(asked) == "systemd";
  const char* const given = std::getenv("XDG_RUNTIME_DIR");
  const std::string folder = given != nullptr && *given != '\0' ? given : "/run/user/" + std::to_string(::geteuid());
  return isThere(folder + "/systemd/private");
}

void checkBundle(Checks& checks, const std::string& name, CFURLRef url) {
  const CSharedCFRef<CFURLRef> held(url);
  const bool there = url != nullptr;
  checks.push_back({name, there, there ? pathOf(url) : "does not lie in Lumisphere.framework beside Mervane.framework",
                    there ? "" : "cmake --install BUILD --prefix PREFIX"});
}

}  // namespace

bool isProgram(const std::string& path) {
  struct stat facts {};
  return ::stat(path.c_str(), &facts) == 0 && S_ISREG(facts.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

std::string clusterFramework() {
  const CSharedCFRef<CFURLRef> url(getMervaneFrameworkURL());
  return pathOf(url.get());
}

std::string programInPath(const std::string& name) {
  const char* const variable = std::getenv("PATH");
  std::string folders = variable == nullptr ? "/usr/bin:/bin" : variable;
  for (std::size_t at = 0; at <= folders.size();) {
    const std::size_t end = std::min(folders.find(':', at), folders.size());
    std::string path = folders.substr(at, end - at) + "/" + name;
    if (isProgram(path)) return path;
    at = end + 1;
  }
  return {};
}

std::string shellWord(const std::string& path) { return plinth::CSTR(path)->shellEscapedFilename()->str(); }

void checkFrameworks(Checks& checks) {
  const std::string framework = clusterFramework();
  if (framework.empty()) {
    checks.push_back({"cluster framework", false, "the library does not lie in a Mervane.framework",
                      "cmake --install BUILD --prefix PREFIX"});
    return;
  }
  checks.push_back({"cluster framework", true, framework, ""});
  const std::string daemon = framework + "/Resources/mervaned";
  const bool there = isThere(daemon);
  checks.push_back({"daemon program", isProgram(daemon),
                    isProgram(daemon) ? daemon : daemon + (there ? " cannot be executed" : " is missing"),
                    isProgram(daemon) ? ""
                    : there           ? "chmod +x " + shellWord(daemon)
                                      : "cmake --install BUILD --prefix PREFIX"});
  CFURLRef jobController = nullptr;
  CFURLRef transcoder = nullptr;
  getLumisphereServiceBundleURLs(&jobController, &transcoder);
  checkBundle(checks, "job controller bundle", jobController);
  checkBundle(checks, "transcoder bundle", transcoder);
}

void checkLaunchctl(Checks& checks) {
  const std::string framework = clusterFramework();
  const std::string adapter = framework.substr(0, framework.rfind("/Frameworks/")) + "/bin/launchctl";
  const std::string path = isThere("/bin/launchctl") ? "/bin/launchctl" : adapter;
  if (!isProgram(path)) {
    checks.push_back({"launchctl", false, path + (isThere(path) ? " cannot be executed" : " is missing"),
                      isThere(path) ? "chmod +x " + shellWord(path) : "cmake --install BUILD --prefix PREFIX"});
    return;
  }
  try {
    // Of a label that nobody has, a launchctl that works says that it does not know it.
    const std::string answer = launchctlListing("com.brant.tovanctl.doctor");
    const bool knows = answer.find("com.brant.tovanctl.doctor") != std::string::npos;
    const std::string line = answer.substr(0, answer.find_first_of("\r\n"));
    checks.push_back({"launchctl", knows, path + (knows ? "" : line.empty() ? " prints nothing" : ": " + line), ""});
  } catch (const plinth::CException& error) {
    checks.push_back({"launchctl", false, path + ": " + error.what(), ""});
  }
}

void checkLingering(Checks& checks) {
  if (!usesSystemd()) {
    checks.push_back({"lingering", true, "not needed: launch agents run under this system's own host here", ""});
    return;
  }
  const std::string user = userName();
  const bool lingers = isThere("/var/lib/systemd/linger/" + user);
  checks.push_back({"lingering", lingers,
                    lingers ? "the launch agents of " + user + " run without a login"
                            : "systemd ends the launch agents of " + user + " at the last logout",
                    lingers ? "" : "loginctl enable-linger " + shellWord(user)});
}

void checkBus(Checks& checks) {
  const BusState before = lookAtBus();
  const std::optional<double> seconds = roundTrip(kRoundTripTimeout);
  if (seconds) {
    const BusState now = lookAtBus();
    checks.push_back({"bus", true,
                      fmt::format("{}, {:.1f} ms there and back{}", now.reachable ? now.address : "not a unix socket",
                                  *seconds * 1000, before.reachable || !now.reachable ? "" : " (started now)"),
                      ""});
    return;
  }
  const bool program = !programInPath("dbus-daemon").empty();
  checks.push_back({"bus", false,
                    "a notification did not come back" + (before.problem.empty() ? "" : ": " + before.problem),
                    program ? "" : "apt-get install dbus"});
}

}  // namespace tovanctl
