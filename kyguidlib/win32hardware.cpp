// The hardware seam on the real machine.
#include <windows.h>
#include <cpuid.h>
#include <nb30.h>

#include "common/modules.h"
#include "common/win32raii.h"
#include "kyguidlib/cwmifetcher.h"
#include "kyguidlib/hardware.h"

namespace KyGuid {
namespace {

constexpr char kNetworkClassKey[] =
    "System\\CurrentControlSet\\Control\\Network\\{4D36E972-E325-11CE-BFC1-08002BE10318}";

class Win32Device final : public IDevice {
 public:
  explicit Win32Device(HANDLE handle) : m_handle(handle) {}

  bool Control(uint32_t code, const void* in, uint32_t inSize, void* out, uint32_t outSize,
               uint32_t* returned, uint32_t* error) override {
    DWORD bytes = 0;
    BOOL ok = DeviceIoControl(m_handle.get(), code, const_cast<void*>(in), inSize, out, outSize,
                              &bytes, nullptr);
    if (returned) *returned = bytes;
    if (!ok && error) *error = GetLastError();
    return ok != FALSE;
  }

  bool SeekToStart() override {
    return SetFilePointer(m_handle.get(), 0, nullptr, FILE_BEGIN) != INVALID_SET_FILE_POINTER;
  }

  bool Read(void* buffer, uint32_t size, uint32_t* read) override {
    DWORD bytes = 0;
    BOOL ok = ReadFile(m_handle.get(), buffer, size, &bytes, nullptr);
    if (read) *read = bytes;
    return ok != FALSE;
  }

 private:
  KyGuidUtils::UniqueFile m_handle;
};

class Win32AdapterQuery final : public IAdapterQuery {
 public:
  using GetAdaptersInfoFn = ULONG(WINAPI*)(void*, ULONG*);
  Win32AdapterQuery(HMODULE module, GetAdaptersInfoFn function)
      : m_module(module), m_function(function) {}

  uint32_t GetAdaptersInfo(void* buffer, uint32_t* size) override {
    ULONG length = *size;
    ULONG result = m_function(buffer, &length);
    *size = length;
    return result;
  }

 private:
  KyGuidUtils::UniqueModule m_module;
  GetAdaptersInfoFn m_function;
};

class Win32HardwareImpl final : public IHardware {
 public:
  std::unique_ptr<IDevice> OpenDevice(const std::wstring& path, uint32_t access, uint32_t share,
                                      uint32_t flags, uint32_t* error) override {
    HANDLE handle =
        CreateFileW(path.c_str(), access, share, nullptr, OPEN_EXISTING, flags, nullptr);
    if (handle == INVALID_HANDLE_VALUE) {
      if (error) *error = GetLastError();
      return nullptr;
    }
    return std::make_unique<Win32Device>(handle);
  }

  std::unique_ptr<IAdapterQuery> LoadAdapterQuery() override {
    KyGuidUtils::UniqueModule module(KyGuidUtils::LoadSystemModule(L"iphlpapi.dll"));
    auto function = KyGuidUtils::GetProcAs<Win32AdapterQuery::GetAdaptersInfoFn>(module.get(),
                                                                                 "GetAdaptersInfo");
    if (!function) return nullptr;
    return std::make_unique<Win32AdapterQuery>(module.release(), function);
  }

  bool ReadNetworkString(const std::string& connectionKey, const char* valueName, uint32_t maxBytes,
                         std::string& value) override {
    KyGuidUtils::UniqueRegKey key = OpenConnectionKey(connectionKey);
    if (!key) return false;
    std::string buffer(maxBytes, '\0');
    DWORD size = maxBytes;
    if (RegQueryValueExA(key.get(), valueName, nullptr, nullptr,
                         reinterpret_cast<BYTE*>(&buffer[0]), &size) != ERROR_SUCCESS) {
      return false;
    }
    value.assign(buffer.c_str());
    return true;
  }

  bool ReadNetworkDword(const std::string& connectionKey, const char* valueName,
                        uint32_t& value) override {
    KyGuidUtils::UniqueRegKey key = OpenConnectionKey(connectionKey);
    if (!key) return false;
    DWORD data = 0;
    DWORD size = sizeof(data);
    if (RegQueryValueExA(key.get(), valueName, nullptr, nullptr, reinterpret_cast<BYTE*>(&data),
                         &size) != ERROR_SUCCESS) {
      return false;
    }
    value = data;
    return true;
  }

  bool FindWmiAdapter(const std::string& pnpId) override {
    return CWMIFetcher::FindAdapter(pnpId.c_str()) != 0;
  }

  bool ReadProcessorBrand(std::vector<uint8_t>& registers) override {
    // The largest extended leaf is deliberately not asked first: every
    // processor this library runs on has the brand leaves.
    uint32_t words[12] = {};
    for (uint32_t leaf = 0; leaf < 3; ++leaf) {
      uint32_t* out = words + leaf * 4;
      __cpuid_count(0x80000002u + leaf, 0, out[0], out[1], out[2], out[3]);
    }
    const uint8_t* bytes = reinterpret_cast<const uint8_t*>(words);
    registers.assign(bytes, bytes + sizeof(words));
    return true;
  }

  uint8_t Netbios(void* ncb) override {
    using NetbiosFn = UCHAR(WINAPI*)(PNCB);
    static HMODULE netapi = KyGuidUtils::LoadSystemModule(L"netapi32.dll");
    auto netbios = KyGuidUtils::GetProcAs<NetbiosFn>(netapi, "Netbios");
    return netbios ? netbios(static_cast<PNCB>(ncb)) : NRC_SYSTEM;
  }

 private:
  static KyGuidUtils::UniqueRegKey OpenConnectionKey(const std::string& connectionKey) {
    KyGuidUtils::UniqueRegKey network;
    if (RegOpenKeyExA(HKEY_LOCAL_MACHINE, kNetworkClassKey, 0, KEY_READ, network.put()) !=
        ERROR_SUCCESS) {
      return KyGuidUtils::UniqueRegKey();
    }
    KyGuidUtils::UniqueRegKey connection;
    if (RegOpenKeyExA(network.get(), connectionKey.c_str(), 0, KEY_READ, connection.put()) !=
        ERROR_SUCCESS) {
      return KyGuidUtils::UniqueRegKey();
    }
    return connection;
  }
};

}  // namespace

IHardware& Win32Hardware() {
  static Win32HardwareImpl hardware;
  return hardware;
}

}  // namespace KyGuid
