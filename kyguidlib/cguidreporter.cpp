#include "kyguidlib/cguidreporter.h"

#include <objbase.h>

#include <algorithm>
#include <cstring>

#include "common/clock.h"
#include "common/filestore.h"
#include "common/kylog.h"
#include "common/md5.h"
#include "common/profilefile.h"
#include "common/strutil.h"
#include "kyguidlib/cguidbuilder.h"
#include "kyguidlib/datafolder.h"
#include "kyguidlib/guiddbfile.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/platform.h"

namespace KyGuid {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\cguidreporter";
constexpr char kDescSection[] = "Desc";
constexpr char kCountKey[] = "Count";
constexpr char kTimeKey[] = "ReportTime";
constexpr char kResultField[] = "update_result";
// A cached report holds a few hundred bytes; this only guards against a
// spoiled file.
constexpr size_t kMaxSectionBytes = 1 << 20;

std::string SectionName(int n) { return "Report" + std::to_string(n); }

std::string ExecutableFileName() {
  char path[MAX_PATH] = {};
  DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) return std::string();
  const char* slash = strrchr(path, '\\');
  return slash ? slash + 1 : path;
}

// The machine's random GUID, made once and kept in Guid.db, so that reports
// of one installation can be told apart even where the hardware GUIDs of
// two machines collide.
std::string RandGuid() {
  const std::string path = GetGuidFilePath();
  const std::string stored =
      path.empty() ? std::string()
                   : KyGuidUtils::ReadIniString(path, GuidDb::kRandSection, GuidDb::Key::Guid, 64);
  if (KyGuidUtils::IsGuidText(stored)) return stored;

  GUID guid{};
  const bool made = SUCCEEDED(CoCreateGuid(&guid));
  std::string text = KyGuidUtils::BytesToHex(reinterpret_cast<const uint8_t*>(&guid), sizeof(guid));
  if (made && !path.empty()) {
    EnsureDataFolder();
    KyGuidUtils::WriteIniString(path, GuidDb::kRandSection, GuidDb::Key::Guid, text);
  }
  return text;
}

const DiskInfo* FirstSystemDisk(const std::vector<DiskInfo>& disks) {
  for (const DiskInfo& disk : disks) {
    if (disk.Has(DiskInfo::kSystemDisk)) return &disk;
  }
  return nullptr;
}

// The "key=value" lines of a section in file order, without the cache's
// own time stamp.
ReportFields ReadReportSection(const std::string& path, const std::string& section) {
  ReportFields fields;
  for (auto& entry : KyGuidUtils::ReadIniSection(path, section.c_str(), kMaxSectionBytes)) {
    if (_stricmp(entry.first.c_str(), kTimeKey) != 0) fields.push_back(std::move(entry));
  }
  return fields;
}

std::string FieldValue(const ReportFields& report, const char* key) {
  for (const auto& field : report) {
    if (field.first == key) return field.second;
  }
  return std::string();
}

}  // namespace

CGuidReporter::CGuidReporter(KyReportMgr::CReportManager* manager)
    : m_path(GetReportFilePath()), m_manager(manager) {}

void CGuidReporter::Report(int updateResult, const CGuidBuilder& builder,
                           const std::string& ancientGuid) {
  ReportFields report;
  MakeReport(updateResult, builder, ancientGuid, report);
  Deliver(report);
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(L"KyGuid::CGuidReporter::Report"),
               "Report now, update_result=%d", updateResult);
}

void CGuidReporter::ReportCache() {
  std::vector<ReportFields> reports;
  LoadFromCache(reports);
  for (const ReportFields& report : reports) {
    Deliver(report);
    KyLog::Write(KyLog::kTrace, KYLOG_SITE(L"KyGuid::CGuidReporter::ReportCache"),
                 "Report Cache, update_result=%s", FieldValue(report, kResultField).c_str());
  }
}

void CGuidReporter::Deliver(const ReportFields& report) {
  KyReportMgr::CReportManager* manager =
      m_manager ? m_manager : KyReportMgr::CReportManager::Instance();
  if (manager && !manager->IsShutdown() && manager->IsReady()) manager->Send(kBusiness, report);
}

