#include "tools/launchctl/systemd/systemctl.h"

#include <pwd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "tools/launchctl/descriptor.h"
#include "tools/launchctl/failure.h"
#include "tools/launchctl/job_description.h"
#include "tools/launchctl/process.h"

namespace launchctl {
namespace {

std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

std::string homeFolder() {
  std::string home = variable("HOME");
  if (!home.empty()) return home;
  const passwd* const entry = ::getpwuid(::geteuid());
  if (entry == nullptr) throw Failure("the user has no home folder");
  return entry->pw_dir;
}

}  // namespace

std::string runtimeFolder() {
  std::string folder = variable("XDG_RUNTIME_DIR");
  return folder.empty() ? "/run/user/" + std::to_string(::geteuid()) : folder;
}

std::string unitFolder() {
  const std::string config = variable("XDG_CONFIG_HOME");
  return (config.empty() ? homeFolder() + "/.config" : config) + "/systemd/user";
}

bool managerAnswers() {
  const std::string path = runtimeFolder() + "/systemd/private";
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) return false;
  std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
  const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  return socket && ::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool managerReads(const std::string& folder) {
  std::string paths = systemctl({"show", "--property=UnitPath", "--value"});
  for (char& character : paths) {
    if (character == '\n') character = ' ';
  }
  return (" " + paths).find(" " + folder + " ") != std::string::npos;
}

std::string systemctl(const std::vector<std::string>& arguments, double seconds) {
  std::map<std::string, std::string> environment = loaderEnvironment();
  environment["XDG_RUNTIME_DIR"] = runtimeFolder();
  environment["LC_ALL"] = "C.UTF-8";
  const std::string program = findProgram("systemctl", environment["PATH"] + ":/usr/bin:/bin");
  std::vector<std::string> whole = {"systemctl", "--user", "--no-pager", "--no-ask-password"};
  whole.insert(whole.end(), arguments.begin(), arguments.end());
  const CommandOutput output = runCommand(program, whole, environment, seconds);
  if (output.status != 0) {
    std::string words = output.err.empty() ? output.out : output.err;
    while (!words.empty() && words.back() == '\n') words.pop_back();
    throw Failure("systemctl --user " + arguments.front() + ": " +
                  (words.empty() ? "status " + std::to_string(output.status) : words));
  }
  return output.out;
}

}  // namespace launchctl
