// A suite developer's first client, built against the installed SDK alone:
// the client header first, so that it shows it needs nothing before it.
#include <windows.h>

#include <cstdio>
#include <cwchar>

#include "kyguidapi.h"

int main() {
  wchar_t path[MAX_PATH] = {};
  GetModuleFileNameW(nullptr, path, MAX_PATH);
  wcscpy(wcsrchr(path, L'\\') + 1, L"bin\\KyGuid64.dll");
  HMODULE module = LoadLibraryW(path);
  auto getReader = reinterpret_cast<GetGuidReaderFn>(
      reinterpret_cast<void*>(GetProcAddress(module, "GetGuidReader")));
  auto getUpdater = reinterpret_cast<GetGuidUpdaterFn>(
      reinterpret_cast<void*>(GetProcAddress(module, "GetGuidUpdater")));
  if (!getReader || !getUpdater) return 3;
  getUpdater()->UpdateNow();
  char guid[33] = {};
  if (!getReader()->GetGuidStringA(guid, sizeof(guid))) return 1;
  printf("%s\n", guid);
  return 0;
}
