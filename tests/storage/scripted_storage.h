// scripted_storage.h: a storage that notes what it was asked, and does what a test wants it to do then.
#pragma once

#include <tovan/shared_storage.h>

#include <functional>
#include <string>

namespace test {

// One line for each call: the operation and its arguments in the order of the interface, "publish /folder client 7".
class ScriptedStorage : public tovan::ISharedStorage {
 public:
  OSStatus publish(const plinth::CURLRef& url, const plinth::CStringRef& client, long pid) override {
    note("publish " + path(url) + " " + client->str() + " " + std::to_string(pid));
    return 7;
  }
  void unpublish(const plinth::CURLRef& url, const plinth::CStringRef& client, long pid) override {
    note("unpublish " + path(url) + " " + client->str() + " " + std::to_string(pid));
  }
  std::int32_t getServerPort() override {
    note("port");
    return port;
  }
  void processTerminated(long pid) override { note("terminated " + std::to_string(pid)); }
  tovan::CSharedStoragePublishedMap getPublishedMap() const override {
    tovan::CSharedStoragePublishedMap map;
    map.emplace("/published", tovan::CSharedStoragePublishedEntry(CFSTR("app"), CFSTR("/published"), 7));
    return map;
  }
  void subscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath, const plinth::CStringRef& client,
                 long pid) override {
    note("subscribe " + url->getString()->str() + " " + mountPath->str() + " " + client->str() + " " +
         std::to_string(pid));
  }
  void unsubscribe(const plinth::CURLRef& url, const plinth::CStringRef& mountPath, const plinth::CStringRef& client,
                   long pid) override {
    note("unsubscribe " + url->getString()->str() + " " + mountPath->str() + " " + client->str() + " " +
         std::to_string(pid));
  }
  tovan::CSharedStorageSubscribedMap getSubscribedMap() const override {
    tovan::CSharedStorageSubscribedMap map;
    map.emplace("/mounted", tovan::CSharedStorageSubscribedEntry(CFSTR("app"), CFSTR("/mounted"), nullptr, 7));
    return map;
  }

  std::string seen;
  std::int32_t port = 2049;
  // Called after each line was noted; what it throws, the operation throws.
  std::function<void(const std::string& line)> then;

 private:
  static std::string path(const plinth::CURLRef& url) {
    const plinth::CStringRef text = url->getFileSystemPath();
    return text ? text->str() : "(none)";
  }
  void note(const std::string& line) {
    seen += line + "\n";
    if (then) then(line);
  }
};

using ScriptedStorageRef = plinth::CSharedObjectRef<ScriptedStorage>;

}  // namespace test
