// The distributed centre within one process: filters, removal, order, threads.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/support/notification_log.h"
#include "tests/support/private_bus.h"

namespace {

using test::NotificationLog;
using test::post;

class NotificationCenterTest : public ::testing::Test {
 protected:
  test::PrivateBus bus_;
  const CFNotificationCenterRef center_ = CFNotificationCenterGetDistributedCenter();
};

TEST_F(NotificationCenterTest, IsOneObjectOfItsKind) {
  EXPECT_EQ(CFNotificationCenterGetDistributedCenter(), center_);
  EXPECT_EQ(CFGetTypeID(center_), CFNotificationCenterGetTypeID());
  CFRelease(CFRetain(center_));
}

TEST_F(NotificationCenterTest, OwnPostsReachOwnObservers) {
  NotificationLog log;
  log.observe(CFSTR("Arrived2"), nullptr);
  post(CFSTR("Arrived2"), CFSTR("me"));
  ASSERT_TRUE(log.await(1));
  EXPECT_EQ(log.text(), "Arrived2 me\n");
  EXPECT_EQ(log.all[0].userInfo.get(), nullptr);
}

TEST_F(NotificationCenterTest, NullObjectIsNotTheEmptyObject) {
  NotificationLog log;
  log.observe(CFSTR("Object2"), nullptr);
  post(CFSTR("Object2"), nullptr);
  post(CFSTR("Object2"), CFSTR(""));
  ASSERT_TRUE(log.await(2));
  EXPECT_EQ(log.all[0].object.get(), nullptr);
  ASSERT_NE(log.all[1].object.get(), nullptr);
  EXPECT_EQ(log.all[1].objectText(), "");
}

TEST_F(NotificationCenterTest, NullUserInfoIsNotTheEmptyDictionary) {
  NotificationLog log;
  log.observe(CFSTR("Info2"), nullptr);
  const plinth::CSharedCFRef<CFDictionaryRef> empty(CFDictionaryCreate(
      nullptr, nullptr, nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  post(CFSTR("Info2"), nullptr, nullptr);
  post(CFSTR("Info2"), nullptr, empty.get());
  ASSERT_TRUE(log.await(2));
  EXPECT_EQ(log.all[0].userInfo.get(), nullptr);
  ASSERT_NE(log.all[1].userInfo.get(), nullptr);
  EXPECT_EQ(CFDictionaryGetCount(log.all[1].userInfo.get()), 0);
}

// What one thread posts arrives in order, so that a last notification shows that the others were not delivered.
TEST_F(NotificationCenterTest, NameAndObjectFilterTogetherAndAlone) {
  NotificationLog both, name, object, every, emptyObject;
  both.observe(CFSTR("A2"), CFSTR("one"));
  name.observe(CFSTR("A2"), nullptr);
  object.observe(nullptr, CFSTR("one"));
  every.observe(nullptr, nullptr);
  emptyObject.observe(nullptr, CFSTR(""));
  post(CFSTR("A2"), CFSTR("one"));
  post(CFSTR("A2"), CFSTR("two"));
  post(CFSTR("B2"), CFSTR("one"));
  post(CFSTR("B2"), nullptr);
  post(CFSTR("B2"), CFSTR(""));
  post(CFSTR("A22"), CFSTR("onetwo"));
  post(CFSTR("End2"), nullptr);
  ASSERT_TRUE(every.await(7)) << every.text();
  EXPECT_EQ(both.text(), "A2 one\n");
  EXPECT_EQ(name.text(), "A2 one\nA2 two\n");
  EXPECT_EQ(object.text(), "A2 one\nB2 one\n");
  EXPECT_EQ(emptyObject.text(), "B2 \n");
  EXPECT_EQ(every.text(), "A2 one\nA2 two\nB2 one\nB2 (null)\nB2 \nA22 onetwo\nEnd2 (null)\n");
}

TEST_F(NotificationCenterTest, NamesWithQuotesBlanksAndForeignLettersAreFiltered) {
  for (const CFStringRef odd : {CFSTR("it's"), CFSTR("a,arg1='b'"), CFSTR("back\\slash"), CFSTR("tab\tline\nend"),
                                CFSTR("grüße 日本 🎬"), CFSTR("'"), CFSTR("")}) {
    NotificationLog log;
    log.observe(odd, odd);
    post(CFSTR("other"), odd);
    post(odd, CFSTR("other"));
    post(odd, odd);
    ASSERT_TRUE(log.await(1)) << "a name with odd characters was not delivered";
    EXPECT_EQ(log.all.size(), 1U);
    EXPECT_TRUE(CFEqual(log.all[0].object.get(), odd));
  }
}

TEST_F(NotificationCenterTest, NamesTooLongForTheBussFilterAreFilteredHere) {
  const std::string longName(3000, 'n');
  const plinth::CSharedCFRef<CFStringRef> name(
      CFStringCreateWithCString(nullptr, longName.c_str(), kCFStringEncodingUTF8));
  const plinth::CSharedCFRef<CFStringRef> otherName(
      CFStringCreateWithCString(nullptr, (longName + "x").c_str(), kCFStringEncodingUTF8));
  NotificationLog log, end;
  log.observe(name.get(), CFSTR("object"));
  end.observe(CFSTR("End2"), nullptr);
  post(otherName.get(), CFSTR("object"));
  post(name.get(), CFSTR("other"));
  post(name.get(), CFSTR("object"));
  post(CFSTR("End2"), nullptr);
  ASSERT_TRUE(end.await(1));
  ASSERT_EQ(log.all.size(), 1U);
  EXPECT_EQ(log.all[0].name, longName);
}

TEST_F(NotificationCenterTest, TheSameRegistrationTwiceIsCalledTwice) {
  NotificationLog log;
  log.observe(CFSTR("Twice2"), nullptr);
  log.observe(CFSTR("Twice2"), nullptr);
  post(CFSTR("Twice2"), CFSTR("x"));
  ASSERT_TRUE(log.await(2));
  EXPECT_EQ(log.text(), "Twice2 x\nTwice2 x\n");
}

TEST_F(NotificationCenterTest, OverlappingRegistrationsAreEachCalledOncePerNotification) {
  NotificationLog log, end;
  log.observe(CFSTR("Over2"), nullptr);
  log.observe(nullptr, CFSTR("x"));
  log.observe(CFSTR("Over2"), CFSTR("x"));
  end.observe(CFSTR("End2"), nullptr);
  post(CFSTR("Over2"), CFSTR("x"));
  post(CFSTR("End2"), nullptr);
  ASSERT_TRUE(end.await(1));
  EXPECT_EQ(log.all.size(), 3U) << log.text();
}

TEST_F(NotificationCenterTest, RemovingByNameAndObjectLeavesTheOthers) {
  NotificationLog log, end;
  log.observe(CFSTR("A2"), CFSTR("one"));
  log.observe(CFSTR("A2"), CFSTR("two"));
  log.observe(CFSTR("B2"), CFSTR("one"));
  log.observe(CFSTR("A2"), nullptr);
  end.observe(CFSTR("End2"), nullptr);
  CFNotificationCenterRemoveObserver(center_, &log, CFSTR("A2"), CFSTR("one"));
  post(CFSTR("A2"), CFSTR("one"));  // still by the last registration
  post(CFSTR("A2"), CFSTR("two"));  // twice
  post(CFSTR("B2"), CFSTR("one"));
  post(CFSTR("End2"), nullptr);
  ASSERT_TRUE(end.await(1));
  EXPECT_EQ(log.text(), "A2 one\nA2 two\nA2 two\nB2 one\n");

  log.all.clear();
  CFNotificationCenterRemoveObserver(center_, &log, CFSTR("A2"), nullptr);
  post(CFSTR("A2"), CFSTR("two"));
  post(CFSTR("B2"), CFSTR("one"));
  post(CFSTR("End2"), nullptr);
  ASSERT_TRUE(end.await(2));
  EXPECT_EQ(log.text(), "B2 one\n");

  log.all.clear();
  CFNotificationCenterRemoveEveryObserver(center_, &log);
  post(CFSTR("B2"), CFSTR("one"));
  post(CFSTR("End2"), nullptr);
  ASSERT_TRUE(end.await(3));
  EXPECT_EQ(log.text(), "");
}

TEST_F(NotificationCenterTest, RemovingOneObserverLeavesAnotherWithTheSameFilter) {
  NotificationLog gone, stays;
  gone.observe(CFSTR("Shared2"), nullptr);
  stays.observe(CFSTR("Shared2"), nullptr);
  CFNotificationCenterRemoveEveryObserver(center_, &gone);
  post(CFSTR("Shared2"), nullptr);
  ASSERT_TRUE(stays.await(1));
  EXPECT_EQ(gone.all.size(), 0U);
}

TEST_F(NotificationCenterTest, ACallbackMayRemoveItselfAndTheNextOne) {
  NotificationLog first, second, end;
  first.observe(CFSTR("Remove2"), nullptr);
  second.observe(CFSTR("Remove2"), nullptr);
  end.observe(CFSTR("End2"), nullptr);
  first.then = [&](const test::Notification&) {
    CFNotificationCenterRemoveEveryObserver(center_, &first);
    CFNotificationCenterRemoveEveryObserver(center_, &second);
  };
  post(CFSTR("Remove2"), nullptr);
  post(CFSTR("Remove2"), nullptr);
  post(CFSTR("End2"), nullptr);
  ASSERT_TRUE(end.await(1));
  EXPECT_EQ(first.all.size(), 1U);
  EXPECT_EQ(second.all.size(), 0U) << "an observer was called after it had been removed";
}

TEST_F(NotificationCenterTest, ACallbackMayAddAnObserverThatGetsTheNextNotification) {
  NotificationLog first, added, end;
  first.observe(CFSTR("Add2"), nullptr);
  end.observe(CFSTR("End2"), nullptr);
  first.then = [&](const test::Notification&) {
    if (first.all.size() == 1) added.observe(CFSTR("Add2"), nullptr);
  };
  post(CFSTR("Add2"), CFSTR("1"));
  post(CFSTR("Add2"), CFSTR("2"));
  post(CFSTR("End2"), nullptr);
  ASSERT_TRUE(end.await(1));
  EXPECT_EQ(added.text(), "Add2 2\n");
}

TEST_F(NotificationCenterTest, ACallbackMayPost) {
  NotificationLog questions, answers;
  questions.observe(CFSTR("Question2"), nullptr);
  answers.observe(CFSTR("Answer2"), nullptr);
  questions.then = [](const test::Notification& question) { post(CFSTR("Answer2"), question.object.get()); };
  for (int i = 0; i < 100; ++i) post(CFSTR("Question2"), CFSTR("why"));
  ASSERT_TRUE(answers.await(100)) << answers.all.size() << " answers";
}

TEST_F(NotificationCenterTest, ACallbackMayRunTheLoopAndIsThenCalledInside) {
  NotificationLog outer, inner;
  outer.observe(CFSTR("Outer2"), nullptr);
  inner.observe(CFSTR("Inner2"), nullptr);
  bool arrivedInside = false;
  outer.then = [&](const test::Notification&) {
    post(CFSTR("Inner2"), nullptr);
    arrivedInside = inner.await(1);
  };
  post(CFSTR("Outer2"), nullptr);
  ASSERT_TRUE(outer.await(1));
  EXPECT_TRUE(arrivedInside);
}

TEST_F(NotificationCenterTest, ACallbackMayStopTheRunAndTheNextOneWaits) {
  NotificationLog log;
  log.observe(CFSTR("Stop2"), nullptr);
  log.then = [](const test::Notification&) { CFRunLoopStop(CFRunLoopGetCurrent()); };
  post(CFSTR("Stop2"), CFSTR("1"));
  post(CFSTR("Stop2"), CFSTR("2"));
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 10, false), kCFRunLoopRunStopped);
  EXPECT_EQ(log.text(), "Stop2 1\n");
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 10, false), kCFRunLoopRunStopped);
  EXPECT_EQ(log.text(), "Stop2 1\nStop2 2\n");
}

