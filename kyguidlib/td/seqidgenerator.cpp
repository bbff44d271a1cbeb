#include "kyguidlib/td/seqidgenerator.h"

#include <windows.h>
#include <objbase.h>
#include <shlobj.h>
#include <shlwapi.h>

#include <cstring>
#include <utility>

#include "common/comraii.h"
#include "common/filestore.h"
#include "common/kylog.h"
#include "common/md5.h"
#include "common/strutil.h"
#include "kyguidlib/globalmgrfile.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/hardware.h"
#include "kyguidlib/platform.h"
#include "kyguidlib/td/hddfetcher.h"
#include "kyguidlib/td/kystackshell.h"

namespace KyMacID {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\td\\seqidgenerator";
constexpr char kEnter[] = "enter";

constexpr wchar_t kGetCPUBrand[] = L"KyMacID::GetCPUBrand";
constexpr wchar_t kConstructor[] = L"KyMacID::CSeqIDGenerator::CSeqIDGenerator";
constexpr wchar_t kDestructor[] = L"KyMacID::CSeqIDGenerator::~CSeqIDGenerator";
constexpr wchar_t kGetSequenceIDImp[] = L"KyMacID::CSeqIDGenerator::GetSequenceIDImp";
constexpr wchar_t kGetCacheGuid[] = L"KyMacID::CSeqIDGenerator::GetCacheGuid";
constexpr wchar_t kSaveGuidToFile[] = L"KyMacID::CSeqIDGenerator::SaveGuidToFile";
constexpr wchar_t kCheckAndCopyGlobalMgr[] = L"KyMacID::CSeqIDGenerator::CheckAndCopyGlobalMgr";
constexpr wchar_t kGetCacheFilePath[] = L"KyMacID::CSeqIDGenerator::GetCacheFilePath";
constexpr wchar_t kGetLocalCacheFilePath[] = L"KyMacID::CSeqIDGenerator::GetLocalCacheFilePath";
constexpr wchar_t kGetGlobalDbPath[] = L"KyMacID::CSeqIDGenerator::GetGlobalDbPath";
constexpr wchar_t kGetIDFromFile[] = L"KyMacID::CSeqIDGenerator::GetIDFromFile";
constexpr wchar_t kSetIDToFile[] = L"KyMacID::CSeqIDGenerator::SetIDToFile";
constexpr wchar_t kGenerateID[] = L"KyMacID::CSeqIDGenerator::GenerateID";
constexpr wchar_t kGetSequenceID[] = L"KyMacID::CSeqIDGenerator::GetSequenceID";
constexpr wchar_t kCreateGuidInfoFile[] = L"CGuidInfo::CreateGuidInfoFile";

// Other programs of the suite read the backup beside the cache.
constexpr wchar_t kBackupName[] = L"GlobalMgrBack.db";

constexpr DWORD kUserConfigBufferSize = 64;  // 63 characters and the NUL
constexpr size_t kDigestLength = kDigestTextSize - 1;

void LogEntry(const wchar_t* function) {
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(function), kEnter);
}

// Narrow paths are in the process's ANSI code page, the one the narrow file
// and profile functions read them in; the thread's code page, which a host
// may have changed, would name another file.
std::string ToAnsi(const wchar_t* text) { return KyGuid::WideToAnsi(text ? text : L""); }

bool FileExists(const wchar_t* path) { return KyGuidUtils::StoreFileExists(path ? path : L""); }

void CopyDigest(const std::string& digest, char (&out)[kDigestTextSize]) {
  memset(out, 0, sizeof(out));
  memcpy(out, digest.data(), digest.size() < kDigestLength ? digest.size() : kDigestLength);
}

int HexValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return 0;
}

// `text` holds at least 32 characters.
void ParseSeqId(const char* text, SeqId& id) {
  for (size_t i = 0; i < kSeqIdSize; ++i) {
    id[i] = static_cast<uint8_t>(HexValue(text[2 * i]) << 4 | HexValue(text[2 * i + 1]));
  }
}

