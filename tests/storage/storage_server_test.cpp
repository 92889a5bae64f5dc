// CDNSharedStorageServer: what it does with a request, and what it answers.
#include <tovan/dn_shared_storage_server.h>

#include <unistd.h>

#include <thread>

#include "tests/storage/protocol_support.h"
#include "tests/storage/scripted_storage.h"
#include "tests/storage/storage_support.h"
#include "tests/support/private_bus.h"

namespace {

using namespace test;
using tovan::CDNSharedStorageServer;
using tovan::CDNSharedStorageServerRef;
using tovan::ISharedStorageException;

class StorageServerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* const operation : {"publish", "unpublish", "subscribe", "unsubscribe", "port"}) {
      replies_.observe(name(operation + std::string(" result")), nullptr);
    }
    serve();
  }
  void serve() { server_ = plinth::makeShared<CDNSharedStorageServer>(storage_); }

  // The replies that came until a request posted later was answered, one on each line: "publish result app: ...".
  std::string repliesTo(const std::function<void()>& post) {
    replies_.all.clear();
    post();
    const Dictionary last = request("port");
    set(last, "requestID", "last");
    test::post(name("port"), CFSTR("app"), last.get());
    const auto isOver = [&] {
      return !replies_.all.empty() && stringIn(replies_.all.back().userInfo.get(), "requestID") == "last";
    };
    EXPECT_TRUE(runLoopUntil(isOver)) << "the server does not answer any more";
    if (isOver()) replies_.all.pop_back();
    std::string text;
    for (const Notification& reply : replies_.all) {
      text += operationOf(reply.name) + " " + reply.objectText() + ": " + textOf(reply.userInfo.get()) + "\n";
    }
    return text;
  }
  std::string repliesTo(const std::string& operation, const Dictionary& content) {
    return repliesTo([&] { post(name(operation), CFSTR("app"), content.get()); });
  }
  static std::string failed(const std::string& operation, int kind, const std::string& message) {
    return operation + " result app: exceptionKind=" + std::to_string(kind) + " exceptionMessage=" + message +
           " requestID=R1 result=-1 sender=app\n";
  }

  PrivateBus bus_;
  NotificationLog replies_;
  ScriptedStorageRef storage_ = plinth::makeShared<ScriptedStorage>();
  CDNSharedStorageServerRef server_;
};

// ---- Requests that are in order

TEST_F(StorageServerTest, PublishesAndSaysThatItDid) {
  EXPECT_EQ(repliesTo("publish", request("publish")), "publish result app: requestID=R1 result=0 sender=app\n");
  EXPECT_EQ(storage_->seen, "publish /srv/films app 42\nport\n");
}

TEST_F(StorageServerTest, Unpublishes) {
  EXPECT_EQ(repliesTo("unpublish", request("unpublish")), "unpublish result app: requestID=R1 result=0 sender=app\n");
  EXPECT_EQ(storage_->seen, "unpublish /srv/films app 42\nport\n");
}

TEST_F(StorageServerTest, Subscribes) {
  EXPECT_EQ(repliesTo("subscribe", request("subscribe")), "subscribe result app: requestID=R1 result=0 sender=app\n");
  EXPECT_EQ(storage_->seen, "subscribe nfs://host/srv/films?port=2049 /mnt/films app 42\nport\n");
}

TEST_F(StorageServerTest, Unsubscribes) {
  EXPECT_EQ(repliesTo("unsubscribe", request("unsubscribe")),
            "unsubscribe result app: requestID=R1 result=0 sender=app\n");
  EXPECT_EQ(storage_->seen, "unsubscribe nfs://host/srv/films?port=2049 /mnt/films app 42\nport\n");
}

TEST_F(StorageServerTest, AnswersAPortRequestWithThePortAsAnInteger) {
  EXPECT_EQ(repliesTo("port", request("port")), "port result app: requestID=R1 result=0 sender=app serverPort=2049\n");
  EXPECT_EQ(CFGetTypeID(CFDictionaryGetValue(replies_.all.at(0).userInfo.get(), CFSTR("serverPort"))),
            CFNumberGetTypeID());
}

