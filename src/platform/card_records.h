// The records and enumerations of the minidriver interface.
//
// Part of our own declaration of the published smart-card minidriver interface, version 7; include card_module.h.
#ifndef ORVANE_PLATFORM_CARD_RECORDS_H
#define ORVANE_PLATFORM_CARD_RECORDS_H

#include <cstddef>

#include "platform/card_constants.h"
#include "platform/windows_api.h"

// Types that the records and prototypes use.
typedef struct _CARD_DATA CARD_DATA, *PCARD_DATA;
typedef ULONG_PTR CARD_KEY_HANDLE, *PCARD_KEY_HANDLE;
typedef DWORD PIN_ID, *PPIN_ID;
typedef DWORD PIN_SET, *PPIN_SET;

// Who may create and delete files in a directory.
typedef enum {
  InvalidDirAc = 0,
  UserCreateDeleteDirAc = 1,
  AdminCreateDeleteDirAc = 2,
} CARD_DIRECTORY_ACCESS_CONDITION;

// Who may read and write a file.
typedef enum {
  InvalidAc = 0,
  EveryoneReadUserWriteAc = 1,   // everyone reads, user and administrator write
  UserWriteExecuteAc = 2,        // nobody reads, user writes and uses
  EveryoneReadAdminWriteAc = 3,  // everyone reads, administrator writes
  UnknownAc = 4,
  UserReadWriteAc = 5,   // user reads and writes
  AdminReadWriteAc = 6,  // administrator reads and writes
} CARD_FILE_ACCESS_CONDITION;

// How a PIN is given.
typedef enum {
  AlphaNumericPinType = 0,
  ExternalPinType = 1,
  ChallengeResponsePinType = 2,
  EmptyPinType = 3,  // no prompt and no authentication call
} SECRET_TYPE;

// What a PIN is for; Windows words its prompt by it.
typedef enum {
  AuthenticationPin = 0,
  DigitalSignaturePin = 1,
  EncryptionPin = 2,
  NonRepudiationPin = 3,
  AdministratorPin = 4,
  PrimaryCardPin = 5,
  UnblockOnlyPin = 6,  // added in version 7
} SECRET_PURPOSE;

// How long Windows may keep a PIN.
typedef enum {
  PinCacheNormal = 0,        // cached per process and logon
  PinCacheTimed = 1,         // as above with a life in seconds
  PinCacheNone = 2,          // not cached
  PinCacheAlwaysPrompt = 3,  // asked before every use; added in version 7
} PIN_CACHE_POLICY_TYPE;

// CARD_CACHE_FILE_FORMAT: 6 bytes, alignment 2. Current version 1. Content of the cache file "cardcf"; 6 bytes because
// every member is already on its natural boundary (no packing pragma is published).
typedef struct _CARD_CACHE_FILE_FORMAT {
  BYTE bVersion;              // cache version
  BYTE bPinsFreshness;        // PIN freshness counter
  WORD wContainersFreshness;  // container freshness counter
  WORD wFilesFreshness;       // file freshness counter
} CARD_CACHE_FILE_FORMAT, *PCARD_CACHE_FILE_FORMAT;
static_assert(sizeof(CARD_CACHE_FILE_FORMAT) == 6 && alignof(CARD_CACHE_FILE_FORMAT) == 2);
static_assert(offsetof(CARD_CACHE_FILE_FORMAT, bVersion) == 0);
static_assert(offsetof(CARD_CACHE_FILE_FORMAT, bPinsFreshness) == 1);
static_assert(offsetof(CARD_CACHE_FILE_FORMAT, wContainersFreshness) == 2);
static_assert(offsetof(CARD_CACHE_FILE_FORMAT, wFilesFreshness) == 4);

