// All tokens of the process: those defined in memory and those found in the token folder.
#ifndef ORVANE_SOFTTOKEN_TOKEN_STORE_H
#define ORVANE_SOFTTOKEN_TOKEN_STORE_H

#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "softtoken/token.h"

namespace orvane::softtoken {

// Every member function may be called by any thread; one mutex guards all tokens and is held only inside them, also
// while a callable that was handed over runs.
class TokenStore {
 public:
  // The serials of the connected tokens, in ascending order.
  std::vector<std::string> connectedSerials();

  // Runs use(token) with the connected token of this serial; false, without running it, when there is none.
  template <typename Use>
  bool withConnected(const char* serial, Use use) {
    const std::lock_guard<std::mutex> lock(mutex);
    Token* const token = serial == nullptr ? nullptr : findConnected(serial);
    if (token == nullptr) return false;
    use(*token);
    return true;
  }

  // The same with a token defined in memory, connected or not.
  template <typename Use>
  bool withDefined(const char* serial, Use use) {
    const std::lock_guard<std::mutex> lock(mutex);
    const auto found = serial == nullptr ? defined.end() : defined.find(serial);
    if (found == defined.end()) return false;
    use(found->second);
    return true;
  }

  // Defines a token in memory, or replaces it. It hides a token of the same serial in the folder.
  void define(const std::string& serial, Token token);

  // The token folder instead of the one in the environment; an empty one for none.
  void setFolder(const std::string& folder);

  // A record with this content that stays where it is until the process ends.
  const OrvaneCertificate* keep(const OrvaneCertificate& certificate);

  // Forgets all tokens and the folder that was set. Certificate records stay.
  void reset();

 private:
  std::string currentFolder() const;
  void refreshFolder();
  void refreshFromFolder(const std::string& folder, const std::string& serial);
  Token* findConnected(const std::string& serial);

  std::mutex mutex;
  std::map<std::string, Token> defined;
  std::map<std::string, Token> inFolder;  // as found at the last look
  std::set<std::string> unreadable;       // serials in the folder about which was complained
  bool folderSet = false;
  std::string folderPath;
  std::map<std::string, std::unique_ptr<OrvaneCertificate>> certificates;  // by their bytes
};

// The one of the process; never destroyed, as threads may still be inside calls when the process ends.
TokenStore& tokenStore();

}  // namespace orvane::softtoken

#endif  // ORVANE_SOFTTOKEN_TOKEN_STORE_H
