#include <plinth/buffer.h>
#include <plinth/exception.h>

#include <algorithm>
#include <cstdint>
#include <functional>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

namespace plinth {
namespace {

// Runs what may need more memory and reports a lack of it as the library's own exception.
template <class Action>
void growing(const char* operation, std::size_t size, Action action) {
  try {
    action();
  } catch (const std::bad_alloc&) {
    throw CParamException("%s failed: no memory for %llu bytes", operation, static_cast<unsigned long long>(size));
  } catch (const std::length_error&) {
    throw CParamException("%s failed: no memory for %llu bytes", operation, static_cast<unsigned long long>(size));
  }
}

const void* checked(const void* bytes, std::size_t size) {
  if (bytes == nullptr && size > 0) throw CNullPointerException("Error: bytes is null!");
  return bytes;
}

template <class Ref>
const Ref& checkedRef(const Ref& object, const char* name) {
  if (object == nullptr) throw CNullPointerException("Error: %s is null!", name);
  return object;
}

}  // namespace

CBuffer::CBuffer() noexcept = default;

CBuffer::CBuffer(std::size_t size) { resize(size); }

CBuffer::CBuffer(const void* bytes, std::size_t size) { append(bytes, size); }

CBuffer::~CBuffer() = default;

const char* CBuffer::typeName() const noexcept { return "CBuffer"; }

std::uint8_t* CBuffer::data() noexcept { return const_cast<std::uint8_t*>(std::as_const(*this).data()); }

const std::uint8_t* CBuffer::data() const noexcept {
  static const std::uint8_t nothing = 0;
  return bytes_.empty() ? &nothing : bytes_.data();
}

void CBuffer::resize(std::size_t size) {
  growing("CBuffer::resize", size, [&] { bytes_.resize(size); });
}

void CBuffer::reserve(std::size_t capacity) {
  growing("CBuffer::reserve", capacity, [&] { bytes_.reserve(capacity); });
}

void CBuffer::append(const void* bytes, std::size_t size) {
  if (checked(bytes, size) == nullptr || size == 0) return;
  const auto* first = static_cast<const std::uint8_t*>(bytes);
  const std::less<const std::uint8_t*> before;
  const bool isOwn = !before(first, data()) && before(first, data() + bytes_.size());
  const std::size_t offset = isOwn ? static_cast<std::size_t>(first - data()) : 0;
  const std::size_t old = bytes_.size();
  growing("CBuffer::append", size > SIZE_MAX - old ? SIZE_MAX : old + size, [&] {
    if (size > bytes_.max_size() - old) throw std::length_error("");
    bytes_.resize(old + size);
    // The bytes may have moved with the buffer.
    std::copy_n(isOwn ? bytes_.data() + offset : first, size, bytes_.data() + old);
  });
}

void CBuffer::append(const CBuffer& other) { append(other.data(), other.size()); }

void CBuffer::clear() noexcept { bytes_.clear(); }

CSharedCFRef<CFDataRef> CBuffer::copyData() const {
  return CFDataCreate(kCFAllocatorDefault, data(), static_cast<CFIndex>(size()));
}

CStringRef CBuffer::copyString(CFStringEncoding encoding) const {
  const CSharedCFRef<CFStringRef> text(
      CFStringCreateWithBytes(kCFAllocatorDefault, data(), static_cast<CFIndex>(size()), encoding, false));
  return CSTR(text.get());
}

CBufferedDataCopy::CBufferedDataCopy(const void* bytes, std::size_t size) : CBuffer(bytes, size) {}

CBufferedDataCopy::CBufferedDataCopy(CFDataRef data)
    : CBuffer(CFDataGetBytePtr(checkedRef(data, "data")), static_cast<std::size_t>(CFDataGetLength(data))) {}

CBufferedDataCopy::CBufferedDataCopy(const CStringRef& text) {
  const std::string bytes = checkedRef(text, "text")->str();
  append(bytes.data(), bytes.size());
}

CBufferedDataCopy::CBufferedDataCopy(const CBufferRef& buffer) : CBuffer(*checkedRef(buffer, "buffer")) {}

CBufferedDataCopy::~CBufferedDataCopy() = default;

const char* CBufferedDataCopy::typeName() const noexcept { return "CBufferedDataCopy"; }

}  // namespace plinth
