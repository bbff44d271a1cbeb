// The fetchers on simulated machines (the current scheme's disks and
// adapters, the earlier scheme's disk reads, drive identity and MAC) and the
// WMI lookup against Wine's own WMI. Their log lines are part of what they
// do: support searches logs for them word for word.
#include <windows.h>
#include <nb30.h>
#include <ntddscsi.h>
#include <wbemidl.h>

#include <functional>
#include <regex>
#include <set>

#include "common/comraii.h"
#include "kyguidlib/ancientdiskfetcher.h"
#include "kyguidlib/cadapterfetcher.h"
#include "kyguidlib/cdiskfetcher.h"
#include "kyguidlib/cwmifetcher.h"
#include "kyguidlib/devicerequests.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/td/hddfetcher.h"
#include "kyguidlib/td/macfetcher.h"
#include "tests/testsupport.h"

namespace {

using namespace KyGuid;
using KyGuidSim::SimulatedMachine;
using KyMacID::CHddFetcher;
using Lines = std::vector<std::string>;

class FetcherTest : public KyGuidTest::IsolatedTest {
 protected:
  // The log as "LEVEL Function (file): text", without the folder all sources
  // share and, unless asked for, the TRACE marks of a function's entry.
  Lines Log(bool entries = false) const {
    static const std::regex kLine(
        R"(\S+ \S+ (\w+) \[[^\]]*\] (.*) \(ftcommon\\kyguid\\kyguidlib\\(.*):\d+\) err=0: (.*))");
    Lines said;
    std::smatch m;
    for (const std::string& line : LogLines()) {
      if (!std::regex_match(line, m, kLine)) said.push_back("unexpected: " + line);
      else if (entries || m[4] != "enter") said.push_back(m[1].str() + " " + m[2].str() + " (" + m[3].str() + "): " + m[4].str());
    }
    return said;
  }
  int Said(const std::string& item, bool entries = false) const {
    const Lines said = Log(entries);
    return static_cast<int>(std::count(said.begin(), said.end(), item));
  }
};

TEST_F(FetcherTest, DiskFetcherCleansFallsBackToSmartMarksTheSystemDisksAndLogsEachStep) {
  auto add = [&](int number, const char* product, const char* serial, uint32_t bus) -> auto& {
    KyGuidSim::SimDrive& drive = m_machine.AddDrive(number);
    drive.descriptor = SimulatedMachine::Descriptor("  ATA ", product, " FW01", serial, bus, bus == 7);
    return drive;
  };
  add(0, "  Samsung SSD 860  ", "4A5A2020", 11);  // the serial as hex text
  KyGuidSim::SimDrive& bridge = add(2, "Bridge", "", 7);
  bridge.identify = SimulatedMachine::Identify("Real Model", "SERIAL1", "R1");
  bridge.smartReturnedBytes = 16;
  m_machine.AddDrive(3).openError = KyGuidSim::kErrorAccessDenied;
  m_machine.AddDrive(4);  // opens, but the property query fails
  add(5, "Generic", "", 11).identify = SimulatedMachine::Identify("  ST500DM002", "W3T1ABCD", "KC45");
  KyGuidSim::SimDrive& atapi = add(6, "Optical", "", 17);  // refuses IDENTIFY DEVICE
  atapi.identify = SimulatedMachine::Identify("CD", "CD1", "1");
  atapi.packetDevice = true;
  add(7, "Nvme", "", 17);  // no SMART at all
  CDiskFetcher fetcher;
  fetcher.Fetch();  // no volume C: yet
  KyGuidSim::SimVolume& volume = m_machine.AddVolume(L'C');
  fetcher.Fetch();  // one without extents
  const std::string system = "WARN KyGuid::CDiskFetcher::UpdateSystemMask (cdiskfetcher): UpdateSystemInfo[C:] ";
  EXPECT_EQ(1, Said(system + "createfile failed: 2"));
  EXPECT_EQ(1, Said(system + "IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS failed: 1"));
  volume.extents = SimulatedMachine::Extents({{5, 1000}, {6, 5000}, {0, 0}, {300, 100}});
  DeleteFileA(LogPath().c_str());
  m_machine.opens.clear();
  ASSERT_EQ(5, fetcher.Fetch());  // each fetch starts afresh
  const std::string in = "KyGuid::CDiskFetcher::Fetch (cdiskfetcher): ", disk = "INFO " + in + "Fetch Disk[";
  const std::string smart = "KyGuid::CDiskSmartFetcher::Fetch (cdisksmartfetcher): ";
  const std::string volumeOn = "INFO KyGuid::CDiskFetcher::UpdateSystemMask (cdiskfetcher): System Volume[C:] is on Disk[";
  EXPECT_EQ(Log(), (Lines{
      "WARN " + smart + "Disk[2] SMART_RCV_DRIVE_DATA failed: too less data, len=16",
      "WARN KyGuid::CDiskFetcher::FetchDisk (cdiskfetcher): Open Disk[3] failed: 5",
      "WARN KyGuid::CDiskFetcher::FetchDisk (cdiskfetcher): IOCTL_STORAGE_QUERY_PROPERTY Disk[4] failed: 1",
      "INFO " + smart + "SMART fetch disk, PID=ST500DM002, Rev=KC45, SN=W3T1ABCD",
      "WARN " + smart + "Disk[6] SMART_RCV_DRIVE_DATA failed: 1",
      "WARN " + smart + "Disk[7] SMART_GET_VERSION failed: 1",
      "INFO " + in + "Fetch 5 Disks", volumeOn + "5]", volumeOn + "6]",
      disk + "0]=> Model[Samsung SSD 860], Revision[FW01], SN[ZJ], Vendor[ATA], Bus[11], RemoveMedia[NO], System[NO], Score[100]",
      disk + "2]=> Model[Bridge], Revision[FW01], SN[], Vendor[ATA], Bus[7], RemoveMedia[YES], System[NO], Score[35]",
      disk + "5]=> Model[ST500DM002], Revision[KC45], SN[W3T1ABCD], Vendor[ATA], Bus[11], RemoveMedia[NO], System[YES], Score[100]",
      disk + "6]=> Model[Optical], Revision[FW01], SN[], Vendor[ATA], Bus[17], RemoveMedia[NO], System[YES], Score[100]",
      disk + "7]=> Model[Nvme], Revision[FW01], SN[], Vendor[ATA], Bus[17], RemoveMedia[NO], System[NO], Score[90]"}));
  EXPECT_TRUE(fetcher.Disks()[2].Has(DiskInfo::kBestDisk));  // 150 beats the other system disk
  // The property query needs no rights, though some drivers answer it only
  // after a read; SMART needs read and write.
  std::vector<std::pair<uint32_t, uint32_t>> modes;
  for (const auto& open : m_machine.opens)
    if (open.path == L"\\\\.\\PhysicalDrive5") modes.emplace_back(open.access, open.share);
  EXPECT_EQ(modes, (decltype(modes){{kGenericRead, 1}, {kQueryOnly, 3}, {kReadWrite, 3}}));
}

TEST_F(FetcherTest, AdapterFetcherCleansTheNameRatesThroughTheRegistryAndSkipsAddresslessOnes) {
  m_machine.AddAdapter("{TUNNEL}", "Teredo Tunneling", {}).type = 131;
  KyGuidSim::SimAdapter& nic = m_machine.AddAdapter("  {{4F3A-11}}  ", "Intel(R) Ethernet", {0, 0x11, 0x22, 0xAA, 0xBB, 0xCC});
  nic.pnpId = "PCI\\VEN_8086&DEV_15B8\\3&1";
  nic.index = 7;
  CAdapterFetcher fetcher;
  ASSERT_EQ(1, fetcher.Fetch());
  EXPECT_TRUE(fetcher.Adapters()[0].Has(AdapterInfo::kBestAdapter));
  EXPECT_EQ(Log(), (Lines{"TRACE KyGuid::CIpHelpFetcher::QueryAdapter (ciphelpfetcher): Fetch no mac Adapter[11]=> Guid[{TUNNEL}], Desc[Teredo Tunneling], Proto[131]",
                          "INFO KyGuid::CAdapterFetcher::Fetch (cadapterfetcher): Fetch 1 Adapters",
                          "INFO KyGuid::CAdapterFetcher::Fetch (cadapterfetcher): Fetch Adapter[07]=> Guid[4F3A-11], Desc[Intel(R) Ethernet], Address[001122aabbcc], Proto[6], Type[110], Score[110]"}));
}

TEST_F(FetcherTest, AdapterListFailuresLeaveItEmptyAndAnOverflowIsRetriedOnceWithTwiceTheSize) {
  const std::string query = "ERROR KyGuid::CIpHelpFetcher::QueryAdapter (ciphelpfetcher): ";
  const struct {
    bool missing;
    uint32_t error, growth;  // growth: what the list grows by between two calls
    int listed;
    std::string said;
  } cases[] = {
      {true, 0, 0, 0, query + "adapter api failed: maybe iphlpapi.dll miss"},
      {false, 87, 0, 0, query + "GetAdaptersInfo failed: 87"},
      {false, 0, 100000, 0, query + "GetAdaptersInfo failed: 111"},
      {false, 0, 640, 9, "INFO KyGuid::CAdapterFetcher::Fetch (cadapterfetcher): Fetch 9 Adapters"},
  };
  for (const auto& c : cases) {
    m_machine = SimulatedMachine();
    for (int i = 0; i < 9; ++i) m_machine.AddAdapter("{N" + std::to_string(i) + "}", "", {1, 2});
    m_machine.adapterApiMissing = c.missing;
    m_machine.adapterQueryError = c.error;
    m_machine.adapterSizeGrowth = c.growth;
    EXPECT_EQ(c.listed, CAdapterFetcher().Fetch()) << c.said;
    EXPECT_EQ(1, Said(c.said));
  }
}

class WmiFetcherTest : public FetcherTest {
 protected:
  // The lookup is checked against an answer of the test's own: the first
  // PNPDeviceID that WMI lists for a network adapter.
  void SetUp() override {
    FetcherTest::SetUp();
    CoInitializeEx(nullptr, COINIT_MULTITHREADED);
    {
      KyGuidUtils::ComPtr<IWbemLocator> locator;
      KyGuidUtils::ComPtr<IWbemServices> services;
      KyGuidUtils::ComPtr<IEnumWbemClassObject> adapters;
      KyGuidUtils::ComPtr<IWbemClassObject> adapter;
      KyGuidUtils::ScopedBstr resource(L"ROOT\\CIMV2"), language(L"WQL"),
          query(L"SELECT PNPDeviceID FROM Win32_NetworkAdapter WHERE PNPDeviceID IS NOT NULL");
      KyGuidUtils::ScopedVariant id;
      ULONG returned = 0;
      if (SUCCEEDED(CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator, locator.put_void())) &&
          SUCCEEDED(locator->ConnectServer(resource.get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr, services.put())) &&
          SUCCEEDED(services->ExecQuery(language.get(), query.get(), WBEM_FLAG_FORWARD_ONLY, nullptr, adapters.put())) &&
          SUCCEEDED(adapters->Next(10000, 1, adapter.put(), &returned)) && returned == 1 &&
          SUCCEEDED(adapter->Get(L"PNPDeviceID", 0, id.get(), nullptr, nullptr)) && V_VT(&id.value()) == VT_BSTR) {
        m_present = WideToAnsi(V_BSTR(&id.value()));
      }
    }
    CoUninitialize();
    ASSERT_FALSE(m_present.empty()) << "this Wine lists no network adapter with a PNPDeviceID";
  }
  std::string m_present;
};

