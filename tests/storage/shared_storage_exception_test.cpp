#include <tovan/shared_storage_exception.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

using plinth::CException;
using tovan::ISharedStorageException;
using tovan::ISharedStorageExceptionType;

std::uint32_t codeOf(const CException& exception) { return static_cast<std::uint32_t>(exception.getCode()); }
std::uint32_t kindOf(const CException& exception) { return static_cast<std::uint32_t>(exception.getKind()); }

TEST(ISharedStorageExceptionTest, NumberIsMadeOfTypeAndSubCode) {
  const struct {
    int type;
    char subCode;
    std::uint32_t number;
  } kPairs[] = {
      {1, 7, 0xFE010700}, {1, 12, 0xFE010C00}, {3, 0, 0xFE030000}, {3, 2, 0xFE030200},  {3, 5, 0xFE030500},
      {3, 6, 0xFE030600}, {3, 12, 0xFE030C00}, {5, 2, 0xFE050200}, {5, 12, 0xFE050C00},
  };
  for (const auto& pair : kPairs) {
    const ISharedStorageException exception(static_cast<ISharedStorageExceptionType>(pair.type), pair.subCode, "text");
    EXPECT_EQ(codeOf(exception), pair.number) << pair.type << ", " << int{pair.subCode};
    EXPECT_EQ(kindOf(exception), pair.number) << pair.type << ", " << int{pair.subCode};
  }
}

TEST(ISharedStorageExceptionTest, OnlyTheLowestEightBitsCount) {
  EXPECT_EQ(ISharedStorageException::numberOf(static_cast<ISharedStorageExceptionType>(0x1FF), 0), 0xFEFF0000U);
  EXPECT_EQ(ISharedStorageException::numberOf(static_cast<ISharedStorageExceptionType>(-1), 0), 0xFEFF0000U);
  EXPECT_EQ(ISharedStorageException::numberOf(static_cast<ISharedStorageExceptionType>(0), static_cast<char>(-1)),
            0xFE00FF00U);
}

TEST(ISharedStorageExceptionTest, NamedTypesAndSubCodesHaveTheirNumbers) {
  EXPECT_EQ(ISharedStorageException::numberOf(tovan::kSharedStorageExceptionExchange, tovan::kSharedStorageBadKey),
            0xFE010700U);
  EXPECT_EQ(ISharedStorageException::numberOf(tovan::kSharedStorageExceptionStorage, tovan::kSharedStorageNotFound),
            0xFE030200U);
  EXPECT_EQ(ISharedStorageException::numberOf(tovan::kSharedStorageExceptionSystem, tovan::kSharedStorageNotDone),
            0xFE050C00U);
  EXPECT_EQ(tovan::kSharedStorageNotSupported, 0);
  EXPECT_EQ(tovan::kSharedStorageNotAccessible, 5);
  EXPECT_EQ(tovan::kSharedStorageNotFolder, 6);
}

TEST(ISharedStorageExceptionTest, MessageAloneIsNoFormat) {
  const ISharedStorageException exception(tovan::kSharedStorageExceptionExchange, 7, "100% of kPIDKey %@ %s");
  EXPECT_EQ(exception.getMessage()->str(), "100% of kPIDKey %@ %s");
  EXPECT_TRUE(ISharedStorageException(tovan::kSharedStorageExceptionStorage, 2, nullptr).getMessage()->isEmpty());
}

TEST(ISharedStorageExceptionTest, FormatTakesACoreFoundationObject) {
  const auto messageOf = [](const char* format, const void* object) {
    return ISharedStorageException(tovan::kSharedStorageExceptionStorage, 2, format, object).getMessage()->str();
  };
  EXPECT_EQ(messageOf("entry [%@] not present in publishedMap", CFSTR("/a b")),
            "entry [/a b] not present in publishedMap");
  EXPECT_EQ(messageOf("Non-existent path = [%@]", CFSTR("50%@")), "Non-existent path = [50%@]");
  EXPECT_EQ(messageOf("Path [%@] not read/write", nullptr), "Path [(null)] not read/write");
  EXPECT_EQ(messageOf("no place for it", CFSTR("/a")), "no place for it");
}

TEST(ISharedStorageExceptionTest, FormattedOneHasTheSameNumber) {
  const ISharedStorageException exception(tovan::kSharedStorageExceptionStorage, 6, "Path [%@] not a directory",
                                          CFSTR("/a"));
  EXPECT_EQ(codeOf(exception), 0xFE030600U);
  EXPECT_EQ(kindOf(exception), 0xFE030600U);
}

TEST(ISharedStorageExceptionTest, IsCaughtAsTheFamilysBase) {
  try {
    throw ISharedStorageException(tovan::kSharedStorageExceptionExchange, 7, "kSenderKey");
  } catch (const CException& exception) {
    EXPECT_EQ(exception.getMessage()->str(), "kSenderKey");
    EXPECT_THROW(exception.Throw(), ISharedStorageException) << "it throws itself as what it is";
  }
}

}  // namespace
