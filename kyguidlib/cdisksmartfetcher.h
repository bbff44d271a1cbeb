// Reads a disk's model, firmware revision and serial with ATA IDENTIFY
// DEVICE through the SMART driver interface, for drives whose storage
// property query gives no serial.
#pragma once

#include "kyguidlib/hwrecords.h"

namespace KyGuid {

class CDiskSmartFetcher {
 public:
  // Reads drive `disk.Index`; on success stores ProductId, Revision and
  // SerialNumber (cleaned) and returns 1. Nothing else of `disk` is touched.
  int Fetch(DiskInfo& disk);
};

}  // namespace KyGuid
