#include "kyguidlib/devicetransport.h"

#include <algorithm>
#include <cstring>

#include "kyguidlib/platform.h"

namespace KyGuid {
namespace {

// VOLUME_DISK_EXTENTS with room for 16 extents: the count, then 24-byte
// extents whose disk number leads and whose length is at byte 16.
constexpr uint32_t kExtentsReplySize = 392;
constexpr size_t kFirstExtent = 8;
constexpr size_t kExtentSize = 24;
constexpr size_t kExtentLengthAt = 16;
constexpr uint32_t kMaxExtents = 16;
constexpr uint32_t kMaxDiskNumber = 256;

// The SENDCMDOUTPARAMS that starts at byte `at` of `block`, into `result`.
void TakeSendCmdOut(const std::vector<uint8_t>& block, size_t at, IdentifyReply& result) {
  if (block.size() >= at + 4) result.bufferSize = ReadLe32(block.data(), at);
  const size_t dataAt = at + kSendCmdOutHeaderSize;
  if (block.size() <= dataAt) return;
  const size_t length = std::min<size_t>(kIdentifyDataSize, block.size() - dataAt);
  memcpy(result.identify.data(), block.data() + dataAt, length);
}

}  // namespace

std::unique_ptr<IDevice> OpenPhysicalDrive(int drive, uint32_t access, uint32_t share,
                                           uint32_t* error) {
  return CurrentPlatform().hardware->OpenDevice(PhysicalDrivePath(drive), access, share, 0, error);
}

void ForEachPhysicalDrive(uint32_t access, uint32_t share,
                          const std::function<void(int drive, IDevice& device)>& visit) {
  for (int drive = 0; drive < kMaxPhysicalDrives; ++drive) {
    uint32_t error = 0;
    if (std::unique_ptr<IDevice> device = OpenPhysicalDrive(drive, access, share, &error)) {
      visit(drive, *device);
    }
  }
}

void ForEachScsiPort(const std::function<void(int controller, IDevice& port)>& visit) {
  IHardware& hardware = *CurrentPlatform().hardware;
  for (int controller = 0; controller < kMaxScsiControllers; ++controller) {
    uint32_t error = 0;
    if (std::unique_ptr<IDevice> port =
            hardware.OpenDevice(ScsiPortPath(controller), kReadWrite, kShareReadWrite, 0, &error)) {
      visit(controller, *port);
    }
  }
}

SmartVersion QuerySmartVersion(IDevice& device) {
  uint8_t version[kVersionParamsSize] = {};
  uint32_t returned = 0;
  SmartVersion result;
  result.ok = device.Control(kSmartGetVersion, nullptr, 0, version, sizeof(version), &returned,
                             &result.error);
  result.ideDeviceMap = version[kVersionIdeDeviceMapAt];
  return result;
}

IdentifyReply ReceiveDriveData(IDevice& device, std::vector<uint8_t> request,
                               const SmartRequestForm& form) {
  IdentifyReply result;
  std::vector<uint8_t> separate;
  std::vector<uint8_t>* reply = &request;
  if (form.sharedBlock) {
    request.resize(std::max<size_t>(request.size(), form.replySize), 0);
  } else {
    separate.assign(form.replySize, 0);
    reply = &separate;
  }
  result.ok = device.Control(kSmartReceiveDriveData, request.data(), form.inSize, reply->data(),
                             form.replySize, &result.returned, &result.error);
  TakeSendCmdOut(*reply, 0, result);
  return result;
}

void SweepSmartIdentify(
    const SmartSweep& sweep,
    const std::function<void(int drive, const IdentifyReply& reply)>& answered,
    const std::function<void(int drive, SmartStep step, uint32_t error)>& failed) {
  ForEachPhysicalDrive(kReadWrite, sweep.share, [&](int drive, IDevice& device) {
    const SmartVersion version = QuerySmartVersion(device);
    if (!version.ok && sweep.versionMustSucceed) {
      failed(drive, SmartStep::kVersion, version.error);
      return;
    }
    std::vector<uint8_t> request;
    if (sweep.fullRegisters) {
      if (version.ideDeviceMap == 0) return;  // no IDE device behind this handle
      request = FullIdentifyRequest(drive, IdentifyCommandFor(version.ideDeviceMap, drive));
    } else {
      request = CommandOnlyIdentifyRequest(sweep.form.sharedBlock ? sweep.form.replySize
                                                                  : kSendCmdInSize);
    }
    const IdentifyReply reply = ReceiveDriveData(device, std::move(request), sweep.form);
    if (reply.ok) {
      answered(drive, reply);
    } else {
      failed(drive, SmartStep::kIdentify, reply.error);
    }
  });
}

IdentifyReply MiniportIdentify(IDevice& port, int position) {
  std::vector<uint8_t> block = MiniportIdentifyRequest(position);
  IdentifyReply result;
  result.ok = port.Control(kIoctlScsiMiniport, block.data(), kMiniportInputSize, block.data(),
                           kMiniportBlockSize, &result.returned, &result.error);
  TakeSendCmdOut(block, kSrbIoControlSize, result);
  return result;
}

DescriptorReply QueryStorageDescriptor(IDevice& device, uint32_t replySize) {
  uint8_t query[kPropertyQuerySize] = {};
  DescriptorReply result;
  result.bytes.assign(replySize, 0);
  result.ok = device.Control(kIoctlStorageQueryProperty, query, sizeof(query), result.bytes.data(),
                             replySize, &result.returned, &result.error);
  return result;
}

VolumeDisks QueryVolumeDisks(wchar_t letter) {
  const wchar_t path[] = {L'\\', L'\\', L'.', L'\\', letter, L':', L'\0'};
  VolumeDisks result;
  std::unique_ptr<IDevice> volume = CurrentPlatform().hardware->OpenDevice(
      path, kQueryOnly, kShareReadWrite, kAttributeNormal, &result.error);
  if (!volume) return result;

  uint8_t extents[kExtentsReplySize] = {};
  uint32_t returned = 0;
  if (!volume->Control(kIoctlVolumeGetDiskExtents, nullptr, 0, extents, sizeof(extents), &returned,
                       &result.error)) {
    result.failedStep = VolumeStep::kExtents;
    return result;
  }
  result.ok = true;
  const uint32_t count = ReadLe32(extents, 0);
  for (uint32_t i = 0; i < kMaxExtents && i < count; ++i) {
    const uint8_t* extent = extents + kFirstExtent + i * kExtentSize;
    const uint32_t diskNumber = ReadLe32(extent, 0);
    uint64_t length = 0;
    memcpy(&length, extent + kExtentLengthAt, sizeof(length));
    if (length != 0 && diskNumber < kMaxDiskNumber) result.disks.push_back(diskNumber);
  }
  return result;
}

}  // namespace KyGuid
