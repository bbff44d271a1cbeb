#include "kyguidlib/td/hddfetcher.h"

#include <windows.h>

#include <cstdint>

#include "common/clock.h"
#include "common/kylog.h"
#include "kyguidlib/legacydiskreader.h"
#include "kyguidlib/td/legacystrings.h"

namespace KyMacID {
namespace {

using namespace KyGuid;

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\td\\hddfetcher";
constexpr wchar_t kGetPhysicsDriveIdentify[] = L"KyMacID::CHddFetcher::GetPhysicsDriveIdentify";
constexpr wchar_t kWithAdminRights[] =
    L"KyMacID::CHddFetcher::ReadPhysicalDriveInNTWithAdminRights";
constexpr wchar_t kAsScsiDrive[] = L"KyMacID::CHddFetcher::ReadIdeDriveAsScsiDriveInNT";
constexpr wchar_t kWithZeroRights[] = L"KyMacID::CHddFetcher::ReadPhysicalDriveInNTWithZeroRights";
constexpr wchar_t kUsingSmart[] = L"KyMacID::CHddFetcher::ReadPhysicalDriveInNTUsingSmart";
constexpr wchar_t kRand[] = L"KyMacID::CHddFetcher::ReadPhysicalDriveRand";
constexpr wchar_t kRandString[] = L"KyMacID::CHddFetcher::RandString";
constexpr wchar_t kDrivePorts[] = L"KyMacID::CHddFetcher::ReadDrivePortsDirectly";

// Every function marks its entry with a TRACE line carrying its full name.
constexpr char kEnter[] = "enter";

constexpr int kMinRandLetters = 8;
constexpr int kRandLetterSpread = 25;  // 8 to 32 letters

// The legacy decoder takes the offsets as signed numbers.
std::string FlipAndCode(const uint8_t* descriptor, size_t size, uint32_t offset, bool flip) {
  return flipAndCodeBytes(descriptor, size, static_cast<int>(offset), flip);
}

// Every reply that came back counts, its strings trimmed at both ends, and
// a missing HDD.db identity is made up and stored. The SMART reads both need
// the version query and take the reply in a buffer of its own; the one with
// admin rights sends the full register set.
constexpr LegacyDiskRules kLegacyRules{
    ConvertToString,
    FlipAndCode,
    {kShareReadWrite, true, true, {kSendCmdInSize - 1, kIdentifyReplySize, false}},
    {kShareReadWrite, true, false, {kSendCmdInSize, kIdentifyReplySize, false}},
    /*skipsShortSmartReplies=*/false,
    /*skipsEmptyMiniportSlots=*/false,
    /*skipsPlaceholderSerials=*/false,
    /*ensuresDataFolder=*/true,
    /*makeUpString=*/CHddFetcher::RandString};

// What a SMART read says when a step fails, with the drive number and the
// error.
struct SmartFailureTexts {
  const char* version;
  const char* identify;
};
constexpr SmartFailureTexts kAdminRightsFailures{"fetch disk[%d], DFP_GET_VERSION failed: %u",
                                                 "fetch disk[%d], DoIDENTIFY failed: %u"};
constexpr SmartFailureTexts kSmartFailures{"fetch disk[%d], SMART_GET_VERSION failed: %u",
                                           "fetch disk[%d], SMART_RCV_DRIVE_DATA failed: %u"};

DriveRecord ToRecord(const LegacyDrive& drive) {
  return DriveRecord{drive.serialNumber, drive.modelNumber, drive.revisionNumber};
}

// What one reader found: every drive goes to the list, the first one also
// becomes the reader's identity. It logs each event under the reader's name.
class Findings final : public LegacyDiskEvents {
 public:
  Findings(const wchar_t* function, std::string& serialNumber, std::string& modelNumber,
           std::string& revisionNumber, std::vector<DriveRecord>& drives,
           const SmartFailureTexts* smartFailures = nullptr)
      : m_function(function),
        m_smartFailures(smartFailures),
        m_serial(serialNumber),
        m_model(modelNumber),
        m_revision(revisionNumber),
        m_drives(drives) {}

  void Add(const DriveRecord& record) {
    m_drives.push_back(record);
    if (m_any) return;
    m_any = true;
    m_serial = record.SerialNumber;
    m_model = record.ModelNumber;
    m_revision = record.RevisionNumber;
  }
  bool Any() const { return m_any; }

