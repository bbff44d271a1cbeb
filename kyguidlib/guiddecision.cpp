#include "kyguidlib/guiddecision.h"

#include <algorithm>
#include <cstdint>

#include "common/kylog.h"
#include "common/md5.h"

namespace KyGuid {
namespace {

// Support reads these lines under the builder's names.
constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\cguidbuilder";
constexpr wchar_t kMatchGuidInfo[] = L"KyGuid::CGuidBuilder::MatchGuidInfo";
constexpr wchar_t kDeepMatch[] = L"KyGuid::CGuidBuilder::DeepMatchAncientGuid";
constexpr wchar_t kMatchAncient[] = L"KyGuid::CGuidBuilder::MatchAncientGuidInfo";
constexpr wchar_t kBuildBestGuid[] = L"KyGuid::CGuidBuilder::BuildBestGuid";

// One decision: the hardware it marks and the records it binds and makes.
class Decision {
 public:
  Decision(std::vector<DiskInfo> disks, std::vector<AdapterInfo> adapters, IDecisionFacts& facts)
      : m_facts(facts) {
    m_plan.disks = std::move(disks);
    m_plan.adapters = std::move(adapters);
  }

  UpdatePlan Decide(const StoredRecords& stored);

 private:
  bool MatchGuidInfo(GuidRecord& record);
  void DeepMatchAncientGuid(GuidRecord& record);
  bool BindAdapters(GuidRecord& record);
  bool BindDisks(GuidRecord& record);
  int MatchAncientGuidInfo();
  int UpdateGuidByAncient();
  int BuildNewGuid();
  void RenewHalf(const DiskInfo* bound, GuidRecord& record, int& reason);
  void RenewHalf(const AdapterInfo* bound, GuidRecord& record, int& reason);
  void CalcScore(GuidRecord& record) const;
  void MarkGuidDevices(int diskIndex, int adapterIndex);
  void BindDisk(GuidRecord& record, const DiskInfo& disk) const;

  IDecisionFacts& m_facts;
  UpdatePlan m_plan;
  GuidRecord& m_active = m_plan.replaced;
  GuidRecord& m_new = m_plan.record;
};

// Half the sum of the two devices' scores, each capped at 100: a record of
// one device only scores at most 50.
int ScoreOf(const std::vector<DiskInfo>& disks, const std::vector<AdapterInfo>& adapters,
            int diskIndex, int adapterIndex) {
  const DiskInfo* disk = FindDisk(disks, diskIndex);
  const AdapterInfo* adapter = FindAdapter(adapters, adapterIndex);
  const int diskScore = disk ? std::min(disk->Score, 100) : 0;
  const int adapterScore = adapter ? std::min(adapter->Score, 100) : 0;
  return (diskScore + adapterScore) / 2;
}

int FirstBestDiskIndex(const std::vector<DiskInfo>& disks) {
  for (const DiskInfo& disk : disks) {
    if (disk.Has(DiskInfo::kBestDisk)) return disk.Index;
  }
  return -1;
}

int FirstBestAdapterIndex(const std::vector<AdapterInfo>& adapters) {
  for (const AdapterInfo& adapter : adapters) {
    if (adapter.Has(AdapterInfo::kBestAdapter)) return adapter.Index;
  }
  return -1;
}

UpdatePlan Decision::Decide(const StoredRecords& stored) {
  if (!stored.hasActive && stored.hasAncient) {
    m_active = stored.ancient;
    m_active.Reason = 0;
    m_active.Version = kAncientVersion;
    m_plan.fromAncient = true;
    DeepMatchAncientGuid(m_active);
    m_plan.result = MatchAncientGuidInfo();
    return m_plan;
  }
  if (stored.hasActive) m_active = stored.active;
  if (MatchGuidInfo(m_active)) {
    m_new = m_active;
    m_plan.outcome = UpdatePlan::Outcome::kKept;
    m_plan.result = kResultKept;
    return m_plan;
  }
  m_plan.result = BuildNewGuid();
  return m_plan;
}

bool Decision::MatchGuidInfo(GuidRecord& record) {
  record.DiskIndex = FindDiskByKey(m_plan.disks, record.DiskKey);
  record.AdapterIndex = FindAdapterByKey(m_plan.adapters, record.AdapterKey);
  MatchFacts facts;
  facts.matchedDisk = FindDisk(m_plan.disks, record.DiskIndex);
  facts.matchedAdapter = FindAdapter(m_plan.adapters, record.AdapterIndex);
  facts.anyDisk = !m_plan.disks.empty();
  facts.anyAdapter = !m_plan.adapters.empty();
  facts.recordHasGuid = !record.Guid.empty();
  m_plan.row = DecideMatch(facts, [&] { return m_facts.AdapterKnownToWmi(record); });
  if (m_plan.row.message) {
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kMatchGuidInfo), "%s", m_plan.row.message);
  }
  return m_plan.row.keep;
}

