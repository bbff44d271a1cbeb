// The legacy drive identity on simulated machines: which reader provides the
// identity, what each sends to the device, and the random identity in HDD.db.
#include "kyguidlib/td/hddfetcher.h"

#include <algorithm>
#include <set>

#include "tests/testsupport.h"

namespace {

using KyGuidSim::AtaRequest;
using KyGuidSim::SimulatedMachine;
using KyMacID::CHddFetcher;
using KyMacID::DriveRecord;

constexpr uint32_t kSata = 11;

// "Rand_" and 8 to 32 letters.
bool IsRandText(const std::string& text) {
  if (text.compare(0, 5, "Rand_") != 0) return false;
  const std::string letters = text.substr(5);
  return letters.size() >= 8 && letters.size() <= 32 &&
         std::all_of(letters.begin(), letters.end(),
                     [](char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); });
}

class HddFetcherTest : public KyGuidTest::IsolatedTest {
 protected:
  std::string DbPath() const { return ProfileDir() + "\\HDD.db"; }

  void WriteDb(const char* serial, const char* model, const char* revision) {
    KyGuidTest::MakeDirs(ProfileDir());
    if (serial) KyGuidTest::IniWrite(DbPath(), "HDD", "SerialNumber", serial);
    if (model) KyGuidTest::IniWrite(DbPath(), "HDD", "ModelNumber", model);
    if (revision) KyGuidTest::IniWrite(DbPath(), "HDD", "RevisionNumber", revision);
  }

  bool Identify() {
    serial = model = revision = "untouched";
    return CHddFetcher().GetPhysicsDriveIdentify(serial, model, revision, drives);
  }

  std::string serial, model, revision;
  std::vector<DriveRecord> drives;
};

TEST_F(HddFetcherTest, FirstSucceedingReaderGivesTheIdentityAndEveryReaderAddsItsDrives) {
  // Drive 0 answers both SMART readers, drive 1 only the descriptor query.
  m_machine.AddDrive(0).identify = SimulatedMachine::Identify("ADMIN MODEL", "ADM123", "A1");
  m_machine.AddDrive(1).descriptor =
      SimulatedMachine::Descriptor("", "ZR MODEL", "Z1", "ZR4567", kSata, false);
  drives.push_back(DriveRecord{"stale", "stale", "stale"});

  ASSERT_TRUE(Identify());
  EXPECT_EQ("ADM123", serial);
  EXPECT_EQ("ADMIN MODEL", model);
  EXPECT_EQ("A1", revision);

  // Admin rights, then zero rights, then SMART; the list was cleared first.
  ASSERT_EQ(3u, drives.size());
  EXPECT_EQ("ADM123", drives[0].SerialNumber);
  EXPECT_EQ("RZ5476", drives[1].SerialNumber);  // the descriptor serial is flipped
  EXPECT_EQ("ZR MODEL", drives[1].ModelNumber);
  EXPECT_EQ("ADM123", drives[2].SerialNumber);

  EXPECT_EQ(1, CountLog("GetPhysicsDriveIdentify VER_PLATFORM_WIN32_NT"));
  EXPECT_EQ(1, CountLog("GetPhysicsDriveIdentify ReadPhysicalDriveInNTWithAdminRights "
                        "serialNumber=ADM123, modelNumber=ADMIN MODEL, revisionNumber=A1"));
  EXPECT_EQ(0, CountLog("GetPhysicsDriveIdentify ReadPhysicalDriveInNTWithZeroRights"));
  EXPECT_EQ(0, CountLog("GetPhysicsDriveIdentify ReadPhysicalDriveInNTUsingSmart"));
  EXPECT_EQ(0, CountLog("ReadPhysicalDriveRand begin"));
  EXPECT_EQ("", KyGuidTest::ReadWholeFile(DbPath()));

  EXPECT_EQ(2, CountLog("fetch disk[0],  PID=ADMIN MODEL, VID=A1, SN=ADM123"));
  EXPECT_EQ(1, CountLog("fetch disk[1],  PID=ZR MODEL, VID=Z1, SN=RZ5476"));
  EXPECT_EQ(
      1, CountLog(
             "WARN [kyguid_tests.exe] KyMacID::CHddFetcher::ReadPhysicalDriveInNTWithAdminRights"));
  EXPECT_EQ(1, CountLog("fetch disk[1], DFP_GET_VERSION failed: 1"));
  EXPECT_EQ(1, CountLog("fetch disk[1], SMART_GET_VERSION failed: 1"));
}

