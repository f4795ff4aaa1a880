// Exceptions of the token library, in every call of every entry point: a status and one line for the caller, the card
// handle cleared, the lock free, and the next call works.
#include "harness/entry_test.h"

namespace orvane::test {
namespace {

// A call that succeeds on a token with one key for everything.
struct EntryCall {
  const char* name;
  DWORD (*call)(CARD_DATA& record, void*& buffer);
};

std::string textOf(const char* pin) { return pin; }

DWORD authenticatePin(CARD_DATA& record, void*&) {
  PinBytes pin(textOf(kUserPin));
  wchar_t user[] = L"user";
  DWORD attempts = kPoison32;
  const DWORD status = record.pfnCardAuthenticatePin(&record, user, pin.data(), pin.size(), &attempts);
  if (status != 0) EXPECT_EQ(attempts, kPoison32);
  return status;
}

DWORD authenticateEx(CARD_DATA& record, void*&) {
  PinBytes pin(textOf(kUserPin));
  BYTE untouched = 0;
  PBYTE sessionPin = &untouched;
  DWORD sessionPinLength = kPoison32;
  DWORD attempts = kPoison32;
  const DWORD status = record.pfnCardAuthenticateEx(&record, ROLE_USER, 0, pin.data(), pin.size(), &sessionPin,
                                                    &sessionPinLength, &attempts);
  if (status != 0) {
    EXPECT_EQ(sessionPin, &untouched);
    EXPECT_EQ(sessionPinLength, kPoison32);
    EXPECT_EQ(attempts, kPoison32);
  }
  return status;
}

DWORD readFile(CARD_DATA& record, const char* name, void*& buffer) {
  BYTE untouched = 0;
  PBYTE data = &untouched;
  DWORD size = kPoison32;
  const DWORD status = record.pfnCardReadFile(&record, nullptr, const_cast<LPSTR>(name), 0, &data, &size);
  if (status != 0) {
    EXPECT_EQ(data, &untouched);
    EXPECT_EQ(size, kPoison32);
  } else {
    buffer = data;
  }
  return status;
}

DWORD readCertificate(CARD_DATA& record, void*& buffer) { return readFile(record, "ksc0", buffer); }
DWORD readContainerMap(CARD_DATA& record, void*& buffer) { return readFile(record, "cmapfile", buffer); }

DWORD sign(CARD_DATA& record, void*& buffer) {
  Bytes hash(32, 0x11);
  auto info = poisoned<CARD_SIGNING_INFO>();
  info.bContainerIndex = 0;
  info.dwSigningFlags = 0;
  info.pbData = hash.data();
  info.cbData = 32;
  const DWORD status = record.pfnCardSignData(&record, &info);
  // The buffer is the caller's, also after a failure.
  buffer = info.pbSignedData;
  if (status != 0) EXPECT_EQ(info.cbSignedData, kPoison32);
  return status;
}

DWORD decrypt(CARD_DATA& record, void*&) {
  Bytes data = {1, 2, 3};
  auto info = poisoned<CARD_RSA_DECRYPT_INFO>();
  info.dwVersion = 2;
  info.bContainerIndex = 0;
  info.dwKeySpec = AT_KEYEXCHANGE;
  info.pbData = data.data();
  info.cbData = 3;
  info.dwPaddingType = CARD_PADDING_PKCS1;
  const DWORD status = record.pfnCardRSADecrypt(&record, &info);
  EXPECT_EQ(info.cbData, 3u);
  EXPECT_EQ(data, (Bytes{1, 2, 3}));
  return status;
}

DWORD change(CARD_DATA& record, const wchar_t* user, const char* from, const char* to) {
  PinBytes current(textOf(from));
  PinBytes fresh(textOf(to));
  DWORD attempts = kPoison32;
  const DWORD status =
      record.pfnCardChangeAuthenticator(&record, const_cast<LPWSTR>(user), current.data(), current.size(), fresh.data(),
                                        fresh.size(), 0, CARD_AUTHENTICATE_PIN_PIN, &attempts);
  if (status != 0) EXPECT_EQ(attempts, kPoison32);
  return status;
}

DWORD changeEx(CARD_DATA& record, PIN_ID role, const char* from, const char* to) {
  PinBytes current(textOf(from));
  PinBytes fresh(textOf(to));
  DWORD attempts = kPoison32;
  const DWORD status =
      record.pfnCardChangeAuthenticatorEx(&record, PIN_CHANGE_FLAG_CHANGEPIN, role, current.data(), current.size(),
                                          role, fresh.data(), fresh.size(), 0, &attempts);
  if (status != 0) EXPECT_EQ(attempts, kPoison32);
  return status;
}

DWORD changeUser(CARD_DATA& record, void*&) { return change(record, L"user", kUserPin, kNewPin); }
DWORD changeAdmin(CARD_DATA& record, void*&) { return change(record, L"admin", kSoPin, kNewPin); }
DWORD changeUserEx(CARD_DATA& record, void*&) { return changeEx(record, ROLE_USER, kUserPin, kNewPin); }
DWORD changeAdminEx(CARD_DATA& record, void*&) { return changeEx(record, ROLE_ADMIN, kSoPin, kNewPin); }

struct ExceptionCase {
  const char* name = "";
  EntryCall entry = {};
  bool isAuthenticated = false;  // before the call
  const char* function = "";     // that throws
  Lines log = {};                // between the entry line and the line about the exception
  Lines calls = {};
};

constexpr char kSet[] = "orvane_setExternalSmartcardHandle(0x2A)";
constexpr char kClear[] = "orvane_clearExternalSmartcardHandle()";

class LibraryExceptionTest : public EntryTest {
 protected:
  CARD_DATA& openWithCertificate() {
    CARD_DATA& record = openFresh({makeKey(1, 3)});
    const OrvaneCertificate certificate = makeCertificate(1, 100);
    EXPECT_EQ(softtoken_set_certificate(kSerial, makeKey(1, 3).credentialId, &certificate), 1);
    return record;
  }

