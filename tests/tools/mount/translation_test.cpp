#include "tools/mount/translation.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using host_mount::Arguments;

const std::string kNativeOptions = "soft,intr,locallocks";

std::string optionsFor(const std::string& options, const std::string& source = "host:/path",
                       const std::string& version = "") {
  const Arguments arguments = host_mount::mountArguments({"-o", options, source, "/mnt"}, version);
  return arguments.at(3);
}

std::string refusalOfMount(const Arguments& given, const std::string& version = "") {
  try {
    const Arguments arguments = host_mount::mountArguments(given, version);
    return "taken, with options " + arguments.at(3);
  } catch (const host_mount::Refusal& refusal) {
    return refusal.what();
  }
}

std::string refusalOfUmount(const Arguments& given) {
  try {
    return "taken, as " + host_mount::umountArguments(given).back();
  } catch (const host_mount::Refusal& refusal) {
    return refusal.what();
  }
}

TEST(MountTranslationTest, TheWholeCommandLine) {
  EXPECT_EQ(host_mount::mountArguments({"-o", kNativeOptions, "host.local:/srv/media", "/mnt/media"}, ""),
            (Arguments{"-t", "nfs", "-o", "vers=3,soft,nolock,retry=0", "--", "host.local:/srv/media", "/mnt/media"}));
}

TEST(MountTranslationTest, APortNeedsItsTransport) {
  EXPECT_EQ(optionsFor("port=2049,mountport=2049," + kNativeOptions),
            "vers=3,port=2049,mountport=2049,proto=tcp,soft,nolock,retry=0");
  EXPECT_EQ(optionsFor("port=1,mountport=65535," + kNativeOptions),
            "vers=3,port=1,mountport=65535,proto=tcp,soft,nolock,retry=0");
}

TEST(MountTranslationTest, MinusOneIsNoPort) {
  EXPECT_EQ(optionsFor("port=-1,mountport=-1," + kNativeOptions), optionsFor(kNativeOptions));
  EXPECT_EQ(refusalOfMount({"-o", "port=-1,mountport=5", "host:/path", "/mnt"}),
            "\"port\" and \"mountport\" go together");
}

TEST(MountTranslationTest, EachWordAloneIsTranslatedAlone) {
  EXPECT_EQ(optionsFor("soft"), "vers=3,soft,retry=0");
  EXPECT_EQ(optionsFor("intr"), "vers=3,retry=0");
  EXPECT_EQ(optionsFor("locallocks"), "vers=3,nolock,retry=0");
  EXPECT_EQ(optionsFor("mountport=7,port=8"), "vers=3,port=8,mountport=7,proto=tcp,retry=0");
}

TEST(MountTranslationTest, WithoutOptionsAFailureStillComesAtOnce) {
  EXPECT_EQ(host_mount::mountArguments({"host:/path", "/mnt"}, ""),
            (Arguments{"-t", "nfs", "-o", "vers=3,retry=0", "--", "host:/path", "/mnt"}));
}

TEST(MountTranslationTest, VersionFourHasNeitherMountProtocolNorLocalLocks) {
  const std::string withPort = "port=2049,mountport=2049," + kNativeOptions;
  EXPECT_EQ(optionsFor(withPort, "host:/path", "4.2"), "vers=4.2,port=2049,soft,retry=0");
  for (const std::string version : {"4", "4.0", "4.1"}) {
    EXPECT_EQ(optionsFor(kNativeOptions, "host:/path", version), "vers=" + version + ",soft,retry=0");
  }
  EXPECT_EQ(optionsFor(withPort, "host:/path", "3"), optionsFor(withPort, "host:/path", ""));
  for (const std::string version : {"2", "5", "4.3", "3,exec", " 3", "tcp"}) {
    EXPECT_EQ(refusalOfMount({"host:/path", "/mnt"}, version),
              "the NFS version \"" + version + "\" is none of 3, 4, 4.0, 4.1, 4.2");
  }
}

TEST(MountTranslationTest, AnIPv6AddressGetsBracketsAndItsTransport) {
  const std::string withPort = "port=9,mountport=9";
  for (const std::string source : {"fe80::1%eth0:/srv", "[fe80::1%eth0]:/srv"}) {
    const Arguments arguments = host_mount::mountArguments({"-o", withPort, source, "/mnt"}, "");
    EXPECT_EQ(arguments.at(3), "vers=3,port=9,mountport=9,proto=tcp6,retry=0");
    EXPECT_EQ(arguments.at(5), "[fe80::1%eth0]:/srv");
  }
  EXPECT_EQ(host_mount::mountArguments({"fe80:::/srv:/x", "/mnt"}, "").at(5), "[fe80::]:/srv:/x");
}

