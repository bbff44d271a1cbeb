#include "kyguidlib/cguidprofile.h"

#include <windows.h>
#include <shlobj.h>
#include <shlwapi.h>

#include <cstdio>
#include <vector>

#include "common/kylog.h"
#include "common/strutil.h"
#include "kyguidlib/guidpaths.h"

namespace KyGuid {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\cguidprofile";
constexpr DWORD kValueBufferSize = 4096;
// Far above the adapters of any machine.
constexpr unsigned kMaxListEntries = 1024;

std::string FormatInt(int value) {
  char text[64];
  snprintf(text, sizeof(text), "%d", value);
  return text;
}

}  // namespace

CGuidProfile::CGuidProfile() : m_path(GetGuidFilePath()) {
  std::wstring folder = GetProfileDir();
  if (folder.empty() || PathFileExistsW(folder.c_str())) return;
  SHCreateDirectory(nullptr, folder.c_str());
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(L"KyGuid::CGuidProfile::CGuidProfile"),
               L"Create guid profile directory: %s", folder.c_str());
}

std::string CGuidProfile::ReadString(const char* section, const char* key) const {
  std::vector<char> buffer(kValueBufferSize);
  DWORD length = GetPrivateProfileStringA(section, key, "", buffer.data(), kValueBufferSize,
                                          m_path.c_str());
  return std::string(buffer.data(), length);
}

int CGuidProfile::ReadInt(const char* section, const char* key, int defaultValue) const {
  return static_cast<int>(GetPrivateProfileIntA(section, key, defaultValue, m_path.c_str()));
}

int CGuidProfile::LoadGuidInfo(GuidRecord& out) const {
  std::string guid = ReadString(kActiveSection, "Guid");
  if (!KyGuidUtils::IsGuidText(guid)) {
    DWORD error = GetLastError();
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(L"KyGuid::CGuidProfile::LoadGuidInfo"),
                 "LoadGuidInfo failed: %u, timestamp=%llu, %s", static_cast<unsigned>(error),
                 static_cast<unsigned long long>(FileLastWriteTime(m_path)), m_path.c_str());
    return FALSE;
  }
  out.Guid = guid;

  std::string diskKey = ReadString(kActiveSection, "DiskKey");
  KyGuidUtils::RemoveBlanksAfterMarker(diskKey, "PID:{");
  KyGuidUtils::RemoveBlanksAfterMarker(diskKey, "SN:{");
  out.DiskKey = diskKey;

  std::string diskDetail = ReadString(kActiveSection, "DiskDetail");
  KyGuidUtils::RemoveBlanksAfterMarker(diskDetail, "PID:{");
  KyGuidUtils::RemoveBlanksAfterMarker(diskDetail, "VID:{");
  KyGuidUtils::RemoveBlanksAfterMarker(diskDetail, "SN:{");
  out.DiskDetail = diskDetail;

  out.AdapterKey = ReadString(kActiveSection, "AdapterKey");
  out.AdapterDetail = ReadString(kActiveSection, "AdapterDetail");
  out.CreateIndex = ReadInt(kActiveSection, "CreateIndex", -1);
  out.CreateTime = ReadInt(kActiveSection, "CreateTime", 0);
  out.Score = ReadInt(kActiveSection, "Score", 0);
  out.Reason = ReadInt(kActiveSection, "Reason", 0);
  out.Version = ReadInt(kActiveSection, "Version", 0);
  return TRUE;
}

void CGuidProfile::SaveGuidInfo(const std::string& section, const GuidRecord& record,
                                const char* keyPrefix) const {
  const std::string prefix = keyPrefix ? keyPrefix : "";
  auto write = [&](const char* key, const std::string& value) {
    return WritePrivateProfileStringA(section.c_str(), (prefix + key).c_str(), value.c_str(),
                                      m_path.c_str()) != FALSE;
  };
  if (!write("Guid", record.Guid)) {
    DWORD error = GetLastError();
    KyLog::WriteError(KyLog::kError, error, KYLOG_SITE(L"KyGuid::CGuidProfile::SaveGuidInfo"),
                      "SaveGuidInfo failed: %u, %s", static_cast<unsigned>(error),
                      m_path.c_str());
    return;
  }
  write("DiskKey", record.DiskKey);
  write("DiskDetail", record.DiskDetail);
  write("AdapterKey", record.AdapterKey);
  write("AdapterDetail", record.AdapterDetail);
  write("CreateIndex", FormatInt(record.CreateIndex));
  write("CreateTime", FormatInt(record.CreateTime));
  write("Score", FormatInt(record.Score));
  write("Reason", FormatInt(record.Reason));
  write("Version", FormatInt(record.Version));
}

template <typename Record, typename Detail>
int CGuidProfile::SaveList(const std::string& section, const char* countKey,
                           const char* entryFormat, const std::vector<Record>& records,
                           Detail detail) const {
  char count[32];
  snprintf(count, sizeof(count), "%u", static_cast<unsigned>(records.size()));
  if (!WritePrivateProfileStringA(section.c_str(), countKey, count, m_path.c_str())) return FALSE;
  for (size_t i = 0; i < records.size(); ++i) {
    char key[32];
    snprintf(key, sizeof(key), entryFormat, static_cast<unsigned>(i));
    WritePrivateProfileStringA(section.c_str(), key, detail(records[i]).c_str(), m_path.c_str());
  }
  return TRUE;
}

int CGuidProfile::SaveDiskList(const std::string& section,
                               const std::vector<DiskInfo>& disks) const {
  return SaveList(section, "DiskCount", "Disk%u", disks,
                  [](const DiskInfo& disk) { return DiskDetail(disk); });
}

int CGuidProfile::SaveAdapterList(const std::string& section,
                                  const std::vector<AdapterInfo>& adapters) const {
  return SaveList(section, "AdapterCount", "Adapter%u", adapters,
                  [](const AdapterInfo& adapter) { return AdapterDetail(adapter); });
}

std::string CGuidProfile::BuildSectionName(int createIndex) {
  char name[32];
  snprintf(name, sizeof(name), "Build%d", createIndex % 5);
  return name;
}

std::string CGuidProfile::FindBuildAdapter(const std::string& text) const {
  int index = ReadInt(kActiveSection, "CreateIndex", -1);
  for (int walked = 0; walked < 5 && index >= 0; ++walked, --index) {
    const std::string section = BuildSectionName(index);
    unsigned count = static_cast<unsigned>(ReadInt(section.c_str(), "AdapterCount", 0));
    // The count comes from a file anyone may have written: 4294967295 would
    // keep an update reading the file for hours. Saved lists have no gaps,
    // so the first missing entry ends the list whatever the count says.
    for (unsigned j = 0; j < count && j < kMaxListEntries; ++j) {
      char key[32];
      snprintf(key, sizeof(key), "Adapter%u", j);
      std::string entry = ReadString(section.c_str(), key);
      if (entry.empty()) break;
      if (entry.find(text) != std::string::npos) return entry;
    }
  }
  return std::string();
}

}  // namespace KyGuid
