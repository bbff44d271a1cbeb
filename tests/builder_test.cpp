// The builder on simulated machines: what a run keeps, adopts or builds, and
// exactly what it leaves in Guid.db.
#include "common/md5.h"
#include "kyguidlib/cguidbuilder.h"
#include "kyguidlib/cguidprofile.h"
#include "kyguidlib/cguidupdater.h"
#include "tests/testsupport.h"

namespace {

using KyGuid::CGuidBuilder;
using KyGuid::CGuidProfile;
using KyGuid::GuidRecord;
using KyGuidSim::SimulatedMachine;
using KyGuidTest::IniRead;
using KyGuidTest::IniWrite;

const std::vector<uint8_t> kMacA = {0x00, 0x11, 0x22, 0xAA, 0xBB, 0xCC};
const std::vector<uint8_t> kMacB = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
constexpr char kDiskKeyA[] = "PID:{ST1000DM010}SN:{Z9A1B2C3}";
constexpr char kAdapterKeyA[] = "Mac:{001122aabbcc}";

class BuilderTest : public KyGuidTest::IsolatedTest {
 protected:
  void AddDisk(int number, const std::string& product, const std::string& serial) {
    m_machine.AddDrive(number).descriptor =
        SimulatedMachine::Descriptor("", product, "CC43", serial, 11, false);
  }
  void AddAdapter(const std::string& guid, const std::vector<uint8_t>& mac,
                  const std::string& pnpId = "PCI\\VEN_8086") {
    m_machine.AddAdapter("{" + guid + "}", "Ethernet " + guid, mac).pnpId = pnpId;
  }
  void MachineA() {
    AddDisk(0, "ST1000DM010", "Z9A1B2C3");
    AddAdapter("NIC-A", kMacA);
  }
  GuidRecord Stored(const std::string& guid, const std::string& diskKey,
                    const std::string& adapterKey, int createIndex, int version) {
    GuidRecord record;
    record.Guid = guid;
    record.DiskKey = diskKey;
    record.AdapterKey = adapterKey;
    record.CreateIndex = createIndex;
    record.CreateTime = 1600000000;
    record.Score = 77;
    record.Version = version;
    CGuidProfile().SaveGuidInfo(CGuidProfile::kActiveSection, record, nullptr);
    return record;
  }
  int Run(bool save = true) {
    m_builder = std::make_unique<CGuidBuilder>(save);
    return m_builder->UpdateNewGuid();
  }
  std::string Active(const char* key) { return IniRead(GuidDbPath(), "ActiveGuid", key); }

