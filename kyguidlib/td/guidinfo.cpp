#include "kyguidlib/td/guidinfo.h"

#include <cstdio>

#include "common/md5.h"
#include "common/profilefile.h"
#include "kyguidlib/td/historyfile.h"
#include "kyguidlib/td/kystackshell.h"

namespace KyMacID {
namespace {

std::string DriveText(const DriveRecord& drive) {
  return drive.SerialNumber + drive.ModelNumber + drive.RevisionNumber;
}

}  // namespace

int CGuidInfo::SetPath(const wchar_t* path) {
  KyStuck::StackScope scope("CGuidInfo::SetPath");
  HistoryFile::Location location = HistoryFile::Sibling(path, L"GuidInfo.db");
  m_pathW = location.wide;
  m_path = location.ansi;
  return 1;
}

void CGuidInfo::ResetGuidInfo() {
  KyStuck::StackScope scope("CGuidInfo::ResetGuidInfo");
  m_macList.clear();
  m_hdList.clear();
  m_cpuList.clear();
}

void CGuidInfo::ResetHddCpu(bool useDrives, bool useCpu) {
  KyStuck::StackScope scope("CGuidInfo::ResetHddCpu");
  m_useDrives = useDrives;
  m_useCpu = useCpu;
}

void CGuidInfo::RecordMacList(const std::vector<MACAddress>& macs) {
  KyStuck::StackScope scope("CGuidInfo::RecordMacList");
  m_macs = macs;
  for (const MACAddress& mac : m_macs) m_macList.insert(KyGuidUtils::Md5Hex(mac.ToString()));
}

void CGuidInfo::RecordHDList(const std::vector<DriveRecord>& drives) {
  KyStuck::StackScope scope("CGuidInfo::RecordHDList");
  m_drives = drives;
  for (const DriveRecord& drive : m_drives) m_hdList.insert(KyGuidUtils::Md5Hex(DriveText(drive)));
}

void CGuidInfo::RecordCpu(const std::string& cpu) {
  KyStuck::StackScope scope("CGuidInfo::RecordCpu");
  m_cpuList.insert(KyGuidUtils::Md5Hex(cpu));
  m_cpu = cpu;
}

void CGuidInfo::RecordGuidList() {
  KyStuck::StackScope scope("CGuidInfo::RecordGuidList");
  // The same texts the sequence id is hashed from, so every id this machine
  // could have had is on record.
  const std::string cpu = m_useCpu ? m_cpu : std::string();
  for (const MACAddress& mac : m_macs) {
    const std::string macText = mac.ToString();
    if (!m_useDrives) {
      m_guidList.insert(KyGuidUtils::Md5Hex(macText + cpu));
      continue;
    }
    for (const DriveRecord& drive : m_drives) {
      m_guidList.insert(KyGuidUtils::Md5Hex(macText + DriveText(drive) + cpu));
    }
  }
}

void CGuidInfo::SaveGuidList() {
  KyStuck::StackScope scope("CGuidInfo::SaveGuidList");
  SaveSet(m_guidList, GuidInfoDb::kGuids);
}

void CGuidInfo::SaveMacList() {
  KyStuck::StackScope scope("CGuidInfo::SaveMacList");
  SaveSet(m_macList, GuidInfoDb::kMacs);
}

void CGuidInfo::SaveHDList() {
  KyStuck::StackScope scope("CGuidInfo::SaveHDList");
  SaveSet(m_hdList, GuidInfoDb::kDrives);
}

void CGuidInfo::SaveCpu() {
  KyStuck::StackScope scope("CGuidInfo::SaveCpu");
  SaveSet(m_cpuList, GuidInfoDb::kCpus);
}

void CGuidInfo::SaveToFileHWList() {
  KyStuck::StackScope scope("CGuidInfo::SaveToFileHWList");
  RecordGuidList();
  SaveMacList();
  SaveHDList();
  SaveCpu();
  SaveGuidList();
}

bool CGuidInfo::IsFoundMac(const std::string& digest) const {
  KyStuck::StackScope scope("CGuidInfo::IsFoundMac");
  return m_macList.count(digest) != 0;
}

bool CGuidInfo::IsFoundHd(const std::string& digest) const {
  KyStuck::StackScope scope("CGuidInfo::IsFoundHd");
  return m_hdList.count(digest) != 0;
}

void CGuidInfo::SaveSet(const std::set<std::string>& set, const GuidInfoDb::DigestSet& names) {
  KyGuidUtils::WriteIniString(m_path, names.section, GuidInfoDb::kCountKey,
                              std::to_string(set.size()));
  int index = 0;
  for (const std::string& element : set) {
    const std::string key = names.keyPrefix + std::to_string(index++);
    KyGuidUtils::WriteIniString(m_path, names.section, key.c_str(), element);
  }
}

}  // namespace KyMacID
