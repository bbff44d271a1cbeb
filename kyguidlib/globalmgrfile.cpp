#include "kyguidlib/globalmgrfile.h"

#include "common/filestore.h"
#include "common/profilefile.h"

namespace KyGuid {
namespace {

using namespace GlobalMgrDb;

std::string Read(const std::string& path, const char* key, uint32_t valueBuffer) {
  return KyGuidUtils::ReadIniString(path, kSection, key, valueBuffer);
}

}  // namespace

GlobalMgrValues ReadGlobalMgr(const std::string& path, uint32_t valueBuffer) {
  GlobalMgrValues values;
  values.id = Read(path, Key::Id, valueBuffer);
  values.macDigest = Read(path, Key::MacDigest, valueBuffer);
  values.driveDigest = Read(path, Key::DriveDigest, valueBuffer);
  values.cpuDigest = Read(path, Key::CpuDigest, valueBuffer);
  values.version = KyGuidUtils::ReadIniInt(path, kSection, Key::Version, 0);
  return values;
}

std::string ReadGlobalMgrId(const std::string& path, uint32_t valueBuffer) {
  return Read(path, Key::Id, valueBuffer);
}

void WriteGlobalMgrId(const std::string& path, const std::string& id) {
  KyGuidUtils::WriteIniString(path, kSection, Key::Id, id);
}

std::string GlobalMgrText(const GlobalMgrValues& values) {
  auto line = [](const char* key, const std::string& value) {
    return std::string(key) + "=" + value + "\r\n";
  };
  return std::string("[") + kSection + "]\r\n" + line(Key::Id, values.id) +
         line(Key::MacDigest, values.macDigest) + line(Key::DriveDigest, values.driveDigest) +
         line(Key::CpuDigest, values.cpuDigest) + line(Key::Version, "1");
}

bool WriteGlobalMgrFile(const std::wstring& path, const GlobalMgrValues& values) {
  return KyGuidUtils::WriteStoreFileHead(path, GlobalMgrText(values));
}

}  // namespace KyGuid
