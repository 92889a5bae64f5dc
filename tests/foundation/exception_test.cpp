#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFNumber.h>
#include <gtest/gtest.h>
#include <plinth/exception.h>

#include <cerrno>
#include <stdexcept>
#include <string>
#include <thread>
#include <typeinfo>

#include "tests/foundation/plinth_text.h"

namespace {

using namespace plinth;
using test::text;

TEST(CExceptionTest, OfATypeAloneHasAnEmptyMessage) {
  const CException exception(kExceptionTypeStream);
  EXPECT_EQ(exception.getType(), kExceptionTypeStream);
  EXPECT_EQ(exception.getKind(), ExceptionKind::generic);
  EXPECT_EQ(exception.getCode(), 0);
  ASSERT_FALSE(exception.getMessage().isNull());
  EXPECT_EQ(text(exception.getMessage()), "");
  EXPECT_STREQ(exception.what(), "");
}

TEST(CExceptionTest, FormatsItsMessageAsPrintfDoes) {
  const CException exception(kExceptionTypeSystemCall, "%s[%d](%s): can't open file, error = %s", "class::open", 4711,
                             "/tmp/a file", "No such file or directory");
  EXPECT_EQ(text(exception.getMessage()),
            "class::open[4711](/tmp/a file): can't open file, error = No such file or directory");
  EXPECT_STREQ(exception.what(), text(exception.getMessage()).c_str());
  EXPECT_EQ(exception.getType(), 4);
}

TEST(CExceptionTest, FormatsCoreFoundationObjects) {
  EXPECT_STREQ(CException(kExceptionTypeUnknown, "error = %@", CFSTR("caf\u00e9")).what(), "error = caf\u00e9");
  const int value = 42;
  const CSharedCFRef<CFNumberRef> number(CFNumberCreate(kCFAllocatorDefault, kCFNumberIntType, &value));
  EXPECT_STREQ(CParamException("%@ and %@, %d%%", number.get(), CFSTR("text"), 7).what(), "42 and text, 7%");
}

TEST(CExceptionTest, AMessageSurvivesBytesThatAreNotUTF8) {
  EXPECT_STREQ(CException(kExceptionTypeSystemCall, "path (%s) failed",
                          "a\xFF"
                          "b")
                   .what(),
               "path (a\xEF\xBF\xBD"
               "b) failed");
}

TEST(CExceptionTest, ANullFormatGivesAnEmptyMessage) {
  EXPECT_STREQ(CException(kExceptionTypeParam, static_cast<const char*>(nullptr)).what(), "");
  EXPECT_STREQ(CException(ExceptionKind::io, nullptr).what(), "");
}

TEST(CExceptionTest, TakesATypeWithACode) {
  const CException exception(kExceptionTypeSystemCall, ENOENT);
  EXPECT_EQ(exception.getType(), kExceptionTypeSystemCall);
  EXPECT_EQ(exception.getCode(), ENOENT);
  EXPECT_STREQ(exception.what(), "");
  const CException both(kExceptionTypeUnknown, EAGAIN, "failed to launch, error = %s", "x");
  EXPECT_EQ(both.getType(), kExceptionTypeUnknown);
  EXPECT_EQ(both.getCode(), EAGAIN);
  EXPECT_STREQ(both.what(), "failed to launch, error = x");
}

TEST(CExceptionTest, ACodeTakesAll32Bits) {
  CException exception(kExceptionTypeUnknown, static_cast<std::int32_t>(0xFE010700u));
  EXPECT_EQ(static_cast<std::uint32_t>(exception.getCode()), 0xFE010700u);
  exception.setCode(3);
  EXPECT_EQ(exception.getCode(), 3);
}

TEST(CExceptionTest, OfAKindTakesTheMessageAsItIs) {
  const CException exception(ExceptionKind::io, "100%s of %@");
  EXPECT_EQ(exception.getKind(), ExceptionKind::io);
  EXPECT_STREQ(exception.what(), "100%s of %@");
}

TEST(CExceptionTest, OfAKindHasTheTypeOfItsSubclass) {
  EXPECT_EQ(CException(ExceptionKind::generic).getType(), kExceptionTypeUnknown);
  EXPECT_EQ(CException(ExceptionKind::param).getType(), CParamException().getType());
  EXPECT_EQ(CException(ExceptionKind::nullPointer).getType(), CNullPointerException().getType());
  EXPECT_EQ(CException(ExceptionKind::file).getType(), CFileException().getType());
  EXPECT_EQ(CException(ExceptionKind::io).getType(), CIOException().getType());
  EXPECT_EQ(CException(ExceptionKind::foundation).getType(), CNSException().getType());
  EXPECT_EQ(CException(ExceptionKind::unknown).getType(), CUnknownException().getType());
  EXPECT_EQ(CException(static_cast<ExceptionKind>(77)).getType(), kExceptionTypeUnknown);
}

TEST(CExceptionTest, TheNumbersOfTypesAndKindsAreFixed) {
  EXPECT_EQ(kExceptionTypeNone, 0);
  EXPECT_EQ(kExceptionTypeParam, 1);
  EXPECT_EQ(kExceptionTypeNullPointer, 2);
  EXPECT_EQ(kExceptionTypeStream, 3);
  EXPECT_EQ(kExceptionTypeSystemCall, 4);
  EXPECT_EQ(kExceptionTypeFoundation, 5);
  EXPECT_EQ(kExceptionTypeUnknown, 255);
  EXPECT_EQ(static_cast<int>(ExceptionKind::generic), 0);
  EXPECT_EQ(static_cast<int>(ExceptionKind::unknown), 6);
}

TEST(CExceptionTest, ConcatMessageAppendsFormattedText) {
  CException exception(kExceptionTypeUnknown, "first");
  exception.concatMessage(", %s %d", "second", 2);
  exception.concatMessage(", %@", CFSTR("third"));
  exception.concatMessage(nullptr);
  EXPECT_STREQ(exception.what(), "first, second 2, third");
}

TEST(CExceptionTest, CopiesKeepTheirMessageWhenOneIsChanged) {
  CParamException original("text");
  const CParamException copy(original);
  original.concatMessage(" and more");
  original.getMessage()->append(" of the caller's");
  EXPECT_STREQ(copy.what(), "text");
  EXPECT_STREQ(original.what(), "text and more");
}

TEST(CExceptionTest, IsCaughtAsAStandardException) {
  try {
    throw CFileException("gone: %s", "x");
  } catch (const std::exception& exception) {
    EXPECT_STREQ(exception.what(), "gone: x");
  }
}

template <class Exception>
void expectSubclass(ExceptionKind kind, ExceptionType type) {
  SCOPED_TRACE(typeid(Exception).name());
  const Exception empty;
  EXPECT_EQ(empty.getKind(), kind);
  EXPECT_EQ(empty.getType(), type);
  EXPECT_STREQ(empty.what(), "");
  EXPECT_STREQ(Exception("x = %d", 5).what(), "x = 5");
  const Exception withCode(ENOSPC, "%s full", "disk");
  EXPECT_EQ(withCode.getCode(), ENOSPC);
  EXPECT_EQ(withCode.getKind(), kind);
  EXPECT_STREQ(withCode.what(), "disk full");
  const CException& asBase = withCode;
  bool isCaught = false;
  try {
    asBase.Throw();
  } catch (const Exception& thrown) {
    isCaught = true;
    EXPECT_STREQ(typeid(thrown).name(), typeid(Exception).name());
    EXPECT_STREQ(thrown.what(), "disk full");
    EXPECT_EQ(thrown.getCode(), ENOSPC);
  } catch (const CException&) {
    ADD_FAILURE() << "thrown as its base";
  }
  EXPECT_TRUE(isCaught);
}

TEST(CExceptionTest, EachSubclassHasItsKindAndThrowsItself) {
  expectSubclass<CParamException>(ExceptionKind::param, kExceptionTypeParam);
  expectSubclass<CNullPointerException>(ExceptionKind::nullPointer, kExceptionTypeNullPointer);
  expectSubclass<CFileException>(ExceptionKind::file, kExceptionTypeSystemCall);
  expectSubclass<CIOException>(ExceptionKind::io, kExceptionTypeSystemCall);
  expectSubclass<CNSException>(ExceptionKind::foundation, kExceptionTypeFoundation);
  expectSubclass<CUnknownException>(ExceptionKind::unknown, kExceptionTypeUnknown);
}

TEST(CExceptionTest, ThrowOfAPlainExceptionThrowsAPlainException) {
  EXPECT_EQ(test::messageOf<CException>([] { CException(kExceptionTypeStream, "bad state %x", 255).Throw(); }),
            "bad state ff");
}

// What another class of the library does that carries a composed code.
class StorageException : public CException {
 public:
  explicit StorageException(const CStringRef& message) : CException(kExceptionTypeUnknown, 0x01020300) {
    setMessage(message);
  }
};

TEST(CExceptionTest, ASubclassOfAClientSetsItsMessage) {
  const CStringRef message = CSTR("Path [/x] not read/write");
  const StorageException exception(message);
  message->append(" any more");
  EXPECT_STREQ(exception.what(), "Path [/x] not read/write");
  EXPECT_EQ(exception.getCode(), 0x01020300);
  EXPECT_STREQ(StorageException(nullptr).what(), "");
}

TEST(CExceptionTest, TravelsToAnotherThread) {
  std::exception_ptr carried;
  std::thread([&] {
    try {
      throw CIOException("from a thread");
    } catch (...) {
      carried = std::current_exception();
    }
  }).join();
  EXPECT_EQ(test::messageOf<CIOException>([&] { std::rethrow_exception(carried); }), "from a thread");
}

}  // namespace
