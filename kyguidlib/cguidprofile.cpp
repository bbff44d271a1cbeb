#include "kyguidlib/cguidprofile.h"

#include <windows.h>

#include <algorithm>
#include <vector>

#include "common/filestore.h"
#include "common/kylog.h"
#include "common/profilefile.h"
#include "common/strutil.h"
#include "kyguidlib/datafolder.h"
#include "kyguidlib/guiddbfile.h"
#include "kyguidlib/guidpaths.h"

namespace KyGuid {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\cguidprofile";
constexpr DWORD kValueBufferSize = 4096;
// Far above the adapter list of any machine.
constexpr size_t kMaxSectionBytes = 1 << 20;

}  // namespace

CGuidProfile::CGuidProfile() : m_path(GetGuidFilePath()) {
  std::wstring folder = GetProfileDir();
  if (folder.empty() || KyGuidUtils::StoreFileExists(folder)) return;
  EnsureDataFolder();
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(L"KyGuid::CGuidProfile::CGuidProfile"),
               L"Create guid profile directory: %s", folder.c_str());
}

int CGuidProfile::LoadGuidInfo(GuidRecord& out) const {
  using namespace GuidDb;
  auto text = [&](const char* key) {
    return KyGuidUtils::ReadIniString(m_path, kActiveSection, key, kValueBufferSize);
  };
  auto number = [&](const char* key, int defaultValue) {
    return KyGuidUtils::ReadIniInt(m_path, kActiveSection, key, defaultValue);
  };
  std::string guid = text(Key::Guid);
  if (!KyGuidUtils::IsGuidText(guid)) {
    DWORD error = GetLastError();
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(L"KyGuid::CGuidProfile::LoadGuidInfo"),
                 "LoadGuidInfo failed: %u, timestamp=%llu, %s", static_cast<unsigned>(error),
                 static_cast<unsigned long long>(FileLastWriteTime(m_path)), m_path.c_str());
    return FALSE;
  }
  out.Guid = guid;

  std::string diskKey = text(Key::DiskKey);
  KyGuidUtils::RemoveBlanksAfterMarker(diskKey, "PID:{");
  KyGuidUtils::RemoveBlanksAfterMarker(diskKey, "SN:{");
  out.DiskKey = diskKey;

  std::string diskDetail = text(Key::DiskDetail);
  KyGuidUtils::RemoveBlanksAfterMarker(diskDetail, "PID:{");
  KyGuidUtils::RemoveBlanksAfterMarker(diskDetail, "VID:{");
  KyGuidUtils::RemoveBlanksAfterMarker(diskDetail, "SN:{");
  out.DiskDetail = diskDetail;

  out.AdapterKey = text(Key::AdapterKey);
  out.AdapterDetail = text(Key::AdapterDetail);
  out.CreateIndex = number(Key::CreateIndex, -1);
  out.CreateTime = number(Key::CreateTime, 0);
  out.Score = number(Key::Score, 0);
  out.Reason = number(Key::Reason, 0);
  out.Version = number(Key::Version, 0);
  return TRUE;
}

void CGuidProfile::SaveBuild(const GuidRecord& record, const GuidRecord* replaced,
                             const std::vector<DiskInfo>& disks,
                             const std::vector<AdapterInfo>& adapters) const {
  KyGuidUtils::StoreStep step(GetCommitListPath());
  SaveGuidInfo(GuidDb::kActiveSection, record, nullptr);
  const std::string section = GuidDb::BuildSection(record.CreateIndex);
  if (replaced) SaveGuidInfo(section, *replaced, GuidDb::kReplacedPrefix);
  SaveGuidInfo(section, record, nullptr);
  SaveDiskList(section, disks);
  SaveAdapterList(section, adapters);
  step.Commit();
}

void CGuidProfile::SaveGuidInfo(const std::string& section, const GuidRecord& record,
                                const char* keyPrefix) const {
  if (GuidDb::WriteRecord(m_path, section, record, keyPrefix ? keyPrefix : "")) return;
  DWORD error = GetLastError();
  KyLog::WriteError(KyLog::kError, error, KYLOG_SITE(L"KyGuid::CGuidProfile::SaveGuidInfo"),
                    "SaveGuidInfo failed: %u, %s", static_cast<unsigned>(error), m_path.c_str());
}

int CGuidProfile::SaveDiskList(const std::string& section,
                               const std::vector<DiskInfo>& disks) const {
  std::vector<std::string> details;
  for (const DiskInfo& disk : disks) details.push_back(DiskDetail(disk));
  return GuidDb::WriteList(m_path, section, GuidDb::kDiskList, details);
}

int CGuidProfile::SaveAdapterList(const std::string& section,
                                  const std::vector<AdapterInfo>& adapters) const {
  std::vector<std::string> details;
  for (const AdapterInfo& adapter : adapters) details.push_back(AdapterDetail(adapter));
  return GuidDb::WriteList(m_path, section, GuidDb::kAdapterList, details);
}

std::string CGuidProfile::FindBuildAdapter(const std::string& text) const {
  using namespace GuidDb;
  int index = KyGuidUtils::ReadIniInt(m_path, kActiveSection, Key::CreateIndex, -1);
  for (int walked = 0; walked < kRingSize && index >= 0; ++walked, --index) {
    const std::string section = BuildSection(index);
    const unsigned count = static_cast<unsigned>(
        KyGuidUtils::ReadIniInt(m_path, section.c_str(), kAdapterList.count, 0));
    for (unsigned j : AdapterEntryNumbers(section, count, text.empty())) {
      const std::string key = kAdapterList.entry + std::to_string(j);
      std::string entry =
          KyGuidUtils::ReadIniString(m_path, section.c_str(), key.c_str(), kValueBufferSize);
      if (entry.find(text) != std::string::npos) return entry;
    }
  }
  return std::string();
}

// Every entry number below the count is looked at, gaps and all, but only
// those that stand in the section: an absent entry reads as empty and can hold
// no text, and the count comes from a file anyone may have written, where
// 4294967295 would keep an update reading for hours. Empty text is found in
// the first entry, present or not.
std::vector<unsigned> CGuidProfile::AdapterEntryNumbers(const std::string& section, unsigned count,
                                                        bool emptyText) const {
  std::vector<unsigned> numbers;
  if (emptyText && count > 0) numbers.push_back(0);
  const std::string prefix = GuidDb::kAdapterList.entry;
  for (const auto& entry : KyGuidUtils::ReadIniSection(m_path, section.c_str(), kMaxSectionBytes)) {
    std::string key = entry.first;
    KyGuidUtils::TrimLeadingBlanks(key);
    KyGuidUtils::TrimTrailingBlanks(key);
    if (key.size() <= prefix.size() || key.size() > prefix.size() + 10) continue;
    if (_strnicmp(key.c_str(), prefix.c_str(), prefix.size()) != 0) continue;
    const std::string digits = key.substr(prefix.size());
    if (digits.find_first_not_of("0123456789") != std::string::npos) continue;
    // "Adapter07" stands for entry 7 here, which is then read as "Adapter7".
    const unsigned long long number = std::stoull(digits);
    if (number < count) numbers.push_back(static_cast<unsigned>(number));
  }
  std::sort(numbers.begin(), numbers.end());
  numbers.erase(std::unique(numbers.begin(), numbers.end()), numbers.end());
  return numbers;
}

}  // namespace KyGuid
