// recording_storage.h: a storage that only says what it was asked.
#pragma once

#include <tovan/shared_storage.h>

#include <string>

namespace test {

class RecordingStorage : public tovan::ISharedStorage {
 public:
  explicit RecordingStorage(std::string& seen) : seen_(seen) {}
  ~RecordingStorage() override { seen_ += "destroyed "; }

  OSStatus publish(const plinth::CURLRef&, const plinth::CStringRef&, long) override {
    seen_ += "publish ";
    return 0;
  }
  void unpublish(const plinth::CURLRef&, const plinth::CStringRef&, long) override { seen_ += "unpublish "; }
  std::int32_t getServerPort() override { return 2049; }
  void processTerminated(long pid) override { seen_ += "terminated:" + std::to_string(pid) + " "; }
  void subscribe(const plinth::CURLRef&, const plinth::CStringRef&, const plinth::CStringRef&, long) override {
    seen_ += "subscribe ";
  }
  void unsubscribe(const plinth::CURLRef&, const plinth::CStringRef&, const plinth::CStringRef&, long) override {
    seen_ += "unsubscribe ";
  }

 private:
  std::string& seen_;
};

}  // namespace test
