#include "kyguidlib/cguidprofile.h"

#include <shlobj.h>
#include <shlwapi.h>
#include <windows.h>

#include <vector>

#include "common/filestore.h"
#include "common/kylog.h"
#include "common/profilefile.h"
#include "common/strutil.h"
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
  KyGuidUtils::CreateStoreFolder(folder);
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(L"KyGuid::CGuidProfile::CGuidProfile"),
               L"Create guid profile directory: %s", folder.c_str());
}

int CGuidProfile::LoadGuidInfo(GuidRecord& out) const {
  std::string guid = KyGuidUtils::ReadIniString(m_path, kActiveSection, "Guid", kValueBufferSize);
  if (!KyGuidUtils::IsGuidText(guid)) {
    DWORD error = GetLastError();
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(L"KyGuid::CGuidProfile::LoadGuidInfo"),
                 "LoadGuidInfo failed: %u, timestamp=%llu, %s", static_cast<unsigned>(error),
                 static_cast<unsigned long long>(FileLastWriteTime(m_path)), m_path.c_str());
    return FALSE;
  }
  out.Guid = guid;

  std::string diskKey =
      KyGuidUtils::ReadIniString(m_path, kActiveSection, "DiskKey", kValueBufferSize);
  KyGuidUtils::RemoveBlanksAfterMarker(diskKey, "PID:{");
  KyGuidUtils::RemoveBlanksAfterMarker(diskKey, "SN:{");
  out.DiskKey = diskKey;

  std::string diskDetail =
      KyGuidUtils::ReadIniString(m_path, kActiveSection, "DiskDetail", kValueBufferSize);
  KyGuidUtils::RemoveBlanksAfterMarker(diskDetail, "PID:{");
  KyGuidUtils::RemoveBlanksAfterMarker(diskDetail, "VID:{");
  KyGuidUtils::RemoveBlanksAfterMarker(diskDetail, "SN:{");
  out.DiskDetail = diskDetail;

  out.AdapterKey =
      KyGuidUtils::ReadIniString(m_path, kActiveSection, "AdapterKey", kValueBufferSize);
  out.AdapterDetail =
      KyGuidUtils::ReadIniString(m_path, kActiveSection, "AdapterDetail", kValueBufferSize);
  out.CreateIndex = KyGuidUtils::ReadIniInt(m_path, kActiveSection, "CreateIndex", -1);
  out.CreateTime = KyGuidUtils::ReadIniInt(m_path, kActiveSection, "CreateTime", 0);
  out.Score = KyGuidUtils::ReadIniInt(m_path, kActiveSection, "Score", 0);
  out.Reason = KyGuidUtils::ReadIniInt(m_path, kActiveSection, "Reason", 0);
  out.Version = KyGuidUtils::ReadIniInt(m_path, kActiveSection, "Version", 0);
  return TRUE;
}

void CGuidProfile::SaveGuidInfo(const std::string& section, const GuidRecord& record,
                                const char* keyPrefix) const {
  const std::string prefix = keyPrefix ? keyPrefix : "";
  auto write = [&](const char* key, const std::string& value) {
    return KyGuidUtils::WriteIniString(m_path, section.c_str(), (prefix + key).c_str(), value);
  };
  if (!write("Guid", record.Guid)) {
    DWORD error = GetLastError();
    KyLog::WriteError(KyLog::kError, error, KYLOG_SITE(L"KyGuid::CGuidProfile::SaveGuidInfo"),
                      "SaveGuidInfo failed: %u, %s", static_cast<unsigned>(error), m_path.c_str());
    return;
  }
  write("DiskKey", record.DiskKey);
  write("DiskDetail", record.DiskDetail);
  write("AdapterKey", record.AdapterKey);
  write("AdapterDetail", record.AdapterDetail);
  write("CreateIndex", std::to_string(record.CreateIndex));
  write("CreateTime", std::to_string(record.CreateTime));
  write("Score", std::to_string(record.Score));
  write("Reason", std::to_string(record.Reason));
  write("Version", std::to_string(record.Version));
}

template <typename Record, typename Detail>
int CGuidProfile::SaveList(const std::string& section, const char* countKey,
                           const char* entryPrefix, const std::vector<Record>& records,
                           Detail detail) const {
  const std::string count = std::to_string(static_cast<unsigned>(records.size()));
  if (!KyGuidUtils::WriteIniString(m_path, section.c_str(), countKey, count)) return FALSE;
  for (size_t i = 0; i < records.size(); ++i) {
    const std::string key = entryPrefix + std::to_string(static_cast<unsigned>(i));
    KyGuidUtils::WriteIniString(m_path, section.c_str(), key.c_str(), detail(records[i]));
  }
  return TRUE;
}

int CGuidProfile::SaveDiskList(const std::string& section,
                               const std::vector<DiskInfo>& disks) const {
  return SaveList(section, "DiskCount", "Disk", disks,
                  [](const DiskInfo& disk) { return DiskDetail(disk); });
}

int CGuidProfile::SaveAdapterList(const std::string& section,
                                  const std::vector<AdapterInfo>& adapters) const {
  return SaveList(section, "AdapterCount", "Adapter", adapters,
                  [](const AdapterInfo& adapter) { return AdapterDetail(adapter); });
}

std::string CGuidProfile::BuildSectionName(int createIndex) {
  return "Build" + std::to_string(createIndex % 5);
}

std::string CGuidProfile::FindBuildAdapter(const std::string& text) const {
  int index = KyGuidUtils::ReadIniInt(m_path, kActiveSection, "CreateIndex", -1);
  for (int walked = 0; walked < 5 && index >= 0; ++walked, --index) {
    const std::string section = BuildSectionName(index);
    unsigned count =
        static_cast<unsigned>(KyGuidUtils::ReadIniInt(m_path, section.c_str(), "AdapterCount", 0));
    // The count comes from a file anyone may have written: 4294967295 would
    // keep an update reading the file for hours. Saved lists have no gaps,
    // so the first missing entry ends the list whatever the count says.
    for (unsigned j = 0; j < count && j < kMaxListEntries; ++j) {
      const std::string key = "Adapter" + std::to_string(j);
      std::string entry =
          KyGuidUtils::ReadIniString(m_path, section.c_str(), key.c_str(), kValueBufferSize);
      if (entry.empty()) break;
      if (entry.find(text) != std::string::npos) return entry;
    }
  }
  return std::string();
}

}  // namespace KyGuid
