#include "kyguidlib/cdisksmartfetcher.h"

#include <cstring>

#include "common/kylog.h"
#include "kyguidlib/devicepaths.h"
#include "kyguidlib/devicestrings.h"
#include "kyguidlib/hardware.h"
#include "kyguidlib/platform.h"

namespace KyGuid {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\cdisksmartfetcher";
constexpr wchar_t kFetch[] = L"KyGuid::CDiskSmartFetcher::Fetch";

constexpr uint32_t kVersionSize = 24;     // GETVERSIONINPARAMS
constexpr uint32_t kCommandSize = 33;     // SENDCMDINPARAMS, one buffer byte
constexpr uint32_t kReplySize = 528;      // SENDCMDOUTPARAMS header + IDENTIFY data
constexpr size_t kReplyHeaderSize = 16;   // cBufferSize + DRIVERSTATUS
constexpr size_t kCommandRegister = 10;   // IDEREGS.bCommandReg
constexpr uint8_t kIdentifyDevice = 0xEC;

}  // namespace

int CDiskSmartFetcher::Fetch(DiskInfo& disk) {
  IHardware& hardware = *CurrentPlatform().hardware;
  uint32_t error = 0;
  std::unique_ptr<IDevice> device =
      hardware.OpenDevice(PhysicalDrivePath(disk.Index), kGenericRead | kGenericWrite,
                          kShareRead | kShareWrite, 0, &error);
  if (!device) {
    if (error != kErrorFileNotFound) {
      KyLog::Write(KyLog::kWarn, KYLOG_SITE(kFetch), "Open Disk[%d] failed: %u", disk.Index, error);
    }
    return 0;
  }

  uint8_t version[kVersionSize] = {};
  uint32_t returned = 0;
  if (!device->Control(kSmartGetVersion, nullptr, 0, version, sizeof(version), &returned, &error)) {
    KyLog::Write(KyLog::kWarn, KYLOG_SITE(kFetch), "Disk[%d] SMART_GET_VERSION failed: %u",
                 disk.Index, error);
    return 0;
  }

  // The drive is selected by the handle alone: drive number, sector count
  // and drive/head registers stay 0.
  uint8_t command[kCommandSize] = {};
  command[kCommandRegister] = kIdentifyDevice;
  uint8_t reply[kReplySize] = {};
  if (!device->Control(kSmartReceiveDriveData, command, sizeof(command), reply, sizeof(reply),
                       &returned, &error)) {
    KyLog::Write(KyLog::kWarn, KYLOG_SITE(kFetch), "Disk[%d] SMART_RCV_DRIVE_DATA failed: %u",
                 disk.Index, error);
    return 0;
  }
  if (returned != kReplySize) {
    KyLog::Write(KyLog::kWarn, KYLOG_SITE(kFetch),
                 "Disk[%d] SMART_RCV_DRIVE_DATA failed: too less data, len=%u", disk.Index,
                 returned);
    return 0;
  }

  const uint8_t* identify = reply + kReplyHeaderSize;
  disk.SerialNumber = IdentifySwappedString(identify, 20, 10);
  disk.ProductId = IdentifySwappedString(identify, 54, 20);
  disk.Revision = IdentifySwappedString(identify, 46, 4);
  SanitizeDiskStrings(disk);
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kFetch), "SMART fetch disk, PID=%s, Rev=%s, SN=%s",
               disk.ProductId.c_str(), disk.Revision.c_str(), disk.SerialNumber.c_str());
  return 1;
}

}  // namespace KyGuid
