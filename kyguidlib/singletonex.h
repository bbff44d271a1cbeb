// The process-wide object behind an export. CSingletonEx<T> lives in static
// storage, is built in place on first use, supplies the IUnknown slots for T
// and is shut down from the runtime's exit list. Clients never free it.
//
// At exit the object releases its resources through T::OnProcessExit() but
// is not destructed: a host thread that still holds the pointer (the word is
// never reset) then calls a live object that fails softly, not a destroyed
// one whose table has pure-virtual slots.
#pragma once

#include <windows.h>

#include <cstdlib>

#include "common/lazysingleton.h"

namespace KyGuidUtils {

// T provides `Interface` (the COM interface it implements) and a static
// `InterfaceId()`; the singleton answers only that IID and IUnknown.
template <typename T>
class CSingletonEx final : public T {
 public:
  static CSingletonEx* Instance() { return LazySingleton<CSingletonEx>::TryGet(); }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (!IsEqualIID(iid, IID_IUnknown) && !IsEqualIID(iid, T::InterfaceId())) {
      return E_NOINTERFACE;  // whatever `out` is; *out is left as the caller had it
    }
    if (!out) return E_POINTER;
    *out = static_cast<typename T::Interface*>(this);
    AddRef();
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }

 private:
  friend class LazySingleton<CSingletonEx>;
  // Runs once T is built, so exit work is registered only for an object
  // that exists.
  CSingletonEx() {
    static_assert(sizeof(CSingletonEx) == sizeof(T), "no members of its own");
    s_built = this;
    atexit(&CSingletonEx::Destroy);
  }

  static void Destroy() { s_built->OnProcessExit(); }

  static inline CSingletonEx* s_built = nullptr;
};

}  // namespace KyGuidUtils
