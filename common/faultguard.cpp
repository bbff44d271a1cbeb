#include "common/faultguard.h"

extern "C" {
bool KyGuidGuardedFrame(KyGuidUtils::GuardedCall call, void* callContext,
                        KyGuidUtils::FaultDecision decide, void* decideContext);
void KyGuidGuardedRecovery();
EXCEPTION_DISPOSITION FaultGuardHandler(EXCEPTION_RECORD* record, void* establisherFrame,
                                        CONTEXT* context, DISPATCHER_CONTEXT* dispatcher);
}

namespace {

// Where KyGuidGuardedFrame keeps `decide` and its context, counted from its
// establisher frame (see faultguard.s).
constexpr size_t kDecideSlot = 32;

}  // namespace

// The language handler named in KyGuidGuardedFrame's unwind data. It is
// consulted in the search pass for every exception that reaches the frame.
extern "C" EXCEPTION_DISPOSITION FaultGuardHandler(EXCEPTION_RECORD* record, void* establisherFrame,
                                                   CONTEXT*, DISPATCHER_CONTEXT* dispatcher) {
  // Only the frame's own unwind passes through here in the unwind pass, and
  // nothing of it needs cleaning up.
  if (record->ExceptionFlags & EXCEPTION_UNWIND) return ExceptionContinueSearch;

  void* const* slots =
      reinterpret_cast<void* const*>(static_cast<char*>(establisherFrame) + kDecideSlot);
  auto decide = reinterpret_cast<KyGuidUtils::FaultDecision>(slots[0]);
  if (!decide(record, slots[1])) return ExceptionContinueSearch;

  // Unwinds the frames of the faulting call and resumes in the recovery
  // path of the guarded frame; it does not return.
  RtlUnwindEx(establisherFrame, reinterpret_cast<void*>(&KyGuidGuardedRecovery), record, nullptr,
              dispatcher->ContextRecord, dispatcher->HistoryTable);
  return ExceptionContinueSearch;
}

namespace KyGuidUtils {

bool CallGuarded(GuardedCall call, void* callContext, FaultDecision decide, void* decideContext) {
  return KyGuidGuardedFrame(call, callContext, decide, decideContext);
}

ModuleCall CallSuiteModule(volatile LONG& off, GuardedCall call, void* callContext,
                           FaultDecision decide, void* decideContext) {
  if (off) return ModuleCall::kSkipped;
  if (CallGuarded(call, callContext, decide, decideContext)) return ModuleCall::kReturned;
  InterlockedExchange(&off, 1);
  return ModuleCall::kFaulted;
}

}  // namespace KyGuidUtils
