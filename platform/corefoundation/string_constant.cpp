// string_constant.cpp: the constants of C programs, which cannot lay them out at compile time.
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/corefoundation/string_utf8.h"

using namespace cf;

namespace {

struct HashText {
  std::size_t operator()(std::string_view text) const noexcept { return hashBytes(text); }
};
// The keys are the bytes of the strings themselves.
using Constants = std::unordered_map<std::string_view, CFStringRef, HashText>;

constinit std::mutex constantsMutex;
// Made on first use and kept for ever, as the strings in it are.
constinit Constants* constants = nullptr;

}  // namespace

CFStringRef CFStringGetConstant(const char* text) {
  if (text == nullptr) return nullptr;
  const std::string_view bytes(text);
  const std::lock_guard lock(constantsMutex);
  if (constants == nullptr) constants = std::make_unique<Constants>().release();
  if (const auto found = constants->find(bytes); found != constants->end()) return found->second;
  Owned<CFStringRef> string(createString(bytes));
  if (!string) return nullptr;
  constants->emplace(utf8View(string.get()), string.get());
  // Nobody else has seen it yet.
  head(string.get())->count = kCFObjectIsConstant;
  return string.take();
}
