#include "kyguidlib/guidmatch.h"

namespace KyGuid {
namespace {

// Bluetooth and up: wired and wireless PCI adapters, which stay with the
// machine when its disk is changed.
constexpr uint32_t kFixedHardwareAdapter = 85;

}  // namespace

int FindDiskByKey(const std::vector<DiskInfo>& disks, const std::string& key) {
  if (key.empty() || disks.empty()) return -1;
  for (const DiskInfo& disk : disks) {
    // A disk that reports no identity at all would match any record stored
    // from another such disk; only the system or best disk may.
    if (disk.ProductId.empty() && disk.SerialNumber.empty() && !disk.Has(DiskInfo::kSystemDisk) &&
        !disk.Has(DiskInfo::kBestDisk)) {
      continue;
    }
    if (DiskKey(disk) == key) return disk.Index;
  }
  for (const DiskInfo& disk : disks) {
    if (disk.SerialNumber.empty()) continue;
    if (key.find("SN:{" + disk.SerialNumber + "}") != std::string::npos) return disk.Index;
  }
  return -1;
}

int FindAdapterByKey(const std::vector<AdapterInfo>& adapters, const std::string& key) {
  if (key.empty()) return -1;
  for (const AdapterInfo& adapter : adapters) {
    if (AdapterKey(adapter) == key) return adapter.Index;
  }
  return -1;
}

// The messages differ in wording and capitals from row to row; support
// searches logs for them as they are.
MatchDecision DecideMatch(const MatchFacts& facts, const std::function<bool()>& adapterKnownToWmi) {
  if (facts.matchedDisk && facts.matchedAdapter) return {1, true, nullptr};
  if (facts.matchedDisk) {
    if (!facts.anyAdapter) {
      return {2, true, "Disk match, local don't have any adapter, no change"};
    }
    if (IsGoodDisk(*facts.matchedDisk)) {
      return {3, true, "Disk match, adapter not found, but the disk is good, no change"};
    }
    if (adapterKnownToWmi()) {
      return {4, true, "Bad Disk match, adapter not found, but find it in WMI, no change"};
    }
    return {5, false, "Bad Disk match, adapter not found, rebuild guid"};
  }
  if (facts.matchedAdapter) {
    if (!facts.anyDisk) return {6, true, "adapter match, local dont have any disk, no change"};
    if (facts.matchedAdapter->Type >= kFixedHardwareAdapter) {
      return {7, true,
              "adapter match, disk not match, but adapter is hardware and fixed, no change"};
    }
    return {8, false, "Adapter match, but disk not match, rebuild guid"};
  }
  if (facts.anyDisk) return {9, false, "nothing match, build new guid"};
  if (!facts.recordHasGuid) {
    return {10, false, "nothing match, local has no disk, build special guid"};
  }
  return {11, true, "nothing match, but local has no disk, no change"};
}

std::string GuidNameFromDetail(const std::string& detail) {
  constexpr char kMarker[] = "Guid:{";
  size_t start = detail.find(kMarker);
  if (start == std::string::npos) return std::string();
  start += sizeof(kMarker) - 1;
  size_t end = detail.find('}', start);
  if (end == std::string::npos) return std::string();
  return detail.substr(start, end - start);
}

}  // namespace KyGuid
