// The earlier scheme's sequence id: when the cache in GlobalMgr.db is kept
// and when it is recomputed, exactly what is written (and what is not), the
// Global.db fallback of a machine without a MAC, and the builder writing the
// current GUID back into the legacy caches.
#include <optional>

#include "common/md5.h"
#include "kyguidlib/cguidbuilder.h"
#include "kyguidlib/td/seqidgenerator.h"
#include "tests/testsupport.h"

namespace {

using KyGuidSim::SimulatedMachine;
using KyGuidTest::IniRead;
using KyGuidTest::IniWrite;
using KyGuidTest::ReadWholeFile;
using KyGuidTest::WriteWholeFile;
using KyGuidUtils::Md5Hex;
using KyMacID::CSeqIDGenerator;
using KyMacID::DriveRecord;
using KyMacID::MACAddress;
using KyMacID::SeqId;

const uint8_t kMacA[6] = {0x00, 0x11, 0x22, 0xAA, 0xBB, 0xCC};
const uint8_t kMacB[6] = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
const std::string kMacAText = "001122aabbcc";
const std::string kMacBText = "001a2b3c4d5e";
const DriveRecord kDriveA{"SN-A", "MODEL A", "REV1"};
const DriveRecord kDriveB{"SN-B", "MODEL B", "REV2"};
const std::string kDriveAText = "SN-AMODEL AREV1";
const std::string kDriveBText = "SN-BMODEL BREV2";
// Leading blanks as some processors report them: they are part of the hash.
const std::string kBrandA = "       Intel(R) Xeon(R) CPU E5-2680 v4 @ 2.40GHz";
const std::string kBrandB = "AMD Ryzen 7 5800X 8-Core Processor";
const std::string kCachedId = "0123456789abcdef0123456789abcdef";

bool Exists(const std::string& path) {
  return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

std::wstring Wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }
std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

// The cache exactly as the generator writes it.
std::string CacheText(const std::string& id, const std::string& mac, const std::string& hd,
                      const std::string& cpu, bool withConfig5 = true) {
  return "[Profile]\r\nconfig1=" + id + "\r\nconfig2=" + mac + "\r\nconfig3=" + hd +
         "\r\nconfig4=" + cpu + "\r\n" + (withConfig5 ? "config5=1\r\n" : "");
}

std::string Hex(const std::string& bytes) {
  return KyMacID::SeqIdToText(*reinterpret_cast<const SeqId*>(bytes.data()));
}

class SeqIdTest : public KyGuidTest::IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    KyGuidTest::MakeDirs(ProfileDir());
    KyGuidTest::MakeDirs(UserDir());
  }

  std::string Cache() const { return ProfileDir() + "\\GlobalMgr.db"; }
  std::string Backup() const { return ProfileDir() + "\\GlobalMgrBack.db"; }
  std::string ListFile() const { return ProfileDir() + "\\GuidList.db"; }
  std::string InfoFile() const { return ProfileDir() + "\\GuidInfo.db"; }
  std::string UserDir() const { return m_folders->UserAppData() + "\\Corvane\\Greibraske"; }
  std::string LocalCache() const { return UserDir() + "\\GlobalMgr.db"; }
  std::string CommonIdDir() const { return m_folders->CommonAppData() + "\\Corvane\\Desktop"; }
  std::string CommonIdFile() const { return CommonIdDir() + "\\Global.db"; }
  std::string UserIdFile() const { return UserDir() + "\\Global.db"; }

  // The machine as the generator's sources see it: the first MAC and the
  // first drive are the chosen ones; an empty list or brand cannot be read.
  void Machine(std::vector<const uint8_t*> macs, std::vector<DriveRecord> drives,
               std::string brand) {
    m_macs = std::move(macs);
    m_drives = std::move(drives);
    m_brand = std::move(brand);
  }

  KyMacID::SeqIdSources Sources() {
    KyMacID::SeqIdSources sources;
    sources.mac = [this](MACAddress& mac, std::vector<MACAddress>& list) {
      list.clear();
      for (const uint8_t* bytes : m_macs) list.emplace_back(bytes);
      if (m_macs.empty()) return false;
      mac = MACAddress(m_macs[0]);
      return true;
    };
    sources.drive = [this](std::string& serial, std::string& model, std::string& revision,
                           std::vector<DriveRecord>& drives) {
      drives = m_drives;
      if (m_drives.empty()) return false;
      serial = m_drives[0].SerialNumber;
      model = m_drives[0].ModelNumber;
      revision = m_drives[0].RevisionNumber;
      return true;
    };
    sources.cpuBrand = [this](std::string& brand) {
      brand = m_brand;
      return !brand.empty();
    };
    return sources;
  }

  std::string Run() {
    SeqId id = {};
    CSeqIDGenerator(Sources()).GetSequenceIDImp(id);
    return KyMacID::SeqIdToText(id);
  }

  // Whether GuidInfo.db records `id` among the ids this machine could have.
  bool Recorded(const std::string& id) const {
    const int count = atoi(IniRead(InfoFile(), "GuidList", "Count").c_str());
    for (int i = 0; i < count; ++i) {
      if (IniRead(InfoFile(), "GuidList", ("Guid_" + std::to_string(i)).c_str()) == id) return true;
    }
    return false;
  }

  std::vector<const uint8_t*> m_macs;
  std::vector<DriveRecord> m_drives;
  std::string m_brand;
};