// CONTAINER_MAP_RECORD: 86 bytes, alignment 2. One record of the container map "cmapfile"; alignment 2, so 86 bytes
// without any packing pragma; records follow each other without gaps.
typedef struct _CONTAINER_MAP_RECORD {
  WCHAR wszGuid[MAX_CONTAINER_NAME_LEN + 1];  // NUL-terminated name; array length is MAX_CONTAINER_NAME_LEN + 1
  BYTE bFlags;                                // CONTAINER_MAP_ bits
  BYTE bReserved;                             // 0
  WORD wSigKeySizeBits;                       // 0 = no signature key
  WORD wKeyExchangeKeySizeBits;               // 0 = no key-exchange key
} CONTAINER_MAP_RECORD, *PCONTAINER_MAP_RECORD;
static_assert(sizeof(CONTAINER_MAP_RECORD) == 86 && alignof(CONTAINER_MAP_RECORD) == 2);
static_assert(offsetof(CONTAINER_MAP_RECORD, wszGuid) == 0);
static_assert(offsetof(CONTAINER_MAP_RECORD, bFlags) == 80);
static_assert(offsetof(CONTAINER_MAP_RECORD, bReserved) == 81);
static_assert(offsetof(CONTAINER_MAP_RECORD, wSigKeySizeBits) == 82);
static_assert(offsetof(CONTAINER_MAP_RECORD, wKeyExchangeKeySizeBits) == 84);

// CARD_CAPABILITIES: 12 bytes, alignment 4. Current version 1. CardQueryCapabilities, CP_CARD_CAPABILITIES.
typedef struct _CARD_CAPABILITIES {
  DWORD dwVersion;               // in/out
  BOOL fCertificateCompression;  // out
  BOOL fKeyGen;                  // out
} CARD_CAPABILITIES, *PCARD_CAPABILITIES;
static_assert(sizeof(CARD_CAPABILITIES) == 12 && alignof(CARD_CAPABILITIES) == 4);
static_assert(offsetof(CARD_CAPABILITIES, dwVersion) == 0);
static_assert(offsetof(CARD_CAPABILITIES, fCertificateCompression) == 4);
static_assert(offsetof(CARD_CAPABILITIES, fKeyGen) == 8);

// CARD_FREE_SPACE_INFO: 16 bytes, alignment 4. Current version 1. CardQueryFreeSpace, CP_CARD_FREE_SPACE.
typedef struct _CARD_FREE_SPACE_INFO {
  DWORD dwVersion;                 // in/out
  DWORD dwBytesAvailable;          // out
  DWORD dwKeyContainersAvailable;  // out
  DWORD dwMaxKeyContainers;        // out
} CARD_FREE_SPACE_INFO, *PCARD_FREE_SPACE_INFO;
static_assert(sizeof(CARD_FREE_SPACE_INFO) == 16 && alignof(CARD_FREE_SPACE_INFO) == 4);
static_assert(offsetof(CARD_FREE_SPACE_INFO, dwVersion) == 0);
static_assert(offsetof(CARD_FREE_SPACE_INFO, dwBytesAvailable) == 4);
static_assert(offsetof(CARD_FREE_SPACE_INFO, dwKeyContainersAvailable) == 8);
static_assert(offsetof(CARD_FREE_SPACE_INFO, dwMaxKeyContainers) == 12);

// CARD_KEY_SIZES: 20 bytes, alignment 4. Current version 1. CardQueryKeySizes, CP_CARD_KEYSIZES; five words, the
// default stands between minimum and maximum.
typedef struct _CARD_KEY_SIZES {
  DWORD dwVersion;            // in/out
  DWORD dwMinimumBitlen;      // out
  DWORD dwDefaultBitlen;      // out
  DWORD dwMaximumBitlen;      // out
  DWORD dwIncrementalBitlen;  // out
} CARD_KEY_SIZES, *PCARD_KEY_SIZES;
static_assert(sizeof(CARD_KEY_SIZES) == 20 && alignof(CARD_KEY_SIZES) == 4);
static_assert(offsetof(CARD_KEY_SIZES, dwVersion) == 0);
static_assert(offsetof(CARD_KEY_SIZES, dwMinimumBitlen) == 4);
static_assert(offsetof(CARD_KEY_SIZES, dwDefaultBitlen) == 8);
static_assert(offsetof(CARD_KEY_SIZES, dwMaximumBitlen) == 12);
static_assert(offsetof(CARD_KEY_SIZES, dwIncrementalBitlen) == 16);

// CARD_FILE_INFO: 12 bytes, alignment 4. Current version 1. CardGetFileInfo.
typedef struct _CARD_FILE_INFO {
  DWORD dwVersion;                             // in/out
  DWORD cbFileSize;                            // out
  CARD_FILE_ACCESS_CONDITION AccessCondition;  // out
} CARD_FILE_INFO, *PCARD_FILE_INFO;
static_assert(sizeof(CARD_FILE_INFO) == 12 && alignof(CARD_FILE_INFO) == 4);
static_assert(offsetof(CARD_FILE_INFO, dwVersion) == 0);
static_assert(offsetof(CARD_FILE_INFO, cbFileSize) == 4);
static_assert(offsetof(CARD_FILE_INFO, AccessCondition) == 8);

