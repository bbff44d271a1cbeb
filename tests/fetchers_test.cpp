// Both schemes' fetchers on simulated machines, and the WMI lookup against Wine's own.
#include <windows.h>
#include <nb30.h>
#include <ntddscsi.h>

#include <regex>

#include "kyguidlib/ancientdiskfetcher.h"
#include "kyguidlib/cadapterfetcher.h"
#include "kyguidlib/cdiskfetcher.h"
#include "kyguidlib/cwmifetcher.h"
#include "kyguidlib/devicerequests.h"
#include "kyguidlib/td/hddfetcher.h"
#include "kyguidlib/td/macfetcher.h"
#include "tests/testsupport.h"

namespace {

using namespace KyGuid;
using namespace KyMacID;
using KyGuidSim::SimulatedMachine;
using Lines = std::vector<std::string>;

class FetcherTest : public KyGuidTest::IsolatedTest {
 protected:
  // The log as support searches it, "LEVEL Function (file): text", without the folder
  // all sources share and the TRACE marks of a function's entry; or those marks alone.
  Lines Log(bool entries = false) const {
    static const std::regex kLine(
        R"(\S+ \S+ (\w+) \[.*?\] (.*) \(ftcommon\\kyguid\\kyguidlib\\(.*):\d+\) err=0: (.*))");
    Lines said;
    for (const std::string& line : LogLines()) {
      // A line of another shape stays whole, and so fails any comparison.
      const std::string item = std::regex_replace(line, kLine, "$1 $2 ($3): $4");
      if (std::regex_search(item, std::regex(": enter$")) == entries) said.push_back(item);
    }
    return said;
  }
  int Said(const std::string& line) const {
    const Lines said = Log();
    return static_cast<int>(std::count(said.begin(), said.end(), line));
  }
};

TEST_F(FetcherTest, DiskFetcherCleansFallsBackToSmartMarksSystemDisksAndLogsEachStep) {
  auto add = [&](int number, const char* product, const char* serial, uint32_t bus) -> auto& {
    KyGuidSim::SimDrive& drive = m_machine.AddDrive(number);
    drive.descriptor = SimulatedMachine::Descriptor(" ATA", product, " FW1", serial, bus, bus == 7);
    return drive;
  };
  add(0, "  Samsung SSD  ", "4A5A2020", 7);  // the serial as hex text
  m_machine.AddDrive(1).openError = KyGuidSim::kErrorAccessDenied;
  m_machine.AddDrive(2);  // opens, but the property query fails
  add(3, "Generic", "", 11).identify = SimulatedMachine::Identify(" ST500", "W3T1", "KC45");
  add(4, "Nvme", "", 17);  // no SMART at all
  KyGuidSim::SimDrive& shortReply = add(5, "Short", "", 11);
  shortReply.identify = SimulatedMachine::Identify("S", "S5", "R");
  shortReply.smartReturnedBytes = 527;  // one byte short of the IDENTIFY reply
  m_machine.AddVolume(L'C').extents = SimulatedMachine::Extents({{3, 1}, {4, 1}, {0, 0}, {300, 1}});
  CDiskFetcher fetcher;
  ASSERT_EQ(4, fetcher.Fetch());
  const std::string fetch = "INFO KyGuid::CDiskFetcher::Fetch (cdiskfetcher): Fetch ";
  const std::string smart = "KyGuid::CDiskSmartFetcher::Fetch (cdisksmartfetcher): ";
  const std::string on =
      "INFO KyGuid::CDiskFetcher::UpdateSystemMask (cdiskfetcher): System Volume[C:] is on ";
  EXPECT_EQ(Log(),
            (Lines{"WARN KyGuid::CDiskFetcher::FetchDisk (cdiskfetcher): Open Disk[1] failed: 5",
                   "WARN KyGuid::CDiskFetcher::FetchDisk (cdiskfetcher): "
                   "IOCTL_STORAGE_QUERY_PROPERTY Disk[2] failed: 1",
                   "INFO " + smart + "SMART fetch disk, PID=ST500, Rev=KC45, SN=W3T1",
                   "WARN " + smart + "Disk[4] SMART_GET_VERSION failed: 1",
                   "WARN " + smart + "Disk[5] SMART_RCV_DRIVE_DATA failed: too less data, len=527",
                   fetch + "4 Disks", on + "Disk[3]", on + "Disk[4]",
                   fetch + "Disk[0]=> Model[Samsung SSD], Revision[FW1], SN[ZJ], Vendor[ATA], "
                           "Bus[7], RemoveMedia[YES], System[NO], Score[45]",
                   fetch + "Disk[3]=> Model[ST500], Revision[KC45], SN[W3T1], Vendor[ATA], "
                           "Bus[11], RemoveMedia[NO], System[YES], Score[100]",
                   fetch + "Disk[4]=> Model[Nvme], Revision[FW1], SN[], Vendor[ATA], Bus[17], "
                           "RemoveMedia[NO], System[YES], Score[100]",
                   fetch + "Disk[5]=> Model[Short], Revision[FW1], SN[], Vendor[ATA], Bus[11], "
                           "RemoveMedia[NO], System[NO], Score[90]"}));
  // The query needs no rights, though some drivers answer only after a read.
  std::vector<std::pair<uint32_t, uint32_t>> modes;
  for (const auto& open : m_machine.opens)
    if (open.path == L"\\\\.\\PhysicalDrive3") modes.emplace_back(open.access, open.share);
  EXPECT_EQ(modes, (decltype(modes){{kGenericRead, 1}, {kQueryOnly, 3}, {kReadWrite, 3}}));
}

TEST_F(FetcherTest, SystemVolumeFailuresNameTheVolumeAndTheError) {
  KyGuidTest::TestFolders onD("D:\\Data");  // only the data folder's letter is used
  KyGuid::ScopedPlatform platform({&onD, nullptr, nullptr, nullptr});
  KyGuidSim::SimVolume& volume = m_machine.AddVolume(L'D');
  volume.openError = 5;
  CDiskFetcher().Fetch();
  volume.openError = 0;  // opens, but has no extents to give
  CDiskFetcher().Fetch();
  const std::string fetch = "INFO KyGuid::CDiskFetcher::Fetch (cdiskfetcher): Fetch 0 Disks";
  const std::string failed =
      "WARN KyGuid::CDiskFetcher::UpdateSystemMask (cdiskfetcher): UpdateSystemInfo[D:] ";
  EXPECT_EQ(Log(), (Lines{fetch, failed + "createfile failed: 5", fetch,
                          failed + "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS failed: 1"}));
}

TEST_F(FetcherTest, AdapterFetcherCleansTheNameRatesThroughTheRegistryAndSkipsAddresslessOnes) {
  m_machine.AddAdapter("{TUNNEL}", "Teredo", {}).type = 131;
  KyGuidSim::SimAdapter& nic =
      m_machine.AddAdapter(" {{4F3A}} ", "Intel", {0, 0x1A, 0, 0, 0, 0xFF});
  nic.pnpId = "PCI\\VEN_8086&DEV_15B8\\3&1";
  nic.index = 7;
  ASSERT_EQ(1, CAdapterFetcher().Fetch());
  const std::string fetch = "INFO KyGuid::CAdapterFetcher::Fetch (cadapterfetcher): Fetch ";
  EXPECT_EQ(Log(), (Lines{"TRACE KyGuid::CIpHelpFetcher::QueryAdapter (ciphelpfetcher): Fetch no "
                          "mac Adapter[11]=> Guid[{TUNNEL}], Desc[Teredo], Proto[131]",
                          fetch + "1 Adapters",
                          fetch + "Adapter[07]=> Guid[4F3A], Desc[Intel], Address[001a000000ff], "
                                  "Proto[6], Type[110], Score[110]"}));
}

TEST_F(FetcherTest, AdapterListOverflowIsRetriedOnceWithTwiceTheSizeAndFailuresLeaveItEmpty) {
  for (uint32_t growth : {100000u, 640u}) {  // what the list grows by between the two calls
    m_machine = SimulatedMachine();
    for (int i = 0; i < 9; ++i) m_machine.AddAdapter("{N" + std::to_string(i) + "}", "", {1, 2});
    m_machine.adapterSizeGrowth = growth;
    EXPECT_EQ(growth == 640 ? 9 : 0, CAdapterFetcher().Fetch());
  }
  m_machine.adapterQueryError = 87;
  EXPECT_EQ(0, CAdapterFetcher().Fetch());
  m_machine.adapterApiMissing = true;
  EXPECT_EQ(0, CAdapterFetcher().Fetch());
  const std::string query = "ERROR KyGuid::CIpHelpFetcher::QueryAdapter (ciphelpfetcher): ";
  for (const char* failed : {"GetAdaptersInfo failed: 111", "GetAdaptersInfo failed: 87",
                             "adapter api failed: maybe iphlpapi.dll miss"}) {
    EXPECT_EQ(1, Said(query + failed)) << failed;
  }
}

// What Wine's WMI lists for every network adapter.
const std::string kWinePnpId = "PCI\\VEN_8086&DEV_100E&SUBSYS_001E8086&REV_02\\3&267A616A&1&18";

// The lookup runs inside every process of the suite: a thread without COM stays
// so, and a caller's single-threaded apartment is used and left in place.
TEST_F(FetcherTest, WmiFindsAPresentIdInAnyCaseAndLeavesTheCallersComAsItWas) {
  const std::string lower = "pci\\ven_8086&dev_100e&subsys_001e8086&rev_02\\3&267a616a&1&18";
  EXPECT_EQ(1, CWMIFetcher::FindAdapter(lower.c_str()));
  EXPECT_EQ(0, CWMIFetcher::FindAdapter(kWinePnpId.substr(1).c_str()));
  ASSERT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
  EXPECT_TRUE(Win32Hardware().FindWmiAdapter(kWinePnpId));  // what the shipped library asks
  EXPECT_EQ(S_FALSE, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
  CoUninitialize();
  CoUninitialize();
  EXPECT_EQ(0, CWMIFetcher().InitService());  // without COM
  const std::string find =
      "TRACE KyGuid::CWMIFetcher::FindAdapterByPNPDeviceId (cwmifetcher): Find adapter in WMI: ";
  EXPECT_EQ(Log(), (Lines{find + lower, find + kWinePnpId,
                          "WARN KyGuid::CWMIFetcher::InitService (cwmifetcher): failed to create "
                          "IWbemLocator object: 0x800401f0"}));
}

TEST_F(FetcherTest, WmiAnswersInAProcessThatSetItsOwnSecurity) {
  ASSERT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
  ASSERT_EQ(S_OK, CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_CONNECT,
                                       RPC_C_IMP_LEVEL_IDENTIFY, nullptr, EOAC_NONE, nullptr));
  EXPECT_EQ(1, CWMIFetcher::FindAdapter(kWinePnpId.c_str()));
  EXPECT_EQ(S_FALSE, CoInitializeEx(nullptr, COINIT_MULTITHREADED));  // still the caller's
  CoUninitialize();
  CoUninitialize();
}

TEST_F(FetcherTest, AncientReadsSkipPlaceholderSerialsAndEmptyMiniportSlots) {
  // Punctuation at both the first and the twentieth character, or no serial.
  const char* serials[] = {"..ABCDEFGHIJKLMNOP--XY", "..ABCDEFGHIJKLMNOPA-XY", ""};
  for (int i = 0; i < 3; ++i) {
    m_machine.AddDrive(i).descriptor =
        SimulatedMachine::Descriptor("", "M", "R", serials[i], 11, false);
  }
  KyGuidSim::SimScsiController& port = m_machine.AddScsiController(1);
  port.identify[0] = std::vector<uint8_t>(512, 0);
  port.identify[0][55] = 'X';  // the model's first byte is zero: no device there
  std::vector<DiskInfo> disks;
  EXPECT_EQ(1, CAncientDiskFetcher::FetchWithZeroRights(disks) +
                   CAncientDiskFetcher::FetchAsScsiDrive(disks));
  EXPECT_EQ(std::to_string(disks[0].Index) + disks[0].SerialNumber, "1..BADCFEHGJILKNMPO-AYX");
  EXPECT_EQ(1, Said("INFO KyGuid::CAncientDiskFetcher::FetchWithZeroRights (ancientdiskfetcher): "
                    "fetch ancient disk, PID=M, Rev=R, SN=..BADCFEHGJILKNMPO-AYX"));
}

// The simulated drives read each request through the SDK's structures and
// check the miniport header, all but these two fields of it.
static_assert(offsetof(SRB_IO_CONTROL, Timeout) == kSrbTimeoutAt &&
              offsetof(SRB_IO_CONTROL, Length) == kSrbLengthAt);

std::string In(const char* function) {
  return std::string(" KyMacID::CHddFetcher::") + function + " (td\\hddfetcher): ";
}

TEST_F(FetcherTest,
       LegacyDriveReadsSendTheRequestsOfTheirProtocolAndTheFirstToAnswerGivesTheIdentity) {
  m_machine.AddDrive(0).identify = SimulatedMachine::Identify("  ADMIN", "ADM1", "A1");
  KyGuidSim::SimDrive& atapi = m_machine.AddDrive(1);
  atapi.identify = SimulatedMachine::Identify("CDROM", "CD1", "1.0");
  atapi.ideDeviceMap = 0x22;  // drive 1 present and ATAPI
  atapi.packetDevice = true;
  KyGuidSim::SimDrive& mislabelled = m_machine.AddDrive(2);  // the map says ATAPI, it is not
  mislabelled.identify = SimulatedMachine::Identify("DISK2", "D2", "R2");
  mislabelled.ideDeviceMap = 0x44;
  m_machine.AddDrive(3).descriptor =  // a placeholder serial, which only the ancient read skips
      SimulatedMachine::Descriptor("", "ZR", "Z1", "-.", 11, false);
  m_machine.AddScsiController(3).identify[1] = SimulatedMachine::Identify("PORT", "PORT1", "P1");
  std::vector<DiskInfo> disks;
  std::string serial, model, revision;
  std::vector<DriveRecord> drives = {{"stale", "", ""}};
  CHddFetcher hdd;
  // The opens' access/share, then per request: in size, cBufferSize, sector count,
  // drive/head, command and drive number, as the drive reads them through the SDK's structure.
  auto sent = [&] {
    char text[64];
    snprintf(text, sizeof(text), "%X/%u", m_machine.opens[0].access, m_machine.opens[0].share);
    std::string all = text;
    for (const KyGuidSim::AtaRequest& q : m_machine.ataRequests) {
      snprintf(text, sizeof(text), " %u/%u/%u/%02X/%02X/%u", q.inSize, q.bufferSize, q.sectorCount,
               q.driveHead, q.command, q.driveNumber);
      all += " " + std::string(q.device.begin() + 4, q.device.end()) + text;
    }
    m_machine.opens.clear();
    m_machine.ataRequests.clear();
    return all;
  };
  CAncientDiskFetcher::FetchWithAdminRights(disks);
  EXPECT_EQ(sent(),
            "C0000000/3 PhysicalDrive0 32/512/1/A0/EC/0 PhysicalDrive1 32/512/1/B0/A1/1 "
            "PhysicalDrive2 32/512/1/A0/A1/2");
  CAncientDiskFetcher::FetchUsingSmart(disks);
  EXPECT_EQ(sent(),
            "C0000000/7 PhysicalDrive0 33/0/0/00/EC/0 PhysicalDrive1 33/0/0/00/EC/0 PhysicalDrive2 "
            "33/0/0/00/EC/0");
  CAncientDiskFetcher::FetchAsScsiDrive(disks);
  EXPECT_EQ(sent(), "C0000000/3 Scsi3: 32/0/0/00/EC/0 Scsi3: 32/0/0/00/EC/1");
  CAncientDiskFetcher::FetchWithZeroRights(disks);
  EXPECT_EQ(sent(), "0/3");
  // The legacy scheme's strings stay as raw as it hashed them.
  std::string records;
  for (const DiskInfo& d : disks)
    records += std::to_string(d.Index) + "|" + d.ProductId + "|" + d.SerialNumber + " ";
  EXPECT_EQ(records, "0|  ADMIN|ADM1 1|CDROM|CD1 0|  ADMIN|ADM1 2|DISK2|D2 1|PORT|PORT1 ");
  DeleteFileA(LogPath().c_str());
  ASSERT_TRUE(hdd.GetPhysicsDriveIdentify(serial, model, revision, drives));
  EXPECT_EQ(drives.size(), 6u);  // admin rights, SCSI, descriptor and SMART each add theirs
  const std::string adminIn = In("ReadPhysicalDriveInNTWithAdminRights"),
                    scsiIn = In("ReadIdeDriveAsScsiDriveInNT");
  const std::string smartIn = In("ReadPhysicalDriveInNTUsingSmart"),
                    identify = In("GetPhysicsDriveIdentify");
  EXPECT_EQ(Log(),
            (Lines{"INFO" + identify + "GetPhysicsDriveIdentify VER_PLATFORM_WIN32_NT",
                   "INFO" + adminIn + "fetch disk[0],  PID=ADMIN, VID=A1, SN=ADM1",
                   "INFO" + adminIn + "fetch disk[1],  PID=CDROM, VID=1.0, SN=CD1",
                   "WARN" + adminIn + "fetch disk[2], DoIDENTIFY failed: 1",
                   "WARN" + adminIn + "fetch disk[3], DFP_GET_VERSION failed: 1",
                   "INFO" + identify +
                       "GetPhysicsDriveIdentify ReadPhysicalDriveInNTWithAdminRights "
                       "serialNumber=ADM1, modelNumber=ADMIN, revisionNumber=A1",
                   "WARN" + scsiIn + "fetch disk IOCTL_SCSI_MINIPORT failed: scsi3:0, error=1",
                   "INFO" + scsiIn + "fetch disk(scsi3:1),  PID=PORT, VID=P1, SN=PORT1",
                   "INFO" + In("ReadPhysicalDriveInNTWithZeroRights") +
                       "fetch disk[3],  PID=ZR, VID=Z1, SN=.-",
                   "INFO" + smartIn + "fetch disk[0],  PID=ADMIN, VID=A1, SN=ADM1",
                   "WARN" + smartIn + "fetch disk[1], SMART_RCV_DRIVE_DATA failed: 1",
                   "INFO" + smartIn + "fetch disk[2],  PID=DISK2, VID=R2, SN=D2",
                   "WARN" + smartIn + "fetch disk[3], SMART_GET_VERSION failed: 1"}));
}

bool IsRandText(const std::string& text) {
  return std::regex_match(text, std::regex("Rand_[A-Za-z]{8,32}"));
}

TEST_F(FetcherTest, RandomIdentityIsMadeOnceInHddDbWhenNoDriveAnswersAndReadByBothSchemes) {
  std::string serial, model, revision, again[3];
  std::vector<DriveRecord> drives;
  ASSERT_TRUE(
      CHddFetcher().GetPhysicsDriveIdentify(serial, model, revision, drives));  // no folder yet
  EXPECT_TRUE(IsRandText(serial) && IsRandText(model) && IsRandText(revision))
      << serial << model << revision;
  const std::string made =
      "serialNumber=" + serial + ", modelNumber=" + model + ", revisionNumber=" + revision;
  const std::string rand = In("ReadPhysicalDriveRand"), identify = In("GetPhysicsDriveIdentify");
  EXPECT_EQ(Log(),
            (Lines{"INFO" + identify + "GetPhysicsDriveIdentify VER_PLATFORM_WIN32_NT",
                   "INFO" + rand + "ReadPhysicalDriveRand begin",
                   "INFO" + rand +
                       "ReadPhysicalDriveRand read db serialNumber=, modelNumber=, revisionNumber=",
                   "INFO" + rand + "ReadPhysicalDriveRand Rand " + made,
                   "INFO" + identify + "GetPhysicsDriveIdentify ReadPhysicalDriveRand " + made}));
  Lines entered;
  for (const char* function : {"GetPhysicsDriveIdentify", "ReadPhysicalDriveInNTWithAdminRights",
                               "ReadIdeDriveAsScsiDriveInNT", "ReadPhysicalDriveInNTWithZeroRights",
                               "ReadPhysicalDriveInNTUsingSmart", "ReadPhysicalDriveRand",
                               "RandString", "RandString", "RandString"}) {
    entered.push_back("TRACE" + In(function) + "enter");
  }
  EXPECT_EQ(Log(true), entered);
  ASSERT_TRUE(CHddFetcher().GetPhysicsDriveIdentify(again[0], again[1], again[2], drives));
  EXPECT_EQ(again[0] + again[1] + again[2], serial + model + revision);
  DiskInfo disk;
  ASSERT_EQ(1, CAncientDiskFetcher::ReadRandDisk(disk));
  EXPECT_EQ(1, Said("INFO KyGuid::CAncientDiskFetcher::ReadRandDisk (ancientdiskfetcher): fetch "
                    "ancient rand disk, PID=" +
                    model + ", Rev=" + revision + ", SN=" + serial));
  // A file that lacks any of the three is no identity: all three are made anew.
  const char* keys[] = {"SerialNumber", "ModelNumber", "RevisionNumber"};
  for (const char* missing : keys) {
    std::string file = "[HDD]\r\n";
    for (const char* key : keys) file += key == missing ? "" : std::string(key) + "=kept\r\n";
    KyGuidTest::WriteWholeFile(ProfileDir() + "\\HDD.db", file);
    EXPECT_EQ(0, CAncientDiskFetcher::ReadRandDisk(disk)) << missing;
    ASSERT_TRUE(CHddFetcher().GetPhysicsDriveIdentify(again[0], again[1], again[2], drives));
    EXPECT_TRUE(IsRandText(again[0]) && IsRandText(again[1]) && IsRandText(again[2])) << missing;
  }
}

TEST(RandStringTest, LettersFromOneSequenceForTheWholeProcess) {
  for (int i = 0; i < 300; ++i) {
    std::string text;
    CHddFetcher::RandString(text);
    ASSERT_TRUE(IsRandText(text)) << text;
  }
  // Fresh threads go on with the one sequence; the runtime's per-thread one repeats.
  std::string texts[2];
  auto make = [](void* text) -> DWORD {
    return CHddFetcher::RandString(*static_cast<std::string*>(text)), 0;
  };
  HANDLE threads[] = {CreateThread(nullptr, 0, make, &texts[0], 0, nullptr),
                      CreateThread(nullptr, 0, make, &texts[1], 0, nullptr)};
  WaitForMultipleObjects(2, threads, TRUE, INFINITE);
  for (HANDLE thread : threads) CloseHandle(thread);
  EXPECT_NE(texts[0], texts[1]);
}

// Adapters as the IP helper and the registry describe them.
struct Nic {
  uint32_t type;         // 6 Ethernet, 23 PPP, 71 802.11, 131 tunnel
  int64_t mediaSubType;  // -1: no value
  const char* pnpId;     // "": no value
  bool noAddress = false;
};

TEST_F(FetcherTest, LegacyMacIsTheFirstAdapterUnlessABetterEthernetOrPppOneFollowsElseNetbios) {
  const Nic pci{6, 1, "PCI\\1"}, usb{6, 1, "USB\\1"}, other{6, -1, ""}, wifi{71, 2, "PCI\\1"};
  // Last byte of the chosen, then of each listed (Ethernet, PPP) address; NetBIOS: 0a, 0b.
  const struct {
    std::vector<Nic> nics;
    bool noHelper;
    const char* got;
  } cases[] = {
      {{other, pci}, false, "02: 01 02"},
      {{pci, pci}, false, "01: 01 02"},
      {{usb, {6, 1, "PCIE"}}, false, "02: 01 02"},    // the first three letters count,
      {{usb, {6, 1, "pci\\1"}}, false, "01: 01 02"},  // and exactly
      {{wifi, other, {131, -1, ""}, {23, -1, ""}, pci}, false, "05: 02 04 05"},
      {{other, wifi}, false, "01: 01"},  // 802.11 replaces none
      {{pci}, true, "0a: 0a 0b"},
      {std::vector<Nic>(17, pci), false, "0a: 0a 0b"},  // room for 16 only
      {{{6, 1, "PCI\\1", true}}, false, "0a: 0a 0b"},
  };
  MACAddress mac;
  std::vector<MACAddress> list = {mac};  // stale content goes
  auto got = [&] {
    std::string text = mac.ToString().substr(10) + ":";
    for (const MACAddress& listed : list) text += " " + listed.ToString().substr(10);
    return text;
  };
  for (const auto& c : cases) {
    m_machine = SimulatedMachine();
    for (const Nic& nic : c.nics) {
      const uint8_t n = static_cast<uint8_t>(&nic - c.nics.data() + 1);
      KyGuidSim::SimAdapter& adapter = m_machine.AddAdapter(
          "{" + std::to_string(n) + "}", "",
          nic.noAddress ? std::vector<uint8_t>(6) : std::vector<uint8_t>{2, 0, 0, 0, 0, n});
      adapter.type = nic.type;
      adapter.mediaSubType = nic.mediaSubType;
      adapter.pnpId = nic.pnpId;
    }
    m_machine.adapterApiMissing = c.noHelper;
    m_machine.AddLana(3, {0x11, 0x11, 0x11, 0x11, 0x11, 0x11}).statusResult = NRC_BRIDGE;
    m_machine.AddLana(0, {0x00, 0x50, 0x56, 0xC0, 0x00, 0x0A});
    m_machine.AddLana(7, {0x00, 0x50, 0x56, 0xC0, 0x00, 0x0B});
    ASSERT_TRUE(CMacFetcher().GetMAC(mac, list));
    EXPECT_EQ(got(), c.got) << &c - cases;
  }
  m_machine.netbiosEnumResult = NRC_SYSTEM;  // neither: a fixed address
  ASSERT_TRUE(CMacFetcher().GetMAC(mac, list));
  EXPECT_EQ(mac.ToString() + got(), "1a2b3c4d5e6f6f: 6f");
  EXPECT_EQ(1, Said("INFO KyMacID::CMacFetcher::GetMACbyAdapter (td\\macfetcher): fetch Adapter,  "
                    "mac=020000000004"));
  EXPECT_EQ(3, Said("INFO KyMacID::CMacFetcher::GetMACbyNetBiosStat (td\\macfetcher): fetch "
                    "Adapter,  mac=005056c0000b"));
}

}  // namespace
