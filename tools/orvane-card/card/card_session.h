// One connection to a card through its minidriver: the base provider's side of the interface.
#ifndef ORVANE_TOOL_CARD_CARD_SESSION_H
#define ORVANE_TOOL_CARD_CARD_SESSION_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "card/card_files.h"
#include "card/driver.h"
#include "card/hash_algorithms.h"
#include "card/smart_card_service.h"
#include "platform/card_module.h"
#include "support/secret.h"

namespace orvane::tool {

// FileInfo is what the minidriver says about a file without reading it.
struct FileInfo {
  std::uint32_t size = 0;  // bytes, as stated; the content may differ
  std::uint32_t accessCondition = 0;
};

// PropertyAnswer is the outcome of a property query: the data when `status` is 0.
struct PropertyAnswer {
  DWORD status = 0;
  Bytes data;
};

// ContainerKeys are the public keys of a container; empty blobs for keys that it does not have.
struct ContainerKeys {
  Bytes signature;    // PUBLICKEYBLOB
  Bytes keyExchange;  // PUBLICKEYBLOB
};

enum class Padding : DWORD { kPkcs1 = CARD_PADDING_PKCS1, kOaep = CARD_PADDING_OAEP, kNone = CARD_PADDING_NONE };

// CardSession connects to the card, loads the minidriver and acquires a context; its destructor gives all of that back
// in the provider's order. Every call of the minidriver but the deletion of the context runs inside a card transaction.
// Failed calls throw ToolError with the entry point's name and status. For one thread.
class CardSession {
 public:
  // `service` must outlive the session. `trace`, when there is one, gets a line for every call of the minidriver and
  // for the begin and end of every transaction.
  CardSession(const SmartCardService& service, Reader reader, DriverChoice driver,
              std::function<void(const std::string&)> trace);
  ~CardSession();
  CardSession(const CardSession&) = delete;
  CardSession& operator=(const CardSession&) = delete;

  // Transaction keeps the card for this session until it goes out of scope; several of them nest. Nothing is waited for
  // in it but the minidriver: no input, no output, no file.
  class Transaction {
   public:
    explicit Transaction(CardSession& session) : session_(session) { session_.begin(); }
    ~Transaction() { session_.end(); }
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

   private:
    CardSession& session_;
  };

  const Reader& reader() const { return reader_; }
  const DriverChoice& driver() const { return driver_; }
  std::uint32_t version() const { return cardData_.dwVersion; }  // granted by the minidriver
  SCARDHANDLE handle() const { return card_; }  // for what is asked without the minidriver, in a transaction

  // Files. readFile gives the content; listFiles the names in a directory ("" is the root).
  Bytes readFile(const CardPath& path);
  std::vector<std::string> listFiles(const std::string& directory);
  FileInfo fileInfo(const CardPath& path);

  // verifyPin has the token check a PIN and gives the attempts that the minidriver reports; a wrong or blocked PIN
  // throws with the attempts left. pinVerified says whether that succeeded in this session and was not undone since.
  std::uint32_t verifyPin(PIN_ID pin, const SecretText& value);
  bool pinVerified() const { return pinVerified_; }

  // forgetPins undoes the verification of the PINs in `pins`. changePin replaces a PIN.
  void forgetPins(PIN_SET pins);
  void changePin(PIN_ID pin, const SecretText& current, const SecretText& replacement);

  // sign signs a bare hash with the container's signature key, with PKCS #1 v1.5, and gives the signature most
  // significant byte first, as files have it.
  Bytes sign(int container, const HashAlgorithm& algorithm, const Bytes& hash);

  // decrypt takes one block of the key-exchange key's length, most significant byte first, and gives the plaintext in
  // the order in which it was encrypted. `oaepHash` counts for OAEP only.
  Bytes decrypt(int container, const Bytes& block, Padding padding, const HashAlgorithm& oaepHash);

  ContainerKeys containerKeys(int container);

  // cardProperty asks for the size first, as the provider does. It never throws for a refusal.
  PropertyAnswer cardProperty(const std::wstring& name, DWORD flags);

 private:
  void begin();
  void end();
  void keepTransaction();
  void traceCall(const std::string& what, std::uint32_t status, std::chrono::steady_clock::time_point start) const;
  DWORD call(const char* entryPoint, const std::string& what, const std::function<DWORD()>& body);
  void require(const char* entryPoint, const std::string& what, const std::function<DWORD()>& body);
  void disconnect(DWORD disposition);

  const SmartCardService& service_;
  Reader reader_;
  DriverChoice driver_;
  std::function<void(const std::string&)> trace_;
  std::wstring cardName_;
  SCARDHANDLE card_ = 0;
  int transactions_ = 0;
  std::unique_ptr<DriverModule> module_;
  CARD_DATA cardData_{};
  bool pinVerified_ = false;
};

}  // namespace orvane::tool

#endif
