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
    "  update  run a synchronous update and print what it did\n"
    "  build   print the GUID the present hardware gives, writing nothing\n"
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

struct Library {
  KyGuid::IGuidReader* reader = nullptr;
  KyGuid::IGuidUpdater* updater = nullptr;
};

bool LoadLibraryInterfaces(Library& library) {
  HMODULE module = LoadLibraryBesideExecutable();
  auto getReader = KyGuidUtils::GetProcAs<GetGuidReaderFn>(module, "GetGuidReader");
  auto getUpdater = KyGuidUtils::GetProcAs<GetGuidUpdaterFn>(module, "GetGuidUpdater");
  library.reader = getReader ? getReader() : nullptr;
  library.updater = getUpdater ? getUpdater() : nullptr;
  if (library.reader && library.updater) return true;
  fprintf(stderr, "kyguid: KyGuid64.dll could not be loaded from the tool's folder.\n");
  return false;
}

std::string ReadGuid(KyGuid::IGuidReader* reader) {
  char guid[33] = {};
  return reader->GetGuidStringA(guid, sizeof(guid)) ? std::string(guid) : std::string();
}

int Read() {
  Library library;
  if (!LoadLibraryInterfaces(library)) return kExitNoLibrary;
  std::string guid = ReadGuid(library.reader);
  if (guid.empty()) {
    fprintf(stderr, "kyguid: there is no machine GUID yet (no valid Guid.db).\n");
    return kExitNoGuid;
  }
  printf("%s\n", guid.c_str());
  return kExitOk;
}

const char* UpdateMeaning(uint32_t result) {
  switch (result) {
    case 1: return "updated";
    case 2: return "another process finished an update meanwhile";
    case 0: return "another process is still updating";
    case 0xFFFFFFFFu: return "the update right could not be taken (administrator rights?)";
    default: return "unknown result";
  }
}

int Update() {
  Library library;
  if (!LoadLibraryInterfaces(library)) return kExitNoLibrary;
  const std::string before = ReadGuid(library.reader);
  const uint32_t result = library.updater->UpdateNow();
  const std::string after = ReadGuid(library.reader);
  printf("result: %d (%s)\n", static_cast<int>(result), UpdateMeaning(result));
  printf("old:    %s\n", before.empty() ? "(none)" : before.c_str());
  printf("new:    %s\n", after.empty() ? "(none)" : after.c_str());
  if (result != 1 && result != 2) return kExitNoGuid;
  return after.empty() ? kExitNoGuid : kExitOk;
}

int Build() {
  Library library;
  if (!LoadLibraryInterfaces(library)) return kExitNoLibrary;
  char guid[33] = {};
  if (!library.updater->BuildGuidNow(guid, sizeof(guid))) {
    fprintf(stderr, "kyguid: no GUID could be built from this machine's hardware.\n");
    return kExitNoGuid;
  }
  printf("%s\n", guid);
  return kExitOk;
}

struct Command {
  const char* name;
  const char* help;
  int (*run)();
};

const Command kCommands[] = {
    {"read", "usage: kyguid read\nprints the machine GUID; exit 1 when there is none", &Read},
    {"update",
     "usage: kyguid update\nruns a synchronous update (the 12-hour limit does not apply) and\n"
     "prints its result with the GUID before and after; exit 1 when no GUID resulted",
     &Update},
    {"build",
     "usage: kyguid build\nprints the GUID the present hardware gives, writing nothing",
     &Build},
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || strcmp(argv[1], "--help") == 0 || strcmp(argv[1], "-h") == 0) {
    fputs(kUsage, argc < 2 ? stderr : stdout);
    return argc < 2 ? kExitUsage : kExitOk;
  }
  const std::string name = argv[1];
  for (const Command& command : kCommands) {
    if (name != command.name) continue;
    if (argc > 2 && strcmp(argv[2], "--help") == 0) {
      puts(command.help);
      return kExitOk;
    }
    if (argc > 2) {
      fprintf(stderr, "kyguid: unknown option '%s' for %s.\n", argv[2], command.name);
      return kExitUsage;
    }
    return command.run();
  }
  fprintf(stderr, "kyguid: unknown command '%s'; try kyguid --help.\n", name.c_str());
  return kExitUsage;
}
