// The one seam through which the library touches hardware: device opens and
// their control requests, the IP helper's adapter list, the adapter values in
// the registry, WMI and NetBIOS. The shipped library uses the Win32
// implementation only; tests and the command line's what-if mode present a
// simulated machine built from the same byte layouts.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace KyGuid {

// An open device handle; closed on destruction.
class IDevice {
 public:
  virtual ~IDevice() = default;
  // DeviceIoControl. On failure returns false and sets `error`.
  virtual bool Control(uint32_t code, const void* in, uint32_t inSize, void* out, uint32_t outSize,
                       uint32_t* returned, uint32_t* error) = 0;
  virtual bool SeekToStart() = 0;
  virtual bool Read(void* buffer, uint32_t size, uint32_t* read) = 0;
};

// GetAdaptersInfo of a loaded IP helper module; the module is freed with it.
class IAdapterQuery {
 public:
  virtual ~IAdapterQuery() = default;
  // Fills an IP_ADAPTER_INFO chain; returns the Windows error code.
  virtual uint32_t GetAdaptersInfo(void* buffer, uint32_t* size) = 0;
};

class IHardware {
 public:
  virtual ~IHardware() = default;

  // CreateFileW(path, access, share, nullptr, OPEN_EXISTING, flags, nullptr);
  // null with `error` set when the open fails.
  virtual std::unique_ptr<IDevice> OpenDevice(const std::wstring& path, uint32_t access,
                                              uint32_t share, uint32_t flags, uint32_t* error) = 0;

  // "iphlpapi.dll" from the system directory with its GetAdaptersInfo; null
  // when the module or the function is missing.
  virtual std::unique_ptr<IAdapterQuery> LoadAdapterQuery() = 0;

  // A value of <connectionKey> (for example "{GUID}\Connection") under the
  // network class key {4D36E972-E325-11CE-BFC1-08002BE10318} of
  // HKLM\System\CurrentControlSet\Control\Network. Strings are read into a buffer of
  // `maxBytes` and end at its first NUL; false on any failure.
  virtual bool ReadNetworkString(const std::string& connectionKey, const char* valueName,
                                 uint32_t maxBytes, std::string& value) = 0;
  virtual bool ReadNetworkDword(const std::string& connectionKey, const char* valueName,
                                uint32_t& value) = 0;

  // Whether WMI knows a network adapter whose PNPDeviceID equals `pnpId`
  // (compared without regard to case).
  virtual bool FindWmiAdapter(const std::string& pnpId) = 0;

  // The 48 bytes of the processor's brand-string leaves (CPUID 0x80000002
  // to 0x80000004, EAX EBX ECX EDX of each), as the processor gives them.
  virtual bool ReadProcessorBrand(std::vector<uint8_t>& registers) = 0;

  // Netbios of netapi32 from the system directory on a 64-bit NCB; returns
  // its result code.
  virtual uint8_t Netbios(void* ncb) = 0;
};

// The Win32 implementation used by the shipped library.
IHardware& Win32Hardware();

}  // namespace KyGuid
