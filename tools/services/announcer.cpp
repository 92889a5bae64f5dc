#include "tools/services/announcer.h"

#include <tovan/cf_util.h>
#include <tovan/constants.h>
#include <tovan/notifications.h>
#include <unistd.h>

#include <cstdint>

#include "tools/support/process_log.h"
#include "tools/support/text.h"

namespace service {

using namespace tovan::TovanCorePrivate;   // the keys
using namespace tovan::TovanNotification;  // the names
using plinth::CSharedCFRef;
using tovan::CFUtil;

namespace {

// Whether the request says nothing about the key, or names the number under it.
bool matches(CFDictionaryRef request, CFStringRef key, std::int32_t number) {
  CFTypeRef value = nullptr;
  if (!CFUtil::CFDictGet(request, key, value)) return true;
  std::int32_t asked = 0;
  return CFUtil::CFDictGetInt(request, key, asked) && asked == number;
}

void setText(CFMutableDictionaryRef dictionary, CFStringRef key, const std::string& text) {
  if (!text.empty()) CFUtil::CFDictSetString(dictionary, key, tools::stringOf(text).get());
}

}  // namespace

Announcer::Announcer(const Identity& identity, const Options& options)
    : identity_(identity), options_(options), startedAt_(std::chrono::steady_clock::now()) {
  registerForNotification(this, requested, kTovanServiceRequestStatusNotification, nullptr);
}

Announcer::~Announcer() {
  unregisterForNotifications(this);
  if (hasAnnounced_) say(kTovanServiceStoppedNotification);
}

void Announcer::announceStart() {
  say(kTovanServiceStartupNotification);
  hasAnnounced_ = true;
}

void Announcer::requested(CFNotificationCenterRef, void* announcer, CFStringRef, const void*, CFDictionaryRef request) {
  const auto* const self = static_cast<const Announcer*>(announcer);
  if (!self->isMeantBy(request)) return;
  const tools::LogScope scope("status-reply", "", tools::kLogDetail);
  self->say(kTovanServiceStatusNotification);
}

bool Announcer::isMeantBy(CFDictionaryRef request) const {
  CFTypeRef kind = nullptr;
  if (CFUtil::CFDictGet(request, kDictKeyServiceKind, kind) && !CFEqual(kind, identity_.kind.get())) return false;
  return matches(request, kDictKeyServiceInstance, options_.instance) &&
         matches(request, kDictKeyProcessID, ::getpid()) &&
         matches(request, kDictKeyUserID, static_cast<std::int32_t>(::geteuid()));
}

void Announcer::say(CFStringRef name) const { signalFrom(name, identity_.kind.get(), description().get()); }

CSharedCFRef<CFDictionaryRef> Announcer::description() const {
  const CSharedCFRef<CFMutableDictionaryRef> description(CFUtil::CFDictMakeMutable());
  CFUtil::CFDictSetString(description.get(), kDictKeyServiceKind, identity_.kind.get());
  CFUtil::CFDictSetInt(description.get(), kDictKeyServiceInstance, options_.instance);
  CFUtil::CFDictSetInt(description.get(), kDictKeyProcessID, ::getpid());
  CFUtil::CFDictSetInt(description.get(), kDictKeyUserID, static_cast<std::int32_t>(::geteuid()));
  CFUtil::CFDictSetBoolean(description.get(), kDictKeyLogging, options_.logs);
  setText(description.get(), kDictKeyName, options_.name);
  setText(description.get(), kDictKeyUniqueID, options_.identifier);
  const std::chrono::duration<double> running = std::chrono::steady_clock::now() - startedAt_;
  CFUtil::CFDictSetDouble(description.get(), CFSTR("uptime"), running.count());
  return description;
}

}  // namespace service
