// Sources of version 0.
#include <algorithm>
#include <utility>

#include "platform/corefoundation/base.h"
#include "platform/corefoundation/run_loop_state.h"

namespace cf {
namespace {

void finalizeSource(void* object) noexcept {
  const CFRunLoopSourceRef source = static_cast<CFRunLoopSourceRef>(object);
  // Nobody else sees it any more. Once it is invalid the info has gone.
  if (source->call.isValid()) releaseInfo(source->context);
  source->~CFRunLoopSourceStorage();
  std::free(object);
}

bool sourcesAreEqual(const void* left, const void* right) {
  const CFRunLoopSourceContext& one = static_cast<const CFRunLoopSourceStorage*>(left)->context;
  const CFRunLoopSourceContext& other = static_cast<const CFRunLoopSourceStorage*>(right)->context;
  return one.equal != nullptr && one.equal == other.equal && one.equal(one.info, other.info);
}

CFHashCode hashOfSource(const void* object) {
  const CFRunLoopSourceContext& context = static_cast<const CFRunLoopSourceStorage*>(object)->context;
  return context.hash == nullptr ? reinterpret_cast<CFHashCode>(object) : context.hash(context.info);
}

// Keeps a source and its info while callbacks of it are under way. It begins and ends without the lock.
class Use {
 public:
  explicit Use(CFRunLoopSourceRef source) noexcept : source_(Owned<CFRunLoopSourceRef>::retaining(source)) {
    const std::lock_guard lock(runLoopMutex);
    source->call.begin();
  }
  Use(const Use&) = delete;
  Use& operator=(const Use&) = delete;
  ~Use() {
    if (end()) releaseInfo(source_.get()->context);
  }

 private:
  bool end() noexcept {
    const std::lock_guard lock(runLoopMutex);
    return source_.get()->call.end();
  }

  const Owned<CFRunLoopSourceRef> source_;
};

// The modes of a loop that a source has come into or gone out of, and that it is still to be told about.
struct Change {
  Owned<CFRunLoopRef> loop;
  ModeNames modes;
};

using SourceFunction = void (*)(void*, CFRunLoopRef, CFRunLoopMode);

void tell(CFRunLoopSourceRef source, SourceFunction function, const Change& change) {
  if (function == nullptr) return;
  for (const auto& mode : change.modes) function(source->context.info, change.loop.get(), mode.get());
}

// The rest of this block is called with the lock held.

Change changeOf(RunLoop& loop, ModeNames modes) {
  loop.changed();
  return {Owned<CFRunLoopRef>::retaining(loop.object()), std::move(modes)};
}

void link(CFRunLoopSourceRef source, RunLoop& loop) {
  if (std::find(source->loops.begin(), source->loops.end(), &loop) == source->loops.end())
    source->loops.push_back(&loop);
}

Change takeOut(CFRunLoopSourceRef source, RunLoop& loop) {
  std::erase(source->loops, &loop);
  return changeOf(loop, loop.modes().removeEverywhere(source));
}

}  // namespace

constinit const CFRuntimeClass kRunLoopSourceClass{"CFRunLoopSource", finalizeSource, sourcesAreEqual, hashOfSource,
                                                   nullptr};

bool performSource(RunLoop& loop, CFRunLoopSourceRef source, CFStringRef mode) {
  const Use use(source);
  {
    const std::lock_guard lock(runLoopMutex);
    if (!source->isSignalled || !loop.modes().contains(source, mode)) return false;
    source->isSignalled = false;
  }
  if (source->context.perform != nullptr) source->context.perform(source->context.info);
  return true;
}

void removeFromLoop(RunLoop& loop, CFRunLoopSourceRef source) {
  const Use use(source);
  Change change;
  {
    const std::lock_guard lock(runLoopMutex);
    change = takeOut(source, loop);
  }
  tell(source, source->context.cancel, change);
}

}  // namespace cf

using cf::runLoopMutex;

CFTypeID CFRunLoopSourceGetTypeID() { return cf::typeID(cf::kRunLoopSourceClass); }

CFRunLoopSourceRef CFRunLoopSourceCreate(CFAllocatorRef, CFIndex order, CFRunLoopSourceContext* context) {
  if (context == nullptr || context->version != 0) return nullptr;
  const CFRunLoopSourceRef source = cf::create<CFRunLoopSourceStorage>(cf::kRunLoopSourceClass, 0, order, *context);
  cf::retainInfo(source->context);
  return source;
}

CFIndex CFRunLoopSourceGetOrder(CFRunLoopSourceRef source) { return source == nullptr ? 0 : source->order; }

void CFRunLoopSourceSignal(CFRunLoopSourceRef source) {
  if (source == nullptr) return;
  const std::lock_guard lock(runLoopMutex);
  source->isSignalled = source->call.isValid();
}

void CFRunLoopSourceInvalidate(CFRunLoopSourceRef source) {
  if (source == nullptr) return;
  const cf::Use use(source);
  std::vector<cf::Change> changes;
  {
    const std::lock_guard lock(runLoopMutex);
    if (!source->call.isValid()) return;
    static_cast<void>(source->call.invalidate());  // the info goes with the use
    source->isSignalled = false;
    while (!source->loops.empty()) changes.push_back(cf::takeOut(source, *source->loops.back()));
  }
  for (const cf::Change& change : changes) cf::tell(source, source->context.cancel, change);
}

Boolean CFRunLoopSourceIsValid(CFRunLoopSourceRef source) {
  if (source == nullptr) return false;
  const std::lock_guard lock(runLoopMutex);
  return source->call.isValid();
}

void CFRunLoopAddSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode) {
  if (loop == nullptr || source == nullptr || mode == nullptr) return;
  const cf::Use use(source);
  cf::Change change;
  {
    const std::lock_guard lock(runLoopMutex);
    cf::RunLoop& state = *loop->state;
    if (state.isEnded() || !source->call.isValid()) return;
    cf::link(source, state);
    change = cf::changeOf(state, state.modes().add(source, mode));
  }
  cf::tell(source, source->context.schedule, change);
}

void CFRunLoopRemoveSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode) {
  if (loop == nullptr || source == nullptr || mode == nullptr) return;
  const cf::Use use(source);
  cf::Change change;
  {
    const std::lock_guard lock(runLoopMutex);
    cf::RunLoop& state = *loop->state;
    change = cf::changeOf(state, state.modes().remove(source, mode));
    if (!state.modes().contains(source)) std::erase(source->loops, &state);
  }
  cf::tell(source, source->context.cancel, change);
}

Boolean CFRunLoopContainsSource(CFRunLoopRef loop, CFRunLoopSourceRef source, CFRunLoopMode mode) {
  if (loop == nullptr || source == nullptr || mode == nullptr) return false;
  const std::lock_guard lock(runLoopMutex);
  return loop->state->modes().contains(source, mode);
}

void CFRunLoopAddCommonMode(CFRunLoopRef loop, CFRunLoopMode mode) {
  if (loop == nullptr || mode == nullptr || CFEqual(mode, kCFRunLoopCommonModes)) return;
  cf::SourceList added;
  {
    const std::lock_guard lock(runLoopMutex);
    if (loop->state->isEnded()) return;
    added = loop->state->modes().addCommon(mode);
    loop->state->changed();
  }
  for (const auto& source : added) {
    const cf::Use use(source.get());
    if (const auto schedule = source.get()->context.schedule; schedule != nullptr) {
      schedule(source.get()->context.info, loop, mode);
    }
  }
}
