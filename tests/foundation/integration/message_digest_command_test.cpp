// Digests against the openssl command.
#include <gtest/gtest.h>

#include <random>
#include <string>

#include "tests/foundation/message_digest_support.h"

namespace {

using namespace test;

TEST(MessageDigestCommandTest, RandomFilesHaveTheDigestThatTheCommandGives) {
  const std::string path = scratchFolder("digest") + "/random";
  std::mt19937_64 random(20261121);
  for (int round = 0; round < 12; ++round) {
    // Around the piece's length, and anything up to a quarter of a megabyte.
    const std::size_t length = round < 6 ? 8192 * (1 + random() % 3) + random() % 3 - 1 : random() % 250000;
    std::string content(length, '\0');
    for (char& byte : content) byte = static_cast<char>(random());
    writeFile(path, content);
    for (const unsigned long kind : {2UL, 4UL, 6UL}) {
      const std::string expected = digestByCommand(path, kind);
      ASSERT_FALSE(expected.empty()) << commandName(kind);
      EXPECT_EQ(digestOfFile(path, kind), expected) << commandName(kind) << ", " << length << " bytes";
      EXPECT_EQ(digestOfBytes(content, kind), expected) << commandName(kind) << ", " << length << " bytes";
    }
  }
}

}  // namespace
