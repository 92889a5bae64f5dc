#include "tools/mervaned/mount_table.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>
#include <utility>

namespace mervaned {

namespace fs = std::filesystem;

namespace {

// A field of the kernel's list: blanks and the like are a backslash and three octal digits.
std::string unescaped(const std::string& field) {
  std::string text;
  for (std::size_t at = 0; at < field.size(); ++at) {
    if (field[at] == '\\' && at + 3 < field.size()) {
      text += static_cast<char>((field[at + 1] - '0') * 64 + (field[at + 2] - '0') * 8 + (field[at + 3] - '0'));
      at += 3;
    } else {
      text += field[at];
    }
  }
  return text;
}

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

// proc(5): the id is the first field of a line, the mount point the fifth; after " - " come the type and the source,
// which may be empty.
MountTable mountTable() {
  MountTable mounts;
  std::ifstream table("/proc/self/mountinfo");
  for (std::string line; std::getline(table, line);) {
    const std::size_t second = line.find(" - ");
    if (second == std::string::npos) continue;
    std::istringstream first(line.substr(0, second));
    std::istringstream last(line.substr(second + 3));
    KernelMount mount;
    std::string field;
    first >> mount.id;
    for (int i = 0; i < 4; ++i) first >> field;
    std::getline(last, mount.type, ' ');
    std::getline(last, mount.source, ' ');
    mount.source = printable(unescaped(mount.source));
    mounts[unescaped(field)] = std::move(mount);
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
