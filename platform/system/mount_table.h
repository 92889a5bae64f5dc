// mount_table.h: MountTable, the kernel's table of mounts as it is at one moment.
#pragma once

#include "platform/system/file_system.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace platform {

struct Mount {
  std::uint64_t id = 0;
  FileSystemFacts facts;  // with the type as the table has it, in every case
};

class MountTable {
 public:
  // Nothing, with errno, when the table cannot be read.
  static std::optional<MountTable> read(const char* file = "/proc/self/mountinfo");

  // The uppermost of the mounts at exactly this path; null when there is none.
  const Mount* at(const std::string& mountPoint) const noexcept;
  const Mount* withId(std::uint64_t id) const noexcept;

 private:
  std::vector<Mount> mounts_;  // later ones cover earlier ones
};

}  // namespace platform
