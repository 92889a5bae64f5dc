// The layout of a binary list: eight bytes of header, the objects, a table of their offsets, and a trailer of 32 bytes
// that tells the sizes of offsets and references, the number of objects, the root and the table's place. All numbers
// are big-endian. An object begins with a byte of kind (upper half) and size (lower half; 15: an integer object with
// the size follows). Containers hold references: numbers of objects.
#include "platform/corefoundation/binary_property_list.h"
#include "platform/corefoundation/property_list_failure.h"
#include "platform/corefoundation/string.h"

#include <algorithm>
#include <string>
#include <vector>

namespace cf {
namespace {

constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;
// As a tree a list may have this many times the bytes of its file, and this many in any case.
constexpr std::uint64_t kTreeFactor = 64;
constexpr std::uint64_t kTreeAllowance = std::uint64_t{1} << 24;
constexpr std::uint64_t kNodeCost = 16;  // of a node besides its bytes

enum Kind : std::uint8_t {
  kSingle = 0x0,
  kInteger = 0x1,
  kReal = 0x2,
  kDate = 0x3,
  kData = 0x4,
  kASCII = 0x5,
  kUTF16 = 0x6,
  kUID = 0x8,
  kArray = 0xA,
  kOrderedSet = 0xB,
  kSet = 0xC,
  kDictionary = 0xD
};

class BinaryChecker {
 public:
  explicit BinaryChecker(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  void check() {
    readTrailer();
    measures_.resize(static_cast<std::size_t>(count_));
    visit(root_, 0);
  }

 private:
  // What an object is as a tree.
  struct Measure {
    std::uint64_t bytes = 0;  // 0: not visited
    std::uint32_t height = 0;
    bool open = false;  // being visited: meeting it again is a cycle
    bool string = false;
  };

  struct Payload {
    std::uint64_t at;     // of the first byte behind the head
    std::uint64_t count;  // of bytes, code units, references or pairs
  };

  [[noreturn]] static void failFile(const std::string& cause) {
    throw ListFailure{kCFPropertyListReadCorruptError, cause + " in the binary property list"};
  }

  [[noreturn]] void fail(std::uint64_t object, const std::string& cause) const {
    failFile(cause + " at object " + std::to_string(object) + ", byte " + std::to_string(offsetOf(object)) + ",");
  }

  std::uint64_t number(std::uint64_t at, unsigned size) const {
    std::uint64_t value = 0;
    for (unsigned i = 0; i < size; ++i) value = value << 8 | bytes_[static_cast<std::size_t>(at + i)];
    return value;
  }

  void readTrailer() {
    if (bytes_.size() < kHeaderSize + 1 + kTrailerSize) failFile("There are too few bytes");
    const std::uint64_t trailer = bytes_.size() - kTrailerSize;
    offsetSize_ = bytes_[static_cast<std::size_t>(trailer + 6)];
    referenceSize_ = bytes_[static_cast<std::size_t>(trailer + 7)];
    count_ = number(trailer + 8, 8);
    root_ = number(trailer + 16, 8);
    table_ = number(trailer + 24, 8);
    if (offsetSize_ < 1 || offsetSize_ > 8 || referenceSize_ < 1 || referenceSize_ > 8) {
      failFile("The sizes of offsets and references are out of range");
    }
    if (table_ <= kHeaderSize || table_ > trailer || count_ == 0 || count_ > (trailer - table_) / offsetSize_) {
      failFile("The table of offsets does not fit");
    }
    if (root_ >= count_) failFile("The root is none of the objects");
  }

  std::uint64_t offsetOf(std::uint64_t object) const { return number(table_ + object * offsetSize_, offsetSize_); }

  // Where the size in the head of the object says that its payload lies.
  Payload sized(std::uint64_t object, std::uint64_t at) const {
    const unsigned low = bytes_[static_cast<std::size_t>(at)] & 0x0Fu;
    if (low != 0x0F) return {at + 1, low};
    const unsigned head = at + 1 < table_ ? bytes_[static_cast<std::size_t>(at + 1)] : 0u;
    const unsigned size = 1u << (head & 0x0F);
    if (head >> 4 != kInteger || size > 8 || at + 2 + size > table_) fail(object, "A size is missing");
    return {at + 2 + size, number(at + 2, size)};
  }

  // Checks that `count` items of `size` bytes lie among the objects.
  void fits(std::uint64_t object, const Payload& payload, std::uint64_t size) const {
    if (payload.count > (table_ - payload.at) / size) fail(object, "An object reaches beyond the others");
  }

  // Measures the object and all that it leads to; `depth` containers enclose it.
  const Measure& visit(std::uint64_t object, std::uint32_t depth) {
    Measure& measure = measures_[static_cast<std::size_t>(object)];
    if (measure.open) fail(object, "A container holds itself");
    if (measure.bytes == 0) {
      measure = leaf(object);
      if (measure.height > 0) container(object, depth);
    }
    if (depth + measure.height > kCFPropertyListMaximumDepth) {
      fail(object, "More than " + std::to_string(kCFPropertyListMaximumDepth) + " containers inside one another");
    }
    if (measure.bytes > kTreeAllowance + kTreeFactor * bytes_.size()) {
      fail(object, "Shared objects make the list too large");
    }
    return measure;
  }

  // The measure of the object itself; height 1 stands for a container whose content is still to be visited.
  Measure leaf(std::uint64_t object) const {
    const std::uint64_t at = offsetOf(object);
    if (at < kHeaderSize || at >= table_) fail(object, "An offset lies outside of the objects");
    const unsigned head = bytes_[static_cast<std::size_t>(at)], low = head & 0x0F;
    Measure measure{kNodeCost, 0, false, false};
    switch (head >> 4) {
      case kSingle:
        if (head != 0x08 && head != 0x09) fail(object, "There is an object that is no property-list kind");
        return measure;
      case kInteger:
        return integer(object, at, low), measure;
      case kReal:
        return scalar(object, at, low, low == 2 || low == 3), measure;
      case kDate:
        return scalar(object, at, low, low == 3), measure;
      case kData:
      case kASCII:
      case kUTF16:
        measure.bytes += text(object, at, head >> 4);
        measure.string = head >> 4 != kData;
        return measure;
      case kArray:
      case kDictionary:
        measure.height = 1;
        return measure;
      case kUID:
      case kSet:
      case kOrderedSet:
        fail(object, "There is a kind that only archives have");
      default:
        fail(object, "There is an object of unknown kind");
    }
  }

  void scalar(std::uint64_t object, std::uint64_t at, unsigned low, bool allowed) const {
    if (!allowed) fail(object, "There is a number of an unknown size");
    fits(object, {at + 1, 1}, std::uint64_t{1} << low);
  }

  void integer(std::uint64_t object, std::uint64_t at, unsigned low) const {
    scalar(object, at, low, low <= 4);
    if (low == 4 && number(at + 1, 8) != 0) fail(object, "An integer needs more than 64 bits");
  }

  // Checks data or a string and gives the bytes that it takes as such or as UTF-8.
  std::uint64_t text(std::uint64_t object, std::uint64_t at, unsigned kind) const {
    const Payload payload = sized(object, at);
    fits(object, payload, kind == kUTF16 ? 2 : 1);
    for (std::uint64_t i = 0; kind == kASCII && i < payload.count; ++i) {
      const std::uint8_t byte = bytes_[static_cast<std::size_t>(payload.at + i)];
      if (byte == 0) fail(object, "There is a NUL inside a string");
      if (byte >= 0x80) fail(object, "There is a byte that is not ASCII in an ASCII string");
    }
    if (kind == kUTF16) checkUTF16(object, payload);
    return payload.count * (kind == kUTF16 ? 3 : 1);
  }

  void checkUTF16(std::uint64_t object, const Payload& payload) const {
    for (std::uint64_t i = 0; i < payload.count; ++i) {
      const std::uint64_t unit = number(payload.at + 2 * i, 2);
      if (unit == 0) fail(object, "There is a NUL inside a string");
      if (unit < 0xD800 || unit > 0xDFFF) continue;
      const std::uint64_t next = i + 1 < payload.count ? number(payload.at + 2 * i + 2, 2) : 0;
      if (unit > 0xDBFF || next < 0xDC00 || next > 0xDFFF) fail(object, "There is half of a surrogate pair");
      ++i;
    }
  }

  void container(std::uint64_t object, std::uint32_t depth) {
    if (depth == kCFPropertyListMaximumDepth) {
      fail(object, "More than " + std::to_string(depth) + " containers inside one another");
    }
    const std::uint64_t at = offsetOf(object);
    const bool dictionary = bytes_[static_cast<std::size_t>(at)] >> 4 == kDictionary;
    const Payload payload = sized(object, at);
    fits(object, payload, std::uint64_t{referenceSize_} * (dictionary ? 2 : 1));
    const std::uint64_t references = payload.count * (dictionary ? 2 : 1);
    // The table does not change size, so that the reference stays good.
    Measure& measure = measures_[static_cast<std::size_t>(object)];
    measure.open = true;
    for (std::uint64_t i = 0; i < references; ++i) {
      const std::uint64_t child = number(payload.at + i * referenceSize_, referenceSize_);
      if (child >= count_) fail(object, "A reference leads to none of the objects");
      const Measure& inner = visit(child, depth + 1);
      if (dictionary && i < payload.count && !inner.string) fail(object, "A key is no string");
      measure.bytes += inner.bytes;
      measure.height = std::max(measure.height, inner.height + 1);
      if (measure.bytes > kTreeAllowance + kTreeFactor * bytes_.size()) {
        fail(object, "Shared objects make the list too large");
      }
    }
    measure.open = false;
  }

  const std::span<const std::uint8_t> bytes_;
  std::uint64_t count_ = 0;
  std::uint64_t root_ = 0;
  std::uint64_t table_ = 0;
  unsigned offsetSize_ = 0;
  unsigned referenceSize_ = 0;
  std::vector<Measure> measures_;
};

}  // namespace

void checkBinaryList(std::span<const std::uint8_t> bytes) { BinaryChecker(bytes).check(); }

}  // namespace cf
