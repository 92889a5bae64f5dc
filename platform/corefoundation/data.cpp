#include "platform/corefoundation/data.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "platform/corefoundation/base.h"
#include "platform/corefoundation/string.h"

// The bytes lie behind the object, or in a block of their own.
struct CFDataStorage {
  CFObjectHead head;
  std::uint8_t* bytes;
  CFIndex length;
  CFIndex capacity;  // of mutable data
};

namespace cf {
namespace {

// The bits of the head's info.
constexpr std::uint32_t kMutable = 1;
constexpr std::uint32_t kOwnsBlock = 2;

constinit std::uint8_t noBytes = 0;  // where empty data points

void finalizeData(void* object) noexcept {
  const CFDataStorage* const data = static_cast<CFDataStorage*>(object);
  if ((data->head.info & kOwnsBlock) != 0) std::free(data->bytes);
  std::free(object);
}

bool dataAreEqual(const void* left, const void* right) {
  return std::ranges::equal(bytes(static_cast<CFDataRef>(left)), bytes(static_cast<CFDataRef>(right)));
}

CFHashCode hashOfData(const void* object) {
  const CFDataRef data = static_cast<CFDataRef>(object);
  return hashBytes(reinterpret_cast<const char*>(data->bytes), static_cast<std::size_t>(data->length));
}

// "{length = 5, bytes = 0x68656c6c6f}", with the first 24 bytes of longer data.
CFStringRef copyDataDescription(const void* object) {
  constexpr std::size_t shownBytes = 24;
  const std::span<const std::uint8_t> all = bytes(static_cast<CFDataRef>(object));
  std::string text = "{length = " + std::to_string(all.size()) + ", bytes = 0x";
  for (const std::uint8_t byte : all.first(std::min(all.size(), shownBytes))) {
    text += "0123456789abcdef"[byte >> 4];
    text += "0123456789abcdef"[byte & 15];
  }
  text += all.size() > shownBytes ? "...}" : "}";
  return createText(text);
}

}  // namespace

constinit const CFRuntimeClass kDataClass{"CFData", finalizeData, dataAreEqual, hashOfData, copyDataDescription};

namespace {

CFDataStorage* createOnBlock(std::uint8_t* bytes, CFIndex length, CFIndex capacity, std::uint32_t info) {
  CFDataStorage* const data = create<CFDataStorage>(kDataClass, 0, bytes, length, capacity);
  data->head.info = info;
  return data;
}

// Bytes of the same block as the object, not set yet.
CFDataStorage* createWithRoom(CFIndex length) {
  CFDataStorage* const data =
      create<CFDataStorage>(kDataClass, static_cast<std::size_t>(length), nullptr, length, length);
  data->bytes = reinterpret_cast<std::uint8_t*>(data + 1);
  return data;
}

CFMutableDataRef createEmpty() { return createOnBlock(&noBytes, 0, 0, kMutable); }

// Makes room for the length, at least doubling so that appending stays linear.
void reserve(CFMutableDataRef data, CFIndex length) {
  if (length <= data->capacity) return;
  const CFIndex doubled = data->capacity > PTRDIFF_MAX / 2 ? PTRDIFF_MAX : data->capacity * 2;
  const CFIndex capacity = std::max({length, doubled, CFIndex{64}});
  const bool owns = (data->head.info & kOwnsBlock) != 0;
  void* const block = std::realloc(owns ? data->bytes : nullptr, static_cast<std::size_t>(capacity));
  if (block == nullptr) throw std::bad_alloc();
  data->bytes = static_cast<std::uint8_t*>(block);
  data->capacity = capacity;
  data->head.info |= kOwnsBlock;
}

// Opens or closes a gap so that the range becomes newLength bytes, which are not set.
void resizeRange(CFMutableDataRef data, CFRange range, CFIndex newLength) {
  if (newLength - range.length > PTRDIFF_MAX - data->length) throw std::bad_alloc();
  const CFIndex length = data->length - range.length + newLength;
  reserve(data, length);
  const CFIndex tail = range.location + range.length;
  std::memmove(data->bytes + range.location + newLength, data->bytes + tail,
               static_cast<std::size_t>(data->length - tail));
  data->length = length;
}

bool canChange(CFMutableDataRef data) { return data != nullptr && (data->head.info & kMutable) != 0; }

}  // namespace

CFDataRef createDataTaking(std::uint8_t* bytes, CFIndex length) {
  return createOnBlock(bytes != nullptr ? bytes : &noBytes, length, length, bytes != nullptr ? kOwnsBlock : 0u);
}

CFMutableDataRef createDataOfLength(CFIndex length) {
  Owned<CFMutableDataRef> data(createEmpty());
  reserve(data.get(), length);
  data.get()->length = length;
  return data.take();
}

std::span<const std::uint8_t> bytes(CFDataRef data) {
  if (data == nullptr) return {};
  return {data->bytes, static_cast<std::size_t>(data->length)};
}

bool isMutable(CFDataRef data) { return data != nullptr && (data->head.info & kMutable) != 0; }

}  // namespace cf

