#include "log/explanations.h"

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "card/status_names.h"
#include "text/bytes.h"

namespace orvane::tool {
namespace {

constexpr KnownLine kKnownLines[] = {
    // Starting
    {"ATR VALUE or length IS MISMATCH", "Another kind of card is in the reader; only the Orvane token is served."},
    {"No smart card connected",
     "The token library sees no token although Windows sees a card. Unplug the token and plug it in again, and close "
     "other programs that use it."},
    {"SCardStatusA failed: 0x",
     "The reader did not tell its name, so the first token of the library's list is taken. With several tokens that "
     "can be the wrong one."},
    {"serial APDU failed, falling back to index:",
     "The token did not tell its serial; the token with that number in the library's list is taken. With several "
     "tokens that can be the wrong one."},
    {"Serial APDU failed, falling back to index:",
     "The token did not tell its serial; the token with that number in the library's list is taken. With several "
     "tokens that can be the wrong one."},
    {"Init device failed for [", "The token did not open at once. Harmless if the line about the key list follows."},
    {"Key list available via HID despite init error", "Harmless: the keys can be read all the same."},
    {"Key list empty for [", "The token gave no keys; it is opened once more."},
    {"PACE refresh failed for [",
     "No key could be read, so Windows shows no certificate. Unplug the token and plug it in again."},
    {"Monitor thread already running", "Harmless: one monitor serves the whole process."},
    {"Allocation failed for provider context", "The process has run out of memory."},
    {"unhandled exception:",
     "The token library failed unexpectedly, or memory ran out. The call was refused; nothing else happened."},
    {"pCardData is NULL", "The calling program passed no record, or at the start no card name: its mistake."},
    {"provider context is N", "The calling program used a connection that was never made or is already closed."},
    {"null provider context", "The calling program used a connection that was never made or is already closed."},
    // Files, keys and certificates
    {"CMAP: no containers for ",
     "No keys were seen, so Windows shows no certificate: the token holds none, or it could not be opened, and then an "
     "error above says so."},
    {"CMAP: Critical failure", "The token's keys could not be read any more. Unplug it and plug it in again."},
    {"missing from cache. Re-populating now", "The token was unplugged in between; its keys are read again."},
    {"Init device in get certificate failed :",
     "The token did not open when a certificate was read, so Windows does not show it. Unplug it and plug it in "
     "again."},
    {"no matching key exchange cert found",
     "The token holds a key without a certificate (the text is the same for signature keys)."},
    {"CardReadFile: invalid container index", "The program asked for a certificate of a key that is not on the token."},
    {"Invalid container index:", "The program asked for a key that is not on the token."},
    {"CardReadFile: unsupported file name=", "Harmless: the card has no such file, and Windows can do without it."},
    {"mscp file not found:", "Harmless: the card has no such file, and Windows can do without it."},
    {"blob failed", "The public key of a container could not be given to Windows."},
    // PINs
    {"invalid password for [", "The token refused the PIN; the number is the token library's own code."},
    {"wrong PIN, returning", "The PIN was wrong. After too many wrong ones it is blocked."},
    {"CardAuthenticatePin: wrong PIN [", "The PIN was wrong. After too many wrong ones it is blocked."},
    {"PIN blocked, returning",
     "The PIN is blocked. It must be unblocked with the token's own software; the minidriver does not offer it."},
    {"no cached PIN, silent auth not possible",
     "A program asked without a dialog, and no PIN had been entered in this process before. Usually harmless: Windows "
     "then asks for the PIN."},
    {"PIN length invalid, size=",
     "The PIN is too short or too long; a PIN has 4 to 63 characters. It was not sent to the token, so no attempt was "
     "used "
     "up."},
    {"PIN length is zero", "An empty PIN was given."},
    {"change failed, attempts=",
     "The PIN was not changed: the old one was wrong. The number is that of the attempts left; -1 stands for a PIN "
     "whose "
     "attempts are not told."},
    // Signing and decrypting
    {"RSA-1024 signing not allowed", "Keys of 1024 bits are too short to sign. Use a certificate with a longer key."},
    {"SHA1/MD5 signing blocked on FIPS 140-3 token",
     "The program asked for a hash that this token refuses. Make the program use SHA-256."},
    {"orvane_signHash failed, ret=",
     "The token refused to sign, most often because no right PIN was entered in this process; the number is the token "
     "library's own code."},
    {"CardSignData: invalid signature length", "The token gave a signature of a length that does not fit its key."},
    {"unknown key algorithm, defaulting to 256 bytes", "The key is of an unknown kind and taken for one of 2048 bits."},
    {"OAEP not supported on this firmware",
     "OAEP needs token firmware 2.0.0 or newer, and the minidriver learns the firmware only when it looks at the token "
     "again, as after a PIN change in the same process. PKCS #1 v1.5 padding always works."},
    {"orvane_decrypt failed, ret=",
     "The token refused to decrypt: no right PIN was entered in this process, or the data was encrypted for another "
     "key. The number is the token library's own code."},
    {"key usage does not match dwKeySpec", "The key is not meant for decryption."},
    {"CardRSADecrypt: version mismatch", "The calling program uses an unknown version of the interface."},
    // The monitor
    {"Device disconnected [", "The token was unplugged, or the reader lost it."},
    {"Device reconnected [", "The token was plugged in, or is seen for the first time by this process."},
    {">>> GLOBAL CACHE BUMPED:", "Windows will read again what may have changed."},
    // Asking for a size first
    {"buffer too small, required", "Normal: programs ask for the size first and then again with room for the answer."},
    {"CP_CARD_LIST_PINS: ERROR_INSUFFICIENT_BUFFER",
     "Normal: programs ask for the size first and then again with room for the answer."},
    {"allocation failed", "The calling program could not provide memory."},
    {"pfnCspAlloc failed", "The calling program could not provide memory."},
};

bool isNameUnit(char unit) { return (unit >= 'A' && unit <= 'Z') || (unit >= '0' && unit <= '9') || unit == '_'; }

void addStatus(std::uint32_t status, std::vector<std::string>& explanations) {
  const std::string text = std::string(statusMeaning(status)) + ": " + statusLabel(status);
  if (std::find(explanations.begin(), explanations.end(), text) == explanations.end()) explanations.push_back(text);
}

// Statuses given as 0x and eight digits.
void addNumbers(std::string_view message, std::vector<std::string>& explanations) {
  for (std::size_t at = message.find("0x"); at != std::string_view::npos; at = message.find("0x", at + 2)) {
    const std::string_view digits = message.substr(at + 2, 8);
    if (digits.size() != 8 || !std::all_of(digits.begin(), digits.end(), isHexDigit)) continue;
    if (at + 10 < message.size() && isHexDigit(message[at + 10])) continue;
    std::uint32_t status = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), status, 16);
    if (!statusName(status).empty()) addStatus(status, explanations);
  }
}

// Statuses given by name.
void addNames(std::string_view message, std::vector<std::string>& explanations) {
  for (std::size_t start = 0; start < message.size(); ++start) {
    if (!isNameUnit(message[start])) continue;
    std::size_t end = start;
    while (end < message.size() && isNameUnit(message[end])) ++end;
    const std::string_view word = message.substr(start, end - start);
    for (const StatusText& row : statusTexts()) {
      if (row.name == word) addStatus(row.code, explanations);
    }
    start = end;
  }
}

}  // namespace

std::span<const KnownLine> knownLines() { return kKnownLines; }

std::vector<std::string> explainLogMessage(std::string_view message) {
  std::vector<std::string> explanations;
  for (const KnownLine& row : kKnownLines) {
    if (message.find(row.part) == std::string_view::npos) continue;
    explanations.emplace_back(row.explanation);
    break;
  }
  addNumbers(message, explanations);
  addNames(message, explanations);
  return explanations;
}

}  // namespace orvane::tool
