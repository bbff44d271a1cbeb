// The block handed to the log module's Write for one log call. Its layout is
// shared with a separately built module, so every offset is pinned below.
#pragma once

#include <cstddef>
#include <cstdint>

namespace KyLog {

enum Level : uint32_t {
  kDisable = 0,
  kFatal = 1,
  kError = 2,
  kWarn = 3,
  kInfo = 4,
  kTrace = 5,
  kDebug = 6,
};

// "DISABLE" ... "DEBUG"; "UNKNOWN" for a value outside the table.
const char* LevelName(uint32_t level);

struct LogRecord {
  uint32_t size;  // always sizeof(LogRecord)
  uint32_t reserved0;
  uint64_t category;  // every call site passes 0
  uint32_t level;
  uint32_t error;         // Windows error code attached to the line, or 0
  const wchar_t* module;  // file name of the library that logged
  const wchar_t* file;    // "ftcommon\kyguid\..." source path of the call site
  uint32_t line;
  uint32_t reserved1;
  const wchar_t* function;  // "Namespace::Class::Method"
  const wchar_t* wideFormat;
  const char* narrowFormat;  // exactly one of the two formats is set
  void* arguments;           // the caller's va_list, usable with vsnprintf
};

static_assert(sizeof(void*) == 8, "the record layout is the 64-bit one");
static_assert(sizeof(LogRecord) == 80, "record size");
static_assert(offsetof(LogRecord, category) == 8, "category");
static_assert(offsetof(LogRecord, level) == 16, "level");
static_assert(offsetof(LogRecord, error) == 20, "error");
static_assert(offsetof(LogRecord, module) == 24, "module");
static_assert(offsetof(LogRecord, file) == 32, "file");
static_assert(offsetof(LogRecord, line) == 40, "line");
static_assert(offsetof(LogRecord, function) == 48, "function");
static_assert(offsetof(LogRecord, wideFormat) == 56, "wide format");
static_assert(offsetof(LogRecord, narrowFormat) == 64, "narrow format");
static_assert(offsetof(LogRecord, arguments) == 72, "arguments");

}  // namespace KyLog
