// setting_values.h: between a member and its property-list value.
#pragma once

#include <type_traits>

#include "plist/setting_rows.h"

namespace tovan {

template <class Slot>
using SlotValue = std::remove_pointer_t<Slot>;

template <class Value>
inline constexpr bool isHolder = !std::is_arithmetic_v<Value>;

// The property-list value of a number or boolean of the setting's type.
plinth::CSharedCFRef<CFTypeRef> makeSettingNumber(const SettingDescription& setting, std::int64_t number);
// The default of a number, boolean or enumeration.
std::int64_t settingDefaultNumber(const SettingDescription& setting);
// The number that a value stands for. False when it is of another type, no integer, out of the setting's range, or a
// name that the enumeration lacks.
bool numberOfSetting(const SettingDescription& setting, CFTypeRef value, std::int64_t& number);
// Whether an object may be the value of a string, an array, a dictionary or a value of any kind.
bool isObjectOfSetting(const SettingDescription& setting, CFTypeRef value);
// Null, or the empty string.
bool isUnsetOrEmpty(CFTypeRef value);

}  // namespace tovan