  std::unique_ptr<CGuidBuilder> m_builder = std::make_unique<CGuidBuilder>(true);
};

TEST_F(BuilderTest, FirstRunBuildsFromTheBestDiskAndAdapterAndSavesBuild0) {
  MachineA();
  AddAdapter("NIC-USB", kMacB, "USB\\VID_1");
  ASSERT_EQ(KyGuid::kResultFirstBuilt, Run());

  const std::string guid = KyGuidUtils::Md5Hex(std::string(kDiskKeyA) + kAdapterKeyA);
  EXPECT_EQ(guid, Active("Guid"));
  EXPECT_EQ(kDiskKeyA, Active("DiskKey"));
  EXPECT_EQ("DID:{0}PID:{ST1000DM010}VID:{}Rev:{CC43}SN:{Z9A1B2C3}Sys:{0}Move:{0}Bus:{11}Score:{100}",
            Active("DiskDetail"));
  EXPECT_EQ(kAdapterKeyA, Active("AdapterKey"));
  EXPECT_EQ("0", Active("CreateIndex"));
  EXPECT_EQ("100", Active("Score"));  // (100 + min(110, 100)) / 2
  EXPECT_EQ("0", Active("Reason"));
  EXPECT_EQ("2", Active("Version"));
  EXPECT_EQ(std::to_string(KyGuidTest::kTestTime), Active("CreateTime"));

  const std::string path = GuidDbPath();
  EXPECT_EQ(guid, IniRead(path, "Build0", "Guid"));
  EXPECT_EQ("", IniRead(path, "Build0", "OldGuid"));
  EXPECT_EQ("1", IniRead(path, "Build0", "DiskCount"));
  EXPECT_EQ("2", IniRead(path, "Build0", "AdapterCount"));
  EXPECT_EQ(1, CountLog("new guid: guid[" + guid + "], diskkey[" + kDiskKeyA + "], adapterkey[" +
                        kAdapterKeyA + "], Index[0], Score[100], Reason[0]"));
  EXPECT_TRUE(m_builder->Disks()[0].Has(KyGuid::DiskInfo::kGuidDisk));
  EXPECT_TRUE(m_builder->Adapters()[0].Has(KyGuid::AdapterInfo::kGuidAdapter));
  EXPECT_FALSE(m_builder->Adapters()[1].Has(KyGuid::AdapterInfo::kGuidAdapter));
}

TEST_F(BuilderTest, OneDiskAndNoAdapterHashesTheDiskKeyAloneAtHalfTheScore) {
  AddDisk(0, "ST1000DM010", "Z9A1B2C3");
  ASSERT_EQ(KyGuid::kResultFirstBuilt, Run());
  EXPECT_EQ(KyGuidUtils::Md5Hex(kDiskKeyA), Active("Guid"));
  EXPECT_EQ("", Active("AdapterKey"));
  EXPECT_EQ("50", Active("Score"));
}

TEST_F(BuilderTest, SecondRunOnTheSameMachineKeepsTheGuidAndWritesNothing) {
  MachineA();
  ASSERT_EQ(KyGuid::kResultFirstBuilt, Run());
  const std::string before = KyGuidTest::ReadWholeFile(GuidDbPath());
  ASSERT_EQ(KyGuid::kResultKept, Run());
  EXPECT_EQ(before, KyGuidTest::ReadWholeFile(GuidDbPath()));
  EXPECT_EQ(1, CountLog("guid match, use it\xA3\xBA " + Active("Guid")));
  EXPECT_EQ(1, m_builder->LastMatch().row);
}

TEST_F(BuilderTest, ReplacedGuidOfTheSameVersionIsKeptAsOldInTheNextRingSection) {
  MachineA();
  Stored("aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", "PID:{Gone}SN:{G1}", "Mac:{999999999999}", 7, 2);
  ASSERT_EQ(KyGuid::kResultReplacedSameVersion, Run());
  EXPECT_EQ("8", Active("CreateIndex"));
  EXPECT_EQ("3", Active("Reason"));  // both halves lost
  const std::string path = GuidDbPath();
  EXPECT_EQ("aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", IniRead(path, "Build3", "OldGuid"));
  EXPECT_EQ("7", IniRead(path, "Build3", "OldCreateIndex"));
  EXPECT_EQ("77", IniRead(path, "Build3", "OldScore"));
  EXPECT_EQ(Active("Guid"), IniRead(path, "Build3", "Guid"));
  EXPECT_EQ(1, CountLog("nothing match, build new guid"));
}

TEST_F(BuilderTest, ReplacingAnotherVersionIsResult4AndReasonNamesTheLostHalf) {
  AddDisk(0, "QEMU HARDDISK", "QM1");  // matched, but not good enough alone
  AddAdapter("NIC-A", kMacA);
  Stored("bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb", "PID:{QEMU HARDDISK}SN:{QM1}", "Mac:{999999999999}", 2, 1);
  const int result = Run();
  ASSERT_EQ(KyGuid::kResultReplacedOtherVersion, result);
  EXPECT_EQ(5, m_builder->LastMatch().row);
  EXPECT_EQ("2", Active("Reason"));  // the disk is still here, the adapter is not
  EXPECT_EQ("3", Active("CreateIndex"));

  KyGuid::CGuidUpdater::LogUpdateResult({L"", 0, L""}, result, *m_builder);
  EXPECT_EQ(1, CountLog("version change[1==>2] guid change: bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb ==> " +
                        Active("Guid")));
}

// Only the largest index restarts the ring (instead of overflowing into
// "Build-3"); any other stored index, negative ones included, counts on.
TEST_F(BuilderTest, BuildAfterTheLargestCreateIndexRestartsTheRing) {
  MachineA();
  Stored("aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", "PID:{Gone}SN:{G1}", "Mac:{999999999999}", 2147483647,
         2);
  ASSERT_EQ(KyGuid::kResultReplacedSameVersion, Run());
  EXPECT_EQ("0", Active("CreateIndex"));
  EXPECT_EQ("aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", IniRead(GuidDbPath(), "Build0", "OldGuid"));
  EXPECT_EQ("", IniRead(GuidDbPath(), "Build-3", "Guid"));

  Stored("bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb", "PID:{Gone}SN:{G1}", "Mac:{999999999999}", -5, 2);
  ASSERT_EQ(KyGuid::kResultReplacedSameVersion, Run());
  EXPECT_EQ("-4", Active("CreateIndex"));
  EXPECT_EQ("bbbbbbbbbbbbbbbbbbbbbbbbbbbbbbbb", IniRead(GuidDbPath(), "Build-4", "OldGuid"));
}

TEST_F(BuilderTest, SixthBuildOverwritesBuild0) {
  MachineA();
  Stored("cccccccccccccccccccccccccccccccc", "PID:{Gone}SN:{G1}", "Mac:{999999999999}", 4, 2);
  IniWrite(GuidDbPath(), "Build0", "Guid", "the first build");
  ASSERT_EQ(KyGuid::kResultReplacedSameVersion, Run());
  EXPECT_EQ("5", Active("CreateIndex"));
  EXPECT_EQ(Active("Guid"), IniRead(GuidDbPath(), "Build0", "Guid"));
  EXPECT_EQ("cccccccccccccccccccccccccccccccc", IniRead(GuidDbPath(), "Build0", "OldGuid"));
}

TEST_F(BuilderTest, NoHardwareGivesTheSpecialGuidOrKeepsTheOneInForce) {
  ASSERT_EQ(KyGuid::kResultBuildFailed, Run());
  EXPECT_EQ(KyGuid::kSpecialGuid, m_builder->NewInfo().Guid);
  EXPECT_EQ(1, CountLog("can't find any disk and adapter, return FALSE"));
  EXPECT_EQ(1, CountLog("nothing match, local has no disk, build special guid"));
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(GuidDbPath().c_str()));

