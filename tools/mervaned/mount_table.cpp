#include "tools/mervaned/mount_table.h"

#include <libmount/libmount.h>

#include <filesystem>
#include <memory>
#include <system_error>

namespace mervaned {

namespace fs = std::filesystem;

namespace {

struct Unreference {
  void operator()(libmnt_table* table) const noexcept { ::mnt_unref_table(table); }
  void operator()(libmnt_iter* iterator) const noexcept { ::mnt_free_iter(iterator); }
};

std::string textOf(const char* field) { return field == nullptr ? "" : field; }

}  // namespace

std::string printable(const std::string& text) {
  std::string out;
  for (const char character : text) {
    const auto byte = static_cast<unsigned char>(character);
    if (byte >= 0x20 && byte != 0x7F) {
      out += character;
    } else {
      out += '\\';
      for (const int shift : {6, 3, 0}) out += static_cast<char>('0' + (byte >> shift) % 8);
    }
  }
  return out;
}

MountTable mountTable() {
  MountTable mounts;
  const std::unique_ptr<libmnt_table, Unreference> table(::mnt_new_table_from_file("/proc/self/mountinfo"));
  const std::unique_ptr<libmnt_iter, Unreference> iterator(::mnt_new_iter(MNT_ITER_FORWARD));
  if (!table || !iterator) return mounts;
  libmnt_fs* entry = nullptr;
  while (::mnt_table_next_fs(table.get(), iterator.get(), &entry) == 0) {
    mounts[textOf(::mnt_fs_get_target(entry))] = {::mnt_fs_get_id(entry), textOf(::mnt_fs_get_fstype(entry)),
                                                  printable(textOf(::mnt_fs_get_source(entry)))};
  }
  return mounts;
}

std::string listedPath(const MountTable& table, const std::string& mountPoint) {
  std::error_code failed;
  const fs::path whole = fs::absolute(mountPoint, failed);
  const fs::path folder = fs::canonical(whole.parent_path(), failed);
  if (failed) return mountPoint;
  std::string listed = (folder / whole.filename()).string();
  if (table.count(listed) != 0) return listed;
  const fs::path target = fs::canonical(whole, failed);
  return failed ? listed : target.string();
}

}  // namespace mervaned