TEST_F(WmiFetcherTest, FindsAPresentIdInAnyCaseAndNothingElse) {
  std::string otherCase = m_present;
  for (char& c : otherCase) c = static_cast<char>(isupper(c) ? tolower(c) : toupper(c));
  ASSERT_NE(m_present, otherCase);
  EXPECT_EQ(1, CWMIFetcher::FindAdapter(otherCase.c_str()));
  EXPECT_EQ(0, CWMIFetcher::FindAdapter(""));
  EXPECT_EQ(0, CWMIFetcher::FindAdapter(m_present.substr(0, m_present.size() - 1).c_str()));
  EXPECT_TRUE(Win32Hardware().FindWmiAdapter(m_present));  // what the shipped library asks
  const std::string found = "TRACE KyGuid::CWMIFetcher::FindAdapterByPNPDeviceId (cwmifetcher): Find adapter in WMI: ";
  EXPECT_EQ(Log(), (Lines{found + otherCase, found + m_present}));
}

// The lookup runs inside every process of the suite: a thread it finds
// without COM stays so, and a caller's single-threaded apartment is used and
// left in place.
TEST_F(WmiFetcherTest, LeavesTheCallersComAsItWas) {
  ASSERT_EQ(1, CWMIFetcher::FindAdapter(m_present.c_str()));
  ASSERT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
  EXPECT_EQ(1, CWMIFetcher::FindAdapter(m_present.c_str()));
  EXPECT_EQ(S_FALSE, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
  CoUninitialize();
  CoUninitialize();
  EXPECT_EQ(0, CWMIFetcher().InitService());  // without COM
  EXPECT_EQ(1, Said("WARN KyGuid::CWMIFetcher::InitService (cwmifetcher): failed to create IWbemLocator object: 0x800401f0"));
}

TEST_F(WmiFetcherTest, AnswersInAProcessThatSetItsOwnSecurity) {
  ASSERT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
  ASSERT_EQ(S_OK, CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_CONNECT,
                                       RPC_C_IMP_LEVEL_IDENTIFY, nullptr, EOAC_NONE, nullptr));
  EXPECT_EQ(1, CWMIFetcher::FindAdapter(m_present.c_str()));
  EXPECT_EQ(S_FALSE, CoInitializeEx(nullptr, COINIT_MULTITHREADED));  // still the caller's
  CoUninitialize();
  CoUninitialize();
}

