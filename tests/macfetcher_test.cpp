// The legacy MAC choice on simulated machines: the IP helper's list with the
// adapter kinds from the registry, NetBIOS when that fails, and the fixed
// address when both fail.
#include "kyguidlib/td/macfetcher.h"

#include <windows.h>
#include <nb30.h>

#include "tests/testsupport.h"

namespace {

using KyMacID::CMacFetcher;
using KyMacID::MACAddress;

MACAddress Mac(const std::vector<uint8_t>& bytes) { return MACAddress(bytes.data()); }

std::vector<std::string> Texts(const std::vector<MACAddress>& macs) {
  std::vector<std::string> texts;
  for (const MACAddress& mac : macs) texts.push_back(mac.ToString());
  return texts;
}

// An adapter as the IP helper and the registry describe it.
struct Adapter {
  uint32_t type;          // 6 Ethernet, 23 PPP, 71 802.11
  int64_t mediaSubType;   // -1: no value
  const char* pnpId;      // "": no value
  bool noAddress = false;
};

// The n-th adapter added to a machine has the address 02 00 00 00 00 0n.
std::vector<uint8_t> AddressOf(size_t n) {
  return {0x02, 0x00, 0x00, 0x00, 0x00, static_cast<uint8_t>(n)};
}

void AddAdapters(KyGuidSim::SimulatedMachine& machine, size_t& added,
                 const std::vector<Adapter>& adapters) {
  for (const Adapter& wanted : adapters) {
    const size_t n = ++added;
    KyGuidSim::SimAdapter& adapter =
        machine.AddAdapter("{GUID-" + std::to_string(n) + "}", "adapter",
                           wanted.noAddress ? std::vector<uint8_t>(6, 0) : AddressOf(n));
    adapter.type = wanted.type;
    adapter.mediaSubType = wanted.mediaSubType;
    adapter.pnpId = wanted.pnpId;
  }
}

class MacFetcherTest : public KyGuidTest::IsolatedTest {
 protected:
  void AddAdapters(const std::vector<Adapter>& adapters) {
    ::AddAdapters(m_machine, m_added, adapters);
  }
  bool Fetch(MACAddress& mac, std::vector<MACAddress>& list) {
    return CMacFetcher().GetMAC(mac, list);
  }
  size_t m_added = 0;
};

TEST_F(MacFetcherTest, AddressTextEqualityAndAssignment) {
  const struct {
    std::vector<uint8_t> bytes;
    const char* text;
  } cases[] = {
      {{0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E}, "001a2b3c4d5e"},
      {{0xFF, 0xFE, 0x0A, 0xA0, 0x01, 0x10}, "fffe0aa00110"},
      {{0, 0, 0, 0, 0, 0}, "000000000000"},
  };
  for (const auto& c : cases) EXPECT_EQ(c.text, Mac(c.bytes).ToString());
  EXPECT_EQ("000000000000", MACAddress().ToString());

  const std::vector<uint8_t> base = {1, 2, 3, 4, 5, 6};
  for (size_t i = 0; i < 6; ++i) {
    std::vector<uint8_t> other = base;
    other[i] ^= 0x80;
    EXPECT_FALSE(Mac(base) == Mac(other)) << "byte " << i;
  }
  MACAddress assigned;
  assigned = base.data();
  EXPECT_TRUE(assigned == Mac(base));

  for (const char* name : {"MACAddress::MACAddress", "MACAddress::operator =",
                           "MACAddress::operator ==", "MACAddress::ToString"}) {
    const std::string line = LogLineWith(std::string("] ") + name + " (");
    EXPECT_NE(std::string::npos, line.find("TRACE [")) << name;
    EXPECT_NE(std::string::npos, line.find("(ftcommon\\kyguid\\kyguidlib\\td\\macfetcher:"))
        << line;
    EXPECT_EQ(line.size() - 7, line.rfind(": enter")) << line;
  }
}

TEST_F(MacFetcherTest, NoAdaptersAndNoNetbiosGiveTheFixedAddress) {
  MACAddress mac;
  std::vector<MACAddress> list = {Mac(AddressOf(9))};  // stale content is dropped
  EXPECT_TRUE(Fetch(mac, list));
  EXPECT_EQ("1a2b3c4d5e6f", mac.ToString());
  EXPECT_EQ(std::vector<std::string>{"1a2b3c4d5e6f"}, Texts(list));

  m_machine.netbiosEnumResult = NRC_SYSTEM;
  mac = MACAddress();
  EXPECT_TRUE(Fetch(mac, list));
  EXPECT_EQ("1a2b3c4d5e6f", mac.ToString());
  EXPECT_EQ(1u, list.size());
}

TEST_F(MacFetcherTest, KindsComeFromMediaSubTypeAndPnpInstanceId) {
  const struct {
    int64_t mediaSubType;
    const char* pnpId;
    int kind;
  } cases[] = {
      {1, "PCI\\VEN_8086&DEV_15B8\\3&1", CMacFetcher::kPciWired},
      {1, "PCIE", CMacFetcher::kPciWired},  // only the first three letters count
      {1, "pci\\ven_8086", CMacFetcher::kWired},  // the prefix is matched exactly
      {1, "USB\\VID_0B95", CMacFetcher::kWired},
      {1, "", CMacFetcher::kWired},
      {2, "PCI\\VEN_8086", CMacFetcher::kWireless},
      {2, "", CMacFetcher::kWireless},
      {0, "PCI\\VEN_8086", CMacFetcher::kOther},
      {3, "PCI\\VEN_8086", CMacFetcher::kOther},
      {-1, "PCI\\VEN_8086", CMacFetcher::kOther},
  };
  for (const auto& c : cases) AddAdapters({{6, c.mediaSubType, c.pnpId}});
  CMacFetcher fetcher;
  for (size_t i = 0; i < sizeof(cases) / sizeof(cases[0]); ++i) {
    EXPECT_EQ(cases[i].kind, fetcher.GetAdapterType("{GUID-" + std::to_string(i + 1) + "}"))
        << "MediaSubType " << cases[i].mediaSubType << ", " << cases[i].pnpId;
  }
  EXPECT_EQ(CMacFetcher::kOther, fetcher.GetAdapterType("{NOT-THERE}"));
  EXPECT_EQ(CMacFetcher::kOther, fetcher.GetAdapterType("GUID-1"));  // the key has braces
}

TEST_F(MacFetcherTest, OnlyAStrictlyBetterEthernetOrPppAdapterReplacesTheFirst) {
  const Adapter virtualEth{6, -1, ""};                // kind 3
  const Adapter pciEth{6, 1, "PCI\\VEN_8086"};        // kind 0
  const Adapter usbEth{6, 1, "USB\\VID_0B95"};        // kind 2
  const Adapter wifi{71, 2, "PCI\\VEN_168C"};         // kind 1, not Ethernet
  const Adapter wifiAsEth{6, 2, "PCI\\VEN_168C"};     // kind 1
  const Adapter pciPpp{23, 1, "PCI\\VEN_1"};          // kind 0
  Adapter zeroEth = pciEth;
  zeroEth.noAddress = true;
  const struct {
    const char* what;
    std::vector<Adapter> adapters;
    size_t chosen;  // 1-based
  } cases[] = {
      {"virtual, then PCI Ethernet", {virtualEth, pciEth}, 2},
      {"two PCI Ethernet", {pciEth, pciEth}, 1},
      {"802.11 first, then PCI Ethernet", {wifi, pciEth}, 2},
      {"802.11 first, then USB Ethernet", {wifi, usbEth}, 1},
      {"virtual Ethernet, then a better 802.11", {virtualEth, wifi}, 1},
      {"USB Ethernet, then wireless of Ethernet type", {usbEth, wifiAsEth}, 2},
      {"USB Ethernet, then PCI PPP", {usbEth, pciPpp}, 2},
      {"PCI Ethernet, then another kind-0 PPP", {pciEth, pciPpp}, 1},
      {"no address first, then virtual", {zeroEth, virtualEth}, 2},
      {"virtual, USB, PCI", {virtualEth, usbEth, pciEth}, 3},
  };
  for (const auto& c : cases) {
    KyGuidSim::SimulatedMachine machine;
    KyGuid::ScopedPlatform platform(KyGuid::Platform{nullptr, nullptr, &machine});
    size_t added = 0;
    ::AddAdapters(machine, added, c.adapters);
    MACAddress mac;
    std::vector<MACAddress> list;
    EXPECT_TRUE(CMacFetcher().GetMACbyAdapter(mac, list)) << c.what;
    EXPECT_EQ(Mac(AddressOf(c.chosen)).ToString(), mac.ToString()) << c.what;
  }
}

TEST_F(MacFetcherTest, TheListHoldsEveryEthernetAndPppAddressInOrder) {
  AddAdapters({{71, 2, "PCI\\W"}, {6, -1, ""}, {131, -1, ""}, {23, -1, ""}, {6, 1, "PCI\\E"}});
  MACAddress mac;
  std::vector<MACAddress> list;
  ASSERT_TRUE(Fetch(mac, list));
  EXPECT_EQ("020000000005", mac.ToString());
  EXPECT_EQ((std::vector<std::string>{"020000000002", "020000000004", "020000000005"}),
            Texts(list));
  EXPECT_EQ(3, CountLog("fetch Adapter,  mac=02000000000"));
  const std::string line = LogLineWith("fetch Adapter,  mac=020000000004");
  EXPECT_NE(std::string::npos, line.find("INFO [")) << line;
  EXPECT_NE(std::string::npos, line.find("KyMacID::CMacFetcher::GetMACbyAdapter (")) << line;
  // One load of the IP helper and one call with room for 16.
  EXPECT_EQ(1, m_machine.adapterModuleLoads);
  EXPECT_EQ(std::vector<uint32_t>{11264}, m_machine.adapterQuerySizes);
  EXPECT_TRUE(m_machine.netbiosCalls.empty());
}

TEST_F(MacFetcherTest, NetbiosTakesOverWhenTheAdapterListFails) {
  const struct {
    const char* what;
    void (*breakAdapters)(KyGuidSim::SimulatedMachine&);
  } cases[] = {
      {"no IP helper",
       [](KyGuidSim::SimulatedMachine& machine) {
         size_t added = 0;
         ::AddAdapters(machine, added, {{6, 1, "PCI\\E"}});
         machine.adapterApiMissing = true;
       }},
      {"query error",
       [](KyGuidSim::SimulatedMachine& machine) {
         size_t added = 0;
         ::AddAdapters(machine, added, {{6, 1, "PCI\\E"}});
         machine.adapterQueryError = 87;
       }},
      // 17 records do not fit, and the list is not asked for again.
      {"more than 16 adapters",
       [](KyGuidSim::SimulatedMachine& machine) {
         size_t added = 0;
         for (int i = 0; i < 17; ++i) ::AddAdapters(machine, added, {{6, 1, "PCI\\E"}});
       }},
      // Nothing is chosen from an all-zero address, and its list entry goes.
      {"only an all-zero address",
       [](KyGuidSim::SimulatedMachine& machine) {
         Adapter zero{6, 1, "PCI\\E"};
         zero.noAddress = true;
         size_t added = 0;
         ::AddAdapters(machine, added, {zero});
       }},
  };
  for (const auto& c : cases) {
    KyGuidSim::SimulatedMachine machine;
    KyGuid::ScopedPlatform platform(KyGuid::Platform{nullptr, nullptr, &machine});
    c.breakAdapters(machine);
    machine.AddLana(3, {0x11, 0x11, 0x11, 0x11, 0x11, 0x11}).statusResult = NRC_BRIDGE;
    machine.AddLana(0, {0x00, 0x50, 0x56, 0xC0, 0x00, 0x01});
    machine.AddLana(7, {0x00, 0x50, 0x56, 0xC0, 0x00, 0x02});
    MACAddress mac;
    std::vector<MACAddress> list;
    EXPECT_TRUE(Fetch(mac, list)) << c.what;
    EXPECT_EQ("005056c00001", mac.ToString()) << c.what;
    EXPECT_EQ((std::vector<std::string>{"005056c00001", "005056c00002"}), Texts(list)) << c.what;
    EXPECT_LE(machine.adapterQuerySizes.size(), 1u) << c.what;
  }
  EXPECT_EQ(2 * 4, CountLog("fetch Adapter,  mac=005056c0000"));
  EXPECT_EQ(0, CountLog("fetch Adapter,  mac=111111111111"));
  const std::string line = LogLineWith("fetch Adapter,  mac=005056c00002");
  EXPECT_NE(std::string::npos, line.find("KyMacID::CMacFetcher::GetMACbyNetBiosStat (")) << line;
}

TEST_F(MacFetcherTest, NetbiosResetsEachAdapterBeforeAskingItsStatus) {
  m_machine.AddLana(2, {0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0x01});
  m_machine.AddLana(5, {0xAA, 0xBB, 0xCC, 0xDD, 0xEE, 0x02});
  MACAddress mac;
  std::vector<MACAddress> list;
  ASSERT_TRUE(CMacFetcher().GetMACbyNetBiosStat(mac, list));
  EXPECT_EQ("aabbccddee01", mac.ToString());
  const std::vector<std::pair<uint8_t, uint8_t>> expected = {
      {NCBENUM, 0}, {NCBRESET, 2}, {NCBASTAT, 2}, {NCBRESET, 5}, {NCBASTAT, 5}};
  std::vector<std::pair<uint8_t, uint8_t>> calls;
  for (const auto& call : m_machine.netbiosCalls) calls.emplace_back(call.command, call.lana);
  EXPECT_EQ(expected, calls);
}

TEST_F(MacFetcherTest, NetbiosWithNoAnsweringAdapterFailsAndLeavesTheAddress) {
  m_machine.AddLana(1, {1, 2, 3, 4, 5, 6}).statusResult = NRC_ENVNOTDEF;
  const uint8_t before[6] = {9, 9, 9, 9, 9, 9};
  MACAddress mac(before);
  std::vector<MACAddress> list;
  EXPECT_FALSE(CMacFetcher().GetMACbyNetBiosStat(mac, list));
  EXPECT_TRUE(list.empty());
  EXPECT_EQ("090909090909", mac.ToString());
}

}  // namespace