// CONTAINER_INFO: 40 bytes, alignment 8. Current version 1. CardGetContainerInfo, CCP_CONTAINER_INFO; padding of 4
// bytes before each pointer.
typedef struct _CONTAINER_INFO {
  DWORD dwVersion;  // in/out
  DWORD dwReserved;
  DWORD cbSigPublicKey;    // out
  PBYTE pbSigPublicKey;    // out, from pfnCspAlloc, or NULL
  DWORD cbKeyExPublicKey;  // out
  PBYTE pbKeyExPublicKey;  // out, from pfnCspAlloc, or NULL
} CONTAINER_INFO, *PCONTAINER_INFO;
static_assert(sizeof(CONTAINER_INFO) == 40 && alignof(CONTAINER_INFO) == 8);
static_assert(offsetof(CONTAINER_INFO, dwVersion) == 0);
static_assert(offsetof(CONTAINER_INFO, dwReserved) == 4);
static_assert(offsetof(CONTAINER_INFO, cbSigPublicKey) == 8);
static_assert(offsetof(CONTAINER_INFO, pbSigPublicKey) == 16);
static_assert(offsetof(CONTAINER_INFO, cbKeyExPublicKey) == 24);
static_assert(offsetof(CONTAINER_INFO, pbKeyExPublicKey) == 32);

// CARD_SIGNING_INFO: 72 bytes, alignment 8. Current version 2. CardSignData, PFN_CSP_PAD_DATA; record version 1 ends
// after cbSignedData (56 bytes), the last two members exist from record version 2.
typedef struct _CARD_SIGNING_INFO {
  DWORD dwVersion;       // in
  BYTE bContainerIndex;  // in; 3 bytes of padding follow
  DWORD dwKeySpec;       // in
  DWORD dwSigningFlags;  // in
  ALG_ID aiHashAlg;      // in; 0 or the hash for PKCS #1
  PBYTE pbData;          // in
  DWORD cbData;          // in
  PBYTE pbSignedData;    // out, from pfnCspAlloc
  DWORD cbSignedData;    // out
  LPVOID pPaddingInfo;   // in; used when CARD_PADDING_INFO_PRESENT is set
  DWORD dwPaddingType;   // in
} CARD_SIGNING_INFO, *PCARD_SIGNING_INFO;
static_assert(sizeof(CARD_SIGNING_INFO) == 72 && alignof(CARD_SIGNING_INFO) == 8);
static_assert(offsetof(CARD_SIGNING_INFO, dwVersion) == 0);
static_assert(offsetof(CARD_SIGNING_INFO, bContainerIndex) == 4);
static_assert(offsetof(CARD_SIGNING_INFO, dwKeySpec) == 8);
static_assert(offsetof(CARD_SIGNING_INFO, dwSigningFlags) == 12);
static_assert(offsetof(CARD_SIGNING_INFO, aiHashAlg) == 16);
static_assert(offsetof(CARD_SIGNING_INFO, pbData) == 24);
static_assert(offsetof(CARD_SIGNING_INFO, cbData) == 32);
static_assert(offsetof(CARD_SIGNING_INFO, pbSignedData) == 40);
static_assert(offsetof(CARD_SIGNING_INFO, cbSignedData) == 48);
static_assert(offsetof(CARD_SIGNING_INFO, pPaddingInfo) == 56);
static_assert(offsetof(CARD_SIGNING_INFO, dwPaddingType) == 64);

// CARD_RSA_DECRYPT_INFO: 48 bytes, alignment 8. Current version 2. CardRSADecrypt, PFN_CSP_UNPAD_DATA; record version 1
// ends after cbData (32 bytes), the last two members exist from record version 2.
typedef struct _CARD_RSA_DECRYPT_INFO {
  DWORD dwVersion;       // in
  BYTE bContainerIndex;  // in; 3 bytes of padding follow
  DWORD dwKeySpec;       // in
  PBYTE pbData;          // in and out, the caller's buffer
  DWORD cbData;          // in and out
  LPVOID pPaddingInfo;   // in
  DWORD dwPaddingType;   // in
} CARD_RSA_DECRYPT_INFO, *PCARD_RSA_DECRYPT_INFO;
static_assert(sizeof(CARD_RSA_DECRYPT_INFO) == 48 && alignof(CARD_RSA_DECRYPT_INFO) == 8);
static_assert(offsetof(CARD_RSA_DECRYPT_INFO, dwVersion) == 0);
static_assert(offsetof(CARD_RSA_DECRYPT_INFO, bContainerIndex) == 4);
static_assert(offsetof(CARD_RSA_DECRYPT_INFO, dwKeySpec) == 8);
static_assert(offsetof(CARD_RSA_DECRYPT_INFO, pbData) == 16);
static_assert(offsetof(CARD_RSA_DECRYPT_INFO, cbData) == 24);
static_assert(offsetof(CARD_RSA_DECRYPT_INFO, pPaddingInfo) == 32);
static_assert(offsetof(CARD_RSA_DECRYPT_INFO, dwPaddingType) == 40);

