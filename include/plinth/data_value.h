// data_value.h: the abstract base of the value objects that holders carry.
#pragma once

#include <plinth/shared_object.h>

namespace plinth {

class PLINTH_EXPORT CDataValue : public CSharedObject {
 public:
  // Reports a conversion that the value's type does not offer: throws CParamException naming the type and the target.
  [[noreturn]] void conversionNotImplemented(const char* target) const;
  // The name of the value's type, such as "CString".
  virtual const char* typeName() const noexcept = 0;

 protected:
  ~CDataValue() override;
};

using CDataValueRef = CSharedObjectRef<CDataValue>;

}  // namespace plinth
