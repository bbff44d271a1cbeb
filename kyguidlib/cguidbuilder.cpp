#include "kyguidlib/cguidbuilder.h"

#include <windows.h>


#include "common/clock.h"
#include "common/filestore.h"
#include "common/kylog.h"
#include "common/md5.h"
#include "common/strutil.h"
#include "kyguidlib/ancientdiskfetcher.h"
#include "kyguidlib/cadapterfetcher.h"
#include "kyguidlib/cdiskfetcher.h"
#include "kyguidlib/cguidprofile.h"
#include "kyguidlib/globalmgrfile.h"
#include "kyguidlib/guiddbfile.h"
#include "kyguidlib/guidpaths.h"

namespace KyGuid {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\cguidbuilder";

int32_t Now() { return static_cast<int32_t>(KyGuidUtils::CurrentTime()); }

}  // namespace

CGuidBuilder::CGuidBuilder(bool save) : m_save(save) {}

const DiskInfo* CGuidBuilder::FindDisk(int index) const {
  if (index < 0) return nullptr;
  for (const DiskInfo& disk : m_disks) {
    if (disk.Index == index) return &disk;
  }
  return nullptr;
}

const AdapterInfo* CGuidBuilder::FindAdapter(int index) const {
  if (index < 0) return nullptr;
  for (const AdapterInfo& adapter : m_adapters) {
    if (adapter.Index == index) return &adapter;
  }
  return nullptr;
}

int CGuidBuilder::FirstBestDiskIndex() const {
  for (const DiskInfo& disk : m_disks) {
    if (disk.Has(DiskInfo::kBestDisk)) return disk.Index;
  }
  return -1;
}

int CGuidBuilder::FirstBestAdapterIndex() const {
  for (const AdapterInfo& adapter : m_adapters) {
    if (adapter.Has(AdapterInfo::kBestAdapter)) return adapter.Index;
  }
  return -1;
}

void CGuidBuilder::FetchHardware() {
  CDiskFetcher disks;
  disks.Fetch();
  m_disks = disks.Disks();
  CAdapterFetcher adapters;
  adapters.Fetch();
  m_adapters = adapters.Adapters();
}

int CGuidBuilder::UpdateNewGuid() {
  if (!m_ran) {
    m_ran = true;
    m_result = Run();
  }
  return m_result;
}

int CGuidBuilder::Run() {
  constexpr wchar_t kFunction[] = L"KyGuid::CGuidBuilder::UpdateNewGuid";
  FetchHardware();

  CGuidProfile profile;
  if (!profile.LoadGuidInfo(m_activeInfo)) {
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kFunction),
                 "Load Active guid info failed, now try ancient info");
    if (LoadAncientRecord()) {
      m_activeInfo.Reason = 0;
      m_activeInfo.Version = kAncientVersion;
      DeepMatchAncientGuid(m_activeInfo);
      return MatchAncientGuidInfo();
    }
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kFunction),
                 "Load ancient guid info failed, now try build new guid");
  }

  if (MatchGuidInfo(m_activeInfo)) {
    m_newInfo = m_activeInfo;
    // The colon is the full-width one of code page 936, as the suite's
    // support tools search for it.
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kFunction), "guid match, use it\xA3\xBA %s",
                 m_newInfo.Guid.c_str());
    return kResultKept;
  }
  return BuildNewGuid();
}

bool CGuidBuilder::LoadAncientRecord() {
  if (LoadAncientGuidInfo(GetGlobalMgrFilePath(), m_activeInfo)) return true;
  const std::string userPath = GetUserGlobalMgrFilePath();
  return !userPath.empty() && LoadAncientGuidInfo(userPath, m_activeInfo);
}

GuidRecord CGuidBuilder::BestGuid() const {
  GuidRecord best;
  BuildBestGuid(best);
  return best;
}

