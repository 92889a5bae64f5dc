// storage_failure.h: where the storage throws.
#pragma once

#include <tovan/shared_storage_exception.h>

namespace tovan {

// Throws with the object's text in place of the format's %@. An empty holder counts as the empty text.
[[noreturn]] inline void throwStorageFailure(ISharedStorageExceptionType type, ISharedStorageExceptionSubCode subCode,
                                             const char* format, const plinth::CStringRef& object) {
  const plinth::CStringRef text = plinth::CString::nullToEmptyString(object);
  throw ISharedStorageException(type, subCode, format, text->getStringRef());
}

}  // namespace tovan
