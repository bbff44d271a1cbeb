// The key searches and the decision table without any system access.
#include <gtest/gtest.h>

#include "kyguidlib/guidmatch.h"

namespace {

using KyGuid::DiskInfo;

DiskInfo Disk(int index, const std::string& model, const std::string& serial, uint32_t flags = 0) {
  DiskInfo disk;
  disk.Index = index;
  disk.ProductId = model;
  disk.SerialNumber = serial;
  disk.Flags = flags;
  return disk;
}

TEST(FindDiskByKeyTest, ExactKeyThenSerialAloneButNeverAnAnonymousSpareDisk) {
  const std::vector<DiskInfo> disks = {
      Disk(0, "", ""),                                  // no identity, not system, not best
      Disk(1, "Samsung SSD 870", "X123456"),
      Disk(2, "", "", DiskInfo::kSystemDisk),
  };
  EXPECT_EQ(1, KyGuid::FindDiskByKey(disks, "PID:{Samsung SSD 870}SN:{X123456}"));
  EXPECT_EQ(1, KyGuid::FindDiskByKey(disks, "PID:{Old Name}SN:{X123456}"));  // serial pass
  EXPECT_EQ(2, KyGuid::FindDiskByKey(disks, "PID:{}SN:{}"));  // the system disk may match
  EXPECT_EQ(-1, KyGuid::FindDiskByKey({Disk(0, "", "")}, "PID:{}SN:{}"));
  EXPECT_EQ(-1, KyGuid::FindDiskByKey(disks, ""));
  EXPECT_EQ(-1, KyGuid::FindDiskByKey({}, "PID:{A}SN:{B}"));
  EXPECT_EQ(-1, KyGuid::FindDiskByKey(disks, "PID:{X}SN:{X12345}"));  // no partial serials
}

TEST(DecideMatchTest, WmiIsAskedOnlyWhenItsRowIsReached) {
  DiskInfo goodDisk = Disk(0, "ST1000DM010", "Z9A1B2C3");
  goodDisk.Revision = "CC43";
  DiskInfo badDisk = Disk(0, "QEMU HARDDISK", "QM00001");
  badDisk.Revision = "2.5+";
  int asked = 0;
  auto wmi = [&] {
    ++asked;
    return true;
  };
  KyGuid::MatchFacts facts;
  facts.anyDisk = facts.anyAdapter = facts.recordHasGuid = true;
  facts.matchedDisk = &goodDisk;
  EXPECT_EQ(3, KyGuid::DecideMatch(facts, wmi).row);
  EXPECT_EQ(0, asked);
  facts.matchedDisk = &badDisk;
  KyGuid::MatchDecision decision = KyGuid::DecideMatch(facts, wmi);
  EXPECT_EQ(4, decision.row);
  EXPECT_TRUE(decision.keep);
  EXPECT_EQ(1, asked);
}

TEST(GuidNameFromDetailTest, TakesTheTextBetweenTheMarkerAndTheNextBrace) {
  EXPECT_EQ("4F3A-11", KyGuid::GuidNameFromDetail("Guid:{4F3A-11}Desc:{x}Mac:{00}"));
  EXPECT_EQ("", KyGuid::GuidNameFromDetail("Desc:{x}Mac:{00}"));
  EXPECT_EQ("", KyGuid::GuidNameFromDetail("Guid:{unterminated"));
}

}  // namespace