// GlobalMgr.db into the caller's buffer when the shell knows the folder and
// the whole fits; otherwise the buffer stays as it was.
bool BuildCachePath(int csidl, const wchar_t* function, wchar_t* path) {
  std::wstring file;
  if (!KyGuid::GetGlobalMgrPath(csidl, file)) {
    KyLog::Write(KyLog::kError, KYLOG_SITE(function), "failed to get common appdata dir");
    return false;
  }
  if (file.empty() || file.size() >= kPathSize) return false;
  wcscpy_s(path, kPathSize, file.c_str());
  return true;
}

bool DefaultMac(MACAddress& mac, std::vector<MACAddress>& macList) {
  return CMacFetcher().GetMAC(mac, macList);
}

bool DefaultDrive(std::string& serial, std::string& model, std::string& revision,
                  std::vector<DriveRecord>& drives) {
  return CHddFetcher().GetPhysicsDriveIdentify(serial, model, revision, drives);
}

}  // namespace

bool GetCPUBrand(std::string& brand) {
  LogEntry(kGetCPUBrand);
  brand.clear();
  std::vector<uint8_t> registers;
  if (!KyGuid::CurrentPlatform().hardware->ReadProcessorBrand(registers)) return false;
  char text[49] = {};
  memcpy(text, registers.data(), std::min<size_t>(registers.size(), 48));
  if (text[0] != '\0') brand.assign(text);
  return !brand.empty();
}

std::string GetSequenceID(const std::string& currentGuid) {
  // Logged under the generator's name: support reads it as part of the
  // legacy scheme's run.
  LogEntry(kGetSequenceID);
  SeqId id = {};
  {
    CSeqIDGenerator generator;
    generator.GetSequenceIDImp(id);
  }
  const std::string ancientGuid = SeqIdToText(id);
  if (currentGuid.empty()) return ancientGuid;

  // Older components read the machine id from the legacy cache: make it
  // carry the current GUID rather than the sequence id just computed.
  const std::string commonPath = KyGuid::GetGlobalMgrFilePath();
  if (ancientGuid != currentGuid && !commonPath.empty()) {
    KyGuid::WriteGlobalMgrId(commonPath, currentGuid);
  }
  const std::string userPath = KyGuid::GetUserGlobalMgrFilePath();
  if (userPath.empty() || commonPath.empty()) return ancientGuid;
  if (currentGuid != KyGuid::ReadGlobalMgrId(userPath, kUserConfigBufferSize)) {
    KyGuidUtils::CopyStoreFile(KyGuid::AnsiToWide(commonPath), KyGuid::AnsiToWide(userPath), false);
  }
  return ancientGuid;
}

std::string SeqIdToText(const SeqId& id) { return KyGuidUtils::BytesToHex(id, kSeqIdSize); }

CSeqIDGenerator::CSeqIDGenerator() : CSeqIDGenerator(SeqIdSources()) {}

CSeqIDGenerator::CSeqIDGenerator(SeqIdSources sources) : m_sources(std::move(sources)) {
  LogEntry(kConstructor);
  if (!m_sources.mac) m_sources.mac = &DefaultMac;
  if (!m_sources.drive) m_sources.drive = &DefaultDrive;
  if (!m_sources.cpuBrand) m_sources.cpuBrand = &GetCPUBrand;
}

CSeqIDGenerator::~CSeqIDGenerator() { LogEntry(kDestructor); }

// What the three sources gave, and their digests (all zero when absent).
struct CSeqIDGenerator::Identities {
  MACAddress mac;
  std::vector<MACAddress> macList;
  bool bMac = false;
  std::string serial, model, revision;
  std::vector<DriveRecord> drives;
  bool bHdd = false;
  std::string cpuBrand;
  bool bCpu = false;
  char macMd5[kDigestTextSize] = {};
  char hddMd5[kDigestTextSize] = {};
  char cpuMd5[kDigestTextSize] = {};
};

