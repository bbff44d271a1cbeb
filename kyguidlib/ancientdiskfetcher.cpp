#include "kyguidlib/ancientdiskfetcher.h"

#include "common/kylog.h"
#include "kyguidlib/devicestrings.h"
#include "kyguidlib/legacydiskreader.h"

namespace KyGuid {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\ancientdiskfetcher";
constexpr wchar_t kWithAdminRights[] = L"KyGuid::CAncientDiskFetcher::FetchWithAdminRights";
constexpr wchar_t kUsingSmart[] = L"KyGuid::CAncientDiskFetcher::FetchUsingSmart";
constexpr wchar_t kWithZeroRights[] = L"KyGuid::CAncientDiskFetcher::FetchWithZeroRights";
constexpr wchar_t kAsScsiDrive[] = L"KyGuid::CAncientDiskFetcher::FetchAsScsiDrive";
constexpr wchar_t kReadRandDisk[] = L"KyGuid::CAncientDiskFetcher::ReadRandDisk";

// The legacy scheme decoded into 256-byte buffers.
constexpr size_t kDecodedStringMax = 255;

std::string DecodedField(const uint8_t* descriptor, size_t size, uint32_t offset, bool swap) {
  std::string text = DecodeDescriptorString(descriptor, size, offset, swap);
  if (text.size() > kDecodedStringMax) text.resize(kDecodedStringMax);
  return text;
}

// The matching's half of the legacy scheme: strings as raw as it hashed
// them, only the replies it recorded, and HDD.db only read. Its two SMART
// reads: with admin rights the full register set into a separate reply,
// whatever the version query said; the plain one needs the version query,
// and the command register alone goes in one block that is both request and
// reply.
constexpr LegacyDiskRules kAncientRules{
    GetIdentifyString,
    DecodedField,
    {kShareReadWrite, false, true, {kSendCmdInSize - 1, kIdentifyReplySize, false}},
    {kShareReadWrite | kShareDelete,
     true,
     false,
     {kSendCmdInSize, kSendCmdInSize + kIdentifyDataSize, true}},
    /*skipsShortSmartReplies=*/true,
    /*skipsEmptyMiniportSlots=*/true,
    /*skipsPlaceholderSerials=*/true,
    /*ensuresDataFolder=*/false,
    /*makeUpString=*/nullptr};

// Appends each drive a fetch finds, numbered as the read numbers it, and
// logs it under the fetch's name; failures say nothing.
class Appender final : public LegacyDiskEvents {
 public:
  Appender(const wchar_t* function, std::vector<DiskInfo>& disks)
      : m_function(function), m_disks(disks) {}

  void Found(const LegacyDrive& drive) override {
    DiskInfo disk;
    disk.Index = drive.number;
    disk.SerialNumber = drive.serialNumber;
    disk.ProductId = drive.modelNumber;
    disk.Revision = drive.revisionNumber;
    m_disks.push_back(disk);
    ++m_appended;
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(m_function), "fetch ancient disk, PID=%s, Rev=%s, SN=%s",
                 disk.ProductId.c_str(), disk.Revision.c_str(), disk.SerialNumber.c_str());
  }
  int Appended() const { return m_appended; }

 private:
  const wchar_t* m_function;
  std::vector<DiskInfo>& m_disks;
  int m_appended = 0;
};

int Fetch(void (CLegacyDiskReader::*read)() const, const wchar_t* function,
          std::vector<DiskInfo>& disks) {
  Appender appender(function, disks);
  (CLegacyDiskReader(kAncientRules, appender).*read)();
  return appender.Appended();
}

}  // namespace

int CAncientDiskFetcher::FetchWithAdminRights(std::vector<DiskInfo>& disks) {
  return Fetch(&CLegacyDiskReader::ReadWithAdminRights, kWithAdminRights, disks);
}

int CAncientDiskFetcher::FetchUsingSmart(std::vector<DiskInfo>& disks) {
  return Fetch(&CLegacyDiskReader::ReadUsingSmart, kUsingSmart, disks);
}

int CAncientDiskFetcher::FetchWithZeroRights(std::vector<DiskInfo>& disks) {
  return Fetch(&CLegacyDiskReader::ReadWithZeroRights, kWithZeroRights, disks);
}

// Numbered within the controller, as the legacy scheme recorded them.
int CAncientDiskFetcher::FetchAsScsiDrive(std::vector<DiskInfo>& disks) {
  return Fetch(&CLegacyDiskReader::ReadAsScsiDrive, kAsScsiDrive, disks);
}

int CAncientDiskFetcher::ReadRandDisk(DiskInfo& disk) {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kReadRandDisk), "ReadPhysicalDriveRand begin");
  LegacyDiskEvents silent;
  LegacyDrive stored;
  if (!CLegacyDiskReader(kAncientRules, silent).ReadRandDrive(stored)) return 0;

  disk.SerialNumber = stored.serialNumber;
  disk.ProductId = stored.modelNumber;
  disk.Revision = stored.revisionNumber;
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kReadRandDisk),
               "fetch ancient rand disk, PID=%s, Rev=%s, SN=%s", disk.ProductId.c_str(),
               disk.Revision.c_str(), disk.SerialNumber.c_str());
  return 1;
}

const DiskInfo* CAncientDiskFetcher::FindDiskByGuid(const std::vector<DiskInfo>& disks,
                                                    const std::string& guid) {
  for (const DiskInfo& disk : disks) {
    if (CalcDiskGuid(disk.ProductId, disk.Revision, disk.SerialNumber) == guid) return &disk;
  }
  return nullptr;
}

}  // namespace KyGuid
