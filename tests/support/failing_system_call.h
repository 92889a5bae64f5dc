// failing_system_call.h: failures that a healthy system does not give on request.
#pragma once

namespace test {

// From now on getrlimit, setrlimit or ftruncate of this process and its children fails with the error. There is no way
// back: call it in a forked child. False when the kernel refuses the filter.
bool makeGetrlimitFail(int error);
bool makeSetrlimitFail(int error);
bool makeFtruncateFail(int error);
// The same for a system call by its number, whatever its arguments are.
bool makeSystemCallFail(long number, int error);

}  // namespace test
