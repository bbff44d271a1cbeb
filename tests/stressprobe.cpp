// One process of the concurrency and kill tests (concurrency_test.cpp).
//   stressprobe read <ms> <out>       reads through KyGuid64.dll in a loop;
//                                     writes "reads N", "invalid N", "guid X"
//   stressprobe update <ms> <journal> <identities>
//                                     updates in a loop on simulated machines
//                                     taking the identities ("a", "b") in turn
//   stressprobe expect                prints the GUID of each identity
//   stressprobe dllupdate <name>      one UpdateNow through KyGuid64.dll: sets
//                                     event <name>-ready, waits for <name>-go,
//                                     updates, sets <name>-done
// Updates use the machine's real profile folder, as the DLL does, so every
// process shares one Guid.db and one update right.
#include <windows.h>

#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <string>

#include "common/modules.h"
#include "common/strutil.h"
#include "common/win32raii.h"
#include "kyguidlib/cguidbuilder.h"
#include "kyguidlib/cguidupdater.h"
#include "kyguidlib/kyguidapi.h"
#include "kyguidlib/platform_override.h"
#include "kyguidlib/singletonex.h"
#include "tools/simmachine/simulatedmachine.h"

namespace {

using KyGuidSim::SimulatedMachine;

SimulatedMachine* MakeMachine(char identity) {
  auto* machine = new SimulatedMachine();
  const bool a = identity == 'a';
  machine->AddDrive(0).descriptor =
      SimulatedMachine::Descriptor("", a ? "ST1000DM010" : "WDC WD20EZRZ", "CC43",
                                   a ? "Z9A1B2C3" : "WD-WCC4M0000001", 11, false);
  machine
      ->AddAdapter(a ? "{NIC-A}" : "{NIC-B}", a ? "Ethernet A" : "Ethernet B",
                   a ? std::vector<uint8_t>{0x00, 0x11, 0x22, 0xAA, 0xBB, 0xCC}
                     : std::vector<uint8_t>{0x00, 0x1A, 0x2B, 0x3C, 0x4D, 0x5E})
      .pnpId = "PCI\\VEN_8086";
  return machine;
}

// Forwards to the machine of the moment and notes each device open in the
// journal. Devices are opened only by a builder, which runs only under the
// update right, so the opens of one update must never interleave with those
// of another process's update.
class JournalingHardware final : public KyGuid::IHardware {
 public:
  explicit JournalingHardware(const std::string& journal) : m_journal(journal) {}
  void Use(SimulatedMachine* machine, int update) {
    m_machine = machine;
    m_update = update;
  }
  std::unique_ptr<KyGuid::IDevice> OpenDevice(const std::wstring& path, uint32_t access,
                                              uint32_t share, uint32_t flags,
                                              uint32_t* error) override {
    Note();
    return m_machine->OpenDevice(path, access, share, flags, error);
  }
  std::unique_ptr<KyGuid::IAdapterQuery> LoadAdapterQuery() override {
    Note();
    return m_machine->LoadAdapterQuery();
  }
  bool ReadNetworkString(const std::string& key, const char* name, uint32_t maxBytes,
                         std::string& value) override {
    return m_machine->ReadNetworkString(key, name, maxBytes, value);
  }
  bool ReadNetworkDword(const std::string& key, const char* name, uint32_t& value) override {
    return m_machine->ReadNetworkDword(key, name, value);
  }
  bool FindWmiAdapter(const std::string& pnpId) override {
    return m_machine->FindWmiAdapter(pnpId);
  }
  bool ReadProcessorBrand(std::vector<uint8_t>& registers) override {
    return m_machine->ReadProcessorBrand(registers);
  }
  uint8_t Netbios(void* ncb) override { return m_machine->Netbios(ncb); }

 private:
  // One WriteFile of one line to a file opened for appending: the lines of
  // all processes stay whole and in the order they were written.
  void Note() {
    char line[64];
    int length = snprintf(line, sizeof(line), "in %lu %d\n", GetCurrentProcessId(), m_update);
    KyGuidUtils::UniqueFile file(CreateFileA(m_journal.c_str(), FILE_APPEND_DATA,
                                             FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                             nullptr, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr));
    DWORD written = 0;
    if (file) WriteFile(file.get(), line, static_cast<DWORD>(length), &written, nullptr);
  }

