// The what-if machine file: the line an engineer is sent to when it is wrong.
// What a good file turns into shows in kyguid inventory (kyguidcli_test.cpp).
#include "tools/simmachine/machinefile.h"

#include <gtest/gtest.h>

#include <tuple>

namespace {

TEST(MachineFileTest, FirstMistakeIsReportedWithItsLine) {
  const std::tuple<const char*, int, const char*> kBadFiles[] = {
      {"model = X\n", 1, "'model' comes before any [disk N] or [adapter NAME] section"},
      {"[disk 0]\nmodle = X\n", 2, "unknown disk key 'modle'"},
      {"[adapter {A}]\nmac = 00\nserial = X\n", 3, "unknown adapter key 'serial'"},
      {"[disk 0]\n\n[disk 0]\n", 3, "disk 0 is described twice"},
      {"[disk 16]\n", 1, "drive number from 0 to 15"},
      {"[adapter]\nmac = 00\n", 1, "needs the adapter's GUID name"},
      {"[disk 0\n", 1, "must end with ']'"},
      {"[disk 0]\nmodel ST1000\n", 2, "expected 'key = value'"},
      {"[disk 0]\nmodel = A\nModel = B\n", 3, "'model' is given twice"},
      {"[disk 0]\nbus = floppy\n", 2, "bus must be a number or one of"},
      {"[disk 0]\nsystem = maybe\n", 2, "system must be yes or no, not 'maybe'"},
      {"[adapter {A}]\nmac = 00:11:2\n", 2, "mac must be 1 to 8 bytes"},
      {"[adapter {A}]\nmac = 00\ntype = token-ring\n", 3, "type must be a number or one of"},
      {"[adapter {A}]\nmac = 00\nindex = 4\n[adapter {B}]\nmac = 01\nindex = 4\n", 6,
       "index 4 is given"},
      {"[disk 0]\ndescriptor = 28 00 0\n", 2, "descriptor must be 8 to 4096 bytes"},
      {"[disk 0]\ndescriptor = 28 00 00\n", 2, "descriptor must be 8 to 4096 bytes"},
      {"[disk 0]\ndescriptor = 2800000028000000\nserial = X\n", 3,
       "'serial' cannot stand beside 'descriptor'"},
      {"[disk 0]\nidentify = 00\n", 2, "identify must be exactly 512 bytes"},
      {"[processor]\nbrand = zz\n", 2, "brand must be exactly 48 bytes"},
      // A missing mac is found when the section ends and blamed on its head.
      {"[disk 0]\n[adapter {A}]\ndescription = x\n[disk 1]\n", 2, "adapter {A} has no mac"},
  };
  for (const auto& [text, line, message] : kBadFiles) {
    KyGuidSim::MachineFile machine;
    KyGuidSim::MachineFileError error;
    EXPECT_FALSE(ParseMachineFile(text, machine, error)) << text;
    EXPECT_EQ(line, error.line) << text;
    EXPECT_NE(std::string::npos, error.message.find(message)) << text << " gave: " << error.message;
  }
}

}  // namespace
