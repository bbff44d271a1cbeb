// Owners for COM references, BSTRs, VARIANTs and an apartment, so that no
// COM resource outlives the scope that obtained it, on any path out.
#pragma once

#include <windows.h>
#include <oleauto.h>

#include <utility>

namespace KyGuidUtils {

// One reference to a COM object; released on destruction and on replacement.
template <typename T>
class ComPtr {
 public:
  ComPtr() = default;
  ~ComPtr() { reset(); }
  ComPtr(ComPtr&& other) noexcept : m_ptr(other.release()) {}
  ComPtr& operator=(ComPtr&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  ComPtr(const ComPtr&) = delete;
  ComPtr& operator=(const ComPtr&) = delete;

  T* get() const { return m_ptr; }
  T* operator->() const { return m_ptr; }
  explicit operator bool() const { return m_ptr != nullptr; }
  T* release() { return std::exchange(m_ptr, nullptr); }
  // Takes over a reference the caller owns.
  void reset(T* ptr = nullptr) {
    T* old = std::exchange(m_ptr, ptr);
    if (old) old->Release();
  }
  // For out-parameters of creating calls; releases what was held.
  T** put() {
    reset();
    return &m_ptr;
  }
  void** put_void() { return reinterpret_cast<void**>(put()); }

 private:
  T* m_ptr = nullptr;
};

class ScopedBstr {
 public:
  explicit ScopedBstr(const wchar_t* text) : m_bstr(SysAllocString(text)) {}
  ~ScopedBstr() { SysFreeString(m_bstr); }
  ScopedBstr(const ScopedBstr&) = delete;
  ScopedBstr& operator=(const ScopedBstr&) = delete;
  BSTR get() const { return m_bstr; }

 private:
  BSTR m_bstr;
};

class ScopedVariant {
 public:
  ScopedVariant() { VariantInit(&m_value); }
  ~ScopedVariant() { VariantClear(&m_value); }
  ScopedVariant(const ScopedVariant&) = delete;
  ScopedVariant& operator=(const ScopedVariant&) = delete;
  VARIANT* get() { return &m_value; }
  const VARIANT& value() const { return m_value; }

 private:
  VARIANT m_value;
};

// Balances a CoInitializeEx of the scope's own: uninitialises when the scope
// ends only if that call entered (or re-entered) an apartment. A thread that
// already lived in another apartment keeps it untouched.
class ScopedCoUninitialize {
 public:
  explicit ScopedCoUninitialize(HRESULT initialized) : m_entered(SUCCEEDED(initialized)) {}
  ~ScopedCoUninitialize() {
    if (m_entered) CoUninitialize();
  }
  ScopedCoUninitialize(const ScopedCoUninitialize&) = delete;
  ScopedCoUninitialize& operator=(const ScopedCoUninitialize&) = delete;

 private:
  bool m_entered;
};

}  // namespace KyGuidUtils
