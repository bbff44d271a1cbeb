// The ATA IDENTIFY requests that the legacy disk readers send, built as
// plain bytes so that the legacy fetcher and the ancient disk fetcher send
// exactly the same blocks. Layouts are the packed Windows ones
// (GETVERSIONINPARAMS, SENDCMDINPARAMS, SENDCMDOUTPARAMS, SRB_IO_CONTROL);
// the Windows-side tests pin every offset below against those structures.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace KyGuid {

constexpr uint8_t kAtaIdentifyDevice = 0xEC;
constexpr uint8_t kAtaIdentifyPacketDevice = 0xA1;

// GETVERSIONINPARAMS
constexpr size_t kVersionParamsSize = 24;
constexpr size_t kVersionIdeDeviceMapAt = 3;

// SENDCMDINPARAMS: cBufferSize, IDEREGS, bDriveNumber, reserved, bBuffer[1].
constexpr size_t kSendCmdInSize = 33;
constexpr size_t kSendCmdBufferSizeAt = 0;
constexpr size_t kSendCmdSectorCountAt = 5;
constexpr size_t kSendCmdDriveHeadAt = 9;
constexpr size_t kSendCmdCommandAt = 10;
constexpr size_t kSendCmdDriveNumberAt = 12;

// SENDCMDOUTPARAMS: cBufferSize and DRIVERSTATUS, then bBuffer[1].
constexpr size_t kSendCmdOutSize = 17;
constexpr size_t kSendCmdOutHeaderSize = 16;
constexpr size_t kIdentifyBlockSize = 512;
// SENDCMDOUTPARAMS with a 512-byte buffer, its one declared buffer byte
// counted once.
constexpr uint32_t kIdentifyReplySize = kSendCmdOutHeaderSize + kIdentifyBlockSize;

// SRB_IO_CONTROL, the header in front of a miniport request.
constexpr size_t kSrbIoControlSize = 28;
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
constexpr uint32_t kMiniportBlockSize = kSrbIoControlSize + kSendCmdOutSize + kIdentifyBlockSize;
constexpr size_t kMiniportIdentifyAt = kSrbIoControlSize + kSendCmdOutHeaderSize;
static_assert(kMiniportInputSize == 60 && kMiniportBlockSize == 557 && kMiniportIdentifyAt == 44,
              "the sizes the earlier scheme sent");

// IDENTIFY DEVICE for ATA drives, IDENTIFY PACKET DEVICE for the ATAPI ones:
// the device map of the version reply carries one ATAPI bit per drive,
// four bits above its ATA bit.
uint8_t IdentifyCommandFor(uint8_t ideDeviceMap, int drive);

// SENDCMDINPARAMS with the full register set: a 512-byte transfer of one
// sector from the master (even drive) or slave (odd drive) device.
std::vector<uint8_t> FullIdentifyRequest(int drive, uint8_t command);

// A zeroed block of `blockSize` bytes holding SENDCMDINPARAMS with only the
// IDENTIFY DEVICE command register set; the handle alone selects the drive.
std::vector<uint8_t> CommandOnlyIdentifyRequest(size_t blockSize);

// A zeroed kMiniportBlockSize block: SRB_IO_CONTROL for the miniport
// IDENTIFY, then SENDCMDINPARAMS with IDENTIFY DEVICE for `drive`.
std::vector<uint8_t> MiniportIdentifyRequest(int drive);

// cBufferSize of a SENDCMDOUTPARAMS reply at `reply`.
uint32_t ReplyBufferSize(const uint8_t* reply);

}  // namespace KyGuid