int CGuidBuilder::BuildBestGuid(GuidRecord& out) const {
  const int diskIndex = FirstBestDiskIndex();
  const int adapterIndex = FirstBestAdapterIndex();
  if (diskIndex == -1 && adapterIndex == -1) {
    out.Guid = kSpecialGuid;
    KyLog::Write(KyLog::kError, KYLOG_SITE(L"KyGuid::CGuidBuilder::BuildBestGuid"),
                 "can't find any disk and adapter, return FALSE");
    return FALSE;
  }
  out.DiskIndex = diskIndex;
  out.AdapterIndex = adapterIndex;

  const DiskInfo* disk = FindDisk(diskIndex);
  const AdapterInfo* adapter = FindAdapter(adapterIndex);
  const std::string diskKey = disk ? DiskKey(*disk) : std::string();
  const std::string adapterKey = adapter ? AdapterKey(*adapter) : std::string();
  out.Guid = KyGuidUtils::Md5Hex(diskKey + adapterKey);
  out.DiskKey = diskKey;
  out.DiskDetail = disk ? DiskDetail(*disk) : std::string();
  out.AdapterKey = adapterKey;
  out.AdapterDetail = adapter ? AdapterDetail(*adapter) : std::string();
  out.CreateTime = Now();
  out.Version = kCurrentVersion;
  CalcScore(out);

  if (!m_activeInfo.Guid.empty()) {
    // The matcher left the active record's indices on the devices that still
    // carry its keys; a negative one is the half that is gone.
    // Only the one index whose increment would overflow restarts the ring
    // at 0; every other value, an ancient record's -1 among them, counts on.
    const int32_t active = m_activeInfo.CreateIndex;
    out.CreateIndex = active == INT32_MAX ? 0 : active + 1;
    out.Reason = (m_activeInfo.DiskIndex < 0 ? kReasonDiskLost : 0) +
                 (m_activeInfo.AdapterIndex < 0 ? kReasonAdapterLost : 0);
  } else {
    out.CreateIndex = 0;
    out.Reason = 0;
  }
  return TRUE;
}

void CGuidBuilder::CalcScore(GuidRecord& record) const {
  const DiskInfo* disk = FindDisk(record.DiskIndex);
  const AdapterInfo* adapter = FindAdapter(record.AdapterIndex);
  const int diskScore = disk ? std::min(disk->Score, 100) : 0;
  const int adapterScore = adapter ? std::min(adapter->Score, 100) : 0;
  record.Score = (diskScore + adapterScore) / 2;
}

void CGuidBuilder::MarkGuidDevices(int diskIndex, int adapterIndex) {
  for (DiskInfo& disk : m_disks) {
    if (diskIndex >= 0 && disk.Index == diskIndex) disk.Flags |= DiskInfo::kGuidDisk;
  }
  for (AdapterInfo& adapter : m_adapters) {
    if (adapterIndex >= 0 && adapter.Index == adapterIndex) {
      adapter.Flags |= AdapterInfo::kGuidAdapter;
    }
  }
}

int CGuidBuilder::BuildNewGuid() {
  if (!BuildBestGuid(m_newInfo)) {
    if (m_activeInfo.Guid.empty()) return kResultBuildFailed;
    m_newInfo = m_activeInfo;
    return kResultKept;
  }
  MarkGuidDevices(m_newInfo.DiskIndex, m_newInfo.AdapterIndex);
  SaveNewGuid();

  int result = kResultFirstBuilt;
  if (!m_activeInfo.Guid.empty()) {
    result = m_newInfo.Version == m_activeInfo.Version ? kResultReplacedSameVersion
                                                       : kResultReplacedOtherVersion;
  }
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(L"KyGuid::CGuidBuilder::BuildNewGuid"),
               "new guid: guid[%s], diskkey[%s], adapterkey[%s], Index[%d], Score[%d], "
               "Reason[%d]",
               m_newInfo.Guid.c_str(), m_newInfo.DiskKey.c_str(), m_newInfo.AdapterKey.c_str(),
               m_newInfo.CreateIndex, m_newInfo.Score, m_newInfo.Reason);
  return result;
}

void CGuidBuilder::SaveNewGuid() {
  if (m_save) SaveBuild(!m_activeInfo.Guid.empty());
}

// The record in force and its history section commit together: a crash
// leaves the old record or the new one, never a record without its keys.
void CGuidBuilder::SaveBuild(bool saveReplaced) {
  KyGuidUtils::StoreStep step(GetCommitListPath());
  CGuidProfile profile;
  profile.SaveGuidInfo(GuidDb::kActiveSection, m_newInfo, nullptr);
  const std::string section = GuidDb::BuildSection(m_newInfo.CreateIndex);
  if (saveReplaced) profile.SaveGuidInfo(section, m_activeInfo, GuidDb::kReplacedPrefix);
  profile.SaveGuidInfo(section, m_newInfo, nullptr);
  profile.SaveDiskList(section, m_disks);
  profile.SaveAdapterList(section, m_adapters);
  step.Commit();
}