  Outcome observeEntry(CARD_DATA& record, const EntryCall& entry) {
    void* buffer = nullptr;
    const Outcome outcome = observe([&] { return entry.call(record, buffer); });
    if (buffer != nullptr) freeBuffer(buffer);
    return outcome;
  }

  void run(const ExceptionCase& row) {
    SCOPED_TRACE(std::string(row.name) + ", " + row.function);
    CARD_DATA& record = openWithCertificate();
    if (row.isAuthenticated) authenticate(record, 0);
    if (row.entry.call == readContainerMap) {
      defineCard({makeKey(2, 1)}, "0034CD");
      setSerial(record, "0034CD");
    }
    queueThrow(row.function);
    const std::string name = row.entry.name;
    EXPECT_EQ(
        observeEntry(record, row.entry),
        (Outcome{code(SCARD_F_INTERNAL_ERROR),
                 concat(concat({"D " + name + " :: LOG_FUNCTION_NAME = Entry"}, row.log),
                        {"E " + name + ": unhandled exception: " + row.function + ": exception in the token library"}),
                 row.calls}));
    EXPECT_EQ(softtoken_queued(row.function), 0u);
    EXPECT_EQ(observeEntry(record, row.entry).status, 0u);
  }
};

TEST_F(LibraryExceptionTest, BecomesAStatus) {
  const std::string id = idOf(1);
  const std::string validate = "orvane_validatePassword(\"0012AB\", \"Tr7-user\", 1, ";
  const std::string reopen = "orvane_initDevice(\"0012AB\", true, null)";
  const std::string signCall = "orvane_signHash(\"0012AB\", " + id + ", \"Tr7-user\", " +
                               "1111111111111111111111111111111111111111111111111111111111111111, 32, false, null, "
                               "false)";
  const std::string decryptCall = "orvane_decrypt(\"0012AB\", " + id + ", \"Tr7-user\", 030201, 3, false, null)";
  const std::string changeUserCall =
      "orvane_changeUserPassword(\"0012AB\", \"Tr7-user\", \"Nq4-fresh\", -1, false, false, null)";
  const std::string changeSoCall = "orvane_changeSOPassword(\"0012AB\", \"Ko2-officer\", \"Nq4-fresh\", null)";
  const Lines asked = {"D empty password for [0012AB]"};
  const Lines fileNamed = {"D CardReadFile filename: ksc0"};
  const Lines signing = {
      "D === CardSignData: serial=[0012AB] containerIndex=0 containerListSize=1 "
      "dwSigningFlags=0x00000000 userPinAuth=0",
      "D CardSignData: using container[0] credId=" + id + ", usage=3, alg=2",
      "D CardSignData: modulus size determined = 256", "D CardSignData: hash length=32"};
  const Lines decrypting = {"D CardRSADecrypt: PaddingType=PKCS1", "D CardRSADecrypt: containerIndex=0, dwKeySpec=1",
                            "D CardRSADecrypt: credentialId=" + id};
  const EntryCall ex{"CardAuthenticateEx", authenticateEx};
  const EntryCall read{"CardReadFile", readCertificate};
  const EntryCall signData{"CardSignData", sign};
  const EntryCall rsaDecrypt{"CardRSADecrypt", decrypt};
  const ExceptionCase cases[] = {
      {.name = "CardAuthenticatePin",
       .entry = {"CardAuthenticatePin", authenticatePin},
       .function = "orvane_validatePassword",
       .calls = {validate + "0, null)"}},
      {.name = "CardAuthenticateEx",
       .entry = ex,
       .function = "orvane_setExternalSmartcardHandle",
       .log = asked,
       .calls = {kSet, kClear}},
      {.name = "CardAuthenticateEx",
       .entry = ex,
       .function = "orvane_validatePassword",
       .log = asked,
       .calls = withHandle(validate + "8, null)")},
      {.name = "CardReadFile",
       .entry = read,
       .function = "orvane_setExternalSmartcardHandle",
       .log = fileNamed,
       .calls = {kSet, kClear}},
      {.name = "CardReadFile",
       .entry = read,
       .function = "orvane_initDevice",
       .log = fileNamed,
       .calls = withHandle(reopen)},
      {.name = "CardReadFile",
       .entry = read,
       .function = "orvane_findCertificateForKey",
       .log = concat(fileNamed, {"D === CardReadFile sig-cert: serial=[0012AB] file=ksc0"}),
       .calls = concat(withHandle(reopen), {"orvane_findCertificateForKey(\"0012AB\", " + id + ", null)"})},
      {.name = "CardReadFile",
       .entry = {"CardReadFile", readContainerMap},
       .function = "orvane_getKeyPairList",
       .log = {"D CardReadFile filename: cmapfile", "D === CardReadFile cmapfile: serial=[0034CD]",
               "D CMAP: Serial 0034CD missing from cache. Re-populating now..."},
       .calls = {"orvane_getKeyPairList(\"0034CD\", null)"}},
      {.name = "CardSignData",
       .entry = signData,
       .isAuthenticated = true,
       .function = "orvane_setExternalSmartcardHandle",
       .log = signing,
       .calls = {kSet, kClear}},
      {.name = "CardSignData",
       .entry = signData,
       .isAuthenticated = true,
       .function = "orvane_signHash",
       .log = signing,
       .calls = withHandle(signCall)},
      {.name = "CardRSADecrypt",
       .entry = rsaDecrypt,
       .isAuthenticated = true,
       .function = "orvane_setExternalSmartcardHandle",
       .log = decrypting,
       .calls = {kSet, kClear}},
      {.name = "CardRSADecrypt",
       .entry = rsaDecrypt,
       .isAuthenticated = true,
       .function = "orvane_decrypt",
       .log = decrypting,
       .calls = withHandle(decryptCall)},
      {.name = "CardChangeAuthenticator",
       .entry = {"CardChangeAuthenticator", changeUser},
       .function = "orvane_changeUserPassword",
       .calls = {changeUserCall}},
      {.name = "CardChangeAuthenticator",
       .entry = {"CardChangeAuthenticator", changeAdmin},
       .function = "orvane_changeSOPassword",
       .calls = {changeSoCall}},
      {.name = "CardChangeAuthenticatorEx",
       .entry = {"CardChangeAuthenticatorEx", changeUserEx},
       .function = "orvane_changeUserPassword",
       .calls = {changeUserCall}},
      {.name = "CardChangeAuthenticatorEx",
       .entry = {"CardChangeAuthenticatorEx", changeAdminEx},
       .function = "orvane_changeSOPassword",
       .calls = {changeSoCall}},
  };
  for (const ExceptionCase& row : cases) run(row);
}

// Forgetting the handle is the last thing that a bracketed call does: its result stands.
TEST_F(LibraryExceptionTest, WhileTheHandleIsForgottenChangesNothing) {
  const EntryCall entries[] = {{"CardAuthenticateEx", authenticateEx},
                               {"CardReadFile", readCertificate},
                               {"CardSignData", sign},
                               {"CardRSADecrypt", decrypt}};
  for (const EntryCall& entry : entries) {
    SCOPED_TRACE(entry.name);
    CARD_DATA& record = openWithCertificate();
    if (entry.call != authenticateEx) authenticate(record, 0);
    Outcome undisturbed = observeEntry(record, entry);
    EXPECT_EQ(undisturbed.status, 0u);
    // The library still holds the handle in what comes after the bracket.
    if (entry.call == readCertificate) undisturbed.calls.back() += " [card 0x2A]";
    CARD_DATA& again = openWithCertificate();
    if (entry.call != authenticateEx) authenticate(again, 0);
    queueThrow("orvane_clearExternalSmartcardHandle");
    EXPECT_EQ(observeEntry(again, entry), undisturbed);
    EXPECT_EQ(softtoken_queued("orvane_clearExternalSmartcardHandle"), 0u);
    // The next bracket sets it anew and clears it.
    EXPECT_EQ(observeEntry(again, {"CardReadFile", readCertificate}).status, 0u);
    softtoken_clear_calls();
  }
}

// A PIN that was changed is changed; without the token's word it does not count as validated there.
TEST_F(LibraryExceptionTest, WhileTheTokenIsAskedForItsPinStateCountsAsNo) {
  CARD_DATA& record = openWithCertificate();
  changeUserPin(record, kUserPin, kNewPin);
  queueThrow("orvane_getTokenInfo");
  PinBytes current{textOf(kNewPin)};
  PinBytes fresh{textOf(kUserPin)};
  EXPECT_EQ(observe([&] {
              return record.pfnCardChangeAuthenticatorEx(&record, PIN_CHANGE_FLAG_CHANGEPIN, ROLE_USER, current.data(),
                                                         current.size(), ROLE_USER, fresh.data(), fresh.size(), 0,
                                                         nullptr);
            }),
            (Outcome{0,
                     {"D CardChangeAuthenticatorEx :: LOG_FUNCTION_NAME = Entry",
                      "D CardChangeAuthenticatorEx: success [0012AB]", "D device reconnect true [0012AB]",
                      "D password validated (device) :: 0", "D password validated (local)  :: 1",
                      "D Not valid - bumping pin freshness", "D >>> GLOBAL CACHE BUMPED: ver=0 pins=2 cont=0 file=0"},
                     {"orvane_changeUserPassword(\"0012AB\", \"Nq4-fresh\", \"Tr7-user\", -1, false, false, null)",
                      "orvane_getTokenInfo(\"0012AB\", null)"}}));
  EXPECT_EQ(cachedPin(record), kUserPin);
}

// A verification that did not come to its end leaves nobody authenticated.
TEST_F(LibraryExceptionTest, LeavesNoCachedPinBehind) {
  CARD_DATA& record = openWithCertificate();
  queueThrow("orvane_validatePassword");
  void* none = nullptr;
  EXPECT_EQ(authenticateEx(record, none), code(SCARD_F_INTERNAL_ERROR));
  EXPECT_EQ(cachedPin(record), "");
  EXPECT_EQ(authenticatedState(record), 0u);
}

}  // namespace
}  // namespace orvane::test
