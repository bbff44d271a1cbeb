// Measures the reader's hot path against its floor and an update against
// the profile-file calls it makes, and prints a table and JSON.
//
//   kyguidbench.exe [--json FILE]
//   kyguidbench.exe --updates        the updates alone, one line each, for
//                                    tools/bench.sh --baseline, which runs the
//                                    bench built against two revisions in turn
//
// Every figure is the median of several repetitions. The reader is measured
// through KyGuid64.dll beside this program, on the machine's Guid.db (one is
// written for the run when there is none); updates run the linked core on
// simulated machines in a folder of their own.
#include <windows.h>
#include <psapi.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <new>
#include <string>
#include <vector>

#include "bench/importhook.h"
#include "common/win32raii.h"
#include "kyguidlib/cguidreader.h"
#include "kyguidlib/cguidupdater.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/kyguidapi.h"
#include "kyguidlib/platform_override.h"
#include "tools/simmachine/simulatedmachine.h"

// --- Heap allocations made through operator new in this process ----------

namespace {
std::atomic<long> g_allocations{0};
}

void* operator new(size_t size) {
  ++g_allocations;
  if (void* block = HeapAlloc(GetProcessHeap(), 0, size ? size : 1)) return block;
  throw std::bad_alloc();
}
void* operator new[](size_t size) { return operator new(size); }
void operator delete(void* block) noexcept { HeapFree(GetProcessHeap(), 0, block); }
void operator delete[](void* block) noexcept { HeapFree(GetProcessHeap(), 0, block); }
void operator delete(void* block, size_t) noexcept { HeapFree(GetProcessHeap(), 0, block); }
void operator delete[](void* block, size_t) noexcept { HeapFree(GetProcessHeap(), 0, block); }

