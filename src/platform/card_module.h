// Our own declaration of the published smart-card minidriver interface, version 7, for the 64-bit ABI.
//
// It defines the guard macro of the cross compiler's old cardmod.h (a version-5 header with other sizes and values), so
// that file can never be picked up beside it.
#ifndef ORVANE_PLATFORM_CARD_MODULE_H
#define ORVANE_PLATFORM_CARD_MODULE_H
#define _INC_CARDMOD

#include <cstddef>

#include "platform/card_constants.h"
#include "platform/card_records.h"
#include "platform/windows_api.h"

// Callbacks that the caller of CardAcquireContext provides.

typedef LPVOID(WINAPI* PFN_CSP_ALLOC)(SIZE_T Size);                    // NULL when out of memory
typedef LPVOID(WINAPI* PFN_CSP_REALLOC)(LPVOID Address, SIZE_T Size);  // NULL when out of memory
typedef void(WINAPI* PFN_CSP_FREE)(LPVOID Address);                    // releases what the two above gave
typedef DWORD(WINAPI* PFN_CSP_CACHE_ADD_FILE)(PVOID pvCacheContext, LPWSTR wszTag, DWORD dwFlags, PBYTE pbData,
                                              DWORD cbData);  // the data is copied
typedef DWORD(WINAPI* PFN_CSP_CACHE_LOOKUP_FILE)(
    PVOID pvCacheContext, LPWSTR wszTag, DWORD dwFlags, PBYTE* ppbData,
    PDWORD pcbData);  // on success the minidriver releases *ppbData with pfnCspFree
typedef DWORD(WINAPI* PFN_CSP_CACHE_DELETE_FILE)(PVOID pvCacheContext, LPWSTR wszTag, DWORD dwFlags);
typedef DWORD(WINAPI* PFN_CSP_PAD_DATA)(PCARD_SIGNING_INFO pSigningInfo, DWORD cbMaxWidth, DWORD* pcbPaddedBuffer,
                                        PBYTE* ppbPaddedBuffer);  // result buffer released with pfnCspFree
typedef DWORD(WINAPI* PFN_CSP_GET_DH_AGREEMENT)(PCARD_DATA pCardData, PVOID hSecretAgreement,
                                                BYTE* pbSecretAgreementIndex, DWORD dwFlags);
typedef DWORD(WINAPI* PFN_CSP_UNPAD_DATA)(PCARD_RSA_DECRYPT_INFO pRSADecryptInfo, DWORD* pcbUnpaddedData,
                                          PBYTE* ppbUnpaddedData);  // result buffer released with pfnCspFree

// Types of the entry points, in the order of their slots; CardAcquireContext has none.
typedef DWORD(WINAPI* PFN_CARD_ACQUIRE_CONTEXT)(PCARD_DATA pCardData, DWORD dwFlags);
typedef DWORD(WINAPI* PFN_CARD_DELETE_CONTEXT)(PCARD_DATA pCardData);
typedef DWORD(WINAPI* PFN_CARD_QUERY_CAPABILITIES)(PCARD_DATA pCardData, PCARD_CAPABILITIES pCardCapabilities);
typedef DWORD(WINAPI* PFN_CARD_DELETE_CONTAINER)(PCARD_DATA pCardData, BYTE bContainerIndex, DWORD dwReserved);
typedef DWORD(WINAPI* PFN_CARD_CREATE_CONTAINER)(PCARD_DATA pCardData, BYTE bContainerIndex, DWORD dwFlags,
                                                 DWORD dwKeySpec, DWORD dwKeySize, PBYTE pbKeyData);
typedef DWORD(WINAPI* PFN_CARD_GET_CONTAINER_INFO)(PCARD_DATA pCardData, BYTE bContainerIndex, DWORD dwFlags,
                                                   PCONTAINER_INFO pContainerInfo);
typedef DWORD(WINAPI* PFN_CARD_AUTHENTICATE_PIN)(PCARD_DATA pCardData, LPWSTR pwszUserId, PBYTE pbPin, DWORD cbPin,
                                                 PDWORD pcAttemptsRemaining);
