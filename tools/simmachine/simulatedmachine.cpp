#include "tools/simmachine/simulatedmachine.h"

#include <windows.h>
#include <iphlpapi.h>
#include <nb30.h>
#include <ntddscsi.h>
#include <winioctl.h>

#include <algorithm>
#include <cstring>

namespace KyGuidSim {
namespace {

constexpr uint32_t kQueryProperty = 0x2D1400;   // IOCTL_STORAGE_QUERY_PROPERTY
constexpr uint32_t kSmartGetVersion = 0x74080;  // SMART_GET_VERSION
constexpr uint32_t kSmartReceive = 0x7C088;     // SMART_RCV_DRIVE_DATA
constexpr uint32_t kVolumeExtents = 0x560000;   // IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS
constexpr size_t kSendCmdOutHeader = 16;        // cBufferSize + DRIVERSTATUS

bool EqualsNoCase(const std::string& a, const std::string& b) {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return tolower(static_cast<unsigned char>(x)) == tolower(static_cast<unsigned char>(y));
         });
}

// The registry names an adapter's key by its GUID in braces, whatever blanks
// or extra braces the IP helper's name carries.
std::string RegistryName(const std::string& adapterName) {
  size_t first = adapterName.find_first_not_of(" {");
  size_t last = adapterName.find_last_not_of(" }");
  if (first == std::string::npos) return "{}";
  return "{" + adapterName.substr(first, last - first + 1) + "}";
}

// "\\.\PhysicalDriveN" -> N, or -1.
int DriveNumber(const std::wstring& path) {
  // No static string: a static first used on an update thread during
  // process exit registers its destructor while exit holds the runtime's
  // exit lock, and the thread never finishes.
  constexpr wchar_t kPrefix[] = L"\\\\.\\PhysicalDrive";
  constexpr size_t kPrefixLength = sizeof(kPrefix) / sizeof(kPrefix[0]) - 1;
  if (path.compare(0, kPrefixLength, kPrefix) != 0 || path.size() == kPrefixLength) return -1;
  int number = 0;
  for (size_t i = kPrefixLength; i < path.size(); ++i) {
    if (path[i] < L'0' || path[i] > L'9') return -1;
    number = number * 10 + (path[i] - L'0');
  }
  return number;
}

// "\\.\C:" -> 'C', or 0.
wchar_t VolumeLetter(const std::wstring& path) {
  if (path.size() == 6 && path.compare(0, 4, L"\\\\.\\") == 0 && path[5] == L':') return path[4];
  return 0;
}

bool RecordSmartRequest(const std::wstring& device, const void* in, uint32_t inSize,
                        std::vector<AtaRequest>* requests, AtaRequest& request);

class SimDriveDevice final : public KyGuid::IDevice {
 public:
  SimDriveDevice(const SimDrive& drive, const std::wstring& path, std::vector<AtaRequest>* requests)
      : m_drive(drive), m_path(path), m_requests(requests) {}

  bool Control(uint32_t code, const void* in, uint32_t inSize, void* out, uint32_t outSize,
               uint32_t* returned, uint32_t* error) override {
    if (returned) *returned = 0;
    switch (code) {
      case kQueryProperty:
        if (m_drive.descriptor.empty() || inSize < 12) return Fail(error, m_drive.queryError);
        return Reply(m_drive.descriptor, out, outSize, returned, error);
      case kSmartGetVersion: {
        if (m_drive.identify.empty()) return Fail(error, m_drive.smartError);
        if (outSize < sizeof(GETVERSIONINPARAMS)) return Fail(error, kErrorInsufficientBuffer);
        GETVERSIONINPARAMS version{};
        version.bVersion = 1;
        version.bIDEDeviceMap = m_drive.ideDeviceMap;
        version.fCapabilities = CAP_ATA_ID_CMD | CAP_SMART_CMD;
        memcpy(out, &version, sizeof(version));
        if (returned) *returned = sizeof(version);
        return true;
      }
      case kSmartReceive: {
        AtaRequest request;
        if (!RecordSmartRequest(m_path, in, inSize, m_requests, request) ||
            m_drive.identify.empty()) {
          return Fail(error, m_drive.smartError);
        }
        const uint8_t expected = m_drive.packetDevice ? ATAPI_ID_CMD : ID_CMD;
        if (request.command != expected) return Fail(error, kErrorInvalidFunction);
        std::vector<uint8_t> reply(kSendCmdOutHeader, 0);
        uint32_t bufferSize = 512;
        memcpy(reply.data(), &bufferSize, sizeof(bufferSize));
        reply.insert(reply.end(), m_drive.identify.begin(), m_drive.identify.end());
        if (!Reply(reply, out, outSize, returned, error)) return false;
        if (returned) *returned = std::min<uint32_t>(*returned, m_drive.smartReturnedBytes);
        return true;
      }
      default:
        return Fail(error, kErrorInvalidFunction);
    }
  }

