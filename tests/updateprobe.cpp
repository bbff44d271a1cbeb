// Starts a slow background update on a simulated machine and returns from
// main at once, so that a test can see what process exit does to it.
// Usage: updateprobe <folder>; Guid.db ends up under <folder>\common.
#include <windows.h>

#include "common/kylog.h"
#include "kyguidlib/cguidupdater.h"
#include "kyguidlib/singletonex.h"
#include "tests/testsupport.h"

namespace {
constexpr wchar_t kLogSourcePath[] = L"tests\\updateprobe";
}

int main(int argc, char** argv) {
  if (argc < 2) return 2;
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  // Never freed: static destructors run before the exit list joins the
  // update thread, which still uses them.
  auto* folders = new KyGuidTest::TestFolders(argv[1]);
  auto* machine = new KyGuidSim::SimulatedMachine();
  machine->AddDrive(0).descriptor =
      KyGuidSim::SimulatedMachine::Descriptor("", "ST1000DM010", "CC43", "Z9A1B2C3", 11, false);
  machine->deviceOpenDelayMs = 25;
  new KyGuid::ScopedPlatform(KyGuid::Platform{folders, nullptr, machine});

  auto* updater = KyGuidUtils::CSingletonEx<KyGuid::CGuidUpdater>::Instance();
  if (!updater->StartUpdate()) return 3;
  Sleep(50);
  KyLog::Write(KyLog::kInfo, KYLOG_SITE(L"main"), "probe: main returned");
  return 0;
}
