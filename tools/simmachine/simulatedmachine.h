// A machine made of configured devices, answering the library's hardware
// seam with the byte layouts that Windows itself returns. Used by the tests
// and by the command line's what-if mode; never by the shipped library.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "kyguidlib/hardware.h"

namespace KyGuidSim {

// The Windows error codes the simulation answers with.
constexpr uint32_t kErrorFileNotFound = 2;
constexpr uint32_t kErrorAccessDenied = 5;
constexpr uint32_t kErrorInvalidFunction = 1;
constexpr uint32_t kErrorNotSupported = 50;
constexpr uint32_t kErrorBufferOverflow = 111;
constexpr uint32_t kErrorInsufficientBuffer = 122;
constexpr uint32_t kErrorNoData = 232;

struct SimDrive {
  int number = 0;
  uint32_t openError = 0;  // non-zero: every open of the drive fails with it
  // Reply to the storage property query; empty makes the query fail.
  std::vector<uint8_t> descriptor;
  uint32_t queryError = kErrorInvalidFunction;
  // The 512-byte IDENTIFY DEVICE block; empty: the drive rejects SMART.
  std::vector<uint8_t> identify;
  uint32_t smartError = kErrorInvalidFunction;
  uint8_t ideDeviceMap = 0x01;
  uint32_t smartReturnedBytes = 528;  // what SMART_RCV_DRIVE_DATA reports
  // An ATAPI device answers IDENTIFY PACKET DEVICE (0xA1) only, an ATA
  // device IDENTIFY DEVICE (0xEC) only; the other command fails.
  bool packetDevice = false;
};

// A SCSI port ("\\.\ScsiN:") whose miniport answers IDENTIFY for the
// devices at positions 0 and 1.
struct SimScsiController {
  int number = 0;
  uint32_t openError = 0;
  // The IDENTIFY block per position; empty: the miniport fails the request.
  std::vector<uint8_t> identify[2];
  uint32_t miniportError = kErrorInvalidFunction;
};

// The IDENTIFY request a drive or miniport received, read through
// SENDCMDINPARAMS.
struct AtaRequest {
  std::wstring device;
  uint32_t inSize = 0;
  uint32_t bufferSize = 0;  // cBufferSize
  uint8_t sectorCount = 0;
  uint8_t driveHead = 0;
  uint8_t command = 0;
  uint8_t driveNumber = 0;
};

struct SimVolume {
  wchar_t letter = L'C';
  uint32_t openError = 0;
  // Reply to IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS; empty makes it fail.
  std::vector<uint8_t> extents;
};

struct SimAdapter {
  std::string name;  // as the IP helper gives it, with braces
  std::string description;
  std::vector<uint8_t> address;
  uint32_t index = 0;
  uint32_t type = 6;          // interface type: 6 Ethernet, 71 802.11, ...
  std::string pnpId;          // "PnpInstanceID"; empty: no registry value
  int64_t mediaSubType = -1;  // "MediaSubType"; -1: no registry value
  // False for an adapter that was removed: the registry still has its key,
  // the IP helper no longer lists it.
  bool present = true;
};

// A NetBIOS LAN adapter number and the adapter status it answers with.
struct SimLana {
  uint8_t number = 0;
  std::vector<uint8_t> address;  // adapter_address of ADAPTER_STATUS
  uint8_t statusResult = 0;      // non-zero: NCBASTAT fails with this NRC code
};

struct NetbiosCall {
  uint8_t command;
  uint8_t lana;
};

struct OpenCall {
  std::wstring path;
  uint32_t access;
  uint32_t share;
};

class SimulatedMachine final : public KyGuid::IHardware {
 public:
  // --- Byte layouts --------------------------------------------------------
  // A STORAGE_DEVICE_DESCRIPTOR with its strings behind the fixed part; an
  // empty string gets offset 0.
  static std::vector<uint8_t> Descriptor(const std::string& vendor, const std::string& product,
                                         const std::string& revision, const std::string& serial,
                                         uint32_t busType, bool removable);
  // An IDENTIFY DEVICE block: ATA strings padded with blanks to their field
  // width and stored with the two bytes of each word swapped.
  static std::vector<uint8_t> Identify(const std::string& model, const std::string& serial,
                                       const std::string& revision);
  // VOLUME_DISK_EXTENTS: (disk number, extent length) pairs.
  static std::vector<uint8_t> Extents(const std::vector<std::pair<uint32_t, uint64_t>>& extents);

