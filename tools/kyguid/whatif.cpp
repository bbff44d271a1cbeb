#include "tools/kyguid/whatif.h"

#include <fstream>
#include <sstream>

#include "kyguidlib/guidpaths.h"
#include "tools/kyguid/cli.h"
#include "tools/simmachine/machinefile.h"

namespace KyGuidCli {
namespace {

using KyGuidSim::MachineFile;
using KyGuidSim::SimulatedMachine;

bool ReadFile(const std::string& path, std::string& text) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream content;
  content << in.rdbuf();
  text = content.str();
  return true;
}

// The disk fetcher takes the disk that holds the data folder's drive for the
// system disk, so the system disks' volume is given that drive letter.
void AddSystemVolume(const MachineFile& file, SimulatedMachine& machine) {
  const std::wstring dataFolder = KyGuid::GetProfileDir();
  if (dataFolder.size() < 2 || dataFolder[1] != L':') return;
  std::vector<std::pair<uint32_t, uint64_t>> extents;
  for (const KyGuidSim::MachineDisk& disk : file.disks) {
    if (disk.system) extents.emplace_back(disk.number, 1ull << 30);
  }
  if (!extents.empty())
    machine.AddVolume(dataFolder[0]).extents = SimulatedMachine::Extents(extents);
}

void Populate(const MachineFile& file, SimulatedMachine& machine) {
  for (const KyGuidSim::MachineDisk& disk : file.disks) {
    KyGuidSim::SimDrive& drive = machine.AddDrive(disk.number);
    drive.ideDeviceMap = disk.ideDeviceMap;
    if (!disk.descriptor.empty()) {
      // Captured answers are replayed as they are; a drive captured without
      // IDENTIFY data did not answer it.
      drive.descriptor = disk.descriptor;
      drive.identify = disk.identify;
    } else {
      drive.descriptor = SimulatedMachine::Descriptor(disk.vendor, disk.model, disk.revision,
                                                      disk.serial, disk.bus, disk.removable);
      // A described drive answers IDENTIFY with the same strings, as real
      // drives do, unless its IDENTIFY data is given.
      drive.identify = disk.identify.empty()
                           ? SimulatedMachine::Identify(disk.model, disk.serial, disk.revision)
                           : disk.identify;
    }
  }
  for (const KyGuidSim::MachineScsiPort& port : file.scsiPorts) {
    KyGuidSim::SimScsiController& controller = machine.AddScsiController(port.number);
    controller.identify[0] = port.identify[0];
    controller.identify[1] = port.identify[1];
  }
  for (const KyGuidSim::MachineLana& lana : file.lanas) {
    machine.AddLana(static_cast<uint8_t>(lana.number), lana.mac);
  }
  machine.processorBrand = file.processorBrand;
  AddSystemVolume(file, machine);
  for (const KyGuidSim::MachineAdapter& described : file.adapters) {
    KyGuidSim::SimAdapter& adapter =
        machine.AddAdapter(described.name, described.description, described.mac);
    adapter.pnpId = described.pnpId;
    adapter.type = described.type;
    if (described.index >= 0) adapter.index = static_cast<uint32_t>(described.index);
    adapter.present = described.present;
    adapter.mediaSubType = described.mediaSubType;
    if (described.knownToWmi && !described.pnpId.empty()) machine.wmiPnpIds.insert(described.pnpId);
  }
}

}  // namespace

bool WhatIfMachine::Install(const std::string& path) {
  if (path.empty()) return true;
  std::string text;
  if (!ReadFile(path, text)) {
    PrintError("the machine file %s cannot be read", path.c_str());
    return false;
  }
  MachineFile file;
  KyGuidSim::MachineFileError error;
  if (!KyGuidSim::ParseMachineFile(text, file, error)) {
    PrintError("the machine file %s has an error in line %d: %s", path.c_str(), error.line,
               error.message.c_str());
    return false;
  }
  m_path = path;
  Populate(file, m_machine);
  m_scope =
      std::make_unique<KyGuid::ScopedPlatform>(KyGuid::Platform{nullptr, nullptr, &m_machine});
  return true;
}

std::string WhatIfMachine::Description() const {
  return m_path.empty() ? "this machine" : "simulated from " + m_path;
}

}  // namespace KyGuidCli