  Stored("dddddddddddddddddddddddddddddddd", kDiskKeyA, kAdapterKeyA, 3, 2);
  ASSERT_EQ(KyGuid::kResultKept, Run());
  EXPECT_EQ("dddddddddddddddddddddddddddddddd", m_builder->NewInfo().Guid);
  EXPECT_EQ(1, CountLog("nothing match, but local has no disk, no change"));
}

TEST_F(BuilderTest, SavingOffComputesTheSameGuidButWritesNothing) {
  MachineA();
  ASSERT_EQ(KyGuid::kResultFirstBuilt, Run(false));
  EXPECT_EQ(KyGuidUtils::Md5Hex(std::string(kDiskKeyA) + kAdapterKeyA), m_builder->NewInfo().Guid);
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(GuidDbPath().c_str()));
}

class AncientTest : public BuilderTest {
 protected:
  void WriteGlobalMgr(const std::string& folder, const std::string& config1,
                      const std::string& config2, const std::string& config3) {
    KyGuidTest::MakeDirs(folder);
    const std::string path = folder + "\\GlobalMgr.db";
    IniWrite(path, "Profile", "config1", config1.c_str());
    IniWrite(path, "Profile", "config2", config2.c_str());
    IniWrite(path, "Profile", "config3", config3.c_str());
  }
  std::string UserProfileDir() const {
    return m_folders->UserAppData() + "\\Corvane\\Greibraske";
  }
  const std::string kAncient = "0123456789abcdef0123456789abcdef";
};

TEST_F(AncientTest, AncientGuidBoundByMacIsAdoptedIntoBuildMinus1) {
  MachineA();
  WriteGlobalMgr(ProfileDir(), kAncient, KyGuidUtils::Md5Hex("001122aabbcc"), "no such disk");
  ASSERT_EQ(KyGuid::kResultAncientAdopted, Run());
  EXPECT_EQ(kAncient, Active("Guid"));
  EXPECT_EQ(kAdapterKeyA, Active("AdapterKey"));
  EXPECT_EQ(kDiskKeyA, Active("DiskKey"));  // the best disk stands in for the lost half
  EXPECT_EQ("1", Active("Reason"));
  EXPECT_EQ("2", Active("Version"));
  EXPECT_EQ("-1", Active("CreateIndex"));
  const std::string path = GuidDbPath();
  EXPECT_EQ(kAncient, IniRead(path, "Build-1", "OldGuid"));
  EXPECT_EQ("1", IniRead(path, "Build-1", "OldVersion"));
  EXPECT_EQ(kAncient, IniRead(path, "Build-1", "Guid"));
  EXPECT_EQ(1, CountLog("Load Active guid info failed, now try ancient info"));
  EXPECT_EQ(1, CountLog("Deepmatch find adapter[001122aabbcc]-->Guid[" +
                        KyGuidUtils::Md5Hex("001122aabbcc") + "]"));
  EXPECT_EQ(1, CountLog("use ancient guid: guid[" + kAncient + "]"));
}

TEST_F(AncientTest, PerUserGlobalMgrIsTriedWhenTheCommonOneIsMissing) {
  MachineA();
  WriteGlobalMgr(UserProfileDir(), kAncient, KyGuidUtils::Md5Hex("001122aabbcc"), "");
  ASSERT_EQ(KyGuid::kResultAncientAdopted, Run());
  EXPECT_EQ(kAncient, Active("Guid"));
  EXPECT_EQ(1, CountLog("LoadAncientGuidInfo failed: "));  // the common one
}

TEST_F(AncientTest, Config1OfOtherThan32HexDigitsIsNoAncientGuid) {
  MachineA();
  int runs = 0;
  for (const std::string& bad : {kAncient.substr(1), kAncient + "0", "g" + kAncient.substr(1)}) {
    WriteGlobalMgr(ProfileDir(), bad, KyGuidUtils::Md5Hex("001122aabbcc"), "");
    DeleteFileA(GuidDbPath().c_str());
    ASSERT_EQ(KyGuid::kResultFirstBuilt, Run()) << bad;
    EXPECT_EQ(++runs, CountLog("Load ancient guid info failed, now try build new guid"));
  }
}

TEST_F(AncientTest, AncientGuidBoundByNothingIsReplacedAsAnotherVersion) {
  MachineA();
  WriteGlobalMgr(ProfileDir(), kAncient, "no such mac", "no such disk");
  ASSERT_EQ(KyGuid::kResultReplacedOtherVersion, Run());
  EXPECT_EQ("0", Active("CreateIndex"));  // -1 + 1
  EXPECT_EQ("3", Active("Reason"));
  EXPECT_EQ(kAncient, IniRead(GuidDbPath(), "Build0", "OldGuid"));
  EXPECT_EQ(1, CountLog("Deepmatch can't find adapter: no such mac"));
  EXPECT_EQ(1, CountLog("Deepmatch can't find disk: no such disk"));
}

}  // namespace
