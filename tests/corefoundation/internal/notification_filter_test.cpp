// What the bus is asked to send here: the rules in force, as the bus itself tells them.
#include <CoreFoundation/CFNotificationCenter.h>
#include <gtest/gtest.h>
#include <systemd/sd-bus.h>

#include <memory>
#include <set>
#include <string>

#include "platform/corefoundation/bus_connection.h"
#include "tests/support/notification_log.h"
#include "tests/support/private_bus.h"

namespace {

using test::NotificationLog;
using Rules = std::multiset<std::string>;

// What tells one rule of the centre's from another: its arguments.
std::string shortened(const std::string& rule) {
  if (rule.find("DistributedNotifications1") == std::string::npos) return rule;
  const std::size_t argument = rule.find("arg");
  return argument == std::string::npos ? "all" : rule.substr(argument);
}

class NotificationFilterTest : public ::testing::Test {
 protected:
  void SetUp() override {
    int error = 0;
    asking_ = cf::BusConnection::open(bus_.address(), cf::monotonicNow() + 20000000000, error);
    ASSERT_NE(asking_, nullptr) << error;
    if (rules().count("nothing is told") != 0) GTEST_SKIP() << "this bus does not tell its rules";
  }
  // Of all connections.
  Rules rules() const {
    sd_bus_message* made = nullptr;
    if (sd_bus_call_method(asking_->get(), "org.freedesktop.DBus", "/org/freedesktop/DBus",
                           "org.freedesktop.DBus.Debug.Stats", "GetAllMatchRules", nullptr, &made, nullptr) < 0) {
      return {"nothing is told"};
    }
    const cf::BusMessage answer(made);
    Rules all;
    EXPECT_GE(sd_bus_message_enter_container(made, 'a', "{sas}"), 0);
    while (sd_bus_message_enter_container(made, 'e', "sas") > 0) {
      EXPECT_GE(sd_bus_message_skip(made, "s"), 0);
      EXPECT_GE(sd_bus_message_enter_container(made, 'a', "s"), 0);
      for (const char* rule = nullptr; sd_bus_message_read(made, "s", &rule) > 0;) all.insert(shortened(rule));
      EXPECT_GE(sd_bus_message_exit_container(made), 0);
      EXPECT_GE(sd_bus_message_exit_container(made), 0);
    }
    return all;
  }
  // A rule that is given up goes without waiting for the bus.
  void expectRules(const Rules& expected, const char* when) const {
    EXPECT_TRUE(test::runLoopUntil([&] { return rules() == expected; }, 5))
        << when << ": " << ::testing::PrintToString(rules());
  }
  const CFNotificationCenterRef center_ = CFNotificationCenterGetDistributedCenter();

 private:
  test::PrivateBus bus_;
  std::unique_ptr<cf::BusConnection> asking_;
};

TEST_F(NotificationFilterTest, TheBusIsAskedForWhatIsObservedAndNothingElse) {
  NotificationLog first, second;
  first.observe(CFSTR("A2"), CFSTR("one"));
  first.observe(CFSTR("A2"), nullptr);
  second.observe(CFSTR("A2"), CFSTR("one"));
  const Rules both{"arg0='A2'", "arg0='A2',arg1='one'"};
  EXPECT_EQ(rules(), both) << "in force when the observer is added, once for two of a kind";
  CFNotificationCenterRemoveObserver(center_, &first, nullptr, CFSTR("one"));
  test::post(CFSTR("A2"), CFSTR("one"));
  ASSERT_TRUE(second.await(1));
  EXPECT_EQ(rules(), both) << "the other one of the kind is still there";
  CFNotificationCenterRemoveEveryObserver(center_, &second);
  expectRules({"arg0='A2'"}, "without the second");
  CFNotificationCenterRemoveEveryObserver(center_, &first);
  expectRules({}, "without both");
  second.observe(nullptr, CFSTR("one"));
  first.observe(nullptr, nullptr);
  EXPECT_EQ(rules(), (Rules{"all", "arg1='one'"}));
}

}  // namespace
