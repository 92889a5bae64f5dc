// kill_at_call.h: killing a process at a chosen system call.
#pragma once

#include <functional>

namespace test {

// Runs the work in a child and kills it at its stop number `last`, from 1; every system call has two stops, before and
// after it. False when the work was over before; then it is complete. What the work needs is made beforehand, by
// `prepare`, whose system calls don't count.
bool killAtCall(int last, const std::function<void()>& prepare, const std::function<void()>& work);

}  // namespace test
