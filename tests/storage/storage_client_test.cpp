// CDNSharedStorageClient: what it asks, and what it makes of the replies. The daemon is played by the test.
#include <tovan/dn_shared_storage_client.h>

#include <unistd.h>

#include <optional>
#include <thread>
#include <typeinfo>

#include "tests/storage/mount_table_support.h"
#include "tests/storage/protocol_support.h"
#include "tests/storage/storage_support.h"
#include "tests/support/private_bus.h"

namespace {

using namespace test;
using tovan::CDNSharedStorageClient;
using tovan::CDNSharedStorageClientRef;

// Hears the requests, and answers them unless told otherwise.
class Daemon {
 public:
  Daemon() {
    for (const char* const operation : {"publish", "unpublish", "subscribe", "unsubscribe", "port", "terminated"}) {
      requests.observe(name(operation), nullptr);
    }
    requests.then = [this](const Notification& request) {
      if (answers) answer(request);
    };
  }
  // The reply to a request, with the change that the test wants.
  void answer(const Notification& asked) const {
    const std::string operation = operationOf(asked.name);
    if (operation == "terminated") return;
    const Dictionary content = tovan::CFUtil::CFDictMakeMutable();
    set(content, "sender", stringIn(asked.userInfo.get(), "sender"));
    set(content, "requestID", stringIn(asked.userInfo.get(), "requestID"));
    set(content, "result", 0);
    if (operation == "port") set(content, "serverPort", 2049);
    if (change) change(content);
    post(name(operation + " result"), asked.object.get(), content.get());
  }
  // "publish app: ..." of the only request, with its id, which is in `requestID`, left out.
  std::string onlyRequest() {
    EXPECT_EQ(requests.all.size(), 1U);
    if (requests.all.empty()) return "";
    const Notification& request = requests.all.back();
    const Dictionary content = tovan::CFUtil::CFDictMakeMutableCopy(request.userInfo.get());
    requestID = stringIn(content.get(), "requestID");
    remove(content, "requestID");
    return operationOf(request.name) + " " + request.objectText() + ": " + textOf(content.get());
  }

  NotificationLog requests;
  bool answers = true;
  std::function<void(const Dictionary& reply)> change;
  std::string requestID;
};

class StorageClientTest : public ::testing::Test {
 protected:
  OSStatus publish() { return client_->publish(folderURL("/srv/films"), CSTR("app"), 42); }
  void failWith(std::int32_t kind, const std::string& message) {
    daemon_.change = [=](const Dictionary& reply) {
      set(reply, "result", -1);
      set(reply, "exceptionKind", kind);
      set(reply, "exceptionMessage", message);
    };
  }
  // A request that the daemon has heard and not answered.
  CStringRef unanswered() {
    daemon_.answers = false;
    const std::size_t before = daemon_.requests.all.size();
    CStringRef id = client_->asyncPublish(folderURL("/srv/films"), CSTR("app"), 42);
    EXPECT_TRUE(daemon_.requests.await(before + 1));
    return id;
  }
  // Turns the run loop until everything posted before has been delivered.
  static void settle() {
    NotificationLog heard;
    heard.observe(CFSTR("Settled2"), nullptr);
    post(CFSTR("Settled2"), nullptr);
    EXPECT_TRUE(heard.await(1));
  }