TEST_F(StorageServerTest, PassesAPortOfMinusOneOn) {
  storage_->port = -1;
  EXPECT_EQ(repliesTo("port", request("port")), "port result app: requestID=R1 result=0 sender=app serverPort=-1\n");
}

TEST_F(StorageServerTest, TakesTheNewsOfADeadProcessWithoutAReply) {
  EXPECT_EQ(repliesTo("terminated", request("terminated")), "");
  EXPECT_EQ(storage_->seen, "terminated 42\nport\n");
}

TEST_F(StorageServerTest, RepliesCarryTheRequestsSenderWhateverObjectTheRequestHad) {
  EXPECT_EQ(repliesTo([] { post(name("publish"), CFSTR("somebody else"), request("publish").get()); }),
            "publish result app: requestID=R1 result=0 sender=app\n");
  EXPECT_EQ(repliesTo([] { post(name("publish"), nullptr, request("publish").get()); }),
            "publish result app: requestID=R1 result=0 sender=app\n");
}

TEST_F(StorageServerTest, AnUnknownProcessIsMinusOne) {
  const Dictionary content = request("publish");
  set(content, "pid", -1);
  repliesTo("publish", content);
  EXPECT_EQ(storage_->seen, "publish /srv/films app -1\nport\n");
}

TEST_F(StorageServerTest, EachRequestIsAnsweredUnderItsOwnIDInItsOrder) {
  const std::string replies = repliesTo([] {
    for (const char* const id : {"first", "second", "third"}) {
      const Dictionary content = request("publish");
      set(content, "requestID", id);
      post(name("publish"), CFSTR("app"), content.get());
    }
  });
  EXPECT_EQ(replies,
            "publish result app: requestID=first result=0 sender=app\n"
            "publish result app: requestID=second result=0 sender=app\n"
            "publish result app: requestID=third result=0 sender=app\n");
}

// ---- Failures

TEST_F(StorageServerTest, AFailureGoesBackByKindAndMessageAndIsLogged) {
  storage_->then = [](const std::string& line) {
    if (line != "port") {
      throw ISharedStorageException(tovan::kSharedStorageExceptionStorage, tovan::kSharedStorageNotFound, "100% gone");
    }
  };
  const int kind = static_cast<int>(0xFE030200U);
  std::string replies;
  for (const std::string operation : {"publish", "unpublish"}) {
    const std::string console = consoleOf([&] { replies = repliesTo(operation, request(operation)); });
    EXPECT_EQ(replies, failed(operation, kind, "100% gone"));
    EXPECT_NE(console.find(" CDNSharedStorageServer::publishNotification: CException: 100% gone\n"), std::string::npos)
        << console;
  }
  for (const std::string operation : {"subscribe", "unsubscribe"}) {
    const std::string console = consoleOf([&] { replies = repliesTo(operation, request(operation)); });
    EXPECT_EQ(replies, failed(operation, kind, "100% gone"));
    EXPECT_NE(console.find(" CDNSharedStorageServer::subscribeNotification: CException: 100% gone\n"),
              std::string::npos)
        << console;
  }
}

TEST_F(StorageServerTest, AFailureToTellThePortGoesBackWithoutAPort) {
  int calls = 0;
  storage_->then = [&](const std::string&) {
    if (++calls == 1) throw plinth::CParamException("no port");
  };
  std::string replies;
  const std::string console = consoleOf([&] { replies = repliesTo("port", request("port")); });
  EXPECT_EQ(replies, failed("port", 1, "no port"));
  EXPECT_NE(console.find(" CDNSharedStorageServer::getServerPortNotification: CException: no port\n"),
            std::string::npos)
      << console;
}

