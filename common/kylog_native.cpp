// Native builds of the pure code have no log module: every level is off.
#include "common/kylog.h"

namespace KyLog {

bool IsEnabled(uint32_t) { return false; }
void Write(uint32_t, const Site&, const char*, ...) {}
void Write(uint32_t, const Site&, const wchar_t*, ...) {}
void WriteError(uint32_t, uint32_t, const Site&, const char*, ...) {}

}  // namespace KyLog
