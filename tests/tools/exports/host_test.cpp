// Nothing is exported to everyone, in whatever words it is asked for.
#include "tools/exports/host.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using exports::reasonAgainstHost;

TEST(ExportHostTest, EveryoneIsRefused) {
  for (const char* const host : {"",
                                 "*",
                                 "**",
                                 "?*",
                                 "*.*",
                                 "0.0.0.0/0",
                                 "::/0",
                                 "0.0.0.0",
                                 "::",
                                 "10.0.0.0/0",
                                 "2000::/0",
                                 "0/0",
                                 "0",
                                 "00",
                                 "0x0",
                                 "0.0",
                                 "0.0.0.0/8",
                                 "::ffff:0:0/96",
                                 "::ffff:0.0.0.0/96",
                                 "::/96",
                                 "0::0/128"}) {
    EXPECT_NE(reasonAgainstHost(host), "") << host;
  }
}

TEST(ExportHostTest, HalvesAndQuartersOfTheWorldAreRefused) {
  for (const char* const host : {"128.0.0.0/1", "64.0.0.0/2", "10.0.0.0/7", "2000::/3", "8000::/1", "fc00::/7"}) {
    EXPECT_NE(reasonAgainstHost(host), "") << host;
  }
}

TEST(ExportHostTest, WhatMayMeanEveryoneIsRefused) {
  for (const char* const host : {"@trusted", "*.org", "node*", "node?.example.org", "[a-z].example.org", "gss/krb5",
                                 "-rw", "*.*.org", "*.example.*", "10.1", "127.1", "1.2.3.4.5", "node.0x0"}) {
    EXPECT_NE(reasonAgainstHost(host), "") << host;
  }
}

TEST(ExportHostTest, WhatWouldLeaveItsPlaceInTheServersFileIsRefused) {
  for (const char* const host : {"a(rw)",       "a b",
                                 "a\tb",        "a\nb",
                                 "a#b",         "a\"b",
                                 "a\\040b",     "a,b",
                                 "a;b",         "a{b}",
                                 "a..b",        ".a",
                                 "a.",          "-a.b",
                                 "a-.b",        "10.0.0.0/",
                                 "10.0.0.0/ 8", "10.0.0.0/8x",
                                 "10.0.0.0/33", "10.0.0.0/-8",
                                 "fd00::/129",  "10.0.0.0/255.0.0.0",
                                 "host/24"}) {
    EXPECT_NE(reasonAgainstHost(host), "") << host;
  }
}

TEST(ExportHostTest, HostsAndNetworksAreTaken) {
  for (const char* const host : {"localhost", "node1", "node-1.example.org", "*.example.org", "192.0.2.7", "10.0.0.0/8",
                                 "192.0.2.0/24", "fd00:1::/64", "2001:db8::7", "fe80::1", "::1", "127.0.0.1"}) {
    EXPECT_EQ(reasonAgainstHost(host), "") << host;
  }
}

}  // namespace
