// buffer.h: CBuffer and CBufferedDataCopy, growable byte buffers.
//
// One buffer is changed by one thread at a time; reading from many is safe. A pointer from data() is valid until the
// buffer's size changes.
#pragma once

#include <plinth/data_value.h>
#include <plinth/shared_cf_ref.h>
#include <plinth/string.h>

#include <CoreFoundation/CFData.h>

#include <cstddef>
#include <cstdint>
#include <vector>

namespace plinth {

class PLINTH_EXPORT CBuffer : public CDataValue {
 public:
  CBuffer() noexcept;
  // `size` bytes, all zero.
  explicit CBuffer(std::size_t size);
  // A copy of bytes; a null pointer goes with size 0 only (else CNullPointerException "Error: bytes is null!").
  CBuffer(const void* bytes, std::size_t size);
  CBuffer(const CBuffer&) = default;
  CBuffer& operator=(const CBuffer&) = default;
  ~CBuffer() override;

  const char* typeName() const noexcept override;

  // Never null.
  std::uint8_t* data() noexcept;
  const std::uint8_t* data() const noexcept;
  // In bytes.
  std::size_t size() const noexcept { return bytes_.size(); }
  bool isEmpty() const noexcept { return bytes_.empty(); }

  // What grows the buffer throws CParamException, and changes nothing, when there is no memory for that many bytes.

  // Keeps the first bytes; added ones are zero.
  void resize(std::size_t size);
  // Makes room so that growing up to `capacity` bytes moves nothing.
  void reserve(std::size_t capacity);
  // The bytes may lie in this buffer. Null as in the constructor.
  void append(const void* bytes, std::size_t size);
  void append(const CBuffer& other);
  void clear() noexcept;

  // The bytes as data and as text. An empty holder when they are not text in that encoding.
  CSharedCFRef<CFDataRef> copyData() const;
  CStringRef copyString(CFStringEncoding encoding = kCFStringEncodingUTF8) const;

  bool operator==(const CBuffer& other) const noexcept { return bytes_ == other.bytes_; }

 private:
  std::vector<std::uint8_t> bytes_;
};

using CBufferRef = CSharedObjectRef<CBuffer>;

// A buffer that starts as a copy of what another object holds.
class PLINTH_EXPORT CBufferedDataCopy : public CBuffer {
 public:
  CBufferedDataCopy(const void* bytes, std::size_t size);
  // Throws CNullPointerException "Error: data is null!".
  explicit CBufferedDataCopy(CFDataRef data);
  // The string's UTF-8 bytes without a terminator. Throws CNullPointerException "Error: text is null!".
  explicit CBufferedDataCopy(const CStringRef& text);
  // Throws CNullPointerException "Error: buffer is null!".
  explicit CBufferedDataCopy(const CBufferRef& buffer);
  ~CBufferedDataCopy() override;

  const char* typeName() const noexcept override;
};

using CBufferedDataCopyRef = CSharedObjectRef<CBufferedDataCopy>;

}  // namespace plinth
