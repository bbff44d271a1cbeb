#include "common/registrylocation.h"

#include <cwchar>
#include <string>

#include "common/win32raii.h"

namespace KyGuidUtils {
namespace {

bool IsWow64() {
  using IsWow64ProcessFn = BOOL(WINAPI*)(HANDLE, PBOOL);
  auto isWow64Process =
      GetProcAs<IsWow64ProcessFn>(GetModuleHandleW(L"kernel32"), "IsWow64Process");
  BOOL wow64 = FALSE;
  return isWow64Process && isWow64Process(GetCurrentProcess(), &wow64) && wow64;
}

}  // namespace

bool ReadRegistryLocation(const wchar_t* location, wchar_t (&out)[MAX_PATH]) {
  static constexpr wchar_t kCurrentUser[] = L"HKEY_CURRENT_USER";
  static constexpr wchar_t kLocalMachine[] = L"HKEY_LOCAL_MACHINE";
  HKEY root;
  const wchar_t* rest;
  if (wcsncmp(location, kCurrentUser, 17) == 0) {
    root = HKEY_CURRENT_USER;
    rest = location + 17;
  } else if (wcsncmp(location, kLocalMachine, 18) == 0) {
    root = HKEY_LOCAL_MACHINE;
    rest = location + 18;
    if (*rest == L'\\') ++rest;
  } else {
    return false;
  }
  const wchar_t* lastSlash = wcsrchr(rest, L'\\');
  if (!lastSlash) return false;
  std::wstring keyPath(rest, lastSlash);
  const wchar_t* valueName = lastSlash + 1;

  REGSAM access = KEY_QUERY_VALUE;
  if (IsWow64()) access |= KEY_WOW64_64KEY;
  UniqueRegKey key;
  if (RegOpenKeyExW(root, keyPath.c_str(), 0, access, key.put()) != ERROR_SUCCESS) return false;
  DWORD bytes = sizeof(out);
  LSTATUS status = RegQueryValueExW(key.get(), valueName, nullptr, nullptr,
                                    reinterpret_cast<BYTE*>(out), &bytes);
  out[MAX_PATH - 1] = L'\0';
  return status == ERROR_SUCCESS;
}

}  // namespace KyGuidUtils
