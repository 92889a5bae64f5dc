// CDNSharedStorageServer: requests that are not in order.
#include <tovan/dn_shared_storage_server.h>

#include "tests/storage/protocol_support.h"
#include "tests/storage/scripted_storage.h"
#include "tests/storage/storage_support.h"
#include "tests/support/private_bus.h"

namespace {

using namespace test;
using tovan::CDNSharedStorageServer;

constexpr const char* kBadKey = "-33487104";  // 0xFE010700 as a signed integer

class StorageServerKeysTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* const operation : {"publish", "unpublish", "subscribe", "unsubscribe", "port"}) {
      replies_.observe(name(operation + std::string(" result")), nullptr);
    }
  }
  // The replies to the request, without those to a later one that must be answered, and what the console said.
  std::string replyTo(const std::string& operation, CFDictionaryRef content) {
    replies_.all.clear();
    storage_->seen.clear();
    console_ = consoleOf([&] {
      post(name(operation), CFSTR("app"), content);
      const Dictionary last = request("port");
      set(last, "requestID", "last");
      post(name("port"), CFSTR("app"), last.get());
      runLoopUntil(
          [&] { return !replies_.all.empty() && stringIn(replies_.all.back().userInfo.get(), "requestID") == "last"; });
    });
    if (replies_.all.empty()) return "the server does not answer any more";
    replies_.all.pop_back();
    std::string text;
    for (const Notification& reply : replies_.all) text += textOf(reply.userInfo.get());
    return text;
  }
  std::string replyTo(const std::string& operation, const Dictionary& content) {
    return replyTo(operation, content.get());
  }
  static std::string refused(const std::string& message) {
    return std::string("exceptionKind=") + kBadKey + " exceptionMessage=" + message +
           " requestID=R1 result=-1 sender=app";
  }
  static std::string callbackOf(const std::string& operation) {
    if (operation == "port") return "getServerPortNotification";
    if (operation == "terminated") return "processTerminatedNotification";
    return operation.find("publish") == std::string::npos ? "subscribeNotification" : "publishNotification";
  }
  void expectOnConsole(const std::string& operation, const std::string& message) const {
    const std::string line = " CDNSharedStorageServer::" + callbackOf(operation) + ": CException: " + message + "\n";
    EXPECT_NE(console_.find(line), std::string::npos) << operation << " should have logged " << line << console_;
  }

  PrivateBus bus_;
  NotificationLog replies_;
  ScriptedStorageRef storage_ = plinth::makeShared<ScriptedStorage>();
  tovan::CDNSharedStorageServerRef server_ = plinth::makeShared<CDNSharedStorageServer>(storage_);
  std::string console_;
};

const std::vector<std::string> kAnswered = {"publish", "unpublish", "subscribe", "unsubscribe", "port"};
const std::vector<std::string> kWithFolder = {"publish", "unpublish", "subscribe", "unsubscribe"};

TEST_F(StorageServerKeysTest, WithoutASenderNobodyIsAnswered) {
  for (const std::string& operation : kAnswered) {
    const Dictionary content = request(operation);
    remove(content, "sender");
    EXPECT_EQ(replyTo(operation, content), "") << operation;
    expectOnConsole(operation, "kSenderKey");
    EXPECT_EQ(storage_->seen, "port\n") << operation;
  }
}

TEST_F(StorageServerKeysTest, WithoutARequestIDNobodyIsAnswered) {
  for (const std::string& operation : kAnswered) {
    const Dictionary content = request(operation);
    remove(content, "requestID");
    EXPECT_EQ(replyTo(operation, content), "") << operation;
    expectOnConsole(operation, "kRequestIDKey");
    EXPECT_EQ(storage_->seen, "port\n") << operation;
  }
}

TEST_F(StorageServerKeysTest, ARequestWithoutAPidIsRefused) {
  for (const std::string& operation : kWithFolder) {
    const Dictionary content = request(operation);
    remove(content, "pid");
    EXPECT_EQ(replyTo(operation, content), refused("kPIDKey")) << operation;
    expectOnConsole(operation, "kPIDKey");
    EXPECT_EQ(storage_->seen, "port\n") << operation;
  }
}

TEST_F(StorageServerKeysTest, ThePortIsToldWithoutAPid) {
  EXPECT_EQ(replyTo("port", request("port")), "requestID=R1 result=0 sender=app serverPort=2049");
}

TEST_F(StorageServerKeysTest, ADeadProcessWithoutAPidIsLogged) {
  EXPECT_EQ(replyTo("terminated", Dictionary(tovan::CFUtil::CFDictMakeMutable())), "");
  expectOnConsole("terminated", "kPIDKey");
  EXPECT_EQ(storage_->seen, "port\n");
}

TEST_F(StorageServerKeysTest, ARequestWithoutAFolderIsRefused) {
  for (const std::string& operation : kWithFolder) {
    const Dictionary content = request(operation);
    remove(content, "storageURL");
    EXPECT_EQ(replyTo(operation, content), refused("kStorageURLKey")) << operation;
    expectOnConsole(operation, "kStorageURLKey");
    EXPECT_EQ(storage_->seen, "port\n") << operation;
  }
}

