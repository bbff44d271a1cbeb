#include "tools/kyguid/describe.h"

#include <cstdio>
#include <ctime>

#include "kyguidlib/cadapterfetcher.h"
#include "kyguidlib/cguidbuilder.h"
#include "kyguidlib/guiddecision.h"

namespace KyGuidCli {
namespace {

using KyGuid::AdapterInfo;
using KyGuid::DiskInfo;

constexpr int kLabelWidth = 16;

std::string Numbered(uint32_t number, const char* name) {
  return name ? std::to_string(number) + " (" + name + ")" : std::to_string(number);
}

const char* BusName(uint32_t bus) {
  switch (bus) {
    case 1:
      return "SCSI";
    case 2:
      return "ATAPI";
    case 3:
      return "ATA";
    case 7:
      return "USB";
    case 8:
      return "RAID";
    case 10:
      return "SAS";
    case 11:
      return "SATA";
    case 12:
      return "SD";
    case 13:
      return "MMC";
    case 14:
      return "virtual";
    case 15:
      return "file-backed virtual";
    case 17:
      return "NVMe";
    default:
      return nullptr;
  }
}

const char* RatingName(uint32_t type) {
  switch (type) {
    case 110:
      return "wired PCI";
    case 100:
      return "wireless PCI";
    case 85:
      return "Bluetooth";
    case 60:
      return "wired USB";
    case 50:
      return "wireless USB";
    case 40:
      return "other";
    case 30:
      return "software or virtual";
    default:
      return nullptr;
  }
}

std::string Join(const std::string& list, const char* item) {
  return list.empty() ? item : list + ", " + item;
}

std::string DiskFlags(const DiskInfo& disk) {
  std::string flags;
  if (disk.Has(DiskInfo::kSystemDisk)) flags = Join(flags, "system");
  if (disk.Has(DiskInfo::kRemovableMedia)) flags = Join(flags, "removable");
  if (disk.Has(DiskInfo::kBestDisk)) flags = Join(flags, "best");
  if (disk.Has(DiskInfo::kGuidDisk)) flags = Join(flags, "GUID disk");
  return flags.empty() ? "none" : flags;
}

std::string AdapterFlags(const AdapterInfo& adapter) {
  std::string flags;
  if (adapter.Has(AdapterInfo::kBestAdapter)) flags = Join(flags, "best");
  if (adapter.Has(AdapterInfo::kGuidAdapter)) flags = Join(flags, "GUID adapter");
  return flags.empty() ? "none" : flags;
}

// Whether the matcher trusts this disk alone, and why not when it does not.
std::string DiskQuality(const DiskInfo& disk) {
  if (KyGuid::IsVirtualDisk(disk)) return "virtual disk, not good alone";
  return KyGuid::IsGoodDisk(disk) ? "good disk" : "not good alone";
}

}  // namespace

std::string FormatTime(int64_t secondsSince1970) {
  if (secondsSince1970 == 0) return "(none)";
  const __time64_t time = secondsSince1970;
  struct tm parts {};
  if (_gmtime64_s(&parts, &time) != 0) return std::to_string(secondsSince1970);
  char text[32];
  strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S UTC", &parts);
  return text;
}

std::string ReasonText(int reason) {
  std::string text;
  if (reason & KyGuid::kReasonDiskLost) text = Join(text, "disk lost");
  if (reason & KyGuid::kReasonAdapterLost) text = Join(text, "adapter lost");
  return text.empty() ? "none" : text;
}

std::string BusText(uint32_t bus) { return Numbered(bus, BusName(bus)); }

std::string ProtocolText(uint32_t protocol) {
  const char* name = protocol == 6    ? "Ethernet"
                     : protocol == 71 ? "IEEE 802.11"
                     : protocol == 23 ? "PPP"
                                      : nullptr;
  return Numbered(protocol, name);
}

std::string RatingText(uint32_t type) { return Numbered(type, RatingName(type)); }

std::string BuildText(int createIndex) {
  return createIndex < 0 ? "none" : std::to_string(createIndex);
}

ResultText DescribeResult(int result) {
  switch (result) {
    case KyGuid::kResultKept:
      return {"kept", "keep the GUID in force", "the GUID in force still fits this machine: kept"};
    case KyGuid::kResultFirstBuilt:
      return {"built", "build the first GUID", "the first GUID was built"};
    case KyGuid::kResultAncientAdopted:
      return {"adopted", "adopt the ancient GUID", "the ancient GUID was adopted"};
    case KyGuid::kResultReplacedSameVersion:
      return {"rebuilt", "rebuild: a new GUID replaces one of the same version",
              "rebuilt: a new GUID replaced one of the same version"};
    case KyGuid::kResultReplacedOtherVersion:
      return {"rebuilt", "rebuild: a new GUID replaces one of another version",
              "rebuilt: a new GUID replaced one of another version"};
    default:
      return {"none", "no GUID: there is no disk, no adapter and no GUID in force",
              "no GUID: there is no disk, no adapter and no GUID in force"};
  }
}

void PrintField(int indent, const std::string& label, const std::string& value) {
  printf("%*s%-*s %s\n", indent, "", kLabelWidth - indent, label.c_str(),
         value.empty() ? "(empty)" : value.c_str());
}

void PrintRecord(int indent, const KyGuid::GuidRecord& record) {
  PrintField(indent, "guid", record.Guid);
  PrintField(indent, "build",
             BuildText(record.CreateIndex) + ", version " + std::to_string(record.Version) +
                 ", created " + FormatTime(record.CreateTime));
  PrintField(indent, "score",
             std::to_string(record.Score) + ", reason " + ReasonText(record.Reason));
  PrintField(indent, "disk key", record.DiskKey);
  PrintField(indent, "adapter key", record.AdapterKey);
}

void PrintDisk(const DiskInfo& disk) {
  printf("disk %d\n", disk.Index);
  PrintField(2, "model", disk.ProductId);
  PrintField(2, "vendor", disk.VendorId);
  PrintField(2, "revision", disk.Revision);
  PrintField(2, "serial", disk.SerialNumber);
  PrintField(2, "bus", BusText(disk.BusType));
  PrintField(2, "flags", DiskFlags(disk));
  PrintField(2, "score", std::to_string(disk.Score) + ", " + DiskQuality(disk));
  PrintField(2, "key", KyGuid::DiskKey(disk));
  PrintField(2, "detail", KyGuid::DiskDetail(disk));
}

void PrintAdapter(const AdapterInfo& adapter) {
  printf("adapter %d\n", adapter.Index);
  PrintField(2, "name", adapter.AdapterName);
  PrintField(2, "description", adapter.Description);
  PrintField(2, "mac", adapter.MacAddress);
  PrintField(2, "protocol", ProtocolText(adapter.Protocol));
  PrintField(2, "pnp id", KyGuid::CAdapterFetcher::QueryPnpInstanceId(adapter.AdapterName));
  PrintField(2, "type", RatingText(adapter.Type));
  PrintField(2, "flags", AdapterFlags(adapter));
  PrintField(2, "score", std::to_string(adapter.Score));
  PrintField(2, "key", KyGuid::AdapterKey(adapter));
  PrintField(2, "detail", KyGuid::AdapterDetail(adapter));
}

void WriteRecord(JsonWriter& json, const char* key, const KyGuid::GuidRecord& record) {
  json.BeginObject(key)
      .String("guid", record.Guid)
      .Int("createIndex", record.CreateIndex)
      .Int("createTime", record.CreateTime)
      .String("created", FormatTime(record.CreateTime))
      .Int("score", record.Score)
      .Int("reason", record.Reason)
      .String("reasonText", ReasonText(record.Reason))
      .Int("version", record.Version)
      .String("diskKey", record.DiskKey)
      .String("diskDetail", record.DiskDetail)
      .String("adapterKey", record.AdapterKey)
      .String("adapterDetail", record.AdapterDetail)
      .EndObject();
}

void WriteDisk(JsonWriter& json, const char* key, const DiskInfo& disk) {
  json.BeginObject(key)
      .Int("index", disk.Index)
      .String("productId", disk.ProductId)
      .String("vendorId", disk.VendorId)
      .String("revision", disk.Revision)
      .String("serialNumber", disk.SerialNumber)
      .Int("busType", disk.BusType)
      .Int("flags", disk.Flags)
      .Bool("removable", disk.Has(DiskInfo::kRemovableMedia))
      .Bool("system", disk.Has(DiskInfo::kSystemDisk))
      .Bool("best", disk.Has(DiskInfo::kBestDisk))
      .Bool("guidDisk", disk.Has(DiskInfo::kGuidDisk))
      .Bool("virtual", KyGuid::IsVirtualDisk(disk))
      .Bool("good", KyGuid::IsGoodDisk(disk))
      .Int("score", disk.Score)
      .String("key", KyGuid::DiskKey(disk))
      .String("detail", KyGuid::DiskDetail(disk))
      .EndObject();
}

void WriteAdapter(JsonWriter& json, const char* key, const AdapterInfo& adapter) {
  json.BeginObject(key)
      .Int("index", adapter.Index)
      .String("name", adapter.AdapterName)
      .String("description", adapter.Description)
      .String("macAddress", adapter.MacAddress)
      .Int("protocol", adapter.Protocol)
      .String("pnpId", KyGuid::CAdapterFetcher::QueryPnpInstanceId(adapter.AdapterName))
      .Int("type", adapter.Type)
      .Int("flags", adapter.Flags)
      .Bool("best", adapter.Has(AdapterInfo::kBestAdapter))
      .Bool("guidAdapter", adapter.Has(AdapterInfo::kGuidAdapter))
      .Int("score", adapter.Score)
      .String("key", KyGuid::AdapterKey(adapter))
      .String("detail", KyGuid::AdapterDetail(adapter))
      .EndObject();
}

}  // namespace KyGuidCli
