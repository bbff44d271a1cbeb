// GuidInfo.db: the hardware digests the legacy scheme has seen on
// this machine, so that a later run can tell a changed adapter or drive from
// a different machine. The file is rewritten from memory; the library never
// reads it back.
//
// Sections "GuidList", "MacList", "HdList", "CpuList" (GuidInfoDb below),
// each with "Count" and keys "Guid_0", "Mac_0", ... numbered from 0 in sorted
// order. Every element is a 32-digit lower-case MD5.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "kyguidlib/td/driverecord.h"
#include "kyguidlib/td/macfetcher.h"

namespace KyMacID {

namespace GuidInfoDb {
struct DigestSet {
  const char* section;
  const char* keyPrefix;  // followed by the element's number
};
constexpr DigestSet kGuids{"GuidList", "Guid_"};
constexpr DigestSet kMacs{"MacList", "Mac_"};
constexpr DigestSet kDrives{"HdList", "Hd_"};
constexpr DigestSet kCpus{"CpuList", "Cpu_"};
constexpr char kCountKey[] = "Count";
}  // namespace GuidInfoDb

class CGuidInfo {
 public:
  // The file goes into the folder of `path` (a file path). Returns 1.
  int SetPath(const wchar_t* path);

  // Empties the MAC, drive and processor digests. The GUID digests stay: they
  // accumulate over the life of the object.
  void ResetGuidInfo();
  // Whether RecordGuidList combines each MAC with the drives and with the
  // processor string.
  void ResetHddCpu(bool useDrives, bool useCpu);

  // Each keeps its list (replacing the one kept before) and adds digests.
  void RecordMacList(const std::vector<MACAddress>& macs);
  void RecordHDList(const std::vector<DriveRecord>& drives);
  void RecordCpu(const std::string& cpu);
  // Adds the digest of every kept MAC, combined as ResetHddCpu says.
  void RecordGuidList();

  void SaveGuidList();
  void SaveMacList();
  void SaveHDList();
  void SaveCpu();
  // RecordGuidList, then all four sections.
  void SaveToFileHWList();

  bool IsFoundMac(const std::string& digest) const;
  bool IsFoundHd(const std::string& digest) const;

  const std::wstring& FilePathW() const { return m_pathW; }
  const std::string& FilePath() const { return m_path; }

 private:
  void SaveSet(const std::set<std::string>& set, const GuidInfoDb::DigestSet& names);

  std::wstring m_pathW;
  std::string m_path;
  std::set<std::string> m_guidList;
  std::set<std::string> m_macList;
  std::set<std::string> m_hdList;
  std::set<std::string> m_cpuList;
  std::vector<MACAddress> m_macs;
  std::vector<DriveRecord> m_drives;
  std::string m_cpu;
  bool m_useDrives = false;
  bool m_useCpu = false;
};

}  // namespace KyMacID