  bool SeekToStart() override { return true; }

  bool Read(void* buffer, uint32_t size, uint32_t* read) override {
    memset(buffer, 0, size);
    if (read) *read = size;
    return true;
  }

  static bool Fail(uint32_t* error, uint32_t code) {
    if (error) *error = code;
    return false;
  }

  static bool Reply(const std::vector<uint8_t>& bytes, void* out, uint32_t outSize,
                    uint32_t* returned, uint32_t* error) {
    if (!out || outSize == 0) return Fail(error, kErrorInsufficientBuffer);
    uint32_t count = static_cast<uint32_t>(std::min<size_t>(bytes.size(), outSize));
    memcpy(out, bytes.data(), count);
    if (returned) *returned = count;
    return true;
  }

 private:
  const SimDrive& m_drive;
  std::wstring m_path;
  std::vector<AtaRequest>* m_requests;
};

class SimVolumeDevice final : public KyGuid::IDevice {
 public:
  explicit SimVolumeDevice(const SimVolume& volume) : m_volume(volume) {}

  bool Control(uint32_t code, const void*, uint32_t, void* out, uint32_t outSize,
               uint32_t* returned, uint32_t* error) override {
    if (returned) *returned = 0;
    if (code != kVolumeExtents || m_volume.extents.empty()) {
      return SimDriveDevice::Fail(error, kErrorInvalidFunction);
    }
    return SimDriveDevice::Reply(m_volume.extents, out, outSize, returned, error);
  }
  bool SeekToStart() override { return true; }
  bool Read(void*, uint32_t, uint32_t*) override { return false; }

 private:
  const SimVolume& m_volume;
};

class SimAdapterQuery final : public KyGuid::IAdapterQuery {
 public:
  explicit SimAdapterQuery(SimulatedMachine& machine) : m_machine(machine) {}
  uint32_t GetAdaptersInfo(void* buffer, uint32_t* size) override {
    return m_machine.FillAdaptersInfo(buffer, size);
  }

 private:
  SimulatedMachine& m_machine;
};

void PutString(std::vector<uint8_t>& bytes, size_t offsetField, const std::string& text) {
  if (text.empty()) return;
  uint32_t offset = static_cast<uint32_t>(bytes.size());
  memcpy(bytes.data() + offsetField, &offset, sizeof(offset));
  bytes.insert(bytes.end(), text.begin(), text.end());
  bytes.push_back(0);
}

void PutAtaString(std::vector<uint8_t>& block, size_t byteOffset, size_t words,
                  const std::string& text) {
  std::string padded = text.substr(0, words * 2);
  padded.resize(words * 2, ' ');
  for (size_t i = 0; i < words * 2; i += 2) {
    block[byteOffset + i] = static_cast<uint8_t>(padded[i + 1]);
    block[byteOffset + i + 1] = static_cast<uint8_t>(padded[i]);
  }
}

}  // namespace

