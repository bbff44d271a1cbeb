// A stand-in for the suite's stuck monitor, for tests: when KYSTUCK_FILE
// names a file, every marker appends one line to it, "enter Name" or
// "leave Name". Without the variable it does nothing.
#include <windows.h>

#include <cstdio>

namespace {

void Append(const char* verb, const char* name) {
  char path[MAX_PATH] = {};
  DWORD length = GetEnvironmentVariableA("KYSTUCK_FILE", path, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) return;
  FILE* file = fopen(path, "ab");
  if (!file) return;
  fprintf(file, "%s %s\n", verb, name ? name : "(null)");
  fclose(file);
}

}  // namespace

extern "C" void KyStuckEnter(const char* name) { Append("enter", name); }
extern "C" void KyStuckLeave(const char* name) { Append("leave", name); }
