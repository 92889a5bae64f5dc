// CSharedStorageUtils: waiting, and the names and places of storage folders.
#include <tovan/shared_storage_utils.h>

#include <plinth/exception.h>
#include <plinth/shared_cf_ref.h>
#include <tovan/constants.h>
#include <tovan/file_util.h>

#include <CoreFoundation/CFRunLoop.h>

#include <algorithm>
#include <bit>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <thread>

#include "storage/storage_failure.h"
#include "storage/storage_names.h"

namespace tovan {

using plinth::CSTR;
using plinth::CString;
using plinth::CStringRef;
using plinth::CURLRef;

namespace {

constexpr double kRequestTimeout = 60.0;
constexpr double kLongestWait = 1e9;  // seconds; some thirty years

// The leading characters, none cut in two.
std::string prefixOf(const std::string& id) {
  constexpr int kMostCharacters = 8;
  int characters = 0;
  std::size_t end = 0;
  for (; end < id.size() && id[end] != '-'; ++end) {
    const bool startsCharacter = (static_cast<unsigned char>(id[end]) & 0xC0) != 0x80;
    if (startsCharacter && ++characters > kMostCharacters) break;
  }
  return id.substr(0, end);
}

std::uint32_t hashOf(const std::string& id) {
  std::uint32_t hash = 0;
  for (const char character : id) {
    // Deliberate: a byte above 127 counts as a negative number, whatever the machine's char is.
    const auto extended = static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<signed char>(character)));
    hash = std::rotl(hash, 1) ^ extended;
  }
  return hash;
}

bool isBriefID(const std::string& name) {
  constexpr std::size_t kDigits = 8;
  const std::size_t hyphen = name.find('-');
  if (hyphen == std::string::npos || name.size() != hyphen + 1 + kDigits) return false;
  return name.find_first_not_of("0123456789ABCDEF", hyphen + 1) == std::string::npos && prefixOf(name).size() == hyphen;
}

CURLRef storageFolder(const CURLRef& base, const CStringRef& briefID) {
  const std::string name = briefID->str();
  if (name.find('/') != std::string::npos || name.find('\0') != std::string::npos) {
    throwStorageFailure(kSharedStorageExceptionStorage, kSharedStorageNotFolder, "identifier [%@] can't name a folder",
                        briefID);
  }
  const CStringRef shared = CSTR(TovanCorePrivate::kTovanClusterStorageSubPath);
  return base->copyAndAppendString(briefID, true)->copyAndAppendString(shared, true);
}

CURLRef mountedStorageFolder(const CStringRef& briefID) {
  const plinth::CSharedCFRef<CFStringRef> path(
      CFileUtil::expandTildeInPath(TovanCorePrivate::kTovanClusterStorageMountPath));
  return storageFolder(plinth::makeShared<plinth::CURL>(CSTR(path.get()), kCFURLPOSIXPathStyle, true), briefID);
}

}  // namespace

double CSharedStorageUtils::requestTimeout() { return kRequestTimeout; }

void CSharedStorageUtils::currentRunLoopRun(double seconds) {
  using Clock = std::chrono::steady_clock;
  using Seconds = std::chrono::duration<double>;
  const double wait = seconds > 0 ? std::min(seconds, kLongestWait) : 0;  // NaN is not greater than 0
  const Clock::time_point end = Clock::now() + std::chrono::duration_cast<Clock::duration>(Seconds(wait));
  double left = wait;
  do {
    const CFRunLoopRunResult result = CFRunLoopRunInMode(kCFRunLoopDefaultMode, left, false);
    if (result == kCFRunLoopRunStopped) return;
    if (result == kCFRunLoopRunFinished) std::this_thread::sleep_until(end);
    left = Seconds(end - Clock::now()).count();
  } while (left > 0);
}

CStringRef CSharedStorageUtils::briefUniqueID(const CStringRef& id) {
  const std::string text = id ? id->str() : std::string();
  // The prefix is appended rather than formatted: it may hold U+0000.
  CStringRef brief = CSTR(prefixOf(text));
  brief->append(CString::sprintf("-%08X", hashOf(text)));
  return brief;
}

CURLRef CSharedStorageUtils::publishedSharedURL(const CURLRef& url, const CStringRef& id) {
  return storageFolder(normalizedURL(url), briefUniqueID(id));
}

CURLRef CSharedStorageUtils::subscribedSharedURL(const CStringRef& id) {
  return mountedStorageFolder(briefUniqueID(id));
}

CURLRef CSharedStorageUtils::subscribedSharedURL(const CURLRef& url) {
  if (url.isNull()) throw plinth::CNullPointerException("Error: url is null!");
  const CStringRef last = url->getLastPathComponent();
  if (last && last->str() == "shared") {
    const CStringRef name = url->copyWithoutLastPathComponent()->getLastPathComponent();
    if (name && isBriefID(name->str())) return mountedStorageFolder(name);
  }
  const std::string text = url->getString()->str();
  // The text of a URL is ASCII, so its brief ID could begin with "nfs://"; the hash alone is as good a name.
  return mountedStorageFolder(CString::sprintf("url-%08X", hashOf(text.substr(0, text.find('?')))));
}

CURLRef CSharedStorageUtils::sharedInfoURL(const CStringRef& id) {
  return subscribedSharedURL(id)->copyAndAppendString(CSTR(kStorageInfoFileName), false);
}

CURLRef CSharedStorageUtils::localClusterStorageURL() {
  return plinth::makeShared<plinth::CURL>(CSTR(TovanCorePrivate::kTovanLocalClusterStoragePath), kCFURLPOSIXPathStyle,
                                          true);
}

bool CSharedStorageUtils::isLocalClusterStorageURL(const CURLRef& url) {
  return url && url->getFileSystemPath() == CSTR(TovanCorePrivate::kTovanLocalClusterStoragePath);
}

bool CSharedStorageUtils::isKelpClusterStorageURL(const CURLRef& url) {
  return url && url->getScheme() == CSTR("kelp");
}

}  // namespace tovan
