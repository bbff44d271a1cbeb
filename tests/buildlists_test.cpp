// The device lists saved beside each build in Guid.db.
#include "kyguidlib/cguidprofile.h"
#include "tests/testsupport.h"

namespace {

using KyGuid::AdapterInfo;
using KyGuid::CGuidProfile;
using KyGuid::DiskInfo;
using KyGuidTest::IniRead;

DiskInfo Disk(int index, const std::string& serial) {
  DiskInfo disk;
  disk.Index = index;
  disk.ProductId = "ST1000DM010-2EP102";
  disk.Revision = "CC43";
  disk.SerialNumber = serial;
  disk.BusType = 11;
  disk.Flags = index == 0 ? DiskInfo::kSystemDisk : 0;
  disk.Score = index == 0 ? 150 : 100;
  return disk;
}

class BuildListsTest : public KyGuidTest::IsolatedTest {};

TEST_F(BuildListsTest, EntriesAreNumberedDetailTextsAndStaleOnesStay) {
  CGuidProfile profile;
  ASSERT_TRUE(profile.SaveDiskList("Build3", {Disk(0, "Z9A1B2C3"), Disk(4, "Q1")}));
  ASSERT_TRUE(profile.SaveDiskList("Build3", {Disk(1, "W2")}));
  const std::string path = GuidDbPath();
  EXPECT_EQ("1", IniRead(path, "Build3", "DiskCount"));
  EXPECT_EQ("DID:{1}PID:{ST1000DM010-2EP102}VID:{}Rev:{CC43}SN:{W2}Sys:{0}Move:{0}Bus:{11}"
            "Score:{100}",
            IniRead(path, "Build3", "Disk0"));
  EXPECT_EQ("DID:{4}PID:{ST1000DM010-2EP102}VID:{}Rev:{CC43}SN:{Q1}Sys:{0}Move:{0}Bus:{11}"
            "Score:{100}",
            IniRead(path, "Build3", "Disk1"));

  AdapterInfo adapter;
  adapter.AdapterName = "4F3A";
  adapter.Description = "Intel";
  adapter.MacAddress = "001122aabbcc";
  adapter.Protocol = 6;
  adapter.Type = 110;
  adapter.Score = 110;
  ASSERT_TRUE(profile.SaveAdapterList("Build3", {adapter}));
  EXPECT_EQ("1", IniRead(path, "Build3", "AdapterCount"));
  EXPECT_EQ("Guid:{4F3A}Desc:{Intel}Mac:{001122aabbcc}Proto:{6}Type:{110}Score:{100}",
            IniRead(path, "Build3", "Adapter0"));
}

TEST_F(BuildListsTest, EmptyListWritesCountZeroOnly) {
  CGuidProfile profile;
  profile.SaveDiskList("Build0", {Disk(0, "A")});
  ASSERT_TRUE(profile.SaveDiskList("Build0", {}));
  EXPECT_EQ("0", IniRead(GuidDbPath(), "Build0", "DiskCount"));
  EXPECT_NE("", IniRead(GuidDbPath(), "Build0", "Disk0"));
}

TEST_F(BuildListsTest, UnwritableFileFailsWithoutEntries) {
  KyGuidTest::MakeDirs(GuidDbPath());
  CGuidProfile profile;
  EXPECT_FALSE(profile.SaveDiskList("Build0", {Disk(0, "A")}));
  EXPECT_FALSE(profile.SaveAdapterList("Build0", {}));
}

}  // namespace
