// A worker thread with a manual-reset stop event. Destruction signals the
// event and joins the thread.
#pragma once

#include <windows.h>

#include "common/win32raii.h"

namespace KyGuidUtils {

class CThreadBase {
 public:
  CThreadBase();
  virtual ~CThreadBase();
  CThreadBase(const CThreadBase&) = delete;
  CThreadBase& operator=(const CThreadBase&) = delete;

  // FALSE while the previous thread still runs; otherwise starts a new one.
  virtual BOOL Start();

 protected:
  // The thread body; its result is the thread's exit code.
  virtual unsigned Run() = 0;

  // Signals the stop event and waits for the thread; TRUE when it has ended.
  BOOL StopAndJoin();

  HANDLE StopEvent() const { return m_stopEvent.get(); }

 private:
  static unsigned __stdcall ThreadEntry(void* self);

  UniqueHandle m_thread;
  UniqueHandle m_stopEvent;
};

}  // namespace KyGuidUtils
