#include "common/faultgate.h"

#include <cwchar>
#include <string>

#include "common/modules.h"
#include "common/win32raii.h"

namespace KyLog {

bool FaultGate::FilePath(const wchar_t* dir, wchar_t (&path)[MAX_PATH]) {
  constexpr size_t kNameLength = sizeof(kFileName) / sizeof(kFileName[0]) - 1;
  const std::wstring folder = dir && dir[0] ? std::wstring(dir) : KyGuidUtils::ExecutableDir();
  if (folder.empty() || folder.size() + kNameLength + 1 >= MAX_PATH) return false;
  wcscpy_s(path, folder.c_str());
  if (folder.back() != L'\\') wcscat_s(path, L"\\");
  wcscat_s(path, kFileName);
  return true;
}

bool FaultGate::Allow(const wchar_t* dir, int64_t now) {
  wchar_t path[MAX_PATH];
  if (!FilePath(dir, path)) return false;
  // Read sharing only: two processes faulting at once must not both read
  // the old time and both let their fault through.
  KyGuidUtils::UniqueFile file(CreateFileW(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ,
                                           nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
  if (!file) return false;

  int64_t last = 0;
  DWORD read = 0;
  if (!ReadFile(file.get(), &last, sizeof(last), &read, nullptr) || read != sizeof(last)) last = 0;
  // Written as a subtraction so that a garbage stored value cannot overflow.
  if (now - kIntervalSeconds < last) return false;

  if (SetFilePointer(file.get(), 0, nullptr, FILE_BEGIN) == INVALID_SET_FILE_POINTER) return false;
  DWORD written = 0;
  return WriteFile(file.get(), &now, sizeof(now), &written, nullptr) && written == sizeof(now);
}

}  // namespace KyLog
