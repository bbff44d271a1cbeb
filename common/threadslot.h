// A pointer or number of each thread's own, kept in a slot of the system's
// thread local storage. Unlike a thread_local object, it costs a thread that
// never sets it nothing: the library runs on every thread of its hosts.
// Define one at namespace scope: it is then made when the module loads, never
// first on a thread that runs while the host exits.
#pragma once

#include <windows.h>

#include <cstdint>
#include <type_traits>

namespace KyGuidUtils {

template <typename T>
class ThreadSlot {
 public:
  ThreadSlot() : m_slot(TlsAlloc()) {}
  ~ThreadSlot() {
    if (m_slot != TLS_OUT_OF_INDEXES) TlsFree(m_slot);
  }
  ThreadSlot(const ThreadSlot&) = delete;
  ThreadSlot& operator=(const ThreadSlot&) = delete;

  // Null or 0 until the thread sets it. The caller's last error is kept,
  // which TlsGetValue would clear.
  T Get() const {
    const DWORD error = GetLastError();
    void* const raw = TlsGetValue(m_slot);
    SetLastError(error);
    if constexpr (std::is_pointer<T>::value) {
      return static_cast<T>(raw);
    } else {
      return static_cast<T>(reinterpret_cast<uintptr_t>(raw));
    }
  }
  void Set(T value) {
    if constexpr (std::is_pointer<T>::value) {
      TlsSetValue(m_slot, value);
    } else {
      TlsSetValue(m_slot, reinterpret_cast<void*>(static_cast<uintptr_t>(value)));
    }
  }

 private:
  DWORD m_slot;
};

}  // namespace KyGuidUtils
