// notification_center_link.h: one side's connection of a thread to the bus.
//
// Posting and observing have a connection each. The bus writes nothing to one that only posts, and that is what makes a
// post safe when its process ends right afterwards: when the bus cannot write to a socket whose process is gone, it
// gives up on it, with what it has not yet read from there.
#pragma once

#include "platform/corefoundation/bus_selection.h"
#include "platform/corefoundation/notification_center_registry.h"

#include <memory>

namespace cf {

class CenterLink {
 public:
  CenterLink(ThreadEntry& thread, CenterSide side) noexcept : thread_(thread), side_(side) {}
  CenterLink(const CenterLink&) = delete;
  CenterLink& operator=(const CenterLink&) = delete;
  ~CenterLink() { close(); }

  BusConnection* operator->() const noexcept { return connection_.get(); }
  explicit operator bool() const noexcept { return connection_ != nullptr; }

  // Whether there is a connection, which is made if need be. A bus that is there and does not answer by the deadline is
  // left alone for ten seconds: then the answer is no at once.
  bool connect(MonotonicTime deadline);
  // The bus turned out to be gone, or (ETIMEDOUT) not to answer.
  void lose(int error);

  // The next time to call switchToBetterBus; kNever on the bus of first choice.
  MonotonicTime reconsiderAt() const noexcept;
  // From a bus that was second choice, to the first as soon as it is there: at a login, say, after which everybody else
  // is on the session's. True when the connection is another one now. Looks every five seconds at most.
  bool switchToBetterBus();

 private:
  void adopt(ChosenBus& chosen);
  void close();

  ThreadEntry& thread_;
  const CenterSide side_;
  std::unique_ptr<BusConnection> connection_;
  BusPlace place_ = BusPlace::session;
  MonotonicTime quietUntil_ = 0;
  MonotonicTime reconsiderAt_ = 0;
};

}  // namespace cf
