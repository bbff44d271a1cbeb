#include "common/clock.h"

#include <ctime>
#include <utility>

namespace KyGuidUtils {
namespace {

class SystemClockImpl final : public IClock {
 public:
  int64_t Now() override { return _time64(nullptr); }
};

// Both constant-initialised: a reading during another file's static
// initialisation already finds the system's clock.
SystemClockImpl g_systemClock;
IClock* g_clock = &g_systemClock;

}  // namespace

IClock& SystemClock() { return g_systemClock; }

IClock* SetClock(IClock* clock) { return std::exchange(g_clock, clock ? clock : &g_systemClock); }

int64_t CurrentTime() { return g_clock->Now(); }

}  // namespace KyGuidUtils
