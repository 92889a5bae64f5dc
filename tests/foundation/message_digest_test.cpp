#include <tovan/message_digest.h>

#include <gtest/gtest.h>
#include <plinth/exception.h>

#include <climits>
#include <string>
#include <vector>

#include "tests/foundation/message_digest_support.h"
#include "tests/foundation/plinth_text.h"

namespace {

using namespace plinth;
using namespace test;

struct Vector {
  unsigned long kind;
  std::string message;
  std::string digest;
};

const std::string kAlphabet = "abcdefghijklmnopqrstuvwxyz";
const std::string kLetters = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789";
const std::string kFiftySix = "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq";

std::string repeated(const std::string& text, int times) {
  std::string all;
  for (int i = 0; i < times; ++i) all += text;
  return all;
}

// RFC 1319, RFC 1321, FIPS 180 and 180-1, ISO 10118-2, and the page of RIPEMD-160's authors.
std::vector<Vector> publishedVectors() {
  const std::string eighty = repeated("1234567890", 8);
  const std::string million(1000000, 'a');
  return {
      {1, "", "8350e5a3e24c153df2275c9f80692773"},
      {1, "abc", "da853b0d3f88d99b30283a69e6ded6bb"},
      {2, "", "d41d8cd98f00b204e9800998ecf8427e"},
      {2, "a", "0cc175b9c0f1b6a831c399e269772661"},
      {2, "abc", "900150983cd24fb0d6963f7d28e17f72"},
      {2, "message digest", "f96b697d7cb7938d525a2f31aaf161d0"},
      {2, kAlphabet, "c3fcd3d76192e4007dfb496cca67e13b"},
      {2, kLetters, "d174ab98d277d9f5a5611c2c9f419d9f"},
      {2, eighty, "57edf4a22be3c955ac49da2e2107b67a"},
      {3, "abc", "0164b8a914cd2a5e74c4f7ff082c4d97f1edf880"},
      {4, "", "da39a3ee5e6b4b0d3255bfef95601890afd80709"},
      {4, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
      {4, kFiftySix, "84983e441c3bd26ebaae4aa1f95129e5e54670f1"},
      {4, million, "34aa973cd4c4daa4f61eeb2bdbad27316534016f"},
      {5, "Now is the time for all ", "42e50cd224baceba760bdd2bd409281a"},
      {6, "", "9c1185a5c5e9fc54612808977ee8f548b2258d31"},
      {6, "a", "0bdc9d2d256b3ee9daae347be6f4dc835a467ffe"},
      {6, "abc", "8eb208f7e05d987a9b044a8e98c6b087f15a0bfc"},
      {6, "message digest", "5d0689ef49d2fae572b881b123a85ffa21595f36"},
      {6, kAlphabet, "f71c27109c692c1b56bbdceb5b9d2865b3708dbc"},
      {6, kFiftySix, "12a053384a9c0c88e405a06c27dcf49ada62eb2b"},
      {6, kLetters, "b0e20b6e3116640286ed3a87a5713079b21f5189"},
      {6, eighty, "9b752e45573d4b39f4dbd3323cab82bf63326bfb"},
      {6, million, "52783243c1697bdbe16d37f97f68f08325dc1528"},
  };
}

TEST(CMessageDigestTest, GivesThePublishedDigestsOrLacksTheAlgorithmWhereLibcryptoDoes) {
  const std::string path = scratchFolder("digest") + "/file";
  bool installed[7] = {};
  for (unsigned long kind = 1; kind <= 6; ++kind) installed[kind] = isInstalled(kind);
  for (const unsigned long kind : {2, 4, 6}) ASSERT_TRUE(installed[kind]) << commandName(kind);
  for (const Vector& one : publishedVectors()) {
    writeFile(path, one.message);
    const std::string what = commandName(one.kind) + " of " + one.message.substr(0, 40);
    if (installed[one.kind]) {
      EXPECT_EQ(digestOfText(one.message, one.kind), one.digest) << what;
      EXPECT_EQ(digestOfBytes(one.message, one.kind), one.digest) << what;
      EXPECT_EQ(digestOfFile(path, one.kind), one.digest) << what;
    } else {
      EXPECT_EQ(messageOf<CNullPointerException>([&] { digestOfText(one.message, one.kind); }), "Error: md is null!");
      EXPECT_EQ(messageOf<CNullPointerException>([&] { digestOfBytes(one.message, one.kind); }), "Error: md is null!");
      EXPECT_EQ(messageOf<CNullPointerException>([&] { digestOfFile(path, one.kind); }), "Error: md is null!");
    }
  }
}

TEST(CMessageDigestTest, TheResultIsTheRawBytes) {
  const CMessageDigest md5(CSTR("abc"), CMessageDigest::kMD5);
  ASSERT_EQ(md5.result()->size(), 16U);
  EXPECT_EQ(md5.result()->data()[0], 0x90);
  EXPECT_EQ(md5.result()->data()[15], 0x72);
  EXPECT_EQ(md5.kind(), 2UL);
  EXPECT_EQ(CMessageDigest(CSTR("abc"), CMessageDigest::kSHA1).result()->size(), 20U);
  EXPECT_EQ(CMessageDigest(CSTR("abc"), CMessageDigest::kRIPEMD160).result()->size(), 20U);
}

TEST(CMessageDigestTest, AKindOutsideOneToSixIsRefusedWithItsCode) {
  const std::string missing = scratchFolder("digest") + "/missing";
  const struct {
    unsigned long kind;
    std::string code;
  } cases[] = {{0, "0"}, {7, "7"}, {4711, "4711"}, {ULONG_MAX, "-1"}};
  for (const auto& one : cases) {
    const std::string expected = "Invalid message digest kind: " + one.code;
    EXPECT_EQ(messageOf<CParamException>([&] { digestOfText("abc", one.kind); }), expected);
    EXPECT_EQ(messageOf<CParamException>([&] { digestOfBytes("abc", one.kind); }), expected);
    EXPECT_EQ(messageOf<CParamException>([&] { digestOfFile(missing, one.kind); }), expected);
  }
}

TEST(CMessageDigestTest, AnEmptyHolderIsRefusedBeforeAnythingElse) {
  for (const unsigned long kind : {2UL, 1UL, 0UL, 7UL}) {
    EXPECT_EQ(messageOf<CNullPointerException>([&] { CMessageDigest(CURLRef(), kind); }), "Error: fileURL is null!");
    EXPECT_EQ(messageOf<CNullPointerException>([&] { CMessageDigest(CStringRef(), kind); }), "Error: message is null!");
    EXPECT_EQ(messageOf<CNullPointerException>([&] { CMessageDigest(CBufferRef(), kind); }), "Error: buffer is null!");
    EXPECT_EQ(messageOf<CNullPointerException>([&] { CMessageDigest(CURLRef(), kind, [](std::uint64_t) {}); }),
              "Error: fileURL is null!");
  }
}

TEST(CMessageDigestTest, AnEmptyStringIsNoNullString) {
  EXPECT_EQ(digestOfText("", 2), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(CMessageDigest(makeShared<CString>(), 2).hexText()->str(), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(CMessageDigest(makeShared<CBuffer>(), 2).hexText()->str(), "d41d8cd98f00b204e9800998ecf8427e");
}

TEST(CMessageDigestTest, AStringCountsInUTF8WithoutItsEnd) {
  EXPECT_EQ(digestOfText("caf\u00e9 \U0001F600", 2), digestOfBytes("caf\u00e9 \U0001F600", 2));
  const std::string withNull("a\0b", 3);
  EXPECT_EQ(digestOfText(withNull, 4), digestOfBytes(withNull, 4));
  EXPECT_NE(digestOfText(withNull, 4), digestOfText("a", 4));
}

TEST(CMessageDigestTest, TheResultIsTheObjectsOwn) {
  const CBufferRef buffer = makeShared<CBuffer>("abc", std::size_t{3});
  CMessageDigest digest(buffer, 2);
  const CMessageDigest copy = digest;
  buffer->append("d", 1);
  EXPECT_EQ(digest.hexText()->str(), "900150983cd24fb0d6963f7d28e17f72");
  digest.digest();
  EXPECT_EQ(digest.hexText()->str(), "e2fc714c4727ee9395f324cd2e7f331f") << "of abcd";
  EXPECT_EQ(copy.hexText()->str(), "900150983cd24fb0d6963f7d28e17f72");
}

}  // namespace
