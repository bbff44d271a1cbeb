// The disk fetchers on simulated machines: which drives are listed, what is
// logged for each failure, the SMART fallback, the system-volume pass and
// the scores.
#include "kyguidlib/cdiskfetcher.h"
#include "kyguidlib/cdisksmartfetcher.h"
#include "tests/testsupport.h"

namespace {

using KyGuid::CDiskFetcher;
using KyGuid::CDiskSmartFetcher;
using KyGuid::DiskInfo;
using KyGuidSim::SimulatedMachine;

constexpr uint32_t kSata = 11;
constexpr uint32_t kNvme = 17;
constexpr uint32_t kUsb = 7;

class DiskFetcherTest : public KyGuidTest::IsolatedTest {
 protected:
  void AddDisk(int number, const std::string& product, const std::string& serial,
               uint32_t bus = kSata, bool removable = false) {
    m_machine.AddDrive(number).descriptor =
        SimulatedMachine::Descriptor("", product, "FW01", serial, bus, removable);
  }
  // The data folder lives on drive letter C in the test's temp folder.
  void SystemVolumeOn(std::vector<std::pair<uint32_t, uint64_t>> extents) {
    m_machine.AddVolume(L'C').extents = SimulatedMachine::Extents(extents);
  }
};

TEST_F(DiskFetcherTest, MissingDriveNumbersAreSkippedSilentlyAndOtherErrorsLogged) {
  AddDisk(0, "ST1000DM010", "Z9A1B2C3");
  AddDisk(2, "WDC WD10", "WX11");
  m_machine.AddDrive(3).openError = KyGuidSim::kErrorAccessDenied;
  m_machine.AddDrive(4);  // opens, but the property query fails

  CDiskFetcher fetcher;
  ASSERT_EQ(2, fetcher.Fetch());
  EXPECT_EQ(0, fetcher.Disks()[0].Index);
  EXPECT_EQ(2, fetcher.Disks()[1].Index);
  EXPECT_EQ(0, CountLog("Disk[1]"));
  EXPECT_EQ(1, CountLog("Open Disk[3] failed: 5"));
  EXPECT_EQ(1, CountLog("IOCTL_STORAGE_QUERY_PROPERTY Disk[4] failed: 1"));
  EXPECT_EQ(1, CountLog("Fetch 2 Disks"));
  EXPECT_NE(std::string::npos,
            LogLineWith("Fetch 2 Disks")
                .find("INFO [kyguid_tests.exe] KyGuid::CDiskFetcher::Fetch"
                      " (ftcommon\\kyguid\\kyguidlib\\cdiskfetcher:"));
}

TEST_F(DiskFetcherTest, OpensAreQueryOnlyAfterAReadOnlyWarmUp) {
  AddDisk(0, "ST1000DM010", "Z9A1B2C3");
  CDiskFetcher fetcher;
  fetcher.Fetch();
  ASSERT_GE(m_machine.opens.size(), 2u);
  EXPECT_EQ(L"\\\\.\\PhysicalDrive0", m_machine.opens[0].path);
  EXPECT_EQ(0x80000000u, m_machine.opens[0].access);
  EXPECT_EQ(0x1u, m_machine.opens[0].share);
  EXPECT_EQ(0u, m_machine.opens[1].access);
  EXPECT_EQ(0x3u, m_machine.opens[1].share);
}

TEST_F(DiskFetcherTest, DescriptorStringsAreCleanedHexSerialIncluded) {
  m_machine.AddDrive(0).descriptor =
      SimulatedMachine::Descriptor("  ATA     ", "  Samsung SSD 860  ", " 2B6Q", "4A5A2020", kSata, false);
  CDiskFetcher fetcher;
  ASSERT_EQ(1, fetcher.Fetch());
  const DiskInfo& disk = fetcher.Disks()[0];
  EXPECT_EQ("ATA", disk.VendorId);
  EXPECT_EQ("Samsung SSD 860", disk.ProductId);
  EXPECT_EQ("2B6Q", disk.Revision);
  EXPECT_EQ("ZJ", disk.SerialNumber);
  EXPECT_EQ(kSata, disk.BusType);
}

TEST_F(DiskFetcherTest, EmptySerialTakesTheSmartIdentityButKeepsVendorAndBus) {
  KyGuidSim::SimDrive& drive = m_machine.AddDrive(0);
  drive.descriptor = SimulatedMachine::Descriptor("ATA", "Generic", "", "", kSata, false);
  drive.identify = SimulatedMachine::Identify("ST500DM002-1BD142", "W3T1ABCD", "KC45");
  CDiskFetcher fetcher;
  ASSERT_EQ(1, fetcher.Fetch());
  const DiskInfo& disk = fetcher.Disks()[0];
  EXPECT_EQ("ST500DM002-1BD142", disk.ProductId);
  EXPECT_EQ("KC45", disk.Revision);
  EXPECT_EQ("W3T1ABCD", disk.SerialNumber);
  EXPECT_EQ("ATA", disk.VendorId);
  EXPECT_EQ(1, CountLog("SMART fetch disk, PID=ST500DM002-1BD142, Rev=KC45, SN=W3T1ABCD"));
}

TEST_F(DiskFetcherTest, SmartFailuresLeaveTheDiskWithItsOwnEmptySerial) {
  KyGuidSim::SimDrive& shortReply = m_machine.AddDrive(0);
  shortReply.descriptor = SimulatedMachine::Descriptor("", "Bridge", "1", "", kUsb, false);
  shortReply.identify = SimulatedMachine::Identify("Real Model", "SERIAL1", "R1");
  shortReply.smartReturnedBytes = 16;
  m_machine.AddDrive(1).descriptor = SimulatedMachine::Descriptor("", "Nvme", "1", "", kNvme, false);

  CDiskFetcher fetcher;
  ASSERT_EQ(2, fetcher.Fetch());
  EXPECT_EQ("Bridge", fetcher.Disks()[0].ProductId);
  EXPECT_EQ("", fetcher.Disks()[0].SerialNumber);
  EXPECT_EQ(1, CountLog("Disk[0] SMART_RCV_DRIVE_DATA failed: too less data, len=16"));
  EXPECT_EQ(1, CountLog("Disk[1] SMART_GET_VERSION failed: 1"));
  EXPECT_EQ(100 - 5 - 10, fetcher.Disks()[0].Score);  // USB and no serial
}

TEST_F(DiskFetcherTest, SmartFetcherAloneStoresOnlyTheThreeStrings) {
  KyGuidSim::SimDrive& drive = m_machine.AddDrive(5);
  drive.identify = SimulatedMachine::Identify("  Model X", "S1", "R2");
  DiskInfo disk;
  disk.Index = 5;
  disk.VendorId = "keep";
  disk.Flags = DiskInfo::kSystemDisk;
  ASSERT_EQ(1, CDiskSmartFetcher().Fetch(disk));
  EXPECT_EQ("Model X", disk.ProductId);
  EXPECT_EQ("S1", disk.SerialNumber);
  EXPECT_EQ("R2", disk.Revision);
  EXPECT_EQ("keep", disk.VendorId);
  EXPECT_EQ(DiskInfo::kSystemDisk, disk.Flags);
  EXPECT_EQ(0x40000000u | 0x80000000u, m_machine.opens.back().access);

  DiskInfo missing;
  missing.Index = 7;
  EXPECT_EQ(0, CDiskSmartFetcher().Fetch(missing));
  EXPECT_EQ(0, CountLog("Disk[7]"));
}

TEST_F(DiskFetcherTest, VolumeSpanningTwoDisksMarksBothSkippingEmptyAndFarExtents) {
  AddDisk(0, "A", "SERIAL0");
  AddDisk(1, "B", "SERIAL1");
  AddDisk(2, "C", "SERIAL2");
  SystemVolumeOn({{0, 1000}, {1, 5000}, {2, 0}, {300, 100}});
  CDiskFetcher fetcher;
  fetcher.Fetch();
  EXPECT_TRUE(fetcher.Disks()[0].Has(DiskInfo::kSystemDisk));
  EXPECT_TRUE(fetcher.Disks()[1].Has(DiskInfo::kSystemDisk));
  EXPECT_FALSE(fetcher.Disks()[2].Has(DiskInfo::kSystemDisk));
  EXPECT_EQ(1, CountLog("System Volume[C:] is on Disk[0]"));
  EXPECT_EQ(1, CountLog("System Volume[C:] is on Disk[1]"));
  EXPECT_EQ(0, CountLog("is on Disk[300]"));
  EXPECT_TRUE(fetcher.Disks()[0].Has(DiskInfo::kBestDisk));  // 150 first
}

TEST_F(DiskFetcherTest, SystemVolumeFailuresAreLoggedAndLeaveNoSystemDisk) {
  AddDisk(0, "A", "SERIAL0");
  CDiskFetcher fetcher;
  fetcher.Fetch();
  EXPECT_FALSE(fetcher.Disks()[0].Has(DiskInfo::kSystemDisk));
  EXPECT_EQ(1, CountLog("UpdateSystemInfo[C:] createfile failed: 2"));

  m_machine.AddVolume(L'C');  // opens, but has no extents to report
  fetcher.Fetch();
  EXPECT_EQ(1, CountLog("UpdateSystemInfo[C:] IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS failed: 1"));
}

TEST_F(DiskFetcherTest, ScoresBestMarkAndThePerDiskLine) {
  AddDisk(0, "USB Stick", "U123", kUsb, true);
  AddDisk(1, "Samsung SSD 970", "S4EW", kNvme);
  AddDisk(2, "Other SSD", "S5XX", kNvme);
  SystemVolumeOn({{2, 4096}});
  CDiskFetcher fetcher;
  fetcher.Fetch();
  EXPECT_EQ(45, fetcher.Disks()[0].Score);
  EXPECT_EQ(100, fetcher.Disks()[1].Score);
  EXPECT_EQ(150, fetcher.Disks()[2].Score);
  EXPECT_TRUE(fetcher.Disks()[2].Has(DiskInfo::kBestDisk));
  EXPECT_FALSE(fetcher.Disks()[1].Has(DiskInfo::kBestDisk));
  EXPECT_EQ(1, CountLog("Fetch Disk[2]=> Model[Other SSD], Revision[FW01], SN[S5XX], Vendor[], "
                        "Bus[17], RemoveMedia[NO], System[YES], Score[100]"));
  EXPECT_EQ(1, CountLog("Fetch Disk[0]=> Model[USB Stick], Revision[FW01], SN[U123], Vendor[], "
                        "Bus[7], RemoveMedia[YES], System[NO], Score[45]"));
}

TEST_F(DiskFetcherTest, EqualTopScoresGoToTheLowerDriveAndEachFetchStartsFresh) {
  AddDisk(3, "Same", "SERIAL3");
  AddDisk(1, "Same", "SERIAL1");
  CDiskFetcher fetcher;
  fetcher.Fetch();
  ASSERT_EQ(2u, fetcher.Disks().size());
  EXPECT_EQ(1, fetcher.Disks()[0].Index);  // ascending drive order
  EXPECT_TRUE(fetcher.Disks()[0].Has(DiskInfo::kBestDisk));
  EXPECT_FALSE(fetcher.Disks()[1].Has(DiskInfo::kBestDisk));
  EXPECT_EQ(2, fetcher.Fetch());
  EXPECT_FALSE(fetcher.Disks()[1].Has(DiskInfo::kBestDisk));
}

}  // namespace
