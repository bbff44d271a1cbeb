// The disk and adapter records the fetchers fill, and everything derived from
// them without touching the system: keys, detail texts, string clean-up, the
// virtual-device test and the two scoring rules. The GUID engine works only
// on these, so every text here is part of the stored Guid.db format.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace KyGuid {

// STORAGE_BUS_TYPE numbers that the scoring cares about.
enum StorageBusType : uint32_t {
  kBusTypeScsi = 1,
  kBusTypeAta = 3,
  kBusTypeUsb = 7,
  kBusTypeRaid = 8,
  kBusTypeSata = 11,
  kBusTypeVirtual = 14,
  kBusTypeFileBackedVirtual = 15,
  kBusTypeNvme = 17,
};

struct DiskInfo {
  static constexpr uint32_t kRemovableMedia = 1u << 0;
  static constexpr uint32_t kSystemDisk = 1u << 16;
  static constexpr uint32_t kBestDisk = 1u << 17;
  static constexpr uint32_t kGuidDisk = 1u << 18;

  int32_t Index = -1;  // physical drive number; -1 until a fetcher assigns one
  std::string ProductId;
  std::string Revision;
  std::string SerialNumber;
  std::string VendorId;
  uint32_t BusType = 0;
  uint32_t Flags = 0;
  int32_t Score = 0;

  bool Has(uint32_t flag) const { return (Flags & flag) != 0; }
};

struct AdapterInfo {
  static constexpr uint32_t kBestAdapter = 1u << 0;
  static constexpr uint32_t kGuidAdapter = 1u << 1;

  int32_t Index = -1;       // interface index of this run, never persisted
  std::string AdapterName;  // GUID name without braces
  std::string MacAddress;   // lower-case hex, no separators
  std::string Description;
  uint32_t Protocol = 0;  // IANA ifType
  uint32_t Type = 0;      // connection-class rating, see ClassifyAdapter
  int32_t Score = 0;
  uint32_t Flags = 0;

  bool Has(uint32_t flag) const { return (Flags & flag) != 0; }
};

// "PID:{model}SN:{serial}"
std::string DiskKey(const DiskInfo& disk);
// "Mac:{address}"
std::string AdapterKey(const AdapterInfo& adapter);
// Stored beside a GUID and logged; shows the score capped at 100.
std::string DiskDetail(const DiskInfo& disk);
std::string AdapterDetail(const AdapterInfo& adapter);

// Cleans the four identity strings of a freshly fetched disk: undoes the
// hex-encoded, word-swapped form, trims blanks, cuts to 64 characters and
// escapes control characters as "\xx".
void SanitizeDiskStrings(DiskInfo& disk);

bool IsVirtualDisk(const DiskInfo& disk);
// Whether a disk identifies the machine well enough on its own.
bool IsGoodDisk(const DiskInfo& disk);

// 15..150; a system disk starts from 150.
int32_t DiskScore(const DiskInfo& disk);
// Stores every disk's score and marks the first disk with the strictly
// greatest one as best. Returns that disk's position, -1 for an empty list.
int ScoreDisks(std::vector<DiskInfo>& disks);

// Rating from the adapter's Plug and Play instance id (empty when it could
// not be read) and its description: 110 wired PCI, 100 wireless PCI,
// 85 Bluetooth, 60 wired USB, 50 wireless USB, 40 other, 30 virtual.
uint32_t ClassifyAdapter(const AdapterInfo& adapter, const std::string& pnpInstanceId);
// Score = Type for every adapter; marks the first with the strictly greatest
// score as best. Returns its position, -1 for an empty list.
int ScoreAdapters(std::vector<AdapterInfo>& adapters);

// The disk GUID of the legacy scheme: MD5 of serial, model and revision run
// together, which is how that scheme recognised a disk. Logged at TRACE.
std::string CalcDiskGuid(const std::string& productId, const std::string& revision,
                         const std::string& serialNumber);

}  // namespace KyGuid