typedef DWORD(WINAPI* PFN_CARD_GET_CHALLENGE)(PCARD_DATA pCardData, PBYTE* ppbChallengeData, PDWORD pcbChallengeData);
typedef DWORD(WINAPI* PFN_CARD_AUTHENTICATE_CHALLENGE)(PCARD_DATA pCardData, PBYTE pbResponseData, DWORD cbResponseData,
                                                       PDWORD pcAttemptsRemaining);
typedef DWORD(WINAPI* PFN_CARD_UNBLOCK_PIN)(PCARD_DATA pCardData, LPWSTR pwszUserId, PBYTE pbAuthenticationData,
                                            DWORD cbAuthenticationData, PBYTE pbNewPinData, DWORD cbNewPinData,
                                            DWORD cRetryCount, DWORD dwFlags);
typedef DWORD(WINAPI* PFN_CARD_CHANGE_AUTHENTICATOR)(PCARD_DATA pCardData, LPWSTR pwszUserId,
                                                     PBYTE pbCurrentAuthenticator, DWORD cbCurrentAuthenticator,
                                                     PBYTE pbNewAuthenticator, DWORD cbNewAuthenticator,
                                                     DWORD cRetryCount, DWORD dwFlags, PDWORD pcAttemptsRemaining);
typedef DWORD(WINAPI* PFN_CARD_DEAUTHENTICATE)(PCARD_DATA pCardData, LPWSTR pwszUserId, DWORD dwFlags);
typedef DWORD(WINAPI* PFN_CARD_CREATE_DIRECTORY)(PCARD_DATA pCardData, LPSTR pszDirectoryName,
                                                 CARD_DIRECTORY_ACCESS_CONDITION AccessCondition);
typedef DWORD(WINAPI* PFN_CARD_DELETE_DIRECTORY)(PCARD_DATA pCardData, LPSTR pszDirectoryName);
typedef DWORD(WINAPI* PFN_CARD_CREATE_FILE)(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR pszFileName,
                                            DWORD cbInitialCreationSize, CARD_FILE_ACCESS_CONDITION AccessCondition);
typedef DWORD(WINAPI* PFN_CARD_READ_FILE)(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR pszFileName,
                                          DWORD dwFlags, PBYTE* ppbData, PDWORD pcbData);
typedef DWORD(WINAPI* PFN_CARD_WRITE_FILE)(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR pszFileName,
                                           DWORD dwFlags, PBYTE pbData, DWORD cbData);
typedef DWORD(WINAPI* PFN_CARD_DELETE_FILE)(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR pszFileName,
                                            DWORD dwFlags);
typedef DWORD(WINAPI* PFN_CARD_ENUM_FILES)(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR* pmszFileNames,
                                           LPDWORD pdwcbFileName, DWORD dwFlags);
typedef DWORD(WINAPI* PFN_CARD_GET_FILE_INFO)(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR pszFileName,
                                              PCARD_FILE_INFO pCardFileInfo);
typedef DWORD(WINAPI* PFN_CARD_QUERY_FREE_SPACE)(PCARD_DATA pCardData, DWORD dwFlags,
                                                 PCARD_FREE_SPACE_INFO pCardFreeSpaceInfo);
typedef DWORD(WINAPI* PFN_CARD_QUERY_KEY_SIZES)(PCARD_DATA pCardData, DWORD dwKeySpec, DWORD dwFlags,
                                                PCARD_KEY_SIZES pKeySizes);
typedef DWORD(WINAPI* PFN_CARD_SIGN_DATA)(PCARD_DATA pCardData, PCARD_SIGNING_INFO pInfo);
typedef DWORD(WINAPI* PFN_CARD_RSA_DECRYPT)(PCARD_DATA pCardData, PCARD_RSA_DECRYPT_INFO pInfo);
typedef DWORD(WINAPI* PFN_CARD_CONSTRUCT_DH_AGREEMENT)(PCARD_DATA pCardData, PCARD_DH_AGREEMENT_INFO pAgreementInfo);
typedef DWORD(WINAPI* PFN_CARD_DERIVE_KEY)(PCARD_DATA pCardData, PCARD_DERIVE_KEY pAgreementInfo);
typedef DWORD(WINAPI* PFN_CARD_DESTROY_DH_AGREEMENT)(PCARD_DATA pCardData, BYTE bSecretAgreementIndex, DWORD dwFlags);
typedef DWORD(WINAPI* PFN_CARD_GET_CHALLENGE_EX)(PCARD_DATA pCardData, PIN_ID PinId, PBYTE* ppbChallengeData,
                                                 PDWORD pcbChallengeData, DWORD dwFlags);
