// The announcement of a task's end, over a real bus.
#include <tovan/constants.h>
#include <tovan/notifications.h>
#include <tovan/user_task.h>

#include "tests/launch/task_support.h"
#include "tests/support/private_bus.h"

#include <CoreFoundation/CFNumber.h>
#include <CoreFoundation/CFRunLoop.h>

#include <vector>

namespace {

using test::TextList;
using tovan::CUserTask;

struct Seen {
  std::vector<CFIndex> tasks;
  bool hadObject = false;
  CFIndex entries = 0;
};

void noteEnd(CFNotificationCenterRef, void* observer, CFStringRef, const void* object, CFDictionaryRef userInfo) {
  Seen& seen = *static_cast<Seen*>(observer);
  seen.hadObject = seen.hadObject || object != nullptr;
  seen.entries = userInfo != nullptr ? CFDictionaryGetCount(userInfo) : 0;
  CFIndex address = 0;
  const CFTypeRef number =
      userInfo != nullptr ? CFDictionaryGetValue(userInfo, tovan::TovanCorePrivate::kDictKeyTaskPtr) : nullptr;
  if (number != nullptr) CFNumberGetValue(static_cast<CFNumberRef>(number), kCFNumberCFIndexType, &address);
  seen.tasks.push_back(address);
}

class CUserTaskNotificationTest : public ::testing::Test {
 protected:
  CUserTaskNotificationTest() {
    addObserver(&seen_, noteEnd, tovan::TovanNotification::kTovanTaskTerminatedNotification, nullptr);
  }
  ~CUserTaskNotificationTest() override { unregisterForNotifications(&seen_); }

  bool sees(std::size_t count) {
    for (int turn = 0; turn < 200 && seen_.tasks.size() < count; ++turn) {
      CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.1, true);
    }
    return seen_.tasks.size() == count;
  }
  const Seen& seen() const { return seen_; }

 private:
  test::PrivateBus bus_;
  Seen seen_;
};

TEST_F(CUserTaskNotificationTest, TheEndIsAnnouncedWithTheTasksAddress) {
  CUserTask first("/bin/true", nullptr, nullptr, 0);
  CUserTask second("/bin/sh", TextList{"-c", "exit 3"}, nullptr, 0);
  ASSERT_EQ(first.launch(), 0U);
  EXPECT_EQ(first.waitForTask(), 0);
  ASSERT_TRUE(sees(1)) << seen().tasks.size() << " announcements";
  ASSERT_EQ(second.launch(), 0U);
  EXPECT_EQ(second.waitForTask(), 3);
  ASSERT_TRUE(sees(2)) << seen().tasks.size() << " announcements";
  EXPECT_EQ(seen().tasks,
            (std::vector<CFIndex>{reinterpret_cast<CFIndex>(&first), reinterpret_cast<CFIndex>(&second)}));
  EXPECT_FALSE(seen().hadObject);
  EXPECT_EQ(seen().entries, 1);
}

TEST_F(CUserTaskNotificationTest, ATaskThatIsGoneWasAnnounced) {
  CFIndex address = 0;
  {
    CUserTask task("/missing/program", nullptr, nullptr, 0);
    address = reinterpret_cast<CFIndex>(&task);
    ASSERT_EQ(task.launch(), 0U);
    EXPECT_EQ(task.waitForTask(), 2);
  }
  ASSERT_TRUE(sees(1));
  EXPECT_EQ(seen().tasks.front(), address);
}

TEST_F(CUserTaskNotificationTest, AProcessThatWaitsAndExitsLosesNone) {
  const std::string said = test::inAnotherProcess([]() -> std::string {
    CUserTask task("/bin/true", nullptr, nullptr, 0);
    return task.launch() == 0 && task.waitForTask() == 0 ? "ended" : "failed";
  });
  EXPECT_EQ(said, "ended");
  EXPECT_TRUE(sees(1));
}

}  // namespace