// The simulated drives read what arrives through the SDK's structures and
// check the miniport header's length, signature and code; these two fields
// they do not read.
static_assert(offsetof(SRB_IO_CONTROL, Timeout) == kSrbTimeoutAt && offsetof(SRB_IO_CONTROL, Length) == kSrbLengthAt, "");

TEST_F(FetcherTest, LegacyReadersSendTheRequestsOfTheirProtocol) {
  m_machine.AddDrive(0).identify = SimulatedMachine::Identify("DISK0", "S0", "R0");
  KyGuidSim::SimDrive& atapi = m_machine.AddDrive(1);
  atapi.identify = SimulatedMachine::Identify("CDROM1", "S1", "R1");
  atapi.ideDeviceMap = 0x22;  // drive 1 present and ATAPI
  atapi.packetDevice = true;
  KyGuidSim::SimDrive& unmapped = m_machine.AddDrive(2);
  unmapped.identify = SimulatedMachine::Identify("DISK2", "S2", "R2");
  unmapped.ideDeviceMap = 0;
  m_machine.AddScsiController(3);
  const std::string full = " in=32 buf=512 count=1 head=", command = " in=33 buf=0 count=0 head=00 cmd=EC drive=0";
  const Lines admin = {"PhysicalDrive0" + full + "A0 cmd=EC drive=0", "PhysicalDrive1" + full + "B0 cmd=A1 drive=1"};
  const Lines smart = {"PhysicalDrive0" + command, "PhysicalDrive1" + command, "PhysicalDrive2" + command};
  const Lines scsi = {"Scsi3: in=32 buf=0 count=0 head=00 cmd=EC drive=0", "Scsi3: in=32 buf=0 count=0 head=00 cmd=EC drive=1"};
  std::vector<DiskInfo> disks;
  std::string serial, model, revision;
  std::vector<KyMacID::DriveRecord> drives;
  CHddFetcher hdd;
  const struct {
    std::function<void()> read;
    uint32_t access, share;
    Lines sent;
  } readers[] = {
      {[&] { CAncientDiskFetcher::FetchWithAdminRights(disks); }, kReadWrite, 3, admin},
      {[&] { hdd.ReadPhysicalDriveInNTWithAdminRights(serial, model, revision, drives); }, kReadWrite, 3, admin},
      {[&] { CAncientDiskFetcher::FetchUsingSmart(disks); }, kReadWrite, 7, smart},
      {[&] { hdd.ReadPhysicalDriveInNTUsingSmart(serial, model, revision, drives); }, kReadWrite, 3, smart},
      {[&] { CAncientDiskFetcher::FetchAsScsiDrive(disks); }, kReadWrite, 3, scsi},
      {[&] { hdd.ReadIdeDriveAsScsiDriveInNT(serial, model, revision, drives); }, kReadWrite, 3, scsi},
      {[&] { CAncientDiskFetcher::FetchWithZeroRights(disks); }, kQueryOnly, 3, {}},
      {[&] { hdd.ReadPhysicalDriveInNTWithZeroRights(serial, model, revision, drives); }, kQueryOnly, 3, {}},
  };
  for (const auto& reader : readers) {
    m_machine.opens.clear();
    m_machine.ataRequests.clear();
    reader.read();
    Lines sent;
    for (const KyGuidSim::AtaRequest& r : m_machine.ataRequests) {
      char text[64];
      snprintf(text, sizeof(text), " in=%u buf=%u count=%u head=%02X cmd=%02X drive=%u", r.inSize,
               r.bufferSize, r.sectorCount, r.driveHead, r.command, r.driveNumber);
      sent.push_back(WideToAnsi(r.device.substr(4)) + text);
    }
    EXPECT_EQ(sent, reader.sent) << "reader " << &reader - readers;
    EXPECT_EQ(m_machine.opens[0].access * 8 + m_machine.opens[0].share, reader.access * 8 + reader.share) << "reader " << &reader - readers;
  }
}

