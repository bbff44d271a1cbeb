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

void Disk(Machine& m, const std::string& model, const std::string& serial,
          const std::string& revision = "CC43") {
  m.AddDrive(0).descriptor = Machine::Descriptor("", model, revision, serial, 11, false);
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
    {"NicAdded", Desk,
     [](Machine& m) {
       Desk(m);
       Nic(m, "NIC-B", kMacB, "PCI\\VEN_10EC\\B");
     },
     KyGuid::kResultKept, true, 0, nullptr},
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
    {"ModelStringChangedByADriverUpdate", Desk,
     [](Machine& m) {
       Disk(m, "ST1000DM010-2EP102", "Z9A1B2C3");
       Nic(m, "NIC-A", kMacA, kPciA);
     },
     KyGuid::kResultKept, true, 0, nullptr},
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
    CGuidBuilder builder(true);
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
}

INSTANTIATE_TEST_SUITE_P(Changes, MatchingScenarioTest, ::testing::ValuesIn(kScenarios),
                         [](const ::testing::TestParamInfo<Scenario>& info) {
                           return std::string(info.param.name);
                         });

// An earlier scheme's GUID in GlobalMgr.db and no Guid.db: to which present
// device the ancient values bind, and what the first update makes of it.
class AncientBindingTest : public KyGuidTest::IsolatedTest {
 protected:
  void WriteGlobalMgr(const std::string& macValue, const std::string& diskValue) {
    KyGuidTest::MakeDirs(ProfileDir());
    const std::string path = ProfileDir() + "\\GlobalMgr.db";
    IniWrite(path, "Profile", "config1", kAncient);
    IniWrite(path, "Profile", "config2", macValue.c_str());
    IniWrite(path, "Profile", "config3", diskValue.c_str());
  }
  int Update() {
    CGuidBuilder builder(true);
    return builder.UpdateNewGuid();
  }
  std::string Active(const char* key) { return IniRead(GuidDbPath(), "ActiveGuid", key); }
  static std::string DiskValue(const std::string& model, const std::string& revision,
                               const std::string& serial) {
    return KyGuidUtils::Md5Hex(serial + model + revision);
  }
  static constexpr char kAncient[] = "feedfacefeedfacefeedfacefeedface";
};

TEST_F(AncientBindingTest, BoundByThePresentDiskKeepsTheGuidWithTheBestAdapterStandingIn) {
  Desk(m_machine);
  WriteGlobalMgr("unknown mac value", DiskValue("ST1000DM010", "CC43", "Z9A1B2C3"));
  ASSERT_EQ(KyGuid::kResultAncientAdopted, Update());
  EXPECT_EQ(kAncient, Active("Guid"));
  EXPECT_EQ("PID:{ST1000DM010}SN:{Z9A1B2C3}", Active("DiskKey"));
  EXPECT_EQ("Mac:{001122aabbcc}", Active("AdapterKey"));
  EXPECT_EQ(std::to_string(KyGuid::kReasonAdapterLost), Active("Reason"));
  EXPECT_EQ(1, CountLog("Deepmatch can't find adapter: unknown mac value"));
}

TEST_F(AncientBindingTest, BoundThroughALegacyDeviceReadThatKeepsLeadingBlanks) {
  // The earlier scheme hashed the IDENTIFY strings with their leading blanks;
  // the descriptor's trimmed strings no longer reproduce its value.
  KyGuidSim::SimDrive& drive = m_machine.AddDrive(0);
  drive.descriptor = Machine::Descriptor("", "OLD MODEL", "R1", "W123456", 11, false);
  drive.identify = Machine::Identify("  OLD MODEL", "  W123456", "R1");
  Nic(m_machine, "NIC-B", kMacB, "PCI\\B");
  WriteGlobalMgr("unknown mac value", DiskValue("  OLD MODEL", "R1", "  W123456"));
  ASSERT_EQ(KyGuid::kResultAncientAdopted, Update());
  EXPECT_EQ(kAncient, Active("Guid"));
  EXPECT_EQ("PID:{OLD MODEL}SN:{W123456}", Active("DiskKey"));  // renewed from the present disk
  // Bound by the legacy reads, which have no line of their own.
  EXPECT_EQ(0, CountLog("Deepmatch find disk"));
  EXPECT_EQ(0, CountLog("Deepmatch can't find disk"));
}

TEST_F(AncientBindingTest, BoundThroughTheRandomIdentityKeptInHddDb) {
  Desk(m_machine);
  KyGuidTest::MakeDirs(ProfileDir());
  const std::string hdd = ProfileDir() + "\\HDD.db";
  IniWrite(hdd.c_str(), "HDD", "SerialNumber", "Rand_SerialXyz");
  IniWrite(hdd.c_str(), "HDD", "ModelNumber", "Rand_ModelAbc");
  IniWrite(hdd.c_str(), "HDD", "RevisionNumber", "Rand_RevQq");
  WriteGlobalMgr("unknown mac value", DiskValue("Rand_ModelAbc", "Rand_RevQq", "Rand_SerialXyz"));
  ASSERT_EQ(KyGuid::kResultAncientAdopted, Update());
  EXPECT_EQ(kAncient, Active("Guid"));
  EXPECT_EQ("PID:{ST1000DM010}SN:{Z9A1B2C3}", Active("DiskKey"));  // drive 0 is present
  EXPECT_EQ(std::to_string(KyGuid::kReasonAdapterLost), Active("Reason"));
}

TEST_F(AncientBindingTest, BoundByNothingIsReplacedAsAnotherVersion) {
  Desk(m_machine);
  WriteGlobalMgr("unknown mac value", "unknown disk value");
  ASSERT_EQ(KyGuid::kResultReplacedOtherVersion, Update());
  EXPECT_NE(kAncient, Active("Guid"));
  EXPECT_EQ(kAncient, IniRead(GuidDbPath(), "Build0", "OldGuid"));
  EXPECT_EQ(1, CountLog("nothing match, build new guid"));
}

TEST_F(AncientBindingTest, MachineWithoutDisksKeepsAnUnboundAncientGuid) {
  Nic(m_machine, "NIC-B", kMacB, "PCI\\B");
  WriteGlobalMgr("unknown mac value", "unknown disk value");
  ASSERT_EQ(KyGuid::kResultAncientAdopted, Update());
  EXPECT_EQ(kAncient, Active("Guid"));
  EXPECT_EQ(std::to_string(KyGuid::kReasonDiskLost | KyGuid::kReasonAdapterLost), Active("Reason"));
  EXPECT_EQ(1, CountLog("nothing match, but local has no disk, no change"));
}

}  // namespace
