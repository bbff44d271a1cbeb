// Links that a standard user could plant on the path of the privileged
// update, through the shipped DLL: whatever the link, nothing is written
// through it, and the update says why it saved nothing.
#include "tests/dlltestsupport.h"
#include "tests/testsupport.h"

namespace {

using KyGuidTest::DllTest;

// What a standard user owns and would have the privileged update write into.
const std::string kSquat = "C:\\users\\Public\\kyguid-squat";
// Where a link for the vendor folder to system32 would have the data folder.
constexpr char kSystemGreibraske[] = "C:\\windows\\system32\\Greibraske";

std::string Parent(const std::string& path) { return path.substr(0, path.rfind('\\')); }

TEST_F(DllTest, NothingIsWrittenThroughALinkAStandardUserPlanted) {
  const std::string profile = KyGuidTest::MachineProfileDir();
  const std::string vendor = Parent(profile);
  const struct {
    std::string link;  // made a link to `target`
    std::string target;
    int logged;  // 0: Wine does not show a link at a file's name
  } plants[] = {
      {vendor, "C:\\windows\\system32", 1},
      {profile, kSquat, 1},
      {KyGuidTest::UserProfileDir(), kSquat, 1},
      {profile + "\\Guid.db", kSquat + "\\victim.db", 0},
  };
  // Never follow a link a failed run left.
  for (const auto& plant : plants) KyGuidTest::RemoveLink(plant.link);
  for (const auto& plant : plants) {
    SCOPED_TRACE(plant.link);
    KyGuidTest::WipeMachineProfile();
    KyGuidTest::RemoveTree(plant.link);
    KyGuidTest::RemoveTree(kSquat);
    KyGuidTest::MakeDirs(kSquat);
    KyGuidTest::WriteWholeFile(kSquat + "\\victim.db", "the user's own bytes");
    KyGuidTest::MakeDirs(Parent(plant.link));
    ASSERT_TRUE(KyGuidTest::MakeLink(plant.link, plant.target));
    const auto before = KyGuidTest::ReadTree(kSquat);
    Updater()->UpdateNow();
    KyGuidTest::RemoveLink(plant.link);
    EXPECT_EQ(before, KyGuidTest::ReadTree(kSquat));
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(kSystemGreibraske));
    KyGuidTest::RemoveTree(kSystemGreibraske);
    EXPECT_EQ(plant.logged, CountLog("Data folder is a link, save nothing: " + plant.link));
  }

  // A second name of a file elsewhere is refused: through it the update
  // would put that file's bytes into one every user reads.
  KyGuidTest::MakeDirs(profile);
  ASSERT_TRUE(
      CreateHardLinkA((profile + "\\Guid.db").c_str(), (kSquat + "\\victim.db").c_str(), nullptr));
  Updater()->UpdateNow();
  EXPECT_EQ("the user's own bytes", KyGuidTest::ReadWholeFile(kSquat + "\\victim.db"));
  EXPECT_EQ(1, CountLog("File has 2 links, save nothing: " + profile + "\\Guid.db"));
  KyGuidTest::RemoveTree(kSquat);
}

}  // namespace
