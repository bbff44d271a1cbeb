// GuidInfo.db and GuidList.db, the history files of the earlier identifier
// scheme, written into each test's own folder.
#include <ctime>
#include <functional>
#include <set>

#include "common/md5.h"
#include "kyguidlib/td/guidinfo.h"
#include "kyguidlib/td/guidlist.h"
#include "tests/testsupport.h"

namespace {

using KyGuidTest::IniRead;
using KyGuidTest::IniWrite;
using KyGuidUtils::Md5Hex;
using KyMacID::CGuidInfo;
using KyMacID::CGuidList;
using KyMacID::DriveRecord;
using KyMacID::MACAddress;

const uint8_t kMacA[6] = {0x00, 0x11, 0x22, 0xAA, 0xBB, 0xCC};
const uint8_t kMacB[6] = {0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E};
const DriveRecord kDrive1{"SN1", "MODEL1", "REV1"};
const DriveRecord kDrive2{"SN2", "MODEL2", "REV2"};
const DriveRecord kDrive3{"SN3", "MODEL3", "REV3"};
const char kCpu[] = "  Intel(R) Core(TM) i7 CPU";

std::wstring Wide(const std::string& text) { return std::wstring(text.begin(), text.end()); }

bool FileExists(const std::string& path) {
  return GetFileAttributesA(path.c_str()) != INVALID_FILE_ATTRIBUTES;
}

// "Count" elements of a GuidInfo.db section, in key order.
std::vector<std::string> Elements(const std::string& file, const char* section,
                                  const char* prefix) {
  std::vector<std::string> elements;
  const int count = atoi(IniRead(file, section, "Count").c_str());
  for (int i = 0; i < count; ++i) {
    elements.push_back(IniRead(file, section, (prefix + std::to_string(i)).c_str()));
  }
  return elements;
}

std::vector<std::string> SortedDigests(const std::vector<std::string>& texts) {
  std::set<std::string> digests;
  for (const std::string& text : texts) digests.insert(Md5Hex(text));
  return std::vector<std::string>(digests.begin(), digests.end());
}

long long Now() { return KyGuidTest::kTestTime; }

class HistoryFilesTest : public KyGuidTest::IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    m_folder = m_temp->Path() + "\\legacy";
    KyGuidTest::MakeDirs(m_folder);
  }
  std::string GlobalMgr() const { return m_folder + "\\GlobalMgr.db"; }
  std::string InfoFile() const { return m_folder + "\\GuidInfo.db"; }
  std::string ListFile() const { return m_folder + "\\GuidList.db"; }
  void SetPath(CGuidList& list) { list.SetPath(Wide(GlobalMgr()).c_str()); }
  void WriteGlobalMgr(const char* guid, const char* mac, const char* hd, const char* cpu) {
    IniWrite(GlobalMgr(), "Profile", "config1", guid);
    IniWrite(GlobalMgr(), "Profile", "config2", mac);
    IniWrite(GlobalMgr(), "Profile", "config3", hd);
    IniWrite(GlobalMgr(), "Profile", "config4", cpu);
  }

  std::string m_folder;
};

TEST_F(HistoryFilesTest, GuidDigestsCombineEachMacWithTheDrivesAndTheProcessor) {
  const std::string a = "001122aabbcc";
  const std::string b = "001a2b3c4d5e";
  const std::string cpu = kCpu;
  const struct {
    const char* what;
    bool useDrives;
    bool useCpu;
    std::vector<MACAddress> macs;
    std::vector<DriveRecord> drives;
    size_t count;
    std::vector<std::string> texts;  // hashed into the expected digests; empty: count only
  } cases[] = {
      {"two MACs, three drives", true, false, {MACAddress(kMacA), MACAddress(kMacB)},
       {kDrive1, kDrive2, kDrive3}, 6, {}},
      {"drives used but none read", true, true, {MACAddress(kMacA), MACAddress(kMacB)}, {}, 0, {}},
      {"no MAC", true, true, {}, {kDrive1}, 0, {}},
      {"MACs alone", false, false, {MACAddress(kMacA), MACAddress(kMacB)}, {kDrive1}, 2, {a, b}},
      {"MACs and processor", false, true, {MACAddress(kMacA), MACAddress(kMacB)}, {kDrive1}, 2,
       {a + cpu, b + cpu}},
      {"MAC, drive and processor", true, true, {MACAddress(kMacB)}, {kDrive2}, 1,
       {b + "SN2MODEL2REV2" + cpu}},
      {"MAC and two drives", true, false, {MACAddress(kMacA)}, {kDrive1, kDrive3}, 2,
       {a + "SN1MODEL1REV1", a + "SN3MODEL3REV3"}},
  };
  int n = 0;
  for (const auto& c : cases) {
    const std::string folder = m_folder + "\\" + std::to_string(n++);
    KyGuidTest::MakeDirs(folder);
    CGuidInfo info;
    info.SetPath(Wide(folder + "\\GlobalMgr.db").c_str());
    info.RecordMacList(c.macs);
    info.RecordHDList(c.drives);
    info.RecordCpu(kCpu);
    info.ResetHddCpu(c.useDrives, c.useCpu);
    info.SaveToFileHWList();
    const std::vector<std::string> guids =
        Elements(folder + "\\GuidInfo.db", "GuidList", "Guid_");
    EXPECT_EQ(c.count, guids.size()) << c.what;
    if (!c.texts.empty()) {
      EXPECT_EQ(SortedDigests(c.texts), guids) << c.what;
    }
  }
}

