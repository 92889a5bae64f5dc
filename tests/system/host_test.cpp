#include "platform/system/host.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

namespace {

using platform::internal::hostsFileNames;
using platform::internal::machineInfoValue;
using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;

std::string hostName() {
  char name[256] = "";
  EXPECT_EQ(::gethostname(name, sizeof name - 1), 0);
  return name;
}

TEST(HostTest, IsCalledByItsPrettyNameOrItsHostName) {
  std::ifstream file("/etc/machine-info");
  std::ostringstream content;
  content << file.rdbuf();
  const std::string pretty = machineInfoValue(content.str(), "PRETTY_HOSTNAME");
  EXPECT_EQ(platform::machineName(), pretty.empty() ? hostName() : pretty);
}

TEST(HostTest, ReadsMachineInfoAsAShellWould) {
  const auto pretty = [](const std::string& content) { return machineInfoValue(content, "PRETTY_HOSTNAME"); };
  EXPECT_EQ(pretty("PRETTY_HOSTNAME=plain"), "plain");
  EXPECT_EQ(pretty("ICON_NAME=x\nPRETTY_HOSTNAME=\"Anna's Büro\"\nCHASSIS=y\n"), "Anna's Büro");
  EXPECT_EQ(pretty("PRETTY_HOSTNAME='a \"b\" \\c'"), "a \"b\" \\c");
  EXPECT_EQ(pretty("PRETTY_HOSTNAME=\"a \\\"b\\\" \\$c\""), "a \"b\" $c");
  EXPECT_EQ(pretty("PRETTY_HOSTNAME=a\\ b c"), "a b");
  EXPECT_EQ(pretty("PRETTY_HOSTNAME=a\r\n"), "a");
  EXPECT_EQ(pretty("  PRETTY_HOSTNAME=indented"), "indented");
  EXPECT_EQ(pretty("PRETTY_HOSTNAME=first\nPRETTY_HOSTNAME=last"), "last");
  EXPECT_EQ(pretty("#PRETTY_HOSTNAME=x\nPRETTY_HOSTNAME2=y\nNOT_PRETTY_HOSTNAME=z\n"), "");
  EXPECT_EQ(pretty("PRETTY_HOSTNAME"), "");
  EXPECT_EQ(pretty("PRETTY_HOSTNAME="), "");
  EXPECT_EQ(pretty("PRETTY_HOSTNAME=\"open"), "open");
  EXPECT_EQ(pretty(""), "");
}

TEST(HostTest, TakesNamesFromTheLinesThatCarryTheHostsName) {
  const std::string content =
      "127.0.0.1 localhost\n"
      "# 10.0.0.1 box commented\n"
      "10.0.0.2\tbox.example.com   box  alias # remark\n"
      "::1 ip6-localhost box\n"
      "10.0.0.3 boxer\n"
      "10.0.0.4 other box.example.com\n"
      "10.0.0.5\n";
  EXPECT_THAT(hostsFileNames(content, "box"), ElementsAre("box.example.com", "alias", "ip6-localhost"));
  EXPECT_THAT(hostsFileNames(content, "bo"), IsEmpty());
  EXPECT_THAT(hostsFileNames(content, "10.0.0.2"), IsEmpty()) << "an address is no name";
  EXPECT_THAT(hostsFileNames("", "box"), IsEmpty());
}

TEST(HostTest, HasItsHostNameFirstAndEveryNameOnce) {
  const std::vector<std::string> names = platform::hostNames();
  ASSERT_FALSE(names.empty());
  EXPECT_EQ(names.front(), hostName());
  EXPECT_THAT(names, Contains("localhost"));
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()).size(), names.size());
  EXPECT_THAT(names, testing::Not(Contains("")));
}

TEST(HostTest, HasNumericAddressesIPv4First) {
  const std::vector<std::string> addresses = platform::hostAddresses();
  bool isIPv6 = false;
  for (const std::string& address : addresses) {
    in_addr v4;
    in6_addr v6;
    const std::string plain = address.substr(0, address.find('%'));
    const bool is4 = ::inet_pton(AF_INET, plain.c_str(), &v4) == 1;
    const bool is6 = ::inet_pton(AF_INET6, plain.c_str(), &v6) == 1;
    EXPECT_TRUE(is4 || is6) << address;
    EXPECT_FALSE(is4 && isIPv6) << address << " comes after an IPv6 address";
    isIPv6 = isIPv6 || is6;
  }
  EXPECT_EQ(std::set<std::string>(addresses.begin(), addresses.end()).size(), addresses.size());
  std::ifstream flags("/sys/class/net/lo/flags");
  std::string text;
  if (flags >> text && (std::stoul(text, nullptr, 16) & 1) != 0) {
    EXPECT_THAT(addresses, Contains("127.0.0.1")) << "the loopback interface is up";
  }
}

}  // namespace
