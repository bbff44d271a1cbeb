// The sequence id of the legacy scheme: a 16-byte machine id
// hashed from the chosen MAC address, the first drive's identity and (for
// caches built after the processor joined the scheme) the CPU brand string.
// It is cached with the three identity digests in GlobalMgr.db, which older
// components of the suite read, and falls back to a random id kept in
// Global.db on a machine without any MAC address.
//
// GlobalMgr.db (narrow INI, CR LF):
//   [Profile]
//   config1=<id as 32 lower-case hex digits>
//   config2=<MD5 of the MAC text, or empty>
//   config3=<MD5 of serial + model + revision, or empty>
//   config4=<MD5 of the CPU brand, or empty>
//   config5=1              (absent in files written before the CPU brand)
//
// Global.db: the 16 raw bytes of the id.
//
// A generator lives for one computation; only its files outlast it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "kyguidlib/td/driverecord.h"
#include "kyguidlib/td/guidinfo.h"
#include "kyguidlib/td/guidlist.h"
#include "kyguidlib/td/macfetcher.h"

namespace KyMacID {

constexpr size_t kSeqIdSize = 16;
using SeqId = uint8_t[kSeqIdSize];

// 32 hex digits of an MD5 and a terminator; all zero for an absent identity.
constexpr size_t kDigestTextSize = 33;
constexpr size_t kPathSize = 260;

// The processor brand string of CPUID 0x80000002..4, untrimmed: some
// processors pad it with leading blanks, and the stored digests include them.
bool GetCPUBrand(std::string& brand);

// Where the generator gets its three identities. A member left empty keeps
// the shipped source (CMacFetcher, CHddFetcher, GetCPUBrand).
struct SeqIdSources {
  std::function<bool(MACAddress& mac, std::vector<MACAddress>& macList)> mac;
  std::function<bool(std::string& serial, std::string& model, std::string& revision,
                     std::vector<DriveRecord>& drives)>
      drive;
  std::function<bool(std::string& brand)> cpuBrand;
};

class CSeqIDGenerator {
 public:
  CSeqIDGenerator();
  explicit CSeqIDGenerator(SeqIdSources sources);
  virtual ~CSeqIDGenerator();
  CSeqIDGenerator(const CSeqIDGenerator&) = delete;
  CSeqIDGenerator& operator=(const CSeqIDGenerator&) = delete;

  // The whole computation. `id` is left as passed only when no source at all
  // gave an id (no MAC, no id file, no random id).
  void GetSequenceIDImp(SeqId& id);

  // Loads the cached id of `cachePath` into `id` and judges it against the
  // present digests. `bSameAsCache` says whether the hardware still fits the
  // cache; the result says whether the cached id is usable. `bNeedCpu` is set
  // when a cache from before the CPU brand must be rebuilt with it.
  bool GetCacheGuid(const char* cachePath, const char* macMd5, const char* hddMd5,
                    const char* cpuMd5, bool bMac, bool bHdd, bool bCpu, bool& bNeedCpu, SeqId& id,
                    bool& bSameAsCache);

  // Writes GlobalMgr.db (keeping the replaced one as GlobalMgrBack.db when the
  // id changes) and records the change in GuidList.db.
  void SaveGuidToFile(const char* macMd5, const char* hddMd5, const char* cpuMd5, const SeqId& id);

  // Seeds a missing common GlobalMgr.db from the per-user one, if that one is
  // complete.
  void CheckAndCopyGlobalMgr(const wchar_t* commonPath, const wchar_t* localPath);

  // GlobalMgr.db in the common / per-user application-data folder. The
  // buffer (kPathSize characters) is left alone when the folder is unknown.
  void GetCacheFilePath(wchar_t* path);
  void GetLocalCacheFilePath(wchar_t* path);

  // Global.db: common ("...\Corvane\Desktop") or per-user
  // ("...\Corvane\Greibraske"); empty when the folder is unknown.
  std::wstring GetGlobalDbPath(bool user);

  bool GetIDFromFile(SeqId& id);
  bool SetIDToFile(const SeqId& id);
  bool GenerateID(SeqId& id);

  const CGuidInfo& GuidInfo() const { return m_guidInfo; }
  const CGuidList& GuidList() const { return m_guidList; }

 private:
  struct Identities;
  void FetchIdentities(Identities& hw);
  void RecordHardwareHistory(const Identities& hw, const wchar_t* cachePath);
  static void DigestIdentities(Identities& hw);
  bool MakeNewId(const Identities& hw, bool bNeedCpu, SeqId& id);

  CGuidInfo m_guidInfo;
  CGuidList m_guidList;
  SeqIdSources m_sources;
};

// 32 lower-case hex digits, byte 0 first.
std::string SeqIdToText(const SeqId& id);

// What an update runs after a saving build: computes the sequence id (which
// refreshes the legacy scheme's files) and, when `currentGuid` is not
// empty, writes it over the id in GlobalMgr.db and copies that file over a
// per-user one that holds another GUID, so older components read the GUID in
// force. Returns the sequence id as text.
std::string GetSequenceID(const std::string& currentGuid);

}  // namespace KyMacID
