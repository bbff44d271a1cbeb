// Wall-clock time, for ages measured across processes and restarts: build
// times, history times, report ages, the fault gate. Every reading goes
// through the clock in force, the system's unless a substitute platform put
// another in its place, so tests run at a time of their choosing.
#pragma once

#include <cstdint>

namespace KyGuidUtils {

class IClock {
 public:
  virtual ~IClock() = default;
  // Seconds since 1970-01-01 UTC.
  virtual int64_t Now() = 0;
};

IClock& SystemClock();

// Puts `clock` in force (the system's when null) and returns the clock it
// replaces. Only a substitute platform calls it: the shipped library always
// reads the system's.
IClock* SetClock(IClock* clock);

// The clock in force, now.
int64_t CurrentTime();

// Now as the GUID records and the report cache keep it: 32 bits, which is
// what the suite's other components read there.
inline int32_t CurrentTime32() { return static_cast<int32_t>(CurrentTime()); }

}  // namespace KyGuidUtils