namespace {

constexpr int kRepetitions = 7;
constexpr int kFloorPairs = 15;
constexpr char kBenchGuid[] = "0123456789abcdef0123456789abcdef";

double Now() {
  static LARGE_INTEGER frequency = [] {
    LARGE_INTEGER f;
    QueryPerformanceFrequency(&f);
    return f;
  }();
  LARGE_INTEGER counter;
  QueryPerformanceCounter(&counter);
  return static_cast<double>(counter.QuadPart) / frequency.QuadPart;
}

double Median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

// Nanoseconds per call, median over the repetitions.
double NsPerCall(int calls, const std::function<void()>& call, int repetitions = kRepetitions) {
  std::vector<double> samples;
  for (int rep = 0; rep < repetitions; ++rep) {
    double start = Now();
    for (int i = 0; i < calls; ++i) call();
    samples.push_back((Now() - start) * 1e9 / calls);
  }
  return Median(samples);
}

// The reader against its floor. Their repetitions alternate, so a slow
// phase of the machine (Wine's server shares two cores with everything
// else) weighs on both alike; the ratio is the median of the repetitions'
// own ratios, not a quotient of two medians taken at different times.
struct AgainstFloor {
  double floorNs, readerNs, ratio;
};

AgainstFloor MeasureAgainstFloor(int calls, const std::function<void()>& floorCall,
                                 const std::function<void()>& readerCall) {
  std::vector<double> floors, readers, ratios;
  for (int rep = 0; rep < kFloorPairs; ++rep) {
    const double floorNs = NsPerCall(calls, floorCall, 1);
    const double readerNs = NsPerCall(calls, readerCall, 1);
    floors.push_back(floorNs);
    readers.push_back(readerNs);
    ratios.push_back(readerNs / floorNs);
  }
  return {Median(floors), Median(readers), Median(ratios)};
}

std::string ExeDir() {
  char path[MAX_PATH] = {};
  GetModuleFileNameA(nullptr, path, MAX_PATH);
  std::string dir = path;
  return dir.substr(0, dir.find_last_of('\\'));
}

struct JsonOut {
  std::string text = "{";
  bool first = true;
  void Number(const std::string& key, double value) {
    char buffer[64];
    snprintf(buffer, sizeof(buffer), "%.6g", value);
    Raw(key, buffer);
  }
  void Raw(const std::string& key, const std::string& value) {
    text += (first ? "\n  \"" : ",\n  \"") + key + "\": " + value;
    first = false;
  }
};

// --- Profile calls of an update, counted and recorded for replay ----------

struct ProfileCall {
  int kind;  // 0 string read, 1 int read, 2 write
  std::string section, key, value, file;
  int intDefault = 0;
  bool nullValue = false;
};

using GetStringFn = DWORD(WINAPI*)(LPCSTR, LPCSTR, LPCSTR, LPSTR, DWORD, LPCSTR);
using GetIntFn = UINT(WINAPI*)(LPCSTR, LPCSTR, INT, LPCSTR);
using WriteStringFn = BOOL(WINAPI*)(LPCSTR, LPCSTR, LPCSTR, LPCSTR);
GetStringFn g_getString = nullptr;
GetIntFn g_getInt = nullptr;
WriteStringFn g_writeString = nullptr;
bool g_recording = false;
std::vector<ProfileCall> g_calls;
long g_reads = 0;
long g_writes = 0;

std::string Text(const char* s) { return s ? s : ""; }

DWORD WINAPI CountedGetString(LPCSTR section, LPCSTR key, LPCSTR def, LPSTR out, DWORD size,
                              LPCSTR file) {
  ++g_reads;
  if (g_recording)
    g_calls.push_back({0, Text(section), Text(key), Text(def), Text(file), 0, false});
  return g_getString(section, key, def, out, size, file);
}

UINT WINAPI CountedGetInt(LPCSTR section, LPCSTR key, INT def, LPCSTR file) {
  ++g_reads;
  if (g_recording) g_calls.push_back({1, Text(section), Text(key), "", Text(file), def, false});
  return g_getInt(section, key, def, file);
}

BOOL WINAPI CountedWriteString(LPCSTR section, LPCSTR key, LPCSTR value, LPCSTR file) {
  ++g_writes;
  if (g_recording) {
    g_calls.push_back({2, Text(section), Text(key), Text(value), Text(file), 0, value == nullptr});
  }
  return g_writeString(section, key, value, file);
}

void HookProfileCalls() {
  g_getString = reinterpret_cast<GetStringFn>(KyGuidBench::HookImport(
      "kernel32.dll", "GetPrivateProfileStringA", reinterpret_cast<void*>(&CountedGetString)));
  g_getInt = reinterpret_cast<GetIntFn>(KyGuidBench::HookImport(
      "kernel32.dll", "GetPrivateProfileIntA", reinterpret_cast<void*>(&CountedGetInt)));
  g_writeString = reinterpret_cast<WriteStringFn>(KyGuidBench::HookImport(
      "kernel32.dll", "WritePrivateProfileStringA", reinterpret_cast<void*>(&CountedWriteString)));
}

void Replay(const std::vector<ProfileCall>& calls) {
  char buffer[4096];
  for (const ProfileCall& call : calls) {
    switch (call.kind) {
      case 0:
        g_getString(call.section.c_str(), call.key.c_str(), call.value.c_str(), buffer,
                    sizeof(buffer), call.file.c_str());
        break;
      case 1:
        g_getInt(call.section.c_str(), call.key.c_str(), call.intDefault, call.file.c_str());
        break;
      default:
        g_writeString(call.section.c_str(), call.key.c_str(),
                      call.nullValue ? nullptr : call.value.c_str(), call.file.c_str());
        break;
    }
  }
}

// --- Simulated machines for the update runs -------------------------------

class BenchFolders final : public KyGuid::IFolders {
 public:
  explicit BenchFolders(std::string root) : m_root(std::move(root)) {
    CreateDirectoryA(m_root.c_str(), nullptr);
    CreateDirectoryA((m_root + "\\common").c_str(), nullptr);
    CreateDirectoryA((m_root + "\\user").c_str(), nullptr);
  }
  bool GetFolder(int csidl, std::wstring& path) override {
    std::string folder = m_root + ((csidl & 0xFF) == 0x23 ? "\\common" : "\\user");
    path.assign(folder.begin(), folder.end());
    return true;
  }
  const std::string& Root() const { return m_root; }

