// The builder on a simulated machine: the exact files a first update leaves.
#include <cstdlib>

#include "common/md5.h"
#include "kyguidlib/cguidbuilder.h"
#include "kyguidlib/td/seqidgenerator.h"
#include "tests/testsupport.h"

namespace {

using KyGuid::CGuidBuilder;
using KyGuidSim::SimulatedMachine;
using KyGuidTest::IniRead;
using KyGuidTest::ReadWholeFile;

// `actual` against tests/golden/`name`, byte for byte. KYGUID_WRITE_GOLDEN=1
// rewrites the file instead: a deliberate format change is one run and a diff.
void ExpectGolden(const std::string& name, const std::string& actual) {
  const std::string path = KYGUID_GOLDEN_DIR "/" + name;
  const char* write = getenv("KYGUID_WRITE_GOLDEN");
  if (write && std::string(write) == "1") return KyGuidTest::WriteWholeFile(path, actual);
  EXPECT_EQ(ReadWholeFile(path), actual) << path << " (KYGUID_WRITE_GOLDEN=1 rewrites it)";
}

class BuilderTest : public KyGuidTest::IsolatedTest {
 protected:
  // An update as the updater runs it: the build, then the legacy refresh.
  int Update() {
    m_builder = std::make_unique<CGuidBuilder>();
    const int result = m_builder->UpdateNewGuid();
    m_legacyId = KyMacID::GetSequenceID(m_builder->NewInfo().Guid);
    return result;
  }
  std::string Active(const char* key) { return IniRead(GuidDbPath(), "ActiveGuid", key); }
  std::string Legacy(const std::string& name) {  // headed by its name
    return "; " + name + "\r\n" + ReadWholeFile(ProfileDir() + "\\" + name);
  }

  std::unique_ptr<CGuidBuilder> m_builder;
  std::string m_legacyId;
};

// An older desktop: it boots from a disk in IDE mode whose descriptor lacks
// the serial (SMART supplies it), has an NVMe data disk, and one adapter of
// each rating, the best one in the middle of the list.
TEST_F(BuilderTest, FirstUpdateWritesTheGoldenFilesAndLaterOnesKeepItsGuid) {
  m_machine.AddDrive(0).descriptor = SimulatedMachine::Descriptor(
      "", "Samsung SSD 970 EVO Plus 1TB", "2B2QEXM7", "S4EWNX0R123456", 17, false);
  KyGuidSim::SimDrive& boot = m_machine.AddDrive(1);
  boot.descriptor = SimulatedMachine::Descriptor("ATA", "ST1000DM010", "", "", 3, false);
  boot.identify = SimulatedMachine::Identify("ST1000DM010-2EP102", "Z9A1B2C3", "CC43");
  m_machine.AddVolume(L'C').extents = SimulatedMachine::Extents({{1, 1ull << 30}});
  const char* const nics[][3] = {
      {"USB 3.0 to Gigabit Ethernet Adapter", "6", "USB\\VID_0B95\\1"},
      {"Intel(R) Wi-Fi 6 AX201 160MHz", "71", "PCI\\VEN_8086&DEV_A0F0\\3"},
      {"Intel(R) Ethernet Connection (7) I219-V", "6", "PCI\\VEN_8086&DEV_15BC\\3"},
      {"Bluetooth Device (Personal Area Network)", "6", "BTH\\MS_BTHPAN\\7"},
      {"Remote NDIS Compatible Device", "6", ""},
      {"Hyper-V Virtual Ethernet Adapter", "6", "ROOT\\VMS_MP\\0000"}};
  for (const auto& nic : nics) {
    const uint8_t n = static_cast<uint8_t>(&nic - nics);
    auto& adapter = m_machine.AddAdapter("{NIC-" + std::to_string(n) + "}", nic[0],
                                         {0x00, 0x1A, 0x2B, 0x3C, 0x4D, n});
    adapter.type = atoi(nic[1]);
    adapter.pnpId = nic[2];
  }
  const std::string userCache = m_folders->UserAppData() + "\\Corvane\\Greibraske\\GlobalMgr.db";
  KyGuidTest::MakeDirs(m_folders->UserAppData() + "\\Corvane\\Greibraske");
  KyGuidTest::IniWrite(userCache, "Profile", "config1", "another GUID");
  ASSERT_EQ(KyGuid::kResultFirstBuilt, Update());
  const std::string guid = Active("Guid");
  ExpectGolden("first-build-guid.db", ReadWholeFile(GuidDbPath()));
  // The processor is the host's: its digest is the one value left out.
  std::string legacy = Legacy("GlobalMgr.db") + Legacy("GuidInfo.db") + Legacy("GuidList.db");
  std::string brand;
  KyMacID::GetCPUBrand(brand);
  for (size_t at; (at = legacy.find(KyGuidUtils::Md5Hex(brand))) != std::string::npos;) {
    legacy.replace(at, 32, "(the host's processor)");
  }
  ExpectGolden("first-update-legacy.db", legacy);
  EXPECT_EQ(ReadWholeFile(ProfileDir() + "\\GlobalMgr.db"), ReadWholeFile(userCache));
  EXPECT_EQ(1, CountLog("new guid: guid[" + guid +
                        "], diskkey[PID:{ST1000DM010-2EP102}SN:{Z9A1B2C3}], adapterkey[Mac:{"
                        "001a2b3c4d02}], Index[0], Score[100], Reason[0]"));
  EXPECT_EQ(1, CountLog("Fetch hardware end Hw \xD3\xC3\xCA\xB1:0"));  // searched for verbatim
  EXPECT_TRUE(m_builder->Disks()[1].Has(KyGuid::DiskInfo::kGuidDisk));
  EXPECT_TRUE(m_builder->Adapters()[2].Has(KyGuid::AdapterInfo::kGuidAdapter));

  // The next update keeps the GUID, which is now the legacy id too, and
  // leaves Guid.db as it was.
  const std::string before = ReadWholeFile(GuidDbPath());
  ASSERT_EQ(KyGuid::kResultKept, Update());
  EXPECT_EQ(before, ReadWholeFile(GuidDbPath()));
  EXPECT_EQ(1, CountLog("guid match, use it\xA3\xBA " + guid));
  EXPECT_EQ(guid, m_legacyId);
}

}  // namespace
