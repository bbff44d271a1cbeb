// The builder's matching of a stored identity against the present hardware:
// whether the GUID in force still belongs to this machine, and to which
// present devices an earlier scheme's GUID is bound.
#include "kyguidlib/cguidbuilder.h"

#include "common/kylog.h"
#include "common/md5.h"
#include "kyguidlib/cadapterfetcher.h"
#include "kyguidlib/cguidprofile.h"
#include "kyguidlib/guidmatch.h"
#include "kyguidlib/hardware.h"
#include "kyguidlib/platform.h"

namespace KyGuid {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\cguidbuilder";
constexpr wchar_t kMatchGuidInfo[] = L"KyGuid::CGuidBuilder::MatchGuidInfo";
constexpr wchar_t kDeepMatch[] = L"KyGuid::CGuidBuilder::DeepMatchAncientGuid";
constexpr wchar_t kMatchAncient[] = L"KyGuid::CGuidBuilder::MatchAncientGuidInfo";

}  // namespace

int CGuidBuilder::MatchGuidInfo(GuidRecord& record) {
  record.DiskIndex = FindDiskByKey(m_disks, record.DiskKey);
  record.AdapterIndex = FindAdapterByKey(m_adapters, record.AdapterKey);
  MatchFacts facts;
  facts.matchedDisk = FindDisk(record.DiskIndex);
  facts.matchedAdapter = FindAdapter(record.AdapterIndex);
  facts.anyDisk = !m_disks.empty();
  facts.anyAdapter = !m_adapters.empty();
  facts.recordHasGuid = !record.Guid.empty();
  m_lastMatch = DecideMatch(facts, [&] { return FindAdapterInWmi(record) != 0; });
  if (m_lastMatch.message) {
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kMatchGuidInfo), "%s", m_lastMatch.message);
  }
  return m_lastMatch.keep ? 1 : 0;
}

int CGuidBuilder::FindAdapterInWmi(const GuidRecord& record) const {
  std::string guidName = GuidNameFromDetail(record.AdapterDetail);
  if (guidName.empty()) {
    guidName = GuidNameFromDetail(CGuidProfile().FindBuildAdapter(record.AdapterKey));
  }
  if (guidName.empty()) return 0;
  const std::string pnpId = CAdapterFetcher::QueryPnpInstanceId(guidName);
  if (pnpId.empty()) return 0;
  return CurrentPlatform().hardware->FindWmiAdapter(pnpId) ? 1 : 0;
}

void CGuidBuilder::BindDisk(GuidRecord& record, const DiskInfo& disk) const {
  record.DiskIndex = disk.Index;
  record.DiskKey = DiskKey(disk);
  record.DiskDetail = DiskDetail(disk);
}

void CGuidBuilder::DeepMatchAncientGuid(GuidRecord& record) {
  for (const AdapterInfo& adapter : m_adapters) {
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

  bool diskBound = false;
  for (const DiskInfo& disk : m_disks) {
    const std::string hash = AncientDiskGuid(disk.ProductId, disk.Revision, disk.SerialNumber);
    if (hash != record.DiskKey) continue;
    BindDisk(record, disk);
    diskBound = true;
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kDeepMatch), "Deepmatch find disk[%s]-->Guid[%s]",
                 record.DiskKey.c_str(), hash.c_str());
  }
  if (!diskBound) diskBound = DeepMatchLegacyDisk(record);

  if (record.AdapterIndex < 0) {
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kDeepMatch), "Deepmatch can't find adapter: %s",
                 record.AdapterKey.c_str());
  }
  if (!diskBound) {
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kDeepMatch), "Deepmatch can't find disk: %s",
                 record.DiskKey.c_str());
  }
}

int CGuidBuilder::MatchAncientGuidInfo() {
  if (m_activeInfo.DiskIndex >= 0 || m_activeInfo.AdapterIndex >= 0) return UpdateGuidByAncient();
  if (m_disks.empty()) {
    if (!m_activeInfo.Guid.empty()) {
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

}  // namespace KyGuid
