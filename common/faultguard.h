// Runs a call into foreign code under a structured exception handler. When a
// fault happens, `decide` is asked (during the first pass of exception
// dispatch, on the faulting thread) whether to handle it; a handled fault
// unwinds back here and CallGuarded returns false. A fault that is not
// handled goes on to the process's own crash handling.
#pragma once

#include <windows.h>

namespace KyGuidUtils {

using GuardedCall = void (*)(void* context);
using FaultDecision = bool (*)(const EXCEPTION_RECORD* fault, void* context);

bool CallGuarded(GuardedCall call, void* callContext, FaultDecision decide, void* decideContext);

enum class ModuleCall { kReturned, kSkipped, kFaulted };

// A call into a module of the suite, whose owner turns it off for good at
// its first contained fault: with `off` set the call is skipped, and a fault
// contained sets it. kFaulted goes only to the call that faulted.
ModuleCall CallSuiteModule(volatile LONG& off, GuardedCall call, void* callContext,
                           FaultDecision decide, void* decideContext);

}  // namespace KyGuidUtils
