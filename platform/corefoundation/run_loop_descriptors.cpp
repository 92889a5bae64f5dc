#include "platform/corefoundation/run_loop_descriptors.h"

#include "platform/corefoundation/run_loop_state.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace cf {

int DescriptorSet::add(const std::shared_ptr<Entry>& entry) {
  entry->id = ++lastId_;
  entry->generation = forkGeneration;
  entries_.push_back(entry);
  const int problem = poller_.watch(entry->descriptor, entry->interest.events, entry->id);
  if (problem != 0) {
    entries_.pop_back();
  } else {
    entry->set = this;
  }
  return problem;
}

void DescriptorSet::remove(const Entry& entry) noexcept {
  const auto found =
      std::find_if(entries_.begin(), entries_.end(), [&entry](const auto& other) { return other.get() == &entry; });
  if (found == entries_.end()) return;
  poller_.forget(entry.descriptor);
  (*found)->set = nullptr;
  // What the callbacks hold may end with the entry, and look at this set.
  const std::shared_ptr<Entry> removed = std::move(*found);
  entries_.erase(found);
}

void DescriptorSet::clear() noexcept {
  while (!entries_.empty()) {
    const std::shared_ptr<Entry> removed = std::move(entries_.back());
    entries_.pop_back();
    poller_.forget(removed->descriptor);
    removed->set = nullptr;
  }
}

bool DescriptorSet::keepsAlive() const noexcept {
  return std::any_of(entries_.begin(), entries_.end(),
                     [](const auto& entry) { return entry->keepsAlive == DescriptorSource::KeepsAlive::yes; });
}

std::shared_ptr<DescriptorSet::Entry> DescriptorSet::firstAfter(std::uint64_t id) const noexcept {
  const auto found = std::find_if(entries_.begin(), entries_.end(), [id](const auto& entry) { return entry->id > id; });
  return found == entries_.end() ? nullptr : *found;
}

std::shared_ptr<DescriptorSet::Entry> DescriptorSet::find(std::uint64_t id) const noexcept {
  const auto found =
      std::find_if(entries_.begin(), entries_.end(), [id](const auto& entry) { return entry->id == id; });
  return found == entries_.end() ? nullptr : *found;
}

MonotonicTime DescriptorSet::prepare() {
  MonotonicTime earliest = kNever;
  for (auto entry = firstAfter(0); entry != nullptr; entry = firstAfter(entry->id)) {
    if (!entry->prepare) continue;
    const DescriptorSource::Interest wanted = entry->prepare();
    if (entry->set == nullptr) continue;  // gone meanwhile
    if (wanted.events != entry->interest.events) poller_.change(entry->descriptor, wanted.events, entry->id);
    entry->interest = wanted;
    earliest = std::min(earliest, wanted.deadline);
  }
  return earliest;
}

std::shared_ptr<DescriptorSet::Entry> DescriptorSet::takeOverdue(MonotonicTime now) const noexcept {
  for (const auto& entry : entries_) {
    if (entry->interest.deadline > now) continue;
    entry->interest.deadline = kNever;
    return entry;
  }
  return nullptr;
}

std::unique_ptr<DescriptorSource> DescriptorSource::add(int descriptor, std::uint32_t events, KeepsAlive keepsAlive,
                                                        Ready ready, Prepare prepare) {
  const auto entry =
      std::make_shared<Entry>(Entry{descriptor, {events, kNever}, keepsAlive, std::move(ready), std::move(prepare)});
  std::unique_ptr<DescriptorSource> source(new DescriptorSource(entry));
  if (const int problem = RunLoop::current().watch(entry); problem != 0) {
    source.reset();
    errno = problem;
  }
  return source;
}

DescriptorSource::DescriptorSource(std::shared_ptr<Entry> entry) noexcept : entry_(std::move(entry)) {}

DescriptorSource::~DescriptorSource() {
  if (entry_->set != nullptr) entry_->set->remove(*entry_);
}

void DescriptorSource::setKeepsAlive(KeepsAlive keepsAlive) noexcept { entry_->keepsAlive = keepsAlive; }

bool DescriptorSource::isWatched() const noexcept {
  return entry_->set != nullptr && entry_->generation == forkGeneration;
}

}  // namespace cf