std::vector<uint8_t> SimulatedMachine::Descriptor(const std::string& vendor,
                                                  const std::string& product,
                                                  const std::string& revision,
                                                  const std::string& serial, uint32_t busType,
                                                  bool removable) {
  std::vector<uint8_t> bytes(sizeof(STORAGE_DEVICE_DESCRIPTOR), 0);
  STORAGE_DEVICE_DESCRIPTOR fixed{};
  fixed.Version = sizeof(STORAGE_DEVICE_DESCRIPTOR);
  fixed.RemovableMedia = removable ? TRUE : FALSE;
  fixed.BusType = static_cast<STORAGE_BUS_TYPE>(busType);
  memcpy(bytes.data(), &fixed, sizeof(fixed));
  PutString(bytes, offsetof(STORAGE_DEVICE_DESCRIPTOR, VendorIdOffset), vendor);
  PutString(bytes, offsetof(STORAGE_DEVICE_DESCRIPTOR, ProductIdOffset), product);
  PutString(bytes, offsetof(STORAGE_DEVICE_DESCRIPTOR, ProductRevisionOffset), revision);
  PutString(bytes, offsetof(STORAGE_DEVICE_DESCRIPTOR, SerialNumberOffset), serial);
  uint32_t size = static_cast<uint32_t>(bytes.size());
  memcpy(bytes.data() + offsetof(STORAGE_DEVICE_DESCRIPTOR, Size), &size, sizeof(size));
  return bytes;
}

std::vector<uint8_t> SimulatedMachine::Identify(const std::string& model, const std::string& serial,
                                                const std::string& revision) {
  std::vector<uint8_t> block(512, 0);
  PutAtaString(block, 20, 10, serial);   // words 10-19
  PutAtaString(block, 46, 4, revision);  // words 23-26
  PutAtaString(block, 54, 20, model);    // words 27-46
  return block;
}

std::vector<uint8_t> SimulatedMachine::Extents(
    const std::vector<std::pair<uint32_t, uint64_t>>& extents) {
  const size_t count = std::max<size_t>(extents.size(), 1);
  std::vector<uint8_t> bytes(offsetof(VOLUME_DISK_EXTENTS, Extents) + count * sizeof(DISK_EXTENT),
                             0);
  auto* header = reinterpret_cast<VOLUME_DISK_EXTENTS*>(bytes.data());
  header->NumberOfDiskExtents = static_cast<DWORD>(extents.size());
  for (size_t i = 0; i < extents.size(); ++i) {
    header->Extents[i].DiskNumber = extents[i].first;
    header->Extents[i].StartingOffset.QuadPart = 1048576;
    header->Extents[i].ExtentLength.QuadPart = static_cast<LONGLONG>(extents[i].second);
  }
  return bytes;
}

SimDrive& SimulatedMachine::AddDrive(int number) {
  m_drives.emplace_back();
  m_drives.back().number = number;
  return m_drives.back();
}

SimVolume& SimulatedMachine::AddVolume(wchar_t letter) {
  m_volumes.emplace_back();
  m_volumes.back().letter = letter;
  return m_volumes.back();
}

SimAdapter& SimulatedMachine::AddAdapter(const std::string& name, const std::string& description,
                                         const std::vector<uint8_t>& address) {
  m_adapters.emplace_back();
  SimAdapter& adapter = m_adapters.back();
  adapter.name = name;
  adapter.description = description;
  adapter.address = address;
  adapter.index = static_cast<uint32_t>(m_adapters.size() + 10);
  return adapter;
}

std::unique_ptr<KyGuid::IDevice> SimulatedMachine::OpenDevice(const std::wstring& path,
                                                              uint32_t access, uint32_t share,
                                                              uint32_t, uint32_t* error) {
  opens.push_back({path, access, share});
  if (deviceOpenDelayMs) Sleep(deviceOpenDelayMs);
  auto fail = [&](uint32_t code) -> std::unique_ptr<KyGuid::IDevice> {
    if (error) *error = code;
    return nullptr;
  };
  int number = DriveNumber(path);
  if (number >= 0) {
    for (const SimDrive& drive : m_drives) {
      if (drive.number != number) continue;
      if (drive.openError) return fail(drive.openError);
      return std::make_unique<SimDriveDevice>(drive, path, &ataRequests);
    }
    return fail(kErrorFileNotFound);
  }
  const int controller = ScsiControllerNumber(path);
  if (controller >= 0) return OpenScsiPort(controller, error);
  wchar_t letter = VolumeLetter(path);
  for (const SimVolume& volume : m_volumes) {
    if (letter && towupper(volume.letter) == towupper(letter)) {
      if (volume.openError) return fail(volume.openError);
      return std::make_unique<SimVolumeDevice>(volume);
    }
  }
  return fail(kErrorFileNotFound);
}