TEST_F(StorageServerTest, AFailureToForgetAProcessIsLoggedOnly) {
  storage_->then = [](const std::string& line) {
    if (line == "terminated 42") throw plinth::CParamException("busy");
    if (line == "terminated 43") throw std::runtime_error("odd");
  };
  const Dictionary other = request("terminated");
  set(other, "pid", 43);
  const std::string console = consoleOf([&] {
    EXPECT_EQ(repliesTo("terminated", request("terminated")), "");
    EXPECT_EQ(repliesTo("terminated", other), "");
  });
  EXPECT_NE(console.find(" CDNSharedStorageServer::processTerminatedNotification: CException: busy\n"),
            std::string::npos)
      << console;
  EXPECT_NE(console.find(" CDNSharedStorageServer::processTerminatedNotification: unknown exception\n"),
            std::string::npos)
      << console;
}

TEST_F(StorageServerTest, AnExceptionWithoutAMessageGoesBackWithAnEmptyOne) {
  storage_->then = [](const std::string& line) {
    if (line != "port") throw plinth::CException(plinth::kExceptionTypeSystemCall);
  };
  EXPECT_EQ(repliesTo("publish", request("publish")), failed("publish", 0, ""));
}

// Every type that the family has, and what is not of the family: that counts as an unknown exception.
TEST_F(StorageServerTest, EveryExceptionIsAnsweredAndNoneGetsOut) {
  struct Case {
    std::function<void()> throws;
    int kind;
    std::string message;
  };
  const std::vector<Case> cases = {
      {[] { throw plinth::CException(plinth::kExceptionTypeUnknown, "plain"); }, 0, "plain"},
      {[] { throw plinth::CParamException("param"); }, 1, "param"},
      {[] { throw plinth::CNullPointerException("null"); }, 2, "null"},
      {[] { throw plinth::CFileException("file"); }, 3, "file"},
      {[] { throw plinth::CIOException("io"); }, 4, "io"},
      {[] { throw plinth::CNSException("framework"); }, 5, "framework"},
      {[] { throw plinth::CUnknownException("unknown"); }, 6, "unknown"},
      {[] { throw std::runtime_error("foreign"); }, 6, "foreign"},
      {[] { throw std::bad_alloc(); }, 6, "std::bad_alloc"},
      {[] { throw 42; }, 6, ""},
      {[] { throw "text"; }, 6, ""},
      {[] { throw nullptr; }, 6, ""},
  };
  for (const Case& one : cases) {
    for (const std::string operation : {"publish", "unpublish", "subscribe", "unsubscribe", "port"}) {
      bool hasThrown = false;
      storage_->then = [&](const std::string&) {
        if (!std::exchange(hasThrown, true)) one.throws();
      };
      EXPECT_EQ(repliesTo(operation, request(operation)), failed(operation, one.kind, one.message));
    }
  }
}

TEST_F(StorageServerTest, AnExceptionOutsideTheFamilyIsLoggedAsUnknown) {
  bool hasThrown = false;
  storage_->then = [&](const std::string&) {
    if (!std::exchange(hasThrown, true)) throw 42;
  };
  struct Case {
    std::string operation;
    std::string callback;
  };
  const Case cases[] = {{"publish", "publishNotification"},
                        {"unpublish", "publishNotification"},
                        {"subscribe", "subscribeNotification"},
                        {"unsubscribe", "subscribeNotification"},
                        {"port", "getServerPortNotification"}};
  for (const Case& one : cases) {
    hasThrown = false;
    const std::string console = consoleOf([&] { repliesTo(one.operation, request(one.operation)); });
    EXPECT_NE(console.find(" CDNSharedStorageServer::" + one.callback + ": unknown exception\n"), std::string::npos)
        << console;
  }
}

// ---- What else the server is

