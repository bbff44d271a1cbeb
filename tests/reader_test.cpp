// The installed-copy reader in a process without a copy of the library: none
// loaded, none beside this executable, no install folder registered. The
// reader itself is tried through the DLL (dll_test.cpp).
#include <cstring>

#include "common/modules.h"
#include "kyguidlib/cguiddllreader.h"
#include "kyguidlib/singletonex.h"
#include "tests/testsupport.h"

namespace {

TEST(DllReaderTest, WithoutAnInstalledCopyEveryCallFailsWithExactlyItsBufferZeroed) {
  ASSERT_EQ(INVALID_FILE_ATTRIBUTES,
            GetFileAttributesW((KyGuidUtils::ExecutableDir() + L"\\KyGuid64.dll").c_str()));
  auto* reader = KyGuidUtils::CSingletonEx<KyGuid::CGuidDllReader>::Instance();
  EXPECT_FALSE(reader->WaitForGuid(1000));
  char buffer[40];
  memset(buffer, 'x', sizeof(buffer));
  EXPECT_FALSE(reader->GetGuidStringA(buffer, 20));
  EXPECT_EQ(std::string(20, '\0') + "xxxx", std::string(buffer, 24));
  memset(buffer, 'x', sizeof(buffer));
  EXPECT_FALSE(KyGuid::GetInstalledGuid(buffer));
  EXPECT_EQ(std::string(33, '\0') + "x", std::string(buffer, 34));
}

}  // namespace
