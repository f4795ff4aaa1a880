// The card and container properties of the minidriver interface, as the tool asks for and shows them.
#ifndef ORVANE_TOOL_CARD_PROPERTIES_H
#define ORVANE_TOOL_CARD_PROPERTIES_H

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "text/bytes.h"
#include "text/json.h"

namespace orvane::tool {

// Form says how the bytes of a property are to be read.
enum class Form {
  kBytes,
  kBoolean,
  kNumber,
  kText,  // UTF-16
  kPinSet,
  kCacheMode,
  kPinStrength,
  kKeyImport,
  kPaddings,
  kAlgorithms,  // ALG_ID words
  kFreeSpace,
  kKeySizes,
  kCapabilities,
  kPinInfo,
};

// PropertyQuery is one question: the property's name, the flags that go with it and what the flags stand for.
struct PropertyQuery {
  std::wstring_view name;
  std::string_view flagsMeaning;  // empty: the property takes none
  std::uint32_t flags;
  Form form;
};

// cardPropertyQueries lists every readable card property, those with flags once for each value worth asking.
std::span<const PropertyQuery> cardPropertyQueries();

// decodeProperty gives the value in readable form: a number, boolean or text, or an object with the published member
// names. Data of an unexpected size comes back as {"malformed": hexadecimal digits}.
Json decodeProperty(Form form, ByteView data);

// propertyText writes a decoded value on one line for people.
std::string propertyText(const Json& value);

}  // namespace orvane::tool

#endif
