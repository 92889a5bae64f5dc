#include <tovan/service_pid_file.h>

#include <tovan/cf_util.h>
#include <tovan/constants.h>

#include <CoreFoundation/CFNumber.h>

#include <signal.h>

#include <charconv>

#include "plist/path_text.h"

namespace tovan {

using plinth::CSharedCFRef;
using plinth::CSharedObjectRef;

namespace {

CFStringRef attributesKey() { return CFSTR("attributes"); }
CFStringRef kindKey() { return CFSTR("Kind"); }
CFStringRef nameKey() { return CFSTR("Name"); }
CFStringRef versionKey() { return CFSTR("Version"); }

CFDictionaryRef asDictionary(CFTypeRef value) {
  const bool is = value != nullptr && CFGetTypeID(value) == CFDictionaryGetTypeID();
  return is ? static_cast<CFDictionaryRef>(value) : nullptr;
}

// A copy that can change; a new dictionary of null.
CSharedCFRef<CFMutableDictionaryRef> changeableCopy(CFDictionaryRef dictionary) {
  return CSharedCFRef<CFMutableDictionaryRef>(dictionary == nullptr ? CFUtil::CFDictMakeMutable()
                                                                    : CFUtil::CFDictMakeMutableCopy(dictionary));
}

CSharedCFRef<CFStringRef> decimalText(std::int32_t pid) {
  return CSharedCFRef<CFStringRef>(
      CFStringCreateWithFormat(kCFAllocatorDefault, nullptr, CFSTR("%d"), static_cast<int>(pid)));
}

CSharedCFRef<CFStringRef> copyString(CFDictionaryRef dictionary, CFStringRef key) {
  CFStringRef value = nullptr;
  CFUtil::CFDictGetString(dictionary, key, value);
  return CSharedCFRef<CFStringRef>::retaining(value);
}

// The process that a key of "attributes" names; 0 when it is not a positive number in its plain decimal form.
pid_t processOfKey(CFTypeRef key) {
  if (CFGetTypeID(key) != CFStringGetTypeID()) return 0;
  const std::string text = pathText(static_cast<CFStringRef>(key));
  std::int32_t pid = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), pid);
  const bool isPlain = error == std::errc() && end == text.data() + text.size() && std::to_string(pid) == text;
  return isPlain && pid > 0 ? pid : 0;
}

// One that this user may not signal counts as dead on purpose. 0 and negative numbers stand for whole groups of
// processes and are never asked about.
bool isAlive(pid_t pid) { return pid > 0 && ::kill(pid, 0) == 0; }

}  // namespace

CServicePIDFile::CServicePIDFile(CFStringRef key) : CServicePIDFile(key, TovanCorePrivate::kTovanPIDFilePath) {}

CServicePIDFile::CServicePIDFile(CFStringRef key, CFStringRef path)
    : CPropertyListBasicFile(expandedPath(path).get()), key_(CSharedCFRef<CFStringRef>::retaining(key)) {}

CServicePIDFile::~CServicePIDFile() = default;

bool CServicePIDFile::refresh() {
  const bool read = CPropertyListBasicFile::refresh();
  const CSharedCFRef<CFDictionaryRef> document = CPropertyListBasicFile::toPropertyList();
  pids_ = fromArray(static_cast<CFArrayRef>(CFDictionaryGetValue(document.get(), key())));
  return read;
}

std::vector<std::int32_t> CServicePIDFile::fromArray(CFArrayRef array) const {
  std::vector<std::int32_t> pids;
  if (array == nullptr || CFGetTypeID(array) != CFArrayGetTypeID()) return pids;
  for (CFIndex i = 0; i < CFArrayGetCount(array); ++i) {
    const CFTypeRef value = CFArrayGetValueAtIndex(array, i);
    std::int32_t pid = 0;
    if (value == nullptr || CFGetTypeID(value) != CFNumberGetTypeID()) continue;
    if (CFNumberGetValue(static_cast<CFNumberRef>(value), kCFNumberSInt32Type, &pid)) pids.push_back(pid);
  }
  return pids;
}

CSharedCFRef<CFArrayRef> CServicePIDFile::toArray(const std::vector<std::int32_t>& pids) const {
  const CSharedCFRef<CFMutableArrayRef> array(CFUtil::CFArrayMakeMutable());
  for (const std::int32_t pid : pids) {
    if (pid != 0) CFUtil::CFArrayAppendInt(array.get(), pid);
  }
  return array;
}

bool CServicePIDFile::get(std::vector<std::int32_t>& pids) const {
  pids_.clear();
  const CSharedCFRef<CFDictionaryRef> document = readPropertyList();
  pids_ = fromArray(static_cast<CFArrayRef>(CFDictionaryGetValue(document.get(), key())));
  pids = pids_;
  return true;
}

