// Writes down what is there in an emulated system; lab/system_state.py compiles it and reads what it writes. A program
// of our own, as Windows' own programs for this write line by line, which takes minutes under emulation.
//
//   system_state.exe FILE WHAT...
//     WHAT: a branch of the registry, "HKLM" or "HKCU", or "HKLM\" and a key; "=" and such a branch; or a folder, the
//     names in which are listed, and if it ends with "\*" those in all folders in it
//
// FILE holds records, each of three 32-bit numbers, a text in UTF-16 and bytes: the kind, the length of the text in
// bytes, and that of the bytes. What is not there makes no records. The status is 0 if all was written.
//
// With "=" the server of the registry saves the branch by itself, into a file beside FILE whose name has a number at
// its end, in a form of its own. That is one request instead of some for each key, so it takes a small part of the
// time; keys that do not outlive the system are not in it.
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

// The kinds of records beside the types of values: a key with its whole name, to which the values behind it belong; a
// file; a branch that was saved, with the number of its file.
enum { KEY = 0x10000, FILE_NAME = 0x10001, SAVED = 0x10002 };
enum { NAME_LENGTH = 16384, BUFFER = 1 << 20 };

static FILE* target;
static WCHAR path[NAME_LENGTH];

static void end(const char* what, LONG error) {
  fprintf(stderr, "system_state: %s: error %ld\n", what, error);
  exit(1);
}

static void record(DWORD kind, const WCHAR* text, const void* bytes, DWORD length) {
  const DWORD head[3] = {kind, (DWORD)(wcslen(text) * sizeof *text), length};
  fwrite(head, sizeof head, 1, target);
  fwrite(text, 1, head[1], target);
  fwrite(bytes, 1, length, target);
}

// Adds a name to the path and returns the length before, to which the path is cut afterwards.
static size_t append(const WCHAR* name) {
  const size_t before = wcslen(path);
  if (before + wcslen(name) + 4 > NAME_LENGTH) end("a path", ERROR_FILENAME_EXCED_RANGE);
  path[before] = L'\\';
  wcscpy(path + before + 1, name);
  return before;
}

// A key that cannot be listed, as that of the names of the performance counters, has the error in its place.
static void noteError(const WCHAR* what, LONG error) {
  if (error != ERROR_NO_MORE_ITEMS) record(REG_NONE, what, &error, sizeof error);
}

// Writes the key that the path names, and all below it.
static void writeKey(HKEY key) {
  static WCHAR name[NAME_LENGTH];
  static BYTE data[BUFFER];
  record(KEY, path, NULL, 0);
  LONG error = ERROR_SUCCESS;
  for (DWORD i = 0; error == ERROR_SUCCESS; ++i) {
    DWORD length = NAME_LENGTH, type = 0, size = sizeof data;
    error = RegEnumValueW(key, i, name, &length, NULL, &type, data, &size);
    if (error == ERROR_SUCCESS) record(type, name, data, size);
  }
  noteError(L"<values>", error);
  error = ERROR_SUCCESS;
  for (DWORD i = 0; error == ERROR_SUCCESS; ++i) {
    WCHAR child[256];
    DWORD length = sizeof child / sizeof *child;
    HKEY opened;
    error = RegEnumKeyExW(key, i, child, &length, NULL, NULL, NULL, NULL);
    if (error != ERROR_SUCCESS) break;
    const size_t before = append(child);
    const LONG opening = RegOpenKeyExW(key, child, 0, KEY_READ, &opened);
    if (opening == ERROR_SUCCESS) {
      writeKey(opened);
      RegCloseKey(opened);
    } else {
      record(KEY, path, NULL, 0);
      noteError(L"<open>", opening);
    }
    path[before] = 0;
  }
  if (error != ERROR_NO_MORE_ITEMS) record(KEY, path, NULL, 0);  // the keys below it came in between
  noteError(L"<keys>", error);
}

static void writeBranch(HKEY root) {
  HKEY key;
  const WCHAR* below = wcschr(path, L'\\');
  if (RegOpenKeyExW(root, below == NULL ? L"" : below + 1, 0, KEY_READ, &key) != ERROR_SUCCESS) return;
  writeKey(key);
  RegCloseKey(key);
}

// What is not allowed to everybody, and to an administrator only if he says that he wants it.
static void wantBackups(void) {
  TOKEN_PRIVILEGES wanted = {1, {{{0, 0}, SE_PRIVILEGE_ENABLED}}};
  HANDLE token = NULL;
  if (!LookupPrivilegeValueW(NULL, L"SeBackupPrivilege", &wanted.Privileges[0].Luid) ||
      !OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &token) ||
      !AdjustTokenPrivileges(token, FALSE, &wanted, 0, NULL, NULL) || GetLastError() != ERROR_SUCCESS) {
    end("the privilege for backups", (LONG)GetLastError());
  }
  CloseHandle(token);
}

// Has the branch that the path names saved into a file of its own.
static void saveBranch(HKEY root, const WCHAR* file, int number) {
  static WCHAR saved[NAME_LENGTH];
  HKEY key;
  const WCHAR* below = wcschr(path, L'\\');
  if (RegOpenKeyExW(root, below == NULL ? L"" : below + 1, 0, KEY_READ, &key) != ERROR_SUCCESS) return;
  if (wcslen(file) + 16 > NAME_LENGTH) end("a path", ERROR_FILENAME_EXCED_RANGE);
  swprintf(saved, NAME_LENGTH, L"%ls.%d", file, number);
  const LONG error = RegSaveKeyW(key, saved, NULL);
  if (error != ERROR_SUCCESS) end("a branch of the registry", error);
  RegCloseKey(key);
  record(SAVED, path, &number, sizeof number);
}

// Writes the names in the folder that the path names.
static void writeFolder(int deep) {
  WIN32_FIND_DATAW found;
  size_t before = append(L"*");
  const HANDLE search = FindFirstFileW(path, &found);
  path[before] = 0;
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    if (wcscmp(found.cFileName, L".") == 0 || wcscmp(found.cFileName, L"..") == 0) continue;
    before = append(found.cFileName);
    record(FILE_NAME, path, NULL, 0);
    if (deep && (found.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) writeFolder(deep);
    path[before] = 0;
  } while (FindNextFileW(search, &found));
  FindClose(search);
}

int wmain(int count, WCHAR** arguments) {
  target = count > 1 ? _wfopen(arguments[1], L"wb") : NULL;
  if (target == NULL) end("the file", ERROR_OPEN_FAILED);
  setvbuf(target, NULL, _IOFBF, BUFFER);
  for (int i = 2; i < count; ++i) {
    if (wcslen(arguments[i]) >= NAME_LENGTH) end("an argument", ERROR_FILENAME_EXCED_RANGE);
    const int saved = arguments[i][0] == L'=';
    wcscpy(path, arguments[i] + saved);
    const size_t length = wcslen(path);
    if (saved) {
      wantBackups();
      saveBranch(wcsncmp(path, L"HKLM", 4) == 0 ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER, arguments[1], i);
    } else if (wcsncmp(path, L"HKLM", 4) == 0) {
      writeBranch(HKEY_LOCAL_MACHINE);
    } else if (wcsncmp(path, L"HKCU", 4) == 0) {
      writeBranch(HKEY_CURRENT_USER);
    } else if (length > 2 && wcscmp(path + length - 2, L"\\*") == 0) {
      path[length - 2] = 0;
      writeFolder(1);
    } else {
      writeFolder(0);
    }
  }
  const int failed = ferror(target);
  return fclose(target) == 0 && !failed ? 0 : 1;
}
