#include "tools/mervaned/mount_record.h"

#include <CoreFoundation/CoreFoundation.h>
#include <plinth/exception.h>
#include <plinth/url.h>
#include <tovan/cf_util.h>
#include <tovan/constants.h>
#include <tovan/file_util.h>
#include <tovan/property_list_basic_file.h>

#include <utility>
#include <vector>

#include "tools/support/process_log.h"
#include "tools/support/text.h"

namespace mervaned {

using plinth::CSharedCFRef;
using tools::stringOf;
using tools::textOf;
using tovan::CFUtil;
using tovan::CPropertyListBasicFile;

namespace {

// The list's one section.
CFStringRef section() { return CFSTR("mounts"); }

std::string recordPath() {
  const CSharedCFRef<CFStringRef> folder(TovanExpandTildeInPath(tovan::TovanCorePrivate::kTovanConfigPath));
  return textOf(folder.get()) + "LumisphereMounts.plist";
}

CFStringRef urlKey() { return CFSTR("url"); }
CFStringRef listedPathKey() { return CFSTR("listedPath"); }
CFStringRef typeKey() { return CFSTR("type"); }
CFStringRef sourceKey() { return CFSTR("source"); }

std::string textIn(CFDictionaryRef dictionary, CFStringRef key) {
  CFStringRef value = nullptr;
  CFUtil::CFDictGetString(dictionary, key, value);
  return textOf(value);
}

// A text alone is the URL: so earlier daemons wrote it.
RecordedMount mountIn(const std::string& mountPoint, CFTypeRef value) {
  if (CFGetTypeID(value) == CFStringGetTypeID()) return {textOf(static_cast<CFStringRef>(value)), mountPoint, "", ""};
  if (CFGetTypeID(value) != CFDictionaryGetTypeID()) return {};
  const auto mount = static_cast<CFDictionaryRef>(value);
  return {textIn(mount, urlKey()), textIn(mount, listedPathKey()), textIn(mount, typeKey()),
          textIn(mount, sourceKey())};
}

std::map<std::string, RecordedMount> mountsIn(CFDictionaryRef dictionary) {
  const auto count = static_cast<std::size_t>(CFDictionaryGetCount(dictionary));
  std::vector<const void*> keys(count), values(count);
  CFDictionaryGetKeysAndValues(dictionary, keys.data(), values.data());
  std::map<std::string, RecordedMount> mounts;
  for (std::size_t i = 0; i < count; ++i) {
    const std::string mountPoint = textOf(static_cast<CFStringRef>(keys[i]));
    RecordedMount mount = mountIn(mountPoint, values[i]);
    if (!mount.url.empty()) mounts.emplace(mountPoint, std::move(mount));
  }
  return mounts;
}

CSharedCFRef<CFMutableDictionaryRef> listOf(const RecordedMount& mount) {
  CSharedCFRef<CFMutableDictionaryRef> list(CFUtil::CFDictMakeMutable());
  CFUtil::CFDictSetString(list.get(), urlKey(), stringOf(mount.url).get());
  CFUtil::CFDictSetString(list.get(), listedPathKey(), stringOf(mount.listedPath).get());
  if (mount.type.empty()) return list;
  CFUtil::CFDictSetString(list.get(), typeKey(), stringOf(mount.type).get());
  CFUtil::CFDictSetString(list.get(), sourceKey(), stringOf(mount.source).get());
  return list;
}

// HOST:/PATH, as the kernel lists it; an address of version 6 stands in brackets.
std::string sourceOf(const std::string& url) {
  const CSharedCFRef<CFStringRef> text = stringOf(url);
  const CSharedCFRef<CFURLRef> parsed(text ? CFURLCreateWithString(kCFAllocatorDefault, text.get(), nullptr) : nullptr);
  if (!parsed) return {};
  const auto remote = plinth::makeShared<plinth::CURL>(parsed.get());
  const plinth::CStringRef host = remote->getHostName(), folder = remote->getFileSystemPath();
  if (!host || !folder) return {};
  const bool isAddress = host->str().find(':') != std::string::npos;
  return printable((isAddress ? "[" + host->str() + "]" : host->str()) + ":" + folder->str());
}

}  // namespace

bool isThere(const RecordedMount& mount, const MountTable& table) {
  const auto listed = table.find(mount.listedPath);
  if (listed == table.end()) return false;
  const auto& [id, type, source] = listed->second;
  if (!mount.type.empty()) return type == mount.type && source == mount.source;
  return (type == "nfs" || type == "nfs4") && !source.empty() && source == sourceOf(mount.url);
}

MountRecord::MountRecord() : path_(recordPath()) {
  read();
  prune();
}

void MountRecord::read() {
  try {
    const CSharedCFRef<CFDictionaryRef> list = CPropertyListBasicFile(stringOf(path_).get()).toPropertyList();
    CFTypeRef mounts = nullptr;
    if (CFUtil::CFDictGet(list.get(), section(), mounts) && CFGetTypeID(mounts) == CFDictionaryGetTypeID()) {
      mounts_ = mountsIn(static_cast<CFDictionaryRef>(mounts));
    }
  } catch (const plinth::CException& exception) {
    tools::report(tools::kLogFailure,
                  std::string("mounts of an earlier run cannot be told from others: ") + exception.what());
  }
}

void MountRecord::prune() {
  const MountTable table = mountTable();
  if (table.empty()) return;
  const auto isOver = [&table](const auto& one) {
    const RecordedMount& mount = one.second;
    return (!mount.type.empty() || table.count(mount.listedPath) != 0) && !isThere(mount, table);
  };
  if (std::erase_if(mounts_, isOver) != 0) write();
}

void MountRecord::put(const std::string& mountPoint, const RecordedMount& mount) {
  mounts_[mountPoint] = mount;
  write();
}

void MountRecord::remove(const std::string& mountPoint) {
  if (mounts_.erase(mountPoint) != 0) write();
}

void MountRecord::write() const {
  const CSharedCFRef<CFMutableDictionaryRef> list(CFUtil::CFDictMakeMutable()), mounts(CFUtil::CFDictMakeMutable());
  for (const auto& [mountPoint, mount] : mounts_) {
    CFUtil::CFDictSet(mounts.get(), stringOf(mountPoint).get(), listOf(mount).get());
  }
  CFUtil::CFDictSet(list.get(), section(), mounts.get());
  try {
    CPropertyListBasicFile(stringOf(path_).get()).writePropertyList(list.get());
  } catch (const plinth::CException& exception) {
    tools::report(tools::kLogFailure, std::string("cannot note what is mounted: ") + exception.what());
  }
}

}  // namespace mervaned
