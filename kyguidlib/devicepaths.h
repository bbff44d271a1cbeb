// Device names and control codes shared by the fetchers.
#pragma once

#include <cstdint>
#include <string>

namespace KyGuid {

constexpr uint32_t kIoctlStorageQueryProperty = 0x2D1400;
constexpr uint32_t kIoctlVolumeGetDiskExtents = 0x560000;
constexpr uint32_t kSmartGetVersion = 0x74080;
constexpr uint32_t kSmartReceiveDriveData = 0x7C088;
constexpr uint32_t kIoctlScsiMiniport = 0x4D008;

constexpr uint32_t kGenericRead = 0x80000000u;
constexpr uint32_t kGenericWrite = 0x40000000u;
constexpr uint32_t kShareRead = 0x1;
constexpr uint32_t kShareWrite = 0x2;
constexpr uint32_t kShareDelete = 0x4;
constexpr uint32_t kAttributeNormal = 0x80;
constexpr uint32_t kErrorFileNotFound = 2;

constexpr int kMaxPhysicalDrives = 16;

// "\\.\PhysicalDrive<n>"
std::wstring PhysicalDrivePath(int drive);
// "\\.\Scsi<n>:", the port of SCSI (or SCSI-emulating IDE) controller n.
std::wstring ScsiPortPath(int controller);
constexpr int kMaxScsiControllers = 16;

}  // namespace KyGuid