CFTypeID CFDataGetTypeID() { return cf::typeID(cf::kDataClass); }

CFDataRef CFDataCreate(CFAllocatorRef, const UInt8* bytes, CFIndex length) {
  if (length < 0 || (bytes == nullptr && length > 0)) return nullptr;
  CFDataStorage* const data = cf::createWithRoom(length);
  if (length > 0) std::memcpy(data->bytes, bytes, static_cast<std::size_t>(length));
  return data;
}

CFDataRef CFDataCreateWithBytesNoCopy(CFAllocatorRef, const UInt8* bytes, CFIndex length,
                                      CFAllocatorRef bytesDeallocator) {
  if (length < 0 || (bytes == nullptr && length > 0)) return nullptr;
  UInt8* const block = const_cast<UInt8*>(bytes);
  if (bytesDeallocator != kCFAllocatorNull) return cf::createDataTaking(block, length);
  return cf::createOnBlock(block != nullptr ? block : &cf::noBytes, length, length, 0);
}

CFDataRef CFDataCreateCopy(CFAllocatorRef allocator, CFDataRef data) {
  if (data == nullptr) return nullptr;
  // Bytes that somebody else keeps may go before the copy does.
  const bool holdsItsBytes = !cf::isMutable(data) && ((data->head.info & cf::kOwnsBlock) != 0 ||
                                                      data->bytes == reinterpret_cast<const UInt8*>(data + 1));
  if (holdsItsBytes) return static_cast<CFDataRef>(CFRetain(data));
  return CFDataCreate(allocator, data->bytes, data->length);
}

CFMutableDataRef CFDataCreateMutable(CFAllocatorRef, CFIndex capacity) {
  constexpr CFIndex greatestRoomAhead = CFIndex{1} << 20;
  cf::Owned<CFMutableDataRef> data(cf::createEmpty());
  if (capacity > 0) cf::reserve(data.get(), std::min(capacity, greatestRoomAhead));
  return data.take();
}

CFMutableDataRef CFDataCreateMutableCopy(CFAllocatorRef, CFIndex, CFDataRef data) {
  if (data == nullptr) return nullptr;
  CFMutableDataRef copy = cf::createDataOfLength(data->length);
  std::memcpy(copy->bytes, data->bytes, static_cast<std::size_t>(data->length));
  return copy;
}

CFIndex CFDataGetLength(CFDataRef data) { return data == nullptr ? 0 : data->length; }

const UInt8* CFDataGetBytePtr(CFDataRef data) { return data == nullptr ? nullptr : data->bytes; }

UInt8* CFDataGetMutableBytePtr(CFMutableDataRef data) { return cf::canChange(data) ? data->bytes : nullptr; }

void CFDataGetBytes(CFDataRef data, CFRange range, UInt8* buffer) {
  if (data == nullptr || buffer == nullptr || !cf::liesInside(range, data->length)) return;
  std::memcpy(buffer, data->bytes + range.location, static_cast<std::size_t>(range.length));
}

void CFDataSetLength(CFMutableDataRef data, CFIndex length) {
  if (!cf::canChange(data) || length < 0) return;
  cf::reserve(data, length);
  if (length > data->length) {
    std::memset(data->bytes + data->length, 0, static_cast<std::size_t>(length - data->length));
  }
  data->length = length;
}

void CFDataIncreaseLength(CFMutableDataRef data, CFIndex extraLength) {
  if (!cf::canChange(data)) return;
  if (extraLength > PTRDIFF_MAX - data->length) throw std::bad_alloc();
  CFDataSetLength(data, data->length + extraLength);
}

void CFDataAppendBytes(CFMutableDataRef data, const UInt8* bytes, CFIndex length) {
  CFDataReplaceBytes(data, CFRangeMake(CFDataGetLength(data), 0), bytes, length);
}

void CFDataReplaceBytes(CFMutableDataRef data, CFRange range, const UInt8* newBytes, CFIndex newLength) {
  if (!cf::canChange(data) || !cf::liesInside(range, data->length)) return;
  if (newLength < 0 || (newBytes == nullptr && newLength > 0)) return;
  // Our own bytes move under the caller's pointer, so they are set aside first.
  std::string aside;
  const bool ownBytes = newLength > 0 && newBytes >= data->bytes && newBytes < data->bytes + data->length;
  if (ownBytes) {
    aside.assign(reinterpret_cast<const char*>(newBytes), static_cast<std::size_t>(newLength));
    newBytes = reinterpret_cast<const UInt8*>(aside.data());
  }
  cf::resizeRange(data, range, newLength);
  if (newLength > 0) std::memcpy(data->bytes + range.location, newBytes, static_cast<std::size_t>(newLength));
}

void CFDataDeleteBytes(CFMutableDataRef data, CFRange range) { CFDataReplaceBytes(data, range, nullptr, 0); }