TEST_F(NotificationCenterTest, ADeliveryIsASourceHandled) {
  NotificationLog log;
  log.observe(CFSTR("Handled2"), nullptr);
  post(CFSTR("Handled2"), CFSTR("1"));
  post(CFSTR("Handled2"), CFSTR("2"));
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 10, true), kCFRunLoopRunHandledSource);
  EXPECT_EQ(log.text(), "Handled2 1\n");
}

// An observer gives the loop something to wait for, and takes it away again.
TEST_F(NotificationCenterTest, ALoopRunsWhileItsThreadObserves) {
  NotificationLog log;
  log.observe(CFSTR("Waiting2"), nullptr);
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0.02, false), kCFRunLoopRunTimedOut);
  CFNotificationCenterRemoveEveryObserver(center_, &log);
  EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 10, false), kCFRunLoopRunFinished);
}

TEST_F(NotificationCenterTest, ACallbackRunsOnTheThreadThatAddedTheObserver) {
  NotificationLog here;
  here.observe(CFSTR("Where2"), nullptr);
  const auto thisThread = std::this_thread::get_id();
  here.then = [&](const test::Notification&) { EXPECT_EQ(std::this_thread::get_id(), thisThread); };
  std::atomic<bool> ready = false;
  std::thread other([&] {
    NotificationLog there;
    there.observe(CFSTR("Where2"), nullptr);
    const auto otherThread = std::this_thread::get_id();
    there.then = [&](const test::Notification&) { EXPECT_EQ(std::this_thread::get_id(), otherThread); };
    ready = true;
    EXPECT_TRUE(there.await(2));
  });
  while (!ready) std::this_thread::yield();
  post(CFSTR("Where2"), nullptr);
  std::thread([] { post(CFSTR("Where2"), nullptr); }).join();
  EXPECT_TRUE(here.await(2));
  other.join();
}

