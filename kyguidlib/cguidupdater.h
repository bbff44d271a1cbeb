// Re-computes the machine GUID and writes it back, on a worker thread
// (StartUpdate) or on the caller's (UpdateNow), holding the machine-wide
// update right while it does. At most one update per 12 hours per process,
// unless Guid.db has disappeared.
#pragma once

#include <windows.h>

#include <cstdint>

#include "common/kylog.h"
#include "common/win32raii.h"
#include "kyguidlib/cthreadbase.h"
#include "kyguidlib/kyguidapi.h"

namespace KyGuid {

class CGuidBuilder;

class CGuidUpdater : public IGuidUpdater, public KyGuidUtils::CThreadBase {
 public:
  using Interface = IGuidUpdater;
  static const IID& InterfaceId() { return IID_IGuidUpdater; }

  static constexpr wchar_t kUpdateRightName[] =
      L"Global\\Pendrova{B0EB8CE2-AA14-4E2F-8533-95C5D1DD51CC}_GuidUpdateRight";
  static constexpr uint32_t kMinUpdateInterval = 43200000;  // 12 hours, in ms
  static constexpr DWORD kHoldAfterUpdateMs = 60000;

  BOOL STDMETHODCALLTYPE StartUpdate() override;
  BOOL STDMETHODCALLTYPE StopUpdate() override;
  uint32_t STDMETHODCALLTYPE UpdateNow() override;
  BOOL STDMETHODCALLTYPE BuildGuidNow(char* buffer, uint32_t size) override;

  // Stops and joins the worker thread at process exit.
  void OnProcessExit();

  // 1 done, 2 another process finished meanwhile, 0 another process is
  // still busy, -1 the update right could not be taken.
  int SafeUpdateNow();
  BOOL CheckUpdateFreq();
  // 1 taken, 0 held by another, -1 error. `createError` receives the error
  // of a failed creation of the right's event, and 0 on every other path.
  int LockUpdateRight(uint32_t* createError = nullptr);
  void UnlockUpdateRight();

  // The update itself, once the right is held: finishes what a crash left,
  // keeps or builds the GUID, refreshes the legacy scheme's files, then
  // sends this run's report from the background thread or caches it for a
  // synchronous caller; the result line is logged at `resultSite`. Returns
  // the update result.
  enum class UpdateCaller { kBackground, kSynchronous };
  static int RunUpdate(UpdateCaller caller, const KyLog::Site& resultSite);

  // The INFO line that tells what an update did, logged at the caller's site.
  static void LogUpdateResult(const KyLog::Site& site, int result, const CGuidBuilder& builder);

 protected:
  CGuidUpdater() = default;
  ~CGuidUpdater() override;

  unsigned Run() override;
  unsigned UpdateProc();

 private:
  class Temporary;
  class RightHolder;

  KyGuidUtils::UniqueHandle m_updateRight;
  uint32_t m_lastUpdateTick = 0;
};

}  // namespace KyGuid
