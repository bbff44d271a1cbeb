// Shared by the test executables that link the core: each test runs against
// folders of its own, created fresh and removed afterwards.
#pragma once

#include <windows.h>
#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "kyguidlib/platform.h"
#include "kyguidlib/platform_override.h"
#include "tools/simmachine/simulatedmachine.h"

namespace KyGuidTest {

// A new empty folder under the temp folder, removed with its content.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  const std::string& Path() const { return m_path; }
  std::wstring WidePath() const { return std::wstring(m_path.begin(), m_path.end()); }

 private:
  std::string m_path;
};

class TestFolders final : public KyGuid::IFolders {
 public:
  explicit TestFolders(const std::string& root) : m_root(root) {}
  bool GetFolder(int csidl, std::wstring& path) override;
  // Folder queries fail from now on, as on a machine without a profile.
  void Fail() { m_fail = true; }
  std::string CommonAppData() const { return m_root + "\\common"; }
  std::string UserAppData() const { return m_root + "\\user"; }

 private:
  std::string m_root;
  bool m_fail = false;
};

// A tick count the test moves by hand.
class FakeTicks final : public KyGuid::ITickSource {
 public:
  uint32_t GetTickCount() override { return now; }
  uint32_t now = 1000;
};

// A wall clock the test sets by hand, standing at kTestTime at first.
constexpr int64_t kTestTime = 1795000000;  // 2026-11-18 07:06:40 UTC
class FakeClock final : public KyGuidUtils::IClock {
 public:
  int64_t Now() override { return now; }
  int64_t now = kTestTime;
};

// Fixture: fresh common and per-user application-data folders, a fixed
// clock, an empty simulated machine behind the hardware seam, and the
// substitute log module (beside the executable) writing every level to a log
// file of this test; the substitute reporting module, where present, writes
// to one of its own.
class IsolatedTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  std::string ProfileDir() const;  // ...\common\Corvane\Greibraske
  std::string GuidDbPath() const { return ProfileDir() + "\\Guid.db"; }
  std::string LogPath() const { return m_temp->Path() + "\\kylog.txt"; }
  std::string ReportPath() const { return m_temp->Path() + "\\reports.jsonl"; }
  // The log lines written so far; empty when no log module is loaded.
  std::vector<std::string> LogLines() const;
  // How many log lines contain `text`.
  int CountLog(const std::string& text) const;
  // The first log line that contains `text`, or an empty string.
  std::string LogLineWith(const std::string& text) const;

  std::unique_ptr<TempDir> m_temp;
  std::unique_ptr<TestFolders> m_folders;
  KyGuidSim::SimulatedMachine m_machine;
  FakeTicks m_ticks;
  FakeClock m_clock;
  std::unique_ptr<KyGuid::ScopedPlatform> m_platform;
};

std::string ReadWholeFile(const std::string& path);
// `visit` with the name and attributes of each entry of `folder`.
void ForEachIn(const std::string& folder,
               const std::function<void(const std::string&, DWORD)>& visit);
// Every file below `folder` by its path below it, with its bytes.
std::map<std::string, std::string> ReadTree(const std::string& folder);
// The file's lines without their line ends; none for a missing file.
std::vector<std::string> ReadLines(const std::string& path);
void WriteWholeFile(const std::string& path, const std::string& content);
void MakeDirs(const std::string& path);
// Deletes a folder with everything in it; a link in it, or the folder
// itself when it is a link, is removed, never followed.
void RemoveTree(const std::string& path);
bool IsLink(const std::string& path);
// Makes `link` a symbolic link to `target` (Windows paths): with
// CreateSymbolicLinkW where the system makes one, else, under Wine, whose
// CreateSymbolicLinkW makes none, with the host's ln. False when none was made.
bool MakeLink(const std::string& link, const std::string& target);
// Removes the link itself, never what it points to; leaves a folder alone.
void RemoveLink(const std::string& link);
std::string IniRead(const std::string& path, const char* section, const char* key);
void IniWrite(const std::string& path, const char* section, const char* key, const char* value);
// Moves the file's last-write time forward by `seconds` (profile writes in
// one second may otherwise share a timestamp).
void TouchForward(const std::string& path, int seconds);

}  // namespace KyGuidTest
