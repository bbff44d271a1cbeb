// The adapter fetcher on simulated machines: the IP helper's buffer rules,
// adapters without an address, classification through the registry and the
// best mark.
#include "kyguidlib/cadapterfetcher.h"
#include "tests/testsupport.h"

namespace {

using KyGuid::AdapterInfo;
using KyGuid::CAdapterFetcher;

const std::vector<uint8_t> kMac1 = {0x00, 0x11, 0x22, 0xAA, 0xBB, 0xCC};
const std::vector<uint8_t> kMac2 = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};

class AdapterFetcherTest : public KyGuidTest::IsolatedTest {
 protected:
  KyGuidSim::SimAdapter& Add(const std::string& guid, const std::string& description,
                             const std::string& pnpId, uint32_t type = 6,
                             std::vector<uint8_t> mac = kMac1) {
    KyGuidSim::SimAdapter& adapter = m_machine.AddAdapter("{" + guid + "}", description, mac);
    adapter.pnpId = pnpId;
    adapter.type = type;
    return adapter;
  }
  std::vector<uint32_t> Types() {
    CAdapterFetcher fetcher;
    fetcher.Fetch();
    std::vector<uint32_t> types;
    for (const AdapterInfo& adapter : fetcher.Adapters()) types.push_back(adapter.Type);
    return types;
  }
};

TEST_F(AdapterFetcherTest, RecordsCarryTheCleanedNameTheAddressAndTheInterfaceType) {
  KyGuidSim::SimAdapter& sim = Add("4F3A-11", "Intel(R) Ethernet", "PCI\\VEN_8086&DEV_15B8\\3&1");
  sim.name = "  {{4F3A-11}}  ";
  sim.index = 7;
  CAdapterFetcher fetcher;
  ASSERT_EQ(1, fetcher.Fetch());
  const AdapterInfo& adapter = fetcher.Adapters()[0];
  EXPECT_EQ("4F3A-11", adapter.AdapterName);
  EXPECT_EQ("001122aabbcc", adapter.MacAddress);
  EXPECT_EQ(7, adapter.Index);
  EXPECT_EQ(6u, adapter.Protocol);
  EXPECT_EQ(110u, adapter.Type);
  EXPECT_EQ(110, adapter.Score);
  EXPECT_TRUE(adapter.Has(AdapterInfo::kBestAdapter));
  EXPECT_EQ(1, CountLog("Fetch 1 Adapters"));
  EXPECT_EQ(1, CountLog("Fetch Adapter[07]=> Guid[4F3A-11], Desc[Intel(R) Ethernet], "
                        "Address[001122aabbcc], Proto[6], Type[110], Score[110]"));
}

TEST_F(AdapterFetcherTest, AdaptersWithoutAnAddressAreSkippedAtTrace) {
  Add("TUNNEL", "Teredo Tunneling", "", 131, {});
  Add("ETH", "Ethernet", "PCI\\X");
  CAdapterFetcher fetcher;
  ASSERT_EQ(1, fetcher.Fetch());
  EXPECT_EQ("ETH", fetcher.Adapters()[0].AdapterName);
  EXPECT_EQ(1, CountLog("TRACE [kyguid_tests.exe] KyGuid::CIpHelpFetcher::QueryAdapter"));
  EXPECT_EQ(1, CountLog("Fetch no mac Adapter[11]=> Guid[{TUNNEL}], Desc[Teredo Tunneling], "
                        "Proto[131]"));
}

TEST_F(AdapterFetcherTest, EachClassOfAdapterGetsItsRating) {
  Add("A", "Intel Ethernet", "PCI\\VEN_1");
  Add("B", "Killer AX1650", "pci\\ven_2", 71);        // wireless by interface type
  Add("C", "Wireless N300 adapter", "PCI\\VEN_3");    // wireless by word
  Add("D", "Bluetooth PAN", "BTH\\MS_BTHPAN\\1");
  Add("E", "USB Ethernet", "USB\\VID_0B95");
  Add("F", "USB wifi6 dongle", "USB\\VID_0BDA");      // a digit ends the word
  Add("G", "USB wifix dongle", "USB\\VID_0BDB");      // a letter does not
  Add("H", "Hyper-V Virtual Ethernet", "");           // unknown bus, "virtual"
  Add("I", "Some adapter", "");                       // unknown bus
  Add("J", "Wireless loopback", "ROOT\\NET\\0000");
  Add("K", "Software device", "SWD\\MSRRAS\\1");
  Add("L", "Virtualization box", "");                 // not the whole word
  EXPECT_EQ((std::vector<uint32_t>{110, 100, 100, 85, 60, 50, 60, 30, 40, 30, 30, 40}), Types());
}

