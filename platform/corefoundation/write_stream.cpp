#include "platform/corefoundation/runtime.h"
#include "platform/corefoundation/stream_file.h"
#include "platform/corefoundation/stream_state.h"

#include <CoreFoundation/CFData.h>
#include <CoreFoundation/CFNumber.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

constinit const CFStringRef kCFStreamPropertyDataWritten = CFSTR("kCFStreamPropertyDataWritten");
constinit const CFStringRef kCFStreamPropertyAppendToFile = CFSTR("kCFStreamPropertyAppendToFile");

namespace {

enum class Target : std::uint8_t { kFile, kGrowing, kBuffer };

}  // namespace

struct CFWriteStreamStorage {
  CFObjectHead head;
  cf::StreamState state{};
  Target target = Target::kFile;
  bool append = false;
  std::string path{};  // of a file stream
  cf::StreamFile file{};
  std::vector<UInt8> taken{};  // by a growing stream
  UInt8* buffer = nullptr;     // of the caller
  CFIndex capacity = 0;
  CFIndex position = 0;
};

namespace {

void finalizeWriteStream(void* object) noexcept {
  static_cast<CFWriteStreamRef>(object)->~CFWriteStreamStorage();
  std::free(object);
}

constinit const CFRuntimeClass kWriteStreamClass{"CFWriteStream", finalizeWriteStream, nullptr, nullptr, nullptr};

CFWriteStreamRef createStream(Target target) {
  const CFWriteStreamRef stream = cf::create<CFWriteStreamStorage>(kWriteStreamClass, 0);
  stream->target = target;
  return stream;
}

bool isFull(CFWriteStreamRef stream) {
  return stream->target == Target::kBuffer && stream->position == stream->capacity;
}

CFIndex writeToBuffer(CFWriteStreamRef stream, const UInt8* from, CFIndex length) {
  if (isFull(stream)) {
    stream->state.fail(ENOMEM);
    return -1;
  }
  const CFIndex count = std::min(length, stream->capacity - stream->position);
  std::memcpy(stream->buffer + stream->position, from, static_cast<std::size_t>(count));
  stream->position += count;
  return count;
}

CFIndex writeToFile(CFWriteStreamRef stream, const UInt8* from, CFIndex length) {
  int problem = 0;
  const CFIndex count = stream->file.write(from, static_cast<std::size_t>(length), problem);
  if (count == -1) stream->state.fail(problem);
  return count;
}

}  // namespace

CFTypeID CFWriteStreamGetTypeID() { return reinterpret_cast<CFTypeID>(&kWriteStreamClass); }

CFWriteStreamRef CFWriteStreamCreateWithFile(CFAllocatorRef, CFURLRef fileURL) {
  auto path = cf::pathOfFileURL(fileURL);
  if (!path) return nullptr;
  const CFWriteStreamRef stream = createStream(Target::kFile);
  stream->path = std::move(*path);
  return stream;
}

CFWriteStreamRef CFWriteStreamCreateWithAllocatedBuffers(CFAllocatorRef, CFAllocatorRef) {
  return createStream(Target::kGrowing);
}

CFWriteStreamRef CFWriteStreamCreateWithBuffer(CFAllocatorRef, UInt8* buffer, CFIndex bufferCapacity) {
  if (bufferCapacity < 0 || (buffer == nullptr && bufferCapacity > 0)) return nullptr;
  const CFWriteStreamRef stream = createStream(Target::kBuffer);
  stream->buffer = buffer;
  stream->capacity = bufferCapacity;
  return stream;
}

Boolean CFWriteStreamOpen(CFWriteStreamRef stream) {
  if (stream == nullptr || stream->state.status != kCFStreamStatusNotOpen) return false;
  stream->state.status = kCFStreamStatusOpen;
  if (stream->target != Target::kFile) return true;
  const int problem = stream->file.openForWriting(stream->path, stream->append);
  if (problem != 0) stream->state.fail(problem);
  return problem == 0;
}

void CFWriteStreamClose(CFWriteStreamRef stream) {
  if (stream == nullptr || stream->state.status == kCFStreamStatusNotOpen) return;
  const int problem = stream->file.close();
  stream->state.status = kCFStreamStatusClosed;
  // The bytes may not have arrived: the one failure that only closing can find.
  if (problem != 0) stream->state.fail(problem);
}

CFIndex CFWriteStreamWrite(CFWriteStreamRef stream, const UInt8* buffer, CFIndex bufferLength) {
  if (stream == nullptr || !stream->state.isOpen() || bufferLength < 0 || (buffer == nullptr && bufferLength > 0)) {
    return -1;
  }
  if (bufferLength == 0) return 0;
  switch (stream->target) {
    case Target::kFile:
      return writeToFile(stream, buffer, bufferLength);
    case Target::kBuffer:
      return writeToBuffer(stream, buffer, bufferLength);
    case Target::kGrowing:
      break;
  }
  stream->taken.insert(stream->taken.end(), buffer, buffer + bufferLength);
  return bufferLength;
}

Boolean CFWriteStreamCanAcceptBytes(CFWriteStreamRef stream) {
  return stream != nullptr && stream->state.isOpen() && !isFull(stream);
}

CFStreamStatus CFWriteStreamGetStatus(CFWriteStreamRef stream) {
  return stream == nullptr ? kCFStreamStatusNotOpen : stream->state.status;
}

CFStreamError CFWriteStreamGetError(CFWriteStreamRef stream) {
  return stream == nullptr ? CFStreamError{0, 0} : stream->state.error();
}

CFErrorRef CFWriteStreamCopyError(CFWriteStreamRef stream) {
  return stream == nullptr ? nullptr : stream->state.copyError();
}

CFTypeRef CFWriteStreamCopyProperty(CFWriteStreamRef stream, CFStringRef name) {
  if (stream == nullptr || name == nullptr) return nullptr;
  if (CFEqual(name, kCFStreamPropertyAppendToFile) && stream->target == Target::kFile) {
    return stream->append ? kCFBooleanTrue : kCFBooleanFalse;
  }
  if (!CFEqual(name, kCFStreamPropertyDataWritten) || stream->target != Target::kGrowing) return nullptr;
  return CFDataCreate(kCFAllocatorDefault, stream->taken.data(), static_cast<CFIndex>(stream->taken.size()));
}

Boolean CFWriteStreamSetProperty(CFWriteStreamRef stream, CFStringRef name, CFTypeRef value) {
  if (stream == nullptr || name == nullptr || stream->target != Target::kFile ||
      stream->state.status != kCFStreamStatusNotOpen || !CFEqual(name, kCFStreamPropertyAppendToFile)) {
    return false;
  }
  stream->append = value != nullptr && CFEqual(value, kCFBooleanTrue);
  return true;
}
