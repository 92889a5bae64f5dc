// wired_hosts.h: hosts on wires of their own, which are network namespaces without a name: they go with the processes
// that hold them, whatever becomes of the test.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/support/command.h"
#include "tests/tools/integration/running_program.h"

namespace test {

class WiredHost {
 public:
  WiredHost()
      : holder_("/usr/bin/unshare", {"--net", "--", "/usr/bin/setpriv", "--pdeathsig", "KILL", "/bin/bash", "-c",
                                     "/usr/bin/ip link set lo up && echo ready && exec sleep 600"}) {
    EXPECT_TRUE(holder_.prints("ready")) << holder_.output();
  }
  std::string pid() const { return std::to_string(holder_.pid()); }
  // The program and its arguments, in that host's network.
  std::vector<std::string> command(const std::vector<std::string>& given) const {
    std::vector<std::string> whole = {"--net=/proc/" + pid() + "/ns/net", "--"};
    whole.insert(whole.end(), given.begin(), given.end());
    return whole;
  }
  CommandResult run(const std::vector<std::string>& given) const {
    return runCommand("/usr/bin/nsenter", command(given));
  }

  // A wire between two hosts, with the addresses NETWORK.1 and NETWORK.2.
  static void connect(const WiredHost& one, const WiredHost& other, const std::string& network) {
    const std::string ends[] = {"to" + other.pid(), "to" + one.pid()};
    const CommandResult made =
        one.run({"/usr/bin/ip", "link", "add", ends[0], "type", "veth", "peer", "name", ends[1], "netns", other.pid()});
    ASSERT_EQ(made.status, 0) << made.err;
    one.attach(ends[0], network + ".1/24");
    other.attach(ends[1], network + ".2/24");
  }

 private:
  void attach(const std::string& end, const std::string& address) const {
    const CommandResult named = run({"/usr/bin/ip", "address", "add", address, "dev", end});
    ASSERT_EQ(named.status, 0) << named.err;
    const CommandResult up = run({"/usr/bin/ip", "link", "set", end, "up"});
    ASSERT_EQ(up.status, 0) << up.err;
  }

  RunningProgram holder_;
};

}  // namespace test
