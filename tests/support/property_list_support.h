// property_list_support.h: short ways to read, write and compare property lists in tests.
#pragma once

#include <CoreFoundation/CoreFoundation.h>

#include <cstdint>
#include <random>
#include <string>
#include <utility>

namespace test {

// Holds one reference.
template <class Ref>
class Held {
 public:
  Held() = default;
  explicit Held(Ref taken) : object_(taken) {}
  Held(Held&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  Held& operator=(Held&& other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~Held() {
    if (object_ != nullptr) CFRelease(object_);
  }
  Ref get() const { return object_; }
  Ref* out() { return &object_; }
  explicit operator bool() const { return object_ != nullptr; }

 private:
  Ref object_ = nullptr;
};

std::string text(CFStringRef string);
Held<CFStringRef> string(const std::string& utf8);
Held<CFDataRef> data(const std::string& bytes);
std::string bytes(CFDataRef data);

// What reading gave: the list, or the error's code, domain and description.
struct Parsed {
  Held<CFPropertyListRef> list;
  CFIndex code = 0;
  std::string domain;
  std::string error;
  CFPropertyListFormat format = kCFPropertyListOpenStepFormat;
};
Parsed parse(const std::string& bytes, CFOptionFlags options = kCFPropertyListImmutable);
// The same with the declaration, document-type line and <plist> put around `value`, each on lines of their own, so that
// the value begins at line 4, column 1.
Parsed parseValue(const std::string& value);

struct Written {
  std::string bytes;
  CFIndex code = 0;
  std::string error;
};
Written write(CFPropertyListRef list, CFPropertyListFormat format = kCFPropertyListXMLFormat_v1_0);
// The lines between <plist> and </plist>.
std::string writtenValue(CFPropertyListRef list);

// A text that is equal exactly for equal lists with equal order of keys: kinds, integers, the bits of reals, dates in
// seconds, strings and data in hexadecimal. tests/corefoundation/integration/plist_judge.py writes the same.
std::string canonical(CFTypeRef object);

// Random lists, of all kinds. Reals are finite, dates whole seconds of the years 1 to 9999, strings free of NUL and of
// what XML does not allow.
class ListMaker {
 public:
  explicit ListMaker(std::uint32_t seed) : random_(seed) {}
  // A dictionary with up to `size` objects in it.
  Held<CFPropertyListRef> make(int size);

 private:
  std::uint64_t below(std::uint64_t limit) { return random_() % limit; }
  std::string randomText();
  Held<CFTypeRef> leaf();
  Held<CFTypeRef> value(int& size, int depth);
  Held<CFTypeRef> container(bool dictionary, int& size, int depth);

  std::mt19937_64 random_;
};

}  // namespace test
