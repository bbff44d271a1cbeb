// The fetchers on the machine the tests run on, through the Win32 seam.
// Under Wine that is \\.\PhysicalDrive0 (which answers the property query
// with no strings) and the host's network interfaces; only what is stable
// there is asserted, the rest is printed for the record.
#include <cstdio>

#include "kyguidlib/cadapterfetcher.h"
#include "kyguidlib/cdiskfetcher.h"
#include "kyguidlib/hardware.h"
#include "tests/testsupport.h"

namespace {

class RealHardwareTest : public KyGuidTest::IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    m_real = std::make_unique<KyGuid::ScopedPlatform>(
        KyGuid::Platform{nullptr, nullptr, &KyGuid::Win32Hardware()});
  }
  void TearDown() override {
    m_real.reset();
    IsolatedTest::TearDown();
  }
  std::unique_ptr<KyGuid::ScopedPlatform> m_real;
};

TEST_F(RealHardwareTest, FetchersListThisMachinesDisksAndAdapters) {
  KyGuid::CDiskFetcher disks;
  int diskCount = disks.Fetch();
  for (const KyGuid::DiskInfo& disk : disks.Disks()) {
    printf("disk    %s\n", KyGuid::DiskDetail(disk).c_str());
  }
  ASSERT_GE(diskCount, 1);
  EXPECT_EQ(0, disks.Disks()[0].Index);
  EXPECT_TRUE(disks.Disks()[0].Has(KyGuid::DiskInfo::kBestDisk));

  KyGuid::CAdapterFetcher adapters;
  int adapterCount = adapters.Fetch();
  int best = 0;
  for (const KyGuid::AdapterInfo& adapter : adapters.Adapters()) {
    printf("adapter %s\n", KyGuid::AdapterDetail(adapter).c_str());
    EXPECT_FALSE(adapter.MacAddress.empty());
    EXPECT_EQ(0u, adapter.MacAddress.size() % 2);
    EXPECT_EQ(std::string::npos, adapter.MacAddress.find_first_not_of("0123456789abcdef"));
    best += adapter.Has(KyGuid::AdapterInfo::kBestAdapter) ? 1 : 0;
  }
  EXPECT_EQ(adapterCount > 0 ? 1 : 0, best);
}

}  // namespace
