// One physical drive's identity as the legacy scheme reads it.
#pragma once

#include <string>

namespace KyMacID {

struct DriveRecord {
  std::string SerialNumber;
  std::string ModelNumber;
  std::string RevisionNumber;
};

}  // namespace KyMacID
