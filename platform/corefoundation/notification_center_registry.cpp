#include "platform/corefoundation/notification_center_registry.h"

#include "platform/corefoundation/string.h"

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>

namespace cf {
namespace {

struct Registry {
  std::vector<ThreadEntry*> threads;
  // Entries of the parent's threads; nothing is done with them any more.
  std::vector<ThreadEntry*> inherited;
};

constinit std::mutex mutex;
constinit Registry* registry =
    nullptr;  // made on first use, and never destroyed: threads may outlive the program's end
constinit std::atomic<std::uint32_t> generation = 0;
constinit pthread_once_t once = PTHREAD_ONCE_INIT;

void beforeFork() { mutex.lock(); }
void afterForkInParent() { mutex.unlock(); }
void afterForkInChild() {
  for (ThreadEntry* const thread : registry->threads) {
    for (int& descriptor : thread->descriptors) {
      if (descriptor >= 0) ::close(descriptor);
      descriptor = -1;
    }
  }
  registry->inherited.swap(registry->threads);
  registry->threads.clear();
  generation.fetch_add(1, std::memory_order_relaxed);
  mutex.unlock();
}

void initialise() {
  registry = new Registry;
  ::pthread_atfork(beforeFork, afterForkInParent, afterForkInChild);
}

Registry& shared() {
  ::pthread_once(&once, initialise);
  return *registry;
}

bool isWholly(CFStringRef wanted, CFStringRef held) {
  return wanted == nullptr || (held != nullptr && stringsAreEqual(wanted, held));
}

}  // namespace

bool Observation::wants(CFStringRef notification, CFStringRef sender) const {
  return (!name || stringsAreEqual(name.get(), notification)) &&
         (!object || (sender != nullptr && stringsAreEqual(object.get(), sender)));
}

void enterRegistry(ThreadEntry& thread) {
  Registry& all = shared();
  const std::lock_guard lock(mutex);
  all.threads.push_back(&thread);
}

void leaveRegistry(ThreadEntry& thread) {
  Observations ended;
  const std::lock_guard lock(mutex);
  for (const auto& observation : thread.observations) observation->removed.store(true, std::memory_order_relaxed);
  ended.swap(thread.observations);
  std::erase(registry->threads, &thread);
}

void setThreadDescriptor(ThreadEntry& thread, CenterSide side, int descriptor) {
  const std::lock_guard lock(mutex);
  thread.descriptors[static_cast<int>(side)] = descriptor;
}

void addObservation(ThreadEntry& thread, std::shared_ptr<Observation> observation) {
  const CFRunLoopRef loop = CFRunLoopGetCurrent();
  const std::lock_guard lock(mutex);
  if (!thread.loop) thread.loop = Owned<CFRunLoopRef>::retaining(loop);
  thread.observations.push_back(std::move(observation));
}

void removeObservations(const void* observer, CFStringRef name, CFStringRef object) {
  Observations removed;  // destroyed outside the lock
  std::vector<Owned<CFRunLoopRef>> woken;
  Registry& all = shared();
  {
    const std::lock_guard lock(mutex);
    for (ThreadEntry* const thread : all.threads) {
      const auto isMeant = [&](const std::shared_ptr<Observation>& observation) {
        return observation->observer == observer && isWholly(name, observation->name.get()) &&
               isWholly(object, observation->object.get());
      };
      const auto end = std::stable_partition(thread->observations.begin(), thread->observations.end(),
                                             [&](const auto& observation) { return !isMeant(observation); });
      if (end == thread->observations.end()) continue;
      for (auto it = end; it != thread->observations.end(); ++it) {
        (*it)->removed.store(true, std::memory_order_relaxed);
        removed.push_back(std::move(*it));
      }
      thread->observations.erase(end, thread->observations.end());
      thread->changed = true;
      woken.push_back(Owned<CFRunLoopRef>::retaining(thread->loop.get()));
    }
  }
  for (const Owned<CFRunLoopRef>& loop : woken) CFRunLoopWakeUp(loop.get());
}

Observations observationsOf(const ThreadEntry& thread) {
  const std::lock_guard lock(mutex);
  return thread.observations;
}

Observations observationsOf(const ThreadEntry& thread, CFStringRef name, CFStringRef object) {
  Observations found;
  const std::lock_guard lock(mutex);
  for (const auto& observation : thread.observations) {
    if (observation->wants(name, object)) found.push_back(observation);
  }
  return found;
}

bool takeChanged(ThreadEntry& thread) {
  const std::lock_guard lock(mutex);
  return std::exchange(thread.changed, false);
}

std::uint32_t forkGeneration() noexcept { return generation.load(std::memory_order_relaxed); }

}  // namespace cf
