// The public functions that read and write property lists.
#include <CoreFoundation/CFPropertyList.h>

#include "platform/corefoundation/binary_property_list.h"
#include "platform/corefoundation/data.h"
#include "platform/corefoundation/property_list_failure.h"
#include "platform/corefoundation/property_list_stream.h"
#include "platform/corefoundation/string.h"
#include "platform/corefoundation/xml_property_list.h"

#include <string>

namespace cf {
namespace {

constexpr CFOptionFlags kMutabilityMask = kCFPropertyListMutableContainers | kCFPropertyListMutableContainersAndLeaves;

// Calls `work`; a failure becomes an error object and an empty result.
template <class Work>
auto reporting(CFErrorRef* error, const Work& work) -> decltype(work()) {
  try {
    return work();
  } catch (const ListFailure& failure) {
    if (error != nullptr) *error = createListError(failure);
  }
  return {};
}

// Runs `work` with an error pointer and gives the error's text to the caller instead.
template <class Work>
auto reportingText(CFStringRef* text, const Work& work) -> decltype(work(nullptr)) {
  CFErrorRef error = nullptr;
  const auto result = work(&error);
  const Owned<CFErrorRef> owner(error);
  if (error != nullptr && text != nullptr) *text = CFErrorCopyDescription(error);
  return result;
}

CFPropertyListRef read(std::span<const std::uint8_t> bytes, CFOptionFlags options, CFPropertyListFormat* format) {
  const bool binary = isBinaryList(bytes);
  Owned<CFPropertyListRef> list(binary ? readBinaryList(bytes) : readXMLList(bytes));
  if ((options & kMutabilityMask) != 0) {
    list.reset(CFPropertyListCreateDeepCopy(kCFAllocatorDefault, list.get(), options));
  }
  if (format != nullptr) *format = binary ? kCFPropertyListBinaryFormat_v1_0 : kCFPropertyListXMLFormat_v1_0;
  return list.take();
}

CFDataRef write(CFPropertyListRef list, CFPropertyListFormat format) {
  switch (format) {
    case kCFPropertyListXMLFormat_v1_0:
      return writeXMLList(list);
    case kCFPropertyListBinaryFormat_v1_0:
      return writeBinaryList(list);
    case kCFPropertyListOpenStepFormat:
      throw ListFailure{kCFPropertyListWriteInvalidError,
                        "Property lists in the old text format are not supported, only XML and binary ones are"};
  }
  throw ListFailure{kCFPropertyListWriteInvalidError,
                    "There is no property-list format " + std::to_string(static_cast<int>(format))};
}

}  // namespace
}  // namespace cf

CFPropertyListRef CFPropertyListCreateWithData(CFAllocatorRef, CFDataRef data, CFOptionFlags options,
                                               CFPropertyListFormat* format, CFErrorRef* error) {
  return cf::reporting(error, [&]() -> CFPropertyListRef {
    if (data == nullptr) throw cf::ListFailure{kCFPropertyListReadCorruptError, "There is no data to read a list from"};
    return cf::read(cf::bytes(data), options, format);
  });
}

CFPropertyListRef CFPropertyListCreateWithStream(CFAllocatorRef, CFReadStreamRef stream, CFIndex streamLength,
                                                 CFOptionFlags options, CFPropertyListFormat* format,
                                                 CFErrorRef* error) {
  return cf::reporting(
      error, [&]() -> CFPropertyListRef { return cf::read(cf::readWhole(stream, streamLength), options, format); });
}

CFPropertyListRef CFPropertyListCreateFromXMLData(CFAllocatorRef allocator, CFDataRef data,
                                                  CFOptionFlags mutabilityOption, CFStringRef* errorString) {
  return cf::reportingText(errorString, [&](CFErrorRef* error) {
    return CFPropertyListCreateWithData(allocator, data, mutabilityOption, nullptr, error);
  });
}

CFPropertyListRef CFPropertyListCreateFromStream(CFAllocatorRef allocator, CFReadStreamRef stream, CFIndex streamLength,
                                                 CFOptionFlags mutabilityOption, CFPropertyListFormat* format,
                                                 CFStringRef* errorString) {
  return cf::reportingText(errorString, [&](CFErrorRef* error) {
    return CFPropertyListCreateWithStream(allocator, stream, streamLength, mutabilityOption, format, error);
  });
}

CFDataRef CFPropertyListCreateData(CFAllocatorRef, CFPropertyListRef list, CFPropertyListFormat format,
                                   CFOptionFlags options, CFErrorRef* error) {
  return cf::reporting(error, [&] {
    if (options != 0) throw cf::ListFailure{kCFPropertyListWriteInvalidError, "Writing a property list has no options"};
    return cf::write(list, format);
  });
}

CFDataRef CFPropertyListCreateXMLData(CFAllocatorRef allocator, CFPropertyListRef list) {
  return CFPropertyListCreateData(allocator, list, kCFPropertyListXMLFormat_v1_0, 0, nullptr);
}

CFIndex CFPropertyListWrite(CFPropertyListRef list, CFWriteStreamRef stream, CFPropertyListFormat format,
                            CFOptionFlags options, CFErrorRef* error) {
  const cf::Owned<CFDataRef> data(CFPropertyListCreateData(kCFAllocatorDefault, list, format, options, error));
  if (!data) return 0;
  return cf::reporting(error, [&] { return cf::writeWhole(stream, cf::bytes(data.get())); });
}

CFIndex CFPropertyListWriteToStream(CFPropertyListRef list, CFWriteStreamRef stream, CFPropertyListFormat format,
                                    CFStringRef* errorString) {
  return cf::reportingText(errorString,
                           [&](CFErrorRef* error) { return CFPropertyListWrite(list, stream, format, 0, error); });
}

Boolean CFPropertyListIsValid(CFPropertyListRef list, CFPropertyListFormat format) {
  // The writer is the judge, so that a list is valid exactly when it can be written; both formats take the same lists.
  if (format != kCFPropertyListXMLFormat_v1_0 && format != kCFPropertyListBinaryFormat_v1_0) return false;
  const cf::Owned<CFDataRef> written(CFPropertyListCreateXMLData(kCFAllocatorDefault, list));
  return static_cast<bool>(written);
}
