#include <tovan/shared_storage_exception.h>

namespace tovan {

using plinth::CString;
using plinth::ExceptionKind;

ISharedStorageException::ISharedStorageException(ISharedStorageExceptionType type, char subCode, const char* message)
    : CException(static_cast<ExceptionKind>(numberOf(type, subCode)), message) {
  setCode(static_cast<std::int32_t>(numberOf(type, subCode)));
}

ISharedStorageException::ISharedStorageException(ISharedStorageExceptionType type, char subCode, const char* format,
                                                 const void* object)
    : ISharedStorageException(type, subCode, nullptr) {
  setMessage(CString::sprintf(format, object));
}

ISharedStorageException::~ISharedStorageException() = default;

void ISharedStorageException::Throw() const { throw ISharedStorageException(*this); }

}  // namespace tovan
