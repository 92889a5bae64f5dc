// Each step of setting up a task's terminal and output fails once, and is named by the exception that the hook keeps to
// itself. The functions of the system that the library calls are replaced by those below, and so is the one that
// throws.
#include <tovan/task2.h>

#include "tests/launch/task_support.h"

#include <plinth/exception.h>

#include <dlfcn.h>
#include <fcntl.h>
#include <termios.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <typeinfo>

namespace {

// What is to fail, with EIO, and what was thrown last.
const char* failingFunction = "";
int descriptorOfStream = -1;
// The terminal's settings: those that are found, with error marking switched on, and those that are written back.
bool isMarkingErrors = false;
tcflag_t foundFlags = 0;
tcflag_t writtenFlags = 0;
int writtenWhen = -1;
std::string thrown;

bool mustFail(const char* function) {
  if (std::string(function) != failingFunction) return false;
  errno = EIO;
  return true;
}

template <class Function>
Function* original(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

void note(const void* object, const std::type_info& type) {
  const bool isIO = type == typeid(plinth::CIOException);
  if (!isIO && type != typeid(plinth::CParamException)) return;
  const auto& exception = *static_cast<const plinth::CException*>(object);
  thrown = std::string(isIO ? "I/O " : "parameter ") + std::to_string(exception.getCode()) + ": " + exception.what();
}

}  // namespace

#pragma GCC visibility push(default)
extern "C" {

int pipe2(int* ends, int flags) noexcept {
  return mustFail("pipe2") ? -1 : original<int(int*, int)>("pipe2")(ends, flags);
}

int posix_openpt(int flags) { return mustFail("posix_openpt") ? -1 : original<int(int)>("posix_openpt")(flags); }

int tcgetattr(int terminal, termios* settings) noexcept {
  if (mustFail("tcgetattr")) return -1;
  const int result = original<int(int, termios*)>("tcgetattr")(terminal, settings);
  if (isMarkingErrors) settings->c_iflag |= PARMRK;
  foundFlags = settings->c_iflag;
  return result;
}

int tcsetattr(int terminal, int when, const termios* settings) noexcept {
  if (mustFail("tcsetattr")) return -1;
  writtenFlags = settings->c_iflag;
  writtenWhen = when;
  return original<int(int, int, const termios*)>("tcsetattr")(terminal, when, settings);
}

FILE* fdopen(int descriptor, const char* mode) noexcept {
  if (!mustFail("fdopen")) return original<FILE*(int, const char*)>("fdopen")(descriptor, mode);
  descriptorOfStream = descriptor;
  return nullptr;
}

[[noreturn]] void __cxa_throw(void* object, void* type, void (*destructor)(void*)) {
  note(object, *static_cast<const std::type_info*>(type));
  original<void(void*, void*, void (*)(void*))>("__cxa_throw")(object, type, destructor);
  std::abort();
}

}  // extern "C"
#pragma GCC visibility pop

namespace {

using test::TextList;
using tovan::CTask2;

class CTask2SetUpTest : public ::testing::Test {
 protected:
  std::uint32_t launch(CTask2& task, const char* failing) {
    failingFunction = failing;
    thrown.clear();
    errno = 0;
    const std::uint32_t result = task.launch();
    const int error = errno;
    failingFunction = "";
    errno = error;
    return result;
  }
};

TEST_F(CTask2SetUpTest, AStepThatFailsBeforeTheForkIsNamedAndNothingIsLaunched) {
  const struct {
    const char* function;
    const char* message;
  } steps[] = {{"pipe2", "pipe failed'"},
               {"posix_openpt", "failed to open tty'"},
               {"tcgetattr", "tcgetattr failed'"},
               {"tcsetattr", "tcsetattr failed'"}};
  const int before = test::countOfOwn("fd");
  CTask2 task("/bin/echo", TextList{"text"});
  for (const auto& step : steps) {
    EXPECT_EQ(launch(task, step.function), 0xFFFFFFFFU) << step.function;
    EXPECT_EQ(errno, EIO) << step.function;
    EXPECT_EQ(thrown, "I/O " + std::to_string(EIO) + ": " + step.message);
    EXPECT_FALSE(task.isRunning()) << step.function;
    EXPECT_TRUE(test::hasNoChildren()) << step.function;
    EXPECT_TRUE(task.getTaskOutput().isNull()) << step.function;
    EXPECT_EQ(test::countOfOwn("fd"), before) << step.function << " left descriptors";
  }
  ASSERT_EQ(launch(task, ""), 0U);
  EXPECT_EQ(thrown, "");
  EXPECT_EQ(task.getTaskOutput()->str(), "text\n");
}

// A new terminal does not mark errors as it is; this one does.
TEST_F(CTask2SetUpTest, TheTerminalStopsMarkingErrorsAndKeepsItsOtherFlags) {
  static_assert(PARMRK == 0x8);
  isMarkingErrors = true;
  CTask2 task("/bin/true", nullptr);
  ASSERT_EQ(launch(task, ""), 0U);
  isMarkingErrors = false;
  EXPECT_EQ(foundFlags & 0x8U, 0x8U);
  EXPECT_EQ(writtenFlags, foundFlags & ~0x8U);
  EXPECT_NE(writtenFlags, 0U);
  EXPECT_EQ(writtenWhen, TCSANOW);
}

TEST_F(CTask2SetUpTest, WithoutAStreamForTheOutputTheChildIsTerminated) {
  const int before = test::countOfOwn("fd");
  {
    CTask2 task("/bin/sleep", TextList{"60"});
    EXPECT_EQ(launch(task, "fdopen"), static_cast<std::uint32_t>(EIO));
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(thrown, "parameter " + std::to_string(EIO) +
                          ": Failed to open file from pipe: " + std::to_string(descriptorOfStream));
    EXPECT_GT(descriptorOfStream, 2);
    EXPECT_TRUE(task.getTaskOutput().isNull());
    EXPECT_EQ(task.waitForTask(), SIGTERM);
  }
  EXPECT_TRUE(test::hasNoChildren());
  EXPECT_EQ(test::countOfOwn("fd"), before) << "descriptors were left";
}

}  // namespace