TEST_F(StorageServerKeysTest, AMountWithoutALocalPathIsRefused) {
  for (const std::string operation : {"subscribe", "unsubscribe"}) {
    const Dictionary content = request(operation);
    remove(content, "storageLocalPath");
    EXPECT_EQ(replyTo(operation, content), refused("kStorageLocalPathKey")) << operation;
    expectOnConsole(operation, "kStorageLocalPathKey");
    EXPECT_EQ(storage_->seen, "port\n") << operation;
  }
}

TEST_F(StorageServerKeysTest, ValuesOfOtherTypesCountAsMissing) {
  const std::map<std::string, std::string> messages = {{"sender", "kSenderKey"},
                                                       {"requestID", "kRequestIDKey"},
                                                       {"pid", "kPIDKey"},
                                                       {"storageURL", "kStorageURLKey"},
                                                       {"storageLocalPath", "kStorageLocalPathKey"}};
  for (const auto& [key, message] : messages) {
    const bool isInteger = key == "pid";
    for (const auto& value : valuesOfOtherTypes(isInteger, !isInteger)) {
      const Dictionary content = request("subscribe");
      setValue(content, key, value.get());
      const bool isAddress = key == "sender" || key == "requestID";
      EXPECT_EQ(replyTo("subscribe", content), isAddress ? "" : refused(message)) << key;
      expectOnConsole("subscribe", message);
      EXPECT_EQ(storage_->seen, "port\n") << key;
    }
  }
}

// A key that is added lets the next one be missed.
TEST_F(StorageServerKeysTest, KeysAreCheckedInTheirOrder) {
  const Dictionary content = tovan::CFUtil::CFDictMakeMutable();
  EXPECT_EQ(replyTo("subscribe", content), "");
  expectOnConsole("subscribe", "kSenderKey");
  set(content, "sender", "app");
  EXPECT_EQ(replyTo("subscribe", content), "");
  expectOnConsole("subscribe", "kRequestIDKey");
  set(content, "requestID", "R1");
  EXPECT_EQ(replyTo("subscribe", content), refused("kPIDKey"));
  set(content, "pid", 42);
  EXPECT_EQ(replyTo("subscribe", content), refused("kStorageURLKey"));
  set(content, "storageURL", "not a URL");
  EXPECT_EQ(replyTo("subscribe", content),
            "exceptionKind=1 exceptionMessage=storageURL \"not a URL\" is not a URL requestID=R1 result=-1 sender=app");
  set(content, "storageURL", "nfs://host/srv/films");
  EXPECT_EQ(replyTo("subscribe", content), refused("kStorageLocalPathKey"));
  set(content, "storageLocalPath", "/mnt/films");
  EXPECT_EQ(replyTo("subscribe", content), "requestID=R1 result=0 sender=app");
  EXPECT_EQ(storage_->seen, "subscribe nfs://host/srv/films /mnt/films app 42\nport\n");
}

TEST_F(StorageServerKeysTest, ARequestWithoutUserInfoIsDropped) {
  for (const std::string& operation : kAnswered) {
    EXPECT_EQ(replyTo(operation, static_cast<CFDictionaryRef>(nullptr)), "") << operation;
    expectOnConsole(operation, "kSenderKey");
  }
  EXPECT_EQ(replyTo("terminated", static_cast<CFDictionaryRef>(nullptr)), "");
  expectOnConsole("terminated", "kPIDKey");
}

TEST_F(StorageServerKeysTest, AnEmptyFolderNamesNothing) {
  const Dictionary content = request("publish");
  set(content, "storageURL", "");
  EXPECT_EQ(replyTo("publish", content),
            "exceptionKind=1 exceptionMessage=CURL::CURL(): no URL can be made of it requestID=R1 result=-1 "
            "sender=app");
}

TEST_F(StorageServerKeysTest, KeysThatNobodyAskedForAreLeftAlone) {
  const Dictionary content = request("publish");
  set(content, "result", 7);
  set(content, "more", "of it");
  EXPECT_EQ(replyTo("publish", content), "requestID=R1 result=0 sender=app");
}

// ---- Hostile values

plinth::CSharedCFRef<CFTypeRef> nested(int depth, bool asArray) {
  plinth::CSharedCFRef<CFTypeRef> inside(CFRetain(CFSTR("bottom")));
  for (int i = 0; i < depth; ++i) {
    if (asArray) {
      const CFMutableArrayRef outside = CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks);
      CFArrayAppendValue(outside, inside.get());
      inside = plinth::CSharedCFRef<CFTypeRef>(outside);
    } else {
      const Dictionary outside = tovan::CFUtil::CFDictMakeMutable();
      setValue(outside, "in", inside.get());
      inside = plinth::CSharedCFRef<CFTypeRef>::retaining(outside.get());
    }
  }
  return inside;
}