TEST_F(FetcherTest, AncientReadsAppendTheRawStringsTheEarlierSchemeHashed) {
  m_machine.AddDrive(0).identify = SimulatedMachine::Identify("  Padded Model", " SN77", "FW1");
  // Punctuation at the first and the twentieth character marks a placeholder.
  const char* serials[] = {"4a5a4b4c4d4e4f", "..ABCDEFGHIJKLMNOP--XY", "..ABCDEFGHIJKLMNOPA-XY", ""};
  for (int i = 0; i < 4; ++i) {
    m_machine.AddDrive(i + 1).descriptor = SimulatedMachine::Descriptor("", "  Model Z  ", "CC43", serials[i], 11, false);
  }
  m_machine.AddScsiController(0).openError = KyGuidSim::kErrorAccessDenied;
  KyGuidSim::SimScsiController& port = m_machine.AddScsiController(1);
  port.identify[0] = std::vector<uint8_t>(512, 0);
  port.identify[0][55] = 'X';  // the model's first byte is zero: no device there
  port.identify[1] = SimulatedMachine::Identify("  Padded Model", " SN77", "FW1");
  std::vector<DiskInfo> disks(1);  // earlier records stay
  EXPECT_EQ(1, CAncientDiskFetcher::FetchWithAdminRights(disks));
  EXPECT_EQ(1, CAncientDiskFetcher::FetchUsingSmart(disks));
  EXPECT_EQ(1, CAncientDiskFetcher::FetchAsScsiDrive(disks));
  EXPECT_EQ(2, CAncientDiskFetcher::FetchWithZeroRights(disks));
  std::string records;
  for (const DiskInfo& d : disks) records += std::to_string(d.Index) + "|" + d.ProductId + "|" + d.Revision + "|" + d.SerialNumber + "\n";
  EXPECT_EQ(records, "-1|||\n0|  Padded Model|FW1| SN77\n0|  Padded Model|FW1| SN77\n1|  Padded Model|FW1| SN77\n"
                     "1|Model Z|CC43|ZJLKNM\n3|Model Z|CC43|..BADCFEHGJILKNMPO-AYX\n");
  CAncientDiskFetcher::CalcDiskGuid("b", "c", "a");
  EXPECT_EQ(Log().size(), 6u);  // nothing about the devices that did not answer
  EXPECT_EQ(1, Said("INFO KyGuid::CAncientDiskFetcher::FetchWithZeroRights (ancientdiskfetcher): fetch ancient disk, PID=Model Z, Rev=CC43, SN=ZJLKNM"));
  EXPECT_EQ(1, Said("TRACE KyGuid::CAncientDiskFetcher::CalcDiskGuid (ancientdiskfetcher): Calc disk Guid: abc-->900150983cd24fb0d6963f7d28e17f72"));
}