std::unique_ptr<KyGuid::IAdapterQuery> SimulatedMachine::LoadAdapterQuery() {
  ++adapterModuleLoads;
  if (adapterApiMissing) return nullptr;
  return std::make_unique<SimAdapterQuery>(*this);
}

uint32_t SimulatedMachine::FillAdaptersInfo(void* buffer, uint32_t* size) {
  adapterQuerySizes.push_back(*size);
  const uint32_t growth = adapterSizeGrowth * static_cast<uint32_t>(m_adapterQueries++);
  if (adapterQueryError) return adapterQueryError;
  std::vector<const SimAdapter*> listed;
  for (const SimAdapter& adapter : m_adapters) {
    if (adapter.present) listed.push_back(&adapter);
  }
  if (listed.empty()) return kErrorNoData;
  const uint32_t needed = static_cast<uint32_t>(listed.size() * sizeof(IP_ADAPTER_INFO)) + growth;
  if (!buffer || *size < needed) {
    *size = needed;
    return kErrorBufferOverflow;
  }
  memset(buffer, 0, needed);
  auto* entries = static_cast<IP_ADAPTER_INFO*>(buffer);
  for (size_t i = 0; i < listed.size(); ++i) {
    const SimAdapter& adapter = *listed[i];
    IP_ADAPTER_INFO& entry = entries[i];
    entry.Next = i + 1 < listed.size() ? &entries[i + 1] : nullptr;
    entry.ComboIndex = adapter.index;
    strncpy(entry.AdapterName, adapter.name.c_str(), sizeof(entry.AdapterName) - 1);
    strncpy(entry.Description, adapter.description.c_str(), sizeof(entry.Description) - 1);
    entry.AddressLength = static_cast<UINT>(std::min<size_t>(adapter.address.size(), 8));
    memcpy(entry.Address, adapter.address.data(), entry.AddressLength);
    entry.Index = adapter.index;
    entry.Type = adapter.type;
  }
  return 0;
}

const SimAdapter* SimulatedMachine::FindAdapterByConnectionKey(
    const std::string& connectionKey) const {
  for (const SimAdapter& adapter : m_adapters) {
    if (EqualsNoCase(connectionKey, RegistryName(adapter.name) + "\\Connection")) return &adapter;
  }
  return nullptr;
}

bool SimulatedMachine::ReadNetworkString(const std::string& connectionKey, const char* valueName,
                                         uint32_t maxBytes, std::string& value) {
  const SimAdapter* adapter = FindAdapterByConnectionKey(connectionKey);
  if (!adapter || !EqualsNoCase(valueName, "PnpInstanceID") || adapter->pnpId.empty()) {
    return false;
  }
  if (adapter->pnpId.size() + 1 > maxBytes) return false;  // ERROR_MORE_DATA
  value = adapter->pnpId;
  return true;
}

bool SimulatedMachine::ReadNetworkDword(const std::string& connectionKey, const char* valueName,
                                        uint32_t& value) {
  const SimAdapter* adapter = FindAdapterByConnectionKey(connectionKey);
  if (!adapter || !EqualsNoCase(valueName, "MediaSubType") || adapter->mediaSubType < 0) {
    return false;
  }
  value = static_cast<uint32_t>(adapter->mediaSubType);
  return true;
}

bool SimulatedMachine::FindWmiAdapter(const std::string& pnpId) {
  wmiQueries.push_back(pnpId);
  for (const std::string& known : wmiPnpIds) {
    if (EqualsNoCase(known, pnpId)) return true;
  }
  return false;
}

bool SimulatedMachine::ReadProcessorBrand(std::vector<uint8_t>& registers) {
  if (processorBrand.empty()) return KyGuid::Win32Hardware().ReadProcessorBrand(registers);
  registers = processorBrand;
  return true;
}

// --- NetBIOS ------------------------------------------------------------------

SimLana& SimulatedMachine::AddLana(uint8_t number, const std::vector<uint8_t>& address) {
  m_lanas.emplace_back();
  m_lanas.back().number = number;
  m_lanas.back().address = address;
  return m_lanas.back();
}

