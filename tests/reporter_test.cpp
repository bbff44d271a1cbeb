// The reporter on simulated machines: the fields of each kind of run, the
// report cache GuidReport.dat with its ring and its age limit, and delivery
// through the substitute reporting module beside this executable.
#include <windows.h>

#include <string>
#include <vector>

#include "common/md5.h"
#include "common/strutil.h"
#include "common/modules.h"
#include "kyguidlib/cguidbuilder.h"
#include "kyguidlib/cguidprofile.h"
#include "kyguidlib/cguidreporter.h"
#include "kyguidlib/creportmanager.h"
#include "kyguidlib/guidpaths.h"
#include "tests/testsupport.h"

namespace {

using KyGuid::CGuidBuilder;
using KyGuid::CGuidReporter;
using KyGuid::GuidRecord;
using KyGuid::ReportFields;
using KyGuidSim::SimulatedMachine;
using KyGuidTest::IniRead;
using KyGuidTest::IniWrite;
using KyReportMgr::CReportManager;

constexpr char kDiskKeyA[] = "PID:{ST1000DM010}SN:{Z9A1B2C3}";
constexpr char kAdapterKeyA[] = "Mac:{001122aabbcc}";
constexpr char kAncient[] = "0123456789abcdef0123456789abcdef";
constexpr char kOldGuid[] = "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa";
constexpr int64_t kStart = KyGuidTest::kTestTime;

std::vector<std::string> Keys(const ReportFields& report) {
  std::vector<std::string> keys;
  for (const auto& field : report) keys.push_back(field.first);
  return keys;
}

std::string Value(const ReportFields& report, const std::string& key) {
  for (const auto& field : report) {
    if (field.first == key) return field.second;
  }
  return "(missing)";
}

class ReporterTest : public KyGuidTest::IsolatedTest {
 protected:
  void TearDown() override {
    SetEnvironmentVariableA("KYREPORT_FAULT", nullptr);
    IsolatedTest::TearDown();
  }

  // One system disk and one wired adapter.
  void MachineA() {
    m_machine.AddDrive(0).descriptor =
        SimulatedMachine::Descriptor("", "ST1000DM010", "CC43", "Z9A1B2C3", 11, false);
    m_machine.AddVolume(L'C').extents = SimulatedMachine::Extents({{0, 1000}});
    m_machine.AddAdapter("{NIC-A}", "Ethernet", {0x00, 0x11, 0x22, 0xAA, 0xBB, 0xCC}).pnpId =
        "PCI\\VEN_8086";
  }
  void StoreActive(int createIndex, int version) {
    GuidRecord record;
    record.Guid = kOldGuid;
    record.DiskKey = "PID:{Gone}SN:{G1}";
    record.AdapterKey = "Mac:{999999999999}";
    record.AdapterDetail = "an adapter long gone";
    record.CreateIndex = createIndex;
    record.CreateTime = 1600000000;
    record.Score = 77;
    record.Version = version;
    KyGuid::CGuidProfile().SaveGuidInfo(KyGuid::CGuidProfile::kActiveSection, record, nullptr);
  }
  // An earlier scheme's GUID that the adapter's MAC reproduces.
  void StoreAncient() {
    KyGuidTest::MakeDirs(ProfileDir());
    IniWrite(ProfileDir() + "\\GlobalMgr.db", "Profile", "config1", kAncient);
    IniWrite(ProfileDir() + "\\GlobalMgr.db", "Profile", "config2",
             KyGuidUtils::Md5Hex("001122aabbcc").c_str());
  }
  int Run() {
    m_builder = std::make_unique<CGuidBuilder>(true);
    return m_builder->UpdateNewGuid();
  }
  ReportFields Make(int result) {
    ReportFields report;
    CGuidReporter().MakeReport(result, *m_builder, "", report);
    return report;
  }
  std::string Active(const char* key) { return IniRead(GuidDbPath(), "ActiveGuid", key); }
  std::string CachePath() const { return ProfileDir() + "\\GuidReport.dat"; }

