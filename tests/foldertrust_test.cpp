// Whom a data folder or file may belong to: one table of the owners and DACLs
// a machine really gives them. Also built with sanitizers.
#include <gtest/gtest.h>

#include "kyguidlib/foldertrust.h"

namespace {

using namespace KyGuid;

constexpr char kUs[] = "S-1-5-21-1-2-3-1000";    // the account the update runs as
constexpr char kUser[] = "S-1-5-21-1-2-3-1001";  // a standard user of the machine
constexpr char kUsers[] = "S-1-5-32-545";
constexpr char kEveryone[] = "S-1-1-0";
constexpr char kCreatorOwner[] = "S-1-3-0";
constexpr uint32_t kFullControl = 0x1F01FF;
constexpr uint32_t kReadExecute = 0x1200A9;
constexpr uint32_t kAddFileAndFolder = 0x000006;

AccessEntry Allow(const char* sid, uint32_t mask, bool inheritOnly = false) {
  return AccessEntry{true, inheritOnly, mask, sid};
}

TEST(FolderTrustTest, OnlyTrustedPrincipalsMayOwnOrChangeAFolder) {
  const TrustedPrincipals trusted(kUs);
  const AccessEntry system = Allow(kSystemSid, kFullControl);
  const AccessEntry admins = Allow(kAdministratorsSid, kFullControl);
  const struct {
    const char* name;
    SecuritySnapshot folder;
    bool trustedFolder;
    bool trustedFile;
  } cases[] = {
      {"the protected folder the library makes",
       {kAdministratorsSid, true, {system, admins, Allow(kUsers, kReadExecute)}}, true, true},
      {"ProgramData's inherited default: Users may add files and folders",
       {kAdministratorsSid, true,
        {system, admins, Allow(kCreatorOwner, 0x10000000, true), Allow(kUsers, kReadExecute),
         Allow(kUsers, kAddFileAndFolder)}},
       false, true},
      {"squatted: a standard user made it first",
       {kUser, true, {system, admins, Allow(kUser, kFullControl)}}, false, false},
      {"ours, but Everyone may delete from it",
       {kUs, true, {Allow(kUs, kFullControl), Allow(kEveryone, 0x40)}}, false, true},
      {"ours, and Users may only change its permissions",
       {kUs, true, {Allow(kUs, kFullControl), Allow(kUsers, 0x40000)}}, false, true},
      {"a NULL DACL lets everyone do everything", {kUs, false, {}}, false, true},
      {"Wine's: the account, SYSTEM, Everyone read and execute",
       {kUs, true, {system, Allow(kUs, kFullControl), Allow(kEveryone, kReadExecute)}}, true, true},
      {"a standard user denied, and full control inherited only by what is made inside",
       {"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464", true,
        {AccessEntry{false, false, kFullControl, kUser}, Allow(kEveryone, kFullControl, true)}},
       true, true},
      {"no owner could be read", {"", true, {system}}, false, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.trustedFolder, IsTrustedFolder(c.folder, trusted)) << c.name;
    EXPECT_EQ(c.trustedFile, IsTrustedFile(c.folder, trusted)) << c.name;
  }
}

}  // namespace
