// A stand-in for what Windows and its programs do to an installation; lab/in_use_cases.py compiles and uses it.
//
//   stand_in.exe FILE COMMAND    has the DLL FILE loaded, as a program that uses a card has, while COMMAND runs; its
//                                status is that of COMMAND, if the DLL is unharmed
//   reg.exe ...                  under this name: refuses every command line with the text of the variable REFUSED in
//                                it, as the registry does to those without the rights; C:\real\reg.exe does the others
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

// Wine takes no file for the program itself that says of itself, at byte 64, that it is one of Wine's own.
static void wipeMark(const char* file) {
  FILE* program = fopen(file, "r+b");
  if (program == NULL) return;
  const char nothing[16] = {0};
  fseek(program, 64, SEEK_SET);
  fwrite(nothing, sizeof nothing, 1, program);
  fclose(program);
}

static int runRealReg(const char* arguments) {
  char command[4096];
  if (snprintf(command, sizeof command, "C:\\real\\reg.exe%s", arguments) >= (int)sizeof command) return 9;
  wipeMark("C:\\real\\reg.exe");
  STARTUPINFOA start = {.cb = sizeof start};
  PROCESS_INFORMATION process;
  DWORD code = 9;
  if (!CreateProcessA(NULL, command, NULL, NULL, TRUE, 0, NULL, NULL, &start, &process)) return 9;
  WaitForSingleObject(process.hProcess, INFINITE);
  GetExitCodeProcess(process.hProcess, &code);
  return (int)code;
}

int main(int count, char** arguments) {
  char name[MAX_PATH];
  GetModuleFileNameA(NULL, name, sizeof name);
  if (_stricmp(strrchr(name, '\\') + 1, "reg.exe") == 0) {
    const char* refused = getenv("REFUSED");
    const char* line = GetCommandLineA();
    if (refused != NULL && strstr(line, refused) != NULL) return 1;
    // Its own name ends with the next quotation mark, or with a blank.
    const char* after = line[0] == '"' ? strchr(line + 1, '"') + 1 : line + strcspn(line, " ");
    return runRealReg(after);
  }
  const void* module = count == 3 ? LoadLibraryExA(arguments[1], NULL, DONT_RESOLVE_DLL_REFERENCES) : NULL;
  if (module == NULL) return 9;
  char header[1024];
  memcpy(header, module, sizeof header);
  const int status = system(arguments[2]);
  return memcmp(header, module, sizeof header) == 0 ? status : 9;
}