TEST_F(FetcherTest, LegacyIdentityComesFromTheFirstReaderThatAnswersAndEveryReaderListsItsDrives) {
  m_machine.AddDrive(0).identify = SimulatedMachine::Identify("  ADMIN MODEL", "ADM123", "A1");
  m_machine.AddDrive(1).descriptor = SimulatedMachine::Descriptor("", "ZR MODEL", "Z1", "ZR4567", 11, false);
  KyGuidSim::SimDrive& mislabelled = m_machine.AddDrive(2);  // the map says ATAPI, it is not
  mislabelled.identify = SimulatedMachine::Identify("DISK2", "D2", "R2");
  mislabelled.ideDeviceMap = 0x44;
  KyGuidSim::SimDrive& atapi = m_machine.AddDrive(3);
  atapi.identify = SimulatedMachine::Identify("CDROM", "CD3", "1.0");
  atapi.ideDeviceMap = 0x88;
  atapi.packetDevice = true;
  m_machine.AddScsiController(2).identify[1] = SimulatedMachine::Identify("PORT MODEL", "PORT1", "P1");
  std::string serial, model, revision;
  std::vector<KyMacID::DriveRecord> drives = {{"stale", "stale", "stale"}};
  ASSERT_TRUE(CHddFetcher().GetPhysicsDriveIdentify(serial, model, revision, drives));
  EXPECT_EQ(serial + "|" + model + "|" + revision, "ADM123|ADMIN MODEL|A1");
  std::string serials;
  for (const KyMacID::DriveRecord& drive : drives) serials += drive.SerialNumber + " ";
  EXPECT_EQ(serials, "ADM123 CD3 PORT1 RZ5476 ADM123 D2 ");  // admin, SCSI, descriptor, SMART
  auto in = [](const char* function) { return " KyMacID::CHddFetcher::" + std::string(function) + " (td\\hddfetcher): "; };
  const std::string admin = in("ReadPhysicalDriveInNTWithAdminRights"), scsi = in("ReadIdeDriveAsScsiDriveInNT");
  const std::string zero = in("ReadPhysicalDriveInNTWithZeroRights"), smart = in("ReadPhysicalDriveInNTUsingSmart");
  EXPECT_EQ(Log(), (Lines{
      "INFO" + in("GetPhysicsDriveIdentify") + "GetPhysicsDriveIdentify VER_PLATFORM_WIN32_NT",
      "INFO" + admin + "fetch disk[0],  PID=ADMIN MODEL, VID=A1, SN=ADM123",
      "WARN" + admin + "fetch disk[1], DFP_GET_VERSION failed: 1",
      "WARN" + admin + "fetch disk[2], DoIDENTIFY failed: 1",
      "INFO" + admin + "fetch disk[3],  PID=CDROM, VID=1.0, SN=CD3",
      "INFO" + in("GetPhysicsDriveIdentify") + "GetPhysicsDriveIdentify ReadPhysicalDriveInNTWithAdminRights serialNumber=ADM123, modelNumber=ADMIN MODEL, revisionNumber=A1",
      "WARN" + scsi + "fetch disk IOCTL_SCSI_MINIPORT failed: scsi2:0, error=1",
      "INFO" + scsi + "fetch disk(scsi2:1),  PID=PORT MODEL, VID=P1, SN=PORT1",
      "INFO" + zero + "fetch disk[1],  PID=ZR MODEL, VID=Z1, SN=RZ5476",
      "INFO" + smart + "fetch disk[0],  PID=ADMIN MODEL, VID=A1, SN=ADM123",
      "WARN" + smart + "fetch disk[1], SMART_GET_VERSION failed: 1",
      "INFO" + smart + "fetch disk[2],  PID=DISK2, VID=R2, SN=D2",
      "WARN" + smart + "fetch disk[3], SMART_RCV_DRIVE_DATA failed: 1"}));
}

