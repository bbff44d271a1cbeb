// The legacy scheme's sequence id: when the cache in GlobalMgr.db is kept or
// recomputed, its backup, the change list in GuidList.db, and the Global.db id
// of a machine without a MAC (the builder's golden files show a first update).
#include "kyguidlib/td/seqidgenerator.h"

#include <map>

#include "common/md5.h"
#include "tests/testsupport.h"

namespace {

using KyGuidTest::ReadWholeFile;
using KyGuidTest::WriteWholeFile;
using KyGuidUtils::Md5Hex;
using KyMacID::DriveRecord;
using KyMacID::MACAddress;

const uint8_t kMacA[6] = {0x00, 0x11, 0x22, 0xAA, 0xBB, 0xCC};
const uint8_t kMacB[6] = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
const DriveRecord kDrvA{"SN-A", "MODEL A", "REV1"};
const DriveRecord kDrvB{"SN-B", "MODEL B", "REV2"};
const std::string kA = "001122aabbcc", kDA = "SN-AMODEL AREV1";  // the texts hashed
const std::string kB = "001a2b3c4d5e", kDB = "SN-BMODEL BREV2";
// Leading blanks as some processors report them: they are part of the hash.
const std::string kCpuA = "       Intel(R) Xeon(R) CPU E5-2680 v4 @ 2.40GHz";
const std::string kCpuB = "AMD Ryzen 7 5800X 8-Core Processor";
const std::string kCachedId = "0123456789abcdef0123456789abcdef";

// The cache exactly as the generator writes it.
std::string CacheText(const std::string& id, const std::string& mac, const std::string& hd,
                      const std::string& cpu, bool withConfig5 = true) {
  return "[Profile]\r\nconfig1=" + id + "\r\nconfig2=" + mac + "\r\nconfig3=" + hd +
         "\r\nconfig4=" + cpu + "\r\n" + (withConfig5 ? "config5=1\r\n" : "");
}

class SeqIdTest : public KyGuidTest::IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    KyGuidTest::MakeDirs(UserDir());
    KyGuidTest::MakeDirs(ProfileDir());
  }
  std::string Cache() const { return ProfileDir() + "\\GlobalMgr.db"; }
  std::string Backup() const { return ProfileDir() + "\\GlobalMgrBack.db"; }
  std::string UserDir() const { return m_folders->UserAppData() + "\\Corvane\\Greibraske"; }
  std::string IdDir() const { return m_folders->CommonAppData() + "\\Corvane\\Desktop"; }

  // The first MAC and drive are the chosen ones; nothing given: not readable.
  static KyMacID::SeqIdSources Sources(std::vector<const uint8_t*> macs,
                                       std::vector<DriveRecord> drives, std::string cpu) {
    KyMacID::SeqIdSources sources;
    sources.mac = [macs](MACAddress& mac, std::vector<MACAddress>& list) {
      list.assign(macs.begin(), macs.end());
      if (!macs.empty()) mac = MACAddress(macs[0]);
      return !macs.empty();
    };
    sources.drive = [drives](std::string& serial, std::string& model, std::string& revision,
                             std::vector<DriveRecord>& list) {
      if (!(list = drives).empty()) {
        serial = drives[0].SerialNumber, model = drives[0].ModelNumber;
        revision = drives[0].RevisionNumber;
      }
      return !drives.empty();
    };
    sources.cpuBrand = [cpu](std::string& brand) { return !(brand = cpu).empty(); };
    return sources;
  }
  std::string Run(std::vector<const uint8_t*> macs, std::vector<DriveRecord> drives,
                  std::string cpu) {
    KyMacID::SeqId id = {};
    KyMacID::CSeqIDGenerator(Sources(macs, drives, cpu)).GetSequenceIDImp(id);
    return KyMacID::SeqIdToText(id);
  }
};

