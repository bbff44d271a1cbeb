// Wall-clock time, for ages measured across processes and restarts: build
// times, history times, report ages, the fault gate. Every reading goes
// through the platform's clock, so tests run at a time of their choosing.
#pragma once

#include <cstdint>

namespace KyGuidUtils {

class IClock {
 public:
  virtual ~IClock() = default;
  // Seconds since 1970-01-01 UTC.
  virtual int64_t Now() = 0;
};

// The platform's clock now (kyguidlib/platform.cpp).
int64_t CurrentTime();

}  // namespace KyGuidUtils
