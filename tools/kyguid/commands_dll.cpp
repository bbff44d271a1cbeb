// read, update and build: what a client of the suite gets from the shipped
// KyGuid64.dll, so these always go through the DLL beside the tool.
#include <windows.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "common/modules.h"
#include "common/win32raii.h"
#include "kyguidlib/cguidbuilder.h"
#include "kyguidlib/cguidreporter.h"
#include "kyguidlib/datafolder.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/kyguidapi.h"
#include "tools/kyguid/cli.h"
#include "tools/kyguid/describe.h"
#include "tools/kyguid/jsonwriter.h"
#include "tools/kyguid/whatif.h"

namespace KyGuidCli {
namespace {

// The DLL beside this executable, so the tool always shows its own copy.
HMODULE LoadLibraryBesideExecutable() {
  return KyGuidUtils::LoadModuleFromFolder(KyGuidUtils::ExecutableDir().c_str(), L"KyGuid64.dll");
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
  PrintError("KyGuid64.dll could not be loaded from the tool's folder");
  return false;
}

std::string ReadGuid(KyGuid::IGuidReader* reader) {
  char guid[33] = {};
  return reader->GetGuidStringA(guid, sizeof(guid)) ? std::string(guid) : std::string();
}

// What UpdateNow says when the update did not run in this process.
const char* CallMeaning(uint32_t call) {
  switch (call) {
    case 2:
      return "another process finished an update meanwhile";
    case 0:
      return "another process is still updating";
    case 0xFFFFFFFFu:
      return "the update right could not be taken (administrator rights?)";
    default:
      return "unknown result";
  }
}

// The update result, from what the run left: a synchronous update caches a
// report for every result but "kept", so a new report gives the result and
// none means the GUID was kept. False when the update did not run here.
bool UpdateResultAfter(uint32_t call, const KyGuid::CGuidReporter::CacheMark& before, int& result) {
  if (call != 1) return false;
  const KyGuid::CGuidReporter::CacheMark after = KyGuid::CGuidReporter().LastCached();
  result = KyGuid::kResultKept;
  if (after.count != before.count && !after.lastResult.empty()) {
    result = atoi(after.lastResult.c_str());
  }
  return true;
}

// An update that cannot write Guid.db would still report a GUID it never
// kept; say so before starting one. The folder is made as the library makes
// it, protected when the tool runs elevated.
bool DataFolderWritable(const std::string& folder) {
  if (folder.empty()) return false;
  KyGuid::EnsureDataFolder();
  KyGuidUtils::UniqueFile probe(
      CreateFileA((folder + "\\kyguid-write-probe.tmp").c_str(), GENERIC_WRITE, 0, nullptr,
                  CREATE_ALWAYS, FILE_ATTRIBUTE_TEMPORARY | FILE_FLAG_DELETE_ON_CLOSE, nullptr));
  return probe.valid();
}

void PrintGuid(const Options& options, const std::string& guid) {
  if (!options.json) {
    printf("%s\n", guid.c_str());
    return;
  }
  JsonWriter json;
  json.BeginObject().String("guid", guid).EndObject();
  printf("%s\n", json.Text().c_str());
}

void WriteGuidOrNull(JsonWriter& json, const char* key, const std::string& guid) {
  if (guid.empty()) {
    json.Null(key);
  } else {
    json.String(key, guid);
  }
}

// The GUID this machine's hardware gives, through the DLL, writing nothing;
// empty when none results.
int BuildThroughLibrary(std::string& guid) {
  Library library;
  if (!LoadLibraryInterfaces(library)) return kExitNoLibrary;
  char text[33] = {};
  if (library.updater->BuildGuidNow(text, sizeof(text))) guid = text;
  return kExitOk;
}

// The same for a simulated machine, through the core linked into the tool:
// the same decision the DLL runs, saving nothing.
int BuildOnMachine(const std::string& machineFile, std::string& guid) {
  WhatIfMachine machine;
  if (!machine.Install(machineFile)) return kExitBadMachineFile;
  KyGuid::CGuidBuilder builder;
  builder.DecideNewGuid();
  guid = builder.NewInfo().Guid;
  return kExitOk;
}

}  // namespace

int ReadCommand(const Options& options) {
  Library library;
  if (!LoadLibraryInterfaces(library)) return kExitNoLibrary;
  const std::string guid = ReadGuid(library.reader);
  if (guid.empty()) {
    PrintError("there is no machine GUID yet (no valid Guid.db)");
    return kExitNoGuid;
  }
  PrintGuid(options, guid);
  return kExitOk;
}

int UpdateCommand(const Options& options) {
  const std::string folder = KyGuid::GetProfileDirA();
  if (!DataFolderWritable(folder)) {
    PrintError("the data folder %s is not writable, so no update can be saved",
               folder.empty() ? "(unknown)" : folder.c_str());
    return kExitNotWritable;
  }
  Library library;
  if (!LoadLibraryInterfaces(library)) return kExitNoLibrary;
  const std::string before = ReadGuid(library.reader);
  const KyGuid::CGuidReporter::CacheMark cached = KyGuid::CGuidReporter().LastCached();
  const uint32_t call = library.updater->UpdateNow();
  const std::string after = ReadGuid(library.reader);
  int result = 0;
  const bool ran = UpdateResultAfter(call, cached, result);
  const char* meaning = ran ? DescribeResult(result).done : CallMeaning(call);
  if (options.json) {
    JsonWriter json;
    json.BeginObject();
    if (ran) {
      json.Int("result", result);
    } else {
      json.Null("result");
    }
    json.String("meaning", meaning);
    WriteGuidOrNull(json, "oldGuid", before);
    WriteGuidOrNull(json, "newGuid", after);
    printf("%s\n", json.EndObject().Text().c_str());
  } else {
    if (ran) {
      printf("result: %d (%s)\n", result, meaning);
    } else {
      printf("result: none (%s)\n", meaning);
    }
    printf("old:    %s\n", before.empty() ? "(none)" : before.c_str());
    printf("new:    %s\n", after.empty() ? "(none)" : after.c_str());
  }
  if (call != 1 && call != 2) return kExitNoGuid;
  return after.empty() ? kExitNoGuid : kExitOk;
}

int BuildCommand(const Options& options) {
  std::string guid;
  const int built = options.machineFile.empty() ? BuildThroughLibrary(guid)
                                                : BuildOnMachine(options.machineFile, guid);
  if (built != kExitOk) return built;
  if (guid.empty()) {
    PrintError("no GUID could be built from this machine's hardware");
    return kExitNoGuid;
  }
  PrintGuid(options, guid);
  return kExitOk;
}

}  // namespace KyGuidCli
