// Owners for the Win32 resources the library holds. Each closes exactly once
// and is movable, not copyable.
#pragma once

#include <windows.h>

#include <utility>

namespace KyGuidUtils {

template <typename Traits>
class UniqueResource {
 public:
  using Type = typename Traits::Type;
  UniqueResource() = default;
  explicit UniqueResource(Type value) : m_value(value) {}
  ~UniqueResource() { reset(); }
  UniqueResource(UniqueResource&& other) noexcept : m_value(other.release()) {}
  UniqueResource& operator=(UniqueResource&& other) noexcept {
    if (this != &other) reset(other.release());
    return *this;
  }
  UniqueResource(const UniqueResource&) = delete;
  UniqueResource& operator=(const UniqueResource&) = delete;

  Type get() const { return m_value; }
  bool valid() const { return Traits::IsValid(m_value); }
  explicit operator bool() const { return valid(); }
  Type release() { return std::exchange(m_value, Traits::Invalid()); }
  void reset(Type value = Traits::Invalid()) {
    Type old = std::exchange(m_value, value);
    if (Traits::IsValid(old)) Traits::Close(old);
  }
  // For out-parameters of creating functions; closes what was held.
  Type* put() {
    reset();
    return &m_value;
  }

 private:
  Type m_value = Traits::Invalid();
};

struct HandleTraits {  // CreateEvent, _beginthreadex: null means none
  using Type = HANDLE;
  static Type Invalid() { return nullptr; }
  static bool IsValid(Type h) { return h != nullptr && h != INVALID_HANDLE_VALUE; }
  static void Close(Type h) { CloseHandle(h); }
};
struct FileHandleTraits : HandleTraits {  // CreateFile: INVALID_HANDLE_VALUE means none
  static Type Invalid() { return INVALID_HANDLE_VALUE; }
};
struct FindTraits {  // FindFirstFile: INVALID_HANDLE_VALUE means none; FindClose, not CloseHandle
  using Type = HANDLE;
  static Type Invalid() { return INVALID_HANDLE_VALUE; }
  static bool IsValid(Type h) { return h != INVALID_HANDLE_VALUE; }
  static void Close(Type h) { FindClose(h); }
};
struct RegKeyTraits {
  using Type = HKEY;
  static Type Invalid() { return nullptr; }
  static bool IsValid(Type k) { return k != nullptr; }
  static void Close(Type k) { RegCloseKey(k); }
};
struct ModuleTraits {
  using Type = HMODULE;
  static Type Invalid() { return nullptr; }
  static bool IsValid(Type m) { return m != nullptr; }
  static void Close(Type m) { FreeLibrary(m); }
};

struct LocalMemoryTraits {  // what the system allocates for the caller with LocalAlloc
  using Type = HLOCAL;
  static Type Invalid() { return nullptr; }
  static bool IsValid(Type m) { return m != nullptr; }
  static void Close(Type m) { LocalFree(m); }
};

using UniqueHandle = UniqueResource<HandleTraits>;
using UniqueFile = UniqueResource<FileHandleTraits>;
using UniqueFind = UniqueResource<FindTraits>;
using UniqueRegKey = UniqueResource<RegKeyTraits>;
using UniqueModule = UniqueResource<ModuleTraits>;
using UniqueLocalMemory = UniqueResource<LocalMemoryTraits>;

// A critical section that knows whether it was initialised, so that a
// process-exit teardown can delete it once and later calls can skip it.
class CriticalSection {
 public:
  explicit CriticalSection(DWORD spinCount) {
    m_ready = InitializeCriticalSectionAndSpinCount(&m_section, spinCount) != FALSE;
  }
  ~CriticalSection() { Delete(); }
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;

  void Delete() {
    if (m_ready) DeleteCriticalSection(&m_section);
    m_ready = false;
  }

  class Lock {
   public:
    explicit Lock(CriticalSection& cs) : m_cs(cs.m_ready ? &cs.m_section : nullptr) {
      if (m_cs) EnterCriticalSection(m_cs);
    }
    ~Lock() {
      if (m_cs) LeaveCriticalSection(m_cs);
    }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;

   private:
    CRITICAL_SECTION* m_cs;
  };

 private:
  CRITICAL_SECTION m_section{};
  bool m_ready = false;
};

// GetProcAddress typed as the function it is.
template <typename Fn>
Fn GetProcAs(HMODULE module, const char* name) {
  return module ? reinterpret_cast<Fn>(reinterpret_cast<void*>(GetProcAddress(module, name)))
                : nullptr;
}

// Keeps the calling thread's last-error value across a scope.
class PreserveLastError {
 public:
  PreserveLastError() : m_error(GetLastError()) {}
  ~PreserveLastError() { SetLastError(m_error); }
  PreserveLastError(const PreserveLastError&) = delete;
  PreserveLastError& operator=(const PreserveLastError&) = delete;

 private:
  DWORD m_error;
};

}  // namespace KyGuidUtils