bool CServicePIDFile::put(const std::vector<std::int32_t>& pids) {
  pids_ = pids;
  flush();
  return true;
}

void CServicePIDFile::flush() const {
  flushSection([this](CFMutableDictionaryRef document) {
    const CSharedCFRef<CFArrayRef> array = toArray(pids_);
    CFUtil::CFDictSet(document, key(), CFArrayGetCount(array.get()) > 0 ? array.get() : nullptr);
  });
}

CFDictionaryRef CServicePIDFile::getAttributes() const {
  const CSharedCFRef<CFDictionaryRef> document = CPropertyListBasicFile::toPropertyList();
  const CFDictionaryRef attributes = asDictionary(CFDictionaryGetValue(document.get(), attributesKey()));
  attributes_ = CSharedCFRef<CFMutableDictionaryRef>(CFUtil::CFDictMakeMutableCopy(attributes));
  return attributes;
}

void CServicePIDFile::setAttributes(CFDictionaryRef attributes) {
  const CSharedCFRef<CFMutableDictionaryRef> cache(CFUtil::CFDictMakeMutableCopy(attributes));
  const CSharedCFRef<CFMutableDictionaryRef> document = changeableCopy(CPropertyListBasicFile::toPropertyList().get());
  CFUtil::CFDictSet(document.get(), attributesKey(), attributes);
  fromPropertyList(document.get());
  attributes_ = cache;
}

CFDictionaryRef CServicePIDFile::processAttributes(std::int32_t pid) const {
  const CFDictionaryRef attributes = getAttributes();
  return attributes == nullptr ? nullptr : asDictionary(CFDictionaryGetValue(attributes, decimalText(pid).get()));
}

bool CServicePIDFile::processAttributes(std::int32_t pid, CSharedCFRef<CFStringRef>& kind,
                                        CSharedCFRef<CFStringRef>& name, CSharedCFRef<CFStringRef>& version) {
  refresh();
  const CFDictionaryRef attributes = processAttributes(pid);
  kind = copyString(attributes, kindKey());
  name = copyString(attributes, nameKey());
  version = copyString(attributes, versionKey());
  return attributes != nullptr;
}

void CServicePIDFile::setProcessAttributes(std::int32_t pid, CFStringRef kind, CFStringRef name, CFStringRef version) {
  const CSharedObjectRef<CFileLockMonitor> monitor = beginTransaction();
  pruneDeadProcesses();
  const CSharedCFRef<CFMutableDictionaryRef> attributes = changeableCopy(processAttributes(pid));
  CFUtil::CFDictSetString(attributes.get(), kindKey(), kind);
  CFUtil::CFDictSetString(attributes.get(), nameKey(), name);
  CFUtil::CFDictSetString(attributes.get(), versionKey(), version);
  setProcessAttributes(pid, attributes.get());
  flush();
}

void CServicePIDFile::setProcessAttributes(std::int32_t pid, CFDictionaryRef attributes) {
  const CSharedCFRef<CFMutableDictionaryRef> all = changeableCopy(getAttributes());
  CFUtil::CFDictSet(all.get(), decimalText(pid).get(), attributes);
  setAttributes(CFDictionaryGetCount(all.get()) == 0 ? nullptr : all.get());
}

void CServicePIDFile::clearProcessAttributes(std::int32_t pid) {
  const CSharedObjectRef<CFileLockMonitor> monitor = beginTransaction();
  setProcessAttributes(pid, nullptr);
  flush();
}

// With the lock held, the flush that ends the transaction writes the document in memory. A caller that holds the lock
// already has read the file under it.
CSharedObjectRef<CPropertyListBasicFile::CFileLockMonitor> CServicePIDFile::beginTransaction() {
  if (!fileLock().isNull()) return nullptr;
  lockForRW();
  auto monitor = plinth::makeShared<CFileLockMonitor>(this);
  refresh();
  return monitor;
}

void CServicePIDFile::pruneDeadProcesses() {
  const CSharedCFRef<CFMutableDictionaryRef> attributes = changeableCopy(getAttributes());
  std::vector<CFTypeRef> keys(static_cast<std::size_t>(CFDictionaryGetCount(attributes.get())));
  CFDictionaryGetKeysAndValues(attributes.get(), keys.data(), nullptr);
  bool removed = false;
  for (const CFTypeRef key : keys) {
    if (isAlive(processOfKey(key))) continue;
    CFDictionaryRemoveValue(attributes.get(), key);
    removed = true;
  }
  if (removed) setAttributes(attributes.get());
}

}  // namespace tovan
