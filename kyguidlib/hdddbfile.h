// HDD.db, where the legacy scheme keeps the random drive identity it made
// up for a machine whose drives answer no query. Only random values are
// ever stored in it.
//
//   [HDD]  SerialNumber=Rand_...  ModelNumber=Rand_...  RevisionNumber=Rand_...
#pragma once

#include <string>

namespace KyGuid {

namespace HddDb {
constexpr char kSection[] = "HDD";
namespace Key {
constexpr char SerialNumber[] = "SerialNumber";
constexpr char ModelNumber[] = "ModelNumber";
constexpr char RevisionNumber[] = "RevisionNumber";
}  // namespace Key
}  // namespace HddDb

struct HddDbIdentity {
  std::string serialNumber;
  std::string modelNumber;
  std::string revisionNumber;
  bool Complete() const {
    return !serialNumber.empty() && !modelNumber.empty() && !revisionNumber.empty();
  }
};

// HDD.db in the profile folder `profileDir`, narrow.
std::string HddDbPath(const std::wstring& profileDir);
HddDbIdentity ReadHddDb(const std::string& path);
void WriteHddDb(const std::string& path, const HddDbIdentity& identity);

}  // namespace KyGuid