TEST_F(HistoryFilesTest, GuidInfoHoldsFourSortedDigestSectionsBesideTheGivenFile) {
  CGuidInfo info;
  EXPECT_EQ(1, info.SetPath(Wide(GlobalMgr()).c_str()));
  EXPECT_EQ(InfoFile(), info.FilePath());
  EXPECT_EQ(Wide(InfoFile()), info.FilePathW());
  info.RecordMacList({MACAddress(kMacB), MACAddress(kMacA), MACAddress(kMacB)});
  info.RecordHDList({kDrive2, kDrive1});
  info.RecordCpu(kCpu);
  info.SaveToFileHWList();

  EXPECT_EQ(SortedDigests({"001122aabbcc", "001a2b3c4d5e"}), Elements(InfoFile(), "MacList", "Mac_"));
  EXPECT_EQ(SortedDigests({"SN1MODEL1REV1", "SN2MODEL2REV2"}),
            Elements(InfoFile(), "HdList", "Hd_"));
  EXPECT_EQ(SortedDigests({kCpu}), Elements(InfoFile(), "CpuList", "Cpu_"));
  EXPECT_EQ("2", IniRead(InfoFile(), "GuidList", "Count"));
}

TEST_F(HistoryFilesTest, ResetForgetsTheHardwareButKeepsEveryGuidDigest) {
  CGuidInfo info;
  info.SetPath(Wide(GlobalMgr()).c_str());
  info.RecordMacList({MACAddress(kMacA)});
  info.RecordHDList({kDrive1});
  info.SaveToFileHWList();
  EXPECT_TRUE(info.IsFoundMac(Md5Hex("001122aabbcc")));
  EXPECT_TRUE(info.IsFoundHd(Md5Hex("SN1MODEL1REV1")));
  EXPECT_FALSE(info.IsFoundMac(Md5Hex("001a2b3c4d5e")));
  EXPECT_FALSE(info.IsFoundHd(Md5Hex("001122aabbcc")));  // each list is its own

  info.ResetGuidInfo();
  EXPECT_FALSE(info.IsFoundMac(Md5Hex("001122aabbcc")));
  EXPECT_FALSE(info.IsFoundHd(Md5Hex("SN1MODEL1REV1")));
  info.RecordMacList({MACAddress(kMacB)});
  info.SaveToFileHWList();

  EXPECT_EQ(SortedDigests({"001122aabbcc", "001a2b3c4d5e"}),
            Elements(InfoFile(), "GuidList", "Guid_"));
  EXPECT_EQ(SortedDigests({"001a2b3c4d5e"}), Elements(InfoFile(), "MacList", "Mac_"));
  EXPECT_EQ("0", IniRead(InfoFile(), "HdList", "Count"));
  EXPECT_EQ("0", IniRead(InfoFile(), "CpuList", "Count"));
}

TEST_F(HistoryFilesTest, GuidListIsWrittenOnlyWithAGuidAMacAndACpu) {
  const struct {
    const char* guid;
    const char* mac;
    const char* hd;
    const char* cpu;
    bool written;
  } cases[] = {
      {"", "m", "h", "c", false},
      {"g", "", "h", "c", false},
      {"g", "m", "h", "", false},
      {"g", "m", "", "c", true},
  };
  for (const auto& c : cases) {
    DeleteFileA(ListFile().c_str());
    CGuidList list;
    SetPath(list);
    list.SetOldGuid("old", "m0", "h0", "c0");
    list.SetCurGuid(c.guid, c.mac, c.hd, c.cpu, 2);
    list.SaveToGuidListFile();
    EXPECT_EQ(c.written, FileExists(ListFile()))
        << c.guid << "|" << c.mac << "|" << c.hd << "|" << c.cpu;
  }
  EXPECT_EQ("", IniRead(ListFile(), "CurGuid", "Hd"));
  EXPECT_EQ("2", IniRead(ListFile(), "CurGuid", "ChangeType"));
}

