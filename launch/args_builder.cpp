#include <tovan/args_builder.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <new>
#include <string>
#include <utility>

namespace tovan {

using plinth::CSTR;
using plinth::CStringRef;

namespace {

CStringRef textOf(const char* entry) {
  if (CStringRef text = CSTR(entry)) return text;
  return CSTR(entry, kCFStringEncodingISOLatin1);
}

}  // namespace

CArgsBuilder::CArgsBuilder(int capacity)
    : capacity_(std::max(capacity, 0)), array_(std::make_unique<char*[]>(static_cast<std::size_t>(capacity_) + 1)) {}

CArgsBuilder::~CArgsBuilder() { clear(); }

void CArgsBuilder::clear() noexcept {
  while (count_ > 0) {
    --count_;
    const OwnedText freed(std::exchange(array_[static_cast<std::size_t>(count_)], nullptr));
  }
}

CArgsBuilder::OwnedText CArgsBuilder::copyOf(const char* text) {
  const std::size_t size = std::strlen(text) + 1;
  OwnedText copy(new char[size]);
  std::memcpy(copy.get(), text, size);
  return copy;
}

// Doubles the capacity until `more` further entries fit.
void CArgsBuilder::reserve(std::size_t more) {
  constexpr std::int32_t limit = std::numeric_limits<std::int32_t>::max();
  if (more > static_cast<std::size_t>(limit - count_)) throw std::bad_alloc();
  const std::int32_t needed = count_ + static_cast<std::int32_t>(more);
  std::int32_t grown = capacity_;
  while (grown < needed) grown = grown == 0 ? 1 : grown > limit / 2 ? limit : 2 * grown;
  if (grown == capacity_) return;
  auto array = std::make_unique<char*[]>(static_cast<std::size_t>(grown) + 1);
  std::copy_n(array_.get(), count_, array.get());
  array_ = std::move(array);
  capacity_ = grown;
}

// The texts are copies already: what was given may be entries of this builder, whose array goes here.
void CArgsBuilder::append(std::vector<OwnedText> texts) {
  reserve(texts.size());
  for (OwnedText& text : texts) {
    array_[static_cast<std::size_t>(count_++)] = text.release();
  }
  array_[static_cast<std::size_t>(count_)] = nullptr;
}

void CArgsBuilder::addArg(const char* text) { addArgs(1, &text); }

void CArgsBuilder::addArgs(const char* const* list) {
  if (list == nullptr) return;
  std::vector<OwnedText> copies;
  for (; *list != nullptr; ++list) copies.push_back(copyOf(*list));
  append(std::move(copies));
}

void CArgsBuilder::addArgs(unsigned int count, const char* const* list) {
  if (list == nullptr) return;
  std::vector<OwnedText> copies;
  for (unsigned int i = 0; i < count && list[i] != nullptr; ++i) copies.push_back(copyOf(list[i]));
  append(std::move(copies));
}

void CArgsBuilder::addArgs(const std::vector<CStringRef>& texts) {
  std::vector<OwnedText> copies;
  for (const CStringRef& text : texts) {
    if (text) copies.push_back(copyOf(text->getUTF8Ptr()));
  }
  append(std::move(copies));
}

int CArgsBuilder::findArg(const char* name) const noexcept {
  if (name == nullptr) return -1;
  const std::size_t length = std::strlen(name);
  for (std::int32_t i = 0; i < count_; ++i) {
    const char* const entry = array_[static_cast<std::size_t>(i)];
    if (std::strncmp(entry, name, length) == 0 && entry[length] == '=') return i;
  }
  return -1;
}

void CArgsBuilder::replaceArg(int index, const char* text) {
  if (index < 0 || index >= count_ || text == nullptr) return;
  OwnedText copy = copyOf(text);
  const OwnedText freed(std::exchange(array_[static_cast<std::size_t>(index)], copy.release()));
}

CArgsBuilder::operator CStringRef() const {
  if (count_ == 0) return nullptr;
  std::string joined;
  for (std::int32_t i = 0; i < count_; ++i) {
    if (i > 0) joined += ' ';
    joined += textOf(array_[static_cast<std::size_t>(i)])->getUTF8Ptr();
  }
  return CSTR(joined);
}

CArgsBuilder::operator std::vector<CStringRef>() const {
  std::vector<CStringRef> texts;
  texts.reserve(static_cast<std::size_t>(count_));
  for (std::int32_t i = 0; i < count_; ++i) texts.push_back(textOf(array_[static_cast<std::size_t>(i)]));
  return texts;
}

CArgsBuilder::operator plinth::CSharedCFRef<CFArrayRef>() const {
  plinth::CSharedCFRef<CFMutableArrayRef> texts(CFArrayCreateMutable(kCFAllocatorDefault, 0, &kCFTypeArrayCallBacks));
  for (std::int32_t i = 0; i < count_; ++i) {
    CFArrayAppendValue(texts.get(), textOf(array_[static_cast<std::size_t>(i)])->getStringRef());
  }
  return texts;
}

}  // namespace tovan
