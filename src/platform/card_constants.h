// The constants of the minidriver interface that this project uses.
//
// Part of our own declaration of the published smart-card minidriver interface, version 7; include card_module.h.
#ifndef ORVANE_PLATFORM_CARD_CONSTANTS_H
#define ORVANE_PLATFORM_CARD_CONSTANTS_H

#include "platform/windows_api.h"

// Versions of `CARD_DATA` and of the records.
#define CARD_DATA_VERSION_SEVEN 7
#define CARD_DATA_CURRENT_VERSION 7  // defined as CARD_DATA_VERSION_SEVEN
#define CARD_CAPABILITIES_CURRENT_VERSION 1
#define CARD_FREE_SPACE_INFO_CURRENT_VERSION 1
#define CARD_KEY_SIZES_CURRENT_VERSION 1
#define CARD_FILE_INFO_CURRENT_VERSION 1
#define CONTAINER_INFO_CURRENT_VERSION 1
#define CARD_SIGNING_INFO_CURRENT_VERSION 2
#define CARD_RSA_KEY_DECRYPT_INFO_VERSION_TWO 2
#define CARD_RSA_KEY_DECRYPT_INFO_CURRENT_VERSION 2  // version 6 headers had 1 here
#define PIN_CACHE_POLICY_CURRENT_VERSION 6
#define PIN_INFO_CURRENT_VERSION 6

// Names in the card file system.
#define szBASE_CSP_DIR "mscp"                 // directory of the base provider
#define szCARD_IDENTIFIER_FILE "cardid"       // 16 bytes; root
#define szCACHE_FILE "cardcf"                 // 6 bytes; published place is the root
#define szCONTAINER_MAP_FILE "cmapfile"       // 86 bytes a container; in "mscp"
#define szROOT_STORE_FILE "msroots"           // PKCS #7 store; in "mscp"
#define szUSER_SIGNATURE_CERT_PREFIX "ksc"    // + container index; certificate
#define szUSER_KEYEXCHANGE_CERT_PREFIX "kxc"  // + container index; certificate

// User names.
#define wszCARD_USER_USER L"user"
#define wszCARD_USER_ADMIN L"admin"

// Container map.
#define MAX_CONTAINER_NAME_LEN 39          // UTF-16 units without the NUL
#define CONTAINER_MAP_VALID_CONTAINER 1    // bit 0
#define CONTAINER_MAP_DEFAULT_CONTAINER 2  // bit 1; at most one record, only with bit 0

// PIN identifiers and PIN sets.
#define ROLE_USER 1                      // PIN_ID
#define ROLE_ADMIN 2                     // PIN_ID
#define PIN_SET_ALL_ROLES 0xFF           // PIN_SET
#define PIN_CHANGE_FLAG_CHANGEPIN 0x02   // CardChangeAuthenticatorEx flags
#define PIN_INFO_REQUIRE_SECURE_ENTRY 1  // PIN_INFO.dwFlags

// Authentication flags.
#define CARD_AUTHENTICATE_PIN_PIN 2                        // CardUnblockPin, CardChangeAuthenticator
#define CARD_AUTHENTICATE_GENERATE_SESSION_PIN 0x10000000  // CardAuthenticateEx
#define CARD_AUTHENTICATE_SESSION_PIN 0x20000000           // CardAuthenticateEx
#define CARD_PIN_SILENT_CONTEXT 0x00000040                 // CardAuthenticateEx: no user interface
#define CARD_PIN_STRENGTH_PLAINTEXT 0x1

// Signing, decryption and key derivation.
#define CARD_BUFFER_SIZE_ONLY 0x20000000  // size query
#define CARD_PADDING_INFO_PRESENT 0x40000000
#define CARD_PADDING_NONE 0x00000001
#define CARD_PADDING_PKCS1 0x00000002
#define CARD_PADDING_PSS 0x00000004
#define CARD_PADDING_OAEP 0x00000008

// Context, containers, algorithms.
#define CARD_SECURE_KEY_INJECTION_NO_CARD_MODE 0x1  // CardAcquireContext flag
#define CP_CACHE_MODE_SESSION_ONLY 2
#define CARD_ASYMMETRIC_OPERATION 0x2
#define CARD_DATA_VALUE_UNKNOWN (static_cast<DWORD>(-1))  // defined as minus one cast to DWORD

// Names of secure functions.
#define CSF_IMPORT_KEYPAIR L"Import Key Pair"
#define CSF_CHANGE_AUTHENTICATOR L"Change Authenticator"
#define CSF_AUTHENTICATE L"Authenticate"

// Property names, compared exactly, letter case included.
#define CP_CARD_FREE_SPACE L"Free Space"      // CARD_FREE_SPACE_INFO, read only
#define CP_CARD_CAPABILITIES L"Capabilities"  // CARD_CAPABILITIES, read only
#define CP_CARD_KEYSIZES L"Key Sizes"         // CARD_KEY_SIZES; dwFlags = key spec, read only
#define CP_CARD_READ_ONLY L"Read Only Mode"   // BOOL
#define CP_CARD_CACHE_MODE L"Cache Mode"      // DWORD, CP_CACHE_MODE_ value
#define CP_SUPPORTS_WIN_X509_ENROLLMENT L"Supports Windows x.509 Enrollment"  // BOOL
#define CP_CARD_GUID L"Card Identifier"                                       // 16 bytes, same as the file "cardid"
#define CP_CARD_SERIAL_NO L"Card Serial Number"                               // bytes, length chosen by the card
#define CP_CARD_PIN_INFO L"PIN Information"                                   // PIN_INFO; dwFlags = PIN_ID
#define CP_CARD_LIST_PINS L"PIN List"                                         // PIN_SET, read only
#define CP_CARD_AUTHENTICATED_STATE L"Authenticated State"                    // PIN_SET, read only
#define CP_CARD_PIN_STRENGTH_VERIFY \
  L"PIN Strength Verify"  // DWORD, CARD_PIN_STRENGTH_ bits; dwFlags = PIN_ID, read only
#define CP_CARD_PIN_STRENGTH_CHANGE \
  L"PIN Strength Change"  // DWORD, CARD_PIN_STRENGTH_ bits; dwFlags = PIN_ID, read only
#define CP_CARD_PIN_STRENGTH_UNBLOCK \
  L"PIN Strength Unblock"                            // DWORD, CARD_PIN_STRENGTH_ bits; dwFlags = PIN_ID, read only
#define CP_PARENT_WINDOW L"Parent Window"            // HWND (8 bytes), write only
#define CP_PIN_CONTEXT_STRING L"PIN Context String"  // UTF-16 text, write only
#define CP_KEY_IMPORT_SUPPORT L"Key Import Support"  // DWORD, CARD_KEY_IMPORT_ bits, read only
#define CP_ENUM_ALGORITHMS \
  L"Algorithms"  // version 7; dwFlags = CARD_CIPHER_OPERATION or CARD_ASYMMETRIC_OPERATION, read only
#define CP_PADDING_SCHEMES L"Padding Schemes"  // version 7; DWORD, CARD_PADDING_ bits, read only
#define CP_CHAINING_MODES L"Chaining Modes"    // version 7, read only
#define CCP_CONTAINER_INFO L"Container Info"   // container property; CONTAINER_INFO, read only
#define CCP_PIN_IDENTIFIER L"PIN Identifier"   // container property; PIN_ID

// Operations on a set of PINs: bit n stands for the PIN identifier n.
#define CREATE_PIN_SET(PinId) (1u << (PinId))

#endif  // ORVANE_PLATFORM_CARD_CONSTANTS_H
