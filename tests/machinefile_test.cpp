// The what-if machine file: what a hand-written file turns into, and the
// line an engineer is sent to when it is wrong.
#include <gtest/gtest.h>

#include "tools/simmachine/machinefile.h"

namespace {

using KyGuidSim::MachineFile;
using KyGuidSim::MachineFileError;
using KyGuidSim::ParseMachineFile;

TEST(MachineFileTest, ReadsEveryKeyWithItsSpellingsAndDefaults) {
  const std::string text =
      "\xEF\xBB\xBF# desk machine, saved by Notepad\r\n"
      "[disk 1]\r\n"
      "  Model = ST1000DM010-2EP102  \r\n"
      "serial=Z9A1B2C3\r\n"
      "revision = CC43\r\n"
      "vendor = ATA\r\n"
      "bus = NVMe\r\n"
      "removable = no\r\n"
      "system = YES\r\n"
      "\r\n"
      "; second disk keeps every default\r\n"
      "[disk 0]\r\n"
      "[adapter 6A5B-1]\r\n"
      "description = Intel(R) Ethernet #2\r\n"
      "mac = 00-11-22-AA-bb-cc\r\n"
      "pnp = PCI\\VEN_8086&DEV_15B8\\3&11583659&0&FE\r\n"
      "type = wifi\r\n"
      "index = 7\r\n"
      "mediasubtype = 2\r\n"
      "present = no\r\n"
      "[ adapter  {B} ]\n"
      "mac = 001a2b3c4d5e\n"
      "type = 23\n"
      "present = false\n"
      "wmi = yes";
  MachineFile machine;
  MachineFileError error;
  ASSERT_TRUE(ParseMachineFile(text, machine, error)) << error.line << ": " << error.message;

  ASSERT_EQ(2u, machine.disks.size());
  const KyGuidSim::MachineDisk& disk = machine.disks[0];
  EXPECT_EQ(1, disk.number);
  EXPECT_EQ("ST1000DM010-2EP102", disk.model);
  EXPECT_EQ(17u, disk.bus);
  EXPECT_TRUE(disk.system);
  EXPECT_EQ(0, machine.disks[1].number);
  EXPECT_EQ(11u, machine.disks[1].bus);
  EXPECT_FALSE(machine.disks[1].system);

  ASSERT_EQ(2u, machine.adapters.size());
  const KyGuidSim::MachineAdapter& nic = machine.adapters[0];
  EXPECT_EQ("{6A5B-1}", nic.name);
  EXPECT_EQ("Intel(R) Ethernet #2", nic.description);  // '#' inside a value is text
  EXPECT_EQ((std::vector<uint8_t>{0x00, 0x11, 0x22, 0xAA, 0xBB, 0xCC}), nic.mac);
  EXPECT_EQ("PCI\\VEN_8086&DEV_15B8\\3&11583659&0&FE", nic.pnpId);
  EXPECT_EQ(71u, nic.type);
  EXPECT_EQ(7, nic.index);
  EXPECT_FALSE(nic.present);
  EXPECT_FALSE(nic.knownToWmi);  // follows present unless given

  const KyGuidSim::MachineAdapter& removed = machine.adapters[1];
  EXPECT_EQ("{B}", removed.name);
  EXPECT_EQ(-1, removed.index);
  EXPECT_EQ(-1, removed.mediaSubType);
  EXPECT_FALSE(removed.present);
  EXPECT_TRUE(removed.knownToWmi);
}

struct BadFile {
  const char* text;
  int line;
  const char* message;
};

TEST(MachineFileTest, FirstMistakeIsReportedWithItsLine) {
  const BadFile kBadFiles[] = {
      {"model = X\n", 1, "'model' comes before any [disk N] or [adapter NAME] section"},
      {"[disk 0]\nmodle = X\n", 2, "unknown disk key 'modle'"},
      {"[adapter {A}]\nmac = 00\nserial = X\n", 3, "unknown adapter key 'serial'"},
      {"[disk 0]\n\n[disk 0]\n", 3, "disk 0 is described twice"},
      {"[disk 16]\n", 1, "drive number from 0 to 15"},
      {"[disk x]\n", 1, "drive number from 0 to 15"},
      {"[adapter]\nmac = 00\n", 1, "needs the adapter's GUID name"},
      {"[printer 1]\n", 1, "unknown section '[printer 1]'"},
      {"[disk 0\n", 1, "must end with ']'"},
      {"[disk 0]\nmodel ST1000\n", 2, "expected 'key = value'"},
      {"[disk 0]\nmodel = A\nModel = B\n", 3, "'model' is given twice"},
      {"[disk 0]\nbus = floppy\n", 2, "bus must be a number or one of"},
      {"[disk 0]\nsystem = maybe\n", 2, "system must be yes or no, not 'maybe'"},
      {"[adapter {A}]\nmac = 00:11:2\n", 2, "mac must be 1 to 8 bytes"},
      {"[adapter {A}]\nmac = 001122334455667788\n", 2, "mac must be 1 to 8 bytes"},
      {"[adapter {A}]\nmac = 00\ntype = token-ring\n", 3, "type must be a number or one of"},
      {"[adapter {A}]\nmac = 00\nindex = -1\n", 3, "index must be a number"},
      {"[adapter {A}]\nmac = 00\nindex = 4\n[adapter {B}]\nmac = 01\nindex = 4\n", 6,
       "index 4 is given to two adapters"},
      {"[adapter {A}]\nmediasubtype = 99999999999\n", 2, "mediasubtype must be a number"},
      // A missing mac is found when the section ends and blamed on its head.
      {"[disk 0]\n[adapter {A}]\ndescription = x\n[disk 1]\n", 2, "adapter {A} has no mac"},
      {"[adapter {A}]\ndescription = x\n", 1, "adapter {A} has no mac"},
  };
  for (const BadFile& bad : kBadFiles) {
    MachineFile machine;
    MachineFileError error;
    EXPECT_FALSE(ParseMachineFile(bad.text, machine, error)) << bad.text;
    EXPECT_EQ(bad.line, error.line) << bad.text;
    EXPECT_NE(std::string::npos, error.message.find(bad.message))
        << bad.text << " gave: " << error.message;
  }
}

}  // namespace
