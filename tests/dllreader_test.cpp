// The installed-copy reader in a process that has no copy of the library:
// none loaded, none beside this executable, no install folder registered.
// Finding the running library is tested through the DLL (dll_test.cpp).
#include <windows.h>

#include <gtest/gtest.h>

#include <string>

#include "common/modules.h"
#include "kyguidlib/cguiddllreader.h"
#include "kyguidlib/guidpaths.h"
#include "kyguidlib/singletonex.h"

namespace {

using KyGuid::CGuidDllReader;

TEST(DllReaderTest, WithoutAnInstalledCopyEveryCallFailsWithItsBufferZeroed) {
  const std::wstring besideTests = KyGuidUtils::ExecutableDir() + L"\\KyGuid64.dll";
  ASSERT_EQ(INVALID_FILE_ATTRIBUTES, GetFileAttributesW(besideTests.c_str()))
      << "a copy beside the tests would be found";
  CGuidDllReader* reader = KyGuidUtils::CSingletonEx<CGuidDllReader>::Instance();
  ASSERT_NE(nullptr, reader);
  EXPECT_EQ(nullptr, KyGuid::GetLoadedCopy().m_module);
  EXPECT_EQ(nullptr, KyGuid::GetLoadedCopy().m_reader);

  EXPECT_FALSE(reader->WaitForGuid(1000));
  // Each getter zeroes exactly the size it was given.
  char bytes[24];
  memset(bytes, 'x', sizeof(bytes));
  EXPECT_FALSE(reader->GetGuidBytes(reinterpret_cast<uint8_t*>(bytes), 20));
  EXPECT_EQ(std::string(20, '\0') + "xxxx", std::string(bytes, 24));
  memset(bytes, 'x', sizeof(bytes));
  EXPECT_FALSE(reader->GetGuidStringA(bytes, 20));
  EXPECT_EQ(std::string(20, '\0') + "xxxx", std::string(bytes, 24));
  wchar_t wide[40];
  wmemset(wide, L'x', 40);
  EXPECT_FALSE(reader->GetGuidStringW(wide, 36));
  EXPECT_EQ(std::wstring(36, L'\0') + L"xxxx", std::wstring(wide, 40));
  EXPECT_FALSE(reader->GetGuidBytes(nullptr, 16));
  EXPECT_FALSE(reader->GetGuidStringA(nullptr, 33));
  EXPECT_FALSE(reader->GetGuidStringW(nullptr, 34));

  char installed[33];
  memset(installed, 'x', sizeof(installed));
  EXPECT_FALSE(KyGuid::GetInstalledGuid(installed));
  EXPECT_EQ(std::string(33, '\0'), std::string(installed, 33));
}

TEST(DllReaderTest, LoadedModuleCountsOnlyWhenItsPathEndsInTheLibraryNameInAnyCase) {
  const struct {
    const wchar_t* path;
    bool accepted;
  } cases[] = {
      {L"C:\\Suite\\KyGuid64.dll", true},
      {L"C:\\Suite\\KYGUID64.DLL", true},
      {L"KyGuid64.dll", true},  // exactly the 12 characters
      {L"yGuid64.dll", false},  // shorter than 12
      {L"", false},
      {L"C:\\Suite\\KyGuid64.dll.old", false},
      {L"C:\\Suite\\KyGuid32.dll", false},
  };
  for (const auto& c : cases) EXPECT_EQ(c.accepted, KyGuid::IsGuidModulePath(c.path)) << c.path;
}

}  // namespace