void Decision::BindDisk(GuidRecord& record, const DiskInfo& disk) const {
  record.DiskIndex = disk.Index;
  record.DiskKey = DiskKey(disk);
  record.DiskDetail = DiskDetail(disk);
}

// Every present adapter whose MAC hashes to the stored digest binds; the
// last one wins.
bool Decision::BindAdapters(GuidRecord& record) {
  for (const AdapterInfo& adapter : m_plan.adapters) {
    const std::string hash = KyGuidUtils::Md5Hex(adapter.MacAddress);
    KyLog::Write(KyLog::kTrace, KYLOG_SITE(kDeepMatch), "Calc Mac Guid: %s-->%s",
                 adapter.MacAddress.c_str(), hash.c_str());
    if (hash != record.AdapterKey) continue;
    record.AdapterIndex = adapter.Index;
    record.AdapterKey = AdapterKey(adapter);
    record.AdapterDetail = AdapterDetail(adapter);
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kDeepMatch), "Deepmatch find adapter[%s]-->Guid[%s]",
                 adapter.MacAddress.c_str(), hash.c_str());
  }
  return record.AdapterIndex >= 0;
}

// Present disks first; then the legacy scheme's own reads, bound silently.
bool Decision::BindDisks(GuidRecord& record) {
  bool bound = false;
  for (const DiskInfo& disk : m_plan.disks) {
    const std::string hash = CalcDiskGuid(disk.ProductId, disk.Revision, disk.SerialNumber);
    if (hash != record.DiskKey) continue;
    BindDisk(record, disk);
    bound = true;
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kDeepMatch), "Deepmatch find disk[%s]-->Guid[%s]",
                 record.DiskKey.c_str(), hash.c_str());
  }
  DiskInfo legacy;
  if (bound || !m_facts.FindLegacyDisk(record.DiskKey, legacy)) return bound;
  const DiskInfo* present = FindDisk(m_plan.disks, legacy.Index);
  BindDisk(record, present ? *present : legacy);
  return true;
}

void Decision::DeepMatchAncientGuid(GuidRecord& record) {
  const bool adapterBound = BindAdapters(record);
  const bool diskBound = BindDisks(record);
  if (!adapterBound) {
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kDeepMatch), "Deepmatch can't find adapter: %s",
                 record.AdapterKey.c_str());
  }
  if (!diskBound) {
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kDeepMatch), "Deepmatch can't find disk: %s",
                 record.DiskKey.c_str());
  }
}

int Decision::MatchAncientGuidInfo() {
  if (m_active.DiskIndex >= 0 || m_active.AdapterIndex >= 0) return UpdateGuidByAncient();
  if (m_plan.disks.empty()) {
    if (!m_active.Guid.empty()) {
      KyLog::Write(KyLog::kInfo, KYLOG_SITE(kMatchAncient),
                   "nothing match, but local has no disk, no change");
      return UpdateGuidByAncient();
    }
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kMatchAncient),
                 "nothing match, local has no disk, build special guid");
  } else {
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kMatchAncient), "nothing match, build new guid");
  }
  return BuildNewGuid();
}

// A half of the adopted record: the bound device's key and detail, else the
// best device's, else the ancient value stays, and the half counts as lost.
void Decision::RenewHalf(const DiskInfo* bound, GuidRecord& record, int& reason) {
  if (!bound) {
    reason |= kReasonDiskLost;
    record.DiskIndex = FirstBestDiskIndex(m_plan.disks);
    bound = FindDisk(m_plan.disks, record.DiskIndex);
  }
  if (!bound) return;
  record.DiskKey = DiskKey(*bound);
  record.DiskDetail = DiskDetail(*bound);
}

void Decision::RenewHalf(const AdapterInfo* bound, GuidRecord& record, int& reason) {
  if (!bound) {
    reason |= kReasonAdapterLost;
    record.AdapterIndex = FirstBestAdapterIndex(m_plan.adapters);
    bound = FindAdapter(m_plan.adapters, record.AdapterIndex);
  }
  if (!bound) return;
  record.AdapterKey = AdapterKey(*bound);
  record.AdapterDetail = AdapterDetail(*bound);
}

// The ancient record is always kept as the replaced one; its CreateIndex of
// -1 puts this build in "Build-1", outside the ring, on purpose.
int Decision::UpdateGuidByAncient() {
  CalcScore(m_active);
  m_new = m_active;
  m_new.Version = kCurrentVersion;
  m_new.CreateTime = m_facts.Now();
  MarkGuidDevices(m_new.DiskIndex, m_new.AdapterIndex);
  int reason = 0;
  RenewHalf(FindDisk(m_plan.disks, m_new.DiskIndex), m_new, reason);
  RenewHalf(FindAdapter(m_plan.adapters, m_new.AdapterIndex), m_new, reason);
  m_new.Reason = reason;
  m_plan.outcome = UpdatePlan::Outcome::kAdopted;
  m_plan.save = UpdatePlan::Save::kBuildWithReplaced;
  return kResultAncientAdopted;
}