  std::unique_ptr<CGuidBuilder> m_builder = std::make_unique<CGuidBuilder>(true);
};

// --- The fields ---------------------------------------------------------------

class ReportFieldsTest : public ReporterTest, public ::testing::WithParamInterface<int> {};

TEST_P(ReportFieldsTest, EveryFieldInTableOrderWithOrgFieldsOnlyForAdoptionsAndReplacements) {
  const int result = GetParam();
  if (result != KyGuid::kResultBuildFailed) MachineA();
  if (result == KyGuid::kResultKept) {
    ASSERT_EQ(KyGuid::kResultFirstBuilt, Run());
  }
  if (result == KyGuid::kResultAncientAdopted) StoreAncient();
  if (result == KyGuid::kResultReplacedSameVersion) StoreActive(7, KyGuid::kCurrentVersion);
  if (result == KyGuid::kResultReplacedOtherVersion) StoreActive(2, KyGuid::kAncientVersion);
  ASSERT_EQ(result, Run());
  const ReportFields report = Make(result);

  std::vector<std::string> expected = {"update_result", "system_disk", "rand_guid", "virt_guid",
                                       "ancient_guid",  "best_guid",   "reporter"};
  if (result >= KyGuid::kResultAncientAdopted) {
    expected.insert(expected.end(), {"org_guid", "org_disk", "org_adapter", "org_index",
                                     "org_time", "org_reason", "org_version", "org_score"});
  }
  expected.insert(expected.end(), {"active_guid", "active_disk", "active_adapter", "active_index",
                                   "active_time", "active_reason", "active_version",
                                   "active_score"});
  ASSERT_EQ(expected, Keys(report));
  EXPECT_EQ(std::to_string(result), report[0].second);
  // What the present hardware gives, whatever GUID is in force.
  EXPECT_EQ(result == KyGuid::kResultBuildFailed
                ? std::string(KyGuid::kSpecialGuid)
                : KyGuidUtils::Md5Hex(std::string(kDiskKeyA) + kAdapterKeyA),
            Value(report, "best_guid"));
}

INSTANTIATE_TEST_SUITE_P(EachResult, ReportFieldsTest, ::testing::Values(-1, 0, 1, 2, 3, 4),
                         [](const ::testing::TestParamInfo<int>& info) {
                           return info.param < 0 ? std::string("Minus1")
                                                 : "Result" + std::to_string(info.param);
                         });

TEST_F(ReporterTest, ReplacementReportShowsTheOldRecordWithKeysForMissingDetails) {
  MachineA();
  StoreActive(7, KyGuid::kCurrentVersion);
  ASSERT_EQ(KyGuid::kResultReplacedSameVersion, Run());
  const ReportFields report = Make(KyGuid::kResultReplacedSameVersion);
  const std::string rand = Value(report, "rand_guid");
  const ReportFields expected = {
      {"update_result", "3"},
      {"system_disk", Active("DiskDetail")},
      {"rand_guid", rand},
      {"virt_guid", KyGuidUtils::Md5Hex(kDiskKeyA + rand)},
      {"ancient_guid", ""},
      {"best_guid", Active("Guid")},
      {"reporter", "kyguid_tests.exe"},
      {"org_guid", kOldGuid},
      {"org_disk", "PID:{Gone}SN:{G1}"},  // no detail: the key
      {"org_adapter", "an adapter long gone"},
      {"org_index", "7"},
      {"org_time", "1600000000"},
      {"org_reason", "0"},
      {"org_version", "2"},
      {"org_score", "77"},
      {"active_guid", Active("Guid")},
      {"active_disk", Active("DiskDetail")},
      {"active_adapter", Active("AdapterDetail")},
      {"active_index", "8"},
      {"active_time", Active("CreateTime")},
      {"active_reason", "3"},
      {"active_version", "2"},
      {"active_score", Active("Score")},
  };
  EXPECT_EQ(expected, report);
  EXPECT_NE(std::string::npos, Value(report, "system_disk").find("Sys:{1}"));
}

TEST_F(ReporterTest, RandomGuidIsKeptInGuidDbAndReplacedOnlyWhenNotExactly32HexDigits) {
  const std::string upper = "0123456789ABCDEF0123456789ABCDEF";
  const struct {
    const char* stored;  // null: no value
    bool kept;
  } cases[] = {
      {nullptr, false},
      {upper.c_str(), true},
      {"0123456789abcdef0123456789abcde", false},    // 31
      {"0123456789abcdef0123456789abcdef0", false},  // 33
      {"0123456789abcdef0123456789abcdeg", false},
  };
  for (const auto& c : cases) {
    KyGuidTest::MakeDirs(ProfileDir());
    IniWrite(GuidDbPath(), "RandGuid", "Guid", c.stored);
    const std::string first = Value(Make(1), "rand_guid");
    if (c.kept) {
      EXPECT_EQ(c.stored, first);
    } else {
      EXPECT_TRUE(KyGuidUtils::IsGuidText(first)) << first;
      EXPECT_EQ(KyGuidUtils::ToLowerAscii(first), first);
      EXPECT_NE(c.stored ? c.stored : "", first);
    }
    EXPECT_EQ(first, IniRead(GuidDbPath(), "RandGuid", "Guid"));
    EXPECT_EQ(first, Value(Make(1), "rand_guid"));
  }
}

// --- The cache ----------------------------------------------------------------

TEST_F(ReporterTest, LastFiveOfSevenCachedReportsLoadFromSections2To4Then0And1) {
  CGuidReporter reporter;
  std::vector<ReportFields> loaded;
  EXPECT_EQ(0, reporter.LoadFromCache(loaded));  // no file yet

  for (int i = 0; i < 7; ++i) {
    ReportFields report = {{"update_result", std::to_string(i)}};
    // A key that later reports in the same section lack stays there.
    if (i == 0) report.emplace_back("org_guid", "from report 0");
    ASSERT_TRUE(reporter.SaveToCache(report));
  }
  EXPECT_EQ("7", IniRead(CachePath(), "Desc", "Count"));
  const char* const inSection[] = {"5", "6", "2", "3", "4"};
  for (int n = 0; n < 5; ++n) {
    const std::string section = "Report" + std::to_string(n);
    EXPECT_EQ(inSection[n], IniRead(CachePath(), section.c_str(), "update_result")) << section;
  }

  ASSERT_EQ(5, reporter.LoadFromCache(loaded));
  const std::vector<ReportFields> expected = {
      {{"update_result", "2"}}, {{"update_result", "3"}}, {{"update_result", "4"}},
      {{"update_result", "5"}, {"org_guid", "from report 0"}}, {{"update_result", "6"}}};
  EXPECT_EQ(expected, loaded);
}

TEST_F(ReporterTest, CountAbove99StartsTheRingAgainAtSection0) {
  const struct {
    const char* count;
    const char* section;
    const char* next;
  } cases[] = {
      {"99", "Report4", "100"},
      {"100", "Report0", "1"},
      {"150", "Report0", "1"},
  };
  for (const auto& c : cases) {
    DeleteFileA(CachePath().c_str());
    KyGuidTest::MakeDirs(ProfileDir());
    IniWrite(CachePath(), "Desc", "Count", c.count);
    ASSERT_TRUE(CGuidReporter().SaveToCache({{"update_result", "1"}}));
    EXPECT_EQ(c.next, IniRead(CachePath(), "Desc", "Count")) << c.count;
    EXPECT_EQ("1", IniRead(CachePath(), c.section, "update_result")) << c.count;
  }
}

TEST_F(ReporterTest, CachedReportIsFreshFor899SecondsAndNotAt900) {
  ASSERT_TRUE(CGuidReporter().SaveToCache({{"update_result", "1"}}));
  const struct {
    int64_t age;
    int loaded;
  } cases[] = {{0, 1}, {899, 1}, {900, 0}, {86400, 0}};
  for (const auto& c : cases) {
    m_clock.now = kStart + c.age;
    std::vector<ReportFields> loaded;
    EXPECT_EQ(c.loaded, CGuidReporter().LoadFromCache(loaded)) << c.age;
    EXPECT_EQ(static_cast<size_t>(c.loaded), loaded.size());
  }
}

// --- Delivery -----------------------------------------------------------------

TEST_F(ReporterTest, CachedReportsThenTheCurrentOneAreDeliveredAsJsonLines) {
  MachineA();
  ASSERT_EQ(KyGuid::kResultFirstBuilt, Run());
  CGuidReporter reporter;
  ASSERT_TRUE(reporter.SaveToCache({{"update_result", "3"}, {"note", "say \"hi\""}}));
  m_clock.now += 899;
  reporter.ReportCache();
  reporter.Report(KyGuid::kResultFirstBuilt, *m_builder, "");

  const std::vector<std::string> lines = KyGuidTest::ReadLines(ReportPath());
  ASSERT_EQ(2u, lines.size());
  EXPECT_EQ(R"({"business":"KyGuid","fields":{"update_result":"3","note":"say \"hi\"",)"
            R"("installed_guid":"","process_name":"kyguid_tests"}})",
            lines[0]);
  // The fields of this run as made, then the common ones; none of these
  // values needs escaping.
  std::string expected = R"({"business":"KyGuid","fields":{)";
  for (const auto& field : Make(KyGuid::kResultFirstBuilt)) {
    ASSERT_EQ(std::string::npos, field.second.find_first_of("\"\\")) << field.second;
    expected += "\"" + field.first + "\":\"" + field.second + "\",";
  }
  expected += R"("installed_guid":"","process_name":"kyguid_tests"}})";
  EXPECT_EQ(expected, lines[1]);