  PrivateBus bus_;
  Daemon daemon_;
  CDNSharedStorageClientRef client_ = plinth::makeShared<CDNSharedStorageClient>();
  const std::string ownPid_ = std::to_string(::getpid());
};

// ---- Requests

TEST_F(StorageClientTest, AsksToPublishAFolderByItsPath) {
  EXPECT_EQ(client_->publish(folderURL("/srv/films and more"), CSTR("app"), 42), 0);
  EXPECT_EQ(daemon_.onlyRequest(), "publish app: pid=42 sender=app storageURL=/srv/films and more");
}

TEST_F(StorageClientTest, AsksToUnpublishAFolderByItsPath) {
  client_->unpublish(folderURL("/srv/films"), CSTR("app"), -1);
  EXPECT_EQ(daemon_.onlyRequest(), "unpublish app: pid=-1 sender=app storageURL=/srv/films");
}

TEST_F(StorageClientTest, AsksToSubscribeToAStorageByItsURL) {
  client_->subscribe(urlOf("nfs://host/srv/a%20b?port=2049"), CSTR("/mnt/films"), CSTR("app"), 42);
  EXPECT_EQ(daemon_.onlyRequest(),
            "subscribe app: pid=42 sender=app storageLocalPath=/mnt/films storageURL=nfs://host/srv/a%20b?port=2049");
}

TEST_F(StorageClientTest, AsksToUnsubscribeFromAStorageByItsURL) {
  client_->unsubscribe(urlOf("nfs://host/srv/films"), CSTR("/mnt/films"), CSTR("app"), 42);
  EXPECT_EQ(daemon_.onlyRequest(),
            "unsubscribe app: pid=42 sender=app storageLocalPath=/mnt/films storageURL=nfs://host/srv/films");
}

TEST_F(StorageClientTest, AsksForTheServerPortUnderAFixedName) {
  EXPECT_EQ(client_->getServerPort(), 2049);
  EXPECT_EQ(daemon_.onlyRequest(), "port mervane: pid=" + ownPid_ + " sender=mervane");
}

TEST_F(StorageClientTest, ThePortRequestSendsTheOwnPidWhateverIsGiven) {
  const CStringRef id = client_->asyncGetServerPort(CSTR("app"), 42);
  EXPECT_TRUE(client_->asyncWaitForReply(id, 20));
  EXPECT_EQ(daemon_.onlyRequest(), "port app: pid=" + ownPid_ + " sender=app");
}

TEST_F(StorageClientTest, APidOfZeroIsOnesOwn) {
  client_->publish(folderURL("/srv/films"), CSTR("app"), 0);
  EXPECT_EQ(daemon_.onlyRequest(), "publish app: pid=" + ownPid_ + " sender=app storageURL=/srv/films");
  daemon_.requests.all.clear();
  client_->unpublish(folderURL("/srv/films"), CSTR("app"), 0);
  EXPECT_EQ(daemon_.onlyRequest(), "unpublish app: pid=" + ownPid_ + " sender=app storageURL=/srv/films");
  daemon_.requests.all.clear();
  client_->subscribe(urlOf("nfs://h/p"), CSTR("/mnt"), CSTR("app"), 0);
  EXPECT_EQ(daemon_.onlyRequest(),
            "subscribe app: pid=" + ownPid_ + " sender=app storageLocalPath=/mnt storageURL=nfs://h/p");
  daemon_.requests.all.clear();
  client_->unsubscribe(urlOf("nfs://h/p"), CSTR("/mnt"), CSTR("app"), 0);
  EXPECT_EQ(daemon_.onlyRequest(),
            "unsubscribe app: pid=" + ownPid_ + " sender=app storageLocalPath=/mnt storageURL=nfs://h/p");
}

TEST_F(StorageClientTest, TellsOfADeadProcessAndDoesNotWait) {
  client_->processTerminated(42);
  ASSERT_TRUE(daemon_.requests.await(1));
  EXPECT_EQ(daemon_.requests.all.at(0).objectText(), "processTerminated");
  EXPECT_EQ(operationOf(daemon_.requests.all.at(0).name), "terminated");
  EXPECT_EQ(textOf(daemon_.requests.all.at(0).userInfo.get()), "pid=42");
}

TEST_F(StorageClientTest, EachRequestHasAFreshUUIDWhichIsWhatTheAsyncOperationsGive) {
  daemon_.answers = false;
  const CURLRef folder = folderURL("/srv/films");
  const CURLRef remote = urlOf("nfs://h/p");
  const std::vector<CStringRef> given = {
      client_->asyncPublish(folder, CSTR("app"), 1), client_->asyncUnpublish(folder, CSTR("app"), 1),
      client_->asyncSubscribe(remote, CSTR("/mnt"), CSTR("app"), 1),
      client_->asyncUnsubscribe(remote, CSTR("/mnt"), CSTR("app"), 1), client_->asyncGetServerPort(CSTR("app"), 1)};
  ASSERT_TRUE(daemon_.requests.await(given.size()));
  std::map<std::string, int> ids;
  const char* const operations[] = {"publish", "unpublish", "subscribe", "unsubscribe", "port"};
  for (std::size_t i = 0; i < given.size(); ++i) {
    EXPECT_EQ(operationOf(daemon_.requests.all.at(i).name), operations[i]);
    EXPECT_EQ(stringIn(daemon_.requests.all.at(i).userInfo.get(), "requestID"), given.at(i)->str());
    EXPECT_EQ(given.at(i)->getLength(), 36);
    ++ids[given.at(i)->str()];
  }
  EXPECT_EQ(ids.size(), given.size());
}

TEST_F(StorageClientTest, ArgumentsThatAreNotThereAreRefused) {
  const CURLRef folder = folderURL("/srv/films");
  const CURLRef remote = urlOf("nfs://h/p");
  EXPECT_EQ(thrown([&] { client_->publish(nullptr, CSTR("app"), 1); }), "Error: url is null!");
  EXPECT_EQ(thrown([&] { client_->publish(folder, nullptr, 1); }), "Error: client is null!");
  EXPECT_EQ(thrown([&] { client_->unpublish(nullptr, CSTR("app"), 1); }), "Error: url is null!");
  EXPECT_EQ(thrown([&] { client_->unpublish(folder, nullptr, 1); }), "Error: client is null!");
  EXPECT_EQ(thrown([&] { client_->subscribe(nullptr, CSTR("/m"), CSTR("app"), 1); }), "Error: url is null!");
  EXPECT_EQ(thrown([&] { client_->subscribe(remote, nullptr, CSTR("app"), 1); }), "Error: mountPath is null!");
  EXPECT_EQ(thrown([&] { client_->subscribe(remote, CSTR("/m"), nullptr, 1); }), "Error: client is null!");
  EXPECT_EQ(thrown([&] { client_->unsubscribe(nullptr, CSTR("/m"), CSTR("app"), 1); }), "Error: url is null!");
  EXPECT_EQ(thrown([&] { client_->unsubscribe(remote, nullptr, CSTR("app"), 1); }), "Error: mountPath is null!");
  EXPECT_EQ(thrown([&] { client_->unsubscribe(remote, CSTR("/m"), nullptr, 1); }), "Error: client is null!");
  EXPECT_EQ(thrown([&] { client_->asyncGetServerPort(nullptr, 1); }), "Error: client is null!");
  EXPECT_EQ(thrown([&] { client_->asyncWaitForReply(nullptr, 1); }), "Error: requestID is null!");
  EXPECT_EQ(thrown([&] { client_->asyncWaitForReplyResult(nullptr, 1); }), "Error: requestID is null!");
  settle();
  EXPECT_TRUE(daemon_.requests.all.empty());
}

TEST_F(StorageClientTest, AFolderWhoseURLHasNoPathIsRefused) {
  const CURLRef noPath = urlOf("file:///%FF");
  EXPECT_EQ(thrown([&] { client_->publish(noPath, CSTR("app"), 1); }),
            "CDNSharedStorageClient::publish(file:///%FF): the URL has no file-system path");
  EXPECT_EQ(thrown([&] { client_->unpublish(noPath, CSTR("app"), 1); }),
            "CDNSharedStorageClient::unpublish(file:///%FF): the URL has no file-system path");
}

// ---- Replies

TEST_F(StorageClientTest, AFailureThatTheServerReportsIsThrown) {
  failWith(static_cast<int>(0xFE030200U), "100% [gone]");
  const CURLRef folder = folderURL("/srv/films");
  const CURLRef remote = urlOf("nfs://h/p");
  const std::vector<std::function<void()>> operations = {
      [&] { client_->publish(folder, CSTR("app"), 1); },
      [&] { client_->unpublish(folder, CSTR("app"), 1); },
      [&] { client_->subscribe(remote, CSTR("/m"), CSTR("app"), 1); },
      [&] { client_->unsubscribe(remote, CSTR("/m"), CSTR("app"), 1); },
      [&] { client_->getServerPort(); },
      [&] { client_->asyncWaitForReply(client_->asyncGetServerPort(CSTR("app"), 0), 20); },
      [&] { client_->asyncWaitForReplyResult(client_->asyncGetServerPort(CSTR("app"), 0), 20); },
  };
  for (const auto& operation : operations) {
    try {
      operation();
      ADD_FAILURE() << "nothing was thrown";
    } catch (const plinth::CException& exception) {
      EXPECT_TRUE(typeid(exception) == typeid(plinth::CException));
      EXPECT_EQ(static_cast<std::uint32_t>(exception.getKind()), 0xFE030200U);
      EXPECT_EQ(exception.getMessage()->str(), "100% [gone]");
    }
  }
}

TEST_F(StorageClientTest, AFailureMayHaveAnEmptyMessage) {
  failWith(6, "");
  try {
    publish();
    ADD_FAILURE() << "nothing was thrown";
  } catch (const plinth::CException& exception) {
    EXPECT_EQ(exception.getKind(), plinth::ExceptionKind::unknown);
    EXPECT_EQ(exception.getMessage()->str(), "");
  }
}

TEST_F(StorageClientTest, AFailureWithoutKindOrMessageCountsAsAReply) {
  for (const std::string missing : {"exceptionKind", "exceptionMessage"}) {
    daemon_.change = [&](const Dictionary& reply) {
      set(reply, "result", -1);
      set(reply, "exceptionKind", 6);
      set(reply, "exceptionMessage", "lost");
      remove(reply, missing);
    };
    EXPECT_EQ(publish(), 0) << missing;
    EXPECT_TRUE(client_->asyncWaitForReply(client_->asyncGetServerPort(CSTR("app"), 0), 20)) << missing;
  }
  daemon_.change = [](const Dictionary& reply) { set(reply, "result", 5); };
  EXPECT_EQ(client_->getServerPort(), 2049);
}

TEST_F(StorageClientTest, KindAndMessageOfASuccessMeanNothing) {
  failWith(6, "not at all");
  const auto fails = daemon_.change;
  daemon_.change = [&](const Dictionary& reply) {
    fails(reply);
    set(reply, "result", 0);
  };
  EXPECT_EQ(publish(), 0);
  daemon_.change = [&](const Dictionary& reply) {
    fails(reply);
    remove(reply, "result");
  };
  EXPECT_EQ(publish(), 0);
  daemon_.change = [&](const Dictionary& reply) {
    fails(reply);
    set(reply, "result", "-1");
  };
  EXPECT_EQ(publish(), 0) << "a result that is no number";
}

TEST_F(StorageClientTest, TheServerPortIsMinusOneWhenTheReplyHasNone) {
  daemon_.change = [](const Dictionary& reply) { remove(reply, "serverPort"); };
  EXPECT_EQ(client_->getServerPort(), -1);
  daemon_.change = [](const Dictionary& reply) { set(reply, "serverPort", "2049"); };
  EXPECT_EQ(client_->getServerPort(), -1);
}

TEST_F(StorageClientTest, TheWholeReplyCanBeHad) {
  daemon_.change = [](const Dictionary& reply) { set(reply, "more", "of it"); };
  const CStringRef id = client_->asyncGetServerPort(CSTR("app"), 0);
  const auto reply = client_->asyncWaitForReplyResult(id, 20);
  EXPECT_EQ(textOf(reply.get()), "more=of it requestID=" + id->str() + " result=0 sender=app serverPort=2049");
}

TEST_F(StorageClientTest, AReplyIsTakenOnce) {
  const CStringRef id = client_->asyncPublish(folderURL("/srv/films"), CSTR("app"), 1);
  EXPECT_TRUE(client_->asyncWaitForReply(id, 20));
  EXPECT_FALSE(client_->asyncWaitForReply(id, 20));
  EXPECT_TRUE(client_->asyncWaitForReplyResult(id, 20).isNull());
}

TEST_F(StorageClientTest, ARepliesOrderNeedNotBeThatOfTheRequests) {
  const CStringRef first = client_->asyncPublish(folderURL("/srv/a"), CSTR("app"), 1);
  const CStringRef second = client_->asyncPublish(folderURL("/srv/b"), CSTR("app"), 1);
  EXPECT_EQ(stringIn(client_->asyncWaitForReplyResult(second, 20).get(), "requestID"), second->str());
  EXPECT_EQ(stringIn(client_->asyncWaitForReplyResult(first, 20).get(), "requestID"), first->str());
}

TEST_F(StorageClientTest, ARepliesToUnknownRequestsAreDropped) {
  const Dictionary foreign = tovan::CFUtil::CFDictMakeMutable();
  set(foreign, "requestID", "nobody's");
  set(foreign, "result", -1);
  post(name("publish result"), CFSTR("app"), foreign.get());
  post(name("publish result"), CFSTR("app"), nullptr);
  post(name("publish result"), CFSTR("app"), Dictionary(tovan::CFUtil::CFDictMakeMutable()).get());
  set(foreign, "requestID", 7);
  post(name("publish result"), CFSTR("app"), foreign.get());
  settle();
  EXPECT_FALSE(client_->asyncWaitForReply(CSTR("nobody's"), 20));
  EXPECT_EQ(publish(), 0);
}

TEST_F(StorageClientTest, AReplyThatComesTooLateIsDropped) {
  const CStringRef id = unanswered();
  EXPECT_FALSE(client_->asyncWaitForReply(id, 0));
  daemon_.answer(daemon_.requests.all.back());
  settle();
  EXPECT_FALSE(client_->asyncWaitForReply(id, 20));
  daemon_.answers = true;
  EXPECT_EQ(publish(), 0);
}

TEST_F(StorageClientTest, TheSameReplyTwiceIsOneReply) {
  const CStringRef id = unanswered();
  daemon_.answer(daemon_.requests.all.back());
  daemon_.answer(daemon_.requests.all.back());
  EXPECT_TRUE(client_->asyncWaitForReply(id, 20));
  settle();
  EXPECT_FALSE(client_->asyncWaitForReply(id, 20));
}

TEST_F(StorageClientTest, RepliesToOthersRequestsAreTheirs) {
  const auto other = plinth::makeShared<CDNSharedStorageClient>();
  const CStringRef id = client_->asyncPublish(folderURL("/srv/a"), CSTR("app"), 1);
  EXPECT_FALSE(other->asyncWaitForReply(id, 20));
  EXPECT_TRUE(client_->asyncWaitForReply(id, 20));
}

TEST_F(StorageClientTest, ATimeOutOfZeroOnlyLooks) {
  const CStringRef id = unanswered();
  daemon_.answer(daemon_.requests.all.back());
  settle();
  EXPECT_TRUE(client_->asyncWaitForReply(id, 0)) << "the reply is there";
  EXPECT_FALSE(client_->asyncWaitForReply(unanswered(), 0));
}

TEST_F(StorageClientTest, AWaitWithoutAReplyEndsWithItsTime) {
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(client_->asyncWaitForReply(unanswered(), 2));
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
  EXPECT_GT(seconds, 0.95) << "less than the whole seconds allow";
}

TEST_F(StorageClientTest, ALongTimeOutIsNoShortOne) {
  const CStringRef id = unanswered();
  daemon_.answer(daemon_.requests.all.back());
  EXPECT_TRUE(client_->asyncWaitForReply(id, std::numeric_limits<long>::max()));
}

TEST_F(StorageClientTest, ANegativeTimeOutIsTheStandardOne) {
  for (const long timeout : {-1L, std::numeric_limits<long>::min()}) {
    const CStringRef id = unanswered();
    daemon_.answer(daemon_.requests.all.back());
    EXPECT_TRUE(client_->asyncWaitForReply(id, timeout)) << "a time-out of none would not have turned the run loop";
  }
}

TEST_F(StorageClientTest, KnowsOfNoFoldersAndMounts) {
  EXPECT_EQ(publish(), 0);
  EXPECT_TRUE(client_->getPublishedMap().empty());
  EXPECT_TRUE(client_->getSubscribedMap().empty());
}

// ---- After a subscription

class StorageClientMountTest : public StorageClientTest {
 protected:
  std::string consoleOfSubscribing(const std::string& mountPath, const std::string& client = "app") {
    return consoleOf([&] { client_->subscribe(urlOf("nfs://host/p"), CSTR(mountPath), CSTR(client), 1); });
  }
};

TEST_F(StorageClientMountTest, AMountPointThatIsStillLocalIsLogged) {
  const std::string folder = scratchFolder("mount");
  writeFile(folder + "/.mervane.plist", "");
  const std::string console = consoleOfSubscribing(folder);
  EXPECT_NE(console.find(" CDNSharedStorageClient::subscribe: client = app, path = " + folder + " is still local!\n"),
            std::string::npos)
      << console;
  EXPECT_EQ(console.find("info file"), std::string::npos) << console;
}

TEST_F(StorageClientMountTest, AnInformationFileThatIsNotThereIsLogged) {
  const std::string folder = scratchFolder("mount");
  const std::string console = consoleOfSubscribing(folder);
  EXPECT_NE(console.find(" CDNSharedStorageClient::subscribe: client = app, from = nfs://host/p; info file " + folder +
                         "/.mervane.plist not accessible!\n"),
            std::string::npos)
      << console;
}

TEST_F(StorageClientMountTest, AMountPointThatIsNotThereIsNotCalledLocal) {
  const std::string console = consoleOfSubscribing(scratchHome() + "/nowhere");
  EXPECT_EQ(console.find("still local"), std::string::npos) << console;
  EXPECT_NE(console.find("/nowhere/.mervane.plist not accessible!\n"), std::string::npos) << console;
}

TEST_F(StorageClientMountTest, TheChecksThrowNothing) {
  const std::string folder = scratchFolder("mount");
  for (const std::string client : {"a/b", "", "%@%s%n", "../.."}) {
    EXPECT_NE(consoleOfSubscribing(folder, client).find(" info file "), std::string::npos) << client;
  }
  for (const std::string path : {"", "relative/path", "/\xC3\xA9%@%s%n"}) {
    EXPECT_NE(consoleOfSubscribing(path).find(" info file "), std::string::npos) << path;
  }
}

// The child has a bus connection, a daemon and a client of its own.
TEST_F(StorageClientMountTest, AMountOfAnotherHostsIsNotLocal) {
  const std::string folder = scratchFolder("mount");
  writeFile(folder + "/.mervane.plist", "");
  const std::string console = answerWithMounts(everyType("nfs4"), [&] {
    Daemon daemon;
    const auto client = plinth::makeShared<CDNSharedStorageClient>();
    return "<" + consoleOf([&] { client->subscribe(urlOf("nfs://host/p"), CSTR(folder), CSTR("app"), 1); }) + ">";
  });
  if (console == "not permitted") GTEST_SKIP() << "no mount namespace to be had";
  EXPECT_EQ(console, "<>");
}

}  // namespace