TEST_F(StorageServerKeysTest, DeepValuesAreOfTheWrongTypeAndNoMore) {
  for (const bool asArray : {true, false}) {
    for (const std::string key : {"sender", "requestID", "pid", "storageURL", "storageLocalPath", "more"}) {
      const Dictionary content = request("subscribe");
      setValue(content, key, nested(500, asArray).get());
      const std::string reply = replyTo("subscribe", content);
      EXPECT_NE(reply, "the server does not answer any more") << key;
      EXPECT_EQ(storage_->seen == "port\n", key != "more") << key << ": " << storage_->seen;
    }
  }
}

TEST_F(StorageServerKeysTest, HugeTextsGoThrough) {
  const std::string huge(1 << 20, 'x');
  const Dictionary content = request("publish");
  set(content, "sender", huge);
  set(content, "requestID", huge);
  set(content, "storageURL", "/" + huge);
  const std::string reply = replyTo("publish", content);
  EXPECT_EQ(reply, "requestID=" + huge + " result=0 sender=" + huge);
  EXPECT_EQ(storage_->seen, "publish /" + huge + " " + huge + " 42\nport\n");
}

TEST_F(StorageServerKeysTest, TextsOfEveryKindComeBackAsTheyWere) {
  const UniChar halves[] = {'a', 0xD83C, 'b', 0xDFFF};
  const UniChar nul[] = {'a', 0, 'b'};
  const plinth::CSharedCFRef<CFStringRef> texts[] = {
      CFStringCreateWithCharacters(nullptr, halves, 4), CFStringCreateWithCharacters(nullptr, nul, 3),
      CFStringCreateWithCharacters(nullptr, nul, 0),
      CFStringCreateCopy(nullptr, CFSTR("\xC3\xA9\xF0\x9F\x8E\xAC%s%n%@\n"))};
  for (const auto& text : texts) {
    const Dictionary content = request("port");
    setValue(content, "sender", text.get());
    setValue(content, "requestID", text.get());
    replyTo("port", content);
    ASSERT_EQ(replies_.all.size(), 1U);
    const CFDictionaryRef reply = replies_.all.at(0).userInfo.get();
    EXPECT_TRUE(CFEqual(CFDictionaryGetValue(reply, CFSTR("sender")), text.get()));
    EXPECT_TRUE(CFEqual(CFDictionaryGetValue(reply, CFSTR("requestID")), text.get()));
    EXPECT_TRUE(CFEqual(replies_.all.at(0).object.get(), text.get()));
  }
}

// A path or URL that no file system and no network takes is refused, or passed on; it never ends the server.
TEST_F(StorageServerKeysTest, FoldersThatCannotBeAreRefusedOrPassedOn) {
  const UniChar halves[] = {'/', 0xD83C, 'b'};
  const UniChar nul[] = {'/', 0, 'b'};
  for (const auto& text : {plinth::CSharedCFRef<CFStringRef>(CFStringCreateWithCharacters(nullptr, halves, 3)),
                           plinth::CSharedCFRef<CFStringRef>(CFStringCreateWithCharacters(nullptr, nul, 3))}) {
    for (const std::string& operation : kWithFolder) {
      const Dictionary content = request(operation);
      setValue(content, "storageURL", text.get());
      const std::string reply = replyTo(operation, content);
      const bool isRefused = reply.find("result=-1") != std::string::npos;
      EXPECT_NE(reply.find("requestID=R1"), std::string::npos) << operation << " got no answer: " << reply;
      EXPECT_EQ(storage_->seen == "port\n", isRefused) << operation << ": " << reply;
    }
  }
}

TEST_F(StorageServerKeysTest, HostileNamesReachTheStorageWhole) {
  for (const std::string hostile : kHostileNames) {
    const Dictionary content = request("publish");
    set(content, "sender", hostile);
    set(content, "storageURL", "/srv/" + hostile);
    EXPECT_EQ(replyTo("publish", content), "requestID=R1 result=0 sender=" + hostile);
    EXPECT_EQ(storage_->seen, "publish /srv/" + hostile + " " + hostile + " 42\nport\n");
  }
}

TEST_F(StorageServerKeysTest, OnlyProcessIdsThatTheTablesCanKeepAreTaken) {
  const auto replyForPid = [&](double value) {
    const Dictionary content = request("publish");
    const plinth::CSharedCFRef<CFNumberRef> number = CFNumberCreate(nullptr, kCFNumberDoubleType, &value);
    setValue(content, "pid", static_cast<CFTypeRef>(number.get()));
    return replyTo("publish", content);
  };
  EXPECT_EQ(replyForPid(2147483647.0), "requestID=R1 result=0 sender=app");
  EXPECT_EQ(replyForPid(2147483648.0), refused("kPIDKey"));
  EXPECT_EQ(replyForPid(-2147483649.0), refused("kPIDKey"));
  EXPECT_EQ(replyForPid(1.5), refused("kPIDKey"));
  EXPECT_EQ(replyForPid(1e300), refused("kPIDKey"));
}

}  // namespace