TEST_F(HddFetcherTest, ScsiPortsComeBeforeTheDescriptorAndLogTheirPosition) {
  m_machine.AddScsiController(2).identify[1] =
      SimulatedMachine::Identify("PORT MODEL", "PORT1", "P1");
  m_machine.AddDrive(0).descriptor =
      SimulatedMachine::Descriptor("", "ZR MODEL", "Z1", "ZR4567", kSata, false);

  ASSERT_TRUE(Identify());
  EXPECT_EQ("PORT1", serial);
  ASSERT_EQ(2u, drives.size());
  EXPECT_EQ("PORT1", drives[0].SerialNumber);
  EXPECT_EQ("RZ5476", drives[1].SerialNumber);
  EXPECT_EQ(1, CountLog("GetPhysicsDriveIdentify ReadIdeDriveAsScsiDriveInNT serialNumber=PORT1, "
                        "modelNumber=PORT MODEL, revisionNumber=P1"));
  EXPECT_EQ(1, CountLog("fetch disk(scsi2:1),  PID=PORT MODEL, VID=P1, SN=PORT1"));
  EXPECT_EQ(1, CountLog("fetch disk IOCTL_SCSI_MINIPORT failed: scsi2:0, error=1"));
}

// What a drive received, for comparing whole requests at once.
struct Sent {
  std::wstring device;
  uint32_t inSize, bufferSize;
  int sectorCount, driveHead, command, driveNumber;
  bool operator==(const Sent& o) const {
    return device == o.device && inSize == o.inSize && bufferSize == o.bufferSize &&
           sectorCount == o.sectorCount && driveHead == o.driveHead && command == o.command &&
           driveNumber == o.driveNumber;
  }
};

std::vector<Sent> SentRequests(const std::vector<AtaRequest>& requests) {
  std::vector<Sent> sent;
  for (const AtaRequest& r : requests) {
    sent.push_back(
        {r.device, r.inSize, r.bufferSize, r.sectorCount, r.driveHead, r.command, r.driveNumber});
  }
  return sent;
}

void PrintTo(const Sent& s, std::ostream* os) {
  *os << std::string(s.device.begin(), s.device.end()) << " in=" << s.inSize
      << " buf=" << s.bufferSize << " count=" << s.sectorCount << " head=" << s.driveHead
      << " cmd=" << s.command << " drive=" << s.driveNumber;
}