int Decision::BuildNewGuid() {
  if (!BuildBestGuid(m_plan.disks, m_plan.adapters, m_active, m_facts.Now(), m_new)) {
    if (m_active.Guid.empty()) return kResultBuildFailed;
    m_new = m_active;
    return kResultKept;
  }
  MarkGuidDevices(m_new.DiskIndex, m_new.AdapterIndex);
  m_plan.outcome = UpdatePlan::Outcome::kBuilt;
  if (m_active.Guid.empty()) {
    m_plan.save = UpdatePlan::Save::kBuild;
    return kResultFirstBuilt;
  }
  m_plan.save = UpdatePlan::Save::kBuildWithReplaced;
  return m_new.Version == m_active.Version ? kResultReplacedSameVersion
                                           : kResultReplacedOtherVersion;
}

void Decision::CalcScore(GuidRecord& record) const {
  record.Score = ScoreOf(m_plan.disks, m_plan.adapters, record.DiskIndex, record.AdapterIndex);
}

void Decision::MarkGuidDevices(int diskIndex, int adapterIndex) {
  for (DiskInfo& disk : m_plan.disks) {
    if (diskIndex >= 0 && disk.Index == diskIndex) disk.Flags |= DiskInfo::kGuidDisk;
  }
  for (AdapterInfo& adapter : m_plan.adapters) {
    if (adapterIndex >= 0 && adapter.Index == adapterIndex) {
      adapter.Flags |= AdapterInfo::kGuidAdapter;
    }
  }
}

}  // namespace

UpdatePlan DecideUpdate(const StoredRecords& stored, std::vector<DiskInfo> disks,
                        std::vector<AdapterInfo> adapters, IDecisionFacts& facts) {
  return Decision(std::move(disks), std::move(adapters), facts).Decide(stored);
}

const DiskInfo* FindDisk(const std::vector<DiskInfo>& disks, int index) {
  if (index < 0) return nullptr;
  for (const DiskInfo& disk : disks) {
    if (disk.Index == index) return &disk;
  }
  return nullptr;
}

const AdapterInfo* FindAdapter(const std::vector<AdapterInfo>& adapters, int index) {
  if (index < 0) return nullptr;
  for (const AdapterInfo& adapter : adapters) {
    if (adapter.Index == index) return &adapter;
  }
  return nullptr;
}

bool BuildBestGuid(const std::vector<DiskInfo>& disks, const std::vector<AdapterInfo>& adapters,
                   const GuidRecord& active, int32_t now, GuidRecord& out) {
  const int diskIndex = FirstBestDiskIndex(disks);
  const int adapterIndex = FirstBestAdapterIndex(adapters);
  if (diskIndex == -1 && adapterIndex == -1) {
    out.Guid = kSpecialGuid;
    KyLog::Write(KyLog::kError, KYLOG_SITE(kBuildBestGuid),
                 "can't find any disk and adapter, return FALSE");
    return false;
  }
  const DiskInfo* disk = FindDisk(disks, diskIndex);
  const AdapterInfo* adapter = FindAdapter(adapters, adapterIndex);
  out.DiskIndex = diskIndex;
  out.AdapterIndex = adapterIndex;
  out.DiskKey = disk ? DiskKey(*disk) : std::string();
  out.DiskDetail = disk ? DiskDetail(*disk) : std::string();
  out.AdapterKey = adapter ? AdapterKey(*adapter) : std::string();
  out.AdapterDetail = adapter ? AdapterDetail(*adapter) : std::string();
  out.Guid = KyGuidUtils::Md5Hex(out.DiskKey + out.AdapterKey);
  out.CreateTime = now;
  out.Version = kCurrentVersion;
  out.Score = ScoreOf(disks, adapters, diskIndex, adapterIndex);
  if (active.Guid.empty()) {
    out.CreateIndex = 0;
    out.Reason = 0;
    return true;
  }
  // The matcher left the active record's indices on the devices that still
  // carry its keys; a negative one is the half that is gone. Only the one
  // index whose increment would overflow restarts the ring at 0; every other
  // value, an ancient record's -1 among them, counts on.
  out.CreateIndex = active.CreateIndex == INT32_MAX ? 0 : active.CreateIndex + 1;
  out.Reason = (active.DiskIndex < 0 ? kReasonDiskLost : 0) +
               (active.AdapterIndex < 0 ? kReasonAdapterLost : 0);
  return true;
}

}  // namespace KyGuid
