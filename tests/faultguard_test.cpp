// The structured exception guard, in-process: what it hands to the decision,
// that a handled fault comes back as false with the caller's state intact,
// and that a declined fault reaches the next handler up the stack.
#include "common/faultguard.h"

#include <gtest/gtest.h>

namespace {

using KyGuidUtils::CallGuarded;

struct Decision {
  bool handle = true;
  int asked = 0;
  DWORD code = 0;
  const void* address = nullptr;
};

bool Decide(const EXCEPTION_RECORD* fault, void* context) {
  Decision* d = static_cast<Decision*>(context);
  ++d->asked;
  d->code = fault->ExceptionCode;
  d->address = fault->ExceptionAddress;
  return d->handle;
}

void Nothing(void* context) { ++*static_cast<int*>(context); }

void WriteToNull(void*) { *static_cast<volatile int*>(nullptr) = 1; }

void Raise(void* context) { RaiseException(*static_cast<DWORD*>(context), 0, 0, nullptr); }

// A raised exception as much as a hardware fault (the tests below).
TEST(FaultGuardTest, HandledFaultsReturnFalseWithTheRecordSeenByTheDecision) {
  DWORD code = 0xE0001234;
  Decision decision;
  EXPECT_FALSE(CallGuarded(&Raise, &code, &Decide, &decision));
  EXPECT_EQ(code, decision.code);
}

// Locals held in non-volatile registers and on the stack across many
// recoveries show that the unwind restores the caller's frame exactly.
TEST(FaultGuardTest, RepeatedRecoveriesKeepTheCallersRegistersAndStack) {
  volatile char marker[64];
  for (int i = 0; i < 64; ++i) marker[i] = static_cast<char>(i);
  Decision decision;
  long sum = 0;
  for (int i = 0; i < 2000; ++i) {
    sum += CallGuarded(&WriteToNull, nullptr, &Decide, &decision) ? 1000 : i;
  }
  EXPECT_EQ(2000, decision.asked);
  EXPECT_EQ(1999L * 2000 / 2, sum);
  for (int i = 0; i < 64; ++i) EXPECT_EQ(static_cast<char>(i), marker[i]);
}

struct Nested {
  Decision inner;
};

void GuardedInner(void* context) {
  Nested* n = static_cast<Nested*>(context);
  CallGuarded(&WriteToNull, nullptr, &Decide, &n->inner);
  ADD_FAILURE() << "a declined fault came back to the inner guard";
}

TEST(FaultGuardTest, DeclinedFaultGoesOnToTheEnclosingHandler) {
  Nested nested;
  nested.inner.handle = false;
  Decision outer;
  EXPECT_FALSE(CallGuarded(&GuardedInner, &nested, &Decide, &outer));
  EXPECT_EQ(1, nested.inner.asked);
  EXPECT_EQ(1, outer.asked);
  EXPECT_EQ(static_cast<DWORD>(EXCEPTION_ACCESS_VIOLATION), outer.code);
  EXPECT_EQ(nested.inner.address, outer.address);

  // The guards unwound cleanly: the next call works as usual.
  int calls = 0;
  EXPECT_TRUE(CallGuarded(&Nothing, &calls, &Decide, &outer));
  EXPECT_EQ(1, calls);
}

}  // namespace