TEST_F(HddFetcherTest, AdminRightsFollowsTheDeviceMapAndSmartSendsOnlyTheCommand) {
  m_machine.AddDrive(0).identify = SimulatedMachine::Identify("DISK", "D0", "R0");
  KyGuidSim::SimDrive& atapi = m_machine.AddDrive(1);
  atapi.identify = SimulatedMachine::Identify("CDROM", "CD1", "1.0");
  atapi.ideDeviceMap = 0x22;  // drive 1 present and ATAPI
  atapi.packetDevice = true;
  KyGuidSim::SimDrive& mislabelled = m_machine.AddDrive(2);  // the map says ATAPI, it is not
  mislabelled.identify = SimulatedMachine::Identify("DISK2", "D2", "R2");
  mislabelled.ideDeviceMap = 0x44;
  KyGuidSim::SimDrive& unmapped = m_machine.AddDrive(3);
  unmapped.identify = SimulatedMachine::Identify("DISK3", "D3", "R3");
  unmapped.ideDeviceMap = 0;

  CHddFetcher fetcher;
  ASSERT_TRUE(fetcher.ReadPhysicalDriveInNTWithAdminRights(serial, model, revision, drives));
  EXPECT_EQ("D0", serial);
  ASSERT_EQ(2u, drives.size());
  EXPECT_EQ("CD1", drives[1].SerialNumber);
  const std::wstring d = L"\\\\.\\PhysicalDrive";
  EXPECT_EQ(SentRequests(m_machine.ataRequests),
            (std::vector<Sent>{{d + L"0", 32, 512, 1, 0xA0, 0xEC, 0},
                               {d + L"1", 32, 512, 1, 0xB0, 0xA1, 1},
                               {d + L"2", 32, 512, 1, 0xA0, 0xA1, 2}}));
  EXPECT_EQ(1, CountLog("fetch disk[1],  PID=CDROM, VID=1.0, SN=CD1"));
  EXPECT_EQ(1, CountLog("fetch disk[2], DoIDENTIFY failed: 1"));
  EXPECT_EQ(0, CountLog("disk[3]"));

  m_machine.ataRequests.clear();
  drives.clear();
  ASSERT_TRUE(fetcher.ReadPhysicalDriveInNTUsingSmart(serial, model, revision, drives));
  EXPECT_EQ(SentRequests(m_machine.ataRequests),
            (std::vector<Sent>{{d + L"0", 33, 0, 0, 0, 0xEC, 0},
                               {d + L"1", 33, 0, 0, 0, 0xEC, 0},
                               {d + L"2", 33, 0, 0, 0, 0xEC, 0},
                               {d + L"3", 33, 0, 0, 0, 0xEC, 0}}));
  ASSERT_EQ(3u, drives.size());  // the ATAPI drive refuses IDENTIFY DEVICE
  EXPECT_EQ("D3", drives[2].SerialNumber);
  EXPECT_EQ(1, CountLog("fetch disk[1], SMART_RCV_DRIVE_DATA failed: 1"));
}

TEST_F(HddFetcherTest, StoredRandomIdentityIsReturnedUnchangedOnEveryCall) {
  WriteDb("Rand_SerialKept", "Rand_ModelKept", "Rand_RevKept");
  const std::string before = KyGuidTest::ReadWholeFile(DbPath());
  for (int call = 0; call < 2; ++call) {
    ASSERT_TRUE(Identify());
    EXPECT_EQ("Rand_SerialKept", serial);
    EXPECT_EQ("Rand_ModelKept", model);
    EXPECT_EQ("Rand_RevKept", revision);
    ASSERT_EQ(1u, drives.size());
    EXPECT_EQ("Rand_ModelKept", drives[0].ModelNumber);
  }
  EXPECT_EQ(before, KyGuidTest::ReadWholeFile(DbPath()));
  EXPECT_EQ(2, CountLog("ReadPhysicalDriveRand read db serialNumber=Rand_SerialKept, "
                        "modelNumber=Rand_ModelKept, revisionNumber=Rand_RevKept"));
  EXPECT_EQ(2,
            CountLog("GetPhysicsDriveIdentify ReadPhysicalDriveRand serialNumber=Rand_SerialKept"));
  EXPECT_EQ(0, CountLog("ReadPhysicalDriveRand Rand "));
}