TEST_F(HistoryFilesTest, CreateSeedsTheCurrentRecordFromGlobalMgr) {
  WriteGlobalMgr("0123456789abcdef0123456789abcdefXYZ", "mac-hash", "", "cpu-hash");
  CGuidList list;
  EXPECT_EQ(1, list.SetPath(Wide(GlobalMgr()).c_str()));
  EXPECT_EQ(ListFile(), list.FilePath());
  EXPECT_FALSE(list.IsFileOk());
  const long long before = Now();
  list.CreateGuidListFile();
  const long long after = Now();

  EXPECT_TRUE(list.IsFileOk());
  EXPECT_EQ("0123456789abcdef0123456789abcdef", IniRead(ListFile(), "CurGuid", "Guid"));
  EXPECT_EQ("mac-hash", IniRead(ListFile(), "CurGuid", "Mac"));
  EXPECT_EQ("", IniRead(ListFile(), "CurGuid", "Hd"));
  EXPECT_EQ("cpu-hash", IniRead(ListFile(), "CurGuid", "Cpu"));
  EXPECT_EQ("0", IniRead(ListFile(), "CurGuid", "ChangeType"));
  const long long time = atoll(IniRead(ListFile(), "CurGuid", "Time").c_str());
  EXPECT_GE(time, before);
  EXPECT_LE(time, after);
  EXPECT_EQ("1", IniRead(ListFile(), "ListCount", "ChangeFlag"));
  // No old record yet: no history and no count.
  EXPECT_EQ("", IniRead(ListFile(), "ListCount", "Count"));
  EXPECT_EQ("", IniRead(ListFile(), "GuidList_0", "Guid"));
}

TEST_F(HistoryFilesTest, CreateLeavesAFileWithARecordAlone) {
  WriteGlobalMgr("11111111111111111111111111111111", "m", "h", "c");
  KyGuidTest::WriteWholeFile(ListFile(), "[CurGuid]\r\nGuid=kept\r\n");
  CGuidList list;
  SetPath(list);
  list.CreateGuidListFile();
  EXPECT_EQ("[CurGuid]\r\nGuid=kept\r\n", KyGuidTest::ReadWholeFile(ListFile()));

  // A file without a current Guid counts as missing.
  KyGuidTest::WriteWholeFile(ListFile(), "[CurGuid]\r\nMac=stale\r\n");
  list.CreateGuidListFile();
  EXPECT_EQ("11111111111111111111111111111111", IniRead(ListFile(), "CurGuid", "Guid"));
  EXPECT_EQ("m", IniRead(ListFile(), "CurGuid", "Mac"));
}

TEST_F(HistoryFilesTest, EachReplacedRecordBecomesTheNextHistorySection) {
  WriteGlobalMgr("guid-1", "mac-1", "hd-1", "cpu-1");
  CGuidList list;
  SetPath(list);
  list.CreateGuidListFile();
  // The old record takes its change type and time from the file.
  IniWrite(ListFile(), "CurGuid", "Time", "1600000000");
  IniWrite(ListFile(), "CurGuid", "ChangeType", "3");

  const char* const next[][4] = {{"guid-2", "mac-2", "hd-2", "cpu-2"},
                                 {"guid-3", "mac-3", "", "cpu-3"}};
  for (int round = 0; round < 2; ++round) {
    KyMacID::GuidListRecord held = list.ReadFileCurGuid();
    list.ResetGuidList();
    SetPath(list);
    list.SetOldGuid(held.Guid, held.Mac, held.Hd, held.Cpu);
    list.SetCurGuid(next[round][0], next[round][1], next[round][2], next[round][3], 10 + round);
    list.SaveToGuidListFile();
    EXPECT_EQ(std::to_string(round + 1), IniRead(ListFile(), "ListCount", "Count"));
  }

  const struct {
    const char* section;
    const char* values[6];  // Guid, Mac, Hd, Cpu, ChangeType, Time ("" not checked)
  } expected[] = {
      {"GuidList_0", {"guid-1", "mac-1", "hd-1", "cpu-1", "3", "1600000000"}},
      {"GuidList_1", {"guid-2", "mac-2", "hd-2", "cpu-2", "10", ""}},
      {"CurGuid", {"guid-3", "mac-3", "", "cpu-3", "11", ""}},
  };
  const char* keys[] = {"Guid", "Mac", "Hd", "Cpu", "ChangeType", "Time"};
  for (const auto& e : expected) {
    for (int k = 0; k < 6; ++k) {
      if (k == 5 && !*e.values[k]) {
        EXPECT_GE(atoll(IniRead(ListFile(), e.section, "Time").c_str()), Now() - 60);
        continue;
      }
      EXPECT_EQ(e.values[k], IniRead(ListFile(), e.section, keys[k])) << e.section << " " << keys[k];
    }
  }
  EXPECT_EQ("", IniRead(ListFile(), "GuidList_2", "Guid"));
}