void CSeqIDGenerator::GetSequenceIDImp(SeqId& id) {
  LogEntry(kGetSequenceIDImp);
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kGetSequenceIDImp), "Fetch hardware begin");
  KyGuid::ITickSource& ticks = *KyGuid::CurrentPlatform().ticks;
  const uint32_t begin = ticks.GetTickCount();
  Identities hw;
  FetchIdentities(hw);
  wchar_t cachePath[kPathSize] = {};
  GetCacheFilePath(cachePath);
  RecordHardwareHistory(hw, cachePath);
  // The word after "Hw" is "elapsed" in code page 936; support tools search
  // the logs for this exact line.
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kGetSequenceIDImp),
               "Fetch hardware end Hw \xD3\xC3\xCA\xB1:%u", ticks.GetTickCount() - begin);
  DigestIdentities(hw);

  wchar_t localPath[kPathSize] = {};
  GetCacheFilePath(cachePath);
  GetLocalCacheFilePath(localPath);
  CheckAndCopyGlobalMgr(cachePath, localPath);
  const std::string cachePathA = ToAnsi(cachePath);
  bool bNeedCpu = false;
  bool bSameAsCache = false;
  const bool bRet = GetCacheGuid(cachePathA.c_str(), hw.macMd5, hw.hddMd5, hw.cpuMd5, hw.bMac,
                                 hw.bHdd, hw.bCpu, bNeedCpu, id, bSameAsCache);
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kGetSequenceIDImp),
               "commondata LoadGuidFromFile bRet=%d, bSameAsCache=%d", bRet ? 1 : 0,
               bSameAsCache ? 1 : 0);
  if (bRet && bSameAsCache) {
    KyLog::Write(KyLog::kTrace, KYLOG_SITE(kGetSequenceIDImp), "LoadCachedGuid success, return");
    return;
  }
  if (!MakeNewId(hw, bNeedCpu, id)) return;
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kGetSequenceIDImp), "Save ID to cache");
  SaveGuidToFile(hw.macMd5, hw.hddMd5, hw.cpuMd5, id);
  m_guidInfo.ResetHddCpu(hw.bHdd, bNeedCpu);
  m_guidInfo.SaveToFileHWList();
}

void CSeqIDGenerator::FetchIdentities(Identities& hw) {
  hw.bMac = m_sources.mac(hw.mac, hw.macList);
  hw.bHdd = m_sources.drive(hw.serial, hw.model, hw.revision, hw.drives);
  hw.bCpu = m_sources.cpuBrand(hw.cpuBrand);
}

// GuidInfo.db is written once, with the hardware of its first run; GuidList.db
// is made when missing.
void CSeqIDGenerator::RecordHardwareHistory(const Identities& hw, const wchar_t* cachePath) {
  m_guidInfo.ResetGuidInfo();
  m_guidInfo.SetPath(cachePath);
  m_guidInfo.RecordMacList(hw.macList);
  m_guidInfo.RecordHDList(hw.drives);
  m_guidInfo.RecordCpu(hw.cpuBrand);
  m_guidInfo.ResetHddCpu(hw.bHdd, false);
  {
    KyStuck::StackScope scope("CGuidInfo::CreateGuidInfoFile");
    LogEntry(kCreateGuidInfoFile);
    if (!FileExists(m_guidInfo.FilePathW().c_str())) m_guidInfo.SaveToFileHWList();
  }
  m_guidList.ResetGuidList();
  m_guidList.SetPath(cachePath);
  m_guidList.CreateGuidListFile();
}

void CSeqIDGenerator::DigestIdentities(Identities& hw) {
  if (hw.bMac) CopyDigest(KyGuidUtils::Md5Hex(hw.mac.ToString()), hw.macMd5);
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kGetSequenceIDImp), "bMac=%d, tstrMacIdMd5=%s.",
               hw.bMac ? 1 : 0, hw.macMd5);
  if (hw.bHdd) CopyDigest(KyGuidUtils::Md5Hex(hw.serial + hw.model + hw.revision), hw.hddMd5);
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kGetSequenceIDImp), "bHdd=%d, tstrPhyDriverMd5=%s.",
               hw.bHdd ? 1 : 0, hw.hddMd5);
  if (hw.bCpu) CopyDigest(KyGuidUtils::Md5Hex(hw.cpuBrand), hw.cpuMd5);
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kGetSequenceIDImp), "bCpu=%d, tstrCpuidMd5=%s.",
               hw.bCpu ? 1 : 0, hw.cpuMd5);
}