TEST_F(SeqIdTest, FirstRunHashesMacAndDriveAndWritesTheCacheWithItsDigests) {
  Machine({kMacA, kMacB}, {kDriveA, kDriveB}, kBrandA);
  const std::string id = Run();

  // With all three identities readable the brand is recorded, not hashed.
  EXPECT_EQ(Md5Hex(kMacAText + kDriveAText), id);
  EXPECT_EQ(CacheText(id, Md5Hex(kMacAText), Md5Hex(kDriveAText), Md5Hex(kBrandA)),
            ReadWholeFile(Cache()));
  EXPECT_FALSE(Exists(Backup()));
  EXPECT_EQ(1, CountLog("Get MAC success, Get GUID from MAC & PhysicsDrive,bHdd=1,bNeedCpu=0,"
                        "strInfo=001122aabbccSN-AMODEL AREV1."));
  EXPECT_EQ(1, CountLog("Fetch hardware end Hw \xD3\xC3\xCA\xB1:0"));
  EXPECT_EQ(1, CountLog("commondata LoadGuidFromFile bRet=0, bSameAsCache=0"));

  // The change list starts with this record and no history.
  EXPECT_EQ(id, IniRead(ListFile(), "CurGuid", "Guid"));
  EXPECT_EQ(Md5Hex(kDriveAText), IniRead(ListFile(), "CurGuid", "Hd"));
  EXPECT_EQ("", IniRead(ListFile(), "ListCount", "Count"));
  // Every MAC x drive combination the id could have been made from.
  EXPECT_EQ("4", IniRead(InfoFile(), "GuidList", "Count"));
  EXPECT_TRUE(Recorded(id));
}

struct CacheCase {
  const char* what;
  std::string cache;  // GlobalMgr.db before the run
  std::vector<const uint8_t*> macs;
  std::vector<DriveRecord> drives;
  std::string brand;
  std::string expectedId;  // kCachedId: the cache is kept
};

