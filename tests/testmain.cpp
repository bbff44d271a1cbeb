#include <windows.h>
#include <gtest/gtest.h>

int main(int argc, char** argv) {
  // A fault in a test must fail that test, not open a crash dialog.
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