TEST_F(SeqIdTest, CacheIsKeptOrRecomputedAsTheHardwareChanged) {
  const std::string markers = m_temp->Path() + "\\stuck.txt";
  SetEnvironmentVariableA("KYSTUCK_FILE", markers.c_str());
  const std::string m = Md5Hex(kA), d = Md5Hex(kDA), c = Md5Hex(kCpuA);
  const std::string cur = CacheText(kCachedId, m, d, c), rebuilt = Md5Hex(kA + kDA);
  auto now = [](auto mac, auto hd) { return CacheText(kCachedId, mac, hd, ""); };
  auto old = [](auto mac, auto hd) { return CacheText(kCachedId, mac, hd, "", false); };
  std::string upper = cur;
  for (char& ch : upper) ch = static_cast<char>(toupper(static_cast<unsigned char>(ch)));
  const struct {
    const char* what;
    std::string cache;  // GlobalMgr.db before the run
    std::vector<const uint8_t*> macs;
    std::vector<DriveRecord> drives;
    std::string cpu;
    std::string id;  // kCachedId: the cache is kept as it was
  } cases[] = {
      {"same hardware, per-user cache only", cur, {kMacA}, {kDrvA}, kCpuA, kCachedId},
      {"digests in upper case", upper, {kMacA}, {kDrvA}, kCpuA, kCachedId},
      {"another processor", cur, {kMacA}, {kDrvA}, kCpuB, rebuilt},
      {"another adapter alone", cur, {kMacB}, {kDrvA}, kCpuA, kCachedId},
      {"another drive alone", cur, {kMacA}, {kDrvB}, kCpuA, kCachedId},
      {"both changed, both old present", cur, {kMacB, kMacA}, {kDrvB, kDrvA}, kCpuA, kCachedId},
      {"both changed, old adapter gone", cur, {kMacB}, {kDrvB, kDrvA}, kCpuA, Md5Hex(kB + kDB)},
      {"both changed, old drive gone", cur, {kMacB, kMacA}, {kDrvB}, kCpuA, Md5Hex(kB + kDB)},
      {"31-digit id", CacheText(kCachedId.substr(1), m, d, c), {kMacA}, {kDrvA}, kCpuA, rebuilt},
      // More hardware readable than cached: a drive is no reason, a MAC is.
      {"MAC-only cache, drive now readable", now(m, ""), {kMacA}, {kDrvA}, "", kCachedId},
      {"drive-only cache, MAC now readable", now("", d), {kMacA}, {kDrvA}, "", rebuilt},
      // A cache from before the processor joined the scheme, on a machine
      // missing one identity, is rebuilt with the brand hashed in.
      {"old MAC-only cache, no drive", old(m, ""), {kMacA}, {}, kCpuA, Md5Hex(kA + kCpuA)},
      {"old MAC-only cache, all three readable", old(m, ""), {kMacA}, {kDrvA}, kCpuA, rebuilt},
      {"new MAC-only cache, no drive", now(m, ""), {kMacA}, {}, kCpuA, Md5Hex(kA)},
      {"old full cache, no drive", old(m, d), {kMacA}, {}, kCpuA, Md5Hex(kA)},
  };
  for (const auto& row : cases) {  // the first seeds the missing common cache from the user's
    WriteWholeFile(&row == cases ? UserDir() + "\\GlobalMgr.db" : Cache(), row.cache);
    EXPECT_EQ(row.id, Run(row.macs, row.drives, row.cpu)) << row.what;
    EXPECT_EQ(row.id == kCachedId, row.cache == ReadWholeFile(Cache())) << row.what;
    const std::string info = ReadWholeFile(ProfileDir() + "\\GuidInfo.db");  // knows every id
    EXPECT_TRUE(row.id == kCachedId || info.find(row.id) != info.npos) << row.what;
  }
  // Support tools parse this line as it is: one placeholder, the MAC digest.
  EXPECT_EQ(1,
            CountLog("commondata IsFoundMac tFileCpuidMd5=" + m + ", IsFoundHd tFilePhyDriverMd5"));
  // The stuck monitor sees every method of the history files enter and leave
  // under the name support knows it by.
  SetEnvironmentVariableA("KYSTUCK_FILE", nullptr);
  std::map<std::string, int> inside, expected;  // by name: entries less exits
  for (const std::string& line : KyGuidTest::ReadLines(markers)) {
    const bool enter = line.rfind("enter ", 0) == 0, leave = line.rfind("leave ", 0) == 0;
    inside[line.substr(6)] += enter ? 1 : leave ? -1 : 100;  // any other line fails
  }
  for (const char* name :
       {"SetPath", "ResetGuidInfo", "ResetHddCpu", "RecordMacList", "RecordHDList", "RecordCpu",
        "RecordGuidList", "SaveGuidList", "SaveMacList", "SaveHDList", "SaveCpu",
        "SaveToFileHWList", "IsFoundMac", "IsFoundHd", "CreateGuidInfoFile"}) {
    expected[std::string("CGuidInfo::") + name] = 0;
  }
  for (const char* name :
       {"SetPath", "IsFileOk", "CreateGuidListFile", "ResetGuidList", "SetOldGuid", "SetCurGuid",
        "SaveToGuidListFile", "SetGuidChangeFlage", "ReadFileCurGuid"}) {
    expected[std::string("CGuidList::") + name] = 0;
  }
  EXPECT_EQ(expected, inside);
}

