#include "tools/services/identity.h"

#include <CoreFoundation/CFBundle.h>
#include <tovan/cf_util.h>
#include <tovan/framework_location.h>

namespace service {
namespace {

plinth::CSharedCFRef<CFStringRef> stringOf(CFBundleRef bundle, CFStringRef key) {
  CFStringRef value = nullptr;
  if (bundle != nullptr) tovan::CFUtil::CFDictGetString(CFBundleGetInfoDictionary(bundle), key, value);
  return plinth::CSharedCFRef<CFStringRef>::retaining(value);
}

}  // namespace

Identity ownIdentity() {
  const CFBundleRef bundle = CFBundleGetMainBundle();
  return {plinth::CSharedCFRef<CFStringRef>::retaining(getServiceKindFromBundle(bundle)),
          stringOf(bundle, CFSTR("CFBundleName")), stringOf(bundle, CFSTR("CFBundleVersion"))};
}

}  // namespace service
