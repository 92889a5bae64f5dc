#include "platform/corefoundation/property_list_stream.h"

#include <CoreFoundation/CFPropertyList.h>

#include "platform/corefoundation/property_list_failure.h"
#include "platform/corefoundation/runtime.h"

#include <algorithm>

namespace cf {
namespace {

constexpr std::size_t kFirstPiece = 16384;

[[noreturn]] void fail(CFIndex code, const char* message, CFErrorRef cause) {
  std::shared_ptr<const CFErrorStorage> owner;
  if (cause != nullptr) owner.reset(cause, [](const CFErrorStorage* error) { release(error); });
  throw ListFailure{code, message, std::move(owner)};
}

}  // namespace

std::vector<std::uint8_t> readWhole(CFReadStreamRef stream, CFIndex length) {
  if (stream == nullptr || length < 0) {
    fail(kCFPropertyListReadStreamError, "There is no stream, or no length, to read a property list from", nullptr);
  }
  const auto wanted = static_cast<std::size_t>(length);
  std::vector<std::uint8_t> bytes;
  std::size_t count = 0;
  while (length == 0 || count < wanted) {
    // The buffer grows with what comes, not with what the caller says will come.
    if (bytes.size() - count < kFirstPiece) bytes.resize(std::max(2 * bytes.size(), kFirstPiece));
    const std::size_t space = length == 0 ? bytes.size() - count : std::min(bytes.size() - count, wanted - count);
    const CFIndex read = CFReadStreamRead(stream, bytes.data() + count, static_cast<CFIndex>(space));
    if (read < 0) {
      fail(kCFPropertyListReadStreamError, "The stream of the property list cannot be read",
           CFReadStreamCopyError(stream));
    }
    if (read == 0) break;
    count += static_cast<std::size_t>(read);
  }
  bytes.resize(count);
  return bytes;
}

CFIndex writeWhole(CFWriteStreamRef stream, std::span<const std::uint8_t> bytes) {
  if (stream == nullptr) {
    fail(kCFPropertyListWriteStreamError, "There is no stream to write a property list to", nullptr);
  }
  for (auto rest = bytes; !rest.empty();) {
    const CFIndex written = CFWriteStreamWrite(stream, rest.data(), static_cast<CFIndex>(rest.size()));
    if (written <= 0) {
      fail(kCFPropertyListWriteStreamError, "The property list cannot be written to its stream",
           CFWriteStreamCopyError(stream));
    }
    rest = rest.subspan(static_cast<std::size_t>(written));
  }
  return static_cast<CFIndex>(bytes.size());
}

}  // namespace cf
