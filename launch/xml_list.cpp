#include "launch/xml_list.h"

#include <plinth/exception.h>

#include <CoreFoundation/CFData.h>

namespace tovan {

using plinth::CSharedCFRef;

CSharedCFRef<CFPropertyListRef> listFromXML(std::string_view xml) {
  if (xml.empty()) throw plinth::CNullPointerException("Error: xmlData is null!");
  const CSharedCFRef<CFDataRef> data(
      CFDataCreate(kCFAllocatorDefault, reinterpret_cast<const UInt8*>(xml.data()), static_cast<CFIndex>(xml.size())));
  CFStringRef reason = nullptr;
  CSharedCFRef<CFPropertyListRef> list(
      CFPropertyListCreateFromXMLData(kCFAllocatorDefault, data.get(), kCFPropertyListImmutable, &reason));
  const CSharedCFRef<CFStringRef> ownedReason(reason);
  if (!list) throw plinth::CParamException("Couldn't create property list from xml data, error = %@", reason);
  return list;
}

}  // namespace tovan
