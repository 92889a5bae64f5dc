#include "platform/system/home.h"

#include <gtest/gtest.h>
#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

namespace {

using platform::homeDirectory;
using platform::temporaryDirectory;

// An environment variable for a scope; null unsets it.
class Variable {
 public:
  Variable(const char* name, const char* value) : name_(name) {
    if (const char* const former = std::getenv(name)) former_ = former;
    set(value);
  }
  ~Variable() { set(former_.c_str()); }
  void set(const char* value) const {
    if (value == nullptr) {
      ::unsetenv(name_);
    } else {
      ::setenv(name_, value, 1);
    }
  }

 private:
  const char* name_;
  std::string former_;
};

TEST(HomeTest, IsTheOneOfTheEnvironment) {
  const Variable home("HOME", "/some home/ü");
  EXPECT_EQ(homeDirectory(), "/some home/ü");
  home.set("/a//");
  EXPECT_EQ(homeDirectory(), "/a");
  home.set("/");
  EXPECT_EQ(homeDirectory(), "/");
}

TEST(HomeTest, IsTheOneOfThePasswordEntryOtherwise) {
  const passwd* const entry = ::getpwuid(::geteuid());
  ASSERT_NE(entry, nullptr);
  const std::string expected = entry->pw_dir;
  const Variable home("HOME", nullptr);
  EXPECT_EQ(homeDirectory(), expected);
  home.set("");
  EXPECT_EQ(homeDirectory(), expected) << "empty";
  home.set("relative/home");
  EXPECT_EQ(homeDirectory(), expected) << "not absolute";
}

TEST(TemporaryDirectoryTest, EndsInExactlyOneSlash) {
  const Variable folder("TMPDIR", "/some tmp");
  EXPECT_EQ(temporaryDirectory(), "/some tmp/");
  folder.set("/some tmp///");
  EXPECT_EQ(temporaryDirectory(), "/some tmp/");
  folder.set("/");
  EXPECT_EQ(temporaryDirectory(), "/");
}

TEST(TemporaryDirectoryTest, IsTmpWithoutAUsableVariable) {
  const Variable folder("TMPDIR", nullptr);
  EXPECT_EQ(temporaryDirectory(), "/tmp/");
  folder.set("");
  EXPECT_EQ(temporaryDirectory(), "/tmp/");
  folder.set("relative");
  EXPECT_EQ(temporaryDirectory(), "/tmp/");
}

}  // namespace
