#include "kyguidlib/datafolder.h"

#include <windows.h>
#include <sddl.h>
#include <shlobj.h>

#include <iterator>

#include "common/ansipath.h"
#include "common/filestore.h"
#include "common/kylog.h"
#include "common/threadslot.h"
#include "kyguidlib/foldertrust.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/platform.h"

namespace KyGuid {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\datafolder";
constexpr wchar_t kGuardFunction[] = L"KyGuid::CDataFolderGuard::CDataFolderGuard";
constexpr wchar_t kEnsureFunction[] = L"KyGuid::EnsureDataFolder";

// The levels below ProgramData, outermost first; the data folder's own levels
// are the first two.
constexpr const wchar_t* kCommonLevels[] = {L"\\Corvane", L"\\Corvane\\Greibraske",
                                            L"\\Corvane\\Desktop"};
constexpr size_t kDataFolderLevels = 2;
constexpr const wchar_t* kUserLevels[] = {L"\\Corvane", L"\\Corvane\\Greibraske"};
constexpr wchar_t kSetAsideSuffix[] = L".untrusted";

// The guard of the update running on each thread.
KyGuidUtils::ThreadSlot<CDataFolderGuard*> g_currentGuard;

ISecurity& Security() { return *CurrentPlatform().security; }

std::string Ansi(const std::wstring& path) { return KyGuidUtils::WideToAnsi(path); }

bool Exists(const std::wstring& path) {
  return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// The descriptor a folder the library makes or takes over is given, when
// the process may give it: only an elevated process may make Administrators
// the owner.
class ProtectedDescriptor {
 public:
  explicit ProtectedDescriptor(bool wanted) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (wanted && ConvertStringSecurityDescriptorToSecurityDescriptorA(
                      kProtectedFolderSddl, SDDL_REVISION_1, &descriptor, nullptr)) {
      m_descriptor.reset(descriptor);
    }
  }
  void* get() const { return m_descriptor.get(); }

 private:
  KyGuidUtils::UniqueLocalMemory m_descriptor;
};

// Whether `path` is a link itself: a junction, a symbolic link or a mount
// point, at a folder's or at a file's name (the attributes are the link's own).
bool IsLink(const std::wstring& path) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_REPARSE_POINT);
}

// A level held open without delete sharing can be neither renamed nor
// deleted, so nobody can put a link in its place while the update runs.
KyGuidUtils::UniqueFile HoldOpen(const std::wstring& path) {
  return KyGuidUtils::UniqueFile(CreateFileW(
      path.c_str(), FILE_READ_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
      OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr));
}

// An existing level: never a link; below ProgramData (`takeOver`) also owned
// by a trusted principal with nobody else able to change what it holds, or
// taken over when the process is elevated.
bool CheckLevel(const std::wstring& path, bool takeOver, const TrustedPrincipals& trusted,
                const wchar_t* function) {
  if (IsLink(path)) {
    KyLog::Write(KyLog::kError, KYLOG_SITE(function), "Data folder is a link, save nothing: %s",
                 Ansi(path).c_str());
    return false;
  }
  if (!takeOver) return true;
  SecuritySnapshot snapshot;
  if (Security().Read(path, true, snapshot) && IsTrustedFolder(snapshot, trusted)) return true;
  if (Security().IsElevated()) {
    KyLog::Write(KyLog::kWarn, KYLOG_SITE(function), "Data folder not trusted, take it over: %s",
                 Ansi(path).c_str());
    const ProtectedDescriptor descriptor(true);
    if (descriptor.get() && Security().Protect(path, descriptor.get())) return true;
  }
  KyLog::Write(KyLog::kError, KYLOG_SITE(function), "Data folder not trusted, save nothing: %s",
               Ansi(path).c_str());
  return false;
}

