// Turns the outcome of one update run into a flat report and delivers it
// under the business name "KyGuid". A run on the caller's thread does not
// send: it caches its report in GuidReport.dat, and the next background run
// sends what is still fresh there before its own report.
#pragma once

#include <windows.h>

#include <string>
#include <vector>

#include "kyguidlib/creportmanager.h"

namespace KyGuid {

class CGuidBuilder;

using KyReportMgr::ReportFields;

class CGuidReporter {
 public:
  static constexpr char kBusiness[] = "KyGuid";
  static constexpr int kCacheSections = 5;   // ring of "Report%d" sections
  static constexpr unsigned kMaxCount = 99;  // a larger count starts again at 0
  static constexpr int kFreshSeconds = 900;  // older cached reports are not sent

  // Delivers through the process-wide report manager, or `manager` if given.
  explicit CGuidReporter(KyReportMgr::CReportManager* manager = nullptr);

  // Builds this run's report and sends it now. `ancientGuid` is the legacy
  // machine id the update computed after the build, empty when none.
  void Report(int updateResult, const CGuidBuilder& builder, const std::string& ancientGuid);
  // Sends every cached report that is still fresh. They stay in the file;
  // their age keeps them from being sent again much later.
  void ReportCache();
  // Appends one report to GuidReport.dat; FALSE when the count could not be
  // written.
  BOOL SaveToCache(const ReportFields& report);
  // The fresh ones among the last five cached reports, oldest first.
  int LoadFromCache(std::vector<ReportFields>& list);
  // The cache's count of reports so far, and the update result the last of
  // them carries (empty when none): a report cached by an update shows as a
  // new count.
  struct CacheMark {
    int count = 0;
    std::string lastResult;
  };
  CacheMark LastCached() const;
  void MakeReport(int updateResult, const CGuidBuilder& builder, const std::string& ancientGuid,
                  ReportFields& report);

 private:
  void Deliver(const ReportFields& report);

  std::string m_path;
  KyReportMgr::CReportManager* m_manager;
};

}  // namespace KyGuid
