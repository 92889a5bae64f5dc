#include "tests/control/integration/framework_probe.h"

#include "tests/support/command.h"

#include "platform/system/tool_lookup.h"

#include <tovan/daemon_control.h>
#include <tovan/service_control.h>
#include <tovan/service_pid_file.h>

#include <plinth/exception.h>
#include <plinth/interval_timer.h>
#include <plinth/process_utilities.h>

#include <CoreFoundation/CFRunLoop.h>

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <string>
#include <typeinfo>

namespace test {
namespace {

namespace files = std::filesystem;

constexpr const char* kProbeVariable = "TOVAN_CONTROL_PROBE";
constexpr const char* kDaemonVariable = "TOVAN_CONTROL_DAEMON";
constexpr const char* kToolsVariable = "TOVAN_CONTROL_TOOLS";

// The library's framework as it was built.
const char* const kBuiltCore =
    TOVAN_BUILD_DIR "/lib/tovan/Frameworks/Mervane.framework/Versions/A/Frameworks/TovanCore.framework";

std::string homeFile(const char* name) { return std::string(std::getenv("HOME")) + "/" + name; }

// ---- The daemon --------------------------------------------------------------------------------------------------

bool isOnlyDaemon() {
  const int lock = ::open(homeFile("daemon.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  return ::flock(lock, LOCK_EX | LOCK_NB) == 0;
}

void registerDaemon(CFStringRef version) {
  tovan::CServicePIDFile file(CFSTR("mervaned"));
  file.put({::getpid()});
  file.setProcessAttributes(::getpid(), CFSTR("daemon"), CFSTR("mervaned"), version);
}

[[noreturn]] void actAsDaemon(StubDaemon behaviour) {
  ::alarm(100);  // whatever becomes of the test
  std::ofstream(homeFile("launched"), std::ios::app) << std::to_string(::getpid()) + "\n" << std::flush;
  if (behaviour == StubDaemon::endsAtOnce || (behaviour == StubDaemon::registers && !isOnlyDaemon())) ::_exit(1);
  if (behaviour == StubDaemon::registersLate) ::usleep(1'500'000);
  if (behaviour == StubDaemon::registersAsVersion1) registerDaemon(CFSTR("1"));
  if (behaviour == StubDaemon::registers || behaviour == StubDaemon::registersLate) registerDaemon(CFSTR("2"));
  for (;;) ::pause();
}

// ---- The probe ---------------------------------------------------------------------------------------------------

// A caller that has a timer of its own, and counts how often it is called.
void startWithTimer() {
  int calls = 0;
  plinth::CIntervalTimer timer(50, 0, [&calls] { ++calls; });
  timer.start();
  try {
    startDaemon();
  } catch (...) {
    std::printf("calls: %d\n", calls);
    throw;
  }
}

bool isClient() {
  try {
    std::vector<std::int32_t> clients;
    tovan::CServicePIDFile(CFSTR("mervaneclients")).get(clients);
    return clients == std::vector<std::int32_t>{::getpid()};
  } catch (const plinth::CException&) {
    return false;
  }
}

int actAsProbe(const std::string& function) {
  static const std::map<std::string, std::function<void()>> kFunctions = {
      {"startDaemon", startDaemon},
      {"startDaemon with a timer", startWithTimer},
      {"startMervaneServices", startMervaneServices},
      {"startLumisphereServices", startLumisphereServices},
      {"syncLumisphereServices", syncLumisphereServices},
  };
  platform::setToolFolderForTesting(std::getenv(kToolsVariable));
  try {
    kFunctions.at(function)();
    std::printf("returned\n");
  } catch (const plinth::CParamException& exception) {
    std::printf("threw CParamException: %s\n", exception.what());
  } catch (const std::exception& exception) {
    std::printf("threw %s: %s\n", typeid(exception).name(), exception.what());
  }
  // A loop without timers and sources has nothing to wait for.
  const bool isEmpty = CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.01, false) == kCFRunLoopRunFinished;
  std::printf("running: %d, other version: %d, loop empty: %d, client: %d\n", isDaemonRunning(),
              IsOtherVersionOfDaemonRunning(), isEmpty, isClient());
  return 0;
}

const bool wasTestProgram = [] {
  const std::string name = files::path(program_invocation_name).filename();
  const char* const daemon = std::getenv(kDaemonVariable);
  if (name == "mervaned" && daemon != nullptr) actAsDaemon(static_cast<StubDaemon>(std::atoi(daemon)));
  if (const char* const function = std::getenv(kProbeVariable)) std::exit(actAsProbe(function));
  return true;
}();

}  // namespace

bool isRunningProgram(pid_t process) {
  return !plinth::CString::nullToEmptyString(plinth::ProcessUtilities::FindProcessNameForProcess(process))->isEmpty();
}

FrameworkTest::FrameworkTest() {
  // Daemons are orphans: they become this process's to collect.
  ::prctl(PR_SET_CHILD_SUBREAPER, 1);
  const std::string core = frameworks_ + "/Mervane.framework/Versions/A/Frameworks/TovanCore.framework";
  makeFolders(files::path(core).parent_path());
  files::copy(kBuiltCore, core, files::copy_options::recursive | files::copy_options::copy_symlinks);
  makeFolders(frameworks_ + "/Mervane.framework/Resources");
  makeFolders(frameworks_ + "/Lumisphere.framework/Resources");
  makeFolders(root_ + "/lib");
  files::create_symlink(core + "/Versions/A/TovanCore", root_ + "/lib/libTovanCore.so");
  files::create_symlink(TOVAN_BUILD_DIR "/lib/libTovanPlatform.so", root_ + "/lib/libTovanPlatform.so");
  files::remove(homeFile("launched"));
}

FrameworkTest::~FrameworkTest() {
  for (const pid_t daemon : launched()) {
    if (::waitpid(daemon, nullptr, WNOHANG) == 0) end(daemon);
  }
}

void FrameworkTest::makeDaemon(StubDaemon behaviour) const {
  files::copy_file("/proc/self/exe", daemonPath_, files::copy_options::overwrite_existing);
  ::setenv(kDaemonVariable, std::to_string(static_cast<int>(behaviour)).c_str(), 1);
}

void FrameworkTest::makeServiceBundles(const std::string& jobController, const std::string& transcoder) const {
  const std::string resources = frameworks_ + "/Lumisphere.framework/Resources/";
  ServiceBundle made;
  made.path = resources + "LumisphereJobController.bundle";
  made.kind = jobController;
  made.write();
  made.path = resources + "LumisphereTranscoder.bundle";
  made.kind = transcoder;
  made.write();
}

ProbeResult FrameworkTest::probe(const std::string& function) const {
  return run(function, {files::read_symlink("/proc/self/exe")});
}

ProbeResult FrameworkTest::probeTwiceAtOnce(const std::string& function) const {
  return run(function, {"/bin/sh", "-c", "\"$0\" & \"$0\"; wait", files::read_symlink("/proc/self/exe")});
}

ProbeResult FrameworkTest::run(const std::string& function, const std::vector<std::string>& command) const {
  std::vector<std::string> arguments = {"LD_LIBRARY_PATH=" + root_ + "/lib",
                                        std::string(kProbeVariable) + "=" + function,
                                        std::string(kToolsVariable) + "=" + launchctl_.folder()};
  arguments.insert(arguments.end(), command.begin(), command.end());
  const auto start = std::chrono::steady_clock::now();
  const CommandResult result = runCommand("/usr/bin/env", arguments);
  const std::chrono::duration<double> duration = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(result.status, 0) << result.err;
  return {result.out, result.err, duration.count()};
}

void FrameworkTest::end(pid_t daemon) {
  EXPECT_EQ(::kill(daemon, SIGKILL), 0);
  EXPECT_EQ(::waitpid(daemon, nullptr, 0), daemon);
}

std::vector<pid_t> FrameworkTest::launched() const {
  std::vector<pid_t> ids;
  std::ifstream file(homeFile("launched"));
  for (pid_t id = 0; file >> id;) ids.push_back(id);
  return ids;
}

}  // namespace test