uint8_t SimulatedMachine::Netbios(void* request) {
  NCB& ncb = *static_cast<NCB*>(request);
  netbiosCalls.push_back({ncb.ncb_command, ncb.ncb_lana_num});
  auto answer = [&ncb](uint8_t code) {
    ncb.ncb_retcode = code;
    ncb.ncb_cmd_cplt = code;
    return code;
  };
  auto findLana = [this](uint8_t number) -> const SimLana* {
    for (const SimLana& lana : m_lanas) {
      if (lana.number == number) return &lana;
    }
    return nullptr;
  };

  switch (ncb.ncb_command) {
    case NCBENUM: {
      if (netbiosEnumResult) return answer(netbiosEnumResult);
      if (!ncb.ncb_buffer || ncb.ncb_length < sizeof(LANA_ENUM)) return answer(NRC_BUFLEN);
      LANA_ENUM lanas{};
      for (const SimLana& lana : m_lanas) lanas.lana[lanas.length++] = lana.number;
      memcpy(ncb.ncb_buffer, &lanas, sizeof(lanas));
      return answer(NRC_GOODRET);
    }
    case NCBRESET:
      if (!findLana(ncb.ncb_lana_num)) return answer(NRC_BRIDGE);
      m_resetLanas.insert(ncb.ncb_lana_num);
      return answer(NRC_GOODRET);
    case NCBASTAT: {
      const SimLana* lana = findLana(ncb.ncb_lana_num);
      if (!lana) return answer(NRC_BRIDGE);
      if (!m_resetLanas.count(lana->number)) return answer(NRC_ENVNOTDEF);
      if (ncb.ncb_callname[0] != '*') return answer(NRC_NOWILD);
      if (lana->statusResult) return answer(lana->statusResult);
      if (!ncb.ncb_buffer || ncb.ncb_length < sizeof(ADAPTER_STATUS)) return answer(NRC_BUFLEN);
      ADAPTER_STATUS status{};
      memcpy(status.adapter_address, lana->address.data(),
             std::min<size_t>(lana->address.size(), sizeof(status.adapter_address)));
      memcpy(ncb.ncb_buffer, &status, sizeof(status));
      return answer(NRC_GOODRET);
    }
    default:
      return answer(NRC_ILLCMD);
  }
}

// --- IDENTIFY through SMART and SCSI miniports --------------------------------

namespace {

constexpr uint32_t kScsiMiniport = IOCTL_SCSI_MINIPORT;
// IOCTL_SCSI_MINIPORT_IDENTIFY, from the driver kit: FILE_DEVICE_SCSI (0x1B)
// in the high word.
constexpr uint32_t kMiniportIdentify = (0x1Bu << 16) + 0x0501;

// Reads the request as the driver does, through SENDCMDINPARAMS; a request
// too short to carry the command register is refused.
bool RecordSmartRequest(const std::wstring& device, const void* in, uint32_t inSize,
                        std::vector<AtaRequest>* requests, AtaRequest& request) {
  if (!in || inSize < offsetof(SENDCMDINPARAMS, irDriveRegs.bCommandReg) + 1) return false;
  SENDCMDINPARAMS params{};
  memcpy(&params, in, std::min<size_t>(inSize, sizeof(params)));
  request.device = device;
  request.inSize = inSize;
  request.bufferSize = params.cBufferSize;
  request.sectorCount = params.irDriveRegs.bSectorCountReg;
  request.driveHead = params.irDriveRegs.bDriveHeadReg;
  request.command = params.irDriveRegs.bCommandReg;
  request.driveNumber = params.bDriveNumber;
  if (requests) requests->push_back(request);
  return true;
}

class SimScsiDevice final : public KyGuid::IDevice {
 public:
  SimScsiDevice(const SimScsiController& controller, std::vector<AtaRequest>& requests)
      : m_controller(controller), m_requests(requests) {}

