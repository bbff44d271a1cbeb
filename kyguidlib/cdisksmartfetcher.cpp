#include "kyguidlib/cdisksmartfetcher.h"

#include <cstring>

#include "common/kylog.h"
#include "kyguidlib/devicestrings.h"
#include "kyguidlib/devicetransport.h"

namespace KyGuid {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\cdisksmartfetcher";
constexpr wchar_t kFetch[] = L"KyGuid::CDiskSmartFetcher::Fetch";

// The drive is selected by the handle alone: drive number, sector count and
// drive/head registers stay 0.
constexpr SmartRequestForm kCommandOnly{kSendCmdInSize, kIdentifyReplySize, false};

}  // namespace

int CDiskSmartFetcher::Fetch(DiskInfo& disk) {
  uint32_t error = 0;
  std::unique_ptr<IDevice> device =
      OpenPhysicalDrive(disk.Index, kReadWrite, kShareReadWrite, &error);
  if (!device) {
    if (error != kErrorFileNotFound) {
      KyLog::Write(KyLog::kWarn, KYLOG_SITE(kFetch), "Open Disk[%d] failed: %u", disk.Index, error);
    }
    return 0;
  }

  const SmartVersion version = QuerySmartVersion(*device);
  if (!version.ok) {
    KyLog::Write(KyLog::kWarn, KYLOG_SITE(kFetch), "Disk[%d] SMART_GET_VERSION failed: %u",
                 disk.Index, version.error);
    return 0;
  }

  const IdentifyReply reply =
      ReceiveDriveData(*device, CommandOnlyIdentifyRequest(kSendCmdInSize), kCommandOnly);
  if (!reply.ok) {
    KyLog::Write(KyLog::kWarn, KYLOG_SITE(kFetch), "Disk[%d] SMART_RCV_DRIVE_DATA failed: %u",
                 disk.Index, reply.error);
    return 0;
  }
  if (reply.returned != kIdentifyReplySize) {
    KyLog::Write(KyLog::kWarn, KYLOG_SITE(kFetch),
                 "Disk[%d] SMART_RCV_DRIVE_DATA failed: too less data, len=%u", disk.Index,
                 reply.returned);
    return 0;
  }

  const uint8_t* identify = reply.identify.data();
  disk.SerialNumber = IdentifySwappedString(identify, 20, 10);
  disk.ProductId = IdentifySwappedString(identify, 54, 20);
  disk.Revision = IdentifySwappedString(identify, 46, 4);
  SanitizeDiskStrings(disk);
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kFetch), "SMART fetch disk, PID=%s, Rev=%s, SN=%s",
               disk.ProductId.c_str(), disk.Revision.c_str(), disk.SerialNumber.c_str());
  return 1;
}

}  // namespace KyGuid
