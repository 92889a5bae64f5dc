#include "platform/corefoundation/run_loop_modes.h"

#include <algorithm>
#include <utility>

namespace cf {
namespace {

bool isSame(CFStringRef left, CFStringRef right) noexcept { return left == right || CFEqual(left, right); }

bool namesCommonModes(CFStringRef name) noexcept { return isSame(name, kCFRunLoopCommonModes); }

template <class List, class Item>
auto placeOf(List& list, Item item) noexcept {
  return std::find_if(list.begin(), list.end(), [item](const auto& owned) { return owned.get() == item; });
}

template <class List, class Item>
bool holds(List& list, Item item) noexcept {
  return placeOf(list, item) != list.end();
}

template <class List, class Item>
void take(List& list, Item item) noexcept {
  if (const auto place = placeOf(list, item); place != list.end()) list.erase(place);
}

// False when it is there already.
bool insert(SourceList& list, CFRunLoopSourceRef source) {
  if (holds(list, source)) return false;
  const auto place = std::upper_bound(list.begin(), list.end(), source->order,
                                      [](CFIndex order, const auto& other) { return order < other.get()->order; });
  list.insert(place, Owned<CFRunLoopSourceRef>::retaining(source));
  return true;
}

void insert(TimerQueue& queue, CFRunLoopTimerRef timer) {
  if (!queue.contains(timer)) queue.insert(Owned<CFRunLoopTimerRef>::retaining(timer));
}

void take(TimerQueue& queue, CFRunLoopTimerRef timer) noexcept {
  if (const auto place = queue.find(timer); place != queue.end()) queue.erase(place);
}

Owned<CFStringRef> sharedName(const Mode& mode) { return Owned<CFStringRef>::retaining(mode.name.get()); }

}  // namespace

Modes::Modes() { modes_.emplace_back(kCFRunLoopDefaultMode, true); }

Mode* Modes::find(CFStringRef name) noexcept {
  const auto found =
      std::find_if(modes_.begin(), modes_.end(), [name](const Mode& mode) { return isSame(mode.name.get(), name); });
  return found == modes_.end() ? nullptr : &*found;
}

bool Modes::isCommon(CFStringRef name) noexcept {
  const Mode* const mode = find(name);
  return mode != nullptr && mode->isCommon;
}

Mode& Modes::findOrAdd(CFStringRef name) {
  Mode* const mode = find(name);
  return mode != nullptr ? *mode : modes_.emplace_back(name, false);
}

// A program may use a mode of a new name each time.
void Modes::forgetIfEmpty(CFStringRef name) noexcept {
  modes_.remove_if([name](const Mode& mode) {
    return !mode.isCommon && mode.timers.empty() && mode.sources.empty() && isSame(mode.name.get(), name);
  });
}

SourceList Modes::addCommon(CFStringRef name) {
  SourceList added;
  Mode& mode = findOrAdd(name);
  if (mode.isCommon) return added;
  mode.isCommon = true;
  for (const auto& timer : commonTimers_) insert(mode.timers, timer.get());
  for (const auto& source : commonSources_) {
    if (insert(mode.sources, source.get())) added.push_back(Owned<CFRunLoopSourceRef>::retaining(source.get()));
  }
  return added;
}

void Modes::add(CFRunLoopTimerRef timer, CFStringRef name) {
  if (!namesCommonModes(name)) {
    insert(findOrAdd(name).timers, timer);
    return;
  }
  if (holds(commonTimers_, timer)) return;
  commonTimers_.push_back(Owned<CFRunLoopTimerRef>::retaining(timer));
  for (Mode& mode : modes_) {
    if (mode.isCommon) insert(mode.timers, timer);
  }
}

void Modes::remove(CFRunLoopTimerRef timer, CFStringRef name) noexcept {
  if (!namesCommonModes(name)) {
    if (Mode* const mode = find(name); mode != nullptr) take(mode->timers, timer);
    forgetIfEmpty(name);
    return;
  }
  take(commonTimers_, timer);
  for (Mode& mode : modes_) {
    if (mode.isCommon) take(mode.timers, timer);
  }
}

bool Modes::contains(CFRunLoopTimerRef timer, CFStringRef name) noexcept {
  if (namesCommonModes(name)) return holds(commonTimers_, timer);
  const Mode* const mode = find(name);
  return mode != nullptr && mode->timers.contains(timer);
}

ModeNames Modes::add(CFRunLoopSourceRef source, CFStringRef name) {
  ModeNames changed;
  if (!namesCommonModes(name)) {
    Mode& mode = findOrAdd(name);
    if (insert(mode.sources, source)) changed.push_back(sharedName(mode));
    return changed;
  }
  if (!insert(commonSources_, source)) return changed;
  for (Mode& mode : modes_) {
    if (mode.isCommon && insert(mode.sources, source)) changed.push_back(sharedName(mode));
  }
  return changed;
}

ModeNames Modes::remove(CFRunLoopSourceRef source, CFStringRef name) {
  ModeNames changed;
  const bool fromCommon = namesCommonModes(name);
  for (Mode& mode : modes_) {
    if (!(fromCommon ? mode.isCommon : isSame(mode.name.get(), name)) || !holds(mode.sources, source)) continue;
    changed.push_back(sharedName(mode));
    take(mode.sources, source);
  }
  if (fromCommon) {
    take(commonSources_, source);
  } else {
    forgetIfEmpty(name);
  }
  return changed;
}

bool Modes::contains(CFRunLoopSourceRef source, CFStringRef name) noexcept {
  if (namesCommonModes(name)) return holds(commonSources_, source);
  Mode* const mode = find(name);
  return mode != nullptr && holds(mode->sources, source);
}

bool Modes::contains(CFRunLoopTimerRef timer) noexcept {
  return holds(commonTimers_, timer) ||
         std::any_of(modes_.begin(), modes_.end(), [timer](const Mode& mode) { return mode.timers.contains(timer); });
}

bool Modes::contains(CFRunLoopSourceRef source) noexcept {
  return holds(commonSources_, source) ||
         std::any_of(modes_.begin(), modes_.end(), [source](Mode& mode) { return holds(mode.sources, source); });
}

void Modes::removeEverywhere(CFRunLoopTimerRef timer) noexcept {
  take(commonTimers_, timer);
  for (auto mode = modes_.begin(); mode != modes_.end();) {
    const auto next = std::next(mode);
    take(mode->timers, timer);
    forgetIfEmpty(mode->name.get());
    mode = next;
  }
}

ModeNames Modes::removeEverywhere(CFRunLoopSourceRef source) {
  ModeNames changed;
  take(commonSources_, source);
  for (Mode& mode : modes_) {
    if (holds(mode.sources, source)) changed.push_back(sharedName(mode));
    take(mode.sources, source);
  }
  for (const auto& name : changed) forgetIfEmpty(name.get());
  return changed;
}

void Modes::requeue(CFRunLoopTimerRef timer, MonotonicTime queuedFor) noexcept {
  // The place is the same in every mode, so it changes while the timer is in none.
  for (Mode& mode : modes_) {
    if (const auto place = mode.timers.find(timer); place != mode.timers.end())
      mode.moving = mode.timers.extract(place);
  }
  timer->queuedFor = queuedFor;
  for (Mode& mode : modes_) {
    if (mode.moving) mode.timers.insert(std::move(mode.moving));
  }
}

std::vector<Owned<CFRunLoopTimerRef>> Modes::allTimers() const {
  std::vector<Owned<CFRunLoopTimerRef>> all;
  const auto add = [&all](const Owned<CFRunLoopTimerRef>& timer) {
    all.push_back(Owned<CFRunLoopTimerRef>::retaining(timer.get()));
  };
  for (const auto& timer : commonTimers_) add(timer);
  for (const Mode& mode : modes_) {
    for (const auto& timer : mode.timers) add(timer);
  }
  return all;
}

SourceList Modes::allSources() const {
  SourceList all;
  for (const auto& source : commonSources_) insert(all, source.get());
  for (const Mode& mode : modes_) {
    for (const auto& source : mode.sources) insert(all, source.get());
  }
  return all;
}

}  // namespace cf
