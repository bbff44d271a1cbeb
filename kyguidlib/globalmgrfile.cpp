#include "kyguidlib/globalmgrfile.h"

#include "common/filestore.h"
#include "common/profilefile.h"

namespace KyGuid {
namespace {

constexpr char kSection[] = "Profile";

std::string Read(const std::string& path, const char* key, uint32_t valueBuffer) {
  return KyGuidUtils::ReadIniString(path, kSection, key, valueBuffer);
}

}  // namespace

GlobalMgrValues ReadGlobalMgr(const std::string& path, uint32_t valueBuffer) {
  GlobalMgrValues values;
  values.id = Read(path, "config1", valueBuffer);
  values.macDigest = Read(path, "config2", valueBuffer);
  values.driveDigest = Read(path, "config3", valueBuffer);
  values.cpuDigest = Read(path, "config4", valueBuffer);
  values.version = KyGuidUtils::ReadIniInt(path, kSection, "config5", 0);
  return values;
}

std::string ReadGlobalMgrId(const std::string& path, uint32_t valueBuffer) {
  return Read(path, "config1", valueBuffer);
}

void WriteGlobalMgrId(const std::string& path, const std::string& id) {
  KyGuidUtils::WriteIniString(path, kSection, "config1", id);
}

std::string GlobalMgrText(const GlobalMgrValues& values) {
  return std::string("[Profile]\r\n") + "config1=" + values.id + "\r\n" +
         "config2=" + values.macDigest + "\r\n" + "config3=" + values.driveDigest + "\r\n" +
         "config4=" + values.cpuDigest + "\r\n" + "config5=1\r\n";
}

bool WriteGlobalMgrFile(const std::wstring& path, const GlobalMgrValues& values) {
  return KyGuidUtils::WriteStoreFileHead(path, GlobalMgrText(values));
}

}  // namespace KyGuid
