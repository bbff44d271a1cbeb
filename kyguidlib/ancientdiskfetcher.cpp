#include "kyguidlib/ancientdiskfetcher.h"

#include <windows.h>

#include <memory>

#include "common/kylog.h"
#include "common/strutil.h"
#include "kyguidlib/devicestrings.h"
#include "kyguidlib/devicetransport.h"
#include "kyguidlib/hdddbfile.h"

namespace KyGuid {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\ancientdiskfetcher";
constexpr wchar_t kWithAdminRights[] = L"KyGuid::CAncientDiskFetcher::FetchWithAdminRights";
constexpr wchar_t kUsingSmart[] = L"KyGuid::CAncientDiskFetcher::FetchUsingSmart";
constexpr wchar_t kWithZeroRights[] = L"KyGuid::CAncientDiskFetcher::FetchWithZeroRights";
constexpr wchar_t kAsScsiDrive[] = L"KyGuid::CAncientDiskFetcher::FetchAsScsiDrive";
constexpr wchar_t kReadRandDisk[] = L"KyGuid::CAncientDiskFetcher::ReadRandDisk";

// A reply buffer that ends before the firmware revision field (byte 46)
// carries no identity.
constexpr uint32_t kMinIdentifyBytes = 46;
constexpr size_t kModelFieldAt = 54;  // first byte of IDENTIFY words 27-46

// The earlier scheme decoded into 256-byte buffers.
constexpr size_t kDecodedStringMax = 255;
// Serials are checked at their first and twentieth character.
constexpr size_t kLastSerialCheckAt = 19;

// The two SMART reads of the earlier scheme. With admin rights: the full
// register set into a separate reply, whatever the version query said. The
// plain one: the version query must answer, and the command register alone
// goes in one block that is both request and reply.
constexpr SmartSweep kAdminRightsSweep{
    kShareReadWrite, false, true, {kSendCmdInSize - 1, kIdentifyReplySize, false}};
constexpr SmartSweep kUsingSmartSweep{kShareReadWrite | kShareDelete,
                                      true,
                                      false,
                                      {kSendCmdInSize, kSendCmdInSize + kIdentifyDataSize, true}};

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

std::string DecodedField(const std::vector<uint8_t>& descriptor, size_t offsetAt, bool swap) {
  std::string text = DecodeDescriptorString(descriptor.data(), descriptor.size(),
                                            ReadLe32(descriptor.data(), offsetAt), swap);
  if (text.size() > kDecodedStringMax) text.resize(kDecodedStringMax);
  return text;
}

// The drives whose IDENTIFY reply holds at least the firmware revision;
// failures are not logged.
int FetchWithSmart(const SmartSweep& sweep, const wchar_t* function, std::vector<DiskInfo>& disks) {
  int appended = 0;
  SweepSmartIdentify(
      sweep,
      [&](int drive, const IdentifyReply& reply) {
        if (reply.bufferSize <= kMinIdentifyBytes) return;
        Append(disks, FromIdentify(drive, reply.identify.data()), function);
        ++appended;
      },
      [](int, SmartStep, uint32_t) {});
  return appended;
}

// A character past the end of the serial is the zeroed buffer behind it.
bool IsAlnumAt(const std::string& text, size_t at) {
  return at < text.size() && KyGuidUtils::IsAsciiAlnum(static_cast<unsigned char>(text[at]));
}

}  // namespace

int CAncientDiskFetcher::FetchWithAdminRights(std::vector<DiskInfo>& disks) {
  return FetchWithSmart(kAdminRightsSweep, kWithAdminRights, disks);
}

int CAncientDiskFetcher::FetchUsingSmart(std::vector<DiskInfo>& disks) {
  return FetchWithSmart(kUsingSmartSweep, kUsingSmart, disks);
}

int CAncientDiskFetcher::FetchWithZeroRights(std::vector<DiskInfo>& disks) {
  int appended = 0;
  ForEachPhysicalDrive(kQueryOnly, kShareReadWrite, [&](int drive, IDevice& device) {
    const DescriptorReply reply = QueryStorageDescriptor(device, kLegacyDescriptorBufferSize);
    if (!reply.ok) return;
    DiskInfo disk;
    disk.Index = drive;
    disk.ProductId = DecodedField(reply.bytes, kProductIdOffsetAt, false);
    disk.Revision = DecodedField(reply.bytes, kRevisionOffsetAt, false);
    disk.SerialNumber = DecodedField(reply.bytes, kSerialNumberOffsetAt, true);
    // Placeholder serials (empty, blank, punctuation) identify nothing.
    if (!IsAlnumAt(disk.SerialNumber, 0) && !IsAlnumAt(disk.SerialNumber, kLastSerialCheckAt)) {
      return;
    }
    Append(disks, disk, kWithZeroRights);
    ++appended;
  });
  return appended;
}

int CAncientDiskFetcher::FetchAsScsiDrive(std::vector<DiskInfo>& disks) {
  int appended = 0;
  ForEachScsiPort([&](int, IDevice& port) {
    for (int position = 0; position < kDrivesPerScsiController; ++position) {
      const IdentifyReply reply = MiniportIdentify(port, position);
      if (!reply.ok || reply.identify[kModelFieldAt] == 0) continue;  // no device there
      // Numbered within the controller, as the earlier scheme recorded them.
      Append(disks, FromIdentify(position, reply.identify.data()), kAsScsiDrive);
      ++appended;
    }
  });
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
  return KyGuid::CalcDiskGuid(productId, revision, serialNumber);
}

const DiskInfo* CAncientDiskFetcher::FindDiskByGuid(const std::vector<DiskInfo>& disks,
                                                    const std::string& guid) {
  for (const DiskInfo& disk : disks) {
    if (CalcDiskGuid(disk.ProductId, disk.Revision, disk.SerialNumber) == guid) return &disk;
  }
  return nullptr;
}

}  // namespace KyGuid
