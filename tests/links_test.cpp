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

// The names and bytes of everything below `folder`.
std::string Content(const std::string& folder) {
  std::string content;
  WIN32_FIND_DATAA data;
  HANDLE find = FindFirstFileA((folder + "\\*").c_str(), &data);
  for (bool more = find != INVALID_HANDLE_VALUE; more; more = FindNextFileA(find, &data)) {
    const std::string name = data.cFileName;
    const std::string path = folder + "\\" + name;
    if (name == "." || name == "..") continue;
    const bool isFolder = data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY;
    content += name + "\n" + (isFolder ? Content(path) : KyGuidTest::ReadWholeFile(path));
  }
  if (find != INVALID_HANDLE_VALUE) FindClose(find);
  return content;
}

std::string Parent(const std::string& path) { return path.substr(0, path.rfind('\\')); }

TEST_F(DllTest, NothingIsWrittenThroughALinkAStandardUserPlanted) {
  const std::string profile = KyGuidTest::MachineProfileDir();
  const std::string vendor = Parent(profile);
  const struct {
    std::string link;    // made a link to `target`
    std::string target;
    bool logged;         // false: Wine does not show a link at a file's name
  } plants[] = {
      {vendor, "C:\\windows\\system32", true},
      {profile, kSquat, true},
      {KyGuidTest::UserProfileDir(), kSquat, true},
      {profile + "\\Guid.db", kSquat + "\\victim.db", false},
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
    const std::string before = Content(kSquat);
    Updater()->UpdateNow();
    KyGuidTest::RemoveLink(plant.link);
    EXPECT_EQ(before, Content(kSquat));
    EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(kSystemGreibraske));
    KyGuidTest::RemoveTree(kSystemGreibraske);
    if (plant.logged) {
      EXPECT_EQ(1, CountLog("Data folder is a link, save nothing: " + plant.link));
    }
  }

  // A second name of a file elsewhere is refused: through it the update
  // would put that file's bytes into one every user reads.
  KyGuidTest::MakeDirs(profile);
  ASSERT_TRUE(CreateHardLinkA((profile + "\\Guid.db").c_str(), (kSquat + "\\victim.db").c_str(),
                              nullptr));
  Updater()->UpdateNow();
  EXPECT_EQ("the user's own bytes", KyGuidTest::ReadWholeFile(kSquat + "\\victim.db"));
  EXPECT_EQ(1, CountLog("File has 2 links, save nothing: " + profile + "\\Guid.db"));
  KyGuidTest::RemoveTree(kSquat);
}

}  // namespace
