// Client interface of KyGuid64.dll. A client loads the library, calls one of
// the two exports and uses the returned interface for the life of the
// process; the objects are never freed, so Release is optional.
#pragma once

#include <stddef.h>
#include <stdint.h>
#include <unknwn.h>

namespace KyGuid {

// {B924D29B-1B11-411E-B7E6-297C7621E01D}
constexpr IID IID_IGuidReader = {
    0xB924D29B, 0x1B11, 0x411E, {0xB7, 0xE6, 0x29, 0x7C, 0x76, 0x21, 0xE0, 0x1D}};
// {E4A4B147-B300-4CBF-8C46-C57525DF324C}
constexpr IID IID_IGuidUpdater = {
    0xE4A4B147, 0xB300, 0x4CBF, {0x8C, 0x46, 0xC5, 0x75, 0x25, 0xDF, 0x32, 0x4C}};

// Slots 0-2 are IUnknown; the order below is the binary contract.
class IGuidReader : public IUnknown {
 public:
  // Slot 3: returns 1 at once; the getters read the file themselves.
  virtual BOOL STDMETHODCALLTYPE WaitForGuid(uint32_t timeoutMs) = 0;
  // Slot 4: 16 bytes; the buffer is zero-filled over `size` bytes first.
  virtual BOOL STDMETHODCALLTYPE GetGuidBytes(uint8_t* buffer, uint64_t size) = 0;
  // Slot 5: 32 characters, terminated only when `size` is 33 or more.
  virtual BOOL STDMETHODCALLTYPE GetGuidStringA(char* buffer, uint64_t size) = 0;
  // Slot 6: stores 33 units (and a 34th NUL when `count` >= 33): size for 34.
  virtual BOOL STDMETHODCALLTYPE GetGuidStringW(wchar_t* buffer, uint64_t count) = 0;
};

class IGuidUpdater : public IUnknown {
 public:
  // Slot 3: 1 when an update thread was started.
  virtual BOOL STDMETHODCALLTYPE StartUpdate() = 0;
  // Slot 4: 1 when the update thread has ended.
  virtual BOOL STDMETHODCALLTYPE StopUpdate() = 0;
  // Slot 5: 1 done, 2 another process finished meanwhile, 0 another process
  // is still busy, 0xFFFFFFFF the update right could not be taken.
  virtual uint32_t STDMETHODCALLTYPE UpdateNow() = 0;
  // Slot 6: the GUID the present hardware gives, computed without saving.
  virtual BOOL STDMETHODCALLTYPE BuildGuidNow(char* buffer, uint32_t size) = 0;
};

}  // namespace KyGuid

extern "C" {
typedef KyGuid::IGuidReader*(__cdecl* GetGuidReaderFn)();
typedef KyGuid::IGuidUpdater*(__cdecl* GetGuidUpdaterFn)();
}