 private:
  std::string m_root;
};

class BenchUpdater final : public KyGuid::CGuidUpdater {
 public:
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
};

void BuildMachine(KyGuidSim::SimulatedMachine& machine, int disks, int adapters) {
  for (int i = 0; i < disks; ++i) {
    machine.AddDrive(i).descriptor =
        KyGuidSim::SimulatedMachine::Descriptor("ATA", "Model " + std::to_string(i), "FW01",
                                                "SERIAL" + std::to_string(1000 + i), 11, false);
  }
  machine.AddVolume(L'C').extents = KyGuidSim::SimulatedMachine::Extents({{0, 1ull << 30}});
  for (int i = 0; i < adapters; ++i) {
    std::vector<uint8_t> mac = {
        0x00, 0x11, 0x22, 0x33, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
    machine.AddAdapter("{NIC-" + std::to_string(i) + "}", "Ethernet " + std::to_string(i), mac)
        .pnpId = "PCI\\VEN_8086&DEV_" + std::to_string(i);
  }
}

void ClearFolder(const std::string& folder) {
  WIN32_FIND_DATAA data;
  const KyGuidUtils::UniqueFind find(FindFirstFileA((folder + "\\*").c_str(), &data));
  if (!find) return;
  do {
    if (!(data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY)) {
      DeleteFileA((folder + "\\" + data.cFileName).c_str());
    }
  } while (FindNextFileA(find.get(), &data));
}

struct UpdateFigures {
  int disks, adapters;
  const char* kind;
  double updateMs, replayMs;
  long reads, writes;
};

// One kind of update ("build": first GUID of the machine; "keep": an
// unchanged machine) on a machine of the given size.
UpdateFigures MeasureUpdate(int disks, int adapters, bool build, const std::string& root) {
  BenchFolders folders(root);
  KyGuidSim::SimulatedMachine machine;
  BuildMachine(machine, disks, adapters);
  KyGuid::ScopedPlatform platform(KyGuid::Platform{&folders, nullptr, &machine});
  const std::string common = root + "\\common\\Corvane\\Greibraske";
  const std::string user = root + "\\user\\Corvane\\Greibraske";
  ClearFolder(common);
  ClearFolder(user);
  BenchUpdater updater;
  updater.UpdateNow();  // creates the folders; for "keep" also the GUID in force
  const std::string snapshot = root + "\\snapshot";
  CreateDirectoryA(snapshot.c_str(), nullptr);
  CopyFileA((common + "\\Guid.db").c_str(), (snapshot + "\\Guid.db").c_str(), FALSE);

  auto startState = [&] {
    ClearFolder(user);
    ClearFolder(common);
    if (!build) CopyFileA((snapshot + "\\Guid.db").c_str(), (common + "\\Guid.db").c_str(), FALSE);
  };

  std::vector<double> updates;
  std::vector<double> replays;
  g_calls.clear();
  long reads = 0, writes = 0;
  for (int rep = 0; rep < kRepetitions; ++rep) {
    startState();
    g_reads = g_writes = 0;
    g_recording = rep == 0;
    double start = Now();
    updater.UpdateNow();
    updates.push_back((Now() - start) * 1000);
    g_recording = false;
    if (rep == 0) {
      reads = g_reads;
      writes = g_writes;
    }
  }
  for (int rep = 0; rep < kRepetitions; ++rep) {
    startState();
    double start = Now();
    Replay(g_calls);
    replays.push_back((Now() - start) * 1000);
  }
  return {disks, adapters, build ? "build" : "keep", Median(updates), Median(replays),
          reads, writes};
}

}  // namespace

std::vector<UpdateFigures> MeasureUpdates() {
  HookProfileCalls();
  char temp[MAX_PATH];
  GetTempPathA(MAX_PATH, temp);
  const std::string root =
      std::string(temp) + "kyguidbench-" + std::to_string(GetCurrentProcessId());
  std::vector<UpdateFigures> updates;
  for (auto size : {std::pair<int, int>{1, 1}, {4, 8}, {16, 32}}) {
    updates.push_back(MeasureUpdate(size.first, size.second, true, root));
    updates.push_back(MeasureUpdate(size.first, size.second, false, root));
  }
  return updates;
}

namespace {

struct Figures {
  AgainstFloor againstFloor{};
  double profileNs = 0, registryNs = 0;
  std::vector<double> perSecond, floorPerSecond;  // 1, 2 and 4 threads
  long fastPathAllocations = 0;
  std::vector<UpdateFigures> updates;
  double dllKb = 0, privateKb = 0, workingKb = 0;
};

// The DLL loaded and read once, measured before anything else of it is
// loaded: its size on disk and what loading it costs the process.
KyGuid::IGuidReader* LoadMeasured(const std::string& dllPath, Figures& figures) {
  WIN32_FILE_ATTRIBUTE_DATA dllData{};
  GetFileAttributesExA(dllPath.c_str(), GetFileExInfoStandard, &dllData);
  PROCESS_MEMORY_COUNTERS_EX before{}, after{};
  GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&before),
                       sizeof(before));
  HMODULE library = LoadLibraryA(dllPath.c_str());
  auto getReader = reinterpret_cast<GetGuidReaderFn>(
      reinterpret_cast<void*>(GetProcAddress(library, "GetGuidReader")));
  if (!getReader) return nullptr;
  KyGuid::IGuidReader* reader = getReader();
  char text[33] = {};
  reader->GetGuidStringA(text, sizeof(text));
  GetProcessMemoryInfo(GetCurrentProcess(), reinterpret_cast<PROCESS_MEMORY_COUNTERS*>(&after),
                       sizeof(after));
  figures.dllKb = dllData.nFileSizeLow / 1024.0;
  figures.privateKb = (static_cast<double>(after.PrivateUsage) - before.PrivateUsage) / 1024.0;
  figures.workingKb = (static_cast<double>(after.WorkingSetSize) - before.WorkingSetSize) / 1024.0;
  return reader;
}

