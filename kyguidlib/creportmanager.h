// Delivers named reports to the suite's reporting module (kyreportapi.h),
// adding the machine data that every report of the suite carries. Without
// the module, sending is a no-op. A fault inside the module is contained and
// turns reporting off for the rest of the process; it never reaches the host.
#pragma once

#include <windows.h>

#include <string>
#include <utility>
#include <vector>

#include "common/win32raii.h"
#include "kyguidlib/kyreportapi.h"

namespace KyGuidUtils {
template <typename T>
class LazySingleton;
}  // namespace KyGuidUtils

namespace KyReportMgr {

// One report: field names and values, narrow, in delivery order.
using ReportFields = std::vector<std::pair<std::string, std::string>>;

class CReportManager {
 public:
  static constexpr wchar_t kModuleName[] = L"KyReport64.dll";
  // Added behind each report's own fields.
  static constexpr char kInstalledGuidField[] = "installed_guid";  // "" without a copy
  static constexpr char kProcessNameField[] = "process_name";      // without extension

  // The process-wide manager, over the module beside the host executable,
  // else in the suite's install folder. Built on first use and never
  // destroyed; from the start of exit processing on it sends nothing.
  static CReportManager* Instance();

  // A manager over the module in `dir` alone.
  explicit CReportManager(const wchar_t* dir);
  CReportManager(const CReportManager&) = delete;
  CReportManager& operator=(const CReportManager&) = delete;

  // Reporting is off for good: exit processing has begun, or the module
  // faulted.
  bool IsShutdown() const;
  // The module is loaded and accepted the interface.
  bool IsReady() const;
  // True when the module took the report.
  bool Send(const char* business, const ReportFields& fields);

 private:
  friend class KyGuidUtils::LazySingleton<CReportManager>;
  struct SearchSuiteFolders {};
  explicit CReportManager(SearchSuiteFolders);

  bool Load(const wchar_t* dir);
  void Init();
  // False when the call faulted; reporting is then off.
  bool RunGuarded(void (*call)(void*), void* context);
  static void BeginProcessExit();
  static void __cdecl Trace(const char* format, ...);

  KyGuidUtils::UniqueModule m_module;
  KyReportInitFn m_init = nullptr;
  KyReportSendFn m_send = nullptr;
  volatile LONG m_ready = 0;
  volatile LONG m_faulted = 0;
  char m_processName[MAX_PATH] = {};
};

}  // namespace KyReportMgr