  void Found(const LegacyDrive& drive) override;
  void SmartFailed(int drive, SmartStep step, uint32_t error) override {
    KyLog::Write(KyLog::kWarn, KYLOG_SITE(m_function),
                 step == SmartStep::kVersion ? m_smartFailures->version : m_smartFailures->identify,
                 drive, error);
  }
  void MiniportFailed(int controller, int position, uint32_t error) override {
    KyLog::Write(KyLog::kWarn, KYLOG_SITE(m_function),
                 "fetch disk IOCTL_SCSI_MINIPORT failed: scsi%d:%d, error=%u", controller, position,
                 error);
  }
  void NoProfileFolder() override {
    // The folder seam only says that the shell gave no folder, not why.
    KyLog::Write(KyLog::kError, KYLOG_SITE(m_function), "failed to get common appdata dir: 0x%x",
                 static_cast<unsigned>(E_FAIL));
  }
  void HddDbRead(const HddDbIdentity& stored) override { LogHddDb("read db", stored); }
  void HddDbMadeUp(const HddDbIdentity& made) override { LogHddDb("Rand", made); }

 private:
  void LogHddDb(const char* what, const HddDbIdentity& identity) const {
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(m_function),
                 "ReadPhysicalDriveRand %s serialNumber=%s, modelNumber=%s, revisionNumber=%s",
                 what, identity.serialNumber.c_str(), identity.modelNumber.c_str(),
                 identity.revisionNumber.c_str());
  }

  const wchar_t* m_function;
  const SmartFailureTexts* m_smartFailures;
  std::string& m_serial;
  std::string& m_model;
  std::string& m_revision;
  std::vector<DriveRecord>& m_drives;
  bool m_any = false;
};

// The miniport read names a drive by its controller and position.
void Findings::Found(const LegacyDrive& drive) {
  const DriveRecord record = ToRecord(drive);
  Add(record);
  const char* model = record.ModelNumber.c_str();
  const char* revision = record.RevisionNumber.c_str();
  const char* serial = record.SerialNumber.c_str();
  if (drive.controller < 0) {
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(m_function), "fetch disk[%d],  PID=%s, VID=%s, SN=%s",
                 drive.number, model, revision, serial);
  } else {
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(m_function),
                 "fetch disk(scsi%d:%d),  PID=%s, VID=%s, SN=%s", drive.controller, drive.number,
                 model, revision, serial);
  }
}

// The runtime's rand() keeps its state per thread, so seeding it once would
// leave every other thread, the updater's worker among them, on the default
// seed and every machine with the same "random" identity. This is the same
// generator with one state for the process.
class ProcessRandom {
 public:
  static void Restart() {
    AcquireSRWLockExclusive(&s_lock);
    s_seeded = false;
    ReleaseSRWLockExclusive(&s_lock);
  }
  static int Next() {
    AcquireSRWLockExclusive(&s_lock);
    if (!s_seeded) {
      // The seconds of _time32, which the x64 system runtime does not
      // export; the low 32 bits of the 64-bit time are the same value.
      s_state = static_cast<uint32_t>(KyGuidUtils::CurrentTime());
      s_seeded = true;
    }
    s_state = s_state * 214013u + 2531011u;
    const int value = static_cast<int>((s_state >> 16) & 0x7FFF);
    ReleaseSRWLockExclusive(&s_lock);
    return value;
  }

 private:
  static SRWLOCK s_lock;
  static bool s_seeded;
  static uint32_t s_state;
};

SRWLOCK ProcessRandom::s_lock = SRWLOCK_INIT;
bool ProcessRandom::s_seeded = false;
uint32_t ProcessRandom::s_state = 0;

}  // namespace

