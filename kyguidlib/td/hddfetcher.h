// The physical-drive identity of the legacy sequence id: serial, model and
// revision of one drive, read with whichever of four device protocols the
// machine's drivers answer. When none answers, a random identity is made once
// and kept in HDD.db so that the sequence id stays stable on that machine.
#pragma once

#include <string>
#include <vector>

#include "kyguidlib/td/driverecord.h"

namespace KyMacID {

// Every reader below has the same shape: it appends a record for each drive
// that answered, fills the three strings from the first of them and returns
// whether any answered. Strings are left alone when none did.
class CHddFetcher {
 public:
  // Clears `drives`, runs all four device readers in a fixed order and takes
  // the identity from the first that succeeds; falls back to HDD.db when
  // none does. False only when even that fails.
  bool GetPhysicsDriveIdentify(std::string& serialNumber, std::string& modelNumber,
                               std::string& revisionNumber, std::vector<DriveRecord>& drives);

  // IDENTIFY (or IDENTIFY PACKET for ATAPI drives) through the SMART
  // interface with the full register set.
  bool ReadPhysicalDriveInNTWithAdminRights(std::string& serialNumber, std::string& modelNumber,
                                            std::string& revisionNumber,
                                            std::vector<DriveRecord>& drives);
  // IDENTIFY through the SCSI port's miniport, two drives per controller.
  bool ReadIdeDriveAsScsiDriveInNT(std::string& serialNumber, std::string& modelNumber,
                                   std::string& revisionNumber, std::vector<DriveRecord>& drives);
  // The storage device descriptor, which needs no access rights.
  bool ReadPhysicalDriveInNTWithZeroRights(std::string& serialNumber, std::string& modelNumber,
                                           std::string& revisionNumber,
                                           std::vector<DriveRecord>& drives);
  // IDENTIFY DEVICE through the SMART interface, command register only.
  bool ReadPhysicalDriveInNTUsingSmart(std::string& serialNumber, std::string& modelNumber,
                                       std::string& revisionNumber,
                                       std::vector<DriveRecord>& drives);
  // The identity kept in HDD.db, made up and stored first when the file
  // lacks any part of it.
  bool ReadPhysicalDriveRand(std::string& serialNumber, std::string& modelNumber,
                             std::string& revisionNumber, std::vector<DriveRecord>& drives);

  // "Rand_" and 8 to 32 letters. One generator serves the whole process,
  // seeded on first use from the clock.
  static void RandString(std::string& text);
  // Tests only: the generator is seeded from the clock again, so that one
  // test can repeat an update that makes up a drive identity.
  static void RestartRandom();

 private:
  // Direct port access for platforms outside the NT family, which this
  // library never runs on.
  bool ReadDrivePortsDirectly(std::string& serialNumber, std::string& modelNumber,
                              std::string& revisionNumber, std::vector<DriveRecord>& drives);
};

}  // namespace KyMacID
