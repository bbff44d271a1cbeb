// The reporter on a simulated machine: the fields of a run, the report cache
// GuidReport.dat with its ring and its age limit, and delivery through the
// substitute reporting module beside this executable.
#include "common/md5.h"
#include "common/modules.h"
#include "common/strutil.h"
#include "kyguidlib/cguidbuilder.h"
#include "kyguidlib/cguidreporter.h"
#include "tests/testsupport.h"

namespace {

using KyGuid::CGuidReporter;
using KyGuid::ReportFields;
using KyGuidTest::IniRead;
using KyReportMgr::CReportManager;

std::string Text(const ReportFields& report) {
  std::string text;
  for (const auto& [key, value] : report) text += key + "=" + value + "\n";
  return text;
}

class ReporterTest : public KyGuidTest::IsolatedTest {
 protected:
  void SetUp() override {  // one system disk and one wired adapter
    IsolatedTest::SetUp();
    m_machine.AddDrive(0).descriptor =
        KyGuidSim::SimulatedMachine::Descriptor("", "ST1000DM010", "CC43", "Z9A1B2C3", 11, false);
    m_machine.AddVolume(L'C').extents = KyGuidSim::SimulatedMachine::Extents({{0, 1000}});
    m_machine.AddAdapter("{NIC-A}", "Ethernet", {0, 0x11, 0x22, 0xAA, 0xBB, 0xCC}).pnpId = "PCI\\1";
  }
  ReportFields Make(int result) {
    ReportFields report;
    CGuidReporter().MakeReport(result, m_builder, "", report);
    return report;
  }
  std::string Active(const char* key) { return IniRead(GuidDbPath(), "ActiveGuid", key); }
  KyGuid::CGuidBuilder m_builder;
};

TEST_F(ReporterTest, ReplacementReportHoldsEveryFieldInOrderAndOnlySuchRunsHaveOrgFields) {
  const std::string old(32, 'a');  // in force, bound to hardware that is gone
  KyGuidTest::MakeDirs(ProfileDir());
  KyGuidTest::WriteWholeFile(GuidDbPath(),
                             "[ActiveGuid]\r\nGuid=" + old +
                                 "\r\nDiskKey=PID:{Gone}SN:{G1}\r\nAdapterKey=Mac:{"
                                 "999999999999}\r\nAdapterDetail=an adapter long gone\r\n"
                                 "CreateIndex=7\r\nCreateTime=1600000000\r\nScore=77\r\n"
                                 "Version=2\r\n");
  ASSERT_EQ(KyGuid::kResultReplacedSameVersion, m_builder.UpdateNewGuid());
  const std::string text = Text(Make(KyGuid::kResultReplacedSameVersion));
  const std::string rand = IniRead(GuidDbPath(), "RandGuid", "Guid");  // made once, kept
  EXPECT_EQ("update_result=3\nsystem_disk=" + Active("DiskDetail") + "\nrand_guid=" + rand +
                "\nvirt_guid=" + KyGuidUtils::Md5Hex("PID:{ST1000DM010}SN:{Z9A1B2C3}" + rand) +
                "\nancient_guid=\nbest_guid=" + Active("Guid") + "\nreporter=kyguid_tests.exe\n" +
                "org_guid=" + old + "\norg_disk=PID:{Gone}SN:{G1}\n" +  // no detail: the key
                "org_adapter=an adapter long gone\norg_index=7\norg_time=1600000000\norg_reason=0\n"
                "org_version=2\norg_score=77\nactive_guid=" +
                Active("Guid") + "\nactive_disk=" + Active("DiskDetail") + "\nactive_adapter=" +
                Active("AdapterDetail") + "\nactive_index=8\nactive_time=" + Active("CreateTime") +
                "\nactive_reason=3\nactive_version=2\nactive_score=" + Active("Score") + "\n",
            text);
  EXPECT_TRUE(KyGuidUtils::IsGuidText(rand) && KyGuidUtils::ToLowerAscii(rand) == rand) << rand;
  for (int result = -1; result <= 4; ++result) {  // org_ fields: adopted (2) or replaced (3, 4)
    const ReportFields report = Make(result);
    EXPECT_TRUE(report.size() == (result >= 2 ? 23u : 15u) && report[2].second == rand) << result;
  }
}

TEST_F(ReporterTest, CacheRingKeepsTheLastFiveAndLoadsTheFreshOnesOldestFirst) {
  CGuidReporter reporter;
  for (int i = 0; i < 7; ++i) {
    // A key that later reports in the same section lack stays there.
    ASSERT_TRUE(reporter.SaveToCache(i == 0 ? ReportFields{{"r", "0"}, {"org_guid", "of 0"}}
                                            : ReportFields{{"r", std::to_string(i)}}));
  }
  std::vector<ReportFields> loaded;
  m_clock.now += 899;  // fresh for 899 seconds, not at 900
  ASSERT_EQ(5, reporter.LoadFromCache(loaded));
  std::string text;
  for (const ReportFields& report : loaded) text += Text(report);
  EXPECT_EQ("r=2\nr=3\nr=4\nr=5\norg_guid=of 0\nr=6\n", text);
  m_clock.now += 1;
  EXPECT_EQ(0, reporter.LoadFromCache(loaded));

  // A count above 99 starts the ring again at section 0.
  const std::string cache = ProfileDir() + "\\GuidReport.dat";
  const char* const wraps[][3] = {{"99", "Report4", "100"}, {"100", "Report0", "1"}};
  for (const auto& [count, section, next] : wraps) {
    KyGuidTest::IniWrite(cache, "Desc", "Count", count);
    ASSERT_TRUE(reporter.SaveToCache({{"r", count}}));
    EXPECT_TRUE(IniRead(cache, "Desc", "Count") == next && IniRead(cache, section, "r") == count)
        << count;
  }
}

TEST_F(ReporterTest, CachedReportsThenTheCurrentOneAreDeliveredAsJsonLines) {
  ASSERT_EQ(KyGuid::kResultFirstBuilt, m_builder.UpdateNewGuid());
  CGuidReporter reporter;
  ASSERT_TRUE(reporter.SaveToCache({{"update_result", "3"}, {"note", "say \"hi\""}}));
  reporter.ReportCache();
  reporter.Report(KyGuid::kResultFirstBuilt, m_builder, "");

  const std::string common = R"("installed_guid":"","process_name":"kyguid_tests"}})";
  std::string now = R"({"business":"KyGuid","fields":{)";  // none of its values needs escaping
  for (const auto& [key, value] : Make(1)) now += "\"" + key + "\":\"" + value + "\",";
  const std::vector<std::string> expected = {
      R"({"business":"KyGuid","fields":{"update_result":"3","note":"say \"hi\"",)" + common,
      now + common};
  EXPECT_EQ(expected, KyGuidTest::ReadLines(ReportPath()));
  EXPECT_EQ(1, CountLog("report KyGuid with 17 fields written"));  // the module's own trace
}

TEST_F(ReporterTest, WithoutTheModuleOrAfterItFaultedNothingIsSent) {
  KyGuidTest::TempDir noModule;
  EXPECT_FALSE(CReportManager(noModule.WidePath().c_str()).IsReady());
  for (const char* call : {"init", "send"}) {
    SetEnvironmentVariableA("KYREPORT_FAULT", call);
    CReportManager manager(KyGuidUtils::ExecutableDir().c_str());
    EXPECT_FALSE(manager.Send("KyGuid", {{"update_result", "1"}})) << call;
    EXPECT_TRUE(manager.IsShutdown() && !manager.IsReady()) << call;
    SetEnvironmentVariableA("KYREPORT_FAULT", nullptr);
    EXPECT_FALSE(manager.Send("KyGuid", {{"update_result", "1"}})) << call;
  }
  EXPECT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesA(ReportPath().c_str()));
  EXPECT_EQ(2, CountLog("reporting module faulted, reporting is off"));
}

}  // namespace
