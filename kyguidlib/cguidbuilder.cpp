#include "kyguidlib/cguidbuilder.h"

#include <windows.h>

#include "common/clock.h"
#include "common/kylog.h"
#include "common/strutil.h"
#include "kyguidlib/ancientdiskfetcher.h"
#include "kyguidlib/cadapterfetcher.h"
#include "kyguidlib/cdiskfetcher.h"
#include "kyguidlib/cguidprofile.h"
#include "kyguidlib/globalmgrfile.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/hardware.h"
#include "kyguidlib/platform.h"

namespace KyGuid {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\cguidbuilder";
constexpr wchar_t kUpdateNewGuid[] = L"KyGuid::CGuidBuilder::UpdateNewGuid";

// The facts the decision asks of this machine, each only when it gets there.
class SystemFacts : public IDecisionFacts {
 public:
  bool AdapterKnownToWmi(const GuidRecord& record) override {
    std::string guidName = GuidNameFromDetail(record.AdapterDetail);
    if (guidName.empty()) {
      guidName = GuidNameFromDetail(CGuidProfile().FindBuildAdapter(record.AdapterKey));
    }
    if (guidName.empty()) return false;
    const std::string pnpId = CAdapterFetcher::QueryPnpInstanceId(guidName);
    return !pnpId.empty() && CurrentPlatform().hardware->FindWmiAdapter(pnpId);
  }

  // Every legacy read runs before the search, in the legacy scheme's order,
  // so its log lines come out the same whichever read identifies the drive.
  bool FindLegacyDisk(const std::string& diskGuid, DiskInfo& disk) override {
    std::vector<DiskInfo> adminRights, scsi, zeroRights, smart;
    CAncientDiskFetcher::FetchWithAdminRights(adminRights);
    CAncientDiskFetcher::FetchAsScsiDrive(scsi);
    CAncientDiskFetcher::FetchWithZeroRights(zeroRights);
    CAncientDiskFetcher::FetchUsingSmart(smart);
    // The identity kept in HDD.db belongs to no drive number; it stands for
    // drive 0, as the legacy scheme's zeroed record did. Its GUID is compared
    // even when the file gave no identity: the empty strings hash too.
    DiskInfo randDisk;
    randDisk.Index = 0;
    CAncientDiskFetcher::ReadRandDisk(randDisk);

    for (const std::vector<DiskInfo>* list : {&adminRights, &scsi, &zeroRights, &smart}) {
      if (const DiskInfo* hit = CAncientDiskFetcher::FindDiskByGuid(*list, diskGuid)) {
        disk = *hit;
        return true;
      }
    }
    if (CalcDiskGuid(randDisk.ProductId, randDisk.Revision, randDisk.SerialNumber) != diskGuid) {
      return false;
    }
    disk = randDisk;
    return true;
  }

  int32_t Now() override { return KyGuidUtils::CurrentTime32(); }
};

std::vector<DiskInfo> FetchDisks() {
  CDiskFetcher disks;
  disks.Fetch();
  return disks.Disks();
}

std::vector<AdapterInfo> FetchAdapters() {
  CAdapterFetcher adapters;
  adapters.Fetch();
  return adapters.Adapters();
}

// Reads config1..config3 of a legacy GlobalMgr.db into `out`. The error
// logged is the one the config1 read left.
bool LoadAncientGuidInfo(const std::string& path, GuidRecord& out) {
  const std::string id = path.empty() ? std::string() : ReadGlobalMgrId(path, kBuilderValueBuffer);
  if (!KyGuidUtils::IsGuidText(id)) {
    const DWORD error = path.empty() ? ERROR_PATH_NOT_FOUND : GetLastError();
    if (KyLog::IsEnabled(KyLog::kInfo)) {
      KyLog::Write(KyLog::kInfo, KYLOG_SITE(L"KyGuid::CGuidBuilder::LoadAncientGuidInfo"),
                   "LoadAncientGuidInfo failed: %u, timestamp=%llu, %s",
                   static_cast<unsigned>(error),
                   static_cast<unsigned long long>(FileLastWriteTime(path)), path.c_str());
    }
    return false;
  }
  const GlobalMgrValues ancient = ReadGlobalMgr(path, kBuilderValueBuffer);
  out.Guid = id;
  out.AdapterKey = ancient.macDigest;
  out.DiskKey = ancient.driveDigest;
  return true;
}

// The record in force, else the ancient GUID of the common cache, else of
// the per-user one.
StoredRecords LoadStored() {
  StoredRecords stored;
  stored.hasActive = CGuidProfile().LoadGuidInfo(stored.active) != FALSE;
  if (stored.hasActive) return stored;
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kUpdateNewGuid),
               "Load Active guid info failed, now try ancient info");
  stored.hasAncient = LoadAncientGuidInfo(GetGlobalMgrFilePath(), stored.ancient) ||
                      LoadAncientGuidInfo(GetUserGlobalMgrFilePath(), stored.ancient);
  if (!stored.hasAncient) {
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kUpdateNewGuid),
                 "Load ancient guid info failed, now try build new guid");
  }
  return stored;
}

}  // namespace

