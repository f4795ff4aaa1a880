// What "doctor" makes of what it saw: decisions without a smart card, a registry or a file.
#ifndef ORVANE_TOOL_DOCTOR_CHECKS_H
#define ORVANE_TOOL_DOCTOR_CHECKS_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "card/card_files.h"
#include "card/card_type.h"
#include "card/reader.h"
#include "card/token_facts.h"
#include "doctor/pe_file.h"
#include "doctor/report.h"
#include "tool_error.h"

namespace orvane::tool {

// The library that the minidriver is linked with.
inline constexpr std::string_view kTokenLibrary = "OrvaneDSCLibrary.dll";

// The operating system's two programs that load minidrivers. It compares their names letter by letter.
inline constexpr std::string_view kCryptoProvider = "Microsoft Base Smart Card Crypto Provider";
inline constexpr std::string_view kKeyStorageProvider = "Microsoft Smart Card Key Storage Provider";

// ServiceState is what the operating system says about one of its services.
enum class ServiceState {
  kUnknown,   // it cannot be asked
  kMissing,   // there is no such service
  kDisabled,  // it does not run, and must not
  kStopped,
  kRunning,
};

// SmartCardServiceFacts is how the smart-card service answered.
struct SmartCardServiceFacts {
  std::optional<ToolError> error;  // why it cannot be used
  ServiceState state = ServiceState::kUnknown;
  bool isRemote = false;  // this program runs in a remote session
};

// judgeService: does the smart-card service answer?
Finding judgeService(const SmartCardServiceFacts& facts);

// judgeReaders: is there a reader, and the one that was asked for? judgeCard: is there a card in it that can be used?
Finding judgeReaders(const std::vector<Reader>& readers, const std::optional<std::string>& wanted, bool isRemote);
Finding judgeCard(const Reader& reader);

// Registration is the finding about the registry and the entry that the operating system would take.
struct Registration {
  Finding finding;
  std::optional<CardType> type;  // the first entry that fits the ATR
};

// judgeRegistration looks through the card types in the registry's order. With `driverNamed` the minidriver comes from
// the command line, and what is wrong here is only a warning.
Registration judgeRegistration(const std::vector<CardType>& types, ByteView atr, bool driverNamed);

// LibraryFile is what was found of a library on this machine.
struct LibraryFile {
  std::string path;  // where it lies, or where it was expected
  bool found = false;
  bool readable = true;
  std::optional<PeFile> pe;            // none when the file is no program library
  std::string version;                 // of its version resource; may be empty
  std::vector<std::string> missing;    // libraries that it needs and that are not there
  std::optional<ToolError> loadError;  // why it does not load, if that was tried and failed
};

// judgeDriver: the minidriver's file, for a process of the kind `machine`.
Finding judgeDriver(const LibraryFile& file, std::uint16_t machine);

// judgeLibrary: the token library that a minidriver with the imports of `driver` needs.
Finding judgeLibrary(const PeFile& driver, const LibraryFile& file, std::uint16_t machine);

// StoredCertificate is what this user's store of certificates knows about a certificate of the token.
struct StoredCertificate {
  std::string key;   // keyName of its key
  std::string guid;  // the container's name on the token
  std::string subject;
  std::uint32_t trustErrors = 0;         // CERT_TRUST_STATUS::dwErrorStatus of its chain
  bool isStored = false;                 // the rest counts only if it is
  std::string provider;                  // that the store names for its key; empty: the store knows of no key
  std::string keyName;                   // container that the store names
  std::optional<std::uint8_t> keyUsage;  // first byte of the extension; none: every use
  std::optional<std::vector<std::string>>
      purposes;  // object identifiers of the extended key usage; none: every purpose
};

// StoreFacts is what decides whether Windows shows the certificates of the token.
struct StoreFacts {
  ServiceState propagation = ServiceState::kUnknown;  // of the service that copies certificates into the store
  bool forbidden = false;                             // a policy switches the copying off
  std::vector<StoredCertificate> certificates;
};

// judgeStore: is each certificate in the store, with its key, and can it be used? Not reached when that cannot be
// known.
Finding judgeStore(const StoreFacts& facts);

// usesOf says in words what a certificate is for: "logon, signing, decryption", or an empty text.
std::string usesOf(const StoredCertificate& certificate);

// LogonFacts is what decides whether protected programs, above all the logon process, load the two libraries.
struct LogonFacts {
  std::optional<std::uint32_t> lsaProtection;    // registry value "RunAsPPL"; none when it is missing
  std::optional<std::uint32_t> smartAppControl;  // registry value "VerifiedAndReputablePolicyState"
  std::vector<LibraryFile> libraries;            // those that were found
};

// judgeLogon: would the logon process load the libraries? Nothing is broken by that for other programs.
Finding judgeLogon(const LogonFacts& facts);

// judgeToken: which token serves, and could it be opened?
Finding judgeToken(const TokenFacts& facts);

// isApiSet says whether a library's name is one that the operating system resolves by itself, without a file.
bool isApiSet(std::string_view library);

// CardFileFacts is what stating and reading one listed file gave.
struct CardFileFacts {
  CardPath path;
  std::uint32_t statedSize = 0;
  std::size_t size = 0;  // bytes read
  std::string problem;   // why it could not be read; empty when it could
};

// judgeFiles: all files that the card lists, without the certificates, which judgeKeys looks at.
Finding judgeFiles(const std::vector<CardFileFacts>& files);

// ContainerFacts is one key container with everything that must fit together.
struct ContainerFacts {
  ContainerRecord record;
  std::string keysProblem;             // why the public keys could not be read
  std::optional<PublicKey> signature;  // as the minidriver gives them
  std::optional<PublicKey> keyExchange;
  bool hasCertificate = false;
  std::string certificateProblem;      // why there is none, unless the token simply holds none
  std::optional<PublicKey> certified;  // the certificate's key; none when it is no RSA key
  std::string subject;
  std::string notBefore;  // as isoTime writes it
  std::string notAfter;
  Bytes certificate = {};  // DER
};

// judgeKeys compares the list of keys ("cmapfile"), public keys and certificates. `now` is as isoTime writes it.
Finding judgeKeys(const std::vector<ContainerFacts>& containers, const std::string& now);

// logLevelOf reads the registry value "logLevel" as the minidriver does: its first byte as a signed number (0 for a
// value without data); none when the value is missing or longer than 32 bytes.
std::optional<int> logLevelOf(const std::optional<Bytes>& value);

// storedText writes a registry value of one of the registry's types as people see it there: "3", "0x300", "\"3\"".
std::string storedText(std::uint32_t type, ByteView value);

// LogObstacle is what keeps the minidriver from writing its log.
enum class LogObstacle {
  kNone,
  kNoFolder,     // there is no temporary folder
  kFile,         // a file in a folder's place
  kFolder,       // a folder in the file's place
  kLink,         // a link in the place of either
  kRefused,      // nothing can be made in the folder
  kRefusedFile,  // nothing can be added to the file
};

// LogFacts is what determines whether a log is written, and where.
struct LogFacts {
  std::optional<int> level;  // as logLevelOf gives it
  std::string stored = {};   // the same value as storedText gives it; empty when it is missing or too long
  bool isNumber = true;      // the value has a numeric type, or is missing
  std::string folder = {};   // temporary folder, without a separator at its end
  LogObstacle obstacle = LogObstacle::kNone;
  std::string obstaclePath = {};   // where that was seen
  std::string newestFile = {};     // empty when there is none
  std::string accountFolder = {};  // what `folder` would be with characters that the code page does not have
  std::string windowsFolder = {};  // "C:\\Windows"
  bool arrives = true;             // a line that the minidriver wrote was seen, or none was asked for
};
Finding judgeLog(const LogFacts& facts);

// FreshnessFacts is what watching "cardcf" for a while gave.
struct FreshnessFacts {
  std::optional<Freshness> last;  // none when it could not be read
  std::string problem;            // why not
  bool moved = false;             // the monitor counted the token's appearance
  int laterMoves = 0;             // changes after that, with the token left alone
  double age = 0;                 // seconds for which they have been watched without a change
};
Finding judgeFreshness(const FreshnessFacts& facts);

}  // namespace orvane::tool

#endif
