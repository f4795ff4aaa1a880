// The files of the card file system: their names and what is in them.
#ifndef ORVANE_TOOL_CARD_CARD_FILES_H
#define ORVANE_TOOL_CARD_CARD_FILES_H

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "text/bytes.h"

namespace orvane::tool {

// CardPath is a file on the card; an empty directory is the root.
struct CardPath {
  std::string directory;
  std::string name;

  bool operator==(const CardPath&) const = default;
};

// parseCardPath reads "NAME" or "DIRECTORY/NAME" ("\" works too, a leading separator means the root). Without a
// directory the usual place is taken: the root for "cardid" and "cardcf", "mscp" for all others. Throws ToolError
// (ExitCode::kUsage) for an empty name.
CardPath parseCardPath(std::string_view text);

// certificateFile gives the name of a container's certificate file: "ksc" or "kxc" and the index with two digits.
CardPath certificateFile(int container, bool signature);

// isCertificateFile says whether a name is one of those.
bool isCertificateFile(std::string_view name);

// Freshness is the content of "cardcf".
struct Freshness {
  std::uint8_t version = 0;
  std::uint8_t pins = 0;
  std::uint16_t containers = 0;
  std::uint16_t files = 0;

  bool operator==(const Freshness&) const = default;
};

// decodeFreshness reads the six bytes of "cardcf"; throws ToolError (ExitCode::kCheckFailed) for another size.
Freshness decodeFreshness(ByteView data);

// freshnessText gives the counters in words: "version 1, PINs 2, containers 3, files 4".
std::string freshnessText(const Freshness& freshness);

// ContainerRecord is one record of "cmapfile".
struct ContainerRecord {
  int index = 0;
  std::string guid;  // UTF-8
  std::uint8_t flags = 0;
  std::uint16_t signatureBits = 0;    // 0: no signature key
  std::uint16_t keyExchangeBits = 0;  // 0: no key-exchange key

  bool valid() const { return flags & 1; }
  bool isDefault() const { return flags & 2; }

  bool operator==(const ContainerRecord&) const = default;
};

// decodeContainerMap reads "cmapfile": one record for every 86 bytes, unused ones included. Throws ToolError
// (ExitCode::kCheckFailed) when the size is no multiple of that.
std::vector<ContainerRecord> decodeContainerMap(ByteView data);

// keyUse says in words what a container's keys are for: "sign", "exchange", "sign+exchange" or "-".
std::string keyUse(const ContainerRecord& record);

// PublicKey is an RSA public key taken from a PUBLICKEYBLOB.
struct PublicKey {
  std::uint32_t algorithm = 0;  // ALG_ID
  std::uint32_t bits = 0;
  std::uint32_t exponent = 0;
  Bytes modulus;  // most significant byte first

  bool operator==(const PublicKey&) const = default;
};

// decodePublicKey reads a PUBLICKEYBLOB; throws ToolError (ExitCode::kCheckFailed) when it is none.
PublicKey decodePublicKey(ByteView blob);

// decodeNameList splits a list of NUL-terminated names that ends with an empty one.
std::vector<std::string> decodeNameList(ByteView data);

// accessConditionName gives the published name of a CARD_FILE_ACCESS_CONDITION value, or its number.
std::string accessConditionName(std::uint32_t value);

// isoTime writes a FILETIME value (100 ns units since 1601, UTC) as "2031-02-28T23:59:59Z".
std::string isoTime(std::uint64_t fileTime);

}  // namespace orvane::tool

#endif