TEST_F(StorageServerTest, ANotificationOfAnotherNameThatReachesACallbackIsIgnored) {
  const std::string console = consoleOf([&] {
    const std::string replies = repliesTo([&] {
      const Dictionary content = request("subscribe");
      for (const CFStringRef other : {CFSTR("MervaneOtherNotification2"), static_cast<CFStringRef>(nullptr)}) {
        CDNSharedStorageServer::publishNotification(nullptr, server_.get(), other, nullptr, content.get());
        CDNSharedStorageServer::subscribeNotification(nullptr, server_.get(), other, nullptr, content.get());
        CDNSharedStorageServer::getServerPortNotification(nullptr, server_.get(), other, nullptr, content.get());
        CDNSharedStorageServer::processTerminatedNotification(nullptr, server_.get(), other, nullptr, content.get());
      }
      CDNSharedStorageServer::publishNotification(nullptr, server_.get(), name("subscribe"), nullptr, content.get());
      CDNSharedStorageServer::subscribeNotification(nullptr, server_.get(), name("publish"), nullptr, content.get());
      CDNSharedStorageServer::getServerPortNotification(nullptr, server_.get(), name("publish"), nullptr,
                                                        content.get());
      CDNSharedStorageServer::processTerminatedNotification(nullptr, server_.get(), name("port"), nullptr,
                                                            content.get());
    });
    EXPECT_EQ(replies, "");
  });
  EXPECT_EQ(storage_->seen, "port\n");
  EXPECT_EQ(console, "");
}

TEST_F(StorageServerTest, ForwardsEveryOperationAsItIs) {
  EXPECT_EQ(server_->publish(folderURL("/a b"), CSTR("c"), 1), 7);
  server_->unpublish(folderURL("/a b"), CSTR("c"), 2);
  server_->subscribe(urlOf("nfs://h/p"), CSTR("/m"), CSTR("c"), 3);
  server_->unsubscribe(urlOf("nfs://h/p"), CSTR("/m"), CSTR("c"), 4);
  EXPECT_EQ(server_->getServerPort(), 2049);
  server_->processTerminated(5);
  EXPECT_EQ(storage_->seen,
            "publish /a b c 1\nunpublish /a b c 2\nsubscribe nfs://h/p /m c 3\nunsubscribe nfs://h/p /m c 4\nport\n"
            "terminated 5\n");
  EXPECT_EQ(server_->getPublishedMap().count("/published"), 1U);
  EXPECT_EQ(server_->getSubscribedMap().count("/mounted"), 1U);
}

TEST_F(StorageServerTest, DirectCallsThrowWhatTheStorageThrows) {
  storage_->then = [](const std::string&) { throw plinth::CParamException("no"); };
  EXPECT_EQ(thrown([&] { server_->publish(folderURL("/a"), CSTR("c"), 1); }), "no");
}

TEST_F(StorageServerTest, WithoutAStorageSaysSoBeforeEachOperationAndFails) {
  storage_ = nullptr;
  serve();
  const std::string refusal = "Error: storage is null!";
  const std::string line = " CSharedObject::LogNullRef: an empty reference was dereferenced\n";
  const auto expectRefused = [&](const std::function<void()>& action) {
    std::string text;
    const std::string console = consoleOf([&] { text = thrown(action); });
    EXPECT_EQ(text, refusal);
    EXPECT_NE(console.find(line), std::string::npos) << console;
  };
  expectRefused([&] { server_->publish(folderURL("/a"), CSTR("c"), 1); });
  expectRefused([&] { server_->unpublish(folderURL("/a"), CSTR("c"), 1); });
  expectRefused([&] { server_->subscribe(urlOf("nfs://h/p"), CSTR("/m"), CSTR("c"), 1); });
  expectRefused([&] { server_->unsubscribe(urlOf("nfs://h/p"), CSTR("/m"), CSTR("c"), 1); });
  expectRefused([&] { server_->getServerPort(); });
  expectRefused([&] { server_->processTerminated(1); });
  expectRefused([&] { server_->getPublishedMap(); });
  expectRefused([&] { server_->getSubscribedMap(); });
}

