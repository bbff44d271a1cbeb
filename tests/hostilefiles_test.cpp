// Damaged and hostile data files around the shipped DLL: whatever sits in the
// profile folders, a reader keeps the last good GUID and an update ends with
// a valid GUID in Guid.db, or says in the log why it could not write one.
#include <functional>
#include <vector>

#include "common/strutil.h"
#include "common/win32raii.h"
#include "tests/dlltestsupport.h"
#include "tests/testsupport.h"

namespace {

using KyGuidTest::DllTest;
using KyGuidTest::IniRead;
using KyGuidTest::MachineProfileDir;
using KyGuidTest::UserProfileDir;
using KyGuidTest::WriteWholeFile;

constexpr char kGoodGuid[] = "0123456789abcdef0123456789abcdef";
// The GUID some damaged files still carry in a form a reader may accept.
constexpr char kCarriedGuid[] = "fedcba9876543210fedcba9876543210";

// Every key the library or the legacy and reporting code reads from these
// files, with values that are too large, negative or not numbers at all.
std::string HostileNumbers() {
  std::string text = "[ActiveGuid]\r\nGuid=" + std::string(kCarriedGuid) +
                     "\r\nCreateIndex=2147483647\r\nCreateTime=-5\r\nScore=99999999999999999999\r\n"
                     "Reason=-2147483648\r\nVersion=4294967295\r\n";
  for (int n = -1; n < 5; ++n) {
    text += "[Build" + std::to_string(n) +
            "]\r\nAdapterCount=4294967295\r\nDiskCount=-5\r\n"
            "Adapter0=\r\nDisk0=PID:{\r\nCreateIndex=-2147483648\r\n";
  }
  text +=
      "[Profile]\r\nconfig1=-5\r\nconfig2=4294967295\r\nconfig3=\r\nCount=-5\r\n"
      "[HDD]\r\nSerialNumber=" +
      std::string(300, 'Z') +
      "\r\nCount=4294967295\r\n"
      "[GuidList]\r\nCount=-5\r\nIndex=2147483647\r\n"
      "[Report]\r\nCount=4294967295\r\nupdate_result=-5\r\ncount=99999999999999999999\r\n";
  return text;
}

std::string Utf16(const std::string& ascii) {
  std::string wide = "\xFF\xFE";
  for (char c : ascii) {
    wide.push_back(c);
    wide.push_back('\0');
  }
  return wide;
}

std::string Garbage(size_t size, uint32_t seed) {
  std::string bytes(size, '\0');
  for (char& byte : bytes) {
    seed = seed * 1103515245u + 12345u;
    byte = static_cast<char>(seed >> 16);
  }
  return bytes;
}

struct Variant {
  const char* name;
  std::function<std::string()> content;  // unused by the two special kinds
  bool readOnly = false;
  bool folder = false;
};

std::vector<Variant> Variants() {
  const std::string good = "[ActiveGuid]\r\nGuid=" + std::string(kCarriedGuid) + "\r\n";
  return {
      {"binary garbage", [] { return Garbage(65536, 9); }},
      {"NUL bytes", [] { return std::string(8192, '\0'); }},
      {"NUL inside a section",
       [] { return std::string("[ActiveGuid]\r\nGu\0id=", 20) + kCarriedGuid + "\r\n"; }},
      {"a line of a megabyte",
       [] { return "[ActiveGuid]\r\nGuid=" + std::string(1 << 20, 'a') + "\r\n"; }},
      {"a section name of a megabyte",
       [] { return "[" + std::string(1 << 20, 'B') + "]\r\nx=1\r\n"; }},
      {"no sections", [] { return std::string("Guid=") + kCarriedGuid + "\r\nCreateIndex=3\r\n"; }},
      {"empty", [] { return std::string(); }},
      {"overflowing and negative numbers", &HostileNumbers},
      {"UTF-16 text", [good] { return Utf16(good + HostileNumbers()); }},
      {"a GUID one digit short and one too long",
       [] {
         return std::string(
             "[ActiveGuid]\r\nGuid=0123456789abcdef0123456789abcde\r\n"
             "[ActiveGuid]\r\nGuid=0123456789abcdef0123456789abcdef0\r\n");
       }},
      {"read-only", [good] { return good; }, true},
      {"a folder", nullptr, false, true},
  };
}

struct HostileFilesTest : DllTest {
  void SetUp() override {
    DllTest::SetUp();
    Clean();
  }
  void TearDown() override {
    Clean();
    DllTest::TearDown();
  }
  void Clean() {
    for (const std::string& dir : {MachineProfileDir(), UserProfileDir()}) {
      for (const char* name : kFiles) {
        const std::string path = dir + "\\" + name;
        SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_NORMAL);
        DeleteFileA(path.c_str());
        RemoveDirectoryA(path.c_str());
      }
    }
  }
  // A distinct write time for every file written here, so that the reader,
  // which goes by it, sees each change.
  void Touch(const std::string& path) { KyGuidTest::TouchForward(path, ++m_touches * 10); }