// The cache is rewritten from its start without truncation, as older
// components did; the backup keeps the cache from before the last id change;
// GuidList.db starts from the cache it found and records every change.
TEST_F(SeqIdTest, BackupAndChangeListFollowTheHardwareChanges) {
  const std::string m = Md5Hex(kA), d = Md5Hex(kDA), cA = Md5Hex(kCpuA), cB = Md5Hex(kCpuB);
  const std::string tail = "; from an earlier version, its readers never get here\r\n";
  const std::string found = CacheText(kCachedId, Md5Hex(kB), Md5Hex(kDB), cB) + tail;
  WriteWholeFile(Cache(), found);
  const std::string first = Run({kMacA}, {kDrvA}, kCpuA);
  EXPECT_EQ(CacheText(first, m, d, cA) + tail, ReadWholeFile(Cache()));
  EXPECT_EQ(found, ReadWholeFile(Backup()));         // the first rewrite always leaves one
  for (const std::string* cpu : {&kCpuB, &kCpuA}) {  // rewritten, same id: the backup stays
    m_clock.now += 100;
    EXPECT_EQ(first, Run({kMacA}, {kDrvA}, *cpu));
  }
  EXPECT_EQ(found, ReadWholeFile(Backup()));
  const std::string beforeChange = ReadWholeFile(Cache());
  m_clock.now += 100;
  const std::string second = Run({kMacB}, {kDrvB}, kCpuA);
  EXPECT_EQ(beforeChange, ReadWholeFile(Backup()));
  EXPECT_EQ(1, CountLog("commondata globalmgrback copy, szFilePathBack=" + Backup()));

  auto record = [](const std::string& section, const std::string& id, const std::string& mac,
                   const std::string& hd, const std::string& cpu, int64_t time) {
    return "[" + section + "]\r\nGuid=" + id + "\r\nMac=" + mac + "\r\nHd=" + hd +
           "\r\nCpu=" + cpu + "\r\nChangeType=0\r\nTime=" + std::to_string(time) + "\r\n";
  };
  const int64_t t = KyGuidTest::kTestTime;
  EXPECT_EQ(record("CurGuid", second, Md5Hex(kB), Md5Hex(kDB), cA, t + 300) +
                "[ListCount]\r\nChangeFlag=1\r\nCount=4\r\n" +
                record("GuidList_0", kCachedId, Md5Hex(kB), Md5Hex(kDB), cB, t) +
                record("GuidList_1", first, m, d, cA, t) +
                record("GuidList_2", first, m, d, cB, t + 100) +
                record("GuidList_3", first, m, d, cA, t + 200),
            ReadWholeFile(ProfileDir() + "\\GuidList.db"));
}

// No MAC: a random id kept in Global.db, per user until the common folder
// exists. The call that moves it there finds nothing, the next one finds it.
TEST_F(SeqIdTest, MachineWithoutMacKeepsARandomIdInGlobalDb) {
  const std::string id = Run({}, {kDrvA}, kCpuA);
  const std::string bytes = ReadWholeFile(UserDir() + "\\Global.db");
  ASSERT_EQ(16u, bytes.size());
  EXPECT_EQ(KyMacID::SeqIdToText(*reinterpret_cast<const KyMacID::SeqId*>(bytes.data())), id);
  EXPECT_EQ(CacheText(id, "", Md5Hex(kDA), Md5Hex(kCpuA)), ReadWholeFile(Cache()));
  EXPECT_EQ("", ReadWholeFile(ProfileDir() + "\\GuidList.db"));  // nothing worth keeping

  KyMacID::CSeqIDGenerator generator(Sources({}, {}, ""));
  KyMacID::SeqId read = {};
  KyGuidTest::MakeDirs(IdDir());
  EXPECT_FALSE(generator.GetIDFromFile(read));
  EXPECT_EQ("", ReadWholeFile(UserDir() + "\\Global.db"));
  EXPECT_EQ(bytes, ReadWholeFile(IdDir() + "\\Global.db"));
  WriteWholeFile(IdDir() + "\\Global.db", "15 bytes only..");
  EXPECT_FALSE(generator.GetIDFromFile(read));  // too short to hold an id
  // Bytes past the first 16 do not matter.
  WriteWholeFile(IdDir() + "\\Global.db",
                 "\x10\x32\x54\x76\x98\xBA\xDC\xFE\x01\x23\x45\x67\x89\xAB\xCD\xEF++");
  DeleteFileA(Cache().c_str());
  EXPECT_EQ("1032547698badcfe0123456789abcdef", Run({}, {kDrvA}, kCpuA));
}

// Blanks included: some processors pad the brand, and the stored digests
// were made with the padding.
TEST_F(SeqIdTest, ProcessorBrandIsTheOneWindowsNamesKeptWithItsBlanks) {
  std::string brand = "stale";
  ASSERT_TRUE(KyMacID::GetCPUBrand(brand));
  char name[256] = {};
  DWORD size = sizeof(name);
  ASSERT_EQ(ERROR_SUCCESS,
            RegGetValueA(HKEY_LOCAL_MACHINE, "HARDWARE\\DESCRIPTION\\System\\CentralProcessor\\0",
                         "ProcessorNameString", RRF_RT_REG_SZ, nullptr, name, &size));
  EXPECT_EQ(std::string(name), brand);
}

}  // namespace
