// storage_failure.h: where the storage utilities throw.
#pragma once

#include <tovan/shared_storage_exception.h>

namespace tovan {

// The sub-codes, each used with the types that shared_storage_exception.h lists.
enum class StorageSubCode : char {
  notPossible = 0,
  missing = 2,
  notReadWrite = 5,
  notFolder = 6,
  failed = 12,
};

// Throws with the object's text in place of the format's %@. An empty holder counts as the empty text.
[[noreturn]] inline void throwStorageFailure(ISharedStorageExceptionType type, StorageSubCode subCode,
                                             const char* format, const plinth::CStringRef& object) {
  const plinth::CStringRef text = plinth::CString::nullToEmptyString(object);
  throw ISharedStorageException(type, static_cast<char>(subCode), format, text->getStringRef());
}

}  // namespace tovan
