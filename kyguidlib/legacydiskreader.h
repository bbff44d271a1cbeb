// The legacy scheme's four disk reads and its HDD.db identity, for both of
// their users: the update's matching of an earlier GUID (CAncientDiskFetcher)
// and the legacy sequence id (KyMacID::CHddFetcher). The two read with
// details of their own, and the values each hashes depend on them, so the
// details are not made one: each user passes its rules and hears what the
// reads find through its own events, where it also logs, under its own
// names.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "kyguidlib/devicetransport.h"
#include "kyguidlib/hdddbfile.h"

namespace KyGuid {

// One drive a read found, its strings as the rules decoded them.
struct LegacyDrive {
  int controller = -1;  // the SCSI port of the miniport read; -1 for the others
  int number = 0;       // the physical drive, or the position (0 or 1) on `controller`
  std::string serialNumber;
  std::string modelNumber;
  std::string revisionNumber;
};

struct LegacyDiskRules {
  // IDENTIFY words `firstWord`..`lastWord` as text.
  std::string (*identifyString)(const uint8_t* identify512, int firstWord, int lastWord);
  // The descriptor string at `offset`; `swap` for the word-swapped serial.
  std::string (*descriptorString)(const uint8_t* descriptor, size_t size, uint32_t offset,
                                  bool swap);
  SmartSweep adminRights;  // SMART IDENTIFY with the full register set
  SmartSweep usingSmart;   // SMART IDENTIFY DEVICE in the command register alone
  // Replies that are taken as no drive: a SMART reply whose cBufferSize ends
  // before the firmware revision field, a miniport reply whose model starts
  // with a zero byte (an empty slot), a descriptor whose serial has neither a
  // letter nor a digit at its first and its twentieth character.
  bool skipsShortSmartReplies;
  bool skipsEmptyMiniportSlots;
  bool skipsPlaceholderSerials;
  // HDD.db: whether the data folder is made before the file is read, and
  // what makes up each string of an identity the file lacks any part of;
  // without it such a file gives no identity and is never written.
  bool ensuresDataFolder;
  void (*makeUpString)(std::string& text);
};

// What the reads tell their user; each does nothing unless overridden.
class LegacyDiskEvents {
 public:
  virtual ~LegacyDiskEvents() = default;
  virtual void Found(const LegacyDrive& /*drive*/) {}
  virtual void SmartFailed(int /*drive*/, SmartStep /*step*/, uint32_t /*error*/) {}
  virtual void MiniportFailed(int /*controller*/, int /*position*/, uint32_t /*error*/) {}
  virtual void NoProfileFolder() {}
  virtual void HddDbRead(const HddDbIdentity& /*stored*/) {}
  virtual void HddDbMadeUp(const HddDbIdentity& /*made*/) {}
};

// Each read reports every drive it takes to Found, in drive order. A device
// that does not open is skipped without an event.
class CLegacyDiskReader {
 public:
  CLegacyDiskReader(const LegacyDiskRules& rules, LegacyDiskEvents& events)
      : m_rules(rules), m_events(events) {}

  void ReadWithAdminRights() const;
  void ReadUsingSmart() const;
  void ReadWithZeroRights() const;
  void ReadAsScsiDrive() const;
  // The identity kept in HDD.db in the profile folder, made up and stored
  // first when the rules say so. False when there is no folder, or no
  // whole identity.
  bool ReadRandDrive(LegacyDrive& drive) const;

 private:
  void ReadSmart(const SmartSweep& sweep) const;
  LegacyDrive FromIdentify(int number, const uint8_t* identify512) const;

  const LegacyDiskRules& m_rules;
  LegacyDiskEvents& m_events;
};

}  // namespace KyGuid