TEST_F(SeqIdTest, CacheIsKeptOrRecomputedAsTheHardwareChanged) {
  const std::string current =
      CacheText(kCachedId, Md5Hex(kMacAText), Md5Hex(kDriveAText), Md5Hex(kBrandA));
  auto upper = [](std::string text) {
    for (char& c : text) c = static_cast<char>(toupper(static_cast<unsigned char>(c)));
    return text;
  };
  const CacheCase cases[] = {
      {"same hardware", current, {kMacA}, {kDriveA}, kBrandA, kCachedId},
      {"digests stored in upper case", "[Profile]\r\nconfig1=" + kCachedId + "\r\nconfig2=" +
           upper(Md5Hex(kMacAText)) + "\r\nconfig3=" + upper(Md5Hex(kDriveAText)) +
           "\r\nconfig4=" + upper(Md5Hex(kBrandA)) + "\r\nconfig5=1\r\n",
       {kMacA}, {kDriveA}, kBrandA, kCachedId},
      {"another adapter chosen, same drive", current, {kMacB}, {kDriveA}, kBrandA, kCachedId},
      {"another drive, same adapter", current, {kMacA}, {kDriveB}, kBrandA, kCachedId},
      {"both changed, both old ones still present", current, {kMacB, kMacA}, {kDriveB, kDriveA},
       kBrandA, kCachedId},
      {"both changed, old adapter gone", current, {kMacB}, {kDriveB, kDriveA}, kBrandA,
       Md5Hex(kMacBText + kDriveBText)},
      {"both changed, old drive gone", current, {kMacB, kMacA}, {kDriveB}, kBrandA,
       Md5Hex(kMacBText + kDriveBText)},
      {"another processor", current, {kMacA}, {kDriveA}, kBrandB, Md5Hex(kMacAText + kDriveAText)},
      {"processor brand no longer readable", current, {kMacA}, {kDriveA}, "",
       Md5Hex(kMacAText + kDriveAText)},
      {"config1 of 31 digits", CacheText(kCachedId.substr(1), Md5Hex(kMacAText),
                                         Md5Hex(kDriveAText), Md5Hex(kBrandA)),
       {kMacA}, {kDriveA}, kBrandA, Md5Hex(kMacAText + kDriveAText)},
      // A drive readable now that was not then is no reason to rebuild...
      {"MAC-only cache, drive now readable", CacheText(kCachedId, Md5Hex(kMacAText), "", ""),
       {kMacA}, {kDriveA}, "", kCachedId},
      // ...but a MAC readable now that was not then is.
      {"drive-only cache, MAC now readable", CacheText(kCachedId, "", Md5Hex(kDriveAText), ""),
       {kMacA}, {kDriveA}, "", Md5Hex(kMacAText + kDriveAText)},
      // A cache from before the processor joined the scheme, on a machine
      // missing one identity, is rebuilt with the brand hashed in.
      {"old MAC-only cache without config5, no drive",
       CacheText(kCachedId, Md5Hex(kMacAText), "", "", false), {kMacA}, {}, kBrandA,
       Md5Hex(kMacAText + kBrandA)},
      {"old MAC-only cache without config5, all three readable",
       CacheText(kCachedId, Md5Hex(kMacAText), "", "", false), {kMacA}, {kDriveA}, kBrandA,
       Md5Hex(kMacAText + kDriveAText)},
      {"MAC-only cache with config5, no drive", CacheText(kCachedId, Md5Hex(kMacAText), "", ""),
       {kMacA}, {}, kBrandA, Md5Hex(kMacAText)},
      {"old full cache without config5, no drive",
       CacheText(kCachedId, Md5Hex(kMacAText), Md5Hex(kDriveAText), "", false), {kMacA}, {},
       kBrandA, Md5Hex(kMacAText)},
  };
  for (const CacheCase& c : cases) {
    SCOPED_TRACE(c.what);
    for (const std::string& file : {Cache(), Backup(), ListFile(), InfoFile()}) {
      DeleteFileA(file.c_str());
    }
    WriteWholeFile(Cache(), c.cache);
    Machine(c.macs, c.drives, c.brand);
    const std::string id = Run();
    EXPECT_EQ(c.expectedId, id);
    if (c.expectedId == kCachedId) {
      EXPECT_EQ(c.cache, ReadWholeFile(Cache()));
      EXPECT_FALSE(Exists(Backup()));
      continue;
    }
    const std::string mac = c.macs.empty() ? "" : Md5Hex(MACAddress(c.macs[0]).ToString());
    const std::string hd = c.drives.empty() ? "" : Md5Hex(c.drives[0].SerialNumber +
                                                         c.drives[0].ModelNumber +
                                                         c.drives[0].RevisionNumber);
    const std::string cpu = c.brand.empty() ? "" : Md5Hex(c.brand);
    // An old file longer than the new text keeps its tail (see below).
    const std::string written = CacheText(id, mac, hd, cpu);
    EXPECT_EQ(written, ReadWholeFile(Cache()).substr(0, written.size()));
    EXPECT_EQ(c.cache, ReadWholeFile(Backup()));
    // The history knows every id this machine was given.
    EXPECT_TRUE(Recorded(id));
  }
}

