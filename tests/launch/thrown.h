// thrown.h: what an action throws, as one text that a test can compare.
#pragma once

#include <plinth/exception.h>

#include <string>
#include <typeinfo>

namespace test {

// The message of the exception, which must be of exactly that class; else a text that says what happened instead.
template <class Exception, class Action>
std::string thrownBy(Action&& action) {
  try {
    action();
  } catch (const plinth::CException& exception) {
    const std::string message = exception.getMessage()->str();
    if (typeid(exception) == typeid(Exception)) return message;
    return std::string("an exception of another class, ") + typeid(exception).name() + ": " + message;
  }
  return "no exception";
}

}  // namespace test
