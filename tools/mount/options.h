// options.h: the option text of the native mount.
#pragma once

#include <cstdint>
#include <string>

namespace host_mount {

struct Options {
  std::uint16_t port = 0;  // of the NFS server; 0 when none is given
  std::uint16_t mountPort = 0;
  bool isSoft = false;
  bool locksLocally = false;
};

// Throws Refusal for an unknown word, one that comes twice, a number that is no port, and one port without the other.
Options parseOptions(const std::string& text);

// For messages: in quotes, on one line whatever it holds.
std::string quoted(const std::string& text);

}  // namespace host_mount
