// plinth_text.h: what the tests of plinth:: share: texts of holders and messages of exceptions.
#pragma once

#include <gtest/gtest.h>
#include <plinth/exception.h>

#include <string>
#include <typeinfo>

namespace test {

inline std::string text(const plinth::CStringRef& holder) {
  return holder ? holder->str() : std::string("(empty holder)");
}

// Runs an action that must throw exactly an `Expected`, and gives its message.
template <class Expected, class Action>
std::string messageOf(Action action) {
  try {
    action();
  } catch (const plinth::CException& exception) {
    EXPECT_STREQ(typeid(exception).name(), typeid(Expected).name()) << exception.what();
    return exception.what();
  }
  ADD_FAILURE() << "nothing was thrown";
  return {};
}

}  // namespace test
