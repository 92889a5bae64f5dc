// xml_list.h: a property list from a text.
#pragma once

#include <plinth/shared_cf_ref.h>

#include <CoreFoundation/CFPropertyList.h>

#include <string_view>

namespace tovan {

// The list, immutable. CNullPointerException "Error: xmlData is null!" for the empty text; CParamException "Couldn't
// create property list from xml data, error = REASON" for one that is no property list.
plinth::CSharedCFRef<CFPropertyListRef> listFromXML(std::string_view xml);

}  // namespace tovan
