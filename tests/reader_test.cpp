// The installed-copy reader in a process without a copy of the library (none
// loaded, none beside this executable, none in the install folder) and where
// it looks for one. The reader itself is tried through the DLL (dll_test.cpp).
#include <cstring>

#include "common/modules.h"
#include "common/registrylocation.h"
#include "kyguidlib/cguiddllreader.h"
#include "kyguidlib/singletonex.h"
#include "tests/testsupport.h"

namespace {

TEST(DllReaderTest, WithoutAnInstalledCopyEveryCallFailsWithExactlyItsBufferZeroed) {
  ASSERT_EQ(INVALID_FILE_ATTRIBUTES,
            GetFileAttributesW((KyGuidUtils::ExecutableDir() + L"\\KyGuid64.dll").c_str()));
  auto* reader = KyGuidUtils::CSingletonEx<KyGuid::CGuidDllReader>::Instance();
  EXPECT_FALSE(reader->WaitForGuid(1000));
  char buffer[80];
  const auto zeroed = [&](BOOL result, size_t bytes) {
    const bool exact =
        !result && std::string(bytes, '\0') + "xxxx" == std::string(buffer, bytes + 4);
    memset(buffer, 'x', sizeof(buffer));
    return exact;
  };
  memset(buffer, 'x', sizeof(buffer));
  EXPECT_TRUE(zeroed(reader->GetGuidStringA(buffer, 20), 20));
  EXPECT_TRUE(zeroed(reader->GetGuidBytes(reinterpret_cast<uint8_t*>(buffer), 20), 20));
  EXPECT_TRUE(zeroed(reader->GetGuidStringW(reinterpret_cast<wchar_t*>(buffer), 20), 40));
  EXPECT_TRUE(zeroed(KyGuid::GetInstalledGuid(buffer), 33));
}

// Only the name counts, in any case: its last twelve characters.
TEST(DllReaderTest, ModulePathNamesTheLibraryByItsLastTwelveCharactersInAnyCase) {
  for (const wchar_t* path : {L"C:\\Suite\\KyGuid64.dll", L"c:\\suite\\KYGUID64.DLL",
                              L"KyGuid64.dll", L"C:\\Suite\\OldKyGuid64.dll"}) {
    EXPECT_TRUE(KyGuid::IsGuidModulePath(path)) << path;
  }
  for (const wchar_t* path :
       {L"yGuid64.dll", L"C:\\Suite\\KyGuid32.dll", L"C:\\KyGuid64.dll.bak",
        L"C:\\Suite\\KyGuid64.exe", L"", static_cast<const wchar_t*>(nullptr)}) {
    EXPECT_FALSE(KyGuid::IsGuidModulePath(path)) << (path ? path : L"(null)");
  }
}

// The suite's installer records its folder here; the log module and the
// installed copy are found through it, so the value must be read whole. A
// location under HKEY_CURRENT_USER keeps the backslash after its root, as
// the suite's own reader does, and never opens.
TEST(RegistryLocationTest, InstallFolderIsReadWhereTheSuiteRecordsIt) {
  const std::wstring folder = L"C:\\" + std::wstring(200, L'f');
  for (const auto& [root, value] :
       {std::pair{HKEY_LOCAL_MACHINE, folder}, {HKEY_CURRENT_USER, L"C:\\User"}}) {
    ASSERT_EQ(ERROR_SUCCESS, RegSetKeyValueW(root, L"SOFTWARE\\Corvane\\LumarMgr", L"InstallDir",
                                             REG_SZ, value.c_str(), 2 * (value.size() + 1)));
  }
  wchar_t out[MAX_PATH] = {};
  EXPECT_TRUE(KyGuidUtils::ReadRegistryLocation(KyGuidUtils::kInstallDirLocation, out));
  EXPECT_EQ(folder, out);
  for (const wchar_t* elsewhere :
       {L"HKEY_CURRENT_USER\\SOFTWARE\\Corvane\\LumarMgr\\InstallDir",
        L"HKEY_LOCAL_MACHINE\\SOFTWARE\\Corvane\\LumarMgr\\Missing",
        L"HKEY_USERS\\SOFTWARE\\Corvane\\LumarMgr\\InstallDir", L"HKEY_LOCAL_MACHINE"}) {
    EXPECT_FALSE(KyGuidUtils::ReadRegistryLocation(elsewhere, out)) << elsewhere;
  }
  for (HKEY root : {HKEY_LOCAL_MACHINE, HKEY_CURRENT_USER}) {
    RegDeleteKeyValueW(root, L"SOFTWARE\\Corvane\\LumarMgr", L"InstallDir");
  }
}

}  // namespace
