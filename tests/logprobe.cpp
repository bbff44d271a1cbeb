// A host process for the log facade tests. The facade is one per process
// and decides everything on first use, so each situation (module present or
// not, faulting or not) needs a process of its own: the tests copy this
// program into a folder of their own, with or without the log module beside
// it, run one mode and read what it prints and what the module wrote.
//
//   logprobe enabled    which levels are enabled, and what direct writes return
//   logprobe lines      one record of each kind, at fixed sites
//   logprobe lasterror  the caller's last-error value across log calls
//   logprobe fault      one log call (the module faults as KYLOGEX_FAULT says),
//                       then the facade's state with the fault switched off
#include <windows.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "common/kylog.h"
#include "common/logfacade.h"

namespace {

constexpr wchar_t kSource[] = L"ftcommon\\kyguid\\tests\\logprobe";

KyLog::Site At(uint32_t line, const wchar_t* function) { return {kSource, line, function}; }

void PrintState() {
  char enabled[8] = {};
  for (uint32_t level = 0; level < 7; ++level) enabled[level] = KyLog::IsEnabled(level) ? '1' : '0';
  KyLog::LogFacade* facade = KyLog::GetLogFacade();
  BOOL narrow = facade->LogA(0, KyLog::kFatal, 0, kSource, 1, L"KyProbe::State", "direct %s", "a");
  BOOL wide = facade->LogW(0, KyLog::kFatal, 0, kSource, 2, L"KyProbe::State", L"direct %ls", L"w");
  printf("enabled=%s narrow=%d wide=%d faulted=%d\n", enabled, narrow, wide,
         facade->Faulted() ? 1 : 0);
}

void Trace(const char* format, ...) {
  va_list args;
  va_start(args, format);
  KyLog::GetLogFacade()->TraceVA(0, 0, kSource, 60, L"KyProbe::Trace", format, args);
  va_end(args);
}

void TraceWide(const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  KyLog::GetLogFacade()->TraceVW(0, 0, kSource, 61, L"KyProbe::TraceWide", format, args);
  va_end(args);
}

void Lines() {
  KyLog::Write(KyLog::kInfo, At(10, L"KyProbe::CProbe::Narrow"), "narrow %s %d", "text", 42);
  KyLog::Write(KyLog::kWarn, At(20, L"KyProbe::CProbe::Wide"), L"wide %ls %u", L"text", 7u);
  KyLog::WriteError(KyLog::kError, ERROR_ACCESS_DENIED, At(30, L"KyProbe::CProbe::Error"),
                    "open %s failed", "x.db");
  KyLog::Write(KyLog::kFatal, At(40, L"KyProbe::CProbe::Bytes"), "bytes \xA3\xBA%s", "\xA3\xBA|");
  KyLog::Write(KyLog::kDebug, At(50, L"KyProbe::CProbe::Debug"), "debug %d", 6);
  // As a callback with a ready-made argument list would: asking first.
  if (KyLog::IsEnabled(KyLog::kTrace)) {
    Trace("trace %s", "narrow");
    TraceWide(L"trace %ls", L"wide");
  }
}

int LastError() {
  SetLastError(1234);
  KyLog::Write(KyLog::kInfo, At(70, L"KyProbe::LastError"), "first");
  DWORD first = GetLastError();
  SetLastError(4321);
  KyLog::Write(KyLog::kInfo, At(71, L"KyProbe::LastError"), "later");
  DWORD later = GetLastError();
  SetLastError(555);
  KyLog::IsEnabled(KyLog::kInfo);
  DWORD enabled = GetLastError();
  printf("first=%lu later=%lu enabled=%lu\n", first, later, enabled);
  return 0;
}

void Fault() {
  KyLog::Write(KyLog::kInfo, At(80, L"KyProbe::Fault"), "before the fault");
  // Still here: the fault was contained. Nothing may reach the module now,
  // even though it would no longer fault.
  SetEnvironmentVariableA("KYLOGEX_FAULT", nullptr);
  KyLog::Write(KyLog::kInfo, At(81, L"KyProbe::Fault"), "after the fault");
  PrintState();
}

// The host's own crash handling, where a fault that the facade passes on
// ends up: exit at once with the fault's code instead of waiting for a
// debugger to be started.
LONG WINAPI Crash(EXCEPTION_POINTERS* info) {
  TerminateProcess(GetCurrentProcess(), info->ExceptionRecord->ExceptionCode);
  return EXCEPTION_EXECUTE_HANDLER;
}

}  // namespace

int main(int argc, char** argv) {
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  SetUnhandledExceptionFilter(&Crash);
  const char* mode = argc > 1 ? argv[1] : "";
  if (strcmp(mode, "enabled") == 0) {
    PrintState();
  } else if (strcmp(mode, "lines") == 0) {
    Lines();
  } else if (strcmp(mode, "lasterror") == 0) {
    LastError();
  } else if (strcmp(mode, "fault") == 0) {
    Fault();
  } else {
    fprintf(stderr, "logprobe: unknown mode '%s'\n", mode);
    return 2;
  }
  fflush(stdout);
  return 0;
}
