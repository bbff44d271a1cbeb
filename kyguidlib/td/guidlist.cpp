#include "kyguidlib/td/guidlist.h"

#include "common/filestore.h"
#include "common/profilefile.h"
#include "kyguidlib/globalmgrfile.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/td/historyfile.h"
#include "kyguidlib/td/kystackshell.h"

namespace KyMacID {
namespace {

using namespace GuidListDb;

constexpr unsigned kValueBufferSize = 33;  // a 32-digit digest and its NUL

void WriteRecord(const std::string& file, const char* section, const GuidListRecord& record,
                 const std::string& time) {
  KyGuidUtils::WriteIniString(file, section, Key::Guid, record.Guid);
  KyGuidUtils::WriteIniString(file, section, Key::Mac, record.Mac);
  KyGuidUtils::WriteIniString(file, section, Key::Hd, record.Hd);
  KyGuidUtils::WriteIniString(file, section, Key::Cpu, record.Cpu);
  KyGuidUtils::WriteIniString(file, section, Key::ChangeType, std::to_string(record.ChangeType));
  KyGuidUtils::WriteIniString(file, section, Key::Time, time);
}

std::string Read(const std::string& file, const char* key) {
  return KyGuidUtils::ReadIniString(file, kCurrentSection, key, kValueBufferSize);
}

}  // namespace

std::string GuidListDb::HistorySection(int n) { return "GuidList_" + std::to_string(n); }

int CGuidList::SetPath(const wchar_t* globalMgrPath) {
  KyStuck::StackScope scope("CGuidList::SetPath");
  m_sourcePath = KyGuid::WideToAnsi(globalMgrPath ? globalMgrPath : L"");
  HistoryFile::Location location = HistoryFile::Sibling(globalMgrPath, L"GuidList.db");
  m_pathW = location.wide;
  m_path = location.ansi;
  return 1;
}

bool CGuidList::IsFileOk() const {
  KyStuck::StackScope scope("CGuidList::IsFileOk");
  return !Read(m_path, Key::Guid).empty();
}

void CGuidList::CreateGuidListFile() {
  KyStuck::StackScope scope("CGuidList::CreateGuidListFile");
  if (KyGuidUtils::StoreFileExists(m_pathW) && IsFileOk()) return;
  // A machine that had the legacy id before this file existed starts its
  // history with the record GlobalMgr.db holds.
  const KyGuid::GlobalMgrValues legacy =
      KyGuid::ReadGlobalMgr(m_sourcePath, KyGuid::kLegacyValueBuffer);
  SetCurGuid(legacy.id, legacy.macDigest, legacy.driveDigest, legacy.cpuDigest, 0);
  SaveToGuidListFile();
}

void CGuidList::ResetGuidList() {
  KyStuck::StackScope scope("CGuidList::ResetGuidList");
  m_old = GuidListRecord();
  m_cur = GuidListRecord();
}

void CGuidList::SetOldGuid(const std::string& guid, const std::string& mac, const std::string& hd,
                           const std::string& cpu) {
  KyStuck::StackScope scope("CGuidList::SetOldGuid");
  m_old.Guid = guid;
  m_old.Mac = mac;
  m_old.Hd = hd;
  m_old.Cpu = cpu;
  m_old.ChangeType = KyGuidUtils::ReadIniInt(m_path, kCurrentSection, Key::ChangeType, 0);
  m_old.Time = Read(m_path, Key::Time);
  if (m_old.Time.empty()) m_old.Time = HistoryFile::NowText();
}

void CGuidList::SetCurGuid(const std::string& guid, const std::string& mac, const std::string& hd,
                           const std::string& cpu, int changeType) {
  KyStuck::StackScope scope("CGuidList::SetCurGuid");
  m_cur.Guid = guid;
  m_cur.Mac = mac;
  m_cur.Hd = hd;
  m_cur.Cpu = cpu;
  m_cur.ChangeType = changeType;
}

void CGuidList::SaveToGuidListFile() {
  KyStuck::StackScope scope("CGuidList::SaveToGuidListFile");
  // A machine without a readable drive still has a record; one without an
  // adapter or processor identity has nothing worth keeping.
  if (m_cur.Guid.empty() || m_cur.Mac.empty() || m_cur.Cpu.empty()) return;
  WriteRecord(m_path, kCurrentSection, m_cur, HistoryFile::NowText());
  if (!m_old.Guid.empty()) {
    const int count = KyGuidUtils::ReadIniInt(m_path, kCountSection, kCountKey, 0);
    KyGuidUtils::WriteIniString(m_path, kCountSection, kCountKey, std::to_string(count + 1));
    const std::string section = HistorySection(count);
    WriteRecord(m_path, section.c_str(), m_old, m_old.Time);
  }
  SetGuidChangeFlage();
}

void CGuidList::SetGuidChangeFlage() {
  KyStuck::StackScope scope("CGuidList::SetGuidChangeFlage");
  KyGuidUtils::WriteIniString(m_path, kCountSection, kChangeFlagKey, "1");
}

GuidListRecord CGuidList::ReadFileCurGuid() const {
  KyStuck::StackScope scope("CGuidList::ReadFileCurGuid");
  GuidListRecord record;
  record.Guid = Read(m_path, Key::Guid);
  record.Mac = Read(m_path, Key::Mac);
  record.Hd = Read(m_path, Key::Hd);
  record.Cpu = Read(m_path, Key::Cpu);
  record.ChangeType = KyGuidUtils::ReadIniInt(m_path, kCurrentSection, Key::ChangeType, 0);
  record.Time = Read(m_path, Key::Time);
  return record;
}

}  // namespace KyMacID
