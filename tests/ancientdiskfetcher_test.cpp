// The earlier scheme's disk reads on simulated machines: what each protocol
// sends, which disks it accepts, how raw the strings stay, and the disk GUID
// search built on them.
#include "kyguidlib/ancientdiskfetcher.h"

#include <windows.h>
#include <ntddscsi.h>
#include <winioctl.h>

#include <cstdio>

#include "kyguidlib/devicerequests.h"
#include "kyguidlib/td/hddfetcher.h"
#include "tests/testsupport.h"

namespace {

using KyGuid::CAncientDiskFetcher;
using KyGuid::DiskInfo;
using KyGuidSim::AtaRequest;
using KyGuidSim::SimulatedMachine;

// The request bytes are built without Windows headers; here they meet the
// real structures.
static_assert(sizeof(GETVERSIONINPARAMS) == KyGuid::kVersionParamsSize, "version reply");
static_assert(offsetof(GETVERSIONINPARAMS, bIDEDeviceMap) == KyGuid::kVersionIdeDeviceMapAt, "");
static_assert(sizeof(SENDCMDINPARAMS) == KyGuid::kSendCmdInSize, "command");
static_assert(offsetof(SENDCMDINPARAMS, cBufferSize) == KyGuid::kSendCmdBufferSizeAt, "");
static_assert(offsetof(SENDCMDINPARAMS, irDriveRegs.bSectorCountReg) ==
                  KyGuid::kSendCmdSectorCountAt,
              "");
static_assert(offsetof(SENDCMDINPARAMS, irDriveRegs.bDriveHeadReg) == KyGuid::kSendCmdDriveHeadAt,
              "");
static_assert(offsetof(SENDCMDINPARAMS, irDriveRegs.bCommandReg) == KyGuid::kSendCmdCommandAt, "");
static_assert(offsetof(SENDCMDINPARAMS, bDriveNumber) == KyGuid::kSendCmdDriveNumberAt, "");
static_assert(sizeof(SENDCMDOUTPARAMS) == KyGuid::kSendCmdOutSize, "reply");
static_assert(offsetof(SENDCMDOUTPARAMS, bBuffer) == KyGuid::kSendCmdOutHeaderSize, "");
static_assert(sizeof(SRB_IO_CONTROL) == KyGuid::kSrbIoControlSize, "miniport header");
static_assert(offsetof(SRB_IO_CONTROL, Signature) == KyGuid::kSrbSignatureAt, "");
static_assert(offsetof(SRB_IO_CONTROL, Timeout) == KyGuid::kSrbTimeoutAt, "");
static_assert(offsetof(SRB_IO_CONTROL, ControlCode) == KyGuid::kSrbControlCodeAt, "");
static_assert(offsetof(SRB_IO_CONTROL, Length) == KyGuid::kSrbLengthAt, "");
static_assert(IOCTL_SCSI_MINIPORT == KyGuid::kIoctlScsiMiniport, "");

constexpr uint32_t kSata = 11;
constexpr uint32_t kReadWrite = 0xC0000000u;

class AncientDiskFetcherTest : public KyGuidTest::IsolatedTest {
 protected:
  // A record that a fetch must leave in place.
  std::vector<DiskInfo> ListWithOneRecord() {
    DiskInfo earlier;
    earlier.Index = 9;
    earlier.ProductId = "earlier";
    return {earlier};
  }

