#include "kyguidlib/foldertrust.h"

#include <algorithm>

namespace KyGuid {

TrustedPrincipals::TrustedPrincipals(std::string processAccount)
    : m_sids{kSystemSid, kAdministratorsSid, kTrustedInstallerSid, std::move(processAccount)} {}

bool TrustedPrincipals::Contains(const std::string& sid) const {
  return !sid.empty() && std::find(m_sids.begin(), m_sids.end(), sid) != m_sids.end();
}

bool IsTrustedFolder(const SecuritySnapshot& folder, const TrustedPrincipals& trusted) {
  if (!trusted.Contains(folder.owner) || !folder.hasDacl) return false;
  return std::none_of(folder.dacl.begin(), folder.dacl.end(), [&](const AccessEntry& entry) {
    return entry.allows && !entry.inheritOnly && (entry.mask & kFolderChangeRights) != 0 &&
           !trusted.Contains(entry.sid);
  });
}

bool IsTrustedFile(const SecuritySnapshot& file, const TrustedPrincipals& trusted) {
  return trusted.Contains(file.owner);
}

}  // namespace KyGuid
