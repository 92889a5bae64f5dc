// Universally unique identifiers, on libuuid.
#include <CoreFoundation/CFString.h>
#include <CoreFoundation/CFUUID.h>

#include <uuid.h>

#include <cstring>
#include <string>

#include "platform/corefoundation/base.h"
#include "platform/corefoundation/string.h"

struct CFUUIDStorage {
  CFObjectHead head;
  CFUUIDBytes bytes;
};

namespace cf {
namespace {

static_assert(sizeof(CFUUIDBytes) == sizeof(uuid_t));

bool uuidsAreEqual(const void* left, const void* right) {
  return std::memcmp(&static_cast<CFUUIDRef>(left)->bytes, &static_cast<CFUUIDRef>(right)->bytes,
                     sizeof(CFUUIDBytes)) == 0;
}

CFHashCode hashOfUUID(const void* object) {
  std::uint64_t halves[2];
  std::memcpy(halves, &static_cast<CFUUIDRef>(object)->bytes, sizeof halves);
  return mixBits(halves[0] ^ mixBits(halves[1]));
}

CFStringRef copyUUIDDescription(const void* object) {
  return CFUUIDCreateString(kCFAllocatorDefault, static_cast<CFUUIDRef>(object));
}

constinit const CFRuntimeClass kUUIDClass{"CFUUID", nullptr, uuidsAreEqual, hashOfUUID, copyUUIDDescription};

}  // namespace
}  // namespace cf

CFTypeID CFUUIDGetTypeID() { return cf::typeID(cf::kUUIDClass); }

CFUUIDRef CFUUIDCreate(CFAllocatorRef allocator) {
  CFUUIDBytes bytes{};
  ::uuid_generate_random(&bytes.byte0);
  return CFUUIDCreateFromUUIDBytes(allocator, bytes);
}

CFUUIDRef CFUUIDCreateFromString(CFAllocatorRef allocator, CFStringRef text) {
  constexpr std::size_t textLength = 36;
  if (text == nullptr || cf::utf8View(text).size() != textLength) return nullptr;
  CFUUIDBytes bytes{};
  const std::string terminated(cf::utf8View(text));
  if (::uuid_parse(terminated.c_str(), &bytes.byte0) != 0) return nullptr;
  return CFUUIDCreateFromUUIDBytes(allocator, bytes);
}

CFUUIDRef CFUUIDCreateFromUUIDBytes(CFAllocatorRef, CFUUIDBytes bytes) {
  return cf::create<CFUUIDStorage>(cf::kUUIDClass, 0, bytes);
}

CFStringRef CFUUIDCreateString(CFAllocatorRef, CFUUIDRef uuid) {
  if (uuid == nullptr) return nullptr;
  char text[37];
  ::uuid_unparse_upper(&uuid->bytes.byte0, text);
  return cf::createText(text);
}

CFUUIDBytes CFUUIDGetUUIDBytes(CFUUIDRef uuid) { return uuid == nullptr ? CFUUIDBytes{} : uuid->bytes; }
