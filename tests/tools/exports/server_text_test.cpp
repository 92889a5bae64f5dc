// What is written for the servers, and what the kernel's says in return.
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <vector>

#include "tools/exports/ganesha_exports.h"
#include "tools/exports/linux_exports.h"
#include "tools/exports/path_text.h"
#include "tools/exports/report.h"

namespace {

using exports::Configuration;
using exports::isServed;
using exports::readServed;

const std::string kHead = "# Written by tovan-exports, which replaces it: do not edit.\n";

TEST(LinuxExportsTest, EachFolderIsOneLineWithEveryClient) {
  EXPECT_EQ(exports::linuxExports({"/srv/my folder", "/srv/b"}, {{"node1", {"rw", "sync"}}, {"10.0.0.0/8", {"ro"}}}),
            kHead + "/srv/my\\040folder node1(rw,sync) 10.0.0.0/8(ro)\n/srv/b node1(rw,sync) 10.0.0.0/8(ro)\n");
}

TEST(LinuxExportsTest, WithoutClientsThereIsNoLineForAPathAloneIsForEveryone) {
  EXPECT_EQ(exports::linuxExports({"/srv/a"}, {}), kHead);
}

TEST(LinuxExportsTest, WhatLinuxReadsOtherwiseIsEscapedInOctal) {
  EXPECT_EQ(exports::octalText("/a b\tc\nd\"e\\f#g"), "/a\\040b\\011c\\012d\\042e\\134f\\043g");
  EXPECT_EQ(exports::octalText("/\xc3\xbc"), "/\\303\\274");
}

TEST(LinuxExportsTest, AFolderThatIsNamedLikeAnEscapeIsNoOtherFolder) {
  for (const char* const path : {"/srv/\\056\\056/etc", "/srv/\\040", "/srv/\\\\134", "/srv/\\7"}) {
    EXPECT_NE(exports::reasonAgainstLinuxPath(path), "") << path;
    EXPECT_EQ(exports::linuxExports({path}, {{"node1", {"ro"}}}), kHead) << path;
  }
  for (const char* const path : {"/srv/a\\b", "/srv/\\8", "/srv/040", "/srv/a\\", "/srv/\\\\"}) {
    EXPECT_EQ(exports::reasonAgainstLinuxPath(path), "") << path;
  }
}

TEST(LinuxExportsTest, EveryByteComesBackFromItsEscape) {
  std::string bytes;
  for (int byte = 0; byte < 256; ++byte) bytes += static_cast<char>(byte);
  EXPECT_EQ(exports::bytesOfOctalText(exports::octalText(bytes)), bytes);
  EXPECT_EQ(exports::bytesOfOctalText("\\8\\40\\400"), "\\8\\40\\400");
}

TEST(LinuxExportsTest, TheServersListIsReadAndComparedWithWhatWasMeant) {
  const auto served = readServed(
      "/srv/a\\040b\tnode1(rw,sync,wdelay,secure,root_squash,no_all_squash,sec=sys,rw)\n"
      "nonsense\n/srv/c\tnode2(ro,sync\n\n/srv/d\tnode1(ro,sync,root_squash)\n");
  ASSERT_EQ(served.size(), 2U);
  EXPECT_TRUE(isServed(served, "/srv/a b", "node1", {"rw", "sync", "root_squash"}));
  EXPECT_FALSE(isServed(served, "/srv/a b", "node1", {"ro", "sync"})) << "it is served wider than meant";
  EXPECT_FALSE(isServed(served, "/srv/a b", "node2", {"rw"}));
  EXPECT_FALSE(isServed(served, "/srv/a", "node1", {"rw"}));
  EXPECT_FALSE(isServed(served, "/srv/d", "node1", {"ro", "all_squash"}));
}

TEST(GaneshaExportsTest, AnExportHasNoAccessButForItsClients) {
  Configuration configuration;
  configuration.ganeshaPort = 12049;
  configuration.clients = {{"node1", {"rw", "insecure", "no_root_squash", "anonuid=7", "sec=sys:krb5"}},
                           {"10.0.0.0/8", {"ro", "secure", "all_squash"}}};
  const std::string text = exports::ganeshaExports({"/srv/a b"}, configuration);
  const std::size_t start = text.find("EXPORT {");
  ASSERT_NE(start, std::string::npos);
  EXPECT_NE(text.find("NFS_Port = 12049;"), std::string::npos);
  EXPECT_EQ(text.substr(text.find("  Path", start)),
            "  Path = \"/srv/a b\";\n  Pseudo = \"/srv/a b\";\n"
            "  Access_Type = NONE;\n  Squash = Root_Squash;\n  SecType = sys;\n  Protocols = 4;\n  Transports = TCP;\n"
            "  CLIENT { Clients = node1; Access_Type = RW; Squash = No_Root_Squash; PrivilegedPort = false; "
            "Anonymous_Uid = 7; SecType = sys,krb5; Protocols = 4; Transports = TCP; }\n"
            "  CLIENT { Clients = 10.0.0.0/8; Access_Type = RO; Squash = All_Squash; PrivilegedPort = true; "
            "SecType = sys; Protocols = 4; Transports = TCP; }\n"
            "  FSAL { Name = VFS; }\n}\n");
}

TEST(GaneshaExportsTest, WithoutClientsThereIsNoExport) {
  EXPECT_EQ(exports::ganeshaExports({"/srv/a"}, {}).find("EXPORT"), std::string::npos);
}

TEST(GaneshaExportsTest, APathWithoutAFormIsLeftOut) {
  Configuration configuration;
  configuration.clients = {{"node1", {"ro"}}};
  for (const char* const path : {"/srv/a\"b", "/srv/a\\b", "/srv/a\nb", "/srv/a\x7f"}) {
    EXPECT_NE(exports::reasonAgainstGaneshaPath(path), "");
    EXPECT_EQ(exports::ganeshaExports({path}, configuration).find("EXPORT"), std::string::npos);
  }
  EXPECT_EQ(exports::reasonAgainstGaneshaPath("/srv/#it's \xc3\xbc"), "");
}

TEST(GaneshaExportsTest, AnExportKeepsItsNumberWhenAnotherOneComes) {
  Configuration configuration;
  configuration.clients = {{"node1", {"ro"}}};
  const auto numberOf = [&](const std::vector<std::string>& folders) {
    const std::string text = exports::ganeshaExports(folders, configuration);
    const std::size_t end = text.find(";\n  Path = \"/srv/m\"");
    return text.substr(text.rfind(' ', end), end - text.rfind(' ', end));
  };
  EXPECT_EQ(numberOf({"/srv/m"}), numberOf({"/srv/z", "/srv/a", "/srv/m"}));
}

TEST(ExportReportTest, WhatIsNotServedAndWhatIsSkippedMakeItIncomplete) {
  exports::Report report;
  EXPECT_EQ(exports::exitCodeOf(report), exports::kDone);
  report.folders = 1;
  EXPECT_EQ(exports::exitCodeOf(report), exports::kIncomplete) << "a folder and no host";
  report.exports = {{"/srv/a b", "node1", "ro", false}};
  EXPECT_EQ(exports::exitCodeOf(report), exports::kDone) << "not known";
  report.isReadBack = true;
  EXPECT_EQ(exports::exitCodeOf(report), exports::kIncomplete);
  EXPECT_EQ(exports::textOf(report), "NOT SERVED  /srv/a\\040b  node1(ro)\n");
  report.exports[0].isServed = true;
  EXPECT_EQ(exports::exitCodeOf(report), exports::kDone);
  report.problems = {{"/f", 3, "why"}};
  EXPECT_EQ(exports::exitCodeOf(report), exports::kIncomplete);
  EXPECT_EQ(exports::textOf(report), "exported    /srv/a\\040b  node1(ro)\n/f:3: skipped: why\n");
}

TEST(UnservableFoldersTest, WhatExportfsSaysItCannotServeIsTakenFromItsWords) {
  EXPECT_EQ(exports::unservableFolders("exportfs: /srv/a b does not support NFS export\n"
                                       "exportfs: /srv/c requires fsid= for NFS export\n"
                                       "exportfs: /etc/exports:1: unknown keyword \"x\"\n"
                                       "exportfs:  does not support NFS export\n"
                                       "/srv/d does not support NFS export\n"
                                       "exportfs: /srv/e does not support NFS export at all"),
            (std::set<std::string>{"/srv/a b", "/srv/c"}));
  EXPECT_TRUE(exports::unservableFolders("").empty());
}

}  // namespace
