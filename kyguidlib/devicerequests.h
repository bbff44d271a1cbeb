// What the disk readers send to storage drivers: device names, control
// codes, open modes, and the request blocks in their packed Windows layouts
// (STORAGE_PROPERTY_QUERY, STORAGE_DEVICE_DESCRIPTOR, GETVERSIONINPARAMS,
// SENDCMDINPARAMS, SENDCMDOUTPARAMS, SRB_IO_CONTROL), built as plain bytes so
// that every reader sends exactly the same blocks. The Windows-side tests pin
// the offsets against the SDK structures.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace KyGuid {

// --- Devices -----------------------------------------------------------------
constexpr int kMaxPhysicalDrives = 16;
constexpr int kMaxScsiControllers = 16;
constexpr int kDrivesPerScsiController = 2;

// "\\.\PhysicalDrive<n>"
std::wstring PhysicalDrivePath(int drive);
// "\\.\Scsi<n>:", the port of SCSI (or SCSI-emulating IDE) controller n.
std::wstring ScsiPortPath(int controller);

constexpr uint32_t kGenericRead = 0x80000000u;
constexpr uint32_t kGenericWrite = 0x40000000u;
constexpr uint32_t kReadWrite = kGenericRead | kGenericWrite;
constexpr uint32_t kQueryOnly = 0;
constexpr uint32_t kShareRead = 0x1;
constexpr uint32_t kShareWrite = 0x2;
constexpr uint32_t kShareDelete = 0x4;
constexpr uint32_t kShareReadWrite = kShareRead | kShareWrite;
constexpr uint32_t kAttributeNormal = 0x80;
constexpr uint32_t kErrorFileNotFound = 2;

// --- Control codes -----------------------------------------------------------
constexpr uint32_t kIoctlStorageQueryProperty = 0x2D1400;
constexpr uint32_t kIoctlVolumeGetDiskExtents = 0x560000;
constexpr uint32_t kSmartGetVersion = 0x74080;
constexpr uint32_t kSmartReceiveDriveData = 0x7C088;
constexpr uint32_t kIoctlScsiMiniport = 0x4D008;

// --- The storage device descriptor -------------------------------------------
// STORAGE_PROPERTY_QUERY for the standard device property: all zero.
constexpr uint32_t kPropertyQuerySize = 12;
// The current scheme reads the descriptor into 4096 bytes, the legacy
// scheme into 2048; string offsets outside the buffer are ignored.
constexpr uint32_t kDescriptorBufferSize = 4096;
constexpr uint32_t kLegacyDescriptorBufferSize = 2048;
constexpr size_t kRemovableMediaAt = 10;
constexpr size_t kVendorIdOffsetAt = 12;
constexpr size_t kProductIdOffsetAt = 16;
constexpr size_t kRevisionOffsetAt = 20;
constexpr size_t kSerialNumberOffsetAt = 24;
constexpr size_t kBusTypeAt = 28;

// --- ATA IDENTIFY ------------------------------------------------------------
constexpr uint8_t kAtaIdentifyDevice = 0xEC;
constexpr uint8_t kAtaIdentifyPacketDevice = 0xA1;
constexpr size_t kIdentifyDataSize = 512;

// GETVERSIONINPARAMS
constexpr uint32_t kVersionParamsSize = 24;
constexpr size_t kVersionIdeDeviceMapAt = 3;

// SENDCMDINPARAMS: cBufferSize, IDEREGS, bDriveNumber, reserved, bBuffer[1].
constexpr uint32_t kSendCmdInSize = 33;
constexpr size_t kSendCmdBufferSizeAt = 0;
constexpr size_t kSendCmdSectorCountAt = 5;
constexpr size_t kSendCmdDriveHeadAt = 9;
constexpr size_t kSendCmdCommandAt = 10;
constexpr size_t kSendCmdDriveNumberAt = 12;

// SENDCMDOUTPARAMS: cBufferSize and DRIVERSTATUS, then bBuffer[1].
constexpr uint32_t kSendCmdOutSize = 17;
constexpr uint32_t kSendCmdOutHeaderSize = 16;
// SENDCMDOUTPARAMS with the 512 bytes of IDENTIFY data, its one declared
// buffer byte counted once.
constexpr uint32_t kIdentifyReplySize = kSendCmdOutHeaderSize + kIdentifyDataSize;

// SRB_IO_CONTROL, the header in front of a miniport request.
constexpr uint32_t kSrbIoControlSize = 28;
constexpr size_t kSrbHeaderLengthAt = 0;
constexpr size_t kSrbSignatureAt = 4;
constexpr size_t kSrbTimeoutAt = 12;
constexpr size_t kSrbControlCodeAt = 16;
constexpr size_t kSrbLengthAt = 24;
constexpr uint32_t kMiniportIdentify = 0x1B0501;  // IOCTL_SCSI_MINIPORT_IDENTIFY
constexpr uint32_t kMiniportTimeout = 10000;

// One block carries the miniport request in and the reply out: the header,
// then SENDCMDINPARAMS going in and SENDCMDOUTPARAMS with the IDENTIFY data
// coming back.
constexpr uint32_t kMiniportInputSize = kSrbIoControlSize + kSendCmdInSize - 1;
constexpr uint32_t kMiniportBlockSize = kSrbIoControlSize + kSendCmdOutSize + kIdentifyDataSize;
constexpr size_t kMiniportIdentifyAt = kSrbIoControlSize + kSendCmdOutHeaderSize;
static_assert(kMiniportInputSize == 60 && kMiniportBlockSize == 557 && kMiniportIdentifyAt == 44,
              "the sizes the legacy scheme sent");

// IDENTIFY DEVICE for ATA drives, IDENTIFY PACKET DEVICE for the ATAPI ones:
// the device map of the version reply carries one ATAPI bit per drive,
// four bits above its ATA bit.
uint8_t IdentifyCommandFor(uint8_t ideDeviceMap, int drive);

// The little-endian 32-bit field at byte `at` of a request or reply.
uint32_t ReadLe32(const uint8_t* bytes, size_t at);

// SENDCMDINPARAMS with the full register set: a 512-byte transfer of one
// sector from the master (even drive) or slave (odd drive) device.
std::vector<uint8_t> FullIdentifyRequest(int drive, uint8_t command);

// A zeroed block of `blockSize` bytes holding SENDCMDINPARAMS with only the
// IDENTIFY DEVICE command register set; the handle alone selects the drive.
std::vector<uint8_t> CommandOnlyIdentifyRequest(size_t blockSize);

// A zeroed kMiniportBlockSize block: SRB_IO_CONTROL for the miniport
// IDENTIFY, then SENDCMDINPARAMS with IDENTIFY DEVICE for `drive`.
std::vector<uint8_t> MiniportIdentifyRequest(int drive);

}  // namespace KyGuid
