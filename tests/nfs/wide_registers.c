// Preloaded into user-mode-linux. Its kernel sets the registers of its processes from a buffer of 2696 bytes, which is
// what CPUs had before the tiles of AMX; the host refuses a set that is not whole (EFAULT), so on newer CPUs the guest
// would not get past its first instruction. What the guest does not know of is given to the host in its initial state,
// in which it always is: a process must ask its kernel before it may use tiles, and that kernel grants none.
#include <dlfcn.h>
#include <elf.h>
#include <stdarg.h>
#include <stdint.h>
#include <string.h>
#include <sys/ptrace.h>
#include <sys/types.h>
#include <sys/uio.h>

enum { kStateBits = 512, kKnownBits = 0x3ff };  // where a set says which parts it has; up to the protection keys

typedef long (*Ptrace)(enum __ptrace_request request, pid_t process, void* kind, void* data);

static Ptrace hostPtrace;
// The kernel that calls this runs on one thread, on stacks of a few kilobytes.
static unsigned char wholeSet[1 << 16];
static size_t wholeSize;

__attribute__((constructor)) static void findHostPtrace(void) {
  void* const function = dlsym(RTLD_NEXT, "ptrace");
  memcpy(&hostPtrace, &function, sizeof hostPtrace);
}

static void learnSize(pid_t process, void* kind) {
  struct iovec all = {wholeSet, sizeof wholeSet};
  if (hostPtrace(PTRACE_GETREGSET, process, kind, &all) == 0) wholeSize = all.iov_len;
  memset(wholeSet, 0, sizeof wholeSet);
}

__attribute__((visibility("default"))) long ptrace(enum __ptrace_request request, ...) {
  va_list rest;
  va_start(rest, request);
  const pid_t process = va_arg(rest, pid_t);
  void* const kind = va_arg(rest, void*);
  void* const data = va_arg(rest, void*);
  va_end(rest);
  if (request != PTRACE_SETREGSET || (uintptr_t)kind != NT_X86_XSTATE) return hostPtrace(request, process, kind, data);
  const struct iovec* const given = data;
  if (wholeSize == 0) learnSize(process, kind);
  if (given->iov_len >= wholeSize || given->iov_len < kStateBits + sizeof(uint64_t)) {
    return hostPtrace(request, process, kind, data);
  }
  memcpy(wholeSet, given->iov_base, given->iov_len);
  uint64_t bits;
  memcpy(&bits, wholeSet + kStateBits, sizeof bits);
  bits &= kKnownBits;
  memcpy(wholeSet + kStateBits, &bits, sizeof bits);
  struct iovec whole = {wholeSet, wholeSize};
  return hostPtrace(request, process, kind, &whole);
}
