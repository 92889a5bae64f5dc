// uuid_string.h: CUUIDString, the text of a new universally unique identifier.
#pragma once

#include <plinth/string.h>

namespace plinth {

// A CString that, when made, takes the text of a fresh random UUID: 36 characters, letters in upper case, such as
// "68753A44-4D6F-1226-9C60-0050E4C00067". Any thread. It may live on the stack or behind a CStringRef.
class PLINTH_EXPORT CUUIDString : public CString {
 public:
  CUUIDString();
  CUUIDString(const CUUIDString&) = delete;
  CUUIDString& operator=(const CUUIDString&) = delete;
  ~CUUIDString() override;

  const char* typeName() const noexcept override;
};

using CUUIDStringRef = CSharedObjectRef<CUUIDString>;

}  // namespace plinth
