// The IP helper's adapter list. The module is loaded from the system
// directory when the object is made and freed with it.
#pragma once

#include <memory>
#include <vector>

#include "kyguidlib/hardware.h"
#include "kyguidlib/hwrecords.h"

namespace KyGuid {

class CIpHelpFetcher {
 public:
  CIpHelpFetcher();
  ~CIpHelpFetcher();

  // Appends one record per adapter that has a hardware address; failures are
  // logged and leave `adapters` as it was.
  void QueryAdapter(std::vector<AdapterInfo>& adapters);

 private:
  std::unique_ptr<IAdapterQuery> m_query;
};

}  // namespace KyGuid
