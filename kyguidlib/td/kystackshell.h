// Progress markers for the suite's stuck monitor. The monitor is the optional
// module "KyStuck64.dll" beside the host executable; it exports
//
//   extern "C" void KyStuckEnter(const char* name);
//   extern "C" void KyStuckLeave(const char* name);
//
// and is told the class-qualified name of every marked method on entry and
// exit, so that it can report a thread that stays inside one too long.
// Without the module, or without either export, the markers cost a pointer
// test and do nothing.
#pragma once

namespace KyGuidUtils {
template <typename T>
class LazySingleton;
}  // namespace KyGuidUtils

namespace KyStuck {

class CKyStackShell {
 public:
  // Built on first use; the module, once loaded, stays for the process.
  static CKyStackShell* GetInstance();

  void Enter(const char* name);
  void Leave(const char* name);

  CKyStackShell(const CKyStackShell&) = delete;
  CKyStackShell& operator=(const CKyStackShell&) = delete;

 private:
  friend class KyGuidUtils::LazySingleton<CKyStackShell>;
  using MarkerFn = void (*)(const char*);
  CKyStackShell();

  MarkerFn m_enter = nullptr;
  MarkerFn m_leave = nullptr;
};

// Enters `name` on construction and leaves it on destruction. `name` must
// outlive the scope (a string literal).
class StackScope {
 public:
  explicit StackScope(const char* name) : m_name(name) {
    CKyStackShell::GetInstance()->Enter(m_name);
  }
  ~StackScope() { CKyStackShell::GetInstance()->Leave(m_name); }
  StackScope(const StackScope&) = delete;
  StackScope& operator=(const StackScope&) = delete;

 private:
  const char* m_name;
};

}  // namespace KyStuck
