// private_bus.h: a message bus that belongs to one test.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace test {

// A dbus-daemon on a scratch address, which DBUS_SESSION_BUS_ADDRESS names as long as the object lives: this process
// and the children it starts use it. It is up when the constructor returns, and ended with the object. Stands in a test
// or a fixture; one at a time.
class PrivateBus {
 public:
  PrivateBus();
  ~PrivateBus();
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  const std::string& address() const { return address_; }
  const std::string& socketPath() const { return socket_; }
  // 0 while it does not run.
  pid_t daemon() const { return daemon_; }

  // Ends the daemon at once (SIGKILL) and reaps it; its socket file stays, as after a crash.
  void kill();
  // Starts it again at the same address.
  void restart();
  // Lets it stand still, as a bus that hangs, and go on.
  void stop();
  void resume();

 private:
  void start();

  std::string socket_;
  std::string address_;
  std::string formerAddress_;
  bool hadAddress_ = false;
  pid_t daemon_ = 0;
};

// A session address that leads nowhere, and a scratch folder for the daemon that the library may start on demand, as
// long as the object lives. A daemon that was started there is ended with it.
class NoSessionBus {
 public:
  NoSessionBus();
  ~NoSessionBus();
  NoSessionBus(const NoSessionBus&) = delete;
  NoSessionBus& operator=(const NoSessionBus&) = delete;

  // Where the on-demand daemon keeps its socket.
  const std::string& folder() const { return folder_; }
  // The daemons that run in the folder: one at most, if all is well.
  std::vector<pid_t> daemons() const;

 private:
  std::string folder_;
};

}  // namespace test
