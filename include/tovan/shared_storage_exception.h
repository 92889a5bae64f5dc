// shared_storage_exception.h: the exception of the shared storage.
//
// Its number says what failed in which way: 0xFE000000 + type * 0x10000 + sub-code * 0x100, so that type 1 with
// sub-code 7 is 0xFE010700. It is the exception's kind, which travels with the storage server's replies, and its code;
// both carry it as a 32-bit signed integer.
//
//   type  sub-code  raised when
//   1     7         a request or a reply lacks a key, or has it with a value of another type; the message is the key
//   1     12        the mount or unmount command failed or took too long
//   3     0         a folder lies on a volume that cannot be published, or a sub-export could not be prepared
//   3     2         a path does not exist, or is not published
//   3     5         a folder is not readable and writable
//   3     6         a path is not a folder, or a folder that was to be made is not there
//   3     12        a request got no answer in time, or the storage information file could not be written
//   5     2         the library's bundle is missing
//   5     12        the system could not say something about a path
#pragma once

#include <tovan/export.h>

#include <plinth/exception.h>

#include <cstdint>

namespace tovan {

// What a failure is about. Other numbers than these are possible and mean nothing here.
enum ISharedStorageExceptionType : std::int32_t {
  kSharedStorageExceptionExchange = 1,  // what goes to another process: a message or a command
  kSharedStorageExceptionStorage = 3,   // the storage that a request names
  kSharedStorageExceptionSystem = 5,    // the host
};

// What is wrong with it.
enum ISharedStorageExceptionSubCode : char {
  kSharedStorageNotSupported = 0,
  kSharedStorageNotFound = 2,
  kSharedStorageNotAccessible = 5,
  kSharedStorageNotFolder = 6,
  kSharedStorageBadKey = 7,
  kSharedStorageNotDone = 12,
};

class TOVAN_EXPORT ISharedStorageException : public plinth::CException {
 public:
  // The message, in UTF-8, is taken as it is; null makes it empty.
  ISharedStorageException(ISharedStorageExceptionType type, char subCode, const char* message);
  // A "%@" in the format takes the CoreFoundation object; a null one reads "(null)".
  ISharedStorageException(ISharedStorageExceptionType type, char subCode, const char* format, const void* object);
  ISharedStorageException(const ISharedStorageException&) = default;
  ISharedStorageException& operator=(const ISharedStorageException&) = default;
  ~ISharedStorageException() override;

  [[noreturn]] void Throw() const override;

  // The number of a type and a sub-code, of each of which the lowest eight bits count.
  static constexpr std::uint32_t numberOf(ISharedStorageExceptionType type, char subCode) noexcept {
    constexpr std::uint32_t kByte = 0xFF;
    return 0xFE000000U + (static_cast<std::uint32_t>(type) & kByte) * 0x10000U +
           (static_cast<std::uint32_t>(subCode) & kByte) * 0x100U;
  }
};

}  // namespace tovan
