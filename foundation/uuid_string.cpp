#include <plinth/uuid_string.h>

#include <CoreFoundation/CFUUID.h>

namespace plinth {
namespace {

CSharedCFRef<CFStringRef> newIdentifier() {
  const CSharedCFRef<CFUUIDRef> identifier(CFUUIDCreate(kCFAllocatorDefault));
  return CFUUIDCreateString(kCFAllocatorDefault, identifier.get());
}

}  // namespace

CUUIDString::CUUIDString() : CString(newIdentifier().get()) {}

CUUIDString::~CUUIDString() = default;

const char* CUUIDString::typeName() const noexcept { return "CUUIDString"; }

}  // namespace plinth
