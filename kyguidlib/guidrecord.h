// One machine GUID with the hardware it was built from: the unit that is
// loaded from and saved to a section of Guid.db.
#pragma once

#include <cstdint>
#include <string>

namespace KyGuid {

struct GuidRecord {
  std::string Guid;
  std::string DiskKey;
  std::string DiskDetail;
  std::string AdapterKey;
  std::string AdapterDetail;
  int32_t DiskIndex = -1;     // in memory only: the local disk it is bound to
  int32_t AdapterIndex = -1;  // in memory only: the local adapter it is bound to
  int32_t CreateIndex = -1;
  int32_t CreateTime = 0;
  int32_t Score = -1;
  int32_t Reason = 0;
  int32_t Version = 0;
};

}  // namespace KyGuid