TEST_F(HddFetcherTest, IncompleteOrMissingDbGetsThreeNewRandomValuesThatThenStay) {
  struct Case {
    const char* serial;
    const char* model;
    const char* revision;
  };
  const Case cases[] = {
      {nullptr, nullptr, nullptr},  // no file, no folder
      {nullptr, "OldModel", "OldRev"},
      {"OldSerial", nullptr, "OldRev"},
      {"OldSerial", "OldModel", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.serial ? c.serial : "-") + "/" + (c.model ? c.model : "-"));
    if (c.serial || c.model || c.revision) WriteDb(c.serial, c.model, c.revision);

    ASSERT_TRUE(Identify());
    EXPECT_TRUE(IsRandText(serial)) << serial;
    EXPECT_TRUE(IsRandText(model)) << model;
    EXPECT_TRUE(IsRandText(revision)) << revision;
    EXPECT_EQ(serial, KyGuidTest::IniRead(DbPath(), "HDD", "SerialNumber"));
    EXPECT_EQ(model, KyGuidTest::IniRead(DbPath(), "HDD", "ModelNumber"));
    EXPECT_EQ(revision, KyGuidTest::IniRead(DbPath(), "HDD", "RevisionNumber"));

    const std::string made[] = {serial, model, revision};
    ASSERT_TRUE(Identify());
    EXPECT_EQ(made[0], serial);
    EXPECT_EQ(made[1], model);
    EXPECT_EQ(made[2], revision);
    DeleteFileA(DbPath().c_str());
  }
  EXPECT_EQ(4, CountLog("ReadPhysicalDriveRand Rand serialNumber=Rand_"));
}

TEST_F(HddFetcherTest, WithoutADataFolderThereIsNoIdentity) {
  m_folders->Fail();
  EXPECT_FALSE(Identify());
  EXPECT_EQ("untouched", serial);
  EXPECT_TRUE(drives.empty());
  EXPECT_NE(std::string::npos,
            LogLineWith("failed to get common appdata dir: 0x80004005").find(" ERROR ["));
  EXPECT_EQ(0, CountLog("GetPhysicsDriveIdentify ReadPhysicalDriveRand"));
}

TEST_F(HddFetcherTest, EveryFunctionLogsItsEntryAtTraceWithItsFullName) {
  Identify();  // nothing answers: all readers, then the random one with three RandStrings
  const struct {
    const char* name;
    int count;
  } entries[] = {
      {"GetPhysicsDriveIdentify", 1},
      {"ReadPhysicalDriveInNTWithAdminRights", 1},
      {"ReadIdeDriveAsScsiDriveInNT", 1},
      {"ReadPhysicalDriveInNTWithZeroRights", 1},
      {"ReadPhysicalDriveInNTUsingSmart", 1},
      {"ReadPhysicalDriveRand", 1},
      {"RandString", 3},
  };
  for (const auto& entry : entries) {
    const std::string head = std::string("TRACE [kyguid_tests.exe] KyMacID::CHddFetcher::") +
                             entry.name + " (ftcommon\\kyguid\\kyguidlib\\td\\hddfetcher:";
    EXPECT_EQ(entry.count, CountLog(head)) << entry.name;
    EXPECT_NE(std::string::npos, LogLineWith(head).find(": enter")) << entry.name;
  }
}

DWORD WINAPI RandOnThread(void* text) {
  CHddFetcher::RandString(*static_cast<std::string*>(text));
  return 0;
}

TEST(RandStringTest, LettersOfBothCasesAndOneSequenceForTheWholeProcess) {
  std::set<size_t> lengths;
  bool upper = false, lower = false;
  for (int i = 0; i < 300; ++i) {
    std::string text;
    CHddFetcher::RandString(text);
    ASSERT_TRUE(IsRandText(text)) << text;
    lengths.insert(text.size() - 5);
    upper |= std::any_of(text.begin() + 5, text.end(), [](char c) { return c <= 'Z'; });
    lower |= std::any_of(text.begin() + 5, text.end(), [](char c) { return c >= 'a'; });
  }
  EXPECT_TRUE(upper && lower);
  EXPECT_GT(lengths.size(), 10u);

  // Fresh threads continue the one sequence; a generator with per-thread
  // state would hand both the same text.
  std::string first, second;
  HANDLE threads[] = {CreateThread(nullptr, 0, RandOnThread, &first, 0, nullptr),
                      CreateThread(nullptr, 0, RandOnThread, &second, 0, nullptr)};
  WaitForMultipleObjects(2, threads, TRUE, INFINITE);
  CloseHandle(threads[0]);
  CloseHandle(threads[1]);
  EXPECT_TRUE(IsRandText(first));
  EXPECT_NE(first, second);
}

}  // namespace
