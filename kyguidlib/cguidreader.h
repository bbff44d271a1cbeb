// Serves the GUID that the updater last wrote to Guid.db. The file is parsed
// only when its last-write time changed; otherwise a getter costs one
// attribute query and a copy. Once a good GUID was read it is never cleared:
// a spoiled or deleted file leaves the last good value in place.
#pragma once

#include <windows.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "common/win32raii.h"
#include "kyguidlib/kyguidapi.h"

namespace KyGuid {

class CGuidReader : public IGuidReader {
 public:
  using Interface = IGuidReader;
  static const IID& InterfaceId() { return IID_IGuidReader; }

  BOOL STDMETHODCALLTYPE WaitForGuid(uint32_t timeoutMs) override;
  BOOL STDMETHODCALLTYPE GetGuidBytes(uint8_t* buffer, uint64_t size) override;
  BOOL STDMETHODCALLTYPE GetGuidStringA(char* buffer, uint64_t size) override;
  BOOL STDMETHODCALLTYPE GetGuidStringW(wchar_t* buffer, uint64_t count) override;

  // Frees the path and the lock; later calls find no file and the cache.
  void OnProcessExit();

 protected:
  CGuidReader();
  ~CGuidReader() = default;

 private:
  void UpdateGuidFromFile();
  void StoreGuid(const uint8_t bytes[16], const char text[33]);
  // Copies the cached value; retries while a refresh is storing a new one so
  // that a copy never mixes two GUIDs.
  void CopyGuid(uint8_t bytes[16], char text[33]) const;

  KyGuidUtils::CriticalSection m_lock;
  std::string m_profilePath;
  uint8_t m_guidBytes[16] = {};
  char m_guidText[33] = {};
  std::atomic<uint64_t> m_fileTime{~0ull};
  std::atomic<uint32_t> m_storeSequence{0};  // odd while a store is under way
};

}  // namespace KyGuid
