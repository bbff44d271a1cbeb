#include "common/logfacade.h"

#include <cstring>
#include <cwchar>

#include "common/clock.h"
#include "common/faultgate.h"
#include "common/faultguard.h"
#include "common/kylog.h"
#include "common/lazysingleton.h"
#include "common/modules.h"
#include "common/win32raii.h"

namespace KyLog {
namespace {

IKyLog* LoadLogModule(const wchar_t* dir) {
  KyGuidUtils::UniqueModule module(KyGuidUtils::LoadModuleFromFolder(dir, LogFacade::kModuleName));
  auto factory = KyGuidUtils::GetProcAs<GetKyLogExFn>(module.get(), "GetKyLogEx");
  IKyLog* log = factory ? factory() : nullptr;
  // The module stays loaded for the life of the process once it answered.
  if (log) module.release();
  return log;
}

}  // namespace

LogFacade::LogFacade() {
  HMODULE self = nullptr;
  if (GetModuleHandleExW(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          reinterpret_cast<LPCWSTR>(&GetLogFacade), &self)) {
    wchar_t path[MAX_PATH] = {};
    GetModuleFileNameW(self, path, MAX_PATH);
    const wchar_t* slash = wcsrchr(path, L'\\');
    wcsncpy_s(m_moduleName, slash ? slash + 1 : path, _TRUNCATE);
  }

  // The folder the module came from is the one the module and the fault
  // gate are told.
  KyGuidUtils::LoadFromSuiteFolders([this](const wchar_t* dir) {
    wcsncpy_s(m_dir, dir, _TRUNCATE);
    m_log = LoadLogModule(m_dir);
    return m_log != nullptr;
  });
  if (m_log) InitModule();
}

LogFacade* GetLogFacade() {
  KyGuidUtils::PreserveLastError keepCallersError;
  return KyGuidUtils::LazySingleton<LogFacade>::Get();
}

BOOL LogFacade::IsEnabled(uint32_t level) {
  if (!m_log || m_faulted) return FALSE;
  return GuardedIsLevelEnabled(level);
}

BOOL LogFacade::LogVW(uint64_t category, uint32_t level, uint32_t error, const wchar_t* file,
                      uint32_t line, const wchar_t* function, const wchar_t* format, va_list args) {
  if (!m_log || m_faulted) return FALSE;
  LogRecord record = MakeRecord(category, level, error, file, line, function, args);
  record.wideFormat = format;
  return Submit(record);
}

BOOL LogFacade::LogVA(uint64_t category, uint32_t level, uint32_t error, const wchar_t* file,
                      uint32_t line, const wchar_t* function, const char* format, va_list args) {
  if (!m_log || m_faulted) return FALSE;
  LogRecord record = MakeRecord(category, level, error, file, line, function, args);
  record.narrowFormat = format;
  return Submit(record);
}

BOOL LogFacade::LogW(uint64_t category, uint32_t level, uint32_t error, const wchar_t* file,
                     uint32_t line, const wchar_t* function, const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  BOOL result = LogVW(category, level, error, file, line, function, format, args);
  va_end(args);
  return result;
}

BOOL LogFacade::LogA(uint64_t category, uint32_t level, uint32_t error, const wchar_t* file,
                     uint32_t line, const wchar_t* function, const char* format, ...) {
  va_list args;
  va_start(args, format);
  BOOL result = LogVA(category, level, error, file, line, function, format, args);
  va_end(args);
  return result;
}

BOOL LogFacade::TraceVW(uint64_t category, uint32_t error, const wchar_t* file, uint32_t line,
                        const wchar_t* function, const wchar_t* format, va_list args) {
  return LogVW(category, kTrace, error, file, line, function, format, args);
}

BOOL LogFacade::TraceVA(uint64_t category, uint32_t error, const wchar_t* file, uint32_t line,
                        const wchar_t* function, const char* format, va_list args) {
  return LogVA(category, kTrace, error, file, line, function, format, args);
}

LogRecord LogFacade::MakeRecord(uint64_t category, uint32_t level, uint32_t error,
                                const wchar_t* file, uint32_t line, const wchar_t* function,
                                va_list args) const {
  LogRecord record;
  memset(&record, 0, sizeof(record));
  record.size = sizeof(LogRecord);
  record.category = category;
  record.level = level;
  record.error = error;
  record.module = m_moduleName;
  record.file = file;
  record.line = line;
  record.function = function;
  record.arguments = args;
  return record;
}

// --- Calls into the module, each under the fault guard -------------------

void LogFacade::InitModule() {
  struct Call {
    LogFacade* facade;
    static void Run(void* context) {
      LogFacade* f = static_cast<Call*>(context)->facade;
      f->m_log->Init(kSharedObjectName, f->m_dir);
    }
  } call{this};
  RunGuarded(&Call::Run, &call);
}

BOOL LogFacade::GuardedIsLevelEnabled(uint32_t level) {
  struct Call {
    LogFacade* facade;
    uint32_t level;
    BOOL result;
    static void Run(void* context) {
      Call* c = static_cast<Call*>(context);
      c->result = c->facade->m_log->IsLevelEnabled(c->level) ? TRUE : FALSE;
    }
  } call{this, level, FALSE};
  return RunGuarded(&Call::Run, &call) ? call.result : FALSE;
}

BOOL LogFacade::Submit(LogRecord& record) {
  struct Call {
    LogFacade* facade;
    LogRecord* record;
    static void Run(void* context) {
      Call* c = static_cast<Call*>(context);
      c->facade->m_log->Write(c->record);
    }
  } call{this, &record};
  return RunGuarded(&Call::Run, &call) ? TRUE : FALSE;
}

bool LogFacade::RunGuarded(void (*call)(void*), void* context) {
  return KyGuidUtils::CallSuiteModule(m_faulted, call, context, &LogFacade::DecideFault, this) ==
         KyGuidUtils::ModuleCall::kReturned;
}

// Runs on the faulting thread while the exception is being dispatched, so it
// stays small: no allocation, no locks.
bool LogFacade::DecideFault(const EXCEPTION_RECORD*, void* facade) {
  static DebuggerFaultCounter debuggerFaults;
  if (IsDebuggerPresent()) return debuggerFaults.Handle();
  return !FaultGate::Allow(static_cast<const LogFacade*>(facade)->m_dir,
                           KyGuidUtils::CurrentTime());
}

// --- The call-site API ----------------------------------------------------

bool IsEnabled(uint32_t level) {
  KyGuidUtils::PreserveLastError keepCallersError;
  return GetLogFacade()->IsEnabled(level) != FALSE;
}

void Write(uint32_t level, const Site& site, const char* format, ...) {
  KyGuidUtils::PreserveLastError keepCallersError;
  LogFacade* facade = GetLogFacade();
  if (!facade->IsEnabled(level)) return;
  va_list args;
  va_start(args, format);
  facade->LogVA(0, level, 0, site.file, site.line, site.function, format, args);
  va_end(args);
}

void Write(uint32_t level, const Site& site, const wchar_t* format, ...) {
  KyGuidUtils::PreserveLastError keepCallersError;
  LogFacade* facade = GetLogFacade();
  if (!facade->IsEnabled(level)) return;
  va_list args;
  va_start(args, format);
  facade->LogVW(0, level, 0, site.file, site.line, site.function, format, args);
  va_end(args);
}

void WriteError(uint32_t level, uint32_t error, const Site& site, const char* format, ...) {
  KyGuidUtils::PreserveLastError keepCallersError;
  LogFacade* facade = GetLogFacade();
  if (!facade->IsEnabled(level)) return;
  va_list args;
  va_start(args, format);
  facade->LogVA(0, level, error, site.file, site.line, site.function, format, args);
  va_end(args);
}

}  // namespace KyLog
