// The administrator's configuration and its options.
#include "tools/exports/configuration.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tools/exports/options.h"

namespace {

using exports::Configuration;
using exports::ConfigurationError;
using exports::readConfiguration;
using exports::readOptions;

std::string refusalOf(const std::string& text) {
  try {
    readConfiguration(text);
  } catch (const ConfigurationError& error) {
    return error.what();
  }
  return "";
}

TEST(ExportConfigurationTest, AnEmptyFileNamesNoHost) {
  for (const char* const text : {"", "\n", "# host = node1 rw\n", "   # comment"}) {
    const Configuration configuration = readConfiguration(text);
    EXPECT_TRUE(configuration.clients.empty()) << text;
    EXPECT_EQ(configuration.server, exports::Server::kernel);
  }
}

TEST(ExportConfigurationTest, EveryKeyIsRead) {
  const Configuration configuration = readConfiguration(
      "host = 192.0.2.0/24 rw,all_squash\n"
      "host=node1\n"
      "folder = /srv/a folder/\n"
      "\tfolder = /srv/b  \n"
      "exports = /home/u/Library/Application Support/Lumisphere/exports\n"
      "server = ganesha\nganesha-port = 12049\nganesha-pid-file = /run/g.pid");
  ASSERT_EQ(configuration.clients.size(), 2U);
  EXPECT_EQ(configuration.clients[0].host, "192.0.2.0/24");
  EXPECT_EQ(configuration.clients[0].options,
            (std::vector<std::string>{"rw", "all_squash", "sync", "secure", "no_subtree_check"}));
  EXPECT_EQ(configuration.clients[1].options,
            (std::vector<std::string>{"ro", "sync", "secure", "root_squash", "no_subtree_check"}));
  EXPECT_EQ(configuration.folders, (std::vector<std::string>{"/srv/a folder", "/srv/b"}));
  EXPECT_EQ(configuration.exportsFile, "/home/u/Library/Application Support/Lumisphere/exports");
  EXPECT_EQ(configuration.server, exports::Server::ganesha);
  EXPECT_EQ(configuration.ganeshaPort, 12049);
  EXPECT_EQ(configuration.ganeshaPidFile, "/run/g.pid");
}

TEST(ExportConfigurationTest, TheWorldIsRefusedWithItsLine) {
  const std::string reason = refusalOf("# hosts\n\nhost = * rw\n");
  EXPECT_NE(reason.find("line 3: host \"\\052\": that is the whole world"), std::string::npos) << reason;
  EXPECT_NE(refusalOf("host = 0.0.0.0/0 ro"), "");
  EXPECT_NE(refusalOf("host = node1 rw\nhost = ::/0"), "");
}

TEST(ExportConfigurationTest, WhatIsNotUnderstoodIsRefused) {
  for (const char* const text :
       {"host", "host =", "hosts = node1", "Host = node1", "host = node1 rw ro", "host = node1 (rw)",
        "host = node1(rw)", "host = node1 rw\nhost = node1 ro", "server = both", "server = kernel\nserver = kernel",
        "ganesha-port = 0", "ganesha-port = 65536", "ganesha-port = 20x", "folder = srv", "folder = /",
        "folder = /srv/..", "exports = here", "host = node1\r\n", "= x"}) {
    EXPECT_NE(refusalOf(text), "") << text;
  }
}

TEST(ExportOptionsTest, AnUnknownOptionIsRefusedByName) {
  EXPECT_NE(readOptions("rw,intr").reason.find("\"intr\""), std::string::npos);
  for (const char* const text : {"rw,,sync", "RW", "fsid=0", "fsid=root", "refer=/x@y", "anonuid=", "anonuid=-1",
                                 "anonuid=x", "sec=", "sec=none", "sec=sys:", "rw)", "-rw", "mp=/x", ","}) {
    EXPECT_NE(readOptions(text).reason, "") << text;
  }
}

TEST(ExportOptionsTest, ContradictionsAreRefused) {
  for (const char* const text : {"ro,rw", "rw,sync,async", "secure,insecure", "all_squash,no_root_squash",
                                 "anonuid=1,anonuid=2", "sec=sys,sec=krb5"}) {
    EXPECT_NE(readOptions(text).reason, "") << text;
  }
  EXPECT_EQ(readOptions("rw,rw").reason, "");
}

TEST(ExportOptionsTest, TheIdentifierOfAPathIsItsOwnAndStays) {
  EXPECT_EQ(exports::identifierOption("/srv/a"), exports::identifierOption("/srv/a"));
  EXPECT_NE(exports::identifierOption("/srv/a"), exports::identifierOption("/srv/b"));
  EXPECT_EQ(exports::identifierOption("/srv/a").size(), std::string("fsid=").size() + 36);
  EXPECT_EQ(exports::optionsText({"rw", "fsid=path"}, "/srv/a"), "rw," + exports::identifierOption("/srv/a"));
}

}  // namespace