typedef DWORD(WINAPI* PFN_CARD_AUTHENTICATE_EX)(PCARD_DATA pCardData, PIN_ID PinId, DWORD dwFlags, PBYTE pbPinData,
                                                DWORD cbPinData, PBYTE* ppbSessionPin, PDWORD pcbSessionPin,
                                                PDWORD pcAttemptsRemaining);
typedef DWORD(WINAPI* PFN_CARD_CHANGE_AUTHENTICATOR_EX)(PCARD_DATA pCardData, DWORD dwFlags,
                                                        PIN_ID dwAuthenticatingPinId, PBYTE pbAuthenticatingPinData,
                                                        DWORD cbAuthenticatingPinData, PIN_ID dwTargetPinId,
                                                        PBYTE pbTargetData, DWORD cbTargetData, DWORD cRetryCount,
                                                        PDWORD pcAttemptsRemaining);
typedef DWORD(WINAPI* PFN_CARD_DEAUTHENTICATE_EX)(PCARD_DATA pCardData, PIN_SET PinId, DWORD dwFlags);
typedef DWORD(WINAPI* PFN_CARD_GET_CONTAINER_PROPERTY)(PCARD_DATA pCardData, BYTE bContainerIndex, LPCWSTR wszProperty,
                                                       PBYTE pbData, DWORD cbData, PDWORD pdwDataLen, DWORD dwFlags);
typedef DWORD(WINAPI* PFN_CARD_SET_CONTAINER_PROPERTY)(PCARD_DATA pCardData, BYTE bContainerIndex, LPCWSTR wszProperty,
                                                       PBYTE pbData, DWORD cbDataLen, DWORD dwFlags);
typedef DWORD(WINAPI* PFN_CARD_GET_PROPERTY)(PCARD_DATA pCardData, LPCWSTR wszProperty, PBYTE pbData, DWORD cbData,
                                             PDWORD pdwDataLen, DWORD dwFlags);
typedef DWORD(WINAPI* PFN_CARD_SET_PROPERTY)(PCARD_DATA pCardData, LPCWSTR wszProperty, PBYTE pbData, DWORD cbDataLen,
                                             DWORD dwFlags);
typedef DWORD(WINAPI* PFN_MD_IMPORT_SESSION_KEY)(PCARD_DATA pCardData, LPCWSTR pwszBlobType, LPCWSTR pwszAlgId,
                                                 PCARD_KEY_HANDLE phKey, PBYTE pbInput, DWORD cbInput);
typedef DWORD(WINAPI* PFN_MD_ENCRYPT_DATA)(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey, LPCWSTR pwszSecureFunction,
                                           PBYTE pbInput, DWORD cbInput, DWORD dwFlags,
                                           PCARD_ENCRYPTED_DATA* ppEncryptedData, PDWORD pcEncryptedData);
typedef DWORD(WINAPI* PFN_CARD_IMPORT_SESSION_KEY)(PCARD_DATA pCardData, BYTE bContainerIndex, LPVOID pPaddingInfo,
                                                   LPCWSTR pwszBlobType, LPCWSTR pwszAlgId, PCARD_KEY_HANDLE phKey,
                                                   PBYTE pbInput, DWORD cbInput, DWORD dwFlags);
typedef DWORD(WINAPI* PFN_CARD_GET_SHARED_KEY_HANDLE)(PCARD_DATA pCardData, PBYTE pbInput, DWORD cbInput,
                                                      PBYTE* ppbOutput, PDWORD pcbOutput, PCARD_KEY_HANDLE phKey);
typedef DWORD(WINAPI* PFN_CARD_GET_ALGORITHM_PROPERTY)(PCARD_DATA pCardData, LPCWSTR pwszAlgId, LPCWSTR pwszProperty,
                                                       PBYTE pbData, DWORD cbData, PDWORD pdwDataLen, DWORD dwFlags);
typedef DWORD(WINAPI* PFN_CARD_GET_KEY_PROPERTY)(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey, LPCWSTR pwszProperty,
                                                 PBYTE pbData, DWORD cbData, PDWORD pdwDataLen, DWORD dwFlags);
