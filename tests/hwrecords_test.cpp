// What needs no system: record texts, disk strings, judging disks and adapters,
// decoding driver bytes, the disk key search, MD5, whom the data folder may
// belong to. Also built with sanitizers.
#include <gtest/gtest.h>

#include <cstring>

#include "common/md5.h"
#include "kyguidlib/devicestrings.h"
#include "kyguidlib/foldertrust.h"
#include "kyguidlib/guidmatch.h"
#include "kyguidlib/td/legacystrings.h"

namespace {

using namespace KyGuid;
constexpr uint32_t kSys = DiskInfo::kSystemDisk, kMove = DiskInfo::kRemovableMedia;

DiskInfo Disk(const char* productId, const char* serial, uint32_t bus, uint32_t flags = 0) {
  return DiskInfo{-1, productId, "CC43", serial, "", bus, flags};
}

TEST(RecordTextTest, KeysAndDetailsShowTheScoreCappedAtAHundred) {
  const DiskInfo disk{0, "ST1000DM010", "CC43", "Z9A1B2C3", "", kBusTypeSata, kSys, 150};
  EXPECT_EQ(DiskKey(disk), "PID:{ST1000DM010}SN:{Z9A1B2C3}");
  EXPECT_EQ(DiskDetail(disk),
            "DID:{0}PID:{ST1000DM010}VID:{}Rev:{CC43}SN:{Z9A1B2C3}Sys:{1}"
            "Move:{0}Bus:{11}Score:{100}");
  const AdapterInfo adapter{-1, "4F2A9C1E-0B7D", "001122aabbcc", "Intel(R) Ethernet", 6, 110, 110};
  EXPECT_EQ(AdapterKey(adapter), "Mac:{001122aabbcc}");
  EXPECT_EQ(AdapterDetail(adapter),
            "Guid:{4F2A9C1E-0B7D}Desc:{Intel(R) Ethernet}"
            "Mac:{001122aabbcc}Proto:{6}Type:{110}Score:{100}");
}

TEST(SanitizeDiskStringsTest, CleansEveryIdentityString) {
  const std::string x63(63, 'x');
  const std::pair<std::string, std::string> cases[] = {
      {"4A5A2020", "ZJ"},        // hex of the word-swapped, blank-padded text
      {"4A5A20", "ZJ"},          // odd decoded length: last byte dropped before the swap
      {"12345678", "12345678"},  // would decode to control bytes
      {"2020", ""},
      {"  WD-WX11  ", "WD-WX11"},
      {"\tABC", "\\09ABC"},                      // only blanks are trimmed
      {std::string("1.0\0\0\0\0\0", 8), "1.0"},  // NUL-padded firmware revision
      {std::string("AB \0\x01Z", 6), "AB"},      // the first NUL ends the string
      {"caf\xe9", "caf\xe9"},
      {std::string(70, 'x'), std::string(64, 'x')},
      {x63 + "\x01yy", x63 + "\\01"},  // cut first, escape after: may exceed 64
      // Trimmed before the cut, so a cut inside a run of blanks leaves them:
      // disk GUIDs were hashed from strings cut that way.
      {"\x01" + std::string(70, ' ') + "Z", "\\01" + std::string(63, ' ')},
  };
  for (const auto& [raw, clean] : cases) {
    DiskInfo disk{-1, raw, raw, raw, raw};
    SanitizeDiskStrings(disk);
    EXPECT_EQ(disk.ProductId + "|" + disk.Revision + "|" + disk.SerialNumber + "|" + disk.VendorId,
              clean + "|" + clean + "|" + clean + "|" + clean);
  }
}

TEST(DiskJudgementTest, VirtualGoodAndScoreOfEachDisk) {
  const std::pair<DiskInfo, const char*> cases[] = {
      {Disk("ST1000DM010", "Z9A1B2C3", kBusTypeSata, kSys), "real, good, 150"},
      {Disk("VBOX HARDDISK", "Z9A1B2C3", kBusTypeSata), "virtual, bad, 80"},
      {Disk("VirtualBox", "Z9A1B2C3", kBusTypeRaid), "virtual, bad, 80"},
      {Disk("Hyper-V", "Z9A1B2C3", kBusTypeNvme), "virtual, bad, 80"},
      {Disk("Red Hat VirtIO", "Z9A1B2C3", kBusTypeScsi), "virtual, bad, 80"},
      {Disk("QEMU HARDDISK", "Z9A1B2C3", kBusTypeAta), "virtual, bad, 75"},
      {Disk("ST1000DM010", "Z9A1B2C3", kBusTypeVirtual), "virtual, bad, 75"},
      {Disk("VBOX HARDDISK", "", 0, kMove), "virtual, bad, 15"},
      {Disk("", "Z9A1B2C3", kBusTypeSata), "real, bad, 100"},
      {DiskInfo{-1, "X", "", "Z9A1B2C3", "", kBusTypeSata}, "real, bad, 100"},  // no revision
      {Disk("X", "ABCD", kBusTypeUsb, kMove), "real, bad, 45"},
      {Disk("X", "ffff_ffff_ffff_ffff.", kBusTypeSata), "real, bad, 100"},
      {Disk("X", "FFFF_FFFF_FFFF_FFFF.", kBusTypeSata), "real, good, 100"},  // case-sensitive
      {Disk("X", "0000ff01", kBusTypeSata), "real, good, 100"},  // zeros, then f's, leave "01"
      {Disk("X", "FFFF1", kBusTypeSata), "real, good, 100"},     // only lower-case f is stripped
  };
  for (const auto& [disk, judged] : cases) {
    EXPECT_EQ(std::string(IsVirtualDisk(disk) ? "virtual" : "real") +
                  (IsGoodDisk(disk) ? ", good, " : ", bad, ") + std::to_string(DiskScore(disk)),
              judged)
        << disk.ProductId << " " << disk.SerialNumber;
  }
}

TEST(ScoreDisksTest, TheFirstOfTheEqualBestIsMarkedAndAStaleMarkGoes) {
  std::vector<DiskInfo> disks{Disk("X", "S", kBusTypeUsb, kMove | DiskInfo::kBestDisk),
                              Disk("A", "S1", kBusTypeSata), Disk("B", "S2", kBusTypeSata)};
  EXPECT_EQ(ScoreDisks(disks), 1);
  for (size_t i = 0; i < 3; ++i) EXPECT_EQ(disks[i].Has(DiskInfo::kBestDisk), i == 1);
}

TEST(ClassifyAdapterTest, BusFirstThenWirelessOrVirtualWords) {
  const struct {
    const char* pnpId;
    const char* description;
    uint32_t protocol, rating;
  } cases[] = {
      {"PCI\\VEN_8086", "Intel(R) Ethernet", 6, 110},
      {"PCI\\VEN_8086", "Ethernet", 71, 100},
      {"PCI\\VEN_10EC", "Realtek wifi6 adapter", 6, 100},
      {"PCI\\VEN_8086", "Virtual", 6, 110},  // "virtual" lowers unknown buses only
      {"USB\\VID_0BDA", "USB Ethernet", 6, 60},
      {"USB\\VID_0BDA", "USB WLAN", 6, 50},
      {"BTH\\MS_BTHPAN", "Virtual wireless", 71, 85},
      {"ROOT\\NET\\0000", "Wireless", 71, 30},
      {"", "Virtual Adapter", 6, 30},
      {"VMBUS\\{f8615163}", "Virtualization adapter", 6, 40},
  };
  for (const auto& c : cases) {
    const AdapterInfo adapter{-1, "", "", c.description, c.protocol};
    EXPECT_EQ(ClassifyAdapter(adapter, c.pnpId), c.rating) << c.pnpId << " " << c.description;
  }
}

// The current and the legacy scheme's decoder agree on the common cases and
// differ on purpose in the others, so each row shows both.
TEST(DescriptorStringDecodersTest, HexPlainSwapAndTrim) {
  const struct {
    std::string text;
    bool swap;
    std::string decoded, flipped;  // DecodeDescriptorString, flipAndCodeBytes
  } cases[] = {
      {"  ST1000  ", false, "ST1000", "ST1000"},
      {"5a394131", true, "9Z1A", "9Z1A"},
      {"5a394131423243", true, "9Z1A2B", "9Z1A2BC"},  // odd length: lost vs kept
      {"2 41", false, "A", "A"},                      // the blank stands for 0
      {"2\t41", false, "A", "2\t41"},                 // other white space only in one
      {"2020", false, "  ", ""},                      // white space only: kept vs trimmed
      {"AB\x01", false, "", "AB\x01"},                // plain text must be printable in one
  };
  for (const auto& c : cases) {
    std::vector<uint8_t> buffer(2048);
    memcpy(&buffer[64], c.text.data(), c.text.size());
    EXPECT_EQ(DecodeDescriptorString(buffer.data(), buffer.size(), 64, c.swap) + "|" +
                  KyMacID::flipAndCodeBytes(buffer.data(), buffer.size(), 64, c.swap),
              c.decoded + "|" + c.flipped);
  }
}

TEST(FindDiskByKeyTest, ExactKeyThenSerialAloneButNeverAnAnonymousSpareDisk) {
  std::vector<DiskInfo> disks = {Disk("", "", 0), Disk("Samsung SSD 870", "X123456", 0),
                                 Disk("", "", 0, DiskInfo::kBestDisk), Disk("", "", 0, kSys)};
  for (int i = 0; i < 4; ++i) disks[i].Index = i;
  EXPECT_EQ(1, FindDiskByKey(disks, "PID:{Old Name}SN:{X123456}"));
  EXPECT_EQ(-1, FindDiskByKey(disks, "PID:{X}SN:{X12345}"));  // no partial serials
  // Without any identity only the best or the system disk matches.
  EXPECT_EQ(2, FindDiskByKey(disks, "PID:{}SN:{}"));
  EXPECT_EQ(3, FindDiskByKey({disks[0], disks[3]}, "PID:{}SN:{}"));
  EXPECT_EQ(-1, FindDiskByKey({disks[0]}, "PID:{}SN:{}"));
}

TEST(Md5Test, KnownDigestsAndTheLegacySchemesDiskGuid) {
  std::string allBytes;
  for (int i = 0; i < 256; ++i) allBytes.push_back(static_cast<char>(i));
  EXPECT_EQ(KyGuidUtils::Md5Hex(nullptr, 0), "d41d8cd98f00b204e9800998ecf8427e");
  EXPECT_EQ(KyGuidUtils::Md5Hex(std::string(56, 'a')), "3b0c8ac703f828b04c6c197006d17218");
  EXPECT_EQ(KyGuidUtils::Md5Hex(allBytes), "e2c865db4162bed963bfaa9ef6ac18f0");
  // The legacy scheme's disk GUID: serial, model and revision in that order.
  EXPECT_EQ(CalcDiskGuid("b", "c", "a"), "900150983cd24fb0d6963f7d28e17f72");
}

// Whom a data folder or file may belong to: the owners and DACLs a machine
// really gives them.
constexpr char kUs[] = "S-1-5-21-1-2-3-1000";    // the account the update runs as
constexpr char kUser[] = "S-1-5-21-1-2-3-1001";  // a standard user of the machine
constexpr char kUsers[] = "S-1-5-32-545";
constexpr char kEveryone[] = "S-1-1-0";
constexpr char kCreatorOwner[] = "S-1-3-0";
constexpr uint32_t kFullControl = 0x1F01FF;
constexpr uint32_t kReadExecute = 0x1200A9;
constexpr uint32_t kAddFileAndFolder = 0x000006;

AccessEntry Allow(const char* sid, uint32_t mask, bool inheritOnly = false) {
  return AccessEntry{true, inheritOnly, mask, sid};
}

TEST(FolderTrustTest, OnlyTrustedPrincipalsMayOwnOrChangeAFolder) {
  const TrustedPrincipals trusted(kUs);
  const AccessEntry system = Allow(kSystemSid, kFullControl);
  const AccessEntry admins = Allow(kAdministratorsSid, kFullControl);
  const struct {
    const char* name;
    SecuritySnapshot folder;
    bool trustedFolder;
    bool trustedFile;
  } cases[] = {
      {"the protected folder the library makes",
       {kAdministratorsSid, true, {system, admins, Allow(kUsers, kReadExecute)}},
       true,
       true},
      {"ProgramData's inherited default: Users may add files and folders",
       {kAdministratorsSid,
        true,
        {system, admins, Allow(kCreatorOwner, 0x10000000, true), Allow(kUsers, kReadExecute),
         Allow(kUsers, kAddFileAndFolder)}},
       false,
       true},
      {"squatted: a standard user made it first",
       {kUser, true, {system, admins, Allow(kUser, kFullControl)}},
       false,
       false},
      {"ours, but Everyone may delete from it",
       {kUs, true, {Allow(kUs, kFullControl), Allow(kEveryone, 0x40)}},
       false,
       true},
      {"ours, and Users may only change its permissions",
       {kUs, true, {Allow(kUs, kFullControl), Allow(kUsers, 0x40000)}},
       false,
       true},
      {"a NULL DACL lets everyone do everything", {kUs, false, {}}, false, true},
      {"Wine's: the account, SYSTEM, Everyone read and execute",
       {kUs, true, {system, Allow(kUs, kFullControl), Allow(kEveryone, kReadExecute)}},
       true,
       true},
      {"a standard user denied, and full control inherited only by what is made inside",
       {"S-1-5-80-956008885-3418522649-1831038044-1853292631-2271478464",
        true,
        {AccessEntry{false, false, kFullControl, kUser}, Allow(kEveryone, kFullControl, true)}},
       true,
       true},
      {"no owner could be read", {"", true, {system}}, false, false},
  };
  for (const auto& c : cases) {
    EXPECT_EQ(c.trustedFolder, IsTrustedFolder(c.folder, trusted)) << c.name;
    EXPECT_EQ(c.trustedFile, IsTrustedFile(c.folder, trusted)) << c.name;
  }
}

}  // namespace
