// Whether a machine keeps its identity: named hardware changes between two
// updates, each with the outcome the builder must reach. Every row of the
// matching table is covered, and the ancient GUID's ways of being bound.
#include <functional>

#include "common/md5.h"
#include "kyguidlib/cguidbuilder.h"
#include "tests/testsupport.h"

namespace {

using KyGuid::CGuidBuilder;
using KyGuidSim::SimulatedMachine;
using KyGuidTest::IniRead;
using KyGuidTest::IniWrite;

using Machine = SimulatedMachine;
using MachineSetup = std::function<void(Machine&)>;

const std::vector<uint8_t> kMacA = {0x00, 0x11, 0x22, 0xAA, 0xBB, 0xCC};
const std::vector<uint8_t> kMacB = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
constexpr char kPciA[] = "PCI\\VEN_8086&DEV_15B8\\A";

void Disk(Machine& m, const std::string& model, const std::string& serial) {
  m.AddDrive(0).descriptor = Machine::Descriptor("", model, "CC43", serial, 11, false);
  m.AddVolume(L'C').extents = Machine::Extents({{0, 1 << 30}});
}
KyGuidSim::SimAdapter& Nic(Machine& m, const std::string& guid, const std::vector<uint8_t>& mac,
                           const std::string& pnpId, const std::string& description = "Ethernet") {
  KyGuidSim::SimAdapter& adapter = m.AddAdapter("{" + guid + "}", description, mac);
  adapter.pnpId = pnpId;
  return adapter;
}
void Desk(Machine& m) {
  Disk(m, "ST1000DM010", "Z9A1B2C3");
  Nic(m, "NIC-A", kMacA, kPciA);
}

struct Scenario {
  const char* name;
  MachineSetup before;  // null: no update before the change
  MachineSetup after;
  int result;
  bool guidKept;
  int reason;           // of the record in force afterwards
  const char* message;  // a log line the decision writes; null for none
};

const Scenario kScenarios[] = {
    {"SameMachine", Desk, Desk, KyGuid::kResultKept, true, 0, nullptr},
    {"NicReplacedOnAGoodDisk", Desk,
     [](Machine& m) {
       Disk(m, "ST1000DM010", "Z9A1B2C3");
       Nic(m, "NIC-B", kMacB, "PCI\\VEN_10EC\\B");
     },
     KyGuid::kResultKept, true, 0,
     "Disk match, adapter not found, but the disk is good, no change"},
    {"EveryAdapterRemoved", Desk, [](Machine& m) { Disk(m, "ST1000DM010", "Z9A1B2C3"); },
     KyGuid::kResultKept, true, 0, "Disk match, local don't have any adapter, no change"},
    {"NicReplacedOnAVirtualDiskThatWmiStillKnows",
     [](Machine& m) {
       Disk(m, "VBOX HARDDISK", "VB0123-4567");
       Nic(m, "NIC-A", kMacA, kPciA);
     },
     [](Machine& m) {
       Disk(m, "VBOX HARDDISK", "VB0123-4567");
       Nic(m, "NIC-A", kMacA, kPciA).present = false;  // gone from the list, still installed
       Nic(m, "NIC-B", kMacB, "PCI\\VEN_10EC\\B");
       m.wmiPnpIds.insert("pci\\ven_8086&dev_15b8\\a");
     },
     KyGuid::kResultKept, true, 0,
     "Bad Disk match, adapter not found, but find it in WMI, no change"},
    {"NicReplacedOnASentinelSerialDiskThatWmiForgot",
     [](Machine& m) {
       Disk(m, "Generic SSD", "ffff_ffff_ffff_ffff.");
       Nic(m, "NIC-A", kMacA, kPciA);
     },
     [](Machine& m) {
       Disk(m, "Generic SSD", "ffff_ffff_ffff_ffff.");
       Nic(m, "NIC-A", kMacA, kPciA).present = false;
       Nic(m, "NIC-B", kMacB, "PCI\\VEN_10EC\\B");
     },
     KyGuid::kResultReplacedSameVersion, false, KyGuid::kReasonAdapterLost,
     "Bad Disk match, adapter not found, rebuild guid"},
    {"SystemDiskReplacedPciNicStays", Desk,
     [](Machine& m) {
       Disk(m, "Samsung SSD 870", "S6PNNS0");
       Nic(m, "NIC-A", kMacA, kPciA);
     },
     KyGuid::kResultKept, true, 0,
     "adapter match, disk not match, but adapter is hardware and fixed, no change"},
    {"DiskReplacedBluetoothAdapterSurvives",
     [](Machine& m) {
       Disk(m, "ST1000DM010", "Z9A1B2C3");
       Nic(m, "BT", kMacA, "BTH\\MS_BTHPAN\\7", "Bluetooth Device (PAN)");
     },
     [](Machine& m) {
       Disk(m, "Samsung SSD 870", "S6PNNS0");
       Nic(m, "BT", kMacA, "BTH\\MS_BTHPAN\\7", "Bluetooth Device (PAN)");
     },
     KyGuid::kResultKept, true, 0,
     "adapter match, disk not match, but adapter is hardware and fixed, no change"},
    {"DiskReplacedWiredUsbAdapterDoesNotCarryTheGuid",
     [](Machine& m) {
       Disk(m, "ST1000DM010", "Z9A1B2C3");
       Nic(m, "USB", kMacA, "USB\\VID_0B95&PID_1790\\1");
     },
     [](Machine& m) {
       Disk(m, "Samsung SSD 870", "S6PNNS0");
       Nic(m, "USB", kMacA, "USB\\VID_0B95&PID_1790\\1");
     },
     KyGuid::kResultReplacedSameVersion, false, KyGuid::kReasonDiskLost,
     "Adapter match, but disk not match, rebuild guid"},
    {"EverythingReplaced", Desk,
     [](Machine& m) {
       Disk(m, "Samsung SSD 870", "S6PNNS0");
       Nic(m, "NIC-B", kMacB, "PCI\\VEN_10EC\\B");
     },
     KyGuid::kResultReplacedSameVersion, false,
     KyGuid::kReasonDiskLost | KyGuid::kReasonAdapterLost, "nothing match, build new guid"},
    {"DisksRemovedAdapterStays", Desk, [](Machine& m) { Nic(m, "NIC-A", kMacA, kPciA); },
     KyGuid::kResultKept, true, 0, "adapter match, local dont have any disk, no change"},
    {"NoDisksAndANewAdapter", Desk, [](Machine& m) { Nic(m, "NIC-B", kMacB, "PCI\\B"); },
     KyGuid::kResultKept, true, 0, "nothing match, but local has no disk, no change"},
    {"FirstRunWithNoHardware", nullptr, [](Machine&) {}, KyGuid::kResultBuildFailed, false, 0,
     "nothing match, local has no disk, build special guid"},
};

void PrintTo(const Scenario& scenario, std::ostream* out) { *out << scenario.name; }

class MatchingScenarioTest : public KyGuidTest::IsolatedTest,
                             public ::testing::WithParamInterface<Scenario> {
 protected:
  int Update() {
    CGuidBuilder builder;
    int result = builder.UpdateNewGuid();
    m_newGuid = builder.NewInfo().Guid;
    return result;
  }
  void Become(const MachineSetup& setup) {
    m_machine = Machine();
    setup(m_machine);
  }
  std::string Active(const char* key) { return IniRead(GuidDbPath(), "ActiveGuid", key); }
  std::string m_newGuid;
};

TEST_P(MatchingScenarioTest, OutcomeOfTheChange) {
  const Scenario& scenario = GetParam();
  std::string before;
  if (scenario.before) {
    Become(scenario.before);
    ASSERT_EQ(KyGuid::kResultFirstBuilt, Update());
    before = Active("Guid");
  }
  const int earlierLines = scenario.message ? CountLog(scenario.message) : 0;
  Become(scenario.after);
  EXPECT_EQ(scenario.result, Update());
  if (scenario.guidKept) {
    EXPECT_EQ(before, m_newGuid);
    EXPECT_EQ(before, Active("Guid"));
    EXPECT_EQ("0", Active("CreateIndex"));
  } else if (scenario.result == KyGuid::kResultBuildFailed) {
    EXPECT_EQ(KyGuid::kSpecialGuid, m_newGuid);
    EXPECT_EQ("", Active("Guid"));
  } else {
    EXPECT_NE(before, Active("Guid"));
    EXPECT_EQ(std::to_string(scenario.reason), Active("Reason"));
    EXPECT_EQ("1", Active("CreateIndex"));
    EXPECT_EQ(before, IniRead(GuidDbPath(), "Build1", "OldGuid"));
    EXPECT_EQ(Active("Guid"), IniRead(GuidDbPath(), "Build1", "Guid"));
  }
  if (scenario.message) {
    EXPECT_EQ(earlierLines + 1, CountLog(scenario.message)) << scenario.message;
  }
  // WMI is slow: it is asked only on the rows that need it, those of a bad disk.
  const bool badDisk = scenario.message && std::string(scenario.message).find("Bad Disk") == 0;
  EXPECT_EQ(badDisk, !m_machine.wmiQueries.empty());
}

INSTANTIATE_TEST_SUITE_P(Changes, MatchingScenarioTest, ::testing::ValuesIn(kScenarios),
                         ::testing::PrintToStringParamName());

// A legacy scheme's GUID in GlobalMgr.db and no Guid.db: to which present
// device the ancient values (MD5 of the MAC text; of serial, model and
// revision run together) bind, and what the first update makes of it.
constexpr char kAncient[] = "feedfacefeedfacefeedfacefeedface";
const std::string kDeskMacValue = KyGuidUtils::Md5Hex("001122aabbcc");
const std::string kAdoptedLine = std::string("use ancient guid: guid[") + kAncient + "]";
constexpr char kDeskKeys[] = "PID:{ST1000DM010}SN:{Z9A1B2C3}Mac:{001122aabbcc}";
constexpr int kAdopted = KyGuid::kResultAncientAdopted;
constexpr int kDiskLost = KyGuid::kReasonDiskLost, kAdapterLost = KyGuid::kReasonAdapterLost;

struct AncientCase {
  const char* name;
  MachineSetup machine;
  std::string config1, config2, config3;  // id, MAC value, disk value
  const char* folder;  // GlobalMgr.db in "common" or "user"; "hdd": common, with HDD.db
  int result;
  int reason;           // of the record in force afterwards
  const char* keys;     // its disk and adapter keys
  std::string message;  // logged once
};

const AncientCase kAncientCases[] = {
    {"BoundByTheMacWithTheBestDiskStandingIn", Desk, kAncient, kDeskMacValue, "unknown disk",
     "common", kAdopted, kDiskLost, kDeskKeys,
     "Deepmatch find adapter[001122aabbcc]-->Guid[" + kDeskMacValue + "]"},
    {"PerUserFileServesWhenTheCommonOneIsMissing", Desk, kAncient, kDeskMacValue, "", "user",
     kAdopted, kDiskLost, kDeskKeys, "LoadAncientGuidInfo failed: "},
    // The legacy scheme hashed the IDENTIFY strings with their leading
    // blanks; only its own device reads reproduce the value.
    {"BoundThroughALegacyDeviceReadThatKeepsLeadingBlanks",
     [](Machine& m) {
       KyGuidSim::SimDrive& drive = m.AddDrive(0);
       drive.descriptor = Machine::Descriptor("", "OLD MODEL", "R1", "W123456", 11, false);
       drive.identify = Machine::Identify("  OLD MODEL", "  W123456", "R1");
       Nic(m, "NIC-B", kMacB, "PCI\\B");
     },
     kAncient, "unknown mac", KyGuidUtils::Md5Hex("  W123456  OLD MODELR1"), "common", kAdopted,
     kAdapterLost, "PID:{OLD MODEL}SN:{W123456}Mac:{001a2b3c4d5e}", kAdoptedLine},
    // HDD.db's random identity stands for drive 0.
    {"BoundThroughTheRandomIdentityKeptInHddDb", Desk, kAncient, "unknown mac",
     KyGuidUtils::Md5Hex("Rand_SerialXyzRand_ModelAbcRand_RevQq"), "hdd", kAdopted, kAdapterLost,
     kDeskKeys, kAdoptedLine},
    {"Config1OfThirtyThreeDigitsIsNoAncientGuid", Desk, std::string(kAncient) + "0", kDeskMacValue,
     "", "common", KyGuid::kResultFirstBuilt, 0, kDeskKeys,
     "Load ancient guid info failed, now try build new guid"},
};

void PrintTo(const AncientCase& c, std::ostream* out) { *out << c.name; }

class AncientBindingTest : public KyGuidTest::IsolatedTest,
                           public ::testing::WithParamInterface<AncientCase> {};

TEST_P(AncientBindingTest, FirstUpdateOutcome) {
  const AncientCase& c = GetParam();
  c.machine(m_machine);
  const std::string user = m_folders->UserAppData() + "\\Corvane\\Greibraske";
  const std::string folder = std::string(c.folder) == "user" ? user : ProfileDir();
  KyGuidTest::MakeDirs(folder);
  KyGuidTest::WriteWholeFile(folder + "\\GlobalMgr.db", "[Profile]\r\nconfig1=" + c.config1 +
                                                            "\r\nconfig2=" + c.config2 +
                                                            "\r\nconfig3=" + c.config3 + "\r\n");
  if (std::string(c.folder) == "hdd") {
    KyGuidTest::WriteWholeFile(folder + "\\HDD.db",
                               "[HDD]\r\nSerialNumber=Rand_SerialXyz\r\n"
                               "ModelNumber=Rand_ModelAbc\r\nRevisionNumber=Rand_RevQq\r\n");
  }
  EXPECT_EQ(c.result, CGuidBuilder().UpdateNewGuid());
  const std::string path = GuidDbPath();
  auto active = [&](const char* key) { return IniRead(path, "ActiveGuid", key); };
  EXPECT_EQ("2", active("Version"));
  if (c.result != KyGuid::kResultFirstBuilt) {  // the ancient record is kept as the old one
    EXPECT_EQ(c.result == kAdopted, active("Guid") == kAncient);
    EXPECT_EQ(c.result == kAdopted ? "-1" : "0", active("CreateIndex"));  // -1: outside the ring
    const std::string section = "Build" + active("CreateIndex");
    EXPECT_EQ(kAncient, IniRead(path, section.c_str(), "OldGuid"));
    EXPECT_EQ("1", IniRead(path, section.c_str(), "OldVersion"));
  }
  EXPECT_EQ(std::to_string(c.reason), active("Reason"));
  EXPECT_EQ(c.keys, active("DiskKey") + active("AdapterKey"));
  EXPECT_EQ(1, CountLog(c.message)) << c.message;
}

INSTANTIATE_TEST_SUITE_P(Ancient, AncientBindingTest, ::testing::ValuesIn(kAncientCases),
                         ::testing::PrintToStringParamName());

}  // namespace
