// Server and client in processes of their own, and what happens to them there.
#include <tovan/dn_shared_storage_client.h>
#include <tovan/shared_storage_entries.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "tests/storage/protocol_support.h"
#include "tests/storage/server_process.h"
#include "tests/storage/storage_support.h"
#include "tests/support/private_bus.h"

namespace {

using namespace test;
using tovan::CDNSharedStorageClient;
using tovan::CDNSharedStorageClientRef;

class StorageFaultsTest : public ::testing::Test {
 protected:
  static CStringRef asyncPublish(CDNSharedStorageClient& client, const std::string& path = "/srv/films") {
    return client.asyncPublish(folderURL(path), CSTR("app"), 0);
  }
  // Asks until there is an answer: who asks while the bus is just coming back may ask in vain.
  static bool isServed(CDNSharedStorageClient& client) {
    for (int attempt = 0; attempt < 20; ++attempt) {
      if (client.asyncWaitForReply(client.asyncGetServerPort(CSTR("app"), 0), 2)) return true;
    }
    return false;
  }

  // Waits until this thread observes over the new bus.
  static bool isHearingAgain() {
    NotificationLog probe;
    probe.observe(CFSTR("Probe2"), nullptr);
    return runLoopUntil([&] {
      post(CFSTR("Probe2"), nullptr);
      return !probe.all.empty();
    });
  }