// PIN_CACHE_POLICY: 12 bytes, alignment 4. Current version 6. Member of PIN_INFO.
typedef struct _PIN_CACHE_POLICY {
  DWORD dwVersion;                           // in/out
  PIN_CACHE_POLICY_TYPE PinCachePolicyType;  // out
  DWORD dwPinCachePolicyInfo;                // out; seconds for PinCacheTimed
} PIN_CACHE_POLICY, *PPIN_CACHE_POLICY;
static_assert(sizeof(PIN_CACHE_POLICY) == 12 && alignof(PIN_CACHE_POLICY) == 4);
static_assert(offsetof(PIN_CACHE_POLICY, dwVersion) == 0);
static_assert(offsetof(PIN_CACHE_POLICY, PinCachePolicyType) == 4);
static_assert(offsetof(PIN_CACHE_POLICY, dwPinCachePolicyInfo) == 8);

// PIN_INFO: 36 bytes, alignment 4. Current version 6. CP_CARD_PIN_INFO; nine 4-byte words, no padding.
typedef struct _PIN_INFO {
  DWORD dwVersion;                  // in/out
  SECRET_TYPE PinType;              // out
  SECRET_PURPOSE PinPurpose;        // out
  PIN_SET dwChangePermission;       // out; a PIN_SET
  PIN_SET dwUnblockPermission;      // out; a PIN_SET
  PIN_CACHE_POLICY PinCachePolicy;  // out; three words at 20, 24, 28
  DWORD dwFlags;                    // out; PIN_INFO_REQUIRE_SECURE_ENTRY
} PIN_INFO, *PPIN_INFO;
static_assert(sizeof(PIN_INFO) == 36 && alignof(PIN_INFO) == 4);
static_assert(offsetof(PIN_INFO, dwVersion) == 0);
static_assert(offsetof(PIN_INFO, PinType) == 4);
static_assert(offsetof(PIN_INFO, PinPurpose) == 8);
static_assert(offsetof(PIN_INFO, dwChangePermission) == 12);
static_assert(offsetof(PIN_INFO, dwUnblockPermission) == 16);
static_assert(offsetof(PIN_INFO, PinCachePolicy) == 20);
static_assert(offsetof(PIN_INFO, dwFlags) == 32);

// CARD_DH_AGREEMENT_INFO: 40 bytes, alignment 8. Current version 2. CardConstructDHAgreement.
typedef struct _CARD_DH_AGREEMENT_INFO {
  DWORD dwVersion;       // in
  BYTE bContainerIndex;  // in
  DWORD dwFlags;         // in
  DWORD dwPublicKey;     // in; byte count of pbPublicKey
  PBYTE pbPublicKey;     // in
  PBYTE pbReserved;
  DWORD cbReserved;
  BYTE bSecretAgreementIndex;  // out
} CARD_DH_AGREEMENT_INFO, *PCARD_DH_AGREEMENT_INFO;
static_assert(sizeof(CARD_DH_AGREEMENT_INFO) == 40 && alignof(CARD_DH_AGREEMENT_INFO) == 8);
static_assert(offsetof(CARD_DH_AGREEMENT_INFO, dwVersion) == 0);
static_assert(offsetof(CARD_DH_AGREEMENT_INFO, bContainerIndex) == 4);
static_assert(offsetof(CARD_DH_AGREEMENT_INFO, dwFlags) == 8);
static_assert(offsetof(CARD_DH_AGREEMENT_INFO, dwPublicKey) == 12);
static_assert(offsetof(CARD_DH_AGREEMENT_INFO, pbPublicKey) == 16);
static_assert(offsetof(CARD_DH_AGREEMENT_INFO, pbReserved) == 24);
static_assert(offsetof(CARD_DH_AGREEMENT_INFO, cbReserved) == 32);
static_assert(offsetof(CARD_DH_AGREEMENT_INFO, bSecretAgreementIndex) == 36);

