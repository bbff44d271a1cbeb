// kyguid: the machine identity as this machine's KyGuid64.dll sees it.
#include <windows.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "common/win32raii.h"
#include "kyguidlib/kyguidapi.h"

namespace {

constexpr int kExitOk = 0;
constexpr int kExitNoGuid = 1;
constexpr int kExitUsage = 2;
constexpr int kExitNoLibrary = 3;

const char kUsage[] =
    "usage: kyguid <command> [--help]\n"
    "\n"
    "commands:\n"
    "  read    print the machine GUID that Guid.db holds, as the reader returns it\n"
    "\n"
    "exit codes: 0 done, 1 no GUID, 2 bad command line, 3 KyGuid64.dll not loadable\n";

// The DLL beside this executable, so the tool always shows its own copy.
HMODULE LoadLibraryBesideExecutable() {
  wchar_t path[MAX_PATH] = {};
  DWORD length = GetModuleFileNameW(nullptr, path, MAX_PATH);
  if (length == 0 || length >= MAX_PATH) return nullptr;
  wchar_t* slash = wcsrchr(path, L'\\');
  if (!slash || (slash - path) + 14 >= MAX_PATH) return nullptr;
  wcscpy(slash + 1, L"KyGuid64.dll");
  return LoadLibraryW(path);
}

int Read() {
  HMODULE library = LoadLibraryBesideExecutable();
  auto getReader = KyGuidUtils::GetProcAs<GetGuidReaderFn>(library, "GetGuidReader");
  if (!getReader) {
    fprintf(stderr, "kyguid: KyGuid64.dll could not be loaded from the tool's folder.\n");
    return kExitNoLibrary;
  }
  KyGuid::IGuidReader* reader = getReader();
  char guid[33] = {};
  if (!reader || !reader->GetGuidStringA(guid, sizeof(guid))) {
    fprintf(stderr, "kyguid: there is no machine GUID yet (no valid Guid.db).\n");
    return kExitNoGuid;
  }
  printf("%s\n", guid);
  return kExitOk;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0) {
    fputs(kUsage, argc < 2 ? stderr : stdout);
    return argc < 2 ? kExitUsage : kExitOk;
  }
  std::string command = argv[1];
  if (command == "read") {
    if (argc > 2 && strcmp(argv[2], "--help") == 0) {
      puts("usage: kyguid read\nprints the machine GUID; exit 1 when there is none");
      return kExitOk;
    }
    if (argc > 2) {
      fprintf(stderr, "kyguid: unknown option '%s' for read.\n", argv[2]);
      return kExitUsage;
    }
    return Read();
  }
  fprintf(stderr, "kyguid: unknown command '%s'; try kyguid --help.\n", command.c_str());
  return kExitUsage;
}
