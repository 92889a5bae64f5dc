#include "platform/system/mount_table.h"

#include <libmount/libmount.h>

#include <algorithm>
#include <cerrno>
#include <memory>

namespace platform {
namespace {

std::string text(const char* value) { return value == nullptr ? std::string() : std::string(value); }

bool hasOption(const char* options, const char* name) {
  char* value = nullptr;
  std::size_t size = 0;
  return options != nullptr && ::mnt_optstr_get_option(options, name, &value, &size) == 0;
}

Mount mountOf(libmnt_fs* entry) {
  Mount mount;
  mount.id = static_cast<std::uint64_t>(::mnt_fs_get_id(entry));
  mount.facts.source = text(::mnt_fs_get_source(entry));
  mount.facts.type = text(::mnt_fs_get_fstype(entry));
  mount.facts.mountPoint = text(::mnt_fs_get_target(entry));
  mount.facts.isReadOnly =
      hasOption(::mnt_fs_get_vfs_options(entry), "ro") || hasOption(::mnt_fs_get_fs_options(entry), "ro");
  mount.facts.isLocal = ::mnt_fs_is_netfs(entry) == 0;
  return mount;
}

struct Unreference {
  void operator()(libmnt_table* table) const noexcept { ::mnt_unref_table(table); }
  void operator()(libmnt_iter* iterator) const noexcept { ::mnt_free_iter(iterator); }
};

}  // namespace

std::optional<MountTable> MountTable::read(const char* file) {
  errno = 0;
  const std::unique_ptr<libmnt_table, Unreference> table(::mnt_new_table_from_file(file));
  const std::unique_ptr<libmnt_iter, Unreference> iterator(::mnt_new_iter(MNT_ITER_FORWARD));
  if (!table || !iterator) {
    if (errno == 0) errno = EIO;
    return std::nullopt;
  }
  MountTable result;
  libmnt_fs* entry = nullptr;
  while (::mnt_table_next_fs(table.get(), iterator.get(), &entry) == 0) result.mounts_.push_back(mountOf(entry));
  return result;
}

const Mount* MountTable::at(const std::string& mountPoint) const noexcept {
  const auto found = std::find_if(mounts_.rbegin(), mounts_.rend(),
                                  [&](const Mount& mount) { return mount.facts.mountPoint == mountPoint; });
  return found == mounts_.rend() ? nullptr : &*found;
}

const Mount* MountTable::withId(std::uint64_t id) const noexcept {
  const auto found = std::find_if(mounts_.begin(), mounts_.end(), [&](const Mount& mount) { return mount.id == id; });
  return found == mounts_.end() ? nullptr : &*found;
}

}  // namespace platform
