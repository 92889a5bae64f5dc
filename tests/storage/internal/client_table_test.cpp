// Tables that no sequence of operations leads to: a counter that fell behind its references.
#include "storage/client_table.h"

#include "tests/plist/plist_support.h"

#include <tovan/cf_util.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using test::consoleOf;
using test::describe;
using ::testing::EndsWith;
using tovan::CFUtil;
using tovan::ClientTable;

ClientTable::Table tableWith(std::int32_t total, std::int32_t ticks) {
  ClientTable::Table table = CFUtil::CFDictMakeMutable();
  CFUtil::CFDictSetInt(table.get(), CFSTR("_totalRefCount"), total);
  CFUtil::CFDictSetInt(table.get(), CFSTR("_returnedRefTicks"), ticks);
  return table;
}

void addClient(const ClientTable::Table& table, CFStringRef client) {
  const plinth::CSharedCFRef<CFMutableArrayRef> pids = CFUtil::CFArrayMakeMutable();
  CFUtil::CFArrayAppendInt(pids.get(), 100);
  CFUtil::CFDictSet(table.get(), client, pids.get());
}

TEST(ClientTableTest, FreshTableHoldsTheTwoCountersOnly) {
  ClientTable::Table table;
  ClientTable(table, "Owner").reset();
  EXPECT_EQ(describe(table), "{_returnedRefTicks: 0, _totalRefCount: 0}");
}

TEST(ClientTableTest, ResettingPutsANewDictionaryIntoTheEntry) {
  ClientTable::Table table = tableWith(3, 1);
  const ClientTable::Table before = table;
  ClientTable(table, "Owner").reset();
  EXPECT_NE(table.get(), before.get());
  EXPECT_EQ(describe(before), "{_returnedRefTicks: 1, _totalRefCount: 3}");
}

TEST(ClientTableTest, NothingIsGivenBackWhenNothingIsLive) {
  for (const std::int32_t ticks : {1, 2}) {
    ClientTable::Table table = tableWith(1, ticks);
    addClient(table, CFSTR("app"));
    const std::string before = describe(table);
    std::int32_t result = 7;
    for (const long pid : {100L, -1L, 7L}) {
      const std::string console =
          consoleOf([&] { result = ClientTable(table, "Owner").deleteReference(CFSTR("app"), pid); });
      EXPECT_THAT(console,
                  EndsWith("] Owner::deleteReference: entry for client = app doesn't have any ticks left (PID = " +
                           std::to_string(pid) + ")\n"));
      EXPECT_EQ(result, 1 - ticks);
      EXPECT_EQ(describe(table), before);
    }
  }
}

TEST(ClientTableTest, CountersThatAreMissingAreZero) {
  ClientTable::Table table = CFUtil::CFDictMakeMutable();
  EXPECT_EQ(ClientTable::liveCount(table), 0);
  EXPECT_EQ(ClientTable(table, "Owner").addReference(CFSTR("app"), 100), 1);
  EXPECT_EQ(describe(table), "{_totalRefCount: 1, app: [100]}");
}

TEST(ClientTableTest, DeletingAProcessResetsATableWhoseTicksReachedItsTotal) {
  ClientTable::Table table = tableWith(2, 2);
  ClientTable(table, "Owner").deleteReferences();
  EXPECT_EQ(describe(table), "{_returnedRefTicks: 0, _totalRefCount: 0}");
}

TEST(ClientTableTest, DeletingAProcessKeepsATableThatIsNotUsedUp) {
  for (const auto& [total, ticks] : {std::pair{2, 1}, std::pair{0, 0}, std::pair{1, 2}}) {
    ClientTable::Table table = tableWith(total, ticks);
    const ClientTable::Table before = table;
    ClientTable(table, "Owner").deleteReferences();
    EXPECT_EQ(table.get(), before.get()) << total << ", " << ticks;
  }
}

TEST(ClientTableTest, DeletingAProcessKeepsAUsedUpTableThatHasAClient) {
  ClientTable::Table table = tableWith(1, 1);
  addClient(table, CFSTR("app"));
  ClientTable(table, "Owner").deleteReferences();
  EXPECT_EQ(describe(table), "{_returnedRefTicks: 1, _totalRefCount: 1, app: [100]}");
}

}  // namespace
