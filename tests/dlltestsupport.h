// For tests that go through the shipped KyGuid64.dll beside the test
// executable. The DLL uses the machine's real profile folder, so these tests
// hold the ctest resource lock "machine_state" and start from an empty one.
#pragma once

#include <windows.h>
#include <gtest/gtest.h>

#include <string>

#include "kyguidlib/kyguidapi.h"

namespace KyGuidTest {

std::string ExecutableDir();
std::string MachineProfileDir();  // C:\ProgramData\Corvane\Greibraske of the Wine prefix
std::string UserProfileDir();     // its per-user counterpart under AppData\Roaming
std::string TempPath(const std::string& name);  // `name` in the temp folder
void WipeMachineProfile();                      // empties these, and the legacy Global.db's folder

struct ProcessResult {
  DWORD exitCode = 0xFFFFFFFF;
  std::string output;  // stdout and stderr together
};
// Runs `commandLine` and waits for it; a program without a full path is
// taken from the test executable's folder.
ProcessResult RunProcess(const std::string& commandLine, DWORD timeoutMs = 60000);

class DllTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  KyGuid::IGuidReader* Reader() const { return m_getReader(); }
  KyGuid::IGuidUpdater* Updater() const { return m_getUpdater(); }
  std::string GuidDbPath() const { return MachineProfileDir() + "\\Guid.db"; }
  // What the DLL (and child processes started from here) logged in this test.
  int CountLog(const std::string& text) const;

  std::string m_logPath;
  std::string m_reportPath;  // what the substitute reporting module received
  HMODULE m_library = nullptr;
  GetGuidReaderFn m_getReader = nullptr;
  GetGuidUpdaterFn m_getUpdater = nullptr;
};

}  // namespace KyGuidTest
