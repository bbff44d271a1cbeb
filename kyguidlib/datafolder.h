// The folders an update writes into, guarded against the standard users of
// the machine. The update runs in a privileged process and writes under
// ProgramData, where any standard user may create folders and links: a link
// in the path would send its writes anywhere, and a folder a standard user
// owns would let that user plant the files every component of the suite
// trusts. So, before an update's first write:
//
// - no level of the data folder below the common application-data folder
//   ("Corvane", "Corvane\Greibraske", "Corvane\Desktop"), nor of its
//   per-user counterpart, may be a link (a junction, symbolic link or mount
//   point);
// - a level below ProgramData must be owned by a trusted principal and let
//   nobody else change what it holds; an elevated process takes such a folder
//   over (owner Administrators, the protected DACL), any other writes nothing;
// - no file of the store may be a link or have a second hard link;
// - a file whose owner is not trusted is set aside as "<name>.untrusted" and
//   the update carries on as if it were missing.
//
// Every level checked is held open until the update ends, so that it cannot
// be swapped for a link meanwhile. A level that is missing is created by
// EnsureDataFolder, with the protected DACL when the process is elevated.
#pragma once

#include <string>
#include <vector>

#include "common/win32raii.h"
#include "kyguidlib/foldertrust.h"

namespace KyGuid {

// One update's guard. When a check fails, every write of the thread is
// refused until the guard goes: the update saves nothing, and says so.
class CDataFolderGuard {
 public:
  CDataFolderGuard();
  ~CDataFolderGuard();
  CDataFolderGuard(const CDataFolderGuard&) = delete;
  CDataFolderGuard& operator=(const CDataFolderGuard&) = delete;

  bool Trusted() const { return m_trusted; }
  // The levels checked, or made by this update, are held open till it ends.
  void Hold(const std::wstring& path);
  bool Holds(const std::wstring& path) const;
  const TrustedPrincipals& Principals() const { return m_principals; }

 private:
  bool CheckLevels(int csidl, bool takeOver);
  bool CheckFiles();

  TrustedPrincipals m_principals;
  std::vector<KyGuidUtils::UniqueFile> m_held;
  std::vector<std::wstring> m_heldPaths;
  bool m_trusted = true;
};

// Creates the data folder's missing levels one by one; a level that turns
// up meanwhile is checked as the guard checks it. False, with every further
// write of the thread refused, when one cannot be trusted.
bool EnsureDataFolder();

}  // namespace KyGuid
