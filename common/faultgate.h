// Decides what happens to a fault inside the log module. Letting every fault
// through would crash the host over a logging problem; swallowing every one
// would hide a broken module forever. So one fault per 12 hours per log
// module directory goes on to the process's crash handling, where it gets
// reported, and the rest are contained.
#pragma once

#include <windows.h>

#include <cstdint>

namespace KyLog {

class FaultGate {
 public:
  static constexpr wchar_t kFileName[] = L"LastException.dat";
  static constexpr int64_t kIntervalSeconds = 43200;

  // Whether a fault at `now` (seconds since 1970) may be passed on, judged by
  // the LastException.dat in `dir`, or beside the host executable when `dir`
  // is empty. When it may, `now` is recorded first. Any trouble with the
  // file refuses: a fault is then contained.
  static bool Allow(const wchar_t* dir, int64_t now);

  // The gate file's path, or false when it would not fit in MAX_PATH.
  static bool FilePath(const wchar_t* dir, wchar_t (&path)[MAX_PATH]);
};

// With a debugger attached the developer wants to see the module's faults,
// but not an endless stream of them: the first six go to the debugger.
class DebuggerFaultCounter {
 public:
  static constexpr LONG kPassedOn = 6;
  // Constant-initialised, so a function-local instance needs no guard.
  constexpr DebuggerFaultCounter() = default;
  // Counts one more fault; true when it is to be handled here.
  bool Handle() { return InterlockedIncrement(&m_seen) > kPassedOn; }

 private:
  LONG m_seen = 0;
};

}  // namespace KyLog
