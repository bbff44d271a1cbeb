#include "kyguidlib/cwmifetcher.h"

#include <windows.h>
#include <wbemidl.h>

#include <cwchar>
#include <string>

#include "common/kylog.h"
#include "kyguidlib/guidpaths.h"

namespace KyGuid {
namespace {

constexpr wchar_t kLogSourcePath[] = L"ftcommon\\kyguid\\kyguidlib\\cwmifetcher";
constexpr wchar_t kInitService[] = L"KyGuid::CWMIFetcher::InitService";
constexpr wchar_t kFindByPnpId[] = L"KyGuid::CWMIFetcher::FindAdapterByPNPDeviceId";
constexpr wchar_t kNamespace[] = L"\\\\.\\root\\cimv2";
constexpr wchar_t kAdapterQuery[] =
    L"SELECT * FROM Win32_NetworkAdapter WHERE (PNPDeviceID IS NOT NULL)";
constexpr long kQueryFlags = WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY;
constexpr long kNextTimeoutMs = 10000;

unsigned Hex(HRESULT hr) { return static_cast<unsigned>(hr); }

}  // namespace

CWMIFetcher::CWMIFetcher() = default;

CWMIFetcher::~CWMIFetcher() = default;

int CWMIFetcher::FindAdapter(const char* pnpDeviceId) {
  // A host thread already in a single-threaded apartment (a UI thread that
  // calls UpdateNow) answers RPC_E_CHANGED_MODE. The query then runs in that
  // apartment, and only an apartment this call entered itself is left again:
  // a library living in every process of the suite must not tear down its
  // host's COM, which an unconditional CoUninitialize would do.
  KyGuidUtils::ScopedCoUninitialize leaveApartment(CoInitializeEx(nullptr, COINIT_MULTITHREADED));
  // Not examined: a process that set its own security works just as well.
  CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                       RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);

  // Released before the apartment is left.
  CWMIFetcher fetcher;
  fetcher.InitService();
  const std::wstring wideId = AnsiToWide(pnpDeviceId ? pnpDeviceId : "");
  return fetcher.FindAdapterByPNPDeviceId(wideId.c_str());
}

int CWMIFetcher::InitService() {
  KyGuidUtils::ComPtr<IWbemLocator> locator;
  HRESULT hr = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                locator.put_void());
  if (FAILED(hr)) {
    KyLog::Write(KyLog::kWarn, KYLOG_SITE(kInitService),
                 "failed to create IWbemLocator object: 0x%08x", Hex(hr));
    return 0;
  }

  KyGuidUtils::ComPtr<IWbemServices> services;
  KyGuidUtils::ScopedBstr resource(kNamespace);
  hr = locator->ConnectServer(resource.get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr,
                              services.put());
  if (FAILED(hr)) {
    KyLog::Write(KyLog::kWarn, KYLOG_SITE(kInitService), "failed to Connect server cimv2: 0x%08x",
                 Hex(hr));
    m_locator.reset();
    return 0;
  }

  hr = CoSetProxyBlanket(services.get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr,
                         RPC_C_AUTHN_LEVEL_CALL, RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
  if (FAILED(hr)) {
    KyLog::Write(KyLog::kWarn, KYLOG_SITE(kInitService), "CoSetProxyBlanket failed: 0x%08x",
                 Hex(hr));
    return 0;
  }

  m_services = std::move(services);
  m_locator = std::move(locator);
  return 1;
}

int CWMIFetcher::FindAdapterByPNPDeviceId(const wchar_t* pnpDeviceId) {
  if (!m_services) return 0;
  const wchar_t* id = pnpDeviceId ? pnpDeviceId : L"";

  KyGuidUtils::ComPtr<IEnumWbemClassObject> adapters;
  KyGuidUtils::ScopedBstr language(L"WQL");
  KyGuidUtils::ScopedBstr query(kAdapterQuery);
  HRESULT hr =
      m_services->ExecQuery(language.get(), query.get(), kQueryFlags, nullptr, adapters.put());
  if (FAILED(hr)) {
    KyLog::Write(KyLog::kWarn, KYLOG_SITE(kFindByPnpId), "ExecQuery failed: 0x%08x", Hex(hr));
    return 0;
  }

  for (;;) {
    KyGuidUtils::ComPtr<IWbemClassObject> adapter;
    ULONG returned = 0;
    // A time-out returns success with no object and ends the search too.
    hr = adapters->Next(kNextTimeoutMs, 1, adapter.put(), &returned);
    if (FAILED(hr) || returned == 0 || !adapter) return 0;

    KyGuidUtils::ScopedVariant value;
    if (FAILED(adapter->Get(L"PNPDeviceID", 0, value.get(), nullptr, nullptr))) continue;
    if (V_VT(&value.value()) != VT_BSTR) continue;
    const wchar_t* found = V_BSTR(&value.value()) ? V_BSTR(&value.value()) : L"";
    if (_wcsicmp(found, id) == 0) {
      KyLog::Write(KyLog::kTrace, KYLOG_SITE(kFindByPnpId), L"Find adapter in WMI: %s", id);
      return 1;
    }
  }
}

}  // namespace KyGuid