TEST_F(NotificationCenterTest, AnotherThreadsObserverCanBeRemovedWhileThatThreadWaits) {
  NotificationLog theirs;
  std::atomic<bool> ready = false;
  std::thread other([&] {
    theirs.observe(CFSTR("Theirs2"), nullptr);
    ready = true;
    // Ends because its last observer is gone.
    EXPECT_EQ(CFRunLoopRunInMode(kCFRunLoopDefaultMode, 20, false), kCFRunLoopRunFinished);
  });
  while (!ready) std::this_thread::yield();
  CFNotificationCenterRemoveEveryObserver(center_, &theirs);
  other.join();
  NotificationLog end;
  end.observe(CFSTR("End2"), nullptr);
  post(CFSTR("Theirs2"), nullptr);
  post(CFSTR("End2"), nullptr);
  ASSERT_TRUE(end.await(1));
  EXPECT_EQ(theirs.all.size(), 0U);
}

TEST_F(NotificationCenterTest, AThreadsObserversEndWithTheThread) {
  NotificationLog theirs, end;
  std::thread([&] { theirs.observe(CFSTR("Ended2"), nullptr); }).join();
  end.observe(CFSTR("End2"), nullptr);
  post(CFSTR("Ended2"), nullptr);
  post(CFSTR("End2"), nullptr);
  ASSERT_TRUE(end.await(1));
  EXPECT_EQ(theirs.all.size(), 0U);
}

