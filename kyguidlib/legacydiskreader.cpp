#include "kyguidlib/legacydiskreader.h"

#include "common/strutil.h"
#include "kyguidlib/datafolder.h"
#include "kyguidlib/guidpaths.h"

namespace KyGuid {
namespace {

// A reply buffer that ends before the firmware revision field (byte 46)
// carries no identity.
constexpr uint32_t kMinIdentifyBytes = 46;
constexpr size_t kModelFieldAt = 54;  // first byte of IDENTIFY words 27-46
// Serials are checked at their first and twentieth character.
constexpr size_t kLastSerialCheckAt = 19;

// A character past the end of the serial is the zeroed buffer behind it.
bool IsAlnumAt(const std::string& text, size_t at) {
  return at < text.size() && KyGuidUtils::IsAsciiAlnum(static_cast<unsigned char>(text[at]));
}

}  // namespace

LegacyDrive CLegacyDiskReader::FromIdentify(int number, const uint8_t* identify512) const {
  LegacyDrive drive;
  drive.number = number;
  drive.serialNumber = m_rules.identifyString(identify512, 10, 19);
  drive.modelNumber = m_rules.identifyString(identify512, 27, 46);
  drive.revisionNumber = m_rules.identifyString(identify512, 23, 26);
  return drive;
}

void CLegacyDiskReader::ReadSmart(const SmartSweep& sweep) const {
  SweepSmartIdentify(
      sweep,
      [&](int drive, const IdentifyReply& reply) {
        if (m_rules.skipsShortSmartReplies && reply.bufferSize <= kMinIdentifyBytes) return;
        m_events.Found(FromIdentify(drive, reply.identify.data()));
      },
      [&](int drive, SmartStep step, uint32_t error) { m_events.SmartFailed(drive, step, error); });
}

void CLegacyDiskReader::ReadWithAdminRights() const { ReadSmart(m_rules.adminRights); }

void CLegacyDiskReader::ReadUsingSmart() const { ReadSmart(m_rules.usingSmart); }

void CLegacyDiskReader::ReadWithZeroRights() const {
  ForEachPhysicalDrive(kQueryOnly, kShareReadWrite, [&](int number, IDevice& device) {
    const DescriptorReply reply = QueryStorageDescriptor(device, kLegacyDescriptorBufferSize);
    if (!reply.ok) return;
    const uint8_t* descriptor = reply.bytes.data();
    const size_t size = reply.bytes.size();
    auto text = [&](size_t offsetAt, bool swap) {
      return m_rules.descriptorString(descriptor, size, ReadLe32(descriptor, offsetAt), swap);
    };
    LegacyDrive drive;
    drive.number = number;
    drive.modelNumber = text(kProductIdOffsetAt, false);
    drive.revisionNumber = text(kRevisionOffsetAt, false);
    drive.serialNumber = text(kSerialNumberOffsetAt, true);
    // Placeholder serials (empty, blank, punctuation) identify nothing.
    if (m_rules.skipsPlaceholderSerials && !IsAlnumAt(drive.serialNumber, 0) &&
        !IsAlnumAt(drive.serialNumber, kLastSerialCheckAt)) {
      return;
    }
    m_events.Found(drive);
  });
}

void CLegacyDiskReader::ReadAsScsiDrive() const {
  ForEachScsiPort([&](int controller, IDevice& port) {
    for (int position = 0; position < kDrivesPerScsiController; ++position) {
      const IdentifyReply reply = MiniportIdentify(port, position);
      if (!reply.ok) {
        m_events.MiniportFailed(controller, position, reply.error);
        continue;
      }
      if (m_rules.skipsEmptyMiniportSlots && reply.identify[kModelFieldAt] == 0) continue;
      LegacyDrive drive = FromIdentify(position, reply.identify.data());
      drive.controller = controller;
      m_events.Found(drive);
    }
  });
}

bool CLegacyDiskReader::ReadRandDrive(LegacyDrive& drive) const {
  const std::wstring folder = GetProfileDir();
  if (folder.empty()) {
    m_events.NoProfileFolder();
    return false;
  }
  if (m_rules.ensuresDataFolder) EnsureDataFolder();
  const std::string path = HddDbPath(folder);
  HddDbIdentity stored = ReadHddDb(path);
  m_events.HddDbRead(stored);

  // A partial identity is never completed: all three are made anew together.
  if (!stored.Complete()) {
    if (!m_rules.makeUpString) return false;
    m_rules.makeUpString(stored.serialNumber);
    m_rules.makeUpString(stored.modelNumber);
    m_rules.makeUpString(stored.revisionNumber);
    m_events.HddDbMadeUp(stored);
    WriteHddDb(path, stored);
  }
  drive.serialNumber = stored.serialNumber;
  drive.modelNumber = stored.modelNumber;
  drive.revisionNumber = stored.revisionNumber;
  return true;
}

}  // namespace KyGuid
