#include "platform/corefoundation/bundle_registry.h"

#include "platform/corefoundation/bundle.h"
#include "platform/corefoundation/bundle_images.h"
#include "platform/corefoundation/string.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <vector>

namespace cf {
namespace {

struct Entry {
  Owned<CFBundleRef> bundle;
  bool isLoaded = false;    // the program or a loaded library lies in it
  bool isGivenOut = false;  // by a Get function
};

// All but `mutex` is guarded by it.
struct Registry {
  std::mutex mutex;
  std::vector<Entry> entries;
  std::vector<Owned<CFBundleRef>> replaced;  // given out, but no longer up to date
  ImageGeneration imagesSeen;
  CFBundleRef main = nullptr;  // held by its entry, or for good
  Owned<CFArrayRef> all;       // what allBundles gave last, until the entries change
  std::vector<Owned<CFArrayRef>> formerAll;

  Entry* find(const std::string& path);
  // Both may move the entries. `path` must not be that of an entry that is there.
  Entry& add(const std::string& path);
  Entry& findOrAdd(const std::string& path);
  // Brings an entry up to date with its directory.
  void refresh(Entry& entry);
  void markLoaded(const std::vector<std::string>& images);
  // The array no longer shows the entries.
  void changed();
};

// Never destroyed: other threads may still ask for bundles while the process ends.
Registry& registry() {
  static Registry* const instance = std::make_unique<Registry>().release();
  return *instance;
}

const std::string& pathOf(const Entry& entry) { return bundleContent(entry.bundle.get())->path; }

// Whether the bundle shows what is on disk. An equal stamp proves that unless the file was still young when it was
// read; then the dictionaries are compared.
bool isUpToDate(CFBundleRef bundle) {
  const BundleContent& content = *bundleContent(bundle);
  if (bundleLayout(content.path) != content.layout) return false;
  if (content.infoWasSettled && FileStamp::of(content.layout.infoPath) == content.infoStamp) return true;
  FileStamp stamp;
  return CFEqual(readInfoDictionary(content.layout.infoPath, stamp).get(), content.info.get());
}

void Registry::changed() {
  if (all) formerAll.push_back(std::move(all));
}

Entry* Registry::find(const std::string& path) {
  const auto isThere = [&](const Entry& entry) { return pathOf(entry) == path; };
  const auto found = std::find_if(entries.begin(), entries.end(), isThere);
  return found == entries.end() ? nullptr : &*found;
}

Entry& Registry::add(const std::string& path) {
  Entry entry;
  entry.bundle.reset(createBundle(path));
  entries.push_back(std::move(entry));
  changed();
  return entries.back();
}

Entry& Registry::findOrAdd(const std::string& path) {
  Entry* const found = find(path);
  return found != nullptr ? *found : add(path);
}

void Registry::refresh(Entry& entry) {
  if (isUpToDate(entry.bundle.get())) return;
  Owned<CFBundleRef> fresh(createBundle(pathOf(entry)));
  const bool isMain = main == entry.bundle.get();
  if (isMain) main = fresh.get();
  if (entry.isGivenOut) replaced.push_back(std::move(entry.bundle));
  entry.bundle = std::move(fresh);
  entry.isGivenOut = isMain;
  changed();
}

void Registry::markLoaded(const std::vector<std::string>& images) {
  for (Entry& entry : entries) entry.isLoaded = false;
  for (const std::string& image : images) {
    if (const auto path = enclosingBundle(image)) findOrAdd(*path).isLoaded = true;
  }
}

// Locks the registry with its entries for the loaded images up to date.
std::unique_lock<std::mutex> lockWithImages(Registry& known) {
  const ImageGeneration now = imageGeneration();
  std::unique_lock<std::mutex> lock(known.mutex);
  if (known.imagesSeen == now) return lock;
  lock.unlock();
  const std::vector<std::string> images = imagePaths();
  lock.lock();
  known.markLoaded(images);
  known.imagesSeen = now;
  return lock;
}

CFBundleRef give(Entry& entry) {
  entry.isGivenOut = true;
  return entry.bundle.get();
}

bool hasIdentifier(const Entry& entry, std::string_view identifier) {
  const CFStringRef own = CFBundleGetIdentifier(entry.bundle.get());
  return own != nullptr && utf8View(own) == identifier;
}

CFBundleRef mainBundleLocked(Registry& known) {
  if (known.main != nullptr) return known.main;
  const std::string program = programPath();
  if (program.empty()) return nullptr;
  if (const auto path = enclosingBundle(program)) {
    known.main = give(known.findOrAdd(*path));
  } else {
    const std::size_t slash = program.rfind('/');
    known.main = createBundle(program.substr(0, slash == 0 ? 1 : slash), program);
  }
  known.changed();
  return known.main;
}

}  // namespace

CFBundleRef registeredBundle(const std::string& path) {
  if (!isDirectory(path)) return nullptr;
  Registry& known = registry();
  const std::lock_guard<std::mutex> lock(known.mutex);
  Entry* entry = known.find(path);
  if (entry == nullptr) {
    entry = &known.add(path);
  } else {
    known.refresh(*entry);
  }
  return Owned<CFBundleRef>::retaining(entry->bundle.get()).take();
}

CFBundleRef mainBundle() {
  Registry& known = registry();
  const std::lock_guard<std::mutex> lock(known.mutex);
  return mainBundleLocked(known);
}

CFBundleRef bundleWithIdentifier(std::string_view identifier) {
  Registry& known = registry();
  const auto lock = lockWithImages(known);
  for (const bool loaded : {true, false}) {
    for (Entry& entry : known.entries) {
      if (entry.isLoaded == loaded && hasIdentifier(entry, identifier)) return give(entry);
    }
  }
  return nullptr;
}

CFArrayRef allBundles() {
  Registry& known = registry();
  const auto lock = lockWithImages(known);
  CFBundleStorage* const main = mainBundleLocked(known);
  if (known.all) return known.all.get();
  Owned<CFMutableArrayRef> bundles(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
  if (main != nullptr) CFArrayAppendValue(bundles.get(), main);
  for (Entry& entry : known.entries) {
    if (CFBundleStorage* const bundle = give(entry); bundle != main) CFArrayAppendValue(bundles.get(), bundle);
  }
  known.all.reset(bundles.take());
  return known.all.get();
}

}  // namespace cf
