// message_digest_support.h: what the tests of message digests share.
#pragma once

#include <plinth/buffer.h>
#include <plinth/url.h>
#include <tovan/message_digest.h>

#include <string>

#include "tests/support/command.h"
#include "tests/support/scratch_home.h"

namespace test {

using tovan::CMessageDigest;

inline plinth::CURLRef fileURL(const std::string& path) {
  return plinth::makeShared<plinth::CURL>(plinth::CSTR(path), kCFURLPOSIXPathStyle, false);
}
inline std::string digestOfText(const std::string& text, unsigned long kind) {
  return CMessageDigest(plinth::CSTR(text), kind).hexText()->str();
}
inline std::string digestOfBytes(const std::string& bytes, unsigned long kind) {
  const plinth::CBufferRef buffer = plinth::makeShared<plinth::CBuffer>(bytes.data(), bytes.size());
  return CMessageDigest(buffer, kind).hexText()->str();
}
inline std::string digestOfFile(const std::string& path, unsigned long kind) {
  return CMessageDigest(fileURL(path), kind).hexText()->str();
}

// What the openssl command calls a kind.
inline std::string commandName(unsigned long kind) {
  static const char* const names[] = {"-md2", "-md5", "-sha", "-sha1", "-mdc2", "-ripemd160"};
  return names[kind - 1];
}
// The digest of a file that the openssl command computes; empty when it has no such algorithm.
inline std::string digestByCommand(const std::string& path, unsigned long kind) {
  const CommandResult result = runCommand(
      "/usr/bin/openssl", {"dgst", "-provider", "legacy", "-provider", "default", "-r", commandName(kind), path});
  return result.status == 0 ? result.out.substr(0, result.out.find(' ')) : "";
}
// Whether the libcrypto of this host has the algorithm.
inline bool isInstalled(unsigned long kind) { return !digestByCommand("/dev/null", kind).empty(); }

}  // namespace test
