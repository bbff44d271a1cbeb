#include "kyguidlib/td/hddfetcher.h"

#include <windows.h>

#include <cstdint>
#include <memory>

#include "common/clock.h"
#include "common/filestore.h"
#include "common/kylog.h"
#include "kyguidlib/datafolder.h"
#include "kyguidlib/devicestrings.h"
#include "kyguidlib/devicetransport.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/hdddbfile.h"
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

// The two SMART readers differ only in these.
struct SmartReader {
  const wchar_t* function;
  SmartSweep sweep;
  const char* versionFailed;   // with the drive number and the error
  const char* identifyFailed;  // likewise
};
constexpr SmartReader kAdminRightsReader{
    kWithAdminRights,
    {kShareReadWrite, true, true, {kSendCmdInSize - 1, kIdentifyReplySize, false}},
    "fetch disk[%d], DFP_GET_VERSION failed: %u",
    "fetch disk[%d], DoIDENTIFY failed: %u"};
constexpr SmartReader kSmartReader{
    kUsingSmart,
    {kShareReadWrite, true, false, {kSendCmdInSize, kIdentifyReplySize, false}},
    "fetch disk[%d], SMART_GET_VERSION failed: %u",
    "fetch disk[%d], SMART_RCV_DRIVE_DATA failed: %u"};

constexpr int kMinRandLetters = 8;
constexpr int kRandLetterSpread = 25;  // 8 to 32 letters

DriveRecord FromIdentify(const uint8_t* identify) {
  DriveRecord record;
  record.SerialNumber = ConvertToString(identify, 10, 19);
  record.ModelNumber = ConvertToString(identify, 27, 46);
  record.RevisionNumber = ConvertToString(identify, 23, 26);
  return record;
}

// What one reader found: every drive goes to the list, the first one also
// becomes the reader's identity.
class Findings {
 public:
  Findings(std::string& serialNumber, std::string& modelNumber, std::string& revisionNumber,
           std::vector<DriveRecord>& drives)
      : m_serial(serialNumber),
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

 private:
  std::string& m_serial;
  std::string& m_model;
  std::string& m_revision;
  std::vector<DriveRecord>& m_drives;
  bool m_any = false;
};

void LogDrive(const wchar_t* function, int drive, const DriveRecord& record) {
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(function), "fetch disk[%d],  PID=%s, VID=%s, SN=%s", drive,
               record.ModelNumber.c_str(), record.RevisionNumber.c_str(),
               record.SerialNumber.c_str());
}

void ReadSmart(const SmartReader& reader, Findings& found) {
  SweepSmartIdentify(
      reader.sweep,
      [&](int drive, const IdentifyReply& reply) {
        DriveRecord record = FromIdentify(reply.identify.data());
        found.Add(record);
        LogDrive(reader.function, drive, record);
      },
      [&](int drive, SmartStep step, uint32_t error) {
        KyLog::Write(KyLog::kWarn, KYLOG_SITE(reader.function),
                     step == SmartStep::kVersion ? reader.versionFailed : reader.identifyFailed,
                     drive, error);
      });
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
  Findings found(serialNumber, modelNumber, revisionNumber, drives);
  ReadSmart(kAdminRightsReader, found);
  return found.Any();
}

bool CHddFetcher::ReadIdeDriveAsScsiDriveInNT(std::string& serialNumber, std::string& modelNumber,
                                              std::string& revisionNumber,
                                              std::vector<DriveRecord>& drives) {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kAsScsiDrive), kEnter);
  Findings found(serialNumber, modelNumber, revisionNumber, drives);
  ForEachScsiPort([&](int controller, IDevice& port) {
    for (int drive = 0; drive < kDrivesPerScsiController; ++drive) {
      const IdentifyReply reply = MiniportIdentify(port, drive);
      if (!reply.ok) {
        KyLog::Write(KyLog::kWarn, KYLOG_SITE(kAsScsiDrive),
                     "fetch disk IOCTL_SCSI_MINIPORT failed: scsi%d:%d, error=%u", controller,
                     drive, reply.error);
        continue;
      }
      DriveRecord record = FromIdentify(reply.identify.data());
      found.Add(record);
      KyLog::Write(KyLog::kInfo, KYLOG_SITE(kAsScsiDrive),
                   "fetch disk(scsi%d:%d),  PID=%s, VID=%s, SN=%s", controller, drive,
                   record.ModelNumber.c_str(), record.RevisionNumber.c_str(),
                   record.SerialNumber.c_str());
    }
  });
  return found.Any();
}

