#include <gtest/gtest.h>
#include <plinth/exception.h>
#include <plinth/url.h>

#include <cerrno>
#include <string>

#include "tests/foundation/plinth_text.h"
#include "tests/support/scratch_home.h"

namespace {

using namespace plinth;
using test::messageOf;
using test::text;

CURLRef fileURL(const char* path, bool isDirectory = false) {
  return makeShared<CURL>(CSTR(path), kCFURLPOSIXPathStyle, isDirectory);
}

CURLRef parsed(const char* urlText) {
  const CSharedCFRef<CFURLRef> url(CFURLCreateWithString(kCFAllocatorDefault, CSTR(urlText)->getStringRef(), nullptr));
  return makeShared<CURL>(url.get());
}

std::string urlText(const CURLRef& url) { return text(url->getString()); }

TEST(CURLTest, IsMadeFromAPath) {
  EXPECT_EQ(urlText(fileURL("/tmp/a file", false)), "file:///tmp/a%20file");
  EXPECT_EQ(urlText(fileURL("/tmp/folder", true)), "file:///tmp/folder/");
  EXPECT_STREQ(fileURL("/tmp")->typeName(), "CURL");
}

TEST(CURLTest, RetainsTheURLItIsMadeFrom) {
  const CSharedCFRef<CFURLRef> source(CFURLCreateWithString(kCFAllocatorDefault, CFSTR("nfs://host/x"), nullptr));
  const CURLRef url = makeShared<CURL>(source.get());
  EXPECT_EQ(url->getURLRef(), source.get());
  EXPECT_EQ(CFGetRetainCount(source.get()), 2);
}

TEST(CURLTest, RefusesWhatIsNoURL) {
  EXPECT_EQ(messageOf<CNullPointerException>([] { makeShared<CURL>(nullptr); }), "Error: url is null!");
  EXPECT_EQ(messageOf<CNullPointerException>([] { makeShared<CURL>(CStringRef(), kCFURLPOSIXPathStyle, false); }),
            "Error: path is null!");
  EXPECT_EQ(messageOf<CParamException>([] { fileURL(""); }), "CURL::CURL(): no URL can be made of it");
  EXPECT_EQ(messageOf<CParamException>([] { makeShared<CURL>(CSTR("a:b"), kCFURLHFSPathStyle, false); }),
            "CURL::CURL(a:b): no URL can be made of it");
}

TEST(CURLTest, AppendsAComponentOrARelativePath) {
  EXPECT_EQ(urlText(fileURL("/tmp", true)->copyAndAppendString(CSTR("a b"), false)), "file:///tmp/a%20b");
  EXPECT_EQ(urlText(fileURL("/tmp", false)->copyAndAppendString(CSTR("a/b/c"), true)), "file:///tmp/a/b/c/");
  EXPECT_EQ(text(fileURL("/tmp", true)->copyAndAppendString(CSTR("\u00e9?#%25"), false)->getFileSystemPath()),
            "/tmp/\u00e9?#%25");
}

TEST(CURLTest, RefusesToAppendNothing) {
  EXPECT_EQ(messageOf<CNullPointerException>([] { fileURL("/tmp")->copyAndAppendString(nullptr, false); }),
            "Error: component is null!");
  EXPECT_EQ(messageOf<CNullPointerException>([] { fileURL("/tmp")->copyAndAppendExtension(nullptr); }),
            "Error: extension is null!");
}

TEST(CURLTest, GivesItsParentAndItsLastComponent) {
  const CURLRef url = fileURL("/tmp/folder/a file.txt");
  EXPECT_EQ(urlText(url->copyWithoutLastPathComponent()), "file:///tmp/folder/");
  EXPECT_EQ(text(url->getLastPathComponent()), "a file.txt");
  EXPECT_EQ(text(fileURL("/tmp/folder", true)->getLastPathComponent()), "folder");
}

TEST(CURLTest, HandlesExtensions) {
  const CURLRef url = fileURL("/tmp/name");
  EXPECT_TRUE(url->getPathExtension().isNull());
  const CURLRef extended = url->copyAndAppendExtension(CSTR("plist"));
  EXPECT_EQ(urlText(extended), "file:///tmp/name.plist");
  EXPECT_EQ(text(extended->getPathExtension()), "plist");
  EXPECT_EQ(urlText(extended->copyWithoutPathExtension()), "file:///tmp/name");
  EXPECT_EQ(urlText(url->copyWithoutPathExtension()), "file:///tmp/name");
  EXPECT_EQ(messageOf<CParamException>([&] { url->copyAndAppendExtension(CSTR("a/b")); }),
            "CURL::copyAndAppendExtension(a/b): no URL can be made of it");
}

TEST(CURLTest, GivesItsPath) {
  EXPECT_EQ(text(fileURL("/tmp/caf\u00e9 \"x\"/")->getFileSystemPath()), "/tmp/caf\u00e9 \"x\"");
  EXPECT_EQ(text(parsed("nfs://host/srv/my%20folder")->getFileSystemPath()), "/srv/my folder");
  EXPECT_TRUE(parsed("file:///tmp/%FF")->getFileSystemPath().isNull());
  EXPECT_TRUE(fileURL("/tmp")->getFileSystemPath(kCFURLHFSPathStyle).isNull());
}

TEST(CURLTest, GivesItsTextWithEscapesOrDecoded) {
  const CURLRef url = parsed("nfs://host/a%20b?c=%C3%A9");
  EXPECT_EQ(text(url->getString()), "nfs://host/a%20b?c=%C3%A9");
  EXPECT_EQ(text(url->getString(false)), "nfs://host/a b?c=\u00e9");
  EXPECT_EQ(text(parsed("file:///%FF")->getString(false)), "file:///%FF");
}

TEST(CURLTest, GivesItsSchemeAndHost) {
  EXPECT_EQ(text(parsed("nfs://user@my.host:2049/x")->getScheme()), "nfs");
  EXPECT_EQ(text(parsed("nfs://user@my.host:2049/x")->getHostName()), "my.host");
  EXPECT_EQ(text(fileURL("/tmp")->getScheme()), "file");
  EXPECT_TRUE(fileURL("/tmp")->getHostName().isNull());
}

TEST(CURLTest, ReplacesItsPathAndKeepsTheRest) {
  const CURLRef url = parsed("nfs://user@host:2049/old/path?port=1#end");
  EXPECT_EQ(urlText(url->copyAndReplaceComponents(nullptr, nullptr, CSTR("/new path"), nullptr)),
            "nfs://user@host:2049/new%20path?port=1#end");
  EXPECT_EQ(urlText(url->copyAndReplaceComponents(nullptr, nullptr, CSTR("relative"), nullptr)),
            "nfs://user@host:2049/relative?port=1#end");
  EXPECT_EQ(urlText(url->copyAndReplaceComponents(nullptr, nullptr, nullptr, nullptr)), urlText(url));
  EXPECT_EQ(urlText(url), "nfs://user@host:2049/old/path?port=1#end");
}

TEST(CURLTest, AReplacedPathIsPlainText) {
  const CURLRef url = parsed("nfs://host/old");
  const CURLRef changed = url->copyAndReplaceComponents(nullptr, nullptr, CSTR("/a?b#c%20;\u00e9"), nullptr);
  EXPECT_EQ(text(changed->getFileSystemPath()), "/a?b#c%20;\u00e9");
  EXPECT_EQ(urlText(changed), "nfs://host/a%3Fb%23c%2520%3B%C3%A9");
}

TEST(CURLTest, ReplacesSchemeHostAndQuery) {
  const CURLRef url = parsed("nfs://user@host:2049/path?a=b");
  EXPECT_EQ(urlText(url->copyAndReplaceComponents(CSTR("kelp"), CSTR("other"), nullptr, CSTR("c=d e&f=%20"))),
            "kelp://user@other:2049/path?c=d%20e&f=%20");
  EXPECT_EQ(urlText(url->copyAndReplaceComponents(nullptr, nullptr, nullptr, CSTR(""))), "nfs://user@host:2049/path");
  EXPECT_EQ(urlText(parsed("nfs://[::1]:20/x")->copyAndReplaceComponents(nullptr, CSTR("fe80::2"), nullptr, nullptr)),
            "nfs://[fe80::2]:20/x");
  EXPECT_EQ(urlText(fileURL("/x")->copyAndReplaceComponents(nullptr, CSTR("host"), nullptr, nullptr)), "file://host/x");
  messageOf<CParamException>([&] { url->copyAndReplaceComponents(CSTR("1 scheme"), nullptr, nullptr, nullptr); });
}

TEST(CURLTest, ReplacesPartsOfTheAbsoluteURL) {
  const CURLRef base = parsed("nfs://host/folder/");
  const CSharedCFRef<CFURLRef> relative(
      CFURLCreateWithString(kCFAllocatorDefault, CFSTR("sub/file?x=1"), base->getURLRef()));
  EXPECT_EQ(
      urlText(makeShared<CURL>(relative.get())->copyAndReplaceComponents(nullptr, CSTR("other"), nullptr, nullptr)),
      "nfs://other/folder/sub/file?x=1");
}

TEST(CURLTest, GivesTheDecodedValueOfAParameter) {
  const CURLRef url = parsed("nfs://host/x?port=2049&name=a%20b%26c&empty=&flag&port=7&%C3%A9=e+e");
  EXPECT_EQ(text(url->getParameterValue(CSTR("port"))), "2049");
  EXPECT_EQ(text(url->getParameterValue(CSTR("name"))), "a b&c");
  EXPECT_EQ(text(url->getParameterValue(CSTR("empty"), CSTR("default"))), "");
  EXPECT_EQ(text(url->getParameterValue(CSTR("flag"), CSTR("default"))), "");
  EXPECT_EQ(text(url->getParameterValue(CSTR("\u00e9"))), "e+e");
}

TEST(CURLTest, AnAbsentParameterGivesTheDefault) {
  const CURLRef url = parsed("nfs://host/x?port=2049");
  EXPECT_TRUE(url->getParameterValue(CSTR("por")).isNull());
  EXPECT_EQ(text(url->getParameterValue(CSTR("Port"), CSTR("0"))), "0");
  EXPECT_EQ(text(parsed("nfs://host/x")->getParameterValue(CSTR("port"), CSTR("0"))), "0");
  EXPECT_EQ(messageOf<CNullPointerException>([&] { url->getParameterValue(nullptr); }), "Error: name is null!");
}

TEST(CURLTest, SetsAndReplacesParameters) {
  const CURLRef url = parsed("nfs://host/x#end");
  url->setParameterValue(CSTR("port"), CSTR("2049"));
  EXPECT_EQ(urlText(url), "nfs://host/x?port=2049#end");
  url->setParameterValue(CSTR("na me"), CSTR("a&b=c#\u00e9+%"));
  EXPECT_EQ(text(url->getParameterValue(CSTR("na me"))), "a&b=c#\u00e9+%");
  url->setParameterValue(CSTR("port"), CSTR("7"));
  EXPECT_EQ(urlText(url), "nfs://host/x?port=7&na%20me=a%26b%3Dc%23%C3%A9%2B%25#end");
}

TEST(CURLTest, AnEmptyHolderTakesAParameterAway) {
  const CURLRef url = parsed("nfs://host/x?a=1&b=2&a=3");
  url->setParameterValue(CSTR("a"), nullptr);
  EXPECT_EQ(urlText(url), "nfs://host/x?b=2");
  url->setParameterValue(CSTR("absent"), nullptr);
  url->setParameterValue(CSTR("b"), nullptr);
  EXPECT_EQ(urlText(url), "nfs://host/x");
}

TEST(CURLTest, ASetParameterShowsInEveryHolderButNotInTheSource) {
  const CSharedCFRef<CFURLRef> source(CFURLCreateWithString(kCFAllocatorDefault, CFSTR("nfs://host/x"), nullptr));
  const CURLRef url = makeShared<CURL>(source.get());
  const CURLRef second = url;
  url->setParameterValue(CSTR("port"), CSTR("1"));
  EXPECT_EQ(urlText(second), "nfs://host/x?port=1");
  EXPECT_EQ(text(CSTR(CFURLGetString(source.get()))), "nfs://host/x");
}

TEST(CURLTest, AURLWithoutAPathHasNoParameters) {
  const CURLRef url = parsed("mailto:someone@example.com");
  EXPECT_EQ(messageOf<CParamException>([&] { url->setParameterValue(CSTR("a"), CSTR("b")); }),
            "CURL::setParameterValue(a): the URL mailto:someone@example.com can't have parameters");
  EXPECT_EQ(urlText(url), "mailto:someone@example.com");
}

TEST(CURLTest, StoresTypeAndCreatorOnTheFile) {
  const std::string path = test::scratchFolder("codes") + "/a file";
  test::writeFile(path, "content");
  const CURLRef url = fileURL(path.c_str());
  EXPECT_EQ(url->getFinderType(), 0u);
  EXPECT_EQ(url->getFinderCreator(), 0u);
  errno = 0;
  if (!url->setFinderTypeAndCreator(0x4D6F6F56, 0x54564F44)) {
    EXPECT_EQ(errno, ENOTSUP) << "on a file system that has such attributes";
    EXPECT_EQ(url->getFinderType(), 0u);
    return;
  }
  EXPECT_EQ(fileURL(path.c_str())->getFinderType(), 0x4D6F6F56u);
  EXPECT_EQ(url->getFinderCreator(), 0x54564F44u);
  EXPECT_EQ(test::readFile(path), "content");
}

TEST(CURLTest, AMissingFileHasNoTypeAndTakesNone) {
  const CURLRef url = fileURL((test::scratchFolder("codes") + "/missing").c_str());
  EXPECT_EQ(url->getFinderType(), 0u);
  EXPECT_FALSE(url->setFinderTypeAndCreator(1, 2));
  EXPECT_FALSE(parsed("mailto:someone@example.com")->setFinderTypeAndCreator(1, 2));
}

TEST(CURLTest, ComparesByText) {
  EXPECT_TRUE(*fileURL("/tmp/a") == *parsed("file:///tmp/a"));
  EXPECT_FALSE(*fileURL("/tmp/a", true) == *fileURL("/tmp/a", false));
}

}  // namespace
