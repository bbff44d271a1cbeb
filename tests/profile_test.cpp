// Guid.db beyond what the golden first build shows: what a load accepts and
// cleans, and the walk back through the history ring.
#include "kyguidlib/cguidprofile.h"
#include "tests/testsupport.h"

namespace {

using KyGuid::CGuidProfile;
using KyGuid::GuidRecord;
using KyGuidTest::IniWrite;

class ProfileTest : public KyGuidTest::IsolatedTest {};

// Only 32 hexadecimal digits make a record, left untouched otherwise. Older
// builds left blanks after some markers; a missing CreateIndex means none,
// and the in-memory indices are never read.
TEST_F(ProfileTest, LoadTakesOnlyAGuidAndCleansWhatOlderBuildsLeft) {
  CGuidProfile profile;
  const std::string path = GuidDbPath();
  GuidRecord r;
  r.DiskIndex = 5;
  EXPECT_FALSE(profile.LoadGuidInfo(r));
  EXPECT_EQ(1, CountLog("LoadGuidInfo failed: 2, timestamp=0, " + path));
  IniWrite(path, "ActiveGuid", "DiskKey", "PID:{  ST500}SN:{ 123}");
  IniWrite(path, "ActiveGuid", "DiskDetail", "PID:{ ST500 }VID:{  ATA}Rev:{ A1}SN:{ 1}");
  IniWrite(path, "ActiveGuid", "AdapterKey", "Mac:{ 00}");
  const char* const numbers[][2] = {
      {"CreateTime", "1700000000"}, {"Score", "77"}, {"Reason", "2"}, {"Version", "1"}};
  for (const auto& number : numbers) IniWrite(path, "ActiveGuid", number[0], number[1]);
  for (const char* bad : {"0123456789abcdef0123456789abcdef0", "0123456789abcdef0123456789abcdeX",
                          "0123456789abcdef0123456789abcde"}) {
    IniWrite(path, "ActiveGuid", "Guid", bad);
    EXPECT_FALSE(profile.LoadGuidInfo(r)) << bad;
  }
  EXPECT_EQ("", r.Guid + r.DiskKey);
  IniWrite(path, "ActiveGuid", "Guid", "0123456789ABCDEF0123456789abcdef");
  ASSERT_TRUE(profile.LoadGuidInfo(r));
  EXPECT_EQ(
      "0123456789ABCDEF0123456789abcdef|PID:{ST500}SN:{123}|PID:{ST500 }VID:{ATA}Rev:{ A1}"
      "SN:{1}|Mac:{ 00}",
      r.Guid + "|" + r.DiskKey + "|" + r.DiskDetail + "|" + r.AdapterKey);
  EXPECT_EQ(
      (std::vector<int>{5, -1, 1700000000, 77, 2, 1}),
      (std::vector<int>{r.DiskIndex, r.CreateIndex, r.CreateTime, r.Score, r.Reason, r.Version}));
}

// Five sections back from the active one, newest first; none below Build0.
TEST_F(ProfileTest, FindBuildAdapterWalksBackFromTheActiveBuildOnly) {
  CGuidProfile profile;
  const std::string path = GuidDbPath();
  for (const std::string n : {"0", "1", "2", "3", "4"}) {
    IniWrite(path, ("Build" + n).c_str(), "AdapterCount", "1");
    IniWrite(path, ("Build" + n).c_str(), "Adapter0", ("Guid:{n" + n + "}Mac:{aa}").c_str());
  }
  IniWrite(path, "ActiveGuid", "CreateIndex", "7");
  EXPECT_EQ("Guid:{n2}Mac:{aa}", profile.FindBuildAdapter("Mac:{aa}"));
  EXPECT_EQ("Guid:{n3}Mac:{aa}", profile.FindBuildAdapter("{n3}"));  // the fifth one back
  IniWrite(path, "ActiveGuid", "CreateIndex", "1");
  EXPECT_EQ("", profile.FindBuildAdapter("{n4}"));
}

// Every entry below the count is read, past a gap; a damaged count, which
// once kept an update reading Guid.db four billion times, costs nothing.
TEST_F(ProfileTest, FindBuildAdapterReadsEveryEntryBelowTheCountWhateverItSays) {
  CGuidProfile profile;
  const std::string path = GuidDbPath();
  IniWrite(path, "ActiveGuid", "CreateIndex", "3");
  IniWrite(path, "Build3", "AdapterCount", "4294967295");
  IniWrite(path, "Build3", "Adapter0", "Guid:{n3}Mac:{aa}");
  IniWrite(path, "Build3", "adapter2", "Guid:{gap}Mac:{bb}");
  IniWrite(path, "Build3", "Adapter04", "Guid:{zero}Mac:{ff}");  // not "Adapter4"
  IniWrite(path, "Build2", "AdapterCount", "-5");
  IniWrite(path, "Build2", "Adapter1", "Guid:{n2}Mac:{cc}");
  IniWrite(path, "Build1", "AdapterCount", "1");
  IniWrite(path, "Build1", "Adapter1", "Guid:{stale}Mac:{ee}");  // beyond the count

  const DWORD start = GetTickCount();
  EXPECT_EQ("Guid:{n3}Mac:{aa}", profile.FindBuildAdapter("Mac:{aa}"));
  EXPECT_EQ("Guid:{gap}Mac:{bb}", profile.FindBuildAdapter("{gap}"));
  EXPECT_EQ("", profile.FindBuildAdapter("{zero}"));
  EXPECT_EQ("Guid:{n2}Mac:{cc}", profile.FindBuildAdapter("Mac:{cc}"));  // -5 reads as huge
  EXPECT_EQ("", profile.FindBuildAdapter("{stale}"));
  EXPECT_EQ("Guid:{n3}Mac:{aa}", profile.FindBuildAdapter(""));
  EXPECT_LT(GetTickCount() - start, 10000u);
}

}  // namespace