typedef DWORD(WINAPI* PFN_CARD_SET_KEY_PROPERTY)(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey, LPCWSTR pwszProperty,
                                                 PBYTE pbInput, DWORD cbInput, DWORD dwFlags);
typedef DWORD(WINAPI* PFN_CARD_DESTROY_KEY)(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey);
typedef DWORD(WINAPI* PFN_CARD_PROCESS_ENCRYPTED_DATA)(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey,
                                                       LPCWSTR pwszSecureFunction, PCARD_ENCRYPTED_DATA pEncryptedData,
                                                       DWORD cEncryptedData, PBYTE pbOutput, DWORD cbOutput,
                                                       PDWORD pdwOutputLen, DWORD dwFlags);
typedef DWORD(WINAPI* PFN_CARD_CREATE_CONTAINER_EX)(PCARD_DATA pCardData, BYTE bContainerIndex, DWORD dwFlags,
                                                    DWORD dwKeySpec, DWORD dwKeySize, PBYTE pbKeyData, PIN_ID PinId);

// The record that the caller hands over with every call: 63 members of 8 bytes each (after padding), 504 bytes.
struct _CARD_DATA {
  DWORD dwVersion;
  PBYTE pbAtr;
  DWORD cbAtr;
  LPWSTR pwszCardName;
  PFN_CSP_ALLOC pfnCspAlloc;
  PFN_CSP_REALLOC pfnCspReAlloc;
  PFN_CSP_FREE pfnCspFree;
  PFN_CSP_CACHE_ADD_FILE pfnCspCacheAddFile;
  PFN_CSP_CACHE_LOOKUP_FILE pfnCspCacheLookupFile;
  PFN_CSP_CACHE_DELETE_FILE pfnCspCacheDeleteFile;
  PVOID pvCacheContext;
  PFN_CSP_PAD_DATA pfnCspPadData;
  SCARDCONTEXT hSCardCtx;
  SCARDHANDLE hScard;
  PVOID pvVendorSpecific;
  PFN_CARD_DELETE_CONTEXT pfnCardDeleteContext;
  PFN_CARD_QUERY_CAPABILITIES pfnCardQueryCapabilities;
  PFN_CARD_DELETE_CONTAINER pfnCardDeleteContainer;
  PFN_CARD_CREATE_CONTAINER pfnCardCreateContainer;
  PFN_CARD_GET_CONTAINER_INFO pfnCardGetContainerInfo;
  PFN_CARD_AUTHENTICATE_PIN pfnCardAuthenticatePin;
  PFN_CARD_GET_CHALLENGE pfnCardGetChallenge;
  PFN_CARD_AUTHENTICATE_CHALLENGE pfnCardAuthenticateChallenge;
  PFN_CARD_UNBLOCK_PIN pfnCardUnblockPin;
  PFN_CARD_CHANGE_AUTHENTICATOR pfnCardChangeAuthenticator;
  PFN_CARD_DEAUTHENTICATE pfnCardDeauthenticate;
  PFN_CARD_CREATE_DIRECTORY pfnCardCreateDirectory;
  PFN_CARD_DELETE_DIRECTORY pfnCardDeleteDirectory;
  LPVOID pvUnused3;
  LPVOID pvUnused4;
  PFN_CARD_CREATE_FILE pfnCardCreateFile;
  PFN_CARD_READ_FILE pfnCardReadFile;
  PFN_CARD_WRITE_FILE pfnCardWriteFile;
  PFN_CARD_DELETE_FILE pfnCardDeleteFile;
  PFN_CARD_ENUM_FILES pfnCardEnumFiles;
  PFN_CARD_GET_FILE_INFO pfnCardGetFileInfo;
  PFN_CARD_QUERY_FREE_SPACE pfnCardQueryFreeSpace;
  PFN_CARD_QUERY_KEY_SIZES pfnCardQueryKeySizes;
  PFN_CARD_SIGN_DATA pfnCardSignData;
  PFN_CARD_RSA_DECRYPT pfnCardRSADecrypt;
  PFN_CARD_CONSTRUCT_DH_AGREEMENT pfnCardConstructDHAgreement;
  PFN_CARD_DERIVE_KEY pfnCardDeriveKey;
  PFN_CARD_DESTROY_DH_AGREEMENT pfnCardDestroyDHAgreement;
  PFN_CSP_GET_DH_AGREEMENT pfnCspGetDHAgreement;
  PFN_CARD_GET_CHALLENGE_EX pfnCardGetChallengeEx;
  PFN_CARD_AUTHENTICATE_EX pfnCardAuthenticateEx;
  PFN_CARD_CHANGE_AUTHENTICATOR_EX pfnCardChangeAuthenticatorEx;
  PFN_CARD_DEAUTHENTICATE_EX pfnCardDeauthenticateEx;
  PFN_CARD_GET_CONTAINER_PROPERTY pfnCardGetContainerProperty;
  PFN_CARD_SET_CONTAINER_PROPERTY pfnCardSetContainerProperty;
  PFN_CARD_GET_PROPERTY pfnCardGetProperty;
  PFN_CARD_SET_PROPERTY pfnCardSetProperty;
  PFN_CSP_UNPAD_DATA pfnCspUnpadData;
  PFN_MD_IMPORT_SESSION_KEY pfnMDImportSessionKey;
  PFN_MD_ENCRYPT_DATA pfnMDEncryptData;
  PFN_CARD_IMPORT_SESSION_KEY pfnCardImportSessionKey;
  PFN_CARD_GET_SHARED_KEY_HANDLE pfnCardGetSharedKeyHandle;
  PFN_CARD_GET_ALGORITHM_PROPERTY pfnCardGetAlgorithmProperty;
  PFN_CARD_GET_KEY_PROPERTY pfnCardGetKeyProperty;
  PFN_CARD_SET_KEY_PROPERTY pfnCardSetKeyProperty;
  PFN_CARD_DESTROY_KEY pfnCardDestroyKey;
  PFN_CARD_PROCESS_ENCRYPTED_DATA pfnCardProcessEncryptedData;
  PFN_CARD_CREATE_CONTAINER_EX pfnCardCreateContainerEx;
};
static_assert(sizeof(CARD_DATA) == 504 && alignof(CARD_DATA) == 8);
static_assert(offsetof(CARD_DATA, dwVersion) == 0);
static_assert(offsetof(CARD_DATA, pbAtr) == 8);
static_assert(offsetof(CARD_DATA, cbAtr) == 16);
static_assert(offsetof(CARD_DATA, pwszCardName) == 24);
static_assert(offsetof(CARD_DATA, pfnCspAlloc) == 32);
static_assert(offsetof(CARD_DATA, pfnCspReAlloc) == 40);
static_assert(offsetof(CARD_DATA, pfnCspFree) == 48);
static_assert(offsetof(CARD_DATA, pfnCspCacheAddFile) == 56);
static_assert(offsetof(CARD_DATA, pfnCspCacheLookupFile) == 64);
static_assert(offsetof(CARD_DATA, pfnCspCacheDeleteFile) == 72);
static_assert(offsetof(CARD_DATA, pvCacheContext) == 80);
static_assert(offsetof(CARD_DATA, pfnCspPadData) == 88);
static_assert(offsetof(CARD_DATA, hSCardCtx) == 96);
static_assert(offsetof(CARD_DATA, hScard) == 104);
static_assert(offsetof(CARD_DATA, pvVendorSpecific) == 112);
static_assert(offsetof(CARD_DATA, pfnCardDeleteContext) == 120);
static_assert(offsetof(CARD_DATA, pfnCardQueryCapabilities) == 128);
static_assert(offsetof(CARD_DATA, pfnCardDeleteContainer) == 136);
static_assert(offsetof(CARD_DATA, pfnCardCreateContainer) == 144);
static_assert(offsetof(CARD_DATA, pfnCardGetContainerInfo) == 152);
static_assert(offsetof(CARD_DATA, pfnCardAuthenticatePin) == 160);
static_assert(offsetof(CARD_DATA, pfnCardGetChallenge) == 168);
static_assert(offsetof(CARD_DATA, pfnCardAuthenticateChallenge) == 176);
static_assert(offsetof(CARD_DATA, pfnCardUnblockPin) == 184);
static_assert(offsetof(CARD_DATA, pfnCardChangeAuthenticator) == 192);
static_assert(offsetof(CARD_DATA, pfnCardDeauthenticate) == 200);
static_assert(offsetof(CARD_DATA, pfnCardCreateDirectory) == 208);
static_assert(offsetof(CARD_DATA, pfnCardDeleteDirectory) == 216);
static_assert(offsetof(CARD_DATA, pvUnused3) == 224);
static_assert(offsetof(CARD_DATA, pvUnused4) == 232);
static_assert(offsetof(CARD_DATA, pfnCardCreateFile) == 240);
static_assert(offsetof(CARD_DATA, pfnCardReadFile) == 248);
static_assert(offsetof(CARD_DATA, pfnCardWriteFile) == 256);
static_assert(offsetof(CARD_DATA, pfnCardDeleteFile) == 264);
static_assert(offsetof(CARD_DATA, pfnCardEnumFiles) == 272);
static_assert(offsetof(CARD_DATA, pfnCardGetFileInfo) == 280);
static_assert(offsetof(CARD_DATA, pfnCardQueryFreeSpace) == 288);
static_assert(offsetof(CARD_DATA, pfnCardQueryKeySizes) == 296);
static_assert(offsetof(CARD_DATA, pfnCardSignData) == 304);
static_assert(offsetof(CARD_DATA, pfnCardRSADecrypt) == 312);
static_assert(offsetof(CARD_DATA, pfnCardConstructDHAgreement) == 320);
static_assert(offsetof(CARD_DATA, pfnCardDeriveKey) == 328);
static_assert(offsetof(CARD_DATA, pfnCardDestroyDHAgreement) == 336);
static_assert(offsetof(CARD_DATA, pfnCspGetDHAgreement) == 344);
static_assert(offsetof(CARD_DATA, pfnCardGetChallengeEx) == 352);
static_assert(offsetof(CARD_DATA, pfnCardAuthenticateEx) == 360);
static_assert(offsetof(CARD_DATA, pfnCardChangeAuthenticatorEx) == 368);
static_assert(offsetof(CARD_DATA, pfnCardDeauthenticateEx) == 376);
static_assert(offsetof(CARD_DATA, pfnCardGetContainerProperty) == 384);
static_assert(offsetof(CARD_DATA, pfnCardSetContainerProperty) == 392);
static_assert(offsetof(CARD_DATA, pfnCardGetProperty) == 400);
static_assert(offsetof(CARD_DATA, pfnCardSetProperty) == 408);
static_assert(offsetof(CARD_DATA, pfnCspUnpadData) == 416);
static_assert(offsetof(CARD_DATA, pfnMDImportSessionKey) == 424);
static_assert(offsetof(CARD_DATA, pfnMDEncryptData) == 432);
static_assert(offsetof(CARD_DATA, pfnCardImportSessionKey) == 440);
static_assert(offsetof(CARD_DATA, pfnCardGetSharedKeyHandle) == 448);
static_assert(offsetof(CARD_DATA, pfnCardGetAlgorithmProperty) == 456);
static_assert(offsetof(CARD_DATA, pfnCardGetKeyProperty) == 464);
static_assert(offsetof(CARD_DATA, pfnCardSetKeyProperty) == 472);
static_assert(offsetof(CARD_DATA, pfnCardDestroyKey) == 480);
static_assert(offsetof(CARD_DATA, pfnCardProcessEncryptedData) == 488);
static_assert(offsetof(CARD_DATA, pfnCardCreateContainerEx) == 496);

