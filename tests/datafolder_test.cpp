// The guard of the data folder, through the security seam: Wine keeps no
// security descriptors, so the owners and DACLs an update finds come from
// here, and what it asks for (the descriptor a folder is made or repaired
// with) is read back as SDDL.
#include <windows.h>
#include <sddl.h>

#include <map>

#include "common/md5.h"
#include "common/win32raii.h"
#include "kyguidlib/cguidupdater.h"
#include "kyguidlib/foldertrust.h"
#include "kyguidlib/guidpaths.h"
#include "tests/testsupport.h"

namespace {

using KyGuid::SecuritySnapshot;
using KyGuidSim::SimulatedMachine;

constexpr char kUs[] = "S-1-5-21-1-2-3-1000";
constexpr char kProtected[] = "O:BAD:P(A;OICI;FA;;;SY)(A;OICI;FA;;;BA)(A;OICI;0x1200a9;;;BU)";

std::string Sddl(void* descriptor) {
  LPSTR text = nullptr;
  if (!descriptor) return "inherited";
  ConvertSecurityDescriptorToStringSecurityDescriptorA(
      descriptor, SDDL_REVISION_1, OWNER_SECURITY_INFORMATION | DACL_SECURITY_INFORMATION, &text,
      nullptr);
  KyGuidUtils::UniqueLocalMemory held(text);
  return text ? text : "unreadable";
}

// Everything is ours with nobody else's rights unless the test names another
// owner; Administrators' folders have ProgramData's inherited default, where
// Users may add files. Calls that set security are noted; folders are made.
class FakeSecurity final : public KyGuid::ISecurity {
 public:
  bool IsElevated() override { return elevated; }
  std::string ProcessAccount() override { return kUs; }
  bool Read(const std::wstring& path, bool, SecuritySnapshot& snapshot) override {
    const auto named = owners.find(KyGuid::WideToAnsi(path));
    snapshot = SecuritySnapshot{named == owners.end() ? kUs : named->second, true, {}, 1};
    if (snapshot.owner == KyGuid::kAdministratorsSid)
      snapshot.dacl.push_back({true, false, 6, "S-1-5-32-545"});
    return true;
  }
  bool Protect(const std::wstring& path, void* descriptor) override {
    calls += "protect " + KyGuid::WideToAnsi(path) + " " + Sddl(descriptor) + "\n";
    return protects;
  }
  bool CreateFolder(const std::wstring& path, void* descriptor, uint32_t* error) override {
    calls += "create " + KyGuid::WideToAnsi(path) + " " + Sddl(descriptor) + "\n";
    if (CreateDirectoryW(path.c_str(), nullptr)) return true;
    *error = GetLastError();
    return false;
  }

  bool elevated = true;
  bool protects = true;
  std::map<std::string, std::string> owners;  // path -> owner SID
  std::string calls;
};

class DataFolderTest : public KyGuidTest::IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    m_machine.AddDrive(0).descriptor =
        SimulatedMachine::Descriptor("", "ST1000DM010", "CC43", "Z9A1B2C3", 11, false);
    m_machine.AddAdapter("{NIC}", "Ethernet", {0, 0x11, 0x22, 0xAA, 0xBB, 0xCC}).pnpId = "PCI\\1";
    m_security = std::make_unique<KyGuid::ScopedPlatform>(
        KyGuid::Platform{nullptr, nullptr, nullptr, nullptr, &m_fake});
  }
  void TearDown() override {
    m_security.reset();
    IsolatedTest::TearDown();
  }
  bool Update() {
    m_fake.calls.clear();
    KyGuid::CGuidUpdater::RunUpdate(KyGuid::CGuidUpdater::UpdateCaller::kSynchronous,
                                    {L"test", 0, L"test"});
    return GetFileAttributesA(GuidDbPath().c_str()) != INVALID_FILE_ATTRIBUTES;
  }
  bool Logged(const char* level, const std::string& text) const {
    return LogLineWith(text).find(std::string(level) + " [") != std::string::npos;
  }

  FakeSecurity m_fake;
  std::unique_ptr<KyGuid::ScopedPlatform> m_security;
};

// A fresh machine's folders are made protected when the process may give
// that. A folder others may change is repaired by an elevated process and
// refused by any other, as is one whose repair fails: refused, an update
// saves nothing and says so, where a write failure always said it.
TEST_F(DataFolderTest, FoldersAreMadeOrRepairedProtectedWhenTheProcessMay) {
  const std::string vendor = m_folders->CommonAppData() + "\\Corvane";
  for (bool elevated : {true, false}) {
    m_fake.elevated = elevated;
    KyGuidTest::RemoveTree(vendor);
    EXPECT_TRUE(Update());
    const std::string with = elevated ? kProtected : "inherited";
    EXPECT_EQ("create " + vendor + " " + with + "\ncreate " + ProfileDir() + " " + with + "\n",
              m_fake.calls);
  }
  DeleteFileA(GuidDbPath().c_str());
  m_fake.owners[ProfileDir()] = KyGuid::kAdministratorsSid;
  EXPECT_FALSE(Update());  // not elevated
  EXPECT_TRUE(Logged("ERROR", "Data folder not trusted, save nothing: " + ProfileDir()));
  // The record in force, the adopted one it replaced and the new one in their build.
  EXPECT_EQ(3, CountLog("SaveGuidInfo failed: 5, " + GuidDbPath()));
  m_fake.elevated = true;
  m_fake.protects = false;
  EXPECT_FALSE(Update());
  m_fake.protects = true;
  EXPECT_TRUE(Update());
  EXPECT_EQ("protect " + ProfileDir() + " " + kProtected + "\n", m_fake.calls);
  EXPECT_TRUE(Logged("WARN", "Data folder not trusted, take it over: " + ProfileDir()));
  EXPECT_EQ(2, CountLog("Data folder not trusted, save nothing: " + ProfileDir()));
}

// A squatter's GlobalMgr.db would have the update adopt the GUID it names.
TEST_F(DataFolderTest, AFileAStandardUserOwnsIsSetAsideAndNotTakenAsEvidence) {
  const std::string legacy = ProfileDir() + "\\GlobalMgr.db";
  KyGuidTest::MakeDirs(ProfileDir());
  KyGuidTest::IniWrite(legacy, "Profile", "config1", "0123456789abcdef0123456789abcdef");
  KyGuidTest::IniWrite(legacy, "Profile", "config2", KyGuidUtils::Md5Hex("001122aabbcc").c_str());
  const std::string planted = KyGuidTest::ReadWholeFile(legacy);
  m_fake.owners[legacy] = "S-1-5-21-1-2-3-1001";
  Update();
  EXPECT_EQ(planted, KyGuidTest::ReadWholeFile(legacy + ".untrusted"));
  EXPECT_TRUE(Logged("WARN", "File not trusted, set it aside: " + legacy));
  EXPECT_EQ(KyGuidUtils::Md5Hex("PID:{ST1000DM010}SN:{Z9A1B2C3}Mac:{001122aabbcc}"),
            KyGuidTest::IniRead(GuidDbPath(), "ActiveGuid", "Guid"));
}

}  // namespace