TEST_F(HistoryFilesTest, AnOldRecordWithoutAStoredTimeIsDatedNow) {
  CGuidList list;
  SetPath(list);
  const long long before = Now();
  list.SetOldGuid("g", "m", "h", "c");
  const long long time = atoll(list.OldRecord().Time.c_str());
  EXPECT_GE(time, before);
  EXPECT_LE(time, Now());
  EXPECT_EQ(0, list.OldRecord().ChangeType);
  EXPECT_FALSE(FileExists(ListFile()));
}

TEST_F(HistoryFilesTest, EveryPublicMethodIsMarkedForTheStuckMonitor) {
  const std::string markers = m_temp->Path() + "\\stuck.txt";
  SetEnvironmentVariableA("KYSTUCK_FILE", markers.c_str());
  WriteGlobalMgr("g", "m", "h", "c");
  CGuidInfo info;
  CGuidList list;
  const std::wstring path = Wide(GlobalMgr());
  const struct {
    const char* name;
    std::function<void()> call;
  } methods[] = {
      {"CGuidInfo::SetPath", [&] { info.SetPath(path.c_str()); }},
      {"CGuidInfo::ResetGuidInfo", [&] { info.ResetGuidInfo(); }},
      {"CGuidInfo::ResetHddCpu", [&] { info.ResetHddCpu(true, true); }},
      {"CGuidInfo::RecordMacList", [&] { info.RecordMacList({MACAddress(kMacA)}); }},
      {"CGuidInfo::RecordHDList", [&] { info.RecordHDList({kDrive1}); }},
      {"CGuidInfo::RecordCpu", [&] { info.RecordCpu(kCpu); }},
      {"CGuidInfo::RecordGuidList", [&] { info.RecordGuidList(); }},
      {"CGuidInfo::SaveGuidList", [&] { info.SaveGuidList(); }},
      {"CGuidInfo::SaveMacList", [&] { info.SaveMacList(); }},
      {"CGuidInfo::SaveHDList", [&] { info.SaveHDList(); }},
      {"CGuidInfo::SaveCpu", [&] { info.SaveCpu(); }},
      {"CGuidInfo::SaveToFileHWList", [&] { info.SaveToFileHWList(); }},
      {"CGuidInfo::IsFoundMac", [&] { info.IsFoundMac("x"); }},
      {"CGuidInfo::IsFoundHd", [&] { info.IsFoundHd("x"); }},
      {"CGuidList::SetPath", [&] { list.SetPath(path.c_str()); }},
      {"CGuidList::CreateGuidListFile", [&] { list.CreateGuidListFile(); }},
      {"CGuidList::ResetGuidList", [&] { list.ResetGuidList(); }},
      {"CGuidList::SetOldGuid", [&] { list.SetOldGuid("g", "m", "h", "c"); }},
      {"CGuidList::SetCurGuid", [&] { list.SetCurGuid("g2", "m2", "h2", "c2", 1); }},
      {"CGuidList::SaveToGuidListFile", [&] { list.SaveToGuidListFile(); }},
      {"CGuidList::SetGuidChangeFlage", [&] { list.SetGuidChangeFlage(); }},
      {"CGuidList::IsFileOk", [&] { list.IsFileOk(); }},
      {"CGuidList::ReadFileCurGuid", [&] { list.ReadFileCurGuid(); }},
  };
  for (const auto& method : methods) {
    DeleteFileA(markers.c_str());
    method.call();
    const std::string lines = KyGuidTest::ReadWholeFile(markers);
    const std::string enter = std::string("enter ") + method.name + "\n";
    const std::string leave = std::string("leave ") + method.name + "\n";
    EXPECT_EQ(0u, lines.find(enter)) << lines;
    ASSERT_GE(lines.size(), leave.size()) << method.name;
    EXPECT_EQ(lines.size() - leave.size(), lines.rfind(leave)) << lines;
  }
  SetEnvironmentVariableA("KYSTUCK_FILE", nullptr);

  // Markers only: the history files log nothing of their own.
  for (const std::string& line : LogLines()) {
    EXPECT_NE(std::string::npos, line.find("] MACAddress::")) << line;
  }
}

}  // namespace