  // The miniport takes SRB_IO_CONTROL followed by SENDCMDINPARAMS and gives
  // back SRB_IO_CONTROL followed by SENDCMDOUTPARAMS with the IDENTIFY data.
  bool Control(uint32_t code, const void* in, uint32_t inSize, void* out, uint32_t outSize,
               uint32_t* returned, uint32_t* error) override {
    if (returned) *returned = 0;
    const size_t requestSize = sizeof(SRB_IO_CONTROL) + sizeof(SENDCMDINPARAMS) - 1;
    if (code != kScsiMiniport || !in || inSize < requestSize) {
      return SimDriveDevice::Fail(error, kErrorInvalidFunction);
    }
    SRB_IO_CONTROL header;
    memcpy(&header, in, sizeof(header));
    if (header.HeaderLength != sizeof(SRB_IO_CONTROL) ||
        memcmp(header.Signature, "SCSIDISK", sizeof(header.Signature)) != 0 ||
        header.ControlCode != kMiniportIdentify) {
      return SimDriveDevice::Fail(error, kErrorInvalidFunction);
    }
    AtaRequest request;
    const auto* params = static_cast<const uint8_t*>(in) + sizeof(SRB_IO_CONTROL);
    RecordSmartRequest(L"\\\\.\\Scsi" + std::to_wstring(m_controller.number) + L":", params,
                       inSize - static_cast<uint32_t>(sizeof(SRB_IO_CONTROL)), &m_requests,
                       request);
    if (request.command != ID_CMD || request.driveNumber > 1 ||
        m_controller.identify[request.driveNumber].empty()) {
      return SimDriveDevice::Fail(error, m_controller.miniportError);
    }

    const std::vector<uint8_t>& identify = m_controller.identify[request.driveNumber];
    std::vector<uint8_t> reply(sizeof(SRB_IO_CONTROL) + offsetof(SENDCMDOUTPARAMS, bBuffer), 0);
    header.ReturnCode = 0;
    header.Length = sizeof(SENDCMDOUTPARAMS) - 1 + static_cast<ULONG>(identify.size());
    memcpy(reply.data(), &header, sizeof(header));
    SENDCMDOUTPARAMS status{};
    status.cBufferSize = static_cast<DWORD>(identify.size());
    memcpy(reply.data() + sizeof(SRB_IO_CONTROL), &status, offsetof(SENDCMDOUTPARAMS, bBuffer));
    reply.insert(reply.end(), identify.begin(), identify.end());
    if (outSize < reply.size()) return SimDriveDevice::Fail(error, kErrorInsufficientBuffer);
    return SimDriveDevice::Reply(reply, out, outSize, returned, error);
  }
  bool SeekToStart() override { return false; }
  bool Read(void*, uint32_t, uint32_t*) override { return false; }

 private:
  const SimScsiController& m_controller;
  std::vector<AtaRequest>& m_requests;
};

}  // namespace

SimScsiController& SimulatedMachine::AddScsiController(int number) {
  m_scsiControllers.emplace_back();
  m_scsiControllers.back().number = number;
  return m_scsiControllers.back();
}

int SimulatedMachine::ScsiControllerNumber(const std::wstring& path) {
  // A constant array, not a static string: see DriveNumber.
  constexpr wchar_t kPrefix[] = L"\\\\.\\Scsi";
  constexpr size_t kPrefixLength = sizeof(kPrefix) / sizeof(kPrefix[0]) - 1;
  if (path.compare(0, kPrefixLength, kPrefix) != 0 || path.size() < kPrefixLength + 2 ||
      path.back() != L':') {
    return -1;
  }
  int number = 0;
  for (size_t i = kPrefixLength; i + 1 < path.size(); ++i) {
    if (path[i] < L'0' || path[i] > L'9') return -1;
    number = number * 10 + (path[i] - L'0');
  }
  return number;
}

std::unique_ptr<KyGuid::IDevice> SimulatedMachine::OpenScsiPort(int controller, uint32_t* error) {
  for (const SimScsiController& port : m_scsiControllers) {
    if (port.number != controller) continue;
    if (port.openError) {
      if (error) *error = port.openError;
      return nullptr;
    }
    return std::make_unique<SimScsiDevice>(port, ataRequests);
  }
  if (error) *error = kErrorFileNotFound;
  return nullptr;
}

}  // namespace KyGuidSim
