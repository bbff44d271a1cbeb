#include "common/faultguard.h"

namespace KyGuidUtils {
bool CallGuarded(GuardedCall call, void* callContext, FaultDecision, void*) {
  call(callContext);
  return true;
}
}  // namespace KyGuidUtils