  // --- Configuration -------------------------------------------------------
  SimDrive& AddDrive(int number);
  SimVolume& AddVolume(wchar_t letter);
  SimAdapter& AddAdapter(const std::string& name, const std::string& description,
                         const std::vector<uint8_t>& address);
  SimScsiController& AddScsiController(int number);

  bool adapterApiMissing = false;
  uint32_t adapterQueryError = 0;  // non-zero: GetAdaptersInfo answers with it
  uint32_t adapterSizeGrowth = 0;  // bytes the list grows by between calls
  std::set<std::string> wmiPnpIds;
  std::vector<uint8_t> processorBrand;  // the 48 bytes; empty: this processor's
  uint32_t deviceOpenDelayMs = 0;       // makes every device open slow

  // --- What the code under test asked ---------------------------------------
  std::vector<OpenCall> opens;
  std::vector<uint32_t> controlCodes;
  std::vector<uint32_t> adapterQuerySizes;  // the size passed to each call
  int adapterModuleLoads = 0;
  std::vector<std::string> wmiQueries;
  std::vector<AtaRequest> ataRequests;  // SMART_RCV_DRIVE_DATA and miniport IDENTIFY

  // --- The seam ------------------------------------------------------------
  std::unique_ptr<KyGuid::IDevice> OpenDevice(const std::wstring& path, uint32_t access,
                                              uint32_t share, uint32_t flags,
                                              uint32_t* error) override;
  std::unique_ptr<KyGuid::IAdapterQuery> LoadAdapterQuery() override;
  bool ReadNetworkString(const std::string& connectionKey, const char* valueName, uint32_t maxBytes,
                         std::string& value) override;
  bool ReadNetworkDword(const std::string& connectionKey, const char* valueName,
                        uint32_t& value) override;
  bool FindWmiAdapter(const std::string& pnpId) override;
  // `processorBrand`, or the brand of the processor the simulation runs on.
  bool ReadProcessorBrand(std::vector<uint8_t>& registers) override;
  uint8_t Netbios(void* ncb) override;

  // --- NetBIOS: NCBENUM lists the LANAs in the order added, NCBRESET must
  // come before NCBASTAT on a LANA, as with the real transport. -------------
  SimLana& AddLana(uint8_t number, const std::vector<uint8_t>& address);
  uint8_t netbiosEnumResult = 0;  // non-zero: NCBENUM fails with this NRC code
  std::vector<NetbiosCall> netbiosCalls;

  // Fills an IP_ADAPTER_INFO chain for the configured adapters.
  uint32_t FillAdaptersInfo(void* buffer, uint32_t* size);

 private:
  const SimAdapter* FindAdapterByConnectionKey(const std::string& connectionKey) const;
  // "\\.\ScsiN:" -> N, or -1.
  static int ScsiControllerNumber(const std::wstring& path);
  std::unique_ptr<KyGuid::IDevice> OpenScsiPort(int controller, uint32_t* error);

  std::deque<SimDrive> m_drives;
  std::deque<SimVolume> m_volumes;
  std::deque<SimAdapter> m_adapters;
  std::deque<SimScsiController> m_scsiControllers;
  int m_adapterQueries = 0;
  std::deque<SimLana> m_lanas;
  std::set<uint8_t> m_resetLanas;
};

}  // namespace KyGuidSim
