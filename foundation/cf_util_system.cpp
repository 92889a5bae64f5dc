// The system's side of CFUtil: the console line, and the host's names and addresses.
#include <tovan/cf_util.h>

#include <plinth/shared_cf_ref.h>

#include "platform/system/console_log.h"
#include "platform/system/host.h"

#include <string>
#include <vector>

namespace tovan {

using plinth::CSharedCFRef;

namespace {

// The caller owns the array; null when there are no texts. A text that is not UTF-8 is left out.
CFArrayRef createArray(const std::vector<std::string>& texts) {
  CSharedCFRef<CFMutableArrayRef> array = CFUtil::CFArrayMakeMutable();
  for (const std::string& text : texts) {
    const CSharedCFRef<CFStringRef> string =
        CFStringCreateWithCString(kCFAllocatorDefault, text.c_str(), kCFStringEncodingUTF8);
    if (string) CFArrayAppendValue(array.get(), string.get());
  }
  return CFArrayGetCount(array.get()) > 0 ? array.take() : nullptr;
}

// The caller owns the string.
CFStringRef copyFirst(const CSharedCFRef<CFArrayRef>& array) {
  if (array.isNull()) return nullptr;
  return static_cast<CFStringRef>(CFRetain(CFArrayGetValueAtIndex(array.get(), 0)));
}

}  // namespace

void CFUtil::LogToConsole(const char* text) {
  if (text != nullptr) platform::consoleLog(text);
}

CFArrayRef CFUtil::HostNames() { return createArray(platform::hostNames()); }

CFArrayRef CFUtil::HostAddresses() { return createArray(platform::hostAddresses()); }

CFStringRef CFUtil::HostName() { return copyFirst(HostNames()); }

CFStringRef CFUtil::HostAddress() { return copyFirst(HostAddresses()); }

}  // namespace tovan
