#include <plinth/data_value.h>
#include <plinth/exception.h>

namespace plinth {

CDataValue::~CDataValue() = default;

void CDataValue::conversionNotImplemented(const char* target) const {
  throw CParamException("%s can't be converted to %s", typeName(), target != nullptr ? target : "(null)");
}

}  // namespace plinth
