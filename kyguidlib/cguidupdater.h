// Re-computes the machine GUID and writes it back, on a worker thread or on
// the caller's, holding the machine-wide update right while it does.
#pragma once

#include <windows.h>

#include <cstdint>

#include "common/win32raii.h"
#include "kyguidlib/cthreadbase.h"
#include "kyguidlib/kyguidapi.h"

namespace KyGuid {

class CGuidUpdater : public IGuidUpdater, public KyGuidUtils::CThreadBase {
 public:
  using Interface = IGuidUpdater;
  static const IID& InterfaceId() { return IID_IGuidUpdater; }

  BOOL STDMETHODCALLTYPE StartUpdate() override;
  BOOL STDMETHODCALLTYPE StopUpdate() override;
  uint32_t STDMETHODCALLTYPE UpdateNow() override;
  BOOL STDMETHODCALLTYPE BuildGuidNow(char* buffer, uint32_t size) override;

  // Stops and joins the worker thread at process exit.
  void OnProcessExit();

 protected:
  CGuidUpdater() = default;
  ~CGuidUpdater() override = default;

  unsigned Run() override;

 private:
  KyGuidUtils::UniqueHandle m_updateRight;
  uint32_t m_lastUpdateTick = 0;
};

}  // namespace KyGuid