TEST_F(AdapterFetcherTest, FirstOfEqualBestAdaptersWins) {
  Add("A", "USB Ethernet", "USB\\1");
  Add("B", "Ethernet 1", "PCI\\1", 6, kMac1);
  Add("C", "Ethernet 2", "PCI\\2", 6, kMac2);
  CAdapterFetcher fetcher;
  fetcher.Fetch();
  EXPECT_FALSE(fetcher.Adapters()[0].Has(AdapterInfo::kBestAdapter));
  EXPECT_TRUE(fetcher.Adapters()[1].Has(AdapterInfo::kBestAdapter));
  EXPECT_FALSE(fetcher.Adapters()[2].Has(AdapterInfo::kBestAdapter));
}

TEST_F(AdapterFetcherTest, OverflowIsRetriedOnceWithTwiceTheReportedSize) {
  for (int i = 0; i < 9; ++i) Add("N" + std::to_string(i), "Ethernet", "PCI\\1");
  m_machine.adapterSizeGrowth = 640;  // the list grows a little between calls
  CAdapterFetcher fetcher;
  EXPECT_EQ(9, fetcher.Fetch());
  ASSERT_EQ(2u, m_machine.adapterQuerySizes.size());
  EXPECT_EQ(5632u, m_machine.adapterQuerySizes[0]);
  EXPECT_GT(m_machine.adapterQuerySizes[1], 5632u);
  EXPECT_EQ(1, m_machine.adapterModuleLoads);
}

TEST_F(AdapterFetcherTest, ASecondOverflowIsNotRetried) {
  for (int i = 0; i < 9; ++i) Add("N" + std::to_string(i), "Ethernet", "PCI\\1");
  m_machine.adapterSizeGrowth = 100000;  // more than double between calls
  CAdapterFetcher fetcher;
  EXPECT_EQ(0, fetcher.Fetch());
  EXPECT_EQ(2u, m_machine.adapterQuerySizes.size());
  EXPECT_EQ(1, CountLog("GetAdaptersInfo failed: 111"));
}

TEST_F(AdapterFetcherTest, MissingHelperOrFailingQueryLeavesAnEmptyList) {
  Add("A", "Ethernet", "PCI\\1");
  m_machine.adapterApiMissing = true;
  CAdapterFetcher fetcher;
  EXPECT_EQ(0, fetcher.Fetch());
  EXPECT_EQ(1, CountLog("ERROR [kyguid_tests.exe] KyGuid::CIpHelpFetcher::QueryAdapter"));
  EXPECT_EQ(1, CountLog("adapter api failed: maybe iphlpapi.dll miss"));

  m_machine.adapterApiMissing = false;
  m_machine.adapterQueryError = 87;
  EXPECT_EQ(0, fetcher.Fetch());
  EXPECT_EQ(1, CountLog("GetAdaptersInfo failed: 87"));
  EXPECT_EQ(2, CountLog("Fetch 0 Adapters"));
}

TEST_F(AdapterFetcherTest, PnpIdIsReadFromTheConnectionKeyOfTheBracedName) {
  Add("ABC-123", "Ethernet", "PCI\\VEN_8086");
  EXPECT_EQ("PCI\\VEN_8086", CAdapterFetcher::QueryPnpInstanceId("ABC-123"));
  EXPECT_EQ("", CAdapterFetcher::QueryPnpInstanceId("{ABC-123}"));
  EXPECT_EQ("", CAdapterFetcher::QueryPnpInstanceId("unknown"));
}

}  // namespace
