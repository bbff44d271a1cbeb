// The what-if machine of the command line, described in a small text file
// that a support engineer writes by hand:
//
//   # The desk machine after its network card was replaced.
//   [disk 0]
//   model  = ST1000DM010-2EP102
//   serial = Z9A1B2C3
//   system = yes
//
//   [adapter {6A5B8C1D-7E2F-4A3B-9C4D-5E6F7A8B9C0D}]
//   description = Intel(R) Ethernet Connection I219-V
//   mac = 00-11-22-aa-bb-cc
//   pnp = PCI\VEN_8086&DEV_15B8\3&11583659&0&FE
//
// The README lists every key. Pure text handling: no Windows headers, so it
// is also built natively and run under the sanitizers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace KyGuidSim {

struct MachineDisk {
  int number = 0;  // physical drive number, 0-15
  int line = 0;    // of the section head, for messages
  std::string model;
  std::string serial;
  std::string revision;
  std::string vendor;
  uint32_t bus = 11;  // STORAGE_BUS_TYPE; SATA unless said otherwise
  bool removable = false;
  bool system = false;  // holds the volume of the data folder
  // Raw device answers, as a drive gave them: the storage device descriptor
  // (replacing the six strings and flags above) and the 512 bytes of ATA
  // IDENTIFY data. Empty when not given.
  std::vector<uint8_t> descriptor;
  std::vector<uint8_t> identify;
  uint8_t ideDeviceMap = 0x01;  // the SMART version reply's IDE device map
};

struct MachineAdapter {
  std::string name;  // the GUID name, in braces as the IP helper gives it
  int line = 0;
  std::string description;
  std::vector<uint8_t> mac;
  std::string pnpId;          // empty: the registry has no PnpInstanceID
  uint32_t type = 6;          // IANA ifType: 6 Ethernet, 71 IEEE 802.11
  int index = -1;             // -1: the simulated machine numbers it
  bool present = true;        // false: removed, yet still in the registry
  bool knownToWmi = true;     // defaults to `present`
  int64_t mediaSubType = -1;  // -1: no registry value
};

// What the legacy scheme reads besides disks and adapters: SCSI ports that
// answer IDENTIFY through their miniport, NetBIOS LAN adapters, and the
// processor's brand string.
struct MachineScsiPort {
  int number = 0;                    // N of \\.\ScsiN:, 0-15
  std::vector<uint8_t> identify[2];  // per position; empty: no device there
};

struct MachineLana {
  int number = 0;
  int line = 0;
  std::vector<uint8_t> mac;
};

struct MachineFile {
  std::vector<MachineDisk> disks;
  std::vector<MachineAdapter> adapters;
  std::vector<MachineScsiPort> scsiPorts;
  std::vector<MachineLana> lanas;
  // The 48 bytes of the processor's brand-string leaves, as CPUID gives them
  // (blanks and NULs included); empty: the machine running the tool answers.
  std::vector<uint8_t> processorBrand;
};

struct MachineFileError {
  int line = 0;  // 1-based
  std::string message;
};

// False at the first line that is not understood, with `error` saying why.
bool ParseMachineFile(const std::string& text, MachineFile& machine, MachineFileError& error);

// The file that parses back to `machine`: device answers as hex, every
// adapter with all its keys, values quoted where their blanks would
// otherwise be lost.
std::string WriteMachineFile(const MachineFile& machine);

}  // namespace KyGuidSim