TEST(MountTranslationTest, WhateverAPathHoldsItStaysOneArgument) {
  for (const std::string text :
       {"a b", "-o exec", "--bind", "\"quoted'", "two\nlines", "$(touch /tmp/x)", "`id`", ";&|<>", "comma,exec,suid",
        "\xFF\xFE", "LABEL=root", "*?[a]", "back\\slash", "h:/p"}) {
    const Arguments mounted = host_mount::mountArguments({"-o", "soft", "host:/" + text, "/" + text}, "");
    EXPECT_EQ(mounted, (Arguments{"-t", "nfs", "-o", "vers=3,soft,retry=0", "--", "host:/" + text, "/" + text}));
    EXPECT_EQ(host_mount::umountArguments({"-f", "/" + text}), (Arguments{"-f", "--", "/" + text}));
    // A relative one is neither an option nor a tag.
    EXPECT_EQ(host_mount::mountArguments({"host:/path", text}, "").back(), "./" + text);
    EXPECT_EQ(host_mount::umountArguments({"-f", text}).back(), "./" + text);
  }
}

TEST(MountTranslationTest, UnknownOptionsAreRefusedByName) {
  for (const std::string option :
       {"exec", "suid", "SOFT", "soft=1", "port", "mountport", "retry=5", "soft ", "-o", ""}) {
    EXPECT_EQ(refusalOfMount({"-o", "intr," + option, "host:/path", "/mnt"}), "unknown option \"" + option + "\"");
  }
  EXPECT_EQ(refusalOfMount({"-o", "", "host:/path", "/mnt"}), "unknown option \"\"");
  EXPECT_EQ(refusalOfMount({"-o", "soft,", "host:/path", "/mnt"}), "unknown option \"\"");
  EXPECT_EQ(refusalOfMount({"-o", "so\nft", "host:/path", "/mnt"}), "unknown option \"so\\012ft\"");
}

TEST(MountTranslationTest, PortsAreNumbersInAPair) {
  for (const std::string port : {"0", "65536", "-2", "+1", " 1", "1 ", "1x", "", "0x10", "99999999999999999999"}) {
    EXPECT_EQ(refusalOfMount({"-o", "port=" + port + ",mountport=1", "host:/path", "/mnt"}),
              "the option \"port=" + port + "\" is no port between 1 and 65535");
  }
  EXPECT_EQ(refusalOfMount({"-o", "port=1", "host:/path", "/mnt"}), "\"port\" and \"mountport\" go together");
  EXPECT_EQ(refusalOfMount({"-o", "mountport=1", "host:/path", "/mnt"}), "\"port\" and \"mountport\" go together");
  EXPECT_EQ(refusalOfMount({"-o", "port=1,mountport=1,port=2", "host:/path", "/mnt"}),
            "the option \"port\" comes twice");
  EXPECT_EQ(refusalOfMount({"-o", "soft,soft", "host:/path", "/mnt"}), "the option \"soft\" comes twice");
}

TEST(MountTranslationTest, OtherCommandLinesAreRefused) {
  const std::vector<Arguments> others = {{},
                                         {"host:/path"},
                                         {"-a"},
                                         {"--help"},
                                         {"-o", "soft", "host:/path"},
                                         {"-t", "nfs", "host:/path", "/mnt"},
                                         {"host:/path", "/mnt", "-o", "soft"},
                                         {"-o", "soft", "host:/path", "/mnt", "/more"},
                                         {"-osoft", "host:/path", "/mnt"}};
  for (const Arguments& given : others) {
    EXPECT_EQ(refusalOfMount(given), "wrong arguments") << testing::PrintToString(given);
  }
  EXPECT_EQ(refusalOfMount({"-o", "soft"}), "the source \"-o\" is not HOST:/PATH");
  EXPECT_EQ(refusalOfMount({"host:/path", ""}), "the mount point is empty");
}

TEST(MountTranslationTest, ASourceThatIsNoHostAndPathIsRefused) {
  for (const std::string source : {"", "host", "/dev/sda1", "host:path", "host:", "LABEL=root"}) {
    EXPECT_EQ(refusalOfMount({source, "/mnt"}), "the source \"" + source + "\" is not HOST:/PATH");
  }
  for (const std::string source : {":/path", "-host:/path", "--bind:/path", "LABEL=root:/path", "one,two:/path",
                                   "/a:/path", "a b:/path", "[]:/path", "[::1:/path", "'h':/path"}) {
    EXPECT_EQ(refusalOfMount({source, "/mnt"}), "the source \"" + source + "\" begins with no host name");
  }
}

TEST(UmountTranslationTest, TakesAForcedUnmountOfOneFolder) {
  EXPECT_EQ(host_mount::umountArguments({"-f", "/mnt/media"}), (Arguments{"-f", "--", "/mnt/media"}));
  const std::vector<Arguments> others = {{},
                                         {"/mnt"},
                                         {"-f"},
                                         {"-l", "/mnt"},
                                         {"-a", "/mnt"},
                                         {"-fl", "/m"},
                                         {"/mnt", "-f"},
                                         {"-f", "/", "/"},
                                         {"-f", "--", "/mnt"}};
  for (const Arguments& given : others) {
    EXPECT_EQ(refusalOfUmount(given), "wrong arguments") << testing::PrintToString(given);
  }
  EXPECT_EQ(refusalOfUmount({"-f", ""}), "the mount point is empty");
}

}  // namespace
