// run_loop_descriptors.h: the descriptor sources of one run loop, used by the loop's own thread.
#pragma once

#include "platform/corefoundation/run_loop.h"
#include "platform/corefoundation/run_loop_poller.h"

#include <memory>
#include <span>
#include <vector>

namespace cf {

class DescriptorSet;

struct DescriptorSource::Entry {
  int descriptor;
  Interest interest;  // as told to the kernel
  KeepsAlive keepsAlive;
  Ready ready;
  Prepare prepare;
  std::uint64_t id = 0;
  unsigned generation = 0;       // the forkGeneration in which it was added
  DescriptorSet* set = nullptr;  // while watched
};

class DescriptorSet {
 public:
  using Entry = DescriptorSource::Entry;

  explicit DescriptorSet(Poller& poller) noexcept : poller_(poller) {}
  DescriptorSet(const DescriptorSet&) = delete;
  DescriptorSet& operator=(const DescriptorSet&) = delete;
  ~DescriptorSet() { clear(); }

  // 0 or errno. The poller is open.
  int add(const std::shared_ptr<Entry>& entry);
  void remove(const Entry& entry) noexcept;
  void clear() noexcept;
  bool isEmpty() const noexcept { return entries_.empty(); }
  bool keepsAlive() const noexcept;

  // Asks each source what it waits for; answers the earliest deadline. Sources may come and go meanwhile.
  MonotonicTime prepare();
  // The source of a kernel's event, or one whose deadline has come (null: none; it is asked for once).
  std::shared_ptr<Entry> find(std::uint64_t id) const noexcept;
  std::shared_ptr<Entry> takeOverdue(MonotonicTime now) const noexcept;

 private:
  std::shared_ptr<Entry> firstAfter(std::uint64_t id) const noexcept;

  Poller& poller_;
  std::vector<std::shared_ptr<Entry>> entries_;  // by id
  std::uint64_t lastId_ = 0;
};

}  // namespace cf
