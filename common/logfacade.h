// The process-wide facade over the suite's log module. Without the module
// every call is a no-op returning 0. A fault inside the module is contained:
// logging turns off for the rest of the process, and at most one fault per
// 12 hours is passed on to the process's crash handling.
#pragma once

#include <windows.h>

#include <cstdarg>
#include <cstdint>

#include "common/ikylog.h"

namespace KyGuidUtils {
template <typename T>
class LazySingleton;
}  // namespace KyGuidUtils

namespace KyLog {

class LogFacade {
 public:
  static constexpr wchar_t kModuleName[] = L"KyLogEx64.dll";
  static constexpr wchar_t kSharedObjectName[] =
      L"Global\\Pendrova{A70D9820-8CAC-4a7d-BE89-93C635017BBC}";

  BOOL IsEnabled(uint32_t level);
  BOOL LogW(uint64_t category, uint32_t level, uint32_t error, const wchar_t* file, uint32_t line,
            const wchar_t* function, const wchar_t* format, ...);
  BOOL LogA(uint64_t category, uint32_t level, uint32_t error, const wchar_t* file, uint32_t line,
            const wchar_t* function, const char* format, ...);
  BOOL LogVW(uint64_t category, uint32_t level, uint32_t error, const wchar_t* file, uint32_t line,
             const wchar_t* function, const wchar_t* format, va_list args);
  BOOL LogVA(uint64_t category, uint32_t level, uint32_t error, const wchar_t* file, uint32_t line,
             const wchar_t* function, const char* format, va_list args);
  // TRACE-level entries with a ready-made argument list, for callbacks.
  BOOL TraceVW(uint64_t category, uint32_t error, const wchar_t* file, uint32_t line,
               const wchar_t* function, const wchar_t* format, va_list args);
  BOOL TraceVA(uint64_t category, uint32_t error, const wchar_t* file, uint32_t line,
               const wchar_t* function, const char* format, va_list args);

  bool Faulted() const { return m_faulted != 0; }

 private:
  friend class KyGuidUtils::LazySingleton<LogFacade>;
  LogFacade();

  LogRecord MakeRecord(uint64_t category, uint32_t level, uint32_t error, const wchar_t* file,
                       uint32_t line, const wchar_t* function, va_list args) const;
  void InitModule();
  BOOL GuardedIsLevelEnabled(uint32_t level);
  BOOL Submit(LogRecord& record);
  // False when the call faulted; the facade is then off for good.
  bool RunGuarded(void (*call)(void*), void* context);
  static bool DecideFault(const EXCEPTION_RECORD* fault, void* facade);

  IKyLog* m_log = nullptr;
  volatile LONG m_faulted = 0;
  wchar_t m_moduleName[32] = {};
  wchar_t m_dir[MAX_PATH] = {};
};

// Built on first use; restores the caller's last-error value.
LogFacade* GetLogFacade();

}  // namespace KyLog