int CGuidBuilder::LoadAncientGuidInfo(const std::string& path, GuidRecord& out) {
  const GlobalMgrValues ancient = ReadGlobalMgr(path, kBuilderValueBuffer);
  if (!KyGuidUtils::IsGuidText(ancient.id)) {
    DWORD error = GetLastError();
    if (KyLog::IsEnabled(KyLog::kInfo)) {
      KyLog::Write(KyLog::kInfo, KYLOG_SITE(L"KyGuid::CGuidBuilder::LoadAncientGuidInfo"),
                   "LoadAncientGuidInfo failed: %u, timestamp=%llu, %s",
                   static_cast<unsigned>(error),
                   static_cast<unsigned long long>(FileLastWriteTime(path)), path.c_str());
    }
    return FALSE;
  }
  out.Guid = ancient.id;
  out.AdapterKey = ancient.macDigest;
  out.DiskKey = ancient.driveDigest;
  return TRUE;
}

int CGuidBuilder::UpdateGuidByAncient() {
  CalcScore(m_activeInfo);
  m_newInfo = m_activeInfo;
  m_newInfo.Version = kCurrentVersion;
  m_newInfo.CreateTime = Now();
  MarkGuidDevices(m_newInfo.DiskIndex, m_newInfo.AdapterIndex);

  int reason = 0;
  if (const DiskInfo* disk = FindDisk(m_newInfo.DiskIndex)) {
    m_newInfo.DiskKey = DiskKey(*disk);
    m_newInfo.DiskDetail = DiskDetail(*disk);
  } else {
    reason |= kReasonDiskLost;
    m_newInfo.DiskIndex = FirstBestDiskIndex();
    if (const DiskInfo* best = FindDisk(m_newInfo.DiskIndex)) {
      m_newInfo.DiskKey = DiskKey(*best);
      m_newInfo.DiskDetail = DiskDetail(*best);
    }
  }
  if (const AdapterInfo* adapter = FindAdapter(m_newInfo.AdapterIndex)) {
    m_newInfo.AdapterKey = AdapterKey(*adapter);
    m_newInfo.AdapterDetail = AdapterDetail(*adapter);
  } else {
    reason |= kReasonAdapterLost;
    m_newInfo.AdapterIndex = FirstBestAdapterIndex();
    if (const AdapterInfo* best = FindAdapter(m_newInfo.AdapterIndex)) {
      m_newInfo.AdapterKey = AdapterKey(*best);
      m_newInfo.AdapterDetail = AdapterDetail(*best);
    }
  }
  m_newInfo.Reason = reason;

  // The ancient record is always kept as the replaced one; its CreateIndex
  // of -1 puts this build in "Build-1", outside the ring, on purpose.
  if (m_save) SaveBuild(true);
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(L"KyGuid::CGuidBuilder::UpdateGuidByAncient"),
               "use ancient guid: guid[%s], diskkey[%s], adapterkey[%s], Index[%d], Score[%d]",
               m_activeInfo.Guid.c_str(), m_activeInfo.DiskKey.c_str(),
               m_activeInfo.AdapterKey.c_str(), m_activeInfo.CreateIndex, m_activeInfo.Score);
  return kResultAncientAdopted;
}

bool CGuidBuilder::DeepMatchLegacyDisk(GuidRecord& record) {
  std::vector<DiskInfo> adminRights;
  std::vector<DiskInfo> scsi;
  std::vector<DiskInfo> zeroRights;
  std::vector<DiskInfo> smart;
  CAncientDiskFetcher::FetchWithAdminRights(adminRights);
  CAncientDiskFetcher::FetchAsScsiDrive(scsi);
  CAncientDiskFetcher::FetchWithZeroRights(zeroRights);
  CAncientDiskFetcher::FetchUsingSmart(smart);
  // The identity kept in HDD.db belongs to no drive number; it stands for
  // drive 0, as the earlier scheme's zeroed record did.
  DiskInfo randDisk;
  randDisk.Index = 0;
  const bool haveRandDisk = CAncientDiskFetcher::ReadRandDisk(randDisk) != 0;

  const DiskInfo* hit = nullptr;
  for (const std::vector<DiskInfo>* list : {&adminRights, &scsi, &zeroRights, &smart}) {
    hit = CAncientDiskFetcher::FindDiskByGuid(*list, record.DiskKey);
    if (hit) break;
  }
  if (!hit && haveRandDisk &&
      CAncientDiskFetcher::CalcDiskGuid(randDisk.ProductId, randDisk.Revision,
                                        randDisk.SerialNumber) == record.DiskKey) {
    hit = &randDisk;
  }
  if (!hit) return false;

  // Bound silently: only the present-disk pass has a line of its own.
  const DiskInfo* present = FindDisk(hit->Index);
  BindDisk(record, present ? *present : *hit);
  return true;
}

std::string CGuidBuilder::AncientDiskGuid(const std::string& productId,
                                          const std::string& revision,
                                          const std::string& serialNumber) {
  return CAncientDiskFetcher::CalcDiskGuid(productId, revision, serialNumber);
}

}  // namespace KyGuid