// "Rand_" and 8 to 32 letters.
bool IsRandText(const std::string& text) {
  return std::regex_match(text, std::regex("Rand_[A-Za-z]{8,32}"));
}

TEST_F(FetcherTest, RandomIdentityIsMadeOnceInHddDbWhenNoDriveAnswersAndReadByBothSchemes) {
  DiskInfo disk;
  EXPECT_EQ(0, CAncientDiskFetcher::ReadRandDisk(disk));  // no file yet
  std::string serial, model, revision, again[3];
  std::vector<KyMacID::DriveRecord> drives;
  ASSERT_TRUE(CHddFetcher().GetPhysicsDriveIdentify(serial, model, revision, drives));  // no folder yet
  EXPECT_TRUE(IsRandText(serial) && IsRandText(model) && IsRandText(revision)) << serial << model << revision;
  auto in = [](const char* function) { return " KyMacID::CHddFetcher::" + std::string(function) + " (td\\hddfetcher): "; };
  const std::string identify = in("GetPhysicsDriveIdentify"), rand = in("ReadPhysicalDriveRand");
  const std::string made = "serialNumber=" + serial + ", modelNumber=" + model + ", revisionNumber=" + revision;
  EXPECT_EQ(Log(true), (Lines{"TRACE KyGuid::CAncientDiskFetcher::ReadRandDisk (ancientdiskfetcher): ReadPhysicalDriveRand begin",
                              "TRACE" + identify + "enter",
                              "INFO" + identify + "GetPhysicsDriveIdentify VER_PLATFORM_WIN32_NT",
                              "TRACE" + in("ReadPhysicalDriveInNTWithAdminRights") + "enter",
                              "TRACE" + in("ReadIdeDriveAsScsiDriveInNT") + "enter",
                              "TRACE" + in("ReadPhysicalDriveInNTWithZeroRights") + "enter",
                              "TRACE" + in("ReadPhysicalDriveInNTUsingSmart") + "enter",
                              "TRACE" + rand + "enter",
                              "INFO" + rand + "ReadPhysicalDriveRand begin",
                              "INFO" + rand + "ReadPhysicalDriveRand read db serialNumber=, modelNumber=, revisionNumber=",
                              "TRACE" + in("RandString") + "enter",
                              "TRACE" + in("RandString") + "enter",
                              "TRACE" + in("RandString") + "enter",
                              "INFO" + rand + "ReadPhysicalDriveRand Rand " + made,
                              "INFO" + identify + "GetPhysicsDriveIdentify ReadPhysicalDriveRand " + made}));
  ASSERT_TRUE(CHddFetcher().GetPhysicsDriveIdentify(again[0], again[1], again[2], drives));
  ASSERT_EQ(1, CAncientDiskFetcher::ReadRandDisk(disk));
  EXPECT_EQ(again[0] + again[1] + again[2], serial + model + revision);
  EXPECT_EQ(disk.SerialNumber + disk.ProductId + disk.Revision, serial + model + revision);
  EXPECT_EQ(1, Said("INFO KyGuid::CAncientDiskFetcher::ReadRandDisk (ancientdiskfetcher): fetch ancient rand disk, PID=" + model + ", Rev=" + revision + ", SN=" + serial));
  // With a value missing, the earlier scheme takes none and the legacy
  // identity makes all three anew.
  KyGuidTest::IniWrite(ProfileDir() + "\\HDD.db", "HDD", "RevisionNumber", "");
  EXPECT_EQ(0, CAncientDiskFetcher::ReadRandDisk(disk));
  EXPECT_EQ(disk.Revision, revision);
  ASSERT_TRUE(CHddFetcher().GetPhysicsDriveIdentify(again[0], again[1], again[2], drives));
  EXPECT_TRUE(again[0] != serial && again[1] != model && IsRandText(again[2]));
  m_folders->Fail();
  EXPECT_FALSE(CHddFetcher().GetPhysicsDriveIdentify(again[0], again[1], again[2], drives));
  EXPECT_EQ(1, Said("ERROR" + rand + "failed to get common appdata dir: 0x80004005"));
}