// The id of the present hardware: hashed from the MAC (with the drive and,
// for a cache that needs it, the processor), else the id kept in Global.db,
// else a new random one. False when none could be had.
bool CSeqIDGenerator::MakeNewId(const Identities& hw, bool bNeedCpu, SeqId& id) {
  if (hw.bMac) {
    // The pieces touch: every id already stored was hashed without a
    // separator between them.
    std::string info = hw.mac.ToString();
    if (hw.bHdd) info += hw.serial + hw.model + hw.revision;
    if (bNeedCpu) info += hw.cpuBrand;
    ParseSeqId(KyGuidUtils::Md5Hex(info).c_str(), id);
    KyLog::Write(
        KyLog::kTrace, KYLOG_SITE(kGetSequenceIDImp),
        "Get MAC success, Get GUID from MAC & PhysicsDrive,bHdd=%d,bNeedCpu=%d,strInfo=%s.",
        hw.bHdd ? 1 : 0, bNeedCpu ? 1 : 0, info.c_str());
    return true;
  }
  if (GetIDFromFile(id)) {
    KyLog::Write(KyLog::kTrace, KYLOG_SITE(kGetSequenceIDImp), "Get MAC failed, GetIDFromFile...");
    return true;
  }
  if (!GenerateID(id)) return false;
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kGetSequenceIDImp),
               "GetIDFromFile failed, GenerateID and SetIDToFile");
  // A random id that could not be stored still serves this run; the cache
  // written below keeps it until the hardware changes.
  SetIDToFile(id);
  return true;
}

bool CSeqIDGenerator::GetCacheGuid(const char* cachePath, const char* macMd5, const char* hddMd5,
                                   const char* cpuMd5, bool bMac, bool bHdd, bool bCpu,
                                   bool& bNeedCpu, SeqId& id, bool& bSameAsCache) {
  LogEntry(kGetCacheGuid);
  const KyGuid::GlobalMgrValues file =
      KyGuid::ReadGlobalMgr(cachePath ? cachePath : "", KyGuid::kLegacyValueBuffer);
  const std::string& fileGuid = file.id;
  const std::string& fileMac = file.macDigest;
  const std::string& fileHd = file.driveDigest;
  const std::string& fileCpu = file.cpuDigest;
  const int fileVersion = file.version;
  bSameAsCache = true;

  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kGetCacheGuid),
               "commondata GetCacheGuid tFileCpuidMd5=%s, tstrCpuidMd5=%s", fileCpu.c_str(),
               cpuMd5);
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kGetCacheGuid),
               "commondata GetCacheGuid tFileMacIdMd5=%s, tstrMacIdMd5=%s", fileMac.c_str(),
               macMd5);
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kGetCacheGuid),
               "commondata GetCacheGuid tFilePhyDriverMd5=%s, tstrPhyDriverMd5=%s", fileHd.c_str(),
               hddMd5);

  // A new processor is a new machine. A new adapter alone, or a new drive
  // alone, is not; both new is, unless both old ones are still present.
  if (_stricmp(fileCpu.c_str(), cpuMd5) != 0) {
    bSameAsCache = false;
  } else if (_stricmp(fileMac.c_str(), macMd5) != 0 && _stricmp(fileHd.c_str(), hddMd5) != 0) {
    bSameAsCache = false;
    if (m_guidInfo.IsFoundMac(fileMac) && m_guidInfo.IsFoundHd(fileHd)) {
      // The wording (one placeholder, given the stored MAC digest) is what the
      // support tools parse; the drive digest never had a place in it.
      KyLog::Write(KyLog::kInfo, KYLOG_SITE(kGetCacheGuid),
                   "commondata IsFoundMac tFileCpuidMd5=%s, IsFoundHd tFilePhyDriverMd5",
                   fileMac.c_str());
      bSameAsCache = true;
    }
  }
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kGetCacheGuid), "commondata bRet=%d, bSameAsChahe=%d", 1,
               bSameAsCache ? 1 : 0);

  if (fileGuid.size() != kDigestLength) return false;
  ParseSeqId(fileGuid.c_str(), id);

  const int present = (bMac ? 1 : 0) + (bHdd ? 1 : 0) + (bCpu ? 1 : 0);
  const int stored =
      (fileHd.empty() ? 0 : 1) + (fileCpu.empty() ? 0 : 1) + (fileMac.empty() ? 0 : 1);
  bool result = true;
  // More hardware is readable now than the cache was built from.
  if (stored < present && !fileHd.empty()) result = false;
  // A cache from before the CPU brand joined the scheme, on a machine missing
  // one of the three, is rebuilt with the brand in the hash.
  if (fileVersion == 0 && bCpu && !(!fileHd.empty() && !fileMac.empty()) && present != 3 &&
      stored <= present) {
    result = false;
    bNeedCpu = true;
  }
  return result;
}