// The reader against its floor, the profile read and the registry.
void MeasureReads(KyGuid::IGuidReader* reader, const std::string& guidDb, Figures& figures) {
  {
    KyGuidUtils::UniqueRegKey key;
    RegCreateKeyExA(HKEY_CURRENT_USER, "Software\\KyGuidBench", 0, nullptr, 0, KEY_ALL_ACCESS,
                    nullptr, key.put(), nullptr);
    RegSetValueExA(key.get(), "MachineGuid", 0, REG_SZ, reinterpret_cast<const BYTE*>(kBenchGuid),
                   33);
  }
  char buffer[256];
  char text[33] = {};
  WIN32_FILE_ATTRIBUTE_DATA attributes;
  figures.againstFloor = MeasureAgainstFloor(
      50000, [&] { GetFileAttributesExA(guidDb.c_str(), GetFileExInfoStandard, &attributes); },
      [&] { reader->GetGuidStringA(text, sizeof(text)); });
  figures.profileNs = NsPerCall(3000, [&] {
    GetPrivateProfileStringA("ActiveGuid", "Guid", "", buffer, sizeof(buffer), guidDb.c_str());
  });
  figures.registryNs = NsPerCall(20000, [&] {
    DWORD size = sizeof(buffer);
    RegGetValueA(HKEY_CURRENT_USER, "Software\\KyGuidBench", "MachineGuid", RRF_RT_REG_SZ, nullptr,
                 buffer, &size);
  });
  RegDeleteKeyA(HKEY_CURRENT_USER, "Software\\KyGuidBench");
}

struct ThroughputWork {
  KyGuid::IGuidReader* reader;
  const char* path;
  bool floorOnly;
  std::atomic<long>* calls;
  std::atomic<bool>* stop;
};

