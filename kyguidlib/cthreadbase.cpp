#include "kyguidlib/cthreadbase.h"

#include <process.h>

namespace KyGuidUtils {

CThreadBase::CThreadBase() : m_stopEvent(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

CThreadBase::~CThreadBase() { StopAndJoin(); }

BOOL CThreadBase::Start() {
  if (m_thread && WaitForSingleObject(m_thread.get(), 0) == WAIT_TIMEOUT) return FALSE;
  m_thread.reset();
  if (m_stopEvent) ResetEvent(m_stopEvent.get());
  uintptr_t handle = _beginthreadex(nullptr, 0, &CThreadBase::ThreadEntry, this, 0, nullptr);
  m_thread.reset(reinterpret_cast<HANDLE>(handle));
  return m_thread.valid();
}

BOOL CThreadBase::StopAndJoin() {
  if (m_stopEvent) SetEvent(m_stopEvent.get());
  if (!m_thread) return TRUE;
  if (WaitForSingleObject(m_thread.get(), INFINITE) == WAIT_TIMEOUT) return FALSE;
  m_thread.reset();
  return TRUE;
}

unsigned __stdcall CThreadBase::ThreadEntry(void* self) {
  try {
    return static_cast<CThreadBase*>(self)->Run();
  } catch (...) {
    return 0xFFFFFFFFu;
  }
}

}  // namespace KyGuidUtils