TEST_F(NotificationCenterTest, NullArgumentsDoNothing) {
  NotificationLog log;
  CFNotificationCenterAddObserver(nullptr, &log, NotificationLog::callback, nullptr, nullptr,
                                  CFNotificationSuspensionBehaviorDeliverImmediately);
  CFNotificationCenterAddObserver(center_, &log, nullptr, nullptr, nullptr,
                                  CFNotificationSuspensionBehaviorDeliverImmediately);
  CFNotificationCenterPostNotification(nullptr, CFSTR("Nobody2"), nullptr, nullptr, 1);
  CFNotificationCenterRemoveObserver(nullptr, &log, nullptr, nullptr);
  CFNotificationCenterRemoveEveryObserver(nullptr, &log);
  CFNotificationCenterRemoveEveryObserver(center_, nullptr);
  NotificationLog end;
  end.observe(CFSTR("End2"), nullptr);
  CFNotificationCenterPostNotification(center_, CFSTR("End2"), CFSTR("x"), nullptr, 0);
  ASSERT_TRUE(end.await(1));
  EXPECT_EQ(log.all.size(), 0U);
}

TEST_F(NotificationCenterTest, TheNameAndObjectMayChangeOnceTheObserverIsAdded) {
  const plinth::CSharedCFRef<CFMutableStringRef> name(CFStringCreateMutableCopy(nullptr, 0, CFSTR("Kept2")));
  NotificationLog log;
  log.observe(name.get(), name.get());
  CFStringReplaceAll(name.get(), CFSTR("Changed2"));
  post(CFSTR("Kept2"), CFSTR("Kept2"));
  ASSERT_TRUE(log.await(1));
}

