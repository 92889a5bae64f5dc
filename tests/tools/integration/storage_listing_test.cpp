// The daemon's own requests about its storage, as any process may post them.
#include <plinth/string.h>
#include <tovan/cf_util.h>
#include <tovan/notifications.h>

#include "tests/tools/integration/storage_host.h"

namespace {

using plinth::CSharedCFRef;
using test::NotificationLog;
using testing::HasSubstr;
using tovan::CFUtil;

CFStringRef listRequest() { return CFSTR("MervaneSharedStorageListNotification2"); }
CFStringRef listReply() { return CFSTR("MervaneSharedStorageListResultNotification2"); }
CFStringRef activityRequest() { return CFSTR("MervaneSharedStorageActivityNotification2"); }
CFStringRef activityReply() { return CFSTR("MervaneSharedStorageActivityResultNotification2"); }

class StorageListingTest : public test::StorageHost {
 protected:
  static void ask(CFStringRef name, CFStringRef sender, CFStringRef requestID) {
    const CSharedCFRef<CFMutableDictionaryRef> request(CFUtil::CFDictMakeMutable());
    CFUtil::CFDictSetString(request.get(), CFSTR("sender"), sender);
    CFUtil::CFDictSetString(request.get(), CFSTR("requestID"), requestID);
    test::post(name, sender, request.get());
  }
  static std::string textOf(const test::Notification& reply, CFStringRef key) {
    CFStringRef value = nullptr;
    CFUtil::CFDictGetString(reply.userInfo.get(), key, value);
    return value == nullptr ? "(none)" : plinth::CSTR(value)->str();
  }
};

TEST_F(StorageListingTest, AReplyIsPairedByItsNumberAndAddressedToItsSender) {
  startDaemon();
  for (const auto& [request, reply] : {std::pair(listRequest(), listReply()), {activityRequest(), activityReply()}}) {
    NotificationLog log;
    log.observe(reply, nullptr);
    ask(request, CFSTR("me"), CFSTR("number 7"));
    ASSERT_TRUE(log.await(1)) << daemonProcess().output();
    EXPECT_EQ(log.all[0].objectText(), "me");
    EXPECT_EQ(textOf(log.all[0], CFSTR("sender")), "me");
    EXPECT_EQ(textOf(log.all[0], CFSTR("requestID")), "number 7");
    std::int32_t result = -7;
    EXPECT_TRUE(CFUtil::CFDictGetInt(log.all[0].userInfo.get(), CFSTR("result"), result));
    EXPECT_EQ(result, 0);
    EXPECT_EQ(textOf(log.all[0], CFSTR("operation")), "(none)");
  }
}

TEST_F(StorageListingTest, ARequestThatLacksItsSenderOrItsNumberIsALineInTheLogAndGetsNoReply) {
  startDaemon();
  NotificationLog log;
  log.observe(listReply(), nullptr);
  log.observe(activityReply(), nullptr);
  for (const CFStringRef request : {listRequest(), activityRequest()}) {
    ask(request, nullptr, CFSTR("1"));
    ask(request, CFSTR("me"), nullptr);
    test::post(request, CFSTR("me"));
  }
  ask(activityRequest(), CFSTR("me"), CFSTR("the last"));
  ask(listRequest(), CFSTR("me"), CFSTR("the last"));
  ASSERT_TRUE(log.await(2)) << daemonProcess().output();
  for (const test::Notification& reply : log.all) EXPECT_EQ(textOf(reply, CFSTR("requestID")), "the last");
  const std::string output = daemonProcess().output();
  std::size_t lines = 0;
  for (std::size_t at = 0; (at = output.find("without its sender or its number", at)) != std::string::npos; ++at)
    ++lines;
  EXPECT_EQ(lines, 6U) << output;
}

}  // namespace
