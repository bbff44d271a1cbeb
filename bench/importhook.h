// Redirects calls that this executable makes through its import table, so
// the benchmark can count and record the profile-file calls of an update
// without any seam in the library itself.
#pragma once

#include <windows.h>

namespace KyGuidBench {

// Replaces the import of `function` from `dll` in this executable's table
// with `replacement`; returns the original address, or null when absent.
void* HookImport(const char* dll, const char* function, void* replacement);

}  // namespace KyGuidBench
