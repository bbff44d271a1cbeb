// GuidList.db: the legacy scheme's record in use and, numbered from 0, every
// record it replaced, so that support can follow an id through hardware
// changes.
//
//   [CurGuid]      Guid, Mac, Hd, Cpu, ChangeType, Time (seconds since 1970)
//   [ListCount]    Count (history sections), ChangeFlag ("1" once saved)
//   [GuidList_N]   the same six keys for the N-th replaced record
#pragma once

#include <string>

namespace KyMacID {

namespace GuidListDb {
constexpr char kCurrentSection[] = "CurGuid";
constexpr char kCountSection[] = "ListCount";
constexpr char kCountKey[] = "Count";
constexpr char kChangeFlagKey[] = "ChangeFlag";
namespace Key {
constexpr char Guid[] = "Guid";
constexpr char Mac[] = "Mac";
constexpr char Hd[] = "Hd";
constexpr char Cpu[] = "Cpu";
constexpr char ChangeType[] = "ChangeType";
constexpr char Time[] = "Time";
}  // namespace Key
// "GuidList_<n>": the n-th record replaced, numbered from 0.
std::string HistorySection(int n);
}  // namespace GuidListDb

struct GuidListRecord {
  std::string Guid;
  std::string Mac;
  std::string Hd;
  std::string Cpu;
  int ChangeType = 0;
  std::string Time;  // the old record's only; decimal seconds since 1970
};

class CGuidList {
 public:
  // `globalMgrPath` is the path of GlobalMgr.db; GuidList.db goes beside it.
  // Returns 1.
  int SetPath(const wchar_t* globalMgrPath);

  // Seeds GuidList.db from GlobalMgr.db unless it already holds a record.
  void CreateGuidListFile();
  // Empties both records.
  void ResetGuidList();
  // The record being replaced. Its change type and time are those the file
  // holds for the current record (a missing time reads as now).
  void SetOldGuid(const std::string& guid, const std::string& mac, const std::string& hd,
                  const std::string& cpu);
  void SetCurGuid(const std::string& guid, const std::string& mac, const std::string& hd,
                  const std::string& cpu, int changeType);
  // Writes the current record, and the old one as a new history section when
  // there is one. Nothing at all is written while the current record lacks a
  // Guid, Mac or Cpu.
  void SaveToGuidListFile();
  void SetGuidChangeFlage();
  // Whether the file holds a current Guid.
  bool IsFileOk() const;

  // The current record as the file holds it (ChangeType and Time included).
  GuidListRecord ReadFileCurGuid() const;

  const std::wstring& FilePathW() const { return m_pathW; }
  const std::string& FilePath() const { return m_path; }

 private:
  std::string m_sourcePath;  // GlobalMgr.db, ANSI code page
  std::wstring m_pathW;
  std::string m_path;
  GuidListRecord m_old;
  GuidListRecord m_cur;
};

}  // namespace KyMacID