void CSeqIDGenerator::SaveGuidToFile(const char* macMd5, const char* hddMd5, const char* cpuMd5,
                                     const SeqId& id) {
  LogEntry(kSaveGuidToFile);
  wchar_t cachePath[kPathSize] = {};
  GetCacheFilePath(cachePath);
  const std::string cachePathA = ToAnsi(cachePath);
  const std::string idText = SeqIdToText(id);

  if (FileExists(cachePath)) {
    wchar_t backupPath[kPathSize] = {};
    wcscpy_s(backupPath, kPathSize, cachePath);
    PathRemoveFileSpecW(backupPath);
    PathAppendW(backupPath, kBackupName);
    const std::string backupPathA = ToAnsi(backupPath);
    if (!FileExists(backupPath)) {
      KyGuidUtils::CopyStoreFile(cachePath, backupPath, false);
      KyLog::Write(KyLog::kInfo, KYLOG_SITE(kSaveGuidToFile),
                   "commondata globalmgrback copy and file not exists, szFilePathBack=%s",
                   backupPathA.c_str());
    } else {
      // The backup keeps the id before the last change, not the last write.
      const std::string fileGuid = KyGuid::ReadGlobalMgrId(cachePathA, KyGuid::kLegacyValueBuffer);
      KyLog::Write(KyLog::kInfo, KYLOG_SITE(kSaveGuidToFile),
                   "commondata check guid newguid=%s, globalguid=%s", idText.c_str(),
                   fileGuid.c_str());
      if (idText != fileGuid) {
        KyGuidUtils::CopyStoreFile(cachePath, backupPath, false);
        KyLog::Write(KyLog::kInfo, KYLOG_SITE(kSaveGuidToFile),
                     "commondata globalmgrback copy, szFilePathBack=%s", backupPathA.c_str());
      }
    }
  }

  m_guidList.ResetGuidList();
  m_guidList.SetPath(cachePath);
  const GuidListRecord held = m_guidList.ReadFileCurGuid();
  if (_stricmp(held.Cpu.c_str(), cpuMd5) != 0 || _stricmp(held.Mac.c_str(), macMd5) != 0 ||
      _stricmp(held.Hd.c_str(), hddMd5) != 0) {
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kSaveGuidToFile),
                 "commondata SaveGuidToFile BackOldList");
    m_guidList.SetOldGuid(held.Guid, held.Mac, held.Hd, held.Cpu);
  }
  m_guidList.SetCurGuid(idText, macMd5, hddMd5, cpuMd5, 0);
  m_guidList.SaveToGuidListFile();

  KyLog::Write(KyLog::kInfo, KYLOG_SITE(kSaveGuidToFile), "globalmgr path copy, szFilePath=%s",
               cachePathA.c_str());
  KyGuid::GlobalMgrValues values;
  values.id = idText;
  values.macDigest = macMd5;
  values.driveDigest = hddMd5;
  values.cpuDigest = cpuMd5;
  if (!KyGuid::WriteGlobalMgrFile(cachePath, values)) {
    KyLog::WriteError(KyLog::kError, GetLastError(), KYLOG_SITE(kSaveGuidToFile),
                      "Create cached file failed");
    return;
  }
  KyLog::Write(KyLog::kTrace, KYLOG_SITE(kSaveGuidToFile), "strFile=%s.",
               KyGuid::GlobalMgrText(values).c_str());
}

