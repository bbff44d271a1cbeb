// The one way the disk readers talk to storage drivers: the current
// scheme's SMART fallback, the ancient disk reads and the legacy drive
// identity all open their devices and send their IDENTIFY and property
// requests through these functions. What differs between them (open modes,
// request forms, what a reply must show to count, what they log, how they
// number drives) they pass in or decide on the reply.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "kyguidlib/devicerequests.h"
#include "kyguidlib/hardware.h"

namespace KyGuid {

std::unique_ptr<IDevice> OpenPhysicalDrive(int drive, uint32_t access, uint32_t share,
                                           uint32_t* error);

// `visit` for each of physical drives 0-15 that opens with `access` and
// `share`; a drive that does not open is skipped without a word.
void ForEachPhysicalDrive(uint32_t access, uint32_t share,
                          const std::function<void(int drive, IDevice& device)>& visit);
// `visit` for each of SCSI ports 0-15 that opens for reading and writing.
void ForEachScsiPort(const std::function<void(int controller, IDevice& port)>& visit);

// SMART_GET_VERSION into a zeroed GETVERSIONINPARAMS: the call's success,
// and the reply's IDE device map (0 after a failure).
struct SmartVersion {
  bool ok = false;
  uint32_t error = 0;
  uint8_t ideDeviceMap = 0;
};
SmartVersion QuerySmartVersion(IDevice& device);

struct IdentifyReply {
  bool ok = false;          // the control call succeeded
  uint32_t error = 0;       // its error when it failed
  uint32_t returned = 0;    // the byte count the driver reported
  uint32_t bufferSize = 0;  // cBufferSize of the SENDCMDOUTPARAMS reply
  std::vector<uint8_t> identify = std::vector<uint8_t>(kIdentifyDataSize);
};

// How a SMART IDENTIFY request travels: its first `inSize` bytes go in and
// `replySize` bytes come back, either into a zeroed reply buffer or, with
// `sharedBlock`, into the request block itself, as one of the earliest
// readers did.
struct SmartRequestForm {
  uint32_t inSize;
  uint32_t replySize;
  bool sharedBlock;
};
IdentifyReply ReceiveDriveData(IDevice& device, std::vector<uint8_t> request,
                               const SmartRequestForm& form);

// A SMART IDENTIFY sweep over physical drives 0-15, opened for reading and
// writing with `share`: the version query, then the IDENTIFY request.
struct SmartSweep {
  uint32_t share;
  // Whether a failed version query skips the drive; otherwise it only
  // leaves the IDE device map zero.
  bool versionMustSucceed;
  // The full register set with the command the IDE device map asks for,
  // sent only to drives the map shows; otherwise IDENTIFY DEVICE in the
  // command register alone.
  bool fullRegisters;
  SmartRequestForm form;
};
enum class SmartStep { kVersion, kIdentify };
// `answered` gets every reply of a successful IDENTIFY call; `failed` hears
// of every failed call, with its step and error.
void SweepSmartIdentify(
    const SmartSweep& sweep,
    const std::function<void(int drive, const IdentifyReply& reply)>& answered,
    const std::function<void(int drive, SmartStep step, uint32_t error)>& failed);

// The miniport IDENTIFY of the device at `position` (0 or 1) behind a SCSI
// port; request and reply share one block.
IdentifyReply MiniportIdentify(IDevice& port, int position);

// IOCTL_STORAGE_QUERY_PROPERTY for the standard device property into a
// zeroed buffer of `replySize` bytes.
struct DescriptorReply {
  bool ok = false;
  uint32_t error = 0;
  uint32_t returned = 0;  // the byte count the driver reported
  std::vector<uint8_t> bytes;
};
DescriptorReply QueryStorageDescriptor(IDevice& device, uint32_t replySize);

// The disks the volume of drive `letter` lies on, as its disk extents name
// them: at most 16, extents of no length and disk numbers from 256 on left
// out. When `ok` is false, `failedStep` and `error` say which call failed.
enum class VolumeStep { kOpen, kExtents };
struct VolumeDisks {
  bool ok = false;
  VolumeStep failedStep = VolumeStep::kOpen;
  uint32_t error = 0;
  std::vector<uint32_t> disks;
};
VolumeDisks QueryVolumeDisks(wchar_t letter);

}  // namespace KyGuid
