// file_codes.h: the four-character type and creator codes of a file.
//
// They are kept in the extended attribute "user.tovan.finder-info" as 8 bytes: the type, then the creator, each most
// significant byte first. A file without the attribute, or with one of another length, has no codes, which is the same
// as two zeros. Symbolic links are followed.
#pragma once

#include "platform/system/export.h"

#include <cstdint>
#include <string>

namespace platform {

struct FileCodes {
  std::uint32_t type = 0;
  std::uint32_t creator = 0;
};

// Two zeros when the file carries none or cannot be read.
PLATFORM_EXPORT FileCodes fileCodes(const std::string& path) noexcept;

// Stores both; two zeros take the attribute away. False, with errno, when the file is missing, may not be written or
// lies on a file system without such attributes (ENOTSUP).
PLATFORM_EXPORT bool setFileCodes(const std::string& path, FileCodes codes) noexcept;

}  // namespace platform