  std::string m_journal;
  SimulatedMachine* m_machine = nullptr;
  int m_update = 0;
};

// An export of KyGuid64.dll beside this executable.
template <typename Fn>
Fn DllExport(const char* name) {
  static HMODULE library =
      KyGuidUtils::LoadModuleFromFolder(KyGuidUtils::ExecutableDir().c_str(), L"KyGuid64.dll");
  return KyGuidUtils::GetProcAs<Fn>(library, name);
}

int Read(DWORD durationMs, const char* outPath) {
  auto getReader = DllExport<GetGuidReaderFn>("GetGuidReader");
  if (!getReader) return 2;
  KyGuid::IGuidReader* reader = getReader();
  long reads = 0, invalid = 0;
  std::set<std::string> seen;
  const DWORD start = GetTickCount();
  do {
    char text[33] = {};
    ++reads;
    if (!reader->GetGuidStringA(text, sizeof(text)) && text[0] == '\0') continue;  // none yet
    invalid += !KyGuidUtils::IsGuidText(text);
    seen.insert(text);
  } while (GetTickCount() - start < durationMs);
  FILE* out = fopen(outPath, "w");
  if (!out) return 2;
  fprintf(out, "reads %ld\ninvalid %ld\n", reads, invalid);
  for (const std::string& guid : seen) fprintf(out, "guid %s\n", guid.c_str());
  fclose(out);
  return 0;
}

// The kill test ends this process at a moment inside the update; `done`
// tells it when it came too late.
int DllUpdate(const std::string& name) {
  auto getUpdater = DllExport<GetGuidUpdaterFn>("GetGuidUpdater");
  KyGuid::IGuidUpdater* updater = getUpdater ? getUpdater() : nullptr;
  HANDLE ready = OpenEventA(EVENT_MODIFY_STATE, FALSE, (name + "-ready").c_str());
  HANDLE go = OpenEventA(SYNCHRONIZE, FALSE, (name + "-go").c_str());
  HANDLE done = OpenEventA(EVENT_MODIFY_STATE, FALSE, (name + "-done").c_str());
  if (!updater || !ready || !go || !done) return 2;
  SetEvent(ready);
  WaitForSingleObject(go, INFINITE);
  updater->UpdateNow();
  SetEvent(done);
  return 0;
}

int Update(DWORD durationMs, const std::string& journal, const std::string& identities) {
  if (identities.empty()) return 2;
  // Never freed: the library's exit handling may still use them.
  std::map<char, SimulatedMachine*> machines;
  for (char identity : identities) machines[identity] = MakeMachine(identity);
  auto* hardware = new JournalingHardware(journal);
  hardware->Use(machines[identities[0]], 0);
  new KyGuid::ScopedPlatform(KyGuid::Platform{nullptr, nullptr, hardware});
  auto* updater = KyGuidUtils::CSingletonEx<KyGuid::CGuidUpdater>::Instance();
  const DWORD start = GetTickCount();
  for (int update = 0; update == 0 || GetTickCount() - start < durationMs; ++update) {
    hardware->Use(machines[identities[update % identities.size()]], update);
    updater->UpdateNow();
  }
  return 0;
}

int Expect() {
  for (char identity : {'a', 'b'}) {
    SimulatedMachine* machine = MakeMachine(identity);
    KyGuid::ScopedPlatform platform(KyGuid::Platform{nullptr, nullptr, machine});
    KyGuid::CGuidBuilder builder;
    builder.DecideNewGuid();
    printf("%c %s\n", identity, builder.NewInfo().Guid.c_str());
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  const std::string mode = argc > 1 ? argv[1] : "";
  if (mode == "read" && argc == 4) return Read(strtoul(argv[2], nullptr, 10), argv[3]);
  if (mode == "update" && argc == 5) return Update(strtoul(argv[2], nullptr, 10), argv[3], argv[4]);
  if (mode == "expect") return Expect();
  if (mode == "dllupdate" && argc == 3) return DllUpdate(argv[2]);
  fprintf(stderr,
          "usage: stressprobe read <ms> <out> | update <ms> <journal> <ab> | expect | "
          "dllupdate <name>\n");
  return 2;
}
