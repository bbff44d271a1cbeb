#include "kyguidlib/ancientdiskfetcher.h"

#include <windows.h>

#include <cstring>
#include <memory>

#include "common/kylog.h"
#include "common/strutil.h"
#include "kyguidlib/devicepaths.h"
#include "kyguidlib/devicestrings.h"
#include "kyguidlib/hdddbfile.h"
#include "kyguidlib/hardware.h"
#include "kyguidlib/identifyrequests.h"
#include "kyguidlib/platform.h"

namespace KyGuid {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\ancientdiskfetcher";
constexpr wchar_t kWithAdminRights[] = L"KyGuid::CAncientDiskFetcher::FetchWithAdminRights";
constexpr wchar_t kUsingSmart[] = L"KyGuid::CAncientDiskFetcher::FetchUsingSmart";
constexpr wchar_t kWithZeroRights[] = L"KyGuid::CAncientDiskFetcher::FetchWithZeroRights";
constexpr wchar_t kAsScsiDrive[] = L"KyGuid::CAncientDiskFetcher::FetchAsScsiDrive";
constexpr wchar_t kReadRandDisk[] = L"KyGuid::CAncientDiskFetcher::ReadRandDisk";
constexpr wchar_t kCalcDiskGuid[] = L"KyGuid::CAncientDiskFetcher::CalcDiskGuid";

// A reply buffer that ends before the firmware revision field (byte 46)
// carries no identity.
constexpr uint32_t kMinIdentifyBytes = 46;
// One block is both request and reply, sized as SENDCMDINPARAMS plus the
// IDENTIFY data.
constexpr uint32_t kSmartBlockSize = kSendCmdInSize + kIdentifyBlockSize;
constexpr size_t kModelFieldAt = 54;  // first byte of IDENTIFY words 27-46

constexpr uint32_t kPropertyQuerySize = 12;  // StorageDeviceProperty, PropertyStandardQuery
constexpr uint32_t kDescriptorReplySize = 2048;
constexpr size_t kProductIdOffsetAt = 16;
constexpr size_t kRevisionOffsetAt = 20;
constexpr size_t kSerialNumberOffsetAt = 24;
// The earlier scheme decoded into 256-byte buffers.
constexpr size_t kDecodedStringMax = 255;
// Serials are checked at their first and twentieth character.
constexpr size_t kLastSerialCheckAt = 19;


uint32_t ReadLe32(const uint8_t* bytes, size_t at) {
  uint32_t value;
  memcpy(&value, bytes + at, sizeof(value));
  return value;
}

DiskInfo FromIdentify(int index, const uint8_t* identify) {
  DiskInfo disk;
  disk.Index = index;
  disk.SerialNumber = GetIdentifyString(identify, 10, 19);
  disk.ProductId = GetIdentifyString(identify, 27, 46);
  disk.Revision = GetIdentifyString(identify, 23, 26);
  return disk;
}

void Append(std::vector<DiskInfo>& disks, const DiskInfo& disk, const wchar_t* function) {
  disks.push_back(disk);
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(function), "fetch ancient disk, PID=%s, Rev=%s, SN=%s",
               disk.ProductId.c_str(), disk.Revision.c_str(), disk.SerialNumber.c_str());
}

std::string DecodedField(const uint8_t* descriptor, size_t offsetAt, bool swap) {
  std::string text = DecodeDescriptorString(descriptor, kDescriptorReplySize,
                                            ReadLe32(descriptor, offsetAt), swap);
  if (text.size() > kDecodedStringMax) text.resize(kDecodedStringMax);
  return text;
}

// A character past the end of the serial is the zeroed buffer behind it.
bool IsAlnumAt(const std::string& text, size_t at) {
  return at < text.size() && KyGuidUtils::IsAsciiAlnum(static_cast<unsigned char>(text[at]));
}

}  // namespace

int CAncientDiskFetcher::FetchWithAdminRights(std::vector<DiskInfo>& disks) {
  IHardware& hardware = *CurrentPlatform().hardware;
  int appended = 0;
  for (int drive = 0; drive < kMaxPhysicalDrives; ++drive) {
    uint32_t error = 0;
    std::unique_ptr<IDevice> device =
        hardware.OpenDevice(PhysicalDrivePath(drive), kGenericRead | kGenericWrite,
                            kShareRead | kShareWrite, 0, &error);
    if (!device) continue;

    // A failed version query leaves the map zero, which skips the drive.
    uint8_t version[kVersionParamsSize] = {};
    uint32_t returned = 0;
    device->Control(kSmartGetVersion, nullptr, 0, version, sizeof(version), &returned, &error);
    const uint8_t deviceMap = version[kVersionIdeDeviceMapAt];
    if (deviceMap == 0) continue;

    std::vector<uint8_t> request = FullIdentifyRequest(drive, IdentifyCommandFor(deviceMap, drive));
    uint8_t reply[kIdentifyReplySize] = {};
    if (!device->Control(kSmartReceiveDriveData, request.data(), kSendCmdInSize - 1, reply,
                         sizeof(reply), &returned, &error) ||
        ReplyBufferSize(reply) <= kMinIdentifyBytes) {
      continue;
    }
    Append(disks, FromIdentify(drive, reply + kSendCmdOutHeaderSize), kWithAdminRights);
    ++appended;
  }
  return appended;
}

