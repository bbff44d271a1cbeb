#include "kyguidlib/devicerequests.h"

#include <cstring>

namespace KyGuid {
namespace {

constexpr uint8_t kMasterDevice = 0xA0;  // LBA-less drive/head register, device 0
constexpr uint8_t kSlaveBit = 0x10;

void PutLe32(std::vector<uint8_t>& block, size_t at, uint32_t value) {
  for (int i = 0; i < 4; ++i) block[at + i] = static_cast<uint8_t>(value >> (8 * i));
}

// The number in decimal, widened by hand: std::to_wstring brings a wide
// printf into the library.
std::wstring Decimal(int number) {
  const std::string digits = std::to_string(number);
  return std::wstring(digits.begin(), digits.end());
}

}  // namespace

std::wstring PhysicalDrivePath(int drive) { return L"\\\\.\\PhysicalDrive" + Decimal(drive); }

std::wstring ScsiPortPath(int controller) { return L"\\\\.\\Scsi" + Decimal(controller) + L":"; }

uint32_t ReadLe32(const uint8_t* bytes, size_t at) {
  return static_cast<uint32_t>(bytes[at]) | static_cast<uint32_t>(bytes[at + 1]) << 8 |
         static_cast<uint32_t>(bytes[at + 2]) << 16 | static_cast<uint32_t>(bytes[at + 3]) << 24;
}

uint8_t IdentifyCommandFor(uint8_t ideDeviceMap, int drive) {
  if (drive < 0 || drive > 3) return kAtaIdentifyDevice;  // the 8-bit map has no ATAPI bit for it
  return ((ideDeviceMap >> drive) & 0x10) ? kAtaIdentifyPacketDevice : kAtaIdentifyDevice;
}

std::vector<uint8_t> FullIdentifyRequest(int drive, uint8_t command) {
  std::vector<uint8_t> request(kSendCmdInSize, 0);
  PutLe32(request, kSendCmdBufferSizeAt, kIdentifyDataSize);
  request[kSendCmdSectorCountAt] = 1;
  request[kSendCmdDriveHeadAt] =
      static_cast<uint8_t>(kMasterDevice | ((drive & 1) ? kSlaveBit : 0));
  request[kSendCmdCommandAt] = command;
  request[kSendCmdDriveNumberAt] = static_cast<uint8_t>(drive);
  return request;
}

std::vector<uint8_t> CommandOnlyIdentifyRequest(size_t blockSize) {
  std::vector<uint8_t> request(blockSize < kSendCmdInSize ? kSendCmdInSize : blockSize, 0);
  request[kSendCmdCommandAt] = kAtaIdentifyDevice;
  return request;
}

std::vector<uint8_t> MiniportIdentifyRequest(int drive) {
  std::vector<uint8_t> block(kMiniportBlockSize, 0);
  PutLe32(block, kSrbHeaderLengthAt, kSrbIoControlSize);
  memcpy(block.data() + kSrbSignatureAt, "SCSIDISK", 8);
  PutLe32(block, kSrbTimeoutAt, kMiniportTimeout);
  PutLe32(block, kSrbControlCodeAt, kMiniportIdentify);
  PutLe32(block, kSrbLengthAt, kSendCmdOutSize + kIdentifyDataSize);
  block[kSrbIoControlSize + kSendCmdCommandAt] = kAtaIdentifyDevice;
  block[kSrbIoControlSize + kSendCmdDriveNumberAt] = static_cast<uint8_t>(drive);
  return block;
}

}  // namespace KyGuid
