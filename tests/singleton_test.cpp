// The lazy singleton, on a test object so that construction can be counted
// and slowed down (the IUnknown rules are the DLL's tests').
#include <windows.h>
#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "kyguidlib/singletonex.h"

namespace {

// {0B5D1C1E-5A8B-4E0F-9D3C-0123456789AB}
constexpr IID kTestIid = {
    0x0B5D1C1E, 0x5A8B, 0x4E0F, {0x9D, 0x3C, 0x01, 0x23, 0x45, 0x67, 0x89, 0xAB}};

std::atomic<int> g_constructions{0};

class ITest : public IUnknown {
 public:
  virtual int STDMETHODCALLTYPE Value() = 0;
};

class SlowObject : public ITest {
 public:
  using Interface = ITest;
  static const IID& InterfaceId() { return kTestIid; }
  int STDMETHODCALLTYPE Value() override { return 42; }
  void OnProcessExit() {}

 protected:
  SlowObject() {
    ++g_constructions;
    Sleep(100);  // long enough for every racing thread to arrive while building
  }
};

using Singleton = KyGuidUtils::CSingletonEx<SlowObject>;

DWORD WINAPI Grab(void* out) {
  *static_cast<Singleton**>(out) = Singleton::Instance();
  return 0;
}

TEST(SingletonTest, RacingThreadsGetOneObjectBuiltOnce) {
  constexpr int kThreads = 8;
  std::vector<Singleton*> results(kThreads, nullptr);
  std::vector<HANDLE> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.push_back(CreateThread(nullptr, 0, &Grab, &results[i], 0, nullptr));
  }
  WaitForMultipleObjects(kThreads, threads.data(), TRUE, INFINITE);
  for (HANDLE thread : threads) CloseHandle(thread);

  ASSERT_NE(nullptr, results[0]);
  for (Singleton* result : results) EXPECT_EQ(results[0], result);
  EXPECT_EQ(1, g_constructions.load());
  EXPECT_EQ(results[0], Singleton::Instance());
}

}  // namespace
