// Where the host executable lives, and run-time module loads. Every module
// is loaded by its full path: a bare name would let the loader's search
// path, which the host may have changed, pick up a planted copy inside a
// privileged process of the suite.
#pragma once

#include <windows.h>

#include <string>

#include "common/registrylocation.h"

namespace KyGuidUtils {

// The host executable's folder, without a trailing backslash; empty when
// its path does not fit in MAX_PATH.
std::wstring ExecutableDir();

// `fileName` from `dir` (a backslash is added when missing); null when the
// folder is empty, the path would not fit in MAX_PATH or the load fails.
HMODULE LoadModuleFromFolder(const wchar_t* dir, const wchar_t* fileName);

// A Windows module from the system directory, never from anywhere else.
HMODULE LoadSystemModule(const wchar_t* fileName);

// The suite's modules live beside the host executable, else in its install
// folder: `load(dir)` is called with each in turn until it returns true.
// False when neither answered or the suite records no install folder.
template <typename Load>
bool LoadFromSuiteFolders(Load&& load) {
  if (load(ExecutableDir().c_str())) return true;
  wchar_t installDir[MAX_PATH] = {};
  return ReadRegistryLocation(kInstallDirLocation, installDir) && load(installDir);
}

}  // namespace KyGuidUtils
