#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "tests/support/property_list_support.h"
#include "tests/support/scratch_home.h"

using test::canonical;
using test::Held;
using test::parse;
using ::testing::HasSubstr;

namespace {

constexpr const char* kSmallList = "<plist version=\"1.0\"><dict><key>a</key><integer>1</integer></dict></plist>";
constexpr const char* kSmallCanonical = "{s61:i1,}";

Held<CFURLRef> url(const std::string& path) {
  return Held<CFURLRef>(CFURLCreateFromFileSystemRepresentation(nullptr, reinterpret_cast<const UInt8*>(path.data()),
                                                                static_cast<CFIndex>(path.size()), false));
}

Held<CFReadStreamRef> memoryStream(const std::string& bytes) {
  Held<CFReadStreamRef> stream(CFReadStreamCreateWithBytesNoCopy(nullptr, reinterpret_cast<const UInt8*>(bytes.data()),
                                                                 static_cast<CFIndex>(bytes.size()), kCFAllocatorNull));
  CFReadStreamOpen(stream.get());
  return stream;
}

std::string described(CFErrorRef error) {
  return error == nullptr ? "(no error)" : test::text(Held<CFStringRef>(CFErrorCopyDescription(error)).get());
}

TEST(PropertyListTest, TheFormatFoundIsTold) {
  EXPECT_EQ(parse(kSmallList).format, kCFPropertyListXMLFormat_v1_0);
  const Held<CFDataRef> binary(
      CFPropertyListCreateData(nullptr, parse(kSmallList).list.get(), kCFPropertyListBinaryFormat_v1_0, 0, nullptr));
  const test::Parsed parsed = parse(test::bytes(binary.get()));
  EXPECT_EQ(parsed.format, kCFPropertyListBinaryFormat_v1_0);
  EXPECT_EQ(canonical(parsed.list.get()), kSmallCanonical);
}

TEST(PropertyListTest, ErrorPointersMayBeNull) {
  EXPECT_EQ(CFPropertyListCreateWithData(nullptr, test::data("<foo>").get(), 0, nullptr, nullptr), nullptr);
  EXPECT_EQ(CFPropertyListCreateFromXMLData(nullptr, test::data("<foo>").get(), 0, nullptr), nullptr);
  EXPECT_EQ(CFPropertyListCreateXMLData(nullptr, nullptr), nullptr);
}

TEST(PropertyListTest, NoDataIsAnError) {
  Held<CFErrorRef> error;
  EXPECT_EQ(CFPropertyListCreateWithData(nullptr, nullptr, 0, nullptr, error.out()), nullptr);
  EXPECT_EQ(described(error.get()), "There is no data to read a list from");
}

TEST(PropertyListTest, SuccessLeavesTheErrorAlone) {
  CFErrorRef error = nullptr;
  CFStringRef text = nullptr;
  const Held<CFPropertyListRef> first(
      CFPropertyListCreateWithData(nullptr, test::data(kSmallList).get(), 0, nullptr, &error));
  const Held<CFPropertyListRef> second(
      CFPropertyListCreateFromXMLData(nullptr, test::data(kSmallList).get(), 0, &text));
  EXPECT_EQ(error, nullptr);
  EXPECT_EQ(text, nullptr);
  EXPECT_TRUE(CFEqual(first.get(), second.get()));
}

TEST(PropertyListTest, TheErrorTextSaysWhatTheErrorSays) {
  Held<CFStringRef> text;
  EXPECT_EQ(CFPropertyListCreateFromXMLData(nullptr, test::data("<dict><foo/>").get(), 0, text.out()), nullptr);
  EXPECT_EQ(test::text(text.get()), "Unknown element <foo> at line 1, column 7");
  const Held<CFErrorRef> error([] {
    CFErrorRef made = nullptr;
    CFPropertyListCreateWithData(nullptr, test::data("<dict><foo/>").get(), 0, nullptr, &made);
    return made;
  }());
  const Held<CFStringRef> formatted(CFStringCreateWithFormat(nullptr, nullptr, CFSTR("%@"), error.get()));
  EXPECT_EQ(test::text(formatted.get()), test::text(text.get()));
}

TEST(PropertyListTest, TheOldTextFormatIsNeitherWrittenNorValid) {
  Held<CFErrorRef> error;
  EXPECT_EQ(CFPropertyListCreateData(nullptr, CFSTR("a"), kCFPropertyListOpenStepFormat, 0, error.out()), nullptr);
  EXPECT_THAT(described(error.get()), HasSubstr("the old text format are not supported"));
  EXPECT_FALSE(CFPropertyListIsValid(CFSTR("a"), kCFPropertyListOpenStepFormat));
  EXPECT_EQ(CFPropertyListCreateData(nullptr, CFSTR("a"), static_cast<CFPropertyListFormat>(7), 0, nullptr), nullptr);
  EXPECT_FALSE(CFPropertyListIsValid(CFSTR("a"), static_cast<CFPropertyListFormat>(7)));
}

TEST(PropertyListTest, WritingTakesNoOptions) {
  EXPECT_EQ(CFPropertyListCreateData(nullptr, CFSTR("a"), kCFPropertyListXMLFormat_v1_0, 1, nullptr), nullptr);
}

TEST(PropertyListTest, ValidityIsThatOfWriting) {
  for (const CFPropertyListFormat format : {kCFPropertyListXMLFormat_v1_0, kCFPropertyListBinaryFormat_v1_0}) {
    EXPECT_TRUE(CFPropertyListIsValid(parse(kSmallList).list.get(), format));
    EXPECT_TRUE(CFPropertyListIsValid(kCFBooleanTrue, format));
    EXPECT_FALSE(CFPropertyListIsValid(nullptr, format));
    EXPECT_FALSE(CFPropertyListIsValid(url("/tmp").get(), format));
    EXPECT_FALSE(CFPropertyListIsValid(test::string("\x01").get(), format));
    EXPECT_FALSE(CFPropertyListIsValid(Held<CFDateRef>(CFDateCreate(nullptr, 1e20)).get(), format));
  }
}

TEST(PropertyListTest, DeepCopiesAreEqualAndAsMutableAsAsked) {
  for (const CFOptionFlags options :
       {CFOptionFlags{kCFPropertyListImmutable}, CFOptionFlags{kCFPropertyListMutableContainers},
        CFOptionFlags{kCFPropertyListMutableContainersAndLeaves}}) {
    const Held<CFPropertyListRef> list = test::ListMaker(3).make(300);
    const Held<CFPropertyListRef> copy(CFPropertyListCreateDeepCopy(nullptr, list.get(), options));
    EXPECT_NE(copy.get(), list.get());
    EXPECT_EQ(canonical(copy.get()), canonical(list.get()));
  }
}

TEST(PropertyListTest, AnImmutableCopyDoesNotFollowTheOriginal) {
  const Held<CFMutableStringRef> leaf(CFStringCreateMutable(nullptr, 0));
  CFStringAppend(leaf.get(), CFSTR("before"));
  const Held<CFMutableArrayRef> list(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
  CFArrayAppendValue(list.get(), leaf.get());
  const Held<CFPropertyListRef> copy(CFPropertyListCreateDeepCopy(nullptr, list.get(), kCFPropertyListImmutable));
  CFStringAppend(leaf.get(), CFSTR(" and after"));
  CFArrayRemoveAllValues(list.get());
  EXPECT_EQ(canonical(copy.get()), "[" + canonical(CFSTR("before")) + ",]");
}

TEST(PropertyListTest, CopiesOfWhatIsNoListAreNull) {
  EXPECT_EQ(CFPropertyListCreateDeepCopy(nullptr, nullptr, 0), nullptr);
  EXPECT_EQ(CFPropertyListCreateDeepCopy(nullptr, url("/tmp").get(), 0), nullptr);
  const Held<CFMutableArrayRef> list(CFArrayCreateMutable(nullptr, 0, &kCFTypeArrayCallBacks));
  CFArrayAppendValue(list.get(), url("/tmp").get());
  EXPECT_EQ(CFPropertyListCreateDeepCopy(nullptr, list.get(), 0), nullptr);
  const Held<CFMutableDictionaryRef> dictionary(
      CFDictionaryCreateMutable(nullptr, 0, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  CFDictionarySetValue(dictionary.get(), kCFBooleanTrue, kCFBooleanTrue);
  EXPECT_EQ(CFPropertyListCreateDeepCopy(nullptr, dictionary.get(), 0), nullptr);
}

TEST(PropertyListTest, ListsComeFromStreams) {
  const std::string bytes = kSmallList;
  CFPropertyListFormat format = kCFPropertyListOpenStepFormat;
  const Held<CFPropertyListRef> whole(
      CFPropertyListCreateWithStream(nullptr, memoryStream(bytes).get(), 0, 0, &format, nullptr));
  EXPECT_EQ(canonical(whole.get()), kSmallCanonical);
  EXPECT_EQ(format, kCFPropertyListXMLFormat_v1_0);

  const std::string twice = bytes + bytes;
  const Held<CFReadStreamRef> stream = memoryStream(twice);
  for (int i = 0; i < 2; ++i) {
    const Held<CFPropertyListRef> part(
        CFPropertyListCreateFromStream(nullptr, stream.get(), static_cast<CFIndex>(bytes.size()), 0, nullptr, nullptr));
    EXPECT_EQ(canonical(part.get()), kSmallCanonical) << "list " << i;
  }
}

TEST(PropertyListTest, LargeListsComeFromFilesWhole) {
  const std::string path = test::scratchFolder("stream") + "/large.plist";
  const Held<CFPropertyListRef> list = test::ListMaker(5).make(20000);
  const Held<CFWriteStreamRef> out(CFWriteStreamCreateWithFile(nullptr, url(path).get()));
  ASSERT_TRUE(CFWriteStreamOpen(out.get()));
  Held<CFErrorRef> error;
  const CFIndex written = CFPropertyListWrite(list.get(), out.get(), kCFPropertyListXMLFormat_v1_0, 0, error.out());
  CFWriteStreamClose(out.get());
  EXPECT_EQ(written, static_cast<CFIndex>(test::readFile(path).size())) << described(error.get());
  EXPECT_EQ(test::readFile(path), test::write(list.get()).bytes);

  const Held<CFReadStreamRef> in(CFReadStreamCreateWithFile(nullptr, url(path).get()));
  ASSERT_TRUE(CFReadStreamOpen(in.get()));
  const Held<CFPropertyListRef> read(CFPropertyListCreateWithStream(nullptr, in.get(), 0, 0, nullptr, error.out()));
  EXPECT_EQ(canonical(read.get()), canonical(list.get())) << described(error.get());
}

TEST(PropertyListTest, AStreamThatEndsEarlyIsATruncatedList) {
  const std::string bytes = std::string(kSmallList).substr(0, 40);
  Held<CFStringRef> text;
  EXPECT_EQ(CFPropertyListCreateFromStream(nullptr, memoryStream(bytes).get(), 1000000000000, 0, nullptr, text.out()),
            nullptr);
  EXPECT_THAT(test::text(text.get()), HasSubstr("cut off at line 1, column 41"));
}

TEST(PropertyListTest, StreamFailuresCarryTheStreamsError) {
  const Held<CFReadStreamRef> in(
      CFReadStreamCreateWithFile(nullptr, url(test::scratchFolder("stream") + "/missing").get()));
  EXPECT_FALSE(CFReadStreamOpen(in.get()));
  Held<CFErrorRef> error;
  EXPECT_EQ(CFPropertyListCreateWithStream(nullptr, in.get(), 0, 0, nullptr, error.out()), nullptr);
  EXPECT_EQ(CFErrorGetCode(error.get()), kCFPropertyListReadStreamError);
  const Held<CFDictionaryRef> information(CFErrorCopyUserInfo(error.get()));
  const auto* const cause =
      static_cast<CFErrorRef>(CFDictionaryGetValue(information.get(), kCFErrorUnderlyingErrorKey));
  ASSERT_NE(cause, nullptr);
  EXPECT_EQ(CFErrorGetCode(cause), ENOENT);
  EXPECT_TRUE(CFEqual(CFErrorGetDomain(cause), kCFErrorDomainPOSIX));

  EXPECT_EQ(CFPropertyListCreateWithStream(nullptr, nullptr, 0, 0, nullptr, nullptr), nullptr);
  EXPECT_EQ(CFPropertyListWrite(CFSTR("a"), nullptr, kCFPropertyListXMLFormat_v1_0, 0, nullptr), 0);
}

TEST(PropertyListTest, ABufferThatIsTooSmallIsAnErrorOfTheStream) {
  UInt8 buffer[64];
  const Held<CFWriteStreamRef> out(CFWriteStreamCreateWithBuffer(nullptr, buffer, sizeof buffer));
  CFWriteStreamOpen(out.get());
  Held<CFErrorRef> error;
  EXPECT_EQ(CFPropertyListWrite(CFSTR("a"), out.get(), kCFPropertyListXMLFormat_v1_0, 0, error.out()), 0);
  EXPECT_EQ(CFErrorGetCode(error.get()), kCFPropertyListWriteStreamError);
  EXPECT_EQ(described(error.get()), "The property list cannot be written to its stream");
}

TEST(PropertyListTest, AListThatCannotBeWrittenWritesNothing) {
  const Held<CFWriteStreamRef> out(CFWriteStreamCreateWithAllocatedBuffers(nullptr, nullptr));
  CFWriteStreamOpen(out.get());
  Held<CFStringRef> text;
  EXPECT_EQ(CFPropertyListWriteToStream(url("/").get(), out.get(), kCFPropertyListXMLFormat_v1_0, text.out()), 0);
  EXPECT_EQ(test::text(text.get()), "A CFURL cannot stand in a property list: at the root");
  const Held<CFTypeRef> data(CFWriteStreamCopyProperty(out.get(), kCFStreamPropertyDataWritten));
  EXPECT_EQ(CFDataGetLength(static_cast<CFDataRef>(data.get())), 0);
}

}  // namespace