TEST_F(SeqIdTest, BackupKeepsTheCacheFromBeforeTheLastIdChange) {
  Machine({kMacA}, {kDriveA}, kBrandA);
  const std::string first = Run();
  const std::string withBrandA = ReadWholeFile(Cache());
  EXPECT_FALSE(Exists(Backup()));

  // A new processor rewrites the cache; the id, which does not hash the
  // brand here, stays. The first rewrite always leaves a backup.
  Machine({kMacA}, {kDriveA}, kBrandB);
  EXPECT_EQ(first, Run());
  EXPECT_EQ(withBrandA, ReadWholeFile(Backup()));
  EXPECT_EQ(1, CountLog("commondata globalmgrback copy and file not exists, szFilePathBack=" +
                        Backup()));

  // Rewritten again with the same id: the backup stays as it was.
  Machine({kMacA}, {kDriveA}, kBrandA);
  EXPECT_EQ(first, Run());
  EXPECT_EQ(withBrandA, ReadWholeFile(Backup()));
  EXPECT_EQ(1, CountLog("commondata check guid newguid=" + first + ", globalguid=" + first));

  // A new id: the backup takes the cache it replaces.
  const std::string beforeChange = ReadWholeFile(Cache());
  IniWrite(Backup(), "Profile", "marker", "old backup");
  Machine({kMacB}, {kDriveB}, kBrandA);
  const std::string second = Run();
  EXPECT_NE(first, second);
  EXPECT_EQ(beforeChange, ReadWholeFile(Backup()));
  EXPECT_EQ(1, CountLog("commondata globalmgrback copy, szFilePathBack=" + Backup()));

  // The change list took every hardware change, id or not.
  EXPECT_EQ("3", IniRead(ListFile(), "ListCount", "Count"));
  EXPECT_EQ(Md5Hex(kBrandA), IniRead(ListFile(), "GuidList_0", "Cpu"));
  EXPECT_EQ(Md5Hex(kBrandB), IniRead(ListFile(), "GuidList_1", "Cpu"));
  EXPECT_EQ(first, IniRead(ListFile(), "GuidList_2", "Guid"));
  EXPECT_EQ(second, IniRead(ListFile(), "CurGuid", "Guid"));
}

TEST_F(SeqIdTest, RewriteStartsAtTheBeginningAndKeepsTheTailOfALongerFile) {
  const std::string tail = "; written by an earlier version, longer than today's cache\r\n";
  const std::string old =
      CacheText(kCachedId, Md5Hex(kMacAText), Md5Hex(kDriveAText), Md5Hex(kBrandB)) + tail;
  WriteWholeFile(Cache(), old);
  Machine({kMacA}, {kDriveA}, kBrandA);
  const std::string id = Run();
  const std::string written =
      CacheText(id, Md5Hex(kMacAText), Md5Hex(kDriveAText), Md5Hex(kBrandA));
  ASSERT_EQ(old.size() - tail.size(), written.size());
  EXPECT_EQ(written + tail, ReadWholeFile(Cache()));
  EXPECT_EQ(1, CountLog("strFile=[Profile]"));
}

TEST_F(SeqIdTest, WithoutAProfileFolderTheCacheWriteFailsAndIsLogged) {
  Machine({kMacA}, {kDriveA}, kBrandA);
  RemoveDirectoryA(ProfileDir().c_str());
  EXPECT_EQ(Md5Hex(kMacAText + kDriveAText), Run());
  EXPECT_FALSE(Exists(Cache()));
  const std::string line = LogLineWith("Create cached file failed");
  EXPECT_NE(std::string::npos, line.find("ERROR [")) << line;
  EXPECT_NE(std::string::npos, line.find("err=3: ")) << line;  // path not found
}