bool CHddFetcher::GetPhysicsDriveIdentify(std::string& serialNumber, std::string& modelNumber,
                                          std::string& revisionNumber,
                                          std::vector<DriveRecord>& drives) {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kGetPhysicsDriveIdentify), kEnter);
  drives.clear();

  // A failed query is taken as NT: the library runs on nothing else.
  OSVERSIONINFOW version = {};
  version.dwOSVersionInfoSize = sizeof(version);
  if (GetVersionExW(&version) && version.dwPlatformId != VER_PLATFORM_WIN32_NT) {
    return ReadDrivePortsDirectly(serialNumber, modelNumber, revisionNumber, drives);
  }
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kGetPhysicsDriveIdentify),
               "GetPhysicsDriveIdentify VER_PLATFORM_WIN32_NT");

  using Reader =
      bool (CHddFetcher::*)(std::string&, std::string&, std::string&, std::vector<DriveRecord>&);
  struct Method {
    Reader read;
    const char* name;
  };
  // All four always run, so the list holds every drive any of them saw.
  const Method methods[] = {
      {&CHddFetcher::ReadPhysicalDriveInNTWithAdminRights, "ReadPhysicalDriveInNTWithAdminRights"},
      {&CHddFetcher::ReadIdeDriveAsScsiDriveInNT, "ReadIdeDriveAsScsiDriveInNT"},
      {&CHddFetcher::ReadPhysicalDriveInNTWithZeroRights, "ReadPhysicalDriveInNTWithZeroRights"},
      {&CHddFetcher::ReadPhysicalDriveInNTUsingSmart, "ReadPhysicalDriveInNTUsingSmart"},
  };
  bool identified = false;
  for (const Method& method : methods) {
    std::string serial, model, revision;
    if (!(this->*method.read)(serial, model, revision, drives) || identified) continue;
    identified = true;
    serialNumber = serial;
    modelNumber = model;
    revisionNumber = revision;
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kGetPhysicsDriveIdentify),
                 "GetPhysicsDriveIdentify %s serialNumber=%s, modelNumber=%s, revisionNumber=%s",
                 method.name, serial.c_str(), model.c_str(), revision.c_str());
  }
  if (identified) return true;

  std::string serial, model, revision;
  if (!ReadPhysicalDriveRand(serial, model, revision, drives)) return false;
  serialNumber = serial;
  modelNumber = model;
  revisionNumber = revision;
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kGetPhysicsDriveIdentify),
               "GetPhysicsDriveIdentify ReadPhysicalDriveRand serialNumber=%s, modelNumber=%s, "
               "revisionNumber=%s",
               serial.c_str(), model.c_str(), revision.c_str());
  return true;
}

bool CHddFetcher::ReadPhysicalDriveInNTWithAdminRights(std::string& serialNumber,
                                                       std::string& modelNumber,
                                                       std::string& revisionNumber,
                                                       std::vector<DriveRecord>& drives) {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kWithAdminRights), kEnter);
  Findings found(kWithAdminRights, serialNumber, modelNumber, revisionNumber, drives,
                 &kAdminRightsFailures);
  CLegacyDiskReader(kLegacyRules, found).ReadWithAdminRights();
  return found.Any();
}

bool CHddFetcher::ReadIdeDriveAsScsiDriveInNT(std::string& serialNumber, std::string& modelNumber,
                                              std::string& revisionNumber,
                                              std::vector<DriveRecord>& drives) {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kAsScsiDrive), kEnter);
  Findings found(kAsScsiDrive, serialNumber, modelNumber, revisionNumber, drives);
  CLegacyDiskReader(kLegacyRules, found).ReadAsScsiDrive();
  return found.Any();
}

bool CHddFetcher::ReadPhysicalDriveInNTWithZeroRights(std::string& serialNumber,
                                                      std::string& modelNumber,
                                                      std::string& revisionNumber,
                                                      std::vector<DriveRecord>& drives) {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kWithZeroRights), kEnter);
  Findings found(kWithZeroRights, serialNumber, modelNumber, revisionNumber, drives);
  CLegacyDiskReader(kLegacyRules, found).ReadWithZeroRights();
  return found.Any();
}

bool CHddFetcher::ReadPhysicalDriveInNTUsingSmart(std::string& serialNumber,
                                                  std::string& modelNumber,
                                                  std::string& revisionNumber,
                                                  std::vector<DriveRecord>& drives) {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kUsingSmart), kEnter);
  Findings found(kUsingSmart, serialNumber, modelNumber, revisionNumber, drives, &kSmartFailures);
  CLegacyDiskReader(kLegacyRules, found).ReadUsingSmart();
  return found.Any();
}

bool CHddFetcher::ReadPhysicalDriveRand(std::string& serialNumber, std::string& modelNumber,
                                        std::string& revisionNumber,
                                        std::vector<DriveRecord>& drives) {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kRand), kEnter);
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kRand), "ReadPhysicalDriveRand begin");
  Findings found(kRand, serialNumber, modelNumber, revisionNumber, drives);
  LegacyDrive stored;
  if (!CLegacyDiskReader(kLegacyRules, found).ReadRandDrive(stored)) return false;
  found.Add(ToRecord(stored));
  return true;
}

void CHddFetcher::RandString(std::string& text) {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kRandString), kEnter);
  text = "Rand_";
  const int letters = ProcessRandom::Next() % kRandLetterSpread + kMinRandLetters;
  for (int i = 0; i < letters; ++i) {
    const char base = (ProcessRandom::Next() & 1) ? 'A' : 'a';
    text.push_back(static_cast<char>(base + ProcessRandom::Next() % 26));
  }
}

void CHddFetcher::RestartRandom() { ProcessRandom::Restart(); }

bool CHddFetcher::ReadDrivePortsDirectly(std::string&, std::string&, std::string&,
                                         std::vector<DriveRecord>&) {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kDrivePorts), kEnter);
  return false;
}

}  // namespace KyMacID