// CARD_DERIVE_KEY: 72 bytes, alignment 8. Current version 2. CardDeriveKey; record version 1 ends after cbDerivedKey
// (48 bytes), the last three members exist from record version 2.
typedef struct _CARD_DERIVE_KEY {
  DWORD dwVersion;             // in
  DWORD dwFlags;               // in
  LPWSTR pwszKDF;              // in
  BYTE bSecretAgreementIndex;  // in
  PVOID pParameterList;        // in
  PBYTE pbDerivedKey;          // out
  DWORD cbDerivedKey;          // out
  LPWSTR pwszAlgId;            // in
  DWORD dwKeyLen;              // in
  CARD_KEY_HANDLE hKey;        // out
} CARD_DERIVE_KEY, *PCARD_DERIVE_KEY;
static_assert(sizeof(CARD_DERIVE_KEY) == 72 && alignof(CARD_DERIVE_KEY) == 8);
static_assert(offsetof(CARD_DERIVE_KEY, dwVersion) == 0);
static_assert(offsetof(CARD_DERIVE_KEY, dwFlags) == 4);
static_assert(offsetof(CARD_DERIVE_KEY, pwszKDF) == 8);
static_assert(offsetof(CARD_DERIVE_KEY, bSecretAgreementIndex) == 16);
static_assert(offsetof(CARD_DERIVE_KEY, pParameterList) == 24);
static_assert(offsetof(CARD_DERIVE_KEY, pbDerivedKey) == 32);
static_assert(offsetof(CARD_DERIVE_KEY, cbDerivedKey) == 40);
static_assert(offsetof(CARD_DERIVE_KEY, pwszAlgId) == 48);
static_assert(offsetof(CARD_DERIVE_KEY, dwKeyLen) == 56);
static_assert(offsetof(CARD_DERIVE_KEY, hKey) == 64);

// CARD_ENCRYPTED_DATA: 16 bytes, alignment 8. MDEncryptData (array out), CardProcessEncryptedData (array in).
typedef struct _CARD_ENCRYPTED_DATA {
  PBYTE pbEncryptedData;
  DWORD cbEncryptedData;
} CARD_ENCRYPTED_DATA, *PCARD_ENCRYPTED_DATA;
static_assert(sizeof(CARD_ENCRYPTED_DATA) == 16 && alignof(CARD_ENCRYPTED_DATA) == 8);
static_assert(offsetof(CARD_ENCRYPTED_DATA, pbEncryptedData) == 0);
static_assert(offsetof(CARD_ENCRYPTED_DATA, cbEncryptedData) == 8);

// CARD_IMPORT_KEYPAIR: 24 bytes, alignment 4. Current version 7. Clear form of the data for CSF_IMPORT_KEYPAIR;
// open-ended.
typedef struct _CARD_IMPORT_KEYPAIR {
  DWORD dwVersion;
  BYTE bContainerIndex;  // 3 bytes of padding follow
  PIN_ID PinId;
  DWORD dwKeySpec;
  DWORD dwKeySize;
  DWORD cbInput;
  // Followed by pbInput: cbInput bytes.
} CARD_IMPORT_KEYPAIR, *PCARD_IMPORT_KEYPAIR;
static_assert(sizeof(CARD_IMPORT_KEYPAIR) == 24 && alignof(CARD_IMPORT_KEYPAIR) == 4);
static_assert(offsetof(CARD_IMPORT_KEYPAIR, dwVersion) == 0);
static_assert(offsetof(CARD_IMPORT_KEYPAIR, bContainerIndex) == 4);
static_assert(offsetof(CARD_IMPORT_KEYPAIR, PinId) == 8);
static_assert(offsetof(CARD_IMPORT_KEYPAIR, dwKeySpec) == 12);
static_assert(offsetof(CARD_IMPORT_KEYPAIR, dwKeySize) == 16);
static_assert(offsetof(CARD_IMPORT_KEYPAIR, cbInput) == 20);