DWORD WINAPI ThroughputThread(void* context) {
  ThroughputWork* w = static_cast<ThroughputWork*>(context);
  char local[33];
  WIN32_FILE_ATTRIBUTE_DATA data;
  long count = 0;
  while (!w->stop->load(std::memory_order_relaxed)) {
    if (w->floorOnly) {
      GetFileAttributesExA(w->path, GetFileExInfoStandard, &data);
    } else {
      w->reader->GetGuidStringA(local, sizeof(local));
    }
    ++count;
  }
  *w->calls += count;
  return 0;
}

// Aggregate calls per second from several threads, the reader's or its
// floor's: the floor shows what the system itself allows.
double Throughput(KyGuid::IGuidReader* reader, const std::string& guidDb, int threads,
                  bool floorOnly) {
  std::vector<double> samples;
  for (int rep = 0; rep < kRepetitions; ++rep) {
    std::atomic<long> calls{0};
    std::atomic<bool> stop{false};
    ThroughputWork work{reader, guidDb.c_str(), floorOnly, &calls, &stop};
    std::vector<HANDLE> handles;
    for (int t = 0; t < threads; ++t) {
      handles.push_back(CreateThread(nullptr, 0, ThroughputThread, &work, 0, nullptr));
    }
    const double start = Now();
    Sleep(300);
    stop = true;
    WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), TRUE, INFINITE);
    const double seconds = Now() - start;
    for (HANDLE handle : handles) CloseHandle(handle);
    samples.push_back(calls / seconds);
  }
  return Median(samples);
}

// Allocations on the fast path of the same reader, linked in.
long FastPathAllocations() {
  class LinkedReader final : public KyGuid::CGuidReader {
   public:
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID, void**) override { return E_NOINTERFACE; }
    ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
    ULONG STDMETHODCALLTYPE Release() override { return 1; }
  } linked;
  char text[33] = {};
  linked.GetGuidStringA(text, sizeof(text));  // first read parses the file
  const long allocationsBefore = g_allocations;
  for (int i = 0; i < 10000; ++i) linked.GetGuidStringA(text, sizeof(text));
  return g_allocations - allocationsBefore;
}

void PrintTable(const Figures& f) {
  const double readerNs = f.againstFloor.readerNs;
  printf("reader (ns per call, median of %d; floor and reader in alternation, others of %d)\n",
         kFloorPairs, kRepetitions);
  printf("  floor: GetFileAttributesExA      %10.0f\n", f.againstFloor.floorNs);
  printf("  reader: GetGuidStringA           %10.0f   %.2f x floor\n", readerNs,
         f.againstFloor.ratio);
  printf("  GetPrivateProfileStringA         %10.0f   reader is %.1f x faster\n", f.profileNs,
         f.profileNs / readerNs);
  printf("  RegGetValueA                     %10.0f   reader is %.1f x faster\n", f.registryNs,
         f.registryNs / readerNs);
  printf("threads (calls per second, all threads)     reader          floor\n");
  const char* names[] = {"1 thread ", "2 threads", "4 threads"};
  for (int i = 0; i < 3; ++i) {
    printf("  %s  %12.0f (%.2f x one) %12.0f (%.2f x one)\n", names[i], f.perSecond[i],
           f.perSecond[i] / f.perSecond[0], f.floorPerSecond[i],
           f.floorPerSecond[i] / f.floorPerSecond[0]);
  }
  printf("heap allocations in 10000 fast-path reads: %ld\n", f.fastPathAllocations);
  printf("updates (ms, median of %d)\n", kRepetitions);
  printf("  disks adapters kind   update  reads writes  replay  ratio\n");
  for (const UpdateFigures& u : f.updates) {
    printf("  %5d %8d %-5s %7.2f %6ld %6ld %7.2f %6.2f\n", u.disks, u.adapters, u.kind, u.updateMs,
           u.reads, u.writes, u.replayMs, u.updateMs / u.replayMs);
  }
  printf(
      "KyGuid64.dll: %.0f KiB on disk; load and one read: +%.0f KiB private, +%.0f KiB working "
      "set\n",
      f.dllKb, f.privateKb, f.workingKb);
}