  void Plant(const std::string& path, const Variant& variant) {
    if (variant.folder) {
      ASSERT_TRUE(CreateDirectoryA(path.c_str(), nullptr)) << path;
      return;
    }
    WriteWholeFile(path, variant.content());
    Touch(path);
    if (variant.readOnly) SetFileAttributesA(path.c_str(), FILE_ATTRIBUTE_READONLY);
  }

  std::string Read() {
    char text[33] = {};
    return Reader()->GetGuidStringA(text, sizeof(text)) ? text : "";
  }
  // No file but a Guid.db whose GUID the reader took.
  void StartFromAGoodGuid() {
    Clean();
    KyGuidTest::MakeDirs(MachineProfileDir());
    KyGuidTest::MakeDirs(UserProfileDir());
    KyGuidTest::IniWrite(GuidDbPath(), "ActiveGuid", "Guid", kGoodGuid);
    Touch(GuidDbPath());
    EXPECT_EQ(kGoodGuid, Read());
  }

  // UpdateNow on a thread of its own: a hang fails the test instead of
  // stopping the whole run.
  uint32_t UpdateWithin(DWORD timeoutMs) {
    KyGuidUtils::UniqueHandle thread(CreateThread(
        nullptr, 0,
        [](void* updater) -> DWORD {
          return static_cast<KyGuid::IGuidUpdater*>(updater)->UpdateNow();
        },
        Updater(), 0, nullptr));
    if (WaitForSingleObject(thread.get(), timeoutMs) != WAIT_OBJECT_0) {
      ADD_FAILURE() << "the update did not end within " << timeoutMs << " ms";
      TerminateThread(thread.get(), 0xBAD);
    }
    DWORD result = 0xBAD;
    GetExitCodeThread(thread.get(), &result);
    return result;
  }

  // Guid.db holds a valid GUID in force, or the log says why it was not
  // written.
  void ExpectUpdateEndsWell(int& savesRefused) {
    ASSERT_EQ(1u, UpdateWithin(60000));
    const std::string written = IniRead(GuidDbPath(), "ActiveGuid", "Guid");
    if (KyGuidUtils::IsGuidText(written)) {
      EXPECT_TRUE(KyGuidUtils::IsGuidText(Read()));
    } else {
      EXPECT_GE(CountLog("SaveGuidInfo failed: "), 1) << "no GUID written and no reason logged";
      ++savesRefused;
    }
  }

  static constexpr const char* kFiles[] = {"Guid.db",  "GlobalMgr.db", "GuidReport.dat",
                                           "HDD.db",   "GuidList.db",  "GuidInfo.db",
                                           "Global.db"};
  int m_touches = 0;
};

TEST_F(HostileFilesTest, DamagedGuidDbKeepsTheLastGoodGuidAndTheNextUpdateWritesAValidOne) {
  int tried = 0, refused = 0;
  for (const Variant& variant : Variants()) {
    SCOPED_TRACE(std::string("Guid.db: ") + variant.name);
    StartFromAGoodGuid();
    DeleteFileA(GuidDbPath().c_str());
    Plant(GuidDbPath(), variant);
    const std::string read = Read();
    // Some damage leaves a GUID a reader may take; nothing else replaces
    // the last good one.
    EXPECT_TRUE(read == kGoodGuid || read == kCarriedGuid) << read;
    KyGuidTest::ProcessResult fresh = KyGuidTest::RunProcess("kyguid.exe read");
    EXPECT_TRUE(fresh.exitCode == 0 || fresh.exitCode == 1) << fresh.output;

    ExpectUpdateEndsWell(refused);
    ++tried;
  }
  // Where Guid.db cannot be written, the update said so.
  EXPECT_GE(refused, 1);
  printf("hostile Guid.db inputs tried: %d, saves refused with a log line: %d\n", tried, refused);
}

TEST_F(HostileFilesTest, DamagedSideFilesNeitherCrashNorCostTheGuid) {
  int tried = 0, refused = 0;
  for (const char* name : kFiles) {
    if (std::string(name) == "Guid.db") continue;
    for (const Variant& variant : Variants()) {
      SCOPED_TRACE(std::string(name) + ": " + variant.name);
      StartFromAGoodGuid();
      for (const std::string& dir : {MachineProfileDir(), UserProfileDir()}) {
        Plant(dir + "\\" + name, variant);
      }
      EXPECT_EQ(kGoodGuid, Read());

      // With a Guid.db that matches nothing, and again without one, which
      // sends the update to the legacy scheme's files.
      ExpectUpdateEndsWell(refused);
      DeleteFileA(GuidDbPath().c_str());
      const std::string kept = Read();
      EXPECT_TRUE(KyGuidUtils::IsGuidText(kept)) << kept;
      ExpectUpdateEndsWell(refused);
      tried += 2;
    }
  }
  EXPECT_EQ(0, refused);
  printf("hostile side-file inputs tried: %d\n", tried);
}

}  // namespace
