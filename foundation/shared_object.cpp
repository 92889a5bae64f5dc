#include <plinth/shared_object.h>

#include "platform/system/console_log.h"

namespace plinth {

CSharedObject::~CSharedObject() = default;

void CSharedObject::Retain() const noexcept { references_.fetch_add(1, std::memory_order_relaxed); }

void CSharedObject::Release() const noexcept {
  // Orders what every holder did with the object before its destruction.
  if (references_.fetch_sub(1, std::memory_order_acq_rel) == 1) delete this;
}

std::int32_t CSharedObject::GetRetainCount() const noexcept { return references_.load(std::memory_order_relaxed); }

void CSharedObject::LogNullRef() noexcept {
  platform::consoleLog("CSharedObject::LogNullRef: an empty reference was dereferenced");
}

}  // namespace plinth
