#include "kyguidlib/devicepaths.h"

namespace KyGuid {

std::wstring PhysicalDrivePath(int drive) {
  return L"\\\\.\\PhysicalDrive" + std::to_wstring(drive);
}

}  // namespace KyGuid
