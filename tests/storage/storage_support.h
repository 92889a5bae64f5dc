// storage_support.h: short ways to make storage URLs and to say what was thrown.
#pragma once

#include <gtest/gtest.h>
#include <plinth/exception.h>
#include <plinth/url.h>
#include <tovan/shared_storage_exception.h>

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <typeinfo>

#include "tests/support/scratch_home.h"

namespace test {

using plinth::CSTR;
using plinth::CStringRef;
using plinth::CURLRef;

inline CURLRef folderURL(const std::string& path) {
  return plinth::makeShared<plinth::CURL>(CSTR(path), kCFURLPOSIXPathStyle, true);
}
inline CURLRef fileURL(const std::string& path) {
  return plinth::makeShared<plinth::CURL>(CSTR(path), kCFURLPOSIXPathStyle, false);
}
inline CURLRef urlOf(const std::string& text) {
  const plinth::CSharedCFRef<CFURLRef> url =
      CFURLCreateWithString(kCFAllocatorDefault, CSTR(text)->getStringRef(), nullptr);
  return plinth::makeShared<plinth::CURL>(url.get());
}
inline std::string pathOf(const CURLRef& url) { return url->getFileSystemPath()->str(); }

inline std::string modeOf(const std::string& path) {
  struct stat facts {};
  if (::stat(path.c_str(), &facts) != 0) return "missing";
  char text[8];
  std::snprintf(text, sizeof text, "%o", facts.st_mode & 07777U);
  return text;
}

// "type/sub-code message" for an ISharedStorageException, "code TYPE message" for a plain CException.
template <class Action>
std::string thrown(Action&& action) {
  try {
    action();
  } catch (const tovan::ISharedStorageException& exception) {
    const auto number = static_cast<std::uint32_t>(exception.getKind());
    if ((number & 0xFF0000FFU) != 0xFE000000U) return "a strange number: " + std::to_string(number);
    return std::to_string(number >> 16 & 0xFF) + "/" + std::to_string(number >> 8 & 0xFF) + " " + exception.what();
  } catch (const plinth::CException& exception) {
    if (typeid(exception) != typeid(plinth::CException)) return std::string(exception.what());
    return "code " + std::to_string(exception.getType()) + " " + exception.what();
  }
  return "nothing";
}

// Does it as somebody who may search but not write the folder and those above it.
template <class Action>
void withoutWritePermission(const std::string& folder, Action&& action) {
  if (::geteuid() != 0) {
    ::chmod(folder.c_str(), 0555);
    action();
    ::chmod(folder.c_str(), 0755);
    return;
  }
  constexpr uid_t kNobody = 65534;
  // Only what belongs to this test is opened up.
  const std::filesystem::path home = std::filesystem::canonical(scratchHome());
  for (auto above = std::filesystem::canonical(folder); above != home; above = above.parent_path()) {
    ASSERT_TRUE(above.has_relative_path()) << folder << " lies outside the scratch home";
    ::chmod(above.c_str(), 0755);
  }
  ::chmod(home.c_str(), 0755);
  ASSERT_EQ(::seteuid(kNobody), 0);
  action();
  ASSERT_EQ(::seteuid(0), 0);
}

// Names and paths that break careless code.
inline const char* const kHostileNames[] = {
    "with blank", "quote'and\"quote", "back\\slash", "line\nfeed",        "#hash",
    "-leading",   "$(touch x)",       "100%@%s%n",   "\xC3\xA9t\xC3\xA9", ";&|*?"};

}  // namespace test