int CGuidBuilder::UpdateNewGuid() {
  if (m_decided) return m_plan.result;
  Decide();
  if (m_plan.save != UpdatePlan::Save::kNothing) {
    const bool withReplaced = m_plan.save == UpdatePlan::Save::kBuildWithReplaced;
    CGuidProfile().SaveBuild(m_plan.record, withReplaced ? &m_plan.replaced : nullptr, m_plan.disks,
                             m_plan.adapters);
  }
  LogOutcome();
  return m_plan.result;
}

int CGuidBuilder::DecideNewGuid() {
  if (m_decided) return m_plan.result;
  Decide();
  LogOutcome();
  return m_plan.result;
}

void CGuidBuilder::Decide() {
  m_decided = true;
  std::vector<DiskInfo> disks = FetchDisks();
  std::vector<AdapterInfo> adapters = FetchAdapters();
  SystemFacts facts;
  m_plan = DecideUpdate(LoadStored(), std::move(disks), std::move(adapters), facts);
}

void CGuidBuilder::LogOutcome() const {
  const GuidRecord& record = m_plan.record;
  const GuidRecord& replaced = m_plan.replaced;
  switch (m_plan.outcome) {
    case UpdatePlan::Outcome::kKept:
      // The colon is the full-width one of code page 936, as the suite's
      // support tools search for it.
      KyLog::Write(KyLog::kInfo, KYLOG_SITE(kUpdateNewGuid), "guid match, use it\xA3\xBA %s",
                   record.Guid.c_str());
      break;
    case UpdatePlan::Outcome::kBuilt:
      KyLog::Write(KyLog::kInfo, KYLOG_SITE(L"KyGuid::CGuidBuilder::BuildNewGuid"),
                   "new guid: guid[%s], diskkey[%s], adapterkey[%s], Index[%d], Score[%d], "
                   "Reason[%d]",
                   record.Guid.c_str(), record.DiskKey.c_str(), record.AdapterKey.c_str(),
                   record.CreateIndex, record.Score, record.Reason);
      break;
    case UpdatePlan::Outcome::kAdopted:
      KyLog::Write(KyLog::kInfo, KYLOG_SITE(L"KyGuid::CGuidBuilder::UpdateGuidByAncient"),
                   "use ancient guid: guid[%s], diskkey[%s], adapterkey[%s], Index[%d], "
                   "Score[%d]",
                   replaced.Guid.c_str(), replaced.DiskKey.c_str(), replaced.AdapterKey.c_str(),
                   replaced.CreateIndex, replaced.Score);
      break;
    case UpdatePlan::Outcome::kNothingBuilt:
      break;
  }
}

GuidRecord CGuidBuilder::BestGuid() const {
  GuidRecord best;
  BuildBestGuid(m_plan.disks, m_plan.adapters, m_plan.replaced, KyGuidUtils::CurrentTime32(), best);
  return best;
}

}  // namespace KyGuid
