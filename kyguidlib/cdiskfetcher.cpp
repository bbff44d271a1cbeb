#include "kyguidlib/cdiskfetcher.h"

#include <algorithm>
#include <cstring>

#include "common/kylog.h"
#include "kyguidlib/cdisksmartfetcher.h"
#include "kyguidlib/devicestrings.h"
#include "kyguidlib/devicetransport.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/hardware.h"
#include "kyguidlib/platform.h"

namespace KyGuid {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\cdiskfetcher";
constexpr wchar_t kFetch[] = L"KyGuid::CDiskFetcher::Fetch";
constexpr wchar_t kFetchDisk[] = L"KyGuid::CDiskFetcher::FetchDisk";
constexpr wchar_t kUpdateSystemMask[] = L"KyGuid::CDiskFetcher::UpdateSystemMask";

constexpr uint32_t kSectorSize = 512;

const char* YesNo(bool value) { return value ? "YES" : "NO"; }

}  // namespace

int CDiskFetcher::Fetch() {
  Enumerate();

  // The system disk is the one that holds the data folder.
  std::wstring dataFolder = GetProfileDir();
  if (dataFolder.size() > 2 && dataFolder[1] == L':') UpdateSystemMask(dataFolder[0]);

  ScoreDisks(m_disks);
  LogDisks();
  return static_cast<int>(m_disks.size());
}

void CDiskFetcher::Enumerate() {
  m_disks.clear();
  for (int drive = 0; drive < kMaxPhysicalDrives; ++drive) {
    DiskInfo disk;
    disk.Index = drive;
    if (FetchDisk(drive, disk)) m_disks.push_back(disk);
  }
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kFetch), "Fetch %d Disks",
               static_cast<int>(m_disks.size()));
}

bool CDiskFetcher::FetchDisk(int drive, DiskInfo& disk) {
  // Some drivers only fill in the identity strings once the disk has been
  // read; the sector itself is not needed and every failure is ignored.
  uint32_t error = 0;
  if (auto warmUp = OpenPhysicalDrive(drive, kGenericRead, kShareRead, &error)) {
    uint8_t sector[kSectorSize];
    uint32_t read = 0;
    warmUp->SeekToStart();
    warmUp->Read(sector, sizeof(sector), &read);
  }

  std::unique_ptr<IDevice> device = OpenPhysicalDrive(drive, kQueryOnly, kShareReadWrite, &error);
  if (!device) {
    if (error != kErrorFileNotFound) {
      KyLog::Write(KyLog::kWarn, KYLOG_SITE(kFetchDisk), "Open Disk[%d] failed: %u", drive, error);
    }
    return false;
  }

  const DescriptorReply reply = QueryStorageDescriptor(*device, kDescriptorBufferSize);
  if (!reply.ok) {
    KyLog::Write(KyLog::kWarn, KYLOG_SITE(kFetchDisk),
                 "IOCTL_STORAGE_QUERY_PROPERTY Disk[%d] failed: %u", drive, reply.error);
    return false;
  }

  StorageDescriptorFields fields = ParseStorageDescriptor(reply.bytes.data(), reply.bytes.size());
  disk.ProductId = fields.ProductId;
  disk.Revision = fields.Revision;
  disk.SerialNumber = fields.SerialNumber;
  disk.VendorId = fields.VendorId;
  disk.BusType = fields.BusType;
  if (fields.RemovableMedia) {
    disk.Flags |= DiskInfo::kRemovableMedia;
  } else {
    disk.Flags &= ~DiskInfo::kRemovableMedia;
  }
  SanitizeDiskStrings(disk);
  device.reset();

  if (disk.SerialNumber.empty()) {
    DiskInfo smart;
    smart.Index = drive;
    CDiskSmartFetcher().Fetch(smart);
    if (!smart.SerialNumber.empty()) {
      disk.ProductId = smart.ProductId;
      disk.Revision = smart.Revision;
      disk.SerialNumber = smart.SerialNumber;
    }
  }
  return true;
}

bool CDiskFetcher::UpdateSystemMask(wchar_t letter) {
  const VolumeDisks volume = QueryVolumeDisks(letter);
  if (!volume.ok && volume.failedStep == VolumeStep::kOpen) {
    KyLog::Write(KyLog::kWarn, KYLOG_SITE(kUpdateSystemMask),
                 L"UpdateSystemInfo[%c:] createfile failed: %u", letter, volume.error);
    return false;
  }
  if (!volume.ok) {
    KyLog::Write(KyLog::kWarn, KYLOG_SITE(kUpdateSystemMask),
                 L"UpdateSystemInfo[%c:] IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS failed: %u", letter,
                 volume.error);
    return false;
  }

  for (const uint32_t diskNumber : volume.disks) {
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kUpdateSystemMask), L"System Volume[%c:] is on Disk[%d]",
                 letter, static_cast<int>(diskNumber));
    auto disk = std::find_if(m_disks.begin(), m_disks.end(), [&](const DiskInfo& d) {
      return d.Index == static_cast<int32_t>(diskNumber);
    });
    if (disk != m_disks.end()) disk->Flags |= DiskInfo::kSystemDisk;
  }
  return !volume.disks.empty();
}

void CDiskFetcher::LogDisks() const {
  if (!KyLog::IsEnabled(KyLog::kInfo)) return;
  for (const DiskInfo& disk : m_disks) {
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kFetch),
                 "Fetch Disk[%d]=> Model[%s], Revision[%s], SN[%s], Vendor[%s], Bus[%d], "
                 "RemoveMedia[%s], System[%s], Score[%d]",
                 disk.Index, disk.ProductId.c_str(), disk.Revision.c_str(),
                 disk.SerialNumber.c_str(), disk.VendorId.c_str(), static_cast<int>(disk.BusType),
                 YesNo(disk.Has(DiskInfo::kRemovableMedia)), YesNo(disk.Has(DiskInfo::kSystemDisk)),
                 std::min(disk.Score, 100));
  }
}

}  // namespace KyGuid
