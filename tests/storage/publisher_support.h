// publisher_support.h: a publisher with an exports file of its own.
#pragma once

#include <tovan/cf_util.h>
#include <tovan/nfs_shared_storage_publisher.h>
#include <tovan/shared_storage_utils.h>

#include "tests/plist/plist_support.h"
#include "tests/storage/storage_support.h"

#include <sched.h>
#include <sys/mount.h>

#include <algorithm>
#include <functional>
#include <string>
#include <utility>
#include <vector>

namespace test {

using Lines = std::vector<CStringRef>;

// What can only be done by a subclass: planting an entry, and changing what is done to the file.
class OpenPublisher : public tovan::CNFSSharedStoragePublisher {
 public:
  using CNFSSharedStoragePublisher::_publish;
  using CNFSSharedStoragePublisher::_unpublish;
  using CNFSSharedStoragePublisher::publishedMap;

  // Called before the own _publish and _unpublish.
  std::function<void()> before = [] {};
  int publishes = 0;
  int unpublishes = 0;

  void _publish(const CStringRef& path, const Lines& lines) override {
    ++publishes;
    before();
    CNFSSharedStoragePublisher::_publish(path, lines);
  }
  void _unpublish(const CStringRef& path, const Lines& lines) override {
    ++unpublishes;
    before();
    CNFSSharedStoragePublisher::_unpublish(path, lines);
  }
};

class PublisherTest : public ::testing::Test {
 protected:
  PublisherTest() { useExportsFile(exports_); }

  void useExportsFile(const std::string& path) { publisher_->setExportsFilePath(CSTR(path)); }
  void publish(const std::string& path, const char* client = "app", long pid = 100) {
    publisher_->publish(folderURL(path), CSTR(client), pid);
  }
  void unpublish(const std::string& path, const char* client = "app", long pid = 100) {
    publisher_->unpublish(folderURL(path), CSTR(client), pid);
  }
  // Puts the exports file's folder, empty, into memory, where writing costs nothing. False unless the process is root;
  // it goes with the process.
  bool useMemory(const char* size = "size=16m") const {
    return ::unshare(CLONE_NEWNS) == 0 && ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
           ::mount("tmpfs", place_.c_str(), "tmpfs", 0, size) == 0;
  }
  std::string file() const { return readFile(exports_); }
  void setFile(const std::string& text) const { writeFile(exports_, text); }
  // The live count of a folder's entry; 0 when it has none.
  int countOf(const std::string& path) const {
    const auto map = publisher_->getPublishedMap();
    const auto found = map.find(path);
    return found == map.end() ? 0 : found->second.refCount();
  }
  std::string clientsOf(const std::string& path) const {
    const auto map = publisher_->getPublishedMap();
    const auto found = map.find(path);
    return found == map.end() ? "no entry"
                              : describe(CSharedCFRef<CFMutableDictionaryRef>(found->second.copyClients()).get());
  }
  // The names in the folder of the exports file.
  std::vector<std::string> beside() const {
    std::vector<std::string> names;
    for (const auto& name : tovan::CSharedStorageUtils::getDirContents(CSTR(place_))) names.push_back(name->str());
    return names;
  }
  CFIndex find(const std::vector<std::string>& lines, const std::string& path) const {
    return publisher_->findExportEntry(linesOf(lines), CSTR(path));
  }
  bool isOwn(const std::string& line) const {
    return publisher_->isMervaneExportEntry(plinth::CString::nullToEmptyString(CSTR(line)));
  }
  static Lines linesOf(const std::vector<std::string>& texts) {
    Lines lines;
    for (const std::string& text : texts) lines.push_back(plinth::CString::nullToEmptyString(CSTR(text)));
    return lines;
  }
  static std::vector<std::string> textsOf(const Lines& lines) {
    std::vector<std::string> texts;
    for (const CStringRef& line : lines) texts.push_back(line->str());
    return texts;
  }

  const std::string root_ = tovan::CSharedStorageUtils::normalizedPath(CSTR(scratchFolder("published")))->str();
  const std::string place_ = tovan::CSharedStorageUtils::normalizedPath(CSTR(scratchFolder("etc")))->str();
  const std::string exports_ = place_ + "/exports";
  const plinth::CSharedObjectRef<OpenPublisher> publisher_ = plinth::makeShared<OpenPublisher>();
};

inline const char* const kNotWritten =
    "code 255 CNFSSharedStoragePublisher::writeExportFile(): couldn't write file \"/etc/exports\"";

}  // namespace test