  std::string DbPath() const { return ProfileDir() + "\\HDD.db"; }
};

std::string Brief(const AtaRequest& r) {
  char text[96];
  snprintf(text, sizeof(text), "in=%u buf=%u count=%u head=%02X cmd=%02X drive=%u", r.inSize,
           r.bufferSize, r.sectorCount, r.driveHead, r.command, r.driveNumber);
  return text;
}

TEST_F(AncientDiskFetcherTest, AdminRightsSendsTheFullRegisterSetChosenByTheDeviceMap) {
  m_machine.AddDrive(0).identify = SimulatedMachine::Identify("DISK0", "S0", "R0");
  KyGuidSim::SimDrive& atapi = m_machine.AddDrive(1);
  atapi.identify = SimulatedMachine::Identify("CDROM1", "S1", "R1");
  atapi.ideDeviceMap = 0x22;
  atapi.packetDevice = true;
  KyGuidSim::SimDrive& unmapped = m_machine.AddDrive(2);
  unmapped.identify = SimulatedMachine::Identify("DISK2", "S2", "R2");
  unmapped.ideDeviceMap = 0;
  m_machine.AddDrive(3).openError = KyGuidSim::kErrorAccessDenied;

  std::vector<DiskInfo> disks = ListWithOneRecord();
  ASSERT_EQ(2, CAncientDiskFetcher::FetchWithAdminRights(disks));
  ASSERT_EQ(3u, disks.size());
  EXPECT_EQ("earlier", disks[0].ProductId);
  EXPECT_EQ(0, disks[1].Index);
  EXPECT_EQ(1, disks[2].Index);
  EXPECT_EQ("CDROM1", disks[2].ProductId);
  EXPECT_EQ("R1", disks[2].Revision);
  EXPECT_EQ("S1", disks[2].SerialNumber);
  EXPECT_EQ("", disks[2].VendorId);
  EXPECT_EQ(0u, disks[2].BusType + disks[2].Flags);

  ASSERT_EQ(2u, m_machine.ataRequests.size());  // the unmapped drive is not asked
  EXPECT_EQ("in=32 buf=512 count=1 head=A0 cmd=EC drive=0", Brief(m_machine.ataRequests[0]));
  EXPECT_EQ("in=32 buf=512 count=1 head=B0 cmd=A1 drive=1", Brief(m_machine.ataRequests[1]));
  EXPECT_EQ(kReadWrite, m_machine.opens[0].access);
  EXPECT_EQ(0x3u, m_machine.opens[0].share);
  EXPECT_EQ(1, CountLog("fetch ancient disk, PID=CDROM1, Rev=R1, SN=S1"));
  EXPECT_EQ(0, CountLog(" WARN ["));
}

TEST_F(AncientDiskFetcherTest, SmartSendsOnlyTheCommandRegisterAndSkipsSilently) {
  m_machine.AddDrive(0).identify = SimulatedMachine::Identify("DISK0", "S0", "R0");
  m_machine.AddDrive(1);                               // no SMART at all
  KyGuidSim::SimDrive& atapi = m_machine.AddDrive(2);  // refuses IDENTIFY DEVICE
  atapi.identify = SimulatedMachine::Identify("CDROM", "S2", "R2");
  atapi.packetDevice = true;

  std::vector<DiskInfo> disks = ListWithOneRecord();
  ASSERT_EQ(1, CAncientDiskFetcher::FetchUsingSmart(disks));
  ASSERT_EQ(2u, disks.size());
  EXPECT_EQ("DISK0", disks[1].ProductId);
  ASSERT_EQ(2u, m_machine.ataRequests.size());
  EXPECT_EQ("in=33 buf=0 count=0 head=00 cmd=EC drive=0", Brief(m_machine.ataRequests[0]));
  EXPECT_EQ(0x7u, m_machine.opens[0].share);
  EXPECT_EQ(0, CountLog(" WARN ["));
  EXPECT_EQ(1, CountLog("fetch ancient disk, PID=DISK0, Rev=R0, SN=S0"));
}

TEST_F(AncientDiskFetcherTest, IdentifyStringsKeepLeadingBlanksSoTheyHashDifferently) {
  m_machine.AddDrive(0).identify = SimulatedMachine::Identify("  Padded Model", " SN77", "FW1");
  m_machine.AddScsiController(0).identify[0] =
      SimulatedMachine::Identify("  Padded Model", " SN77", "FW1");

  std::vector<DiskInfo> disks;
  CAncientDiskFetcher::FetchWithAdminRights(disks);
  CAncientDiskFetcher::FetchUsingSmart(disks);
  CAncientDiskFetcher::FetchAsScsiDrive(disks);
  ASSERT_EQ(3u, disks.size());
  const std::string raw = CAncientDiskFetcher::CalcDiskGuid("  Padded Model", "FW1", " SN77");
  const std::string trimmed = CAncientDiskFetcher::CalcDiskGuid("Padded Model", "FW1", "SN77");
  EXPECT_NE(raw, trimmed);
  for (const DiskInfo& disk : disks) {
    EXPECT_EQ("  Padded Model", disk.ProductId);
    EXPECT_EQ(" SN77", disk.SerialNumber);
    EXPECT_EQ(raw,
              CAncientDiskFetcher::CalcDiskGuid(disk.ProductId, disk.Revision, disk.SerialNumber));
  }
  EXPECT_EQ(nullptr, CAncientDiskFetcher::FindDiskByGuid(disks, trimmed));
}

TEST_F(AncientDiskFetcherTest, ZeroRightsDecodesSwapsAndRejectsPlaceholderSerials) {
  const std::string letters16 = "ABCDEFGHIJKLMNOP";
  const struct {
    std::string serial;  // as the descriptor gives it
    bool accepted;
    std::string stored;
  } cases[] = {
      {"5a4a3132", true, "JZ21"},              // hex text, then pairwise swap
      {"4a5a4b4c4d4e4f", true, "ZJLKNM"},      // seven decoded characters lose the last
      {"5a4a313G", true, "a5a413G3"},          // not hex: taken as text
      {".." + letters16 + "--XY", false, ""},  // 1st and 20th punctuation
      {".." + letters16 + "A-XY", true, "..BADCFEHGJILKNMPO-AYX"},  // 20th is A
      {"-", false, ""},                                             // short and punctuation
      {"", false, ""},                                              // no serial at all
  };
  int drive = 0;
  for (const auto& c : cases) {
    m_machine.AddDrive(drive++).descriptor =
        SimulatedMachine::Descriptor("ATA", "  Model Z  ", "CC43", c.serial, kSata, false);
  }

  std::vector<DiskInfo> disks;
  int expected = 0;
  for (const auto& c : cases) expected += c.accepted ? 1 : 0;
  ASSERT_EQ(expected, CAncientDiskFetcher::FetchWithZeroRights(disks));
  size_t next = 0;
  for (size_t i = 0; i < sizeof(cases) / sizeof(cases[0]); ++i) {
    SCOPED_TRACE(cases[i].serial);
    if (!cases[i].accepted) continue;
    ASSERT_LT(next, disks.size());
    const DiskInfo& disk = disks[next++];
    EXPECT_EQ(static_cast<int>(i), disk.Index);
    EXPECT_EQ(cases[i].stored, disk.SerialNumber);
    EXPECT_EQ("Model Z", disk.ProductId);
    EXPECT_EQ("CC43", disk.Revision);
    EXPECT_EQ("", disk.VendorId);
  }
  EXPECT_EQ(0u, m_machine.opens[0].access);
  EXPECT_EQ(0x3u, m_machine.opens[0].share);
  EXPECT_EQ(1, CountLog("fetch ancient disk, PID=Model Z, Rev=CC43, SN=ZJLKNM"));
}

TEST_F(AncientDiskFetcherTest, ScsiDisksAreNumberedWithinTheirController) {
  KyGuidSim::SimScsiController& first = m_machine.AddScsiController(1);
  first.identify[0] = SimulatedMachine::Identify("M10", "S10", "R10");
  first.identify[1] = SimulatedMachine::Identify("M11", "S11", "R11");
  KyGuidSim::SimScsiController& second = m_machine.AddScsiController(3);
  second.identify[0] = std::vector<uint8_t>(512, 0);  // answers, but with no model
  second.identify[1] = SimulatedMachine::Identify("M31", "S31", "R31");
  m_machine.AddScsiController(4).openError = KyGuidSim::kErrorAccessDenied;

  std::vector<DiskInfo> disks = ListWithOneRecord();
  ASSERT_EQ(3, CAncientDiskFetcher::FetchAsScsiDrive(disks));
  ASSERT_EQ(4u, disks.size());
  EXPECT_EQ(0, disks[1].Index);
  EXPECT_EQ(1, disks[2].Index);
  EXPECT_EQ("M31", disks[3].ProductId);
  EXPECT_EQ(1, disks[3].Index);  // not a system-wide number

  ASSERT_EQ(4u, m_machine.ataRequests.size());
  EXPECT_EQ(L"\\\\.\\Scsi3:", m_machine.ataRequests[3].device);
  EXPECT_EQ("in=32 buf=0 count=0 head=00 cmd=EC drive=1", Brief(m_machine.ataRequests[3]));
  const KyGuidSim::OpenCall& open = m_machine.opens[1];
  EXPECT_EQ(L"\\\\.\\Scsi1:", open.path);
  EXPECT_EQ(kReadWrite, open.access);
  EXPECT_EQ(0x3u, open.share);
}

TEST_F(AncientDiskFetcherTest, RandDiskNeedsAllThreeValues) {
  DiskInfo disk;
  disk.Index = 4;
  disk.ProductId = "kept";
  EXPECT_EQ(0, CAncientDiskFetcher::ReadRandDisk(disk));  // no file

  KyGuidTest::MakeDirs(ProfileDir());
  KyGuidTest::IniWrite(DbPath(), "HDD", "SerialNumber", "Rand_S");
  KyGuidTest::IniWrite(DbPath(), "HDD", "ModelNumber", "Rand_M");
  EXPECT_EQ(0, CAncientDiskFetcher::ReadRandDisk(disk));
  EXPECT_EQ("kept", disk.ProductId);
  EXPECT_EQ("", disk.SerialNumber);

  KyGuidTest::IniWrite(DbPath(), "HDD", "RevisionNumber", "Rand_R");
  ASSERT_EQ(1, CAncientDiskFetcher::ReadRandDisk(disk));
  EXPECT_EQ("Rand_M", disk.ProductId);
  EXPECT_EQ("Rand_R", disk.Revision);
  EXPECT_EQ("Rand_S", disk.SerialNumber);
  EXPECT_EQ(4, disk.Index);
  EXPECT_EQ(3, CountLog("TRACE [kyguid_tests.exe] KyGuid::CAncientDiskFetcher::ReadRandDisk"));
  EXPECT_EQ(3, CountLog("ReadPhysicalDriveRand begin"));
  EXPECT_EQ(1, CountLog("fetch ancient rand disk, PID=Rand_M, Rev=Rand_R, SN=Rand_S"));
}

TEST_F(AncientDiskFetcherTest, RandDiskReadsWhatTheLegacyFetcherInvented) {
  std::string serial, model, revision;
  std::vector<KyMacID::DriveRecord> drives;
  ASSERT_TRUE(KyMacID::CHddFetcher().GetPhysicsDriveIdentify(serial, model, revision, drives));
  DiskInfo disk;
  ASSERT_EQ(1, CAncientDiskFetcher::ReadRandDisk(disk));
  EXPECT_EQ(serial, disk.SerialNumber);
  EXPECT_EQ(model, disk.ProductId);
  EXPECT_EQ(revision, disk.Revision);
}

TEST_F(AncientDiskFetcherTest, DiskGuidHashesSerialModelRevisionAndSearchIsExact) {
  // MD5("abc"): serial first, then model, then revision.
  EXPECT_EQ("900150983cd24fb0d6963f7d28e17f72", CAncientDiskFetcher::CalcDiskGuid("b", "c", "a"));
  EXPECT_EQ(1, CountLog("TRACE [kyguid_tests.exe] KyGuid::CAncientDiskFetcher::CalcDiskGuid"));
  EXPECT_EQ(1, CountLog("Calc disk Guid: abc-->900150983cd24fb0d6963f7d28e17f72"));

  EXPECT_EQ(nullptr, CAncientDiskFetcher::FindDiskByGuid({}, "900150983cd24fb0d6963f7d28e17f72"));
  EXPECT_EQ(1, CountLog("Calc disk Guid"));  // nothing computed for an empty list

  std::vector<DiskInfo> disks(3);
  disks[0].SerialNumber = "other";
  for (size_t i : {1, 2}) {
    disks[i].SerialNumber = "a";
    disks[i].ProductId = "b";
    disks[i].Revision = "c";
  }
  EXPECT_EQ(&disks[1],
            CAncientDiskFetcher::FindDiskByGuid(disks, "900150983cd24fb0d6963f7d28e17f72"));
  EXPECT_EQ(nullptr,
            CAncientDiskFetcher::FindDiskByGuid(disks, "900150983CD24FB0D6963F7D28E17F72"));
  EXPECT_EQ(nullptr, CAncientDiskFetcher::FindDiskByGuid(disks, "900150983cd24fb0d6963f7d28e17f7"));
}

}  // namespace
