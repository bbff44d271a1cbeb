// What a call site uses to log. Each source file names its own source path:
//
//   constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\cguidreader";
//   KyLog::Write(KyLog::kInfo, KYLOG_SITE(L"KyGuid::CGuidReader::UpdateGuidFromFile"),
//                "read guid: %s", text);
//
// Write asks IsEnabled first, so a disabled level costs one call into the log
// module. Arguments are evaluated before that test: a call site whose
// arguments are expensive to build tests IsEnabled itself. Logging never
// changes the caller's GetLastError().
#pragma once

#include <cstdint>

#include "common/logrecord.h"

namespace KyLog {

struct Site {
  const wchar_t* file;
  uint32_t line;
  const wchar_t* function;
};

bool IsEnabled(uint32_t level);

void Write(uint32_t level, const Site& site, const char* format, ...)
    __attribute__((format(printf, 3, 4)));
void Write(uint32_t level, const Site& site, const wchar_t* format, ...);

// The same with a Windows error code attached to the record.
void WriteError(uint32_t level, uint32_t error, const Site& site, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

}  // namespace KyLog

#define KYLOG_SITE(function) (::KyLog::Site{kLogSourcePath, __LINE__, function})
