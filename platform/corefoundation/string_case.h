// string_case.h: the other case of a character, the same for every locale.
#pragma once

#include "platform/corefoundation/string.h"

namespace cf {

// By the simple (one to one) mappings of Unicode below U+10000; a character without one is its own answer.
char32_t lowercase(char32_t point) noexcept;
char32_t uppercase(char32_t point) noexcept;
// The form in which characters that differ only in case are the same.
char32_t foldCase(char32_t point) noexcept;

}  // namespace cf
