// setting_table.h: how the settings of a typed file are described.
//
// Each file class with settings has one table, a row per key, and everything reads that table: resetting, loading,
// defaults, sparse writing, the tools and the tests of the documentation. A class gives its rows with a static
// `settings()`, in the order of its members. Rows are constants that live as long as the library; any thread may read
// them.
#pragma once

#include <plinth/shared_cf_ref.h>
#include <tovan/export.h>

#include <CoreFoundation/CFBase.h>

#include <cstdint>
#include <span>
#include <string>

namespace tovan {

enum class SettingType : std::uint8_t {
  boolean,
  int32,
  int64,
  string,
  enumeration,  // an int32 code in memory, a string in the file
  array,
  dictionary,
  any  // any property-list value, stored as found
};

// When a setting is written. Where it is not, the key is absent from the written dictionary.
enum class SettingWritten : std::uint8_t {
  always,
  whenSet,          // not null
  whenNotEmpty,     // neither null nor the empty string
  whenNotDefault,   // differs from the default
  whenNotNegative,  // 0 or more
  withCondition     // when the boolean setting `condition` is true; null is written as the empty string
};

struct SettingCode {
  std::int32_t code;
  CFStringRef name;
};

struct SettingDescription {
  CFStringRef key = nullptr;
  SettingType type = SettingType::any;
  SettingWritten written = SettingWritten::always;
  const char* description = "";  // one line for people

  // What an absent key, or one that holds a value of another type, reads as. Exactly one of these speaks: the computed
  // default when there is one, else the text (of a string) or the number (a boolean's is 0 or 1, an enumeration's its
  // code). A string without a text, an array, a dictionary and any other value read as null.
  std::int64_t defaultNumber = 0;
  const std::int32_t* defaultConstant = nullptr;  // when not null, in place of defaultNumber
  CFStringRef defaultText = nullptr;
  CFStringRef (*copyComputedDefault)() = nullptr;  // the caller owns the result
  const char* computedDefault = nullptr;           // what is computed, in words

  std::span<const SettingCode> codes = {};  // of an enumeration
  CFStringRef condition = nullptr;          // of SettingWritten::withCondition
  CFStringRef container = nullptr;  // the key of the sub-dictionary that the setting lies in; null: the section itself
};

// A class's table.
using SettingList = std::span<const SettingDescription>;

// The row of a key, or null.
TOVAN_EXPORT const SettingDescription* findSetting(SettingList settings, CFStringRef key) noexcept;

// "boolean", "32-bit integer", "64-bit integer", "string", "one of DN, MC, RV", "array", "dictionary", "any value".
TOVAN_EXPORT std::string settingTypeText(const SettingDescription& setting);
// "true", "2189", "allinterfaces", "the empty string", "none", "the computer's name".
TOVAN_EXPORT std::string settingDefaultText(const SettingDescription& setting);
// "always", "when set", "when not empty", "when it differs from the default", "when 0 or more",
// "when RequirePassword is true".
TOVAN_EXPORT std::string settingWrittenText(const SettingDescription& setting);
// The default as a property-list value; empty when it is null.
TOVAN_EXPORT plinth::CSharedCFRef<CFTypeRef> copySettingDefault(const SettingDescription& setting);

}  // namespace tovan