TEST_F(SeqIdTest, MachineWithoutMacKeepsItsIdInGlobalDb) {
  KyGuidTest::MakeDirs(CommonIdDir());
  Machine({}, {kDriveA}, kBrandA);
  // No file, or one too short to hold an id: a new random id is stored.
  for (const char* before : {"", "15 bytes only.."}) {
    SCOPED_TRACE(before);
    DeleteFileA(Cache().c_str());
    if (*before) WriteWholeFile(CommonIdFile(), before);
    const std::string id = Run();
    EXPECT_NE(std::string(32, '0'), id);
    const std::string file = ReadWholeFile(CommonIdFile());
    ASSERT_EQ(16u, file.size());
    EXPECT_EQ(Hex(file), id);
    EXPECT_EQ(CacheText(id, "", Md5Hex(kDriveAText), Md5Hex(kBrandA)), ReadWholeFile(Cache()));
  }
  EXPECT_EQ(2, CountLog("GetIDFromFile failed, GenerateID and SetIDToFile"));

  // Stored ids are read back; bytes past the first 16 do not matter.
  const std::string stored = "\x10\x32\x54\x76\x98\xBA\xDC\xFE\x01\x23\x45\x67\x89\xAB\xCD\xEF";
  WriteWholeFile(CommonIdFile(), stored + "trailing bytes");
  DeleteFileA(Cache().c_str());
  EXPECT_EQ("1032547698badcfe0123456789abcdef", Run());
  EXPECT_EQ(1, CountLog("Get MAC failed, GetIDFromFile..."));
}

TEST_F(SeqIdTest, IdFileFallsBackToTheUserFolderAndMovesToTheCommonOneLater) {
  CSeqIDGenerator generator(Sources());
  EXPECT_EQ(CommonIdFile(), Narrow(generator.GetGlobalDbPath(false)));
  EXPECT_EQ(UserIdFile(), Narrow(generator.GetGlobalDbPath(true)));

  // No "Desktop" folder: the id goes to the user's file and is read back
  // from there, since it cannot move.
  const SeqId id = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
  ASSERT_TRUE(generator.SetIDToFile(id));
  EXPECT_FALSE(Exists(CommonIdFile()));
  SeqId read = {};
  ASSERT_TRUE(generator.GetIDFromFile(read));
  EXPECT_EQ(0, memcmp(id, read, sizeof(id)));

  // Once the common folder exists the user's file moves there; the call that
  // moves it finds nothing, the next one finds the moved id.
  KyGuidTest::MakeDirs(CommonIdDir());
  SeqId untouched = {};
  EXPECT_FALSE(generator.GetIDFromFile(untouched));
  EXPECT_FALSE(Exists(UserIdFile()));
  EXPECT_EQ(std::string(reinterpret_cast<const char*>(id), 16), ReadWholeFile(CommonIdFile()));
  ASSERT_TRUE(generator.GetIDFromFile(read));
  EXPECT_EQ(0, memcmp(id, read, sizeof(id)));
}

TEST_F(SeqIdTest, CachePathsAndTheirFailure) {
  CSeqIDGenerator generator(Sources());
  wchar_t common[KyMacID::kPathSize] = L"untouched";
  wchar_t local[KyMacID::kPathSize] = L"untouched";
  generator.GetCacheFilePath(common);
  generator.GetLocalCacheFilePath(local);
  EXPECT_EQ(Cache(), Narrow(common));
  EXPECT_EQ(LocalCache(), Narrow(local));

  m_folders->Fail();
  wcscpy_s(common, KyMacID::kPathSize, L"untouched");
  wcscpy_s(local, KyMacID::kPathSize, L"untouched");
  generator.GetCacheFilePath(common);
  generator.GetLocalCacheFilePath(local);
  EXPECT_STREQ(L"untouched", common);
  EXPECT_STREQ(L"untouched", local);
  EXPECT_EQ(2, CountLog("ERROR [kyguid_tests.exe] KyMacID::CSeqIDGenerator::Get"));
  EXPECT_EQ(2, CountLog("failed to get common appdata dir"));
  EXPECT_EQ(L"", generator.GetGlobalDbPath(false));
  EXPECT_EQ(L"", generator.GetGlobalDbPath(true));
}

