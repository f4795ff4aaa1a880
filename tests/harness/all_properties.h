// The one list of properties: what tests, benchmark, soak, storm and fuzz targets ask for and set.
#ifndef ORVANE_TESTS_HARNESS_ALL_PROPERTIES_H
#define ORVANE_TESTS_HARNESS_ALL_PROPERTIES_H

#include <algorithm>
#include <string_view>
#include <vector>

#include "platform/card_module.h"

namespace orvane::test {

// A property of the card that can be asked for, with flags that get an answer.
struct CardProperty {
  LPCWSTR name;
  DWORD flags = 0;
};

// In the order in which the minidriver tests names.
inline constexpr CardProperty kCardProperties[] = {
    {CP_CARD_GUID},
    {CP_CARD_READ_ONLY},
    {CP_CARD_FREE_SPACE},
    {CP_CARD_KEYSIZES},
    {CP_CARD_CAPABILITIES},
    {CP_CARD_CACHE_MODE},
    {CP_CARD_SERIAL_NO},
    {CP_CARD_PIN_INFO, ROLE_USER},
    {CP_SUPPORTS_WIN_X509_ENROLLMENT},
    {CP_CARD_LIST_PINS},
    {CP_CARD_AUTHENTICATED_STATE},
    {CP_ENUM_ALGORITHMS, CARD_ASYMMETRIC_OPERATION},
    {CP_CARD_PIN_STRENGTH_VERIFY},
    {CP_CARD_PIN_STRENGTH_CHANGE},
    {CP_CARD_PIN_STRENGTH_UNBLOCK},
    {CP_KEY_IMPORT_SUPPORT},
    {CP_PADDING_SCHEMES},
    {CP_CHAINING_MODES},
};

// Those that can be set; the last two cannot be asked for.
inline constexpr LPCWSTR kSettableCardProperties[] = {
    CP_CARD_CACHE_MODE, CP_SUPPORTS_WIN_X509_ENROLLMENT, CP_CARD_GUID,     CP_CARD_SERIAL_NO,
    CP_CARD_PIN_INFO,   CP_CARD_PIN_STRENGTH_VERIFY,     CP_PARENT_WINDOW, CP_PIN_CONTEXT_STRING};

// Properties of a container. The second one can be set.
inline constexpr LPCWSTR kContainerProperties[] = {CCP_CONTAINER_INFO, CCP_PIN_IDENTIFIER};

// Every name of the three lists once, in their order.
inline std::vector<LPCWSTR> allPropertyNames() {
  std::vector<LPCWSTR> names;
  const auto add = [&](LPCWSTR name) {
    const auto isSame = [&](LPCWSTR other) { return std::wstring_view(other) == name; };
    if (std::none_of(names.begin(), names.end(), isSame)) names.push_back(name);
  };
  for (const CardProperty& property : kCardProperties) add(property.name);
  for (const LPCWSTR name : kSettableCardProperties) add(name);
  for (const LPCWSTR name : kContainerProperties) add(name);
  return names;
}

}  // namespace orvane::test

#endif  // ORVANE_TESTS_HARNESS_ALL_PROPERTIES_H
