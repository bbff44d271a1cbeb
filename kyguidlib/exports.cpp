// The library's whole public surface: two factories returning process-wide
// objects, and an entry point that does nothing but opt out of thread
// notifications.
#include <windows.h>

#include "kyguidlib/cguidreader.h"
#include "kyguidlib/cguidupdater.h"
#include "kyguidlib/singletonex.h"

extern "C" KyGuid::IGuidReader* __cdecl GetGuidReader() {
  return KyGuidUtils::CSingletonEx<KyGuid::CGuidReader>::Instance();
}

extern "C" KyGuid::IGuidUpdater* __cdecl GetGuidUpdater() {
  return KyGuidUtils::CSingletonEx<KyGuid::CGuidUpdater>::Instance();
}

extern "C" BOOL WINAPI DllMain(HINSTANCE instance, DWORD reason, LPVOID) {
  if (reason == DLL_PROCESS_ATTACH) DisableThreadLibraryCalls(instance);
  return TRUE;
}
