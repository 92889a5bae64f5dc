// framework_probe.h: a tree of frameworks that a test lays out, with a daemon in it, and a process that has the library
// from there.
//
// Where the daemon lies depends on where the library was loaded from, so the test program runs itself again as a probe.
// The daemon is the test program, too, under the daemon's name.
#pragma once

#include "tests/control/control_test.h"

#include <sys/types.h>

#include <string>
#include <vector>

namespace test {

// How a daemon behaves.
enum class StubDaemon { registers, registersLate, registersAsVersion1, neverRegisters, endsAtOnce };

// What a probe said and how long it took. Beyond what the call did ("returned", or "threw CLASS: MESSAGE"), it prints
// the state that it left.
struct ProbeResult {
  std::string out;
  std::string err;
  double seconds = 0;
};

// Whether a process lives and has not ended.
bool isRunningProgram(pid_t process);

class FrameworkTest : public ControlTest {
 protected:
  FrameworkTest();
  // Ends and collects every daemon that was launched.
  ~FrameworkTest() override;

  // Puts a daemon there that behaves so.
  void makeDaemon(StubDaemon behaviour = StubDaemon::registers) const;
  // Puts the application's two service bundles there, for these kinds.
  void makeServiceBundles(const std::string& jobController, const std::string& transcoder) const;
  // Calls one of the library's functions, by its name, in a probe.
  ProbeResult probe(const std::string& function) const;
  // The same in two probes at once; `out` has what the one and then the other said.
  ProbeResult probeTwiceAtOnce(const std::string& function) const;
  // The process ids of all daemons that were launched, also of those that have ended.
  std::vector<pid_t> launched() const;
  // Ends a daemon and collects it.
  static void end(pid_t daemon);

  ProbeResult run(const std::string& function, const std::vector<std::string>& command) const;

  const std::string root_ = scratchFolder("framework tree");
  const std::string frameworks_ = root_ + "/Frameworks";
  const std::string daemonPath_ = frameworks_ + "/Mervane.framework/Resources/mervaned";
  const StubLaunchctl launchctl_;
};

}  // namespace test
