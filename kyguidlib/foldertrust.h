// Whom the data folder and its files may belong to, without any system
// access: the update runs in a privileged process and writes under
// ProgramData, where any standard user can create folders, so a folder or file
// it finds there is trusted only when nobody but the trusted principals owns
// or can change it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace KyGuid {

// The well-known principals, as string SIDs.
constexpr char kSystemSid[] = "S-1-5-18";
constexpr char kAdministratorsSid[] = "S-1-5-32-544";
constexpr char kTrustedInstallerSid[] =
    "S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464";

// One access control entry, as far as the judgement needs it.
struct AccessEntry {
  bool allows = true;        // an allow entry; deny entries only take rights away
  bool inheritOnly = false;  // applies to what is created inside, not to the folder itself
  uint32_t mask = 0;
  std::string sid;
};

// The owner and DACL of a folder or file, and its number of names.
struct SecuritySnapshot {
  std::string owner;
  bool hasDacl = true;  // a NULL DACL gives everyone every right
  std::vector<AccessEntry> dacl;
  uint32_t links = 1;  // hard links: a file's other names may be anywhere
};

// The access rights by which someone could put a file into a folder, take
// one out or change who may: write into it, delete from it, change its
// permissions or owner (also through the generic rights that include these).
constexpr uint32_t kFolderChangeRights = 0x00000002 |  // FILE_ADD_FILE
                                         0x00000004 |  // FILE_ADD_SUBDIRECTORY
                                         0x00000040 |  // FILE_DELETE_CHILD
                                         0x00010000 |  // DELETE
                                         0x00040000 |  // WRITE_DAC
                                         0x00080000 |  // WRITE_OWNER
                                         0x40000000 |  // GENERIC_WRITE
                                         0x10000000;   // GENERIC_ALL

class TrustedPrincipals {
 public:
  // SYSTEM, Administrators, TrustedInstaller and the account the process
  // itself runs as.
  explicit TrustedPrincipals(std::string processAccount);
  bool Contains(const std::string& sid) const;

 private:
  std::vector<std::string> m_sids;
};

// A folder is trusted when a trusted principal owns it and its DACL lets
// nobody else change what it holds.
bool IsTrustedFolder(const SecuritySnapshot& folder, const TrustedPrincipals& trusted);
// A file is trusted as evidence when a trusted principal owns it.
bool IsTrustedFile(const SecuritySnapshot& file, const TrustedPrincipals& trusted);

// The descriptor a folder of the library is given: owner Administrators,
// a protected DACL with full control for SYSTEM and Administrators and read
// and execute for Users, inherited by every folder and file inside.
constexpr char kProtectedFolderSddl[] =
    "O:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)";

}  // namespace KyGuid
