// stream_state.h: what both kinds of streams keep: how far they have come and what went wrong.
#pragma once

#include <CoreFoundation/CFStream.h>

namespace cf {

struct StreamState {
  CFStreamStatus status = kCFStreamStatusNotOpen;
  int problem = 0;  // errno, 0 while there is none

  bool isOpen() const { return status == kCFStreamStatusOpen || status == kCFStreamStatusAtEnd; }
  void fail(int number) {
    problem = number;
    status = kCFStreamStatusError;
  }
  CFStreamError error() const {
    return {problem == 0 ? CFIndex{0} : CFIndex{kCFStreamErrorDomainPOSIX}, static_cast<SInt32>(problem)};
  }
  // The caller owns it; null while there is none.
  CFErrorRef copyError() const {
    return problem == 0 ? nullptr : CFErrorCreate(kCFAllocatorDefault, kCFErrorDomainPOSIX, problem, nullptr);
  }
};

}  // namespace cf