BOOL CGuidReporter::SaveToCache(const ReportFields& report) {
  if (m_path.empty()) return FALSE;
  EnsureDataFolder();
  // Wrapping after a hundred keeps the count short; the ring only needs
  // count modulo five.
  unsigned count =
      static_cast<unsigned>(KyGuidUtils::ReadIniInt(m_path, kDescSection, kCountKey, 0));
  if (count > kMaxCount) count = 0;
  if (!KyGuidUtils::WriteIniString(m_path, kDescSection, kCountKey, std::to_string(count + 1))) {
    KyLog::WriteError(KyLog::kWarn, GetLastError(),
                      KYLOG_SITE(L"KyGuid::CGuidReporter::SaveToCache"),
                      "write report count failed: %s", m_path.c_str());
    return FALSE;
  }

  // Old keys that this report lacks stay in the section.
  const std::string section = SectionName(static_cast<int>(count % kCacheSections));
  KyGuidUtils::WriteIniString(m_path, section.c_str(), kTimeKey,
                              std::to_string(KyGuidUtils::CurrentTime32()));
  for (const auto& field : report) {
    KyGuidUtils::WriteIniString(m_path, section.c_str(), field.first.c_str(), field.second);
  }
  return TRUE;
}

CGuidReporter::CacheMark CGuidReporter::LastCached() const {
  CacheMark mark;
  if (m_path.empty()) return mark;
  mark.count = KyGuidUtils::ReadIniInt(m_path, kDescSection, kCountKey, 0);
  if (mark.count < 1) return mark;
  const std::string section = SectionName((mark.count - 1) % kCacheSections);
  mark.lastResult = KyGuidUtils::ReadIniString(m_path, section.c_str(), kResultField, 16);
  return mark;
}

int CGuidReporter::LoadFromCache(std::vector<ReportFields>& list) {
  list.clear();
  if (m_path.empty()) return 0;
  const int count = KyGuidUtils::ReadIniInt(m_path, kDescSection, kCountKey, 0);
  if (count < 1) return 0;

  const int64_t now = KyGuidUtils::CurrentTime32();
  for (int n = std::max(count - kCacheSections, 0); n < count; ++n) {
    const std::string section = SectionName(n % kCacheSections);
    const int32_t cachedAt = KyGuidUtils::ReadIniInt(m_path, section.c_str(), kTimeKey, 0);
    if (now - cachedAt >= kFreshSeconds) continue;
    list.push_back(ReadReportSection(m_path, section));
  }
  return static_cast<int>(list.size());
}

void CGuidReporter::MakeReport(int updateResult, const CGuidBuilder& builder,
                               const std::string& ancientGuid, ReportFields& report) {
  report.clear();
  auto add = [&report](const char* key, std::string value) {
    report.emplace_back(key, std::move(value));
  };
  auto addRecordNumbers = [&add](const char* prefix, const GuidRecord& record) {
    const std::string p = prefix;
    add((p + "index").c_str(), std::to_string(record.CreateIndex));
    add((p + "time").c_str(), std::to_string(record.CreateTime));
    add((p + "reason").c_str(), std::to_string(record.Reason));
    add((p + "version").c_str(), std::to_string(record.Version));
    add((p + "score").c_str(), std::to_string(record.Score));
  };

  const DiskInfo* systemDisk = FirstSystemDisk(builder.Disks());
  const std::string randGuid = RandGuid();
  add(kResultField, std::to_string(updateResult));
  add("system_disk", systemDisk ? DiskDetail(*systemDisk) : std::string());
  add("rand_guid", randGuid);
  add("virt_guid",
      KyGuidUtils::Md5Hex((systemDisk ? DiskKey(*systemDisk) : std::string()) + randGuid));
  add("ancient_guid", ancientGuid);
  add("best_guid", builder.BestGuid().Guid);
  add("reporter", ExecutableFileName());

  // Only a run that adopted or replaced a GUID has an earlier one to show.
  if (updateResult > kResultFirstBuilt) {
    const GuidRecord& org = builder.ActiveInfo();
    add("org_guid", org.Guid);
    add("org_disk", org.DiskDetail.empty() ? org.DiskKey : org.DiskDetail);
    add("org_adapter", org.AdapterDetail.empty() ? org.AdapterKey : org.AdapterDetail);
    addRecordNumbers("org_", org);
  }

  const GuidRecord& active = builder.NewInfo();
  add("active_guid", active.Guid);
  add("active_disk", active.DiskDetail);
  add("active_adapter", active.AdapterDetail);
  addRecordNumbers("active_", active);
}

}  // namespace KyGuid
