#include "common/modules.h"

#include <cwchar>

namespace KyGuidUtils {

std::wstring ExecutableDir() {
  wchar_t path[MAX_PATH] = {};
  const DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) return std::wstring();
  std::wstring dir(path, length);
  const size_t slash = dir.find_last_of(L'\\');
  if (slash != std::wstring::npos) dir.erase(slash);
  return dir;
}

HMODULE LoadModuleFromFolder(const wchar_t* dir, const wchar_t* fileName) {
  const size_t length = dir ? wcslen(dir) : 0;
  // Room for a backslash and the terminator besides the two parts.
  if (length == 0 || length + wcslen(fileName) + 2 >= MAX_PATH) return nullptr;
  wchar_t path[MAX_PATH];
  wcscpy_s(path, dir);
  if (path[length - 1] != L'\\') wcscat_s(path, L"\\");
  wcscat_s(path, fileName);
  return LoadLibraryW(path);
}

HMODULE LoadSystemModule(const wchar_t* fileName) {
  wchar_t dir[MAX_PATH] = {};
  const UINT length = GetSystemDirectoryW(dir, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) return nullptr;
  return LoadModuleFromFolder(dir, fileName);
}

}  // namespace KyGuidUtils
