#include "platform/corefoundation/runtime.h"
#include "platform/corefoundation/stream_file.h"
#include "platform/corefoundation/stream_state.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

struct CFReadStreamStorage {
  CFObjectHead head;
  cf::StreamState state{};
  bool isFile = false;
  std::string path{};  // of a file stream
  cf::StreamFile file{};
  const UInt8* bytes = nullptr;  // of a stream over memory
  CFIndex length = 0;
  CFIndex position = 0;
  bool ownsBytes = false;
};

namespace {

void finalizeReadStream(void* object) noexcept {
  auto* const stream = static_cast<CFReadStreamRef>(object);
  if (stream->ownsBytes) std::free(const_cast<UInt8*>(stream->bytes));
  stream->~CFReadStreamStorage();
  std::free(object);
}

constinit const CFRuntimeClass kReadStreamClass{"CFReadStream", finalizeReadStream, nullptr, nullptr, nullptr};

CFReadStreamRef createStream() { return cf::create<CFReadStreamStorage>(kReadStreamClass, 0); }

// Counts the bytes ahead as read, at most `most` of them.
CFIndex take(CFReadStreamRef stream, CFIndex most, const UInt8*& from) {
  from = stream->bytes + stream->position;
  const CFIndex count = std::min(most, stream->length - stream->position);
  stream->position += count;
  if (count == 0) stream->state.status = kCFStreamStatusAtEnd;
  return count;
}

}  // namespace

CFTypeID CFReadStreamGetTypeID() { return reinterpret_cast<CFTypeID>(&kReadStreamClass); }

CFReadStreamRef CFReadStreamCreateWithFile(CFAllocatorRef, CFURLRef fileURL) {
  auto path = cf::pathOfFileURL(fileURL);
  if (!path) return nullptr;
  const CFReadStreamRef stream = createStream();
  stream->isFile = true;
  stream->path = std::move(*path);
  return stream;
}

CFReadStreamRef CFReadStreamCreateWithBytesNoCopy(CFAllocatorRef, const UInt8* bytes, CFIndex length,
                                                  CFAllocatorRef bytesDeallocator) {
  if (length < 0 || (bytes == nullptr && length > 0)) return nullptr;
  const CFReadStreamRef stream = createStream();
  stream->bytes = bytes;
  stream->length = length;
  stream->ownsBytes = bytesDeallocator != kCFAllocatorNull;
  return stream;
}

Boolean CFReadStreamOpen(CFReadStreamRef stream) {
  if (stream == nullptr || stream->state.status != kCFStreamStatusNotOpen) return false;
  stream->state.status = kCFStreamStatusOpen;
  if (!stream->isFile) return true;
  const int problem = stream->file.openForReading(stream->path);
  if (problem != 0) stream->state.fail(problem);
  return problem == 0;
}

void CFReadStreamClose(CFReadStreamRef stream) {
  if (stream == nullptr || stream->state.status == kCFStreamStatusNotOpen) return;
  // What was read is not put in doubt by a failed close.
  static_cast<void>(stream->file.close());
  stream->state.status = kCFStreamStatusClosed;
}

CFIndex CFReadStreamRead(CFReadStreamRef stream, UInt8* buffer, CFIndex bufferLength) {
  if (stream == nullptr || !stream->state.isOpen() || bufferLength < 0 || (buffer == nullptr && bufferLength > 0)) {
    return -1;
  }
  if (bufferLength == 0) return 0;
  if (!stream->isFile) {
    const UInt8* from = nullptr;
    const CFIndex count = take(stream, bufferLength, from);
    if (count > 0) std::memcpy(buffer, from, static_cast<std::size_t>(count));
    return count;
  }
  int problem = 0;
  const CFIndex count = stream->file.read(buffer, static_cast<std::size_t>(bufferLength), problem);
  if (count == -1) stream->state.fail(problem);
  if (count == 0) stream->state.status = kCFStreamStatusAtEnd;
  return count;
}

Boolean CFReadStreamHasBytesAvailable(CFReadStreamRef stream) {
  if (stream == nullptr || stream->state.status != kCFStreamStatusOpen) return false;
  return stream->isFile || stream->position < stream->length;
}

const UInt8* CFReadStreamGetBuffer(CFReadStreamRef stream, CFIndex maxBytesToRead, CFIndex* bytesRead) {
  if (bytesRead != nullptr) *bytesRead = 0;
  if (stream == nullptr || stream->isFile || !stream->state.isOpen() || maxBytesToRead < 0) return nullptr;
  const UInt8* from = nullptr;
  const CFIndex count = take(stream, maxBytesToRead == 0 ? stream->length : maxBytesToRead, from);
  if (bytesRead != nullptr) *bytesRead = count;
  return count == 0 ? nullptr : from;
}

CFStreamStatus CFReadStreamGetStatus(CFReadStreamRef stream) {
  return stream == nullptr ? kCFStreamStatusNotOpen : stream->state.status;
}

CFStreamError CFReadStreamGetError(CFReadStreamRef stream) {
  return stream == nullptr ? CFStreamError{0, 0} : stream->state.error();
}

CFErrorRef CFReadStreamCopyError(CFReadStreamRef stream) {
  return stream == nullptr ? nullptr : stream->state.copyError();
}

CFTypeRef CFReadStreamCopyProperty(CFReadStreamRef, CFStringRef) { return nullptr; }

Boolean CFReadStreamSetProperty(CFReadStreamRef, CFStringRef, CFTypeRef) { return false; }