bool CHddFetcher::ReadPhysicalDriveInNTWithZeroRights(std::string& serialNumber,
                                                      std::string& modelNumber,
                                                      std::string& revisionNumber,
                                                      std::vector<DriveRecord>& drives) {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kWithZeroRights), kEnter);
  Findings found(serialNumber, modelNumber, revisionNumber, drives);
  ForEachPhysicalDrive(kQueryOnly, kShareReadWrite, [&](int drive, IDevice& device) {
    const DescriptorReply reply = QueryStorageDescriptor(device, kLegacyDescriptorBufferSize);
    if (!reply.ok) return;
    const uint8_t* descriptor = reply.bytes.data();
    const size_t size = reply.bytes.size();
    // The legacy decoder takes the offsets as signed numbers.
    auto offsetAt = [descriptor](size_t at) { return static_cast<int>(ReadLe32(descriptor, at)); };
    DriveRecord record;
    record.ModelNumber = flipAndCodeBytes(descriptor, size, offsetAt(kProductIdOffsetAt), false);
    record.RevisionNumber = flipAndCodeBytes(descriptor, size, offsetAt(kRevisionOffsetAt), false);
    record.SerialNumber = flipAndCodeBytes(descriptor, size, offsetAt(kSerialNumberOffsetAt), true);
    found.Add(record);
    LogDrive(kWithZeroRights, drive, record);
  });
  return found.Any();
}

bool CHddFetcher::ReadPhysicalDriveInNTUsingSmart(std::string& serialNumber,
                                                  std::string& modelNumber,
                                                  std::string& revisionNumber,
                                                  std::vector<DriveRecord>& drives) {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kUsingSmart), kEnter);
  Findings found(serialNumber, modelNumber, revisionNumber, drives);
  ReadSmart(kSmartReader, found);
  return found.Any();
}

bool CHddFetcher::ReadPhysicalDriveRand(std::string& serialNumber, std::string& modelNumber,
                                        std::string& revisionNumber,
                                        std::vector<DriveRecord>& drives) {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kRand), kEnter);
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kRand), "ReadPhysicalDriveRand begin");

  const std::wstring folder = GetProfileDir();
  if (folder.empty()) {
    // The folder seam only says that the shell gave no folder, not why.
    KyLog::Write(KyLog::kError, KYLOG_SITE(kRand), "failed to get common appdata dir: 0x%x",
                 static_cast<unsigned>(E_FAIL));
    return false;
  }
  EnsureDataFolder();
  const std::string path = WideToAnsi(folder) + "\\HDD.db";
  HddDbIdentity stored = ReadHddDb(path);
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kRand),
               "ReadPhysicalDriveRand read db serialNumber=%s, modelNumber=%s, revisionNumber=%s",
               stored.serialNumber.c_str(), stored.modelNumber.c_str(),
               stored.revisionNumber.c_str());

  // A partial identity is never completed: all three are made anew together.
  if (!stored.Complete()) {
    RandString(stored.serialNumber);
    RandString(stored.modelNumber);
    RandString(stored.revisionNumber);
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kRand),
                 "ReadPhysicalDriveRand Rand serialNumber=%s, modelNumber=%s, revisionNumber=%s",
                 stored.serialNumber.c_str(), stored.modelNumber.c_str(),
                 stored.revisionNumber.c_str());
    WriteHddDb(path, stored);
  }

  DriveRecord record;
  record.SerialNumber = stored.serialNumber;
  record.ModelNumber = stored.modelNumber;
  record.RevisionNumber = stored.revisionNumber;
  serialNumber = record.SerialNumber;
  modelNumber = record.ModelNumber;
  revisionNumber = record.RevisionNumber;
  drives.push_back(record);
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