  EXPECT_EQ(1, CountLog("Report Cache, update_result=3"));
  EXPECT_EQ(1, CountLog("Report now, update_result=1"));
  // The module's own trace goes to this library's log.
  EXPECT_EQ(1, CountLog("report KyGuid with 4 fields written"));
  EXPECT_EQ(1, CountLog("report KyGuid with 17 fields written"));
}

TEST_F(ReporterTest, WithoutTheModuleNothingIsSentAndTheLinesAreStillLogged) {
  KyGuidTest::TempDir noModule;
  CReportManager manager(noModule.WidePath().c_str());
  EXPECT_FALSE(manager.IsReady());
  CGuidReporter reporter(&manager);
  ASSERT_TRUE(reporter.SaveToCache({{"update_result", "1"}}));
  reporter.ReportCache();
  reporter.Report(KyGuid::kResultBuildFailed, *m_builder, "");
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(ReportPath().c_str()));
  EXPECT_EQ(1, CountLog("Report Cache, update_result=1"));
  EXPECT_EQ(1, CountLog("Report now, update_result=-1"));
}

TEST_F(ReporterTest, JsonLineEscapesQuotesBackslashesControlsAndEveryHighByte) {
  CReportManager manager(KyGuidUtils::ExecutableDir().c_str());
  ASSERT_TRUE(manager.IsReady());
  ASSERT_TRUE(manager.Send("Ky\"Biz", {{"quote\"back\\slash", "a/b"},
                                       {"controls", "\t\n\r\x01\x1f\x7f"},
                                       {"ansi", "\xA3\xBA\xFF"},
                                       {"empty", ""}}));
  const std::vector<std::string> lines = KyGuidTest::ReadLines(ReportPath());
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ(R"({"business":"Ky\"Biz","fields":{"quote\"back\\slash":"a/b",)"
            R"("controls":"\t\n\r\u0001\u001f\u007f","ansi":"\u00a3\u00ba\u00ff","empty":"",)"
            R"("installed_guid":"","process_name":"kyguid_tests"}})",
            lines[0]);
}

TEST_F(ReporterTest, FaultingModuleIsContainedAndTurnsReportingOff) {
  for (const char* call : {"init", "send"}) {
    SetEnvironmentVariableA("KYREPORT_FAULT", call);
    CReportManager manager(KyGuidUtils::ExecutableDir().c_str());
    EXPECT_FALSE(manager.Send("KyGuid", {{"update_result", "1"}})) << call;
    EXPECT_TRUE(manager.IsShutdown()) << call;
    EXPECT_FALSE(manager.IsReady()) << call;
    SetEnvironmentVariableA("KYREPORT_FAULT", nullptr);
    EXPECT_FALSE(manager.Send("KyGuid", {{"update_result", "1"}})) << call;
  }
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(ReportPath().c_str()));
  EXPECT_EQ(2, CountLog("reporting module faulted, reporting is off"));
}

}  // namespace
