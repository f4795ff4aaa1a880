#include "card/card_session.h"

#include <utility>

#include "card/provider_callbacks.h"
#include "card/status_names.h"
#include "text/utf.h"
#include "tool_error.h"

namespace orvane::tool {
namespace {

LPSTR directoryArgument(std::string& directory) { return directory.empty() ? nullptr : directory.data(); }

std::string shown(const CardPath& path) {
  return path.directory.empty() ? path.name : path.directory + "/" + path.name;
}

// The interface wants PINs writable, but nobody writes to them.
PBYTE bytesOf(const SecretText& pin) { return reinterpret_cast<PBYTE>(const_cast<char*>(pin.c_str())); }
DWORD sizeOf(const SecretText& pin) { return static_cast<DWORD>(pin.size()); }

BYTE containerArgument(int container) {
  if (container < 0 || container > 255)
    throw ToolError(ExitCode::kUsage, "container " + std::to_string(container) + " is out of range");
  return static_cast<BYTE>(container);
}

}  // namespace

CardSession::CardSession(const SmartCardService& service, Reader reader, DriverChoice driver,
                         std::function<void(const std::string&)> trace)
    : service_(service),
      reader_(std::move(reader)),
      driver_(std::move(driver)),
      trace_(std::move(trace)),
      cardName_(toWide(driver_.cardName)) {
  module_ = std::make_unique<DriverModule>(driver_.path);
  DWORD protocol = 0;
  check("SCardConnect", SCardConnectW(service_.context(), toWide(reader_.name).c_str(), SCARD_SHARE_SHARED,
                                      SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, &card_, &protocol));

  cardData_.dwVersion = CARD_DATA_CURRENT_VERSION;
  cardData_.pbAtr = reader_.atr.data();
  cardData_.cbAtr = static_cast<DWORD>(reader_.atr.size());
  cardData_.pwszCardName = cardName_.data();
  cardData_.hSCardCtx = service_.context();
  cardData_.hScard = card_;
  fillProviderCallbacks(cardData_);
  try {
    require("CardAcquireContext", reader_.name, [&] { return module_->acquireContext()(&cardData_, 0); });
  } catch (ToolError& error) {
    disconnect(SCARD_LEAVE_CARD);
    // Whatever the status, what failed is the minidriver's start with this card, unless the card itself has gone.
    if (error.exitCode() != ExitCode::kNoCard) error.withExitCode(ExitCode::kDriver);
    throw;
  }
}

CardSession::~CardSession() {
  DWORD disposition = SCARD_LEAVE_CARD;
  if (pinVerified_) {
    // The provider resets the card when a minidriver cannot take an authentication back.
    try {
      forgetPins(PIN_SET_ALL_ROLES);
    } catch (const ToolError&) {
      disposition = SCARD_RESET_CARD;
    }
  }
  cardData_.pfnCardDeleteContext(&cardData_);
  disconnect(disposition);
}

void CardSession::disconnect(DWORD disposition) {
  SCardDisconnect(card_, disposition);
  card_ = 0;
}

void CardSession::begin() {
  if (transactions_ == 0) {
    const auto start = std::chrono::steady_clock::now();
    LONG result = SCardBeginTransaction(card_);
    if (result == static_cast<LONG>(SCARD_W_RESET_CARD)) {
      DWORD protocol = 0;
      result =
          SCardReconnect(card_, SCARD_SHARE_SHARED, SCARD_PROTOCOL_T0 | SCARD_PROTOCOL_T1, SCARD_LEAVE_CARD, &protocol);
      if (result == SCARD_S_SUCCESS) result = SCardBeginTransaction(card_);
    }
    traceCall("SCardBeginTransaction", static_cast<std::uint32_t>(result), start);
    check("SCardBeginTransaction", result);
  } else {
    keepTransaction();
  }
  ++transactions_;
}

void CardSession::end() {
  if (--transactions_ != 0) return;
  const auto start = std::chrono::steady_clock::now();
  traceCall("SCardEndTransaction", static_cast<std::uint32_t>(SCardEndTransaction(card_, SCARD_LEAVE_CARD)), start);
}

// Windows resets a card that nothing was done with for five seconds of a transaction; any smart-card function puts that
// clock back (Microsoft Learn, SCardBeginTransaction). The minidriver reaches its token on another way, which Windows
// does not see, so that several calls in a row would count as idleness.
void CardSession::keepTransaction() {
  DWORD nameLength = 0;
  DWORD atrLength = 0;
  DWORD state = 0;
  DWORD protocol = 0;
  // What it says does not matter: of a card that has gone, the call that follows tells.
  SCardStatusW(card_, nullptr, &nameLength, &state, &protocol, nullptr, &atrLength);
}

void CardSession::traceCall(const std::string& what, std::uint32_t status,
                            std::chrono::steady_clock::time_point start) const {
  if (!trace_) return;
  const auto time = std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
  trace_(what + " -> " + statusLabel(status) + ", " + std::to_string(time.count()) + " ms");
}

DWORD CardSession::call(const char* entryPoint, const std::string& what, const std::function<DWORD()>& body) {
  const Transaction transaction(*this);
  const auto start = std::chrono::steady_clock::now();
  const DWORD status = body();
  traceCall(std::string(entryPoint) + (what.empty() ? "" : " " + what), status, start);
  return status;
}

void CardSession::require(const char* entryPoint, const std::string& what, const std::function<DWORD()>& body) {
  const DWORD status = call(entryPoint, what, body);
  if (status != SCARD_S_SUCCESS) throw ToolError(entryPoint, status);
}

Bytes CardSession::readFile(const CardPath& path) {
  CardPath argument = path;
  PBYTE data = nullptr;
  DWORD size = 0;
  require("CardReadFile", shown(path), [&] {
    return cardData_.pfnCardReadFile(&cardData_, directoryArgument(argument.directory), argument.name.data(), 0, &data,
                                     &size);
  });
  return takeBuffer(data, size);
}

std::vector<std::string> CardSession::listFiles(const std::string& directory) {
  std::string argument = directory;
  LPSTR names = nullptr;
  DWORD size = 0;
  require("CardEnumFiles", directory.empty() ? "(root)" : directory,
          [&] { return cardData_.pfnCardEnumFiles(&cardData_, directoryArgument(argument), &names, &size, 0); });
  return decodeNameList(takeBuffer(reinterpret_cast<PBYTE>(names), size));
}

FileInfo CardSession::fileInfo(const CardPath& path) {
  CardPath argument = path;
  CARD_FILE_INFO info{};
  info.dwVersion = CARD_FILE_INFO_CURRENT_VERSION;
  require("CardGetFileInfo", shown(path), [&] {
    return cardData_.pfnCardGetFileInfo(&cardData_, directoryArgument(argument.directory), argument.name.data(), &info);
  });
  return {info.cbFileSize, static_cast<std::uint32_t>(info.AccessCondition)};
}

std::uint32_t CardSession::verifyPin(PIN_ID pin, const SecretText& value) {
  DWORD attempts = CARD_DATA_VALUE_UNKNOWN;
  const DWORD status = call("CardAuthenticateEx", "PIN " + std::to_string(pin), [&] {
    return cardData_.pfnCardAuthenticateEx(&cardData_, pin, 0, bytesOf(value), sizeOf(value), nullptr, nullptr,
                                           &attempts);
  });
  pinVerified_ = status == SCARD_S_SUCCESS;
  if (pinVerified_) return attempts;
  ToolError error("CardAuthenticateEx", status);
  if (attempts != CARD_DATA_VALUE_UNKNOWN) error.withAttempts(attempts);
  throw error;
}

void CardSession::forgetPins(PIN_SET pins) {
  require("CardDeauthenticateEx", "PINs " + std::to_string(pins),
          [&] { return cardData_.pfnCardDeauthenticateEx(&cardData_, pins, 0); });
  pinVerified_ = false;
}

void CardSession::changePin(PIN_ID pin, const SecretText& current, const SecretText& replacement) {
  DWORD attempts = CARD_DATA_VALUE_UNKNOWN;
  const DWORD status = call("CardChangeAuthenticatorEx", "PIN " + std::to_string(pin), [&] {
    return cardData_.pfnCardChangeAuthenticatorEx(&cardData_, PIN_CHANGE_FLAG_CHANGEPIN, pin, bytesOf(current),
                                                  sizeOf(current), pin, bytesOf(replacement), sizeOf(replacement), 0,
                                                  &attempts);
  });
  if (status == SCARD_S_SUCCESS) return;
  // A minidriver may take a failed change as a failed verification.
  pinVerified_ = false;
  ToolError error("CardChangeAuthenticatorEx", status);
  if (attempts != CARD_DATA_VALUE_UNKNOWN) error.withAttempts(attempts);
  throw error;
}

Bytes CardSession::sign(int container, const HashAlgorithm& algorithm, const Bytes& hash) {
  Bytes data = hash;
  BCRYPT_PKCS1_PADDING_INFO padding{algorithm.cngName.data()};
  CARD_SIGNING_INFO info{};
  info.dwVersion = CARD_SIGNING_INFO_CURRENT_VERSION;
  info.bContainerIndex = containerArgument(container);
  info.dwKeySpec = AT_SIGNATURE;
  info.dwSigningFlags = CARD_PADDING_INFO_PRESENT;
  info.aiHashAlg = algorithm.algorithmId;
  info.pbData = data.data();
  info.cbData = static_cast<DWORD>(data.size());
  info.pPaddingInfo = &padding;
  info.dwPaddingType = CARD_PADDING_PKCS1;
  const DWORD status = call("CardSignData", "container " + std::to_string(container),
                            [&] { return cardData_.pfnCardSignData(&cardData_, &info); });
  // A minidriver may leave its buffer here even when it fails.
  const Bytes signature = takeBuffer(info.pbSignedData, status == SCARD_S_SUCCESS ? info.cbSignedData : 0);
  if (status != SCARD_S_SUCCESS) throw ToolError("CardSignData", status);
  return reversed(signature);
}

Bytes CardSession::decrypt(int container, const Bytes& block, Padding padding, const HashAlgorithm& oaepHash) {
  Bytes data = reversed(block);
  BCRYPT_OAEP_PADDING_INFO oaep{oaepHash.cngName.data(), nullptr, 0};
  CARD_RSA_DECRYPT_INFO info{};
  info.dwVersion = CARD_RSA_KEY_DECRYPT_INFO_CURRENT_VERSION;
  info.bContainerIndex = containerArgument(container);
  info.dwKeySpec = AT_KEYEXCHANGE;
  info.pbData = data.data();
  info.cbData = static_cast<DWORD>(data.size());
  info.pPaddingInfo = padding == Padding::kOaep ? &oaep : nullptr;
  info.dwPaddingType = static_cast<DWORD>(padding);
  require("CardRSADecrypt", "container " + std::to_string(container),
          [&] { return cardData_.pfnCardRSADecrypt(&cardData_, &info); });
  const Bytes plaintext = reversed(ByteView(data).first(std::min<std::size_t>(info.cbData, data.size())));
  wipe(data.data(), data.size());
  return plaintext;
}

ContainerKeys CardSession::containerKeys(int container) {
  CONTAINER_INFO info{};
  info.dwVersion = CONTAINER_INFO_CURRENT_VERSION;
  const BYTE index = containerArgument(container);
  const DWORD status = call("CardGetContainerInfo", "container " + std::to_string(container),
                            [&] { return cardData_.pfnCardGetContainerInfo(&cardData_, index, 0, &info); });
  // Both are released even after a failure: the first may be there when the second could not be made.
  ContainerKeys keys{takeBuffer(info.pbSigPublicKey, info.cbSigPublicKey),
                     takeBuffer(info.pbKeyExPublicKey, info.cbKeyExPublicKey)};
  if (status != SCARD_S_SUCCESS) throw ToolError("CardGetContainerInfo", status);
  return keys;
}

PropertyAnswer CardSession::cardProperty(const std::wstring& name, DWORD flags) {
  DWORD size = 0;
  const auto get = [&](PBYTE data, DWORD capacity) {
    return call("CardGetProperty", "\"" + toUtf8(name) + "\" flags " + std::to_string(flags),
                [&] { return cardData_.pfnCardGetProperty(&cardData_, name.c_str(), data, capacity, &size, flags); });
  };
  DWORD status = get(nullptr, 0);
  if (status != ERROR_INSUFFICIENT_BUFFER && status != static_cast<DWORD>(SCARD_E_INSUFFICIENT_BUFFER))
    return {status, {}};
  Bytes data(size);
  status = get(data.data(), size);
  if (status != ERROR_SUCCESS) return {status, {}};
  data.resize(size);
  return {status, std::move(data)};
}

}  // namespace orvane::tool
