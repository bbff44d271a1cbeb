// The disk identification of the legacy scheme, so that a disk can be
// recognised by the disk GUID that scheme derived from it. The strings are
// kept almost raw (leading blanks, odd swaps and all) because the legacy
// scheme hashed them that way; cleaning them would change every disk GUID.
#pragma once

#include <string>
#include <vector>

#include "kyguidlib/hwrecords.h"

namespace KyGuid {

// Each fetch appends one record per disk it reads (Index, ProductId,
// Revision and SerialNumber set, everything else left at its default) to a
// list it never clears, and returns how many it appended. Devices that cannot
// be opened or do not answer are skipped without a log line: most drivers
// support only some of these protocols.
class CAncientDiskFetcher {
 public:
  // SMART IDENTIFY with the full register set, IDENTIFY PACKET for drives
  // the device map marks as ATAPI.
  static int FetchWithAdminRights(std::vector<DiskInfo>& disks);
  // SMART IDENTIFY DEVICE with only the command register set.
  static int FetchUsingSmart(std::vector<DiskInfo>& disks);
  // The storage device descriptor; needs no access rights.
  static int FetchWithZeroRights(std::vector<DiskInfo>& disks);
  // IDENTIFY through the SCSI port's miniport. Index is the drive's number
  // on its controller (0 or 1), not a system-wide drive number.
  static int FetchAsScsiDrive(std::vector<DiskInfo>& disks);
  // The random identity kept in HDD.db. Returns 1 and sets the three strings
  // when all three are there, else 0 with `disk` unchanged.
  static int ReadRandDisk(DiskInfo& disk);

  // The first disk whose disk GUID (CalcDiskGuid of its three strings) is
  // exactly `guid` (case-sensitive), or null.
  static const DiskInfo* FindDiskByGuid(const std::vector<DiskInfo>& disks,
                                        const std::string& guid);
};

}  // namespace KyGuid