TEST_F(StorageServerTest, WithoutAStorageAnswersThatItFailed) {
  storage_ = nullptr;
  serve();
  post(name("publish"), CFSTR("app"), request("publish").get());
  ASSERT_TRUE(replies_.await(1));
  EXPECT_EQ(textOf(replies_.all.at(0).userInfo.get()),
            "exceptionKind=2 exceptionMessage=Error: storage is null! requestID=R1 result=-1 sender=app");
}

// A server that changes an operation changes the requests too.
class RenamingServer : public CDNSharedStorageServer {
 public:
  using CDNSharedStorageServer::CDNSharedStorageServer;
  OSStatus publish(const CURLRef& url, const CStringRef&, long pid) override {
    return CDNSharedStorageServer::publish(url, CSTR("renamed"), pid);
  }
};

TEST_F(StorageServerTest, RequestsGoThroughTheServersOwnOperations) {
  server_ = plinth::makeShared<RenamingServer>(storage_);
  repliesTo("publish", request("publish"));
  EXPECT_EQ(storage_->seen, "publish /srv/films renamed 42\nport\n");
}

TEST_F(StorageServerTest, HearsNothingOnceItIsGoneAndLetsTheStorageGo) {
  EXPECT_EQ(storage_->GetRetainCount(), 2);
  server_ = nullptr;
  EXPECT_EQ(storage_->GetRetainCount(), 1);
  NotificationLog heard;
  heard.observe(name("publish"), nullptr);
  post(name("publish"), CFSTR("app"), request("publish").get());
  ASSERT_TRUE(heard.await(1));
  EXPECT_EQ(storage_->seen, "");
}

TEST_F(StorageServerTest, HearsNothingOnceItIsUnregistered) {
  server_->unregisterForNotifications();
  NotificationLog heard;
  heard.observe(name("publish"), nullptr);
  post(name("publish"), CFSTR("app"), request("publish").get());
  ASSERT_TRUE(heard.await(1));
  EXPECT_EQ(storage_->seen, "");
}

TEST_F(StorageServerTest, MayBeDestroyedInTheMiddleOfARequestAndStillAnswersIt) {
  storage_->then = [&](const std::string&) { server_ = nullptr; };
  post(name("publish"), CFSTR("app"), request("publish").get());
  post(name("publish"), CFSTR("app"), request("publish").get());
  ASSERT_TRUE(replies_.await(1));
  EXPECT_EQ(textOf(replies_.all.at(0).userInfo.get()), "requestID=R1 result=0 sender=app");
  NotificationLog heard;
  heard.observe(CFSTR("Later2"), nullptr);
  post(CFSTR("Later2"), nullptr);
  ASSERT_TRUE(heard.await(1));
  EXPECT_EQ(storage_->seen, "publish /srv/films app 42\n") << "the second request found a server";
}

TEST_F(StorageServerTest, ACallbackForAServerThatIsGoneDoesNothing) {
  void* const gone = server_.get();
  server_ = nullptr;
  CDNSharedStorageServer::publishNotification(nullptr, gone, name("publish"), nullptr, request("publish").get());
  CDNSharedStorageServer::publishNotification(nullptr, nullptr, name("publish"), nullptr, request("publish").get());
  EXPECT_EQ(storage_->seen, "");
}

// The thread that destroys it is not the one that serves requests at that moment.
TEST_F(StorageServerTest, MayBeDestroyedOnAnotherThreadWhileItServes) {
  for (int round = 0; round < 50; ++round) {
    serve();
    for (int i = 0; i < 5; ++i) post(name("publish"), CFSTR("app"), request("publish").get());
    std::thread destroyer([server = std::exchange(server_, nullptr)]() mutable { server = nullptr; });
    runLoopUntil([end = 5, n = 0]() mutable { return ++n > end; });
    destroyer.join();
  }
  EXPECT_EQ(storage_->GetRetainCount(), 1) << "a server is left over";
}

}  // namespace