TEST_F(SeqIdTest, PerUserCacheSeedsOnlyAMissingCommonOneAndOnlyWhenComplete) {
  const std::string complete =
      CacheText(kCachedId, Md5Hex(kMacAText), Md5Hex(kDriveAText), Md5Hex(kBrandA));
  const struct {
    const char* what;
    std::optional<std::string> common;
    std::optional<std::string> local;
    bool copied;
    const char* log;  // null: nothing logged
  } cases[] = {
      {"complete per-user cache", std::nullopt, complete, true, "CheckAndCopyGlobalMgr copy, "},
      {"no config4", std::nullopt, CacheText(kCachedId, Md5Hex(kMacAText), Md5Hex(kDriveAText), ""),
       false, "CheckAndCopyGlobalMgr not copy, "},
      {"31-digit config1", std::nullopt,
       CacheText(kCachedId.substr(1), Md5Hex(kMacAText), Md5Hex(kDriveAText), Md5Hex(kBrandA)),
       false, "CheckAndCopyGlobalMgr not copy, "},
      {"common cache present", std::string("[Profile]\r\n"), complete, false, nullptr},
      {"no per-user cache", std::nullopt, std::nullopt, false, nullptr},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    DeleteFileA(Cache().c_str());
    DeleteFileA(LocalCache().c_str());
    DeleteFileA(LogPath().c_str());
    if (c.common) WriteWholeFile(Cache(), *c.common);
    if (c.local) WriteWholeFile(LocalCache(), *c.local);
    CSeqIDGenerator(Sources()).CheckAndCopyGlobalMgr(Wide(Cache()).c_str(),
                                                     Wide(LocalCache()).c_str());
    if (c.copied) {
      EXPECT_EQ(*c.local, ReadWholeFile(Cache()));
    } else {
      EXPECT_EQ(c.common.value_or("(none)"), Exists(Cache()) ? ReadWholeFile(Cache()) : "(none)");
    }
    if (c.log) {
      EXPECT_EQ(1, CountLog(std::string(c.log) + "szCommonFilePath=" + Cache() +
                            ", szLocalFilePath=" + LocalCache()));
    } else {
      EXPECT_EQ(0, CountLog("CheckAndCopyGlobalMgr copy, ") +
                       CountLog("CheckAndCopyGlobalMgr not copy, "));
    }
  }

  // In a run, the seeded cache is then judged like the machine's own.
  DeleteFileA(Cache().c_str());
  WriteWholeFile(LocalCache(), complete);
  Machine({kMacA}, {kDriveA}, kBrandA);
  EXPECT_EQ(kCachedId, Run());
  EXPECT_EQ(complete, ReadWholeFile(Cache()));
}

TEST_F(SeqIdTest, ShippedSourcesReadTheMachinesAdapterAndDrive) {
  m_machine.AddAdapter("{NIC-A}", "Ethernet", std::vector<uint8_t>(kMacA, kMacA + 6)).pnpId =
      "PCI\\VEN_8086";
  m_machine.AddDrive(0).identify = SimulatedMachine::Identify("MODEL A", "SN-A", "REV1");
  KyMacID::SeqIdSources sources;
  sources.cpuBrand = [](std::string& brand) {
    brand = kBrandB;
    return true;
  };
  SeqId id = {};
  CSeqIDGenerator(std::move(sources)).GetSequenceIDImp(id);
  EXPECT_EQ(Md5Hex(kMacAText + kDriveAText), KyMacID::SeqIdToText(id));
  EXPECT_EQ(Md5Hex(kBrandB), IniRead(Cache(), "Profile", "config4"));
}

