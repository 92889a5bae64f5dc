// service_log.h: a home of one test's own with service cache entries, and a bus for the preferences.
#pragma once

#include <CoreFoundation/CoreFoundation.h>
#include <tovan/service_cache_file.h>

#include <cstdlib>
#include <functional>
#include <optional>
#include <string>

#include "tests/logging/log_support.h"
#include "tests/support/private_bus.h"

namespace test {

class ServiceLogTest : public ::testing::Test {
 protected:
  ServiceLogTest() {
    makeFolders(home_ + "/Library/Logs");
    ::setenv("HOME", home_.c_str(), 1);
  }
  ~ServiceLogTest() override { ::setenv("HOME", scratchHome().c_str(), 1); }

  static plinth::CSharedCFRef<CFStringRef> string(const std::string& text) {
    return CFStringCreateWithCString(nullptr, text.c_str(), kCFStringEncodingUTF8);
  }
  // Writes the entry of that name, made from what the file has of it.
  static void configure(const std::string& name, const std::function<void(tovan::CServiceCacheEntry&)>& change) {
    makeFolders(std::string(std::getenv("HOME")) + "/Library/Application Support/Lumisphere");
    tovan::CServiceCacheFile file;
    tovan::CServiceCacheEntry entry(string(name).get(), nullptr);
    file.get(string(name).get(), entry);
    change(entry);
    file.put(entry);
    file.flush();
  }
  static void configureLevel(const std::string& name, int level, std::optional<int> userLevel = std::nullopt) {
    configure(name, [&](tovan::CServiceCacheEntry& entry) {
      entry.setLogLevel(level, false);
      if (userLevel) entry.setLogLevel(*userLevel, true);
    });
  }
  static CTovanLoggerRef started(const std::string& name, unsigned int instance = 0, bool toFile = true) {
    CTovanLoggerRef logger(new CTovanLogger());
    logger->startupLogging(toFile, CSTR(name), instance);
    return logger;
  }
  std::string log(const std::string& fileName) const { return readFile(folder_ + "/" + fileName); }

  test::PrivateBus bus_;
  const std::string home_ = scratchFolder("home");
  const std::string folder_ = home_ + "/Library/Logs/Lumisphere";
};

}  // namespace test
