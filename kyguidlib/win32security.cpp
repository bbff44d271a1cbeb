// The security seam on the real machine.
#include <windows.h>
#include <aclapi.h>
#include <sddl.h>

#include "common/win32raii.h"
#include "kyguidlib/foldertrust.h"
#include "kyguidlib/platform.h"

namespace KyGuid {
namespace {

std::string SidText(PSID sid) {
  LPSTR text = nullptr;
  if (!sid || !ConvertSidToStringSidA(sid, &text)) return std::string();
  KyGuidUtils::UniqueLocalMemory owner(text);
  return text;
}

// An entry the judgement cannot read counts as one that gives everything to
// someone unknown.
AccessEntry ReadEntry(const ACE_HEADER* header) {
  AccessEntry entry;
  entry.inheritOnly = (header->AceFlags & INHERIT_ONLY_ACE) != 0;
  if (header->AceType == ACCESS_ALLOWED_ACE_TYPE || header->AceType == ACCESS_DENIED_ACE_TYPE) {
    const auto* ace = reinterpret_cast<const ACCESS_ALLOWED_ACE*>(header);
    entry.allows = header->AceType == ACCESS_ALLOWED_ACE_TYPE;
    entry.mask = ace->Mask;
    entry.sid = SidText(const_cast<DWORD*>(&ace->SidStart));
  } else {
    entry.allows = true;
    entry.mask = 0xFFFFFFFF;
  }
  return entry;
}

class Win32SecurityCalls final : public ISecurity {
 public:
  bool IsElevated() override {
    KyGuidUtils::UniqueHandle token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put())) return false;
    TOKEN_ELEVATION elevation{};
    DWORD size = 0;
    return GetTokenInformation(token.get(), TokenElevation, &elevation, sizeof(elevation), &size) &&
           elevation.TokenIsElevated != 0;
  }

  std::string ProcessAccount() override {
    KyGuidUtils::UniqueHandle token;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, token.put())) return std::string();
    alignas(TOKEN_USER) char buffer[256];
    DWORD size = 0;
    if (!GetTokenInformation(token.get(), TokenUser, buffer, sizeof(buffer), &size)) {
      return std::string();
    }
    return SidText(reinterpret_cast<TOKEN_USER*>(buffer)->User.Sid);
  }

  bool Read(const std::wstring& path, bool withDacl, SecuritySnapshot& snapshot) override {
    KyGuidUtils::UniqueFile file(
        CreateFileW(path.c_str(), READ_CONTROL | FILE_READ_ATTRIBUTES,
                    FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, nullptr, OPEN_EXISTING,
                    FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
    PSID owner = nullptr;
    PACL dacl = nullptr;
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    const SECURITY_INFORMATION parts =
        OWNER_SECURITY_INFORMATION | (withDacl ? DACL_SECURITY_INFORMATION : 0);
    FILE_STANDARD_INFO standard{};
    if (!file ||
        GetSecurityInfo(file.get(), SE_FILE_OBJECT, parts, &owner, nullptr,
                        withDacl ? &dacl : nullptr, nullptr, &descriptor) != ERROR_SUCCESS) {
      return false;
    }
    KyGuidUtils::UniqueLocalMemory held(descriptor);
    snapshot = SecuritySnapshot();
    snapshot.owner = SidText(owner);
    snapshot.hasDacl = !withDacl || dacl != nullptr;
    for (DWORD i = 0; dacl && i < dacl->AceCount; ++i) {
      void* ace = nullptr;
      if (GetAce(dacl, i, &ace)) snapshot.dacl.push_back(ReadEntry(static_cast<ACE_HEADER*>(ace)));
    }
    if (GetFileInformationByHandleEx(file.get(), FileStandardInfo, &standard, sizeof(standard))) {
      snapshot.links = standard.NumberOfLinks;
    }
    return true;
  }

  bool Protect(const std::wstring& path, void* descriptor) override {
    PSID owner = nullptr;
    PACL dacl = nullptr;
    BOOL defaulted = FALSE;
    BOOL present = FALSE;
    if (!GetSecurityDescriptorOwner(descriptor, &owner, &defaulted) ||
        !GetSecurityDescriptorDacl(descriptor, &present, &dacl, &defaulted)) {
      return false;
    }
    return SetNamedSecurityInfoW(const_cast<wchar_t*>(path.c_str()), SE_FILE_OBJECT,
                                 OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION |
                                     PROTECTED_DACL_SECURITY_INFORMATION,
                                 owner, nullptr, dacl, nullptr) == ERROR_SUCCESS;
  }

  bool CreateFolder(const std::wstring& path, void* descriptor, uint32_t* error) override {
    SECURITY_ATTRIBUTES attributes{sizeof(attributes), descriptor, FALSE};
    if (CreateDirectoryW(path.c_str(), descriptor ? &attributes : nullptr)) return true;
    if (error) *error = GetLastError();
    return false;
  }
};

}  // namespace

ISecurity& Win32Security() {
  static Win32SecurityCalls calls;
  return calls;
}

}  // namespace KyGuid