void CSeqIDGenerator::CheckAndCopyGlobalMgr(const wchar_t* commonPath, const wchar_t* localPath) {
  LogEntry(kCheckAndCopyGlobalMgr);
  if (FileExists(commonPath) || !FileExists(localPath)) return;
  const std::string commonA = ToAnsi(commonPath);
  const std::string localA = ToAnsi(localPath);
  const KyGuid::GlobalMgrValues local = KyGuid::ReadGlobalMgr(localA, KyGuid::kLegacyValueBuffer);
  bool complete = true;
  for (const std::string* value :
       {&local.id, &local.macDigest, &local.driveDigest, &local.cpuDigest}) {
    if (value->size() != kDigestLength) complete = false;
  }
  if (complete) {
    KyGuidUtils::CopyStoreFile(localPath, commonPath, true);
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kCheckAndCopyGlobalMgr),
                 "CheckAndCopyGlobalMgr copy, szCommonFilePath=%s, szLocalFilePath=%s",
                 commonA.c_str(), localA.c_str());
  } else {
    KyLog::Write(KyLog::kInfo, KYLOG_SITE(kCheckAndCopyGlobalMgr),
                 "CheckAndCopyGlobalMgr not copy, szCommonFilePath=%s, szLocalFilePath=%s",
                 commonA.c_str(), localA.c_str());
  }
}

void CSeqIDGenerator::GetCacheFilePath(wchar_t* path) {
  LogEntry(kGetCacheFilePath);
  BuildCachePath(CSIDL_COMMON_APPDATA, kGetCacheFilePath, path);
}

void CSeqIDGenerator::GetLocalCacheFilePath(wchar_t* path) {
  LogEntry(kGetLocalCacheFilePath);
  BuildCachePath(CSIDL_APPDATA, kGetLocalCacheFilePath, path);
}

std::wstring CSeqIDGenerator::GetGlobalDbPath(bool user) {
  LogEntry(kGetGlobalDbPath);
  return KyGuid::GetGlobalDbPath(user);
}

bool CSeqIDGenerator::GetIDFromFile(SeqId& id) {
  LogEntry(kGetIDFromFile);
  const std::wstring commonPath = GetGlobalDbPath(false);
  std::string content;
  if (!KyGuidUtils::ReadStoreFile(commonPath, content)) {
    const std::wstring userPath = GetGlobalDbPath(true);
    // An id kept per user moves to the common place. The read below then
    // fails and this run reports no id; the next run finds the common file.
    if (!FileExists(commonPath.c_str()) && FileExists(userPath.c_str()) &&
        KyGuidUtils::CopyStoreFile(userPath, commonPath, false)) {
      KyGuidUtils::RemoveStoreFile(userPath);
    }
    if (!KyGuidUtils::ReadStoreFile(userPath, content)) return false;
  }
  if (content.size() < kSeqIdSize) return false;
  memcpy(id, content.data(), kSeqIdSize);
  return true;
}

bool CSeqIDGenerator::SetIDToFile(const SeqId& id) {
  LogEntry(kSetIDToFile);
  const std::string bytes(reinterpret_cast<const char*>(id), kSeqIdSize);
  return KyGuidUtils::WriteStoreFile(GetGlobalDbPath(false), bytes) ||
         KyGuidUtils::WriteStoreFile(GetGlobalDbPath(true), bytes);
}

bool CSeqIDGenerator::GenerateID(SeqId& id) {
  LogEntry(kGenerateID);
  const KyGuidUtils::ScopedCoUninitialize leaveApartment(CoInitialize(nullptr));
  GUID guid{};
  const HRESULT created = CoCreateGuid(&guid);
  if (SUCCEEDED(created)) memcpy(id, &guid, kSeqIdSize);
  return SUCCEEDED(created);
}

}  // namespace KyMacID