TEST_F(SeqIdTest, ProcessorBrandIsTheOneWindowsNamesKeptWithItsBlanks) {
  std::string brand = "stale";
  ASSERT_TRUE(KyMacID::GetCPUBrand(brand));
  EXPECT_LE(brand.size(), 48u);
  EXPECT_EQ(std::string::npos, brand.find('\0'));

  char name[256] = {};
  DWORD size = sizeof(name);
  ASSERT_EQ(ERROR_SUCCESS,
            RegGetValueA(HKEY_LOCAL_MACHINE, "HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0",
                         "ProcessorNameString", RRF_RT_REG_SZ, nullptr, name, &size));
  // Blanks included: some processors pad the brand, and the stored digests
  // were made with the padding.
  EXPECT_EQ(std::string(name), brand);
}

// The builder's side: after a saving update the legacy caches carry the
// current GUID, so older components read the same machine id.
class LegacyWriteBackTest : public SeqIdTest {
 protected:
  void SetUp() override {
    SeqIdTest::SetUp();
    KyGuidSim::SimDrive& drive = m_machine.AddDrive(0);
    drive.descriptor = SimulatedMachine::Descriptor("", "MODEL A", "REV1", "SN-A", 11, false);
    drive.identify = SimulatedMachine::Identify("MODEL A", "SN-A", "REV1");
    m_machine.AddAdapter("{NIC-A}", "Ethernet", std::vector<uint8_t>(kMacA, kMacA + 6)).pnpId =
        "PCI\\VEN_8086";
  }
  int Update() {
    m_builder = std::make_unique<KyGuid::CGuidBuilder>(true);
    const int result = m_builder->UpdateNewGuid();
    m_ancient = KyMacID::GetSequenceID(m_builder->NewInfo().Guid);
    return result;
  }
  std::unique_ptr<KyGuid::CGuidBuilder> m_builder;
  std::string m_ancient;
};

TEST_F(LegacyWriteBackTest, SavingUpdateWritesTheCurrentGuidIntoBothCaches) {
  IniWrite(LocalCache(), "Profile", "config1", "stale");
  ASSERT_EQ(KyGuid::kResultFirstBuilt, Update());
  const std::string guid = m_builder->NewInfo().Guid;
  const std::string sequenceId = Md5Hex(kMacAText + kDriveAText);
  EXPECT_EQ(sequenceId, m_ancient);
  ASSERT_NE(sequenceId, guid);

  EXPECT_EQ(guid, IniRead(Cache(), "Profile", "config1"));
  EXPECT_EQ(Md5Hex(kMacAText), IniRead(Cache(), "Profile", "config2"));
  EXPECT_EQ(Md5Hex(kDriveAText), IniRead(Cache(), "Profile", "config3"));
  EXPECT_EQ("1", IniRead(Cache(), "Profile", "config5"));
  EXPECT_EQ(ReadWholeFile(Cache()), ReadWholeFile(LocalCache()));

  // The next run finds the current GUID as its cached legacy id; a per-user
  // cache that already carries it is left alone.
  IniWrite(LocalCache(), "Profile", "marker", "mine");
  const std::string userBefore = ReadWholeFile(LocalCache());
  ASSERT_EQ(KyGuid::kResultKept, Update());
  EXPECT_EQ(guid, m_ancient);
  EXPECT_EQ(userBefore, ReadWholeFile(LocalCache()));

  // And a machine that lost Guid.db adopts it back as the ancient GUID.
  ASSERT_TRUE(DeleteFileA(GuidDbPath().c_str()));
  ASSERT_EQ(KyGuid::kResultAncientAdopted, Update());
  EXPECT_EQ(guid, m_builder->NewInfo().Guid);
  EXPECT_EQ(guid, IniRead(GuidDbPath(), "ActiveGuid", "Guid"));
}

TEST_F(LegacyWriteBackTest, WithoutASelectedGuidTheCacheKeepsTheSequenceId) {
  IniWrite(LocalCache(), "Profile", "config1", "stale");
  const std::string userBefore = ReadWholeFile(LocalCache());
  m_ancient = KyMacID::GetSequenceID("");
  EXPECT_EQ(Md5Hex(kMacAText + kDriveAText), m_ancient);
  EXPECT_EQ(m_ancient, IniRead(Cache(), "Profile", "config1"));
  EXPECT_EQ(userBefore, ReadWholeFile(LocalCache()));
}

}  // namespace
