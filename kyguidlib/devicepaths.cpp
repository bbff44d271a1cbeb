#include "kyguidlib/devicepaths.h"

namespace KyGuid {

std::wstring PhysicalDrivePath(int drive) {
  return L"\\\\.\\PhysicalDrive" + std::to_wstring(drive);
}

std::wstring ScsiPortPath(int controller) {
  return L"\\\\.\\Scsi" + std::to_wstring(controller) + L":";
}

}  // namespace KyGuid