int CAncientDiskFetcher::FetchUsingSmart(std::vector<DiskInfo>& disks) {
  IHardware& hardware = *CurrentPlatform().hardware;
  int appended = 0;
  for (int drive = 0; drive < kMaxPhysicalDrives; ++drive) {
    uint32_t error = 0;
    std::unique_ptr<IDevice> device =
        hardware.OpenDevice(PhysicalDrivePath(drive), kGenericRead | kGenericWrite,
                            kShareRead | kShareWrite | kShareDelete, 0, &error);
    if (!device) continue;

    uint8_t version[kVersionParamsSize] = {};
    uint32_t returned = 0;
    if (!device->Control(kSmartGetVersion, nullptr, 0, version, sizeof(version), &returned,
                         &error)) {
      continue;
    }
    std::vector<uint8_t> block = CommandOnlyIdentifyRequest(kSmartBlockSize);
    if (!device->Control(kSmartReceiveDriveData, block.data(), kSendCmdInSize, block.data(),
                         kSmartBlockSize, &returned, &error) ||
        ReplyBufferSize(block.data()) <= kMinIdentifyBytes) {
      continue;
    }
    Append(disks, FromIdentify(drive, block.data() + kSendCmdOutHeaderSize), kUsingSmart);
    ++appended;
  }
  return appended;
}

int CAncientDiskFetcher::FetchWithZeroRights(std::vector<DiskInfo>& disks) {
  IHardware& hardware = *CurrentPlatform().hardware;
  int appended = 0;
  for (int drive = 0; drive < kMaxPhysicalDrives; ++drive) {
    uint32_t error = 0;
    std::unique_ptr<IDevice> device =
        hardware.OpenDevice(PhysicalDrivePath(drive), 0, kShareRead | kShareWrite, 0, &error);
    if (!device) continue;

    uint8_t query[kPropertyQuerySize] = {};
    std::vector<uint8_t> reply(kDescriptorReplySize, 0);
    uint32_t returned = 0;
    if (!device->Control(kIoctlStorageQueryProperty, query, sizeof(query), reply.data(),
                         kDescriptorReplySize, &returned, &error)) {
      continue;
    }
    DiskInfo disk;
    disk.Index = drive;
    disk.ProductId = DecodedField(reply.data(), kProductIdOffsetAt, false);
    disk.Revision = DecodedField(reply.data(), kRevisionOffsetAt, false);
    disk.SerialNumber = DecodedField(reply.data(), kSerialNumberOffsetAt, true);
    // Placeholder serials (empty, blank, punctuation) identify nothing.
    if (!IsAlnumAt(disk.SerialNumber, 0) && !IsAlnumAt(disk.SerialNumber, kLastSerialCheckAt)) {
      continue;
    }
    Append(disks, disk, kWithZeroRights);
    ++appended;
  }
  return appended;
}

int CAncientDiskFetcher::FetchAsScsiDrive(std::vector<DiskInfo>& disks) {
  IHardware& hardware = *CurrentPlatform().hardware;
  int appended = 0;
  for (int controller = 0; controller < kMaxScsiControllers; ++controller) {
    uint32_t error = 0;
    std::unique_ptr<IDevice> port =
        hardware.OpenDevice(ScsiPortPath(controller), kGenericRead | kGenericWrite,
                            kShareRead | kShareWrite, 0, &error);
    if (!port) continue;

    for (int drive = 0; drive < 2; ++drive) {
      std::vector<uint8_t> block = MiniportIdentifyRequest(drive);
      uint32_t returned = 0;
      if (!port->Control(kIoctlScsiMiniport, block.data(), kMiniportInputSize, block.data(),
                         kMiniportBlockSize, &returned, &error)) {
        continue;
      }
      const uint8_t* identify = block.data() + kMiniportIdentifyAt;
      if (identify[kModelFieldAt] == 0) continue;  // no device at this position
      // Numbered within the controller, as the earlier scheme recorded them.
      Append(disks, FromIdentify(drive, identify), kAsScsiDrive);
      ++appended;
    }
  }
  return appended;
}

int CAncientDiskFetcher::ReadRandDisk(DiskInfo& disk) {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kReadRandDisk), "ReadPhysicalDriveRand begin");
  const std::string path = GetHddDbPath();
  if (path.empty()) return 0;
  const HddDbIdentity stored = ReadHddDb(path);
  if (!stored.Complete()) return 0;

  disk.SerialNumber = stored.serialNumber;
  disk.ProductId = stored.modelNumber;
  disk.Revision = stored.revisionNumber;
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kReadRandDisk),
               "fetch ancient rand disk, PID=%s, Rev=%s, SN=%s", disk.ProductId.c_str(),
               disk.Revision.c_str(), disk.SerialNumber.c_str());
  return 1;
}

std::string CAncientDiskFetcher::CalcDiskGuid(const std::string& productId,
                                              const std::string& revision,
                                              const std::string& serialNumber) {
  std::string guid = KyGuid::CalcDiskGuid(productId, revision, serialNumber);
  if (KyLog::IsEnabled(KyLog::kTrace)) {
    const std::string joined = serialNumber + productId + revision;
    KyLog::Write(KyLog::kTrace, KYLOG_SITE(kCalcDiskGuid), "Calc disk Guid: %s-->%s",
                 joined.c_str(), guid.c_str());
  }
  return guid;
}

const DiskInfo* CAncientDiskFetcher::FindDiskByGuid(const std::vector<DiskInfo>& disks,
                                                    const std::string& guid) {
  for (const DiskInfo& disk : disks) {
    if (CalcDiskGuid(disk.ProductId, disk.Revision, disk.SerialNumber) == guid) return &disk;
  }
  return nullptr;
}

}  // namespace KyGuid