std::string refusal(const std::function<void()>& posting) {
  ::testing::internal::CaptureStderr();
  posting();
  return ::testing::internal::GetCapturedStderr();
}

TEST_F(NotificationCenterTest, WhatCannotBePostedIsOneConsoleLineThatNamesIt) {
  NotificationLog log;
  log.observe(nullptr, nullptr);

  const std::string noName = refusal([] { post(nullptr, nullptr); });
  EXPECT_NE(noName.find("it has no name"), std::string::npos) << noName;

  const plinth::CSharedCFRef<CFMutableDictionaryRef> info(
      CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  CFDictionarySetValue(info.get(), CFSTR("center"), center_);
  const std::string noList = refusal([&] { post(CFSTR("NoList2"), nullptr, info.get()); });
  EXPECT_NE(noList.find("\"NoList2\" not posted: its user info is not a property list"), std::string::npos) << noList;

  CFDictionaryRemoveAllValues(info.get());
  const plinth::CSharedCFRef<CFMutableDataRef> big(CFDataCreateMutable(nullptr, 0));
  CFDataSetLength(big.get(), 9 << 20);
  CFDictionarySetValue(info.get(), CFSTR("big"), big.get());
  const std::string tooLarge = refusal([&] { post(CFSTR("Big2"), nullptr, info.get()); });
  EXPECT_NE(tooLarge.find("\"Big2\" not posted: it is larger than 8 MiB"), std::string::npos) << tooLarge;
  EXPECT_EQ(std::count(tooLarge.begin(), tooLarge.end(), '\n'), 1) << tooLarge;

  const std::string noObject = refusal([&] { post(CFSTR("NoObject2"), reinterpret_cast<CFStringRef>(big.get())); });
  EXPECT_NE(noObject.find("not a string"), std::string::npos) << noObject;

  // The connection is as good as before.
  CFDataSetLength(big.get(), 7 << 20);
  post(CFSTR("End2"), nullptr, info.get());
  ASSERT_TRUE(log.await(1));
  ASSERT_EQ(log.text(), "End2 (null)\n");
  const void* const arrived = CFDictionaryGetValue(log.all[0].userInfo.get(), CFSTR("big"));
  EXPECT_TRUE(CFEqual(arrived, big.get()));
}

}  // namespace
