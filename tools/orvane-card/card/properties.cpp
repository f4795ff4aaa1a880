#include "card/properties.h"

#include <utility>
#include <vector>

#include "text/utf.h"

namespace orvane::tool {
namespace {

constexpr PropertyQuery kCardProperties[] = {
    {L"Card Identifier", "", 0, Form::kBytes},
    {L"Card Serial Number", "", 0, Form::kText},
    {L"Read Only Mode", "", 0, Form::kBoolean},
    {L"Cache Mode", "", 0, Form::kCacheMode},
    {L"Free Space", "", 0, Form::kFreeSpace},
    {L"Capabilities", "", 0, Form::kCapabilities},
    {L"Key Sizes", "key exchange", 1, Form::kKeySizes},
    {L"Key Sizes", "signature", 2, Form::kKeySizes},
    {L"PIN List", "", 0, Form::kPinSet},
    {L"PIN Information", "user PIN", 1, Form::kPinInfo},
    {L"PIN Information", "administrator PIN", 2, Form::kPinInfo},
    {L"PIN Strength Verify", "user PIN", 1, Form::kPinStrength},
    {L"PIN Strength Change", "user PIN", 1, Form::kPinStrength},
    {L"PIN Strength Unblock", "user PIN", 1, Form::kPinStrength},
    {L"Authenticated State", "", 0, Form::kNumber},
    {L"Supports Windows x.509 Enrollment", "", 0, Form::kBoolean},
    {L"Key Import Support", "", 0, Form::kKeyImport},
    {L"Algorithms", "symmetric", 1, Form::kAlgorithms},
    {L"Algorithms", "asymmetric", 2, Form::kAlgorithms},
    {L"Padding Schemes", "asymmetric", 2, Form::kPaddings},
    {L"Chaining Modes", "", 0, Form::kNumber},
};

struct Bit {
  std::uint32_t mask;
  std::string_view name;
};

constexpr Bit kPins[] = {{1, "everyone"}, {2, "user"}, {4, "administrator"}};
constexpr Bit kPinStrengths[] = {{1, "plain text"}, {2, "session PIN"}};
constexpr Bit kKeyImports[] = {{1, "plain text"}, {2, "RSA"}, {4, "elliptic curve"}, {8, "shared symmetric"}};
constexpr Bit kPaddings[] = {{1, "none"}, {2, "PKCS #1"}, {4, "PSS"}, {8, "OAEP"}};

Json bitNames(std::uint32_t value, std::span<const Bit> bits) {
  Json names = Json::array();
  for (const Bit& bit : bits) {
    if (value & bit.mask) names.push_back(std::string(bit.name));
    value &= ~bit.mask;
  }
  if (value) names.push_back("unknown bits " + std::to_string(value));
  return names;
}

Json bitSet(std::uint32_t value, std::span<const Bit> bits) {
  return {{"value", value}, {"means", bitNames(value, bits)}};
}

Json choice(std::uint32_t value, std::uint32_t first, std::span<const std::string_view> names) {
  const bool known = value >= first && value - first < names.size();
  return {{"value", value}, {"means", known ? Json(std::string(names[value - first])) : Json(nullptr)}};
}

Json words(ByteView data, std::initializer_list<const char*> names) {
  Json value = Json::object();
  std::size_t offset = 0;
  for (const char* name : names) {
    value[name] = readLittleEndian32(data, offset);
    offset += 4;
  }
  return value;
}

Json pinInfo(ByteView data) {
  constexpr std::string_view kTypes[] = {"alphanumeric", "external", "challenge and response", "empty"};
  constexpr std::string_view kPurposes[] = {"authentication", "digital signature", "encryption",  "non-repudiation",
                                            "administrator",  "primary card",      "unblock only"};
  constexpr std::string_view kPolicies[] = {"normal", "timed", "none", "always prompt"};
  const auto word = [data](std::size_t index) { return readLittleEndian32(data, index * 4); };
  return {{"dwVersion", word(0)},
          {"PinType", choice(word(1), 0, kTypes)},
          {"PinPurpose", choice(word(2), 0, kPurposes)},
          {"dwChangePermission", bitSet(word(3), kPins)},
          {"dwUnblockPermission", bitSet(word(4), kPins)},
          {"PinCachePolicy",
           {{"dwVersion", word(5)}, {"type", choice(word(6), 0, kPolicies)}, {"dwPinCachePolicyInfo", word(7)}}},
          {"dwFlags", word(8)}};
}

Json algorithms(ByteView data) {
  Json list = Json::array();
  for (std::size_t offset = 0; offset < data.size(); offset += 4) {
    const std::uint32_t algorithm = readLittleEndian32(data, offset);
    const char* name = algorithm == 0xA400 ? "CALG_RSA_KEYX" : algorithm == 0x2400 ? "CALG_RSA_SIGN" : nullptr;
    list.push_back({{"value", algorithm}, {"means", name ? Json(name) : Json(nullptr)}});
  }
  return list;
}

Json text(ByteView data) {
  const std::string whole = toUtf8(data);
  return whole.substr(0, whole.find_last_not_of('\0') + 1);
}

// The size that a form's data has, or 0 when it varies.
std::size_t sizeOf(Form form) {
  switch (form) {
    case Form::kBytes:
    case Form::kText:
    case Form::kAlgorithms:
      return 0;
    case Form::kFreeSpace:
      return 16;
    case Form::kKeySizes:
      return 20;
    case Form::kCapabilities:
      return 12;
    case Form::kPinInfo:
      return 36;
    default:
      return 4;
  }
}

bool wellFormed(Form form, ByteView data) {
  if (form == Form::kText) return data.size() % 2 == 0;
  if (form == Form::kAlgorithms) return data.size() % 4 == 0;
  return sizeOf(form) == 0 || data.size() == sizeOf(form);
}

// NOLINTNEXTLINE(misc-no-recursion): the values are those of decodeProperty, three deep at most.
void appendText(std::string& line, const Json& value) {
  if (value.is_object() && value.size() == 2 && value.contains("value") && value.contains("means")) {
    line += value["value"].dump();
    if (value["means"].is_null()) return;
    line += " (";
    appendText(line, value["means"]);
    line += ")";
    return;
  }
  if (value.is_string()) {
    line += value.get<std::string>();
    return;
  }
  if (!value.is_structured()) {
    line += value.dump();
    return;
  }
  if (value.empty()) line += "none";
  bool first = true;
  for (const auto& [key, member] : value.items()) {
    if (!first) line += ", ";
    first = false;
    if (value.is_object()) line += key + " ";
    appendText(line, member);
  }
}

}  // namespace

std::span<const PropertyQuery> cardPropertyQueries() { return kCardProperties; }

Json decodeProperty(Form form, ByteView data) {
  constexpr std::string_view kCacheModes[] = {"global cache", "session only", "no cache"};
  if (!wellFormed(form, data)) return {{"malformed", toHex(data)}};
  switch (form) {
    case Form::kBytes:
      return toHex(data);
    case Form::kBoolean:
      return readLittleEndian32(data, 0) != 0;
    case Form::kNumber:
      return readLittleEndian32(data, 0);
    case Form::kText:
      return text(data);
    case Form::kPinSet:
      return bitSet(readLittleEndian32(data, 0), kPins);
    case Form::kCacheMode:
      return choice(readLittleEndian32(data, 0), 1, kCacheModes);
    case Form::kPinStrength:
      return bitSet(readLittleEndian32(data, 0), kPinStrengths);
    case Form::kKeyImport:
      return bitSet(readLittleEndian32(data, 0), kKeyImports);
    case Form::kPaddings:
      return bitSet(readLittleEndian32(data, 0), kPaddings);
    case Form::kAlgorithms:
      return algorithms(data);
    case Form::kFreeSpace:
      return words(data, {"dwVersion", "dwBytesAvailable", "dwKeyContainersAvailable", "dwMaxKeyContainers"});
    case Form::kKeySizes:
      return words(data, {"dwVersion", "dwMinimumBitlen", "dwDefaultBitlen", "dwMaximumBitlen", "dwIncrementalBitlen"});
    case Form::kCapabilities:
      return words(data, {"dwVersion", "fCertificateCompression", "fKeyGen"});
    case Form::kPinInfo:
      return pinInfo(data);
  }
  return toHex(data);
}

std::string propertyText(const Json& value) {
  std::string line;
  appendText(line, value);
  return line;
}

}  // namespace orvane::tool
