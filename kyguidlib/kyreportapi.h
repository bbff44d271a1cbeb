// The C interface of the suite's reporting module, KyReport64.dll. The
// library loads the module at run time and never depends on it: without it,
// nothing is reported. All strings are NUL-terminated ANSI text that the
// caller owns for the length of the call only.
#pragma once

#include <stdint.h>

namespace KyReportMgr {

// The interface version this library speaks.
constexpr uint32_t kReportInterfaceVersion = 1;

}  // namespace KyReportMgr

extern "C" {

// The library's log, offered to the module for its own diagnostics: a
// printf-style message written at TRACE level.
typedef void(__cdecl* KyReportTraceFn)(const char* format, ...);

// Export "KyReportInit": called once, before any report. Nonzero when the
// module speaks `interfaceVersion` and is ready to take reports. `trace`
// stays valid for the life of the process.
typedef int32_t(__cdecl* KyReportInitFn)(uint32_t interfaceVersion, KyReportTraceFn trace);

// Export "KyReportSend": one report of `business`, made of `count` fields,
// keys[i] = values[i], in delivery order. Nonzero when the report was taken.
// May be called from any thread.
typedef int32_t(__cdecl* KyReportSendFn)(const char* business, const char* const* keys,
                                         const char* const* values, uint32_t count);
}
