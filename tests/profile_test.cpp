// Guid.db records: the stored form of a record, the clean-up applied when it
// is loaded, and the walk back through the history ring.
#include "kyguidlib/cguidprofile.h"
#include "tests/testsupport.h"

namespace {

using KyGuid::CGuidProfile;
using KyGuid::GuidRecord;
using KyGuidTest::IniRead;
using KyGuidTest::IniWrite;

GuidRecord SampleRecord() {
  GuidRecord record;
  record.Guid = "0123456789abcdef0123456789abcdef";
  record.DiskKey = "PID:{ST500}SN:{123}";
  record.DiskDetail = "DID:{0}PID:{ST500}VID:{}Rev:{A1}SN:{123}Sys:{1}Move:{0}Bus:{11}Score:{100}";
  record.AdapterKey = "Mac:{001122aabbcc}";
  record.AdapterDetail = "Guid:{ABC}Desc:{eth}Mac:{001122aabbcc}Proto:{6}Type:{110}Score:{100}";
  record.DiskIndex = 3;
  record.AdapterIndex = 9;
  record.CreateIndex = 7;
  record.CreateTime = 1700000000;
  record.Score = 100;
  record.Reason = 2;
  record.Version = 2;
  return record;
}

class ProfileTest : public KyGuidTest::IsolatedTest {};

TEST_F(ProfileTest, ConstructionCreatesTheDataFolder) {
  CGuidProfile profile;
  EXPECT_EQ(GuidDbPath(), profile.Path());
  EXPECT_NE(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(ProfileDir().c_str()));
  EXPECT_EQ(1, CountLog("Create guid profile directory: "));
  CGuidProfile again;
  EXPECT_EQ(1, CountLog("Create guid profile directory: "));
}

TEST_F(ProfileTest, SavedRecordLoadsBackWithoutItsInMemoryIndices) {
  CGuidProfile profile;
  profile.SaveGuidInfo(CGuidProfile::kActiveSection, SampleRecord(), nullptr);
  GuidRecord loaded;
  loaded.DiskIndex = -5;
  loaded.AdapterIndex = -6;
  ASSERT_TRUE(profile.LoadGuidInfo(loaded));
  GuidRecord expected = SampleRecord();
  EXPECT_EQ(expected.Guid, loaded.Guid);
  EXPECT_EQ(expected.DiskKey, loaded.DiskKey);
  EXPECT_EQ(expected.DiskDetail, loaded.DiskDetail);
  EXPECT_EQ(expected.AdapterKey, loaded.AdapterKey);
  EXPECT_EQ(expected.AdapterDetail, loaded.AdapterDetail);
  EXPECT_EQ(-5, loaded.DiskIndex);
  EXPECT_EQ(-6, loaded.AdapterIndex);
  EXPECT_EQ(7, loaded.CreateIndex);
  EXPECT_EQ(1700000000, loaded.CreateTime);
  EXPECT_EQ(100, loaded.Score);
  EXPECT_EQ(2, loaded.Reason);
  EXPECT_EQ(2, loaded.Version);
}

TEST_F(ProfileTest, PrefixGoesInFrontOfEveryKeyName) {
  CGuidProfile profile;
  GuidRecord record = SampleRecord();
  record.CreateIndex = -1;
  profile.SaveGuidInfo("Build2", record, "Old");
  const std::string path = GuidDbPath();
  EXPECT_EQ(record.Guid, IniRead(path, "Build2", "OldGuid"));
  EXPECT_EQ(record.DiskKey, IniRead(path, "Build2", "OldDiskKey"));
  EXPECT_EQ(record.AdapterDetail, IniRead(path, "Build2", "OldAdapterDetail"));
  EXPECT_EQ("-1", IniRead(path, "Build2", "OldCreateIndex"));
  EXPECT_EQ("2", IniRead(path, "Build2", "OldVersion"));
  EXPECT_EQ("", IniRead(path, "Build2", "Guid"));
  EXPECT_EQ("", IniRead(path, "Build2", "OldDiskIndex"));
}

TEST_F(ProfileTest, LoadRemovesBlanksThatOlderBuildsLeftAfterMarkers) {
  CGuidProfile profile;
  const std::string path = GuidDbPath();
  IniWrite(path, "ActiveGuid", "Guid", "0123456789ABCDEF0123456789ABCDEF");
  IniWrite(path, "ActiveGuid", "DiskKey", "PID:{  ST500}SN:{ 123}");
  IniWrite(path, "ActiveGuid", "DiskDetail",
           "DID:{0}PID:{ ST500 }VID:{  ATA}Rev:{ A1}SN:{   123}Sys:{1}");
  IniWrite(path, "ActiveGuid", "AdapterKey", "Mac:{ 00}");
  GuidRecord loaded;
  ASSERT_TRUE(profile.LoadGuidInfo(loaded));
  EXPECT_EQ("0123456789ABCDEF0123456789ABCDEF", loaded.Guid);  // case kept
  EXPECT_EQ("PID:{ST500}SN:{123}", loaded.DiskKey);
  EXPECT_EQ("DID:{0}PID:{ST500 }VID:{ATA}Rev:{ A1}SN:{123}Sys:{1}", loaded.DiskDetail);
  EXPECT_EQ("Mac:{ 00}", loaded.AdapterKey);
  EXPECT_EQ(-1, loaded.CreateIndex);  // missing integers take their defaults
  EXPECT_EQ(0, loaded.Version);
}

TEST_F(ProfileTest, InvalidGuidLeavesTheRecordAndLogsTheReason) {
  CGuidProfile profile;
  GuidRecord loaded = SampleRecord();
  EXPECT_FALSE(profile.LoadGuidInfo(loaded));
  EXPECT_EQ(1, CountLog("LoadGuidInfo failed: 2, timestamp=0, " + GuidDbPath()));

  for (const char* bad : {"0123456789abcdef0123456789abcdef0", "0123456789abcdef0123456789abcdeX",
                          "0123456789abcdef0123456789abcde"}) {
    IniWrite(GuidDbPath(), "ActiveGuid", "Guid", bad);
    EXPECT_FALSE(profile.LoadGuidInfo(loaded)) << bad;
  }
  EXPECT_EQ(SampleRecord().Guid, loaded.Guid);
  EXPECT_EQ(4, CountLog("LoadGuidInfo failed: "));
}

TEST_F(ProfileTest, FailedFirstWriteIsLoggedAndEndsTheSave) {
  KyGuidTest::MakeDirs(GuidDbPath());  // a folder where the file should be
  CGuidProfile profile;
  profile.SaveGuidInfo("ActiveGuid", SampleRecord(), nullptr);
  EXPECT_EQ(1, CountLog("SaveGuidInfo failed: "));
  EXPECT_EQ(1, CountLog(GuidDbPath()));
}

TEST_F(ProfileTest, HistorySectionIsTheRemainderWithTheSignOfTheIndex) {
  EXPECT_EQ("Build0", CGuidProfile::BuildSectionName(0));
  EXPECT_EQ("Build2", CGuidProfile::BuildSectionName(7));
  EXPECT_EQ("Build0", CGuidProfile::BuildSectionName(5));
  EXPECT_EQ("Build-1", CGuidProfile::BuildSectionName(-1));
}

TEST_F(ProfileTest, FindBuildAdapterWalksBackFromTheActiveBuildOnly) {
  CGuidProfile profile;
  const std::string path = GuidDbPath();
  for (int n = 0; n < 5; ++n) {
    std::string section = "Build" + std::to_string(n);
    IniWrite(path, section.c_str(), "AdapterCount", "2");
    IniWrite(path, section.c_str(), "Adapter0", ("Guid:{n" + std::to_string(n) + "}Mac:{aa}").c_str());
    IniWrite(path, section.c_str(), "Adapter1", ("Guid:{m" + std::to_string(n) + "}Mac:{bb}").c_str());
  }
  IniWrite(path, "Build4", "Adapter2", "Guid:{stale}Mac:{cc}");  // beyond the count

  IniWrite(path, "ActiveGuid", "CreateIndex", "1");
  EXPECT_EQ("Guid:{n1}Mac:{aa}", profile.FindBuildAdapter("Mac:{aa}"));
  EXPECT_EQ("Guid:{m0}Mac:{bb}", profile.FindBuildAdapter("{m0}"));
  EXPECT_EQ("", profile.FindBuildAdapter("{n4}"));  // older ring sections are not searched
  EXPECT_EQ("", profile.FindBuildAdapter("stale"));

  IniWrite(path, "ActiveGuid", "CreateIndex", "7");
  EXPECT_EQ("Guid:{n3}Mac:{aa}", profile.FindBuildAdapter("{n3}"));
  EXPECT_EQ("", profile.FindBuildAdapter("MAC:{AA}"));  // case-sensitive

  IniWrite(path, "ActiveGuid", "CreateIndex", "-1");
  EXPECT_EQ("", profile.FindBuildAdapter("Mac"));
}

// A damaged count once kept an update reading Guid.db four billion times.
TEST_F(ProfileTest, FindBuildAdapterEndsAtTheFirstMissingEntryWhateverTheCount) {
  CGuidProfile profile;
  const std::string path = GuidDbPath();
  IniWrite(path, "ActiveGuid", "CreateIndex", "3");
  IniWrite(path, "Build3", "AdapterCount", "4294967295");
  IniWrite(path, "Build3", "Adapter0", "Guid:{n3}Mac:{aa}");
  IniWrite(path, "Build3", "Adapter2", "Guid:{gap}Mac:{bb}");
  IniWrite(path, "Build2", "AdapterCount", "-5");
  IniWrite(path, "Build2", "Adapter0", "Guid:{n2}Mac:{cc}");
  IniWrite(path, "Build1", "AdapterCount", "1");
  IniWrite(path, "Build1", "Adapter0", "Guid:{n1}Mac:{dd}");

  const DWORD start = GetTickCount();
  EXPECT_EQ("Guid:{n3}Mac:{aa}", profile.FindBuildAdapter("Mac:{aa}"));
  EXPECT_EQ("", profile.FindBuildAdapter("{gap}"));
  EXPECT_EQ("Guid:{n2}Mac:{cc}", profile.FindBuildAdapter("Mac:{cc}"));  // -5 reads as huge
  EXPECT_EQ("Guid:{n1}Mac:{dd}", profile.FindBuildAdapter("Mac:{dd}"));
  EXPECT_EQ("", profile.FindBuildAdapter("absent"));
  EXPECT_LT(GetTickCount() - start, 10000u);
}

}  // namespace