// The entry points themselves, each exported under its plain name. docs/behaviour.md has their conditions, statuses and
// outputs. Common to all: nothing is thrown; buffers that they return come from `pfnCspAlloc` and belong to the caller;
// outputs are untouched on failure unless behaviour.md says otherwise; PINs, hashes and names are only read. The caller
// serialises the calls on one record, except for CardDeleteContext, which may come at any time.
extern "C" {
DWORD WINAPI CardAcquireContext(PCARD_DATA pCardData, DWORD dwFlags);
DWORD WINAPI CardDeleteContext(PCARD_DATA pCardData);
DWORD WINAPI CardQueryCapabilities(PCARD_DATA pCardData, PCARD_CAPABILITIES pCardCapabilities);
DWORD WINAPI CardDeleteContainer(PCARD_DATA pCardData, BYTE bContainerIndex, DWORD dwReserved);
DWORD WINAPI CardCreateContainer(PCARD_DATA pCardData, BYTE bContainerIndex, DWORD dwFlags, DWORD dwKeySpec,
                                 DWORD dwKeySize, PBYTE pbKeyData);
DWORD WINAPI CardGetContainerInfo(PCARD_DATA pCardData, BYTE bContainerIndex, DWORD dwFlags,
                                  PCONTAINER_INFO pContainerInfo);
DWORD WINAPI CardAuthenticatePin(PCARD_DATA pCardData, LPWSTR pwszUserId, PBYTE pbPin, DWORD cbPin,
                                 PDWORD pcAttemptsRemaining);
DWORD WINAPI CardGetChallenge(PCARD_DATA pCardData, PBYTE* ppbChallengeData, PDWORD pcbChallengeData);
DWORD WINAPI CardAuthenticateChallenge(PCARD_DATA pCardData, PBYTE pbResponseData, DWORD cbResponseData,
                                       PDWORD pcAttemptsRemaining);
DWORD WINAPI CardUnblockPin(PCARD_DATA pCardData, LPWSTR pwszUserId, PBYTE pbAuthenticationData,
                            DWORD cbAuthenticationData, PBYTE pbNewPinData, DWORD cbNewPinData, DWORD cRetryCount,
                            DWORD dwFlags);
DWORD WINAPI CardChangeAuthenticator(PCARD_DATA pCardData, LPWSTR pwszUserId, PBYTE pbCurrentAuthenticator,
                                     DWORD cbCurrentAuthenticator, PBYTE pbNewAuthenticator, DWORD cbNewAuthenticator,
                                     DWORD cRetryCount, DWORD dwFlags, PDWORD pcAttemptsRemaining);
DWORD WINAPI CardDeauthenticate(PCARD_DATA pCardData, LPWSTR pwszUserId, DWORD dwFlags);
DWORD WINAPI CardCreateDirectory(PCARD_DATA pCardData, LPSTR pszDirectoryName,
                                 CARD_DIRECTORY_ACCESS_CONDITION AccessCondition);
DWORD WINAPI CardDeleteDirectory(PCARD_DATA pCardData, LPSTR pszDirectoryName);
DWORD WINAPI CardCreateFile(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR pszFileName,
                            DWORD cbInitialCreationSize, CARD_FILE_ACCESS_CONDITION AccessCondition);
DWORD WINAPI CardReadFile(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR pszFileName, DWORD dwFlags,
                          PBYTE* ppbData, PDWORD pcbData);
DWORD WINAPI CardWriteFile(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR pszFileName, DWORD dwFlags, PBYTE pbData,
                           DWORD cbData);
DWORD WINAPI CardDeleteFile(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR pszFileName, DWORD dwFlags);
DWORD WINAPI CardEnumFiles(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR* pmszFileNames, LPDWORD pdwcbFileName,
                           DWORD dwFlags);
DWORD WINAPI CardGetFileInfo(PCARD_DATA pCardData, LPSTR pszDirectoryName, LPSTR pszFileName,
                             PCARD_FILE_INFO pCardFileInfo);
DWORD WINAPI CardQueryFreeSpace(PCARD_DATA pCardData, DWORD dwFlags, PCARD_FREE_SPACE_INFO pCardFreeSpaceInfo);
DWORD WINAPI CardQueryKeySizes(PCARD_DATA pCardData, DWORD dwKeySpec, DWORD dwFlags, PCARD_KEY_SIZES pKeySizes);
DWORD WINAPI CardSignData(PCARD_DATA pCardData, PCARD_SIGNING_INFO pInfo);
DWORD WINAPI CardRSADecrypt(PCARD_DATA pCardData, PCARD_RSA_DECRYPT_INFO pInfo);
DWORD WINAPI CardConstructDHAgreement(PCARD_DATA pCardData, PCARD_DH_AGREEMENT_INFO pAgreementInfo);
DWORD WINAPI CardDeriveKey(PCARD_DATA pCardData, PCARD_DERIVE_KEY pAgreementInfo);
DWORD WINAPI CardDestroyDHAgreement(PCARD_DATA pCardData, BYTE bSecretAgreementIndex, DWORD dwFlags);
DWORD WINAPI CardGetChallengeEx(PCARD_DATA pCardData, PIN_ID PinId, PBYTE* ppbChallengeData, PDWORD pcbChallengeData,
                                DWORD dwFlags);
DWORD WINAPI CardAuthenticateEx(PCARD_DATA pCardData, PIN_ID PinId, DWORD dwFlags, PBYTE pbPinData, DWORD cbPinData,
                                PBYTE* ppbSessionPin, PDWORD pcbSessionPin, PDWORD pcAttemptsRemaining);
DWORD WINAPI CardChangeAuthenticatorEx(PCARD_DATA pCardData, DWORD dwFlags, PIN_ID dwAuthenticatingPinId,
                                       PBYTE pbAuthenticatingPinData, DWORD cbAuthenticatingPinData,
                                       PIN_ID dwTargetPinId, PBYTE pbTargetData, DWORD cbTargetData, DWORD cRetryCount,
                                       PDWORD pcAttemptsRemaining);
DWORD WINAPI CardDeauthenticateEx(PCARD_DATA pCardData, PIN_SET PinId, DWORD dwFlags);
DWORD WINAPI CardGetContainerProperty(PCARD_DATA pCardData, BYTE bContainerIndex, LPCWSTR wszProperty, PBYTE pbData,
                                      DWORD cbData, PDWORD pdwDataLen, DWORD dwFlags);
DWORD WINAPI CardSetContainerProperty(PCARD_DATA pCardData, BYTE bContainerIndex, LPCWSTR wszProperty, PBYTE pbData,
                                      DWORD cbDataLen, DWORD dwFlags);
DWORD WINAPI CardGetProperty(PCARD_DATA pCardData, LPCWSTR wszProperty, PBYTE pbData, DWORD cbData, PDWORD pdwDataLen,
                             DWORD dwFlags);
DWORD WINAPI CardSetProperty(PCARD_DATA pCardData, LPCWSTR wszProperty, PBYTE pbData, DWORD cbDataLen, DWORD dwFlags);
DWORD WINAPI MDImportSessionKey(PCARD_DATA pCardData, LPCWSTR pwszBlobType, LPCWSTR pwszAlgId, PCARD_KEY_HANDLE phKey,
                                PBYTE pbInput, DWORD cbInput);
DWORD WINAPI MDEncryptData(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey, LPCWSTR pwszSecureFunction, PBYTE pbInput,
                           DWORD cbInput, DWORD dwFlags, PCARD_ENCRYPTED_DATA* ppEncryptedData, PDWORD pcEncryptedData);
DWORD WINAPI CardImportSessionKey(PCARD_DATA pCardData, BYTE bContainerIndex, LPVOID pPaddingInfo, LPCWSTR pwszBlobType,
                                  LPCWSTR pwszAlgId, PCARD_KEY_HANDLE phKey, PBYTE pbInput, DWORD cbInput,
                                  DWORD dwFlags);
DWORD WINAPI CardGetSharedKeyHandle(PCARD_DATA pCardData, PBYTE pbInput, DWORD cbInput, PBYTE* ppbOutput,
                                    PDWORD pcbOutput, PCARD_KEY_HANDLE phKey);
DWORD WINAPI CardGetAlgorithmProperty(PCARD_DATA pCardData, LPCWSTR pwszAlgId, LPCWSTR pwszProperty, PBYTE pbData,
                                      DWORD cbData, PDWORD pdwDataLen, DWORD dwFlags);
DWORD WINAPI CardGetKeyProperty(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey, LPCWSTR pwszProperty, PBYTE pbData,
                                DWORD cbData, PDWORD pdwDataLen, DWORD dwFlags);
DWORD WINAPI CardSetKeyProperty(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey, LPCWSTR pwszProperty, PBYTE pbInput,
                                DWORD cbInput, DWORD dwFlags);
DWORD WINAPI CardDestroyKey(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey);
DWORD WINAPI CardProcessEncryptedData(PCARD_DATA pCardData, CARD_KEY_HANDLE hKey, LPCWSTR pwszSecureFunction,
                                      PCARD_ENCRYPTED_DATA pEncryptedData, DWORD cEncryptedData, PBYTE pbOutput,
                                      DWORD cbOutput, PDWORD pdwOutputLen, DWORD dwFlags);
DWORD WINAPI CardCreateContainerEx(PCARD_DATA pCardData, BYTE bContainerIndex, DWORD dwFlags, DWORD dwKeySpec,
                                   DWORD dwKeySize, PBYTE pbKeyData, PIN_ID PinId);
}

#endif  // ORVANE_PLATFORM_CARD_MODULE_H
