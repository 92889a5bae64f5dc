// interrupt.h: Ctrl-C ends what goes on until it is ended, and lets it tidy up first.
#pragma once

namespace tovanctl {

// From now on SIGINT and SIGTERM no longer end this process; they make wasInterrupted() true.
void catchInterrupts();
bool wasInterrupted() noexcept;
// What came so far is answered: the next one counts as the first.
void forgetInterrupts() noexcept;
// Waits so many seconds, or until one of them comes.
void waitUnlessInterrupted(double seconds);

}  // namespace tovanctl
