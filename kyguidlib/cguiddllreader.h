// The machine GUID as the suite's installed copy of KyGuid64.dll sees it,
// which need not be the copy that is running: a reader that finds that copy
// once per process, takes its interfaces and forwards every reader call to
// it. Without a usable copy every call fails softly with a zeroed buffer.
#pragma once

#include <windows.h>

#include "kyguidlib/kyguidapi.h"

namespace KyGuid {

// The copy as loaded into this process; one per process, built on first use.
// At exit the pointers are dropped without Release (the copy's objects live
// as long as the process) and the module is freed.
struct LoadedCopy {
  HMODULE m_module;
  IGuidReader* m_reader;
  IGuidUpdater* m_updater;
};

const LoadedCopy& GetLoadedCopy();

// Whether a loaded module's path names the library: its last 12 characters
// are "KyGuid64.dll" in any case.
bool IsGuidModulePath(const wchar_t* path);

class CGuidDllReader : public IGuidReader {
 public:
  using Interface = IGuidReader;
  static const IID& InterfaceId() { return IID_IGuidReader; }

  BOOL STDMETHODCALLTYPE WaitForGuid(uint32_t timeoutMs) override;
  BOOL STDMETHODCALLTYPE GetGuidBytes(uint8_t* buffer, uint64_t size) override;
  BOOL STDMETHODCALLTYPE GetGuidStringA(char* buffer, uint64_t size) override;
  BOOL STDMETHODCALLTYPE GetGuidStringW(wchar_t* buffer, uint64_t count) override;

  // The copy is freed right after this; later calls fail softly.
  void OnProcessExit();

 protected:
  CGuidDllReader();
  ~CGuidDllReader() = default;

 private:
  IGuidReader* m_target = nullptr;
};

// The installed copy's GUID as 32 characters and a NUL; FALSE with a zeroed
// buffer when there is no copy or it has no GUID.
BOOL GetInstalledGuid(char buffer[33]);

}  // namespace KyGuid
