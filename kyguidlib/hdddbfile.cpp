#include "kyguidlib/hdddbfile.h"

#include "common/ansipath.h"
#include "common/profilefile.h"

namespace KyGuid {
namespace {

using namespace HddDb;
constexpr uint32_t kValueBuffer = 260;

}  // namespace

std::string HddDbPath(const std::wstring& profileDir) {
  return KyGuidUtils::WideToAnsi(profileDir) + "\\HDD.db";
}

HddDbIdentity ReadHddDb(const std::string& path) {
  HddDbIdentity identity;
  identity.serialNumber =
      KyGuidUtils::ReadIniString(path, kSection, Key::SerialNumber, kValueBuffer);
  identity.modelNumber = KyGuidUtils::ReadIniString(path, kSection, Key::ModelNumber, kValueBuffer);
  identity.revisionNumber =
      KyGuidUtils::ReadIniString(path, kSection, Key::RevisionNumber, kValueBuffer);
  return identity;
}

void WriteHddDb(const std::string& path, const HddDbIdentity& identity) {
  KyGuidUtils::WriteIniString(path, kSection, Key::SerialNumber, identity.serialNumber);
  KyGuidUtils::WriteIniString(path, kSection, Key::ModelNumber, identity.modelNumber);
  KyGuidUtils::WriteIniString(path, kSection, Key::RevisionNumber, identity.revisionNumber);
}

}  // namespace KyGuid
