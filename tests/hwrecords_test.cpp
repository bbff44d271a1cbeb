#include "kyguidlib/hwrecords.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

using namespace KyGuid;

DiskInfo Disk(const char* productId, const char* serial, uint32_t busType, uint32_t flags = 0) {
  DiskInfo disk;
  disk.Index = 0;
  disk.ProductId = productId;
  disk.Revision = "CC43";
  disk.SerialNumber = serial;
  disk.BusType = busType;
  disk.Flags = flags;
  return disk;
}

const DiskInfo kSystemSata =
    Disk("ST1000DM010-2EP102", "Z9A1B2C3", kBusTypeSata, DiskInfo::kSystemDisk);

TEST(RecordTextTest, KeysAndDetails) {
  std::vector<DiskInfo> disks{kSystemSata};
  ScoreDisks(disks);
  EXPECT_EQ(disks[0].Score, 150);  // capped in the text only
  EXPECT_EQ(DiskKey(disks[0]), "PID:{ST1000DM010-2EP102}SN:{Z9A1B2C3}");
  EXPECT_EQ(DiskDetail(disks[0]),
            "DID:{0}PID:{ST1000DM010-2EP102}VID:{}Rev:{CC43}SN:{Z9A1B2C3}Sys:{1}Move:{0}Bus:{11}"
            "Score:{100}");

  DiskInfo stick;
  stick.VendorId = "USB";
  stick.BusType = kBusTypeUsb;
  stick.Flags = DiskInfo::kRemovableMedia;
  stick.Score = 45;
  EXPECT_EQ(DiskDetail(stick),
            "DID:{-1}PID:{}VID:{USB}Rev:{}SN:{}Sys:{0}Move:{1}Bus:{7}Score:{45}");

  AdapterInfo adapter;
  adapter.AdapterName = "4F2A9C1E-0B7D-4E55-9A31-2C6D8E0F1A2B";
  adapter.MacAddress = "001122aabbcc";
  adapter.Description = "Intel(R) Ethernet";
  adapter.Protocol = 6;
  adapter.Type = 110;
  adapter.Score = 110;
  EXPECT_EQ(AdapterKey(adapter), "Mac:{001122aabbcc}");
  EXPECT_EQ(AdapterDetail(adapter),
            "Guid:{4F2A9C1E-0B7D-4E55-9A31-2C6D8E0F1A2B}Desc:{Intel(R) Ethernet}"
            "Mac:{001122aabbcc}Proto:{6}Type:{110}Score:{100}");
}

TEST(SanitizeDiskStringsTest, CleansEveryIdentityString) {
  const std::string x63(63, 'x');
  const struct {
    std::string raw;
    std::string clean;
  } cases[] = {
      {"4A5A2020", "ZJ"},  // hex of the word-swapped, blank-padded text
      {"4a5a2020", "ZJ"},
      {"4A5A20", "ZJ"},  // odd decoded length: last byte dropped before the swap
      {"4A5", "4A5"},
      {"12345678", "12345678"},  // would decode to control bytes
      {"2020", ""},
      {"  WD-WX11  ", "WD-WX11"},
      {"\tABC", "\\09ABC"},  // only blanks are trimmed
      {"A\x7f", "A\\7f"},
      {std::string("1.0\0\0\0\0\0", 8), "1.0"},  // NUL-padded firmware revision
      {std::string("AB \0\x01Z", 6), "AB"},      // the first NUL ends the string
      {"caf\xe9", "caf\xe9"},
      {std::string(70, 'x'), std::string(64, 'x')},
      {x63 + "\x01yy", x63 + "\\01"},  // cut first, escape after: may exceed 64
      // Trimmed before the cut, so a cut inside a run of blanks leaves them:
      // disk GUIDs were hashed from strings cut that way.
      {"\x01" + std::string(70, ' ') + "Z", "\\01" + std::string(63, ' ')},
  };
  for (const auto& c : cases) {
    DiskInfo disk;
    disk.ProductId = disk.Revision = disk.SerialNumber = disk.VendorId = c.raw;
    SanitizeDiskStrings(disk);
    for (const std::string* field :
         {&disk.ProductId, &disk.Revision, &disk.SerialNumber, &disk.VendorId}) {
      EXPECT_EQ(*field, c.clean) << c.raw;
    }
  }
}

TEST(IsVirtualDiskTest, BusTypeOrWholeWordInModel) {
  const struct {
    const char* productId;
    uint32_t busType;
    bool isVirtual;
  } cases[] = {
      {"VBOX HARDDISK", kBusTypeSata, true},
      {"VBOXHARDDISK", kBusTypeSata, false},
      {"VirtualBox", kBusTypeSata, true},
      {"Red Hat VirtIO", kBusTypeScsi, true},
      {"QEMU HARDDISK", kBusTypeAta, true},
      {"Hyper-V", kBusTypeScsi, true},
      {"Hyper-VDisk", kBusTypeScsi, false},
      {"vbox1", kBusTypeSata, true},       // a digit ends a word
      {"xvbox vbox", kBusTypeSata, true},  // the search goes on past a failed occurrence
      {"Virtualization Disk", kBusTypeSata, false},
      {"ST1000DM010", kBusTypeSata, false},
      {"ST1000DM010", kBusTypeVirtual, true},
      {"ST1000DM010", kBusTypeFileBackedVirtual, true},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(IsVirtualDisk(Disk(c.productId, "S", c.busType)), c.isVirtual) << c.productId;
  }
}

