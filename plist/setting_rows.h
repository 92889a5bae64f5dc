// setting_rows.h: the working side of a settings table: which member each row describes, and what is done by the rows.
//
// A class with settings has one constant array of SettingRow, in member order. Its functions walk that array.
#pragma once

#include <tovan/setting_table.h>

#include <CoreFoundation/CFArray.h>
#include <CoreFoundation/CFDictionary.h>
#include <CoreFoundation/CFString.h>

#include <array>
#include <cstddef>
#include <variant>

namespace tovan {

// What happens to a member around a load.
enum class SettingLoad : std::uint8_t {
  fromDefault,     // put to its default first
  fromUnset,       // put to 0 or null first; still so after the load, it becomes the default
  fromUnsetEmpty,  // the same, and an empty string counts as null
  kept             // stays as it is when the key is absent
};

// A member of one object.
using SettingSlot = std::variant<bool*, std::int32_t*, std::int64_t*, plinth::CSharedCFRef<CFStringRef>*,
                                 plinth::CSharedCFRef<CFArrayRef>*, plinth::CSharedCFRef<CFDictionaryRef>*,
                                 plinth::CSharedCFRef<CFTypeRef>*>;

// A row without its member.
struct SettingRule {
  SettingDescription setting;
  SettingLoad load = SettingLoad::fromDefault;
  std::int32_t (*convert)(std::int32_t) = nullptr;  // of an int32: applied to what is read or assigned
};

template <class Owner>
struct SettingRow {
  template <class Value>
  using Member = Value Owner::*;

  SettingRule rule;
  std::variant<Member<bool>, Member<std::int32_t>, Member<std::int64_t>, Member<plinth::CSharedCFRef<CFStringRef>>,
               Member<plinth::CSharedCFRef<CFArrayRef>>, Member<plinth::CSharedCFRef<CFDictionaryRef>>,
               Member<plinth::CSharedCFRef<CFTypeRef>>>
      member;

  SettingSlot slotOf(Owner& owner) const {
    return std::visit([&owner](const auto pointer) { return SettingSlot(&(owner.*pointer)); }, member);
  }
  // For reading only: the slots of a constant object are the same.
  SettingSlot slotOf(const Owner& owner) const { return slotOf(const_cast<Owner&>(owner)); }
};

// What one row does to one member.
void resetSetting(const SettingRule& rule, const SettingSlot& slot);
// Leaves the member alone when the key is absent or its value of another type.
void readSetting(const SettingRule& rule, CFDictionaryRef dictionary, const SettingSlot& slot);
// Gives the default to a member that is still unset.
void settleSetting(const SettingRule& rule, const SettingSlot& slot);
// Sets the key or removes it. `condition` is the state of the setting that the row's writing depends on.
void writeSetting(const SettingRule& rule, const SettingSlot& slot, bool condition, CFMutableDictionaryRef dictionary);
plinth::CSharedCFRef<CFTypeRef> copySettingValue(const SettingRule& rule, const SettingSlot& slot);
// Throws CParamException, beginning with `function`.
void assignSetting(const SettingRule& rule, const SettingSlot& slot, CFTypeRef value, const char* function);
[[noreturn]] void throwUnknownSetting(CFStringRef key, const char* function);

// What all rows do to one object.
template <class Rows, class Owner>
void resetSettings(const Rows& rows, Owner& owner) {
  for (const auto& row : rows) resetSetting(row.rule, row.slotOf(owner));
}

template <class Rows, class Owner>
void readSettings(const Rows& rows, CFDictionaryRef dictionary, Owner& owner) {
  for (const auto& row : rows) readSetting(row.rule, dictionary, row.slotOf(owner));
}

template <class Rows, class Owner>
void settleSettings(const Rows& rows, Owner& owner) {
  for (const auto& row : rows) settleSetting(row.rule, row.slotOf(owner));
}

template <class Rows>
auto findRow(const Rows& rows, CFStringRef key) {
  auto row = rows.begin();
  while (row != rows.end() && !CFEqual(row->rule.setting.key, key)) ++row;
  return row;
}

template <class Rows, class Owner>
void writeSettings(const Rows& rows, const Owner& owner, CFMutableDictionaryRef dictionary) {
  for (const auto& row : rows) {
    const CFStringRef key = row.rule.setting.condition;
    const auto condition = key == nullptr ? rows.end() : findRow(rows, key);
    const bool holds = condition != rows.end() && *std::get<bool*>(condition->slotOf(owner));
    writeSetting(row.rule, row.slotOf(owner), holds, dictionary);
  }
}

template <class Rows, class Owner>
plinth::CSharedCFRef<CFTypeRef> copySettingOf(const Rows& rows, const Owner& owner, CFStringRef key) {
  const auto row = findRow(rows, key);
  return row == rows.end() ? nullptr : copySettingValue(row->rule, row->slotOf(owner));
}

template <class Rows, class Owner>
void assignSettingOf(const Rows& rows, Owner& owner, CFStringRef key, CFTypeRef value, const char* function) {
  const auto row = findRow(rows, key);
  if (row == rows.end()) throwUnknownSetting(key, function);
  assignSetting(row->rule, row->slotOf(owner), value, function);
}

// The public side of a table.
template <class Row, std::size_t count>
constexpr std::array<SettingDescription, count> descriptionsOf(const std::array<Row, count>& rows) {
  std::array<SettingDescription, count> descriptions;
  for (std::size_t i = 0; i < count; ++i) descriptions[i] = rows[i].rule.setting;
  return descriptions;
}

}  // namespace tovan