std::string UpdatesJson(const std::vector<UpdateFigures>& updates) {
  std::string list = "[";
  for (const UpdateFigures& u : updates) {
    char entry[256];
    snprintf(entry, sizeof(entry),
             "%s\n    {\"disks\": %d, \"adapters\": %d, \"kind\": \"%s\", \"update_ms\": %.3f, "
             "\"reads\": %ld, \"writes\": %ld, \"replay_ms\": %.3f, \"ratio\": %.3f}",
             list.size() > 1 ? "," : "", u.disks, u.adapters, u.kind, u.updateMs, u.reads, u.writes,
             u.replayMs, u.updateMs / u.replayMs);
    list += entry;
  }
  return list + "\n  ]";
}

std::string FiguresJson(const Figures& f) {
  JsonOut json;
  json.Number("floor_ns", f.againstFloor.floorNs);
  json.Number("reader_ns", f.againstFloor.readerNs);
  json.Number("profile_read_ns", f.profileNs);
  json.Number("registry_read_ns", f.registryNs);
  json.Number("reader_over_floor", f.againstFloor.ratio);
  json.Number("registry_over_reader", f.registryNs / f.againstFloor.readerNs);
  for (int i = 0; i < 3; ++i) {
    json.Number("calls_per_second_" + std::to_string(1 << i), f.perSecond[i]);
  }
  for (int i = 0; i < 3; ++i) {
    json.Number("floor_calls_per_second_" + std::to_string(1 << i), f.floorPerSecond[i]);
  }
  json.Number("fast_path_allocations", static_cast<double>(f.fastPathAllocations));
  json.Raw("updates", UpdatesJson(f.updates));
  json.Number("dll_kib", f.dllKb);
  json.Number("load_private_kib", f.privateKb);
  json.Number("load_working_set_kib", f.workingKb);
  return json.text + "\n}\n";
}

}  // namespace

int main(int argc, char** argv) {
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  std::string jsonPath;
  for (int i = 1; i + 1 < argc; ++i) {
    if (strcmp(argv[i], "--json") == 0) jsonPath = argv[i + 1];
  }
  if (argc == 2 && strcmp(argv[1], "--updates") == 0) {
    for (const UpdateFigures& u : MeasureUpdates()) {
      printf("update %d %d %s %.3f\n", u.disks, u.adapters, u.kind, u.updateMs);
    }
    return 0;
  }
  // The reader reads a Guid.db of its own when the machine has none.
  const std::string guidDb = KyGuid::GetGuidFilePath();
  const bool wroteGuidDb = GetFileAttributesA(guidDb.c_str()) == INVALID_FILE_ATTRIBUTES;
  if (wroteGuidDb) {
    CreateDirectoryA(KyGuid::GetProfileDirA().c_str(), nullptr);
    WritePrivateProfileStringA("ActiveGuid", "Guid", kBenchGuid, guidDb.c_str());
  }
  Figures figures;
  const std::string dllPath = ExeDir() + "\\KyGuid64.dll";
  KyGuid::IGuidReader* reader = LoadMeasured(dllPath, figures);
  if (!reader) {
    fprintf(stderr, "kyguidbench: KyGuid64.dll could not be loaded from %s\n", dllPath.c_str());
    if (wroteGuidDb) DeleteFileA(guidDb.c_str());
    return 3;
  }
  MeasureReads(reader, guidDb, figures);
  for (int threads : {1, 2, 4}) {
    figures.perSecond.push_back(Throughput(reader, guidDb, threads, false));
    figures.floorPerSecond.push_back(Throughput(reader, guidDb, threads, true));
  }
  figures.fastPathAllocations = FastPathAllocations();
  if (wroteGuidDb) DeleteFileA(guidDb.c_str());
  figures.updates = MeasureUpdates();

  PrintTable(figures);
  const std::string json = FiguresJson(figures);
  printf("%s", json.c_str());
  if (!jsonPath.empty()) {
    if (FILE* out = fopen(jsonPath.c_str(), "w")) {
      fputs(json.c_str(), out);
      fclose(out);
    }
  }
  return 0;
}
