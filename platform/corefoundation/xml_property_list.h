// xml_property_list.h: the reader and the writer of XML property lists. CFPropertyList.h describes what is accepted and
// how it is written.
#pragma once

#include <CoreFoundation/CFPropertyList.h>

#include <cstdint>
#include <span>

namespace cf {

// The list in the bytes, immutable; the caller owns it. Throws ListFailure. Equal keys may be one object.
CFPropertyListRef readXMLList(std::span<const std::uint8_t> bytes);

// The list as XML; the caller owns the bytes. Throws ListFailure.
CFDataRef writeXMLList(CFPropertyListRef list);

}  // namespace cf
