#include "kyguidlib/cguidprofile.h"

#include <windows.h>

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
// Far above the adapters of any machine.
constexpr unsigned kMaxListEntries = 1024;

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
    unsigned count = static_cast<unsigned>(
        KyGuidUtils::ReadIniInt(m_path, section.c_str(), kAdapterList.count, 0));
    // The count comes from a file anyone may have written: 4294967295 would
    // keep an update reading the file for hours. Saved lists have no gaps,
    // so the first missing entry ends the list whatever the count says.
    for (unsigned j = 0; j < count && j < kMaxListEntries; ++j) {
      const std::string key = kAdapterList.entry + std::to_string(j);
      std::string entry =
          KyGuidUtils::ReadIniString(m_path, section.c_str(), key.c_str(), kValueBufferSize);
      if (entry.empty()) break;
      if (entry.find(text) != std::string::npos) return entry;
    }
  }
  return std::string();
}

}  // namespace KyGuid