  PrivateBus bus_;
};

TEST_F(StorageFaultsTest, AServerInAnotherProcessAnswers) {
  const ServerProcess server;
  const auto client = plinth::makeShared<CDNSharedStorageClient>();
  EXPECT_EQ(client->publish(folderURL("/srv/films"), CSTR("app"), 0), 0);
  client->unpublish(folderURL("/srv/films"), CSTR("app"), -1);
  client->unsubscribe(urlOf("nfs://h/p"), CSTR("/mnt"), CSTR("app"), 0);
  EXPECT_EQ(client->getServerPort(), 2049);
}

TEST_F(StorageFaultsTest, WhatTheServersStorageThrowsArrives) {
  const ServerProcess server([](const std::string&) {
    throw tovan::ISharedStorageException(tovan::kSharedStorageExceptionExchange, tovan::kSharedStorageNotDone,
                                         "CNFSSharedStorage::_subscribe: command [/sbin/mount host:/srv] timed out");
  });
  const auto client = plinth::makeShared<CDNSharedStorageClient>();
  try {
    client->subscribe(urlOf("nfs://host/srv"), CSTR("/mnt"), CSTR("app"), 0);
    ADD_FAILURE() << "nothing was thrown";
  } catch (const plinth::CException& exception) {
    EXPECT_EQ(static_cast<std::uint32_t>(exception.getKind()), 0xFE010C00U);
    EXPECT_STREQ(exception.what(), "CNFSSharedStorage::_subscribe: command [/sbin/mount host:/srv] timed out");
  }
}

TEST_F(StorageFaultsTest, AServerKilledBetweenRequestAndReplyLeavesATimeOutAndTheNextOneServes) {
  const auto client = plinth::makeShared<CDNSharedStorageClient>();
  ServerProcess first([](const std::string&) { ::kill(::getpid(), SIGKILL); });
  EXPECT_FALSE(client->asyncWaitForReply(asyncPublish(*client), 2));
  EXPECT_EQ(first.wait(), 128 + SIGKILL);
  const ServerProcess second;
  EXPECT_TRUE(client->asyncWaitForReply(asyncPublish(*client), 20));
}

TEST_F(StorageFaultsTest, ABusRestartedBetweenRequestAndReplyCostsAtMostThatReply) {
  // The storage lingers until it is told that the bus is back.
  int go[2];
  ASSERT_EQ(::pipe(go), 0);
  const ServerProcess server([&](const std::string& line) {
    char byte;
    if (line.find("/lingers") != std::string::npos) [[maybe_unused]]
      const ssize_t got = ::read(go[0], &byte, 1);
  });
  const auto client = plinth::makeShared<CDNSharedStorageClient>();
  ASSERT_TRUE(isServed(*client));
  const CStringRef id = asyncPublish(*client, "/srv/lingers");
  bus_.restart();
  ASSERT_TRUE(isHearingAgain());  // so that the reply does find somebody
  ASSERT_EQ(::write(go[1], "x", 1), 1);
  client->asyncWaitForReply(id, 2);  // it may or may not have been lost with the bus
  EXPECT_TRUE(isServed(*client));
  EXPECT_TRUE(client->asyncWaitForReply(asyncPublish(*client), 20));
  ::close(go[0]);
  ::close(go[1]);
}

TEST_F(StorageFaultsTest, AReplyPostedOverTheNewBusEndsAWaitThatBeganOnTheOld) {
  NotificationLog daemon;
  daemon.observe(name("publish"), nullptr);
  const auto client = plinth::makeShared<CDNSharedStorageClient>();
  const CStringRef id = asyncPublish(*client);
  ASSERT_TRUE(daemon.await(1));
  bus_.restart();
  ASSERT_TRUE(isHearingAgain());
  const Dictionary reply = tovan::CFUtil::CFDictMakeMutable();
  set(reply, "requestID", id->str());
  set(reply, "result", 0);
  post(name("publish result"), CFSTR("app"), reply.get());
  EXPECT_TRUE(client->asyncWaitForReply(id, 20));
}

TEST_F(StorageFaultsTest, ClientsKilledAtRandomLeaveTheServerServing) {
  const ServerProcess server;
  std::mt19937 random(7);  // NOLINT(cert-msc51-cpp,cert-msc32-c): the same run every time
  std::vector<std::unique_ptr<ChildProcess>> clients;
  const auto ask = [](const std::function<void()>& ready) {
    const auto own = plinth::makeShared<CDNSharedStorageClient>();
    ready();
    for (;;) {
      own->asyncPublish(folderURL("/srv/more"), CSTR("app"), 0);
      own->publish(folderURL("/srv/films"), CSTR("app"), 0);
      own->unpublish(folderURL("/srv/films"), CSTR("app"), 0);
    }
  };
  for (int i = 0; i < 4; ++i) clients.push_back(std::make_unique<ChildProcess>(ask));
  const auto client = plinth::makeShared<CDNSharedStorageClient>();
  for (int round = 0; round < 25; ++round) {
    const std::size_t victim = random() % clients.size();
    clients[victim] = std::make_unique<ChildProcess>(ask);
    ::usleep(static_cast<useconds_t>(random() % 3000));
    client->processTerminated(42);
    EXPECT_TRUE(client->asyncWaitForReply(asyncPublish(*client), 20)) << "after " << round << " victims";
  }
  clients.clear();
  EXPECT_TRUE(server.isRunning());
  EXPECT_EQ(client->getServerPort(), 2049);
}

// A server whose storage counts as the real ones do: what the dead clients took can be given back for them.
TEST_F(StorageFaultsTest, CountsOfKilledClientsAreNeverNegative) {
  auto storage = plinth::makeShared<ScriptedStorage>();
  tovan::CSharedStoragePublishedEntry entry(CFSTR("keeper"), CFSTR("/srv/films"), 1);
  int lowest = 1;
  int taken = 0;
  storage->then = [&](const std::string& line) {
    const auto pid = std::stol(line.substr(line.rfind(' ') + 1));
    if (line.rfind("publish ", 0) == 0) entry.addReference(CFSTR("app"), pid);
    if (line.rfind("unpublish ", 0) == 0) entry.deleteReference(CFSTR("app"), pid);
    if (line.rfind("publish ", 0) == 0) ++taken;
    lowest = std::min(lowest, entry.refCount());
  };
  const auto server = plinth::makeShared<tovan::CDNSharedStorageServer>(storage);
  std::vector<pid_t> dead;
  for (int round = 0; round < 8; ++round) {
    ChildProcess client([](const std::function<void()>& ready) {
      const auto own = plinth::makeShared<CDNSharedStorageClient>();
      ready();
      for (;;) {
        own->publish(folderURL("/srv/films"), CSTR("app"), 0);
        own->unpublish(folderURL("/srv/films"), CSTR("app"), 0);
        own->asyncPublish(folderURL("/srv/films"), CSTR("app"), 0);
      }
    });
    const int before = taken;
    EXPECT_TRUE(runLoopUntil([&] { return taken >= before + 5 + round; }));
    dead.push_back(client.pid());
    client.kill();
  }
  // What the dead had posted is with the server by now: it comes before what is posted from here.
  NotificationLog heard;
  heard.observe(CFSTR("Settled2"), nullptr);
  post(CFSTR("Settled2"), nullptr);
  ASSERT_TRUE(heard.await(1));
  EXPECT_GE(lowest, 1) << "the keeper's reference went with another's";
  const std::string console = consoleOf([&] {
    for (const pid_t pid : dead) {
      for (int before = entry.refCount(); entry.deleteReference(CFSTR("app"), pid) < before;) before = entry.refCount();
    }
  });
  EXPECT_EQ(entry.refCount(), 1) << console;
}

}  // namespace
