#include "kyguidlib/td/kystackshell.h"

#include <windows.h>

#include <cwchar>

#include "common/lazysingleton.h"
#include "common/modules.h"
#include "common/win32raii.h"

namespace KyStuck {
namespace {

constexpr wchar_t kModuleName[] = L"KyStuck64.dll";

// The monitor is looked for beside the host executable only: it belongs to
// the installed suite, never to whatever folder happens to be current.
KyGuidUtils::UniqueModule LoadBesideExecutable() {
  return KyGuidUtils::UniqueModule(
      KyGuidUtils::LoadModuleFromFolder(KyGuidUtils::ExecutableDir().c_str(), kModuleName));
}

}  // namespace

CKyStackShell::CKyStackShell() {
  KyGuidUtils::UniqueModule module = LoadBesideExecutable();
  auto enter = KyGuidUtils::GetProcAs<MarkerFn>(module.get(), "KyStuckEnter");
  auto leave = KyGuidUtils::GetProcAs<MarkerFn>(module.get(), "KyStuckLeave");
  if (!enter || !leave) return;  // a module without both is of no use
  m_enter = enter;
  m_leave = leave;
  // Never freed: another thread may be inside a marker while the process
  // shuts down.
  module.release();
}

CKyStackShell* CKyStackShell::GetInstance() {
  KyGuidUtils::PreserveLastError keepCallersError;
  return KyGuidUtils::LazySingleton<CKyStackShell>::Get();
}

void CKyStackShell::Enter(const char* name) {
  if (m_enter) m_enter(name);
}

void CKyStackShell::Leave(const char* name) {
  if (m_leave) m_leave(name);
}

}  // namespace KyStuck
