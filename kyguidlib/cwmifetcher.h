// Whether Windows Management Instrumentation knows a network adapter by its
// Plug and Play instance id. Each question opens its own COM apartment and
// WMI connection and closes them again; nothing is cached.
#pragma once

#include "common/comraii.h"

struct IWbemLocator;
struct IWbemServices;

namespace KyGuid {

class CWMIFetcher {
 public:
  CWMIFetcher();
  ~CWMIFetcher();
  CWMIFetcher(const CWMIFetcher&) = delete;
  CWMIFetcher& operator=(const CWMIFetcher&) = delete;

  // 1 when an adapter whose PNPDeviceID equals `pnpDeviceId` (ANSI, compared
  // without regard to case) exists, else 0. Enters the multithreaded
  // apartment for the length of the call and leaves it again; on a thread
  // that already has an apartment it runs there and leaves it as it was.
  static int FindAdapter(const char* pnpDeviceId);

  // Connects to root\cimv2; 1 on success, 0 (logged) on failure.
  int InitService();
  // 0 without a connection.
  int FindAdapterByPNPDeviceId(const wchar_t* pnpDeviceId);

 private:
  KyGuidUtils::ComPtr<IWbemServices> m_services;
  KyGuidUtils::ComPtr<IWbemLocator> m_locator;
};

}  // namespace KyGuid
