// string_locale.h: the "C" locale, whose decimal point is '.', for a thread or a call, whatever the process has set.
#pragma once

#include <locale.h>

namespace cf {

// Kept for ever.
inline locale_t plainLocale() {
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", nullptr);
  return locale;
}

// The calling thread has the "C" locale for a scope.
class PlainLocale {
 public:
  PlainLocale() : previous_(uselocale(plainLocale())) {}
  ~PlainLocale() { uselocale(previous_); }
  PlainLocale(const PlainLocale&) = delete;
  PlainLocale& operator=(const PlainLocale&) = delete;

 private:
  locale_t previous_;
};

}  // namespace cf
