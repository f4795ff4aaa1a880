// Stand-ins for the Windows types, constants and calls that the product uses, for the native builds.
//
// Only what src/ needs stands here, with the published sizes and values. The behaviour behind the calls is set by tests
// through host_control.h. wchar_t has 16 bits in these builds (-fshort-wchar), as on Windows.
#ifndef ORVANE_PLATFORM_HOST_HOST_WINDOWS_H
#define ORVANE_PLATFORM_HOST_HOST_WINDOWS_H

#include <cstdint>

#define WINAPI

using BYTE = unsigned char;
using WORD = std::uint16_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using BOOL = int;
using ALG_ID = unsigned int;
using SIZE_T = std::uintptr_t;
using ULONG_PTR = std::uintptr_t;
using WCHAR = wchar_t;
using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = wchar_t*;
using LPCWSTR = const wchar_t*;
using PBYTE = BYTE*;
using LPBYTE = BYTE*;
using LPCBYTE = const BYTE*;
using PDWORD = DWORD*;
using LPDWORD = DWORD*;
using HANDLE = void*;
using HMODULE = void*;
using HWND = void*;
using HKEY = void*;
using SCARDCONTEXT = ULONG_PTR;
using SCARDHANDLE = ULONG_PTR;
static_assert(sizeof(WCHAR) == 2 && sizeof(void*) == 8);

#define FALSE 0
#define TRUE 1

// Statuses, signed 32-bit as the system's own headers define them.
#define ERROR_SUCCESS \
  LONG { 0 }
#define ERROR_FILE_NOT_FOUND \
  LONG { 2 }
#define ERROR_OUTOFMEMORY \
  LONG { 14 }
#define ERROR_INVALID_PASSWORD \
  LONG { 86 }
#define ERROR_INVALID_PARAMETER \
  LONG { 87 }
#define ERROR_INSUFFICIENT_BUFFER \
  LONG { 122 }
#define ERROR_MORE_DATA \
  LONG { 234 }
#define ERROR_REVISION_MISMATCH \
  LONG { 1306 }
#define SCARD_S_SUCCESS \
  LONG { 0 }
#define SCARD_F_INTERNAL_ERROR static_cast<LONG>(0x80100001)
#define SCARD_E_INVALID_HANDLE static_cast<LONG>(0x80100003)
#define SCARD_E_INVALID_PARAMETER static_cast<LONG>(0x80100004)
#define SCARD_E_NO_MEMORY static_cast<LONG>(0x80100006)
#define SCARD_E_INSUFFICIENT_BUFFER static_cast<LONG>(0x80100008)
#define SCARD_E_NO_SMARTCARD static_cast<LONG>(0x8010000C)
#define SCARD_E_UNKNOWN_CARD static_cast<LONG>(0x8010000D)
#define SCARD_E_UNEXPECTED static_cast<LONG>(0x8010001F)
#define SCARD_E_UNSUPPORTED_FEATURE static_cast<LONG>(0x80100022)
#define SCARD_E_DIR_NOT_FOUND static_cast<LONG>(0x80100023)
#define SCARD_E_FILE_NOT_FOUND static_cast<LONG>(0x80100024)
#define SCARD_E_NO_KEY_CONTAINER static_cast<LONG>(0x80100030)
#define SCARD_W_REMOVED_CARD static_cast<LONG>(0x80100069)
#define SCARD_W_WRONG_CHV static_cast<LONG>(0x8010006B)
#define SCARD_W_CHV_BLOCKED static_cast<LONG>(0x8010006C)
#define SCARD_W_CARD_NOT_AUTHENTICATED static_cast<LONG>(0x8010006F)

#define AT_KEYEXCHANGE 1
#define AT_SIGNATURE 2
#define PUBLICKEYBLOB 0x6
#define CUR_BLOB_VERSION 2
#define CALG_RSA_SIGN 0x2400
#define CALG_RSA_KEYX 0xA400

struct PUBLICKEYSTRUC {
  BYTE bType;
  BYTE bVersion;
  WORD reserved;
  ALG_ID aiKeyAlg;
};
struct RSAPUBKEY {
  DWORD magic;
  DWORD bitlen;
  DWORD pubexp;
};

// Smart-card resource manager.
#define SCARD_PROTOCOL_T1 2
struct SCARD_IO_REQUEST {
  DWORD dwProtocol;
  DWORD cbPciLength;
};
using LPSCARD_IO_REQUEST = SCARD_IO_REQUEST*;
using LPCSCARD_IO_REQUEST = const SCARD_IO_REQUEST*;
LONG SCardStatusA(SCARDHANDLE hCard, LPSTR szReaderName, LPDWORD pcchReaderLen, LPDWORD pdwState, LPDWORD pdwProtocol,
                  LPBYTE pbAtr, LPDWORD pcbAtrLen);
LONG SCardTransmit(SCARDHANDLE hCard, LPCSCARD_IO_REQUEST pioSendPci, LPCBYTE pbSendBuffer, DWORD cbSendLength,
                   LPSCARD_IO_REQUEST pioRecvPci, LPBYTE pbRecvBuffer, LPDWORD pcbRecvLength);

// Registry.
#define HKEY_LOCAL_MACHINE reinterpret_cast<HKEY>(ULONG_PTR{0x80000002})
#define RRF_RT_ANY 0x0000FFFF
LONG RegGetValueA(HKEY hkey, LPCSTR lpSubKey, LPCSTR lpValue, DWORD dwFlags, LPDWORD pdwType, PVOID pvData,
                  LPDWORD pcbData);

// Files, process and clock.
#define MAX_PATH 260
#define INVALID_FILE_ATTRIBUTES 0xFFFFFFFFu
#define FILE_ATTRIBUTE_DIRECTORY 0x10u
struct SECURITY_ATTRIBUTES;
struct SYSTEMTIME {
  WORD wYear;
  WORD wMonth;
  WORD wDayOfWeek;
  WORD wDay;
  WORD wHour;
  WORD wMinute;
  WORD wSecond;
  WORD wMilliseconds;
};
DWORD GetTempPathA(DWORD nBufferLength, LPSTR lpBuffer);
DWORD GetFileAttributesA(LPCSTR lpFileName);
BOOL CreateDirectoryA(LPCSTR lpPathName, SECURITY_ATTRIBUTES* lpSecurityAttributes);
HANDLE GetCurrentProcess();
DWORD K32GetModuleBaseNameA(HANDLE hProcess, HMODULE hModule, LPSTR lpBaseName, DWORD nSize);
void GetLocalTime(SYSTEMTIME* lpSystemTime);

#endif  // ORVANE_PLATFORM_HOST_HOST_WINDOWS_H