// CARD_CHANGE_AUTHENTICATOR: 28 bytes, alignment 4. Current version 7. Clear form of the data for
// CSF_CHANGE_AUTHENTICATOR; open-ended.
typedef struct _CARD_CHANGE_AUTHENTICATOR {
  DWORD dwVersion;
  DWORD dwFlags;
  PIN_ID dwAuthenticatingPinId;
  DWORD cbAuthenticatingPinData;
  PIN_ID dwTargetPinId;
  DWORD cbTargetData;
  DWORD cRetryCount;
  // Followed by pbData: first the authenticating data, then the target data.
} CARD_CHANGE_AUTHENTICATOR, *PCARD_CHANGE_AUTHENTICATOR;
static_assert(sizeof(CARD_CHANGE_AUTHENTICATOR) == 28 && alignof(CARD_CHANGE_AUTHENTICATOR) == 4);
static_assert(offsetof(CARD_CHANGE_AUTHENTICATOR, dwVersion) == 0);
static_assert(offsetof(CARD_CHANGE_AUTHENTICATOR, dwFlags) == 4);
static_assert(offsetof(CARD_CHANGE_AUTHENTICATOR, dwAuthenticatingPinId) == 8);
static_assert(offsetof(CARD_CHANGE_AUTHENTICATOR, cbAuthenticatingPinData) == 12);
static_assert(offsetof(CARD_CHANGE_AUTHENTICATOR, dwTargetPinId) == 16);
static_assert(offsetof(CARD_CHANGE_AUTHENTICATOR, cbTargetData) == 20);
static_assert(offsetof(CARD_CHANGE_AUTHENTICATOR, cRetryCount) == 24);

// CARD_CHANGE_AUTHENTICATOR_RESPONSE: 8 bytes, alignment 4. Current version 7. Answer to the former.
typedef struct _CARD_CHANGE_AUTHENTICATOR_RESPONSE {
  DWORD dwVersion;
  DWORD cAttemptsRemaining;
} CARD_CHANGE_AUTHENTICATOR_RESPONSE, *PCARD_CHANGE_AUTHENTICATOR_RESPONSE;
static_assert(sizeof(CARD_CHANGE_AUTHENTICATOR_RESPONSE) == 8 && alignof(CARD_CHANGE_AUTHENTICATOR_RESPONSE) == 4);
static_assert(offsetof(CARD_CHANGE_AUTHENTICATOR_RESPONSE, dwVersion) == 0);
static_assert(offsetof(CARD_CHANGE_AUTHENTICATOR_RESPONSE, cAttemptsRemaining) == 4);

// CARD_AUTHENTICATE: 16 bytes, alignment 4. Current version 7. Clear form of the data for CSF_AUTHENTICATE; open-ended.
typedef struct _CARD_AUTHENTICATE {
  DWORD dwVersion;
  DWORD dwFlags;
  PIN_ID PinId;
  DWORD cbPinData;
  // Followed by pbPinData: cbPinData bytes.
} CARD_AUTHENTICATE, *PCARD_AUTHENTICATE;
static_assert(sizeof(CARD_AUTHENTICATE) == 16 && alignof(CARD_AUTHENTICATE) == 4);
static_assert(offsetof(CARD_AUTHENTICATE, dwVersion) == 0);
static_assert(offsetof(CARD_AUTHENTICATE, dwFlags) == 4);
static_assert(offsetof(CARD_AUTHENTICATE, PinId) == 8);
static_assert(offsetof(CARD_AUTHENTICATE, cbPinData) == 12);

// CARD_AUTHENTICATE_RESPONSE: 12 bytes, alignment 4. Current version 7. Answer to the former; open-ended.
typedef struct _CARD_AUTHENTICATE_RESPONSE {
  DWORD dwVersion;
  DWORD cbSessionPin;
  DWORD cAttemptsRemaining;
  // Followed by pbSessionPin: cbSessionPin bytes.
} CARD_AUTHENTICATE_RESPONSE, *PCARD_AUTHENTICATE_RESPONSE;
static_assert(sizeof(CARD_AUTHENTICATE_RESPONSE) == 12 && alignof(CARD_AUTHENTICATE_RESPONSE) == 4);
static_assert(offsetof(CARD_AUTHENTICATE_RESPONSE, dwVersion) == 0);
static_assert(offsetof(CARD_AUTHENTICATE_RESPONSE, cbSessionPin) == 4);
static_assert(offsetof(CARD_AUTHENTICATE_RESPONSE, cAttemptsRemaining) == 8);

#endif  // ORVANE_PLATFORM_CARD_RECORDS_H