DWORD WINAPI RandOnThread(void* text) {
  CHddFetcher::RandString(*static_cast<std::string*>(text));
  return 0;
}

TEST(RandStringTest, EveryLengthAndBothCasesFromOneSequenceForTheWholeProcess) {
  std::set<size_t> lengths;
  std::string letters;
  for (int i = 0; i < 300; ++i) {
    std::string text;
    CHddFetcher::RandString(text);
    ASSERT_TRUE(IsRandText(text)) << text;
    lengths.insert(text.size());
    letters += text;
  }
  EXPECT_EQ(lengths.size(), 25u);
  EXPECT_TRUE(std::regex_search(letters, std::regex("[A-Z][a-z]")));
  // Fresh threads continue the one sequence; a generator with per-thread
  // state would hand both the same text.
  std::string first, second;
  HANDLE threads[] = {CreateThread(nullptr, 0, RandOnThread, &first, 0, nullptr),
                      CreateThread(nullptr, 0, RandOnThread, &second, 0, nullptr)};
  WaitForMultipleObjects(2, threads, TRUE, INFINITE);
  CloseHandle(threads[0]);
  CloseHandle(threads[1]);
  EXPECT_NE(first, second);
}

// Adapters as the IP helper and the registry describe them; the n-th one of
// a machine has the address 02 00 00 00 00 0n unless it has none.
struct Nic {
  uint32_t type;         // 6 Ethernet, 23 PPP, 71 802.11
  int64_t mediaSubType;  // -1: no value
  const char* pnpId;     // "": no value
  bool noAddress = false;
};
void AddNics(SimulatedMachine& machine, const std::vector<Nic>& nics) {
  for (const Nic& nic : nics) {
    const uint8_t n = static_cast<uint8_t>(&nic - nics.data() + 1);
    KyGuidSim::SimAdapter& adapter = machine.AddAdapter("{GUID-" + std::to_string(n) + "}", "", {2, 0, 0, 0, 0, n});
    if (nic.noAddress) adapter.address.assign(6, 0);
    adapter.type = nic.type;
    adapter.mediaSubType = nic.mediaSubType;
    adapter.pnpId = nic.pnpId;
  }
}