TEST(IsGoodDiskTest, SerialModelRevisionAndVirtual) {
  const struct {
    const char* serial;
    bool good;
  } cases[] = {
      {"Z9A1B2C3", true},
      {"ABCD", false},
      {"ABCDE", true},
      {"ffff_ffff_ffff_ffff.", false},
      {"0000_0000_0000_0000.", false},
      {"FFFF_FFFF_FFFF_FFFF.", true},  // case-sensitive on purpose
      {"0000ff01", true},              // zeros, then f's, leave "01"
      {"00001", false},
      {"000ff1", false},
      {"000fffff", false},
      {"FFFF1", true},  // only lower-case f is stripped
  };
  for (const auto& c : cases) {
    EXPECT_EQ(IsGoodDisk(Disk("ST1000", c.serial, kBusTypeSata)), c.good) << c.serial;
  }
  DiskInfo noRevision = kSystemSata;
  noRevision.Revision.clear();
  EXPECT_FALSE(IsGoodDisk(noRevision));
  EXPECT_FALSE(IsGoodDisk(Disk("", "Z9A1B2C3", kBusTypeSata)));
  EXPECT_FALSE(IsGoodDisk(Disk("VBOX HARDDISK", "Z9A1B2C3", kBusTypeSata)));
}

TEST(DiskScoreTest, Penalties) {
  const struct {
    DiskInfo disk;
    int32_t score;
  } cases[] = {
      {kSystemSata, 150},
      {Disk("X", "S", kBusTypeNvme), 100},
      {Disk("X", "S", kBusTypeRaid), 100},
      {Disk("X", "S", kBusTypeAta), 95},
      {Disk("Cruzer", "4C53", kBusTypeUsb, DiskInfo::kRemovableMedia), 45},
      {Disk("X", "", kBusTypeSata), 90},
      {Disk("X", "S", kBusTypeVirtual), 75},
      {Disk("VBOX HARDDISK", "", 0, DiskInfo::kRemovableMedia), 15},
  };
  for (const auto& c : cases) EXPECT_EQ(DiskScore(c.disk), c.score) << c.disk.ProductId;
}

TEST(ScoreDisksTest, FirstOfEqualBestWins) {
  // The stale mark on the stick must not survive a new scoring.
  DiskInfo stick =
      Disk("Cruzer", "4C53", kBusTypeUsb, DiskInfo::kRemovableMedia | DiskInfo::kBestDisk);
  DiskInfo data = Disk("ST1000", "Z9A1", kBusTypeSata);
  std::vector<DiskInfo> disks{stick, data, data};
  EXPECT_EQ(ScoreDisks(disks), 1);
  EXPECT_EQ(disks[0].Score, 45);
  EXPECT_EQ(disks[2].Score, 100);
  for (size_t i = 0; i < disks.size(); ++i) EXPECT_EQ(disks[i].Has(DiskInfo::kBestDisk), i == 1);

  std::vector<DiskInfo> none;
  EXPECT_EQ(ScoreDisks(none), -1);
}

TEST(ClassifyAdapterTest, Ratings) {
  const struct {
    const char* pnpId;
    const char* description;
    uint32_t protocol;
    uint32_t rating;
  } cases[] = {
      {"PCI\\VEN_8086", "Intel(R) Ethernet", 6, 110},
      {"pci\\ven_8086", "Intel(R) Ethernet", 6, 110},
      {"PCI\\VEN_8086", "Ethernet", 71, 100},
      {"PCI\\VEN_8086", "Ethernet", 161, 100},
      {"PCI\\VEN_168C", "Wireless N300", 6, 100},
      {"PCI\\VEN_10EC", "Realtek wifi6 adapter", 6, 100},
      {"PCI\\VEN_10EC", "Realtek wifix adapter", 6, 110},
      {"PCI\\VEN_8086", "Intel(R) Wi-Fi 6 AX201", 6, 100},
      {"PCI\\VEN_8086", "Virtual", 6, 110},  // "virtual" lowers only unknown buses
      {"USB\\VID_0BDA", "USB Ethernet", 6, 60},
      {"USB\\VID_0BDA", "USB WLAN", 6, 50},
      {"BTH\\MS_BTHPAN", "Virtual wireless", 71, 85},
      {"ROOT\\NET\\0000", "Wireless", 71, 30},
      {"SWD\\MSRRAS", "WAN Miniport", 6, 30},
      {"", "Virtual Adapter", 6, 30},
      {"", "TAP-Windows Adapter", 6, 40},
      {"VMBUS\\{f8615163}", "Virtualization adapter", 6, 40},
      {"PCI", "Ethernet", 6, 40},
  };
  for (const auto& c : cases) {
    AdapterInfo adapter;
    adapter.Description = c.description;
    adapter.Protocol = c.protocol;
    EXPECT_EQ(ClassifyAdapter(adapter, c.pnpId), c.rating) << c.pnpId << " / " << c.description;
  }
}

TEST(ScoreAdaptersTest, ScoreIsTypeAndFirstOfEqualBestWins) {
  std::vector<AdapterInfo> adapters(4);
  adapters[0].Flags = AdapterInfo::kBestAdapter;
  const uint32_t types[] = {30, 100, 110, 110};
  for (size_t i = 0; i < adapters.size(); ++i) adapters[i].Type = types[i];
  EXPECT_EQ(ScoreAdapters(adapters), 2);
  for (size_t i = 0; i < adapters.size(); ++i) {
    EXPECT_EQ(adapters[i].Score, static_cast<int32_t>(types[i]));
    EXPECT_EQ(adapters[i].Has(AdapterInfo::kBestAdapter), i == 2);
  }
}

TEST(CalcDiskGuidTest, HashesSerialModelRevisionInThatOrder) {
  // md5 of "Z9A1B2C3ST1000DM010-2EP102CC43"
  EXPECT_EQ(CalcDiskGuid("ST1000DM010-2EP102", "CC43", "Z9A1B2C3"),
            "8676c53b4ff1d1770ee2d23cb3b232b5");
}

}  // namespace
