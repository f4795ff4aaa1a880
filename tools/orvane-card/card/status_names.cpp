#include "card/status_names.h"

#include <algorithm>
#include <iterator>

#include "text/bytes.h"

namespace orvane::tool {
namespace {

constexpr StatusText kStatusTexts[] = {
    {0x80100001, ExitCode::kRefused, "SCARD_F_INTERNAL_ERROR", "an internal check failed"},
    {0x80100002, ExitCode::kRefused, "SCARD_E_CANCELLED", "the action was cancelled"},
    {0x80100003, ExitCode::kRefused, "SCARD_E_INVALID_HANDLE", "the card handle is not valid any more"},
    {0x80100004, ExitCode::kRefused, "SCARD_E_INVALID_PARAMETER", "a parameter was refused"},
    {0x80100006, ExitCode::kRefused, "SCARD_E_NO_MEMORY", "there is not enough memory"},
    {0x80100008, ExitCode::kRefused, "SCARD_E_INSUFFICIENT_BUFFER", "the buffer is too small for the answer"},
    {0x80100009, ExitCode::kNoCard, "SCARD_E_UNKNOWN_READER", "there is no reader of that name"},
    {0x8010000A, ExitCode::kRefused, "SCARD_E_TIMEOUT", "the time allowed has passed"},
    {0x8010000B, ExitCode::kNoCard, "SCARD_E_SHARING_VIOLATION", "another program uses the card exclusively"},
    {0x8010000C, ExitCode::kNoCard, "SCARD_E_NO_SMARTCARD", "there is no token or card"},
    {0x8010000D, ExitCode::kRefused, "SCARD_E_UNKNOWN_CARD", "the card is not of the kind this minidriver serves"},
    {0x8010000F, ExitCode::kNoCard, "SCARD_E_PROTO_MISMATCH", "the card does not offer the protocol asked for"},
    {0x80100010, ExitCode::kRefused, "SCARD_E_NOT_READY", "the reader or the card is not ready"},
    {0x80100014, ExitCode::kRefused, "SCARD_F_UNKNOWN_ERROR", "an unknown internal error was detected"},
    {0x80100016, ExitCode::kRefused, "SCARD_E_NOT_TRANSACTED", "the card could not be reached"},
    {0x80100017, ExitCode::kNoCard, "SCARD_E_READER_UNAVAILABLE", "the reader is not available"},
    {0x8010001C, ExitCode::kRefused, "SCARD_E_CARD_UNSUPPORTED", "the card is not supported"},
    {0x8010001D, ExitCode::kNoCard, "SCARD_E_NO_SERVICE", "the smart-card service does not run"},
    {0x8010001E, ExitCode::kNoCard, "SCARD_E_SERVICE_STOPPED", "the smart-card service has been stopped"},
    {0x8010001F, ExitCode::kRefused, "SCARD_E_UNEXPECTED", "an unexpected error occurred"},
    {0x80100022, ExitCode::kRefused, "SCARD_E_UNSUPPORTED_FEATURE", "the card does not offer this"},
    {0x80100023, ExitCode::kNotFound, "SCARD_E_DIR_NOT_FOUND", "the card has no such directory"},
    {0x80100024, ExitCode::kNotFound, "SCARD_E_FILE_NOT_FOUND", "the card has no such file"},
    {0x8010002A, ExitCode::kWrongPin, "SCARD_E_INVALID_CHV", "the PIN is not acceptable"},
    {0x8010002E, ExitCode::kNoCard, "SCARD_E_NO_READERS_AVAILABLE", "no reader is connected"},
    {0x8010002F, ExitCode::kRefused, "SCARD_E_COMM_DATA_LOST", "the communication with the card was disturbed"},
    {0x80100030, ExitCode::kNotFound, "SCARD_E_NO_KEY_CONTAINER",
     "the token has no such key, or it is not one for this"},
    {0x80100066, ExitCode::kNoCard, "SCARD_W_UNRESPONSIVE_CARD", "the card does not answer"},
    {0x80100067, ExitCode::kNoCard, "SCARD_W_UNPOWERED_CARD", "the card has no power"},
    {0x80100068, ExitCode::kRefused, "SCARD_W_RESET_CARD", "the card was reset by another program"},
    {0x80100069, ExitCode::kNoCard, "SCARD_W_REMOVED_CARD", "the card was removed"},
    {0x8010006A, ExitCode::kRefused, "SCARD_W_SECURITY_VIOLATION", "access was denied"},
    {0x8010006B, ExitCode::kWrongPin, "SCARD_W_WRONG_CHV", "the PIN is wrong"},
    {0x8010006C, ExitCode::kPinBlocked, "SCARD_W_CHV_BLOCKED", "the PIN is blocked"},
    {0x8010006E, ExitCode::kRefused, "SCARD_W_CANCELLED_BY_USER", "the action was cancelled by the user"},
    {0x8010006F, ExitCode::kPinNeeded, "SCARD_W_CARD_NOT_AUTHENTICATED", "no PIN has been verified"},
    {0, ExitCode::kRefused, "SCARD_S_SUCCESS", "success"},
    {2, ExitCode::kNotFound, "ERROR_FILE_NOT_FOUND", "there is no such file"},
    {3, ExitCode::kRefused, "ERROR_PATH_NOT_FOUND", "there is no such folder"},
    {5, ExitCode::kRefused, "ERROR_ACCESS_DENIED", "access was denied"},
    {8, ExitCode::kRefused, "ERROR_NOT_ENOUGH_MEMORY", "there is not enough memory"},
    {14, ExitCode::kRefused, "ERROR_OUTOFMEMORY", "there is not enough memory"},
    {50, ExitCode::kRefused, "ERROR_NOT_SUPPORTED", "this is not supported"},
    {80, ExitCode::kRefused, "ERROR_FILE_EXISTS", "the file exists"},
    {86, ExitCode::kWrongPin, "ERROR_INVALID_PASSWORD", "the PIN is not valid"},
    {87, ExitCode::kRefused, "ERROR_INVALID_PARAMETER", "a parameter was refused"},
    {122, ExitCode::kRefused, "ERROR_INSUFFICIENT_BUFFER", "the buffer is too small for the answer"},
    {126, ExitCode::kRefused, "ERROR_MOD_NOT_FOUND", "a library or one that it needs was not found"},
    {127, ExitCode::kRefused, "ERROR_PROC_NOT_FOUND", "a function that is needed is missing from a library"},
    {145, ExitCode::kRefused, "ERROR_DIR_NOT_EMPTY", "the directory is not empty"},
    {193, ExitCode::kRefused, "ERROR_BAD_EXE_FORMAT", "the file is no program library for this kind of processor"},
    {577, ExitCode::kRefused, "ERROR_INVALID_IMAGE_HASH", "the library's signature is missing or not trusted"},
    {1114, ExitCode::kRefused, "ERROR_DLL_INIT_FAILED", "a library failed while it started"},
    {1260, ExitCode::kRefused, "ERROR_ACCESS_DISABLED_BY_POLICY",
     "a policy of this machine's administrators forbids it"},
    {1306, ExitCode::kRefused, "ERROR_REVISION_MISMATCH", "the interface versions do not fit"},
    {4551, ExitCode::kRefused, "ERROR_SYSTEM_INTEGRITY_POLICY_VIOLATION",
     "an application-control policy has blocked the file"},
};

// What a call says by a status that it has for several reasons, or that means something else elsewhere.
struct Meaning {
  std::string_view call;
  std::uint32_t status;
  std::string_view text;
};

constexpr Meaning kMeanings[] = {
    {"CardAcquireContext", 0x8010000C, "the token library finds no token"},
    {"CardAuthenticateEx", 0x80100004, "the PIN is too short or too long"},
    {"CardChangeAuthenticatorEx", 0x80100004, "the new PIN is too short or too long"},
    {"CardChangeAuthenticatorEx", 0x8010006B, "the current PIN is wrong"},
    {"CardReadFile", 0x80100030, "the key has no certificate"},
    {"CardSignData", 0x80100004, "the token refused to sign"},
    {"CardSignData", 0x80100022, "the key is too short to sign, or the token refuses this hash"},
    {"CardRSADecrypt", 0x80100004, "the token refused to decrypt"},
    {"CardRSADecrypt", 0x80100022,
     "OAEP is not offered: the token's firmware is older than 2.0.0, or the minidriver has not asked for it yet"},
};

struct Advice {
  std::string_view call;  // empty: any call
  std::uint32_t status;
  std::string_view text;
};

// The first fitting row counts, so rows for one call stand before rows for any call.
constexpr Advice kAdvice[] = {
    {"CardAcquireContext", 0x8010000C,
     "The card is there but the token library finds no token. Unplug the token and plug it in again, and close other "
     "programs that use it."},
    {"CardAcquireContext", 0x8010000D,
     "This card is of another kind than the minidriver serves. Choose the token's reader with --reader, or another "
     "minidriver with --driver."},
    {"CardReadFile", 2, "The token could not be initialised. Check that it is still plugged in and try again."},
    {"CardReadFile", 0x80100030, "The token holds this key, but no certificate for it."},
    {"CardReadFile", 0x80100024, "\"orvane-card files\" shows the files that there are."},
    {"CardGetFileInfo", 0x80100024, "\"orvane-card files\" shows the files that there are."},
    {"CardAuthenticateEx", 0x80100004,
     "A PIN has 4 to 63 characters. It was not sent to the token, so no attempt was used up."},
    {"CardChangeAuthenticatorEx", 0x80100004,
     "A PIN has 4 to 63 characters. Nothing was sent to the token, so no attempt was used up."},
    {"CardSignData", 0x80100004,
     "The token refused to sign. Verify the PIN in the same run, and check that the hash has the length that its "
     "algorithm gives."},
    {"CardSignData", 0x80100022,
     "RSA keys of 1024 bits may not sign, and a FIPS 140-3 token refuses SHA-1 and MD5. Use a longer key and SHA-256."},
    {"CardRSADecrypt", 0x80100004,
     "The token refused to decrypt. Verify the PIN in the same run, and check that the file was encrypted for this "
     "key's certificate with the padding asked for."},
    {"CardRSADecrypt", 0x80100022,
     "The token was not asked to decrypt. The minidriver asks for the firmware only when it looks at the token again, "
     "as "
     "after a PIN change in the same run, and refuses OAEP on every token before that. PKCS #1 v1.5 padding always "
     "works."},
    {"CardRSADecrypt", 0x80100030,
     "There is no such key, or it is not meant for this. \"orvane-card list\" shows what each key is for."},
    {"LoadLibrary", 126,
     "Either the path is wrong or a library that the minidriver needs is missing: OrvaneDSCLibrary.dll (from the "
     "token's software) or VCRUNTIME140.dll, for the same kind of processor."},
    {"LoadLibrary", 127,
     "The minidriver and the token library are of versions that do not go together. Install both again."},
    {"LoadLibrary", 193,
     "The library, or one that it needs, is damaged or built for another kind of processor than this program. Install "
     "it again, with the package for this machine."},
    {"LoadLibrary", 577, "The operating system wants every library to be signed. Install the signed package."},
    {"LoadLibrary", 1260,
     "Have the machine's administrators allow the library (AppLocker or software restriction policies)."},
    {"LoadLibrary", 4551,
     "Smart App Control, or another application-control policy of this machine, lets only signed or known libraries "
     "in. Install the signed package, or have the machine's administrators allow the library."},
    {"LoadLibrary", 1114, "The library gives up while it starts. Start Windows anew, then install it again."},
    {"", 0x80100009, "\"orvane-card info\" lists the readers; a part of the name that only one has is enough."},
    {"", 0x8010000B, "Close the other program or wait until it has finished, then try again."},
    {"", 0x8010000C, "Plug the token in and try again."},
    {"", 0x8010001D, "Start the service \"Smart Card\" (SCardSvr) and try again."},
    {"", 0x8010001E, "Start the service \"Smart Card\" (SCardSvr) and try again."},
    {"", 0x8010002E, "Plug the token in and try again."},
    {"", 0x80100030, "\"orvane-card list\" shows the keys that there are."},
    {"", 0x80100066, "Unplug the token and plug it in again."},
    {"", 0x80100067, "Unplug the token and plug it in again."},
    {"", 0x80100068, "Another program has reset the card. Try again."},
    {"", 0x80100069, "Plug the token in again."},
    {"", 0x8010006A, "Run the program as a user who may use smart cards."},
    {"", 0x8010006B, "Check the PIN before you try again: after too many wrong ones it is blocked."},
    {"", 0x8010006C, "The PIN must be unblocked with the token's own software; this minidriver does not offer it."},
    {"", 0x8010006F, "Verify the PIN first, in the same run: --pin-stdin, or the command \"session\"."},
};

const StatusText* findStatus(std::uint32_t status) {
  const auto* found = std::find_if(std::begin(kStatusTexts), std::end(kStatusTexts),
                                   [status](const StatusText& row) { return row.code == status; });
  return found == std::end(kStatusTexts) ? nullptr : found;
}

std::string numberOf(std::uint32_t status) {
  if (status < 0x10000) return std::to_string(status);
  return "0x" + hexNumber(status, 8);
}

}  // namespace

std::span<const StatusText> statusTexts() { return kStatusTexts; }

std::string_view statusName(std::uint32_t status) {
  const StatusText* row = findStatus(status);
  return row ? row->name : std::string_view();
}

std::string_view statusMeaning(std::uint32_t status) {
  const StatusText* row = findStatus(status);
  return row ? row->meaning : std::string_view();
}

std::string_view meaningOf(std::string_view call, std::uint32_t status) {
  for (const Meaning& row : kMeanings) {
    if (row.status == status && row.call == call) return row.text;
  }
  return statusMeaning(status);
}

std::string statusLabel(std::uint32_t status) {
  const std::string_view name = statusName(status);
  return name.empty() ? numberOf(status) : std::string(name) + " (" + numberOf(status) + ")";
}

std::string_view adviceFor(std::string_view call, std::uint32_t status) {
  for (const Advice& row : kAdvice) {
    if (row.status == status && (row.call.empty() || row.call == call)) return row.text;
  }
  return {};
}

ExitCode exitCodeOf(std::uint32_t status) {
  const StatusText* row = findStatus(status);
  return row ? row->exitCode : ExitCode::kRefused;
}

}  // namespace orvane::tool