TEST_F(FetcherTest, LegacyMacIsTheFirstAdapterUnlessAStrictlyBetterEthernetOrPppOneFollows) {
  const Nic pci{6, 1, "PCI\\VEN_8086"}, usb{6, 1, "USB\\VID_0B95"}, other{6, -1, ""}, wifi{71, 2, "PCI\\1"};
  const struct {
    const char* what;
    std::vector<Nic> nics;
    char chosen;
  } cases[] = {
      {"PCI after another kind", {other, pci}, '2'},
      {"the first of two equal", {pci, pci}, '1'},
      {"PCIE counts as PCI", {usb, {6, 1, "PCIE"}}, '2'},
      {"the prefix is matched exactly", {usb, {6, 1, "pci\\ven_8086"}}, '1'},
      {"MediaSubType 2 is wireless, better than wired off PCI", {usb, {6, 2, ""}}, '2'},
      {"MediaSubType 3 is some other kind", {{6, 3, "PCI\\VEN_8086"}, usb}, '2'},
      {"Ethernet after 802.11", {wifi, pci}, '2'},
      {"no 802.11 after Ethernet", {other, wifi}, '1'},
      {"PPP counts", {usb, {23, 1, "PCI\\1"}}, '2'},
      {"an address after none", {{6, 1, "PCI\\1", true}, other}, '2'},
      {"step by step", {other, usb, pci}, '3'},
  };
  for (const auto& c : cases) {
    m_machine = SimulatedMachine();
    AddNics(m_machine, c.nics);
    KyMacID::MACAddress mac;
    std::vector<KyMacID::MACAddress> list;
    EXPECT_TRUE(KyMacID::CMacFetcher().GetMAC(mac, list));
    EXPECT_EQ(mac.ToString(), std::string("02000000000") + c.chosen) << c.what;
  }
}

TEST_F(FetcherTest, LegacyMacListHoldsEveryEthernetAndPppAddressElseNetbiosElseAFixedOne) {
  AddNics(m_machine, {{71, 2, "PCI\\W"}, {6, -1, ""}, {131, -1, ""}, {23, -1, ""}, {6, 1, "PCI\\E"}});
  KyMacID::MACAddress mac;
  std::vector<KyMacID::MACAddress> list = {mac};  // stale content goes
  auto got = [&] {
    std::string text = mac.ToString() + ":";
    for (const KyMacID::MACAddress& listed : list) text += " " + listed.ToString();
    return text;
  };
  ASSERT_TRUE(KyMacID::CMacFetcher().GetMAC(mac, list));
  EXPECT_EQ(got(), "020000000005: 020000000002 020000000004 020000000005");
  EXPECT_EQ(1, Said("INFO KyMacID::CMacFetcher::GetMACbyAdapter (td\\macfetcher): fetch Adapter,  mac=020000000004"));
  // The list fails without the IP helper, on an error, with more than the 16
  // adapters it has room for, and with no address set: then NetBIOS
  // answers, from every LAN adapter that answers after a reset.
  for (int failure = 0; failure < 4; ++failure) {
    m_machine = SimulatedMachine();
    AddNics(m_machine, std::vector<Nic>(failure == 2 ? 17 : 1, Nic{6, 1, "PCI\\E", failure == 3}));
    m_machine.adapterApiMissing = failure == 0;
    m_machine.adapterQueryError = failure == 1 ? 87 : 0;
    m_machine.AddLana(3, {0x11, 0x11, 0x11, 0x11, 0x11, 0x11}).statusResult = NRC_BRIDGE;
    m_machine.AddLana(0, {0x00, 0x50, 0x56, 0xC0, 0x00, 0x01});
    m_machine.AddLana(7, {0x00, 0x50, 0x56, 0xC0, 0x00, 0x02});
    ASSERT_TRUE(KyMacID::CMacFetcher().GetMAC(mac, list));
    EXPECT_EQ(got(), "005056c00001: 005056c00001 005056c00002") << "failure " << failure;
  }
  EXPECT_EQ(4, Said("INFO KyMacID::CMacFetcher::GetMACbyNetBiosStat (td\\macfetcher): fetch Adapter,  mac=005056c00002"));
  m_machine.netbiosEnumResult = NRC_SYSTEM;
  ASSERT_TRUE(KyMacID::CMacFetcher().GetMAC(mac, list));
  EXPECT_EQ(got(), "1a2b3c4d5e6f: 1a2b3c4d5e6f");
  for (const char* entered : {"MACAddress", "operator =", "ToString"}) {
    EXPECT_LT(0, Said("TRACE MACAddress::" + std::string(entered) + " (td\\macfetcher): enter", true));
  }
}

}  // namespace
