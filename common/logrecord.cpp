#include "common/logrecord.h"

namespace KyLog {

const char* LevelName(uint32_t level) {
  static const char* const kNames[] = {"DISABLE", "FATAL", "ERROR", "WARN",
                                       "INFO",    "TRACE", "DEBUG"};
  return level < sizeof(kNames) / sizeof(kNames[0]) ? kNames[level] : "UNKNOWN";
}

}  // namespace KyLog