// A file of the store: never a link or one of several hard links; set aside
// when a principal that is not trusted owns it.
bool CheckFile(const std::wstring& path, const TrustedPrincipals& trusted) {
  const DWORD attributes = GetFileAttributesW(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY)) return true;
  if (IsLink(path)) {
    KyLog::Write(KyLog::kError, KYLOG_SITE(kGuardFunction), "File is a link, save nothing: %s",
                 Ansi(path).c_str());
    return false;
  }
  SecuritySnapshot snapshot;
  const bool read = Security().Read(path, false, snapshot);
  if (snapshot.links > 1) {
    KyLog::Write(KyLog::kError, KYLOG_SITE(kGuardFunction), "File has %u links, save nothing: %s",
                 static_cast<unsigned>(snapshot.links), Ansi(path).c_str());
    return false;
  }
  if (read && IsTrustedFile(snapshot, trusted)) return true;
  KyLog::Write(KyLog::kWarn, KYLOG_SITE(kGuardFunction), "File not trusted, set it aside: %s",
               Ansi(path).c_str());
  if (MoveFileExW(path.c_str(), (path + kSetAsideSuffix).c_str(), MOVEFILE_REPLACE_EXISTING)) {
    return true;
  }
  KyLog::Write(KyLog::kError, KYLOG_SITE(kGuardFunction), "File not trusted, save nothing: %s",
               Ansi(path).c_str());
  return false;
}

}  // namespace

CDataFolderGuard::CDataFolderGuard() : m_principals(Security().ProcessAccount()) {
  m_trusted =
      CheckLevels(CSIDL_COMMON_APPDATA, true) && CheckLevels(CSIDL_APPDATA, false) && CheckFiles();
  KyGuidUtils::RefuseStoreWrites(m_trusted ? 0 : ERROR_ACCESS_DENIED);
  g_currentGuard.Set(this);
}

CDataFolderGuard::~CDataFolderGuard() {
  g_currentGuard.Set(nullptr);
  KyGuidUtils::RefuseStoreWrites(0);
}

bool CDataFolderGuard::CheckLevels(int csidl, bool takeOver) {
  std::wstring root;
  if (!CurrentPlatform().folders->GetFolder(csidl, root)) return true;  // nothing goes there
  const wchar_t* const* levels = takeOver ? kCommonLevels : kUserLevels;
  const size_t count = takeOver ? std::size(kCommonLevels) : std::size(kUserLevels);
  for (size_t i = 0; i < count; ++i) {
    const std::wstring path = root + levels[i];
    if (!Exists(path)) continue;  // made by EnsureDataFolder when needed
    Hold(path);
    if (!CheckLevel(path, takeOver, m_principals, kGuardFunction)) return false;
  }
  return true;
}

bool CDataFolderGuard::CheckFiles() {
  std::vector<std::wstring> files;
  for (const std::wstring& file : GetStoreFiles()) {
    files.push_back(file);
    files.push_back(KyGuidUtils::WorkingCopyPath(file));
  }
  files.push_back(GetCommitListPath());
  for (const std::wstring& file : files) {
    if (!CheckFile(file, m_principals)) return false;
  }
  return true;
}

void CDataFolderGuard::Hold(const std::wstring& path) {
  m_held.push_back(HoldOpen(path));
  m_heldPaths.push_back(path);
}

bool CDataFolderGuard::Holds(const std::wstring& path) const {
  for (const std::wstring& held : m_heldPaths) {
    if (_wcsicmp(held.c_str(), path.c_str()) == 0) return true;
  }
  return false;
}

bool EnsureDataFolder() {
  if (KyGuidUtils::StoreWriteRefusal()) return false;  // not even a folder
  std::wstring root;
  if (!CurrentPlatform().folders->GetFolder(CSIDL_COMMON_APPDATA, root)) return false;
  CDataFolderGuard* guard = g_currentGuard.Get();
  for (size_t i = 0; i < kDataFolderLevels; ++i) {
    const std::wstring path = root + kCommonLevels[i];
    if (Exists(path) && (!guard || guard->Holds(path))) continue;
    uint32_t error = 0;
    const ProtectedDescriptor descriptor(Security().IsElevated());
    // A level made meanwhile by someone else is checked as the guard does.
    const bool ready = Security().CreateFolder(path, descriptor.get(), &error) ||
                       (error == ERROR_ALREADY_EXISTS &&
                        (!guard || CheckLevel(path, true, guard->Principals(), kEnsureFunction)));
    if (ready) {
      if (guard) guard->Hold(path);
      continue;
    }
    KyGuidUtils::RefuseStoreWrites(ERROR_ACCESS_DENIED);
    return false;
  }
  return true;
}

}  // namespace KyGuid
