#include <tovan/shared_storage.h>

#include "tests/storage/recording_storage.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstring>
#include <new>
#include <string>
#include <type_traits>

namespace {

using plinth::CSharedObject;
using plinth::makeShared;
using test::RecordingStorage;
using tovan::ISharedStorage;
using tovan::ISharedStoragePublisher;
using tovan::ISharedStoragePublisherRef;
using tovan::ISharedStorageRef;
using tovan::ISharedStorageSubscriber;
using tovan::ISharedStorageSubscriberRef;

// Which entry of its class's table a virtual operation is: a pointer to one holds 1 more than the entry's offset.
template <class Operation>
std::ptrdiff_t slotOf(Operation operation) {
  std::ptrdiff_t parts[2];
  static_assert(sizeof operation == sizeof parts);
  std::memcpy(parts, &operation, sizeof parts);
  EXPECT_EQ(parts[0] % static_cast<std::ptrdiff_t>(sizeof(void*)), 1) << "the operation is not virtual";
  return (parts[0] - 1) / static_cast<std::ptrdiff_t>(sizeof(void*)) + 1;
}

// Calls what stands in an entry of an object's table as a destructor.
void destroyThroughSlot(void* object, std::ptrdiff_t slot) {
  using Destructor = void (*)(void*);
  Destructor* table = nullptr;
  std::memcpy(&table, object, sizeof table);
  table[slot - 1](object);
}

TEST(ISharedStoragePublisherTest, OperationsStandInTheirOrder) {
  EXPECT_EQ(slotOf(&ISharedStoragePublisher::publish), 1);
  EXPECT_EQ(slotOf(&ISharedStoragePublisher::unpublish), 2);
  EXPECT_EQ(slotOf(&ISharedStoragePublisher::getServerPort), 3);
  EXPECT_EQ(slotOf(&ISharedStoragePublisher::processTerminated), 4);
  EXPECT_EQ(slotOf(&ISharedStoragePublisher::getPublishedMap), 5);
}

TEST(ISharedStorageSubscriberTest, OperationsStandInTheirOrder) {
  EXPECT_EQ(slotOf(&ISharedStorageSubscriber::subscribe), 1);
  EXPECT_EQ(slotOf(&ISharedStorageSubscriber::unsubscribe), 2);
  EXPECT_EQ(slotOf(&ISharedStorageSubscriber::processTerminated), 3);
  EXPECT_EQ(slotOf(&ISharedStorageSubscriber::getSubscribedMap), 4);
}

TEST(ISharedStorageTest, SubscriberOperationsFollowThePublishers) {
  EXPECT_EQ(slotOf(&ISharedStorage::publish), 1);
  EXPECT_EQ(slotOf(&ISharedStorage::processTerminated), 4) << "it has the publisher's place only";
  EXPECT_EQ(slotOf(&ISharedStorage::getPublishedMap), 5);
  // The destructor has two entries, one of which also frees.
  EXPECT_EQ(slotOf(&ISharedStorage::subscribe), 8);
  EXPECT_EQ(slotOf(&ISharedStorage::unsubscribe), 9);
  EXPECT_EQ(slotOf(&ISharedStorage::getSubscribedMap), 10);
}

TEST(ISharedStorageTest, DestructorComesLastInBothTables) {
  for (const bool asPublisher : {true, false}) {
    alignas(RecordingStorage) std::byte memory[sizeof(RecordingStorage)];
    std::string seen;
    auto* const storage = new (memory) RecordingStorage(seen);
    ISharedStoragePublisher* const publisher = storage;
    ISharedStorageSubscriber* const subscriber = storage;
    if (asPublisher) {
      destroyThroughSlot(publisher, 6);
    } else {
      destroyThroughSlot(subscriber, 5);
    }
    EXPECT_EQ(seen, "destroyed ") << (asPublisher ? "publisher" : "subscriber");
  }
}

TEST(ISharedStorageTest, PublisherIsItsFirstBase) {
  std::string seen;
  const ISharedStorageRef storage(new RecordingStorage(seen));
  const ISharedStoragePublisher* const publisher = storage.get();
  const ISharedStorageSubscriber* const subscriber = storage.get();
  EXPECT_EQ(static_cast<const void*>(publisher), static_cast<const void*>(storage.get()));
  EXPECT_NE(static_cast<const void*>(subscriber), static_cast<const void*>(storage.get()));
}

TEST(ISharedStorageTest, OneObjectIsCountedOnceHoweverItIsReferenced) {
  std::string seen;
  ISharedStorageRef storage(new RecordingStorage(seen));
  const CSharedObject* const fromPublisher = static_cast<ISharedStoragePublisher*>(storage.get());
  const CSharedObject* const fromSubscriber = static_cast<ISharedStorageSubscriber*>(storage.get());
  EXPECT_EQ(fromPublisher, fromSubscriber);

  ISharedStoragePublisherRef publisher(storage);
  EXPECT_EQ(storage->GetRetainCount(), 2);
  ISharedStorageSubscriberRef subscriber(storage);
  EXPECT_EQ(publisher->GetRetainCount(), 3);
  EXPECT_EQ(subscriber->GetRetainCount(), 3);
  storage = nullptr;
  publisher = nullptr;
  EXPECT_EQ(subscriber->GetRetainCount(), 1);
  EXPECT_EQ(seen, "");
  subscriber = nullptr;
  EXPECT_EQ(seen, "destroyed ");
}

TEST(ISharedStorageTest, SidesLeadBackToTheWhole) {
  std::string seen;
  const ISharedStorageRef storage(new RecordingStorage(seen));
  const ISharedStorageSubscriberRef subscriber(storage);
  EXPECT_EQ(ISharedStorageRef(subscriber).get(), storage.get());
  EXPECT_EQ(ISharedStorageRef(ISharedStoragePublisherRef(storage)).get(), storage.get());
}

TEST(ISharedStorageTest, EitherSideReachesTheSameOperations) {
  std::string seen;
  const ISharedStorageRef storage(new RecordingStorage(seen));
  const ISharedStoragePublisherRef publisher(storage);
  const ISharedStorageSubscriberRef subscriber(storage);
  EXPECT_EQ(publisher->publish(nullptr, nullptr, 1), 0);
  publisher->unpublish(nullptr, nullptr, 1);
  publisher->processTerminated(2);
  subscriber->subscribe(nullptr, nullptr, nullptr, 1);
  subscriber->unsubscribe(nullptr, nullptr, nullptr, 1);
  subscriber->processTerminated(3);
  storage->processTerminated(4);
  EXPECT_EQ(publisher->getServerPort(), 2049);
  EXPECT_EQ(seen, "publish unpublish terminated:2 subscribe unsubscribe terminated:3 terminated:4 ");
}

TEST(ISharedStorageTest, MapsAreEmptyUnlessAnImplementationKeepsThem) {
  std::string seen;
  const ISharedStorageRef storage(new RecordingStorage(seen));
  EXPECT_TRUE(storage->getPublishedMap().empty());
  EXPECT_TRUE(storage->getSubscribedMap().empty());
  EXPECT_TRUE(ISharedStorageSubscriberRef(storage)->getSubscribedMap().empty());
}

TEST(SharedStorageMapTest, IsOrderedByTheBytesOfTheKey) {
  tovan::CSharedStoragePublishedMap map;
  for (const char* const key : {"/\xc3\xa4", "/z", "/a/b", "/a", "/A"}) {
    map.emplace(key, tovan::CSharedStoragePublishedEntry(CFSTR("app"), CFSTR("/a"), 1));
  }
  std::string order;
  for (const auto& [key, entry] : map) order += key + " ";
  EXPECT_EQ(order, "/A /a /a/b /z /\xc3\xa4 ");
}

TEST(SharedStorageClassesTest, InterfacesShareTheCountedBaseAndEntriesOwnTheirs) {
  // A virtual base cannot be cast down from; a plain one can.
  static_assert(std::is_abstract_v<ISharedStoragePublisher> && std::is_abstract_v<ISharedStorageSubscriber>);
  static_assert(std::is_abstract_v<ISharedStorage>);
  static_assert(std::is_convertible_v<ISharedStorage*, CSharedObject*>, "one base only, or this would be ambiguous");
  // An entry's table has nothing but the destructor, so an entry is the base and its fields.
  EXPECT_EQ(sizeof(tovan::CSharedStoragePublishedEntry), sizeof(CSharedObject) + 3 * sizeof(void*));
  EXPECT_EQ(sizeof(tovan::CSharedStorageSubscribedEntry), sizeof(CSharedObject) + 4 * sizeof(void*));
  EXPECT_EQ(makeShared<tovan::CSharedStoragePublishedEntry>(CFSTR("app"), CFSTR("/a"), 1L)->GetRetainCount(), 1);
}

}  // namespace
