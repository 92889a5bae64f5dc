#include "tests/support/failing_system_call.h"

#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>

#include <cstddef>
#include <cstdint>

namespace test {
namespace {

// Both calls are prlimit64(pid, resource, new, old): getrlimit passes no new limit, setrlimit no old one.
constexpr std::uint32_t kNewLimit = 2;
constexpr std::uint32_t kOldLimit = 3;

template <std::size_t count>
bool install(sock_filter (&steps)[count]) {
  const sock_fprog program{static_cast<unsigned short>(count), steps};
  return prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) == 0;
}

// Fails prlimit64 when the argument, a pointer, is null.
bool failLimitCallWithout(std::uint32_t argument, int error) {
  const auto low = static_cast<std::uint32_t>(offsetof(seccomp_data, args) + argument * sizeof(std::uint64_t));
  const auto high = static_cast<std::uint32_t>(low + sizeof(std::uint32_t));
  sock_filter steps[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_prlimit64, 0, 5),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, low),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 0, 3),
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, high),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 0, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error)),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  return install(steps);
}

}  // namespace

bool makeGetrlimitFail(int error) { return failLimitCallWithout(kNewLimit, error); }
bool makeSetrlimitFail(int error) { return failLimitCallWithout(kOldLimit, error); }

bool makeSystemCallFail(long number, int error) {
  sock_filter steps[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, static_cast<std::uint32_t>(number), 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | static_cast<std::uint32_t>(error)),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
  };
  return install(steps);
}

bool makeFtruncateFail(int error) { return makeSystemCallFail(SYS_ftruncate, error); }

}  // namespace test
