// Lists the network adapters that carry a hardware address, rates each by
// the bus it sits on and its description, and marks the best one.
#pragma once

#include <string>
#include <vector>

#include "kyguidlib/hwrecords.h"

namespace KyGuid {

class CAdapterFetcher {
 public:
  // Rebuilds the list; returns the number of adapters.
  int Fetch();
  const std::vector<AdapterInfo>& Adapters() const { return m_adapters; }

  // The adapter's Plug and Play instance id from the registry, empty on any
  // failure. `adapterName` is the GUID text without braces.
  static std::string QueryPnpInstanceId(const std::string& adapterName);

 private:
  void LogAdapters() const;

  std::vector<AdapterInfo> m_adapters;
};

}  // namespace KyGuid
