// capture: this machine's hardware as the library reads it, written as a
// machine file that --machine replays anywhere. It asks the hardware through
// the same seam and the same requests as the library, keeps the answers as
// the devices gave them, and writes nothing but its output.
#include <windows.h>
#include <iphlpapi.h>

#include <cstdio>
#include <string>
#include <vector>

#include "common/clock.h"
#include "kyguidlib/devicetransport.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/platform.h"
#include "kyguidlib/td/macfetcher.h"
#include "tools/kyguid/cli.h"
#include "tools/kyguid/describe.h"
#include "tools/simmachine/machinefile.h"

namespace KyGuidCli {
namespace {

using KyGuid::IDevice;
using KyGuid::IHardware;
using KyGuidSim::MachineFile;

constexpr uint32_t kAdapterBufferStart = 16 * sizeof(IP_ADAPTER_INFO);
constexpr uint32_t kAdapterBufferLimit = 1 << 24;
constexpr uint32_t kPnpIdBufferSize = 2048;  // as the adapter fetcher reads it
constexpr uint32_t kMinDescriptor = 8;

// The descriptor as the drive gave it: the bytes it reported, never fewer
// than the version and size fields.
void CaptureDescriptor(int drive, KyGuidSim::MachineDisk& disk) {
  uint32_t error = 0;
  std::unique_ptr<IDevice> device =
      KyGuid::OpenPhysicalDrive(drive, KyGuid::kQueryOnly, KyGuid::kShareReadWrite, &error);
  if (!device) return;
  KyGuid::DescriptorReply reply =
      KyGuid::QueryStorageDescriptor(*device, KyGuid::kDescriptorBufferSize);
  if (!reply.ok) return;
  reply.bytes.resize(std::max(reply.returned, kMinDescriptor));
  disk.descriptor = reply.bytes;
}

// IDENTIFY as the current scheme asks it (the command register alone), and
// with the full register set where a drive answers only that.
void CaptureIdentify(int drive, KyGuidSim::MachineDisk& disk) {
  uint32_t error = 0;
  std::unique_ptr<IDevice> device =
      KyGuid::OpenPhysicalDrive(drive, KyGuid::kReadWrite, KyGuid::kShareReadWrite, &error);
  if (!device) return;
  const KyGuid::SmartVersion version = KyGuid::QuerySmartVersion(*device);
  if (!version.ok) return;
  disk.ideDeviceMap = version.ideDeviceMap;
  KyGuid::IdentifyReply reply =
      KyGuid::ReceiveDriveData(*device, KyGuid::CommandOnlyIdentifyRequest(KyGuid::kSendCmdInSize),
                               {KyGuid::kSendCmdInSize, KyGuid::kIdentifyReplySize, false});
  if ((!reply.ok || reply.returned != KyGuid::kIdentifyReplySize) && version.ideDeviceMap != 0) {
    reply = KyGuid::ReceiveDriveData(
        *device,
        KyGuid::FullIdentifyRequest(drive, KyGuid::IdentifyCommandFor(version.ideDeviceMap, drive)),
        {KyGuid::kSendCmdInSize - 1, KyGuid::kIdentifyReplySize, false});
  }
  if (reply.ok) disk.identify = reply.identify;
}

// The disks that hold the data folder's volume, found as the disk fetcher
// finds them but without its log lines.
std::vector<uint32_t> SystemDisks() {
  const std::wstring folder = KyGuid::GetProfileDir();
  if (folder.size() < 3 || folder[1] != L':') return {};
  return KyGuid::QueryVolumeDisks(folder[0]).disks;
}

void CaptureDisks(MachineFile& machine) {
  const std::vector<uint32_t> system = SystemDisks();
  for (int drive = 0; drive < KyGuid::kMaxPhysicalDrives; ++drive) {
    KyGuidSim::MachineDisk disk;
    disk.number = drive;
    CaptureDescriptor(drive, disk);
    // A drive that fails the property query is not listed by the fetchers;
    // it is left out here too.
    if (disk.descriptor.empty()) continue;
    CaptureIdentify(drive, disk);
    disk.system =
        std::find(system.begin(), system.end(), static_cast<uint32_t>(drive)) != system.end();
    machine.disks.push_back(disk);
  }
}

void CaptureScsiPorts(MachineFile& machine) {
  KyGuid::ForEachScsiPort([&machine](int controller, IDevice& port) {
    KyGuidSim::MachineScsiPort captured;
    captured.number = controller;
    for (int position = 0; position < KyGuid::kDrivesPerScsiController; ++position) {
      const KyGuid::IdentifyReply reply = KyGuid::MiniportIdentify(port, position);
      if (reply.ok) captured.identify[position] = reply.identify;
    }
    machine.scsiPorts.push_back(captured);
  });
}

void CaptureAdapters(MachineFile& machine) {
  IHardware& hardware = *KyGuid::CurrentPlatform().hardware;
  std::unique_ptr<KyGuid::IAdapterQuery> query = hardware.LoadAdapterQuery();
  if (!query) return;
  std::vector<uint8_t> buffer;
  uint32_t size = kAdapterBufferStart;
  uint32_t result = ERROR_BUFFER_OVERFLOW;
  while (result == ERROR_BUFFER_OVERFLOW && size <= kAdapterBufferLimit) {
    buffer.assign(size, 0);
    result = query->GetAdaptersInfo(buffer.data(), &size);
  }
  if (result != ERROR_SUCCESS) return;
  for (auto* entry = reinterpret_cast<const IP_ADAPTER_INFO*>(buffer.data()); entry;
       entry = entry->Next) {
    if (entry->AddressLength == 0) continue;  // the fetchers pass these over too
    KyGuidSim::MachineAdapter adapter;
    adapter.name = entry->AdapterName;
    adapter.description = entry->Description;
    adapter.mac.assign(entry->Address, entry->Address + std::min<UINT>(entry->AddressLength, 8));
    adapter.type = entry->Type;
    adapter.index = static_cast<int>(entry->Index);
    const std::string connection = adapter.name + "\\Connection";
    hardware.ReadNetworkString(connection, "PnpInstanceID", kPnpIdBufferSize, adapter.pnpId);
    uint32_t mediaSubType = 0;
    if (hardware.ReadNetworkDword(connection, "MediaSubType", mediaSubType)) {
      adapter.mediaSubType = mediaSubType;
    }
    adapter.knownToWmi = !adapter.pnpId.empty() && hardware.FindWmiAdapter(adapter.pnpId);
    machine.adapters.push_back(adapter);
  }
}

void CaptureLanas(MachineFile& machine) {
  std::vector<KyMacID::LanaAddress> answers;
  KyMacID::QueryLanaAddresses(*KyGuid::CurrentPlatform().hardware, answers);
  for (const KyMacID::LanaAddress& answer : answers) {
    KyGuidSim::MachineLana lana;
    lana.number = answer.lana;
    lana.mac.assign(answer.address, answer.address + KyMacID::MACAddress::kLength);
    machine.lanas.push_back(lana);
  }
}

std::string Header() {
  return "# kyguid capture of this machine, taken " + FormatTime(KyGuidUtils::CurrentTime()) +
         ".\n"
         "# It holds hardware identifiers and nothing else: the raw answers of the\n"
         "# disks (models, serial numbers, firmware revisions), the network adapters'\n"
         "# names, descriptions, MAC addresses and Plug and Play ids, NetBIOS adapter\n"
         "# addresses and the processor's brand string.\n"
         "# Replay it anywhere with: kyguid inventory|build|explain --machine FILE\n";
}

}  // namespace

int CaptureCommand(const Options& options) {
  MachineFile machine;
  CaptureDisks(machine);
  CaptureScsiPorts(machine);
  CaptureAdapters(machine);
  CaptureLanas(machine);
  KyGuid::CurrentPlatform().hardware->ReadProcessorBrand(machine.processorBrand);

  const std::string text = Header() + KyGuidSim::WriteMachineFile(machine);
  if (options.outputFile.empty()) {
    fwrite(text.data(), 1, text.size(), stdout);
    return kExitOk;
  }
  FILE* out = fopen(options.outputFile.c_str(), "wb");
  if (!out) {
    PrintError("%s cannot be written", options.outputFile.c_str());
    return kExitNotWritable;
  }
  const bool written = fwrite(text.data(), 1, text.size(), out) == text.size();
  if (fclose(out) != 0 || !written) {
    PrintError("%s could not be written whole", options.outputFile.c_str());
    return kExitNotWritable;
  }
  return kExitOk;
}

}  // namespace KyGuidCli
