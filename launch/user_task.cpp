#include <tovan/user_task.h>

#include "platform/system/user_database.h"

#include <tovan/constants.h>
#include <tovan/notifications.h>

#include <plinth/shared_cf_ref.h>

#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFNumber.h>

#include <grp.h>
#include <unistd.h>

#include <cerrno>

namespace tovan {

using plinth::CSharedCFRef;

namespace {

constexpr uid_t kRoot = 0;

void announceEnd(const CUserTask* task) {
  const auto address = reinterpret_cast<CFIndex>(task);
  const CSharedCFRef<CFNumberRef> number(CFNumberCreate(kCFAllocatorDefault, kCFNumberCFIndexType, &address));
  const CSharedCFRef<CFMutableDictionaryRef> userInfo(CFDictionaryCreateMutable(
      kCFAllocatorDefault, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  CFDictionarySetValue(userInfo.get(), TovanCorePrivate::kDictKeyTaskPtr, number.get());
  sendNotification(TovanNotification::kTovanTaskTerminatedNotification, nullptr, userInfo.get());
}

}  // namespace

CUserTask::CUserTask(const char* path, const char* const* args, const char* const* env, int uid)
    : CTask(path, args, env, nullptr), userID_(uid) {}

CUserTask::~CUserTask() = default;

int CUserTask::on_fork() {
  groups_.clear();
  if (userID_ != 0 && ::getuid() == kRoot) {
    const auto user = platform::findUser(static_cast<uid_t>(userID_));
    if (!user && errno != 0) return errno;
    if (user) groups_ = platform::groupsOf(*user);
  }
  return CTask::on_fork();
}

int CUserTask::on_exec() {
  if (const int error = CTask::on_exec(); error != 0) return error;
  if (userID_ == 0) return 0;
  if (::getuid() == kRoot) {
    if (::seteuid(kRoot) != 0) return errno;
    // The group stays that of the process, on purpose; the user's own is one of the groups below.
    if (::getgid() == 0 && ::setgid(::getegid()) != 0) return errno;
    if (::setgroups(groups_.size(), groups_.data()) != 0) return errno;
  }
  if (::setuid(static_cast<uid_t>(userID_)) != 0) return errno;
  ::setsid();  // fails only for a child that leads a session already
  return 0;
}

void CUserTask::on_exit(int code) {
  CTask::on_exit(code);
  announceEnd(this);
}

}  // namespace tovan
