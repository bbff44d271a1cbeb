// The WMI adapter lookup against the adapters Wine itself reports.
#include "kyguidlib/cwmifetcher.h"

#include <wbemidl.h>

#include "common/comraii.h"
#include "kyguidlib/hardware.h"
#include "tests/testsupport.h"

namespace {

using KyGuid::CWMIFetcher;

// Every PNPDeviceID that WMI lists for a network adapter, read with a query
// of the test's own so that the lookup is checked against an independent
// answer.
std::vector<std::string> WmiPnpIds() {
  std::vector<std::string> ids;
  CoInitializeEx(nullptr, COINIT_MULTITHREADED);
  {
    KyGuidUtils::ComPtr<IWbemLocator> locator;
    KyGuidUtils::ComPtr<IWbemServices> services;
    KyGuidUtils::ComPtr<IEnumWbemClassObject> adapters;
    KyGuidUtils::ScopedBstr resource(L"ROOT\\CIMV2");
    KyGuidUtils::ScopedBstr language(L"WQL");
    KyGuidUtils::ScopedBstr query(L"SELECT PNPDeviceID FROM Win32_NetworkAdapter");
    if (SUCCEEDED(CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER,
                                   IID_IWbemLocator, locator.put_void())) &&
        SUCCEEDED(locator->ConnectServer(resource.get(), nullptr, nullptr, nullptr, 0, nullptr,
                                         nullptr, services.put())) &&
        SUCCEEDED(services->ExecQuery(language.get(), query.get(), WBEM_FLAG_FORWARD_ONLY,
                                      nullptr, adapters.put()))) {
      for (;;) {
        KyGuidUtils::ComPtr<IWbemClassObject> adapter;
        ULONG returned = 0;
        if (FAILED(adapters->Next(10000, 1, adapter.put(), &returned)) || returned == 0) break;
        KyGuidUtils::ScopedVariant value;
        if (SUCCEEDED(adapter->Get(L"PNPDeviceID", 0, value.get(), nullptr, nullptr)) &&
            V_VT(&value.value()) == VT_BSTR && SysStringLen(V_BSTR(&value.value())) > 0) {
          std::wstring wide = V_BSTR(&value.value());
          ids.emplace_back(wide.begin(), wide.end());
        }
      }
    }
  }
  CoUninitialize();
  return ids;
}

std::string SwapCase(std::string text) {
  for (char& c : text) {
    if (c >= 'a' && c <= 'z') {
      c = static_cast<char>(c - 'a' + 'A');
    } else if (c >= 'A' && c <= 'Z') {
      c = static_cast<char>(c - 'A' + 'a');
    }
  }
  return text;
}

class WmiFetcherTest : public KyGuidTest::IsolatedTest {
 protected:
  void SetUp() override {
    IsolatedTest::SetUp();
    std::vector<std::string> ids = WmiPnpIds();
    ASSERT_FALSE(ids.empty()) << "this Wine lists no network adapter with a PNPDeviceID";
    m_present = ids.front();
  }
  std::string m_present;
};

TEST_F(WmiFetcherTest, FindsAPresentIdInAnyCaseAndNothingElse) {
  const std::string swapped = SwapCase(m_present);
  ASSERT_NE(m_present, swapped);
  EXPECT_EQ(1, CWMIFetcher::FindAdapter(m_present.c_str()));
  EXPECT_EQ(1, CWMIFetcher::FindAdapter(swapped.c_str()));
  EXPECT_EQ(0, CWMIFetcher::FindAdapter(""));
  EXPECT_EQ(0, CWMIFetcher::FindAdapter("PCI\\VEN_FFFF&DEV_0000\\0&0&0"));
  EXPECT_EQ(0, CWMIFetcher::FindAdapter(m_present.substr(0, m_present.size() - 1).c_str()));

  const std::string found = LogLineWith("Find adapter in WMI: " + m_present);
  EXPECT_NE(std::string::npos, found.find("TRACE")) << found;
  EXPECT_NE(std::string::npos, found.find("KyGuid::CWMIFetcher::FindAdapterByPNPDeviceId (ftcommon"
                                          "\\kyguid\\kyguidlib\\cwmifetcher:"))
      << found;
  EXPECT_EQ(1, CountLog("Find adapter in WMI: " + swapped));
  EXPECT_EQ(2, CountLog("Find adapter in WMI: "));
}

TEST_F(WmiFetcherTest, TheShippedHardwareSeamAsksWmi) {
  EXPECT_TRUE(KyGuid::Win32Hardware().FindWmiAdapter(m_present));
  EXPECT_FALSE(KyGuid::Win32Hardware().FindWmiAdapter("ROOT\\NET\\9999"));
}

TEST_F(WmiFetcherTest, LeavesAThreadWithoutComAsItWas) {
  ASSERT_EQ(1, CWMIFetcher::FindAdapter(m_present.c_str()));
  // Still uninitialised: any apartment model may be entered now.
  HRESULT hr = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
  EXPECT_EQ(S_OK, hr);
  if (SUCCEEDED(hr)) CoUninitialize();
}

TEST_F(WmiFetcherTest, AnswersInTheCallersSingleThreadedApartmentAndLeavesItThere) {
  ASSERT_EQ(S_OK, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
  EXPECT_EQ(1, CWMIFetcher::FindAdapter(m_present.c_str()));
  EXPECT_EQ(S_FALSE, CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED));
  CoUninitialize();
  CoUninitialize();
}

TEST_F(WmiFetcherTest, AnswersInAProcessThatSetItsOwnSecurity) {
  ASSERT_TRUE(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED)));
  ASSERT_EQ(S_OK, CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_CONNECT,
                                       RPC_C_IMP_LEVEL_IDENTIFY, nullptr, EOAC_NONE, nullptr));
  EXPECT_EQ(1, CWMIFetcher::FindAdapter(m_present.c_str()));
  EXPECT_EQ(0, CWMIFetcher::FindAdapter("PCI\\VEN_FFFF&DEV_0000\\0&0&0"));
  // The caller's own apartment is still there.
  EXPECT_EQ(S_FALSE, CoInitializeEx(nullptr, COINIT_MULTITHREADED));
  CoUninitialize();
  CoUninitialize();
}

TEST_F(WmiFetcherTest, WithoutComTheConnectionFailsLoggedAndNothingIsFound) {
  CWMIFetcher fetcher;
  EXPECT_EQ(0, fetcher.InitService());
  EXPECT_EQ(0, fetcher.FindAdapterByPNPDeviceId(std::wstring(m_present.begin(), m_present.end()).c_str()));
  const std::string line = LogLineWith("failed to create IWbemLocator object: 0x");
  EXPECT_NE(std::string::npos, line.find("WARN")) << line;
  EXPECT_NE(std::string::npos, line.find("object: 0x800401f0")) << line;  // CO_E_NOTINITIALIZED
}

}  // namespace
